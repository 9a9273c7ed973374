// One panel per resource, built from its entry in the document: what the
// document says of it, the ChannelId with its rule, the record's fields,
// Read / Apply / the action, and the answer beside them. Groups are tabs,
// shown one at a time; showing one reads its resources.

import { describe, request, resourceUrl } from './api.js';
import { element, recordFields } from './forms.js';
import { bodyProblems, channelProblems } from './rules.js';

// Asks before a request that changes the device without a body; Cancel has
// the focus.
function confirmAction(dialog, question, about) {
  return new Promise((resolve) => {
    dialog.querySelector('.question').textContent = question;
    dialog.querySelector('.about').textContent = about;
    dialog.returnValue = '';
    dialog.addEventListener('close', () => resolve(dialog.returnValue === 'confirm'), { once: true });
    dialog.showModal();
    dialog.querySelector('button[value="cancel"]').focus();
  });
}

function channelControl(resource) {
  const param = resource.channel;
  if (!param) {
    return { element: null, value: () => '', control: null };
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
  // The document's rule for it: which values, and whether it selects the
  // device's channel or is only checked.
  const rule = param.description ? element('small', { class: 'hint', id: `${id}-rule`, text: param.description }) : null;
  if (rule) {
    control.setAttribute('aria-describedby', rule.id);
  }
  const problem = element('p', { class: 'problem', id: `${id}-problem`, hidden: true });
  const wrapper = element('div', { class: 'field channel' },
    element('label', { for: id, text: param.required ? 'ChannelId' : 'ChannelId (optional)' }), control, problem, rule);
  return {
    element: wrapper,
    control,
    value: () => control.value.trim(),
    mark(texts) {
      problem.textContent = texts.join('; ');
      problem.hidden = texts.length === 0;
      wrapper.classList.toggle('refused', texts.length > 0);
      if (texts.length > 0) {
        control.setAttribute('aria-invalid', 'true');
      } else {
        control.removeAttribute('aria-invalid');
      }
    },
  };
}

// Diagnostics worth showing beside a refusal: those above trace level, or
// every one when none is.
function diagnosticsOf(lines) {
  const diagnostics = (lines || []).filter((l) => String(l.kind).startsWith('diag'));
  const above = diagnostics.filter((l) => Number(l.level) > 0);
  return above.length > 0 ? above : diagnostics;
}

class ResourcePanel {
  constructor(doc, resource, ranges, dialog, waiting) {
    this.doc = doc;
    this.resource = resource;
    this.dialog = dialog;
    this.waiting = waiting;
    this.channel = channelControl(resource);
    this.fields = resource.schema
      ? recordFields({ doc, ranges, readOnly: !resource.writable, writeOnly: !resource.get,
        onChange: () => this.form.classList.add('edited') }, resource.schema)
      : null;
    this.output = element('output', { class: 'answer', 'aria-live': 'polite' });
    this.busyLine = element('output', { class: 'waiting', role: 'status' });
    this.sent = element('code', { class: 'sent' });
    this.note = element('p', { class: 'note' });
    this.problems = element('ul', { class: 'problems', 'aria-label': `What the device refused of ${resource.name}` });
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
        element('a', { class: 'operation', href: resource.link, target: '_blank', rel: 'noopener',
          text: `${resource.path} in /openapi.json` }),
        about ? element('p', { class: 'summary', text: about }) : null,
        resource.notes.map((text) => element('p', { class: 'summary note-doc', text }))),
      resource.writable && !resource.get
        ? element('p', { class: 'summary', text: 'The device does not answer a read of this: Apply sends the members you set.' })
        : null,
      this.channel.element,
      this.fields ? this.fields.element : null,
      element('div', { class: 'actions' }, buttons, this.output, this.busyLine),
      this.problems, this.sent, this.note);
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

  // The form is aria-busy while a request of it is under way, and says what
  // it waits for (waiting.js).
  async busy(task) {
    this.pending = (this.pending || 0) + 1;
    this.form.setAttribute('aria-busy', 'true');
    const watch = this.waiting.watch(this.resource, this.busyLine);
    this.started = () => watch.started();
    try {
      return await task();
    } finally {
      watch.stop();
      if (--this.pending === 0) {
        this.form.removeAttribute('aria-busy');
      }
    }
  }

  send(method, body) {
    return request(method, this.url(), body, () => this.started && this.started());
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

  // Takes back what an earlier refusal marked.
  clearProblems() {
    this.problems.replaceChildren();
    this.channel.mark?.([]);
    for (const field of this.fields ? this.fields.fields.values() : []) {
      field.unmark();
    }
  }

  // Reads the record into the fields; on a failure the fields keep the
  // last values read and say so. A read of the person's own ends what an
  // earlier refusal kept and marked.
  async read(showAnswer = true) {
    const answer = await this.send('GET');
    const d = describe(answer);
    const record = answer.status === 200 && answer.json && !answer.json.ResponseStatus ? answer.json : null;
    if (record && this.fields) {
      this.fields.set(record);
      this.form.classList.remove('stale', 'edited');
    } else {
      this.form.classList.add('stale');
    }
    if (showAnswer) {
      this.clearProblems();
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
    this.clearProblems();
    const channel = this.channel.value();
    const answer = await this.send('PUT', changes);
    const ok = this.show(answer);
    this.sent.textContent = `sent ${JSON.stringify(changes)}`;
    if (!this.resource.get) {
      this.note.textContent = '';
      if (ok) {
        this.fields.set(this.fields.value());
        this.form.classList.remove('edited');
      } else {
        this.explain(answer, changes, channel, null);
      }
      return;
    }
    const again = await this.read(false);
    if (!again.record) {
      this.note.textContent = `Reading again failed (${again.d.text}): the values shown are from an earlier read.`;
    } else if (ok) {
      this.note.textContent = 'Read again: the device holds these values.';
    }
    if (!ok) {
      this.explain(answer, changes, channel, again.record);
    }
  }

  // After a refusal: names each member of the body sent (and the ChannelId)
  // that breaks a rule of the document, marks its field and keeps the value
  // sent in it until the next read; where no rule explains the refusal,
  // shows the module's own diagnostics of the request.
  explain(answer, changes, channel, record) {
    const found = bodyProblems(this.doc, this.resource.putSchema, changes);
    const channelTexts = channelProblems(this.resource.channel, channel);
    const items = [];
    const byPath = new Map();
    for (const p of found) {
      byPath.set(p.path, [...(byPath.get(p.path) || []), p.text]);
    }
    for (const [path, texts] of byPath) {
      const field = this.fields.fields.get(path);
      const sent = path.split(/\.|\[|\]/).filter(Boolean).reduce((v, k) => (v === null || v === undefined ? v : v[k]), changes);
      const held = record ? path.split(/\.|\[|\]/).filter(Boolean).reduce((v, k) => (v === null || v === undefined ? v : v[k]), record) : undefined;
      const withHeld = held === undefined ? texts : [...texts, `the device holds ${JSON.stringify(held)}`];
      if (field) {
        field.keep(sent);
        field.mark(withHeld);
      }
      items.push(this.problemItem(texts.join('; '), field ? field.control : null));
    }
    if (channelTexts.length > 0) {
      this.channel.mark(channelTexts);
      items.push(this.problemItem(channelTexts.join('; '), this.channel.control));
    }
    if (items.length > 0) {
      this.form.classList.add('edited');
      this.note.textContent = `Refused. ${items.length === 1 ? 'This breaks' : 'These break'} a rule of the API ` +
        'document; the fields marked keep the values sent until the next read, the others show what the device holds.';
    } else {
      const diagnostics = diagnosticsOf(answer.lines);
      for (const line of diagnostics) {
        items.push(element('li', { class: 'diag' },
          element('span', { class: 'tag', text: `the module, level ${line.level}` }),
          element('span', { class: 'text', text: String(line.text).trim() })));
      }
      this.note.textContent = record
        ? 'Refused, and no rule of the API document explains it' +
          (diagnostics.length > 0 ? ': the module said why.' : '.') + ' The form shows what the device still holds.'
        : 'Refused.';
    }
    this.problems.replaceChildren(...items);
  }

  problemItem(text, control) {
    const li = element('li', {}, element('span', { class: 'text', text }));
    if (control) {
      li.append(' ', element('button', { type: 'button', class: 'small link', text: 'go to the field',
        onclick: () => control.focus() }));
    }
    return li;
  }

  async run() {
    const url = this.url();
    const question = `${this.resource.summary || this.resource.name}: PUT ${url}`;
    const about = this.resource.notes.join(' ') || 'This changes the device.';
    if (this.resource.confirm && !(await confirmAction(this.dialog, question, about))) {
      this.output.textContent = 'Cancelled: nothing sent.';
      this.output.className = 'answer';
      return;
    }
    const answer = await this.send('PUT');
    if (!this.show(answer)) {
      this.clearProblems();
      this.explain(answer, {}, this.channel.value(), null);
    }
  }
}

// Builds the group tabs into `nav` and a tab panel per group into
// `container`; returns the function that shows a group by name. The tabs are
// one tab stop: the arrow keys, Home and End move between them.
export function buildResources({ doc, list, groupNames, ranges, nav, container, dialog, waiting }) {
  const sections = new Map();
  const tabs = new Map();
  const order = [];
  for (const name of groupNames) {
    const panels = list.filter((r) => r.tag === name).map((r) => new ResourcePanel(doc, r, ranges, dialog, waiting));
    const stem = name.replace(/[^A-Za-z0-9]+/g, '-');
    const section = element('section', { class: 'group-panel', id: `group-${stem}`, role: 'tabpanel',
      'aria-labelledby': `tab-${stem}`, hidden: true },
    element('h2', { text: name }), panels.map((p) => p.form));
    section.panels = panels;
    sections.set(name, section);
    container.append(section);
    const tab = element('button', { type: 'button', role: 'tab', id: `tab-${stem}`, 'aria-controls': section.id,
      'aria-selected': 'false', tabindex: '-1', text: name,
      onclick: () => { location.hash = encodeURIComponent(name); } });
    tab.addEventListener('keydown', (event) => {
      const i = order.indexOf(name);
      const to = { ArrowRight: i + 1, ArrowLeft: i - 1, Home: 0, End: order.length - 1 }[event.key];
      if (to !== undefined) {
        event.preventDefault();
        const next = order[(to + order.length) % order.length];
        tabs.get(next).focus();
        location.hash = encodeURIComponent(next);
      }
    });
    tabs.set(name, tab);
    order.push(name);
    nav.append(tab);
  }
  async function showGroup(name) {
    for (const [other, section] of sections) {
      section.hidden = other !== name;
      tabs.get(other).setAttribute('aria-selected', String(other === name));
      tabs.get(other).tabIndex = other === name ? 0 : -1;
    }
    // The requests go one at a time; every panel is busy until its own ends.
    const readable = sections.get(name).panels.filter((panel) => panel.resource.get);
    await Promise.all(readable.map((panel) => panel.busy(() => panel.read())));
  }
  return showGroup;
}
