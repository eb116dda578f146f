import { test } from 'node:test';
import assert from 'node:assert/strict';
import { matchExpression, screen, searchedWords, snippetPieces } from '../js/searchText.js';

test('the match expression quotes every word and makes the last a prefix', () => {
  const table = [
    ['hello', '"hello"*'],
    ['  two   words ', '"two" "words"*'],
    ['"quoted phrase"', '"quoted" "phrase"*'],
    ['AND OR NOT near', '"AND" "OR" "NOT" "near"*'],
    ['c++ -- x*', '"c++" "x*"*'],
    ['-- !! ""', null],
    ['', null],
    ['élan 東京 ٣', '"élan" "東京" "٣"*'],
    ['ab"cd body:x (a)', '"abcd" "body:x" "(a)"*'],
    ['tab\there\u2003em\u3000ideo', '"tab" "here" "em" "ideo"*'],
    ['no\u00a0break', '"no\u00a0break"*'],
    ['line\u2028sep\u0085nel', '"line" "sep" "nel"*'],
  ];
  for (const [text, expression] of table) assert.equal(matchExpression(text), expression, JSON.stringify(text));
  assert.deepEqual(searchedWords('say "hi" ?? there'), { words: ['say', 'hi', 'there'], prefix: 'there' });
});

test('the field rules: empty, too short, searchable', () => {
  const table = [['', 'history.search.contents.empty'], ['   \t', 'history.search.contents.empty'],
    ['a', 'history.search.contents.minLength'], [' é ', 'history.search.contents.minLength'],
    ['😀', 'history.search.contents.minLength'], ['ab', null], ['a b', null], ['東京', null], ['--', null]];
  for (const [text, key] of table) assert.equal(screen(text), key, JSON.stringify(text));
});

test('snippet markers become marked pieces, never markup', () => {
  const table = [
    ['plain text', [{ text: 'plain text', match: false }]],
    ['a \u0001hit\u0002 and \u0001more\u0002.', [{ text: 'a ', match: false }, { text: 'hit', match: true },
      { text: ' and ', match: false }, { text: 'more', match: true }, { text: '.', match: false }]],
    ['\u0001<b>x</b>\u0002', [{ text: '<b>x</b>', match: true }]],
    ['open \u0001to the end', [{ text: 'open ', match: false }, { text: 'to the end', match: true }]],
    ['stray\u0002 end', [{ text: 'stray end', match: false }]],
    ['\u0001\u0002empty', [{ text: 'empty', match: false }]],
    ['\u0001a\u0002\u0001b\u0002', [{ text: 'ab', match: true }]],
    ['', []],
  ];
  for (const [snippet, pieces] of table) assert.deepEqual(snippetPieces(snippet), pieces, JSON.stringify(snippet));
});
