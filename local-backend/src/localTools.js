/**
 * The local-tool configuration a client sends on the event socket, and what a connection keeps of
 * it: {"executionMode": "local", "localTools": [definitions], "enabledTools": [names]}. A
 * definition names a tool the client runs on its own machine, says what it does, and gives its
 * arguments as a JSON Schema object; the assistant asks only for enabled tools, with arguments
 * shaped by that schema.
 */
import { sendJson } from './http.js';
import { PayloadError, checkBounds, isPlainObject } from './payload.js';

// A client's own tools plus those of its remote servers stay far below these; more is refused
// silently, by keeping the first ones, as a list cut short.
const MAX_TOOLS = 200;
const MAX_TOOL_NAME = 200;
const MAX_DESCRIPTION = 4000;
const MAX_EXECUTION_MODE = 50;

/**
 * @typedef {object} ToolDefinition
 * @property {string} name
 * @property {string} [displayName] how a remote server names its tool to people
 * @property {string} [description]
 * @property {Record<string, unknown>} [parameters] a JSON Schema object of the arguments
 */

/**
 * @typedef {object} ToolDocument the configuration as a connection keeps it
 * @property {string | null} executionMode
 * @property {ToolDefinition[]} localTools the definitions, one per name, first one kept
 * @property {string[]} enabledTools
 */

const cleanName = (value) =>
  typeof value === 'string' && value.trim() !== '' ? value.trim().slice(0, MAX_TOOL_NAME) : undefined;

// Tools are named by strings, by objects with a "name", or by objects wrapping a "function".
const nameOf = (tool) => cleanName(typeof tool === 'string' ? tool : (tool?.name ?? tool?.function?.name));

function definitionOf(tool) {
  const name = nameOf(tool);
  if (!name) return undefined;
  if (!isPlainObject(tool)) return { name };
  const inner = isPlainObject(tool.function) ? tool.function : {};
  const description = tool.description ?? inner.description;
  const parameters = tool.parameters ?? inner.parameters;
  const displayName = cleanName(tool.displayName);
  return {
    name,
    ...(displayName && { displayName }),
    ...(typeof description === 'string' && { description: description.slice(0, MAX_DESCRIPTION) }),
    // Anything but an object cannot describe named arguments; the tool is kept without it.
    ...(isPlainObject(parameters) && { parameters }),
  };
}

function distinct(items, keyOf) {
  const kept = new Map();
  for (const item of items) {
    if (kept.size >= MAX_TOOLS) break;
    const key = keyOf(item);
    if (key !== undefined && !kept.has(key)) kept.set(key, item);
  }
  return kept;
}

/**
 * Reads a local-tool configuration, given as JSON text (as initializeSession sends it) or as the
 * object itself (as update_local_tools does).
 * @param {unknown} value
 * @param {string} what how to name it in a message
 * @returns {ToolDocument | null} null when no configuration was given
 * @throws {PayloadError}
 */
export function parseToolConfig(value, what) {
  if (value === undefined || value === null) return null;
  let config = value;
  if (typeof value === 'string') {
    try {
      config = JSON.parse(value);
    } catch {
      throw new PayloadError(`${what} is not valid JSON text`);
    }
    checkBounds(config, what);
  }
  if (!isPlainObject(config)) throw new PayloadError(`${what} must hold a JSON object`);
  for (const key of ['localTools', 'enabledTools']) {
    if (config[key] !== undefined && config[key] !== null && !Array.isArray(config[key])) {
      throw new PayloadError(`"${key}" in ${what} must be a list`);
    }
  }
  const local = config.localTools ?? [];
  const definitions = [...distinct(local.map(definitionOf), (d) => d?.name).values()];
  // Without a list of enabled tools, every tool not switched off by its own "enabled" flag.
  const enabled = config.enabledTools ?? local.filter((t) => t?.enabled !== false);
  const mode = config.executionMode;
  return {
    executionMode: typeof mode === 'string' ? mode.slice(0, MAX_EXECUTION_MODE) : null,
    localTools: definitions,
    enabledTools: [...distinct(enabled.map(nameOf), (name) => name).keys()],
  };
}

/** The names a configuration makes available and those it enables; none without one. */
export function toolNames(document) {
  return {
    available: document?.localTools.map((d) => d.name) ?? [],
    enabled: document?.enabledTools ?? [],
  };
}

/** The definitions of the enabled tools, in the order they were defined. */
export function enabledDefinitions(document) {
  if (!document) return [];
  const enabled = new Set(document.enabledTools);
  return document.localTools.filter((d) => enabled.has(d.name));
}

// A property's JSON type; of a list of types ("string", "null"), the first that is not null.
function typeOf(property) {
  const type = isPlainObject(property) ? property.type : undefined;
  if (typeof type === 'string') return type;
  return Array.isArray(type) ? type.find((t) => typeof t === 'string' && t !== 'null') : undefined;
}

/**
 * The parameters a tool requires, in the order its schema lists them, each with its JSON type
 * (undefined when the schema does not say).
 * @param {ToolDefinition[]} definitions the session's enabled tools
 * @param {string} name
 * @returns {{name: string, type: string | undefined}[] | null} null when no definition with a
 *   schema names that tool
 */
export function requiredParameters(definitions, name) {
  const schema = definitions.find((d) => d.name === name)?.parameters;
  if (!isPlainObject(schema)) return null;
  const properties = isPlainObject(schema.properties) ? schema.properties : {};
  const required = Array.isArray(schema.required) ? schema.required.filter((p) => typeof p === 'string') : [];
  return [...new Set(required)].map((p) => ({ name: p, type: typeOf(Object.hasOwn(properties, p) ? properties[p] : undefined) }));
}

/**
 * GET /live/tools, a development aid: the tool configurations of the signed-in user's connected
 * sessions, oldest connection first, so that a client's tests can see what the backend received.
 * @param {import('./auth.js').AuthService} auth
 * @param {{toolConfigurations: (userId: string) => unknown[]}} eventSocket
 * @returns {import('./http.js').Routes}
 */
export function liveToolRoutes(auth, eventSocket) {
  return {
    '/live/tools': {
      GET: (req, res) => sendJson(res, 200, { sessions: eventSocket.toolConfigurations(auth.requireUser(req).id) }),
    },
  };
}
