// The export sheet: the folder as it was at a moment, written into a new
// directory the reader names (never over anything there).
import { call } from '../api.js';
import { el, showBanner } from '../dom.js';
import { formatAbsolute, formatBytes } from '../format.js';
import { openSheet } from '../sheet.js';
import { count, t } from '../strings.js';
import { submitThroughPrimary } from './form.js';

export function openExportSheet({ folderID, folderName, moment }) {
  const id = `export-destination-${Date.now()}`;
  const help = `${id}-help`;
  const field = el('input', { id, type: 'text', required: true, autocomplete: 'off', spellcheck: 'false', 'aria-describedby': help, placeholder: '/home/…' });
  const run = async (close) => {
    const destination = field.value.trim();
    if (!destination.startsWith('/')) throw new Error(t('window.export.notAbsolute'));
    const report = await call('export', { folder: folderID, moment: moment.at, destination });
    close();
    showBanner(count('window.export.done %lld %@ %@', report.fileCount, formatBytes(report.logicalBytes), report.destination || destination));
  };
  const form = el('form', { class: 'sheet-form' },
    el('p', {}, t('window.export.subtitle %@ %@', folderName, formatAbsolute(moment.at))),
    el('label', { for: id }, t('window.export.destination')), field,
    el('p', { id: help, class: 'muted' }, t('window.export.help')));
  submitThroughPrimary(form);
  openSheet({ title: t('window.export.title'), body: form, actions: [{ label: t('window.export.action'), primary: true, onClick: run }] });
  field.focus();
}
