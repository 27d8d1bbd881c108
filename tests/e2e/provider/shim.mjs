// The small differences between what the two providers accept and what oidc-provider accepts.

import { timingSafeEqual } from 'node:crypto';

// A revocation request names no client, only a token; oidc-provider wants to know the client first.
// There is but one.
export function completeRevocation(form, registration) {
  if (!form.has('client_id')) form.set('client_id', registration.clientId);
}

// A native client's secret is no secret: it may be sent, left empty or left out, but a wrong one
// is refused. oidc-provider would refuse any from a client that authenticates with "none".
export function takeClientSecret(form, registration) {
  const sent = Buffer.from(form.get('client_secret') ?? '');
  form.delete('client_secret');
  if (sent.length === 0) return true;
  const known = Buffer.from(registration.clientSecret ?? '');
  return sent.length === known.length && timingSafeEqual(sent, known);
}

// oidc-provider drops offline_access unless the request forces the consent page (OpenID Connect
// Core section 11), and knows no select_account; the real services keep the one and know the other.
// Signing in anew is the nearest thing to choosing an account.
export function adaptAuthorization(url) {
  const { pathname, searchParams } = new URL(url, 'https://localhost');
  const prompts = new Set((searchParams.get('prompt') ?? '').split(' ').filter(Boolean));
  if (prompts.delete('select_account')) prompts.add('login');
  const scopes = (searchParams.get('scope') ?? '').split(' ');
  if (scopes.includes('offline_access') && !prompts.has('none')) prompts.add('consent');
  if (prompts.size === 0) return url;
  searchParams.set('prompt', [...prompts].join(' '));
  return `${pathname}?${searchParams}`;
}
