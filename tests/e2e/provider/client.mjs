// A client of the two servers and of their control port, for tests written in this language.

import assert from 'node:assert/strict';
import { createHash, randomBytes } from 'node:crypto';
import { readFileSync } from 'node:fs';

import { browse } from '../browser/browser.mjs';
import { sendForm, trusting } from '../browser/https.mjs';

const PATHS = {
  google: { authorize: '/o/oauth2/auth', token: '/token', revoke: '/revoke' },
  microsoft: {
    authorize: '/common/oauth2/v2.0/authorize', token: '/common/oauth2/v2.0/token',
  },
};
export const SCOPES = {
  google: 'https://mail.google.com/ openid email',
  microsoft: 'https://outlook.office.com/IMAP.AccessAsUser.All '
    + 'https://outlook.office.com/SMTP.Send offline_access openid',
};
export const USER = 'alice@example.com';

// `ready` is the content of ready.json.
export function makeClient(ready) {
  const ca = readFileSync(ready.ca, 'utf8');
  const agent = trusting(ca);

  async function control(method, command, body) {
    const response = await fetch(`${ready.control}/${command}`,
      { method, body: body && JSON.stringify(body) });
    const answer = await response.json();
    assert.equal(response.status, 200, answer.error);
    return answer;
  }

  const introspect = (provider, token) => control('POST', 'introspect', { provider, token });
  const fault = (provider, endpoint, kind, more) =>
    control('POST', 'faults', { provider, endpoint, kind, ...more });
  const countsOf = async (provider) => (await control('GET', 'counts'))[provider];

  function makeAttempt(name, extra = {}) {
    const verifier = randomBytes(48).toString('base64url');
    const state = randomBytes(32).toString('base64');
    const query = new URLSearchParams({
      client_id: ready[name].clientId,
      redirect_uri: ready[name].redirectUri,
      response_type: 'code',
      scope: SCOPES[name],
      code_challenge: createHash('sha256').update(verifier).digest('base64url'),
      code_challenge_method: 'S256',
      state,
      ...extra,
    });
    return { verifier, state, url: `${ready[name].issuer}${PATHS[name].authorize}?${query}` };
  }

  async function visit(attempt, options = {}) {
    const redirect = await browse(attempt.url,
      { ca, user: USER, password: 'any', signal: AbortSignal.timeout(20000), ...options });
    const [target, query] = redirect.split('?');
    return { target, answer: Object.fromEntries(new URLSearchParams(query)) };
  }

  async function post(name, endpoint, fields, options = {}) {
    const url = `${ready[name].issuer}${PATHS[name][endpoint]}`;
    const { status, body, headers } = await sendForm(url, fields,
      { agent, headers: { accept: 'application/json' }, ...options });
    return { status, headers, body, json: () => JSON.parse(body) };
  }

  const exchange = (name, code, verifier, extra = {}) => post(name, 'token', {
    client_id: ready[name].clientId,
    ...extra,
    code,
    code_verifier: verifier,
    grant_type: 'authorization_code',
    redirect_uri: ready[name].redirectUri,
  });

  const refresh = (name, token, options) => post(name, 'token', {
    client_id: ready[name].clientId, refresh_token: token, grant_type: 'refresh_token',
  }, options);

  async function signIn(name, extra) {
    const attempt = makeAttempt(name, extra);
    const { answer } = await visit(attempt);
    const response = await exchange(name, answer.code, attempt.verifier);
    assert.equal(response.status, 200, response.body);
    return response.json();
  }

  return {
    agent, ca, control, introspect, fault, countsOf, makeAttempt, visit, post, exchange, refresh,
    signIn,
  };
}
