/**
 * Splitting spoken text into sentences and words, the vocabulary the summarizer and the assistant
 * share. Transcripts come from a speech recognizer: punctuation is approximate, fillers abound,
 * and capital letters are the only hint of a name.
 */

// A period after these does not end a sentence ("Dr. Patel", "approx. five").
const ABBREVIATIONS = new Set([
  'mr', 'mrs', 'ms', 'dr', 'prof', 'sr', 'jr', 'st', 'vs', 'etc', 'inc', 'ltd', 'co', 'corp', 'e.g', 'i.e',
  'approx', 'dept', 'est', 'no', 'jan', 'feb', 'mar', 'apr', 'jun', 'jul', 'aug', 'sep', 'sept', 'oct', 'nov',
  'dec', 'u.s', 'a.m', 'p.m', 'mt', 'ft',
]);

/**
 * Words that say nothing about what a call is about: function words, contractions, and the
 * fillers of speech. They count neither for sentence scores nor for topics.
 */
export const STOP_WORDS = new Set(`
a about above after again against all almost along already also although always am among an and another any
anybody anyone anything anyway anyways are aren't around as ask asked asking at away back be because been before
being below between both but by came can can't cannot come comes coming could couldn't did didn't do does doesn't
doing don't done down during each either else enough even ever every everybody everyone everything exactly few for
from further get gets getting give given gives go goes going gone gonna got gotten guess had hadn't has hasn't have
haven't having he he'd he'll he's hello her here here's hers herself hey hi him himself his how how's however i i'd
i'll i'm i've if in instead into is isn't it it'd it'll it's its itself just keep kind know knows let let's like
likely look looking looks lot lots made make makes making many may maybe me mean means might mine more most mostly
much must my myself need needs neither never no nobody none nor not nothing now of off oh ok okay on once one ones
only onto or other others otherwise our ours ourselves out over own perhaps please pretty probably put quite rather
re really right said same say saying says see seeing seem seems seen she she'd she'll she's should shouldn't so some
somebody someone something sometimes somewhat soon sort still stuff such sure take takes taking tell than thank
thanks that that'd that'll that's the their theirs them themselves then there there's these they they'd they'll
they're they've thing things think thinking this those though thought through thus to together too toward towards
uh uhm um umm under unless until up upon us use used using usually very via wanna want wanted wants was wasn't way
ways we we'd we'll we're we've well went were weren't what what's whatever when where where's whether which while
who who's whoever whole whom whose why will with within without won't would wouldn't yeah yep yes yet you you'd
you'll you're you've your yours yourself yourselves mm hmm mhm uh-huh ah er alright actually basically literally
honestly totally definitely absolutely anyway gotta lemme kinda sorta bit able via per etc`
  .trim()
  .split(/\s+/));

/** Time words: they make deadlines, not topics. */
export const TIME_WORDS = new Set(`
today tonight tomorrow yesterday morning afternoon evening night week weeks weekend month months year years day
days hour hours minute minutes second seconds time times monday tuesday wednesday thursday friday saturday sunday
january february march april may june july august september october november december quarter quarters eod`
  .trim()
  .split(/\s+/));

// Nouns common to every conversation; as topics they would say nothing.
const GENERIC_WORDS = new Set(`
call calls people person part point points question questions idea ideas sense place case end fact side number
numbers everything something anything nothing folks guys team start first last next new old big small little
good great nice fine best better same different whole half two three four five six seven eight nine ten`
  .trim()
  .split(/\s+/));

const NUMBER_WORDS = new Set(`
one two three four five six seven eight nine ten eleven twelve thirteen fourteen fifteen sixteen seventeen eighteen
nineteen twenty thirty forty fifty sixty seventy eighty ninety hundred thousand million billion percent dozen half
k m`
  .trim()
  .split(/\s+/));

/** Straight apostrophes, so that "don’t" and "don't" are one word. */
export const normalizeApostrophes = (text) => text.replace(/[\u2018\u2019\u02bc]/g, "'");

/**
 * Splits text into sentences at ., ! and ? followed by white space, except after abbreviations
 * and initials, and when the next word starts in lower case (the recognizer's "approx. five").
 * @param {string} text
 * @returns {string[]}
 */
export function splitSentences(text) {
  const sentences = [];
  const ends = /[.!?…]+["')\]]*(?=\s|$)/g;
  let start = 0;
  for (let match; (match = ends.exec(text)); ) {
    const end = match.index + match[0].length;
    if (match[0] === '.') {
      const before = /([A-Za-z][A-Za-z.]*)\.$/.exec(text.slice(Math.max(start, end - 12), end));
      const word = before?.[1].toLowerCase();
      if (word && (ABBREVIATIONS.has(word) || /^[a-z]$/.test(word))) continue;
      if (/^\s+[a-z]/.test(text.slice(end, end + 3))) continue;
    }
    const sentence = text.slice(start, end).trim();
    if (sentence) sentences.push(sentence);
    start = end;
  }
  const rest = text.slice(start).trim();
  if (rest) sentences.push(rest);
  return sentences;
}

/**
 * @typedef {object} Token
 * @property {string} word lower case, apostrophes straightened, a possessive 's dropped
 * @property {string} surface as written
 * @property {boolean} capitalized starts with a capital letter
 * @property {number} index position in the sentence
 */

/**
 * The words of a sentence.
 * @param {string} sentence
 * @returns {Token[]}
 */
export function tokenize(sentence) {
  const tokens = [];
  const words = /[\p{L}\p{N}$][\p{L}\p{N}'&.\-]*[\p{L}\p{N}%]|[\p{L}\p{N}$%]/gu;
  for (const match of normalizeApostrophes(sentence).matchAll(words)) {
    const surface = match[0];
    let word = surface.toLowerCase();
    if (!STOP_WORDS.has(word) && word.endsWith("'s")) word = word.slice(0, -2);
    tokens.push({ word, surface, capitalized: /^\p{Lu}/u.test(surface), index: tokens.length });
  }
  return tokens;
}

/** A word that carries meaning: not a stop word, not a lone letter. */
export const isContentWord = (word) => !STOP_WORDS.has(word) && /\p{L}/u.test(word) && word.length > 1;

/** Numbers, amounts and percentages: "18%", "$95k", "sixty", "1.5". */
export const isNumberWord = (word) => /\d/.test(word) || NUMBER_WORDS.has(word);

/** A word that may name a topic: meaningful, not a time, a number, or a word every call has. */
export const isTopicWord = (word) =>
  isContentWord(word) && word.length >= 3 && !TIME_WORDS.has(word) && !GENERIC_WORDS.has(word) && !isNumberWord(word);

/**
 * A light stem so that "deals" and "deal", "territories" and "territory" count as one word.
 * Only plural endings: anything cleverer merges words that mean different things.
 * @param {string} word
 */
export function stem(word) {
  if (word.length > 4 && word.endsWith('ies')) return `${word.slice(0, -3)}y`;
  if (word.length > 4 && /(?:ches|shes|sses|xes)$/.test(word)) return word.slice(0, -2);
  if (word.length > 3 && word.endsWith('s') && !/(?:ss|us|is|ous)$/.test(word)) return word.slice(0, -1);
  return word;
}

// What speakers put at the start of a sentence before saying anything.
const LEADING_FILLERS =
  /^(?:(?:so|and|but|well|okay|ok|yeah|yes|yep|right|um|uh|oh|sure|honestly|look|alright|all right|great|perfect|cool|got it)\b[,.!]?\s+)+/i;

/**
 * A sentence as it can stand in a summary: without leading fillers, starting with a capital.
 * @param {string} sentence
 */
export function cleanSentence(sentence) {
  const trimmed = sentence.trim().replace(LEADING_FILLERS, '');
  const text = trimmed === '' ? sentence.trim() : trimmed;
  return text.charAt(0).toUpperCase() + text.slice(1);
}

/** First letter in upper case. */
export const capitalize = (text) => text.charAt(0).toUpperCase() + text.slice(1);

/** "A", "A and B", "A, B and C". */
export function listing(items) {
  if (items.length <= 1) return items.join('');
  return `${items.slice(0, -1).join(', ')} and ${items.at(-1)}`;
}
