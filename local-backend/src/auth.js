import { createHash, randomBytes, randomUUID } from 'node:crypto';
import { HttpError, readJsonObject, sendJson } from './http.js';

const REFRESH_TOKEN_TTL_SECONDS = 30 * 24 * 3600;
export const DEFAULT_ACCESS_TOKEN_TTL_SECONDS = 3600;

/** @typedef {{access_token: string, refresh_token: string, expires_at: string, expires_in: number}} TokenPair */
/** @typedef {{id: string, email: string, full_name: string | null, avatar_url: string | null,
 *             phone: string | null, created_at: string, updated_at: string}} UserRow */

const newToken = () => randomBytes(32).toString('base64url');
const hashToken = (token) => createHash('sha256').update(token, 'utf8').digest('hex');

/** Users and their tokens. Tokens are kept as SHA-256 hashes only. */
export class AuthService {
  #db;
  #accessTtlSeconds;

  /**
   * @param {import('./db.js').Database} db
   * @param {{accessTokenTtlSeconds?: number}} [options]
   */
  constructor(db, { accessTokenTtlSeconds = DEFAULT_ACCESS_TOKEN_TTL_SECONDS } = {}) {
    this.#db = db;
    this.#accessTtlSeconds = accessTokenTtlSeconds;
  }

  /**
   * Finds the user with this e-mail (any case) or creates one. A non-empty name replaces the
   * stored one, as a provider's profile would.
   * @param {{email: string, name?: string}} who
   * @returns {UserRow}
   */
  findOrCreateUser({ email, name }) {
    const address = email.trim().toLowerCase();
    const fullName = name?.trim() || null;
    return this.#db.transaction(() => {
      const now = new Date().toISOString();
      const existing = this.#userByEmail(address);
      if (!existing) {
        this.#db.run(
          'INSERT INTO users (id, email, full_name, created_at, updated_at) VALUES (?, ?, ?, ?, ?)',
          [`u_${randomUUID()}`, address, fullName ?? address.split('@')[0], now, now],
        );
      } else if (fullName && fullName !== existing.full_name) {
        this.#db.run('UPDATE users SET full_name = ?, updated_at = ? WHERE id = ?', [fullName, now, existing.id]);
      }
      return this.#userByEmail(address);
    });
  }

  /**
   * The user with this e-mail (any case), without creating one.
   * @param {string} email
   * @returns {UserRow | undefined}
   */
  findUser(email) {
    return this.#userByEmail(email.trim().toLowerCase());
  }

  /**
   * Signs a user in after the login form: finds or creates them and issues a token pair, in one
   * transaction.
   * @param {{email: string, name?: string}} who
   * @returns {{user: UserRow, tokens: TokenPair}}
   */
  signIn(who) {
    return this.#db.transaction(() => {
      const user = this.findOrCreateUser(who);
      return { user, tokens: this.issueTokens(user.id) };
    });
  }

  /**
   * Issues a new access and refresh token for a user, and drops expired ones while at it.
   * @param {string} userId
   * @returns {TokenPair}
   */
  issueTokens(userId) {
    return this.#db.transaction(() => {
      const now = new Date();
      const nowIso = now.toISOString();
      this.#db.run('DELETE FROM access_tokens WHERE expires_at <= ?', [nowIso]);
      this.#db.run('DELETE FROM refresh_tokens WHERE expires_at <= ?', [nowIso]);

      const accessToken = newToken();
      const refreshToken = newToken();
      const expiresAt = new Date(now.getTime() + this.#accessTtlSeconds * 1000).toISOString();
      const refreshExpiresAt = new Date(now.getTime() + REFRESH_TOKEN_TTL_SECONDS * 1000).toISOString();
      this.#db.run('INSERT INTO access_tokens (token_hash, user_id, expires_at, created_at) VALUES (?, ?, ?, ?)', [
        hashToken(accessToken),
        userId,
        expiresAt,
        nowIso,
      ]);
      this.#db.run('INSERT INTO refresh_tokens (token_hash, user_id, expires_at, created_at) VALUES (?, ?, ?, ?)', [
        hashToken(refreshToken),
        userId,
        refreshExpiresAt,
        nowIso,
      ]);
      return {
        access_token: accessToken,
        refresh_token: refreshToken,
        expires_at: expiresAt,
        expires_in: this.#accessTtlSeconds,
      };
    });
  }

  /**
   * The user an `Authorization: Bearer …` header belongs to, or null when it is missing,
   * malformed, unknown or expired.
   * @param {string | undefined} authorization
   * @returns {UserRow | null}
   */
  authenticate(authorization) {
    const match = /^Bearer +([A-Za-z0-9_-]+)$/i.exec(authorization ?? '');
    if (!match) return null;
    return (
      this.#db.get(
        `SELECT users.* FROM access_tokens JOIN users ON users.id = access_tokens.user_id
         WHERE access_tokens.token_hash = ? AND access_tokens.expires_at > ?`,
        [hashToken(match[1]), new Date().toISOString()],
      ) ?? null
    );
  }

  /**
   * Trades a refresh token for a new pair. The old refresh token is consumed in the same
   * transaction, so of two requests with one token exactly one gets a pair.
   * @param {string} refreshToken
   * @returns {{user: UserRow, tokens: TokenPair} | null} null for an unknown, used or expired token
   */
  refresh(refreshToken) {
    return this.#db.transaction(() => {
      const hash = hashToken(refreshToken);
      const row = this.#db.get('SELECT user_id FROM refresh_tokens WHERE token_hash = ? AND expires_at > ?', [
        hash,
        new Date().toISOString(),
      ]);
      if (!row || this.#db.run('DELETE FROM refresh_tokens WHERE token_hash = ?', [hash]) !== 1) return null;
      const tokens = this.issueTokens(row.user_id);
      return { user: this.#db.get('SELECT * FROM users WHERE id = ?', [row.user_id]), tokens };
    });
  }

  /**
   * The signed-in user of a request.
   * @throws {HttpError} 401 when the bearer token is not valid
   */
  requireUser(req) {
    const user = this.authenticate(req.headers.authorization);
    if (!user) throw new HttpError(401, 'Missing, invalid or expired access token', { 'WWW-Authenticate': 'Bearer' });
    return user;
  }

  #userByEmail(email) {
    return this.#db.get('SELECT * FROM users WHERE email = ?', [email]);
  }
}

/**
 * A user as the client sees it: camel case, and keys absent when unknown.
 * @param {UserRow} user
 */
function profileOf(user) {
  return {
    id: user.id,
    email: user.email,
    ...(user.full_name && { fullName: user.full_name }),
    ...(user.avatar_url && { avatarUrl: user.avatar_url }),
    ...(user.phone && { phone: user.phone }),
    createdAt: user.created_at,
    updatedAt: user.updated_at,
  };
}

/** @param {AuthService} auth @returns {import('./http.js').Routes} */
export function authRoutes(auth) {
  return {
    '/auth/user': {
      GET: (req, res) => sendJson(res, 200, profileOf(auth.requireUser(req))),
    },
    '/auth/refresh': {
      POST: async (req, res) => {
        const body = await readJsonObject(req);
        const token = body.refresh_token;
        if (typeof token !== 'string' || token === '') {
          throw new HttpError(400, 'refresh_token must be a non-empty string');
        }
        const result = auth.refresh(token);
        if (!result) throw new HttpError(401, 'Unknown, used or expired refresh token');
        sendJson(res, 200, { success: true, data: { ...result.tokens, user: profileOf(result.user) } });
      },
    },
  };
}
