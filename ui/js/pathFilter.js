// The file picker's matching: every word typed must be found, case-insensitive,
// inside the path; a word found at the start of the file's own name ranks
// above one found inside a folder's name. Pure, so it is tested under Node.
import { naturalCompare } from './format.js';

// Entries carry at least relativePath and isDeleted; anything else rides along.
// Lower-case forms are worked out once, not on every keystroke.
export function preparePaths(entries) {
  return entries.map((entry) => {
    const path = String(entry.relativePath);
    const lower = path.toLowerCase();
    const nameStart = lower.lastIndexOf('/') + 1;
    // A few letters change length in lower case ("İ"): their matches are not marked.
    return { entry, path, lower, nameStart, markable: lower.length === path.length };
  });
}

// How well one word matches at its best place in the path, with where: the
// file's name beats a folder's, a segment's start beats its middle.
function placeOf(prepared, word) {
  const { lower, nameStart } = prepared;
  let best = null;
  for (let at = lower.indexOf(word); at !== -1; at = lower.indexOf(word, at + 1)) {
    const atSegmentStart = at === 0 || lower[at - 1] === '/' || /[\s._-]/.test(lower[at - 1]);
    const wholeWord = atSegmentStart && !/[\p{L}\p{N}]/u.test(lower[at + word.length] || '');
    const inName = at >= nameStart;
    const score = (inName ? 4 : 1) * (atSegmentStart ? 3 : 1) + (inName && at === nameStart ? 4 : 0) + (wholeWord ? 2 : 0);
    if (!best || score > best.score) best = { score, at };
  }
  return best;
}

export function queryWords(query) {
  return String(query ?? '').toLowerCase().split(/\s+/).filter(Boolean);
}

// → up to `limit` results [{entry, ranges: [[start, end]...]}], best first. An
// empty query lists files in name order, live files before deleted ones.
export function filterPaths(prepared, query, limit = 200) {
  const wanted = queryWords(query);
  const scored = [];
  for (const item of prepared) {
    let score = 0;
    const ranges = [];
    let found = true;
    for (const word of wanted) {
      const place = placeOf(item, word);
      if (!place) {
        found = false;
        break;
      }
      score += place.score;
      ranges.push([place.at, place.at + word.length]);
    }
    if (!found) continue;
    if (wanted.length && item.lower.slice(item.nameStart) === wanted.join(' ')) score += 10; // the name, exactly
    scored.push({ item, score, ranges });
  }
  scored.sort((a, b) => b.score - a.score
    || Number(a.item.entry.isDeleted === true) - Number(b.item.entry.isDeleted === true)
    || (wanted.length ? a.item.path.length - b.item.path.length : 0)
    || naturalCompare(a.item.path, b.item.path));
  return scored.slice(0, limit).map(({ item, ranges }) => ({
    entry: item.entry, ranges: item.markable ? mergeRanges(ranges) : [],
  }));
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
