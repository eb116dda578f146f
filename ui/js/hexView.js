// The bytes around the first difference of two versions, as rows of hex and
// printable text with the differing bytes marked. Pure: tested under Node.

export function parseHex(text) {
  const clean = String(text || '').replace(/[^0-9a-fA-F]/g, '');
  const bytes = [];
  for (let i = 0; i + 1 < clean.length; i += 2) bytes.push(parseInt(clean.slice(i, i + 2), 16));
  return bytes;
}

export function offsetLabel(n) {
  return n.toString(16).padStart(8, '0');
}

function printable(byte) {
  return byte >= 0x20 && byte < 0x7f ? String.fromCharCode(byte) : '.';
}

// One side's cells for a row: {hex, char, differs}, or null past that side's end.
function cells(mine, theirs, from, width) {
  const row = [];
  for (let k = from; k < from + width; k += 1) {
    if (k >= mine.length) {
      row.push(null);
      continue;
    }
    const byte = mine[k];
    row.push({ hex: byte.toString(16).padStart(2, '0'), char: printable(byte), differs: k >= theirs.length || theirs[k] !== byte });
  }
  return row;
}

// `offset` is where both windows start in the files. Rows start at multiples
// of `width` within the window.
export function hexRows(oldHex, newHex, offset = 0, width = 16) {
  const older = parseHex(oldHex);
  const newer = parseHex(newHex);
  const length = Math.max(older.length, newer.length);
  const rows = [];
  for (let from = 0; from < length; from += width) {
    rows.push({ offset: offset + from, label: offsetLabel(offset + from), old: cells(older, newer, from, width), new: cells(newer, older, from, width) });
  }
  return rows;
}

// The difference of two images' RGBA pixels (same size): each pixel is the
// per-channel absolute difference, opaque, so equal areas are black; also how
// many pixels differ at all.
export function pixelDifference(a, b) {
  const out = new Uint8ClampedArray(a.length);
  let differing = 0;
  for (let i = 0; i < a.length; i += 4) {
    const r = Math.abs(a[i] - b[i]);
    const g = Math.abs(a[i + 1] - b[i + 1]);
    const bl = Math.abs(a[i + 2] - b[i + 2]);
    const alpha = Math.abs(a[i + 3] - b[i + 3]);
    out[i] = Math.max(r, alpha);
    out[i + 1] = Math.max(g, alpha);
    out[i + 2] = Math.max(bl, alpha);
    out[i + 3] = 255;
    if (r || g || bl || alpha) differing += 1;
  }
  return { pixels: out, differing };
}
