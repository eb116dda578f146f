// A file's version timeline: every version with its instant, size and source,
// starred ones marked (retention keeps them) and filterable; restore, delete,
// open, and compare two versions or one with the file as it is now.
import { call, payloadUrl } from '../api.js';
import { el, showBanner, timeCell } from '../dom.js';
import { baseName, formatBytes } from '../format.js';
import { bindKey } from '../keys.js';
import { navigate } from '../router.js';
import { count, t } from '../strings.js';
import { step } from '../timelineModel.js';
import { openDeleteSheet } from '../sheets/delete.js';
import { openRestoreSheet } from '../sheets/restore.js';
import { keptMark } from './folderTabs.js';

const pageSize = 500;

function compareHref(oldID, newID, fileID) {
  return `#/compare?${new URLSearchParams({ old: oldID, new: newID, file: fileID })}`;
}

export async function render(main, params) {
  const fileID = params.fileID;
  let answer = await call('versions', { file: fileID, limit: pageSize });
  let versions = answer.versions || [];
  let starredOnly = false;
  const picked = new Set();
  const name = baseName(answer.path || answer.file.relativePath);

  const table = el('table', { class: 'versions' });
  const summary = el('p', { class: 'muted', role: 'status' });
  const compareButton = el('button', { type: 'button', disabled: true, onclick: comparePicked }, t('window.versions.comparePicked'));
  const filterID = `starred-only-${fileID}`;
  const filter = el('input', { type: 'checkbox', id: filterID, onchange: () => { starredOnly = filter.checked; renderRows(); } });
  const more = el('button', { type: 'button', class: 'load-older', onclick: loadMore }, t('window.versions.more'));

  const live = answer.live || {};
  const liveLine = live.exists
    ? el('p', {}, t('window.versions.liveExists %@', formatBytes(live.logicalBytes)))
    : el('p', { class: 'mark mark-deleted' }, t('window.versions.liveGone'));
  const folderLink = answer.folderID ? el('a', { href: `#/folder/${encodeURIComponent(answer.folderID)}` }, t('window.versions.folderTimeline')) : '';

  main.replaceChildren(
    el('header', { class: 'view-header' },
      el('h1', {}, t('window.versions.title %@', name)),
      el('p', { class: 'muted path' }, answer.path || answer.file.relativePath), liveLine, folderLink),
    el('div', { class: 'versions-tools' },
      el('div', { class: 'filter' }, filter, el('label', { for: filterID }, t('window.versions.starredOnly'))),
      compareButton,
      answer.path ? el('button', { type: 'button', class: 'danger', onclick: () => openDeleteSheet({ target: { path: answer.path }, onDone: reload }) },
        t('history.delete.sheet')) : ''),
    summary, table, more);

  async function reload() {
    try {
      answer = await call('versions', { file: fileID, limit: Math.max(pageSize, versions.length) });
      versions = answer.versions || [];
      for (const id of [...picked]) if (!versions.some((v) => v.id === id)) picked.delete(id);
      renderRows();
    } catch (error) {
      // The whole history gone: the file has no timeline left; its folder's is the place to be.
      if (error.status === 404) navigate(answer.folderID ? `#/folder/${encodeURIComponent(answer.folderID)}` : '#/');
      else showBanner(error.message, { kind: 'error' });
    }
  }

  async function loadMore() {
    const page = await call('versions', { file: fileID, offset: versions.length, limit: pageSize });
    versions = versions.concat(page.versions || []);
    renderRows();
  }

  function comparePicked() {
    const [a, b] = versions.filter((v) => picked.has(v.id)).sort((x, y) => (x.capturedAt < y.capturedAt ? -1 : 1));
    if (a && b) navigate(compareHref(a.id, b.id, fileID));
  }

  async function toggleStar(version) {
    try {
      await call(version.isStarred ? 'unstar' : 'star', { version: version.id });
      version.isStarred = !version.isStarred;
      renderRows();
      focusRow(version.id, 'button.star');
    } catch (error) {
      showBanner(error.message, { kind: 'error' });
    }
  }

  function row(version, index) {
    const older = versions[index + 1];
    const when = timeCell(version.capturedAt);
    const whenID = `version-when-${version.id}`;
    when.id = whenID;
    const pickID = `pick-${version.id}`;
    const pick = el('input', {
      type: 'checkbox', id: pickID, checked: picked.has(version.id),
      onchange: () => {
        if (pick.checked) picked.add(version.id);
        else picked.delete(version.id);
        updatePicked();
      },
    });
    return el('tr', { tabindex: '-1', dataset: { id: String(version.id) }, class: version.isStarred ? 'starred' : '' },
      el('td', {}, pick, el('label', { for: pickID, class: 'visually-hidden' }, t('window.versions.pick %@', when.textContent))),
      el('td', {}, when),
      el('td', { class: 'size' }, formatBytes(version.logicalBytes)),
      el('td', {}, t(`window.versions.source.${version.source}`)),
      el('td', {},
        el('button', { type: 'button', class: 'quiet star', 'aria-describedby': whenID, 'aria-pressed': version.isStarred ? 'true' : 'false', onclick: () => toggleStar(version) },
          el('span', { 'aria-hidden': 'true' }, version.isStarred ? '★ ' : '☆ '), t('window.versions.star')),
        version.isStarred ? keptMark(t('window.versions.kept'), t('window.versions.keptHelp')) : ''),
      el('td', { class: 'row-actions' },
        el('a', { href: payloadUrl(version.id), target: '_blank', rel: 'noopener', download: name }, t('window.versions.open')),
        live.exists ? el('a', { href: compareHref(version.id, 'live', fileID) }, t('window.versions.compareLive')) : '',
        older ? el('a', { href: compareHref(older.id, version.id, fileID) }, t('window.versions.comparePrevious')) : '',
        el('button', { type: 'button', 'aria-describedby': whenID, onclick: () => openRestoreSheet({ version, fileName: name, onDone: reload }) }, t('window.versions.restore')),
        el('button', { type: 'button', 'aria-describedby': whenID, onclick: () => openDeleteSheet({ target: { versions: [version.id] }, onDone: reload }) }, t('history.delete.sheet.action'))));
  }

  function updatePicked() {
    compareButton.disabled = picked.size !== 2;
    compareButton.textContent = picked.size === 2 ? t('window.versions.comparePicked') : count('window.versions.pickTwo %lld', picked.size);
  }

  function renderRows() {
    const shown = starredOnly ? versions.filter((v) => v.isStarred) : versions;
    table.replaceChildren(
      el('caption', { class: 'visually-hidden' }, t('window.versions.caption')),
      el('thead', {}, el('tr', {},
        el('th', { scope: 'col' }, el('span', { class: 'visually-hidden' }, t('window.versions.pickColumn'))),
        el('th', { scope: 'col' }, t('window.versions.when')),
        el('th', { scope: 'col' }, t('window.versions.size')),
        el('th', { scope: 'col' }, t('window.versions.source')),
        el('th', { scope: 'col' }, t('window.versions.starColumn')),
        el('th', { scope: 'col' }, el('span', { class: 'visually-hidden' }, t('window.versions.actions'))))),
      el('tbody', {}, shown.length ? shown.map((version) => row(version, versions.indexOf(version)))
        : el('tr', {}, el('td', { colspan: '6', class: 'empty' }, starredOnly ? t('window.versions.noStarred') : t('window.versions.none')))));
    summary.textContent = count('window.versions.count %lld', answer.total ?? versions.length);
    more.hidden = versions.length >= (answer.total ?? versions.length);
    updatePicked();
  }

  function rows() {
    return [...table.querySelectorAll('tbody tr')];
  }

  function focusRow(id, inside) {
    const found = rows().find((each) => each.dataset.id === String(id));
    const target = found && ((inside && found.querySelector(inside)) || found);
    if (target) target.focus();
  }

  function moveVersion(delta) {
    const all = rows();
    const active = document.activeElement && document.activeElement.closest ? document.activeElement.closest('tbody tr') : null;
    const next = all[step(all.indexOf(active), delta, all.length)];
    if (next) {
      next.focus();
      next.scrollIntoView({ block: 'nearest' });
    }
  }

  // Enter on a focused row (reached with ] and [) opens its comparison: with
  // the file as it is now, or else with the version before it.
  table.addEventListener('keydown', (event) => {
    if (event.key !== 'Enter' || !event.target.matches('tbody tr')) return;
    const link = event.target.querySelector('a[href^="#/compare"]');
    if (link) {
      event.preventDefault();
      navigate(link.getAttribute('href'));
    }
  });

  renderRows();
  const unbind = [
    bindKey(']', () => moveVersion(1), t('window.versions.keys.next')),
    bindKey('[', () => moveVersion(-1), t('window.versions.keys.previous')),
  ];
  return () => { for (const each of unbind) each(); };
}
