/**
 * Sign-in for the demo MCP server: an OAuth 2.1 authorization server on the backend's own address
 * and the bearer-token check of the MCP routes.
 *
 * The MCP SDK's handlers answer the protocol endpoints (metadata, registration, authorize, token,
 * revocation); they are Express routers, so they run in an Express app of their own that the
 * backend's route table hands those paths to. The browser part is ours: the authorize handler
 * checks the request and the provider keeps it as a pending authorization, the browser signs in
 * on the backend's login page (which knows the pending request by its id), then sees the consent
 * page, whose Allow gives the client a code and whose Deny an access_denied error, both on the
 * client's redirect URI.
 *
 * A pending authorization lives in memory only, for ten minutes: it is a browser tab in progress.
 * Clients, codes and tokens are in the database.
 */
import { randomBytes } from 'node:crypto';
import express from 'express';
import { authorizationHandler } from '@modelcontextprotocol/sdk/server/auth/handlers/authorize.js';
import { metadataHandler } from '@modelcontextprotocol/sdk/server/auth/handlers/metadata.js';
import { clientRegistrationHandler } from '@modelcontextprotocol/sdk/server/auth/handlers/register.js';
import { revocationHandler } from '@modelcontextprotocol/sdk/server/auth/handlers/revoke.js';
import { tokenHandler } from '@modelcontextprotocol/sdk/server/auth/handlers/token.js';
import { HttpError, readBody, sendHtml } from './http.js';
import { MCP_SCOPE, McpOAuthProvider } from './mcpOAuthProvider.js';
import { MCP_STREAM_PATH } from './mcpServer.js';

export const CONSENT_PATH = '/oauth/consent';
const AUTHORIZATION_SERVER_METADATA = '/.well-known/oauth-authorization-server';
const RESOURCE_METADATA = '/.well-known/oauth-protected-resource';
const PENDING_TTL_MS = 10 * 60 * 1000;
// Tabs left open are forgotten oldest first beyond this many.
const MAX_PENDING = 100;

const escapeHtml = (text) =>
  String(text).replace(/[&<>"']/g, (c) => ({ '&': '&amp;', '<': '&lt;', '>': '&gt;', '"': '&quot;', "'": '&#39;' })[c]);

/**
 * Where a form's answer may redirect to: browsers apply form-action to that redirect too.
 * @param {string} redirectUri
 */
function formTarget(redirectUri) {
  const url = new URL(redirectUri);
  return url.protocol === 'http:' ? url.origin : url.protocol;
}

function renderConsentPage({ id, clientName, email, redirectUri }) {
  return `<!doctype html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<title>Allow access to your calls?</title>
<style>
  body { font-family: system-ui, sans-serif; background: #f4f5f2; color: #1d2a22; margin: 0; }
  main { max-width: 26rem; margin: 10vh auto; background: #fff; padding: 2rem; border-radius: 12px;
         box-shadow: 0 2px 12px rgb(0 0 0 / 8%); }
  h1 { font-size: 1.3rem; margin-top: 0; }
  .note { color: #5c6a61; font-size: 0.9rem; }
  .buttons { display: flex; gap: 1rem; margin-top: 1.5rem; }
  button { flex: 1; padding: 0.7rem; font: inherit; font-weight: 600; border-radius: 6px; cursor: pointer; }
  button[value=allow] { color: #fff; background: #2f6b4f; border: 0; }
  button[value=deny] { color: #1d2a22; background: #fff; border: 1px solid #b9c2bb; }
</style>
</head>
<body>
<main>
<h1>${escapeHtml(clientName)} wants to read your calls through the demo MCP server</h1>
<p>Signed in as <strong>${escapeHtml(email)}</strong>. If you allow it, ${escapeHtml(clientName)} can search your past
calls and read their summaries and action items until you sign it out.</p>
<p class="note">You will be sent back to ${escapeHtml(redirectUri)}.</p>
<form method="post" action="${CONSENT_PATH}">
  <input type="hidden" name="request" value="${escapeHtml(id)}">
  <div class="buttons">
    <button type="submit" name="decision" value="deny">Deny</button>
    <button type="submit" name="decision" value="allow">Allow</button>
  </div>
</form>
</main>
</body>
</html>
`;
}

function messagePage(res, status, message) {
  sendHtml(res, status, `<!doctype html><meta charset="utf-8"><title>Sign-in</title><p>${escapeHtml(message)}</p>\n`, {
    'Content-Security-Policy': "default-src 'none'; frame-ancestors 'none'",
  });
}

const EXPIRED = 'This sign-in request has expired or was already answered. Start it again from the app.';

/**
 * The authorization server, its pending authorizations and the bearer check of the MCP routes.
 * {@link McpOAuth#routes} is called once the backend knows its address, which is the issuer.
 */
export class McpOAuth {
  /** @type {Map<string, {client: object, params: object, userId?: string, email?: string, expires: number}>} */
  #pending = new Map();
  #issuer = '';
  #auth;
  provider;

  /**
   * @param {{db: import('./db.js').Database, auth: import('./auth.js').AuthService,
   *          accessTokenTtlSeconds?: number}} deps
   */
  constructor({ db, auth, accessTokenTtlSeconds }) {
    this.#auth = auth;
    this.provider = new McpOAuthProvider(db, {
      accessTokenTtlSeconds,
      beginAuthorization: (request, res) => {
        const id = this.#keep(request);
        res.redirect(302, `/login?${new URLSearchParams({ request: id })}`);
      },
    });
  }

  /** Where the MCP routes' 401 answers point clients for discovery. */
  get resourceMetadataUrl() {
    return `${this.#issuer}${RESOURCE_METADATA}${MCP_STREAM_PATH}`;
  }

  /**
   * The account an MCP request reads: the user of its bearer token.
   * @param {import('node:http').IncomingMessage} req
   * @returns {{userId: string}}
   * @throws {HttpError} 401 with a WWW-Authenticate header naming the resource metadata
   */
  accountFor(req) {
    const refuse = (description) => {
      const header = `Bearer error="invalid_token", error_description="${description}", resource_metadata="${this.resourceMetadataUrl}"`;
      return new HttpError(401, `${description}. Sign in to the demo MCP server (OAuth; discovery at ${AUTHORIZATION_SERVER_METADATA}).`, {
        'WWW-Authenticate': header,
      });
    };
    const authorization = req.headers.authorization;
    if (!authorization) throw refuse('Missing Authorization header');
    const match = /^Bearer +([A-Za-z0-9_-]+)$/i.exec(authorization);
    if (!match) throw refuse('The Authorization header is not "Bearer TOKEN"');
    const info = this.provider.accessTokenInfo(match[1]);
    if (!info || !info.scopes.includes(MCP_SCOPE)) throw refuse('Unknown, revoked or expired access token');
    return { userId: info.extra.userId };
  }

  /**
   * What the login page needs to take part in an authorization: which client a pending request
   * is for, and where the browser goes once it signed in.
   */
  get loginHooks() {
    return {
      /** @returns {string | null} the client's name, or null for an unknown or expired request */
      clientOf: (id) => {
        const pending = this.#live(id);
        return pending ? (pending.client.client_name ?? 'An application') : null;
      },
      /** @returns {string | null} the consent page's address, or null for an unknown or expired request */
      signedIn: (id, who) => {
        const pending = this.#live(id);
        if (!pending) return null;
        const user = this.#auth.findOrCreateUser(who);
        Object.assign(pending, { userId: user.id, email: user.email });
        return `${CONSENT_PATH}?${new URLSearchParams({ request: id })}`;
      },
    };
  }

  /**
   * The routes of the authorization server and the consent page.
   * @param {string} issuer the backend's base URL, such as http://127.0.0.1:8787
   * @returns {import('./http.js').Routes}
   */
  routes(issuer) {
    this.#issuer = issuer;
    const metadata = {
      issuer,
      authorization_endpoint: `${issuer}/authorize`,
      token_endpoint: `${issuer}/token`,
      registration_endpoint: `${issuer}/register`,
      revocation_endpoint: `${issuer}/revoke`,
      response_types_supported: ['code'],
      grant_types_supported: ['authorization_code', 'refresh_token'],
      code_challenge_methods_supported: ['S256'],
      token_endpoint_auth_methods_supported: ['none'],
      revocation_endpoint_auth_methods_supported: ['none'],
      scopes_supported: [MCP_SCOPE],
    };
    const resourceMetadata = {
      resource: `${issuer}${MCP_STREAM_PATH}`,
      authorization_servers: [issuer],
      scopes_supported: [MCP_SCOPE],
      bearer_methods_supported: ['header'],
      resource_name: 'Quillmoss demo MCP server',
    };

    const app = express();
    app.disable('x-powered-by');
    // The backend listens on loopback for one person: the SDK's per-address rate limits would
    // only get in the way of a test run that registers dozens of clients.
    const noLimit = { rateLimit: false };
    app.use('/authorize', authorizationHandler({ provider: this.provider, ...noLimit }));
    app.use('/token', tokenHandler({ provider: this.provider, ...noLimit }));
    app.use('/register', clientRegistrationHandler({ clientsStore: this.provider.clientsStore, ...noLimit }));
    app.use('/revoke', revocationHandler({ provider: this.provider, ...noLimit }));
    app.use(AUTHORIZATION_SERVER_METADATA, metadataHandler(metadata));
    app.use(`${RESOURCE_METADATA}${MCP_STREAM_PATH}`, metadataHandler(resourceMetadata));
    app.use(RESOURCE_METADATA, metadataHandler({ ...resourceMetadata, resource: issuer }));
    // A body the parsers refuse (bad JSON, too large) is an OAuth error, never Express's HTML page.
    app.use((error, req, res, _next) => {
      res.status(error.status >= 400 && error.status < 500 ? error.status : 500).json({
        error: error.status >= 400 && error.status < 500 ? 'invalid_request' : 'server_error',
        error_description: error.status >= 400 && error.status < 500 ? error.message : 'Internal Server Error',
      });
    });

    const toApp = (req, res) => app(req, res);
    const every = { GET: toApp, POST: toApp, OPTIONS: toApp };
    return {
      '/authorize': every,
      '/token': every,
      '/register': every,
      '/revoke': every,
      [AUTHORIZATION_SERVER_METADATA]: every,
      [RESOURCE_METADATA]: every,
      [`${RESOURCE_METADATA}${MCP_STREAM_PATH}`]: every,
      [CONSENT_PATH]: {
        GET: (req, res, query) => this.#showConsent(res, query.get('request') ?? ''),
        POST: (req, res) => this.#answerConsent(req, res),
      },
    };
  }

  #showConsent(res, id) {
    const pending = this.#live(id);
    if (!pending?.userId) return messagePage(res, 400, EXPIRED);
    const { client, params } = pending;
    sendHtml(res, 200, renderConsentPage({ id, clientName: client.client_name ?? 'An application', email: pending.email, redirectUri: params.redirectUri }), {
      'Content-Security-Policy': `default-src 'none'; style-src 'unsafe-inline'; form-action 'self' ${formTarget(params.redirectUri)}; frame-ancestors 'none'`,
      'Referrer-Policy': 'no-referrer',
    });
  }

  async #answerConsent(req, res) {
    const type = (req.headers['content-type'] ?? '').split(';')[0].trim().toLowerCase();
    if (type !== 'application/x-www-form-urlencoded') throw new HttpError(415, 'The consent form is posted as application/x-www-form-urlencoded');
    const form = new URLSearchParams((await readBody(req)).toString('utf8'));
    const id = form.get('request') ?? '';
    const decision = form.get('decision');
    const pending = this.#live(id);
    if (!pending?.userId) return messagePage(res, 400, EXPIRED);
    if (decision !== 'allow' && decision !== 'deny') return messagePage(res, 400, 'Choose Allow or Deny.');
    // One answer per request: a second post (a double click, the back button) finds nothing.
    this.#pending.delete(id);

    const { client, params, userId } = pending;
    const target = new URL(params.redirectUri);
    if (decision === 'allow') {
      const code = this.provider.issueCode({
        clientId: client.client_id,
        userId,
        redirectUri: params.redirectUri,
        codeChallenge: params.codeChallenge,
        scope: params.scope,
        resource: params.resource,
      });
      target.searchParams.set('code', code);
    } else {
      target.searchParams.set('error', 'access_denied');
      target.searchParams.set('error_description', 'The user denied access');
    }
    if (params.state !== undefined) target.searchParams.set('state', params.state);
    sendHtml(res, 302, '<!doctype html><title>Done</title><p>You can return to the application.</p>\n', {
      Location: target.href,
      'Referrer-Policy': 'no-referrer',
    });
  }

  #keep(request) {
    const now = Date.now();
    for (const [id, pending] of this.#pending) {
      if (pending.expires <= now || this.#pending.size >= MAX_PENDING) this.#pending.delete(id);
    }
    const id = randomBytes(24).toString('base64url');
    this.#pending.set(id, { ...request, expires: now + PENDING_TTL_MS });
    return id;
  }

  #live(id) {
    const pending = this.#pending.get(id);
    return pending && pending.expires > Date.now() ? pending : undefined;
  }
}
