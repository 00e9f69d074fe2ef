import assert from 'node:assert/strict';
import { setTimeout as sleep } from 'node:timers/promises';
import { test } from 'node:test';
import { assertError, startBackend } from './helpers/backend.js';

const FORM = { 'Content-Type': 'application/x-www-form-urlencoded' };
const postForm = (backend, fields, headers = FORM) =>
  backend.request('POST', '/login', { headers, body: new URLSearchParams(fields).toString() });

test('the login page, and what it answers to a form it cannot accept', async (t) => {
  const backend = await startBackend(t);
  for (const [target, status] of [['/login?provider=google', 200], ['/login', 200], ['/login?provider=github', 400], ['/login?provider=', 400]]) {
    const res = await backend.request('GET', target);
    assert.equal(res.status, status, target);
    assert.match(res.headers['content-type'], /^text\/html/);
    assert.match(res.text, /<title>Sign in to Quillmoss \(local\)<\/title>/);
    assert.match(res.text, /<form method="post" action="\/login">[^]*name="name"[^]*name="email"/);
  }

  const email = 'dana@example.com';
  for (const [name, fields, headers] of [
    ['no e-mail', { name: 'Dana', email: '' }],
    ['no @', { email: 'dana.example.com' }],
    ['no dot in the domain', { email: 'dana@localhost' }],
    ['space', { email: 'dana reyes@example.com' }],
    ['e-mail too long', { email: `${'a'.repeat(243)}@example.com` }],
    ['name too long', { name: 'x'.repeat(201), email }],
    ['other provider', { email, provider: 'github' }],
    ['not a form', { email }, { 'Content-Type': 'application/json' }],
  ]) {
    const res = await postForm(backend, { provider: 'google', ...fields }, headers);
    assert.equal(res.status, 400, name);
    assert.equal(res.headers.location, undefined, name);
    assert.match(res.text, /class="message"/, name);
  }
  // What was typed comes back escaped, never as markup.
  const res = await postForm(backend, { name: '<script>x</script>', email: 'bad"><b>', provider: 'google' });
  assert.ok(!res.text.includes('<script>x') && !res.text.includes('"><b>'));
  assert.match(res.text, /value="&lt;script&gt;x&lt;\/script&gt;"/);
});

test('the login form redirects to the app with the tokens as query items', async (t) => {
  const backend = await startBackend(t);
  const res = await postForm(backend, { name: '', email: 'Dana.Reyes@Example.com', provider: 'google' });
  assert.equal(res.status, 302);
  const location = new URL(res.headers.location);
  assert.equal(`${location.protocol}//${location.host}${location.pathname}${location.hash}`, 'quillmoss://oauth/callback');
  const tokens = Object.fromEntries(location.searchParams);
  backend.issued.add(tokens.access_token).add(tokens.refresh_token);
  assert.match(tokens.access_token, /^[A-Za-z0-9_-]{43}$/);
  assert.match(tokens.refresh_token, /^[A-Za-z0-9_-]{43}$/);
  assert.equal(tokens.expires_in, '3600');
  assert.match(tokens.expires_at, /^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z$/);
  assert.ok(Math.abs(Date.parse(tokens.expires_at) - Date.now() - 3600_000) < 60_000);

  // The name defaults to the part before @; unknown keys are absent.
  const profile = (await backend.request('GET', '/auth/user', { token: tokens.access_token })).json;
  assert.deepEqual(Object.keys(profile), ['id', 'email', 'fullName', 'createdAt', 'updatedAt']);
  assert.equal(profile.email, 'dana.reyes@example.com');
  assert.equal(profile.fullName, 'dana.reyes');
  assert.match(profile.id, /^u_/);

  // The same address in another case is the same user; a name given replaces the stored one.
  const again = await backend.login('DANA.REYES@example.com', 'Dana Reyes');
  const same = (await backend.request('GET', '/auth/user', { token: again.access_token })).json;
  assert.deepEqual([same.id, same.fullName], [profile.id, 'Dana Reyes']);
});

test('the profile needs a valid, unexpired access token', async (t) => {
  const backend = await startBackend(t, ['--token-ttl', '1']);
  const tokens = await backend.login('short@example.com');
  assert.equal(tokens.expires_in, '1');
  assert.equal((await backend.request('GET', '/auth/user', { token: tokens.access_token })).status, 200);
  for (const authorization of [undefined, `Bearer ${'A'.repeat(43)}`, `Basic ${tokens.access_token}`, 'Bearer ',
    `Bearer ${tokens.refresh_token}`]) {
    const res = await backend.request('GET', '/auth/user', { headers: authorization ? { Authorization: authorization } : {} });
    assertError(res, 401);
    assert.equal(res.headers['www-authenticate'], 'Bearer');
  }

  await sleep(1200);
  assertError(await backend.request('GET', '/auth/user', { token: tokens.access_token }), 401);
  // The refresh token outlives the access token.
  const refreshed = await backend.refresh(tokens.refresh_token);
  assert.equal(refreshed.status, 200);
  assert.equal((await backend.request('GET', '/auth/user', { token: refreshed.json.data.access_token })).status, 200);
});

test('refresh tokens rotate and cannot be used twice', async (t) => {
  const backend = await startBackend(t);
  const first = await backend.login('rotate@example.com', 'Rota Tion');
  const res = await backend.refresh(first.refresh_token);
  assert.equal(res.status, 200);
  assert.equal(res.json.success, true);
  const { data } = res.json;
  assert.notEqual(data.access_token, first.access_token);
  assert.notEqual(data.refresh_token, first.refresh_token);
  assert.equal(data.expires_in, 3600);
  assert.match(data.expires_at, /Z$/);
  assert.deepEqual([data.user.email, data.user.fullName], ['rotate@example.com', 'Rota Tion']);

  assertError(await backend.refresh(first.refresh_token), 401);
  // The old access token lives on until it expires; the new pair works.
  assert.equal((await backend.request('GET', '/auth/user', { token: first.access_token })).status, 200);
  assert.equal((await backend.refresh(data.refresh_token)).status, 200);
  for (const body of [{}, { refresh_token: 42 }, { refresh_token: '' }, { refresh_token: null }]) {
    assertError(await backend.request('POST', '/auth/refresh', { json: body }), 400);
  }
  assertError(await backend.refresh('not-a-token-we-issued'), 401);
});

test('of concurrent refreshes with one token exactly one succeeds', async (t) => {
  const backend = await startBackend(t);
  for (let round = 0; round < 3; round++) {
    const { refresh_token: token } = await backend.login(`race${round}@example.com`);
    const results = await Promise.all(Array.from({ length: 8 }, () => backend.refresh(token)));
    assert.deepEqual(results.map((r) => r.status).sort(), [200, 401, 401, 401, 401, 401, 401, 401]);
  }
});
