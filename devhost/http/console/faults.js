// Fault controls: arm any fault kind of /_sim/faults on a service, a command
// or a channel; list what is armed; clear all.

import { afterEachRequest, describe, hostRequest } from './api.js';
import { element } from './forms.js';

// The host's fault kinds, which service plays each, and the member that
// carries its value.
const KINDS = [
  { kind: 'noAnswer', services: ['isp', 'control'], about: 'no reply until cleared (the module gives up after its time-out)' },
  { kind: 'delay', services: ['isp', 'control'], value: 'ms', about: 'the reply comes later' },
  { kind: 'status', services: ['isp'], value: 'status', about: 'the reply carries this status and changes nothing' },
  { kind: 'shortContent', services: ['isp'], value: 'length', optional: true, about: 'the reply content is cut (default: half)' },
  { kind: 'result', services: ['control'], value: 'result', about: 'the reply carries this Result and changes nothing' },
  { kind: 'sendFailure', services: ['isp', 'control'], about: 'the request cannot be sent' },
  { kind: 'down', services: ['control'], about: 'the control socket is gone until cleared' },
];

// Commands the document ties to resources ("x-device"), by service.
function knownCommands(list) {
  const known = { isp: new Map(), control: new Map() };
  for (const r of list) {
    const m = /^\/_sim\/(isp|control)\/(\d+)(?:\/(\d+))?$/.exec(r.device || '');
    if (m) {
      const names = known[m[1]].get(m[2]) || [];
      known[m[1]].set(m[2], [...names, r.name]);
    }
  }
  return known;
}

function describeFault(service, f) {
  const parts = [service, f.command !== undefined ? `command ${f.command}` : 'every command'];
  if (f.channel !== undefined) {
    parts.push(`channel ${f.channel}`);
  }
  parts.push(f.kind);
  for (const k of ['ms', 'status', 'length', 'result', 'count']) {
    if (f[k] !== undefined) {
      parts.push(`${k} ${f[k]}`);
    }
  }
  return parts.join(' · ');
}

export function buildFaults(root, list) {
  const known = knownCommands(list);
  const form = root.querySelector('form');
  const service = form.elements.service;
  const command = form.elements.command;
  const channel = form.elements.channel;
  const kind = form.elements.kind;
  const value = form.elements.value;
  const valueField = root.querySelector('.fault-value');
  const valueLabel = valueField.querySelector('label');
  const datalist = root.querySelector('#fault-commands');
  const about = root.querySelector('.fault-about');
  const output = form.querySelector('output');
  const armed = root.querySelector('.armed');

  const kindRow = () => KINDS.find((k) => k.kind === kind.value);
  const syncService = () => {
    const previous = kind.value;
    kind.replaceChildren(...KINDS.filter((k) => k.services.includes(service.value))
      .map((k) => element('option', { value: k.kind, text: k.kind })));
    if ([...kind.options].some((o) => o.value === previous)) {
      kind.value = previous;
    }
    datalist.replaceChildren(...[...known[service.value]].map(([code, names]) =>
      element('option', { value: code, label: names.join(', ') })));
    channel.closest('.field').hidden = service.value !== 'isp';
    syncKind();
  };
  const syncKind = () => {
    const row = kindRow();
    valueField.hidden = !row.value;
    valueLabel.textContent = row.value ? `${row.value}${row.optional ? ' (optional)' : ''}` : '';
    about.textContent = row.about;
  };
  service.addEventListener('change', syncService);
  kind.addEventListener('change', syncKind);

  async function refresh() {
    const answer = await hostRequest('GET', '/_sim/faults');
    if (answer.status !== 200 || !answer.json) {
      armed.replaceChildren(element('li', { text: `cannot list the faults: ${describe(answer).text}` }));
      return;
    }
    const rows = ['isp', 'control'].flatMap((s) => (answer.json[s] || []).map((f) => describeFault(s, f)));
    armed.replaceChildren(...(rows.length > 0 ? rows.map((text) => element('li', { text }))
      : [element('li', { class: 'none', text: 'none armed' })]));
  }

  form.addEventListener('submit', async (e) => {
    e.preventDefault();
    const row = kindRow();
    const fault = { service: service.value, kind: row.kind };
    const number = (input) => (input.value.trim() === '' ? undefined : Number(input.value));
    if (number(command) !== undefined) {
      fault.command = number(command);
    }
    if (service.value === 'isp' && number(channel) !== undefined) {
      fault.channel = number(channel);
    }
    if (row.value && number(value) !== undefined) {
      fault[row.value] = number(value);
    }
    if (number(form.elements.count) !== undefined) {
      fault.count = number(form.elements.count);
    }
    const answer = await hostRequest('POST', '/_sim/faults', fault);
    output.textContent = answer.status === 201 ? `armed: ${describeFault(service.value, fault)}` : describe(answer).text;
    output.className = `answer ${answer.status === 201 ? 'ok' : 'refused'}`;
    await refresh();
  });
  root.querySelector('.clear-faults').addEventListener('click', async () => {
    const answer = await hostRequest('DELETE', '/_sim/faults');
    output.textContent = answer.status === 200 ? 'all faults cleared' : describe(answer).text;
    output.className = `answer ${answer.status === 200 ? 'ok' : 'refused'}`;
    await refresh();
  });
  // A fault with a count is used up by the requests it meets.
  afterEachRequest(refresh);
  syncService();
  return refresh();
}
