/**
 * The authorization server behind the demo MCP server's sign-in: registered clients, authorization
 * codes and tokens in the backend's database, in the shape the MCP SDK's OAuth handlers ask of a
 * provider. The browser part of an authorization (sign-in and consent) is in mcpOAuth.js; this
 * file decides who may have a code and a token.
 *
 * Only public clients are registered (a desktop app or a command-line tool cannot keep a secret),
 * so every code is bound to a PKCE S256 challenge, which the SDK's token handler checks before it
 * asks for the tokens. Codes, access and refresh tokens are opaque random strings kept as SHA-256
 * hashes only.
 */
import { createHash, randomBytes, randomUUID } from 'node:crypto';
import {
  InvalidClientMetadataError,
  InvalidGrantError,
  InvalidScopeError,
  InvalidTokenError,
} from '@modelcontextprotocol/sdk/server/auth/errors.js';

/** The one scope: reading the signed-in account's calls through the demo MCP server. */
export const MCP_SCOPE = 'mcp';
export const APP_REDIRECT_URI = 'quillmoss://oauth/callback';
export const DEFAULT_MCP_TOKEN_TTL_SECONDS = 3600;
const REFRESH_TOKEN_TTL_SECONDS = 30 * 24 * 3600;
// Long enough for a browser's redirect and the app's exchange, short enough that a code in a log
// or a history is worthless.
const CODE_TTL_SECONDS = 60;
const GRANT_TYPES = ['authorization_code', 'refresh_token'];

const newSecret = () => randomBytes(32).toString('base64url');
const hashOf = (secret) => createHash('sha256').update(secret, 'utf8').digest('hex');
const isoIn = (seconds, from = Date.now()) => new Date(from + seconds * 1000).toISOString();

/**
 * Why a redirect URI cannot be registered, or null: the app's own callback, or a loopback address
 * over http on any port (a command-line client listening for its one redirect).
 * @param {string} uri
 * @returns {string | null}
 */
export function redirectUriProblem(uri) {
  if (uri === APP_REDIRECT_URI) return null;
  let url;
  try {
    url = new URL(uri);
  } catch {
    return `"${uri}" is not a URL`;
  }
  if (url.protocol !== 'http:' || !['127.0.0.1', '[::1]'].includes(url.hostname)) {
    return `redirect URIs are ${APP_REDIRECT_URI} or http://127.0.0.1:PORT/…, not "${uri}"`;
  }
  if (url.hash || url.username || url.password) return `"${uri}" may not have a fragment or user information`;
  return null;
}

/** @implements {import('@modelcontextprotocol/sdk/server/auth/provider.js').OAuthServerProvider} */
export class McpOAuthProvider {
  #db;
  #accessTtlSeconds;
  #beginAuthorization;

  /**
   * @param {import('./db.js').Database} db
   * @param {{accessTokenTtlSeconds?: number,
   *          beginAuthorization: (request: {client: object, params: object}, res: import('express').Response) => void}} options
   *   `beginAuthorization` keeps the request and sends the browser on to sign in and consent
   */
  constructor(db, { accessTokenTtlSeconds = DEFAULT_MCP_TOKEN_TTL_SECONDS, beginAuthorization }) {
    this.#db = db;
    this.#accessTtlSeconds = accessTokenTtlSeconds;
    this.#beginAuthorization = beginAuthorization;
  }

  /** The registered clients, as the SDK's registration and token handlers read them. */
  get clientsStore() {
    return {
      getClient: (clientId) => {
        const row = this.#db.get('SELECT metadata FROM oauth_clients WHERE client_id = ?', [clientId]);
        return row ? JSON.parse(row.metadata) : undefined;
      },
      registerClient: (client) => this.#register(client),
    };
  }

  /**
   * Begins an authorization the SDK's handler has checked (known client, registered redirect URI,
   * an S256 challenge): the scope is checked here, and the browser is taken to sign-in and consent.
   * @param {import('@modelcontextprotocol/sdk/shared/auth.js').OAuthClientInformationFull} client
   * @param {import('@modelcontextprotocol/sdk/server/auth/provider.js').AuthorizationParams} params
   * @param {import('express').Response} res
   */
  async authorize(client, params, res) {
    const scope = this.grantedScope(params.scopes);
    this.#beginAuthorization({ client, params: { ...params, scope } }, res);
  }

  /**
   * Checks the scopes an authorization asks for; an empty request means the one scope there is.
   * @param {string[] | undefined} scopes
   * @returns {string} the granted scope
   */
  grantedScope(scopes) {
    const asked = (scopes ?? []).filter((s) => s !== '');
    const unknown = asked.filter((s) => s !== MCP_SCOPE);
    if (unknown.length > 0) throw new InvalidScopeError(`Unknown scope ${unknown.join(' ')}; this server offers "${MCP_SCOPE}"`);
    return MCP_SCOPE;
  }

  /**
   * A new authorization code for a consent the user gave.
   * @param {{clientId: string, userId: string, redirectUri: string, codeChallenge: string,
   *          scope: string, resource?: URL}} grant
   * @returns {string}
   */
  issueCode({ clientId, userId, redirectUri, codeChallenge, scope, resource }) {
    const code = newSecret();
    this.#db.transaction(() => {
      this.#dropExpired();
      this.#db.run(
        `INSERT INTO oauth_codes (code_hash, client_id, user_id, grant_id, redirect_uri, code_challenge, scope, resource, expires_at)
         VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?)`,
        [hashOf(code), clientId, userId, `g_${randomUUID()}`, redirectUri, codeChallenge, scope, resource?.href ?? null, isoIn(CODE_TTL_SECONDS)],
      );
    });
    return code;
  }

  /** The PKCE challenge of a live code of this client; the SDK compares the verifier with it. */
  async challengeForAuthorizationCode(client, code) {
    return this.#liveCode(client, code).code_challenge;
  }

  async exchangeAuthorizationCode(client, code, _codeVerifier, redirectUri) {
    return this.#db.transaction(() => {
      const row = this.#liveCode(client, code);
      // The app sends the redirect URI it authorized with; another one is a code taken elsewhere.
      if (redirectUri !== undefined && redirectUri !== row.redirect_uri) {
        throw new InvalidGrantError('redirect_uri is not the one the code was issued for');
      }
      this.#db.run('UPDATE oauth_codes SET used_at = ? WHERE code_hash = ?', [new Date().toISOString(), row.code_hash]);
      return this.#issueTokens({ clientId: client.client_id, userId: row.user_id, grantId: row.grant_id, scope: row.scope, resource: row.resource });
    });
  }

  /** Rotates: the refresh token is spent and a new pair of the same grant is issued. */
  async exchangeRefreshToken(client, refreshToken, scopes) {
    return this.#db.transaction(() => {
      const hash = hashOf(refreshToken);
      const row = this.#db.get(
        "SELECT * FROM oauth_tokens WHERE token_hash = ? AND kind = 'refresh' AND client_id = ? AND expires_at > ?",
        [hash, client.client_id, new Date().toISOString()],
      );
      if (!row) throw new InvalidGrantError('Unknown, used or expired refresh token');
      if (scopes?.some((s) => !row.scope.split(' ').includes(s))) throw new InvalidScopeError('A refresh cannot widen the scope');
      this.#db.run('DELETE FROM oauth_tokens WHERE token_hash = ?', [hash]);
      return this.#issueTokens({ clientId: client.client_id, userId: row.user_id, grantId: row.grant_id, scope: row.scope, resource: row.resource });
    });
  }

  /**
   * @returns {Promise<import('@modelcontextprotocol/sdk/server/auth/types.js').AuthInfo>}
   */
  async verifyAccessToken(token) {
    const info = this.accessTokenInfo(token);
    if (!info) throw new InvalidTokenError('Unknown, revoked or expired access token');
    return info;
  }

  /**
   * The same check, synchronous, for the MCP routes: what a live access token stands for, or null.
   * @param {string} token
   */
  accessTokenInfo(token) {
    const row = this.#db.get("SELECT * FROM oauth_tokens WHERE token_hash = ? AND kind = 'access' AND expires_at > ?", [
      hashOf(token),
      new Date().toISOString(),
    ]);
    if (!row) return null;
    return {
      token,
      clientId: row.client_id,
      scopes: row.scope.split(' '),
      expiresAt: Math.floor(Date.parse(row.expires_at) / 1000),
      ...(row.resource && { resource: new URL(row.resource) }),
      extra: { userId: row.user_id },
    };
  }

  /**
   * Revokes one access token, or a refresh token with its whole grant (whoever holds the refresh
   * token can mint access tokens of it). Unknown tokens and other clients' tokens change nothing.
   */
  async revokeToken(client, { token }) {
    this.#db.transaction(() => {
      const row = this.#db.get('SELECT kind, grant_id FROM oauth_tokens WHERE token_hash = ? AND client_id = ?', [hashOf(token), client.client_id]);
      if (row?.kind === 'refresh') this.#db.run('DELETE FROM oauth_tokens WHERE grant_id = ?', [row.grant_id]);
      else if (row) this.#db.run('DELETE FROM oauth_tokens WHERE token_hash = ?', [hashOf(token)]);
    });
  }

  #register(client) {
    const method = client.token_endpoint_auth_method ?? 'none';
    if (method !== 'none') {
      throw new InvalidClientMetadataError(`token_endpoint_auth_method "${method}" is not offered: only public clients ("none") with PKCE are registered`);
    }
    if (client.redirect_uris.length === 0) throw new InvalidClientMetadataError('redirect_uris must name at least one URI');
    for (const uri of client.redirect_uris) {
      const problem = redirectUriProblem(uri);
      if (problem) throw new InvalidClientMetadataError(problem);
    }
    const grantTypes = client.grant_types ?? ['authorization_code'];
    const unknownGrant = grantTypes.find((g) => !GRANT_TYPES.includes(g));
    if (unknownGrant) throw new InvalidClientMetadataError(`grant type "${unknownGrant}" is not offered`);
    const responseTypes = client.response_types ?? ['code'];
    if (responseTypes.some((r) => r !== 'code')) throw new InvalidClientMetadataError('only the "code" response type is offered');

    // A client that named no method is registered as public: the handler made it a secret, which
    // is dropped, since nothing here would ever ask for it.
    const { client_secret: _secret, client_secret_expires_at: _expires, ...rest } = client;
    const registered = { ...rest, token_endpoint_auth_method: 'none', grant_types: grantTypes, response_types: responseTypes };
    this.#db.run('INSERT INTO oauth_clients (client_id, metadata, created_at) VALUES (?, ?, ?)', [
      registered.client_id,
      JSON.stringify(registered),
      new Date().toISOString(),
    ]);
    return registered;
  }

  // A code of this client that is neither used nor expired. A used one is a replay: whoever
  // presents it again may have stolen it, so the tokens it gave are revoked too.
  #liveCode(client, code) {
    const row = this.#db.get('SELECT * FROM oauth_codes WHERE code_hash = ? AND client_id = ?', [hashOf(code), client.client_id]);
    if (row?.used_at) {
      this.#db.run('DELETE FROM oauth_tokens WHERE grant_id = ?', [row.grant_id]);
      throw new InvalidGrantError('The authorization code has been used already');
    }
    if (!row || row.expires_at <= new Date().toISOString()) throw new InvalidGrantError('Unknown or expired authorization code');
    return row;
  }

  #issueTokens({ clientId, userId, grantId, scope, resource }) {
    this.#dropExpired();
    const now = Date.now();
    const accessToken = newSecret();
    const refreshToken = newSecret();
    const insert = (token, kind, seconds) =>
      this.#db.run(
        `INSERT INTO oauth_tokens (token_hash, kind, client_id, user_id, grant_id, scope, resource, expires_at, created_at)
         VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?)`,
        [hashOf(token), kind, clientId, userId, grantId, scope, resource, isoIn(seconds, now), new Date(now).toISOString()],
      );
    insert(accessToken, 'access', this.#accessTtlSeconds);
    insert(refreshToken, 'refresh', REFRESH_TOKEN_TTL_SECONDS);
    return { access_token: accessToken, token_type: 'Bearer', expires_in: this.#accessTtlSeconds, refresh_token: refreshToken, scope };
  }

  #dropExpired() {
    const now = new Date().toISOString();
    this.#db.run('DELETE FROM oauth_codes WHERE expires_at <= ?', [now]);
    this.#db.run('DELETE FROM oauth_tokens WHERE expires_at <= ?', [now]);
  }
}
