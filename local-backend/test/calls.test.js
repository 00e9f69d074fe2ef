import assert from 'node:assert/strict';
import fs from 'node:fs';
import path from 'node:path';
import { test } from 'node:test';
import initSqlJs from 'sql.js';
import { assertError, Backend, startBackend, tempDir } from './helpers/backend.js';

const ISO = /^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z$/;
const isNumber = (value) => typeof value === 'number' && Number.isFinite(value);

function assertTypes(object, types, where) {
  for (const [key, check] of Object.entries(types)) {
    assert.ok(key in object || check.optional, `${where}.${key} is missing`);
    assert.ok(check(object[key]), `${where}.${key} has the wrong type: ${JSON.stringify(object[key])}`);
  }
}

const string = (v) => typeof v === 'string';
const iso = (v) => string(v) && ISO.test(v);
const oneOf = (...values) => (v) => values.includes(v);
const listOf = (check) => (v) => Array.isArray(v) && v.every(check);
const optional = (check) => Object.assign((v) => v === undefined || check(v), { optional: true });

/** Every key and type a call in the list may have. */
function assertCallShape(call, i) {
  const at = `data[${i}]`;
  assertTypes(call, {
    id: string,
    user_id: string,
    direction: oneOf('outbound', 'inbound'),
    status: oneOf('completed', 'active', 'failed'),
    created_at: iso,
    updated_at: iso,
    last_saved: iso,
    message_count: Number.isInteger,
    duration_seconds: optional(isNumber),
    call_duration: optional((v) => /^(\d+:)?\d{1,2}:\d\d$/.test(v)),
    decryption_error: optional(string),
  }, at);
  if (call.decryption_error !== undefined) {
    for (const key of ['transcription', 'summary', 'messages']) assert.ok(!(key in call), `${at}.${key} with a decryption error`);
    return;
  }
  const { transcription, summary, messages } = call;
  assertTypes(transcription, {
    id: string,
    text: string,
    duration: isNumber,
    confidence: (v) => isNumber(v) && v >= 0 && v <= 1,
    segments: listOf((s) => isNumber(s.start_time) && isNumber(s.end_time) && s.start_time <= s.end_time &&
      string(s.speaker) && string(s.text)),
    created_at: iso,
  }, `${at}.transcription`);
  assertTypes(summary, {
    content: string,
    key_points: listOf(string),
    action_items: listOf((a) => string(a.description) && oneOf('high', 'medium', 'low')(a.priority) &&
      optional(string)(a.assignee) && optional(string)(a.deadline)),
    sentiment: oneOf('positive', 'neutral', 'negative'),
    created_at: iso,
    sentiment_score: (v) => isNumber(v) && v >= -1 && v <= 1,
    topics: listOf((x) => string(x.topic) && isNumber(x.importance) && Number.isInteger(x.mentions)),
    speakers: listOf((x) => string(x.name) && optional(string)(x.role) && listOf(string)(x.mainContributions)),
  }, `${at}.summary`);
  assert.ok(Array.isArray(messages), `${at}.messages`);
  assert.equal(messages.length, call.message_count);
  messages.forEach((m, j) => assertTypes(m, {
    id: string,
    content: string,
    timestamp: iso,
    role: oneOf('user', 'assistant'),
    tool_calls: optional(Array.isArray),
    metadata: optional((x) => isNumber(x.processing_time) && string(x.type)),
  }, `${at}.messages[${j}]`));
}

async function listCalls(backend, token) {
  const res = await backend.request('GET', '/calls', { token });
  assert.equal(res.status, 200, res.text);
  assert.equal(res.json.success, true);
  assert.equal(res.json.count, res.json.data.length);
  return res.json.data;
}

test('the demo account lists five realistic calls, newest first, in the documented shape', async (t) => {
  const backend = await startBackend(t, ['--seed-demo']);
  assert.equal(backend.stdout, `Quillmoss local backend listening on ${backend.url}\n`);
  const { access_token: token } = await backend.login('demo@quillmoss.local');
  const profile = await backend.request('GET', '/auth/user', { token });
  assert.equal(profile.json.fullName, 'Demo Seller');

  const calls = await listCalls(backend, token);
  assert.equal(calls.length, 5);
  calls.forEach(assertCallShape);
  const created = calls.map((c) => c.created_at);
  assert.deepEqual(created, [...created].sort().reverse());
  assert.ok(calls.every((c) => c.user_id === profile.json.id && Date.parse(c.updated_at) <= Date.now()));
  assert.deepEqual(new Set(calls.map((c) => c.status)), new Set(['completed', 'failed']));
  assert.equal(new Date(created.at(-1)).getFullYear(), new Date().getFullYear() - 1);
  for (const { transcription, message_count: messages } of calls) {
    const speakers = new Set(transcription.segments.map((s) => s.speaker));
    assert.ok(transcription.segments.length >= 8 && transcription.segments.length <= 20);
    assert.ok(speakers.size >= 2 && speakers.size <= 3 && messages >= 2);
  }
  assert.equal(new Set(calls.map((c) => c.duration_seconds)).size, 5);
});

test('calls, tokens and the feedback limit survive a restart; seeding twice adds nothing', async (t) => {
  const dbPath = path.join(tempDir(t), 'nested', 'dir', 'quillmoss.db');
  let backend = await Backend.start(dbPath, ['--seed-demo']);
  const demo = await backend.login('demo@quillmoss.local');
  const stranger = await backend.login('stranger@example.com');
  const before = await listCalls(backend, demo.access_token);
  assert.deepEqual(await listCalls(backend, stranger.access_token), []);
  assertError(await backend.request('GET', '/calls'), 401);
  const feedback = (text) => backend.request('POST', '/feedback', { token: demo.access_token, json: { type: 'question', text } });
  for (let i = 1; i <= 5; i++) assert.equal((await feedback(`question ${i}`)).status, 201);
  await backend.stop('SIGINT');
  const dataDir = path.dirname(dbPath);
  assert.deepEqual(fs.readdirSync(dataDir).sort(), ['quillmoss.db', 'secret.key']);
  for (const file of ['quillmoss.db', 'secret.key']) assert.equal(fs.statSync(path.join(dataDir, file)).mode & 0o777, 0o600);

  backend = await Backend.start(dbPath, ['--seed-demo']);
  t.after(() => backend.stop());
  backend.issued = new Set([demo.access_token, demo.refresh_token, stranger.access_token]);
  assert.deepEqual(await listCalls(backend, demo.access_token), before);
  assert.deepEqual(await listCalls(backend, stranger.access_token), []);
  assertError(await feedback('question 6'), 429);
  assert.equal((await backend.refresh(demo.refresh_token)).status, 200);
});

test('a call whose contents cannot be decrypted is listed without them; the others are intact', async (t) => {
  const dbPath = path.join(tempDir(t), 'quillmoss.db');
  let backend = await Backend.start(dbPath, ['--seed-demo']);
  const { access_token: token } = await backend.login('demo@quillmoss.local');
  const intact = await listCalls(backend, token);
  await backend.stop();

  // Behind the server's back: one body byte and one tag byte flipped, two records swapped.
  const SQL = await initSqlJs();
  const db = new SQL.Database(fs.readFileSync(dbPath));
  const stored = new Map(db.exec('SELECT id, contents FROM calls')[0].values);
  const flipped = (id, index) => {
    const copy = Uint8Array.from(stored.get(id));
    copy[(index + copy.length) % copy.length] ^= 0x01;
    return copy;
  };
  const [a, b, c, d] = intact.map((call) => call.id);
  const damage = { [a]: flipped(a, 40), [b]: flipped(b, -1), [c]: stored.get(d), [d]: stored.get(c) };
  for (const [id, contents] of Object.entries(damage)) db.run('UPDATE calls SET contents = ? WHERE id = ?', [contents, id]);
  fs.writeFileSync(dbPath, db.export());
  db.close();

  backend = await Backend.start(dbPath);
  t.after(() => backend.stop());
  backend.issued.add(token);
  const listed = await listCalls(backend, token);
  listed.forEach(assertCallShape);
  assert.deepEqual(listed.map((call) => call.id), intact.map((call) => call.id));
  for (const [i, call] of listed.slice(0, 4).entries()) {
    assert.equal(call.decryption_error, 'Unable to decrypt call contents');
    assert.equal(call.status, intact[i].status);
  }
  assert.deepEqual(listed[4], intact[4]);
  assert.match(backend.stderr, /contents cannot be opened/);
});
