// Every text the window shows comes from the daemon's string table, the one
// the command line uses. A key the table lacks shows as itself, so a missing
// text is visible rather than silent.

let table = {};
let singular = {};

// `ones` holds the singular forms of counted texts, by the same keys.
export function setStrings(texts, ones = {}) {
  table = { ...texts };
  singular = { ...ones };
}

export async function loadStrings(call) {
  const answer = await call('strings', {});
  setStrings(answer.texts || {}, answer.singular || {});
}

// Fills "%@" and "%lld" placeholders in order.
export function fill(text, args) {
  let next = 0;
  return text.replace(/%(@|lld|ld|d)/g, (whole) => (next < args.length ? String(args[next++]) : whole));
}

export function t(key, ...args) {
  const text = Object.prototype.hasOwnProperty.call(table, key) ? table[key] : key;
  return fill(text, args);
}

// A counted text, in its singular form for 1 when the table has one.
// A singular form may spell the number out ("1 file changed: %@"): then the
// number is not one of its placeholders' values.
export function count(key, n, ...more) {
  if (n === 1 && Object.prototype.hasOwnProperty.call(singular, key)) {
    const form = singular[key];
    const places = (form.match(/%(@|lld|ld|d)/g) || []).length;
    return fill(form, places > more.length ? [n, ...more] : more);
  }
  return t(key, n, ...more);
}
