// Ways in which an endpoint can misbehave, and the queue of those still to come.

const JSON_TYPE = { 'content-type': 'application/json' };

const ANSWER_CUT_SHORT = '{"access_token":"cut-off-in-the-mid';

function send(response, status, headers, body) {
  response.writeHead(status, { ...headers, 'content-length': Buffer.byteLength(body) });
  response.end(body);
}

const sendJson = (response, body) => send(response, 200, JSON_TYPE, body);

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

const ENDPOINTS = ['token', 'revoke'];

function checkFault({ endpoint, kind, times, ms }) {
  if (!ENDPOINTS.includes(endpoint)) throw new Error(`endpoint is one of ${ENDPOINTS.join(', ')}`);
  if (kind !== 'delay' && !Object.hasOwn(MISBEHAVE, kind)) {
    throw new Error(`kind is delay or one of ${Object.keys(MISBEHAVE).join(', ')}`);
  }
  if (!Number.isInteger(times) || times < 1) throw new Error('times is a whole number above 0');
  if (kind === 'delay' && !(ms >= 0)) throw new Error('a delay needs ms');
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

// Applies `fault`; true when the request has got all the answer it will ever get.
export async function misbehave(fault, response) {
  if (fault.kind === 'delay') {
    await new Promise((resolve) => { setTimeout(resolve, fault.ms); });
    return false;
  }
  MISBEHAVE[fault.kind](response, fault);
  return true;
}
