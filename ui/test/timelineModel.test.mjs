import { test } from 'node:test';
import assert from 'node:assert/strict';
import { appendPage, calendarMonths, compareInstants, emptyTimeline, flatMoments, momentForDay, momentMarks,
  namedOnly, reachesDay, refreshNewest, step } from '../js/timelineModel.js';

const m = (at, extra = {}) => ({ at, headline: at, changes: [], ...extra });
const session = (start, end, ...moments) => ({ start, end, moments });
const ats = (state) => flatMoments(state).map((x) => x.at);

test('instants order by time, not by text, whatever their fraction', () => {
  const table = [['2026-01-01T10:00:00Z', '2026-01-01T10:00:00.5Z', -1], ['2026-01-01T10:00:00.25Z', '2026-01-01T10:00:00.250Z', 0],
    ['2026-01-01T10:00:01Z', '2026-01-01T10:00:00.999999Z', 1], ['2025-12-31T23:59:59.9Z', '2026-01-01T00:00:00Z', -1]];
  for (const [a, b, expected] of table) assert.equal(Math.sign(compareInstants(a, b)), expected, `${a} ${b}`);
});

test('pages append older moments, join a session cut in two and keep each moment once', () => {
  const at = (hm) => `2026-03-02T${hm}:00Z`;
  let state = appendPage(emptyTimeline(), { sessions: [session(at('11:00'), at('12:00'), m(at('12:00')), m(at('11:00')))], next: at('11:00') });
  assert.equal(state.next, at('11:00'));
  // The next page: the same session goes on (10:20 is within the gap of 11:00), then one hours older.
  state = appendPage(state, { sessions: [session(at('10:00'), at('11:00'), m(at('11:00')), m(at('10:20')), m(at('10:00'))),
    session(at('07:00'), at('08:00'), m(at('08:00')), m(at('07:00')))], next: at('07:00') });
  assert.deepEqual(ats(state), [at('12:00'), at('11:00'), at('10:20'), at('10:00'), at('08:00'), at('07:00')]);
  assert.deepEqual(state.sessions.map((s) => [s.start, s.end]), [[at('10:00'), at('12:00')], [at('07:00'), at('08:00')]]);
  // A piece starting just over the gap after the loaded session's end is a session of its own.
  state = appendPage(state, { sessions: [session(at('06:00'), at('06:14'), m(at('06:14')), m(at('06:00')))], next: null });
  assert.equal(state.sessions.length, 3);
  assert.equal(state.next, null);
  assert.ok(reachesDay(state, '1999-01-01'), 'the whole history is in');
});

test('a live refresh replaces the newest moments and keeps the older ones scrolled to', () => {
  const iso = (h) => `2026-03-0${h < 24 ? 2 : 1}T${String(h % 24).padStart(2, '0')}:00:00Z`;
  let state = appendPage(emptyTimeline(), { sessions: [session(iso(8), iso(10), m(iso(10)), m(iso(9)))], next: iso(9) });
  state = appendPage(state, { sessions: [session(iso(30), iso(31), m(iso(31)), m(iso(30)))], next: iso(30) });
  // A new moment arrived and the one at 10:00 was named: the first page comes back as it is now.
  const fresh = { sessions: [session(iso(8), iso(11), m(iso(11)), m(iso(10), { mark: { kind: 'named', name: 'draft' } }))], next: iso(10) };
  const next = refreshNewest(state, fresh);
  assert.deepEqual(ats(next), [iso(11), iso(10), iso(9), iso(31), iso(30)]);
  assert.equal(next.next, iso(30), 'the older cursor stays');
  assert.equal(flatMoments(next)[1].mark.name, 'draft');
  assert.equal(next.sessions.length, 2, 'the refreshed session joins its older part');
  // Before anything was loaded, the fresh page is the state.
  assert.deepEqual(ats(refreshNewest(emptyTimeline(), fresh)), [iso(11), iso(10)]);
});

test('marks, the named filter and the day to jump to', () => {
  const state = appendPage(emptyTimeline(), { sessions: [
    session('a', 'b', m('2026-03-05T12:00:00Z', { mark: { kind: 'rewind', targetAt: '2026-03-01T00:00:00Z' } }),
      m('2026-03-04T12:00:00Z', { mark: { kind: 'named', name: 'v1' } })),
    session('c', 'd', m('2026-03-02T12:00:00Z', { mark: { kind: 'beforeRewind' } }), m('2026-03-01T12:00:00Z'))], next: 'x' });
  const marks = flatMoments(state).map(momentMarks);
  assert.deepEqual(marks.map((x) => [x.rewind, x.named, x.beforeRewind, x.kept]),
    [[true, false, false, false], [false, true, false, true], [false, false, true, false], [false, false, false, false]]);
  assert.deepEqual(ats(namedOnly(state)), ['2026-03-04T12:00:00Z']);
  assert.equal(namedOnly(state).sessions.length, 1);
  assert.equal(momentForDay(state, '2026-03-04').at, '2026-03-04T12:00:00Z');
  assert.equal(momentForDay(state, '2026-03-03').at, '2026-03-02T12:00:00Z', 'a quiet day jumps to what came before');
  assert.equal(momentForDay(state, '2026-02-01'), null);
  assert.ok(reachesDay(state, '2026-03-03'));
  assert.ok(!reachesDay(state, '2026-02-28'), 'an older day needs more pages');
});

test('calendar months and key steps', () => {
  const months = calendarMonths([{ date: '2026-03-02', changes: 4 }, { date: '2026-03-01', changes: 1 }, { date: '2026-02-27', changes: 0 }]);
  assert.deepEqual(months.map((x) => [x.month, x.days.map((d) => d.weight)]), [['2026-03', [1, 0.25]], ['2026-02', [0]]]);
  const table = [[-1, 1, 5, 0], [-1, -1, 5, 4], [4, 1, 5, 4], [0, -1, 5, 0], [2, 1, 5, 3], [0, 1, 0, -1]];
  for (const [index, delta, length, expected] of table) assert.equal(step(index, delta, length), expected);
});
