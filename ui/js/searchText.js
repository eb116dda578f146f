// The text side of content search, as the daemon treats it: which words a
// search looks for, whether the field's text can be searched yet, and the
// snippets' match markers. Pure functions, tested under Node.

export const minimumLength = 2; // characters, as the daemon counts them
export const startMarker = '\u0001';
export const endMarker = '\u0002';

// White space as the daemon's C library sees it in UTF-8: no-break spaces are
// not breaks, NEL and the line/paragraph separators are.
const space = /[\t\n\v\f\r \u0085\u1680\u2000-\u2006\u2008-\u200a\u2028\u2029\u205f\u3000]+/u;
const letterOrDigit = /[\p{L}\p{N}]/u;

export function words(text) {
  return String(text ?? '').split(space).filter((piece) => piece.length > 0);
}

// The words the search looks for: quotes dropped, pieces without a letter or
// digit left out; the last word also matches longer words that start with it.
// Nothing (null) when no word is left.
export function searchedWords(text) {
  const kept = words(text).map((piece) => piece.replaceAll('"', '')).filter((piece) => letterOrDigit.test(piece));
  if (kept.length === 0) return null;
  return { words: kept, prefix: kept[kept.length - 1] };
}

// The full-text expression the daemon builds from the same text: every word
// quoted, so punctuation and operators are taken literally; the last a prefix.
export function matchExpression(text) {
  const found = searchedWords(text);
  return found ? `${found.words.map((word) => `"${word}"`).join(' ')}*` : null;
}

// Why the text cannot be searched yet (a string table key), or null when it can.
export function screen(text) {
  const joined = words(text).join(' ');
  if (joined.length === 0) return 'history.search.contents.empty';
  if ([...joined].length < minimumLength) return 'history.search.contents.minLength';
  return null;
}

// A snippet with its markers → [{text, match}] pieces, in order. A marker left
// open runs to the end; stray end markers and empty pieces are dropped.
export function snippetPieces(snippet) {
  const pieces = [];
  let match = false;
  let current = '';
  const flush = () => {
    if (current) pieces.push({ text: current, match });
    current = '';
  };
  for (const character of String(snippet ?? '')) {
    if (character === startMarker || character === endMarker) {
      flush();
      match = character === startMarker;
    } else {
      current += character;
    }
  }
  flush();
  // Two neighbours of the same kind (from an empty marked run) read as one.
  return pieces.reduce((merged, piece) => {
    const last = merged[merged.length - 1];
    if (last && last.match === piece.match) last.text += piece.text;
    else merged.push({ ...piece });
    return merged;
  }, []);
}
