// The API document, the requests the console sends, and the `?since=` polling
// of the host's journal and log. Everything the console knows about the
// resources comes from the document; nothing here names a resource.

const DOCUMENT_URL = '/openapi.json';
// Where the device reports the ranges that "x-capability-range" names.
const CAPABILITY_URL = '/api/isp/Capability?ChannelId=101';
// The first channel: proposed where the document gives no default.
const FIRST_CHANNEL = 101;
// The device's resources; the document's other paths (the simulated
// device's routes) have panels of their own.
const RESOURCE_PREFIX = '/api/';

// ---- the document -------------------------------------------------------

export async function loadDocument() {
  const response = await fetch(DOCUMENT_URL, { cache: 'no-store' });
  watchAccess(response);
  if (!response.ok) {
    throw new Error(`GET ${DOCUMENT_URL} answered ${response.status}`);
  }
  return response.json();
}

// The schema a reference points at, followed through every "$ref".
export function resolve(doc, schema) {
  let s = schema;
  for (let depth = 0; s && s.$ref && depth < 32; depth++) {
    const parts = s.$ref.replace(/^#\//, '').split('/').map((p) => p.replace(/~1/g, '/').replace(/~0/g, '~'));
    s = parts.reduce((node, key) => (node ? node[key] : undefined), doc);
  }
  return s || {};
}

function jsonSchema(doc, holder) {
  const content = holder && holder.content;
  if (!content) {
    return null;
  }
  const media = content['application/json'] || Object.values(content)[0];
  return media && media.schema ? resolve(doc, media.schema) : null;
}

// The value a ChannelId control starts with, or '' for "not sent".
function channelDefault(param) {
  if (!param) {
    return '';
  }
  const s = param.schema || {};
  const given = s.default ?? param.example ?? s.example;
  if (given !== undefined) {
    return String(given);
  }
  if (Array.isArray(s.enum) && s.enum.length > 0) {
    return String(s.enum[0]);
  }
  if (!param.required) {
    return '';
  }
  const min = typeof s.minimum === 'number' ? s.minimum : -Infinity;
  const max = typeof s.maximum === 'number' ? s.maximum : Infinity;
  return String(Math.min(Math.max(FIRST_CHANNEL, min), max));
}

// A JSON pointer into the document, as the fragment of a link to it.
export function documentLink(...keys) {
  const pointer = keys.map((k) => String(k).replace(/~/g, '~0').replace(/\//g, '~1')).join('/');
  return `${DOCUMENT_URL}#/${pointer.split('/').map(encodeURIComponent).join('/')}`;
}

// One entry per resource path: its name, group, operations and schemas.
export function resources(doc) {
  const list = [];
  for (const [path, item] of Object.entries(doc.paths || {})) {
    if (!path.startsWith(RESOURCE_PREFIX)) {
      continue;
    }
    const get = item.get || null;
    const put = item.put || null;
    if (!get && !put) {
      continue;
    }
    const op = get || put;
    const channel = [...(item.parameters || []), ...(op.parameters || [])]
      .map((p) => resolve(doc, p))
      .find((p) => p.in === 'query' && p.name === 'ChannelId') || null;
    const getSchema = get ? jsonSchema(doc, resolve(doc, (get.responses || {})['200'])) : null;
    const putSchema = put && put.requestBody ? jsonSchema(doc, resolve(doc, put.requestBody)) : null;
    list.push({
      path,
      name: path.split('/').filter(Boolean).pop(),
      tag: (op.tags || [])[0] || 'Other',
      summary: (put && !putSchema ? put.summary : null) || op.summary || '',
      about: (getSchema || putSchema || {}).description || '',
      // What the operations add in words (what a body without a member
      // does, what a reset returns), and the link to the path in the document.
      notes: [get && get.description, put && put.description].filter(Boolean),
      link: documentLink('paths', path),
      get,
      put,
      channel,
      channelDefault: channelDefault(channel),
      // The form follows what the device answers; a write-only resource
      // follows its request body.
      schema: getSchema || putSchema,
      // The rules a PUT's body is held to.
      putSchema,
      writable: Boolean(putSchema),
      confirm: Boolean(put && put['x-confirm']),
      device: (get && get['x-device']) || (put && put['x-device']) || null,
    });
  }
  return list;
}

// The group names in the document's order, then any other a resource uses.
export function groups(doc, list) {
  const names = (doc.tags || []).map((t) => t.name);
  for (const r of list) {
    if (!names.includes(r.tag)) {
      names.push(r.tag);
    }
  }
  return names.filter((name) => list.some((r) => r.tag === name));
}

// The fault table of the host's simulated device ("x-fault-table" of POST
// /_sim/faults), with the schema of a fault for the values' descriptions.
export function faultTable(doc) {
  const post = ((doc.paths || {})['/_sim/faults'] || {}).post || {};
  const table = post['x-fault-table'] || { services: [], kinds: [] };
  const body = post.requestBody ? jsonSchema(doc, resolve(doc, post.requestBody)) : null;
  return { ...table, schema: body || {} };
}

// The layouts of the device's blocks and payloads, by service and command
// ("x-layouts" of the inspection routes' GETs).
export function layouts(doc) {
  const of = (path) => ((((doc.paths || {})[path] || {}).get || {})['x-layouts']) || {};
  return { isp: of('/_sim/isp/{command}/{channel}'), control: of('/_sim/control/{code}') };
}

// ---- access -------------------------------------------------------------

// Called once when the host refuses the console's credentials (a 401: the
// host was started again with another token).
const refusedHooks = [];
let refusedSeen = false;

export function onAccessRefused(hook) {
  refusedHooks.push(hook);
}

function watchAccess(response) {
  if (response.status === 401 && !refusedSeen) {
    refusedSeen = true;
    for (const hook of refusedHooks) {
      hook();
    }
  }
}

// How the host admits requests: "loopback", "token" or "open"; '' when it
// does not say.
export async function accessMode() {
  try {
    const response = await fetch('/_sim/access', { cache: 'no-store' });
    watchAccess(response);
    return response.ok ? (await response.json()).mode || '' : '';
  } catch {
    return '';
  }
}

// ---- requests -----------------------------------------------------------

// Requests go one at a time, each followed by the hooks (the live panel's
// poll), so that what the host logs between two requests belongs to the
// first.
let queue = Promise.resolve();
const beforeHooks = [];
const afterHooks = [];

export function beforeEachRequest(hook) {
  beforeHooks.push(hook);
}

export function afterEachRequest(hook) {
  afterHooks.push(hook);
}

// Called with a request's method and URL when it leaves the queue.
const startHooks = [];

export function onRequestStart(hook) {
  startHooks.push(hook);
}

export function serialized(task) {
  const run = queue.then(task, task);
  queue = run.catch(() => {});
  return run;
}

async function send(method, url, body) {
  const init = { method, cache: 'no-store', headers: {} };
  if (body !== undefined) {
    init.body = typeof body === 'string' ? body : JSON.stringify(body);
    init.headers['Content-Type'] = 'application/json';
  }
  const answer = { method, url, status: 0, json: null, text: '' };
  try {
    const response = await fetch(url, init);
    watchAccess(response);
    answer.status = response.status;
    answer.text = await response.text();
    try {
      answer.json = JSON.parse(answer.text);
    } catch {
      answer.json = null;
    }
  } catch (error) {
    answer.text = String(error);
  }
  return answer;
}

// A request to the module's resources: sent in turn, between the hooks
// (the live panel's polls), before the answer is handed back. `started` is
// called when its turn comes.
export function request(method, url, body, started = () => {}) {
  return serialized(async () => {
    for (const hook of beforeHooks) {
      await hook();
    }
    started();
    for (const hook of startHooks) {
      hook(method, url);
    }
    const answer = await send(method, url, body);
    for (const hook of afterHooks) {
      await hook(answer);
    }
    return answer;
  });
}

// A request to the host's own routes (faults): no hooks.
export function hostRequest(method, url, body) {
  return send(method, url, body);
}

// The resource's URL with its ChannelId ('' leaves it out).
export function resourceUrl(resource, channel) {
  return channel === '' || channel === undefined
    ? resource.path
    : `${resource.path}?ChannelId=${encodeURIComponent(channel)}`;
}

// What an answer says, in one line, and whether it is a success.
export function describe(answer) {
  if (answer.status === 0) {
    return { ok: false, text: `no answer: ${answer.text}` };
  }
  const status = answer.json && answer.json.ResponseStatus;
  if (status) {
    return {
      ok: answer.status === 200 && status.StatusCode === 0,
      text: `HTTP ${answer.status} · StatusCode ${status.StatusCode} · ${status.StatusString}`,
    };
  }
  const error = answer.json && answer.json.error;
  if (error) {
    return { ok: false, text: `HTTP ${answer.status} · ${error.message}` };
  }
  return { ok: answer.status === 200, text: `HTTP ${answer.status}` };
}

// The ranges the device reports, by member of "basicInfos"; {} when the
// device does not answer (the document's own limits apply then).
export async function capabilityRanges() {
  const answer = await request('GET', CAPABILITY_URL);
  return (answer.status === 200 && answer.json && answer.json.basicInfos) || {};
}

// ---- polling ------------------------------------------------------------

// A list route that takes `?since=SEQ`: each poll returns the items after
// the last one seen. Tolerates a host that ignores `since` and answers the
// whole list without "last": then the highest seq (or the count) is the mark.
export class SincePoller {
  constructor(route, key) {
    this.route = route;
    this.key = key;
    this.since = 0;
  }

  // Sets the mark to the end of what the host holds now.
  async skipToEnd() {
    await this.poll();
  }

  async poll() {
    const response = await fetch(`${this.route}?since=${this.since}`, { cache: 'no-store' });
    watchAccess(response);
    if (!response.ok) {
      throw new Error(`GET ${this.route} answered ${response.status}`);
    }
    const body = await response.json();
    const all = Array.isArray(body[this.key]) ? body[this.key] : [];
    const dropped = typeof body.dropped === 'number' ? body.dropped : 0;
    if (all.length > 0 && all.every((item) => typeof item.seq !== 'number')) {
      // No sequence numbers: the count is the mark.
      const fresh = all.length >= this.since ? all.slice(this.since) : all;
      this.since = all.length;
      return { items: fresh, dropped };
    }
    const highest = all.reduce((m, item) => Math.max(m, item.seq), 0);
    const last = typeof body.last === 'number' ? body.last : highest;
    if (last < this.since) {
      // The host started counting again (a reset of the simulators).
      this.since = 0;
      return this.poll();
    }
    const items = all.filter((item) => item.seq > this.since);
    this.since = Math.max(last, highest);
    return { items, dropped };
  }

  // The items after the mark, leaving the mark where it is ([] when the host
  // cannot be asked).
  async peek() {
    try {
      const response = await fetch(`${this.route}?since=${this.since}`, { cache: 'no-store' });
      const body = response.ok ? await response.json() : {};
      return (Array.isArray(body[this.key]) ? body[this.key] : []).filter((item) => !(item.seq <= this.since));
    } catch {
      return [];
    }
  }
}
