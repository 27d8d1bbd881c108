// What a person does on the provider's pages, by clicks and keys: the browsers hand an address to
// an application only when a person acted on the page.

const LOGIN = 'input[name=login]';
const PASSWORD = 'input[name=password]';
const CONSENT = 'input[name=prompt][value=consent]';
const button = (decision) => `button[name=decision][value=${decision}]`;

// Fills in the login form, and answers with the name that stood there before.
export async function logIn(page, { user, password }) {
  const field = await page.waitForSelector(LOGIN, { visible: true });
  const suggested = await field.evaluate((input) => input.value);
  if (suggested !== user) {
    await field.click({ count: 3 }); // selects what is there
    await field.type(user);
  }
  await page.type(PASSWORD, password);
  await page.click(button('allow'));
  return suggested;
}

export async function decide(page, decision) {
  await page.waitForSelector(CONSENT);
  await page.click(button(decision));
}
