// The timeline in a real browser: a save shows up live (no reload), and a rewind
// started from a moment can be undone from the banner.
import assert from 'node:assert/strict';
import { test } from 'node:test';

import { startWindow, testTimeout, waitUntil } from './harness.mjs';

async function openTimeline(w) {
    await w.open(`#/folder/${await w.folderID()}`);
    await w.page.getByRole('heading', { level: 1 }).waitFor();
    await w.page.getByRole('article').first().waitFor();
}

test('a save appears on the timeline without a reload', { timeout: testTimeout }, async (t) => {
    const w = await startWindow({ files: { 'notes.txt': 'one\n' } });
    t.after(() => w.close());
    await w.settle();
    await openTimeline(w);
    const moments = w.page.getByRole('article');
    const before = await moments.count();
    await w.page.evaluate(() => { window.sameDocument = true; });

    await w.writeFile('notes.txt', 'one\ntwo\n');
    await w.writeFile('later.txt', 'new\n');
    await w.settle();
    await waitUntil(async () => (await moments.count()) > before, 'the new moment on the timeline');
    const newest = moments.first();
    assert.match(await newest.innerText(), /later\.txt/);
    assert.equal(await newest.getByRole('link', { name: /notes\.txt/ }).count(), 1, 'the edited file is listed and leads to its versions');
    assert.equal(await w.page.evaluate(() => window.sameDocument), true, 'the page was not reloaded');
    assert.deepEqual(w.pageErrors, []);
});

test('rewind to a moment from the timeline, then undo it from the banner', { timeout: testTimeout }, async (t) => {
    const w = await startWindow({ files: { 'a.txt': 'first\n' } });
    t.after(() => w.close());
    await w.settle();
    await w.writeFile('a.txt', 'second\n');
    await w.writeFile('b.txt', 'added later\n');
    await w.settle();
    await openTimeline(w);
    const page = w.page;

    // The first moment, when only a.txt was there.
    await page.getByRole('article').last().getByRole('button', { name: 'Rewind to here…' }).click();
    const sheet = page.getByRole('dialog', { name: 'Rewind the folder?' });
    await sheet.waitFor();
    const plan = await sheet.innerText();
    assert.match(plan, /1 file is put back as it was/);
    assert.match(plan, /1 file added since is removed/);
    assert.match(plan, /You can undo this/);
    await sheet.getByRole('button', { name: 'Rewind', exact: true }).click();

    const banner = page.getByRole('status').filter({ hasText: 'changes made' });
    await banner.waitFor();
    assert.match(await banner.innerText(), /^2 changes made: the folder is as it was at /);
    assert.equal(String(await w.readFile('a.txt')), 'first\n');
    await assert.rejects(w.readFile('b.txt'), /ENOENT/);
    await page.getByRole('heading', { name: /^Went back to / }).first().waitFor();

    await banner.getByRole('button', { name: 'Undo' }).click();
    await waitUntil(async () => String(await w.readFile('a.txt')) === 'second\n', 'a.txt as it was before the rewind');
    assert.equal(String(await w.readFile('b.txt')), 'added later\n');
    assert.deepEqual(w.pageErrors, []);
});
