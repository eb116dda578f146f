// The window's entry point: texts first, then the routes, the keys and the navigation.
import { call } from './api.js';
import { el, showError } from './dom.js';
import { installKeys, bindKey } from './keys.js';
import { route, start, navigate } from './router.js';
import { loadStrings, t } from './strings.js';

route('/', () => import('./views/home.js'));
route('/folder/:id', () => import('./views/timeline.js'));
route('/folder/:id/files', () => import('./views/files.js'));
route('/folder/:id/compare', () => import('./views/compareMoments.js'));
route('/file/:fileID', () => import('./views/versions.js'));
route('/compare', () => import('./views/compare.js'));
route('/search', () => import('./views/search.js'));
route('/settings', () => import('./views/settings.js'));

function navigation() {
  const nav = document.getElementById('main-nav');
  nav.replaceChildren(
    el('a', { href: '#/' }, t('window.nav.home')),
    el('a', { href: '#/search' }, t('window.nav.search')),
    el('a', { href: '#/settings' }, t('window.nav.settings')),
    el('button', { type: 'button', class: 'picker-button', 'aria-keyshortcuts': '/', onclick: openPicker },
      t('window.nav.findFile')),
    el('button', { type: 'button', class: 'quiet', 'aria-keyshortcuts': '?', onclick: openKeyHelp }, t('window.nav.keys')),
  );
  markCurrent();
  window.addEventListener('hashchange', markCurrent);
}

// The link of the screen shown says so (aria-current), for sight and for screen readers.
function markCurrent() {
  const path = (location.hash.replace(/^#/, '').split('?')[0]) || '/';
  for (const link of document.querySelectorAll('#main-nav a')) {
    const target = link.getAttribute('href').replace(/^#/, '');
    const current = target === '/' ? path === '/' || path.startsWith('/folder/') || path.startsWith('/file/') : path.startsWith(target);
    if (current) link.setAttribute('aria-current', 'page');
    else link.removeAttribute('aria-current');
  }
}

async function openKeyHelp() {
  const { showKeyHelp } = await import('./keyHelp.js');
  showKeyHelp();
}

async function openPicker() {
  const { openFilePicker } = await import('./picker.js');
  openFilePicker();
}

async function main() {
  try {
    await loadStrings(call);
  } catch (error) {
    showError(document.getElementById('main'), error);
    return;
  }
  document.title = t('window.title');
  navigation();
  installKeys();
  bindKey('/', openPicker, t('window.keys.findFile'));
  bindKey('Ctrl+k', openPicker, t('window.keys.findFile'));
  bindKey('g h', () => navigate('#/'), t('window.keys.home'));
  bindKey('g s', () => navigate('#/settings'), t('window.keys.settings'));
  bindKey('?', openKeyHelp, t('window.keys.help'));
  await start();
}

main();
