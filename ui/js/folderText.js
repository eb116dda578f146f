// How a watched folder is named and described wherever the window lists it.
import { baseName, formatBytes } from './format.js';
import { t } from './strings.js';

export const budgetChoices = [1, 2, 5, 10, 25, 50].map((gigabytes) => gigabytes * 1_000_000_000);

// The folder's budget as chosen: "automatic" (with what it comes to now), "unlimited" or a size.
export function budgetText(budget, effectiveBytes) {
  if (budget === 'unlimited') return t('settings.storage.budget.unlimited');
  if (budget === 'automatic' || budget === undefined || budget === null) {
    return t('settings.storage.budget.automatic %@', effectiveBytes ? formatBytes(effectiveBytes) : t('settings.storage.measuring'));
  }
  return formatBytes(Number(budget));
}

export function stateText(state) {
  return t(`window.home.state.${state}`);
}

export function folderName(folder) {
  return baseName(folder.path || '') || folder.path || folder.id;
}
