/**
 * The assistant of a live call, by rules: chat answers grounded in the call's transcript and
 * summary, tool calls for the client to run once the user approves them, and the suggestions of
 * agent mode. Nothing here is stored or sent; the event socket does that.
 */
import { requiredParameters } from './localTools.js';
import { analyze, bestSentences, capitalize, cleanSentence, isContentWord, listing, resolvePerson, splitSentences, tokenize } from './summarizer/index.js';
import { actionItemOf } from './summarizer/actions.js';
import { STOP_WORDS, TIME_WORDS, normalizeApostrophes, stem } from './summarizer/text.js';

/** What the client puts before the output of tools it ran, sent back as a chat message. */
export const TOOL_RESULTS_PREFIX = 'Here are the tool execution results:';

/**
 * The kinds of tool the assistant asks for. A session's enabled tools are matched by name; the
 * generic name is used when the session has none enabled.
 */
const TOOL_KINDS = {
  search: { generic: 'web_search', matches: /search|google|bing|serp|tavily|perplexity|brave|browse|web|lookup/i, prefer: /search/i },
  email: { generic: 'send_email', matches: /e-?mail|gmail|outlook|smtp/i, prefer: /send|compose|draft/i },
  notion: { generic: 'notion_create_page', matches: /notion/i, prefer: /create|page|add|new|write/i },
};

/**
 * The name of the session's tool of a kind: among its enabled tools the one that fits best,
 * the generic name when no tool is enabled, and null when tools are enabled but none fits.
 * @param {keyof typeof TOOL_KINDS} kind
 * @param {string[]} enabledTools
 */
export function toolFor(kind, enabledTools) {
  const { generic, matches, prefer } = TOOL_KINDS[kind];
  if (enabledTools.length === 0) return generic;
  const fitting = enabledTools.filter((name) => matches.test(name));
  return fitting.find((name) => prefer.test(name)) ?? fitting[0] ?? null;
}

/**
 * @typedef {object} CallContext what the assistant knows of the call
 * @property {{text: string, speaker?: string}[]} segments the stored transcript
 * @property {() => import('./summarizer/index.js').CallSummary} summary
 * @property {string[]} enabledTools
 * @property {import('./localTools.js').ToolDefinition[]} [toolDefinitions] the enabled tools'
 *   definitions, as far as the client sent them
 * @property {() => string} newId a fresh id for a tool call
 */

/**
 * @typedef {object} Reply
 * @property {string} content Markdown
 * @property {'answer' | 'tool_request' | 'tool_result' | 'help'} type
 * @property {{id: string, name: string, parameters: Record<string, string>}[]} [toolCalls] to run
 *   only once the user approves
 */

// "please", "hey", "can you" in front of a request.
const POLITE = String.raw`^(?:(?:please|hey|ok|okay|so|now)[,\s]+)*(?:(?:can|could|would|will) you\s+)?(?:please\s+)?`;
const SEARCH_INTENT = new RegExp(
  `${POLITE}(?:search(?: the web| online| google| the internet)?(?: for| about| on)?|look up|lookup|look into|google|research|find (?:out )?(?:more )?(?:info(?:rmation)? )?(?:about|on))\\s+(.+)`,
  'is',
);
// "look them up", "check Acme out".
const SEARCH_AROUND = new RegExp(`${POLITE}(?:look|check)\\s+(.+?)\\s+(?:up|out)(?:\\s+(?:online|on the web|for me))?[?.!\\s]*$`, 'is');
const EMAIL_INTENT = new RegExp(
  `${POLITE}(?:(?:draft|write|compose|send|prepare)\\s+(?:an?\\s+|the\\s+|a quick\\s+)?(?:follow[- ]?up\\s+)?(?:e-?mail|mail|message|note)(?:\\s+(?:to|for)\\b)?|e-?mail)\\b(.*)`,
  'is',
);
const NOTION_INTENT = new RegExp(`${POLITE}(?:(?:save|put|add|write|export|send|log|store|create|make|copy)\\b.*\\bnotion\\b|notion\\b)(.*)`, 'is');

const ASKS_ACTIONS = /\b(?:action items?|next steps?|to-?dos?|follow[- ]?ups?|what (?:do|should) (?:i|we) (?:do|send)|commit(?:ted|ments?)?|promised?|owe|tasks?|deadlines?)\b/i;
const ASKS_TOPICS = /\b(?:topics?|subjects?|themes?|what (?:did|have|do) we (?:talk|discuss|cover)|what was discussed|talked about)\b/i;
const ASKS_SENTIMENT = /\b(?:sentiment|mood|tone|vibe|how (?:is|was|did|does) (?:the call|it|this call) (?:go|going|feel)|how do they feel|are they (?:happy|interested|excited|upset))\b/i;
const ASKS_SUMMARY = /\b(?:summar(?:y|ize|ise)|recap|overview|tl;?dr|catch me up|what happened|what's been said|key points|highlights|gist)\b/i;
const ASKS_PERSON = /\b(?:say|said|says|mention(?:ed)?|ask(?:ed)?|want(?:ed|s)?|think|thinks|thought|need(?:s|ed)?|raise(?:d)?|concerns?|worried|object(?:ed|ions?)?|bring up|brought up)\b/i;

// Words that point back at the call rather than name a subject: "look them up".
const VAGUE_QUERY = /^(?:them|it|this|that|him|her|this company|that company|the company|their company|the prospect|the customer|the client|this one|those)$/i;

/**
 * The assistant's answer to a chat message.
 * @param {string} message
 * @param {CallContext} context
 * @returns {Reply}
 */
export function reply(message, context) {
  const text = normalizeApostrophes(message.trim());
  if (text.startsWith(TOOL_RESULTS_PREFIX)) return fromToolResults(text.slice(TOOL_RESULTS_PREFIX.length));

  let match = SEARCH_INTENT.exec(text) ?? SEARCH_AROUND.exec(text);
  if (match) return searchRequest(match[1], context);
  match = EMAIL_INTENT.exec(text);
  if (match) return emailRequest(match[1], context);
  match = NOTION_INTENT.exec(text);
  if (match) return notionRequest(text, context);

  const speakerAnswer = ASKS_PERSON.test(text) ? aboutSpeaker(text, context) : undefined;
  if (speakerAnswer) return speakerAnswer;
  if (ASKS_ACTIONS.test(text)) return answer(context, actionsAnswer);
  if (ASKS_TOPICS.test(text)) return answer(context, topicsAnswer);
  if (ASKS_SENTIMENT.test(text)) return answer(context, sentimentAnswer);
  if (ASKS_SUMMARY.test(text)) return answer(context, summaryAnswer);
  return fromTranscript(text, context);
}

const NOTHING_YET = 'Nothing has been transcribed in this call yet, so I have nothing to go on. Ask me again once the conversation is under way.';

function answer(context, build) {
  if (context.segments.length === 0) return { content: NOTHING_YET, type: 'answer' };
  return { content: build(context.summary()), type: 'answer' };
}

function summaryAnswer(summary) {
  const lines = [`**Summary so far** (${summary.duration})`, '', summary.overview];
  if (summary.keyPoints.length > 0) lines.push('', '**Key points**', ...summary.keyPoints.map((p) => `- ${p}`));
  if (summary.actionItems.length > 0) lines.push('', '**Action items**', ...summary.actionItems.map(actionLine));
  return lines.join('\n');
}

function actionLine(item) {
  const details = [item.assignee, item.deadline, `${item.priority} priority`].filter(Boolean).join(', ');
  return `- ${item.description} (${details})`;
}

function actionsAnswer(summary) {
  if (summary.actionItems.length === 0) {
    return 'No one has committed to anything yet: no action items so far. I will pick them up as they are said ("I\'ll send…", "can you…", "let\'s…").';
  }
  return ['**Action items so far**', '', ...summary.actionItems.map(actionLine)].join('\n');
}

function topicsAnswer(summary) {
  if (summary.topics.length === 0) return 'No topic has come up often enough to stand out yet.';
  const times = (n) => (n === 1 ? 'once' : `${n} times`);
  return ['**Topics so far**', '', ...summary.topics.map((t) => `- ${t.topic} (mentioned ${times(t.mentions)})`)].join('\n');
}

function sentimentAnswer(summary) {
  const { overall, score } = summary.sentiment;
  const reading = { positive: 'positive', neutral: 'neutral, neither warm nor cold', negative: 'negative' }[overall];
  return `The call reads **${reading}** (sentiment score ${score.toFixed(2)} on a scale from −1 to 1).`;
}

/** "What did Marcus say?": what that speaker said that weighed most, in their words. */
function aboutSpeaker(text, context) {
  const speakers = [...new Set(context.segments.map((s) => s.speaker).filter(Boolean))];
  const lower = text.toLowerCase();
  const named = speakers.find((name) =>
    name.toLowerCase().split(/\s+/).some((part) => part.length > 1 && new RegExp(`\\b${escapeRegExp(part)}\\b`).test(lower)),
  );
  if (!named) {
    const asked = /\b(?:did|does|has|what|how)\s+([A-Z][a-z]+)\b/.exec(text)?.[1];
    if (!asked || STOP_WORDS.has(asked.toLowerCase())) return undefined;
    return {
      content:
        speakers.length > 0
          ? `No one called ${asked} has spoken in this call. The speakers so far: ${listing(speakers)}.`
          : `The transcript does not say who is speaking, so I cannot tell what ${asked} said.`,
      type: 'answer',
    };
  }
  const theirs = context.segments.filter((s) => s.speaker === named);
  const best = bestSentences(analyze(theirs), 3, { minWords: 4 });
  const lines = [`**What ${named} said**`, '', ...best.map((s) => `> ${cleanSentence(s.text)}`)];
  const last = theirs.at(-1);
  if (last && !best.some((s) => last.text.includes(s.text))) lines.push('', `Most recently: “${last.text.trim()}”`);
  return { content: lines.join('\n'), type: 'answer' };
}

const escapeRegExp = (text) => text.replace(/[.*+?^${}()|[\]\\]/g, '\\$&');

/** Anything else: the sentences of the call that share the most words with the question. */
function fromTranscript(text, context) {
  const wanted = new Set(tokenize(text).map((t) => t.word).filter(isContentWord).map(stem));
  const scored = [];
  context.segments.forEach((segment, index) => {
    for (const sentence of splitSentences(segment.text)) {
      const words = new Set(tokenize(sentence).map((t) => t.word).filter(isContentWord).map(stem));
      let shared = 0;
      for (const word of wanted) if (words.has(word)) shared += 1;
      if (shared > 0) scored.push({ sentence, speaker: segment.speaker, shared, index });
    }
  });
  scored.sort((a, b) => b.shared - a.shared || a.index - b.index);
  const best = scored.slice(0, 3).sort((a, b) => a.index - b.index);
  if (best.length === 0) {
    return {
      content: [
        context.segments.length === 0 ? NOTHING_YET : 'I could not find anything about that in the call so far.',
        '',
        'I can summarize the call, list the action items, topics or sentiment, or tell you what someone said. ' +
          'I can also search the web ("search …"), draft an email ("email … about …") or save notes to Notion ("save to Notion").',
      ].join('\n'),
      type: 'help',
    };
  }
  const quotes = best.map((b) => `> ${b.sentence.trim()}${b.speaker ? ` — ${b.speaker}` : ''}`);
  return { content: ['**From the call**', '', ...quotes].join('\n'), type: 'answer' };
}

/**
 * The arguments of a call that carries one text of the user's: in the tool's first required
 * string parameter when the client defined the tool with a schema that has one, else as built.
 * @param {import('./localTools.js').ToolDefinition[] | undefined} definitions
 * @param {string} name the tool
 * @param {string} text
 * @param {Record<string, string>} built the arguments for a tool the schema says nothing of
 */
export function textArguments(definitions, name, text, built) {
  const parameter = requiredParameters(definitions ?? [], name)?.find((p) => p.type === 'string');
  return parameter ? { [parameter.name]: text } : built;
}

// `text`, when given, is the user's own text that the call is about (what to search for).
function toolRequest(context, kind, parameters, content, { text } = {}) {
  const name = toolFor(kind, context.enabledTools) ?? TOOL_KINDS[kind].generic;
  const args = text === undefined ? parameters : textArguments(context.toolDefinitions, name, text, parameters);
  return { content, type: 'tool_request', toolCalls: [{ id: context.newId(), name, parameters: args }] };
}

function searchRequest(rest, context) {
  let query = rest.replace(/[?.!\s]+$/, '').replace(/\s+please$/i, '').trim();
  if (VAGUE_QUERY.test(query)) query = entitiesOf(context.segments)[0]?.name ?? query;
  return toolRequest(context, 'search', { query }, `I can search the web for **${query}**. Approve the search and I will summarize what it finds.`, { text: query });
}

function emailRequest(rest, context) {
  let remainder = rest.trim().replace(/[?.!\s]+$/, '');
  let to;
  const address = /[\w.+-]+@[\w-]+(?:\.[\w-]+)+/.exec(remainder);
  if (address) {
    to = address[0];
    remainder = remainder.replace(/\b(?:to\s+)?[\w.+-]+@[\w-]+(?:\.[\w-]+)+/, '').trim();
  } else {
    const person = /^(?:to\s+)?([A-Z][a-z]+(?: [A-Z][a-z]+)?)\b/.exec(remainder);
    const speakers = [...new Set(context.segments.map((s) => s.speaker).filter(Boolean))];
    const resolved = person && resolvePerson(person[1], speakers);
    if (resolved) {
      to = resolved;
      remainder = remainder.slice(person[0].length).trim();
    }
  }
  const subjectMatch = /\b(?:about|regarding|re|on|with)\s+(.+)$/i.exec(remainder) ?? /^(?:the\s+)?(.+)$/i.exec(remainder.replace(/^(?:to|for)\s+/i, ''));
  const summary = context.segments.length > 0 ? context.summary() : undefined;
  const subject = subjectMatch?.[1]?.trim()
    ? capitalize(subjectMatch[1].trim())
    : summary?.topics.length
      ? `Follow-up: ${listing(summary.topics.slice(0, 2).map((t) => t.topic))}`
      : 'Follow-up on our call';
  const body = emailBody(to, summary);
  const parameters = { ...(to && { to }), subject, body };
  const lines = [
    `Here is a draft email${to ? ` to **${to}**` : ''}. Approve it to send, or edit it first.`,
    '',
    `**Subject:** ${subject}`,
    '',
    body,
  ];
  return toolRequest(context, 'email', parameters, lines.join('\n'));
}

function emailBody(to, summary) {
  const greeting = to && !to.includes('@') ? `Hi ${to.split(' ')[0]},` : 'Hi,';
  const lines = [greeting, '', 'Thank you for your time today.'];
  if (summary?.keyPoints.length) lines.push('', 'To recap what we discussed:', ...summary.keyPoints.slice(0, 3).map((p) => `- ${p}`));
  if (summary?.actionItems.length) {
    lines.push('', 'Next steps:', ...summary.actionItems.slice(0, 4).map((a) => `- ${a.description}${a.deadline ? ` (${a.deadline})` : ''}`));
  }
  lines.push('', 'Best regards');
  return lines.join('\n');
}

function notionRequest(text, context) {
  const summary = context.segments.length > 0 ? context.summary() : undefined;
  const titled = /\b(?:titled|called|named|as)\s+["“]?([^"”]+?)["”]?\s*$/i.exec(text)?.[1];
  const title = titled ? capitalize(titled) : notesTitle(summary);
  const content = notesContent(summary);
  return toolRequest(
    context,
    'notion',
    { title, content },
    `I can save the call notes to Notion as **${title}**. Approve it to create the page.`,
  );
}

const notesTitle = (summary) =>
  summary?.topics.length ? `Call notes: ${listing(summary.topics.slice(0, 2).map((t) => t.topic))}` : 'Call notes';

function notesContent(summary) {
  if (!summary) return 'Nothing has been transcribed yet.';
  const lines = ['## Overview', '', summary.overview];
  if (summary.keyPoints.length) lines.push('', '## Key points', '', ...summary.keyPoints.map((p) => `- ${p}`));
  if (summary.actionItems.length) lines.push('', '## Action items', '', ...summary.actionItems.map(actionLine));
  if (summary.topics.length) lines.push('', '## Topics', '', ...summary.topics.map((t) => `- ${t.topic}`));
  return lines.join('\n');
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

/** The answer to tools' output: the sentences of it that weigh most, and where they came from. */
function fromToolResults(rest) {
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
  for (const error of found.errors.slice(0, 3)) lines.push(`The tool reported an error: ${error.trim()}`);
  if (best.length > 0) {
    lines.push(`${lines.length ? '\n' : ''}**What the ${found.tools.length ? listing(found.tools.map((t) => `\`${t}\``)) : 'tool'} results say**`, '');
    lines.push(...best.map((s) => `- ${cleanSentence(s.text)}`));
  } else if (found.errors.length === 0) {
    lines.push('The tools ran but returned nothing I can summarize.');
  }
  if (urls.length > 0) lines.push('', `**Sources:** ${urls.map((u, i) => `[${i + 1}](${u})`).join(' ')}`);
  else if (found.tools.length > 0 && best.length > 0) lines.push('', `**Source:** ${listing(found.tools.map((t) => `\`${t}\``))}`);
  return { content: lines.join('\n'), type: 'tool_result' };
}

// Capitalized words that are not names to look up: sentence openers, titles, acronyms everyone
// uses, and the office tools a seller works in.
const NOT_ENTITIES = new Set(
  `i i'm i'll i'd i've ok okay yes no hi hey thanks thank sure great so and but well also mr mrs ms dr crm roi api
  ceo cfo cro cto coo vp svp evp hr it q1 q2 q3 q4 us usa uk eu am pm notion gmail outlook slack zoom teams
  google excel powerpoint sheets docs calendar linkedin`.split(/\s+/).filter(Boolean),
);
// Words before a name that say it is a company or a product.
const ENTITY_CUES = new Set(['at', 'from', 'with', 'use', 'uses', 'using', 'used', 'called', 'competitor', 'competitors', 'vs', 'versus', 'switch', 'switched', 'switching', 'moved', 'moving', 'via', 'like', 'evaluating', 'partner']);

/**
 * Names of companies and products in what was said: runs of capitalized words not at the start
 * of a sentence (or at the start when two words long, "Northwind Logistics"), without the
 * speakers' own names. Most mentioned first.
 * @param {{text: string, speaker?: string}[]} segments
 * @returns {{name: string, mentions: number, cued: boolean, sentence: string}[]}
 */
export function entitiesOf(segments) {
  const speakerWords = new Set(segments.flatMap((s) => (s.speaker ? s.speaker.toLowerCase().split(/\s+/) : [])));
  const found = new Map();
  let order = 0;
  for (const segment of segments) {
    for (const sentence of splitSentences(segment.text)) {
      const tokens = tokenize(sentence);
      for (let i = 0; i < tokens.length; ) {
        const isName = (t) =>
          t?.capitalized && !NOT_ENTITIES.has(t.word) && !STOP_WORDS.has(t.word) && !TIME_WORDS.has(t.word) && !speakerWords.has(t.word);
        if (!isName(tokens[i])) {
          i += 1;
          continue;
        }
        let j = i;
        while (j < tokens.length && isName(tokens[j]) && j - i < 3) j += 1;
        const run = tokens.slice(i, j);
        const startsSentence = i === 0;
        if (!startsSentence || run.length >= 2) {
          const name = run.map((t) => t.surface).join(' ');
          const entry = found.get(name) ?? { name, mentions: 0, cued: false, sentence, order: order++ };
          entry.mentions += 1;
          entry.cued ||= i > 0 && ENTITY_CUES.has(tokens[i - 1].word);
          found.set(name, entry);
        }
        i = j;
      }
    }
  }
  return [...found.values()]
    .sort((a, b) => b.mentions - a.mentions || a.order - b.order)
    .map(({ name, mentions, cued, sentence }) => ({ name, mentions, cued, sentence }));
}

/**
 * @typedef {{name: string, reason: string, confidence: number, parameters: Record<string, string>}} Suggestion
 */

const PRICE_WORDS = /\b(?:price|pricing|cost|costs|budget|quote|discount|expensive|cheaper)\b/i;
const COMPARE_WORDS = /\b(?:competitor|competitors|compare|comparison|versus|vs|alternative|alternatives|switch|switched|switching|instead of)\b/i;
const EMAIL_WORDS = /\b(?:send|email|e-mail|forward|share)\b/i;
const NOTES_WORDS = /\b(?:notes?|notion|write (?:this|that|it) down|document (?:this|that|it)|jot (?:this|that|it) down|take note|minutes)\b/i;
const MAX_SUGGESTIONS = 3;

const quote = (sentence) => {
  const text = sentence.trim();
  return `“${text.length > 120 ? `${text.slice(0, 117).replace(/\s+\S*$/, '')}…` : text}”`;
};
const round2 = (value) => Math.round(value * 100) / 100;

/**
 * Agent mode: tools worth running for what was said since the last look. Only tools the session
 * has enabled are suggested (generic names when it has none enabled).
 * @param {{text: string, speaker?: string}[]} fresh what was said since the last suggestions
 * @param {{text: string, speaker?: string}[]} all the whole transcript, for how often things came up
 * @param {Pick<CallContext, 'enabledTools' | 'toolDefinitions' | 'summary'>} context
 * @returns {Suggestion[]}
 */
export function suggest(fresh, all, context) {
  const suggestions = [];
  const speakers = [...new Set(all.map((s) => s.speaker).filter(Boolean))];

  const search = toolFor('search', context.enabledTools);
  if (search) {
    const everywhere = new Map(entitiesOf(all).map((e) => [e.name, e]));
    for (const entity of entitiesOf(fresh).slice(0, 2)) {
      const overall = everywhere.get(entity.name) ?? entity;
      const angle = PRICE_WORDS.test(entity.sentence) ? 'pricing' : COMPARE_WORDS.test(entity.sentence) ? 'reviews and alternatives' : 'company overview';
      const query = `${entity.name} ${angle}`;
      suggestions.push({
        name: search,
        reason: `${entity.name} came up in the conversation: ${quote(entity.sentence)}`,
        confidence: round2(Math.min(0.9, 0.55 + 0.1 * Math.min(3, overall.mentions - 1) + (entity.cued ? 0.15 : 0))),
        parameters: textArguments(context.toolDefinitions, search, query, { query }),
      });
    }
  }

  const email = toolFor('email', context.enabledTools);
  if (email) {
    for (const segment of fresh) {
      const sentence = splitSentences(segment.text).find((s) => EMAIL_WORDS.test(s) && actionItemOf(s, segment.speaker, speakers));
      if (!sentence) continue;
      const item = actionItemOf(sentence, segment.speaker, speakers);
      const said = /\b(?:send|email|e-mail|forward|share)\s+(?:(?:you|him|her|them|me|us|over|along|across)\s+|[A-Z][a-z]+\s+)?(.+)/i.exec(item.description)?.[1];
      // "the pricing sheet", without the "today" it was promised for.
      const what = said && (item.deadline ? said.replace(new RegExp(`\\s*${escapeRegExp(item.deadline)}\\b`, 'i'), '') : said).trim();
      const recipient = speakers.find((name) => name !== segment.speaker && new RegExp(`\\b${escapeRegExp(name.split(' ')[0])}\\b`, 'i').test(segment.text)) ??
        (speakers.length === 2 ? speakers.find((name) => name !== segment.speaker) : undefined);
      const subject = what ? capitalize(what) : 'Follow-up from our call';
      suggestions.push({
        name: email,
        reason: `A follow-up email was promised: ${quote(sentence)}`,
        confidence: item.assignee ? 0.75 : 0.6,
        parameters: {
          ...(recipient && { to: recipient }),
          subject,
          body: [`Hi ${recipient ? recipient.split(' ')[0] : 'there'},`, '', `As promised, here is ${what ? lowerFirst(what) : 'the follow-up from our call'}.`, '', 'Best regards'].join('\n'),
        },
      });
      break;
    }
  }

  const notion = toolFor('notion', context.enabledTools);
  if (notion) {
    const segment = fresh.find((s) => NOTES_WORDS.test(s.text));
    if (segment) {
      const summary = context.summary();
      suggestions.push({
        name: notion,
        reason: `Notes were mentioned: ${quote(splitSentences(segment.text).find((s) => NOTES_WORDS.test(s)) ?? segment.text)}`,
        confidence: /notion/i.test(segment.text) ? 0.8 : 0.55,
        parameters: { title: notesTitle(summary), content: notesContent(summary) },
      });
    }
  }
  return suggestions.slice(0, MAX_SUGGESTIONS);
}

const lowerFirst = (text) => (/^[A-Z][a-z]/.test(text) ? text.charAt(0).toLowerCase() + text.slice(1) : text);

/** What identifies a suggestion, so that one is not made twice to the same session. */
export function suggestionKey({ name, parameters }) {
  // A search's one argument, whatever the tool's schema calls it.
  const [only, ...more] = Object.values(parameters);
  return `${name}\n${parameters.query ?? parameters.subject ?? (more.length === 0 && typeof only === 'string' ? only : '')}`;
}
