// A cookie jar (RFC 6265) for one visit. Cookies stay with the host that set them, whatever its
// port; the Domain attribute is ignored, as nothing here spans hosts.

function defaultPath(pathname) {
  const end = pathname.lastIndexOf('/');
  return end > 0 ? pathname.slice(0, end) : '/';
}

function pathMatches(pathname, cookiePath) {
  if (pathname === cookiePath) return true;
  return pathname.startsWith(cookiePath.endsWith('/') ? cookiePath : `${cookiePath}/`);
}

function parseSetCookie(line, url) {
  const [pair, ...attributes] = line.split(';').map((part) => part.trim());
  const split = pair.indexOf('=');
  if (split < 1) return undefined;
  const cookie = {
    name: pair.slice(0, split),
    value: pair.slice(split + 1),
    host: url.hostname,
    path: defaultPath(url.pathname),
    expires: Infinity,
  };
  for (const attribute of attributes) {
    const [name, value = ''] = attribute.split(/=(.*)/s);
    switch (name.toLowerCase()) {
      case 'path': if (value.startsWith('/')) cookie.path = value; break;
      case 'max-age': cookie.expires = Date.now() + Number(value) * 1000; break;
      case 'expires': cookie.expires = Math.min(cookie.expires, Date.parse(value)); break;
      default:
    }
  }
  return cookie;
}

export class CookieJar {
  #cookies = new Map();

  store(url, setCookieLines = []) {
    for (const line of setCookieLines) {
      const cookie = parseSetCookie(line, url);
      if (cookie) this.#put(cookie);
    }
  }

  // The Cookie header for a request to `url`, longer paths first; undefined when there is none.
  headerFor(url) {
    const fitting = [...this.#cookies.values()].filter(({ host, path, expires }) =>
      host === url.hostname && pathMatches(url.pathname, path) && expires > Date.now());
    fitting.sort((one, other) => other.path.length - one.path.length);
    return fitting.map(({ name, value }) => `${name}=${value}`).join('; ') || undefined;
  }

  #put(cookie) {
    const key = [cookie.host, cookie.path, cookie.name].join('\n');
    if (cookie.expires <= Date.now()) this.#cookies.delete(key);
    else this.#cookies.set(key, cookie);
  }
}
