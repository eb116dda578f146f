// "?": the keys the window answers to right now, the screen's own included.
import { el } from './dom.js';
import { describedKeys } from './keys.js';
import { openSheet } from './sheet.js';
import { t } from './strings.js';

// "g h" → g, then h; "Ctrl+k" → Ctrl + K.
function keyNode(sequence) {
  const steps = sequence.split(' ').map((step) => el('kbd', {},
    step.split('+').flatMap((part, i) => [i ? '+' : '', el('kbd', {}, part.length === 1 && i ? part.toUpperCase() : part)])));
  return steps.flatMap((step, i) => (i ? [` ${t('window.keys.then')} `, step] : [step]));
}

export function showKeyHelp() {
  // Keys that do the same thing share a row: "/ or Ctrl+K".
  const byAction = new Map();
  for (const { key, description } of describedKeys()) byAction.set(description, [...(byAction.get(description) || []), key]);
  const rows = [...byAction].map(([description, keys]) => el('tr', {},
    el('td', {}, keys.flatMap((key, i) => (i ? [` ${t('window.keys.or')} `, ...keyNode(key)] : keyNode(key)))),
    el('td', {}, description)));
  const table = el('table', { class: 'key-table' },
    el('caption', { class: 'visually-hidden' }, t('window.keys.title')),
    el('thead', {}, el('tr', {}, el('th', { scope: 'col' }, t('window.keys.key')), el('th', { scope: 'col' }, t('window.keys.action')))),
    el('tbody', {}, rows,
      el('tr', {}, el('td', {}, el('kbd', {}, 'Enter')), el('td', {}, t('window.keys.enter'))),
      el('tr', {}, el('td', {}, el('kbd', {}, 'Esc')), el('td', {}, t('window.keys.escape')))));
  openSheet({ title: t('window.keys.title'), body: table, cancelLabel: t('window.keys.close') });
}
