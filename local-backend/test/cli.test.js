import assert from 'node:assert/strict';
import fs from 'node:fs';
import path from 'node:path';
import { test } from 'node:test';
import initSqlJs from 'sql.js';
import { run, startBackend, tempDir } from './helpers/backend.js';

test('a bad command line exits 2 with a message on stderr', async (t) => {
  const db = path.join(tempDir(t), 'q.db');
  for (const args of [
    [],
    ['--db'],
    ['--db', ''],
    ['--db', db, '--listen', 'localhost'],
    ['--db', db, '--listen', '127.0.0.1:65536'],
    ['--db', db, '--listen', ':8787'],
    ['--db', db, '--listen', '::1:8787'],
    ['--db', db, '--token-ttl', '0'],
    ['--db', db, '--token-ttl', '1.5'],
    ['--db', db, '--token-ttl', '-3'],
    ['--db', db, '--mcp-token-ttl', '0'],
    ['--db', db, '--mcp-token-ttl', 'soon'],
    ['--db', db, '--resume-window', '1.5'],
    ['--db', db, '--resume-window', '86401'],
    ['--db', db, '--verbose'],
    ['--db', db, 'extra'],
  ]) {
    const { code, stdout, stderr } = await run(args);
    assert.equal(code, 2, args.join(' '));
    assert.equal(stdout, '');
    assert.match(stderr, /^quillmoss-local-backend: [\s\S]+\nTry 'quillmoss-local-backend --help'\.\n$/);
  }
  assert.ok(!fs.existsSync(db), 'nothing is created for a bad command line');

  const help = await run(['--help']);
  assert.equal(help.code, 0);
  assert.match(help.stdout, /--listen HOST:PORT/);
});

test('a port in use is a clear error with exit 1', async (t) => {
  const first = await startBackend(t);
  const { port } = new URL(first.url);
  const { code, stdout, stderr } = await run(['--db', path.join(tempDir(t), 'q.db'), '--listen', `127.0.0.1:${port}`]);
  assert.equal(code, 1);
  assert.equal(stdout, '');
  assert.match(stderr, new RegExp(`cannot listen on 127\\.0\\.0\\.1:${port}: the address is already in use`));
});

test('data it cannot use stops the start with exit 1 and stays untouched', async (t) => {
  const SQL = await initSqlJs();
  const newer = new SQL.Database();
  newer.run('CREATE TABLE schema_migrations (version INTEGER PRIMARY KEY, name TEXT NOT NULL, applied_at TEXT NOT NULL)');
  newer.run("INSERT INTO schema_migrations VALUES (99, 'from the future', '2030-01-01T00:00:00.000Z')");

  for (const [name, files, message] of [
    ['not a database', { 'q.db': Buffer.from('this is not SQLite '.repeat(400)) }, /not a usable database/],
    ['a newer schema', { 'q.db': Buffer.from(newer.export()) }, /schema version 99, newer than this backend knows/],
    ['a short key', { 'secret.key': Buffer.alloc(16, 7) }, /holds 16 bytes instead of a 32-byte key/],
  ]) {
    const dir = tempDir(t);
    for (const [file, bytes] of Object.entries(files)) fs.writeFileSync(path.join(dir, file), bytes);
    const { code, stdout, stderr } = await run(['--db', path.join(dir, 'q.db'), '--listen', '127.0.0.1:0']);
    assert.equal(code, 1, name);
    assert.equal(stdout, '', name);
    assert.match(stderr, message, name);
    for (const [file, bytes] of Object.entries(files)) {
      assert.deepEqual(fs.readFileSync(path.join(dir, file)), bytes, `${name}: ${file} changed`);
    }
  }
  newer.close();
});
