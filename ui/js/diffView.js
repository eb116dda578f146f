// How a text comparison is laid out: the `diff` request's lines (each
// {kind: context|added|removed, text, oldNumber, newNumber}) as unified rows or
// side-by-side pairs, with long unchanged runs folded. Pure: tested under Node.

// A text ending in a newline comes back with an empty last line after it; when
// both sides end so, that line is not one anybody wrote, and is not shown.
export function withoutFinalNewline(lines) {
  const last = lines[lines.length - 1];
  return last && last.kind === 'context' && last.text === '' ? lines.slice(0, -1) : lines;
}

// Side by side: unchanged lines on both sides; a block of removed lines next to
// the added lines that replaced it, row by row.
export function sideBySide(lines) {
  const rows = [];
  let i = 0;
  while (i < lines.length) {
    const line = lines[i];
    if (line.kind === 'context') {
      rows.push({ kind: 'context', left: line, right: line });
      i += 1;
      continue;
    }
    const removed = [];
    const added = [];
    while (i < lines.length && lines[i].kind !== 'context') {
      (lines[i].kind === 'removed' ? removed : added).push(lines[i]);
      i += 1;
    }
    for (let k = 0; k < Math.max(removed.length, added.length); k += 1)
      rows.push({ kind: 'changed', left: removed[k] || null, right: added[k] || null });
  }
  return rows;
}

export function unified(lines) {
  return lines.map((line) => ({ kind: line.kind === 'context' ? 'context' : 'changed', line }));
}

// Folds every run of unchanged rows longer than 2 × `context` + `minimum`,
// keeping `context` rows next to each change (and at the ends of the file only
// next to a change). `unfolded` holds the start indexes of runs the reader
// opened. Returns rows and folds: {fold: true, start, count} in place of the
// hidden rows.
export function fold(rows, { context = 3, minimum = 4, unfolded = new Set() } = {}) {
  const out = [];
  let i = 0;
  while (i < rows.length) {
    if (rows[i].kind !== 'context') {
      out.push(rows[i]);
      i += 1;
      continue;
    }
    let end = i;
    while (end < rows.length && rows[end].kind === 'context') end += 1;
    const keepBefore = i === 0 ? 0 : context;
    const keepAfter = end === rows.length ? 0 : context;
    const hidden = end - i - keepBefore - keepAfter;
    if (hidden >= minimum && !unfolded.has(i + keepBefore)) {
      out.push(...rows.slice(i, i + keepBefore));
      out.push({ fold: true, start: i + keepBefore, count: hidden });
      out.push(...rows.slice(end - keepAfter, end));
    } else {
      out.push(...rows.slice(i, end));
    }
    i = end;
  }
  return out;
}

export function counts(lines) {
  let added = 0;
  let removed = 0;
  for (const line of lines) {
    if (line.kind === 'added') added += 1;
    else if (line.kind === 'removed') removed += 1;
  }
  return { added, removed, identical: added === 0 && removed === 0 };
}

// Which comparison a file gets, by its name: images and PDFs have their own;
// everything else is tried as text first (HTML and SVG sources included when
// they are compared as text), and falls back to bytes when it is not text.
const imageExtensions = new Set(['png', 'jpg', 'jpeg', 'gif', 'webp', 'bmp', 'svg']);

export function extensionOf(path) {
  const name = String(path || '').split('/').pop();
  const dot = name.lastIndexOf('.');
  return dot > 0 ? name.slice(dot + 1).toLowerCase() : '';
}

export function compareKind(path) {
  const extension = extensionOf(path);
  if (imageExtensions.has(extension)) return 'image';
  if (extension === 'pdf') return 'pdf';
  return 'text';
}
