// Search through the history: the names files ever had, or the text of their
// versions. Results are grouped by file, each opening the file's versions; a
// content hit opens its own version, its snippet with the matched words marked.
import { call } from '../api.js';
import { el, timeCell } from '../dom.js';
import { formatAbsolute } from '../format.js';
import { folderName } from '../folderText.js';
import { screen, searchedWords, snippetPieces } from '../searchText.js';
import { count, t } from '../strings.js';

const scopes = ['names', 'contents'];

export function fileHash(fileID, versionID) {
  const base = `#/file/${encodeURIComponent(fileID)}`;
  return versionID === undefined ? base : `${base}?version=${encodeURIComponent(versionID)}`;
}

function compareHash(fileID, versionID) {
  return `#/compare?${new URLSearchParams({ old: versionID, new: 'live', file: fileID })}`;
}

// The snippet as text nodes and <mark>s: what comes from a file is never markup.
function snippetNode(snippet) {
  return el('p', { class: 'snippet' },
    snippetPieces(snippet).map((piece) => (piece.match ? el('mark', {}, piece.text) : piece.text)));
}

function newestOf(group) {
  if (group.hits && group.hits.length) return group.hits[0].capturedAt;
  return group.lastCapturedAt || '';
}

export async function render(main, params) {
  const { folders } = await call('folders');
  const state = {
    q: params.q || '',
    scope: scopes.includes(params.scope) ? params.scope : 'names',
    folder: folders.some((folder) => folder.id === params.folder) ? params.folder : '',
  };
  let asked = 0;
  let timer = null;

  const field = el('input', { id: 'search-text', type: 'search', name: 'q', value: state.q, autocomplete: 'off',
    spellcheck: 'false', 'aria-describedby': 'search-words' });
  const scopeRadios = scopes.map((scope) => el('input', {
    type: 'radio', name: 'scope', id: `search-scope-${scope}`, value: scope, checked: scope === state.scope,
  }));
  const folderSelect = el('select', { id: 'search-folder', name: 'folder' },
    el('option', { value: '' }, t('window.search.folder.all')),
    folders.map((folder) => el('option', { value: folder.id, selected: folder.id === state.folder }, folderName(folder))));
  const words = el('p', { id: 'search-words', class: 'muted help' });
  const status = el('p', { class: 'search-status', role: 'status', 'aria-live': 'polite' });
  const notes = el('div', { class: 'search-notes' });
  const results = el('ol', { class: 'results', 'aria-label': t('window.search.results') });

  const form = el('form', { role: 'search', class: 'search-form', 'aria-label': t('window.search.title') },
    el('div', { class: 'field' }, el('label', { for: field.id }, t('window.search.field')), field, words),
    el('fieldset', { class: 'scope' }, el('legend', {}, t('window.search.scope')),
      scopeRadios.map((radio) => el('span', { class: 'choice' }, radio, ' ',
        el('label', { for: radio.id }, t(`history.search.scope.${radio.value}`))))),
    folders.length > 1
      ? el('div', { class: 'field' }, el('label', { for: folderSelect.id }, t('window.search.folder')), folderSelect)
      : null);

  const remember = () => {
    const query = new URLSearchParams({ q: state.q, scope: state.scope });
    if (state.folder) query.set('folder', state.folder);
    // Replacing the address does not fire hashchange, so the view stays as it is.
    history.replaceState(null, '', `#/search?${query}`);
  };

  const showWords = () => {
    const found = state.scope === 'contents' ? searchedWords(state.q) : null;
    words.textContent = found
      ? t('window.search.words %@', found.words.map((word, i) => (i === found.words.length - 1 ? `“${word}…”` : `“${word}”`)).join(' '))
      : t(state.scope === 'contents' ? 'window.search.help.contents' : 'window.search.help.names');
  };

  const search = async () => {
    const ticket = ++asked;
    showWords();
    notes.replaceChildren();
    const refusal = screen(state.q);
    if (refusal) {
      results.replaceChildren();
      status.textContent = t(refusal);
      return;
    }
    const targets = state.folder ? folders.filter((folder) => folder.id === state.folder) : folders;
    status.textContent = t('window.search.searching');
    main.setAttribute('aria-busy', 'true');
    let answers;
    try {
      answers = await Promise.all(targets.map((folder) =>
        call('search', { folder: folder.id, text: state.q, scope: state.scope }).then((answer) => ({ folder, answer }))));
    } catch (error) {
      if (ticket === asked) {
        status.textContent = error.message;
        results.replaceChildren();
        main.removeAttribute('aria-busy');
      }
      return;
    }
    if (ticket !== asked) return;
    main.removeAttribute('aria-busy');
    const groups = answers.flatMap(({ folder, answer }) => (answer.groups || []).map((group) => ({ ...group, folder })));
    // Each folder's groups come newest first; across folders, too.
    groups.sort((a, b) => (newestOf(a) < newestOf(b) ? 1 : newestOf(a) > newestOf(b) ? -1 : 0));
    const pending = Math.max(0, ...answers.map(({ answer }) => answer.pending || 0));
    if (groups.length === 0) {
      const keyed = answers.find(({ answer }) => answer.messageKey);
      status.textContent = t(keyed ? keyed.answer.messageKey : 'history.search.contents.noMatches');
    } else {
      const hits = groups.reduce((sum, group) => sum + (group.hits ? group.hits.length : 0), 0);
      status.textContent = state.scope === 'contents'
        ? t('window.search.foundAndMatching %@ %@', count('window.search.found %lld', groups.length), count('window.search.matching %lld', hits))
        : count('window.search.found %lld', groups.length);
    }
    if (state.scope === 'contents' && pending > 0) {
      notes.append(el('p', { class: 'muted' }, count('history.search.contents.indexing %lld', pending)));
      if (groups.length === 0) notes.append(el('p', { class: 'muted' }, t('history.search.contents.pending')));
    }
    results.replaceChildren(...groups.map((group) => resultGroup(group, folders.length > 1)));
  };

  const later = () => {
    clearTimeout(timer);
    timer = setTimeout(search, 250);
  };
  field.addEventListener('input', () => {
    state.q = field.value;
    remember();
    showWords();
    later();
  });
  for (const radio of scopeRadios) {
    radio.addEventListener('change', () => {
      state.scope = radio.value;
      remember();
      search();
    });
  }
  folderSelect.addEventListener('change', () => {
    state.folder = folderSelect.value;
    remember();
    search();
  });
  form.addEventListener('submit', (event) => {
    event.preventDefault();
    clearTimeout(timer);
    search();
  });

  main.replaceChildren(el('h1', {}, t('window.search.title')),
    ...(folders.length === 0
      ? [el('p', {}, t('window.search.noFolders'), ' ', el('a', { href: '#/' }, t('window.nav.home')))]
      : [form, status, notes, results]));
  if (folders.length) {
    field.focus();
    search();
  }
  return () => {
    clearTimeout(timer);
    asked += 1;
  };
}

function resultGroup(group, showFolder) {
  const file = group.file;
  const deleted = Boolean(file.deletedAt);
  const headingText = [file.relativePath, showFolder ? el('span', { class: 'muted' }, ` — ${folderName(group.folder)}`) : null];
  return el('li', { class: 'result-group' },
    el('h2', { class: 'result-file' }, el('a', { href: fileHash(file.id) }, headingText),
      deleted ? el('span', { class: 'mark-deleted' }, t('window.search.deleted')) : null),
    group.hits
      ? el('ul', { class: 'hits' }, group.hits.map((hit) => el('li', {},
        // The link reads as its time; what it opens is said beside it, for screen readers.
        el('a', { id: `hit-${hit.versionID}`, href: fileHash(file.id, hit.versionID), 'aria-describedby': `hit-${hit.versionID}-what` },
          timeCell(hit.capturedAt)),
        el('span', { id: `hit-${hit.versionID}-what`, class: 'visually-hidden' },
          t('window.search.openVersion %@ %@', file.relativePath, formatAbsolute(hit.capturedAt))),
        deleted ? null : [' ', el('a', { class: 'quiet-link', href: compareHash(file.id, hit.versionID),
          'aria-describedby': `hit-${hit.versionID}` }, t('window.search.compareLive'))],
        snippetNode(hit.snippet))))
      : el('p', { class: 'muted' }, count('window.search.versions %lld', group.versionCount ?? 0), ' · ',
        t('window.search.lastChange'), ' ', group.lastCapturedAt ? timeCell(group.lastCapturedAt) : ''));
}
