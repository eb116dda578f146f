// The quick file picker: "/" or Ctrl+K from anywhere, every path the folder ever had (a deleted
// file marked), best match first, arrow keys and Enter to the file's versions.
import assert from 'node:assert/strict';
import { unlink } from 'node:fs/promises';
import { join } from 'node:path';
import { test } from 'node:test';

import { startWindow, testTimeout } from './harness.mjs';

test('the picker finds live and deleted files and opens a file\'s versions', { timeout: testTimeout }, async (t) => {
    const w = await startWindow({ files: { 'docs/report.md': '# Report\n', 'docs/reporting.txt': 'x\n', 'gone.txt': 'soon gone\n' } });
    t.after(() => w.close());
    const { page } = w;
    await w.settle();
    await unlink(join(w.folder, 'gone.txt'));
    await w.settle();
    await page.getByRole('heading', { level: 1 }).waitFor();

    await page.keyboard.press('/');
    const picker = page.getByRole('dialog', { name: 'Find a file' });
    const field = picker.getByRole('combobox', { name: 'Name or part of its path' });
    await field.fill('report');
    const options = picker.getByRole('option');
    await options.first().waitFor();
    assert.deepEqual((await options.allTextContents()).map((text) => text.split(' ')[0]), ['docs/report.md', 'docs/reporting.txt']);
    await field.press('ArrowDown');
    assert.match(await picker.getByRole('option', { selected: true }).textContent(), /^docs\/reporting\.txt/);
    await field.press('ArrowUp');
    await field.press('Enter');
    const { file } = await w.versionsOf('docs/report.md');
    await page.waitForURL(`**/#/file/${file.id}`);
    assert.equal(await picker.count(), 0);

    // Ctrl+K from the version timeline; the deleted file is offered, marked.
    await page.getByRole('heading', { level: 1 }).waitFor();
    await page.keyboard.press('Control+k');
    await field.fill('gone');
    await picker.getByRole('option', { name: /^gone\.txt deleted/ }).waitFor();
    await page.keyboard.press('Escape');
    assert.equal(await picker.count(), 0);
    assert.deepEqual(w.pageErrors, []);
});
