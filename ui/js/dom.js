// Small helpers to build the window's elements without HTML strings (no
// innerHTML: a file name from history is text, never markup).
import { formatAbsolute, formatRelative } from './format.js';
import { t } from './strings.js';

// el('button', {class: 'x', onclick: fn, 'aria-label': '...'}, 'text', childNode, ...)
export function el(tag, attributes = {}, ...children) {
  const node = document.createElement(tag);
  for (const [name, value] of Object.entries(attributes || {})) {
    if (value === undefined || value === null || value === false) continue;
    if (name.startsWith('on') && typeof value === 'function') node.addEventListener(name.slice(2), value);
    else if (name === 'class') node.className = value;
    else if (name === 'dataset') Object.assign(node.dataset, value);
    else if (value === true) node.setAttribute(name, '');
    else node.setAttribute(name, String(value));
  }
  append(node, children);
  return node;
}

// replaceChildren that, like el(), skips null/false and flattens lists.
export function setChildren(node, ...children) {
  node.replaceChildren();
  append(node, children);
  return node;
}

function append(node, children) {
  for (const child of children.flat()) {
    if (child === undefined || child === null || child === false) continue;
    node.append(child instanceof Node ? child : document.createTextNode(String(child)));
  }
}

// An instant as every row shows it: the absolute time, and the relative one beside it.
export function timeCell(iso, nowMs = Date.now()) {
  return el('time', { datetime: iso, title: iso, class: 'when' },
    el('span', { class: 'absolute' }, formatAbsolute(iso)), ' ',
    el('span', { class: 'relative' }, `(${formatRelative(iso, nowMs)})`));
}

export function showError(container, error) {
  const message = error && error.message ? error.message : String(error);
  const box = el('div', { class: 'error', role: 'alert' },
    el('h2', {}, t('window.error.title')), el('p', {}, message));
  if (error && error.status === 401) box.append(el('p', {}, t('window.error.session')));
  container.replaceChildren(box);
}

// A banner above the view: a message with optional actions (Undo, Dismiss...).
export function showBanner(message, { kind = 'info', actions = [], dismissLabel = t('window.banner.dismiss') } = {}) {
  const host = document.getElementById('banner');
  const close = () => host.replaceChildren();
  const bar = el('div', { class: `banner ${kind}` }, el('span', {}, message),
    ...actions.map((action) => el('button', { type: 'button', onclick: () => { close(); action.onClick(); } }, action.label)),
    el('button', { type: 'button', class: 'quiet', onclick: close, 'aria-label': dismissLabel }, '×'));
  host.replaceChildren(bar);
  return close;
}

export function heading(level, text) {
  return el(`h${level}`, {}, text);
}
