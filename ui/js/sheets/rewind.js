// The rewind sheet: the plan for putting a whole folder back to a moment (its
// counts and steps), confirmed, then done; the banner after it offers the undo,
// a rewind to the moment marked just before.
import { call } from '../api.js';
import { el, showBanner } from '../dom.js';
import { formatAbsolute, formatBytes } from '../format.js';
import { openSheet } from '../sheet.js';
import { count, t } from '../strings.js';

const actionKeys = { revert: 'window.timeline.step.revert', restoreDeleted: 'window.timeline.step.restore', removeAdded: 'window.timeline.step.remove' };

function planCount(plan, name) {
  const counts = plan.counts || {};
  return counts[name] ?? plan[`${name}Count`] ?? 0;
}

function stepList(steps) {
  const items = steps.map((step) => el('li', {},
    el('span', { class: `step-action step-${step.action}` }, t(actionKeys[step.action] || step.action)), ' ',
    el('span', { class: 'path' }, step.relativePath),
    step.restoredBytes !== null && step.restoredBytes !== undefined ? el('span', { class: 'muted' }, ` ${formatBytes(step.restoredBytes)}`) : ''));
  return el('details', { class: 'rewind-steps' },
    el('summary', {}, count('window.timeline.rewindSteps %lld', steps.length)),
    el('ul', {}, items));
}

// `target` is the moment's instant as the timeline has it, sent as it is to both
// the plan and the rewind: the daemon reads it the same way twice, so the plan
// confirmed is the plan run (its printed "target" is not that text). `onDone` runs after
// a rewind (and after its undo) so the view can show the new moments.
export async function openRewindSheet({ folderID, folderName, target, onDone = () => {} }) {
  let plan;
  try {
    plan = await call('rewindplan', { folder: folderID, target });
  } catch (error) {
    showBanner(error.message, { kind: 'error' });
    return;
  }
  const steps = plan.steps || [];
  const body = el('div', { class: 'rewind-plan' },
    el('p', {}, t('rewind.sheet.subtitle %@ %@', folderName, formatAbsolute(target))),
    el('ul', { class: 'plan-counts' },
      ...[['revert', 'rewind.sheet.revert %lld'], ['restore', 'rewind.sheet.restore %lld'], ['remove', 'rewind.sheet.remove %lld']]
        .filter(([name]) => planCount(plan, name) > 0)
        .map(([name, key]) => el('li', {}, count(key, planCount(plan, name))))),
    steps.length ? stepList(steps) : '',
    el('p', { class: 'muted' }, t('rewind.sheet.reversible')));
  openSheet({
    title: t('rewind.sheet.title'),
    body,
    actions: [{
      label: t('rewind.sheet.confirm'),
      primary: true,
      onClick: async (close) => {
        const report = await call('rewind', { folder: folderID, target, planFingerprint: plan.planFingerprint });
        close();
        announce(report, { folderID, folderName, target, onDone });
        onDone(report);
      },
    }],
  });
}

function announce(report, context) {
  const changes = (report.revertedCount || 0) + (report.restoredCount || 0) + (report.removedCount || 0);
  const failed = (report.failedPaths || []).length;
  let message = count('rewind.banner.done %lld %@', changes, formatAbsolute(context.target));
  if (failed) message += ` ${count('rewind.banner.failed %lld', failed)}`;
  const actions = report.beforeRewindAt
    ? [{ label: t('rewind.banner.undo'), onClick: () => undo(report.beforeRewindAt, context) }]
    : [];
  showBanner(message, { kind: failed ? 'error' : 'info', actions, dismissLabel: t('rewind.banner.dismiss') });
}

// The undo puts the folder back as it was just before the rewind: the plan is
// made and run at once (the reader asked for exactly this state).
async function undo(beforeRewindAt, context) {
  try {
    const plan = await call('rewindplan', { folder: context.folderID, target: beforeRewindAt });
    const report = await call('rewind', { folder: context.folderID, target: beforeRewindAt, planFingerprint: plan.planFingerprint });
    announce(report, { ...context, target: beforeRewindAt });
    context.onDone(report);
  } catch (error) {
    showBanner(error.message, { kind: 'error' });
  }
}
