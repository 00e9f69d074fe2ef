// The demo MCP server, driven as a remote MCP client drives it: the SDK's own client over the
// SSE transport against the real program with the demo account, signed in with a bearer token,
// and raw HTTP for what a client library would never send.
import assert from 'node:assert/strict';
import http from 'node:http';
import { test } from 'node:test';
import { Client } from '@modelcontextprotocol/sdk/client/index.js';
import { SSEClientTransport } from '@modelcontextprotocol/sdk/client/sse.js';
import { backendForFile, listCalls, startBackend } from './helpers/backend.js';
import { mcpSignIn } from './helpers/mcpOAuth.js';

const backend = backendForFile(['--seed-demo']);

// One sign-in per backend, as the demo account; a backend started with --mcp-open needs none.
const tokens = new WeakMap();
async function bearerFor(server) {
  if (!tokens.has(server)) tokens.set(server, (await mcpSignIn(server)).access_token);
  return { Authorization: `Bearer ${tokens.get(server)}` };
}

async function connect(server = backend(), { signIn = true } = {}) {
  const client = new Client({ name: 'mcp-test', version: '1.0.0' });
  const headers = signIn ? await bearerFor(server) : {};
  await client.connect(new SSEClientTransport(new URL('/mcp/sse', server.url), { requestInit: { headers } }));
  return client;
}

async function withClient(run, server, options) {
  const client = await connect(server, options);
  try {
    return await run(client);
  } finally {
    await client.close();
  }
}

const textOf = (result) => result.content.map((c) => c.text).join('\n');

// The demo account's calls by the word that starts their title, from GET /calls.
async function demoCallIds() {
  const { access_token: token } = await backend().login('demo@quillmoss.local');
  const calls = await listCalls(backend(), token);
  return Object.fromEntries(calls.map((c) => [c.summary.content.split(' ')[0].toLowerCase(), c.id]));
}

/** Opens the event stream by hand: the endpoint it names, and a way to hang up. */
async function openStream() {
  const headers = await bearerFor(backend());
  return new Promise((resolve, reject) => {
    const req = http.get(new URL('/mcp/sse', backend().url), { agent: false, headers }, (res) => {
      let text = '';
      res.setEncoding('utf8');
      res.on('data', (chunk) => {
        text += chunk;
        const endpoint = /^event: endpoint\ndata: (\S+)\n\n/m.exec(text)?.[1];
        if (endpoint) resolve({ res, endpoint, hangUp: () => req.destroy() });
      });
    });
    req.on('error', reject);
  });
}

const INITIALIZE = { jsonrpc: '2.0', id: 1, method: 'initialize', params: { protocolVersion: '2024-11-05', capabilities: {}, clientInfo: { name: 'raw', version: '1' } } };
const post = async (target, body, headers = { 'Content-Type': 'application/json' }) =>
  backend().request('POST', target, { headers: { ...(await bearerFor(backend())), ...headers }, body: typeof body === 'string' ? body : JSON.stringify(body) });

test('the server names itself and lists its three tools with their input schemas', async () => {
  await withClient(async (client) => {
    assert.equal(client.getServerVersion().name, 'quillmoss-demo');
    assert.match(client.getServerVersion().version, /^\d+\.\d+\.\d+$/);
    const { tools } = await client.listTools();
    const shapes = tools.map(({ name, inputSchema: s }) => [name, s.type, Object.fromEntries(Object.entries(s.properties).map(([k, v]) => [k, v.type])), s.required ?? []]);
    assert.deepEqual(shapes, [
      ['search_calls', 'object', { query: 'string', limit: 'integer' }, ['query']],
      ['get_call_summary', 'object', { call_id: 'string' }, ['call_id']],
      ['list_action_items', 'object', { call_id: 'string', limit: 'integer' }, []],
    ]);
    for (const tool of tools) assert.ok(tool.description.length > 20, tool.name);
  });
});

test('each tool answers from the demo account\'s calls in readable text', async () => {
  const ids = await demoCallIds();
  const cases = [
    ['search by a summary word', 'search_calls', { query: 'Helio' }, [/^1 call matches “Helio”:/, new RegExp(`^1\\. Pricing negotiation with Helio Health \\(\\d{4}-\\d\\d-\\d\\d, id ${ids.pricing}\\)$`, 'm')]],
    ['search finds plurals and transcript words, best match first', 'search_calls', { query: 'SOC 2 reports' }, [/^1\. Product demo for Lena Fischer/m, /“.*SOC 2.*”/]],
    ['search with a limit', 'search_calls', { query: 'send the quote', limit: 1 }, [/calls match “send the quote” \(showing 1\):/, /^1\. /m], [/^2\. /m]],
    ['search without a hit', 'search_calls', { query: 'zeppelin' }, [/^No calls match “zeppelin”\.$/]],
    ['summary by id', 'get_call_summary', { call_id: ids.renewal }, [/^Renewal call from Grace Okafor\n\d{4}-\d\d-\d\d · 22:12 · completed\n\nOverview\nRenewal call/, /\n\nKey points\n- Forecast error dropped/, /\n\nAction items\n- Turn on alert thresholds for Brightline managers \(Demo Seller, This week, high priority\)/]],
    ['summary by a shortened id', 'get_call_summary', { call_id: ` ${ids.cold.slice(0, 8).toUpperCase()} ` }, [/^Cold call to Daniel Kim\n.*· failed/, /Spending freeze until next quarter/]],
    ['action items of one call', 'list_action_items', { call_id: ids.discovery }, [/^Action items from Discovery call with Northwind Logistics \(.*\):\n- Send the Salesforce field-mapping guide to Marcus \(Demo Seller, Tomorrow, high priority\)/]],
    ['action items of the latest calls, newest first', 'list_action_items', {}, [/^Action items from the 5 latest calls:\n\nDiscovery call[^]*Pricing negotiation[^]*Cold call[^]*Renewal call[^]*Product demo/]],
    ['action items of the latest two', 'list_action_items', { limit: 2 }, [/^Action items from the 2 latest calls:/, /Pricing negotiation/], [/Cold call/]],
  ];
  await withClient(async (client) => {
    for (const [what, name, args, expected, absent = []] of cases) {
      const result = await client.callTool({ name, arguments: args });
      const text = textOf(result);
      assert.ok(!result.isError, `${what}: ${text}`);
      for (const pattern of expected) assert.match(text, pattern, what);
      for (const pattern of absent) assert.doesNotMatch(text, pattern, what);
    }
  });
});

test('unknown ids and bad arguments are error results that say what is wrong', async () => {
  const cases = [
    ['unknown call id', 'get_call_summary', { call_id: 'no-such-call' }, /^No call has the id “no-such-call”\. Use search_calls/],
    ['unknown id for action items', 'list_action_items', { call_id: '00000000' }, /^No call has the id “00000000”/],
    ['too short to stand for an id', 'get_call_summary', { call_id: 'a' }, /^No call has the id “a”/],
    ['missing call id', 'get_call_summary', {}, /Invalid arguments for tool get_call_summary.*call_id/],
    ['blank query', 'search_calls', { query: '   ' }, /Invalid arguments for tool search_calls.*query/],
    ['query of punctuation alone', 'search_calls', { query: '?!' }, /^The query has no words to search for\.$/],
    ['limit out of range', 'search_calls', { query: 'pricing', limit: 0 }, /Invalid arguments for tool search_calls.*limit/],
    ['limit of the wrong type', 'list_action_items', { limit: 'all' }, /Invalid arguments for tool list_action_items.*limit/],
    ['unknown tool', 'delete_calls', {}, /Tool delete_calls not found/],
  ];
  await withClient(async (client) => {
    for (const [what, name, args, pattern] of cases) {
      const result = await client.callTool({ name, arguments: args });
      assert.equal(result.isError, true, what);
      assert.match(textOf(result), pattern, what);
    }
  });
});

test('posts to no open session are refused in plain text; a good one is accepted with 202', async () => {
  const stream = await openStream();
  try {
    assert.match(stream.endpoint, /^\/mcp\/messages\?sessionId=[\w-]+$/);
    const cases = [
      ['unknown session', '/mcp/messages?sessionId=nope', INITIALIZE, 404, /^No MCP session nope: it has ended or never existed\. Open \/mcp\/sse again\.$/],
      ['no session id', '/mcp/messages', INITIALIZE, 400, /sessionId query parameter is missing/],
      ['body over the limit', stream.endpoint, 'x'.repeat(70 * 1024), 413, /larger than 65536 bytes/],
      ['not JSON', stream.endpoint, '{"jsonrpc"', 400, /not valid JSON/],
      ['not a JSON-RPC message', stream.endpoint, { hello: 'world' }, 400, /not a JSON-RPC 2\.0 request/],
      ['the first message', stream.endpoint, INITIALIZE, 202, /Accepted/],
    ];
    for (const [what, target, body, status, pattern] of cases) {
      const res = await post(target, body);
      assert.equal(res.status, status, `${what}: ${res.status} ${res.text}`);
      assert.match(res.text, pattern, `${what}: ${res.text}`);
      if (status !== 202) assert.match(res.headers['content-type'], /^text\/plain/, what);
    }
    const wrongType = await post(stream.endpoint, INITIALIZE, { 'Content-Type': 'text/plain' });
    assert.equal(wrongType.status, 415, wrongType.text);
  } finally {
    stream.hangUp();
  }
});

test('a session ends with its stream: its endpoint is then unknown', async () => {
  const stream = await openStream();
  assert.equal((await post(stream.endpoint, INITIALIZE)).status, 202);
  stream.hangUp();
  let status;
  for (let i = 0; i < 50 && status !== 404; i += 1) {
    await new Promise((resolve) => setTimeout(resolve, 20));
    status = (await post(stream.endpoint, INITIALIZE)).status;
  }
  assert.equal(status, 404);
});

test('two clients at once each get the answers to their own questions', async () => {
  const [first, second] = await Promise.all([connect(), connect()]);
  try {
    const asks = [
      [first, 'search_calls', { query: 'Helio' }, /Pricing negotiation with Helio Health/],
      [second, 'search_calls', { query: 'Brightline' }, /Renewal call from Grace Okafor/],
      [first, 'list_action_items', { limit: 1 }, /^Action items from the latest call:\n\nDiscovery call/],
      [second, 'search_calls', { query: 'HubSpot' }, /Product demo for Lena Fischer/],
    ];
    const results = await Promise.all(asks.map(([client, name, args]) => client.callTool({ name, arguments: args })));
    results.forEach((result, i) => assert.match(textOf(result), asks[i][3]));
    await first.close();
    // One client leaving does not end the other's session.
    assert.match(textOf(await second.callTool({ name: 'search_calls', arguments: { query: 'Northwind' } })), /Discovery call with Northwind Logistics/);
  } finally {
    await Promise.all([first.close(), second.close()]);
  }
});

test('open without sign-in and without the demo account, the tools say how to create it', async (t) => {
  const bare = await startBackend(t, ['--mcp-open']);
  await withClient(async (client) => {
    const result = await client.callTool({ name: 'search_calls', arguments: { query: 'pricing' } });
    assert.equal(result.isError, true);
    assert.match(textOf(result), /no demo account here \(demo@quillmoss\.local\): start the backend with --seed-demo/);
  }, bare, { signIn: false });
});

test('an open stream does not hold up a shutdown', async (t) => {
  const server = await startBackend(t, ['--seed-demo']);
  const client = await connect(server);
  try {
    const started = Date.now();
    await server.stop();
    // The connections that are left are cut only after five seconds.
    assert.ok(Date.now() - started < 4000, `stopping took ${Date.now() - started} ms`);
  } finally {
    await client.close();
  }
});
