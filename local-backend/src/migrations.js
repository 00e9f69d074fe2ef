/**
 * The schema, as numbered steps. A database records the steps it has had in `schema_migrations`
 * and gets the missing ones at start. Released steps never change: a new table or column is a new
 * step at the end.
 *
 * Times are ISO 8601 UTC text with milliseconds, which sorts and compares in time order.
 * @type {import('./db.js').Migration[]}
 */
export const migrations = [
  {
    version: 1,
    name: 'users, tokens, calls, feedback',
    sql: `
      CREATE TABLE users (
        id TEXT PRIMARY KEY,
        email TEXT NOT NULL UNIQUE,
        full_name TEXT,
        avatar_url TEXT,
        phone TEXT,
        created_at TEXT NOT NULL,
        updated_at TEXT NOT NULL
      );

      -- Only hashes: a copy of the database does not let anyone sign in.
      CREATE TABLE access_tokens (
        token_hash TEXT PRIMARY KEY,
        user_id TEXT NOT NULL REFERENCES users (id) ON DELETE CASCADE,
        expires_at TEXT NOT NULL,
        created_at TEXT NOT NULL
      );
      CREATE INDEX access_tokens_by_expiry ON access_tokens (expires_at);

      CREATE TABLE refresh_tokens (
        token_hash TEXT PRIMARY KEY,
        user_id TEXT NOT NULL REFERENCES users (id) ON DELETE CASCADE,
        expires_at TEXT NOT NULL,
        created_at TEXT NOT NULL
      );
      CREATE INDEX refresh_tokens_by_expiry ON refresh_tokens (expires_at);

      -- What was said (transcription, summary, chat) is in contents, encrypted; the columns
      -- beside it are what lists and sorts need.
      CREATE TABLE calls (
        id TEXT PRIMARY KEY,
        user_id TEXT NOT NULL REFERENCES users (id) ON DELETE CASCADE,
        direction TEXT NOT NULL CHECK (direction IN ('outbound', 'inbound')),
        status TEXT NOT NULL CHECK (status IN ('active', 'completed', 'failed')),
        duration_seconds REAL,
        message_count INTEGER NOT NULL DEFAULT 0,
        contents BLOB NOT NULL,
        created_at TEXT NOT NULL,
        updated_at TEXT NOT NULL,
        last_saved TEXT NOT NULL
      );
      CREATE INDEX calls_by_user ON calls (user_id, created_at);

      CREATE TABLE feedback (
        id TEXT PRIMARY KEY,
        user_id TEXT NOT NULL REFERENCES users (id) ON DELETE CASCADE,
        type TEXT NOT NULL,
        text TEXT NOT NULL,
        status TEXT NOT NULL,
        created_at TEXT NOT NULL
      );
      CREATE INDEX feedback_by_user ON feedback (user_id, created_at);
    `,
  },
  {
    version: 2,
    name: 'demo MCP server sign-in: clients, codes, tokens',
    sql: `
      -- Clients registered through dynamic client registration; metadata is the registration
      -- answer as JSON (public clients only, so it holds no secret).
      CREATE TABLE oauth_clients (
        client_id TEXT PRIMARY KEY,
        metadata TEXT NOT NULL,
        created_at TEXT NOT NULL
      );

      -- Authorization codes, by hash. A used code keeps its row until it expires, so that a second
      -- use is recognised and the tokens of its grant are revoked.
      CREATE TABLE oauth_codes (
        code_hash TEXT PRIMARY KEY,
        client_id TEXT NOT NULL REFERENCES oauth_clients (client_id) ON DELETE CASCADE,
        user_id TEXT NOT NULL REFERENCES users (id) ON DELETE CASCADE,
        grant_id TEXT NOT NULL,
        redirect_uri TEXT NOT NULL,
        code_challenge TEXT NOT NULL,
        scope TEXT NOT NULL,
        resource TEXT,
        expires_at TEXT NOT NULL,
        used_at TEXT
      );
      CREATE INDEX oauth_codes_by_expiry ON oauth_codes (expires_at);

      -- Access and refresh tokens of the demo MCP server, by hash; a grant is one consent, and
      -- everything refreshed from it shares its id.
      CREATE TABLE oauth_tokens (
        token_hash TEXT PRIMARY KEY,
        kind TEXT NOT NULL CHECK (kind IN ('access', 'refresh')),
        client_id TEXT NOT NULL REFERENCES oauth_clients (client_id) ON DELETE CASCADE,
        user_id TEXT NOT NULL REFERENCES users (id) ON DELETE CASCADE,
        grant_id TEXT NOT NULL,
        scope TEXT NOT NULL,
        resource TEXT,
        expires_at TEXT NOT NULL,
        created_at TEXT NOT NULL
      );
      CREATE INDEX oauth_tokens_by_expiry ON oauth_tokens (expires_at);
      CREATE INDEX oauth_tokens_by_grant ON oauth_tokens (grant_id);
    `,
  },
];
