// What the two authorization servers look like from outside, and the settings that make
// oidc-provider look that way.

import { generateKeyPairSync, randomBytes, randomUUID } from 'node:crypto';

import { makeStorage } from './storage.mjs';

const DAY = 24 * 60 * 60;

// `alwaysRefreshToken`: a refresh token comes with every code exchange; otherwise only when the
// scope offline_access was granted. `routes` leave out what the server does not offer.
export const PROFILES = {
  google: {
    routes: { authorization: '/o/oauth2/auth', token: '/token', revocation: '/revoke' },
    scopes: ['https://mail.google.com/', 'openid', 'email', 'profile'],
    alwaysRefreshToken: true,
  },
  microsoft: {
    routes: {
      authorization: '/common/oauth2/v2.0/authorize',
      token: '/common/oauth2/v2.0/token',
    },
    scopes: [
      'https://outlook.office.com/IMAP.AccessAsUser.All',
      'https://outlook.office.com/POP.AccessAsUser.All',
      'https://outlook.office.com/SMTP.Send',
      'offline_access', 'openid', 'email', 'profile',
    ],
    alwaysRefreshToken: false,
  },
};

// The one client registered with each server, made anew for every run.
export function makeRegistrations({ scheme, bundle }) {
  return {
    google: {
      clientId: `${randomBytes(8).toString('hex')}.apps.example.com`,
      clientSecret: randomBytes(16).toString('hex'),
      scheme,
      redirectUri: `${scheme}:/oauth2/auth`,
    },
    microsoft: { clientId: randomUUID(), redirectUri: `msauth.${bundle}://auth` },
  };
}

function makeSigningKeys() {
  const { privateKey } = generateKeyPairSync('ec', { namedCurve: 'P-256' });
  return { keys: [{ ...privateKey.export({ format: 'jwk' }), use: 'sig', alg: 'ES256' }] };
}

// The client is a native application and proves itself with PKCE alone. That one server also hands
// out a client secret does not change this: the secret is checked before oidc-provider sees it.
function clientOf(registration) {
  return {
    client_id: registration.clientId,
    client_name: 'QVROAuth2Client',
    application_type: 'native',
    token_endpoint_auth_method: 'none',
    grant_types: ['authorization_code', 'refresh_token'],
    response_types: ['code'],
    redirect_uris: [registration.redirectUri],
    id_token_signed_response_alg: 'ES256',
  };
}

// Cookies know no ports, and both servers are "localhost" to a browser: hence the name in front.
function cookiesOf(name) {
  return {
    names: {
      session: `${name}_session`,
      interaction: `${name}_interaction`,
      resume: `${name}_resume`,
    },
    keys: [randomBytes(32).toString('hex')],
  };
}

// The password is anybody's guess, and so is the account: whoever signs in exists.
function findAccount(_context, accountId) {
  return {
    accountId,
    claims: async () => ({ sub: accountId, email: accountId, email_verified: true }),
  };
}

// The settings of oidc-provider for the server `name`. `settings.accessTokenSeconds` is read for
// every token, so it can change while the server runs.
//
// Refresh tokens rotate, and using a rotated one again revokes the whole grant: the newest access
// and refresh token die with it (RFC 9700 section 4.14.2).
export function configurationOf(name, registration, settings, errorPage) {
  const profile = PROFILES[name];
  return {
    adapter: makeStorage(),
    jwks: makeSigningKeys(),
    cookies: cookiesOf(name),
    clients: [clientOf(registration)],
    scopes: profile.scopes,
    claims: { openid: ['sub'], email: ['email', 'email_verified'] },
    conformIdTokenClaims: false, // the address stands in the ID token, as with the real services
    routes: { ...profile.routes, introspection: '/introspect' },
    pkce: { required: () => true },
    clockTolerance: 0,
    rotateRefreshToken: true,
    expiresWithSession: () => false,
    issueRefreshToken: (_context, _client, code) =>
      profile.alwaysRefreshToken || code.scopes.has('offline_access'),
    features: {
      devInteractions: { enabled: false },
      introspection: { enabled: true },
      revocation: { enabled: 'revocation' in profile.routes },
      rpInitiatedLogout: { enabled: false },
    },
    ttl: {
      AccessToken: () => settings.accessTokenSeconds,
      AuthorizationCode: 10 * 60,
      Grant: 14 * DAY,
      IdToken: 60 * 60,
      Interaction: 60 * 60,
      RefreshToken: 14 * DAY,
      Session: 14 * DAY,
    },
    interactions: { url: (_context, interaction) => `/interaction/${interaction.uid}` },
    findAccount,
    renderError: (context, problem) => {
      context.type = 'html';
      context.body = errorPage(problem);
    },
  };
}
