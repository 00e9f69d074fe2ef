/**
 * What the demo MCP server's tools say about an account's calls: a search over titles,
 * summaries and transcripts, one call's summary, and the action items of one call or of the
 * latest ones. Each answer is a text a person can read, with the ids that the next question
 * needs; a question that cannot be answered (an unknown call) is a `DemoCallError`.
 */
import { STOP_WORDS, stem } from './summarizer/text.js';

/** A question about the calls that has no answer; its message is shown as it stands. */
export class DemoCallError extends Error {}

export const DEFAULT_SEARCH_LIMIT = 5;
export const DEFAULT_RECENT_CALLS = 5;
// A shortened id names a call when it is at least this long and fits only one.
const MIN_ID_PREFIX = 8;
const MAX_TITLE_CHARS = 80;
const MAX_SNIPPET_CHARS = 160;

/**
 * A call's title: the opening of its summary ("Pricing negotiation with Helio Health"), or what
 * kind of call it was while it has none.
 * @param {{summary?: {content?: string}, direction?: string, status?: string}} call
 */
export function callTitle(call) {
  const first = (call.summary?.content ?? '').split(/(?<=[.!?])\s/)[0].replace(/[.!?]$/, '');
  const title = first.split(/\s\(|,\s/)[0].trim();
  if (title) return title.length > MAX_TITLE_CHARS ? `${title.slice(0, MAX_TITLE_CHARS - 1).replace(/\s+\S*$/, '')}…` : title;
  const kind = call.direction === 'inbound' ? 'Inbound call' : 'Outbound call';
  return call.status === 'active' ? `${kind} (in progress)` : kind;
}

/** "2026-11-23": the day a call started, as stored (UTC). */
const dayOf = (call) => String(call.created_at ?? '').slice(0, 10);
const line = (call) => `${callTitle(call)} (${dayOf(call)}, id ${call.id})`;
const wordsOf = (text) => text.toLowerCase().match(/[\p{L}\p{N}$%]+(?:['’.-][\p{L}\p{N}]+)*/gu) ?? [];
const stemsOf = (text) => new Set(wordsOf(text).map(stem));

// The texts of a call a search goes through besides its title, the most telling first.
function searchable(call) {
  const summary = call.summary ?? {};
  return [
    summary.content ?? '',
    ...(summary.key_points ?? []),
    ...(summary.action_items ?? []).map((item) => item.description),
    ...(summary.topics ?? []).map((topic) => topic.topic),
    ...(call.transcription?.segments ?? []).map((segment) => segment.text),
  ].filter((text) => typeof text === 'string' && text.trim());
}

/**
 * The calls that mention the query's words, those with the most of them first and, among
 * equals, the newest; each with the sentence that matched best.
 * @param {object[]} calls the account's calls, newest first
 * @param {{query: string, limit?: number}} search
 * @returns {string}
 */
export function searchCalls(calls, { query, limit = DEFAULT_SEARCH_LIMIT }) {
  const all = wordsOf(query);
  const wanted = all.filter((w) => !STOP_WORDS.has(w));
  const words = [...new Set((wanted.length > 0 ? wanted : all).map(stem))];
  if (words.length === 0) throw new DemoCallError('The query has no words to search for.');
  const hits = [];
  calls.forEach((call, order) => {
    const found = new Set(words.filter((w) => stemsOf(callTitle(call)).has(w)));
    // The sentence quoted is from the call itself, not its title, which is shown anyway.
    let best = { count: 0, text: '' };
    for (const text of searchable(call)) {
      const present = stemsOf(text);
      const here = words.filter((w) => present.has(w));
      here.forEach((w) => found.add(w));
      if (here.length > best.count) best = { count: here.length, text };
    }
    if (found.size > 0) hits.push({ call, score: found.size, order, snippet: best.text && snippetOf(best.text, words) });
  });
  hits.sort((a, b) => b.score - a.score || a.order - b.order);
  if (hits.length === 0) return `No calls match “${query}”.`;
  const shown = hits.slice(0, limit);
  const count = hits.length === 1 ? '1 call matches' : `${hits.length} calls match`;
  const lines = [`${count} “${query}”${hits.length > shown.length ? ` (showing ${shown.length})` : ''}:`];
  shown.forEach(({ call, snippet }, i) => lines.push(`${i + 1}. ${line(call)}`, ...(snippet ? [`   “${snippet}”`] : [])));
  return lines.join('\n');
}

// The sentence of a text that holds the first wanted word, shortened around it.
function snippetOf(text, words) {
  const sentences = text.split(/(?<=[.!?])\s+/);
  const sentence = sentences.find((s) => words.some((w) => stemsOf(s).has(w))) ?? sentences[0];
  const flat = sentence.replace(/\s+/g, ' ').trim();
  return flat.length > MAX_SNIPPET_CHARS ? `${flat.slice(0, MAX_SNIPPET_CHARS - 1).replace(/\s+\S*$/, '')}…` : flat;
}

/**
 * The call an id names: the whole id, or a shortened one of at least eight characters that fits
 * one call only.
 * @param {object[]} calls
 * @param {string} id
 */
export function findCall(calls, id) {
  const wanted = id.trim().toLowerCase();
  const exact = calls.find((call) => call.id.toLowerCase() === wanted);
  if (exact) return exact;
  const fitting = wanted.length >= MIN_ID_PREFIX ? calls.filter((call) => call.id.toLowerCase().startsWith(wanted)) : [];
  if (fitting.length === 1) return fitting[0];
  if (fitting.length > 1) throw new DemoCallError(`More than one call has an id starting with “${id}”; give the whole id.`);
  throw new DemoCallError(`No call has the id “${id}”. Use search_calls to find a call's id.`);
}

const itemLine = (item) => {
  const details = [item.assignee, item.deadline, item.priority && `${item.priority} priority`].filter(Boolean).join(', ');
  return `- ${item.description}${details ? ` (${details})` : ''}`;
};

/**
 * A call's overview, key points and action items.
 * @param {object[]} calls
 * @param {string} callId
 * @returns {string}
 */
export function callSummary(calls, callId) {
  const call = findCall(calls, callId);
  const facts = [dayOf(call), call.call_duration, call.status].filter(Boolean).join(' · ');
  const lines = [callTitle(call), facts];
  const summary = call.summary;
  if (!summary) {
    lines.push('', call.status === 'active' ? 'This call is still in progress; it has no summary yet.' : 'This call has no summary.');
    return lines.join('\n');
  }
  lines.push('', 'Overview', summary.content);
  if (summary.key_points?.length) lines.push('', 'Key points', ...summary.key_points.map((point) => `- ${point}`));
  lines.push('', 'Action items', ...(summary.action_items?.length ? summary.action_items.map(itemLine) : ['- none']));
  return lines.join('\n');
}

/**
 * The action items of one call, or of the latest calls that have a summary.
 * @param {object[]} calls newest first
 * @param {{callId?: string, recent?: number}} which
 * @returns {string}
 */
export function actionItems(calls, { callId, recent = DEFAULT_RECENT_CALLS }) {
  if (callId !== undefined) {
    const call = findCall(calls, callId);
    const items = call.summary?.action_items ?? [];
    if (items.length === 0) return `${line(call)} has no action items.`;
    return [`Action items from ${line(call)}:`, ...items.map(itemLine)].join('\n');
  }
  const latest = calls.filter((call) => call.summary).slice(0, recent);
  if (latest.length === 0) return 'There are no finished calls with action items yet.';
  const which = latest.length === 1 ? 'the latest call' : `the ${latest.length} latest calls`;
  const lines = [`Action items from ${which}:`];
  for (const call of latest) {
    const items = call.summary.action_items ?? [];
    lines.push('', line(call), ...(items.length ? items.map(itemLine) : ['- none']));
  }
  return lines.join('\n');
}
