// The window's first screen: onboarding while no folder is watched, then the
// watched folders with their state, size, budget and last change, and what
// can be done to each (open, pause or resume, snapshot now, remove).
import { call, onChange } from '../api.js';
import { addFolderForm } from '../addFolder.js';
import { el, setChildren, showBanner, showError, timeCell } from '../dom.js';
import { formatBytes } from '../format.js';
import { budgetText, folderName, stateText } from '../folderText.js';
import { navigate } from '../router.js';
import { openSheet } from '../sheet.js';
import { count, t } from '../strings.js';

export async function render(main) {
  const { folders } = await call('folders');
  let onboarding = folders.length === 0;
  let recordingShown = false; // the page that follows a first folder's adding stays until left
  let stopped = false;
  let reloading = null;

  const reload = async () => {
    if (stopped || recordingShown) return;
    try {
      const answer = await call('folders');
      if (stopped || recordingShown || (onboarding && answer.folders.length === 0)) return;
      onboarding = false;
      showHome(answer.folders);
    } catch (error) {
      if (!stopped) showError(main, error);
    }
  };
  // Changes come in bursts (a save is often several captures): one reload per burst.
  const unsubscribe = onChange((change) => {
    if (!['folders', 'captured', 'history', 'settings'].includes(change.what) || reloading) return;
    reloading = setTimeout(() => {
      reloading = null;
      reload();
    }, 300);
  });

  function showOnboarding() {
    const form = addFolderForm({
      heading: el('h2', {}, t('window.onboarding.addFirst')),
      onAdded: async (folder) => {
        const answer = await call('folders');
        showRecording(answer.folders.find((each) => each.id === folder.id) || folder);
      },
    });
    setChildren(main,
      el('h1', {}, t('window.onboarding.title')),
      el('p', { class: 'lead' }, t('window.onboarding.intro')),
      el('p', {}, t('window.onboarding.intro.more')),
      form.form);
    form.focus();
  }

  function showRecording(folder) {
    recordingShown = true;
    const open = el('a', { class: 'button primary', href: `#/folder/${encodeURIComponent(folder.id)}` },
      t('window.onboarding.openTimeline'));
    setChildren(main,
      el('h1', {}, t('window.onboarding.recording.title')),
      el('p', { class: 'lead' }, t(folder.mode === 'manual' ? 'window.onboarding.recording.manual %@' : 'window.onboarding.recording %@', folder.path)),
      folder.state ? el('p', {}, el('span', { class: `state state-${folder.state}` }, stateText(folder.state))) : null,
      el('div', { class: 'actions' }, open,
        el('button', { type: 'button', onclick: () => { recordingShown = false; reload(); } }, t('window.onboarding.done'))));
    open.focus();
  }

  function folderCard(folder) {
    const name = folderName(folder);
    const headingID = `folder-${folder.id}`;
    // Not `disabled` while working: a disabled button drops the focus, which the reload puts back.
    const busy = (button, work) => async () => {
      if (button.getAttribute('aria-disabled') === 'true') return;
      button.setAttribute('aria-disabled', 'true');
      try {
        await work();
      } catch (error) {
        showBanner(error.message, { kind: 'error' });
      } finally {
        button.removeAttribute('aria-disabled');
      }
    };
    const paused = folder.isPaused === true;
    const pause = el('button', { type: 'button', 'aria-describedby': headingID },
      t(paused ? 'window.home.resume' : 'window.home.pause'));
    pause.addEventListener('click', busy(pause, async () => {
      await call(paused ? 'folderresume' : 'folderpause', { folder: folder.id });
      await reload();
    }));
    const snapshot = el('button', { type: 'button', 'aria-describedby': headingID }, t('window.home.snapshot'));
    snapshot.addEventListener('click', busy(snapshot, async () => {
      const report = await call('snapshot', { folder: folder.id });
      showBanner(snapshotMessage(name, report), {
        actions: [{ label: t('window.home.open'), onClick: () => navigate(`#/folder/${encodeURIComponent(folder.id)}`) }],
      });
      await reload();
    }));
    const remove = el('button', { type: 'button', 'aria-describedby': headingID }, t('window.home.remove'));
    remove.addEventListener('click', () => confirmRemove(folder));

    return el('li', { class: 'folder-card', dataset: { folder: folder.id } },
      el('h2', { id: headingID },
        el('a', { href: `#/folder/${encodeURIComponent(folder.id)}` }, name)),
      el('p', { class: 'muted path' }, folder.path),
      el('p', {}, el('span', { class: `state state-${folder.state}` }, stateText(folder.state)),
        folder.state === 'unreachable' && folder.unreachableReason ? el('span', { class: 'muted' }, ` ${folder.unreachableReason}`) : null),
      el('dl', { class: 'facts' },
        el('dt', {}, t('window.home.history')),
        el('dd', {}, count('window.home.history.size %lld %@', folder.versions ?? 0, formatBytes(folder.logicalBytes ?? 0))),
        el('dt', {}, t('window.home.budget')),
        el('dd', {}, budgetText(folder.budget, folder.budgetBytes)),
        el('dt', {}, t('window.home.lastChange')),
        el('dd', {}, folder.lastChangeAt ? timeCell(folder.lastChangeAt) : t('window.home.noChange'))),
      folder.overBudget ? el('p', { class: 'warning' }, t('settings.storage.overBudget')) : null,
      el('div', { class: 'actions' },
        el('a', { class: 'button primary', href: `#/folder/${encodeURIComponent(folder.id)}`, 'aria-describedby': headingID },
          t('window.home.open')),
        pause, snapshot, remove));
  }

  function confirmRemove(folder) {
    openSheet({
      title: t('window.home.remove.title %@', folderName(folder)),
      body: el('div', {}, el('p', {}, folder.path), el('p', {}, t('window.home.remove.body'))),
      actions: [{
        label: t('window.home.remove.confirm'),
        danger: true,
        onClick: async (close) => {
          await call('folderremove', { folder: folder.id });
          close();
          showBanner(t('window.home.removed %@', folder.path));
          await reload();
        },
      }],
    });
  }

  function showHome(list) {
    if (list.length === 0) {
      onboarding = true;
      showOnboarding();
      return;
    }
    // Keep the focus on the same button of the same folder across a reload.
    const focused = document.activeElement;
    const card = focused && focused.closest ? focused.closest('.folder-card') : null;
    const where = card && main.contains(card)
      ? { folder: card.dataset.folder, index: [...card.querySelectorAll('a, button')].indexOf(focused) }
      : null;
    // A reload of the home keeps its add form (and what is typed there); anything else is drawn anew.
    const listHost = main.querySelector('.folder-list');
    const existing = listHost ? main.querySelector('.add-folder') : null;
    const form = existing ? null : addFolderForm({
      heading: el('h2', {}, t('window.home.add')),
      onAdded: async (folder) => {
        showBanner(t('window.home.added %@', folder.path), {
          actions: [{ label: t('window.home.open'), onClick: () => navigate(`#/folder/${encodeURIComponent(folder.id)}`) }],
        });
        await reload();
      },
    });
    const cards = el('ul', { class: 'folder-list', 'aria-labelledby': 'home-title' }, list.map(folderCard));
    if (existing) {
      listHost.replaceWith(cards);
    } else {
      setChildren(main,
        el('h1', { id: 'home-title' }, t('window.home.title')),
        cards,
        el('section', { class: 'panel' }, form.form));
    }
    if (where) {
      const again = main.querySelector(`.folder-card[data-folder="${CSS.escape(where.folder)}"]`);
      const target = again ? again.querySelectorAll('a, button')[where.index] : null;
      if (target) target.focus();
    }
  }

  if (onboarding) showOnboarding();
  else showHome(folders);
  return () => {
    stopped = true;
    clearTimeout(reloading);
    unsubscribe();
  };
}

export function snapshotMessage(name, report) {
  const parts = [report.captured > 0
    ? count('window.home.snapshot.done %lld %@', report.captured, name)
    : t('window.home.snapshot.unchanged %@', name)];
  if (report.tombstoned > 0) parts.push(count('window.home.snapshot.deleted %lld', report.tombstoned));
  if (report.unreadableCount > 0) parts.push(count('window.home.snapshot.unreadable %lld', report.unreadableCount));
  if (report.cancelled) parts.push(t('window.home.snapshot.cancelled'));
  return parts.join(' ');
}
