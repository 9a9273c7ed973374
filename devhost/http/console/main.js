// Starts the console: reads the API document, builds the groups, the fault
// controls and the live panel, says how the host admits requests, and shows
// the first group.

import {
  accessMode, afterEachRequest, beforeEachRequest, capabilityRanges, faultTable, groups, layouts, loadDocument,
  onAccessRefused, resources,
} from './api.js';
import { buildFaults } from './faults.js';
import { LivePanel } from './live.js';
import { buildResources } from './resources.js';
import { Waiting } from './waiting.js';

// What the header says of the host's access mode.
const ACCESS_TEXTS = {
  token: 'Token mode: this browser is let in by the cookie the token URL set; other clients send '
    + '"Authorization: Bearer TOKEN".',
  open: 'Open to the network (--no-token): anyone who reaches this host may use every resource and /_sim/ route.',
};

function showAccess(mode) {
  const access = document.getElementById('access');
  access.textContent = ACCESS_TEXTS[mode] || '';
  access.hidden = !ACCESS_TEXTS[mode];
  access.dataset.mode = mode;
}

// The host stopped taking this browser's token: it was started again with
// a new one.
function showRefused() {
  const alert = document.getElementById('host-alert');
  alert.replaceChildren(
    'The host no longer takes this browser\'s access token: it was started again with a new token. Open the URL '
      + 'its banner printed this time (http://…/?token=…) again, or ',
    Object.assign(document.createElement('a'), { href: '/', textContent: 'open the console anew and paste the token' }),
    '.');
  alert.hidden = false;
}

async function start() {
  onAccessRefused(showRefused);
  const status = document.getElementById('doc-status');
  let doc;
  try {
    doc = await loadDocument();
  } catch (error) {
    status.textContent = `The API document could not be read: ${error.message}`;
    status.classList.add('refused');
    return;
  }
  showAccess(await accessMode());
  const live = new LivePanel(document.getElementById('live'), layouts(doc));
  await live.start();
  // What other clients caused goes into a card of its own first.
  beforeEachRequest(() => live.collect(null));
  afterEachRequest((answer) => live.collect(answer));
  const list = resources(doc);
  const ranges = await capabilityRanges();
  const groupNames = groups(doc, list);
  const table = faultTable(doc);
  const showGroup = buildResources({
    doc, list, groupNames, ranges,
    nav: document.getElementById('groups'),
    container: document.getElementById('resources'),
    dialog: document.getElementById('confirm'),
    waiting: new Waiting(live.journal, table),
  });
  await buildFaults(document.getElementById('faults'), table, document.getElementById('faults-indicator'));
  const title = doc.info && doc.info.title ? `${doc.info.title} ${doc.info.version || ''}`.trim() : 'the API document';
  status.textContent = `${list.length} resources in ${groupNames.length} groups, from ${title}.`;
  // The address names the group shown ("#Thermal imaging"); another
  // fragment (a skip link's "#live") leaves the group shown as it is.
  let shown = null;
  const fromHash = () => {
    const wanted = decodeURIComponent(location.hash.slice(1));
    if (!groupNames.includes(wanted) && shown !== null) {
      return Promise.resolve();
    }
    shown = groupNames.includes(wanted) ? wanted : groupNames[0];
    return showGroup(shown);
  };
  window.addEventListener('hashchange', fromHash);
  await fromHash();
  document.body.dataset.ready = 'true';
}

start();
