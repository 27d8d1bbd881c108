// The pages a person sees: sign in, then agree. Plain forms, no script, nothing from elsewhere.

import { readBody } from './body.mjs';

const ENTITIES = { '&': '&amp;', '<': '&lt;', '>': '&gt;', '"': '&quot;', "'": '&#39;' };
const escapeHtml = (text) => String(text).replace(/[&<>"']/g, (character) => ENTITIES[character]);

function page(title, body) {
  return `<!DOCTYPE html>
<html lang="en">
<head><meta charset="utf-8"><title>${escapeHtml(title)}</title></head>
<body>
<h1>${escapeHtml(title)}</h1>
${body}
</body>
</html>
`;
}

function loginPage({ params }, complaint = '') {
  return page('Sign in', `<p>Any name and any password will do. ${escapeHtml(complaint)}</p>
<form method="post">
<input type="hidden" name="prompt" value="login">
<p><label>User name <input type="text" name="login" autocomplete="off" required
 value="${escapeHtml(params.login_hint ?? '')}"></label></p>
<p><label>Password <input type="password" name="password" autocomplete="off" required></label></p>
<p><button name="decision" value="allow">Sign in</button>
<button name="decision" value="deny" formnovalidate>Cancel</button></p>
</form>`);
}

function consentPage({ params, session }) {
  const scopes = (params.scope ?? '').split(' ').filter(Boolean);
  const items = scopes.map((scope) => `<li>${escapeHtml(scope)}</li>`).join('\n');
  return page('Allow access?', `<p>QVROAuth2Client asks for access to the account
${escapeHtml(session.accountId)}:</p>
<ul>
${items}
</ul>
<form method="post">
<input type="hidden" name="prompt" value="consent">
<p><button name="decision" value="allow">Allow</button>
<button name="decision" value="deny">Deny</button></p>
</form>`);
}

export function errorPage({ error, error_description: description }) {
  return page('Something went wrong',
    `<p>${escapeHtml(error)}: ${escapeHtml(description ?? 'no description')}</p>`);
}

function sendPage(response, status, html) {
  response.writeHead(status, {
    'content-type': 'text/html; charset=utf-8',
    'cache-control': 'no-store',
    'content-security-policy': "default-src 'none'",
  });
  response.end(html);
}

const DENIAL = { error: 'access_denied', error_description: 'the user denied the request' };

async function grantFor(provider, { grantId, session, params, prompt }) {
  const grant = grantId
    ? await provider.Grant.find(grantId)
    : new provider.Grant({ accountId: session.accountId, clientId: params.client_id });
  const { missingOIDCScope: scopes, missingOIDCClaims: claims } = prompt.details;
  if (scopes) grant.addOIDCScope(scopes.join(' '));
  if (claims) grant.addOIDCClaims(claims);
  return grant.save();
}

async function answer(provider, request, response, interaction) {
  const form = new URLSearchParams((await readBody(request)).toString());
  const finish = (result) => provider.interactionFinished(request, response, result,
    { mergeWithLastSubmission: !result.error });

  if (form.get('decision') !== 'allow') return finish(DENIAL);
  if (form.get('prompt') !== interaction.prompt.name) {
    return sendPage(response, 400, errorPage({ error: 'that page is no longer the current one' }));
  }
  if (interaction.prompt.name === 'consent') {
    return finish({ consent: { grantId: await grantFor(provider, interaction) } });
  }
  if (!form.get('login') || !form.get('password')) {
    return sendPage(response, 400, loginPage(interaction, 'Both are needed.'));
  }
  return finish({ login: { accountId: form.get('login') } });
}

// Serves /interaction/ID: GET shows the page of the step the sign-in is at, POST takes the answer.
export async function serveInteraction(provider, request, response) {
  let interaction;
  try {
    interaction = await provider.interactionDetails(request, response);
  } catch (error) {
    return sendPage(response, 400, errorPage(error));
  }
  if (request.method === 'POST') return answer(provider, request, response, interaction);
  const show = interaction.prompt.name === 'login' ? loginPage : consentPage;
  return sendPage(response, 200, show(interaction));
}
