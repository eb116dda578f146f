// How the window writes times, sizes and names. Pure functions: no DOM, so
// they are tested under Node.

const units = ['bytes', 'KB', 'MB', 'GB', 'TB', 'PB'];

// Decimal units, as file managers on Linux show them: 1 KB = 1,000 bytes.
export function formatBytes(n) {
  if (n === null || n === undefined || Number.isNaN(n)) return '';
  const magnitude = Math.abs(n);
  if (magnitude < 1000) return `${n} ${magnitude === 1 ? 'byte' : 'bytes'}`;
  let unit = 0;
  let value = magnitude;
  while (value >= 1000 && unit < units.length - 1) {
    value /= 1000;
    unit += 1;
  }
  const digits = value < 10 ? 1 : 0;
  let text = value.toFixed(digits);
  // 999.96 KB rounds to "1000 KB": say 1.0 MB instead.
  if (Number(text) >= 1000 && unit < units.length - 1) {
    text = (value / 1000).toFixed(1);
    unit += 1;
  }
  return `${n < 0 ? '-' : ''}${text} ${units[unit]}`;
}

export function formatSignedBytes(n) {
  if (n === null || n === undefined) return '';
  if (n === 0) return '±0 bytes';
  return n > 0 ? `+${formatBytes(n)}` : formatBytes(n).replace(/^-/, '−');
}

export function parseInstant(iso) {
  const ms = Date.parse(iso);
  return Number.isNaN(ms) ? null : ms;
}

// Building an Intl formatter costs far more than using one, and a timeline
// formats thousands of times: one formatter per kind and locale.
const formatters = new Map();
function formatter(Kind, locale, options) {
  const key = `${Kind.name}|${locale}|${JSON.stringify(options)}`;
  if (!formatters.has(key)) formatters.set(key, new Kind(locale, options));
  return formatters.get(key);
}

// The absolute time in the reader's own zone and language.
export function formatAbsolute(iso, locale = undefined) {
  const ms = parseInstant(iso);
  if (ms === null) return '';
  return formatter(Intl.DateTimeFormat, locale, { dateStyle: 'medium', timeStyle: 'medium' }).format(new Date(ms));
}

const steps = [
  ['year', 365 * 24 * 3600],
  ['month', 30 * 24 * 3600],
  ['week', 7 * 24 * 3600],
  ['day', 24 * 3600],
  ['hour', 3600],
  ['minute', 60],
  ['second', 1],
];

// "3 days ago", "in 2 minutes" (a clock running behind), "now" within 10 s.
export function formatRelative(iso, nowMs = Date.now(), locale = 'en') {
  const ms = parseInstant(iso);
  if (ms === null) return '';
  const seconds = (ms - nowMs) / 1000;
  if (Math.abs(seconds) < 10) return 'now';
  const format = formatter(Intl.RelativeTimeFormat, locale, { numeric: 'always' });
  for (const [unit, size] of steps) {
    if (Math.abs(seconds) >= size) return format.format(Math.trunc(seconds / size), unit);
  }
  return 'now';
}

// The local calendar day of an instant, "YYYY-MM-DD".
export function localDay(iso) {
  const ms = parseInstant(iso);
  if (ms === null) return '';
  const date = new Date(ms);
  const pad = (n) => String(n).padStart(2, '0');
  return `${date.getFullYear()}-${pad(date.getMonth() + 1)}-${pad(date.getDate())}`;
}

// Names in the order people expect: case-insensitive, digit runs by value ("file 2" before "file 10").
const collator = new Intl.Collator('en', { numeric: true, sensitivity: 'base' });
export function naturalCompare(a, b) {
  return collator.compare(a, b) || (a < b ? -1 : a > b ? 1 : 0);
}

export function baseName(path) {
  const parts = String(path).split('/').filter(Boolean);
  return parts.length ? parts[parts.length - 1] : String(path);
}
