// The file picker's matching: every word typed must be found, case-insensitive,
// inside the path; a word found at the start of the file's own name ranks
// above one found inside a folder's name. Pure, so it is tested under Node.
// A folder may have a hundred thousand paths: the work per keystroke is one
// pass over them and a best-few selection, never a sort of them all.

// Entries carry at least relativePath and isDeleted; anything else rides along.
// Lower-case forms are worked out once, order keys when first needed.
export function preparePaths(entries) {
  const count = entries.length;
  const prepared = { entries, lower: new Array(count), nameStart: new Int32Array(count), order: new Array(count) };
  for (let i = 0; i < count; i += 1) {
    const path = String(entries[i].relativePath);
    const lower = path.toLowerCase();
    prepared.lower[i] = lower;
    prepared.nameStart[i] = lower.lastIndexOf('/') + 1;
  }
  return prepared;
}

// Digit runs padded so plain string order is natural order ("file 2" before "file 10").
function naturalKey(lower) {
  return lower.replace(/\d+/g, (digits) => digits.replace(/^0+(?=\d)/, '').padStart(16, '0'));
}

const wordCharacter = /[\p{L}\p{N}]/u;
const separators = new Set(['/', ' ', '\t', '.', '_', '-']);

// How well one word matches at its best place in the path, with where: the
// file's name beats a folder's, a segment's start beats its middle, a whole
// word beats the start of a longer one.
function placeOf(lower, nameStart, word) {
  let best = -1;
  let bestAt = -1;
  for (let at = lower.indexOf(word); at !== -1; at = lower.indexOf(word, at + 1)) {
    const atSegmentStart = at === 0 || separators.has(lower[at - 1]);
    const after = lower[at + word.length];
    const wholeWord = atSegmentStart && (after === undefined || !wordCharacter.test(after));
    const inName = at >= nameStart;
    const score = (inName ? 4 : 1) * (atSegmentStart ? 3 : 1) + (inName && at === nameStart ? 4 : 0) + (wholeWord ? 2 : 0);
    if (score > best) {
      best = score;
      bestAt = at;
    }
  }
  return best < 0 ? null : { score: best, at: bestAt };
}

export function queryWords(query) {
  return String(query ?? '').toLowerCase().split(/\s+/).filter(Boolean);
}

// → up to `limit` results [{entry, ranges: [[start, end]...]}], best first. An
// empty query lists files in name order, live files before deleted ones.
export function filterPaths(prepared, query, limit = 200) {
  const wanted = queryWords(query);
  const exact = wanted.join(' ');
  const { entries, lower, nameStart, order } = prepared;
  const key = (index) => (order[index] ??= naturalKey(lower[index]));
  // Better first: higher score, live before deleted, shorter path (when searching), natural order.
  const before = (a, b) => b.score - a.score
    || Number(entries[a.index].isDeleted === true) - Number(entries[b.index].isDeleted === true)
    || (wanted.length ? lower[a.index].length - lower[b.index].length : 0)
    || (key(a.index) < key(b.index) ? -1 : key(a.index) > key(b.index) ? 1 : a.index - b.index);
  const best = []; // sorted, at most `limit`
  for (let index = 0; index < entries.length; index += 1) {
    let score = 0;
    let ranges = null;
    for (const word of wanted) {
      const place = placeOf(lower[index], nameStart[index], word);
      if (!place) {
        score = -1;
        break;
      }
      score += place.score;
      (ranges ||= []).push([place.at, place.at + word.length]);
    }
    if (score < 0) continue;
    if (wanted.length && lower[index].slice(nameStart[index]) === exact) score += 10; // the name, exactly
    const candidate = { index, score, ranges };
    if (best.length === limit && before(candidate, best[limit - 1]) >= 0) continue;
    let at = best.length;
    while (at > 0 && before(candidate, best[at - 1]) < 0) at -= 1;
    best.splice(at, 0, candidate);
    if (best.length > limit) best.pop();
  }
  return best.map(({ index, ranges }) => {
    const entry = entries[index];
    // A few letters change length in lower case ("İ"): their matches are not marked.
    const markable = lower[index].length === String(entry.relativePath).length;
    return { entry, ranges: ranges && markable ? mergeRanges(ranges) : [] };
  });
}

// Overlapping or touching ranges → one, in order.
export function mergeRanges(ranges) {
  const sorted = [...ranges].sort((a, b) => a[0] - b[0]);
  const merged = [];
  for (const [start, end] of sorted) {
    const last = merged[merged.length - 1];
    if (last && start <= last[1]) last[1] = Math.max(last[1], end);
    else merged.push([start, end]);
  }
  return merged;
}

// A text cut at the ranges → [{text, match}], for <mark> around the matches.
export function highlightPieces(text, ranges) {
  const pieces = [];
  let at = 0;
  for (const [start, end] of ranges) {
    if (start > at) pieces.push({ text: text.slice(at, start), match: false });
    pieces.push({ text: text.slice(start, end), match: true });
    at = end;
  }
  if (at < text.length) pieces.push({ text: text.slice(at), match: false });
  return pieces;
}
