// A form from a JSON schema: one control per member kind (number, choice,
// switch, text, digit grid), fieldsets for nested objects and arrays. Every
// field remembers the value it was last given, so that a form can say which
// members the person changed.

import { resolve } from './api.js';

let nextId = 0;
const newId = (stem) => `f${++nextId}-${stem.replace(/[^A-Za-z0-9_-]/g, '')}`;

export function element(tag, attrs = {}, ...children) {
  const e = document.createElement(tag);
  for (const [key, value] of Object.entries(attrs)) {
    if (value === undefined || value === null || value === false) {
      continue;
    }
    if (key === 'class') {
      e.className = value;
    } else if (key === 'text') {
      e.textContent = value;
    } else if (key.startsWith('on')) {
      e.addEventListener(key.slice(2), value);
    } else {
      e.setAttribute(key, value === true ? '' : value);
    }
  }
  for (const child of children.flat()) {
    if (child !== null && child !== undefined) {
      e.append(child);
    }
  }
  return e;
}

function typeOf(schema) {
  const t = Array.isArray(schema.type) ? schema.type.find((x) => x !== 'null') : schema.type;
  if (t) {
    return t;
  }
  if (schema.properties) {
    return 'object';
  }
  return schema.items ? 'array' : 'string';
}

// The choices of a member: "enum", or "oneOf" of constants with titles.
function choicesOf(schema) {
  if (Array.isArray(schema.enum)) {
    return schema.enum.map((v) => ({ value: v, label: String(v) }));
  }
  const alternatives = schema.oneOf || schema.anyOf;
  if (Array.isArray(alternatives) && alternatives.length > 0 && alternatives.every((a) => 'const' in a)) {
    return alternatives.map((a) => ({ value: a.const, label: a.title ? `${a.const} · ${a.title}` : String(a.const) }));
  }
  return null;
}

// The limits of a number: the device's range where the document names one
// the device reports, else the document's own.
function limitsOf(schema, ranges) {
  const name = schema['x-capability-range'];
  const range = name && ranges ? ranges[name] : null;
  if (range && typeof range.begin === 'number' && typeof range.end === 'number') {
    return { min: range.begin, max: range.end, source: `device range (Capability ${name})` };
  }
  const min = schema.minimum ?? (schema.exclusiveMinimum !== undefined ? schema.exclusiveMinimum : undefined);
  const max = schema.maximum ?? (schema.exclusiveMaximum !== undefined ? schema.exclusiveMaximum : undefined);
  return { min, max, source: name ? `device range (Capability ${name}, not read)` : '' };
}

// A control of one member, with what every field has: its path, a label, the
// last value set, whether the person touched it, and a place to say what is
// wrong with the value it holds.
function leafField(ctx, name, schema, control, read, write, extra = [], kind = '') {
  const id = control.id || newId(name);
  control.id = id;
  control.dataset.path = ctx.path;
  const problem = element('p', { class: 'problem', id: `${id}-problem`, hidden: true });
  const field = {
    kind: 'leaf',
    path: ctx.path,
    control,
    initial: undefined,
    touched: false,
    element: null,
    set(value) {
      field.initial = value;
      field.touched = false;
      write(value);
    },
    // Shows a value the device does not hold (one it refused) as changed, so
    // that Apply sends it again.
    keep(value) {
      write(value);
      field.touched = true;
    },
    value: read,
    changed() {
      const v = read();
      if (v === undefined || !field.touched) {
        return undefined;
      }
      return field.initial === undefined || !sameValue(v, field.initial) ? v : undefined;
    },
    // Marks the value as refused, saying why and what the device holds.
    mark(texts) {
      problem.textContent = texts.join('; ');
      problem.hidden = false;
      field.element.classList.add('refused');
      control.setAttribute('aria-invalid', 'true');
      describe(control, problem.id, true);
    },
    unmark() {
      problem.hidden = true;
      problem.textContent = '';
      field.element.classList.remove('refused');
      control.removeAttribute('aria-invalid');
      describe(control, problem.id, false);
    },
  };
  const mark = () => {
    field.touched = true;
    ctx.onChange();
  };
  control.addEventListener('input', mark);
  control.addEventListener('change', mark);
  field.markTouched = mark;
  if (ctx.readOnly) {
    control.setAttribute(control.tagName === 'INPUT' && control.type !== 'checkbox' ? 'readonly' : 'disabled', '');
  }
  // The member's description, whole: a person reads it without hovering.
  const hint = schema.description
    ? element('small', { class: 'hint', id: `${id}-about`, text: schema.description })
    : null;
  if (hint) {
    describe(control, hint.id, true);
  }
  field.element = element('div', { class: kind ? `field ${kind}` : 'field' },
    element('label', { for: id, text: name }), control, ...extra, problem, hint);
  if (ctx.registry) {
    ctx.registry.set(ctx.path, field);
  }
  return field;
}

// Adds or removes one id of an element's aria-describedby.
function describe(control, id, add) {
  const ids = (control.getAttribute('aria-describedby') || '').split(' ').filter((x) => x && x !== id);
  if (add) {
    ids.push(id);
  }
  if (ids.length > 0) {
    control.setAttribute('aria-describedby', ids.join(' '));
  } else {
    control.removeAttribute('aria-describedby');
  }
}

function sameValue(a, b) {
  return JSON.stringify(a) === JSON.stringify(b);
}

// A flag as a switch. Before the first read it is in a third state of its
// own, drawn apart from on and off and named in words beside it.
function switchField(ctx, name, schema) {
  const box = element('input', { type: 'checkbox', role: 'switch' });
  const state = element('span', { class: 'switch-state', id: newId(`${name}-state`) });
  const sync = () => {
    const unknown = box.indeterminate;
    state.textContent = unknown
      ? (ctx.writeOnly ? 'not set: the device does not answer a read' : 'not read yet')
      : (box.checked ? 'on' : 'off');
    state.dataset.state = unknown ? 'unknown' : (box.checked ? 'on' : 'off');
  };
  box.addEventListener('change', sync);
  describe(box, state.id, true);
  return leafField(ctx, name, schema, box, () => (box.indeterminate ? undefined : box.checked), (v) => {
    box.indeterminate = v === undefined;
    box.checked = Boolean(v);
    sync();
  }, [state], 'switch');
}

// Empty: not given. A fraction for an integer member goes as typed: the
// device decides.
function parseNumber(text) {
  if (text.trim() === '') {
    return undefined;
  }
  const n = Number(text);
  return Number.isFinite(n) ? n : undefined;
}

function numberField(ctx, name, schema) {
  const integer = typeOf(schema) === 'integer';
  const limits = limitsOf(schema, ctx.ranges);
  const input = element('input', {
    type: 'number', inputmode: integer ? 'numeric' : 'decimal', step: integer ? '1' : 'any',
    min: limits.min, max: limits.max,
  });
  // The limits of a 32-bit member are its storage, not a rule: not printed.
  const storage = [[0, 4294967295], [-2147483648, 2147483647]].some(([lo, hi]) => limits.min === lo && limits.max === hi);
  const rangeText = !storage && (limits.min !== undefined || limits.max !== undefined)
    ? `${limits.min ?? '…'} to ${limits.max ?? '…'}${limits.source ? ` · ${limits.source}` : ''}`
    : '';
  const range = rangeText ? element('span', { class: 'range', text: rangeText }) : null;
  if (range) {
    range.id = newId(`${name}-range`);
    input.setAttribute('aria-describedby', range.id);
  }
  return leafField(ctx, name, schema, input, () => parseNumber(input.value),
    (v) => { input.value = v === undefined ? '' : String(v); }, [range]);
}

// A value set as a list to choose from; numbers keep one more choice, "other
// value", that opens a number field, so that a value outside the set can be
// sent and the device's answer seen.
function choiceField(ctx, name, schema, choices) {
  const numeric = ['integer', 'number'].includes(typeOf(schema));
  const select = element('select', {});
  const OTHER = '\u0000other';
  const UNSET = '\u0000unset';
  select.append(element('option', { value: UNSET, text: '(not read)', hidden: true }));
  choices.forEach((c, i) => select.append(element('option', { value: String(i), text: c.label })));
  let other = null;
  if (numeric && !ctx.readOnly) {
    select.append(element('option', { value: OTHER, text: 'other value…' }));
    other = element('input', { type: 'number', step: typeOf(schema) === 'integer' ? '1' : 'any', hidden: true,
      'aria-label': `${name}, other value` });
    select.addEventListener('change', () => {
      other.hidden = select.value !== OTHER;
      if (!other.hidden) {
        other.focus();
      }
    });
  }
  const read = () => {
    if (select.value === UNSET) {
      return undefined;
    }
    if (select.value === OTHER) {
      return parseNumber(other.value);
    }
    return choices[Number(select.value)].value;
  };
  const write = (v) => {
    const i = choices.findIndex((c) => sameValue(c.value, v));
    if (v === undefined) {
      select.value = UNSET;
    } else if (i >= 0) {
      select.value = String(i);
    } else if (other) {
      select.value = OTHER;
      other.value = String(v);
    } else {
      // A value outside the set, shown as it is.
      select.append(element('option', { value: `v${select.options.length}`, text: `${v} (outside the set)` }));
      select.value = `v${select.options.length - 1}`;
    }
    if (other) {
      other.hidden = select.value !== OTHER;
    }
  };
  const field = leafField(ctx, name, schema, select, read, write, [other]);
  if (other) {
    other.addEventListener('input', field.markTouched);
  }
  write(undefined);
  return field;
}

// A long text of digits (weights per region) is also shown as a grid with one
// cell per character, rows as square as the length allows. The grid is one
// tab stop: the arrow keys move within it (Home, End: the row's ends;
// Ctrl+Home, Ctrl+End: the first and last cell) and a digit typed sets the
// cell and moves on.
const GRID_MIN_LENGTH = 16;

function gridColumns(length) {
  const root = Math.round(Math.sqrt(length));
  return root * root === length ? root : 16;
}

function textField(ctx, name, schema) {
  const input = element('input', { type: 'text', maxlength: schema.maxLength, pattern: schema.pattern,
    spellcheck: 'false', autocomplete: 'off', class: 'text' });
  const grid = element('div', { class: 'digit-grid', role: 'grid', hidden: true });
  let cells = [];
  let active = 0;
  const focusCell = (i) => {
    cells[active].tabIndex = -1;
    active = i;
    cells[i].tabIndex = 0;
    cells[i].focus();
  };
  const setDigit = (i, digit) => {
    input.value = input.value.slice(0, i) + digit + input.value.slice(i + 1);
    input.dispatchEvent(new Event('input'));
  };
  const renderGrid = () => {
    const text = input.value;
    const show = text.length >= GRID_MIN_LENGTH && /^[0-9]+$/.test(text);
    grid.hidden = !show;
    if (!show) {
      return;
    }
    if (cells.length === text.length) {
      cells.forEach((cell, i) => {
        cell.textContent = text[i];
        cell.dataset.digit = text[i];
      });
      return;
    }
    const columns = gridColumns(text.length);
    const rows = Math.ceil(text.length / columns);
    grid.style.setProperty('--columns', columns);
    grid.setAttribute('aria-label', `${name}, ${rows} rows of ${columns} (arrow keys move, a digit sets the cell)`);
    grid.setAttribute('aria-rowcount', rows);
    grid.setAttribute('aria-colcount', columns);
    if (ctx.readOnly) {
      grid.setAttribute('aria-readonly', 'true');
    }
    active = Math.min(active, text.length - 1);
    cells = [...text].map((ch, i) => {
      const cell = element('div', { role: 'gridcell', class: 'cell', tabindex: i === active ? '0' : '-1',
        'aria-colindex': (i % columns) + 1, text: ch });
      cell.dataset.digit = ch;
      cell.addEventListener('focus', () => {
        cells[active].tabIndex = -1;
        active = i;
        cell.tabIndex = 0;
      });
      cell.addEventListener('click', () => focusCell(i));
      cell.addEventListener('keydown', (event) => {
        const row = Math.floor(i / columns);
        const moves = {
          ArrowRight: i + 1, ArrowLeft: i - 1, ArrowDown: i + columns, ArrowUp: i - columns,
          Home: event.ctrlKey ? 0 : row * columns,
          End: event.ctrlKey ? cells.length - 1 : Math.min(row * columns + columns, cells.length) - 1,
        };
        if (event.key in moves) {
          event.preventDefault();
          const to = moves[event.key];
          if (to >= 0 && to < cells.length) {
            focusCell(to);
          }
        } else if (/^[0-9]$/.test(event.key) && !ctx.readOnly && !event.ctrlKey && !event.altKey) {
          event.preventDefault();
          setDigit(i, event.key);
          if (i + 1 < cells.length) {
            focusCell(i + 1);
          }
        }
      });
      return cell;
    });
    const rowElements = [];
    for (let r = 0; r < rows; r++) {
      rowElements.push(element('div', { role: 'row', class: 'grid-row', 'aria-rowindex': r + 1 },
        cells.slice(r * columns, r * columns + columns)));
    }
    grid.replaceChildren(...rowElements);
  };
  input.addEventListener('input', renderGrid);
  const limit = schema.maxLength !== undefined ? element('span', { class: 'range', text: `at most ${schema.maxLength} characters` }) : null;
  return leafField(ctx, name, schema, input, () => (input.value === '' && ctx.writeOnly ? undefined : input.value),
    (v) => { input.value = v === undefined ? '' : String(v); renderGrid(); }, [limit, grid]);
}

function objectField(ctx, name, schema, legend = true) {
  const children = Object.entries(schema.properties || {})
    .map(([key, sub]) => [key, field({ ...ctx, path: ctx.path ? `${ctx.path}.${key}` : key }, key, sub)]);
  const element_ = legend
    ? element('fieldset', { class: 'group' }, element('legend', { text: name }), children.map(([, f]) => f.element))
    : element('div', { class: 'members' }, children.map(([, f]) => f.element));
  return {
    kind: 'object',
    element: element_,
    set(value) {
      for (const [key, f] of children) {
        f.set(value && typeof value === 'object' ? value[key] : undefined);
      }
    },
    value() {
      const out = {};
      for (const [key, f] of children) {
        const v = f.value();
        if (v !== undefined) {
          out[key] = v;
        }
      }
      return out;
    },
    // Only the members that changed, with the objects around them.
    changed() {
      const out = {};
      for (const [key, f] of children) {
        const v = f.changed();
        if (v !== undefined) {
          out[key] = v;
        }
      }
      return Object.keys(out).length > 0 ? out : undefined;
    },
  };
}

// An array: one fieldset per element, with buttons to add or remove one
// within the document's limits. A changed array is sent whole, as JSON has no
// way to name one of its elements alone.
function arrayField(ctx, name, schema) {
  const itemSchema = resolve(ctx.doc, schema.items || {});
  const min = schema.minItems ?? 0;
  const max = schema.maxItems ?? Infinity;
  const list = element('div', { class: 'items' });
  let items = [];
  let initial;
  let touched = false;
  const add = element('button', { type: 'button', class: 'small', text: `Add to ${name}`, hidden: ctx.readOnly });
  const remove = element('button', { type: 'button', class: 'small', text: `Remove the last of ${name}`,
    hidden: ctx.readOnly });
  const sync = () => {
    add.disabled = items.length >= max;
    remove.disabled = items.length <= min;
  };
  const append = (value) => {
    const f = field({ ...ctx, path: `${ctx.path}[${items.length}]` }, `${name}[${items.length}]`, itemSchema);
    f.set(value);
    items.push(f);
    list.append(f.element);
    sync();
    return f;
  };
  add.addEventListener('click', () => {
    touched = true;
    append(undefined).element.querySelector('input, select')?.focus();
    ctx.onChange();
  });
  remove.addEventListener('click', () => {
    touched = true;
    items.pop().element.remove();
    sync();
    ctx.onChange();
  });
  const limits = [min > 0 ? `at least ${min}` : '', max < Infinity ? `at most ${max}` : ''].filter(Boolean).join(', ');
  const self = {
    kind: 'array',
    element: element('fieldset', { class: 'group array' },
      element('legend', { text: limits ? `${name} (${limits})` : name }), list,
      element('div', { class: 'buttons' }, add, remove)),
    set(value) {
      initial = value;
      touched = false;
      items = [];
      list.replaceChildren();
      (Array.isArray(value) ? value : []).forEach(append);
      sync();
    },
    value() {
      return items.map((f) => f.value());
    },
    changed() {
      const now = self.value();
      const anyChanged = touched || items.some((f) => f.changed() !== undefined);
      return anyChanged && !sameValue(now, initial) ? now : undefined;
    },
  };
  sync();
  return self;
}

export function field(ctx, name, rawSchema) {
  const schema = resolve(ctx.doc, rawSchema);
  const type = typeOf(schema);
  const choices = choicesOf(schema);
  if (type === 'object') {
    return objectField(ctx, name, schema);
  }
  if (type === 'array') {
    return arrayField(ctx, name, schema);
  }
  if (choices) {
    return choiceField(ctx, name, schema, choices);
  }
  if (type === 'boolean') {
    return switchField(ctx, name, schema);
  }
  if (type === 'integer' || type === 'number') {
    return numberField(ctx, name, schema);
  }
  return textField(ctx, name, schema);
}

// The fields of a resource's record. `ctx`: doc, ranges (the device's, by
// member of the Capability record), readOnly, writeOnly (no values to read:
// every touched member counts as changed), onChange. The result's `fields`
// holds its member fields by path ("a.b", "list[0].c").
export function recordFields(ctx, schema) {
  const registry = new Map();
  const root = objectField({ ...ctx, path: '', registry }, '', resolve(ctx.doc, schema), false);
  root.fields = registry;
  return root;
}
