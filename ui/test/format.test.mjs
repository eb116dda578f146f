import { test } from 'node:test';
import assert from 'node:assert/strict';
import { formatBytes, formatRelative, formatSignedBytes, naturalCompare } from '../js/format.js';
import { count, fill, setStrings, t } from '../js/strings.js';

test('sizes in decimal units, never "1000 KB"', () => {
  const table = [[0, '0 bytes'], [1, '1 byte'], [999, '999 bytes'], [1000, '1.0 KB'], [1499, '1.5 KB'],
    [999_960, '1.0 MB'], [25_000_000, '25 MB'], [-2048, '-2.0 KB'], [5e15, '5.0 PB']];
  for (const [n, text] of table) assert.equal(formatBytes(n), text, `${n}`);
  assert.equal(formatSignedBytes(1500), '+1.5 KB');
  assert.equal(formatSignedBytes(-1500), '−1.5 KB');
});

test('relative times', () => {
  const now = Date.parse('2026-11-25T12:00:00Z');
  const table = [['2026-11-25T11:59:55Z', 'now'], ['2026-11-25T11:59:00Z', '1 minute ago'],
    ['2026-11-22T12:00:00Z', '3 days ago'], ['2026-11-25T12:02:00Z', 'in 2 minutes'],
    ['2025-11-20T12:00:00Z', '1 year ago'], ['not a time', '']];
  for (const [iso, text] of table) assert.equal(formatRelative(iso, now), text, iso);
});

test('natural order', () => {
  const names = ['file 10', 'File 2', 'file 1', 'a', 'B'];
  assert.deepEqual(names.sort(naturalCompare), ['a', 'B', 'file 1', 'File 2', 'file 10']);
});

test('string table placeholders and singular forms', () => {
  setStrings({ 'a %@ %@': 'from %@ to %@', 'n %lld': '%lld files' }, { 'n %lld': '1 file' });
  assert.equal(t('a %@ %@', 'x', 'y'), 'from x to y');
  assert.equal(count('n %lld', 1), '1 file');
  assert.equal(count('n %lld', 3), '3 files');
  setStrings({ 'd %lld %@': '%lld changes at %@' }, { 'd %lld %@': '1 change at %@' });
  assert.equal(count('d %lld %@', 1, 'noon'), '1 change at noon');
  assert.equal(count('d %lld %@', 2, 'noon'), '2 changes at noon');
  assert.equal(t('missing.key'), 'missing.key');
  assert.equal(fill('%@ and %@', ['only']), 'only and %@');
});
