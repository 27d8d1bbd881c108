import { Agent, request as startRequest } from 'node:https';
import { buffer } from 'node:stream/consumers';

// An agent that trusts the certificate authority `ca` (PEM text) and no other.
export function trusting(ca) {
  return new Agent({ ca, keepAlive: true });
}

// Sends one request and answers with {status, headers, body}, the body as text. No redirect is
// followed. `options` are those of node's https.request; `signal` among them ends it early.
export async function send(url, { body, ...options }) {
  const response = await new Promise((resolve, reject) => {
    const request = startRequest(url, options, resolve);
    request.on('error', reject);
    request.end(body);
  });
  const text = (await buffer(response)).toString();
  return { status: response.statusCode, headers: response.headers, body: text };
}

// Sends `fields` as a form.
export function sendForm(url, fields, { headers, ...options }) {
  return send(url, {
    ...options,
    method: 'POST',
    headers: { ...headers, 'content-type': 'application/x-www-form-urlencoded; charset=utf-8' },
    body: new URLSearchParams(fields).toString(),
  });
}
