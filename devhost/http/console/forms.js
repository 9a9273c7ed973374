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
// last value set, whether the person touched it.
function leafField(ctx, name, schema, control, read, write, extra = []) {
  const id = control.id || newId(name);
  control.id = id;
  control.dataset.path = ctx.path;
  const field = {
    kind: 'leaf',
    initial: undefined,
    touched: false,
    element: null,
    set(value) {
      field.initial = value;
      field.touched = false;
      write(value);
    },
    value: read,
    changed() {
      const v = read();
      if (v === undefined || !field.touched) {
        return undefined;
      }
      return field.initial === undefined || !sameValue(v, field.initial) ? v : undefined;
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
  const hint = schema.description
    ? element('small', { class: 'hint', id: `${id}-about`, title: schema.description, text: schema.description })
    : null;
  if (hint) {
    control.setAttribute('aria-describedby',
      [control.getAttribute('aria-describedby'), hint.id].filter(Boolean).join(' '));
  }
  field.element = element('div', { class: 'field' },
    element('label', { for: id, text: name }), control, ...extra, hint);
  return field;
}

function sameValue(a, b) {
  return JSON.stringify(a) === JSON.stringify(b);
}

function switchField(ctx, name, schema) {
  const box = element('input', { type: 'checkbox', role: 'switch' });
  return leafField(ctx, name, schema, box, () => (box.indeterminate ? undefined : box.checked), (v) => {
    box.indeterminate = v === undefined;
    box.checked = Boolean(v);
  });
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
// cell per character, rows as square as the length allows.
const GRID_MIN_LENGTH = 16;

function gridColumns(length) {
  const root = Math.round(Math.sqrt(length));
  return root * root === length ? root : 16;
}

function textField(ctx, name, schema) {
  const input = element('input', { type: 'text', maxlength: schema.maxLength, pattern: schema.pattern,
    spellcheck: 'false', autocomplete: 'off', class: 'text' });
  const grid = element('div', { class: 'digit-grid', role: 'group', hidden: true });
  let cells = [];
  const renderGrid = () => {
    const text = input.value;
    const show = text.length >= GRID_MIN_LENGTH && /^[0-9]+$/.test(text);
    grid.hidden = !show;
    if (!show) {
      return;
    }
    if (cells.length === text.length) {
      cells.forEach((cell, i) => { cell.value = text[i]; });
      return;
    }
    const columns = gridColumns(text.length);
    grid.style.setProperty('--columns', columns);
    grid.setAttribute('aria-label', `${name} as a grid of ${columns} columns (arrow keys move)`);
    cells = [...text].map((ch, i) => {
      const cell = element('input', {
        type: 'text', inputmode: 'numeric', maxlength: 1, value: ch, class: 'cell', readonly: ctx.readOnly,
        'aria-label': `${name} row ${Math.floor(i / columns) + 1} column ${(i % columns) + 1}`,
      });
      cell.addEventListener('focus', () => cell.select());
      cell.addEventListener('input', () => {
        const ch2 = cell.value.slice(-1) || '0';
        cell.value = ch2;
        input.value = input.value.slice(0, i) + ch2 + input.value.slice(i + 1);
        input.dispatchEvent(new Event('input'));
        if (i + 1 < cells.length) {
          cells[i + 1].focus();
        }
      });
      cell.addEventListener('keydown', (event) => {
        const moves = { ArrowRight: 1, ArrowLeft: -1, ArrowDown: columns, ArrowUp: -columns };
        const to = i + (moves[event.key] || 0);
        if (moves[event.key] && to >= 0 && to < cells.length) {
          event.preventDefault();
          cells[to].focus();
        }
      });
      return cell;
    });
    grid.replaceChildren(...cells);
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
// every touched member counts as changed), onChange.
export function recordFields(ctx, schema) {
  return objectField({ ...ctx, path: '' }, '', resolve(ctx.doc, schema), false);
}
