/**
 * Action items: the commitments and requests in a call ("I'll send…", "Tom will run…", "can you
 * loop in…", "we need to…"), with who took them on, by when, and how urgent they are.
 */
import { STOP_WORDS, capitalize, isContentWord, normalizeApostrophes, tokenize } from './text.js';

const WEEKDAY = '(?:monday|tuesday|wednesday|thursday|friday|saturday|sunday)';
const MONTH = '(?:january|february|march|april|may|june|july|august|september|october|november|december)';
const DAY_OF_MONTH = '\\d{1,2}(?:st|nd|rd|th)?';
const PERIOD = '(?:day|week|month|quarter|year)';

// Earlier alternatives win at the same position, so "by next Tuesday" beats "next Tuesday".
const DEADLINE = new RegExp(
  [
    `\\bby (?:the )?end of (?:the |this |next )?${PERIOD}`,
    `\\bby (?:next |this )?${WEEKDAY}(?: morning| afternoon| evening)?`,
    `\\bby (?:${MONTH} ${DAY_OF_MONTH}|the ${DAY_OF_MONTH})`,
    `\\bby (?:today|tonight|tomorrow(?: morning| afternoon)?|eod|eow|next week|next month|this week|noon)`,
    `\\b(?:the )?end of (?:the |this |next )?${PERIOD}`,
    `\\b(?:next|this) (?:${WEEKDAY}|week|month|quarter)`,
    `\\b(?:on|before) ${WEEKDAY}`,
    `\\bwithin (?:a|an|one|two|three|four|\\d+) (?:hours?|days?|weeks?)`,
    `\\bin (?:a|one|two|three|a couple of|\\d+) (?:days?|weeks?)`,
    `\\b(?:today|tonight|tomorrow(?: morning| afternoon)?|eod)\\b`,
    `\\b${WEEKDAY}\\b`,
  ].join('|'),
  'i',
);

// A deadline this close makes the item urgent.
const IMMINENT = /\b(?:today|tonight|tomorrow|eod|end of (?:the )?day|noon)\b/i;
const URGENT = /\b(?:urgent(?:ly)?|asap|a\.s\.a\.p|as soon as possible|immediately|right away|critical|top priority|high priority)\b/i;
const OBLIGATION = /\b(?:need(?:s)? to|must|have to|has to|required|make sure)\b/i;

// Verbs that make "I can …", "can you …" and "please …" a deliverable rather than a question or
// a figure of speech ("can you hear me", "I can see that").
const DELIVERABLE = `(?:send|share|forward|email|e-mail|mail|loop|introduce|set up|setup|schedule|book|confirm|check|review|sign|get|provide|prepare|draft|update|run|ask|connect|look into|follow up|circle back|copy|put together|write|draw up|arrange|organize|organise|create|pull|compile|reach out|call|invite|add|move|finalize|finalise|approve|deliver|submit|fix|test|try|talk to|speak to|sync|walk|demo|order|clarify|find out|dig into|map|plan|line up|block|reserve|kick off|start|go over|build|configure|install|enable)`;

// "I'll be honest", "we'll see": a future tense that promises nothing.
const NOT_A_COMMITMENT = /^(?:be honest|be frank|tell you|say|admit|see|guess|bet|give you that|leave it there|be brief|be quick|try to be|keep it short|just say|never|probably|definitely be|be fine|be there|be happy)/i;
const NOT_A_REQUEST_FROM_ME = /^(?:know|think|see|ask you|tell you|be clear|be honest|explain|say|guess|understand|just say|put it|start by|share my screen|pull up)/i;

// Each pattern captures (assignee kind, the words from the verb on). Order matters: the first
// that matches a sentence wins.
const PATTERNS = [
  { who: 'speaker', re: /\bI(?:'ll| will| am going to|'m going to| shall|'m gonna| am gonna)\s+(?:also\s+|then\s+|just\s+|go ahead and\s+)?(.+)/i, firm: true },
  { who: 'speaker', re: new RegExp(`\\bI (?:can|could)\\s+(?:also\\s+|just\\s+)?(${DELIVERABLE}\\b.*)`, 'i') },
  { who: 'speaker', re: /\bI (?:need to|have to|must|should)\s+(.+)/i },
  { who: 'speaker', re: /\blet me\s+(.+)/i, exclude: NOT_A_REQUEST_FROM_ME, firm: true },
  { who: 'named', re: /\b([A-Z][a-z]+(?: [A-Z][a-z]+)?),? (?:will|is going to|'s going to|'ll|needs to|should|has to)\s+(.+)/, firm: true },
  { who: 'addressee', re: new RegExp(`\\b(?:can|could|would|will) you(?: please)?(?: also)?\\s+(${DELIVERABLE}\\b.*)`, 'i') },
  { who: 'addressee', re: new RegExp(`\\bplease\\s+(?:also\\s+)?(${DELIVERABLE}\\b.*)`, 'i') },
  { who: 'none', re: /\bwe(?:'ll| will| are going to|'re going to| need to| should| have to| must|'ve got to| agreed to)\s+(.+)/i },
  { who: 'none', re: /\blet's\s+(.+)/i, exclude: /^(?:see|say|be honest|talk about|start|dive|jump|move on|get started|do it|do that|go)\b/i },
  { who: 'none', re: /\b(?:need|needs) to\s+(.+)/i },
  { who: 'none', re: /\b(follow(?:ing)? up\b.*)/i },
  { who: 'addressee', re: new RegExp(`^(${DELIVERABLE}\\b.*)`, 'i') },
];

// Where the commitment stops and its reason or aside starts.
const CLAUSE_END = /\s*(?:,?\s+so (?:that )?|,\s*(?:and|but) (?:I|we|you|they|then)\b|\s+because\b|\s+if\b|;|,\s*which\b|,\s*just\b|\s+—\s+|\s+-\s+)/i;
const LEADING_HELPERS = /^(?:need to|have to|be able to|try to|go ahead and|make sure (?:to|that I|we)?|get around to|please)\s+/i;

// An item needs this many meaningful words: "plan on that" promises nothing one can act on.
const MIN_CONTENT_WORDS = 2;
const MAX_DESCRIPTION_CHARS = 200;

/**
 * The deadline a sentence names, as spoken ("by Friday", "tomorrow", "next week"), with day and
 * month names capitalized.
 * @param {string} sentence
 * @returns {string | undefined}
 */
export function deadlineOf(sentence) {
  const match = DEADLINE.exec(sentence);
  if (!match) return undefined;
  return match[0]
    .toLowerCase()
    .replace(new RegExp(`\\b(${WEEKDAY}|${MONTH})\\b`, 'g'), (name) => capitalize(name))
    .replace(/\beod\b/, 'EOD')
    .replace(/\beow\b/, 'EOW');
}

/**
 * @param {string} sentence
 * @param {string | undefined} deadline
 * @param {boolean} firm a first-person or named commitment rather than a suggestion
 * @returns {'high' | 'medium' | 'low'}
 */
export function priorityOf(sentence, deadline, firm) {
  if (URGENT.test(sentence) || (deadline && IMMINENT.test(deadline))) return 'high';
  if (deadline || firm || OBLIGATION.test(sentence)) return 'medium';
  return 'low';
}

function describe(rest) {
  let text = rest.split(CLAUSE_END)[0];
  for (let previous; previous !== text; ) {
    previous = text;
    text = text.replace(LEADING_HELPERS, '');
  }
  text = text.replace(/[\s.!?,;:…]+$/, '');
  // A name at the end is who was asked ("share the docs, Alex?"), not part of the task.
  text = text.replace(/,\s*(?:please\s+)?[A-Z][a-z]+(?:\s+[A-Z][a-z]+)?(?:,?\s*please)?$/, '').trim();
  if (text.length > MAX_DESCRIPTION_CHARS) text = `${text.slice(0, MAX_DESCRIPTION_CHARS).replace(/\s+\S*$/, '')}…`;
  return capitalize(text);
}

/**
 * Matches a name said in the call ("Tom", "Marcus Lee") to a speaker's full name when one starts
 * with it; otherwise the name as said. Pronouns and other capitalized words are not names.
 * @param {string} name
 * @param {string[]} speakers
 */
export function resolvePerson(name, speakers) {
  const first = name.split(' ')[0].toLowerCase();
  if (STOP_WORDS.has(first) || NOT_NAMES.has(first)) return undefined;
  const lower = name.toLowerCase();
  return (
    speakers.find((s) => s.toLowerCase() === lower) ??
    speakers.find((s) => s.toLowerCase().split(/\s+/)[0] === first) ??
    name
  );
}

// Capitalized at the start of a clause without being anyone: "That will", "Pricing will".
const NOT_NAMES = new Set(
  `that this there it which what who everyone everybody someone somebody nobody anyone legal finance procurement
  security pricing the team it'll next last our your their my his her its one each both either support sales
  marketing engineering management leadership ops it's`
    .split(/\s+/)
    .filter(Boolean),
);

// "Marcus, can you …" or "… can you send it over, Marcus?"
function addresseeOf(sentence, speakers) {
  const match = /^([A-Z][a-z]+),\s/.exec(sentence) ?? /,\s*([A-Z][a-z]+)\s*[?.!]*$/.exec(sentence);
  return match ? resolvePerson(match[1], speakers) : undefined;
}

/**
 * @typedef {{description: string, assignee?: string, priority: 'high' | 'medium' | 'low', deadline?: string}} ActionItem
 */

/**
 * The action item a sentence holds, if any.
 * @param {string} sentence
 * @param {string | undefined} speaker who said it, when known
 * @param {string[]} speakers every named speaker of the call
 * @returns {ActionItem | undefined}
 */
export function actionItemOf(sentence, speaker, speakers) {
  const text = normalizeApostrophes(sentence);
  for (const pattern of PATTERNS) {
    const match = pattern.re.exec(text);
    if (!match) continue;
    const rest = match.at(-1);
    if (pattern.who === 'speaker' && NOT_A_COMMITMENT.test(rest)) continue;
    if (pattern.exclude?.test(rest)) continue;
    let assignee;
    if (pattern.who === 'speaker') assignee = speaker;
    else if (pattern.who === 'addressee') assignee = addresseeOf(text, speakers);
    else if (pattern.who === 'named') {
      assignee = resolvePerson(match[1], speakers);
      if (!assignee) continue;
    }
    const description = describe(rest);
    if (tokenize(description).filter((t) => isContentWord(t.word)).length < MIN_CONTENT_WORDS) continue;
    const deadline = deadlineOf(text);
    return {
      description,
      ...(assignee && { assignee }),
      priority: priorityOf(text, deadline, pattern.firm === true),
      ...(deadline && { deadline }),
    };
  }
  return undefined;
}
