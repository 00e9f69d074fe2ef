/**
 * A rule-based call summarizer: extractive, deterministic (the same transcript always gives the
 * same summary, to the character), and fast enough to run after every piece of a live call.
 *
 * Sentences are scored by how many of the call's frequent words they carry, with a lift for
 * numbers, names and commitments (what a seller needs to remember) and a dip for questions and
 * small talk. The overview and key points are the best sentences in the order they were said.
 */
import { formatDuration } from '../calls.js';
import { actionItemOf } from './actions.js';
import { isSentimentWord, polarity, sentimentFrom } from './sentiment.js';
import {
  capitalize,
  cleanSentence,
  isContentWord,
  isNumberWord,
  isTopicWord,
  listing,
  splitSentences,
  stem,
  tokenize,
} from './text.js';

export { deadlineOf, resolvePerson } from './actions.js';
export { polarity, sentimentOf } from './sentiment.js';
export { splitSentences, tokenize, cleanSentence, isContentWord, listing, capitalize } from './text.js';

const MAX_KEY_POINTS = 6;
const SENTENCES_PER_KEY_POINT = 5;
const MAX_TOPICS = 5;
const MAX_ACTION_ITEMS = 10;
const CONTRIBUTIONS_PER_SPEAKER = 2;
// A sentence this short ("Sure, that works.") is rarely worth a key point.
const MIN_WORDS_FOR_KEY_POINT = 6;
// Two sentences sharing this much of their vocabulary say the same thing once.
const DUPLICATE_OVERLAP = 0.6;
// Words it takes before a summary is as trustworthy as the transcript under it.
const WORDS_FOR_FULL_CONFIDENCE = 400;

// Words that mark what a sales call turns on.
const DEAL_WORDS = new Set(
  `budget price pricing cost costs discount quote proposal contract term terms renewal pilot deadline decision
  timeline approve approval sign signed signature legal procurement competitor competitors roi seats seat license
  licenses invoice payment onboarding rollout integration security compliance churn`.split(/\s+/).filter(Boolean),
);

const BOOST = {
  number: 0.3,
  name: 0.15,
  commitment: 0.45,
  dealWord: 0.2,
  opening: 0.1,
  question: -0.25,
};
const SHORT_SENTENCE_FACTOR = 0.3;
const OPENING_SHARE = 0.1;

/**
 * @typedef {object} SummarySegment
 * @property {string} text
 * @property {string} [speaker] absent (or empty) when the recognizer did not attribute it
 */

/**
 * @typedef {object} CallSummary
 * @property {string} overview
 * @property {string[]} keyPoints
 * @property {{name: string, role?: string, mainContributions: string[]}[]} speakers
 * @property {import('./actions.js').ActionItem[]} actionItems
 * @property {{topic: string, importance: number, mentions: number}[]} topics
 * @property {{overall: 'positive' | 'neutral' | 'negative', score: number}} sentiment
 * @property {string} duration "12:05"
 * @property {number} confidence 0–1
 */

// What a segment's sentences are regardless of the rest of the call, worked out once per segment
// object: a live call is summarized again after every piece, and only the new piece needs this.
const prepared = new WeakMap();

function prepare(segment) {
  const text = String(segment.text ?? '');
  const speaker = segment.speaker || undefined;
  const cached = prepared.get(segment);
  if (cached && cached.text === text && cached.speaker === speaker) return cached;
  const sentences = [];
  for (const sentenceText of splitSentences(text)) {
    const tokens = tokenize(sentenceText);
    if (tokens.length === 0) continue;
    const contentStems = tokens.filter((t) => isContentWord(t.word)).map((t) => stem(t.word));
    const stems = new Set(contentStems);
    let boost = 0;
    if (tokens.some((t) => isNumberWord(t.word))) boost += BOOST.number;
    if (tokens.some((t) => t.capitalized && t.index > 0 && t.word !== 'i' && !t.word.startsWith("i'"))) boost += BOOST.name;
    if ([...stems].some((word) => DEAL_WORDS.has(word))) boost += BOOST.dealWord;
    if (actionItemOf(sentenceText, speaker, [])) boost += BOOST.commitment;
    if (/\?\s*$/.test(sentenceText)) boost += BOOST.question;
    sentences.push({
      text: sentenceText,
      speaker,
      tokens,
      stems,
      contentStems,
      boost,
      topicTerms: topicTerms(tokens),
      polarity: polarity(tokens.map((t) => t.word)),
      actions: new Map(),
    });
  }
  const entry = { text, speaker, sentences };
  prepared.set(segment, entry);
  return entry;
}

// One shape for every scored sentence: summarizing is a loop over thousands of them.
const scored = (base, index) => ({
  text: base.text,
  speaker: base.speaker,
  tokens: base.tokens,
  stems: base.stems,
  contentStems: base.contentStems,
  boost: base.boost,
  topicTerms: base.topicTerms,
  polarity: base.polarity,
  actions: base.actions,
  index,
  score: 0,
});

/**
 * Breaks segments into scored sentences.
 * @param {SummarySegment[]} segments
 */
export function analyze(segments) {
  const sentences = [];
  for (const segment of segments) {
    for (const base of prepare(segment).sentences) sentences.push(scored(base, sentences.length));
  }
  const frequency = new Map();
  for (const { contentStems } of sentences) {
    for (const key of contentStems) frequency.set(key, (frequency.get(key) ?? 0) + 1);
  }
  let top = 1;
  for (const count of frequency.values()) top = Math.max(top, count);
  const openingEnd = Math.ceil(sentences.length * OPENING_SHARE);
  for (const sentence of sentences) {
    if (sentence.stems.size === 0) continue;
    let sum = 0;
    for (const word of sentence.stems) sum += frequency.get(word) / top;
    let score = sum / Math.sqrt(sentence.stems.size) + sentence.boost;
    if (sentence.index < openingEnd) score += BOOST.opening;
    if (sentence.tokens.length < MIN_WORDS_FOR_KEY_POINT) score *= SHORT_SENTENCE_FACTOR;
    sentence.score = Math.max(0, score);
  }
  return sentences;
}

// The action item of a sentence, as it reads with these speakers' names.
function actionOf(sentence, speakers) {
  const key = speakers.join('\n');
  if (!sentence.actions.has(key)) sentence.actions.set(key, actionItemOf(sentence.text, sentence.speaker, speakers));
  return sentence.actions.get(key);
}

function overlap(a, b) {
  let shared = 0;
  for (const word of a) if (b.has(word)) shared += 1;
  return shared / Math.max(1, Math.min(a.size, b.size));
}

/**
 * The `count` best sentences, no two alike, in the order they were said. Ties go to the earlier
 * sentence, which keeps the result deterministic.
 */
export function bestSentences(sentences, count, { minWords = MIN_WORDS_FOR_KEY_POINT } = {}) {
  const ranked = sentences
    .filter((s) => s.score > 0 && s.tokens.length >= minWords)
    .sort((a, b) => b.score - a.score || a.index - b.index);
  const chosen = [];
  for (const sentence of ranked) {
    if (chosen.length >= count) break;
    const words = sentence.stems;
    if (chosen.some((c) => overlap(words, c.words) >= DUPLICATE_OVERLAP)) continue;
    chosen.push({ sentence, words });
  }
  return chosen.map((c) => c.sentence).sort((a, b) => a.index - b.index);
}

// The words and word pairs of a sentence that could name a topic.
function topicTerms(tokens) {
  const eligible = (t) => t && isTopicWord(t.word) && !isSentimentWord(t.word);
  // A capitalized word is kept as written (a product, a company); others in lower case.
  const surface = (t) => (t.capitalized && (t.index > 0 || /\p{Lu}.*\p{Lu}/u.test(t.surface)) ? t.surface : t.word);
  const terms = [];
  tokens.forEach((token, i) => {
    if (!eligible(token)) return;
    terms.push({ key: stem(token.word), surface: surface(token), words: [token.word], pair: false, at: i });
    const next = tokens[i + 1];
    if (eligible(next)) {
      terms.push({ key: `${stem(token.word)} ${stem(next.word)}`, surface: `${surface(token)} ${surface(next)}`, words: [token.word, next.word], pair: true, at: i });
    }
  });
  return terms;
}

/**
 * Topics: the words and word pairs said most often, as said most often ("Salesforce",
 * "pilot proposal"). A pair counts double; a word mostly said inside a chosen pair is not a
 * topic of its own.
 * @param {ReturnType<typeof analyze>} sentences
 * @param {Set<string>} exclude lower-case words not to count (the speakers' names)
 */
export function topicsOf(sentences, exclude = new Set()) {
  const candidates = new Map();
  for (const sentence of sentences) {
    for (const term of sentence.topicTerms) {
      if (term.words.some((word) => exclude.has(word))) continue;
      const entry = candidates.get(term.key) ?? { key: term.key, count: 0, surfaces: new Map(), first: sentence.index * 1000 + term.at, pair: term.pair };
      entry.count += 1;
      entry.surfaces.set(term.surface, (entry.surfaces.get(term.surface) ?? 0) + 1);
      candidates.set(term.key, entry);
    }
  }
  const scored = [...candidates.values()]
    .filter((c) => c.count >= 2)
    // A short word in lower case ("net", "add") is seldom a subject; "CRM" or "ROI" is.
    .filter((c) => c.pair || c.key.length > 3 || [...c.surfaces.keys()].some((s) => /^\p{Lu}{2,}/u.test(s)))
    .map((c) => ({ ...c, score: c.count * (c.pair ? 2 : 1) }))
    .sort((a, b) => b.score - a.score || a.first - b.first);
  const chosen = [];
  for (const candidate of scored) {
    if (chosen.length >= MAX_TOPICS) break;
    if (candidate.pair) {
      // A pair already implied by a chosen word said mostly within it adds nothing.
      if (chosen.some((c) => !c.pair && candidate.key.split(' ').includes(c.key) && c.count - candidate.count < 2)) continue;
    } else {
      const within = chosen.filter((c) => c.pair && c.key.split(' ').includes(candidate.key)).reduce((n, c) => n + c.count, 0);
      if (candidate.count - within < 2) continue;
    }
    chosen.push(candidate);
  }
  const topScore = chosen[0]?.score ?? 1;
  return chosen.map((c) => {
    const label = [...c.surfaces.entries()].sort((a, b) => b[1] - a[1] || (a[0] < b[0] ? -1 : 1))[0][0];
    return { label, topic: capitalize(label), importance: Math.round((c.score / topScore) * 100) / 100, mentions: c.count };
  });
}

/**
 * Summarizes a transcript.
 * @param {SummarySegment[]} segments in the order they were said
 * @param {{durationSeconds?: number, confidence?: number}} [context] the call's length and the
 *   recognizer's confidence (0–1) in the transcript
 * @returns {CallSummary}
 */
export function summarize(segments, { durationSeconds = 0, confidence = 1 } = {}) {
  const sentences = analyze(segments);
  const speakers = [];
  for (const { speaker } of segments) if (speaker && !speakers.includes(speaker)) speakers.push(speaker);
  const nameWords = new Set(speakers.flatMap((name) => name.toLowerCase().split(/\s+/)));

  const topics = topicsOf(sentences, nameWords);
  const keyPointCount = Math.min(MAX_KEY_POINTS, Math.max(1, Math.round(sentences.length / SENTENCES_PER_KEY_POINT)));
  const keyPoints = bestSentences(sentences, keyPointCount).map((s) => cleanSentence(s.text).replace(/[.…]+$/, ''));
  const overviewSentences = bestSentences(sentences, sentences.length >= 20 ? 3 : 2).map((s) => cleanSentence(s.text));

  const actionItems = [];
  for (const sentence of sentences) {
    if (actionItems.length >= MAX_ACTION_ITEMS) break;
    const item = actionOf(sentence, speakers);
    if (item && !actionItems.some((a) => a.description.toLowerCase() === item.description.toLowerCase())) actionItems.push(item);
  }

  const words = sentences.reduce((n, s) => n + s.tokens.length, 0);
  return {
    overview: overviewOf(speakers, topics, overviewSentences, sentences.length),
    keyPoints,
    speakers: speakers.map((name) => ({
      name,
      mainContributions: bestSentences(
        sentences.filter((s) => s.speaker === name),
        CONTRIBUTIONS_PER_SPEAKER,
        { minWords: 4 },
      ).map((s) => cleanSentence(s.text).replace(/[.…]+$/, '')),
    })),
    actionItems,
    topics: topics.map(({ topic, importance, mentions }) => ({ topic, importance, mentions })),
    sentiment: sentimentFrom(sentences.map((s) => s.polarity)),
    duration: formatDuration(durationSeconds),
    confidence:
      words === 0 ? 0 : Math.round(clamp01(confidence) * (0.4 + 0.6 * Math.min(1, words / WORDS_FOR_FULL_CONFIDENCE)) * 100) / 100,
  };
}

const clamp01 = (value) => (Number.isFinite(value) ? Math.min(1, Math.max(0, value)) : 1);

function overviewOf(speakers, topics, sentences, sentenceCount) {
  if (sentenceCount === 0) return 'Nothing has been said yet.';
  const about = topics.slice(0, 3).map((t) => t.label);
  const lead =
    speakers.length > 0
      ? `Call with ${listing(speakers)}${about.length ? ` about ${listing(about)}` : ''}.`
      : about.length
        ? `Call about ${listing(about)}.`
        : '';
  const body = sentences.map((s) => (/[.!?…]$/.test(s) ? s : `${s}.`)).join(' ');
  return [lead, body].filter(Boolean).join(' ');
}
