import fs from 'node:fs';
import http from 'node:http';
import path from 'node:path';
import { AuthService, authRoutes } from './auth.js';
import { CallStore, callRoutes } from './calls.js';
import { Cipher, loadOrCreateKey } from './crypto.js';
import { Database } from './db.js';
import { attachEventSocket } from './eventSocket.js';
import { FeedbackStore, feedbackRoutes } from './feedback.js';
import { createRequestHandler } from './http.js';
import { LiveCalls } from './liveCalls.js';
import { liveToolRoutes } from './localTools.js';
import { loginRoutes } from './loginPage.js';
import { McpOAuth } from './mcpOAuth.js';
import { demoAccount, mcpRoutes } from './mcpServer.js';
import { DEMO_EMAIL, seedDemo } from './seed.js';

// How long a shutdown waits for requests in progress before cutting their connections.
const SHUTDOWN_GRACE_MS = 5000;

/**
 * @typedef {object} Backend
 * @property {http.Server} server the HTTP server; the event socket attaches here
 * @property {string} url where it listens, with the real port
 * @property {Database} db
 * @property {AuthService} auth
 * @property {CallStore} calls
 * @property {FeedbackStore} feedback
 * @property {LiveCalls} liveCalls the calls in progress on the event socket
 * @property {() => Promise<void>} close closes the event socket (its calls stay open, to be
 *   continued after a restart) and the MCP sessions, stops listening, lets requests finish,
 *   writes the database
 */

/**
 * Opens the data directory and database, seeds the demo account when asked, takes up the calls
 * left open by the last run, and listens.
 * @param {{dbPath: string, host: string, port: number, tokenTtlSeconds?: number, seedDemo?: boolean,
 *          resumeWindowSeconds?: number, mcpTokenTtlSeconds?: number, mcpOpen?: boolean,
 *          log?: (line: string) => void}} options `mcpOpen` serves the demo account's calls on the
 *   demo MCP server to anyone, without sign-in
 * @returns {Promise<Backend>}
 */
export async function startBackend({
  dbPath,
  host,
  port,
  tokenTtlSeconds,
  seedDemo: seed = false,
  resumeWindowSeconds,
  mcpTokenTtlSeconds,
  mcpOpen = false,
  log = logToStderr,
}) {
  const dataDir = path.dirname(path.resolve(dbPath));
  fs.mkdirSync(dataDir, { recursive: true, mode: 0o700 });
  const cipher = new Cipher(loadOrCreateKey(dataDir));
  const db = await Database.open(dbPath);
  try {
    const auth = new AuthService(db, { accessTokenTtlSeconds: tokenTtlSeconds });
    const calls = new CallStore(db, cipher, { warn: log });
    const feedback = new FeedbackStore(db);
    if (seed) {
      const created = seedDemo({ db, auth, calls });
      log(created > 0 ? `demo account ${DEMO_EMAIL} created with ${created} calls` : `demo account ${DEMO_EMAIL} already has calls`);
    }

    const liveCalls = new LiveCalls(calls, { resumeWindowSeconds, log });
    liveCalls.recover();

    // The demo MCP server reads the calls of the account its bearer token was issued to.
    const oauth = new McpOAuth({ db, auth, accessTokenTtlSeconds: mcpTokenTtlSeconds });
    const accountFor = mcpOpen ? demoAccount(auth) : (req) => oauth.accountFor(req);
    const mcp = mcpRoutes({ calls, accountFor, log });
    const routes = {
      ...loginRoutes(auth, oauth.loginHooks),
      ...authRoutes(auth),
      ...callRoutes(auth, calls),
      ...feedbackRoutes(auth, feedback),
      ...mcp.routes,
    };
    const server = http.createServer(createRequestHandler(routes, log));
    // Takes the /socket.io/ requests and upgrades; everything else goes on to the routes. It must
    // come after the request handler, which it wraps, so the routes that read its sessions join
    // the table afterwards (before the server listens).
    const eventSocket = attachEventSocket(server, { auth, liveCalls, log });
    Object.assign(routes, liveToolRoutes(auth, eventSocket));
    // A client that trickles a request in does not hold a connection for long.
    server.requestTimeout = 30_000;
    server.headersTimeout = 10_000;
    try {
      await listen(server, host, port);
    } catch (error) {
      eventSocket.close();
      throw error;
    }
    server.on('error', (error) => log(`server error: ${error.message}`));

    const shownHost = host.includes(':') ? `[${host}]` : host;
    const url = `http://${shownHost}:${server.address().port}`;
    // The authorization server's issuer is the address with its real port, known only now; no
    // request has been read yet (that happens on a later turn of the event loop).
    Object.assign(routes, oauth.routes(url));
    return {
      server,
      url,
      db,
      auth,
      calls,
      feedback,
      liveCalls,
      close: async () => {
        eventSocket.close();
        // Open MCP event streams would otherwise hold the server until the grace period ends.
        mcp.close();
        await new Promise((resolve) => {
          server.close(() => resolve());
          server.closeIdleConnections();
          setTimeout(() => server.closeAllConnections(), SHUTDOWN_GRACE_MS).unref();
        });
        db.close();
      },
    };
  } catch (error) {
    db.close();
    throw error;
  }
}

function listen(server, host, port) {
  return new Promise((resolve, reject) => {
    server.once('error', reject);
    server.listen(port, host, () => {
      server.off('error', reject);
      resolve();
    });
  });
}

function logToStderr(line) {
  process.stderr.write(`${line}\n`);
}
