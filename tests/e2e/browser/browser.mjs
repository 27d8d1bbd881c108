// A browser that signs a person in: it follows redirects, keeps cookies, fills in the login form
// and agrees (or not) on the consent page, until a redirect leaves the web for an application.

import { CookieJar } from './cookies.mjs';
import { parseForms } from './forms.mjs';
import { send, sendForm, trusting } from './https.mjs';

const MOST_STEPS = 20;
const REDIRECTS = new Set([301, 302, 303]);

// Where `url` points, without the query: that may hold a code, which is nobody's business.
const place = (url) => `${url.origin}${url.pathname}`;

const titleOf = (html) => /<title>([^<]*)<\/title>/i.exec(html)?.[1].trim() ?? 'an untitled page';

function theForm(html, url) {
  const forms = parseForms(html).filter(({ method }) => method === 'post');
  if (forms.length === 1) return forms[0];
  throw new Error(`"${titleOf(html)}" at ${place(url)} has ${forms.length} forms to send, not one`);
}

// Applications are reached by a scheme of their own; a location without one stays where it is.
function leavesTheWeb(location) {
  const scheme = /^([a-z][a-z0-9+.-]*):/i.exec(location)?.[1].toLowerCase();
  return scheme !== undefined && scheme !== 'https' && scheme !== 'http';
}

class Visit {
  #agent;
  #jar = new CookieJar();
  #loggedIn = false;
  #options;

  constructor(options) {
    this.#agent = trusting(options.ca);
    this.#options = options;
  }

  // Walks from `start` to the redirect that leaves the web, and answers with that.
  async walk(start) {
    try {
      let next = { url: new URL(start) };
      for (let step = 0; step < MOST_STEPS; ++step) {
        next = await this.#step(next);
        if (next.left) return next.left;
      }
      throw new Error(`no end after ${MOST_STEPS} pages and redirects`);
    } finally {
      this.#agent.destroy();
    }
  }

  async #step({ url, fields }) {
    if (url.protocol !== 'https:') throw new Error(`${place(url)} is not https`);
    const { status, headers, body } = await this.#fetch(url, fields);
    this.#jar.store(url, headers['set-cookie']);
    if (REDIRECTS.has(status) && headers.location) {
      if (leavesTheWeb(headers.location)) return { left: headers.location };
      return { url: new URL(headers.location, url) };
    }
    if (status !== 200) throw new Error(`${place(url)} answered ${status}: ${titleOf(body)}`);
    return this.#fillIn(theForm(body, url), body, url);
  }

  #fetch(url, fields) {
    const cookie = this.#jar.headerFor(url);
    const options = {
      agent: this.#agent,
      signal: this.#options.signal,
      headers: { accept: 'text/html', ...(cookie && { cookie }) },
    };
    return fields ? sendForm(url, fields, options) : send(url, options);
  }

  #fillIn(form, html, url) {
    const isLogin = form.fields.some(({ type }) => type === 'password');
    if (isLogin && this.#loggedIn) throw new Error(`the login form at ${place(url)} came back`);
    this.#loggedIn ||= isLogin;
    const wanted = !isLogin && this.#options.deny ? 'deny' : 'allow';
    const button = form.buttons.find(({ value }) => value === wanted);
    if (!button) throw new Error(`"${titleOf(html)}" at ${place(url)} has no "${wanted}" button`);
    const fields = form.fields.map(({ name, value, type }) => [name, this.#entry(type, value)]);
    return { url: new URL(form.action, url), fields: [...fields, [button.name, button.value]] };
  }

  #entry(type, value) {
    if (type === 'password') return this.#options.password;
    if (type === 'text' || type === 'email') return this.#options.user;
    return value;
  }
}

// Signs `user` in at `url` and answers with the redirect to the application, exactly as it came.
// Options: ca (PEM text), user, password, deny (refuse on the consent page), signal.
export function browse(url, options) {
  return new Visit(options).walk(url);
}
