// The settings: how long history reaches, what is never recorded, what counts
// as one document, how long a file must rest before it is kept, content search,
// starting at login; and per folder its budget, its mode and the disk it takes.
// Every change goes to the daemon, which checks it as the command line does;
// a refusal is shown beside the field, as the daemon words it.
import { call, onChange } from '../api.js';
import { el, setChildren, showError } from '../dom.js';
import { formatBytes } from '../format.js';
import { budgetChoices, budgetText, folderName } from '../folderText.js';
import { count, t } from '../strings.js';

const horizons = ['month', 'quarter', 'halfYear', 'year', 'forever'];
const keys = {
  horizon: 'vosklin.historyHorizon',
  mergeWindow: 'vosklin.mergeWindowSeconds',
  patterns: 'vosklin.excludePatterns',
  extensions: 'vosklin.packageExtensions',
  contentSearchOff: 'vosklin.contentSearchDisabled',
};

let fieldCount = 0;
const fieldID = (name) => `setting-${name}-${++fieldCount}`;

// A field's outcome: the refusal in its alert, or a short "saved" in its status.
function outcome() {
  const node = el('p', { class: 'field-outcome', 'aria-live': 'polite' });
  return {
    node,
    async run(work) {
      node.textContent = '';
      node.classList.remove('field-error');
      try {
        const answer = await work();
        node.textContent = t('window.settings.saved');
        return answer;
      } catch (error) {
        node.classList.add('field-error');
        node.textContent = error.message;
        return undefined;
      }
    },
  };
}

function valueOf(records, key) {
  const record = records.find((each) => each.key === key);
  return record ? record.value : undefined;
}

function section(title, ...children) {
  const id = fieldID('section');
  return el('section', { class: 'panel', 'aria-labelledby': id }, el('h2', { id }, title), ...children);
}

function horizonField(records) {
  const id = fieldID('horizon');
  const help = `${id}-help`;
  const current = valueOf(records, keys.horizon);
  const select = el('select', { id, 'aria-describedby': help },
    horizons.map((name) => el('option', { value: name, selected: name === current }, t(`settings.storage.keepFor.${name}`))));
  const result = outcome();
  select.addEventListener('change', () => result.run(() => call('setting', { key: keys.horizon, value: select.value })));
  return el('div', { class: 'field' }, el('label', { for: id }, t('settings.storage.keepFor')), select,
    el('p', { id: help, class: 'muted help' }, t('settings.storage.keepFor.help')), result.node);
}

function mergeWindowField(records) {
  const id = fieldID('merge');
  const help = `${id}-help`;
  const input = el('input', { id, type: 'number', min: '1', max: '3600', step: 'any', inputmode: 'decimal',
    value: String(valueOf(records, keys.mergeWindow) ?? ''), 'aria-describedby': help, class: 'short' });
  const result = outcome();
  // Sent as typed: the daemon says why a value is not one it takes.
  input.addEventListener('change', () => result.run(() => call('setting', { key: keys.mergeWindow, value: input.value.trim() })));
  return el('div', { class: 'field' }, el('label', { for: id }, t('window.settings.mergeWindow')), input,
    el('p', { id: help, class: 'muted help' }, t('window.settings.mergeWindow.help')), result.node);
}

function checkField(label, help, checked, onToggle) {
  const id = fieldID('check');
  const input = el('input', { id, type: 'checkbox', checked, 'aria-describedby': `${id}-help` });
  const result = outcome();
  input.addEventListener('change', async () => {
    const wanted = input.checked;
    const answer = await result.run(() => onToggle(wanted));
    if (answer === undefined) input.checked = !wanted;
    if (answer && typeof answer.enabled === 'boolean') input.checked = answer.enabled;
    if (answer && answer.warning) result.node.textContent = answer.warning;
  });
  return el('div', { class: 'field' }, el('p', { class: 'check' }, input, ' ', el('label', { for: id }, label)),
    el('p', { id: `${id}-help`, class: 'muted help' }, help), result.node);
}

// A list of words (patterns, extensions) to add to and remove from; each change sends the whole list.
function listField({ key, title, help, label, removeLabel, empty }, records) {
  let items = [...(valueOf(records, key) || [])];
  const id = fieldID('list');
  const input = el('input', { id, type: 'text', autocomplete: 'off', spellcheck: 'false', 'aria-describedby': `${id}-help` });
  const result = outcome();
  const list = el('ul', { class: 'word-list', 'aria-label': title });
  const save = async (next) => {
    const answer = await result.run(() => call('setting', { key, value: next }));
    if (answer) {
      items = [...answer.value];
      draw();
    }
    return answer;
  };
  const draw = () => {
    list.replaceChildren(...(items.length ? items.map((item, index) => el('li', {},
      el('code', {}, item), ' ',
      el('button', { type: 'button', class: 'quiet', 'aria-label': t(removeLabel, item),
        onclick: async () => {
          await save(items.filter((_, i) => i !== index));
          (list.querySelector('button') || input).focus();
        } }, t('window.settings.list.remove'))))
      : [el('li', { class: 'muted' }, empty)]));
  };
  draw();
  const form = el('form', { class: 'inline-form' }, el('label', { for: id }, label), input,
    el('button', { type: 'submit' }, t('window.settings.list.add')));
  form.addEventListener('submit', async (event) => {
    event.preventDefault();
    const word = input.value.trim();
    if (!word) return;
    if (await save([...items, word])) input.value = '';
    input.focus();
  });
  return el('div', { class: 'field' }, el('h3', {}, title), el('p', { id: `${id}-help`, class: 'muted help' }, help),
    list, form, result.node);
}

function folderSection(folder, usage) {
  const name = folderName(folder);
  const budgetID = fieldID('budget');
  const modeID = fieldID('mode');
  const current = folder.budget;
  const choices = [['automatic', budgetText('automatic', current === 'automatic' ? folder.budgetBytes : null)],
    ...budgetChoices.map((bytes) => [String(bytes), formatBytes(bytes)]),
    ['unlimited', t('settings.storage.budget.unlimited')]];
  if (!choices.some(([value]) => value === current)) choices.splice(1, 0, [current, budgetText(current)]);
  const budget = el('select', { id: budgetID },
    choices.map(([value, label]) => el('option', { value, selected: value === current }, label)));
  const budgetResult = outcome();
  budget.addEventListener('change', () => budgetResult.run(() => call('folderbudget', {
    folder: folder.id, budget: /^\d+$/.test(budget.value) ? Number(budget.value) : budget.value,
  })));
  const mode = el('select', { id: modeID },
    ['automatic', 'manual'].map((value) => el('option', { value, selected: folder.mode === value }, t(`window.settings.mode.${value}`))));
  const modeResult = outcome();
  mode.addEventListener('change', () => modeResult.run(() => call('foldermode', { folder: folder.id, mode: mode.value })));
  const usageHost = el('div', { class: 'usage', 'aria-live': 'polite' });
  showUsage(usageHost, usage);
  const headingID = fieldID('folder');
  return el('section', { class: 'panel folder-settings', 'aria-labelledby': headingID, dataset: { folder: folder.id } },
    el('h3', { id: headingID }, name), el('p', { class: 'muted path' }, folder.path),
    el('div', { class: 'field' }, el('label', { for: budgetID }, t('window.settings.budget')), budget, budgetResult.node),
    el('div', { class: 'field' }, el('label', { for: modeID }, t('window.settings.mode')), mode, modeResult.node),
    usageHost);
}

function showUsage(host, usage) {
  if (!usage) {
    setChildren(host, el('p', { class: 'muted' }, t('settings.storage.measuring')));
    return;
  }
  setChildren(host,
    el('dl', { class: 'facts' },
      el('dt', {}, t('window.settings.usage.disk')), el('dd', {}, formatBytes(usage.privateBytes)),
      el('dt', {}, t('window.settings.usage.logical')), el('dd', {}, formatBytes(usage.logicalBytes)),
      el('dt', {}, t('window.settings.usage.versions')), el('dd', {}, count('window.settings.usage.versionCount %lld', usage.versionCount))),
    usage.overBudget ? el('p', { class: 'warning' }, t('settings.storage.overBudget')) : null);
}

export async function render(main) {
  const [records, { folders }, autostart] = await Promise.all([
    call('settings'), call('folders'), call('autostart', {}).catch((error) => ({ error })),
  ]);
  let stopped = false;
  const folderHost = el('div', {});
  folderHost.append(...(folders.length ? folders.map((folder) => folderSection(folder, null))
    : [el('p', {}, t('window.settings.noFolders'))]));

  setChildren(main,
    el('h1', {}, t('window.settings.title')),
    section(t('window.settings.history'), horizonField(records), mergeWindowField(records)),
    section(t('window.settings.recording'),
      listField({ key: keys.patterns, title: t('window.settings.patterns'), help: t('window.settings.patterns.help'),
        label: t('window.settings.patterns.add'), removeLabel: 'window.settings.patterns.remove %@', empty: t('window.settings.patterns.none') }, records),
      listField({ key: keys.extensions, title: t('window.settings.extensions'), help: t('window.settings.extensions.help'),
        label: t('window.settings.extensions.add'), removeLabel: 'window.settings.extensions.remove %@', empty: t('window.settings.extensions.none') }, records)),
    section(t('window.settings.general'),
      checkField(t('window.settings.contentSearch'), t('window.settings.contentSearch.help'),
        valueOf(records, keys.contentSearchOff) !== true,
        (on) => call('setting', { key: keys.contentSearchOff, value: !on })),
      autostart.error
        ? el('p', { class: 'field-error' }, autostart.error.message)
        : checkField(t('window.settings.autostart'), t('window.settings.autostart.help'), autostart.enabled === true,
          (on) => call('autostart', { enabled: on }))),
    section(t('window.settings.folders'), folderHost));

  // Measuring walks every folder's store on disk: it comes after the page is up.
  const measure = async () => {
    try {
      const usage = await call('usage');
      if (stopped) return;
      for (const row of usage.folders || []) {
        const host = folderHost.querySelector(`.folder-settings[data-folder="${CSS.escape(row.folderID)}"] .usage`);
        if (host) showUsage(host, row);
      }
    } catch (error) {
      if (!stopped) showError(folderHost.appendChild(el('div')), error);
    }
  };
  measure();
  let timer = null;
  const unsubscribe = onChange((change) => {
    if (change.what !== 'captured' && change.what !== 'history') return;
    clearTimeout(timer);
    timer = setTimeout(measure, 2000);
  });
  return () => {
    stopped = true;
    clearTimeout(timer);
    unsubscribe();
  };
}
