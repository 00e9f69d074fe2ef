/** Checks on what arrives over the event socket: one JSON object per event, within bounds. */

export const MAX_STRING_BYTES = 100 * 1024;
// Tool definitions carry JSON schemas, which nest; nothing the client sends nests deeper.
const MAX_DEPTH = 32;
const MAX_NODES = 50_000;

/** A payload the event cannot take; its message is shown to the client. */
export class PayloadError extends Error {}

export const isPlainObject = (value) =>
  value !== null && typeof value === 'object' && !Array.isArray(value) && !ArrayBuffer.isView(value) && !(value instanceof ArrayBuffer);

/**
 * Checks that a value stays within the limits: strings up to 100 KB (UTF-8), nesting up to 32
 * levels, 50 000 values in all, and no binary data. Walks without recursion, so that a payload
 * nested a million levels deep is refused rather than overflowing the stack.
 * @param {unknown} value
 * @param {string} what how to name it in a message
 * @throws {PayloadError}
 */
export function checkBounds(value, what = 'the payload') {
  const stack = [[value, 1]];
  let nodes = 0;
  while (stack.length > 0) {
    const [item, depth] = stack.pop();
    if (++nodes > MAX_NODES) throw new PayloadError(`${what} has more than ${MAX_NODES} values`);
    if (typeof item === 'string') {
      // Byte length is at most three times the UTF-16 length: most strings skip the count.
      if (item.length * 3 > MAX_STRING_BYTES && Buffer.byteLength(item, 'utf8') > MAX_STRING_BYTES) {
        throw new PayloadError(`${what} holds a string larger than ${MAX_STRING_BYTES / 1024} KB`);
      }
    } else if (item !== null && typeof item === 'object') {
      if (ArrayBuffer.isView(item) || item instanceof ArrayBuffer) throw new PayloadError(`${what} must not hold binary data`);
      if (depth > MAX_DEPTH) throw new PayloadError(`${what} is nested more than ${MAX_DEPTH} levels deep`);
      for (const child of Array.isArray(item) ? item : Object.values(item)) stack.push([child, depth + 1]);
    }
  }
}

/**
 * The one object an event carries.
 * @param {unknown[]} args the event's arguments (an acknowledgement callback already removed)
 * @returns {Record<string, unknown>}
 * @throws {PayloadError}
 */
export function eventPayload(args) {
  if (args.length !== 1 || !isPlainObject(args[0])) throw new PayloadError('an event carries exactly one JSON object');
  checkBounds(args[0]);
  return args[0];
}

const TYPES = {
  string: (v) => typeof v === 'string',
  boolean: (v) => typeof v === 'boolean',
  number: (v) => typeof v === 'number' && Number.isFinite(v),
  integer: (v) => Number.isSafeInteger(v),
  array: (v) => Array.isArray(v),
  object: isPlainObject,
};
const ARTICLE = { string: 'a string', boolean: 'true or false', number: 'a number', integer: 'a whole number', array: 'a list', object: 'an object' };

/**
 * A field of a payload, checked for its type. An absent (or null) optional field is undefined.
 * @param {Record<string, unknown>} payload
 * @param {string} name
 * @param {keyof TYPES} type
 * @param {{required?: boolean}} [options]
 * @throws {PayloadError}
 */
export function field(payload, name, type, { required = false } = {}) {
  const value = Object.hasOwn(payload, name) ? payload[name] : undefined;
  if (value === undefined || value === null) {
    if (required) throw new PayloadError(`"${name}" is required`);
    return undefined;
  }
  if (!TYPES[type](value)) throw new PayloadError(`"${name}" must be ${ARTICLE[type]}`);
  return value;
}

/** An event name as it can go in a log line: printable and short. */
export function printableName(name) {
  const text = String(name);
  const shown = text.length > 60 ? `${text.slice(0, 60)}…` : text;
  return JSON.stringify(shown);
}
