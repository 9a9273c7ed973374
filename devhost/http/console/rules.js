// The rules of the API document that a sent value breaks, in words: a value
// set ("enum"), limits, a text's length, a count of one character
// ("x-min-count") or a pattern. Used after a refusal to name what the device
// most likely refused; the console never holds a value back because of them.

import { resolve } from './api.js';

const shown = (value) => (typeof value === 'string' ? JSON.stringify(value) : String(value));

function sameValue(a, b) {
  return JSON.stringify(a) === JSON.stringify(b);
}

// The rules one value breaks, each as a sentence that starts with `name`.
export function leafProblems(name, schema, value) {
  const problems = [];
  if (Array.isArray(schema.enum) && !schema.enum.some((v) => sameValue(v, value))) {
    problems.push(`${name} ${shown(value)} is not one of ${schema.enum.map(shown).join(', ')}`);
  }
  if (typeof value === 'number') {
    if (typeof schema.minimum === 'number' && value < schema.minimum) {
      problems.push(`${name} ${value} is below ${schema.minimum}, the least it takes`);
    }
    if (typeof schema.maximum === 'number' && value > schema.maximum) {
      problems.push(`${name} ${value} is above ${schema.maximum}, the most it takes`);
    }
  }
  if (typeof value === 'string') {
    const length = [...value].length;
    if (typeof schema.maxLength === 'number' && length > schema.maxLength) {
      problems.push(`${name} has ${length} characters, more than ${schema.maxLength}`);
    }
    const counted = schema['x-min-count'];
    if (counted && typeof counted.character === 'string') {
      const found = [...value].filter((c) => c === counted.character).length;
      if (found < counted.count) {
        problems.push(`${name} holds ${found} '${counted.character}', fewer than ${counted.count} ` +
          '(what the text does not replace of the device\'s field counts too)');
      }
    } else if (typeof schema.pattern === 'string') {
      let matches = true;
      try {
        matches = new RegExp(schema.pattern, 'u').test(value);
      } catch {
        // A pattern this browser cannot read is no rule it can check.
      }
      if (!matches) {
        problems.push(`${name} ${shown(value)} does not match ${schema.pattern}`);
      }
    }
  }
  return problems;
}

// Every member of `value` (a PUT body) that breaks a rule of `schema`:
// [{path: "a.b[2].c", text}], in the order of the body.
export function bodyProblems(doc, schema, value, path = '', name = '') {
  const s = resolve(doc, schema || {});
  if (Array.isArray(value)) {
    const items = resolve(doc, s.items || {});
    return value.flatMap((item, i) => bodyProblems(doc, items, item, `${path}[${i}]`, `${name}[${i}]`));
  }
  if (value !== null && typeof value === 'object') {
    const properties = s.properties || {};
    return Object.entries(value).flatMap(([key, v]) =>
      (properties[key] ? bodyProblems(doc, properties[key], v, path ? `${path}.${key}` : key, key) : []));
  }
  return leafProblems(name, s, value).map((text) => ({ path, text }));
}

// What is wrong with a ChannelId as the document's parameter describes it
// ('' for "not sent").
export function channelProblems(param, text) {
  if (!param) {
    return [];
  }
  if (text === '') {
    return param.required ? ['ChannelId is missing: it is required'] : [];
  }
  if (!/^-?[0-9]+$/.test(text)) {
    return [`ChannelId ${JSON.stringify(text)} is not a whole decimal number`];
  }
  return leafProblems('ChannelId', param.schema || {}, Number(text));
}
