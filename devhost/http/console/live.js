// The live panel: for each request, the operation-log entries (English or
// Chinese), the diagnostics and the service exchanges it caused, newest
// first. The console's own requests go one at a time and the panel polls
// right after each, so what came in between belongs to that request; what
// other clients cause is collected by a poll every second.

import { SincePoller, describe, serialized } from './api.js';
import { element } from './forms.js';

const POLL_MS = 1000;
const MAX_CARDS = 200;

const isDiagnostic = (line) => String(line.kind).startsWith('diag');

// The module writes each operation-log entry to two channels: lines of the
// same text and language become one row naming the channels.
function operationRows(lines) {
  const rows = new Map();
  for (const line of lines.filter((l) => !isDiagnostic(l))) {
    const key = `${line.lang}\u0000${line.text}`;
    const row = rows.get(key) || { text: line.text, lang: line.lang, channels: [] };
    row.channels.push(line.channel);
    rows.set(key, row);
  }
  return [...rows.values()].map((r) => element('li', { class: 'oplog', lang: r.lang === 'cn' ? 'zh' : 'en',
    'data-lang': r.lang },
  element('span', { class: 'tag', text: `oplog ${r.lang} · channel ${r.channels.join(', ')}` }),
  element('span', { class: 'text', text: r.text })));
}

function diagnosticRows(lines) {
  return lines.filter(isDiagnostic).map((l) => element('li', { class: `diag level-${l.level}` },
    element('span', { class: 'tag', text: `diag level ${l.level}` }),
    element('span', { class: 'text', text: l.text.trimEnd() }),
    element('span', { class: 'where', text: l.file ? `${l.file}:${l.line}` : '' })));
}

function exchangeRows(entries) {
  return entries.map((e) => {
    const step = e.operation ?? e.messageType ?? '';
    const outcome = e.status !== undefined ? `status ${e.status}` : e.result !== undefined ? `result ${e.result}` : '';
    const fault = e.fault ? ` · fault ${typeof e.fault === 'string' ? e.fault : JSON.stringify(e.fault)}` : '';
    return element('li', { class: `exchange${e.fault ? ' faulted' : ''}` },
      element('span', { class: 'tag', text: `${e.service} ${step}` }),
      element('span', { class: 'text',
        text: `command ${e.command}${e.channel !== undefined ? ` · channel ${e.channel}` : ''} · ${outcome}${fault}` }),
      e.request || e.reply
        ? element('details', {}, element('summary', { text: 'bytes' }),
          element('pre', { text: `request ${e.request || ''}\nreply   ${e.reply || ''}` }))
        : null);
  });
}

export class LivePanel {
  constructor(root) {
    this.log = new SincePoller('/_sim/log', 'lines');
    this.journal = new SincePoller('/_sim/journal', 'entries');
    this.root = root;
    this.list = root.querySelector('.activity');
    this.state = root.querySelector('.live-state');
    root.dataset.lang = 'en';
    for (const radio of root.querySelectorAll('input[name=oplog-lang]')) {
      radio.addEventListener('change', () => { root.dataset.lang = radio.value; });
    }
    root.querySelector('.clear-live').addEventListener('click', () => this.list.replaceChildren());
  }

  async start() {
    await Promise.all([this.log.skipToEnd(), this.journal.skipToEnd()]);
    setInterval(() => serialized(() => this.collect(null)), POLL_MS);
  }

  // Polls both lists; `answer` is the request they belong to (null: other
  // clients'). Adds a card when anything came.
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
    if (!answer && log.items.length === 0 && journal.items.length === 0) {
      return;
    }
    const title = answer
      ? [element('code', { text: `${answer.method} ${answer.url}` }),
        element('span', { class: `status ${describe(answer).ok ? 'ok' : 'refused'}`, text: describe(answer).text })]
      : [element('span', { text: 'other clients' })];
    const dropped = log.dropped + journal.dropped;
    const card = element('li', { class: 'card' },
      element('p', { class: 'title' }, title,
        element('time', { text: new Date().toLocaleTimeString() })),
      element('ul', { class: 'entries' },
        operationRows(log.items), diagnosticRows(log.items), exchangeRows(journal.items),
        dropped > 0 ? element('li', { class: 'dropped', text: `${dropped} older entries were dropped by the host` }) : null,
        log.items.length + journal.items.length === 0
          ? element('li', { class: 'empty', text: 'no log lines, no exchanges' }) : null));
    this.list.prepend(card);
    while (this.list.children.length > MAX_CARDS) {
      this.list.lastElementChild.remove();
    }
  }
}
