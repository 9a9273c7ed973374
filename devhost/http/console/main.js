// Starts the console: reads the API document, builds the groups, the live
// panel and the fault controls, and shows the first group.

import { afterEachRequest, beforeEachRequest, capabilityRanges, groups, loadDocument, resources } from './api.js';
import { buildFaults } from './faults.js';
import { LivePanel } from './live.js';
import { buildResources } from './resources.js';

async function start() {
  const status = document.getElementById('doc-status');
  let doc;
  try {
    doc = await loadDocument();
  } catch (error) {
    status.textContent = `The API document could not be read: ${error.message}`;
    status.classList.add('refused');
    return;
  }
  const live = new LivePanel(document.getElementById('live'));
  await live.start();
  // What other clients caused goes into a card of its own first.
  beforeEachRequest(() => live.collect(null));
  afterEachRequest((answer) => live.collect(answer));
  const list = resources(doc);
  const ranges = await capabilityRanges();
  const groupNames = groups(doc, list);
  const showGroup = buildResources({
    doc, list, groupNames, ranges,
    nav: document.getElementById('groups'),
    container: document.getElementById('resources'),
    dialog: document.getElementById('confirm'),
  });
  await buildFaults(document.getElementById('faults'), list);
  const title = doc.info && doc.info.title ? `${doc.info.title} ${doc.info.version || ''}`.trim() : 'the API document';
  status.textContent = `${list.length} resources in ${groupNames.length} groups, from ${title}.`;
  // The address names the group shown ("#Thermal imaging").
  const fromHash = () => {
    const wanted = decodeURIComponent(location.hash.slice(1));
    return showGroup(groupNames.includes(wanted) ? wanted : groupNames[0]);
  };
  window.addEventListener('hashchange', fromHash);
  await fromHash();
  document.body.dataset.ready = 'true';
}

start();
