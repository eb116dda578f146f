// File comparisons in a real browser: text, image and PDF each render, and their panes sit
// where the layout puts them (boxes and positions, not pixels).
import assert from 'node:assert/strict';
import { deflateSync } from 'node:zlib';
import { after, before, test } from 'node:test';

import { startWindow, testTimeout, waitUntil } from './harness.mjs';

function crc32(bytes) {
    let crc = ~0;
    for (const byte of bytes) {
        crc ^= byte;
        for (let k = 0; k < 8; k += 1) crc = crc & 1 ? 0xedb88320 ^ (crc >>> 1) : crc >>> 1;
    }
    return ~crc >>> 0;
}

// A w × h RGB PNG with a red square at x0.
function png(w, h, x0) {
    const chunk = (type, data) => {
        const body = Buffer.concat([Buffer.from(type), data]);
        const head = Buffer.alloc(4);
        head.writeUInt32BE(data.length);
        const tail = Buffer.alloc(4);
        tail.writeUInt32BE(crc32(body));
        return Buffer.concat([head, body, tail]);
    };
    const header = Buffer.alloc(13);
    header.writeUInt32BE(w, 0);
    header.writeUInt32BE(h, 4);
    header[8] = 8;
    header[9] = 2;
    const raw = Buffer.alloc((w * 3 + 1) * h, 0xee);
    for (let y = 0; y < h; y += 1) {
        raw[y * (w * 3 + 1)] = 0;
        for (let x = x0; x < x0 + 20 && y > 10 && y < 30; x += 1) raw.set([200, 20, 20], y * (w * 3 + 1) + 1 + x * 3);
    }
    return Buffer.concat([Buffer.from([137, 80, 78, 71, 13, 10, 26, 10]), chunk('IHDR', header), chunk('IDAT', deflateSync(raw)), chunk('IEND', Buffer.alloc(0))]);
}

// A PDF with one page per text.
function pdf(texts) {
    const objects = ['<< /Type /Catalog /Pages 2 0 R >>',
        `<< /Type /Pages /Kids [${texts.map((_, i) => `${4 + i * 2} 0 R`).join(' ')}] /Count ${texts.length} >>`,
        '<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica >>'];
    for (const text of texts) {
        const content = `BT /F1 28 Tf 30 120 Td (${text}) Tj ET`;
        objects.push(`<< /Type /Page /Parent 2 0 R /MediaBox [0 0 300 200] /Contents ${objects.length + 2} 0 R /Resources << /Font << /F1 3 0 R >> >> >>`,
            `<< /Length ${content.length} >>\nstream\n${content}\nendstream`);
    }
    let out = '%PDF-1.4\n';
    const offsets = objects.map((object, i) => {
        const at = out.length;
        out += `${i + 1} 0 obj\n${object}\nendobj\n`;
        return at;
    });
    const xref = out.length;
    out += `xref\n0 ${objects.length + 1}\n0000000000 65535 f \n${offsets.map((o) => `${String(o).padStart(10, '0')} 00000 n \n`).join('')}`;
    return `${out}trailer\n<< /Size ${objects.length + 1} /Root 1 0 R >>\nstartxref\n${xref}\n%%EOF\n`;
}

const lines = (changed) => Array.from({ length: 40 }, (_, i) => (i === 19 ? `line 20 ${changed}` : `line ${i + 1}`)).join('\n') + '\n';

let w;
const routes = {};
before(async () => {
    w = await startWindow({ files: { 'notes.txt': lines('old'), 'picture.png': png(64, 48, 10), 'paper.pdf': pdf(['One', 'Two']) } });
    await w.settle();
    await w.writeFile('notes.txt', lines('new'));
    await w.writeFile('picture.png', png(64, 48, 30));
    await w.writeFile('paper.pdf', pdf(['One', 'Two changed', 'Three']));
    await w.settle();
    for (const name of ['notes.txt', 'picture.png', 'paper.pdf']) {
        const history = await w.versionsOf(name);
        const [newer, older] = history.versions;
        routes[name] = `#/compare?old=${older.id}&new=${newer.id}&file=${history.file.id}`;
    }
});
after(() => w?.close());

async function box(locator) {
    await locator.waitFor();
    const found = await locator.boundingBox();
    assert.ok(found && found.width > 0 && found.height > 0, 'a visible box');
    return found;
}

// Two panes side by side: the first left of the second, tops aligned, about as wide, inside the window.
async function assertSideBySide(first, second, what) {
    const [a, b] = [await box(first), await box(second)];
    const width = w.page.viewportSize().width;
    assert.ok(a.x + a.width <= b.x + 1, `${what}: the older pane is left of the newer one`);
    assert.ok(Math.abs(a.y - b.y) <= 2, `${what}: their tops are aligned (${a.y}, ${b.y})`);
    assert.ok(a.width / b.width > 0.8 && a.width / b.width < 1.25, `${what}: about as wide (${a.width}, ${b.width})`);
    assert.ok(b.x + b.width <= width, `${what}: inside the window`);
}

const loaded = (image) => image.evaluate((node) => node.complete && node.naturalWidth > 0);

test('text: side by side with line numbers and folded runs, then unified', { timeout: testTimeout }, async () => {
    const page = w.page;
    await w.open(routes['notes.txt']);
    await assertSideBySide(page.getByRole('cell', { name: 'line 20 old' }), page.getByRole('cell', { name: 'line 20 new' }), 'text');
    // 19 lines before the change keep 3 beside it; 20 after it keep 3.
    const unfold = page.getByRole('button', { name: /^Show \d+ unchanged lines$/ });
    assert.deepEqual(await unfold.allInnerTexts(), ['Show 16 unchanged lines', 'Show 17 unchanged lines']);
    const rows = await page.getByRole('row').count();
    await unfold.first().click();
    assert.equal(await page.getByRole('row').count(), rows + 15, 'the unfolded run shows its 16 lines in place of its control');
    assert.equal(await page.getByRole('cell', { name: 'line 2', exact: true }).count(), 2, 'an unchanged line on both sides');

    await page.getByRole('button', { name: 'Unified' }).click();
    const [removed, added] = [await box(page.getByRole('cell', { name: 'line 20 old' })), await box(page.getByRole('cell', { name: 'line 20 new' }))];
    assert.ok(removed.y < added.y && Math.abs(removed.x - added.x) <= 1, 'unified: the removed line above the added one, in one column');
    assert.deepEqual(w.pageErrors, []);
});

test('image: side by side, swipe, onion skin and the difference computed in the page', { timeout: testTimeout }, async () => {
    const page = w.page;
    await w.open(routes['picture.png']);
    const images = page.getByRole('img', { name: /^The version of / });
    // Measured once loaded: a loading image is only as large as its text.
    await waitUntil(async () => (await loaded(images.nth(0))) && (await loaded(images.nth(1))), 'both versions loaded as images');
    await assertSideBySide(images.nth(0), images.nth(1), 'images');

    await page.getByRole('button', { name: 'Swipe' }).click();
    await page.getByRole('slider', { name: 'Where the newer image begins' }).fill('25');
    const [under, over] = [await box(images.nth(0)), await box(images.nth(1))];
    assert.deepEqual([over.x, over.y], [under.x, under.y], 'swipe: the two images lie on top of each other');
    await page.getByRole('button', { name: 'Onion skin' }).click();
    await page.getByRole('slider', { name: 'Opacity of the newer image' }).waitFor();

    await page.getByRole('button', { name: 'Difference' }).click();
    const caption = page.getByText(/pixels differ/);
    await caption.waitFor();
    // Two 20 × 19 squares 20 pixels apart: each moved pixel differs once where it left and once where it came.
    assert.match(await caption.innerText(), /^760 pixels differ/);
    const canvas = await box(page.getByRole('img', { name: 'Difference' }));
    assert.ok(canvas.width >= 64, 'the difference is drawn at the images\' size');
    assert.deepEqual(w.pageErrors, []);
});

test('PDF: pages rendered by the daemon, side by side, page by page', { timeout: testTimeout }, async () => {
    const page = w.page;
    await w.open(routes['paper.pdf']);
    await page.getByText('Page 1 of 3').waitFor();
    const pages = page.getByRole('img', { name: /^Page 1 of / });
    // Rendered by poppler on demand: slow on a busy machine, and measured once there.
    await waitUntil(async () => (await loaded(pages.nth(0))) && (await loaded(pages.nth(1))), 'both rendered pages', 60_000);
    await assertSideBySide(pages.nth(0), pages.nth(1), 'PDF pages');
    await page.getByRole('button', { name: 'Next page' }).click();
    await page.getByRole('button', { name: 'Next page' }).click();
    await page.getByText('Page 3 of 3').waitFor();
    assert.equal(await page.getByText('No such page in this version.').count(), 1, 'the older version has two pages');
    await waitUntil(() => loaded(page.getByRole('img', { name: /^Page 3 of / })), 'the newer version\'s third page', 60_000);
    assert.deepEqual(w.pageErrors, []);
});
