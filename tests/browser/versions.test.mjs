// A file's version timeline in a real browser: restore beside and in place
// through the restore sheet; delete through the sheet that shows the preview's warnings.
import assert from 'node:assert/strict';
import { readdir, readFile } from 'node:fs/promises';
import { join } from 'node:path';
import { test } from 'node:test';

import { startWindow, testTimeout, waitUntil } from './harness.mjs';

// A window on notes.txt's version timeline, with two versions: "v1" (older) and "v2".
async function twoVersions(t) {
    const w = await startWindow({ files: { 'notes.txt': 'v1\n' } });
    t.after(() => w.close());
    await w.settle();
    await w.writeFile('notes.txt', 'v2\n');
    await w.settle();
    const history = await w.versionsOf('notes.txt');
    await w.open(`#/file/${history.file.id}`);
    await w.page.getByRole('heading', { level: 1, name: /notes\.txt/ }).waitFor();
    return { w, history };
}

const olderRow = (page) => page.getByRole('row').nth(2); // the header, the newest, then the older one

test('restore beside, then in place, from the restore sheet', { timeout: testTimeout }, async (t) => {
    const { w } = await twoVersions(t);
    const page = w.page;

    await olderRow(page).getByRole('button', { name: 'Restore…' }).click();
    let sheet = page.getByRole('dialog', { name: 'Restore this version' });
    assert.equal(await sheet.getByRole('radio', { name: 'Beside the file' }).isChecked(), true, 'beside is the default');
    await sheet.getByRole('button', { name: 'Restore', exact: true }).click();
    await page.getByRole('status').filter({ hasText: /^Restored / }).waitFor();
    const names = await readdir(w.folder);
    const beside = names.filter((name) => name !== 'notes.txt');
    assert.equal(beside.length, 1, `one copy beside: ${names}`);
    assert.equal(await readFile(join(w.folder, beside[0]), 'utf8'), 'v1\n');
    assert.equal(String(await w.readFile('notes.txt')), 'v2\n', 'the file itself is untouched');

    await olderRow(page).getByRole('button', { name: 'Restore…' }).click();
    sheet = page.getByRole('dialog', { name: 'Restore this version' });
    await sheet.getByRole('radio', { name: 'In place of the file' }).check();
    await sheet.getByRole('button', { name: 'Restore', exact: true }).click();
    await waitUntil(async () => String(await w.readFile('notes.txt')) === 'v1\n', 'notes.txt restored in place');
    await page.getByRole('status').filter({ hasText: 'Restored notes.txt' }).waitFor();
    assert.deepEqual(w.pageErrors, []);
});

test('delete a version, then the whole history, each after the preview and its warnings', { timeout: testTimeout }, async (t) => {
    const { w, history } = await twoVersions(t);
    const page = w.page;
    const versionRows = page.getByRole('row');

    await olderRow(page).getByRole('button', { name: 'Delete' }).click();
    let sheet = page.getByRole('dialog', { name: 'Delete this version from the history?' });
    let text = await sheet.innerText();
    assert.match(text, /1 version will be deleted, giving back .* of disk\./);
    assert.match(text, /This cannot be undone\./);
    assert.match(text, /The file itself is not touched\./);
    assert.doesNotMatch(text, /starred/);
    await sheet.getByRole('button', { name: 'Delete', exact: true }).click();
    await waitUntil(async () => (await versionRows.count()) === 2, 'one version row left');

    // Star the one left: the whole-history sheet warns of it and of a live file losing all its versions.
    await versionRows.nth(1).getByRole('button', { name: /Star/ }).click();
    await waitUntil(async () => (await versionRows.nth(1).getByRole('button', { name: /Star/ }).getAttribute('aria-pressed')) === 'true', 'the star');
    await page.getByRole('button', { name: 'Delete history' }).click();
    sheet = page.getByRole('dialog', { name: "Delete the file's whole history?" });
    text = await sheet.innerText();
    assert.match(text, /It includes starred versions\./);
    assert.match(text, /These are all the versions of a file that still exists/);
    await sheet.getByRole('button', { name: 'Delete', exact: true }).click();
    await page.getByRole('status').filter({ hasText: '1 version deleted from the history.' }).waitFor();
    const left = await w.vosklin(['versions', join(w.folder, 'notes.txt'), '--json']);
    const remaining = left.status === 0 ? JSON.parse(left.stdout).versions.length : 0;
    assert.equal(remaining, 0, 'no version of notes.txt is left');
    assert.equal(String(await w.readFile('notes.txt')), 'v2\n');
    assert.ok(history.versions.length === 2);
    assert.deepEqual(w.pageErrors, []);
});
