// The assistant's rules in-process: which tool a session gets, and what agent mode suggests.
import assert from 'node:assert/strict';
import { test } from 'node:test';
import { entitiesOf, reply, suggest, suggestionKey, textArguments, toolFor } from '../src/assistant.js';
import { blockTexts } from '../src/assistantTools.js';
import { summarize } from '../src/summarizer/index.js';
import { BRAVE_WEB_SEARCH, NOTION_CREATE_PAGE, RESEND_SEND_EMAIL } from './fixtures/clientTools.js';

test('a tool kind maps to the enabled built-in tool, else the best fitting enabled tool, none when none fits', () => {
  for (const [kind, enabled, expected] of [
    ['search', [], null],
    ['email', [], null],
    ['notion', [], null],
    ['search', ['notion_search', 'brave_web_search'], 'brave_web_search'],
    ['search', ['firecrawl_scrape', 'firecrawl_search', 'brave_web_search'], 'brave_web_search'],
    ['search', ['firecrawl_scrape', 'firecrawl_map', 'firecrawl_search'], 'firecrawl_search'],
    ['search', ['notion_search', 'brave_local_search', 'firecrawl_scrape'], null],
    ['email', ['resend_email_templates', 'resend_send_email'], 'resend_send_email'],
    ['email', ['resend_email_templates'], null],
    ['notion', ['notion_search', 'notion_get_page', 'notion_create_page'], 'notion_create_page'],
    ['notion', ['notion_search', 'notion_update_page'], null],
    ['search', ['tavily_extract', 'tavily_search'], 'tavily_search'],
    ['search', ['perplexity'], 'perplexity'],
    ['email', ['gmail_read_inbox', 'gmail_send_message'], 'gmail_send_message'],
    ['email', ['outlook'], 'outlook'],
    ['notion', ['notion_search', 'notion_create_page'], 'notion_create_page'],
    ['notion', ['web_search'], null],
    ['email', ['web_search', 'notion_create_page'], null],
  ]) {
    assert.equal(toolFor(kind, enabled), expected, `${kind} from [${enabled}]`);
  }
});

test('companies and products are the capitalized names said, not speakers, openers or office tools', () => {
  const segments = [
    { speaker: 'Dana Reyes', text: 'We moved from Cobalt Analytics last year. Honestly Cobalt Analytics was slow.' },
    { speaker: 'Tom Becker', text: 'Northwind Logistics runs on Salesforce. Dana, can you put it in Notion?' },
    { speaker: 'Dana Reyes', text: 'Thanks Tom. I will check with the CFO on Monday.' },
  ];
  assert.deepEqual(entitiesOf(segments).map((e) => [e.name, e.mentions, e.cued]), [
    ['Cobalt Analytics', 2, true],
    ['Northwind Logistics', 1, false],
    ['Salesforce', 1, false],
  ]);
});

test('agent mode suggests a search, an email and notes from what was just said', () => {
  const all = [
    { speaker: 'Sofia Martinez', text: 'We compared Cobalt Routing with two alternatives.' },
    { speaker: 'Jordan Blake', text: "Understood. I'll email you the pricing sheet today." },
    { speaker: 'Sofia Martinez', text: "Good. I'll write that down in my notes." },
  ];
  const builtIn = [BRAVE_WEB_SEARCH, RESEND_SEND_EMAIL, NOTION_CREATE_PAGE];
  const context = (enabledTools, toolDefinitions = builtIn) => ({ enabledTools, toolDefinitions, summary: () => summarize(all) });
  const enabled = builtIn.map((d) => d.name);

  const made = suggest(all, all, context(enabled));
  assert.deepEqual(made.map((s) => s.name), ['brave_web_search', 'resend_send_email', 'notion_create_page']);
  const [search, email, notes] = made;
  assert.deepEqual(search.parameters, { query: 'Cobalt Routing reviews and alternatives' });
  assert.deepEqual(email.parameters, {
    to: 'Sofia Martinez',
    subject: 'The pricing sheet',
    text: 'Hi Sofia,\n\nAs promised, here is the pricing sheet.\n\nBest regards',
  });
  assert.deepEqual(Object.keys(notes.parameters), ['title', 'content_blocks']);
  assert.deepEqual(blockTexts(notes.parameters.content_blocks).slice(0, 1), ['Overview']);
  for (const s of made) assert.ok(s.confidence > 0 && s.confidence <= 1 && s.reason.length > 0);

  // Only enabled tools; nothing for a kind with no enabled tool, nothing at all without tools.
  assert.deepEqual(suggest(all, all, context(['duckduckgo_search'])).map((s) => s.name), ['duckduckgo_search']);
  assert.deepEqual(suggest(all, all, context([])), []);
  // A tool named without its schema gets the assistant's own argument names.
  assert.deepEqual(Object.keys(suggest(all.slice(1, 2), all, context(['gmail_send'], []))[0].parameters), ['to', 'subject', 'body']);
  // Only what is new: an older mention is not suggested again.
  assert.deepEqual(suggest(all.slice(1, 2), all, context(enabled)).map((s) => s.name), ['resend_send_email']);
  assert.deepEqual(suggest([{ text: 'Okay, sounds good.' }], all, context(enabled)), []);
});

test('a search carries the user\'s text in the first required string parameter of a defined tool, else in "query"', () => {
  const schema = (properties, required) => ({ type: 'object', properties, required });
  const definitions = [
    { name: 'kb_search', parameters: schema({ top: { type: 'integer' }, question: { type: 'string' }, scope: { type: 'string' } }, ['top', 'question', 'scope']) },
    { name: 'site_search', parameters: schema({ term: { type: ['null', 'string'] } }, ['term']) },
    { name: 'open_search', parameters: schema({ query: { type: 'string' } }, []) },
    { name: 'bare_search' },
  ];
  const ask = (enabledTools) =>
    reply('Please search for Cobalt Routing pricing', { segments: [], summary: () => undefined, enabledTools, toolDefinitions: definitions, newId: () => 'call_1' }).toolCalls[0];
  for (const [enabled, expected] of [
    [['kb_search'], { question: 'Cobalt Routing pricing' }],
    [['site_search'], { term: 'Cobalt Routing pricing' }],
    [['open_search'], { query: 'Cobalt Routing pricing' }],
    [['bare_search'], { query: 'Cobalt Routing pricing' }],
    [['other_search'], { query: 'Cobalt Routing pricing' }],
  ]) {
    assert.deepEqual(ask(enabled).parameters, expected, enabled.join());
  }
  assert.deepEqual(textArguments(undefined, 'kb_search', 'x', { query: 'x' }), { query: 'x' });

  // Suggestions are told apart by the search text, whatever the parameter is called.
  const key = (parameters, name = 'kb_search') => suggestionKey({ name, parameters });
  assert.notEqual(key({ question: 'Acme pricing' }), key({ question: 'Cobalt pricing' }));
  assert.equal(key({ title: 'Call notes: a', content: '…' }, 'notion_create_page'), key({ title: 'Call notes: b', content: '…' }, 'notion_create_page'));
});
