// Every screen of the window passes axe-core with no serious or critical violation, in the light
// and the dark theme, and at 200 % zoom it still fits the window's width; no screen throws.
import assert from 'node:assert/strict';
import { after, before, test } from 'node:test';

import { axeCheck, describeViolations, openWindow, startDaemon, testTimeout } from './harness.mjs';

let daemon;
let empty; // a home that watches nothing: onboarding
const views = {}; // {light, dark, zoomed}: windows on `daemon`
let screens; // [name, hash]

before(async () => {
    daemon = await startDaemon({ files: { 'notes.txt': 'first line\n', 'docs/plan.md': '# Plan\n' } });
    await daemon.settle();
    await daemon.writeFile('notes.txt', 'first line\nsecond line\n');
    await daemon.settle();
    const folder = await daemon.folderID();
    const history = await daemon.versionsOf('notes.txt');
    const [newer, older] = history.versions;
    const at = encodeURIComponent(new Date().toISOString());
    const from = encodeURIComponent(older.capturedAt);
    screens = [
        ['folder home', '#/'],
        ['timeline', `#/folder/${folder}`],
        ['files', `#/folder/${folder}/files?at=${at}`],
        ['compare two moments', `#/folder/${folder}/compare?from=${from}&to=${at}`],
        ['version timeline', `#/file/${history.file.id}`],
        ['text comparison', `#/compare?old=${older.id}&new=${newer.id}`],
        ['comparison with the live file', `#/compare?old=${older.id}&new=live`],
        ['search', '#/search?q=notes&scope=names'],
        ['settings', '#/settings'],
    ];
    views.light = await openWindow(daemon);
    views.dark = await openWindow(daemon, { colorScheme: 'dark' });
    // 200 % zoom of a 1280 x 900 window: half as many CSS pixels each way.
    views.zoomed = await openWindow(daemon, { viewport: { width: 640, height: 450 } });
    empty = await startDaemon({ noFolder: true });
}, { timeout: testTimeout });

after(async () => {
    for (const view of Object.values(views)) await view.closeBrowser();
    await daemon?.close();
    await empty?.close();
});

// Shows `hash` and waits until the screen has drawn its heading and nothing in it says it is
// still loading (the event stream stays open, so the network is never idle). A screen that
// shows an error instead is a failure: the check is about the screen, not the error box.
async function show(view, hash) {
    const { page } = view;
    await page.goto(`${view.origin}/${hash}`);
    await page.locator('main').getByRole('heading').first().waitFor({ timeout: 15_000 });
    await page.waitForFunction(() => !document.querySelector('[aria-busy="true"]'), null, { timeout: 15_000 });
    // An empty alert region is a place kept for messages, not an error.
    const alerts = (await page.locator('main [role="alert"]').allInnerTexts()).filter((text) => text.trim() !== '');
    assert.deepEqual(alerts, [], `${hash} shows an error instead of its screen`);
}

async function assertAccessible(view, what) {
    const violations = await axeCheck(view.page);
    assert.deepEqual(violations.map((v) => v.id), [], `${what}:\n${describeViolations(violations)}`);
    assert.deepEqual(view.pageErrors.splice(0), [], `${what}: uncaught errors`);
}

test('onboarding, when no folder is watched, is accessible', { timeout: testTimeout }, async () => {
    const view = await openWindow(empty);
    try {
        await show(view, '#/');
        // The folder's path field offers completions, so it is a combobox.
        assert.ok(await view.page.getByRole('combobox').first().isVisible(), 'onboarding has a field for the folder');
        await assertAccessible(view, 'onboarding');
    } finally {
        await view.closeBrowser();
    }
});

test('every screen has no serious accessibility violation, in the light and the dark theme', { timeout: testTimeout * 2 }, async (t) => {
    for (const [name, hash] of screens) {
        for (const theme of ['light', 'dark']) {
            await t.test(`${name} (${theme})`, async () => {
                await show(views[theme], hash);
                await assertAccessible(views[theme], `${name}, ${theme}`);
            });
        }
    }
});

test('at 200 % zoom every screen fits the window without scrolling sideways', { timeout: testTimeout * 2 }, async (t) => {
    for (const [name, hash] of screens) {
        await t.test(name, async () => {
            const view = views.zoomed;
            await show(view, hash);
            const [scrollWidth, clientWidth] = await view.page.evaluate(() =>
                [document.documentElement.scrollWidth, document.documentElement.clientWidth]);
            assert.ok(scrollWidth <= clientWidth + 1, `${name}: ${scrollWidth} px of content in ${clientWidth} px`);
            await assertAccessible(view, `${name}, 200 %`);
        });
    }
});
