import { test } from 'node:test';
import assert from 'node:assert/strict';
import { filterPaths, highlightPieces, mergeRanges, preparePaths } from '../js/pathFilter.js';

const paths = preparePaths([
  { relativePath: 'notes/report.md' },
  { relativePath: 'old/report-draft.md', isDeleted: true },
  { relativePath: 'reports/2024/summary.txt' },
  { relativePath: 'src/preport.c' },
  { relativePath: 'Report.md' },
  { relativePath: 'docs/Readme.md' },
  { relativePath: 'file 10.txt' },
  { relativePath: 'file 2.txt' },
  { relativePath: 'archive/file 1.txt' },
]);
const found = (query, limit) => filterPaths(paths, query, limit).map((result) => result.entry.relativePath);

test('every word must match; the file name ranks above folders and middles', () => {
  assert.deepEqual(found('report'),
    ['Report.md', 'notes/report.md', 'old/report-draft.md', 'src/preport.c', 'reports/2024/summary.txt']);
  assert.deepEqual(found('REP md'), ['Report.md', 'notes/report.md', 'old/report-draft.md']);
  assert.deepEqual(found('2024 sum'), ['reports/2024/summary.txt']);
  assert.deepEqual(found('draft'), ['old/report-draft.md']);
  assert.deepEqual(found('notes/rep'), ['notes/report.md']);
  assert.deepEqual(found('zzz'), []);
  assert.deepEqual(found('file 1'), ['archive/file 1.txt', 'file 10.txt'], 'a whole word first');
  assert.deepEqual(found('report', 2), ['Report.md', 'notes/report.md']);
});

test('an empty query lists live files first, in natural order', () => {
  const all = found('  ');
  assert.equal(all.length, 9);
  assert.equal(all[all.length - 1], 'old/report-draft.md');
  assert.ok(all.indexOf('file 2.txt') < all.indexOf('file 10.txt'));
});

test('the matched ranges mark the path', () => {
  const [best] = filterPaths(paths, 'sum 2024');
  assert.deepEqual(best.ranges, [[8, 12], [13, 16]]);
  assert.deepEqual(highlightPieces('reports/2024/summary.txt', best.ranges).filter((p) => p.match).map((p) => p.text),
    ['2024', 'sum']);
  assert.deepEqual(mergeRanges([[5, 8], [0, 2], [1, 3], [8, 9]]), [[0, 3], [5, 9]]);
  assert.deepEqual(highlightPieces('abc', []), [{ text: 'abc', match: false }]);
  const [odd] = filterPaths(preparePaths([{ relativePath: 'İstanbul/x' }]), 'x');
  assert.deepEqual(odd.ranges, []);
});

test('the best few are the first few of the whole order', () => {
  const many = preparePaths(Array.from({ length: 400 }, (_, i) => ({
    relativePath: `dir ${(i * 7) % 13}/file ${(i * 31) % 97}${i % 3 ? '.txt' : '.md'}`, isDeleted: i % 5 === 0,
  })));
  for (const query of ['', 'file', 'dir 1', 'md 9', '7']) {
    const all = filterPaths(many, query, 1000).map((r) => r.entry.relativePath);
    assert.deepEqual(filterPaths(many, query, 7).map((r) => r.entry.relativePath), all.slice(0, 7), query);
  }
});
