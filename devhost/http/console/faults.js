// Fault controls, from the document's fault table: a fault's target chosen
// by the resources that send the command (or every command of a service),
// the kinds that service plays with the member that carries the kind's value,
// a channel and a count; what is armed, listed after each request and every
// few seconds; one click clears them all.

import { afterEachRequest, describe, hostRequest } from './api.js';
import { element } from './forms.js';

const REFRESH_MS = 2000;

// "Thermal, ResetThermal (command 25)", or the service's every command.
function targetLabel(service, command) {
  if (!command) {
    return `every command of the ${service.title}`;
  }
  const names = command.resources.length > 0 ? command.resources.join(', ') : 'no resource';
  return `${names} (command ${command.command})`;
}

export function buildFaults(root, table, indicator) {
  const services = new Map(table.services.map((s) => [s.service, s]));
  const kinds = new Map(table.kinds.map((k) => [k.kind, k]));
  const memberAbout = (key) => ((table.schema.properties || {})[key] || {}).description || '';
  const form = root.querySelector('form');
  const target = form.elements.target;
  const kind = form.elements.kind;
  const value = form.elements.value;
  const channel = form.elements.channel;
  const count = form.elements.count;
  const valueField = root.querySelector('.fault-value');
  const valueLabel = valueField.querySelector('label');
  const channelField = root.querySelector('.fault-channel');
  const about = root.querySelector('.fault-about');
  const output = form.querySelector('output');
  const armed = root.querySelector('.armed');
  const clear = root.querySelector('.clear-faults');

  for (const service of table.services) {
    target.append(element('optgroup', { label: service.title },
      service.commands.filter((c) => c.resources.length > 0)
        .map((c) => element('option', { value: `${service.service}:${c.command}`, text: targetLabel(service, c) })),
      element('option', { value: `${service.service}:`, text: targetLabel(service, null) })));
  }
  const chosen = () => {
    const [service, command] = target.value.split(':');
    return { service: services.get(service), command: command === '' ? undefined : Number(command) };
  };
  const syncKind = () => {
    const row = kinds.get(kind.value) || {};
    valueField.hidden = !row.value;
    valueLabel.textContent = row.value ? row.value : 'value';
    about.textContent = [row.about, row.value ? `${row.value}: ${memberAbout(row.value)}` : '']
      .filter(Boolean).join(' · ');
  };
  const syncTarget = () => {
    const { service } = chosen();
    const previous = kind.value;
    kind.replaceChildren(...service.kinds.map((k) => element('option', { value: k, text: k })));
    if (service.kinds.includes(previous)) {
      kind.value = previous;
    }
    // Only the ISP service has channels of its own.
    channelField.hidden = service.service !== 'isp';
    syncKind();
  };
  target.addEventListener('change', syncTarget);
  kind.addEventListener('change', syncKind);

  const describeFault = (serviceName, f) => {
    const service = services.get(serviceName);
    const command = f.command === undefined ? null : (service?.commands || []).find((c) => c.command === f.command)
      || { command: f.command, resources: [] };
    const parts = [service ? targetLabel(service, command) : `${serviceName} command ${f.command ?? 'every'}`];
    parts.push(f.channel !== undefined ? `channel ${f.channel}` : serviceName === 'isp' ? 'every channel' : null);
    parts.push(f.kind);
    const key = kinds.get(f.kind)?.value;
    if (key && f[key] !== undefined) {
      parts.push(`${key} ${f[key]}`);
    }
    parts.push(f.count !== undefined ? `${f.count} more` : 'until cleared');
    return parts.filter(Boolean).join(' · ');
  };

  let shownCount = -1;
  async function refresh() {
    const answer = await hostRequest('GET', '/_sim/faults');
    if (answer.status !== 200 || !answer.json) {
      armed.replaceChildren(element('li', { text: `cannot list the faults: ${describe(answer).text}` }));
      return;
    }
    const rows = table.services.flatMap((s) => (answer.json[s.service] || []).map((f) => describeFault(s.service, f)));
    if (rows.length === shownCount && armed.dataset.rows === JSON.stringify(rows)) {
      return;
    }
    shownCount = rows.length;
    armed.dataset.rows = JSON.stringify(rows);
    armed.replaceChildren(...(rows.length > 0 ? rows.map((text) => element('li', { text }))
      : [element('li', { class: 'none', text: 'none armed' })]));
    clear.disabled = rows.length === 0;
    indicator.hidden = rows.length === 0;
    indicator.textContent = `${rows.length} fault${rows.length === 1 ? '' : 's'} armed`;
  }

  form.addEventListener('submit', async (e) => {
    e.preventDefault();
    const { service, command } = chosen();
    const row = kinds.get(kind.value);
    const fault = { service: service.service, kind: row.kind };
    const number = (input) => (input.value.trim() === '' ? undefined : Number(input.value));
    if (command !== undefined) {
      fault.command = command;
    }
    if (!channelField.hidden && number(channel) !== undefined) {
      fault.channel = number(channel);
    }
    if (row.value && number(value) !== undefined) {
      fault[row.value] = number(value);
    }
    if (number(count) !== undefined) {
      fault.count = number(count);
    }
    const answer = await hostRequest('POST', '/_sim/faults', fault);
    output.textContent = answer.status === 201 ? `armed: ${describeFault(service.service, fault)}` : describe(answer).text;
    output.className = `answer ${answer.status === 201 ? 'ok' : 'refused'}`;
    await refresh();
  });
  clear.addEventListener('click', async () => {
    const answer = await hostRequest('DELETE', '/_sim/faults');
    output.textContent = answer.status === 200 ? 'all faults cleared' : describe(answer).text;
    output.className = `answer ${answer.status === 200 ? 'ok' : 'refused'}`;
    await refresh();
  });
  // A fault with a count is used up by the requests it meets; other clients
  // arm and clear faults too.
  afterEachRequest(refresh);
  setInterval(refresh, REFRESH_MS);
  syncTarget();
  return refresh();
}
