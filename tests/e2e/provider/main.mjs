// Runs two authorization servers on loopback TLS ports, one that looks like Google's and one that
// looks like Microsoft's. When both are up, DIR/ready.json says where they are.
//
// The process never outlives its purpose: it ends on SIGTERM or SIGINT, when asked through the
// control port, after --max-seconds, and with --until-stdin-closes when whoever started it is gone.

import { renameSync, rmSync, writeFileSync } from 'node:fs';
import { join, resolve } from 'node:path';
import { parseArgs } from 'node:util';

import { makeCertificates } from './certificates.mjs';
import { makeRegistrations } from './configuration.mjs';
import { openControl } from './control.mjs';
import { Face } from './face.mjs';

const USAGE = `usage: node main.mjs --dir DIR [--google-port N] [--microsoft-port N]
  [--control-port N] [--access-token-seconds N] [--scheme SCHEME] [--bundle IDENTIFIER]
  [--max-seconds N] [--until-stdin-closes]`;

function wholeNumber(name, text, smallest) {
  const number = Number(text);
  if (!Number.isInteger(number) || number < smallest) {
    throw new Error(`--${name} wants a whole number of at least ${smallest}`);
  }
  return number;
}

function readOptions(words) {
  const text = (value) => ({ type: 'string', default: value });
  const { values } = parseArgs({
    args: words,
    options: {
      dir: { type: 'string' },
      'google-port': text('0'),
      'microsoft-port': text('0'),
      'control-port': text('0'),
      'access-token-seconds': text('3600'),
      'max-seconds': text('3600'),
      scheme: text('com.example.qvrmail'),
      bundle: text('org.example.qvrmail'),
      'until-stdin-closes': { type: 'boolean', default: false },
    },
  });
  if (!values.dir) throw new Error('--dir is needed');
  const number = (name, smallest) => wholeNumber(name, values[name], smallest);
  return {
    directory: resolve(values.dir),
    ports: {
      google: number('google-port', 0),
      microsoft: number('microsoft-port', 0),
      control: number('control-port', 0),
    },
    accessTokenSeconds: number('access-token-seconds', 1),
    maxSeconds: number('max-seconds', 1),
    scheme: values.scheme,
    bundle: values.bundle,
    untilStdinCloses: values['until-stdin-closes'],
  };
}

// Written beside and renamed, so that whoever waits for the file never reads half of it.
function writeReady(path, content) {
  writeFileSync(`${path}.tmp`, `${JSON.stringify(content, null, 2)}\n`);
  renameSync(`${path}.tmp`, path);
}

// Arranges for `stop` to be called in every case in which the process has to end.
function watchForTheEnd(options, stop) {
  process.on('SIGTERM', () => stop('terminated'));
  process.on('SIGINT', () => stop('interrupted'));
  setTimeout(() => stop(`${options.maxSeconds} seconds are over`), options.maxSeconds * 1000);
  if (options.untilStdinCloses) {
    process.stdin.on('close', () => stop('standard input closed')).resume();
  }
}

async function openFaces(options) {
  const registrations = makeRegistrations(options);
  const faces = {};
  for (const name of Object.keys(registrations)) {
    faces[name] = new Face(name, registrations[name], options);
    await faces[name].open(options.ports[name]);
  }
  return faces;
}

async function main(options) {
  process.umask(0o077);
  const readyPath = join(options.directory, 'ready.json');
  rmSync(readyPath, { force: true });
  const stop = (reason) => {
    rmSync(readyPath, { force: true });
    console.log(`provider: ends, ${reason}`);
    process.exit(0);
  };
  watchForTheEnd(options, stop);
  makeCertificates(options.directory);
  const faces = await openFaces(options);
  const control = await openControl(faces, options.ports.control,
    (reason) => setImmediate(stop, reason));
  writeReady(readyPath, {
    pid: process.pid,
    ca: join(options.directory, 'ca.pem'),
    google: faces.google.describe(),
    microsoft: faces.microsoft.describe(),
    bundleIdentifier: options.bundle,
    control,
  });
  console.log(`provider: ready, see ${readyPath}`);
}

try {
  await main(readOptions(process.argv.slice(2)));
} catch (error) {
  console.error(`provider: ${error.message}\n${USAGE}`);
  process.exit(1);
}
