import { readBody, sendHtml } from './http.js';

const PROVIDER = 'google';
const CALLBACK = 'quillmoss://oauth/callback';
const MAX_EMAIL_LENGTH = 254;
const MAX_NAME_LENGTH = 200;
// One @, no spaces, and a domain of dotted labels: enough to catch typing mistakes.
const EMAIL = /^[^\s@"<>()[\]\\,;:]+@[A-Za-z0-9](?:[A-Za-z0-9-]*[A-Za-z0-9])?(?:\.[A-Za-z0-9](?:[A-Za-z0-9-]*[A-Za-z0-9])?)+$/;

// The redirect target has to be allowed as a form action too: browsers apply form-action to the
// redirect that answers a form.
const PAGE_HEADERS = {
  'Content-Security-Policy': `default-src 'none'; style-src 'unsafe-inline'; form-action 'self' quillmoss:; frame-ancestors 'none'`,
  'Referrer-Policy': 'no-referrer',
};

const escapeHtml = (text) =>
  text.replace(/[&<>"']/g, (c) => ({ '&': '&amp;', '<': '&lt;', '>': '&gt;', '"': '&quot;', "'": '&#39;' })[c]);

/**
 * The sign-in page: stands in for the identity provider's, and asks only who you are.
 * @param {{message?: string, name?: string, email?: string, request?: string, clientName?: string}} [form]
 *   what to show again after a mistake; `request` is a pending authorization of the demo MCP server,
 *   for the application `clientName`, that the sign-in continues
 * @returns {string}
 */
function renderLoginPage({ message = '', name = '', email = '', request = '', clientName = '' } = {}) {
  return `<!doctype html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<title>Sign in to Quillmoss (local)</title>
<style>
  body { font-family: system-ui, sans-serif; background: #f4f5f2; color: #1d2a22; margin: 0; }
  main { max-width: 24rem; margin: 10vh auto; background: #fff; padding: 2rem; border-radius: 12px;
         box-shadow: 0 2px 12px rgb(0 0 0 / 8%); }
  h1 { font-size: 1.4rem; margin-top: 0; }
  label { display: block; margin: 1rem 0 0.3rem; font-weight: 600; }
  input { width: 100%; box-sizing: border-box; padding: 0.6rem; font: inherit; border: 1px solid #b9c2bb;
          border-radius: 6px; }
  button { margin-top: 1.5rem; width: 100%; padding: 0.7rem; font: inherit; font-weight: 600; color: #fff;
           background: #2f6b4f; border: 0; border-radius: 6px; cursor: pointer; }
  .message { color: #a12d2d; }
  .note { color: #5c6a61; font-size: 0.9rem; }
</style>
</head>
<body>
<main>
<h1>Sign in to Quillmoss (local)</h1>
<p class="note">This backend runs on your own machine. Any e-mail address signs you in; there is no password.</p>
${clientName ? `<p>Sign in to let ${escapeHtml(clientName)} use the demo MCP server.</p>` : ''}
${message ? `<p class="message" role="alert">${escapeHtml(message)}</p>` : ''}
<form method="post" action="/login">
  <input type="hidden" name="provider" value="${PROVIDER}">
${request ? `  <input type="hidden" name="request" value="${escapeHtml(request)}">\n` : ''}  <label for="name">Name</label>
  <input id="name" name="name" autocomplete="name" maxlength="${MAX_NAME_LENGTH}" value="${escapeHtml(name)}">
  <label for="email">E-mail</label>
  <input id="email" name="email" type="email" autocomplete="email" required maxlength="${MAX_EMAIL_LENGTH}" value="${escapeHtml(email)}">
  <button type="submit">Sign in</button>
</form>
</main>
</body>
</html>
`;
}

/**
 * @param {string | null} provider absent counts as the one provider there is, so the bare /login
 *   address works in a browser
 * @returns {string | null} what is wrong with it, or null
 */
function providerProblem(provider) {
  return provider === null || provider === PROVIDER
    ? null
    : `Unknown sign-in provider; this backend signs in with "${PROVIDER}".`;
}

/**
 * Checks a submitted form.
 * @returns {string | null} what is wrong with it, or null
 */
function formProblem(name, email) {
  if (email === '') return 'Please enter your e-mail address.';
  if (email.length > MAX_EMAIL_LENGTH || !EMAIL.test(email)) return 'Please enter a valid e-mail address.';
  if ([...name].length > MAX_NAME_LENGTH) return `Please keep the name to at most ${MAX_NAME_LENGTH} characters.`;
  return null;
}

const EXPIRED_REQUEST = 'This sign-in request has expired or was already answered. Start it again from the app.';

/**
 * GET and POST /login: the page, and the form that signs in and sends the tokens back to the app
 * through its URL scheme. With a `request` (a pending authorization of the demo MCP server) the
 * same page signs the person in for that authorization instead: no app tokens are issued, and the
 * browser goes on to the consent page.
 * @param {import('./auth.js').AuthService} auth
 * @param {{clientOf: (request: string) => string | null,
 *          signedIn: (request: string, who: {email: string, name: string}) => string | null}} [authorizations] the
 *   pending authorizations: the client a request is for, and where to go once signed in (null
 *   when the request is unknown or expired)
 * @returns {import('./http.js').Routes}
 */
export function loginRoutes(auth, authorizations = { clientOf: () => null, signedIn: () => null }) {
  const page = (res, status, form) => sendHtml(res, status, renderLoginPage(form), PAGE_HEADERS);

  return {
    '/login': {
      GET: (req, res, query) => {
        const request = query.get('request');
        if (request !== null) {
          const clientName = authorizations.clientOf(request);
          if (clientName === null) return page(res, 400, { message: EXPIRED_REQUEST });
          return page(res, 200, { request, clientName });
        }
        const problem = providerProblem(query.get('provider'));
        page(res, problem ? 400 : 200, { message: problem ?? '' });
      },
      POST: async (req, res) => {
        const body = await readBody(req);
        const type = (req.headers['content-type'] ?? '').split(';')[0].trim().toLowerCase();
        if (type !== 'application/x-www-form-urlencoded') {
          return page(res, 400, { message: 'The sign-in form could not be read; please try again.' });
        }
        const form = new URLSearchParams(body.toString('utf8'));
        const name = (form.get('name') ?? '').trim();
        const email = (form.get('email') ?? '').trim();
        const request = form.get('request');
        const clientName = request === null ? '' : authorizations.clientOf(request);
        if (clientName === null) return page(res, 400, { message: EXPIRED_REQUEST });
        const problem = providerProblem(form.get('provider')) ?? formProblem(name, email);
        if (problem) return page(res, 400, { message: problem, name, email, request: request ?? '', clientName });

        if (request !== null) {
          const next = authorizations.signedIn(request, { email, name });
          if (next === null) return page(res, 400, { message: EXPIRED_REQUEST });
          return sendHtml(res, 303, '<!doctype html><title>Signed in</title><p>Signed in.</p>\n', { ...PAGE_HEADERS, Location: next });
        }

        const { tokens } = auth.signIn({ email, name });
        const location = `${CALLBACK}?${new URLSearchParams({ ...tokens, expires_in: String(tokens.expires_in) })}`;
        sendHtml(res, 302, '<!doctype html><title>Signed in</title><p>Signed in. You can return to Quillmoss.</p>\n', {
          ...PAGE_HEADERS,
          Location: location,
        });
      },
    },
  };
}
