/**
 * The demo MCP server: the account's calls offered as MCP tools over the HTTP+SSE transport
 * (protocol version 2024-11-05), on the backend's own HTTP server. A client opens the event
 * stream with GET /mcp/sse, is told there where to post ("/mcp/messages?sessionId=…"), and each
 * message it posts is accepted with 202 and answered on its stream. Every stream is a session of
 * its own, with its own MCP server object, ended when the stream closes.
 *
 * Whose calls a session reads is decided once per request by `accountFor`: the account of the
 * request's bearer token (mcpOAuth.js), or, when the backend runs with --mcp-open, the demo
 * account for anyone who can reach the port.
 */
import { McpServer } from '@modelcontextprotocol/sdk/server/mcp.js';
import { SSEServerTransport } from '@modelcontextprotocol/sdk/server/sse.js';
import { JSONRPCMessageSchema } from '@modelcontextprotocol/sdk/types.js';
import { z } from 'zod';
import { DEFAULT_RECENT_CALLS, DEFAULT_SEARCH_LIMIT, DemoCallError, actionItems, callSummary, searchCalls } from './demoCalls.js';
import { HttpError, readBody, sendText } from './http.js';
import { DEMO_EMAIL } from './seed.js';

export const MCP_STREAM_PATH = '/mcp/sse';
export const MCP_MESSAGES_PATH = '/mcp/messages';
export const MCP_SERVER_NAME = 'quillmoss-demo';
export const MCP_SERVER_VERSION = '0.1.0';

// One JSON-RPC message is a few hundred bytes; nothing a tool takes comes near this.
const MAX_MESSAGE_BYTES = 64 * 1024;
// Streams held open at once; each holds a connection and a server object.
const MAX_SESSIONS = 32;

const NO_ACCOUNT = `There is no demo account here (${DEMO_EMAIL}): start the backend with --seed-demo to create it.`;

/**
 * @typedef {object} McpAccount whose calls a session reads
 * @property {string} userId
 */

/**
 * The MCP server of one session: the three tools, each reading the account's calls afresh (a
 * call finished meanwhile is found).
 * @param {() => object[]} callsOf the account's calls, newest first
 */
export function createDemoMcpServer(callsOf) {
  const server = new McpServer({ name: MCP_SERVER_NAME, version: MCP_SERVER_VERSION });
  const answer = (build) => {
    try {
      return { content: [{ type: 'text', text: build(callsOf()) }] };
    } catch (error) {
      if (!(error instanceof DemoCallError)) throw error;
      return { content: [{ type: 'text', text: error.message }], isError: true };
    }
  };
  const callId = z.string().trim().min(1).max(100);

  server.registerTool(
    'search_calls',
    {
      title: 'Search calls',
      description: 'Search the past calls by words in their titles, summaries and transcripts. Returns the matching calls, best first, with id, title and date.',
      inputSchema: {
        query: z.string().trim().min(1).max(500).describe('Words to look for, e.g. "pricing Helio"'),
        limit: z.number().int().min(1).max(20).optional().describe(`How many calls to return (1-20, default ${DEFAULT_SEARCH_LIMIT})`),
      },
      annotations: { readOnlyHint: true },
    },
    ({ query, limit }) => answer((calls) => searchCalls(calls, { query, limit })),
  );

  server.registerTool(
    'get_call_summary',
    {
      title: 'Call summary',
      description: "A past call's overview, key points and action items, by the call's id (from search_calls).",
      inputSchema: { call_id: callId.describe('The call id, whole or its first 8 or more characters') },
      annotations: { readOnlyHint: true },
    },
    ({ call_id: id }) => answer((calls) => callSummary(calls, id)),
  );

  server.registerTool(
    'list_action_items',
    {
      title: 'List action items',
      description: 'The action items agreed in one call, or in the most recent calls when no call id is given.',
      inputSchema: {
        call_id: callId.optional().describe('Only this call (its id from search_calls)'),
        limit: z.number().int().min(1).max(20).optional().describe(`How many recent calls to go through when no call_id is given (1-20, default ${DEFAULT_RECENT_CALLS})`),
      },
      annotations: { readOnlyHint: true },
    },
    ({ call_id: id, limit }) => answer((calls) => actionItems(calls, { callId: id, recent: limit })),
  );
  return server;
}

/**
 * The open account resolver (--mcp-open): the demo account, whoever asks; none when it was never
 * seeded.
 * @param {import('./auth.js').AuthService} auth
 * @returns {(req: import('node:http').IncomingMessage) => McpAccount | null}
 */
export const demoAccount = (auth) => () => {
  const user = auth.findUser(DEMO_EMAIL);
  return user ? { userId: user.id } : null;
};

/**
 * The two routes of the demo MCP server and its open sessions.
 * @param {{calls: import('./calls.js').CallStore,
 *          accountFor: (req: import('node:http').IncomingMessage) => McpAccount | null,
 *          log?: (line: string) => void, maxSessions?: number}} deps `accountFor` may throw an
 *   `HttpError` (401) to refuse a request; it is asked on both routes
 * @returns {{routes: import('./http.js').Routes, sessionCount: () => number, close: () => void}}
 */
export function mcpRoutes({ calls, accountFor, log = () => {}, maxSessions = MAX_SESSIONS }) {
  /** @type {Map<string, {transport: SSEServerTransport, res: import('node:http').ServerResponse, account: McpAccount | null}>} */
  const sessions = new Map();

  async function openStream(req, res) {
    const account = accountFor(req);
    if (sessions.size >= maxSessions) throw new HttpError(503, `Too many MCP sessions are open (at most ${maxSessions}); close one and try again.`);
    const transport = new SSEServerTransport(MCP_MESSAGES_PATH, res);
    const server = createDemoMcpServer(() => {
      if (!account) throw new DemoCallError(NO_ACCOUNT);
      return calls.listForUser(account.userId);
    });
    const id = transport.sessionId;
    sessions.set(id, { transport, res, account });
    res.on('close', () => {
      // The transport ends its server itself when the stream closes.
      if (sessions.delete(id)) log(`MCP session closed (${sessions.size} open)`);
    });
    server.server.onerror = (error) => log(`MCP session error: ${error.message}`);
    await server.connect(transport);
    log(`MCP session opened (${sessions.size} open)`);
  }

  async function postMessage(req, res, query) {
    // Who asks comes first: without a valid sign-in, nothing is said about sessions.
    const account = accountFor(req);
    const id = query.get('sessionId');
    if (!id) throw new HttpError(400, 'The sessionId query parameter is missing: post to the endpoint the event stream gave.');
    const session = sessions.get(id);
    if (!session) throw new HttpError(404, `No MCP session ${id.slice(0, 64)}: it has ended or never existed. Open ${MCP_STREAM_PATH} again.`);
    if (account?.userId !== session.account?.userId) throw new HttpError(403, 'This MCP session belongs to another account.');
    if (!/^application\/json\s*(?:;|$)/i.test(req.headers['content-type'] ?? '')) {
      throw new HttpError(415, 'A message is posted as application/json.');
    }
    const body = await readBody(req, { maxBytes: MAX_MESSAGE_BYTES });
    let message;
    try {
      message = JSON.parse(body.toString('utf8'));
    } catch {
      throw new HttpError(400, 'The message is not valid JSON.');
    }
    if (!JSONRPCMessageSchema.safeParse(message).success) throw new HttpError(400, 'The message is not a JSON-RPC 2.0 request, notification or response.');
    // Answers 202 and replies on the stream; a stream that has just closed is answered there too.
    await session.transport.handlePostMessage(req, res, message).catch(() => {});
  }

  return {
    routes: {
      [MCP_STREAM_PATH]: { GET: inText(openStream) },
      [MCP_MESSAGES_PATH]: { POST: inText(postMessage) },
    },
    sessionCount: () => sessions.size,
    // Ends every stream and cuts its connection: an ended stream's connection would otherwise
    // stay open, kept alive, until the server's shutdown gives up on it.
    close: () => {
      for (const { transport, res } of sessions.values()) {
        void transport.close();
        res.destroy();
      }
      sessions.clear();
    },
  };
}

// MCP clients show an HTTP error's body as it is: the routes answer in plain text, not JSON.
const inText = (handler) => async (req, res, query) => {
  try {
    await handler(req, res, query);
  } catch (error) {
    if (!(error instanceof HttpError) || res.headersSent) throw error;
    if (error.status === 413) res.setHeader('Connection', 'close');
    sendText(res, error.status, error.message, error.headers);
  }
};
