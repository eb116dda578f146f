// A sheet: a modal dialog over the view. Focus stays inside it; Escape (or the
// cancel action) closes it and gives focus back to what opened it.
import { el } from './dom.js';
import { t } from './strings.js';

let open = null;

export function isSheetOpen() {
  return open !== null;
}

// actions: [{label, primary, danger, onClick(close) -> maybe a promise}]; an action's failure is shown in the sheet.
export function openSheet({ title, body, actions = [], cancelLabel = t('window.sheet.cancel') }) {
  const opener = document.activeElement;
  const titleID = `sheet-title-${Date.now()}`;
  const error = el('p', { class: 'sheet-error', role: 'alert' });
  const dialog = el('dialog', { class: 'sheet', 'aria-labelledby': titleID });
  const close = () => {
    if (!dialog.open && !dialog.isConnected) return;
    dialog.close();
    dialog.remove();
    open = null;
    if (opener && typeof opener.focus === 'function' && opener.isConnected) opener.focus();
  };
  const buttons = actions.map((action) => {
    const button = el('button', {
      type: 'button',
      class: [action.primary ? 'primary' : '', action.danger ? 'danger' : ''].join(' ').trim(),
    }, action.label);
    button.addEventListener('click', async () => {
      error.textContent = '';
      for (const each of buttons) each.disabled = true;
      try {
        await action.onClick(close);
      } catch (failure) {
        error.textContent = failure && failure.message ? failure.message : String(failure);
      } finally {
        for (const each of buttons) each.disabled = false;
      }
    });
    return button;
  });
  const cancel = el('button', { type: 'button', onclick: close }, cancelLabel);
  dialog.append(el('h2', { id: titleID }, title), body || '', error, el('div', { class: 'sheet-actions' }, cancel, ...buttons));
  dialog.addEventListener('cancel', (event) => {
    event.preventDefault();
    close();
  });
  document.body.append(dialog);
  if (open) open();
  open = close;
  dialog.showModal();
  (buttons.find((b) => b.classList.contains('primary')) || cancel).focus();
  return close;
}
