import assert from 'node:assert/strict';
import http from 'node:http';
import net from 'node:net';
import { test } from 'node:test';
import { assertError, startBackend } from './helpers/backend.js';

const MiB = 1024 * 1024;

test('bodies that are not one JSON object are refused with 400', async (t) => {
  const backend = await startBackend(t);
  const { access_token: token } = await backend.login('json@example.com');
  for (const body of ['{bad', '', '[]', 'null', '"text"', '42', '{"refresh_token": "x"', '\u0000']) {
    for (const [path, auth] of [['/auth/refresh', undefined], ['/feedback', token]]) {
      const res = await backend.request('POST', path, { token: auth, body, headers: { 'Content-Type': 'application/json' } });
      assert.equal(res.status, 400, `${path} ${JSON.stringify(body)}`);
      assertError(res, 400);
    }
  }
});

test('unknown paths get 404, other methods 405 with Allow', async (t) => {
  const backend = await startBackend(t);
  for (const path of ['/', '/calls/', '/CALLS', '/auth', '/auth/user/x', '/calls;x', '/%00', '/constructor', '/__proto__']) {
    const res = await backend.request('GET', path);
    assert.equal(res.status, 404, path);
    assertError(res, 404);
  }
  for (const [method, path, allow] of [
    ['PUT', '/calls', 'GET, HEAD'],
    ['POST', '/auth/user', 'GET, HEAD'],
    ['DELETE', '/login', 'GET, POST, HEAD'],
    ['GET', '/auth/refresh', 'POST'],
    ['GET', '/feedback', 'POST'],
    ['PATCH', '/feedback', 'POST'],
  ]) {
    const res = await backend.request(method, path);
    assert.equal(res.status, 405, `${method} ${path}`);
    assertError(res, 405);
    assert.equal(res.headers.allow, allow);
  }
  const head = await backend.request('HEAD', '/login');
  assert.equal(head.status, 200);
  assert.equal(head.text, '');
});

test('bodies over 1 MiB get 413, a body of exactly 1 MiB is read', async (t) => {
  const backend = await startBackend(t);
  const exact = `{"refresh_token": "unknown"${' '.repeat(MiB - 28)}}`;
  assert.equal(Buffer.byteLength(exact), MiB);
  assertError(await backend.request('POST', '/auth/refresh', { body: exact }), 401);
  assertError(await backend.request('POST', '/auth/refresh', { body: `${exact} ` }), 413);

  // Without Content-Length the count decides.
  const streamed = await new Promise((resolve, reject) => {
    const req = http.request(new URL('/auth/refresh', backend.url), { method: 'POST', agent: false }, (res) => {
      res.resume();
      res.on('end', () => resolve(res.statusCode));
    });
    req.on('error', (error) => (req.res ? undefined : reject(error)));
    const chunk = Buffer.alloc(64 * 1024, 0x20);
    for (let i = 0; i < 17; i++) req.write(chunk);
    req.end();
  });
  assert.equal(streamed, 413);
  assert.equal((await backend.request('GET', '/login')).status, 200);
});

test('garbage on the wire does not bring the server down', async (t) => {
  const backend = await startBackend(t);
  const { port } = new URL(backend.url);
  for (const junk of ['\x00\x01\x02 nonsense\r\n\r\n', 'GET /login HTTP/9.9\r\n\r\n', 'GET / HTTP/1.1\r\nHost: x\r\nContent-Length: -1\r\n\r\n']) {
    await new Promise((resolve) => {
      const socket = net.connect(Number(port), '127.0.0.1', () => socket.end(junk));
      socket.on('data', () => {});
      socket.on('close', resolve);
      socket.on('error', resolve);
    });
  }
  // A client that goes away in the middle of a body.
  await new Promise((resolve) => {
    const socket = net.connect(Number(port), '127.0.0.1', () => {
      socket.write('POST /auth/refresh HTTP/1.1\r\nHost: x\r\nContent-Length: 100\r\n\r\n{"refr');
      socket.destroy();
      resolve();
    });
  });
  assert.equal((await backend.request('GET', '/login')).status, 200);
});

test('the request log names method, path, status and time, and never a query string or token', async (t) => {
  const backend = await startBackend(t);
  const tokens = await backend.login('logged@example.com');
  await backend.request('GET', `/login?provider=google&access_token=${tokens.access_token}`);
  await backend.request('GET', '/auth/user', { token: tokens.access_token });
  await backend.request('GET', '/calls', { token: tokens.refresh_token });
  await backend.refresh(tokens.refresh_token);
  await backend.stop();
  assert.match(backend.stderr, /^POST \/login 302 \d+\.\dms$/m);
  assert.match(backend.stderr, /^GET \/login 200 \d+\.\dms$/m);
  assert.match(backend.stderr, /^GET \/auth\/user 200 \d+\.\dms$/m);
  assert.match(backend.stderr, /^GET \/calls 401 \d+\.\dms$/m);
  assert.match(backend.stderr, /^POST \/auth\/refresh 200 \d+\.\dms$/m);
  assert.ok(!backend.stderr.includes('?'));
});
