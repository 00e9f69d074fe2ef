/** Request plumbing shared by every endpoint: routing, bodies, answers, errors, the request log. */

const MAX_BODY_BYTES = 1024 * 1024;

/** An answer other than success, carrying its status; turned into the JSON error shape. */
export class HttpError extends Error {
  /**
   * @param {number} status
   * @param {string} message shown to the client
   * @param {Record<string, string>} [headers]
   */
  constructor(status, message, headers = {}) {
    super(message);
    this.status = status;
    this.headers = headers;
  }
}

/**
 * @typedef {(req: import('node:http').IncomingMessage, res: import('node:http').ServerResponse,
 *            query: URLSearchParams) => void | Promise<void>} Handler
 * @typedef {Record<string, Record<string, Handler>>} Routes path → method → handler
 */

/**
 * Builds the server's request listener over a route table. Unknown paths get 404, known paths
 * with another method 405 with `Allow`, HEAD is answered by the GET handler (Node leaves the body
 * out), and every failure becomes a JSON error: nothing a client sends can bring the server down.
 * @param {Routes} routes
 * @param {(line: string) => void} log
 */
export function createRequestHandler(routes, log) {
  return (req, res) => {
    const started = process.hrtime.bigint();
    const { path, query } = splitTarget(req.url ?? '');
    res.on('close', () => {
      const ms = Number(process.hrtime.bigint() - started) / 1e6;
      const aborted = res.writableFinished ? '' : ' (connection closed early)';
      // The path only: query strings carry secrets (tokens on redirects, login details).
      log(`${req.method} ${printable(path)} ${res.statusCode} ${ms.toFixed(1)}ms${aborted}`);
    });
    Promise.resolve()
      .then(() => dispatch(routes, req, res, path, query))
      .catch((error) => answerError(res, error, log));
  };
}

function dispatch(routes, req, res, path, query) {
  const methods = Object.hasOwn(routes, path) ? routes[path] : undefined;
  if (!methods) throw new HttpError(404, 'Not found');
  const method = req.method === 'HEAD' ? 'GET' : req.method;
  const handler = Object.hasOwn(methods, method) ? methods[method] : undefined;
  if (!handler) {
    const allowed = Object.keys(methods);
    if (allowed.includes('GET')) allowed.push('HEAD');
    throw new HttpError(405, 'Method not allowed', { Allow: allowed.join(', ') });
  }
  return handler(req, res, query);
}

function answerError(res, error, log) {
  if (!(error instanceof HttpError)) {
    log(`internal error: ${error?.stack ?? error}`);
    error = new HttpError(500, 'Internal server error');
  }
  if (res.headersSent) {
    res.destroy();
    return;
  }
  // A body left unread (413) would otherwise be drained before the connection can be reused.
  if (error.status === 413) res.setHeader('Connection', 'close');
  sendJson(res, error.status, { success: false, error: error.message }, error.headers);
}

function splitTarget(target) {
  const mark = target.indexOf('?');
  return mark < 0
    ? { path: target, query: new URLSearchParams() }
    : { path: target.slice(0, mark), query: new URLSearchParams(target.slice(mark + 1)) };
}

// Keeps one request on one log line and the log free of terminal control sequences.
function printable(path) {
  const shown = path.length > 200 ? `${path.slice(0, 200)}…` : path;
  return shown.replace(/[^\x21-\x7e…]/g, (c) => encodeURIComponent(c));
}

/**
 * @param {import('node:http').ServerResponse} res
 * @param {number} status
 * @param {unknown} body
 * @param {Record<string, string>} [headers]
 */
export function sendJson(res, status, body, headers = {}) {
  const payload = JSON.stringify(body);
  res.writeHead(status, {
    'Content-Type': 'application/json; charset=utf-8',
    'Content-Length': Buffer.byteLength(payload),
    // Answers carry tokens and personal data: no cache keeps them.
    'Cache-Control': 'no-store',
    'X-Content-Type-Options': 'nosniff',
    ...headers,
  });
  res.end(payload);
}

/**
 * @param {import('node:http').ServerResponse} res
 * @param {number} status
 * @param {string} html
 * @param {Record<string, string>} [headers]
 */
export function sendHtml(res, status, html, headers = {}) {
  res.writeHead(status, {
    'Content-Type': 'text/html; charset=utf-8',
    'Content-Length': Buffer.byteLength(html),
    'Cache-Control': 'no-store',
    'X-Content-Type-Options': 'nosniff',
    ...headers,
  });
  res.end(html);
}

/**
 * @param {import('node:http').ServerResponse} res
 * @param {number} status
 * @param {string} text
 * @param {Record<string, string>} [headers]
 */
export function sendText(res, status, text, headers = {}) {
  res.writeHead(status, {
    'Content-Type': 'text/plain; charset=utf-8',
    'Content-Length': Buffer.byteLength(text),
    'Cache-Control': 'no-store',
    'X-Content-Type-Options': 'nosniff',
    ...headers,
  });
  res.end(text);
}

/**
 * Reads the whole request body, refusing (413) more than `maxBytes` (by default
 * {@link MAX_BODY_BYTES}): at once when Content-Length says so, else as soon as the count passes it.
 * @param {import('node:http').IncomingMessage} req
 * @param {{maxBytes?: number}} [options]
 * @returns {Promise<Buffer>}
 */
export function readBody(req, { maxBytes = MAX_BODY_BYTES } = {}) {
  const tooLarge = () => new HttpError(413, `The request body is larger than ${maxBytes} bytes`);
  if (Number(req.headers['content-length']) > maxBytes) return Promise.reject(tooLarge());
  return new Promise((resolve, reject) => {
    const chunks = [];
    let size = 0;
    const onData = (chunk) => {
      size += chunk.length;
      if (size > maxBytes) {
        req.off('data', onData);
        reject(tooLarge());
      } else {
        chunks.push(chunk);
      }
    };
    req.on('data', onData);
    req.on('end', () => resolve(Buffer.concat(chunks)));
    req.on('error', reject);
  });
}

/**
 * Reads a body that must be one JSON object.
 * @returns {Promise<Record<string, unknown>>}
 */
export async function readJsonObject(req) {
  const body = await readBody(req);
  let value;
  try {
    value = JSON.parse(body.toString('utf8'));
  } catch {
    throw new HttpError(400, 'The request body is not valid JSON');
  }
  if (value === null || typeof value !== 'object' || Array.isArray(value)) {
    throw new HttpError(400, 'The request body must be a JSON object');
  }
  return value;
}
