// The delete sheet: what deleting versions (or a file's whole history) would
// take, from the eraser's own preview, with a line for every warning it
// raises; then the deletion of exactly what was previewed.
import { call } from '../api.js';
import { el, showBanner } from '../dom.js';
import { formatBytes } from '../format.js';
import { openSheet } from '../sheet.js';
import { count, t } from '../strings.js';

// The preview's warning lines, in the order the sheet shows them.
export function warningLines(preview) {
  const lines = [];
  if (preview.includesUndoCopy) lines.push(t('history.delete.sheet.warn.undo'));
  if (preview.includesStarred) lines.push(t('history.delete.sheet.warn.starred'));
  if (preview.erasesWholeLiveFile) lines.push(t('history.delete.sheet.warn.liveFile'));
  if (preview.erasesLastCopyOfDeletedFile) lines.push(t('history.delete.sheet.warn.lastCopy'));
  const names = preview.vanishingMomentNames || [];
  if (names.length === 1) lines.push(t('history.delete.sheet.warn.namedMoment %@', names[0]));
  else if (names.length > 1) lines.push(t('history.delete.sheet.warn.namedMoments %lld %@', names.length, names.map((n) => `\u201c${n}\u201d`).join(', ')));
  return lines;
}

// `target` is {versions: [ids]} or {path: the file's absolute path} for its whole history.
export async function openDeleteSheet({ target, onDone = () => {} }) {
  let preview;
  try {
    preview = await call('delete', { ...target, dryRun: true });
  } catch (error) {
    showBanner(`${t('history.delete.error')} ${error.message}`, { kind: 'error' });
    return;
  }
  const wholeFile = preview.scope === 'file';
  const warnings = warningLines(preview);
  const body = el('div', { class: 'delete-preview' },
    el('p', {}, t('history.delete.sheet.amount %@ %@', count('history.delete.versions %lld', preview.versionCount), formatBytes(preview.reclaimableBytes))),
    warnings.length ? el('ul', { class: 'warnings' }, warnings.map((line) => el('li', {}, line))) : '',
    el('p', {}, t('history.delete.sheet.fileSafe')),
    el('p', { class: 'irreversible' }, el('strong', {}, t('history.delete.sheet.irreversible'))));
  openSheet({
    title: wholeFile ? t('history.delete.sheet.title.file') : count('history.delete.sheet.title.version', preview.versionCount),
    body,
    actions: [{
      label: t('history.delete.sheet.confirm'),
      danger: true,
      onClick: async (close) => {
        let report;
        try {
          report = await call('delete', wholeFile ? { path: target.path } : { versions: preview.versionIDs });
        } catch (error) {
          throw new Error(`${t('history.delete.error')} ${error.message}`);
        }
        close();
        showBanner(count('window.versions.deleted %lld', report.deletedCount ?? preview.versionCount));
        onDone(report);
      },
    }],
  });
}
