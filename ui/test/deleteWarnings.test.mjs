import { test } from 'node:test';
import assert from 'node:assert/strict';
import { setStrings } from '../js/strings.js';
import { warningLines } from '../js/sheets/delete.js';

test('the delete sheet has one warning line per flag of the preview, and the vanishing names', () => {
  setStrings({
    'history.delete.sheet.warn.undo': 'undo', 'history.delete.sheet.warn.starred': 'starred',
    'history.delete.sheet.warn.liveFile': 'live', 'history.delete.sheet.warn.lastCopy': 'last',
    'history.delete.sheet.warn.namedMoment %@': 'one: %@', 'history.delete.sheet.warn.namedMoments %lld %@': '%lld: %@',
  });
  const none = { includesUndoCopy: false, includesStarred: false, erasesWholeLiveFile: false, erasesLastCopyOfDeletedFile: false, vanishingMomentNames: [] };
  const table = [
    [{}, []],
    [{ includesStarred: true }, ['starred']],
    [{ includesUndoCopy: true, erasesLastCopyOfDeletedFile: true }, ['undo', 'last']],
    [{ erasesWholeLiveFile: true, vanishingMomentNames: ['v1'] }, ['live', 'one: v1']],
    [{ vanishingMomentNames: ['a', 'b'] }, ['2: \u201ca\u201d, \u201cb\u201d']],
  ];
  for (const [flags, lines] of table) assert.deepEqual(warningLines({ ...none, ...flags }), lines, JSON.stringify(flags));
});
