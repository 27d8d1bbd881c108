// A browser as a person has it open: started with no page to show, and ready to be driven.

import { spawn } from 'node:child_process';
import { once } from 'node:events';
import { createInterface } from 'node:readline';

import puppeteer from 'puppeteer-core';

const LINES_KEPT = 20;
const CLOSING_MILLISECONDS = 10 * 1000;

// What each browser says when it can be driven, and over which protocol.
const ANNOUNCEMENT = /(DevTools|WebDriver BiDi) listening on (ws:\S+)/;
const CONNECTIONS = {
  DevTools: (url) => ({ browserWSEndpoint: url }),
  'WebDriver BiDi': (url) => ({
    browserWSEndpoint: `${url}/session`, protocol: 'webDriverBiDi',
  }),
};

export class Browser {
  #process;
  #lines = [];
  #announcement;

  constructor(program) {
    this.#process = spawn(program, ['about:blank'], { stdio: ['ignore', 'ignore', 'pipe'] });
    this.#announcement = new Promise((resolve, reject) => {
      createInterface(this.#process.stderr).on('line', (line) => {
        this.#lines = [...this.#lines, line].slice(-LINES_KEPT);
        const found = ANNOUNCEMENT.exec(line);
        if (found) resolve(found);
      }).on('close', () => reject(new Error('the browser ended before it could be driven')));
      this.#process.on('error', reject);
    });
  }

  // The last lines that the browser wrote, without the addresses in them: those hold secrets.
  get lastWords() {
    return this.#lines.map((line) => line.replace(/[a-z][a-z0-9+.-]*:\/+\S+/gi, '[address]'));
  }

  async connect() {
    const [, kind, url] = await this.#announcement;
    this.driven = await puppeteer.connect({ ...CONNECTIONS[kind](url), defaultViewport: null });
  }

  // Asks the browser to close; one that does not is ended.
  async close() {
    if (this.#process.exitCode !== null || this.#process.signalCode !== null) return;
    const ended = once(this.#process, 'exit');
    const impatience = setTimeout(() => this.#process.kill('SIGKILL'), CLOSING_MILLISECONDS);
    if (this.driven) this.driven.close().catch(() => {});
    else this.#process.kill('SIGKILL');
    await ended;
    clearTimeout(impatience);
  }
}
