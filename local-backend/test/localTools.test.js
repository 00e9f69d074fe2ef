// The clients' tool configurations: how one is read, what a connection keeps of it, and the
// GET /live/tools read-out of the real program.
import assert from 'node:assert/strict';
import { test } from 'node:test';
import { parseToolConfig, requiredParameters } from '../src/localTools.js';
import { PayloadError } from '../src/payload.js';
import { assertError, backendForFile, say, startSession } from './helpers/backend.js';

const backend = backendForFile();
const ISO = /^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z$/;

let users = 0;
async function newUser() {
  users += 1;
  return (await backend().login(`tools${users}@example.com`, 'Jordan Blake')).access_token;
}

// A built-in tool as the client describes it, and a tool of a remote server.
const BRAVE = {
  name: 'brave_web_search',
  description: 'Search the web for current information.',
  parameters: {
    type: 'object',
    properties: { query: { type: 'string', description: 'The search query' }, count: { type: 'integer', minimum: 1, maximum: 20, default: 10 } },
    required: ['query'],
    additionalProperties: false,
  },
};
const REMOTE = {
  name: 'mcp_kb_lookup',
  displayName: 'Knowledge base lookup',
  description: 'Looks a question up in the team knowledge base.',
  parameters: { type: 'object', properties: { limit: { type: 'integer' }, question: { type: ['string', 'null'] } }, required: ['limit', 'question'] },
};
const documentOf = (localTools, enabledTools) => ({ executionMode: 'local', localTools, enabledTools });

async function liveTools(token) {
  const res = await backend().request('GET', '/live/tools', { token });
  assert.equal(res.status, 200, res.text);
  return res.json.sessions;
}

test('a configuration keeps each tool definition once, in order, and only what describes it', () => {
  const many = Array.from({ length: 250 }, (_, i) => ({ name: `tool_${i}` }));
  for (const [name, value, expected] of [
    ['none given', undefined, null],
    ['the client document', JSON.stringify(documentOf([BRAVE, REMOTE], ['brave_web_search', 'mcp_kb_lookup'])), documentOf([BRAVE, REMOTE], ['brave_web_search', 'mcp_kb_lookup'])],
    [
      'names, wrapped functions, stray values',
      { localTools: ['web_search', { function: { name: 'send_email', description: 'Sends', parameters: { type: 'object' } } }, 5, null, [], { name: 7 }, { name: ' web_search ', description: 'again' }], enabledTools: ['send_email', { name: 'web_search' }, 3] },
      { executionMode: null, localTools: [{ name: 'web_search' }, { name: 'send_email', description: 'Sends', parameters: { type: 'object' } }], enabledTools: ['send_email', 'web_search'] },
    ],
    [
      'describing keys of the wrong type',
      { executionMode: 1, localTools: [{ name: 'a', description: ['x'], displayName: ' ', parameters: '{"type": "object"}', extra: true }] },
      { executionMode: null, localTools: [{ name: 'a' }], enabledTools: ['a'] },
    ],
    ['no enabled list: the tools not switched off', { localTools: [{ name: 'a', enabled: false }, { name: 'b' }] }, { executionMode: null, localTools: [{ name: 'a' }, { name: 'b' }], enabledTools: ['b'] }],
    ['long lists cut to the first 200', { localTools: many, enabledTools: many.map((t) => t.name) }, { executionMode: null, localTools: many.slice(0, 200), enabledTools: many.slice(0, 200).map((t) => t.name) }],
    ['long texts cut', { localTools: [{ name: 'n'.repeat(300), description: 'd'.repeat(5000) }], enabledTools: [] }, { executionMode: null, localTools: [{ name: 'n'.repeat(200), description: 'd'.repeat(4000) }], enabledTools: [] }],
  ]) {
    assert.deepEqual(parseToolConfig(value, 'it'), expected, name);
  }
});

test('a configuration that is no object with lists is refused', () => {
  for (const [value, message] of [
    ['{"localTools": [', /is not valid JSON text/],
    ['["web_search"]', /must hold a JSON object/],
    [7, /must hold a JSON object/],
    [{ localTools: 'web_search' }, /"localTools" in it must be a list/],
    [{ enabledTools: { web_search: true } }, /"enabledTools" in it must be a list/],
    [`${'['.repeat(40)}${']'.repeat(40)}`, /nested more than 32 levels/],
    [JSON.stringify({ localTools: Array.from({ length: 60_000 }, () => 1) }), /more than 50000 values/],
  ]) {
    assert.throws(() => parseToolConfig(value, 'it'), (error) => error instanceof PayloadError && message.test(error.message), String(value).slice(0, 40));
  }
});

test('the required parameters of a defined tool, in order, with their types', () => {
  const definitions = [BRAVE, REMOTE, { name: 'bare' }, { name: 'odd', parameters: { required: ['a', 4, 'a', 'b'], properties: { a: 'string', b: { type: 'boolean' } } } }];
  for (const [name, expected] of [
    ['brave_web_search', [{ name: 'query', type: 'string' }]],
    ['mcp_kb_lookup', [{ name: 'limit', type: 'integer' }, { name: 'question', type: 'string' }]],
    ['odd', [{ name: 'a', type: undefined }, { name: 'b', type: 'boolean' }]],
    ['bare', null],
    ['unknown', null],
  ]) {
    assert.deepEqual(requiredParameters(definitions, name), expected, name);
  }
});

test('a connection keeps the last configuration its client sent, and the assistant fills arguments by it', async () => {
  const token = await newUser();
  const { client, initialized } = await startSession(backend(), token, { localTools: documentOf([BRAVE, REMOTE], ['mcp_kb_lookup']) });
  assert.deepEqual([initialized.enabledTools, initialized.availableTools], [['mcp_kb_lookup'], ['brave_web_search', 'mcp_kb_lookup']]);

  let [kept] = await liveTools(token);
  assert.deepEqual(kept.document, documentOf([BRAVE, REMOTE], ['mcp_kb_lookup']));
  assert.deepEqual([kept.callId, kept.updatedBy], [initialized.callId, 'initializeSession']);
  assert.match(kept.updatedAt, ISO);

  // The remote search tool asks for "question", its first required string.
  client.emit('chatMessage', { message: 'Search for Cobalt Routing pricing', type: 'user', timestamp: new Date().toISOString() });
  const [call] = (await client.next('chatResponse')).toolCalls;
  assert.deepEqual([call.name, call.parameters], ['mcp_kb_lookup', { question: 'Cobalt Routing pricing' }]);
  // So do agent mode's suggestions.
  await say(client, 'Ken Okafor', 'We looked at Cobalt Routing last year, but the integration was a nightmare.');
  const mode = await client.request('updateAgentMode', { enabled: true, suggestionIntervalMs: 1000, timestamp: new Date().toISOString() }, 'agentModeUpdated');
  assert.equal(mode.success, true);
  const { suggestions } = await client.next('agentSuggestions');
  assert.deepEqual(suggestions.map((s) => [s.name, s.parameters]), [['mcp_kb_lookup', { question: 'Cobalt Routing company overview' }]]);
  client.emit('updateAgentMode', { enabled: false, timestamp: new Date().toISOString() });
  await client.next('agentModeUpdated');

  const status = await client.request('update_local_tools', documentOf([{ ...BRAVE, displayName: 'Brave' }], ['brave_web_search']), 'status');
  assert.deepEqual(status, { status: 'Local tools updated', enabledTools: ['brave_web_search'], availableTools: ['brave_web_search'] });
  [kept] = await liveTools(token);
  assert.deepEqual([kept.updatedBy, kept.document], ['update_local_tools', documentOf([{ ...BRAVE, displayName: 'Brave' }], ['brave_web_search'])]);

  // A refused update leaves the kept configuration as it was.
  for (const [payload, message] of [
    [{ localTools: 'brave_web_search' }, /is not valid JSON text/],
    [{ enabledTools: 5 }, /"enabledTools" in the local tool configuration must be a list/],
  ]) {
    assert.match((await client.request('update_local_tools', payload, 'error')).message, message);
  }
  assert.deepEqual((await liveTools(token))[0], kept);

  // Starting again without a configuration keeps none; the lists are empty again.
  const again = await client.request('initializeSession', { direction: 'outbound', timestamp: new Date().toISOString() }, 'sessionInitialized');
  assert.deepEqual([again.enabledTools, again.availableTools], [[], []]);
  [kept] = await liveTools(token);
  assert.deepEqual([kept.updatedBy, kept.document], ['initializeSession', null]);
  client.close();
});

test('hostile configurations get the usual answers and leave the connection working', async () => {
  const token = await newUser();
  const { client } = await startSession(backend(), token, { localTools: documentOf([BRAVE], ['brave_web_search']) });
  const names = Array.from({ length: 5000 }, (_, i) => `t${i}`);
  const schemas = names.slice(0, 3000).map((name) => ({ name, parameters: { type: 'object', properties: { q: { type: 'string' } }, required: ['q'] } }));
  const start = (localTools) => ({ direction: 'outbound', timestamp: new Date().toISOString(), localTools });
  for (const [name, event, payload, answer, check] of [
    ['not JSON', 'initializeSession', start('{"localTools": [1, 2'), 'sessionError', /"localTools" is not valid JSON text/],
    ['a list of tools as text', 'initializeSession', start('"brave_web_search"'), 'sessionError', /must hold a JSON object/],
    ['tools as an object', 'initializeSession', start(JSON.stringify({ localTools: { brave_web_search: {} } })), 'sessionError', /must be a list/],
    ['nested beyond bounds', 'initializeSession', start(JSON.stringify({ localTools: [{ name: 'deep', parameters: JSON.parse(`${'{"a":'.repeat(40)}1${'}'.repeat(40)}`) }] })), 'sessionError', /nested more than 32 levels/],
    ['a text over 100 KB', 'initializeSession', start(JSON.stringify({ localTools: [{ name: 'big', description: 'x'.repeat(110 * 1024) }] })), 'sessionError', /larger than 100 KB/],
    ['a huge list', 'initializeSession', start(JSON.stringify({ localTools: names, enabledTools: names })), 'sessionInitialized', (a) => a.availableTools.length === 200 && a.enabledTools.length === 200],
    ['a huge update', 'update_local_tools', { localTools: schemas, enabledTools: ['t1'] }, 'status', (a) => a.availableTools.length === 200 && a.enabledTools[0] === 't1'],
    ['no lists at all', 'update_local_tools', { executionMode: ['local'] }, 'status', (a) => a.availableTools.length === 0],
  ]) {
    const answered = await client.request(event, payload, answer);
    if (check instanceof RegExp) assert.match(answered.message, check, name);
    else assert.ok(check(answered), name);
  }
  const [kept] = await liveTools(token);
  assert.deepEqual(kept.document, { executionMode: null, localTools: [], enabledTools: [] });
  const status = await client.request('getAgentModeStatus', {}, 'agentModeStatus');
  assert.equal(status.success, true);
  client.close();
});

test('/live/tools needs a signed-in user and lists only that user\'s connections, oldest first', async () => {
  for (const token of [undefined, 'bm90LWEtdG9rZW4']) assertError(await backend().request('GET', '/live/tools', { token }), 401);
  assertError(await backend().request('POST', '/live/tools', { token: await newUser() }), 405);

  const [mine, theirs] = [await newUser(), await newUser()];
  const first = await startSession(backend(), mine, { localTools: documentOf([BRAVE], ['brave_web_search']) });
  const other = await startSession(backend(), theirs, { localTools: documentOf([REMOTE], ['mcp_kb_lookup']) });
  // Connected, not started yet: nothing kept so far.
  const idle = await backend().connect(mine);
  await idle.next('connected');

  let sessions = await liveTools(mine);
  assert.deepEqual(sessions.map((s) => Object.keys(s).sort()), [['callId', 'document', 'updatedAt', 'updatedBy'], ['callId', 'document', 'updatedAt', 'updatedBy']]);
  assert.deepEqual(sessions.map((s) => [s.callId, s.updatedBy, s.document?.enabledTools]), [
    [first.initialized.callId, 'initializeSession', ['brave_web_search']],
    [null, null, undefined],
  ]);
  assert.deepEqual(sessions[1], { callId: null, updatedBy: null, updatedAt: null, document: null });
  assert.deepEqual((await liveTools(theirs)).map((s) => s.callId), [other.initialized.callId]);

  // A connection that has gone is not listed.
  first.client.close();
  await first.client.closed;
  for (let tries = 0; tries < 50 && (sessions = await liveTools(mine)).length > 1; tries += 1) await new Promise((r) => setTimeout(r, 20));
  assert.deepEqual(sessions.map((s) => s.updatedBy), [null]);
  idle.close();
  other.client.close();
});
