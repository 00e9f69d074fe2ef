// Starts the real program as a child process on a free port and talks to it over HTTP and over
// its event socket.
import assert from 'node:assert/strict';
import { spawn } from 'node:child_process';
import fs from 'node:fs';
import http from 'node:http';
import os from 'node:os';
import path from 'node:path';
import { fileURLToPath } from 'node:url';
import { after, before } from 'node:test';
import { io } from 'socket.io-client';

const BIN = fileURLToPath(new URL('../../bin/quillmoss-local-backend', import.meta.url));
const READY = /^Quillmoss local backend listening on (http:\/\/\S+)$/m;

const spawnBackend = (args) => spawn(process.execPath, [BIN, ...args], { stdio: ['ignore', 'pipe', 'pipe'] });

/** A fresh directory for one test's data, removed when the test ends. */
export function tempDir(t) {
  const dir = fs.mkdtempSync(path.join(os.tmpdir(), 'quillmoss-backend-'));
  t.after(() => fs.rmSync(dir, { recursive: true, force: true }));
  return dir;
}

/** Runs the program to its end: {code, stdout, stderr}; killed (code null) if still running after 10 s. */
export function run(args) {
  const child = spawnBackend(args);
  const output = { stdout: '', stderr: '' };
  child.stdout.on('data', (chunk) => (output.stdout += chunk));
  child.stderr.on('data', (chunk) => (output.stderr += chunk));
  const timer = setTimeout(() => child.kill('SIGKILL'), 10_000);
  return new Promise((resolve) =>
    child.on('close', (code) => {
      clearTimeout(timer);
      resolve({ code, ...output });
    }),
  );
}

export class Backend {
  /** Every token the server handed out, looked for in its log when it stops. */
  issued = new Set();
  /** Event socket clients, closed when the server ends so that none keeps a test running. */
  clients = new Set();
  stdout = '';
  stderr = '';

  /** @param {string} dbPath @param {string[]} [args] more arguments, such as --seed-demo */
  static async start(dbPath, args = []) {
    const backend = new Backend();
    const child = spawnBackend(['--listen', '127.0.0.1:0', '--db', dbPath, ...args]);
    backend.child = child;
    backend.exited = new Promise((resolve) => child.on('exit', (code) => resolve(code)));
    child.stderr.on('data', (chunk) => (backend.stderr += chunk));
    backend.url = await new Promise((resolve, reject) => {
      const timer = setTimeout(() => {
        child.kill('SIGKILL');
        reject(new Error(`no listening line within 15 s\n${backend.stderr}`));
      }, 15_000);
      child.stdout.on('data', (chunk) => {
        backend.stdout += chunk;
        const match = READY.exec(backend.stdout);
        if (match) {
          clearTimeout(timer);
          resolve(match[1]);
        }
      });
      child.on('exit', (code) => {
        clearTimeout(timer);
        reject(new Error(`exited with ${code} before listening\n${backend.stderr}`));
      });
    });
    return backend;
  }

  /** Stops the server with a signal; it must exit 0 with no issued token in its log. */
  async stop(signal = 'SIGTERM') {
    this.child.kill(signal);
    const code = await this.exited;
    this.#closeClients();
    assert.equal(code, 0, `exit status after ${signal}\n${this.stderr}`);
    for (const token of this.issued) assert.ok(!this.stderr.includes(token), 'an issued token is in the server log');
  }

  /** Ends the server the hard way, as a crash or a power cut would, without any shutdown. */
  async kill() {
    this.child.kill('SIGKILL');
    await this.exited;
    this.#closeClients();
  }

  #closeClients() {
    for (const client of this.clients) client.socket.disconnect();
    this.clients.clear();
  }

  /**
   * Opens the event socket as the desktop client does: namespace /calls, WebSocket straight
   * away, the token as a query item. Resolves once connected; rejects with the connect error.
   * @param {string | undefined} token
   * @returns {Promise<EventClient>}
   */
  async connect(token) {
    const client = new EventClient(this.url, token);
    this.clients.add(client);
    await client.connected;
    return client;
  }

  /** One request on its own connection: {status, headers, text, json}. */
  request(method, target, { token, headers = {}, body, json } = {}) {
    const allHeaders = {
      ...(json !== undefined && { 'Content-Type': 'application/json' }),
      ...(token && { Authorization: `Bearer ${token}` }),
      ...headers,
    };
    return new Promise((resolve, reject) => {
      const req = http.request(new URL(target, this.url), { method, headers: allHeaders, agent: false }, (res) => {
        let text = '';
        res.setEncoding('utf8');
        res.on('data', (chunk) => (text += chunk));
        res.on('end', () => {
          let parsed;
          try {
            parsed = JSON.parse(text);
          } catch {}
          resolve({ status: res.statusCode, headers: res.headers, text, json: parsed });
        });
      });
      // The server may answer (413) and close before a large body is sent; the answer counts.
      req.on('error', (error) => req.res || reject(error));
      req.end(json !== undefined ? JSON.stringify(json) : body);
    });
  }

  /** Signs in through the login form; the tokens from the redirect. */
  async login(email, name = '') {
    const res = await this.request('POST', '/login', {
      headers: { 'Content-Type': 'application/x-www-form-urlencoded' },
      body: new URLSearchParams({ name, email, provider: 'google' }).toString(),
    });
    assert.equal(res.status, 302, res.text);
    const tokens = Object.fromEntries(new URL(res.headers.location).searchParams);
    this.issued.add(tokens.access_token).add(tokens.refresh_token);
    return tokens;
  }

  async refresh(refreshToken) {
    const res = await this.request('POST', '/auth/refresh', { json: { refresh_token: refreshToken } });
    if (res.status === 200) this.issued.add(res.json.data.access_token).add(res.json.data.refresh_token);
    return res;
  }
}

// A waiting test gives up after this long; far above what any answer takes.
const EVENT_TIMEOUT_MS = 5000;

/**
 * A Socket.IO client that keeps every event it receives, in order, per event name, so that a
 * test can wait for "the next chatResponse" without racing the server.
 */
export class EventClient {
  #queues = new Map();
  #waiters = new Map();

  constructor(url, token) {
    this.socket = io(`${url}/calls`, {
      transports: ['websocket'],
      query: token === undefined ? {} : { token },
      reconnection: false,
      forceNew: true,
      timeout: EVENT_TIMEOUT_MS,
    });
    this.socket.onAny((event, ...args) => this.#deliver(event, args[0]));
    this.connected = new Promise((resolve, reject) => {
      this.socket.once('connect', resolve);
      this.socket.once('connect_error', reject);
    });
    this.closed = new Promise((resolve) => this.socket.once('disconnect', resolve));
  }

  /** Sends one event with its one payload. */
  emit(event, ...args) {
    this.socket.emit(event, ...args);
  }

  /** The next event of that name, received already or within the timeout. */
  next(event, timeoutMs = EVENT_TIMEOUT_MS) {
    const queued = this.#queues.get(event);
    if (queued?.length) return Promise.resolve(queued.shift());
    return new Promise((resolve, reject) => {
      const timer = setTimeout(() => {
        this.#waiters.set(event, (this.#waiters.get(event) ?? []).filter((w) => w !== waiter));
        reject(new Error(`no "${event}" within ${timeoutMs} ms`));
      }, timeoutMs);
      const waiter = (payload) => {
        clearTimeout(timer);
        resolve(payload);
      };
      this.#waiters.set(event, [...(this.#waiters.get(event) ?? []), waiter]);
    });
  }

  /** Sends an event and waits for the answer event. */
  async request(event, payload, answer) {
    this.emit(event, payload);
    return this.next(answer);
  }

  /** Everything of that name received and not yet taken. */
  drain(event) {
    const queued = this.#queues.get(event) ?? [];
    this.#queues.set(event, []);
    return queued;
  }

  /** Ends the session on purpose, as the client does when a call ends. */
  close() {
    this.socket.disconnect();
  }

  /** Loses the connection without a goodbye, as a network failure would. */
  drop() {
    this.socket.io.engine.close();
  }

  #deliver(event, payload) {
    const waiters = this.#waiters.get(event);
    if (waiters?.length) waiters.shift()(payload);
    else this.#queues.set(event, [...(this.#queues.get(event) ?? []), payload]);
  }
}

/** Starts a session: connects, and initializes it with these tools; the sessionInitialized answer. */
export async function startSession(backend, token, { direction = 'outbound', localTools } = {}) {
  const client = await backend.connect(token);
  await client.next('connected');
  const initialized = await client.request(
    'initializeSession',
    { direction, timestamp: new Date().toISOString(), ...(localTools && { localTools: JSON.stringify(localTools) }) },
    'sessionInitialized',
  );
  return { client, initialized };
}

/** Says one piece of the call and waits for both answers; the clientTranscriptionProcessed one. */
export async function say(client, speaker, text, extra = {}) {
  client.emit('clientTranscription', { text, timestamp: new Date().toISOString(), isPartial: false, ...(speaker && { speaker }), ...extra });
  const processed = await client.next('clientTranscriptionProcessed');
  await client.next('transcriptionReceived');
  return processed;
}

/**
 * A backend on a new database in a temporary directory, stopped when the test ends, before its
 * directory is removed: a server still running would write into it.
 */
export async function startBackend(t, args = []) {
  let backend;
  t.after(() => backend?.child.exitCode === null && backend.stop());
  backend = await Backend.start(path.join(tempDir(t), 'data', 'quillmoss.db'), args);
  return backend;
}

/** The shape every failure answer has. */
export function assertError(res, status) {
  assert.equal(res.status, status, res.text);
  assert.match(res.headers['content-type'], /^application\/json/);
  assert.equal(res.json.success, false);
  assert.ok(typeof res.json.error === 'string' && res.json.error !== '');
}

/**
 * One backend for all the tests of a file, started before the first and stopped after the last:
 * the tests then use their own users to stay apart. Returns a getter for it.
 * @param {string[]} [args]
 * @returns {() => Backend}
 */
export function backendForFile(args = []) {
  let backend;
  let dir;
  before(async () => {
    dir = fs.mkdtempSync(path.join(os.tmpdir(), 'quillmoss-backend-'));
    backend = await Backend.start(path.join(dir, 'data', 'quillmoss.db'), args);
  });
  after(async () => {
    if (backend?.child.exitCode === null) await backend.stop();
    fs.rmSync(dir, { recursive: true, force: true });
  });
  return () => backend;
}

/** The calls of a user, as GET /calls lists them. */
export async function listCalls(backend, token) {
  const res = await backend.request('GET', '/calls', { token });
  assert.equal(res.status, 200, res.text);
  return res.json.data;
}
