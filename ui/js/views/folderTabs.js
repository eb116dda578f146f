// The top of a folder's screens: its name as the heading and the tabs between
// its timeline, its files and the comparison of two moments.
import { call } from '../api.js';
import { el } from '../dom.js';
import { baseName } from '../format.js';
import { t } from '../strings.js';

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
