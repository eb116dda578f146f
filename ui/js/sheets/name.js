// The sheet that names a moment (or renames it); a named moment is kept by the
// history's thinning.
import { call } from '../api.js';
import { el } from '../dom.js';
import { formatAbsolute } from '../format.js';
import { openSheet } from '../sheet.js';
import { t } from '../strings.js';
import { submitThroughPrimary } from './form.js';

export function openNameSheet({ folderID, moment, currentName = '', onDone = () => {} }) {
  const id = `moment-name-${Date.now()}`;
  const field = el('input', { id, type: 'text', value: currentName, required: true, maxlength: 200, autocomplete: 'off' });
  const form = el('form', { class: 'sheet-form' },
    el('p', {}, t('window.name.for %@', formatAbsolute(moment.at))),
    el('label', { for: id }, t('window.name.label')), field,
    el('p', { class: 'muted' }, t('window.name.kept')));
  const save = async (close) => {
    const name = field.value.trim();
    if (!name) throw new Error(t('window.name.empty'));
    await call('name', { folder: folderID, moment: moment.at, name });
    close();
    onDone();
  };
  submitThroughPrimary(form);
  openSheet({
    title: currentName ? t('window.name.renameTitle') : t('window.name.title'),
    body: form,
    actions: [{ label: t('window.name.save'), primary: true, onClick: save }],
  });
  field.focus();
  field.select();
}
