// The form that adds a folder to watch: a path field whose suggestions come
// from the daemon (the directories under what is typed), the manual choice, and
// the daemon's refusal shown as it words it.
import { call } from './api.js';
import { el } from './dom.js';
import { t } from './strings.js';

let formCount = 0;

// onAdded(folder) runs after the daemon accepted the folder.
export function addFolderForm({ onAdded, heading = null }) {
  const id = `add-folder-${++formCount}`;
  const listID = `${id}-suggestions`;
  const helpID = `${id}-help`;
  const input = el('input', {
    id: `${id}-path`, type: 'text', name: 'path', autocomplete: 'off', spellcheck: 'false',
    role: 'combobox', 'aria-autocomplete': 'list', 'aria-expanded': 'false', 'aria-controls': listID,
    'aria-describedby': helpID, required: true, class: 'path-field',
  });
  const list = el('ul', { id: listID, role: 'listbox', class: 'suggestions', 'aria-label': t('window.onboarding.suggestions') });
  const manual = el('input', { id: `${id}-manual`, type: 'checkbox', name: 'manual' });
  const error = el('p', { class: 'field-error', role: 'alert' });
  const add = el('button', { type: 'submit', class: 'primary' }, t('window.onboarding.add'));
  let suggestions = [];
  let active = -1;
  let asked = 0;
  let timer = null;

  const close = () => {
    suggestions = [];
    active = -1;
    list.replaceChildren();
    input.setAttribute('aria-expanded', 'false');
    input.removeAttribute('aria-activedescendant');
  };
  const show = () => {
    list.replaceChildren(...suggestions.map((path, index) => el('li', {
      id: `${listID}-${index}`, role: 'option', 'aria-selected': index === active ? 'true' : 'false',
      onmousedown: (event) => event.preventDefault(), // keep focus in the field
      onclick: () => choose(index),
    }, path)));
    input.setAttribute('aria-expanded', suggestions.length ? 'true' : 'false');
    if (active >= 0) {
      input.setAttribute('aria-activedescendant', `${listID}-${active}`);
      list.children[active].scrollIntoView({ block: 'nearest' });
    } else {
      input.removeAttribute('aria-activedescendant');
    }
  };
  const suggest = async () => {
    const prefix = input.value;
    const ticket = ++asked;
    if (!prefix.startsWith('/')) {
      close();
      return;
    }
    try {
      const answer = await call('complete', { prefix });
      if (ticket !== asked) return;
      suggestions = (answer.directories || []).filter((path) => path !== prefix);
      active = -1;
      show();
    } catch {
      if (ticket === asked) close();
    }
  };
  // Taking a suggestion goes into it, ready for the next level.
  const choose = (index) => {
    input.value = `${suggestions[index]}/`;
    close();
    input.focus();
    suggest();
  };

  input.addEventListener('input', () => {
    error.textContent = '';
    clearTimeout(timer);
    timer = setTimeout(suggest, 120);
  });
  input.addEventListener('keydown', (event) => {
    if (event.key === 'ArrowDown' || event.key === 'ArrowUp') {
      if (!suggestions.length) {
        if (event.key === 'ArrowDown') suggest();
        return;
      }
      event.preventDefault();
      const step = event.key === 'ArrowDown' ? 1 : -1;
      active = (active + step + suggestions.length + 1) % (suggestions.length + 1);
      if (active === suggestions.length) active = -1;
      show();
    } else if ((event.key === 'Enter' || event.key === 'Tab') && active >= 0) {
      event.preventDefault();
      choose(active);
    } else if (event.key === 'Escape' && suggestions.length) {
      event.preventDefault();
      event.stopPropagation();
      close();
    }
  });
  input.addEventListener('blur', () => setTimeout(close, 150));

  const form = el('form', { class: 'add-folder', novalidate: true },
    heading,
    el('label', { for: input.id }, t('window.onboarding.path.label')),
    el('div', { class: 'combo' }, input, list),
    el('p', { id: helpID, class: 'muted help' }, t('window.onboarding.path.help')),
    el('p', { class: 'check' }, manual, ' ', el('label', { for: manual.id }, t('window.onboarding.manual'))),
    error,
    el('div', { class: 'actions' }, add));
  form.addEventListener('submit', async (event) => {
    event.preventDefault();
    close();
    error.textContent = '';
    const path = input.value.trim().replace(/(.)\/+$/, '$1');
    if (!path) {
      error.textContent = t('window.onboarding.path.missing');
      input.focus();
      return;
    }
    add.disabled = true;
    try {
      const folder = await call('folderadd', { path, manual: manual.checked });
      input.value = '';
      manual.checked = false;
      await onAdded(folder);
    } catch (failure) {
      error.textContent = failure.message;
      input.focus();
    } finally {
      add.disabled = false;
    }
  });
  return { form, focus: () => input.focus() };
}
