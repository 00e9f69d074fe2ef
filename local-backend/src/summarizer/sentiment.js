/**
 * Sentiment from a small lexicon, tuned to how buyers and sellers talk: "reasonable" and "works"
 * are praise on a sales call, "expensive" and "concern" are the objections.
 */

const POSITIVE = new Set(`
good great excellent amazing awesome fantastic love loved happy glad excited exciting interested
interesting impressive impressed perfect reasonable helpful useful valuable worth easy easier simple clear
clean confident comfortable agree agreed appreciate appreciated pleased success successful win wins
works solid strong fast faster smooth nice fair keen promising benefit benefits improve improved improvement
wonderful brilliant fits fit recommend trust enjoy enjoyed`
  .trim()
  .split(/\s+/));

const NEGATIVE = new Set(`
bad poor terrible awful hate hated expensive pricey costly problem problems issue issues concern concerns concerned
worried worry worse worst difficult hard frustrated frustrating frustration hurt hurts painful pain slow slower
broken bug bugs miss missed missing fail failed failing failure risk risky unfortunately unhappy disappointed
disappointing complicated confusing confused annoying annoyed cancel cancelled churn struggle struggling stuck
delay delayed late lost lose losing wrong waste wasted unclear doubt doubts skeptical tough nightmare mess messy
blocker blocked loses`
  .trim()
  .split(/\s+/));

// A negation turns the next few words around: "not happy", "don't love it", "no problem".
const NEGATIONS = new Set(['not', 'no', 'never', 'none', 'nobody', 'nothing', 'neither', 'nor', 'hardly', 'barely', 'without', 'cannot']);
const NEGATION_REACH = 3;

const INTENSIFIERS = new Set(['very', 'really', 'extremely', 'super', 'so', 'incredibly', 'truly', 'highly', 'too']);
const INTENSITY = 1.5;
// A negated word counts for less than a plain one: "not bad" is weaker than "good".
const NEGATED_WEIGHT = 0.7;
// Keeps a single word from swinging a call to an extreme score.
const SMOOTHING = 2;
// |score| below this reads as neutral.
const NEUTRAL_BAND = 0.15;

const isNegation = (word) => NEGATIONS.has(word) || word.endsWith("n't");

/**
 * The polarity of a run of words: each lexicon word counts ±1, more after an intensifier,
 * flipped (and weakened) within a few words after a negation.
 * @param {string[]} words lower case
 * @returns {{sum: number, weight: number}} signed total, and total absolute weight
 */
export function polarity(words) {
  let sum = 0;
  let weight = 0;
  let negatedUntil = -1;
  words.forEach((word, i) => {
    if (isNegation(word)) {
      negatedUntil = i + NEGATION_REACH;
      return;
    }
    const sign = POSITIVE.has(word) ? 1 : NEGATIVE.has(word) ? -1 : 0;
    if (sign === 0) return;
    let value = sign * (i > 0 && INTENSIFIERS.has(words[i - 1]) ? INTENSITY : 1);
    if (i <= negatedUntil) value *= -NEGATED_WEIGHT;
    sum += value;
    weight += Math.abs(value);
  });
  return { sum, weight };
}

/**
 * @param {string[][]} sentences each as lower-case words
 * @returns {{overall: 'positive' | 'neutral' | 'negative', score: number}} score from −1 to 1
 */
export const sentimentOf = (sentences) => sentimentFrom(sentences.map(polarity));

/**
 * @param {{sum: number, weight: number}[]} polarities of the sentences
 * @returns {{overall: 'positive' | 'neutral' | 'negative', score: number}}
 */
export function sentimentFrom(polarities) {
  let sum = 0;
  let weight = 0;
  for (const one of polarities) {
    sum += one.sum;
    weight += one.weight;
  }
  const score = Math.round((sum / (weight + SMOOTHING)) * 100) / 100;
  const overall = score > NEUTRAL_BAND ? 'positive' : score < -NEUTRAL_BAND ? 'negative' : 'neutral';
  return { overall, score: Object.is(score, -0) ? 0 : score };
}

/** Whether a word carries sentiment; such words describe a call's mood, not its topics. */
export const isSentimentWord = (word) => POSITIVE.has(word) || NEGATIVE.has(word);
