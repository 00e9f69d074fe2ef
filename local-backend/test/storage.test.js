// The storage layer in-process: sealing, transactions and migrations, the call life cycle.
import assert from 'node:assert/strict';
import { randomBytes } from 'node:crypto';
import fs from 'node:fs';
import path from 'node:path';
import { test } from 'node:test';
import { CallStateError, CallStore, InvalidCallData, UnknownCall } from '../src/calls.js';
import { Cipher, DecryptionError } from '../src/crypto.js';
import { Database } from '../src/db.js';
import { tempDir } from './helpers/backend.js';

const TABLE = { version: 1, name: 'notes', sql: 'CREATE TABLE notes (id INTEGER PRIMARY KEY, text TEXT NOT NULL)' };

test('a sealed record opens only intact, under its key and its context', () => {
  const cipher = new Cipher(randomBytes(32));
  const sealed = cipher.seal('{"secret": true}', 'u_1/c_1');
  assert.equal(cipher.open(sealed, 'u_1/c_1').toString(), '{"secret": true}');
  assert.notDeepEqual(cipher.seal('same', 'c'), cipher.seal('same', 'c'), 'every record gets its own nonce');
  for (const [name, record, context, key] of [
    ['unknown format', Buffer.concat([Buffer.of(2), sealed.subarray(1)]), 'u_1/c_1'],
    ['shorter than a header', sealed.subarray(0, 28), 'u_1/c_1'],
    ['other call', sealed, 'u_1/c_2'],
    ['other key', sealed, 'u_1/c_1', randomBytes(32)],
  ]) {
    assert.throws(() => (key ? new Cipher(key) : cipher).open(record, context), DecryptionError, name);
  }
});

test('a failed transaction leaves neither memory nor file changed', async (t) => {
  const file = path.join(tempDir(t), 'q.db');
  const db = await Database.open(file, { migrations: [TABLE] });
  db.run('INSERT INTO notes (text) VALUES (?)', ['kept']);
  const onDisk = fs.readFileSync(file);

  assert.throws(() => db.transaction(() => {
    db.run('INSERT INTO notes (text) VALUES (?)', ['lost']);
    db.run('INSERT INTO notes (text) VALUES (?)', [null]);
  }), /NOT NULL/);
  assert.throws(() => db.transaction(async () => db.run("INSERT INTO notes (text) VALUES ('async')")), TypeError);

  assert.deepEqual(db.all('SELECT text FROM notes'), [{ text: 'kept' }]);
  db.close();
  assert.deepEqual(fs.readFileSync(file), onDisk);
  assert.deepEqual(fs.readdirSync(path.dirname(file)), ['q.db'], 'no temporary file is left behind');
});

test('migrations run once each, in order, and survive reopening', async (t) => {
  const file = path.join(tempDir(t), 'q.db');
  const later = { version: 2, name: 'note authors', sql: 'ALTER TABLE notes ADD COLUMN author TEXT' };

  let db = await Database.open(file, { migrations: [TABLE] });
  db.run("INSERT INTO notes (text) VALUES ('before')");
  db.close();
  db = await Database.open(file, { migrations: [TABLE, later] });
  db.run("INSERT INTO notes (text, author) VALUES ('after', 'me')");
  db.close();
  db = await Database.open(file, { migrations: [TABLE, later] });
  assert.deepEqual(db.all('SELECT version FROM schema_migrations'), [{ version: 1 }, { version: 2 }]);
  assert.equal(db.get('SELECT COUNT(*) AS n FROM notes').n, 2);
  db.close();

  await assert.rejects(Database.open(file, { migrations: [TABLE] }), /schema version 2, newer/);
  await assert.rejects(Database.open(file, { migrations: [later] }), /expected 1/);
});

test('a call goes from active to ended, and takes no additions after', async (t) => {
  const db = await Database.open(path.join(tempDir(t), 'q.db'));
  t.after(() => db.close());
  db.run("INSERT INTO users (id, email, created_at, updated_at) VALUES ('u_1', 'a@example.com', 'x', 'x')");
  const store = new CallStore(db, new Cipher(randomBytes(32)));
  const start = new Date('2026-03-02T10:00:00.000Z');
  const id = store.create({ userId: 'u_1', at: start });

  const segment = (from, to, text) => ({ start_time: from, end_time: to, speaker: 'A', text });
  store.append(id, { segments: [segment(0, 10, 'Hello')], confidence: 0.9 });
  store.append(id, { segments: [segment(10, 40, 'there')], confidence: 0.5, messages: [{ role: 'user', content: 'hi' }] });
  let [call] = store.listForUser('u_1');
  assert.equal(call.status, 'active');
  assert.equal(call.duration_seconds, undefined);
  assert.equal(call.transcription.text, 'Hello there');
  assert.equal(call.transcription.duration, 40);
  assert.equal(call.transcription.confidence, 0.6, 'weighted by speaking time: (0.9·10 + 0.5·30) / 40');
  assert.equal(call.message_count, 1);

  for (const [name, addition] of [
    ['end before start', { segments: [segment(5, 4, 'x')], confidence: 1 }],
    ['no confidence', { segments: [segment(40, 41, 'x')] }],
    ['unknown role', { messages: [{ role: 'system', content: 'x' }] }],
  ]) {
    assert.throws(() => store.append(id, addition), InvalidCallData, name);
  }
  assert.throws(() => store.append('no-such-call', { messages: [] }), UnknownCall);
  assert.throws(() => store.complete(id, { status: 'active' }), InvalidCallData);

  store.complete(id, { at: new Date(start.getTime() + 725_000) });
  [call] = store.listForUser('u_1');
  assert.deepEqual([call.status, call.duration_seconds, call.call_duration], ['completed', 725, '12:05']);
  assert.throws(() => store.append(id, { messages: [{ role: 'user', content: 'late' }] }), CallStateError);
  assert.throws(() => store.complete(id, {}), CallStateError);
});
