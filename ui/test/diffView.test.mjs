import { test } from 'node:test';
import assert from 'node:assert/strict';
import { compareKind, counts, fold, sideBySide, unified, withoutFinalNewline } from '../js/diffView.js';

let number = 0;
const ctx = (n) => Array.from({ length: n }, () => { number += 1; return { kind: 'context', text: `l${number}`, oldNumber: number, newNumber: number }; });
const add = (text) => ({ kind: 'added', text, oldNumber: null, newNumber: 0 });
const del = (text) => ({ kind: 'removed', text, oldNumber: 0, newNumber: null });

test('side by side pairs a removed block with the lines that replaced it', () => {
  const rows = sideBySide([...ctx(1), del('a'), del('b'), add('A'), ...ctx(1), add('new')]);
  assert.deepEqual(rows.map((r) => [r.kind, r.left && r.left.text, r.right && r.right.text]),
    [['context', 'l1', 'l1'], ['changed', 'a', 'A'], ['changed', 'b', null], ['context', 'l2', 'l2'], ['changed', null, 'new']]);
  assert.deepEqual(counts([del('a'), del('b'), add('A')]), { added: 1, removed: 2, identical: false });
  assert.ok(counts(ctx(3)).identical);
});

test('long unchanged runs fold, keeping context next to changes; short runs and opened folds stay', () => {
  number = 0;
  const lines = [...ctx(20), add('x'), ...ctx(12), del('y'), ...ctx(8)];
  const rows = unified(lines);
  const shape = (items) => items.map((r) => (r.fold ? `${r.start}+${r.count}` : r.kind === 'context' ? '.' : 'x')).join(' ');
  const folded = fold(rows, { context: 3, minimum: 4 });
  // 17 hidden at the top, 3 kept, the change, 3 kept, 6 hidden, 3 kept, the change, 3 kept, the last 5 hidden.
  assert.equal(shape(folded), '0+17 . . . x . . . 24+6 . . . x . . . 37+5');
  assert.equal(folded.filter((r) => !r.fold).length, lines.length - 17 - 6 - 5);
  assert.equal(folded.filter((r) => !r.fold && r.kind === 'changed').length, 2, 'every change is shown');
  const opened = fold(rows, { context: 3, minimum: 4, unfolded: new Set([24]) });
  assert.equal(opened.filter((r) => r.fold).map((r) => r.start).join(' '), '0 37');
  assert.equal(fold(rows, { context: 3, minimum: 40 }).length, lines.length, 'runs under the minimum are shown whole');
});

test('the comparison a file gets, by its extension', () => {
  const table = [['a/photo.JPG', 'image'], ['x.svg', 'image'], ['doc.pdf', 'pdf'], ['page.html', 'text'], ['notes.txt', 'text'],
    ['archive.bin', 'text'], ['.pdf', 'text'], ['Makefile', 'text'], ['pic.webp', 'image']];
  for (const [path, kind] of table) assert.equal(compareKind(path), kind, path);
});

test('the empty line after a final newline is dropped only when both sides have it', () => {
  const line = (kind, text) => ({ kind, text });
  const table = [[[line('context', 'a'), line('context', '')], 1], [[line('context', 'a'), line('removed', '')], 2],
    [[line('added', 'b'), line('context', 'x')], 2], [[], 0]];
  for (const [lines, left] of table) assert.equal(withoutFinalNewline(lines).length, left, JSON.stringify(lines));
});
