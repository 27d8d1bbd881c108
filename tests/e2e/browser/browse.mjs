// Opens a URL as a person with a browser would, see browser.mjs. The redirect it ends with goes to
// the handler as its last argument, as a desktop would hand it over, or is printed without one.

import { spawn } from 'node:child_process';
import { once } from 'node:events';
import { readFileSync } from 'node:fs';
import { parseArgs } from 'node:util';

import { browse } from './browser.mjs';

const USAGE = `usage: node browse.mjs --ca CA.pem --user NAME --password PASSWORD [--deny]
  [--handler COMMAND] URL`;
const DEADLINE_MILLISECONDS = 60 * 1000;

function readOptions(words) {
  const { values, positionals } = parseArgs({
    args: words,
    allowPositionals: true,
    options: {
      ca: { type: 'string' },
      user: { type: 'string' },
      password: { type: 'string' },
      handler: { type: 'string' },
      deny: { type: 'boolean', default: false },
    },
  });
  const complete = values.ca && values.user && values.password && positionals.length === 1;
  if (!complete) throw new Error(`an option is missing\n${USAGE}`);
  return { ...values, url: positionals[0] };
}

// The command may be several words: the shell splits them, and never sees the URL as text.
async function hand(redirect, command, signal) {
  const child = spawn('/bin/sh', ['-c', `${command} "$1"`, 'sh', redirect],
    { stdio: 'inherit', signal });
  const [status, killer] = await once(child, 'exit');
  if (status !== 0) throw new Error(`the handler ended with ${killer ?? `status ${status}`}`);
}

async function main() {
  const { ca, handler, url, ...person } = readOptions(process.argv.slice(2));
  const signal = AbortSignal.timeout(DEADLINE_MILLISECONDS);
  const redirect = await browse(url, { ...person, ca: readFileSync(ca), signal });
  if (handler) await hand(redirect, handler, signal);
  else console.log(redirect);
}

function explain(error) {
  const late = error.name === 'TimeoutError' || error.cause?.name === 'TimeoutError';
  return late ? `gave up after ${DEADLINE_MILLISECONDS / 1000} seconds` : error.message;
}

main().catch((error) => {
  console.error(`browse: ${explain(error)}`);
  process.exitCode = 1;
});
