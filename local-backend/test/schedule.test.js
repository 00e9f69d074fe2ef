import assert from 'node:assert/strict';
import { test } from 'node:test';
import { formatDuration } from '../src/calls.js';
import { demoSchedule } from '../src/seed.js';

const DURATIONS = { discovery: 1723, pricing: 2466, renewal: 1332, 'cut-short': 97, demo: 2894 };
const dayOf = (date) => new Date(date.getFullYear(), date.getMonth(), date.getDate()).getTime();

test('demo calls fall on their days, and never end after the moment of seeding', () => {
  for (const now of [
    new Date(2026, 5, 15, 12, 0),
    new Date(2026, 5, 15, 0, 10),
    new Date(2026, 0, 1, 9, 0),
    new Date(2026, 0, 1, 0, 1),
    new Date(2026, 0, 2, 12, 0),
    new Date(2026, 2, 1, 0, 30),
    new Date(2026, 11, 31, 23, 59),
    new Date(2028, 1, 29, 12, 0),
  ]) {
    const schedule = demoSchedule(now);
    const today = dayOf(now);
    const yesterday = dayOf(new Date(now.getFullYear(), now.getMonth(), now.getDate() - 1));
    const newYear = new Date(now.getFullYear(), 0, 1).getTime();
    const label = now.toString();

    for (const [key, start] of Object.entries(schedule)) {
      assert.ok(start.getTime() + DURATIONS[key] * 1000 <= now.getTime(), `${key} ends after ${label}`);
    }
    if (now - today >= DURATIONS.discovery * 1000) assert.equal(dayOf(schedule.discovery), today, label);
    assert.equal(dayOf(schedule.pricing), yesterday, label);
    for (const key of ['renewal', 'cut-short']) {
      if (now - newYear >= DURATIONS[key] * 1000) assert.equal(schedule[key].getFullYear(), now.getFullYear(), `${key} ${label}`);
      if (today > newYear) assert.ok(schedule[key].getTime() < today, `${key} ${label}`);
    }
    assert.equal(schedule.demo.getFullYear(), now.getFullYear() - 1, label);
  }
});

test('call durations read as m:ss, and h:mm:ss from an hour on', () => {
  const cases = [[0, '0:00'], [59.4, '0:59'], [59.5, '1:00'], [725, '12:05'], [3599, '59:59'], [3600, '1:00:00'], [3723, '1:02:03'], [-5, '0:00']];
  for (const [seconds, text] of cases) assert.equal(formatDuration(seconds), text, String(seconds));
});
