// The folder home and onboarding in a real browser on a real daemon: a first folder added
// (with completion and a refusal worded as `folder add` words it), pause and resume, a
// snapshot's report, and removal that keeps the history.
import assert from 'node:assert/strict';
import { basename, dirname, join } from 'node:path';
import { test } from 'node:test';

import { startWindow, testTimeout, waitUntil } from './harness.mjs';

const folders = async (w) => w.json(['folder', 'list']);

test('onboarding: completion, a refusal as the command words it, then a first folder recording', { timeout: testTimeout }, async (t) => {
    const w = await startWindow({ noFolder: true, files: { 'before.txt': 'there before\n' } });
    t.after(() => w.close());
    const { page } = w;
    await page.getByRole('heading', { level: 1, name: 'Welcome to Vosklin' }).waitFor();
    const field = page.getByRole('combobox', { name: 'Folder' });
    const add = page.getByRole('button', { name: 'Add and start recording' });

    const refused = `${w.root}/not-there`;
    const command = await w.vosklin(['folder', 'add', refused]);
    assert.notEqual(command.status, 0);
    await field.fill(refused);
    await add.click();
    const alert = page.getByRole('alert').filter({ hasText: /\S/ });
    await alert.waitFor();
    assert.ok(command.stderr.includes((await alert.textContent()).trim()), `the window says what the command says: ${command.stderr}`);

    // The folder's parent typed with part of its name: the daemon suggests the folder.
    await field.fill(`${dirname(w.folder)}/${basename(w.folder).slice(0, 3)}`);
    await page.getByRole('option', { name: w.folder }).waitFor();
    await field.press('ArrowDown');
    await field.press('Enter');
    assert.equal(await field.inputValue(), `${w.folder}/`);
    await add.click();
    await page.getByRole('heading', { level: 1, name: 'Recording' }).waitFor();
    const [folder] = await folders(w);
    assert.equal(folder.path, w.folder);
    assert.equal(await page.getByRole('link', { name: 'Open its timeline' }).getAttribute('href'), `#/folder/${folder.id}`);
    // Recording from the start: what was there is kept, and so is what comes next.
    await w.writeFile('after.txt', 'written after\n');
    // The daemon takes in a new folder when it next reads its folder list, which a settle
    // started just before may not wait for: settle until the folder's first crawl is in.
    const kept = async (path) => (await w.vosklin(['versions', join(w.folder, path), '--json'])).status === 0;
    await waitUntil(async () => { await w.settle(); return await kept('before.txt') && await kept('after.txt'); },
        'the new folder\'s files to be kept', 60_000);
    for (const path of ['before.txt', 'after.txt']) assert.equal((await w.versionsOf(path)).versions.length, 1, path);
    assert.deepEqual(w.pageErrors, []);
});

test('folder home: pause and resume, a snapshot reported in the banner, remove keeps the history', { timeout: testTimeout }, async (t) => {
    const w = await startWindow({ files: { 'a.txt': 'one\n' } });
    t.after(() => w.close());
    const { page } = w;
    await w.settle();
    const id = await w.folderID();
    const card = page.getByRole('listitem').filter({ has: page.getByRole('heading', { name: basename(w.folder) }) });
    await card.getByText('Recording', { exact: true }).waitFor();

    await card.getByRole('button', { name: 'Pause' }).click();
    await card.getByText('Paused', { exact: true }).waitFor();
    assert.equal((await folders(w))[0].isPaused, true);
    await card.getByRole('button', { name: 'Resume' }).click();
    await card.getByText('Recording', { exact: true }).waitFor();
    assert.equal((await folders(w))[0].isPaused, false);

    // Manual: only the snapshot keeps the new file, so the report's count is known.
    await w.vosklinOk(['folder', 'mode', id, 'manual']);
    await page.reload();
    await card.getByText(/^Manual/).waitFor();
    await w.writeFile('b.txt', 'two\n');
    await card.getByRole('button', { name: 'Snapshot now' }).click();
    await page.getByRole('status').getByText(`1 changed file kept in a snapshot of ${basename(w.folder)}.`).waitFor();
    assert.equal((await w.versionsOf('b.txt')).versions.length, 1);

    const versionsBefore = (await folders(w))[0].versions;
    await card.getByRole('button', { name: 'Remove…' }).click();
    const sheet = page.getByRole('dialog', { name: `Stop recording ${basename(w.folder)}?` });
    await sheet.getByRole('button', { name: 'Stop recording' }).click();
    await page.getByRole('heading', { level: 1, name: 'Welcome to Vosklin' }).waitFor();
    assert.deepEqual(await folders(w), []);
    // Added again, the folder comes back with its history.
    await w.vosklinOk(['folder', 'add', w.folder]);
    await waitUntil(async () => (await folders(w))[0]?.versions === versionsBefore, 'the history to come back');
    assert.deepEqual(w.pageErrors, []);
});
