// Keyboard shortcuts: single keys and two-key sequences ("g h"). Keys typed
// into a field are the field's, not shortcuts.
import { isSheetOpen } from './sheet.js';

const bindings = new Map();
let pending = '';
let pendingTimer = null;

// Returns an unbind function. `scope` lets a view drop its keys on cleanup.
export function bindKey(sequence, handler, description = '') {
  const entry = { handler, description };
  bindings.set(sequence, entry);
  return () => {
    if (bindings.get(sequence) === entry) bindings.delete(sequence);
  };
}

export function describedKeys() {
  return [...bindings.entries()].filter(([, entry]) => entry.description).map(([key, entry]) => ({ key, description: entry.description }));
}

function typing(target) {
  if (!target || !(target instanceof Element)) return false;
  return target.closest('input, textarea, select, [contenteditable="true"]') !== null;
}

export function keyName(event) {
  let name = event.key;
  if (event.ctrlKey && name.length === 1) name = `Ctrl+${name.toLowerCase()}`;
  return name;
}

export function installKeys() {
  document.addEventListener('keydown', (event) => {
    if (event.defaultPrevented || event.altKey || event.metaKey) return;
    if (isSheetOpen()) return;
    const name = keyName(event);
    if (typing(event.target) && !name.startsWith('Ctrl+')) return;
    const sequence = pending ? `${pending} ${name}` : name;
    clearTimeout(pendingTimer);
    if (bindings.has(sequence)) {
      pending = '';
      event.preventDefault();
      bindings.get(sequence).handler(event);
      return;
    }
    const prefix = [...bindings.keys()].some((key) => key.startsWith(`${sequence} `));
    pending = prefix ? sequence : '';
    if (prefix) pendingTimer = setTimeout(() => { pending = ''; }, 1500);
  });
}
