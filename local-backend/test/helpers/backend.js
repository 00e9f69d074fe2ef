// Starts the real program as a child process on a free port and talks to it over HTTP.
import assert from 'node:assert/strict';
import { spawn } from 'node:child_process';
import fs from 'node:fs';
import http from 'node:http';
import os from 'node:os';
import path from 'node:path';
import { fileURLToPath } from 'node:url';

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
    assert.equal(await this.exited, 0, `exit status after ${signal}\n${this.stderr}`);
    for (const token of this.issued) assert.ok(!this.stderr.includes(token), 'an issued token is in the server log');
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

/** A backend on a new database in a temporary directory, stopped when the test ends. */
export async function startBackend(t, args = []) {
  const backend = await Backend.start(path.join(tempDir(t), 'data', 'quillmoss.db'), args);
  t.after(() => backend.child.exitCode === null && backend.stop());
  return backend;
}

/** The shape every failure answer has. */
export function assertError(res, status) {
  assert.equal(res.status, status, res.text);
  assert.match(res.headers['content-type'], /^application\/json/);
  assert.equal(res.json.success, false);
  assert.ok(typeof res.json.error === 'string' && res.json.error !== '');
}
