// Which remote server tool ("mcp_…") the assistant asks for, with the demo server's tools as the
// client declares them, and how it reads their answers.
import assert from 'node:assert/strict';
import { test } from 'node:test';
import { TOOL_RESULTS_PREFIX, reply } from '../src/assistant.js';
import { summarize } from '../src/summarizer/index.js';
import { CLIENT_TOOLS, DEMO_TOOLS } from './fixtures/clientTools.js';
import { salesCallSegments } from './fixtures/salesCall.js';

const segments = salesCallSegments();
const DEMO = DEMO_TOOLS.map((d) => d.name);
const WITH_BUILT_INS = [...DEMO, 'brave_web_search', 'resend_send_email', 'notion_create_page'];
const chat = (message, enabledTools, askedCalls) =>
  reply(message, {
    segments,
    summary: () => summarize(segments),
    enabledTools,
    toolDefinitions: CLIENT_TOOLS.filter((d) => enabledTools.includes(d.name)),
    newId: () => 'call_1',
    askedCalls,
  });

const SEARCH = 'mcp_quillmoss_demo_search_calls';
const SUMMARY = 'mcp_quillmoss_demo_get_call_summary';
const ACTIONS = 'mcp_quillmoss_demo_list_action_items';

test('a remote tool named by its name, its words or "use …" is asked for, with arguments from its schema', () => {
  for (const [message, enabled, name, parameters] of [
    // Its words, plurals aside, with the rest of the message as the main argument.
    ['Search calls for Helio pricing', WITH_BUILT_INS, SEARCH, { query: 'Helio pricing' }],
    ['Could you search the calls for the SOC 2 report?', WITH_BUILT_INS, SEARCH, { query: 'SOC 2 report' }],
    ['search call: renewal', DEMO, SEARCH, { query: 'renewal' }],
    // Its own name as written, its identifier, or "use" before its words.
    ['Use search_calls to find the SOC 2 report', WITH_BUILT_INS, SEARCH, { query: 'SOC 2 report' }],
    ['search_calls pricing', WITH_BUILT_INS, SEARCH, { query: 'pricing' }],
    ['Run mcp_quillmoss_demo_search_calls with renewal', WITH_BUILT_INS, SEARCH, { query: 'renewal' }],
    ['Please use the search calls tool to look up Brightline', WITH_BUILT_INS, SEARCH, { query: 'up Brightline' }],
    // An id in the message goes to the id argument, and only an id does.
    ['Get the call summary for call 066df9da', WITH_BUILT_INS, SUMMARY, { call_id: '066df9da' }],
    ['call summaries of 066df9da-3965-438e-a1a6-7120e4fcb88a', DEMO, SUMMARY, { call_id: '066df9da-3965-438e-a1a6-7120e4fcb88a' }],
    ['List action items', WITH_BUILT_INS, ACTIONS, {}],
    ['Show me the action items of my recent calls', WITH_BUILT_INS, ACTIONS, {}],
    ['action items from call c9b3b471', WITH_BUILT_INS, ACTIONS, { call_id: 'c9b3b471' }],
    ['use list_action_items', DEMO, ACTIONS, {}],
    ['What are the action items from my past calls?', DEMO, ACTIONS, {}],
    // The assistant's own kinds of request keep them, unless the remote tool is named outright.
    ['Search the web for call summary templates', WITH_BUILT_INS, 'brave_web_search', { query: 'call summary templates' }],
    ['Save the call summary to Notion', WITH_BUILT_INS, 'notion_create_page', null],
    ['Email the action items to bob@acme.example', WITH_BUILT_INS, 'resend_send_email', null],
    ['Use search calls to search for Acme', WITH_BUILT_INS, SEARCH, { query: 'search for Acme' }],
  ]) {
    const answer = chat(message, enabled);
    const label = `${message} [${enabled.length} tools]`;
    assert.equal(answer.type, 'tool_request', `${label}: ${answer.content}`);
    assert.equal(answer.toolCalls.length, 1, label);
    assert.equal(answer.toolCalls[0].name, name, label);
    if (parameters) assert.deepEqual(answer.toolCalls[0].parameters, parameters, label);
  }
});

test('no remote tool is asked for when it is not enabled, not named, or the message lacks what it needs', () => {
  for (const [message, enabled, type, content] of [
    // Declared but not enabled, or not there at all.
    ['Search calls for Helio pricing', [], 'help', /^Web search is not enabled/],
    ['List action items', [SEARCH], 'answer', /^\*\*Action items so far\*\*/],
    // Questions about the call in progress are the assistant's own.
    ['What are the action items so far?', DEMO, 'answer', /^\*\*Action items so far\*\*/],
    ['What are the action items?', DEMO, 'answer', /^\*\*Action items so far\*\*/],
    // A remote tool that searches calls is no web search.
    ['Search the web for Acme', DEMO, 'help', /^Web search is not enabled/],
    ['Give me a summary of this call', DEMO, 'answer', /^\*\*Summary so far\*\*/],
    // One word of a tool's name is not its name.
    ['What did they say about calls?', DEMO, 'help', /^I could not find anything about that/],
    ['Summarize the call', DEMO, 'answer', /^\*\*Summary so far\*\*/],
    // A required argument with nothing to fill it: asked for in words.
    ['search calls', DEMO, 'help', /^\*\*search_calls\*\* \(`mcp_quillmoss_demo_search_calls`\) needs `query`, which your message does not give\. Ask again with it, for example “use search_calls <query>”\.$/],
    ['Get the call summary for the Helio call', DEMO, 'help', /needs `call_id`/],
  ]) {
    const answer = chat(message, enabled);
    const label = `${message} [${enabled}]`;
    assert.equal(answer.toolCalls, undefined, `${label}: ${JSON.stringify(answer.toolCalls)}`);
    assert.equal(answer.type, type, `${label}: ${answer.content}`);
    assert.match(answer.content, content, label);
  }
});

test('the request says what will be asked; the answer shows what the remote tool returned', () => {
  const asked = chat('Search calls for Helio pricing', DEMO);
  assert.equal(asked.content, 'I can run **search_calls** (`mcp_quillmoss_demo_search_calls`) with query “Helio pricing”. Approve it and I will go through what it returns.');

  const listing = [
    'Action items from the 5 latest calls:',
    '',
    ...Array.from({ length: 12 }, (_, i) => `- Item ${i + 1} of the calls (Demo Seller, high priority)`),
  ].join('\n');
  for (const [what, block, calls, expected, absent] of [
    ['a listing, whole', `Tool Result:\n${listing}`, [{ name: ACTIONS, parameters: {} }], [/^\*\*What `mcp_quillmoss_demo_list_action_items` returned\*\*\n\n> Action items from the 5 latest calls:\n> - Item 1 /, /> - Item 12 of the calls \(Demo Seller, high priority\)$/], /> …/],
    ['an error result', 'Tool Error:\nMCP tool error: No call has the id “x”. Use search_calls to find a call\'s id.', [{ name: SUMMARY, parameters: { call_id: 'x' } }], [/^`mcp_quillmoss_demo_get_call_summary` failed: MCP tool error: No call has the id “x”\./], /returned/],
  ]) {
    const answer = chat(`${TOOL_RESULTS_PREFIX}\n\n${block}\n\nPlease provide a comprehensive response based on these results.`, DEMO, calls);
    assert.equal(answer.type, 'tool_result', what);
    for (const pattern of expected) assert.match(answer.content, pattern, what);
    assert.doesNotMatch(answer.content, absent, what);
  }
});
