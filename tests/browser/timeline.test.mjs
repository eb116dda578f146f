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
    const page = w.page;
    await page.evaluate(() => { window.sameDocument = true; });
    assert.equal(await page.getByRole('link', { name: /later\.txt/ }).count(), 0);

    // Saved within a minute of the first capture, so possibly part of the same moment: either way it shows.
    await w.writeFile('later.txt', 'new\n');
    await w.settle();
    await page.getByRole('article').first().getByRole('link', { name: /later\.txt/ }).waitFor();
    assert.equal(await page.evaluate(() => window.sameDocument), true, 'the page was not reloaded');
    assert.deepEqual(w.pageErrors, []);
});

test('rewind to a moment from the timeline, then undo it from the banner', { timeout: testTimeout }, async (t) => {
    const w = await startWindow({ files: { 'a.txt': 'first\n' } });
    t.after(() => w.close());
    await w.settle();
    const [first] = (await w.versionsOf('a.txt')).versions;
    await w.writeFile('a.txt', 'second\n');
    await w.writeFile('b.txt', 'added later\n');
    await w.settle();
    // Captures less than a minute apart make one moment. To have an older moment to go back to
    // without waiting, the folder is first put back to the instant just after the first capture
    // (a number is an exact instant); that rewind's own moment then stands apart.
    await w.api('rewind', { folder: await w.folderID(), target: Date.parse(first.capturedAt) / 1000 + 0.001 });
    assert.equal(String(await w.readFile('a.txt')), 'first\n');
    await openTimeline(w);
    const page = w.page;

    // The older moment: a.txt was "second" and b.txt there.
    await page.getByRole('article').last().getByRole('button', { name: 'Rewind to here…' }).click();
    const sheet = page.getByRole('dialog', { name: 'Rewind the folder?' });
    await sheet.waitFor();
    const plan = await sheet.innerText();
    assert.match(plan, /1 file is put back as it was/);
    assert.match(plan, /1 deleted file comes back/);
    assert.match(plan, /You can undo this/);
    await sheet.getByRole('button', { name: 'Rewind', exact: true }).click();

    const banner = page.getByRole('status').filter({ hasText: 'changes made' });
    await banner.waitFor();
    assert.match(await banner.innerText(), /^2 changes made: the folder is as it was at /);
    assert.equal(String(await w.readFile('a.txt')), 'second\n');
    assert.equal(String(await w.readFile('b.txt')), 'added later\n');

    await banner.getByRole('button', { name: 'Undo' }).click();
    await waitUntil(async () => String(await w.readFile('a.txt')) === 'first\n', 'a.txt as it was before the rewind');
    await assert.rejects(w.readFile('b.txt'), /ENOENT/);
    assert.deepEqual(w.pageErrors, []);
});
