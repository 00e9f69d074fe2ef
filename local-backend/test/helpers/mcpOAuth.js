// Signs in to the demo MCP server as an application and a browser would: registers a public
// client, follows the authorization through the login and consent pages with plain fetch (each
// redirect by hand, each form read from the page and posted back), and trades the code for tokens.
import assert from 'node:assert/strict';
import { createHash, randomBytes } from 'node:crypto';

export const APP_REDIRECT = 'quillmoss://oauth/callback';
export const DEMO_EMAIL = 'demo@quillmoss.local';

/** A PKCE verifier and its S256 challenge. */
export function pkce() {
  const verifier = randomBytes(32).toString('base64url');
  return { verifier, challenge: createHash('sha256').update(verifier).digest('base64url') };
}

/** The registration the desktop app sends, with fields replaced or added. */
export const appRegistration = (changes = {}) => ({
  client_name: 'Quillmoss',
  redirect_uris: [APP_REDIRECT],
  grant_types: ['authorization_code', 'refresh_token'],
  response_types: ['code'],
  scope: 'mcp',
  client_uri: 'https://quillmoss.example',
  application_type: 'native',
  token_endpoint_auth_method: 'none',
  software_id: 'quillmoss-mcp',
  software_version: '1.0.22',
  ...changes,
});

/** POST /register: {status, body}. */
export async function register(backend, registration = appRegistration()) {
  const res = await fetch(new URL('/register', backend.url), {
    method: 'POST',
    headers: { 'Content-Type': 'application/json' },
    body: JSON.stringify(registration),
  });
  return { status: res.status, body: await res.json() };
}

const get = (backend, target) => fetch(new URL(target, backend.url), { redirect: 'manual' });
const postForm = (backend, target, fields) =>
  fetch(new URL(target, backend.url), {
    method: 'POST',
    redirect: 'manual',
    headers: { 'Content-Type': 'application/x-www-form-urlencoded' },
    body: new URLSearchParams(fields).toString(),
  });

// The hidden fields of the page's form, as a browser would post them.
const hiddenFields = (html) =>
  Object.fromEntries([...html.matchAll(/<input type="hidden" name="([^"]+)" value="([^"]*)">/g)].map((m) => [m[1], m[2].replaceAll('&amp;', '&')]));

/**
 * Runs an authorization in the "browser": authorize, login page, consent page, decision.
 * @returns {Promise<{redirect: URL, consentPage: string}>} where the browser was sent at the end
 */
export async function authorize(backend, { clientId, challenge, redirectUri = APP_REDIRECT, state = 'st-1', email = DEMO_EMAIL, decision = 'allow', scope = 'mcp' }) {
  const query = new URLSearchParams({ response_type: 'code', client_id: clientId, redirect_uri: redirectUri, scope, state, code_challenge: challenge, code_challenge_method: 'S256' });
  const start = await get(backend, `/authorize?${query}`);
  assert.equal(start.status, 302, await start.text());
  const loginUrl = start.headers.get('location');
  assert.match(loginUrl, /^\/login\?request=/);

  const login = await get(backend, loginUrl);
  const loginPage = await login.text();
  assert.equal(login.status, 200, loginPage);
  const signedIn = await postForm(backend, '/login', { ...hiddenFields(loginPage), name: '', email });
  assert.equal(signedIn.status, 303, await signedIn.text());

  const consent = await get(backend, signedIn.headers.get('location'));
  const consentPage = await consent.text();
  assert.equal(consent.status, 200, consentPage);
  const answered = await postForm(backend, '/oauth/consent', { ...hiddenFields(consentPage), decision });
  assert.equal(answered.status, 302, await answered.text());
  return { redirect: new URL(answered.headers.get('location')), consentPage };
}

/** POST /token with a form: {status, body}. */
export async function token(backend, fields) {
  const res = await fetch(new URL('/token', backend.url), {
    method: 'POST',
    headers: { 'Content-Type': 'application/x-www-form-urlencoded' },
    body: new URLSearchParams(fields).toString(),
  });
  return { status: res.status, body: await res.json() };
}

/**
 * The whole sign-in as the desktop app: tokens for the demo MCP server, for `email`'s account.
 * @returns {Promise<{access_token: string, refresh_token: string, expires_in: number, clientId: string}>}
 */
export async function mcpSignIn(backend, { email = DEMO_EMAIL } = {}) {
  const { status, body: client } = await register(backend);
  assert.equal(status, 201, JSON.stringify(client));
  const { verifier, challenge } = pkce();
  const { redirect } = await authorize(backend, { clientId: client.client_id, challenge, email });
  const code = redirect.searchParams.get('code');
  assert.ok(code, redirect.href);
  const exchanged = await token(backend, { grant_type: 'authorization_code', code, code_verifier: verifier, client_id: client.client_id, redirect_uri: APP_REDIRECT });
  assert.equal(exchanged.status, 200, JSON.stringify(exchanged.body));
  backend.issued?.add(exchanged.body.access_token).add(exchanged.body.refresh_token);
  return { ...exchanged.body, clientId: client.client_id };
}
