/**
 * The assistant's answer to the output of tools the client ran. The client sends it as one chat
 * message: the opening sentence, one "Tool Result:" or "Tool Error:" block per call in the order
 * the calls were asked, and a closing request. The answer quotes what came back, shortened, and
 * says plainly which tool failed and why. Older clients sent JSON or free text after the opening
 * sentence; that is still read.
 */
import { analyze, bestSentences, cleanSentence, listing } from './summarizer/index.js';
import { isRemote, kindOf } from './assistantTools.js';

/** What the client puts before the output of tools it ran, sent back as a chat message. */
export const TOOL_RESULTS_PREFIX = 'Here are the tool execution results:';
const CLOSING = /\s*Please provide a comprehensive response based on these results\.?\s*$/;
const BLOCK_MARK = /(?:^|\n)[ \t]*Tool (Result|Error):[ \t]*(?:\n|$)/g;

// How much of a tool's output is quoted back.
const MAX_ENTRIES = 5;
const MAX_QUOTE_LINES = 8;
const MAX_QUOTE_CHARS = 600;
// A remote server's tool writes its answer for a person to read: more of it is shown.
const REMOTE_QUOTE = { maxLines: 40, maxChars: 3000 };
const MAX_LINE_CHARS = 220;
const MAX_ERROR_CHARS = 300;

/**
 * @typedef {object} AskedCall a tool call of the assistant's latest request
 * @property {string} name
 * @property {Record<string, unknown>} [parameters]
 */

/**
 * The blocks of a results message, in order; null when it has none (older, free-form output).
 * @param {string} rest the message after the opening sentence
 * @returns {{ok: boolean, content: string}[] | null}
 */
export function resultBlocks(rest) {
  const body = rest.replace(CLOSING, '');
  const marks = [...body.matchAll(BLOCK_MARK)];
  if (marks.length === 0) return null;
  return marks.map((mark, i) => ({
    ok: mark[1] === 'Result',
    content: body.slice(mark.index + mark[0].length, marks[i + 1]?.index ?? body.length).trim(),
  }));
}

/**
 * The answer to a results message.
 * @param {string} rest the message after the opening sentence
 * @param {AskedCall[]} [asked] the calls of the request the results answer, when known
 * @returns {{content: string, type: 'tool_result'}}
 */
export function fromToolResults(rest, asked = []) {
  const blocks = resultBlocks(rest);
  if (!blocks) {
    const body = rest.replace(CLOSING, '').trim();
    if (!body) return { content: 'The tool results came back empty, so there is nothing to go on. Try running the tool again.', type: 'tool_result' };
    return fromFreeForm(body);
  }
  // The blocks answer the calls one to one, in order, when there are as many of each.
  const calls = blocks.length === asked.length ? asked : [];
  const failures = [];
  const quotes = [];
  blocks.forEach((block, i) => {
    const call = calls[i];
    const kind = call ? kindOf(call.name) : guessKind(block.content);
    if (!block.ok) failures.push(failureLine(kind, call?.name, block.content, blocks.length));
    else {
      const limits = call && isRemote(call.name) ? REMOTE_QUOTE : undefined;
      quotes.push([heading(kind, call, blocks.filter((b) => b.ok).length), '', ...quoted(block.content, limits)].join('\n'));
    }
  });
  const paragraphs = [...failures, ...quotes];
  if (quotes.length === 0) paragraphs.push('Nothing came back that I can use. Check the tool under Integrations and try again.');
  return { content: paragraphs.join('\n\n'), type: 'tool_result' };
}

// A tool's kind from its output alone, by the service that wrote it.
function guessKind(text) {
  if (/\bResend\b|sender email|Email sent/i.test(text)) return 'email';
  if (/\bNotion\b|parent_page_id/i.test(text)) return 'notion';
  if (/\b(?:Brave|Firecrawl)\b|web results|search results/i.test(text)) return 'search';
  return undefined;
}

// Markup a service left in its text ("<strong>Acme</strong>") is no use in a chat answer.
const TAG = /<\/?[a-z][^<>]*>/gi;

const firstLines = (text, max) => {
  const flat = text.replace(TAG, '').replace(/\s*\n\s*/g, ' ').trim();
  return flat.length > max ? `${flat.slice(0, max - 1).replace(/\s+\S*$/, '')}…` : flat;
};

function failureLine(kind, name, error, count) {
  const why = firstLines(error, MAX_ERROR_CHARS) || 'it gave no reason';
  if (kind === 'search') return `The search failed: ${why}`;
  if (kind === 'email') return `The e-mail was not sent: ${why}`;
  if (kind === 'notion') return `The Notion page was not created: ${why}`;
  if (name) return `\`${name}\` failed: ${why}`;
  return `${count === 1 ? 'The tool' : 'A tool'} failed: ${why}`;
}

function heading(kind, call, count) {
  const query = call && Object.values(call.parameters ?? {}).find((v) => typeof v === 'string' && v.trim());
  if (kind === 'search') return query ? `**What the search for “${firstLines(query, 80)}” found**` : '**What the search found**';
  if (kind === 'email') return '**The e-mail was sent**';
  if (kind === 'notion') return '**The Notion page was created**';
  if (call) return `**What \`${call.name}\` returned**`;
  return count === 1 ? '**What the tool returned**' : '**What a tool returned**';
}

/**
 * A tool's output, quoted short: search results ("Title:", "Description:", "URL:" entries, or
 * numbered bold titles) as a list of links, anything else as a blockquote of its first lines.
 * @param {string} content
 * @param {{maxLines: number, maxChars: number}} [limits] how much of a blockquote to show
 */
export function quoted(content, { maxLines = MAX_QUOTE_LINES, maxChars = MAX_QUOTE_CHARS } = {}) {
  if (!content.trim()) return ['> (no output)'];
  const entries = titledEntries(content);
  if (entries.length > 0) {
    const lines = entries.slice(0, MAX_ENTRIES).map(({ title, url, description }) => {
      const name = url ? `[${title}](${url})` : `**${title}**`;
      return `- ${name}${description ? ` — ${firstLines(description, MAX_LINE_CHARS)}` : ''}`;
    });
    if (entries.length > MAX_ENTRIES) lines.push(`- …and ${entries.length - MAX_ENTRIES} more`);
    return lines;
  }
  const lines = [];
  let used = 0;
  const all = content
    .replace(TAG, '')
    .split('\n')
    .map((l) => l.trim())
    .filter(Boolean);
  for (const line of all) {
    if (lines.length >= maxLines || used >= maxChars) break;
    const cut = firstLines(line, Math.min(MAX_LINE_CHARS, maxChars - used + 1));
    lines.push(`> ${cut}`);
    used += cut.length;
  }
  if (lines.length < all.length || used >= maxChars) lines.push('> …');
  return lines;
}

// "Title: …\nDescription: …\nURL: …" entries, or "1. **Title**" with "URL:" and text lines after.
function titledEntries(content) {
  const entries = [];
  for (const chunk of content.split(/\n\s*\n|\n(?=\s*\d+\.\s+\*\*)/)) {
    const title = /^\s*(?:Title:\s*(.+)|\d+\.\s+\*\*(.+?)\*\*)/m.exec(chunk);
    if (!title) continue;
    const url = /\bhttps?:\/\/[^\s<>)\]]+/.exec(chunk)?.[0];
    const description =
      /^\s*(?:Description|Snippet|Summary):\s*(.+)$/im.exec(chunk)?.[1] ??
      chunk
        .split('\n')
        .slice(1)
        .map((l) => l.trim())
        .find((l) => l && !/^(?:URL|Link|Source):/i.test(l) && !/^https?:\/\//.test(l));
    entries.push({ title: (title[1] ?? title[2]).replace(TAG, '').trim(), url, description: description?.trim() });
  }
  return entries;
}

// Keys whose values are what a tool found, and keys that point at where it found it.
const TEXT_KEYS = /^(?:title|snippet|content|description|text|summary|result|results|output|body|answer|message|data|response|excerpt)$/i;
const URL_KEYS = /^(?:url|link|href|source|sourceUrl|source_url)$/i;
const NAME_KEYS = ['name', 'tool', 'toolName', 'tool_name', 'function'];
const URL = /\bhttps?:\/\/[^\s<>"')\]]+/g;
const MAX_RESULT_SENTENCES = 4;
const MAX_SOURCES = 5;

/** Collects a tool result's texts, links and errors, whatever shape it comes in. */
function collect(value, into, key = '', depth = 0) {
  if (depth > 8 || value === null || value === undefined) return;
  if (typeof value === 'string') {
    if (URL_KEYS.test(key)) into.urls.push(...(value.match(URL) ?? []));
    else if (/error/i.test(key)) into.errors.push(value);
    else if (!key || TEXT_KEYS.test(key) || /^\d+$/.test(key)) {
      // A string holding JSON is a result serialized once more.
      const parsed = parseJson(value);
      if (parsed !== undefined && typeof parsed === 'object') collect(parsed, into, '', depth + 1);
      else into.texts.push(value);
    }
    return;
  }
  if (Array.isArray(value)) {
    value.forEach((item, i) => collect(item, into, String(i), depth + 1));
    return;
  }
  if (typeof value === 'object') {
    for (const nameKey of NAME_KEYS) {
      const name = value[nameKey];
      if (typeof name === 'string' && name && !into.tools.includes(name)) into.tools.push(name);
    }
    for (const [k, v] of Object.entries(value)) if (!NAME_KEYS.includes(k)) collect(v, into, k, depth + 1);
  }
}

function parseJson(text) {
  const trimmed = text.trim();
  if (!/^[[{]/.test(trimmed)) return undefined;
  try {
    return JSON.parse(trimmed);
  } catch {
    return undefined;
  }
}

/** Output sent as JSON or free text: the sentences of it that weigh most, and their sources. */
function fromFreeForm(rest) {
  const found = { texts: [], urls: [], errors: [], tools: [] };
  const json = parseJson(rest);
  if (json !== undefined) collect(json, found);
  else {
    // Plain text: "web_search: …" lines name the tool that produced what follows.
    for (const match of rest.matchAll(/^\s*(?:[-*]\s*)?(?:tool\s*[:=]\s*)?([A-Za-z][\w.-]*_[\w.-]+)\s*[:—-]/gim)) {
      if (!found.tools.includes(match[1])) found.tools.push(match[1]);
    }
    found.texts.push(rest);
  }
  for (const text of found.texts) found.urls.push(...(text.match(URL) ?? []));
  const urls = [...new Set(found.urls.map((u) => u.replace(/[.,;:]+$/, '')))].slice(0, MAX_SOURCES);

  const prose = found.texts.map((t) => t.replace(URL, ' ').replace(/^\s*(?:[-*]\s*)?[A-Za-z][\w.-]*_[\w.-]+\s*[:—-]\s*/gm, '')).join('\n');
  const segments = prose
    .split(/\n+/)
    .map((line) => line.trim())
    .filter(Boolean)
    .map((line) => ({ text: /[.!?]$/.test(line) ? line : `${line}.` }));
  const best = bestSentences(analyze(segments), MAX_RESULT_SENTENCES, { minWords: 4 });

  const lines = [];
  for (const error of found.errors.slice(0, 3)) lines.push(`The tool reported an error: ${firstLines(error, MAX_ERROR_CHARS)}`);
  if (best.length > 0) {
    lines.push(`${lines.length ? '\n' : ''}**What the ${found.tools.length ? listing(found.tools.map((t) => `\`${t}\``)) : 'tool'} results say**`, '');
    lines.push(...best.map((s) => `- ${firstLines(cleanSentence(s.text), MAX_LINE_CHARS)}`));
  } else if (found.errors.length === 0) {
    lines.push('The tools ran but returned nothing I can summarize.');
  }
  if (urls.length > 0) lines.push('', `**Sources:** ${urls.map((u, i) => `[${i + 1}](${u})`).join(' ')}`);
  else if (found.tools.length > 0 && best.length > 0) lines.push('', `**Source:** ${listing(found.tools.map((t) => `\`${t}\``))}`);
  return { content: lines.join('\n'), type: 'tool_result' };
}
