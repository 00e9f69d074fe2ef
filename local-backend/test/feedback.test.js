import assert from 'node:assert/strict';
import { test } from 'node:test';
import { assertError, startBackend } from './helpers/backend.js';

const send = (backend, token, json) => backend.request('POST', '/feedback', { token, json });

test('feedback is stored and answered 201; the text limit counts code points', async (t) => {
  const backend = await startBackend(t);
  const { access_token: token } = await backend.login('writer@example.com');
  for (const [name, text] of [
    ['one character', 'k'],
    ['5000 ASCII characters', 'a'.repeat(5000)],
    ['5000 emoji (10000 UTF-16 units)', '😀'.repeat(5000)],
  ]) {
    const res = await send(backend, token, { type: 'bug-report', text });
    assert.equal(res.status, 201, name);
    assert.equal(res.json.success, true);
    assert.equal(res.json.message, 'Thank you for your feedback');
    const { data } = res.json;
    assert.match(data.id, /^f_/);
    assert.deepEqual({ type: data.type, text: data.text, status: data.status }, { type: 'bug-report', text, status: 'received' });
    assert.match(data.created_at, /^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z$/);
  }
});

test('invalid or unauthenticated feedback is refused and does not count towards the limit', async (t) => {
  const backend = await startBackend(t);
  const { access_token: token } = await backend.login('careless@example.com');
  for (const [name, body] of [
    ['unknown type', { type: 'rant', text: 'hello' }],
    ['type in another case', { type: 'Bug-Report', text: 'hello' }],
    ['missing type', { text: 'hello' }],
    ['missing text', { type: 'other' }],
    ['empty text', { type: 'other', text: '' }],
    ['only white space', { type: 'other', text: ' \n\t ' }],
    ['text not a string', { type: 'other', text: 42 }],
    ['5001 characters', { type: 'other', text: 'a'.repeat(5001) }],
    ['5001 emoji', { type: 'other', text: '😀'.repeat(5001) }],
    ['lone surrogate', { type: 'other', text: 'a\ud800b' }],
  ]) {
    const res = await send(backend, token, body);
    assert.equal(res.status, 400, name);
    assertError(res, 400);
  }
  assertError(await send(backend, undefined, { type: 'other', text: 'anonymous' }), 401);
  assertError(await send(backend, 'x'.repeat(43), { type: 'other', text: 'forged' }), 401);
  assert.equal((await send(backend, token, { type: 'other', text: 'now a real one' })).status, 201);
});

test('of simultaneous feedback five pass in 60 seconds, the rest get 429; per user', async (t) => {
  const backend = await startBackend(t);
  const busy = await backend.login('busy@example.com');
  const other = await backend.login('other@example.com');
  const results = await Promise.all(
    Array.from({ length: 9 }, (_, i) => send(backend, busy.access_token, { type: 'improvement', text: `idea ${i}` })),
  );
  assert.deepEqual(results.map((r) => r.status).sort(), [201, 201, 201, 201, 201, 429, 429, 429, 429]);
  for (const refused of results.filter((r) => r.status === 429)) {
    assertError(refused, 429);
    const retryAfter = Number(refused.headers['retry-after']);
    assert.ok(retryAfter >= 1 && retryAfter <= 60, `Retry-After ${retryAfter}`);
  }
  assert.equal((await send(backend, other.access_token, { type: 'compliment', text: 'nice' })).status, 201);
});
