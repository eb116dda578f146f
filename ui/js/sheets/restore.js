// The restore sheet: a version back beside the file (a copy with its own name)
// or in place of it (the file as it is now is kept in the history first).
import { call } from '../api.js';
import { el, showBanner } from '../dom.js';
import { baseName, formatAbsolute } from '../format.js';
import { navigate } from '../router.js';
import { openSheet } from '../sheet.js';
import { t } from '../strings.js';

export function openRestoreSheet({ version, fileName, inPlace = false, onDone = () => {} }) {
  const name = `restore-mode-${Date.now()}`;
  const choice = (value, label, help, checked) => {
    const id = `${name}-${value}`;
    return el('div', { class: 'choice' },
      el('input', { type: 'radio', name, id, value, checked, 'aria-describedby': `${id}-help` }),
      el('label', { for: id }, label),
      el('p', { id: `${id}-help`, class: 'muted' }, help));
  };
  const body = el('fieldset', { class: 'restore-choices' },
    el('legend', {}, t('window.versions.restore.subtitle %@ %@', fileName, formatAbsolute(version.capturedAt))),
    choice('beside', t('window.versions.restore.beside'), t('window.versions.restore.besideHelp'), !inPlace),
    choice('inPlace', t('window.versions.restore.inPlace'), t('window.versions.restore.inPlaceHelp'), inPlace));
  openSheet({
    title: t('window.versions.restore.title'),
    body,
    actions: [{
      label: t('window.versions.restore.action'),
      primary: true,
      onClick: async (close) => {
        const chosen = body.querySelector('input:checked');
        const report = await call('restore', { version: version.id, inPlace: chosen && chosen.value === 'inPlace' });
        close();
        const restored = report.restoredPath || '';
        showBanner(t('history.restore.done %@', baseName(restored) || fileName), {
          dismissLabel: t('history.restore.dismiss'),
          actions: [{ label: t('history.restore.reveal'), onClick: () => reveal(restored) }],
        });
        onDone(report);
      },
    }],
  });
}

// Reveal: the restored file's own version timeline (a copy beside is a new file).
async function reveal(path) {
  try {
    const answer = await call('versions', { path, limit: 1 });
    navigate(`#/file/${encodeURIComponent(answer.file.id)}`);
  } catch (error) {
    showBanner(`${path}: ${error.message}`, { kind: 'error' });
  }
}
