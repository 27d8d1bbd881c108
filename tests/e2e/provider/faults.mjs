// Ways in which an endpoint can misbehave, and the queue of those still to come.
//
// A fault is {endpoint, kind, times, after, ...}. It befalls the next `times` (1) requests to the
// endpoint, "token" or "revoke": instead of the real answer, or before it is computed; with `after`
// once it is computed, so that the server has done what was asked for, has rotated a refresh token
// for example. The kinds, with the further members they know:
//
//   status        answers {status, body, contentType, headers}
//   html, empty, truncated, nested, huge, redirect {location}
//                 answer what nobody should take for tokens
//   hang          never answers
//   close, reset  end the connection without a byte of an answer, with TCP's FIN or its RST
//   close-half    promises twice as many bytes as come, then ends the connection
//   delay {ms}    waits, then gives the real answer
//   hold          the same, but waits until POST /release (see control.mjs)
//
// and those that are always done to the real answer, or to {body}:
//
//   partial {bytes}   sends the head and so many bytes of the body, then ends the connection
//   trickle {ms}      sends the body byte by byte, with a pause of ms (1000) before each
//   account {sub}     sends it with an ID token that names another subject. The signature stays that
//                     of the real one: who has an ID token from the token endpoint itself need not
//                     check it (OpenID Connect Core section 3.1.3.7)

const JSON_TYPE = { 'content-type': 'application/json' };

const ANSWER_CUT_SHORT = '{"access_token":"cut-off-in-the-mid';

function send(response, status, headers, body) {
  response.writeHead(status, { ...headers, 'content-length': Buffer.byteLength(body) });
  response.end(body);
}

const sendJson = (response, body) => send(response, 200, JSON_TYPE, body);

const pause = (ms) => new Promise((resolve) => { setTimeout(resolve, ms); });

// Promises twice as many bytes as come, then cuts the connection.
function closeHalfWay(response) {
  const half = ANSWER_CUT_SHORT;
  response.writeHead(200, { ...JSON_TYPE, 'content-length': 2 * half.length });
  response.write(half, () => response.socket?.destroy());
}

const MISBEHAVE = {
  status: (response, { status = 500, body = '', contentType = 'application/json', headers = {} }) =>
    send(response, status, { 'content-type': contentType, ...headers }, body),
  hang: () => {},
  close: (response) => response.socket.destroy(),
  reset: (response, _fault, { reset }) => reset(response.socket),
  'close-half': closeHalfWay,
  html: (response) => send(response, 200, { 'content-type': 'text/html; charset=utf-8' },
    '<!DOCTYPE html><html><body><h1>Welcome to the guest network</h1></body></html>'),
  empty: (response) => sendJson(response, ''),
  truncated: (response) => sendJson(response, ANSWER_CUT_SHORT),
  nested: (response) => sendJson(response, '['.repeat(10000) + ']'.repeat(10000)),
  huge: (response) => sendJson(response, JSON.stringify({
    access_token: 'a'.repeat(2 * 1024 * 1024), token_type: 'Bearer', expires_in: 3600,
  })),
  redirect: (response, { location = '/elsewhere' }) => send(response, 302, { location }, ''),
};

// Those after which the real answer still comes.
const WAIT = {
  delay: ({ ms }) => pause(ms),
  hold: (_fault, { gate }) => gate.pass(),
};

function cutAfter(response, body, { bytes }) {
  response.writeHead(response.statusCode, { 'content-length': body.length });
  response.flushHeaders();
  response.write(body.subarray(0, bytes), () => response.socket?.destroy());
}

async function trickle(response, body, { ms = 1000 }) {
  response.writeHead(response.statusCode, { 'content-length': body.length });
  response.flushHeaders();
  for (const byte of body) {
    await pause(ms);
    if (response.destroyed) return;
    response.write(Buffer.of(byte));
  }
  response.end();
}

function withSubject(idToken, sub) {
  const [header, claims, signature] = idToken.split('.');
  const changed = { ...JSON.parse(Buffer.from(claims, 'base64url')), sub, email: sub };
  return [header, Buffer.from(JSON.stringify(changed)).toString('base64url'), signature].join('.');
}

function answerForAnother(response, body, { sub = 'mallory@example.com' }) {
  const answer = JSON.parse(body);
  sendJson(response, JSON.stringify({ ...answer, id_token: withSubject(answer.id_token, sub) }));
}

// What is done to the real answer.
const CHANGE = { partial: cutAfter, trickle, account: answerForAnother };

const KINDS = [MISBEHAVE, WAIT, CHANGE].flatMap(Object.keys);
const ENDPOINTS = ['token', 'revoke'];

function checkFault({ endpoint, kind, times, ms, bytes }) {
  if (!ENDPOINTS.includes(endpoint)) throw new Error(`endpoint is one of ${ENDPOINTS.join(', ')}`);
  if (!KINDS.includes(kind)) throw new Error(`kind is one of ${KINDS.join(', ')}`);
  if (!Number.isInteger(times) || times < 1) throw new Error('times is a whole number above 0');
  if (kind === 'delay' && !(ms >= 0)) throw new Error('a delay needs ms');
  if (kind === 'partial' && !(bytes >= 0)) throw new Error('partial needs bytes');
}

export class Faults {
  #waiting = [];

  add({ times = 1, ...fault }) {
    checkFault({ ...fault, times });
    this.#waiting.push({ fault, left: times });
  }

  clear() { this.#waiting = []; }

  // The fault that the next request to `endpoint` has to suffer, if any.
  take(endpoint) {
    const entry = this.#waiting.find(({ fault }) => fault.endpoint === endpoint);
    if (entry && --entry.left === 0) this.#waiting.splice(this.#waiting.indexOf(entry), 1);
    return entry?.fault;
  }
}

// True for a fault after which the client has no real answer, or not all of it.
export const isFailure = ({ kind }) => !Object.hasOwn(WAIT, kind) && kind !== 'trickle';

export const befallsTheAnswer = ({ kind, after }) => after || Object.hasOwn(CHANGE, kind);

// Applies `fault`; true when the request has got all the answer it will ever get. `means` are
// {gate, reset}: what a hold waits at, and what resets the connection of a socket.
export async function misbehave(fault, response, means) {
  if (Object.hasOwn(WAIT, fault.kind)) {
    await WAIT[fault.kind](fault, means);
    return false;
  }
  MISBEHAVE[fault.kind](response, fault, means);
  return true;
}

async function befall(fault, response, means, body) {
  if (Object.hasOwn(CHANGE, fault.kind)) {
    await CHANGE[fault.kind](response, fault.body ? Buffer.from(fault.body) : body, fault);
  } else if (!await misbehave(fault, response, means)) {
    response.end(body);
  }
}

// Has `fault` befall the answer when it is computed.
export function lieInWait(fault, response, means) {
  const { end } = response;
  response.end = (body = '') => {
    response.end = end;
    befall(fault, response, means, Buffer.from(body)).catch((error) => {
      console.error(error);
      response.destroy();
    });
    return response;
  };
}
