// The quick file picker: one keystroke from anywhere ("/" or Ctrl+K), a filter
// over every path every watched folder ever had, deleted files included, and
// Enter opens the file's versions. Paths are asked for once per folder and
// asked for again only after that folder changed.
import { call, onChange } from './api.js';
import { el } from './dom.js';
import { folderName } from './folderText.js';
import { filterPaths, highlightPieces, preparePaths } from './pathFilter.js';
import { navigate } from './router.js';
import { openSheet } from './sheet.js';
import { count, t } from './strings.js';

const shownAtMost = 100;
let folders = null; // the watched folders, or null when to be asked again
const pathsOf = new Map(); // folderID → its paths
let prepared = null; // every folder's paths, ready to filter; null when one folder's changed
let listening = false;
let openPicker = null; // focuses the open picker's field

function listen() {
  if (listening) return;
  listening = true;
  onChange((change) => {
    if (change.what === 'folders') {
      folders = null;
      pathsOf.clear();
      prepared = null;
    } else if (change.what === 'captured' || change.what === 'history') {
      if (change.folderID) pathsOf.delete(change.folderID);
      else pathsOf.clear();
      prepared = null;
    }
  });
}

async function everyPath() {
  if (!folders) folders = (await call('folders')).folders;
  const many = folders.length > 1;
  await Promise.all(folders.filter((folder) => !pathsOf.has(folder.id)).map(async (folder) => {
    const answer = await call('paths', { folder: folder.id });
    const name = folderName(folder);
    for (const path of answer.paths || []) {
      path.folderID = folder.id;
      path.folderName = name;
    }
    pathsOf.set(folder.id, answer.paths || []);
  }));
  prepared ||= preparePaths(folders.flatMap((folder) => pathsOf.get(folder.id) || []));
  return { prepared, many };
}

export async function openFilePicker() {
  if (openPicker) {
    openPicker();
    return;
  }
  listen();
  const input = el('input', {
    id: 'picker-field', type: 'text', autocomplete: 'off', spellcheck: 'false', role: 'combobox',
    'aria-autocomplete': 'list', 'aria-expanded': 'true', 'aria-controls': 'picker-list', 'aria-describedby': 'picker-status',
  });
  const status = el('p', { id: 'picker-status', class: 'muted', role: 'status', 'aria-live': 'polite' }, t('window.picker.loading'));
  const list = el('ul', { id: 'picker-list', role: 'listbox', class: 'picker-list', 'aria-label': t('window.picker.results') });
  const body = el('div', { class: 'picker' },
    el('label', { for: input.id }, t('window.picker.field')), input, status, list);
  let shown = [];
  let active = 0;
  let all = { prepared: preparePaths([]), many: false };
  let closed = false;

  const close = openSheet({ title: t('window.picker.title'), body, actions: [], cancelLabel: t('window.picker.close') });
  const dialog = body.closest('dialog');
  dialog.classList.add('picker-sheet');
  openPicker = () => input.focus();
  // The sheet's own ways to close (Escape, Cancel) end the picker too.
  dialog.addEventListener('close', () => {
    closed = true;
    openPicker = null;
  });
  input.focus();

  const open = (index) => {
    const chosen = shown[index];
    if (!chosen) return;
    close();
    navigate(`#/file/${encodeURIComponent(chosen.entry.fileID)}`);
  };
  const mark = () => {
    [...list.children].forEach((option, index) => option.setAttribute('aria-selected', index === active ? 'true' : 'false'));
    if (shown.length) {
      input.setAttribute('aria-activedescendant', `picker-option-${active}`);
      list.children[active].scrollIntoView({ block: 'nearest' });
    } else {
      input.removeAttribute('aria-activedescendant');
    }
  };
  const draw = () => {
    shown = filterPaths(all.prepared, input.value, shownAtMost);
    active = 0;
    list.replaceChildren(...shown.map(({ entry, ranges }, index) => el('li', {
      id: `picker-option-${index}`, role: 'option', class: entry.isDeleted ? 'deleted' : '',
      onmousedown: (event) => event.preventDefault(),
      onclick: () => open(index),
    },
    el('span', { class: 'picker-path' },
      highlightPieces(entry.relativePath, ranges).map((piece) => (piece.match ? el('mark', {}, piece.text) : piece.text))),
    all.many ? el('span', { class: 'muted' }, ` — ${entry.folderName}`) : null, ' ',
    entry.isDeleted ? [el('span', { class: 'mark-deleted' }, t('window.picker.deleted')), ' '] : null,
    el('span', { class: 'muted picker-count' }, count('window.picker.versions %lld', entry.versionCount ?? 0)))));
    mark();
    if (all.prepared.entries.length === 0) status.textContent = t('window.picker.empty');
    else if (shown.length === 0) status.textContent = t('window.picker.noMatch');
    else if (shown.length === shownAtMost) status.textContent = t('window.picker.more %lld', shownAtMost);
    else status.textContent = count('window.picker.count %lld', shown.length);
  };

  input.addEventListener('input', draw);
  input.addEventListener('keydown', (event) => {
    const moves = { ArrowDown: 1, ArrowUp: -1, PageDown: 10, PageUp: -10 };
    if (event.key in moves && shown.length) {
      event.preventDefault();
      active = Math.min(shown.length - 1, Math.max(0, active + moves[event.key]));
      mark();
    } else if (event.key === 'Enter') {
      event.preventDefault();
      open(active);
    }
  });

  try {
    all = await everyPath();
  } catch (error) {
    if (!closed) status.textContent = error.message;
    return;
  }
  if (!closed) draw();
}
