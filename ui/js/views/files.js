// The files tab: the folder as it was at a moment, as a tree (folders fold
// open and shut), with the files deleted since marked; a file opens its
// version timeline.
import { call } from '../api.js';
import { el, timeCell } from '../dom.js';
import { formatBytes } from '../format.js';
import { buildTree, countFiles } from '../fileTree.js';
import { count, t } from '../strings.js';
import { folderHeader, folderInfo } from './folderTabs.js';

function fileRow(file) {
  return el('li', { class: `file${file.isDeleted ? ' deleted-now' : ''}` },
    el('a', { href: `#/file/${encodeURIComponent(file.fileID)}` }, file.name), ' ',
    el('span', { class: 'size' }, formatBytes(file.logicalBytes)), ' ',
    file.isDeleted ? el('span', { class: 'mark mark-deleted' }, t('window.files.deletedNow')) : '');
}

function folderRow(folder, open) {
  return el('li', { class: 'folder' }, el('details', { open },
    el('summary', {}, el('span', { class: 'folder-name' }, folder.name), ' ',
      el('span', { class: 'muted' }, count('window.files.count %lld', countFiles(folder)))),
    branch(folder, false)));
}

function branch(node, open) {
  return el('ul', { class: 'tree' }, node.folders.map((folder) => folderRow(folder, open)), node.files.map(fileRow));
}

export async function render(main, params) {
  const folderID = params.id;
  const folder = await folderInfo(folderID);
  let at = params.at;
  if (!at) {
    // No moment chosen: the newest one.
    const page = await call('history', { folder: folderID, limit: 1 });
    const first = page.sessions && page.sessions[0] && page.sessions[0].moments[0];
    at = first ? first.at : new Date().toISOString();
  }
  const answer = await call('files', { folder: folderID, at });
  const files = answer.files || [];
  const tree = buildTree(files);
  const deleted = files.filter((file) => file.isDeleted).length;
  main.replaceChildren(
    folderHeader(folder, 'files', t('window.files.title %@', folder.name)),
    el('p', { class: 'files-at' }, t('window.files.at'), ' ', timeCell(answer.at || at), ' ',
      el('a', { href: `#/folder/${encodeURIComponent(folderID)}` }, t('window.files.chooseMoment'))),
    el('p', { class: 'muted' }, count('window.files.summary %lld', files.length),
      deleted ? ` ${count('window.files.deletedSummary %lld', deleted)}` : ''),
    files.length ? el('div', { class: 'file-tree' }, branch(tree, true)) : el('p', { class: 'empty' }, t('window.files.empty')));
  return undefined;
}
