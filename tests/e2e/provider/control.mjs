// The test's own door: plain HTTP on a loopback port, JSON in and out.
//
//   GET  /counts      {google: {authorize, codeExchanges, refreshes, revocations, failures,
//                     elsewhere}, microsoft: {...}}: requests that came, whatever the answer was;
//                     failures are those answered with 400 and above or made to fail by a fault
//   GET  /secrets     {secrets: [{kind, text}, ...]}: what they heard and issued, see secrets.mjs
//   POST /reset       zeroes the counts, drops the faults, restores the settings, lets through
//                     what is held
//   POST /faults      {provider, endpoint, kind, times, after, ...}: see faults.mjs
//   POST /held        {provider, count, seconds}: answers once so many requests (1) are held by the
//                     fault "hold", and fails after so many seconds (20)
//   POST /release     {provider}: lets through what is held, and says {released: how many}
//   POST /settings    {provider, accessTokenSeconds and/or certificate}
//   POST /introspect  {provider, token}
//   POST /shutdown

import { createServer } from 'node:http';

import { readBody } from './body.mjs';
import { CERTIFICATES } from './certificates.mjs';
import { listen } from './listen.mjs';

function changeSettings(face, { accessTokenSeconds, certificate }) {
  if (accessTokenSeconds !== undefined) {
    if (!Number.isInteger(accessTokenSeconds) || accessTokenSeconds < 1) {
      throw new Error('accessTokenSeconds is a whole number above 0');
    }
    face.settings.accessTokenSeconds = accessTokenSeconds;
  }
  if (certificate !== undefined) {
    if (!CERTIFICATES.includes(certificate)) {
      throw new Error(`certificate is one of ${CERTIFICATES.join(', ')}`);
    }
    face.useCertificate(certificate);
  }
}

function makeCommands(faces, shutDown) {
  const faceOf = ({ provider }) => {
    if (!Object.hasOwn(faces, provider ?? '')) {
      throw new Error(`provider is one of ${Object.keys(faces).join(', ')}`);
    }
    return faces[provider];
  };
  const all = Object.values(faces);
  return {
    'GET /counts': () => Object.fromEntries(all.map((face) => [face.name, face.counts])),
    'GET /secrets': () => ({ secrets: all.flatMap((face) => face.secrets.list()) }),
    'POST /reset': () => { all.forEach((face) => face.reset()); },
    'POST /faults': ({ provider, ...fault }) => { faceOf({ provider }).faults.add(fault); },
    'POST /held': ({ count = 1, seconds = 20, ...wanted }) =>
      faceOf(wanted).gate.waitFor(count, seconds),
    'POST /release': (wanted) => ({ released: faceOf(wanted).gate.open() }),
    'POST /settings': (wanted) => { changeSettings(faceOf(wanted), wanted); },
    'POST /introspect': (wanted) => faceOf(wanted).introspect(String(wanted.token)),
    'POST /shutdown': () => { shutDown('asked to'); },
  };
}

async function run(commands, request) {
  const command = commands[`${request.method} ${request.url}`];
  if (!command) return [404, { error: 'no such command' }];
  try {
    const body = (await readBody(request)).toString();
    return [200, await command(body ? JSON.parse(body) : {}) ?? {}];
  } catch (error) {
    return [400, { error: error.message }];
  }
}

// Opens the door and answers with its address.
export async function openControl(faces, port, shutDown) {
  const commands = makeCommands(faces, shutDown);
  const server = createServer(async (request, response) => {
    const [status, answer] = await run(commands, request);
    response.writeHead(status, { 'content-type': 'application/json' });
    response.end(JSON.stringify(answer));
  });
  return `http://127.0.0.1:${await listen(server, port)}`;
}
