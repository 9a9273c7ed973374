// The live panel: for each request, the operation-log entries (English or
// Chinese), the diagnostics and the service exchanges it caused, newest
// first, each with its sequence number. The console's own requests go one at
// a time and the panel polls right after each, so what came in between
// belongs to that request; what other clients cause is collected by a poll
// every second. An exchange's bytes are shown as the named values of the
// device's layouts, those that differ from what the device held before
// marked; the hex is one click away.

import { SincePoller, describe, serialized } from './api.js';
import { decode } from './decode.js';
import { element } from './forms.js';

const POLL_MS = 1000;
const MAX_CARDS = 200;
const LANG_KEY = 'ispiaas-console-oplog-lang';

const isDiagnostic = (line) => String(line.kind).startsWith('diag');

function storedLanguage() {
  try {
    return localStorage.getItem(LANG_KEY);
  } catch {
    return null;
  }
}

function storeLanguage(lang) {
  try {
    localStorage.setItem(LANG_KEY, lang);
  } catch {
    // A browser that keeps nothing: the choice lasts for this page.
  }
}

// The module writes each operation-log entry to two channels: lines of the
// same text and language become one row naming the channels.
function operationRows(lines) {
  const rows = new Map();
  for (const line of lines.filter((l) => !isDiagnostic(l))) {
    const key = `${line.lang}\u0000${line.text}`;
    const row = rows.get(key) || { text: line.text, lang: line.lang, channels: [], seqs: [] };
    row.channels.push(line.channel);
    row.seqs.push(line.seq);
    rows.set(key, row);
  }
  return [...rows.values()].map((r) => element('li', { class: 'oplog', lang: r.lang === 'cn' ? 'zh' : 'en',
    'data-lang': r.lang },
  element('span', { class: 'tag', text: `${seqText('log', r.seqs)} oplog ${r.lang} · channel ${r.channels.join(', ')}` }),
  element('span', { class: 'text', text: r.text })));
}

function seqText(what, seqs) {
  const known = seqs.filter((s) => typeof s === 'number');
  return known.length === 0 ? '' : `${what} #${known.join(', #')}`;
}

function diagnosticRows(lines) {
  return lines.filter(isDiagnostic).map((l) => element('li', { class: `diag level-${l.level}` },
    element('span', { class: 'tag', text: `${seqText('log', [l.seq])} diag level ${l.level}` }),
    element('span', { class: 'text', text: l.text.trimEnd() }),
    element('span', { class: 'where', text: l.file ? `${l.file}:${l.line}` : '' })));
}

const shown = (v) => (typeof v === 'string' ? JSON.stringify(v) : String(v));

export class LivePanel {
  constructor(root, layouts) {
    this.log = new SincePoller('/_sim/log', 'lines');
    this.journal = new SincePoller('/_sim/journal', 'entries');
    this.layouts = layouts || {};
    // What the device last held of each block, by service, command and
    // channel: the values an exchange is compared with.
    this.known = new Map();
    this.root = root;
    this.list = root.querySelector('.activity');
    this.scroller = root.querySelector('.live-scroll');
    this.newAbove = root.querySelector('.new-above');
    this.unseen = 0;
    this.state = root.querySelector('.live-state');
    const lang = storedLanguage() === 'cn' ? 'cn' : 'en';
    root.dataset.lang = lang;
    for (const radio of root.querySelectorAll('input[name=oplog-lang]')) {
      radio.checked = radio.value === lang;
      radio.addEventListener('change', () => {
        root.dataset.lang = radio.value;
        storeLanguage(radio.value);
      });
    }
    root.querySelector('.clear-live').addEventListener('click', () => {
      this.list.replaceChildren();
      this.showUnseen(0);
    });
    this.newAbove.addEventListener('click', () => {
      this.scroller.scrollTop = 0;
      this.showUnseen(0);
      this.list.firstElementChild?.focus();
    });
    this.scroller.addEventListener('scroll', () => {
      if (this.scroller.scrollTop <= 0) {
        this.showUnseen(0);
      }
    });
  }

  async start() {
    await Promise.all([this.log.skipToEnd(), this.journal.skipToEnd()]);
    setInterval(() => serialized(() => this.collect(null)), POLL_MS);
  }

  showUnseen(count) {
    this.unseen = count;
    this.newAbove.hidden = count === 0;
    this.newAbove.textContent = `${count} new above`;
  }

  // The named values of an exchange: what the module sent for a write, what
  // the device answered for a read; null where no layout is known.
  exchangeFields(e) {
    const layout = (this.layouts[e.service] || {})[String(e.command)];
    const operation = e.operation ?? e.messageType;
    const sent = operation === 'write' || operation === 'create';
    const hex = sent ? e.request : e.reply;
    const values = hex ? decode(hex, layout) : null;
    if (!values || values.length === 0) {
      return null;
    }
    const key = `${e.service}/${e.command}/${e.channel ?? ''}`;
    const before = this.known.get(key);
    // What the device holds after the exchange: its reply where it gave one.
    const after = e.reply ? decode(e.reply, layout) : null;
    if (after && after.length === layout.length && e.fault === undefined) {
      this.known.set(key, new Map(after.map((f) => [f.name, f.value])));
    }
    // The part of the names that every value of the block shares
    // ("thermal.") says nothing: left out.
    const first = layout[0].name.split('.')[0];
    const shared = layout.every((f) => f.name.startsWith(`${first}.`)) ? first.length + 1 : 0;
    return { sent, values: values.map((f) => {
      const was = before ? before.get(f.name) : undefined;
      return { ...f, label: f.name.slice(shared), changed: before !== undefined && was !== undefined && was !== f.value, was };
    }) };
  }

  exchangeRows(entries) {
    return entries.map((e) => {
      const step = e.operation ?? e.messageType ?? '';
      const outcome = e.status !== undefined && e.status !== null ? `status ${e.status}`
        : e.result !== undefined && e.result !== null ? `result ${e.result}` : 'no reply';
      const fault = e.fault ? ` · fault ${typeof e.fault === 'string' ? e.fault : JSON.stringify(e.fault)}` : '';
      const channel = e.channel === null || e.channel === undefined ? 'no channel' : `channel ${e.channel}`;
      const decoded = this.exchangeFields(e);
      const changed = decoded ? decoded.values.filter((f) => f.changed).length : 0;
      const fields = decoded
        ? element('div', { class: 'decoded' },
          element('p', { class: 'fields-title',
            text: `${decoded.sent ? 'sent to the device' : 'the device answered'}${changed ? ` · ${changed} changed` : ''}` }),
          element('dl', { class: 'fields' },
            decoded.values.map((f) => element('div', { class: f.changed ? 'value changed' : 'value', 'data-name': f.name },
              element('dt', { text: f.label }),
              element('dd', { text: shown(f.value) }),
              f.changed ? element('dd', { class: 'was', text: `was ${shown(f.was)}` }) : null))))
        : null;
      return element('li', { class: `exchange${e.fault ? ' faulted' : ''}`, 'data-seq': e.seq },
        element('span', { class: 'tag', text: `${typeof e.seq === 'number' ? `#${e.seq} ` : ''}${e.service} ${step}` }),
        element('span', { class: 'text', text: `command ${e.command} · ${channel} · ${outcome}${fault}` }),
        fields,
        e.request || e.reply
          ? element('details', { class: 'bytes' }, element('summary', { text: 'bytes (hex)' }),
            element('pre', { text: `request ${e.request || ''}\nreply   ${e.reply || ''}` }))
          : null);
    });
  }

  // Polls both lists; `answer` is the request they belong to (null: other
  // clients'). Adds a card when anything came; hands the request's log lines
  // to its answer (`lines`), for the form that sent it.
  async collect(answer) {
    let log;
    let journal;
    try {
      [log, journal] = await Promise.all([this.log.poll(), this.journal.poll()]);
      this.state.textContent = '';
    } catch (error) {
      this.state.textContent = `The live panel cannot poll: ${error.message}`;
      return;
    }
    if (answer) {
      answer.lines = log.items;
    }
    if (!answer && log.items.length === 0 && journal.items.length === 0) {
      return;
    }
    const title = answer
      ? [element('code', { text: `${answer.method} ${answer.url}` }),
        element('span', { class: `status ${describe(answer).ok ? 'ok' : 'refused'}`, text: describe(answer).text })]
      : [element('span', { text: 'other clients' })];
    const dropped = log.dropped + journal.dropped;
    const card = element('li', { class: 'card', tabindex: '-1' },
      element('p', { class: 'title' }, title,
        element('time', { text: new Date().toLocaleTimeString() })),
      element('ul', { class: 'entries' },
        operationRows(log.items), diagnosticRows(log.items), this.exchangeRows(journal.items),
        dropped > 0 ? element('li', { class: 'dropped', text: `${dropped} older entries were dropped by the host` }) : null,
        log.items.length + journal.items.length === 0
          ? element('li', { class: 'empty', text: 'no log lines, no exchanges' }) : null));
    this.add(card);
  }

  // Puts a card on top. Where the person has scrolled down the list, what
  // they read stays where it is and the panel counts the cards above.
  add(card) {
    const scrolled = this.scroller.scrollTop > 0;
    const before = this.scroller.scrollHeight;
    this.list.prepend(card);
    while (this.list.children.length > MAX_CARDS) {
      this.list.lastElementChild.remove();
    }
    if (scrolled) {
      this.scroller.scrollTop += this.scroller.scrollHeight - before;
      this.showUnseen(this.unseen + 1);
    }
  }
}
