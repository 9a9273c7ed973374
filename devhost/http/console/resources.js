// One panel per resource, built from its entry in the document: the
// ChannelId, the record's fields, Read / Apply / the action, and the answer
// beside them. Groups are shown one at a time; showing one reads its
// resources.

import { describe, request, resourceUrl } from './api.js';
import { element, recordFields } from './forms.js';

// Asks before a request that changes the device without a body.
function confirmAction(dialog, text) {
  return new Promise((resolve) => {
    dialog.querySelector('.question').textContent = text;
    dialog.returnValue = '';
    dialog.addEventListener('close', () => resolve(dialog.returnValue === 'confirm'), { once: true });
    dialog.showModal();
  });
}

function channelControl(resource) {
  const param = resource.channel;
  if (!param) {
    return { element: null, value: () => '' };
  }
  const s = param.schema || {};
  const id = `channel-${resource.name}`;
  let control;
  if (Array.isArray(s.enum)) {
    control = element('select', { id, name: 'ChannelId' },
      param.required ? null : element('option', { value: '', text: '(not sent)' }),
      s.enum.map((v) => element('option', { value: String(v), text: String(v) })));
  } else {
    control = element('input', { id, name: 'ChannelId', type: 'number', step: '1', min: s.minimum, max: s.maximum,
      placeholder: param.required ? '' : '(not sent)' });
  }
  control.value = resource.channelDefault;
  return {
    element: element('div', { class: 'field channel' },
      element('label', { for: id, text: param.required ? 'ChannelId' : 'ChannelId (optional)' }), control),
    value: () => control.value.trim(),
  };
}

class ResourcePanel {
  constructor(doc, resource, ranges, dialog) {
    this.resource = resource;
    this.dialog = dialog;
    this.channel = channelControl(resource);
    this.fields = resource.schema
      ? recordFields({ doc, ranges, readOnly: !resource.writable, writeOnly: !resource.get,
        onChange: () => this.form.classList.add('edited') }, resource.schema)
      : null;
    this.output = element('output', { class: 'answer', 'aria-live': 'polite' });
    this.sent = element('code', { class: 'sent' });
    this.note = element('p', { class: 'note' });
    const buttons = [];
    if (resource.writable) {
      buttons.push(element('button', { type: 'submit', class: 'primary', text: 'Apply' }));
    }
    if (resource.get) {
      buttons.push(element('button', { type: resource.writable ? 'button' : 'submit', text: 'Read',
        onclick: (e) => { e.preventDefault(); this.busy(() => this.read()); } }));
    }
    if (resource.put && !resource.writable) {
      buttons.push(element('button', { type: 'submit', class: resource.confirm ? 'danger' : 'primary',
        text: resource.summary || `PUT ${resource.name}` }));
    }
    const titleId = `title-${resource.name}`;
    const about = resource.writable || resource.get ? resource.about : '';
    this.form = element('form', { class: 'resource', novalidate: true, 'aria-labelledby': titleId,
      id: `resource-${resource.name}`, 'data-resource': resource.name },
      element('header', {},
        element('h3', { id: titleId, text: resource.name }),
        element('span', { class: 'methods', text: [resource.get && 'GET', resource.put && 'PUT'].filter(Boolean).join(' · ') }),
        about ? element('p', { class: 'summary', text: about }) : null),
      resource.writable && !resource.get
        ? element('p', { class: 'summary', text: 'The device does not answer a read of this: Apply sends the members you set.' })
        : null,
      this.channel.element,
      this.fields ? this.fields.element : null,
      element('div', { class: 'actions' }, buttons, this.output),
      this.sent, this.note);
    this.form.addEventListener('submit', (e) => {
      e.preventDefault();
      if (resource.writable) {
        this.busy(() => this.apply());
      } else if (resource.put) {
        this.busy(() => this.run());
      } else {
        this.busy(() => this.read());
      }
    });
    if (this.fields) {
      this.fields.set(undefined);
    }
  }

  // The form is aria-busy while a request of it is under way.
  async busy(task) {
    this.pending = (this.pending || 0) + 1;
    this.form.setAttribute('aria-busy', 'true');
    try {
      return await task();
    } finally {
      if (--this.pending === 0) {
        this.form.removeAttribute('aria-busy');
      }
    }
  }

  url() {
    return resourceUrl(this.resource, this.channel.value());
  }

  show(answer, prefix = '') {
    const d = describe(answer);
    this.output.textContent = prefix + d.text;
    this.output.className = `answer ${d.ok ? 'ok' : 'refused'}`;
    return d.ok;
  }

  // Reads the record into the fields; on a failure the fields keep the
  // last values read and say so.
  async read(showAnswer = true) {
    const answer = await request('GET', this.url());
    const d = describe(answer);
    const record = answer.status === 200 && answer.json && !answer.json.ResponseStatus ? answer.json : null;
    if (record && this.fields) {
      this.fields.set(record);
      this.form.classList.remove('stale', 'edited');
    } else {
      this.form.classList.add('stale');
    }
    if (showAnswer) {
      this.show(answer, 'Read: ');
      this.sent.textContent = '';
      this.note.textContent = record ? '' : 'The read failed: the values shown are from an earlier read.';
    }
    return { record, d };
  }

  async apply() {
    const changes = this.fields.changed();
    if (changes === undefined) {
      this.output.textContent = 'Nothing changed: nothing sent.';
      this.output.className = 'answer';
      return;
    }
    const answer = await request('PUT', this.url(), changes);
    const ok = this.show(answer);
    this.sent.textContent = `sent ${JSON.stringify(changes)}`;
    if (!this.resource.get) {
      this.note.textContent = '';
      if (ok) {
        this.fields.set(this.fields.value());
        this.form.classList.remove('edited');
      }
      return;
    }
    const again = await this.read(false);
    if (!again.record) {
      this.note.textContent = `Reading again failed (${again.d.text}): the values shown are from an earlier read.`;
    } else {
      this.note.textContent = ok ? 'Read again: the device holds these values.'
        : 'Refused. Read again: the form shows what the device still holds.';
    }
  }

  async run() {
    const url = this.url();
    if (this.resource.confirm &&
        !(await confirmAction(this.dialog, `${this.resource.summary || this.resource.name}: PUT ${url} changes the device.`))) {
      this.output.textContent = 'Cancelled: nothing sent.';
      this.output.className = 'answer';
      return;
    }
    this.show(await request('PUT', url));
  }
}

// Builds the group buttons into `nav` and a section per group into
// `container`; returns the function that shows a group by name.
export function buildResources({ doc, list, groupNames, ranges, nav, container, dialog }) {
  const sections = new Map();
  const buttons = new Map();
  for (const name of groupNames) {
    const panels = list.filter((r) => r.tag === name).map((r) => new ResourcePanel(doc, r, ranges, dialog));
    const id = `group-${name.replace(/[^A-Za-z0-9]+/g, '-')}`;
    const section = element('section', { class: 'group-panel', id, 'aria-label': name, hidden: true },
      element('h2', { text: name }), panels.map((p) => p.form));
    section.panels = panels;
    sections.set(name, section);
    container.append(section);
    const button = element('button', { type: 'button', 'aria-controls': id, 'aria-pressed': 'false', text: name,
      onclick: () => { location.hash = encodeURIComponent(name); } });
    buttons.set(name, button);
    nav.append(button);
  }
  async function showGroup(name) {
    for (const [other, section] of sections) {
      section.hidden = other !== name;
      buttons.get(other).setAttribute('aria-pressed', String(other === name));
    }
    // The requests go one at a time; every panel is busy until its own ends.
    const readable = sections.get(name).panels.filter((panel) => panel.resource.get);
    await Promise.all(readable.map((panel) => panel.busy(() => panel.read())));
  }
  return showGroup;
}
