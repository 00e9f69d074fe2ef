// Sign-in to the demo MCP server against the real program: discovery, registration, the
// authorization driven as a browser, the code and refresh grants, and the bearer check of the MCP
// routes, ending with the SDK's own client listing the tools with the token it got.
import assert from 'node:assert/strict';
import path from 'node:path';
import { test } from 'node:test';
import { Client } from '@modelcontextprotocol/sdk/client/index.js';
import { SSEClientTransport } from '@modelcontextprotocol/sdk/client/sse.js';
import { Backend, backendForFile, startBackend, tempDir } from './helpers/backend.js';
import { APP_REDIRECT, appRegistration, authorize, mcpSignIn, pkce, register, token } from './helpers/mcpOAuth.js';

const backend = backendForFile(['--seed-demo']);

const getJson = async (target) => {
  const res = await fetch(new URL(target, backend().url));
  return { status: res.status, body: await res.json() };
};
const openStream = (server, headers = {}) => fetch(new URL('/mcp/sse', server.url), { headers }).then(async (res) => {
  if (res.status === 200) await res.body.cancel();
  return res;
});
const bearer = (accessToken) => ({ Authorization: `Bearer ${accessToken}` });

async function toolNames(server, accessToken) {
  const client = new Client({ name: 'oauth-test', version: '1.0.0' });
  await client.connect(new SSEClientTransport(new URL('/mcp/sse', server.url), { requestInit: { headers: bearer(accessToken) } }));
  try {
    return (await client.listTools()).tools.map((t) => t.name);
  } finally {
    await client.close();
  }
}

test('the discovery documents name this server, its endpoints, S256 and the mcp scope', async () => {
  const base = backend().url;
  const { status, body } = await getJson('/.well-known/oauth-authorization-server');
  assert.equal(status, 200);
  assert.deepEqual(
    [body.issuer, body.authorization_endpoint, body.token_endpoint, body.registration_endpoint, body.revocation_endpoint],
    [base, `${base}/authorize`, `${base}/token`, `${base}/register`, `${base}/revoke`],
  );
  assert.deepEqual(body.code_challenge_methods_supported, ['S256']);
  assert.deepEqual(body.scopes_supported, ['mcp']);
  assert.deepEqual(body.token_endpoint_auth_methods_supported, ['none']);
  for (const [where, resource] of [['/.well-known/oauth-protected-resource', base], ['/.well-known/oauth-protected-resource/mcp/sse', `${base}/mcp/sse`]]) {
    const prm = await getJson(where);
    assert.equal(prm.status, 200, where);
    assert.equal(prm.body.resource, resource, where);
    assert.deepEqual(prm.body.authorization_servers, [base], where);
  }
});

test('registration takes public clients with the app callback or a loopback address, and refuses the rest', async () => {
  const cases = [
    ['the desktop app', appRegistration(), 201],
    ['a command-line client on loopback', appRegistration({ redirect_uris: ['http://127.0.0.1:8765/callback'] }), 201],
    ['no auth method given is made public', appRegistration({ token_endpoint_auth_method: undefined }), 201],
    ['a web address', appRegistration({ redirect_uris: ['https://example.com/callback'] }), 400, /redirect URIs are quillmoss:\/\/oauth\/callback/],
    ['localhost by name', appRegistration({ redirect_uris: ['http://localhost:8765/callback'] }), 400, /redirect URIs/],
    ['another app scheme', appRegistration({ redirect_uris: ['otherapp://oauth/callback'] }), 400, /redirect URIs/],
    ['a confidential client', appRegistration({ token_endpoint_auth_method: 'client_secret_post' }), 400, /only public clients/],
    ['client credentials', appRegistration({ grant_types: ['client_credentials'] }), 400, /grant type "client_credentials"/],
  ];
  for (const [what, registration, status, pattern] of cases) {
    const { status: got, body } = await register(backend(), registration);
    assert.equal(got, status, `${what}: ${JSON.stringify(body)}`);
    if (status === 201) {
      assert.ok(body.client_id, what);
      assert.equal(body.client_secret, undefined, what);
      assert.equal(body.token_endpoint_auth_method, 'none', what);
    } else {
      assert.equal(body.error, 'invalid_client_metadata', what);
      assert.match(body.error_description, pattern, what);
    }
  }
});

test('authorize, sign in, allow: the code is bound to its verifier, redirect URI and one use', async () => {
  const { body: client } = await register(backend());
  const { verifier, challenge } = pkce();
  const { redirect, consentPage } = await authorize(backend(), { clientId: client.client_id, challenge, state: 'xyz 1' });
  assert.match(consentPage, /Quillmoss wants to read your calls through the demo MCP server/);
  assert.match(consentPage, /demo@quillmoss\.local/);
  assert.equal(`${redirect.protocol}//${redirect.host}${redirect.pathname}`, APP_REDIRECT);
  assert.equal(redirect.searchParams.get('state'), 'xyz 1');
  const code = redirect.searchParams.get('code');

  const exchange = (changes) => token(backend(), { grant_type: 'authorization_code', code, code_verifier: verifier, client_id: client.client_id, redirect_uri: APP_REDIRECT, ...changes });
  const refused = [
    ['wrong verifier', { code_verifier: pkce().verifier }],
    ['wrong redirect URI', { redirect_uri: 'http://127.0.0.1:9/callback' }],
    ['another client', { client_id: (await register(backend())).body.client_id }],
    ['unknown code', { code: 'nope' }],
  ];
  for (const [what, changes] of refused) {
    const { status, body } = await exchange(changes);
    assert.deepEqual([status, body.error], [400, 'invalid_grant'], what);
  }

  const { status, body: tokens } = await exchange({});
  assert.equal(status, 200, JSON.stringify(tokens));
  assert.deepEqual([tokens.token_type, tokens.expires_in, tokens.scope], ['Bearer', 3600, 'mcp']);
  backend().issued.add(tokens.access_token).add(tokens.refresh_token);
  assert.deepEqual(await toolNames(backend(), tokens.access_token), ['search_calls', 'get_call_summary', 'list_action_items']);

  // A second use of the code is refused, and the tokens it gave stop working.
  const again = await exchange({});
  assert.deepEqual([again.status, again.body.error], [400, 'invalid_grant']);
  assert.equal((await openStream(backend(), bearer(tokens.access_token))).status, 401);
});

test('a loopback client gets its code on the port it listens on now', async () => {
  const { body: client } = await register(backend(), appRegistration({ redirect_uris: ['http://127.0.0.1:9/callback'] }));
  const { challenge } = pkce();
  const { redirect } = await authorize(backend(), { clientId: client.client_id, challenge, redirectUri: 'http://127.0.0.1:43210/callback' });
  assert.equal(redirect.origin + redirect.pathname, 'http://127.0.0.1:43210/callback');
  assert.ok(redirect.searchParams.get('code'));
});

test('Deny sends the browser back with access_denied and the state', async () => {
  const { body: client } = await register(backend());
  const { redirect } = await authorize(backend(), { clientId: client.client_id, challenge: pkce().challenge, state: 'keep-me', decision: 'deny' });
  assert.equal(redirect.searchParams.get('error'), 'access_denied');
  assert.equal(redirect.searchParams.get('state'), 'keep-me');
  assert.equal(redirect.searchParams.get('code'), null);
});

test('the MCP routes refuse requests without a live token with 401 naming the resource metadata', async () => {
  const signedIn = await mcpSignIn(backend());
  const revoked = await mcpSignIn(backend());
  const revoke = await fetch(new URL('/revoke', backend().url), {
    method: 'POST',
    headers: { 'Content-Type': 'application/x-www-form-urlencoded' },
    body: new URLSearchParams({ token: revoked.access_token, client_id: revoked.clientId }).toString(),
  });
  assert.equal(revoke.status, 200);
  const cases = [
    ['no header', {}, /Missing Authorization header/],
    ['not bearer', { Authorization: `Basic ${signedIn.access_token}` }, /not "Bearer TOKEN"/],
    ['unknown token', bearer('x'.repeat(43)), /Unknown, revoked or expired/],
    ['refresh token in place of access token', bearer(signedIn.refresh_token), /Unknown, revoked or expired/],
    ['revoked token', bearer(revoked.access_token), /Unknown, revoked or expired/],
  ];
  for (const [what, headers, pattern] of cases) {
    for (const [method, target] of [['GET', '/mcp/sse'], ['POST', '/mcp/messages?sessionId=abc']]) {
      const res = await fetch(new URL(target, backend().url), { method, headers: { 'Content-Type': 'application/json', ...headers }, ...(method === 'POST' && { body: '{}' }) });
      assert.equal(res.status, 401, `${what} ${method}`);
      assert.match(await res.text(), pattern, `${what} ${method}`);
      const challenge = res.headers.get('www-authenticate');
      assert.match(challenge, /^Bearer error="invalid_token"/, what);
      assert.ok(challenge.includes(`resource_metadata="${backend().url}/.well-known/oauth-protected-resource/mcp/sse"`), challenge);
    }
  }
  assert.equal((await openStream(backend(), bearer(signedIn.access_token))).status, 200);
});

test('a refresh rotates: a new pair of the same grant, and the old refresh token is spent', async () => {
  const first = await mcpSignIn(backend());
  const refresh = (refreshToken, clientId = first.clientId) => token(backend(), { grant_type: 'refresh_token', refresh_token: refreshToken, client_id: clientId });
  const { status, body: second } = await refresh(first.refresh_token);
  assert.equal(status, 200, JSON.stringify(second));
  backend().issued.add(second.access_token).add(second.refresh_token);
  assert.notEqual(second.refresh_token, first.refresh_token);
  assert.notEqual(second.access_token, first.access_token);
  assert.equal((await openStream(backend(), bearer(second.access_token))).status, 200);

  const cases = [
    ['spent refresh token', first.refresh_token, first.clientId],
    ['another client', second.refresh_token, (await register(backend())).body.client_id],
    ['an access token', second.access_token, first.clientId],
  ];
  for (const [what, refreshToken, clientId] of cases) {
    const res = await refresh(refreshToken, clientId);
    assert.deepEqual([res.status, res.body.error], [400, 'invalid_grant'], what);
  }
});

test('tokens expire after --mcp-token-ttl and outlive a restart until then', async (t) => {
  const dbPath = path.join(tempDir(t), 'data', 'quillmoss.db');
  let server = await Backend.start(dbPath, ['--seed-demo', '--mcp-token-ttl', '2']);
  const tokens = await mcpSignIn(server);
  assert.equal(tokens.expires_in, 2);
  await server.stop();
  server = await Backend.start(dbPath, ['--mcp-token-ttl', '2']);
  t.after(() => server.child.exitCode === null && server.stop());
  assert.equal((await openStream(server, bearer(tokens.access_token))).status, 200);
  await new Promise((resolve) => setTimeout(resolve, 2100));
  assert.equal((await openStream(server, bearer(tokens.access_token))).status, 401);
  // The refresh token lives on, across the restart, and gives a working access token.
  const refreshed = await token(server, { grant_type: 'refresh_token', refresh_token: tokens.refresh_token, client_id: tokens.clientId });
  assert.equal(refreshed.status, 200, JSON.stringify(refreshed.body));
  assert.equal((await openStream(server, bearer(refreshed.body.access_token))).status, 200);
});

test('a token reads the calls of the account that signed in', async (t) => {
  const server = await startBackend(t, ['--seed-demo']);
  const other = await mcpSignIn(server, { email: 'nobody@example.com' });
  const client = new Client({ name: 'oauth-test', version: '1.0.0' });
  await client.connect(new SSEClientTransport(new URL('/mcp/sse', server.url), { requestInit: { headers: bearer(other.access_token) } }));
  try {
    const result = await client.callTool({ name: 'search_calls', arguments: { query: 'Helio' } });
    assert.equal(result.content[0].text, 'No calls match “Helio”.');
  } finally {
    await client.close();
  }
});
