// The files tab: the folder as it was at a moment, as a tree (folders fold
// open and shut), with the files deleted since marked; a file opens its
// version timeline.
import { call } from '../api.js';
import { el, timeCell } from '../dom.js';
import { formatBytes } from '../format.js';
import { buildTree, countFiles } from '../fileTree.js';
import { count, t } from '../strings.js';
import { navigate } from '../router.js';
import { folderHeader, folderInfo, momentPicker, pickableMoments } from './folderTabs.js';

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
  const moments = await pickableMoments(folderID, [params.at], 1);
  main.replaceChildren(folderHeader(folder, 'files', t('window.files.title %@', folder.name)));
  if (!moments.length) {
    main.append(el('p', { class: 'empty' }, t('window.timeline.empty')));
    return undefined;
  }
  // No moment chosen: the newest one.
  const at = params.at || moments[0].at;
  const picker = momentPicker('files-at', t('window.files.moment'), moments, at);
  const form = el('form', { class: 'moment-pickers' }, picker.field, el('button', { type: 'submit' }, t('window.files.show')));
  form.addEventListener('submit', (event) => {
    event.preventDefault();
    navigate(`#/folder/${encodeURIComponent(folderID)}/files?${new URLSearchParams({ at: picker.select.value })}`);
  });
  const answer = await call('files', { folder: folderID, at });
  const files = answer.files || [];
  const deleted = files.filter((file) => file.isDeleted).length;
  main.append(form,
    el('p', { class: 'files-at' }, t('window.files.at'), ' ', timeCell(answer.at || at)),
    el('p', { class: 'muted' }, count('window.files.summary %lld', files.length),
      deleted ? ` ${count('window.files.deletedSummary %lld', deleted)}` : ''),
    files.length ? el('div', { class: 'file-tree' }, branch(buildTree(files), true)) : el('p', { class: 'empty' }, t('window.files.empty')));
  return undefined;
}
