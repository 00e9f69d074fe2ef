/**
 * The assistant of a live call, by rules: chat answers grounded in the call's transcript and
 * summary, tool calls for the client to run once the user approves them, and the suggestions of
 * agent mode. Nothing here is stored or sent; the event socket does that.
 */
import { MISSING_TOOL, argumentsFor, missingArguments, remoteArguments, remoteToolNamed, requestFor, toolFor } from './assistantTools.js';
import { TOOL_RESULTS_PREFIX, fromToolResults } from './toolResults.js';
import { analyze, bestSentences, capitalize, cleanSentence, isContentWord, listing, resolvePerson, splitSentences, tokenize } from './summarizer/index.js';
import { actionItemOf } from './summarizer/actions.js';
import { STOP_WORDS, TIME_WORDS, normalizeApostrophes, stem } from './summarizer/text.js';

export { TOOL_RESULTS_PREFIX } from './toolResults.js';
export { toolFor } from './assistantTools.js';

/**
 * @typedef {object} CallContext what the assistant knows of the call
 * @property {{text: string, speaker?: string}[]} segments the stored transcript
 * @property {() => import('./summarizer/index.js').CallSummary} summary
 * @property {string[]} enabledTools
 * @property {import('./localTools.js').ToolDefinition[]} [toolDefinitions] the enabled tools'
 *   definitions, as far as the client sent them
 * @property {() => string} newId a fresh id for a tool call
 * @property {import('./toolResults.js').AskedCall[]} [askedCalls] the tool calls of the
 *   assistant's latest request, which a results message answers
 */

/**
 * @typedef {object} Reply
 * @property {string} content Markdown
 * @property {'answer' | 'tool_request' | 'tool_result' | 'help'} type
 * @property {{id: string, name: string, parameters: Record<string, unknown>}[]} [toolCalls] to
 *   run only once the user approves; only tools the session declared and enabled
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
const TEMPLATE_INTENT = /\be-?mail templates?\b|\btemplates? (?:for|of) (?:an? |the )?(?:[\w-]+ )?e-?mails?\b/i;
const NOTION_INTENT = new RegExp(`${POLITE}(?:(?:save|put|add|write|export|send|log|store|create|make|copy)\\b.*\\bnotion\\b|notion\\b)(.*)`, 'is');

// "What follow-up actions should I take?": what the user can do next, tools included.
const ASKS_FOLLOW_UP = /\bfollow[- ]?up\b.*\b(?:actions?|should (?:i|we)|do (?:i|we) (?:need|have) to)\b|\bwhat should (?:i|we) (?:do|send) (?:next|now|after)\b/i;
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
  if (text.startsWith(TOOL_RESULTS_PREFIX)) return fromToolResults(text.slice(TOOL_RESULTS_PREFIX.length), context.askedCalls);

  const remote = remoteToolNamed(text, context.enabledTools, context.toolDefinitions);
  if (remote && (remote.explicit || !leftToOwnAnswer(text, remote.mention))) return remoteRequest(text, remote, context);
  let match = SEARCH_INTENT.exec(text) ?? SEARCH_AROUND.exec(text);
  if (match) return searchRequest(match[1], context);
  if (TEMPLATE_INTENT.test(text)) return templateRequest(text, context);
  match = EMAIL_INTENT.exec(text);
  if (match) return emailRequest(match[1], context);
  match = NOTION_INTENT.exec(text);
  if (match) return notionRequest(text, context);

  const speakerAnswer = ASKS_PERSON.test(text) ? aboutSpeaker(text, context) : undefined;
  if (speakerAnswer) return speakerAnswer;
  if (ASKS_FOLLOW_UP.test(text)) return answer(context, (summary) => followUpAnswer(summary, context));
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

/**
 * "What follow-up actions should I take?": what was agreed, most pressing first, the worries
 * that a follow-up should answer, and what the session's tools can do about it from here, said
 * in words; the user asks for the tool call itself.
 */
function followUpAnswer(summary, context) {
  const lines = ['**Follow-up actions**', ''];
  const rank = { high: 0, medium: 1, low: 2 };
  const items = summary.actionItems.map((item, i) => ({ item, i })).sort((a, b) => rank[a.item.priority] - rank[b.item.priority] || a.i - b.i);
  if (items.length > 0) lines.push('Agreed in the call, most pressing first:', ...items.map(({ item }) => actionLine(item)));
  else lines.push('No one has committed to anything yet, so nothing agreed is waiting on you.');
  const worries = context.segments.flatMap((segment) =>
    splitSentences(segment.text)
      .filter((sentence) => CONCERN_WORDS.test(sentence))
      .map((sentence) => `- “${sentence.trim()}”${segment.speaker ? ` — ${segment.speaker}` : ''}`),
  );
  if (worries.length > 0) lines.push('', 'Concerns to answer in your follow-up:', ...worries.slice(0, MAX_CONCERNS));

  const email = toolFor('email', context.enabledTools);
  const notion = toolFor('notion', context.enabledTools);
  const offers = [];
  if (email) offers.push('- **Send a recap e-mail** with the key points and next steps: ask me to "email name@company.com a recap" and approve the draft.');
  if (notion) offers.push('- **Save the call notes to Notion**: ask me to "save the notes to Notion".');
  if (offers.length > 0) lines.push('', 'I can help from here:', ...offers);
  const missing = [!email && 'Resend (for a recap e-mail)', !notion && 'Notion (for the call notes)'].filter(Boolean);
  if (missing.length > 0) lines.push('', `Turn on ${listing(missing)} under Integrations and I can do ${offers.length > 0 ? 'that too' : 'that for you'}.`);
  return lines.join('\n');
}

const CONCERN_WORDS = /\b(?:concerns?|concerned|worried|worry|urgent|blockers?|risks?|nightmare|problem)\b/i;
const MAX_CONCERNS = 3;

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
 * The arguments of a call that carries one text of the user's: under the tool's own name for
 * it when its schema has a fitting one, else in its first required string parameter, else as
 * built.
 * @param {import('./localTools.js').ToolDefinition[] | undefined} definitions
 * @param {string} name the tool
 * @param {string} text
 * @param {Record<string, string>} built the arguments for a tool the schema says nothing of
 */
export function textArguments(definitions, name, text, built) {
  return argumentsFor(definitions, name, { query: text, ...built }, { main: 'query' });
}

function toolRequest(context, name, parameters, content) {
  return { content, type: 'tool_request', toolCalls: [{ id: context.newId(), name, parameters }] };
}

/** An answer that names a tool the session does not have, with no call for it. */
const notEnabled = (kind, before = []) => ({ content: [...before, ...(before.length ? [''] : []), MISSING_TOOL[kind]].join('\n'), type: 'help' });

function searchRequest(rest, context) {
  let query = rest.replace(/[?.!\s]+$/, '').replace(/\s+please$/i, '').trim();
  if (VAGUE_QUERY.test(query)) query = entitiesOf(context.segments)[0]?.name ?? query;
  const name = toolFor('search', context.enabledTools);
  if (!name) return notEnabled('search');
  return toolRequest(
    context,
    name,
    textArguments(context.toolDefinitions, name, query, { query }),
    `I can search the web for **${query}**. Approve the search and I will go through what it finds.`,
  );
}

const EMAIL_ADDRESS = /[\w.+-]+@[\w-]+(?:\.[\w-]+)+/;

function emailRequest(rest, context) {
  let remainder = rest.trim().replace(/[?.!\s]+$/, '');
  let to;
  const address = EMAIL_ADDRESS.exec(remainder);
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
  const draft = (intro) => [intro, '', `**Subject:** ${subject}`, '', body];

  const name = toolFor('email', context.enabledTools);
  if (!name) return notEnabled('email', draft(`Here is a draft email${to ? ` to **${to}**` : ''} you can copy.`));
  // A mail tool sends to an address; a name from the call is not one.
  if (!to || !EMAIL_ADDRESS.test(to)) {
    const who = to ? `${to}'s e-mail address` : 'who it should go to';
    return {
      content: [
        ...draft(`Here is a draft email${to ? ` for **${to}**` : ''}.`),
        '',
        `I do not know ${who}. Tell me the address (for example "email ${to ? to.split(' ')[0].toLowerCase() : 'name'}@example.com about ${lowerFirst(subject)}") and I will ask to send it.`,
      ].join('\n'),
      type: 'answer',
    };
  }
  return toolRequest(
    context,
    name,
    argumentsFor(context.toolDefinitions, name, { to, subject, body }),
    draft(`Here is a draft email to **${to}**. Approve it to send it.`).join('\n'),
  );
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

// The kinds of template the client's templates tool has, by the words that ask for them.
const TEMPLATE_TYPES = [
  ['thank_you', /thank/i],
  ['meeting', /meeting|schedul|book/i],
  ['proposal', /proposal|quote|pricing|offer/i],
  ['introduction', /intro|cold|outreach/i],
  ['follow_up', /./],
];

function templateRequest(text, context) {
  const name = context.enabledTools.includes('resend_email_templates') ? 'resend_email_templates' : undefined;
  if (!name) return { content: 'E-mail templates are not enabled. Turn on Resend under Integrations and I can fetch them for you.', type: 'help' };
  const [type] = TEMPLATE_TYPES.find(([, words]) => words.test(text));
  return toolRequest(
    context,
    name,
    argumentsFor(context.toolDefinitions, name, { template_type: type }),
    `I can fetch the **${type.replace('_', '-')}** e-mail template. Approve it and I will show it to you.`,
  );
}

function notionRequest(text, context) {
  const summary = context.segments.length > 0 ? context.summary() : undefined;
  const titled = /\b(?:titled|called|named|as)\s+["“]?([^"”]+?)["”]?\s*$/i.exec(text)?.[1];
  const title = titled ? capitalize(titled) : notesTitle(summary);
  const name = toolFor('notion', context.enabledTools);
  if (!name) return notEnabled('notion');
  return toolRequest(
    context,
    name,
    argumentsFor(context.toolDefinitions, name, { title, content: notesContent(summary) }),
    `I can save the call notes to Notion as **${title}**. Approve it to create the page.`,
  );
}

const notesTitle = (summary) =>
  summary?.topics.length ? `Call notes: ${listing(summary.topics.slice(0, 2).map((t) => t.topic))}` : 'Call notes';

function notesContent(summary) {
  if (!summary) return 'Nothing has been transcribed yet.';
  const lines = ['## Overview', '', summary.overview];
  if (summary.keyPoints.length) lines.push('', '## Key points', '', ...summary.keyPoints.map((p) => `- ${p}`));
  // Action items as to-dos, to be ticked off in Notion.
  if (summary.actionItems.length) lines.push('', '## Action items', '', ...summary.actionItems.map((item) => actionLine(item).replace(/^- /, '- [ ] ')));
  if (summary.topics.length) lines.push('', '## Topics', '', ...summary.topics.map((t) => `- ${t.topic}`));
  return lines.join('\n');
}

// The call in progress, as opposed to the past calls a remote tool may know of.
const THIS_CALL = /\b(?:this|the current) call\b|\b(?:so far|just now|right now)\b/i;

/**
 * Whether a message that names a remote tool only by its words ("action items", "search
 * calls") is still one of the assistant's own requests once those words are left out: a web
 * search, an e-mail, a Notion page, a template ("email the action items to …"), or a question
 * about the call in progress ("the action items so far").
 */
function leftToOwnAnswer(text, mention) {
  const rest = requestFor(text, mention);
  const ownTool = [SEARCH_INTENT, SEARCH_AROUND, TEMPLATE_INTENT, EMAIL_INTENT, NOTION_INTENT].some((intent) => intent.test(rest));
  return ownTool || THIS_CALL.test(text) || asksAboutThisCall(text);
}

// A question that names no call at all ("what are the action items?") is asked of the call in
// progress; a remote tool answers it only when the question points at other calls.
const QUESTION = /^\s*(?:what(?:'s| is| are)?|which|who|how|any|are there|is there|did|do|does|have)\b/i;
const NAMES_A_CALL = /\b(?:calls?|meetings?|conversations?)\b/i;
function asksAboutThisCall(text) {
  return QUESTION.test(text) && !NAMES_A_CALL.test(text);
}

/** A tool of a remote server that the user named: asked to do what the rest of the message says. */
function remoteRequest(text, { name, mention, definition }, context) {
  const parameters = remoteArguments(definition, requestFor(text, mention));
  const shown = definition?.displayName ? `**${definition.displayName}** (\`${name}\`)` : `\`${name}\``;
  const missing = missingArguments(definition, parameters);
  if (missing.length > 0) {
    const example = `${definition?.displayName ?? name} ${missing.map((p) => `<${p}>`).join(' ')}`;
    return { content: `${shown} needs ${listing(missing.map((p) => `\`${p}\``))}, which your message does not give. Ask again with it, for example “use ${example}”.`, type: 'help' };
  }
  const given = Object.entries(parameters).filter(([, v]) => typeof v === 'string' || typeof v === 'number');
  const content = given.length > 0 ? `I can run ${shown} with ${listing(given.map(([k, v]) => `${k} “${v}”`))}.` : `I can run ${shown}.`;
  return toolRequest(context, name, parameters, `${content} Approve it and I will go through what it returns.`);
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
 * @typedef {{name: string, reason: string, confidence: number, parameters: Record<string, unknown>}} Suggestion
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
 * declared and enabled are suggested, with the argument names of their schemas.
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
        parameters: argumentsFor(context.toolDefinitions, email, {
          ...(recipient && { to: recipient }),
          subject,
          body: [`Hi ${recipient ? recipient.split(' ')[0] : 'there'},`, '', `As promised, here is ${what ? lowerFirst(what) : 'the follow-up from our call'}.`, '', 'Best regards'].join('\n'),
        }),
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
        parameters: argumentsFor(context.toolDefinitions, notion, { title: notesTitle(summary), content: notesContent(summary) }),
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
