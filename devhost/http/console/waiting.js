// What a busy form waits for, in words: queued behind another request, or
// waiting for the device with the seconds elapsed and the module's limit for
// the exchange held (the fault table of the document says which exchanges the
// module bounds, and by how much). The journal names the exchange that has
// no reply yet.

const TICK_MS = 1000;
// A request that ends sooner shows no waiting line at all.
const QUIET_MS = 700;

function seconds(ms) {
  return `${Math.floor(ms / 1000)} s`;
}

export class Waiting {
  // `journal`: the live panel's journal poller (peek() lists what came
  // after its mark); `table`: the document's fault table.
  constructor(journal, table) {
    this.journal = journal;
    this.services = new Map((table.services || []).map((s) => [s.service, s]));
  }

  // The module's bound for an exchange of the journal, in ms; 0 for none.
  limitOf(entry) {
    const row = this.services.get(entry.service);
    if (!row || !row.timeoutMs) {
      return 0;
    }
    const operation = entry.operation ?? entry.messageType;
    const command = (row.commands || []).find((c) => c.command === entry.command);
    return (row.timedOperations || []).includes(operation) && command && command.size !== undefined ? row.timeoutMs : 0;
  }

  // What the exchange the device holds back is, with the limit; '' for none.
  heldText(entries, elapsed) {
    const held = [...entries].reverse().find((e) => e.fault && (e.reply === null || e.fault === 'delay'));
    if (!held) {
      return `waiting for the device · ${seconds(elapsed)}`;
    }
    const row = this.services.get(held.service);
    const who = row ? `the ${row.title}` : held.service;
    const operation = held.operation ?? held.messageType ?? '';
    const what = `${who} holds its reply to command ${held.command} (${operation}; a ${held.fault} fault)`;
    const limit = this.limitOf(held);
    if (held.fault === 'delay') {
      return `waiting for the device · ${seconds(elapsed)} · ${what}`;
    }
    return limit > 0
      ? `waiting for the device · ${seconds(elapsed)} of at most ${seconds(limit)}, the module's limit · ${what}`
      : `waiting for the device · ${seconds(elapsed)} · no time limit: the module waits until ${who} answers · ` +
        `${what}: clearing the faults ends it`;
  }

  // Starts watching a form's request; `line` shows the state. The request
  // calls started() when its turn comes; stop() when it has ended.
  watch(resource, line) {
    let startedAt = 0;
    let stopped = false;
    let peeking = false;
    let peekedAt = 0;
    let entries = [];
    const queuedAt = Date.now();
    const show = (text) => {
      if (!stopped && line.textContent !== text) {
        line.textContent = text;
      }
    };
    const tick = async () => {
      const now = Date.now();
      if (!startedAt) {
        if (now - queuedAt >= QUIET_MS) {
          show('queued: another request is under way (the console sends one at a time)');
        }
        return;
      }
      if (now - startedAt < QUIET_MS) {
        return;
      }
      // The journal is asked once a second, never twice at a time.
      if (!peeking && now - peekedAt >= TICK_MS) {
        peeking = true;
        peekedAt = now;
        entries = await this.journal.peek();
        peeking = false;
      }
      show(this.heldText(entries, Date.now() - startedAt));
    };
    const timer = setInterval(tick, TICK_MS / 4);
    line.dataset.resource = resource.name;
    return {
      started() {
        startedAt = Date.now();
      },
      stop() {
        stopped = true;
        clearInterval(timer);
        line.textContent = '';
      },
    };
  }
}
