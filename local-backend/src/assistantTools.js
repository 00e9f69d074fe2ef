/**
 * Which of a session's tools the assistant asks for, and with which arguments. Only tools the
 * client declared and enabled are ever named; their arguments take the names of the tool's own
 * schema, or of the client's built-in tool when it sent the name alone.
 */
import { isPlainObject } from './payload.js';
import { requiredParameters } from './localTools.js';
import { STOP_WORDS, stem } from './summarizer/text.js';

/**
 * The kinds of tool the assistant asks for. The client's built-in tools come first, in the
 * order given; then any other enabled tool whose name fits, preferring one that says what is
 * wanted. Tools of another purpose that share a word (a Notion search is no web search, a
 * templates tool sends nothing) are left out.
 */
const TOOL_KINDS = {
  search: {
    builtIn: ['brave_web_search', 'firecrawl_search'],
    matches: /search|google|bing|serp|tavily|perplexity|brave|browse|web|lookup/i,
    excludes: /notion|local_search|resend|template|firecrawl_(?:scrape|map)|calls?(?:_|$)/i,
    prefer: /search/i,
  },
  email: {
    builtIn: ['resend_send_email'],
    matches: /e-?mail|gmail|outlook|smtp/i,
    excludes: /template|read|inbox|list|search|get/i,
    prefer: /send|compose|draft/i,
  },
  notion: {
    builtIn: ['notion_create_page'],
    matches: /notion/i,
    excludes: /search|get|query|list|comment|update|database|user/i,
    prefer: /create|page|new|write|save/i,
  },
};

/** What to call each kind when telling the user it is not there, and where to turn it on. */
export const MISSING_TOOL = {
  search: 'Web search is not enabled. Turn on Brave Search (or Firecrawl) under Integrations and I can search for you.',
  email: 'Sending e-mail is not enabled. Turn on Resend under Integrations and I can send it for you.',
  notion: 'Notion is not enabled. Turn on Notion under Integrations and I can save the notes there.',
};

/**
 * The session's enabled tool of a kind: a built-in one first, else the enabled tool whose name
 * fits best (a remote server's "mcp_…" tools included); null when none fits.
 * @param {keyof typeof TOOL_KINDS} kind
 * @param {string[]} enabledTools
 * @returns {string | null}
 */
export function toolFor(kind, enabledTools) {
  const { builtIn, matches, excludes, prefer } = TOOL_KINDS[kind];
  const own = builtIn.find((name) => enabledTools.includes(name));
  if (own) return own;
  const fitting = enabledTools.filter((name) => matches.test(name) && !excludes.test(name));
  return fitting.find((name) => prefer.test(name)) ?? fitting[0] ?? null;
}

/**
 * What kind of tool a name is, for telling the user what it did; undefined for any other, and
 * for a remote server's tool, which is better called by its own name.
 */
export function kindOf(name) {
  if (isRemote(name)) return undefined;
  return Object.keys(TOOL_KINDS).find((kind) => toolFor(kind, [name]) === name);
}

export const isRemote = (name) => /^mcp_/i.test(name);

// The names the client's built-in tools give their arguments, for a client that sent the tool's
// name without its schema. A value the assistant has is given under the first name here that the
// tool takes.
const BUILT_IN_PARAMETERS = {
  brave_web_search: ['query'],
  firecrawl_search: ['query'],
  resend_send_email: ['to', 'subject', 'text'],
  notion_create_page: ['title', 'content_blocks'],
};

// What the assistant has to give, and the argument names that take it, most telling first.
const ALIASES = {
  query: ['query', 'q', 'search_query', 'searchQuery', 'search', 'term', 'keywords', 'question', 'prompt', 'input', 'text'],
  to: ['to', 'recipient', 'recipients', 'to_email', 'toEmail', 'email', 'address'],
  subject: ['subject', 'title'],
  body: ['text', 'body', 'plain_text', 'message', 'content', 'markdown', 'html'],
  title: ['title', 'page_title', 'pageTitle', 'name', 'subject'],
  content: ['content_blocks', 'children', 'blocks', 'content', 'markdown', 'text', 'body'],
};

/**
 * A call's arguments, named as the tool names them. `values` are what the assistant has, by
 * what they are (`query`, `to`, `subject`, `body`, `title`, `content`, the last one Markdown).
 * `main` names the value that is the user's own text: a tool with no argument of a fitting name
 * takes it in its first required string argument. Required arguments with a default in the
 * schema get it.
 * @param {import('./localTools.js').ToolDefinition[] | undefined} definitions the enabled ones
 * @param {string} name
 * @param {Record<string, string>} values
 * @param {{main?: string}} [options]
 * @returns {Record<string, unknown>}
 */
export function argumentsFor(definitions, name, values, { main } = {}) {
  const schema = (definitions ?? []).find((d) => d.name === name)?.parameters;
  const properties = isPlainObject(schema) && isPlainObject(schema.properties) ? schema.properties : undefined;
  if (!properties || Object.keys(properties).length === 0) {
    const known = BUILT_IN_PARAMETERS[name];
    if (!known) return { ...values };
    return placed(values, known.map((p) => [p, { type: p === 'content_blocks' ? 'array' : 'string' }]));
  }
  const result = placed(values, Object.entries(properties));
  const required = requiredParameters(definitions, name) ?? [];
  if (main !== undefined && !Object.values(result).includes(values[main])) {
    const free = required.find((p) => p.type === 'string' && !(p.name in result));
    if (free) result[free.name] = values[main];
  }
  for (const { name: parameter } of required) {
    const property = properties[parameter];
    if (!(parameter in result) && isPlainObject(property) && property.default !== undefined) result[parameter] = property.default;
  }
  return result;
}

// Each value under the first free argument that takes it, shaped as that argument's type wants.
function placed(values, properties) {
  const byName = new Map(properties.map(([p, schema]) => [p.toLowerCase(), [p, schema]]));
  const result = {};
  for (const [key, value] of Object.entries(values)) {
    for (const alias of ALIASES[key] ?? [key]) {
      const found = byName.get(alias.toLowerCase());
      if (!found || found[0] in result) continue;
      const [parameter, schema] = found;
      result[parameter] = shaped(key, value, typeOf(schema));
      break;
    }
  }
  return result;
}

function typeOf(schema) {
  const type = isPlainObject(schema) ? schema.type : undefined;
  return Array.isArray(type) ? type.find((t) => t !== 'null') : type;
}

function shaped(key, value, type) {
  if (type !== 'array') return value;
  return key === 'content' ? notionBlocks(value) : [value];
}

// Notion takes at most 100 blocks at a time and 2000 characters in one piece of rich text.
const MAX_BLOCKS = 100;
const MAX_RICH_TEXT = 2000;

/**
 * Markdown notes as Notion blocks: "## " headings, "- [ ] " and "- [x] " to-dos, "- " bullets,
 * other lines paragraphs.
 */
export function notionBlocks(markdown) {
  const blocks = [];
  for (const line of markdown.split('\n')) {
    const text = line.trim();
    if (!text) continue;
    const todo = /^[-*]\s+\[([ xX])\]\s+(.*)$/.exec(text);
    const [type, content] = todo
      ? ['to_do', todo[2]]
      : /^##+\s+/.test(text)
        ? ['heading_2', text.replace(/^##+\s+/, '')]
        : /^[-*]\s+/.test(text)
          ? ['bulleted_list_item', text.replace(/^[-*]\s+/, '')]
          : ['paragraph', text];
    const body = { rich_text: [{ type: 'text', text: { content: content.slice(0, MAX_RICH_TEXT) } }] };
    if (todo) body.checked = todo[1] !== ' ';
    blocks.push({ object: 'block', type, [type]: body });
  }
  return blocks.slice(0, MAX_BLOCKS);
}

/** Notion blocks back as the lines of text they hold. */
export function blockTexts(blocks) {
  return (Array.isArray(blocks) ? blocks : []).map((b) => b?.[b?.type]?.rich_text?.map((r) => r?.text?.content ?? '').join('') ?? '');
}

// Words too common to tell one remote server from another: "search the web" names no server.
const GENERIC_WORDS = new Set(['mcp', 'web', 'search', 'tool', 'tools', 'server', 'api', 'data', 'get', 'list', 'find', 'run', 'call', 'query', 'create', 'app']);
const spaced = (text) => text.toLowerCase().replace(/[_\-.]+/g, ' ').replace(/\s+/g, ' ').trim();
const wordsIn = (text) => spaced(text).split(' ').filter(Boolean);
const escapeRegExp = (text) => text.replace(/[.*+?^${}()|[\]\\]/g, '\\$&');
const containsPhrase = (text, phrase) => phrase.length >= 3 && new RegExp(`(?:^|\\W)${escapeRegExp(phrase)}(?:$|\\W)`).test(text);

// Words before a tool's name that say to run it: "use search calls to …".
const USE_BEFORE = /(?:^|\W)(?:use|using|run|call|try|with|via|through)\s+(?:the\s+|my\s+|our\s+|a\s+)?$/;
const stems = (words) => words.map(stem);

/**
 * The phrases a remote tool goes by besides its identifier: its own name (the display name the
 * client sends, else the identifier without "mcp_") and every ending of it two words or longer
 * that says more than generic words: "search calls", "call summary", "action items".
 */
function toolPhrases(tool) {
  const names = [tool.definition?.displayName, tool.name.replace(/^mcp_/i, '')].filter(Boolean).map(wordsIn);
  const phrases = new Map();
  for (const words of names) {
    for (let i = 0; i + 2 <= words.length; i += 1) {
      const ending = words.slice(i);
      if (ending.every((w) => GENERIC_WORDS.has(w) || STOP_WORDS.has(w))) continue;
      phrases.set(ending.join(' '), ending);
    }
  }
  return [...phrases.values()];
}

// Words that may stand between a phrase's words: "search the calls", "search my calls".
const FILLERS = new Set(['the', 'my', 'our', 'all', 'a', 'an']);

// Where a phrase stands in the message's words, plurals and fillers aside: the span (how many
// words it covers, and how many of the phrase's), or undefined.
function spanOf(messageWords, phrase) {
  const wanted = stems(phrase);
  const have = stems(messageWords);
  for (let start = 0; start < have.length; start += 1) {
    let at = start;
    let matched = 0;
    while (matched < wanted.length && at < have.length) {
      if (have[at] === wanted[matched]) matched += 1;
      else if (matched === 0 || !FILLERS.has(have[at])) break;
      at += 1;
    }
    if (matched === wanted.length) return { start, length: at - start, words: wanted.length };
  }
  return undefined;
}

/**
 * The enabled remote server tool that a message names. Named outright (`explicit`): by its
 * identifier (with or without "mcp_"), its own name as written with underscores, a name or
 * phrase of it after "use", "run", "with"…, or its server after "use", "ask", "in"… (together
 * with, when the server has several tools, the words of the tool's name or description). Named
 * by its words: its display name, or its own name or an ending of it, plurals aside ("search
 * calls", "call summary", "action items"); a request of the assistant's own kinds keeps those.
 * Returns the tool and the words that named it, or undefined.
 * @param {string} message
 * @param {string[]} enabledTools
 * @param {import('./localTools.js').ToolDefinition[] | undefined} definitions
 * @returns {{name: string, mention: string, explicit: boolean,
 *            definition?: import('./localTools.js').ToolDefinition} | undefined}
 */
export function remoteToolNamed(message, enabledTools, definitions) {
  const text = spaced(message);
  const lower = message.toLowerCase();
  const remote = enabledTools.filter(isRemote).map((name) => ({ name, definition: (definitions ?? []).find((d) => d.name === name) }));
  for (const tool of remote) {
    const bare = tool.name.replace(/^mcp_/i, '');
    for (const phrase of [tool.name, bare].map(spaced)) {
      if (containsPhrase(text, phrase)) return { ...tool, mention: phrase, explicit: true };
    }
  }
  // The own name as written in code ("search_calls") is unmistakable; its words are matched below.
  for (const tool of remote) {
    const own = tool.definition?.displayName?.toLowerCase();
    if (own && /^[a-z0-9]+(?:_[a-z0-9]+)+$/.test(own) && new RegExp(`(?:^|[^\\w])${escapeRegExp(own)}(?:$|[^\\w])`).test(lower)) {
      return { ...tool, mention: spaced(own), explicit: true };
    }
  }
  const byWords = remoteToolByWords(message, remote);
  if (byWords) return byWords;
  // A server is named when the user says to use it ("ask the kb server …", "… in Linear"), not
  // when its name merely comes up ("search the web for Acme pricing" beside an "mcp_acme_…").
  const serverOf = (name) => wordsIn(name.replace(/^mcp_/i, ''))[0] ?? '';
  const messageWords = new Set(wordsIn(message).filter((w) => !STOP_WORDS.has(w)));
  const named = remote.filter((tool) => {
    const server = serverOf(tool.name);
    if (server.length < 2 || GENERIC_WORDS.has(server) || STOP_WORDS.has(server)) return false;
    return new RegExp(`\\b(?:use|using|ask|via|through|with|in|from|run|call|check)\\s+(?:the\\s+|my\\s+|our\\s+)?${escapeRegExp(server)}\\b`).test(text);
  });
  if (named.length === 0) return undefined;
  const overlap = (tool) =>
    new Set([...wordsIn(tool.name.replace(/^mcp_/i, '')).slice(1), ...wordsIn(tool.definition?.description ?? '')].filter((w) => messageWords.has(w) && !STOP_WORDS.has(w))).size;
  const best = named.reduce((a, b) => (overlap(b) > overlap(a) ? b : a));
  return { ...best, mention: serverOf(best.name), explicit: true };
}

// The tool whose display name or own name's words the message says, the longest phrase first;
// explicit when "use" or the like comes right before it.
function remoteToolByWords(message, remote) {
  const words = message
    .toLowerCase()
    .replace(/[_\-.]+/g, ' ')
    .split(/[^\p{L}\p{N}']+/u)
    .filter(Boolean);
  let best;
  for (const tool of remote) {
    for (const phrase of toolPhrases(tool)) {
      const span = spanOf(words, phrase);
      if (span && (!best || span.words > best.span.words || (span.words === best.span.words && span.start < best.span.start))) best = { tool, span };
    }
  }
  if (!best) return undefined;
  const said = words.slice(best.span.start, best.span.start + best.span.length);
  const before = words.slice(0, best.span.start).join(' ');
  return { ...best.tool, mention: said.join(' '), explicit: USE_BEFORE.test(before ? `${before} ` : '') };
}

// Words around a tool's mention that say "use it" rather than what to ask it.
const ASIDE_WORDS = new Set(`please can could would will you use using run call ask with via through in on from the my our
  tool server mcp to for about and let me have find show give get fetch look`.split(/\s+/));

/**
 * What a message asks of a remote tool: the message without the tool's mention and the words
 * that only say to use it ("use the kb tool to …"); empty when it says nothing more.
 */
export function requestFor(message, mention) {
  const words = message
    .trim()
    .replace(/[?.!]+$/, '')
    .split(/\s+/)
    .filter(Boolean);
  // The mention as said: "kb_lookup", "kb lookup" or "Knowledge base lookup:".
  const target = wordsIn(mention).join(' ');
  const kept = [];
  for (let i = 0; i < words.length; ) {
    const span = [...Array(Math.min(words.length - i, target.split(' ').length)).keys()]
      .map((k) => k + 1)
      .find((k) => spaced(words.slice(i, i + k).join(' ').replace(/[,:;'"“”]+/g, '')) === target);
    if (span) i += span;
    else kept.push(words[i++]);
  }
  const plain = (w) => w.toLowerCase().replace(/[,:;'"“”]+/g, '');
  while (kept.length > 0 && ASIDE_WORDS.has(plain(kept[0]))) kept.shift();
  while (kept.length > 0 && ASIDE_WORDS.has(plain(kept.at(-1)))) kept.pop();
  return kept.join(' ').replace(/^[,:;\s]+|[,:;\s]+$/g, '');
}

// An argument that names a record by its id takes an id from the request and nothing else.
const ID_PARAMETER = /(?:^|_)id$|[a-z]Id$/;
const ID_TOKEN = /(?<![\w-])(?=[\w-]*\d)[a-z0-9][\w-]{5,}(?![\w-])/i;

/**
 * The arguments of a remote tool asked to do `request`: an id in the request under the tool's id
 * argument, else the request in its most fitting string argument, and the schema's defaults in
 * the other required ones. A tool without a schema of its own (one that takes any arguments)
 * gets the request as "query"; one that takes none, or a request that says nothing more than
 * the tool's name, gets none of it.
 * @param {import('./localTools.js').ToolDefinition | undefined} definition
 * @param {string} request
 */
export function remoteArguments(definition, request) {
  const schema = definition?.parameters;
  const properties = isPlainObject(schema) && isPlainObject(schema.properties) ? schema.properties : {};
  if (Object.keys(properties).length === 0) {
    return !request || (isPlainObject(schema) && schema.additionalProperties === false) ? {} : { query: request };
  }
  const isId = (p) => ID_PARAMETER.test(p) && typeOf(properties[p]) === 'string';
  const idParameter = Object.keys(properties).find(isId);
  const id = idParameter && ID_TOKEN.exec(request)?.[0];
  if (id) return { ...argumentsFor([definition], definition.name, {}), [idParameter]: id };
  const args = argumentsFor([definition], definition.name, request ? { query: request } : {}, request ? { main: 'query' } : {});
  for (const p of Object.keys(args)) if (isId(p)) delete args[p];
  if (!request || Object.keys(args).some((k) => args[k] === request)) return args;
  const anyString = Object.keys(properties).find((p) => typeOf(properties[p]) === 'string' && !isId(p));
  return anyString ? { ...args, [anyString]: request } : args;
}

/**
 * The required arguments of a remote tool that a call leaves out and the schema gives no default
 * for: what the user has to say before the call can be made.
 * @param {import('./localTools.js').ToolDefinition | undefined} definition
 * @param {Record<string, unknown>} args
 */
export function missingArguments(definition, args) {
  const schema = definition?.parameters;
  const required = isPlainObject(schema) && Array.isArray(schema.required) ? schema.required : [];
  return required.filter((p) => typeof p === 'string' && !(p in args));
}
