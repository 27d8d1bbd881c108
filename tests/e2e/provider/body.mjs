// Request bodies: read whole, and handed on after a look.

import { Readable } from 'node:stream';

const LIMIT = 1024 * 1024;

export async function readBody(request) {
  const chunks = [];
  let length = 0;
  for await (const chunk of request) {
    length += chunk.length;
    if (length > LIMIT) throw new Error('request body too large');
    chunks.push(chunk);
  }
  return Buffer.concat(chunks);
}

// A request like `request`, whose body has been read, with `text` as its body.
export function withBody(request, text) {
  const body = Buffer.from(text);
  const headers = { ...request.headers, 'content-length': String(body.length) };
  delete headers['transfer-encoding'];
  return Object.assign(Readable.from(body.length ? [body] : []), {
    headers,
    httpVersion: request.httpVersion,
    method: request.method,
    socket: request.socket,
    url: request.url,
  });
}
