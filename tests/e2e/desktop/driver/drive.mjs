// Opens a browser, waits until the desktop has it show a page of the provider, and signs a person
// in there. The redirect is the browser's and the desktop's own business.
//
// It says how far it is, a line each: "ready", "suggested: NAME" (what the login form held),
// "decided". Then each line on standard input makes it say what is to be seen, and save a picture;
// at the end of that the browser is closed.

import { join } from 'node:path';
import { createInterface } from 'node:readline';
import { parseArgs } from 'node:util';

import { Browser } from './browser.mjs';
import { decide, logIn } from './person.mjs';

const USAGE = `usage: node drive.mjs --program PROGRAM --origin ORIGIN --user NAME
  --password PASSWORD --pictures FOLDER [--deny]`;
const PATIENCE_MILLISECONDS = 60 * 1000;

function readOptions(words) {
  const text = { type: 'string' };
  const { values } = parseArgs({
    args: words,
    options: {
      program: text, origin: text, user: text, password: text, pictures: text,
      deny: { type: 'boolean', default: false },
    },
  });
  for (const name of ['program', 'origin', 'user', 'password', 'pictures']) {
    if (!values[name]) throw new Error(`--${name} is missing\n${USAGE}`);
  }
  return values;
}

async function pageOf(driven, origin) {
  const target = await driven.waitForTarget((each) => each.url().startsWith(origin),
    { timeout: PATIENCE_MILLISECONDS });
  const page = await target.page();
  page.setDefaultTimeout(PATIENCE_MILLISECONDS);
  return page;
}

// Says what the browser wrote, and what its newest page looks like. Titles are the provider's and
// hold no secret; addresses do.
async function describe(browser, folder) {
  browser.lastWords.forEach((line) => console.log(`browser: ${line}`));
  if (!browser.driven) return;
  const page = (await browser.driven.pages()).at(-1);
  const picture = join(folder, `qvr-browser-${process.pid}.png`);
  await page.screenshot({ path: picture });
  console.log(`page: "${await page.title()}", see ${picture}`);
}

async function signIn(browser, options) {
  await browser.connect();
  console.log('ready');
  const page = await pageOf(browser.driven, options.origin);
  console.log(`suggested: ${await logIn(page, options)}`);
  await decide(page, options.deny ? 'deny' : 'allow');
  console.log('decided');
}

async function main(words) {
  const options = readOptions(words);
  const browser = new Browser(options.program);
  try {
    await signIn(browser, options);
    for await (const _line of createInterface(process.stdin)) {
      await describe(browser, options.pictures);
    }
  } catch (error) {
    process.exitCode = 1;
    console.error(`drive: ${error.message}`);
    await describe(browser, options.pictures);
  } finally {
    await browser.close();
  }
  process.stdin.destroy();
}

main(process.argv.slice(2)).catch((error) => {
  console.error(`drive: ${error.message}`);
  process.exitCode = 1;
});
