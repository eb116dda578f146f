// Enter in a sheet's field does what the sheet's main button does, through
// that button, so its errors show in the sheet like a click's.
export function submitThroughPrimary(form) {
  form.addEventListener('submit', (event) => {
    event.preventDefault();
    const button = form.closest('dialog')?.querySelector('.sheet-actions button.primary');
    if (button && !button.disabled) button.click();
  });
}
