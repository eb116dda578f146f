// Two moments of a folder side by side: which files were added, changed,
// deleted and renamed between them (unchanged files are not listed), each
// leading to its own comparison.
import { call } from '../api.js';
import { el, timeCell } from '../dom.js';
import { formatAbsolute, formatBytes, formatSignedBytes } from '../format.js';
import { navigate } from '../router.js';
import { count, t } from '../strings.js';
import { compareInstants } from '../timelineModel.js';
import { folderHeader, folderInfo, momentPicker as picker, pickableMoments } from './folderTabs.js';

function compareLink(entry, fileID) {
  if (!entry.oldVersionID || !entry.newVersionID) return '';
  const query = new URLSearchParams({ old: entry.oldVersionID, new: entry.newVersionID, file: fileID });
  return el('a', { href: `#/compare?${query}` }, t('window.compare.moments.open'));
}

function section(kind, entries) {
  if (!entries.length) return '';
  const headingID = `moments-${kind}`;
  const rows = entries.map((entry) => {
    const path = kind === 'renamed' && entry.previousPath
      ? t('rewind.change.renamed %@ %@', entry.previousPath, entry.relativePath) : entry.relativePath;
    const delta = entry.oldBytes !== null && entry.newBytes !== null && entry.oldBytes !== undefined && entry.newBytes !== undefined
      ? formatSignedBytes(entry.newBytes - entry.oldBytes) : '';
    return el('tr', {},
      el('td', {}, el('a', { href: `#/file/${encodeURIComponent(entry.fileID)}` }, path)),
      el('td', { class: 'size' }, entry.oldBytes === null || entry.oldBytes === undefined ? '—' : formatBytes(entry.oldBytes)),
      el('td', { class: 'size' }, entry.newBytes === null || entry.newBytes === undefined ? '—' : formatBytes(entry.newBytes)),
      el('td', { class: 'size' }, delta),
      el('td', {}, kind === 'changed' || kind === 'renamed' ? compareLink(entry, entry.fileID) : ''));
  });
  return el('section', { class: `moment-diff ${kind}`, 'aria-labelledby': headingID },
    el('h2', { id: headingID }, count(`window.compare.moments.${kind} %lld`, entries.length)),
    el('table', {},
      el('thead', {}, el('tr', {},
        el('th', { scope: 'col' }, t('window.compare.moments.file')),
        el('th', { scope: 'col' }, t('window.compare.moments.before')),
        el('th', { scope: 'col' }, t('window.compare.moments.after')),
        el('th', { scope: 'col' }, t('window.compare.moments.delta')),
        el('th', { scope: 'col' }, el('span', { class: 'visually-hidden' }, t('window.compare.moments.open'))))),
      el('tbody', {}, rows)));
}

export async function render(main, params) {
  const folderID = params.id;
  const folder = await folderInfo(folderID);
  const moments = await pickableMoments(folderID, [params.from, params.to]);
  main.replaceChildren(folderHeader(folder, 'compare', t('window.compare.moments.title %@', folder.name)));
  if (moments.length < 2) {
    main.append(el('p', { class: 'empty' }, t('window.compare.moments.tooFew')));
    return undefined;
  }
  const to = params.to || moments[0].at;
  const from = params.from || moments[1].at;
  const older = picker('compare-from', t('window.compare.moments.from'), moments, from);
  const newer = picker('compare-to', t('window.compare.moments.to'), moments, to);
  const form = el('form', { class: 'moment-pickers' }, older.field, newer.field, el('button', { type: 'submit', class: 'primary' }, t('window.compare.moments.action')));
  form.addEventListener('submit', (event) => {
    event.preventDefault();
    const query = new URLSearchParams({ from: older.select.value, to: newer.select.value });
    navigate(`#/folder/${encodeURIComponent(folderID)}/compare?${query}`);
  });
  const results = el('div', { class: 'moment-results', 'aria-live': 'polite' }, el('p', { class: 'muted' }, t('window.compare.moments.working')));
  main.append(form, results);
  // Compared in time order whichever way round they were picked.
  const [first, second] = compareInstants(from, to) <= 0 ? [from, to] : [to, from];
  const answer = await call('comparemoments', { folder: folderID, from: first, to: second });
  const kinds = ['added', 'changed', 'deleted', 'renamed'];
  const total = kinds.reduce((sum, kind) => sum + (answer[kind] || []).length, 0);
  results.replaceChildren(
    el('p', {}, t('window.compare.moments.between'), ' ', timeCell(first), ' ', t('window.compare.moments.and'), ' ', timeCell(second)),
    total ? '' : el('p', { class: 'empty' }, t('window.compare.moments.same')),
    ...kinds.map((kind) => section(kind, answer[kind] || [])));
  return undefined;
}
