// The assistant's chat answers in-process: the tools it asks for by what the client declared, the
// client's suggested questions, and its reading of the results the client sends back.
import assert from 'node:assert/strict';
import { test } from 'node:test';
import { TOOL_RESULTS_PREFIX, reply } from '../src/assistant.js';
import { argumentsFor, blockTexts, notionBlocks } from '../src/assistantTools.js';
import { summarize } from '../src/summarizer/index.js';
import { CLIENT_TOOLS, REMOTE_KB_LOOKUP } from './fixtures/clientTools.js';
import { salesCallSegments } from './fixtures/salesCall.js';

const segments = salesCallSegments();
const chat = (message, enabledTools = [], { definitions = CLIENT_TOOLS, askedCalls, transcript = segments } = {}) =>
  reply(message, {
    segments: transcript,
    summary: () => summarize(transcript),
    enabledTools,
    // The client declares all its tools and enables some; the session keeps the enabled ones.
    toolDefinitions: definitions.filter((d) => enabledTools.includes(d.name)),
    newId: () => 'call_1',
    askedCalls,
  });

const BRAVE_ONLY = ['brave_web_search', 'brave_local_search'];
const FIRECRAWL_ONLY = ['firecrawl_scrape', 'firecrawl_map', 'firecrawl_search'];
const NOTION_ALL = ['notion_search', 'notion_get_page', 'notion_create_page', 'notion_update_page'];
const RESEND_ALL = ['resend_send_email', 'resend_email_templates'];

test('each request asks for the declared, enabled tool by its exact name, with its own argument names', () => {
  for (const [message, enabled, name, parameters] of [
    ['Search the web for Acme pricing', BRAVE_ONLY, 'brave_web_search', { query: 'Acme pricing' }],
    ['Search the web for Acme pricing', FIRECRAWL_ONLY, 'firecrawl_search', { query: 'Acme pricing' }],
    ['Look them up', [...FIRECRAWL_ONLY, ...BRAVE_ONLY], 'brave_web_search', { query: 'Manhattan WMS' }],
    ['Search for Acme pricing', ['notion_search', 'mcp_kb_lookup'], 'mcp_kb_lookup', { question: 'Acme pricing', limit: 3 }],
    ['Email ken@brightline.example about the security questionnaire', RESEND_ALL, 'resend_send_email', { to: 'ken@brightline.example', subject: 'The security questionnaire', text: /^Hi,\n\nThank you for your time today\.[\s\S]*Next steps:/ }],
    ['Give me an email template for a thank you note', RESEND_ALL, 'resend_email_templates', { template_type: 'thank_you' }],
    ['Save the notes to Notion', NOTION_ALL, 'notion_create_page', { title: /^Call notes: /, content_blocks: ['Overview', /^Call with Jordan Blake/] }],
    ['Put this in Notion titled Brightline discovery', NOTION_ALL, 'notion_create_page', { title: 'Brightline discovery', content_blocks: ['Overview', /./] }],
    ['Use Knowledge base lookup: what is our refund policy?', ['brave_web_search', 'mcp_kb_lookup'], 'mcp_kb_lookup', { question: 'what is our refund policy', limit: 3 }],
    ['Ask the kb server about onboarding times', ['brave_web_search', 'mcp_kb_lookup'], 'mcp_kb_lookup', { question: 'onboarding times', limit: 3 }],
    ['Please use mcp_linear_create_issue to file the security questionnaire', ['mcp_linear_create_issue'], 'mcp_linear_create_issue', { query: 'file the security questionnaire' }],
    // A server's name that merely comes up names no tool.
    ['Search the web for kb articles on onboarding', ['brave_web_search', 'mcp_kb_lookup'], 'brave_web_search', { query: 'kb articles on onboarding' }],
  ]) {
    const answer = chat(message, enabled);
    const label = `${message} [${enabled}]`;
    assert.equal(answer.type, 'tool_request', label);
    assert.equal(answer.toolCalls.length, 1, label);
    const [call] = answer.toolCalls;
    assert.equal(call.name, name, label);
    assert.deepEqual(Object.keys(call.parameters).sort(), Object.keys(parameters).sort(), label);
    for (const [key, expected] of Object.entries(parameters)) {
      const actual = key === 'content_blocks' ? blockTexts(call.parameters[key]).slice(0, expected.length) : call.parameters[key];
      if (expected instanceof RegExp) assert.match(actual, expected, `${label}: ${key}`);
      else if (Array.isArray(expected)) expected.forEach((e, i) => (e instanceof RegExp ? assert.match(actual[i], e) : assert.equal(actual[i], e)), label);
      else assert.deepEqual(actual, expected, `${label}: ${key}`);
    }
  }
});

test('a request for a tool the session has not enabled is answered in words, with no tool call', () => {
  for (const [message, enabled, content] of [
    ['Search the web for Acme pricing', [], /^Web search is not enabled\. Turn on Brave Search/],
    ['Search the web for Acme pricing', ['notion_search', 'brave_local_search', 'firecrawl_scrape', 'resend_send_email'], /^Web search is not enabled/],
    ['Email ken@brightline.example about the pilot', ['brave_web_search', 'resend_email_templates'], /^Here is a draft email to \*\*ken@brightline\.example\*\* you can copy\.[\s\S]*Sending e-mail is not enabled\. Turn on Resend/],
    ['Save the notes to Notion', ['notion_search', 'brave_web_search'], /^Notion is not enabled\. Turn on Notion under Integrations/],
    ['Give me a follow-up email template', ['resend_send_email'], /^E-mail templates are not enabled/],
    // Declared but not enabled is not enough.
    ['Use Knowledge base lookup: refund policy', [], /^I could not find anything about that/],
  ]) {
    const answer = chat(message, enabled);
    assert.equal(answer.toolCalls, undefined, `${message} [${enabled}]`);
    assert.match(answer.content, content, `${message} [${enabled}]`);
  }
  // A mail tool sends to an address: a person from the call is asked about, not guessed.
  const toSofia = chat('Email Sofia a recap about the pilot', RESEND_ALL);
  assert.equal(toSofia.toolCalls, undefined);
  assert.match(toSofia.content, /^Here is a draft email for \*\*Sofia Martinez\*\*[\s\S]*Hi Sofia,[\s\S]*I do not know Sofia Martinez's e-mail address\. Tell me the address \(for example "email sofia@example\.com about the pilot"\)/);
});

test('arguments take the schema\'s names, shapes and defaults, or the built-in names without a schema', () => {
  const values = { to: 'a@b.example', subject: 'Hello', body: 'Hi there' };
  const notes = { title: 'Notes', content: '## Overview\n\nGood call.\n- Send pricing' };
  const paragraph = (content) => ({ object: 'block', type: 'paragraph', paragraph: { rich_text: [{ type: 'text', text: { content } }] } });
  for (const [label, definitions, name, given, expected] of [
    ['resend by schema', CLIENT_TOOLS, 'resend_send_email', values, { to: 'a@b.example', subject: 'Hello', text: 'Hi there' }],
    ['resend by name alone', [], 'resend_send_email', values, { to: 'a@b.example', subject: 'Hello', text: 'Hi there' }],
    ['an unknown mail tool', [], 'gmail_send', values, values],
    ['recipients as a list', [{ name: 'm', parameters: { properties: { recipients: { type: 'array' }, title: { type: 'string' }, message: { type: 'string' } } } }], 'm', values, { recipients: ['a@b.example'], title: 'Hello', message: 'Hi there' }],
    ['a text argument for notes', [{ name: 'n', parameters: { properties: { name: { type: 'string' }, markdown: { type: 'string' } } } }], 'n', notes, { name: 'Notes', markdown: notes.content }],
    ['the main text in the first required string', [{ name: 's', parameters: { properties: { k: { type: 'integer', default: 4 }, topic: { type: 'string' } }, required: ['k', 'topic'] } }], 's', { query: 'Acme' }, { topic: 'Acme', k: 4 }],
  ]) {
    assert.deepEqual(argumentsFor(definitions, name, given, { main: Object.keys(given)[0] === 'query' ? 'query' : undefined }), expected, label);
  }
  const page = argumentsFor(CLIENT_TOOLS, 'notion_create_page', notes);
  assert.deepEqual(page.content_blocks, [
    { object: 'block', type: 'heading_2', heading_2: { rich_text: [{ type: 'text', text: { content: 'Overview' } }] } },
    paragraph('Good call.'),
    { object: 'block', type: 'bulleted_list_item', bulleted_list_item: { rich_text: [{ type: 'text', text: { content: 'Send pricing' } }] } },
  ]);
  // Notion's own limits: 100 blocks, 2000 characters a piece.
  const long = argumentsFor([], 'notion_create_page', { title: 't', content: `${'x'.repeat(2500)}\n${'- y\n'.repeat(150)}` }).content_blocks;
  assert.equal(long.length, 100);
  assert.equal(blockTexts(long)[0].length, 2000);
});

test('the suggested questions are answered from the call: summary, next steps, and follow-up actions', () => {
  const summary = chat('Summarize the key points from this call');
  assert.equal(summary.type, 'answer');
  assert.match(summary.content, /^\*\*Summary so far\*\*.*\n\nCall with Jordan Blake, Sofia Martinez and Ken Okafor[\s\S]*\*\*Key points\*\*\n- [\s\S]*\*\*Action items\*\*\n- /);

  const next = chat('What are the next steps?');
  assert.match(next.content, /^\*\*Action items so far\*\*\n\n- Send the completed security questionnaire by Friday \(Jordan Blake, by Friday, medium priority\)\n/);
  assert.doesNotMatch(next.content, /Integrations|Concerns/);

  for (const [enabled, offers, missing] of [
    [[], [], /Turn on Resend \(for a recap e-mail\) and Notion \(for the call notes\) under Integrations and I can do that for you\./],
    [[...RESEND_ALL, ...NOTION_ALL], [/\*\*Send a recap e-mail\*\*/, /\*\*Save the call notes to Notion\*\*/], undefined],
    [RESEND_ALL, [/\*\*Send a recap e-mail\*\*/], /Turn on Notion \(for the call notes\) under Integrations and I can do that too\./],
  ]) {
    const follow = chat('What follow-up actions should I take?', enabled);
    assert.equal(follow.type, 'answer');
    assert.equal(follow.toolCalls, undefined, 'tools are offered in words, never called');
    // Most pressing first, then what the other side worried about.
    assert.match(follow.content, /^\*\*Follow-up actions\*\*\n\nAgreed in the call, most pressing first:\n- Set up the test account tomorrow morning \(Ken Okafor, tomorrow morning, high priority\)/);
    assert.match(follow.content, /Concerns to answer in your follow-up:\n(?:- .*\n)*- “Honestly, the price is my concern\.” — Sofia Martinez/);
    for (const offer of offers) assert.match(follow.content, offer);
    if (missing) assert.match(follow.content, missing);
    else assert.doesNotMatch(follow.content, /Turn on/);
  }

  for (const question of ['Summarize the key points from this call', 'What are the next steps?', 'What follow-up actions should I take?']) {
    assert.match(chat(question, [], { transcript: [] }).content, /^Nothing has been transcribed in this call yet/, question);
  }
  assert.match(chat('What follow-up actions should I take?', [], { transcript: [{ speaker: 'A', text: 'Hello there, nice weather today.' }] }).content, /No one has committed to anything yet/);
});

const results = (...blocks) =>
  `${TOOL_RESULTS_PREFIX}\n\n${blocks.map(([ok, content]) => `${ok ? 'Tool Result' : 'Tool Error'}:\n${content}`).join('\n\n')}\n\nPlease provide a comprehensive response based on these results.`;
const BRAVE_OUTPUT = [
  'Title: Acme Pricing Plans\nDescription: Acme lists its pricing at <strong>$49</strong> per seat.\nURL: https://acme.example/pricing',
  'Title: Acme review\nDescription: A long review.\nURL: https://reviews.example/acme',
].join('\n\n');
const FIRECRAWL_OUTPUT = "**Search Results for 'Acme' (2 results):**\n\n1. **Acme home**\n   URL: https://acme.example\n   Acme makes route planning.\n\n2. **Acme jobs**\n   URL: https://acme.example/jobs\n   Hiring.";

test('tool results are quoted short, failures said plainly, whatever the mix', () => {
  const searched = [{ name: 'brave_web_search', parameters: { query: 'Acme pricing' } }];
  for (const [label, message, asked, expected, absent] of [
    ['one plain result', results([true, 'Acme lists its pricing at $49 per seat.']), searched, /^\*\*What the search for “Acme pricing” found\*\*\n\n> Acme lists its pricing at \$49 per seat\.$/],
    ['search entries as links', results([true, BRAVE_OUTPUT]), searched, /^\*\*What the search for “Acme pricing” found\*\*\n\n- \[Acme Pricing Plans\]\(https:\/\/acme\.example\/pricing\) — Acme lists its pricing at \$49 per seat\.\n- \[Acme review\]\(https:\/\/reviews\.example\/acme\) — A long review\.$/],
    ['numbered entries as links', results([true, FIRECRAWL_OUTPUT]), [{ name: 'firecrawl_search', parameters: { query: 'Acme' } }], /- \[Acme home\]\(https:\/\/acme\.example\) — Acme makes route planning\.\n- \[Acme jobs\]/],
    ['one failure', results([false, 'Tool execution failed: Brave API error 401']), searched, /^The search failed: Tool execution failed: Brave API error 401\n\nNothing came back that I can use\./],
    [
      'mixed, in the order asked',
      results([true, BRAVE_OUTPUT], [false, 'Resend API error: invalid "to"'], [true, '**Successfully Created Notion Page:**\nID: 42']),
      [...searched, { name: 'resend_send_email' }, { name: 'notion_create_page' }],
      /^The e-mail was not sent: Resend API error: invalid "to"\n\n\*\*What the search for “Acme pricing” found\*\*\n\n- \[Acme Pricing Plans\][\s\S]*\n\n\*\*The Notion page was created\*\*\n\n> \*\*Successfully Created Notion Page:\*\*\n> ID: 42$/,
    ],
    ['only errors, tools told by their text', results([false, 'Resend API error: invalid key'], [false, 'Notion API error: Could not find page']), [], /^The e-mail was not sent: Resend API error: invalid key\n\nThe Notion page was not created: Notion API error: Could not find page\n\nNothing came back/],
    ['an error of no known tool', results([false, "Tool 'x' not found"]), [], /^The tool failed: Tool 'x' not found/],
    ['a remote tool by name', results([false, 'timeout']), [{ name: 'mcp_kb_lookup' }], /^`mcp_kb_lookup` failed: timeout/],
    ['more blocks than calls asked', results([true, 'one'], [true, 'two']), searched, /^\*\*What a tool returned\*\*\n\n> one\n\n\*\*What a tool returned\*\*\n\n> two$/],
    ['long output capped', results([true, `${'word '.repeat(300)}\n${'line\n'.repeat(30)}`]), [], /^\*\*What the tool returned\*\*\n\n> (?:word ){30,}[^\n]*…\n/, /(?:word ){120}/],
    ['an empty result', results([true, '']), [], /> \(no output\)/],
    ['nothing after the opening', TOOL_RESULTS_PREFIX, [], /^The tool results came back empty/],
    ['garbage', `${TOOL_RESULTS_PREFIX} }{ ][ ::`, [], /^The tools ran but returned nothing I can summarize\.$/],
  ]) {
    const answer = chat(message, [], { askedCalls: asked });
    assert.equal(answer.type, 'tool_result', label);
    assert.equal(answer.toolCalls, undefined, label);
    assert.match(answer.content, expected, `${label}\n${answer.content}`);
    if (absent) assert.doesNotMatch(answer.content, absent, label);
    assert.ok(answer.content.length < 2500, label);
  }
  // The lookup's schema drives nothing here: a results message is never read as a request.
  assert.equal(chat(results([true, 'Use Knowledge base lookup now']), ['mcp_kb_lookup'], { definitions: [REMOTE_KB_LOOKUP] }).type, 'tool_result');
});

test('notes become Notion blocks: headings, to-dos with their state, bullets and paragraphs', () => {
  const blocks = notionBlocks('## Action items\n\n- [ ] Send the quote (Dana)\n- [x] Book the demo\n- Pricing\nPlain words');
  assert.deepEqual(
    blocks.map((b) => [b.type, b[b.type].checked]),
    [['heading_2', undefined], ['to_do', false], ['to_do', true], ['bulleted_list_item', undefined], ['paragraph', undefined]],
  );
  assert.deepEqual(blockTexts(blocks), ['Action items', 'Send the quote (Dana)', 'Book the demo', 'Pricing', 'Plain words']);
});
