// Checks that the two servers do what the tests that use them rely on.
// Run: node --test selftest.mjs

import assert from 'node:assert/strict';
import { spawn } from 'node:child_process';
import { X509Certificate } from 'node:crypto';
import { once } from 'node:events';
import { existsSync, mkdtempSync, readFileSync, rmSync, statSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { createInterface } from 'node:readline';
import { after, before, beforeEach, test } from 'node:test';
import { connect } from 'node:tls';

import { sendForm } from '../browser/https.mjs';
import { makeClient, SCOPES, USER } from './client.mjs';

const BOTH = ['google', 'microsoft'];
const DEADLINE = { timeout: 20000 };

let client;
let folder;
let ready;
let server;

const here = (name) => new URL(name, import.meta.url).pathname;
const sorted = (scope) => scope.split(' ').sort();

before(async () => {
  folder = mkdtempSync(join(tmpdir(), 'provider-'));
  server = spawn(process.execPath, [here('main.mjs'), '--dir', folder, '--until-stdin-closes'],
    { stdio: ['pipe', 'pipe', 'inherit'] });
  const [line] = await once(createInterface(server.stdout), 'line',
    { signal: AbortSignal.timeout(DEADLINE.timeout) });
  assert.match(line, /ready/);
  ready = JSON.parse(readFileSync(join(folder, 'ready.json')));
  client = makeClient(ready);
});

beforeEach(() => client.control('POST', 'reset'));

after(() => {
  client.agent.destroy();
  server.kill();
  rmSync(folder, { recursive: true });
});

for (const name of BOTH) {
  test(`${name}: the redirect carries code, state and issuer to the application`, DEADLINE,
    async () => {
      const attempt = client.makeAttempt(name);
      const { target, answer } = await client.visit(attempt);
      assert.equal(target, ready[name].redirectUri);
      assert.equal(answer.state, attempt.state);
      assert.equal(answer.iss, ready[name].issuer);
      assert.ok(answer.code);
    });

  test(`${name}: a code exchange yields tokens for the scope and the user`, DEADLINE, async () => {
    const tokens = await client.signIn(name);
    assert.equal(tokens.token_type, 'Bearer');
    assert.equal(tokens.expires_in, 3600);
    assert.deepEqual(sorted(tokens.scope), sorted(SCOPES[name]));
    const { active, sub, kind } = await client.introspect(name, tokens.access_token);
    assert.deepEqual({ active, sub, kind }, { active: true, sub: USER, kind: 'AccessToken' });
    assert.equal((await client.introspect(name, tokens.refresh_token)).active, true);
  });

  test(`${name}: a wrong verifier is refused`, DEADLINE, async () => {
    const { answer } = await client.visit(client.makeAttempt(name));
    const response = await client.exchange(name, answer.code, 'w'.repeat(64));
    assert.equal(response.status, 400);
    assert.equal(response.json().error, 'invalid_grant');
  });

  test(`${name}: a code without a challenge is never issued`, DEADLINE, async () => {
    const attempt = client.makeAttempt(name);
    const url = attempt.url.replace(/&code_challenge(_method)?=[^&]*/g, '');
    const { answer } = await client.visit({ url });
    assert.equal(answer.error, 'invalid_request');
  });

  test(`${name}: denial on the consent page reaches the application`, DEADLINE, async () => {
    const attempt = client.makeAttempt(name);
    const { target, answer } = await client.visit(attempt, { deny: true });
    assert.equal(target, ready[name].redirectUri);
    assert.equal(answer.error, 'access_denied');
    assert.equal(answer.state, attempt.state);
    assert.equal(answer.code, undefined);
  });

  test(`${name}: a refresh rotates the refresh token and keeps the scope`, DEADLINE, async () => {
    const first = await client.signIn(name);
    const response = await client.refresh(name, first.refresh_token);
    assert.equal(response.status, 200, response.body);
    const second = response.json();
    assert.notEqual(second.access_token, first.access_token);
    assert.notEqual(second.refresh_token, first.refresh_token);
    assert.deepEqual(sorted(second.scope), sorted(SCOPES[name]));
    const old = await client.introspect(name, first.refresh_token);
    assert.deepEqual([old.active, old.consumed], [false, true]);
    assert.equal((await client.introspect(name, second.refresh_token)).active, true);
  });

  test(`${name}: reuse of a rotated refresh token revokes the whole grant`, DEADLINE, async () => {
    const first = await client.signIn(name);
    const second = (await client.refresh(name, first.refresh_token)).json();
    const reuse = await client.refresh(name, first.refresh_token);
    assert.equal(reuse.status, 400);
    assert.equal(reuse.json().error, 'invalid_grant');
    assert.equal((await client.introspect(name, second.access_token)).active, false);
    assert.equal((await client.refresh(name, second.refresh_token)).json().error, 'invalid_grant');
  });

  test(`${name}: every request is counted under what it asked for`, DEADLINE, async () => {
    const attempt = client.makeAttempt(name);
    const { answer } = await client.visit(attempt);
    await client.exchange(name, answer.code, 'w'.repeat(64));
    const tokens = (await client.exchange(name, answer.code, attempt.verifier)).json();
    await client.refresh(name, tokens.refresh_token);
    await client.refresh(name, 'unknown');
    assert.deepEqual(await client.countsOf(name), {
      authorize: 1, codeExchanges: 2, refreshes: 2, revocations: 0, failures: 2, elsewhere: 0,
    });
    await client.control('POST', 'reset');
    assert.equal((await client.countsOf(name)).refreshes, 0);
  });

  test(`${name}: the lifetime of access tokens can be set while running`, DEADLINE, async () => {
    await client.control('POST', 'settings', { provider: name, accessTokenSeconds: 62 });
    const tokens = await client.signIn(name);
    assert.equal(tokens.expires_in, 62);
    await client.control('POST', 'reset');
    assert.equal((await client.refresh(name, tokens.refresh_token)).json().expires_in, 3600);
  });

  test(`${name}: two people sign in at once without disturbing each other`, DEADLINE, async () => {
    const people = ['alice@example.com', 'bob@example.com'];
    const tokens = await Promise.all(people.map(async (user) => {
      const attempt = client.makeAttempt(name);
      const { answer } = await client.visit(attempt, { user });
      return (await client.exchange(name, answer.code, attempt.verifier)).json();
    }));
    const subjects = await Promise.all(
      tokens.map(async ({ access_token: token }) => (await client.introspect(name, token)).sub));
    assert.deepEqual(subjects, people);
  });
}

test('microsoft: without offline_access there is no refresh token', DEADLINE, async () => {
  const scope = 'https://outlook.office.com/SMTP.Send openid';
  assert.equal((await client.signIn('microsoft', { scope })).refresh_token, undefined);
});

test('microsoft: every prompt that a person can answer is accepted', DEADLINE, async () => {
  for (const prompt of ['login', 'consent', 'select_account']) {
    assert.ok((await client.signIn('microsoft', { prompt })).refresh_token, prompt);
  }
});

test('microsoft: prompt none without a session is an error for the application', DEADLINE,
  async () => {
    const { answer } = await client.visit(client.makeAttempt('microsoft', { prompt: 'none' }));
    assert.equal(answer.error, 'login_required');
  });

test('google: the client secret may be right, empty or absent, but not wrong', DEADLINE,
  async () => {
    const statusWith = async (extra) => {
      const attempt = client.makeAttempt('google');
      const { answer } = await client.visit(attempt);
      return (await client.exchange('google', answer.code, attempt.verifier, extra)).status;
    };
    assert.equal(await statusWith({ client_secret: ready.google.clientSecret }), 200);
    assert.equal(await statusWith({ client_secret: '' }), 200);
    assert.equal(await statusWith({}), 200);
    assert.equal(await statusWith({ client_secret: 'wrong' }), 401);
  });

test('google: a revocation that names no client ends the grant', DEADLINE, async () => {
  const tokens = await client.signIn('google');
  const response = await client.post('google', 'revoke', { token: tokens.refresh_token });
  assert.equal(response.status, 200);
  assert.equal((await client.introspect('google', tokens.refresh_token)).active, false);
  assert.equal((await client.introspect('google', tokens.access_token)).active, false);
  const refused = await client.refresh('google', tokens.refresh_token);
  assert.equal(refused.json().error, 'invalid_grant');
  assert.equal((await client.countsOf('google')).revocations, 1);
});

test('microsoft: there is no revocation endpoint', DEADLINE, async () => {
  const { status } = await sendForm(`${ready.microsoft.issuer}/revoke`, { token: 'x' },
    { agent: client.agent });
  assert.equal(status, 404);
});

test('faults that answer do so in their own way, as often as asked', DEADLINE, async () => {
  const ask = async (kind, more) => {
    await client.fault('google', 'token', kind, more);
    return client.refresh('google', 'unknown');
  };
  const status = await ask('status',
    { status: 503, body: 'busy', contentType: 'text/plain', headers: { 'retry-after': '7' } });
  assert.deepEqual([status.status, status.body], [503, 'busy']);
  assert.equal(status.headers['content-type'], 'text/plain');
  assert.equal(status.headers['retry-after'], '7');
  assert.match((await ask('html')).headers['content-type'], /^text\/html/);
  assert.equal((await ask('empty')).body, '');
  assert.throws((await ask('truncated')).json, SyntaxError);
  assert.equal((await ask('nested')).body.length, 20000);
  assert.ok((await ask('huge')).json().access_token.length === 2 * 1024 * 1024);
  const redirect = await ask('redirect');
  assert.deepEqual([redirect.status, redirect.headers.location], [302, '/elsewhere']);
  assert.deepEqual(await client.countsOf('google'), {
    authorize: 0, codeExchanges: 0, refreshes: 7, revocations: 0, failures: 7, elsewhere: 0,
  });
  await ask('status', { status: 500, times: 2 });
  assert.equal((await client.refresh('google', 'unknown')).status, 500);
  assert.equal((await client.refresh('google', 'unknown')).status, 400);
});

test('faults that cut the connection or never answer leave the client without one', DEADLINE,
  async () => {
    for (const kind of ['close', 'close-half', 'reset']) {
      await client.fault('microsoft', 'token', kind);
      await assert.rejects(client.refresh('microsoft', 'unknown'), { code: 'ECONNRESET' }, kind);
    }
    await client.fault('microsoft', 'token', 'hang');
    const impatient = { signal: AbortSignal.timeout(300) };
    await assert.rejects(client.refresh('microsoft', 'unknown', impatient),
      { name: /Abort|Timeout/ });
  });

test('a held request gets its normal answer once it is let through', DEADLINE, async () => {
  const tokens = await client.signIn('google');
  for (const [after, isConsumed] of [[false, false], [true, true]]) {
    await client.fault('google', 'token', 'hold', { after });
    const answered = client.refresh('google', tokens.refresh_token);
    await client.control('POST', 'held', { provider: 'google' });
    const { consumed } = await client.introspect('google', tokens.refresh_token);
    assert.equal(consumed, isConsumed, 'whether the server had rotated the token by then');
    assert.deepEqual(await client.control('POST', 'release', { provider: 'google' }),
      { released: 1 });
    const response = await answered;
    assert.equal(response.status, 200, response.body);
    Object.assign(tokens, response.json());
  }
  assert.equal((await client.countsOf('google')).failures, 0);
});

test('waiting for held requests ends when they do not come', DEADLINE, async () => {
  await assert.rejects(client.control('POST', 'held', { provider: 'google', seconds: 0.1 }),
    /0 requests are held after 0.1 seconds/);
  assert.deepEqual(await client.control('POST', 'release', { provider: 'google' }),
    { released: 0 });
});

test('an answer can be cut, trickle, or be lost after the token was rotated', DEADLINE, async () => {
  const lost = { code: 'ECONNRESET' };
  const { refresh_token: first } = await client.signIn('google');
  await client.fault('google', 'token', 'partial', { bytes: 10, body: '{"access_token":"x"}' });
  await assert.rejects(client.refresh('google', 'unknown'), lost);
  await client.fault('google', 'token', 'trickle', { ms: 1 });
  const second = (await client.refresh('google', first)).json();
  assert.equal(second.expires_in, 3600);
  await client.fault('google', 'token', 'reset', { after: true });
  await assert.rejects(client.refresh('google', second.refresh_token), lost);
  assert.equal((await client.introspect('google', second.refresh_token)).consumed, true);
});

test('an answer can name another account in its ID token', DEADLINE, async () => {
  const claimsOf = ({ id_token: token }) =>
    JSON.parse(Buffer.from(token.split('.')[1], 'base64url'));
  for (const name of BOTH) {
    const tokens = await client.signIn(name);
    await client.fault(name, 'token', 'account', { sub: 'bob@example.com' });
    const response = await client.refresh(name, tokens.refresh_token);
    assert.equal(response.status, 200);
    assert.equal(claimsOf(tokens).sub, USER);
    assert.deepEqual(claimsOf(response.json()),
      { ...claimsOf(response.json()), sub: 'bob@example.com', iss: claimsOf(tokens).iss });
  }
});

test('a delayed request gets its normal answer later', DEADLINE, async () => {
  const tokens = await client.signIn('google');
  await client.fault('google', 'token', 'delay', { ms: 400 });
  const start = performance.now();
  const response = await client.refresh('google', tokens.refresh_token);
  assert.ok(performance.now() - start >= 390);
  assert.ok(response.json().access_token);
  assert.equal((await client.countsOf('google')).failures, 0);
});

test('a fault hits only the endpoint and the provider it is meant for', DEADLINE, async () => {
  await client.fault('google', 'revoke', 'status', { status: 503, body: 'busy' });
  assert.equal((await client.refresh('google', 'unknown')).status, 400);
  assert.equal((await client.refresh('microsoft', 'unknown')).status, 400);
  assert.equal((await client.post('google', 'revoke', { token: 'x' })).status, 503);
});

test('the control port refuses what makes no sense', DEADLINE, async () => {
  const nonsense = {
    faults: [{ provider: 'google', endpoint: 'token', kind: 'sulk' },
      { provider: 'google', endpoint: 'kitchen', kind: 'hang' },
      { provider: 'nobody', endpoint: 'token', kind: 'hang' },
      { provider: 'google', endpoint: 'token', kind: 'partial' },
      { provider: 'google', endpoint: 'token', kind: 'hang', times: 0 }],
    settings: [{ provider: 'google', accessTokenSeconds: 'many' },
      { provider: 'google', certificate: '../ca' }],
  };
  for (const [command, bodies] of Object.entries(nonsense)) {
    for (const body of bodies) {
      await assert.rejects(client.control('POST', command, body), /400/, JSON.stringify(body));
    }
  }
});

async function verificationError(face, certificate) {
  await client.control('POST', 'settings', { provider: face, certificate });
  const socket = connect({ port: new URL(ready[face].issuer).port, servername: 'localhost',
    ca: client.ca });
  try {
    await once(socket, 'secureConnect');
    return undefined;
  } catch (error) {
    return error.code;
  } finally {
    socket.destroy();
  }
}

test('the bad certificates are bad, each in its own way', DEADLINE, async () => {
  assert.equal(await verificationError('google', 'server'), undefined);
  assert.equal(await verificationError('google', 'expired'), 'CERT_HAS_EXPIRED');
  assert.equal(await verificationError('google', 'selfsigned'), 'DEPTH_ZERO_SELF_SIGNED_CERT');
  assert.equal(await verificationError('google', 'otherhost'), 'ERR_TLS_CERT_ALTNAME_INVALID');
});

test('the good certificate serves a clock that is some days off', () => {
  const { validFrom, validTo } = new X509Certificate(readFileSync(join(folder, 'server.pem')));
  const daysFromNow = (date) => (Date.parse(date) - Date.now()) / (24 * 60 * 60 * 1000);
  assert.ok(daysFromNow(validFrom) < -2);
  assert.ok(daysFromNow(validTo) > 2);
});

test('the working folder is closed to others', () => {
  assert.equal(statSync(folder).mode & 0o777, 0o700);
  assert.equal(statSync(join(folder, 'server.key')).mode & 0o077, 0);
});

function runBrowser(...words) {
  const child = spawn(process.execPath, [here('../browser/browse.mjs'), '--ca', ready.ca,
    '--user', USER, '--password', 'any', ...words], { stdio: ['ignore', 'pipe', 'pipe'] });
  return Promise.all([
    once(child, 'close'), child.stdout.toArray(), child.stderr.toArray(),
  ]).then(([[status], out, err]) => ({ status, out: out.join(''), err: err.join('') }));
}

test('the scripted browser hands the redirect to its handler as one word', DEADLINE, async () => {
  const { url } = client.makeAttempt('google');
  const { status, out } = await runBrowser('--handler', "printf '%s|'", url);
  assert.equal(status, 0);
  assert.match(out, /^com\.example\.qvrmail:\/oauth2\/auth\?code=[^|]*\|$/);
});

test('the scripted browser prints the redirect when nobody handles it', DEADLINE, async () => {
  const { status, out } = await runBrowser('--deny', client.makeAttempt('microsoft').url);
  assert.equal(status, 0);
  assert.match(out, /^msauth\.org\.example\.qvrmail:\/\/auth\?error=access_denied&.*\n$/);
});

test('the scripted browser says what went wrong and fails', DEADLINE, async () => {
  const unknown = client.makeAttempt('google', { client_id: 'unknown' }).url;
  assert.deepEqual(await runBrowser(unknown), {
    status: 1, out: '',
    err: `browse: ${ready.google.issuer}/o/oauth2/auth answered 400: Something went wrong\n`,
  });
  const handled = await runBrowser('--handler', 'false', client.makeAttempt('google').url);
  assert.deepEqual([handled.status, handled.err], [1, 'browse: the handler ended with status 1\n']);
  await client.control('POST', 'settings', { provider: 'google', certificate: 'expired' });
  const distrusted = await runBrowser(client.makeAttempt('google').url);
  assert.deepEqual([distrusted.status, distrusted.err], [1, 'browse: certificate has expired\n']);
});

async function runServer(end, ...words) {
  const directory = join(folder, 'another');
  const child = spawn(process.execPath, [here('main.mjs'), '--dir', directory, ...words],
    { stdio: ['pipe', 'pipe', 'ignore'] });
  try {
    await once(createInterface(child.stdout), 'line');
    const file = join(directory, 'ready.json');
    const { control: url } = JSON.parse(readFileSync(file));
    const ended = once(child, 'exit');
    await end(child, url);
    const [status] = await ended;
    assert.equal(existsSync(file), false);
    return status;
  } finally {
    child.kill();
  }
}

test('the server ends when told to, when left alone and when its time is over', DEADLINE,
  async () => {
    assert.equal(await runServer((child) => child.kill()), 0);
    assert.equal(await runServer((child) => child.stdin.end(), '--until-stdin-closes'), 0);
    assert.equal(await runServer(() => {}, '--max-seconds', '2'), 0);
    assert.equal(await runServer(async (_child, url) => {
      const { status } = await fetch(`${url}/shutdown`, { method: 'POST' });
      assert.equal(status, 200);
    }), 0);
  });
