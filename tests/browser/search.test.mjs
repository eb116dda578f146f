// Search in a real browser: the field's rules and messages, names and contents scopes, hits
// grouped by file with the matched words marked (and a file's markup shown as text), each
// opening the file's versions.
import assert from 'node:assert/strict';
import { test } from 'node:test';

import { startWindow, testTimeout } from './harness.mjs';

test('search by name and by content, with the field\'s messages', { timeout: testTimeout }, async (t) => {
    const w = await startWindow({ files: { 'notes.txt': 'the quick brown fox\n', 'page.html': '<b>bold</b> and quick too\n', 'other.md': 'lazy dog\n' } });
    t.after(() => w.close());
    const { page } = w;
    await w.settle();
    await w.vosklinOk(['index', '--now']);
    await w.open('#/search');
    const field = page.getByRole('searchbox', { name: 'Search for' });
    const status = page.getByRole('status').filter({ hasText: /\S/ });
    await status.getByText("Type a word to search for in every version's text.").waitFor();
    await field.fill('n');
    await status.getByText('Type at least 2 characters to search.').waitFor();
    await field.fill('notes');
    await status.getByText('1 file found').waitFor();
    const { file } = await w.versionsOf('notes.txt');
    assert.equal(await page.getByRole('link', { name: 'notes.txt' }).getAttribute('href'), `#/file/${file.id}`);
    assert.match(page.url(), /#\/search\?q=notes&scope=names$/);

    await page.getByRole('radio', { name: 'Contents' }).check();
    await field.fill('quick');
    await status.getByText('2 files found; 2 versions match').waitFor();
    assert.deepEqual(await page.locator('main mark').allTextContents(), ['quick', 'quick']);
    assert.equal(await page.locator('main b').count(), 0, 'markup in a file stays text');
    assert.ok((await page.getByText('<b>bold</b>', { exact: false }).count()) > 0);
    await field.fill('zzzz');
    await status.getByText('No version contains that.').waitFor();
    await page.reload();
    assert.equal(await page.getByRole('searchbox', { name: 'Search for' }).inputValue(), 'zzzz');
    assert.deepEqual(w.pageErrors, []);
});
