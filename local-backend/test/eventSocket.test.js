// The event socket of the real program, through socket.io-client as the desktop client uses it.
import assert from 'node:assert/strict';
import { test } from 'node:test';
import { setTimeout as sleep } from 'node:timers/promises';
import { io } from 'socket.io-client';
import { EventClient, backendForFile, listCalls, say, startBackend, startSession } from './helpers/backend.js';
import { SALES_CALL } from './fixtures/salesCall.js';
import { BRAVE_WEB_SEARCH, NOTION_CREATE_PAGE } from './fixtures/clientTools.js';
import { blockTexts } from '../src/assistantTools.js';

const backend = backendForFile();
const ISO = /^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z$/;

let users = 0;
/** A user of its own for each test, so that tests sharing the backend cannot see each other's calls. */
async function newUser(name = 'Jordan Blake') {
  users += 1;
  return (await backend().login(`seller${users}@example.com`, name)).access_token;
}

function assertSummaryShape(enhanced, callId) {
  assert.equal(enhanced.callId, callId);
  assert.match(enhanced.timestamp, ISO);
  assert.ok(Number.isInteger(enhanced.processedSegments));
  const { summary } = enhanced;
  assert.deepEqual(Object.keys(summary).sort(), ['actionItems', 'confidence', 'duration', 'keyPoints', 'overview', 'sentiment', 'speakers', 'topics']);
  assert.equal(typeof summary.overview, 'string');
  assert.match(summary.duration, /^\d+:\d\d$/);
  assert.ok(summary.confidence >= 0 && summary.confidence <= 1);
  assert.ok(['positive', 'neutral', 'negative'].includes(summary.sentiment.overall));
  assert.ok(summary.sentiment.score >= -1 && summary.sentiment.score <= 1);
}

test('the socket refuses a missing, unknown or expired token; a connection outlives its token', async (t) => {
  const short = await startBackend(t, ['--token-ttl', '1']);
  const { access_token: token, refresh_token: refresh } = await short.login('ttl@example.com');
  const early = await short.connect(token);
  await early.next('connected');

  for (const [name, bad] of [['missing', undefined], ['empty', ''], ['unknown', 'bm90LWEtdG9rZW4'], ['a refresh token', refresh], ['not a token', 'a b/c']]) {
    await assert.rejects(short.connect(bad), (error) => /unauthorized|token/i.test(error.message), name);
  }
  const root = new EventClient(short.url, token);
  root.socket.disconnect();
  const plain = io(short.url, { transports: ['websocket'], query: { token }, reconnection: false, forceNew: true });
  const refused = await new Promise((resolve) => plain.once('connect_error', resolve));
  plain.disconnect();
  assert.match(refused.message, /namespace/);

  await sleep(1100);
  await assert.rejects(short.connect(token), /unauthorized: invalid or expired token/);
  const status = await early.request('getAgentModeStatus', { timestamp: new Date().toISOString() }, 'agentModeStatus');
  assert.deepEqual(status, { success: true, enabled: false, suggestionIntervalMs: 30000, message: 'Agent mode is off' });
  await short.stop();
  assert.match(short.stderr, /event socket: connection refused \(no token\)/);
});

test('a session starts with the tools of its configuration; a malformed start is refused', async () => {
  const token = await newUser();
  const client = await backend().connect(token);
  const connected = await client.next('connected');
  assert.equal(connected.message, 'Connected to Quillmoss');
  assert.match(connected.timestamp, ISO);

  // Before a session there is no call to add to or chat about.
  client.emit('clientTranscription', { text: 'hello', isPartial: false, timestamp: new Date().toISOString() });
  assert.match((await client.next('error')).message, /initializeSession/);
  client.emit('chatMessage', { message: 'hi', type: 'user', timestamp: new Date().toISOString() });
  assert.match((await client.next('chatError')).message, /initializeSession/);

  for (const [name, payload, message] of [
    ['a string', 'outbound', /one JSON object/],
    ['a list', [{ direction: 'outbound' }], /one JSON object/],
    ['no direction', { timestamp: 'x' }, /direction/],
    ['unknown direction', { direction: 'sideways' }, /"direction" must be "outbound" or "inbound"/],
    ['localTools not JSON', { direction: 'outbound', localTools: '{"localTools": [' }, /"localTools" is not valid JSON text/],
    ['localTools JSON but no object', { direction: 'outbound', localTools: '["web_search"]' }, /must hold a JSON object/],
    ['tool list not a list', { direction: 'inbound', localTools: '{"localTools": "web_search"}' }, /must be a list/],
    ['localTools a number', { direction: 'inbound', localTools: 7 }, /must hold a JSON object/],
  ]) {
    client.emit('initializeSession', payload);
    assert.match((await client.next('sessionError')).message, message, name);
  }

  const tools = (localTools) => ({ direction: 'outbound', timestamp: new Date().toISOString(), localTools });
  let callId;
  for (const [name, localTools, enabledTools, availableTools] of [
    ['absent', undefined, [], []],
    ['objects and names', JSON.stringify({ executionMode: 'local', localTools: [{ name: 'web_search', description: 'Search' }, 'send_email', { name: 'notion_create_page' }], enabledTools: ['web_search', { name: 'notion_create_page' }] }), ['web_search', 'notion_create_page'], ['web_search', 'send_email', 'notion_create_page']],
    ['enabled flags, no enabled list', JSON.stringify({ localTools: [{ name: 'a', enabled: false }, { function: { name: 'b' } }, { name: '  ' }, 5] }), ['b'], ['a', 'b']],
    ['given as an object', { localTools: ['x'], enabledTools: ['x', 'x'] }, ['x'], ['x']],
  ]) {
    const initialized = await client.request('initializeSession', tools(localTools), 'sessionInitialized');
    assert.deepEqual([initialized.enabledTools, initialized.availableTools], [enabledTools, availableTools], name);
    assert.match(initialized.timestamp, ISO);
    // Initializing again on one connection continues its call.
    callId ??= initialized.callId;
    assert.equal(initialized.callId, callId, name);
  }

  const updated = await client.request('update_local_tools', { localTools: [{ name: 'gmail_send' }], enabledTools: ['gmail_send'] }, 'status');
  assert.deepEqual(updated, { status: 'Local tools updated', enabledTools: ['gmail_send'], availableTools: ['gmail_send'] });
  client.emit('update_local_tools', { localTools: 5 });
  assert.match((await client.next('error')).message, /must be a list/);
  client.close();
});

test('transcription: each piece is answered, stored as it comes, and summarized every third piece', async () => {
  const token = await newUser();
  const { client, initialized } = await startSession(backend(), token);
  const { callId } = initialized;

  const first = await say(client, undefined, '  Thanks for joining. How does your team plan routes today?  ', { confidence: 0.8 });
  assert.deepEqual({ ...first, timestamp: 'T' }, {
    success: true,
    text: '  Thanks for joining. How does your team plan routes today?  ',
    speaker: 'Unknown',
    timestamp: 'T',
    processedSegments: 1,
    segments: [],
  });

  // A partial piece is answered but neither stored nor counted.
  client.emit('clientTranscription', { text: 'We plan rou', speaker: 'Sofia Martinez', isPartial: true, timestamp: new Date().toISOString() });
  const partial = await client.next('clientTranscriptionProcessed');
  assert.equal(partial.processedSegments, 0);
  assert.deepEqual(partial.segments, [{ speaker: 'Sofia Martinez', text: 'We plan rou', isPartial: true }]);
  const received = await client.next('transcriptionReceived');
  assert.deepEqual([received.success, received.processed], [true, true]);
  assertSummaryShape(received.summary, callId);
  assert.equal(received.summary.processedSegments, 1);

  const second = await say(client, 'Sofia Martinez', 'We plan routes in spreadsheets every morning.');
  assert.deepEqual(second.segments, [{ speaker: 'Sofia Martinez', text: 'We plan routes in spreadsheets every morning.', isPartial: false }]);
  assert.deepEqual(client.drain('accumulated_summary'), [], 'no summary after two pieces');

  // A piece the client split by speaker: only the attributed part is echoed.
  const third = await say(client, undefined, 'It takes three hours. That is far too slow.', {
    segments: [{ text: 'It takes three hours.', speaker: 'Ken Okafor' }, { text: 'That is far too slow.' }],
  });
  assert.equal(third.processedSegments, 2);
  assert.deepEqual(third.segments, [{ speaker: 'Ken Okafor', text: 'It takes three hours.', isPartial: false }]);
  const accumulated = await client.next('accumulated_summary');
  assertSummaryShape(accumulated, callId);
  assert.equal(accumulated.processedSegments, 4);
  assert.deepEqual(accumulated.summary.speakers.map((s) => s.name), ['Sofia Martinez', 'Ken Okafor']);

  // Stored as it goes: the call is listed, still active, with what was said so far.
  const [call] = await listCalls(backend(), token);
  assert.deepEqual([call.id, call.status], [callId, 'active']);
  assert.deepEqual(call.transcription.segments.map((s) => s.speaker), ['Unknown', 'Sofia Martinez', 'Ken Okafor', 'Unknown']);
  assert.equal(call.transcription.segments[0].text, 'Thanks for joining. How does your team plan routes today?');
  assert.ok(!('summary' in call), 'a summary is listed once the call has ended');

  // A long piece brings a summary on its own.
  await say(client, 'Sofia Martinez', `${'We move twelve hundred orders a day across four warehouses. '.repeat(12)}`);
  assert.equal((await client.next('accumulated_summary')).processedSegments, 5);
  client.close();
});

test('malformed and oversized payloads get an error and leave the server running', async () => {
  const token = await newUser();
  const { client } = await startSession(backend(), token);
  let deep = { text: 'x' };
  for (let i = 0; i < 100; i++) deep = { nested: deep };
  const big = 'x'.repeat(100 * 1024 + 1);

  for (const [name, args, event, message] of [
    ['unknown event', ['launchRockets', {}], 'error', /unknown event "launchRockets"/],
    ['an object method for a name', ['toString', {}], 'error', /unknown event "toString"/],
    ['a prototype for a name', ['__proto__', {}], 'error', /unknown event "__proto__"/],
    ['a number for a name', [42, {}], 'error', /unknown event "42"/],
    ['an error for a name', ['error', {}], 'error', /unknown event "error"/],
    ['no payload', ['clientTranscription'], 'error', /exactly one JSON object/],
    ['two payloads', ['clientTranscription', { text: 'a' }, { text: 'b' }], 'error', /exactly one JSON object/],
    ['a list', ['clientTranscription', ['a']], 'error', /exactly one JSON object/],
    ['null', ['transcriptionSummary', null], 'error', /exactly one JSON object/],
    ['binary', ['clientTranscription', Buffer.from('abc')], 'error', /exactly one JSON object/],
    ['text a number', ['clientTranscription', { text: 5, isPartial: false }], 'error', /"text" must be a string/],
    ['no text', ['clientTranscription', { isPartial: false }], 'error', /"text" is required/],
    ['isPartial a string', ['clientTranscription', { text: 'a', isPartial: 'no' }], 'error', /"isPartial" must be true or false/],
    ['confidence above 1', ['clientTranscription', { text: 'a', isPartial: false, confidence: 2 }], 'error', /"confidence" must be from 0 to 1/],
    ['segments not objects', ['clientTranscription', { text: 'a', isPartial: false, segments: ['a'] }], 'error', /segments\[0\] must be an object/],
    ['a string over 100 KB', ['clientTranscription', { text: big, isPartial: false }], 'error', /larger than 100 KB/],
    ['nested 100 deep', ['transcriptionSummary', deep], 'error', /nested more than 32 levels/],
    ['too many values', ['transcriptionSummary', { items: new Array(60_000).fill(0) }], 'error', /more than 50000 values/],
    ['chat message not a string', ['chatMessage', { message: { text: 'hi' } }], 'chatError', /"message" must be a string/],
    ['chat message blank', ['chatMessage', { message: '   ' }], 'chatError', /must not be empty/],
    ['history limit 0', ['getChatHistory', { limit: 0 }], 'chatError', /"limit" must be from 1 to 1000/],
    ['history offset negative', ['getChatHistory', { offset: -1 }], 'chatError', /"offset" must not be negative/],
  ]) {
    client.emit(...args);
    assert.match((await client.next(event)).message, message, name);
  }
  // Nothing of that was stored.
  assert.equal((await listCalls(backend(), token))[0].transcription, undefined);

  // A message beyond what the socket takes at all closes that connection only.
  const other = await startSession(backend(), await newUser());
  client.emit('clientTranscription', { text: 'x'.repeat(1024 * 1024 + 10), isPartial: false });
  assert.match(String(await client.closed), /transport close/);
  const status = await other.client.request('getAgentModeStatus', {}, 'agentModeStatus');
  assert.equal(status.success, true);
  assert.equal((await backend().request('GET', '/login')).status, 200);
  other.client.close();
  assert.match(backend().stderr, /event socket: "launchRockets" refused: unknown event "launchRockets"/);
});

test('agent mode suggests the enabled tools for what is said, and stops when switched off', async () => {
  const token = await newUser();
  const { client } = await startSession(backend(), token, { localTools: { localTools: ['brave_search', 'gmail_send_email', 'notion_search'], enabledTools: ['brave_search', 'gmail_send_email'] } });

  for (const [name, payload] of [
    ['interval too short', { enabled: true, suggestionIntervalMs: 999 }],
    ['interval too long', { enabled: true, suggestionIntervalMs: 600_001 }],
    ['interval not whole', { enabled: true, suggestionIntervalMs: 1500.5 }],
    ['interval a string', { enabled: true, suggestionIntervalMs: '1000' }],
    ['enabled not a boolean', { enabled: 'yes', suggestionIntervalMs: 1000 }],
  ]) {
    const answer = await client.request('updateAgentMode', { ...payload, timestamp: new Date().toISOString() }, 'agentModeUpdated');
    assert.equal(answer.success, false, name);
    assert.match(answer.message, /suggestionIntervalMs|enabled/, name);
  }
  assert.equal((await client.request('getAgentModeStatus', {}, 'agentModeStatus')).enabled, false, 'refused changes change nothing');

  const on = await client.request('updateAgentMode', { enabled: true, suggestionIntervalMs: 1000, timestamp: new Date().toISOString() }, 'agentModeUpdated');
  assert.deepEqual([on.success, on.enabled, on.suggestionIntervalMs], [true, true, 1000]);
  await say(client, 'Sofia Martinez', 'We are also evaluating Cobalt Routing as an alternative.');
  await say(client, 'Jordan Blake', "I'll send you the pricing sheet tomorrow, Sofia.");
  await say(client, 'Jordan Blake', 'Let me take notes on this in Notion.');

  const { suggestions, timestamp } = await client.next('agentSuggestions', 3000);
  assert.match(timestamp, ISO);
  const byName = Object.fromEntries(suggestions.map((s) => [s.name, s]));
  assert.deepEqual(Object.keys(byName).sort(), ['brave_search', 'gmail_send_email'], 'only enabled tools');
  assert.match(byName.brave_search.parameters.query, /^Cobalt Routing /);
  assert.deepEqual(byName.gmail_send_email.parameters.to, 'Sofia Martinez');
  assert.match(byName.gmail_send_email.parameters.subject, /^The pricing sheet$/);
  for (const s of suggestions) {
    assert.ok(s.confidence > 0 && s.confidence <= 1 && typeof s.reason === 'string' && s.reason !== '');
  }

  const status = await client.request('getAgentModeStatus', { timestamp: new Date().toISOString() }, 'agentModeStatus');
  assert.deepEqual([status.success, status.enabled, status.suggestionIntervalMs], [true, true, 1000]);

  const off = await client.request('updateAgentMode', { enabled: false, timestamp: new Date().toISOString() }, 'agentModeUpdated');
  assert.deepEqual([off.success, off.enabled], [true, false]);
  client.drain('agentSuggestions');
  await say(client, 'Ken Okafor', 'We also use Northwind Dispatch for the trucks.');
  await sleep(1300);
  assert.deepEqual(client.drain('agentSuggestions'), [], 'no suggestions once agent mode is off');
  client.close();
});

test('chat answers from the call, asks approval for tools, reads tool results, and keeps its history', async () => {
  const token = await newUser();
  const tools = ['tavily_search', 'notion_create_page', 'resend_send_email'];
  const { client } = await startSession(backend(), token, { localTools: { localTools: tools, enabledTools: tools } });
  for (const [speaker, text] of SALES_CALL) await say(client, speaker, text);
  client.drain('accumulated_summary');

  const tool = (name, parameters) => ({ name, parameters });
  for (const [message, expected] of [
    ['Can you summarize the call so far?', { type: 'answer', content: /^\*\*Summary so far\*\*[\s\S]*\*\*Key points\*\*/ }],
    ['What are the next steps?', { type: 'answer', content: /Send the completed security questionnaire by Friday \(Jordan Blake, by Friday, medium priority\)/ }],
    ['What did Ken say?', { type: 'answer', content: /^\*\*What Ken Okafor said\*\*\n\n> / }],
    ['What did Priya say?', { type: 'answer', content: /No one called Priya has spoken/ }],
    ['Which topics came up?', { type: 'answer', content: /Warehouse system \(mentioned 3 times\)/ }],
    ['How is the call going, what is the sentiment?', { type: 'answer', content: /\*\*positive\*\*/ }],
    ['Search for Cobalt Routing pricing', { type: 'tool_request', toolCalls: [tool('tavily_search', { query: 'Cobalt Routing pricing' })] }],
    ['Please look them up', { type: 'tool_request', toolCalls: [tool('tavily_search', { query: 'Manhattan WMS' })] }],
    // A mail tool needs an address; a name from the call gets the draft and a question.
    ['Email Sofia a recap about the pilot', { type: 'answer', content: /^Here is a draft email for \*\*Sofia Martinez\*\*[\s\S]*Hi Sofia,\n\nThank you for your time today\.[\s\S]*Next steps:\n- Send the completed security questionnaire[\s\S]*I do not know Sofia Martinez's e-mail address/ }],
    ['Send an email to ken@brightline.example about the security questionnaire', { type: 'tool_request', toolCalls: [tool('resend_send_email', { to: 'ken@brightline.example', subject: 'The security questionnaire', text: /^Hi,/ })] }],
    [
      'Save the notes to Notion',
      { type: 'tool_request', toolCalls: [tool('notion_create_page', { title: /^Call notes: /, content_blocks: (blocks) => /^Overview\n[\s\S]*\nAction items\n/.test(blockTexts(blocks).join('\n')) })] },
    ],
    [
      'Here are the tool execution results: [{"name":"tavily_search","result":{"results":[{"title":"Cobalt Routing pricing","url":"https://example.com/cobalt","content":"Cobalt Routing charges 400 dollars per truck per year. Enterprise plans include a warehouse connector."}]}}]',
      { type: 'tool_result', content: /\*\*What the `tavily_search` results say\*\*[\s\S]*400 dollars per truck[\s\S]*\*\*Sources:\*\* \[1\]\(https:\/\/example\.com\/cobalt\)/ },
    ],
    ['Here are the tool execution results:\nweb_search: Brightline Logistics raised a Series C in May. The company now has 900 employees.', { type: 'tool_result', content: /Series C[\s\S]*\*\*Source:\*\* `web_search`/ }],
    ['Here are the tool execution results: {"name":"send_email","error":"SMTP server refused the login"}', { type: 'tool_result', content: /^The tool reported an error: SMTP server refused the login/ }],
    ['What is the weather on Mars?', { type: 'help', content: /could not find anything about that/ }],
    ['What did they say about the budget?', { type: 'answer', content: /^\*\*From the call\*\*\n\n> Our budget for this year is ninety thousand dollars/ }],
  ]) {
    client.emit('chatMessage', { message, type: 'user', timestamp: new Date().toISOString(), userId: 'u' });
    const response = await client.next('chatResponse');
    assert.equal(response.role, 'assistant', message);
    assert.equal(response.isFromUser, false);
    assert.equal(response.messageId, response.id);
    assert.match(response.timestamp, ISO);
    assert.ok(response.processingTime >= 0 && response.processingTime < 5);
    assert.equal(response.type, expected.type, message);
    if (expected.content) assert.match(response.content, expected.content, `${message}\n${response.content}`);
    if (!expected.toolCalls) {
      assert.ok(!('toolCalls' in response) && !('requiresApproval' in response), message);
      continue;
    }
    assert.equal(response.requiresApproval, true, message);
    assert.equal(response.isPendingToolApproval, true, message);
    assert.equal(response.toolCalls.length, 1);
    const [call] = response.toolCalls;
    assert.equal(call.name, expected.toolCalls[0].name, message);
    assert.equal(call.requiresApproval, true);
    assert.match(call.id, /^call_/);
    assert.deepEqual(Object.keys(call.parameters).sort(), Object.keys(expected.toolCalls[0].parameters).sort(), message);
    for (const [key, value] of Object.entries(expected.toolCalls[0].parameters)) {
      if (value instanceof RegExp) assert.match(call.parameters[key], value, `${message}: ${key}`);
      else if (typeof value === 'function') assert.ok(value(call.parameters[key]), `${message}: ${key}`);
      else assert.equal(call.parameters[key], value, `${message}: ${key}`);
    }
  }

  const history = await client.request('getChatHistory', { timestamp: new Date().toISOString() }, 'chatHistory');
  assert.equal(history.total, 32);
  assert.equal(history.messages.length, 32);
  assert.deepEqual(Object.keys(history.messages[0]).sort(), ['content', 'id', 'isFromUser', 'messageId', 'role', 'timestamp']);
  assert.deepEqual([history.messages[0].role, history.messages[0].isFromUser, history.messages[0].content], ['user', true, 'Can you summarize the call so far?']);
  const searched = history.messages[13];
  assert.deepEqual([searched.role, searched.requiresApproval, searched.toolCalls[0].parameters], ['assistant', true, { query: 'Cobalt Routing pricing' }]);
  const page = await client.request('getChatHistory', { limit: 2, offset: 12 }, 'chatHistory');
  assert.deepEqual(page.messages.map((m) => m.content), history.messages.slice(12, 14).map((m) => m.content));
  assert.equal(page.total, 32);

  let [listed] = await listCalls(backend(), token);
  assert.equal(listed.message_count, 32);
  assert.deepEqual(listed.messages[13].tool_calls, [{ id: searched.toolCalls[0].id, type: 'function', function: { name: 'tavily_search', arguments: '{"query":"Cobalt Routing pricing"}' } }]);
  assert.deepEqual(listed.messages[13].metadata.type, 'tool_request');

  const cleared = await client.request('clearChatHistory', { timestamp: new Date().toISOString() }, 'chatCleared');
  assert.match(cleared.timestamp, ISO);
  assert.deepEqual(await client.request('getChatHistory', {}, 'chatHistory'), { messages: [], total: 0 });
  [listed] = await listCalls(backend(), token);
  assert.deepEqual([listed.message_count, listed.messages], [0, []]);
  client.close();
});

test('chat asks only for the tools the client declared and enabled, and reads their results back', async () => {
  const token = await newUser();
  const asked = async (client, message) => {
    client.emit('chatMessage', { message, type: 'user', timestamp: new Date().toISOString() });
    return client.next('chatResponse');
  };

  for (const [name, localTools] of [
    ['no tool document', undefined],
    ['declared, none enabled', { executionMode: 'local', localTools: [BRAVE_WEB_SEARCH, NOTION_CREATE_PAGE], enabledTools: [] }],
  ]) {
    const { client } = await startSession(backend(), token, { localTools });
    for (const [message, content] of [
      ['Search the web for Acme pricing', /^Web search is not enabled\./],
      ['Save the notes to Notion', /^Notion is not enabled\./],
    ]) {
      const response = await asked(client, message);
      assert.equal(response.success, true, name);
      assert.match(response.content, content, name);
      for (const key of ['toolCalls', 'requiresApproval', 'isPendingToolApproval']) assert.ok(!(key in response), `${name}: ${key}`);
    }
    client.close();
  }

  // As the desktop client does it: Brave Search on, a search asked, approved, run and answered.
  const document = { executionMode: 'local', localTools: [BRAVE_WEB_SEARCH, NOTION_CREATE_PAGE], enabledTools: ['brave_web_search'] };
  const { client } = await startSession(backend(), token, { localTools: document });
  const request = await asked(client, 'Search the web for Acme pricing');
  assert.deepEqual(request.toolCalls.map((c) => [c.name, c.parameters]), [['brave_web_search', { query: 'Acme pricing' }]]);
  assert.equal(request.isPendingToolApproval, true);
  const answer = await asked(client, 'Here are the tool execution results:\n\nTool Error:\nTool execution failed: Brave API error 429\n\nPlease provide a comprehensive response based on these results.');
  assert.deepEqual([answer.type, answer.toolCalls], ['tool_result', undefined]);
  assert.match(answer.content, /^The search failed: Tool execution failed: Brave API error 429/);
  client.close();
});

test('a session the client closes completes its call at once, listed with transcript, summary and chat', async () => {
  const token = await newUser();

  // Opened and closed without a word: no empty call is kept.
  const idle = await startSession(backend(), token);
  idle.client.close();
  await idle.client.closed;

  const { client, initialized } = await startSession(backend(), token, { direction: 'inbound' });
  assert.notEqual(initialized.callId, idle.initialized.callId);
  for (const [speaker, text] of SALES_CALL.slice(9, 16)) {
    await say(client, speaker, text);
    await sleep(20);
  }
  await client.request('chatMessage', { message: 'What are the action items?', type: 'user', timestamp: new Date().toISOString() }, 'chatResponse');
  client.emit('transcriptionSummary', { transcriptionText: 'the client side summary', timestamp: new Date().toISOString(), callDuration: 12 });
  await client.request('getAgentModeStatus', {}, 'agentModeStatus');
  client.close();

  let calls;
  for (let i = 0; i < 50 && calls?.[0]?.status !== 'completed'; i++) {
    await sleep(20);
    calls = await listCalls(backend(), token);
  }
  assert.equal(calls.length, 1, 'the idle session left nothing');
  const [call] = calls;
  assert.deepEqual([call.id, call.direction, call.status], [initialized.callId, 'inbound', 'completed']);
  assert.ok(call.duration_seconds > 0 && call.duration_seconds < 60);
  assert.match(call.call_duration, /^0:\d\d$/);

  const { segments } = call.transcription;
  assert.deepEqual(segments.map((s) => [s.speaker, s.text]), SALES_CALL.slice(9, 16));
  segments.forEach((s, i) => {
    assert.ok(s.start_time >= 0 && s.start_time <= s.end_time, JSON.stringify(s));
    if (i > 0) assert.ok(s.start_time >= segments[i - 1].end_time, 'segments follow each other');
  });
  assert.ok(segments.at(-1).end_time <= call.duration_seconds + 0.1);

  const { summary } = call;
  assert.match(summary.content, /^Call with Sofia Martinez, Jordan Blake and Ken Okafor/);
  assert.ok(summary.key_points.length > 0);
  assert.ok(summary.action_items.some((a) => a.assignee === 'Jordan Blake' && a.deadline === 'by Friday'));
  assert.ok(['positive', 'neutral', 'negative'].includes(summary.sentiment));
  assert.ok(Number.isFinite(summary.sentiment_score));
  assert.ok(Array.isArray(summary.topics) && summary.speakers.length === 3);
  assert.equal(call.message_count, 2);
  assert.deepEqual(call.messages.map((m) => m.role), ['user', 'assistant']);

  // The next session is a new call: a closed one is not continued.
  const next = await startSession(backend(), token, { direction: 'inbound' });
  assert.notEqual(next.initialized.callId, call.id);
  assert.equal(next.initialized.resumed, false);
  next.client.close();
});
