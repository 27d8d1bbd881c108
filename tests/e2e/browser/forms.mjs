// Reads the forms of an HTML page: where they go, what they hold, which buttons they have.

const ENTITIES = { amp: '&', lt: '<', gt: '>', quot: '"', apos: "'" };
const TAG = /<!--.*?-->|<(\/?(?:form|input|button))\b((?:"[^"]*"|'[^']*'|[^>"'])*)>/gis;
const ATTRIBUTE = /([^\s"'=<>/]+)(?:\s*=\s*(?:"([^"]*)"|'([^']*)'|([^\s"'=<>`]+)))?/g;

function decodeEntities(text) {
  return text.replace(/&(?:#x([0-9a-f]+)|#([0-9]+)|([a-z]+));/gi, (whole, hex, decimal, name) => {
    if (name) return ENTITIES[name.toLowerCase()] ?? whole;
    return String.fromCodePoint(hex ? parseInt(hex, 16) : Number(decimal));
  });
}

function parseAttributes(text) {
  const attributes = {};
  for (const [, name, double, single, bare] of text.matchAll(ATTRIBUTE)) {
    attributes[name.toLowerCase()] = decodeEntities(double ?? single ?? bare ?? '');
  }
  return attributes;
}

function addControl(form, tag, { name, value = '', type }) {
  const kind = (type ?? (tag === 'button' ? 'submit' : 'text')).toLowerCase();
  if (kind === 'submit') form.buttons.push({ name, value });
  else if (tag === 'input' && name) form.fields.push({ name, value, type: kind });
}

// [{action, method, fields: [{name, value, type}], buttons: [{name, value}]}, ...]
export function parseForms(html) {
  const forms = [];
  let form;
  for (const [, tag = '', text] of html.matchAll(TAG)) {
    switch (tag.toLowerCase()) {
      case 'form': {
        const { action = '', method = 'get' } = parseAttributes(text);
        form = { action, method: method.toLowerCase(), fields: [], buttons: [] };
        forms.push(form);
        break;
      }
      case '/form': form = undefined; break;
      case 'input':
      case 'button': if (form) addControl(form, tag.toLowerCase(), parseAttributes(text)); break;
      default:
    }
  }
  return forms;
}
