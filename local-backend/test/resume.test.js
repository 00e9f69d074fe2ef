// Calls that outlive their connection: a network drop, a newer connection, a crashed backend.
import assert from 'node:assert/strict';
import fs from 'node:fs';
import path from 'node:path';
import { test } from 'node:test';
import { setTimeout as sleep } from 'node:timers/promises';
import initSqlJs from 'sql.js';
import { Backend, listCalls, say, startBackend, startSession, tempDir } from './helpers/backend.js';
import { SALES_CALL } from './fixtures/salesCall.js';

async function waitForStatus(backend, token, callId, status) {
  for (let i = 0; i < 100; i++) {
    const call = (await listCalls(backend, token)).find((c) => c.id === callId);
    if (call?.status === status) return call;
    await sleep(30);
  }
  assert.fail(`call ${callId} did not become ${status}`);
}

test('a call survives the backend being killed mid-call, and the reconnecting client continues it', async (t) => {
  let backend;
  t.after(() => backend.child.exitCode === null && backend.stop());
  const dbPath = path.join(tempDir(t), 'data', 'quillmoss.db');
  backend = await Backend.start(dbPath);
  const { access_token: token } = await backend.login('crash@example.com', 'Jordan Blake');
  const first = await startSession(backend, token);
  for (const [speaker, text] of SALES_CALL.slice(0, 3)) await say(first.client, speaker, text);
  await first.client.request('chatMessage', { message: 'Summarize the call', type: 'user' }, 'chatResponse');
  await backend.kill();

  backend = await Backend.start(dbPath);
  backend.issued.add(token);
  const [kept] = await listCalls(backend, token);
  assert.deepEqual([kept.id, kept.status, kept.message_count], [first.initialized.callId, 'active', 2]);
  assert.deepEqual(kept.transcription.segments.map((s) => s.text), SALES_CALL.slice(0, 3).map(([, text]) => text));

  const second = await startSession(backend, token);
  assert.deepEqual([second.initialized.callId, second.initialized.resumed], [first.initialized.callId, true]);
  for (const [speaker, text] of SALES_CALL.slice(3, 6)) await say(second.client, speaker, text);
  // The running summary covers the whole call, from before the crash too.
  const summary = await second.client.next('accumulated_summary');
  assert.equal(summary.processedSegments, 6);
  const history = await second.client.request('getChatHistory', {}, 'chatHistory');
  assert.equal(history.total, 2);
  second.client.close();

  const done = await waitForStatus(backend, token, first.initialized.callId, 'completed');
  assert.equal(done.transcription.segments.length, 6);
  assert.match(done.summary.content, /^Call with Jordan Blake, Sofia Martinez and Ken Okafor/);
});

test('a dropped connection is continued within the window, completed as of the drop after it, taken over by a newer one', async (t) => {
  const backend = await startBackend(t, ['--resume-window', '1']);
  const { access_token: token } = await backend.login('drop@example.com');
  const { access_token: otherUser } = await backend.login('someone-else@example.com');

  const first = await startSession(backend, token);
  const { callId } = first.initialized;
  await say(first.client, 'Sofia Martinez', SALES_CALL[1][1]);
  first.client.drop();
  await first.client.closed;

  // Neither another user nor a call the other way round picks it up.
  for (const [name, who, direction] of [['another user', otherUser, 'outbound'], ['other direction', token, 'inbound']]) {
    const other = await startSession(backend, who, { direction });
    assert.notEqual(other.initialized.callId, callId, name);
    other.client.close();
  }

  const second = await startSession(backend, token);
  assert.deepEqual([second.initialized.callId, second.initialized.resumed], [callId, true]);
  await say(second.client, 'Ken Okafor', SALES_CALL[2][1]);
  second.client.drop();
  const droppedAt = Date.now();
  await second.client.closed;

  const call = await waitForStatus(backend, token, callId, 'completed');
  assert.ok(Date.now() - droppedAt >= 900, 'it waited for the window');
  assert.deepEqual(call.transcription.segments.map((s) => s.speaker), ['Sofia Martinez', 'Ken Okafor']);
  assert.ok(call.summary.key_points.length > 0);
  const sinceStart = (droppedAt - Date.parse(call.created_at)) / 1000;
  assert.ok(Math.abs(call.duration_seconds - sinceStart) < 0.5, `ends at the drop: ${call.duration_seconds} vs ${sinceStart}`);

  // A newer connection of the same user takes over a call the older one still holds, as when
  // the client reconnects before the server has noticed that the old connection is dead.
  const older = await startSession(backend, token);
  assert.notEqual(older.initialized.callId, callId, 'a completed call is not continued');
  await say(older.client, 'Jordan Blake', SALES_CALL[0][1]);
  const newer = await startSession(backend, token);
  assert.equal(newer.initialized.callId, older.initialized.callId);
  assert.match((await older.client.next('sessionError')).message, /newer connection/);
  assert.equal(await older.client.closed, 'io server disconnect');
  // The older connection's end neither completes the call nor keeps the newer one from adding to it.
  await say(newer.client, 'Sofia Martinez', SALES_CALL[1][1]);
  const held = (await listCalls(backend, token)).find((c) => c.id === older.initialized.callId);
  assert.deepEqual([held.status, held.transcription.segments.length], ['active', 2]);
  newer.client.close();
  await waitForStatus(backend, token, held.id, 'completed');
});

test('a stop with a call in progress keeps it open; past its window it is completed at the next start', async (t) => {
  let backend;
  t.after(() => backend.child.exitCode === null && backend.stop());
  const dbPath = path.join(tempDir(t), 'quillmoss.db');
  backend = await Backend.start(dbPath, ['--resume-window', '0']);
  const { access_token: token } = await backend.login('stop@example.com');
  const { client, initialized } = await startSession(backend, token);
  await say(client, 'Ken Okafor', SALES_CALL[6][1]);
  await backend.stop();
  const SQL = await initSqlJs();
  const db = new SQL.Database(fs.readFileSync(dbPath));
  assert.deepEqual(db.exec('SELECT status FROM calls')[0].values, [['active']], 'the stop left the call open');
  db.close();

  backend = await Backend.start(dbPath, ['--resume-window', '0']);
  const call = await waitForStatus(backend, token, initialized.callId, 'completed');
  assert.equal(call.transcription.segments.length, 1);
  assert.ok(call.summary);
  const next = await startSession(backend, token);
  assert.notEqual(next.initialized.callId, initialized.callId);
  next.client.close();
});
