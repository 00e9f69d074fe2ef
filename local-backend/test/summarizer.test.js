// The rule-based summarizer in-process, on a realistic sales call and on the sentences that trip
// rules up.
import assert from 'node:assert/strict';
import { test } from 'node:test';
import { actionItemOf } from '../src/summarizer/actions.js';
import { deadlineOf, sentimentOf, splitSentences, summarize, tokenize } from '../src/summarizer/index.js';
import { BUYER, IT_LEAD, SALES_CALL, SELLER, salesCallSegments } from './fixtures/salesCall.js';

const transcriptText = SALES_CALL.map(([, text]) => text).join(' ');

test('a sales call summarizes to its people, numbers, commitments and subjects, the same every time', () => {
  const summary = summarize(salesCallSegments(), { durationSeconds: 1505, confidence: 0.9 });
  assert.deepEqual(summarize(salesCallSegments(), { durationSeconds: 1505, confidence: 0.9 }), summary);

  assert.equal(summary.duration, '25:05');
  assert.ok(summary.confidence > 0.5 && summary.confidence <= 0.9, `confidence ${summary.confidence}`);
  assert.match(summary.overview, new RegExp(`^Call with ${SELLER}, ${BUYER} and ${IT_LEAD} about `));

  // Extractive: every key point is something said, and the ones with figures make it.
  assert.ok(summary.keyPoints.length >= 2 && summary.keyPoints.length <= 6);
  for (const point of summary.keyPoints) assert.ok(transcriptText.includes(point), point);
  assert.ok(summary.keyPoints.some((p) => /twelve hundred orders|ninety thousand/.test(p)), summary.keyPoints.join('\n'));

  assert.deepEqual(summary.speakers.map((s) => s.name), [SELLER, BUYER, IT_LEAD]);
  for (const speaker of summary.speakers) {
    const theirs = SALES_CALL.filter(([who]) => who === speaker.name).map(([, text]) => text).join(' ');
    assert.ok(speaker.mainContributions.length >= 1);
    for (const contribution of speaker.mainContributions) assert.ok(theirs.includes(contribution), `${speaker.name}: ${contribution}`);
  }

  const item = (pattern) => summary.actionItems.find((a) => pattern.test(a.description));
  assert.deepEqual(item(/security questionnaire/), {
    description: 'Send the completed security questionnaire by Friday',
    assignee: SELLER,
    priority: 'medium',
    deadline: 'by Friday',
  });
  assert.deepEqual(item(/^Set up the test account/), {
    description: 'Set up the test account tomorrow morning',
    assignee: IT_LEAD,
    priority: 'high',
    deadline: 'tomorrow morning',
  });
  assert.equal(item(/^Set up a test account/).assignee, IT_LEAD, '"Ken, can you …" is asked of Ken');
  assert.deepEqual(item(/^Book a follow-up/), {
    description: 'Book a follow-up for next Tuesday to review the pilot results with your dispatch leads',
    priority: 'medium',
    deadline: 'next Tuesday',
  });
  assert.equal(item(/^Email the pricing/).priority, 'high');

  const topics = Object.fromEntries(summary.topics.map((t) => [t.topic, t]));
  assert.ok(topics['Warehouse system'] && topics['Manhattan WMS'], summary.topics.map((t) => t.topic).join(', '));
  assert.equal(topics['Warehouse system'].mentions, 3);
  assert.equal(summary.topics[0].importance, 1);
  for (const topic of summary.topics) assert.ok(topic.importance > 0 && topic.importance <= 1 && Number.isInteger(topic.mentions));
  assert.ok(!summary.topics.some((t) => /jordan|sofia|ken|friday|today/i.test(t.topic)), 'names and days are no topics');

  assert.equal(summary.sentiment.overall, 'positive');
});

test('what the summary says with little or nothing to go on', () => {
  for (const [name, segments, check] of [
    ['nothing said', [], (s) => {
      assert.equal(s.overview, 'Nothing has been said yet.');
      assert.equal(s.confidence, 0);
      assert.deepEqual([s.keyPoints, s.actionItems, s.topics, s.speakers], [[], [], [], []]);
      assert.deepEqual(s.sentiment, { overall: 'neutral', score: 0 });
    }],
    ['only fillers', [{ text: 'Um. Yeah. Okay, okay.' }], (s) => assert.deepEqual(s.keyPoints, [])],
    ['no speakers known', [{ text: 'The renewal price for the analytics renewal is due.' }, { text: 'The analytics renewal needs approval.' }], (s) => {
      assert.deepEqual(s.speakers, []);
      assert.match(s.overview, /^Call about analytics renewal\b/);
    }],
  ]) {
    check(summarize(segments, { durationSeconds: 0 }), name);
  }
});

test('commitments become action items with assignee, priority and deadline; figures of speech do not', () => {
  const speakers = ['Dana Reyes', 'Tom Becker'];
  for (const [sentence, speaker, expected] of [
    ["I'll send the revised quote today.", 'Dana Reyes', { description: 'Send the revised quote today', assignee: 'Dana Reyes', priority: 'high', deadline: 'today' }],
    ['Tom will run the numbers with finance by Friday.', 'Dana Reyes', { description: 'Run the numbers with finance by Friday', assignee: 'Tom Becker', priority: 'medium', deadline: 'by Friday' }],
    ['Can you forward the contract to legal, Tom?', 'Dana Reyes', { description: 'Forward the contract to legal', assignee: 'Tom Becker', priority: 'low' }],
    ['Could you send the deck over?', 'Dana Reyes', { description: 'Send the deck over', priority: 'low' }],
    ["We need to finalize the security review ASAP, so that legal can start.", 'Tom Becker', { description: 'Finalize the security review ASAP', priority: 'high' }],
    ["Let's schedule the onboarding kickoff next week.", undefined, { description: 'Schedule the onboarding kickoff next week', priority: 'medium', deadline: 'next week' }],
    ['Let me check the discount with my manager.', 'Dana Reyes', { description: 'Check the discount with my manager', assignee: 'Dana Reyes', priority: 'medium' }],
    ["I'll follow up with the pilot results within two weeks.", undefined, { description: 'Follow up with the pilot results within two weeks', priority: 'medium', deadline: 'within two weeks' }],
    ["I'll be honest, the price is high.", 'Tom Becker', undefined],
    ['Can you hear me?', 'Tom Becker', undefined],
    ["Let's see.", 'Dana Reyes', undefined],
    ["Let's plan on that.", 'Dana Reyes', undefined],
    ['That will work.', 'Tom Becker', undefined],
    ['We looked at three vendors last year.', 'Tom Becker', undefined],
  ]) {
    assert.deepEqual(actionItemOf(sentence, speaker, speakers), expected, sentence);
  }
});

test('deadlines are taken as said', () => {
  for (const [sentence, deadline] of [
    ['Send it by Friday.', 'by Friday'],
    ['Send it by next Tuesday afternoon.', 'by next Tuesday afternoon'],
    ['We can talk next week.', 'next week'],
    ['Please confirm by the end of the month.', 'by the end of the month'],
    ['Get back to me tomorrow.', 'tomorrow'],
    ['Sign by March 3rd.', 'by March 3rd'],
    ['Review it within 48 hours.', 'within 48 hours'],
    ['Ship it before Monday.', 'before Monday'],
    ['No date was set.', undefined],
    ['Mayday is a band.', undefined],
  ]) {
    assert.equal(deadlineOf(sentence), deadline, sentence);
  }
});

test('sentiment reads negation, intensity and the language of objections', () => {
  const of = (text) => sentimentOf(splitSentences(text).map((s) => tokenize(s).map((t) => t.word)));
  for (const [text, overall] of [
    ['The demo was great and the team is excited.', 'positive'],
    ['The demo was not great.', 'negative'],
    ["That's not bad at all.", 'positive'],
    ["I'm not worried about the product.", 'positive'],
    ["Honestly it's too expensive, and the rollout is a real concern.", 'negative'],
    ["We don't love the reporting, it's confusing.", 'negative'],
    ['We met on Tuesday to go through the agenda.', 'neutral'],
    ['Great. But the price is a problem, the integration failed, and support was slow.', 'negative'],
  ]) {
    const result = of(text);
    assert.equal(result.overall, overall, `${text} → ${JSON.stringify(result)}`);
    assert.ok(result.score >= -1 && result.score <= 1);
  }
  assert.ok(of('This is very good.').score > of('This is good.').score, 'an intensifier strengthens');
});

test('sentences split at their ends, not at abbreviations, initials or decimals', () => {
  for (const [text, sentences] of [
    ['We spoke with Dr. Patel. She agreed!', ['We spoke with Dr. Patel.', 'She agreed!']],
    ['The fee is 1.5 percent. Is that okay?', ['The fee is 1.5 percent.', 'Is that okay?']],
    ['J. Smith signed vs. the old terms. Done', ['J. Smith signed vs. the old terms.', 'Done']],
    ['It costs approx. five thousand', ['It costs approx. five thousand']],
    ['', []],
  ]) {
    assert.deepEqual(splitSentences(text), sentences, text);
  }
});
