// What a server has heard and issued that nobody else may see, for the tests that look for it in
// other places; and the echo of it, which a fault's body may hold.

const ISSUED = /"(access_token|refresh_token|id_token)"\s*:\s*"((?:[^"\\]|\\.)*)/g;
const HEARD = ['code', 'code_verifier', 'refresh_token', 'client_secret'];

const LONGEST = 8192; // of what is kept; only a fault makes longer ones

// As a strict encoder writes it: of RFC 3986, only the unreserved characters stay (section 2.3).
const percentEncoded = (text) => encodeURIComponent(text).replace(/[!'()*]/g,
  (character) => `%${character.charCodeAt(0).toString(16).toUpperCase()}`);

function unescaped(text) {
  try {
    return JSON.parse(`"${text}"`);
  } catch {
    return text;
  }
}

function codeIn(location) {
  return /[?&]code=([^&#]*)/.exec(location ?? '')?.[1];
}

export class Secrets {
  #lastForm = new URLSearchParams();
  #seen = new Map();

  // [{kind, text}, ...]; the kinds are named as on the wire (RFC 6749 appendix A).
  list() {
    return [...this.#seen.values()];
  }

  // A request's form, which comes back unchanged.
  heard(form) {
    this.#lastForm = new URLSearchParams(form);
    for (const kind of HEARD) this.#note(kind, form.get(kind));
    return form;
  }

  // Reads along with an answer until its end.
  watch(response) {
    const chunks = [];
    for (const name of ['write', 'end']) {
      const original = response[name];
      response[name] = (...given) => {
        if (typeof given[0] === 'string' || given[0] instanceof Uint8Array) {
          chunks.push(Buffer.from(given[0]));
        }
        return original.apply(response, given);
      };
    }
    response.once('close', () => this.#noteAnswer(response, Buffer.concat(chunks).toString()));
  }

  // The fault, with {{NAME}} in its body replaced by what the last form has under that name, and
  // {{%NAME}} by the same percent-encoded.
  echoedIn(fault) {
    if (typeof fault?.body !== 'string') return fault;
    const body = fault.body.replace(/\{\{(%?)(\w+)\}\}/g, (_whole, percent, name) => {
      const value = this.#lastForm.get(name) ?? '';
      return percent ? percentEncoded(value) : value;
    });
    return { ...fault, body };
  }

  #noteAnswer(response, body) {
    const code = codeIn(response.getHeader('location'));
    if (code) this.#note('code', decodeURIComponent(code));
    // Not parsed as a whole: an answer that was cut off may hold a token, or half of one.
    for (const [, kind, text] of body.matchAll(ISSUED)) this.#note(kind, unescaped(text));
  }

  #note(kind, text) {
    if (typeof text !== 'string' || text === '') return;
    const start = text.slice(0, LONGEST);
    this.#seen.set(start, { kind, text: start });
  }
}
