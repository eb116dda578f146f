// The timeline's data, page by page: sessions of moments, newest first, as the
// `history` request answers them. Pure functions (no DOM) so they are tested
// under Node. A state is {sessions, next, loaded}: `next` is the instant to ask
// for the next (older) page, null once the oldest moment is in.

import { localDay } from './format.js';

// Instants arrive as "YYYY-MM-DDTHH:MM:SS[.ffffff]Z" with the fraction's
// trailing zeros dropped, so plain string order is wrong ("…00.5Z" < "…00Z").
export function compareInstants(a, b) {
  const [wholeA, fractionA = ''] = String(a).replace(/Z$/, '').split('.');
  const [wholeB, fractionB = ''] = String(b).replace(/Z$/, '').split('.');
  if (wholeA !== wholeB) return wholeA < wholeB ? -1 : 1;
  const fa = fractionA.padEnd(9, '0');
  const fb = fractionB.padEnd(9, '0');
  return fa === fb ? 0 : fa < fb ? -1 : 1;
}

export function emptyTimeline() {
  return { sessions: [], next: null, loaded: false };
}

function copySession(session) {
  return { start: session.start, end: session.end, moments: [...session.moments] };
}

// Moments less than this apart belong to one session (as the daemon groups them).
export const sessionGapSeconds = 2700;

function continues(newer, older) {
  // A session cut by a page boundary comes back as two pieces, the older one
  // ending less than a session gap before the newer one starts.
  if (newer.start === older.start) return true;
  const gap = Date.parse(newer.start) - Date.parse(older.end);
  return Number.isFinite(gap) && gap <= sessionGapSeconds * 1000;
}

// Appends an older page below what is loaded. A session cut by the page
// boundary comes back as two pieces; they are joined, and a moment seen twice
// is kept once.
export function appendPage(state, page) {
  const sessions = state.sessions.map(copySession);
  for (const incoming of page.sessions || []) {
    const last = sessions[sessions.length - 1];
    if (last && continues(last, incoming)) {
      const seen = new Set(last.moments.map((m) => m.at));
      for (const moment of incoming.moments) if (!seen.has(moment.at)) last.moments.push(moment);
      if (compareInstants(incoming.start, last.start) < 0) last.start = incoming.start;
    } else {
      sessions.push(copySession(incoming));
    }
  }
  return { sessions, next: page.next ?? null, loaded: true };
}

// Replaces the newest part by a freshly fetched first page and keeps the older
// moments loaded before, so a live update neither drops what was scrolled to
// nor loads the whole history again.
export function refreshNewest(state, page) {
  const fresh = appendPage(emptyTimeline(), page);
  if (!state.loaded) return fresh;
  const all = flatMoments(fresh);
  if (all.length === 0) return fresh.next === null && state.sessions.length === 0 ? fresh : { ...state };
  const oldestFresh = all[all.length - 1].at;
  const older = [];
  for (const session of state.sessions) {
    const kept = session.moments.filter((m) => compareInstants(m.at, oldestFresh) < 0);
    if (kept.length) older.push({ start: session.start, end: session.end, moments: kept });
  }
  // When the fresh page reaches further back than what was loaded, its cursor is the one to follow.
  const stateOldest = flatMoments(state).at(-1);
  const reachesFurther = !stateOldest || compareInstants(oldestFresh, stateOldest.at) <= 0;
  const merged = appendPage(fresh, { sessions: older, next: reachesFurther ? fresh.next : state.next });
  return merged;
}

export function flatMoments(state) {
  const out = [];
  state.sessions.forEach((session, sessionIndex) => {
    for (const moment of session.moments) out.push({ ...moment, sessionIndex });
  });
  return out;
}

export function isNamed(moment) {
  return Boolean(moment.mark && moment.mark.name);
}

// Only the named moments (sessions left empty disappear).
export function namedOnly(state) {
  const sessions = state.sessions
    .map((session) => ({ ...session, moments: session.moments.filter(isNamed) }))
    .filter((session) => session.moments.length);
  return { ...state, sessions };
}

// The marks a moment carries, as the timeline shows them: its name, a rewind
// ("went back to"), the state before a rewind. Named moments are kept by retention.
export function momentMarks(moment) {
  const mark = moment.mark;
  if (!mark) return { named: false, rewind: false, beforeRewind: false, kept: false };
  const named = Boolean(mark.name);
  return {
    named,
    name: mark.name || null,
    rewind: mark.kind === 'rewind' || Boolean(mark.targetAt),
    targetAt: mark.targetAt || null,
    beforeRewind: mark.kind === 'beforeRewind',
    kept: named,
  };
}

export function changeKey(kind) {
  return `rewind.change.${kind}`;
}

// Whether the loaded pages reach back to the local day `date` ("YYYY-MM-DD"),
// so that a jump to it needs no further page.
export function reachesDay(state, date) {
  if (state.loaded && state.next === null) return true;
  const oldest = flatMoments(state).at(-1);
  return Boolean(oldest) && localDay(oldest.at) <= date;
}

// The newest loaded moment on day `date`, or else the nearest older one
// (a day without moments jumps to what came before it).
export function momentForDay(state, date) {
  const moments = flatMoments(state);
  return moments.find((m) => localDay(m.at) === date) || moments.find((m) => localDay(m.at) < date) || null;
}

// The calendar strip's days grouped by month, newest first, each day with a
// relative weight (0..1) for how busy it was.
export function calendarMonths(days) {
  const most = days.reduce((max, day) => Math.max(max, day.changes || 0), 0) || 1;
  const months = [];
  for (const day of days) {
    const month = day.date.slice(0, 7);
    let group = months[months.length - 1];
    if (!group || group.month !== month) {
      group = { month, days: [] };
      months.push(group);
    }
    group.days.push({ ...day, weight: (day.changes || 0) / most });
  }
  return months;
}

// j/k (moments) and n/p (changes in the focused moment): the next index, kept in range.
export function step(index, delta, length) {
  if (length <= 0) return -1;
  if (index < 0) return delta > 0 ? 0 : length - 1;
  return Math.min(length - 1, Math.max(0, index + delta));
}
