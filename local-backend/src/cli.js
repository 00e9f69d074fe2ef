import { parseArgs } from 'node:util';
import { DEFAULT_ACCESS_TOKEN_TTL_SECONDS } from './auth.js';
import { DEFAULT_RESUME_WINDOW_SECONDS } from './liveCalls.js';
import { DEFAULT_MCP_TOKEN_TTL_SECONDS } from './mcpOAuthProvider.js';

const DEFAULT_LISTEN = '127.0.0.1:8787';
const MAX_TOKEN_TTL_SECONDS = 365 * 24 * 3600;
const MAX_RESUME_WINDOW_SECONDS = 24 * 3600;

export const USAGE = `Usage: quillmoss-local-backend --db PATH [options]

The Quillmoss backend on this machine: web login, tokens, call history, feedback, and the
event socket of live calls.

Options:
  --db PATH             the SQLite database file (required); its directory holds the
                        data, including the content key secret.key, and is created if missing
  --listen HOST:PORT    where to listen (default ${DEFAULT_LISTEN}; port 0 picks a free port)
  --token-ttl SECONDS   lifetime of access tokens (default ${DEFAULT_ACCESS_TOKEN_TTL_SECONDS})
  --resume-window SECONDS
                        how long a call whose connection dropped waits for its client to
                        reconnect and continue it (default ${DEFAULT_RESUME_WINDOW_SECONDS})
  --seed-demo           create the demo account and its calls unless they exist
  --mcp-token-ttl SECONDS
                        lifetime of the demo MCP server's access tokens
                        (default ${DEFAULT_MCP_TOKEN_TTL_SECONDS})
  --mcp-open            serve the demo account's calls on the demo MCP server to
                        anyone, without sign-in (for clients that cannot sign in yet)
  -h, --help            show this help
`;

/** A command line that cannot be run; exit status 2. */
export class UsageError extends Error {}

/**
 * Splits HOST:PORT, with IPv6 hosts in brackets ("[::1]:8787").
 * @param {string} text
 * @returns {{host: string, port: number}}
 * @throws {UsageError}
 */
function parseListen(text) {
  const match = /^(?:\[([0-9A-Fa-f:.]+)\]|([^:[\]\s]+)):(\d{1,5})$/.exec(text);
  if (!match || Number(match[3]) > 65535) {
    throw new UsageError(`--listen takes HOST:PORT, such as ${DEFAULT_LISTEN}, not "${text}"`);
  }
  return { host: match[1] ?? match[2], port: Number(match[3]) };
}

/**
 * @param {string[]} argv the arguments after the program name
 * @returns {{help: true} | {help: false, dbPath: string, host: string, port: number,
 *           tokenTtlSeconds: number, mcpTokenTtlSeconds: number, resumeWindowSeconds: number,
 *           seedDemo: boolean, mcpOpen: boolean}}
 * @throws {UsageError}
 */
export function parseArguments(argv) {
  let values;
  try {
    ({ values } = parseArgs({
      args: argv,
      options: {
        db: { type: 'string' },
        listen: { type: 'string', default: DEFAULT_LISTEN },
        'token-ttl': { type: 'string', default: String(DEFAULT_ACCESS_TOKEN_TTL_SECONDS) },
        'resume-window': { type: 'string', default: String(DEFAULT_RESUME_WINDOW_SECONDS) },
        'seed-demo': { type: 'boolean', default: false },
        'mcp-token-ttl': { type: 'string', default: String(DEFAULT_MCP_TOKEN_TTL_SECONDS) },
        'mcp-open': { type: 'boolean', default: false },
        help: { type: 'boolean', short: 'h', default: false },
      },
      strict: true,
      allowPositionals: false,
    }));
  } catch (error) {
    throw new UsageError(error.message);
  }
  if (values.help) return { help: true };
  if (!values.db) throw new UsageError('--db PATH is required');
  const ttlOption = (name) => {
    const ttl = values[name];
    if (!/^\d+$/.test(ttl) || Number(ttl) < 1 || Number(ttl) > MAX_TOKEN_TTL_SECONDS) {
      throw new UsageError(`--${name} takes a whole number of seconds from 1 to ${MAX_TOKEN_TTL_SECONDS}, not "${ttl}"`);
    }
    return Number(ttl);
  };
  const tokenTtlSeconds = ttlOption('token-ttl');
  const mcpTokenTtlSeconds = ttlOption('mcp-token-ttl');
  const resumeWindow = values['resume-window'];
  if (!/^\d+$/.test(resumeWindow) || Number(resumeWindow) > MAX_RESUME_WINDOW_SECONDS) {
    throw new UsageError(`--resume-window takes a whole number of seconds from 0 to ${MAX_RESUME_WINDOW_SECONDS}, not "${resumeWindow}"`);
  }
  return {
    help: false,
    dbPath: values.db,
    ...parseListen(values.listen),
    tokenTtlSeconds,
    mcpTokenTtlSeconds,
    resumeWindowSeconds: Number(resumeWindow),
    seedDemo: values['seed-demo'],
    mcpOpen: values['mcp-open'],
  };
}
