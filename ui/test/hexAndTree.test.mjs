import { test } from 'node:test';
import assert from 'node:assert/strict';
import { hexRows, parseHex, pixelDifference } from '../js/hexView.js';
import { buildTree, countFiles } from '../js/fileTree.js';

test('hex rows mark the differing bytes and the bytes one side lacks', () => {
  assert.deepEqual(parseHex('00 ff 4A'), [0, 255, 74]);
  const rows = hexRows('41424344' + '45', '41425844', 0x1f0, 4);
  assert.deepEqual(rows.map((r) => r.label), ['000001f0', '000001f4']);
  assert.deepEqual(rows[0].old.map((c) => `${c.hex}${c.char}${c.differs ? '!' : ''}`), ['41A', '42B', '43C!', '44D']);
  assert.deepEqual(rows[0].new.map((c) => c.char), ['A', 'B', 'X', 'D']);
  assert.equal(rows[1].old[0].differs, true, 'a byte past the other side\'s end differs');
  assert.deepEqual(rows[1].new, [null, null, null, null]);
  assert.equal(hexRows('0a7f', '0a7f')[0].old.filter(Boolean).map((c) => c.char).join(''), '..', 'unprintable bytes show as dots');
});

test('pixel difference: equal pixels black, changed ones by how much, alpha counted', () => {
  const a = Uint8ClampedArray.from([10, 20, 30, 255, 0, 0, 0, 255, 5, 5, 5, 0]);
  const b = Uint8ClampedArray.from([10, 20, 30, 255, 255, 0, 10, 255, 5, 5, 5, 255]);
  const { pixels, differing } = pixelDifference(a, b);
  assert.deepEqual([...pixels], [0, 0, 0, 255, 255, 0, 10, 255, 255, 255, 255, 255]);
  assert.equal(differing, 2);
});

test('a tree of files: folders first, natural order at every level', () => {
  const tree = buildTree(['b/file10.txt', 'b/file2.txt', 'a.txt', 'B2/x', 'b/c/d.txt', 'Z.txt', 'file 1'].map((relativePath) => ({ relativePath })));
  assert.deepEqual(tree.folders.map((f) => f.name), ['b', 'B2']);
  assert.deepEqual(tree.files.map((f) => f.name), ['a.txt', 'file 1', 'Z.txt']);
  assert.deepEqual(tree.folders[0].files.map((f) => f.name), ['file2.txt', 'file10.txt']);
  assert.equal(tree.folders[0].folders[0].path, 'b/c');
  assert.equal(countFiles(tree), 7);
});
