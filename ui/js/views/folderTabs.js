// The top of a folder's screens: its name as the heading and the tabs between
// its timeline, its files and the comparison of two moments.
import { call } from '../api.js';
import { el } from '../dom.js';
import { baseName, formatAbsolute } from '../format.js';
import { t } from '../strings.js';
import { appendPage, compareInstants, emptyTimeline, flatMoments } from '../timelineModel.js';

// {id, path, name} of a watched folder; the id stands in when the list cannot be had.
export async function folderInfo(id) {
  try {
    const answer = await call('folders', {});
    const folder = (answer.folders || []).find((f) => String(f.id) === String(id));
    if (folder) return { ...folder, name: baseName(folder.path) };
  } catch {
    // the screens still work by id
  }
  return { id, path: '', name: String(id) };
}

export function folderHeader(folder, current, headingText) {
  const tab = (name, href, label) => el('a', { href, class: 'tab', 'aria-current': name === current ? 'page' : false }, label);
  const base = `#/folder/${encodeURIComponent(folder.id)}`;
  return el('header', { class: 'view-header' },
    el('h1', {}, headingText),
    folder.path ? el('p', { class: 'muted path' }, folder.path) : '',
    el('nav', { class: 'tabs', 'aria-label': t('window.timeline.tabs') },
      tab('timeline', base, t('window.timeline.tab')),
      tab('files', `${base}/files`, t('window.files.tab')),
      tab('compare', `${base}/compare`, t('window.compare.moments.tab'))));
}

// The moments to pick from: the newest pages of the timeline (the picker
// keeps any moment passed in the address even when it is older).
export async function pickableMoments(folderID, wanted, pages = 3) {
  let state = emptyTimeline();
  for (let page = 0; page < pages; page += 1) {
    const body = { folder: folderID };
    if (state.next) body.before = state.next;
    state = appendPage(state, await call('history', body));
    if (!state.next) break;
  }
  const moments = flatMoments(state).map((m) => ({ at: m.at, headline: m.headline }));
  for (const at of wanted) if (at && !moments.some((m) => m.at === at)) moments.push({ at, headline: '' });
  return moments.sort((a, b) => compareInstants(b.at, a.at));
}

export function momentPicker(id, label, moments, selected) {
  const select = el('select', { id, name: id }, moments.map((m) => el('option', { value: m.at, selected: m.at === selected },
    m.headline ? `${formatAbsolute(m.at)} — ${m.headline}` : formatAbsolute(m.at))));
  return { field: el('div', { class: 'field' }, el('label', { for: id }, label), select), select };
}

// The mark on what retention always keeps, its reason told to screen readers too.
export function keptMark(label, help) {
  return el('span', { class: 'mark-kept', title: help }, label, el('span', { class: 'visually-hidden' }, `: ${help}`));
}
