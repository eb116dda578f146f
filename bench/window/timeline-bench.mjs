// The window with long histories, in headless chromium against a real daemon (run by hand through
// bench/window/timeline-bench.sh; nothing here is asserted, the figures are printed beside their goals).
//
// A home with two manual folders whose catalogs bench/window_bench_tool writes directly:
//   - "timeline": VERSIONS versions (100,000) over the last year;
//   - "large": FILES files (100,000) and a batch one day ago that changes, adds, deletes and renames some.
// Then:
//   1. the history request paged through with the token: pages, payload sizes, request times;
//   2. the window opened at #/folder/<id>: time from navigation start to the first moment shown
//      (an element of role "article"), cold and warm;
//   3. scrolling the timeline to its end: total time and pages fetched;
//   4. the tab's memory after that: JS heap (DevTools Performance.getMetrics) and the renderer's RSS;
//   5. comparemoments across the batch on the large folder: the request's time and size, and the
//      window's #/folder/<id>/compare route until a changed file is shown.
import { execFile } from 'node:child_process';
import { readdirSync, readFileSync } from 'node:fs';
import { mkdir } from 'node:fs/promises';
import { join } from 'node:path';
import { promisify } from 'node:util';

import { openWindow, rawRequest, repositoryRoot, startDaemon } from '../../tests/browser/harness.mjs';

const versions = Number(process.env.VERSIONS ?? 100_000);
const files = Number(process.env.FILES ?? 100_000);
const tool = process.env.VOSKLIN_BENCH_TOOL ?? join(repositoryRoot, 'build/release/bench/window_bench_tool');
const uiTimeout = 60_000;
// Scrolling stops here even before the end; the table then says how far it got.
const scrollLimitSeconds = Number(process.env.SCROLL_LIMIT_S ?? 600);
const run = promisify(execFile);

const median = (values) => {
    const sorted = [...values].sort((a, b) => a - b);
    return sorted.length ? sorted[Math.floor((sorted.length - 1) / 2)] : NaN;
};
const kb = (bytes) => `${(bytes / 1024).toFixed(1)} KiB`;
const mb = (bytes) => `${(bytes / 1048576).toFixed(1)} MiB`;
const ms = (value) => `${value.toFixed(0)} ms`;
const rows = [];
const row = (figure, text, goal = '') => {
    const value = text.replace(/\s+/g, ' ').trim().slice(0, 160);
    rows.push([figure, value, goal]);
    console.error(`  ${figure}: ${value}`);
};

// RSS of every process below this one (chromium's browser, renderers, GPU and utility processes).
function chromiumProcesses() {
    const parents = new Map();
    for (const name of readdirSync('/proc')) {
        if (!/^\d+$/.test(name)) continue;
        try {
            const stat = readFileSync(`/proc/${name}/stat`, 'utf8');
            parents.set(Number(name), Number(stat.slice(stat.lastIndexOf(')') + 2).split(' ')[1]));
        } catch { /* gone */ }
    }
    const below = (pid) => [...parents].filter(([, parent]) => parent === pid).flatMap(([child]) => [child, ...below(child)]);
    return below(process.pid).flatMap((pid) => {
        try {
            const cmdline = readFileSync(`/proc/${pid}/cmdline`, 'utf8');
            if (!cmdline.includes('chrom')) return [];
            const rss = Number(readFileSync(`/proc/${pid}/status`, 'utf8').match(/VmRSS:\s+(\d+)/)?.[1] ?? 0) * 1024;
            return [{ pid, rss, renderer: cmdline.includes('--type=renderer') }];
        } catch {
            return [];
        }
    });
}

async function build() {
    let timeline, large, largeID;
    const daemon = await startDaemon({
        manual: true,
        // No payloads exist, so the content index would only fail on every version.
        settings: { 'vosklin.contentSearchDisabled': true },
        prepare: async (d) => {
            const database = join(d.home, 'store', 'index.sqlite');
            await mkdir(join(d.home, 'store'), { recursive: true });
            const now = String(Date.now() / 1000);
            const started = Date.now();
            timeline = JSON.parse((await run(tool, ['timeline', database, await d.folderID(), String(versions), '365', now])).stdout);
            const largeFolder = join(d.root, 'large');
            await mkdir(largeFolder);
            largeID = JSON.parse(await d.vosklinOk(['folder', 'add', '--manual', largeFolder, '--json'])).id;
            large = JSON.parse((await run(tool, ['compare', database, largeID, String(files), now])).stdout);
            console.error(`Catalog written in ${((Date.now() - started) / 1000).toFixed(1)} s:`,
                JSON.stringify(timeline), JSON.stringify(large));
        },
    });
    return { daemon, timeline, large, largeID };
}

// 1. The history request, page after page, as the window asks for it.
async function pageThroughApi(daemon, folderID) {
    const sizes = [], times = [];
    let before, moments = 0, changes = 0;
    for (;;) {
        const started = performance.now();
        const answer = await rawRequest(daemon.port, 'POST', '/v1/history', { timeoutMs: 60_000,
            headers: { Authorization: `Bearer ${daemon.token}`, 'Content-Type': 'application/json' },
            body: before ? { folder: folderID, before } : { folder: folderID } });
        times.push(performance.now() - started);
        if (answer.status !== 200) return { error: `history answered ${answer.status}: ${answer.body.slice(0, 200)}` };
        sizes.push(Buffer.byteLength(answer.body));
        const page = JSON.parse(answer.body);
        for (const session of page.sessions) {
            moments += session.moments?.length ?? 0;
            for (const moment of session.moments ?? []) changes += moment.changes?.length ?? 0;
        }
        if (!page.next || sizes.length > 10_000) break;
        before = page.next;
    }
    return { sizes, times, moments, changes };
}

// 2. Time from navigation start to the first moment in the page, measured inside the page.
async function firstRender(page, url) {
    await page.goto('about:blank');
    await page.goto(url);
    await page.getByRole('article').first().waitFor({ timeout: uiTimeout });
    return page.evaluate(() => window.__firstMoment);
}

// 2b. The same from inside the window: from the folder home to the timeline by its route.
async function inAppRender(page, origin, hash) {
    await page.goto('about:blank');
    await page.goto(`${origin}/#/`);
    await page.getByRole('heading').first().waitFor({ timeout: uiTimeout });
    return page.evaluate((route) => new Promise((done) => {
        const started = performance.now();
        const observer = new MutationObserver(() => {
            if (!document.querySelector('article, [role="article"]')) return;
            observer.disconnect();
            done(performance.now() - started);
        });
        observer.observe(document, { subtree: true, childList: true });
        setTimeout(() => { observer.disconnect(); done(-1); }, 60_000);
        location.hash = route;
    }), hash).then((elapsed) => {
        if (elapsed < 0) throw new Error(`no moment shown within a minute of ${hash}`);
        return elapsed;
    });
}

// 3. Scrolls to the end of the timeline; counts the history pages the window fetched on the way.
async function scrollToEnd(page, url) {
    const pages = [];
    const onResponse = async (response) => {
        if (!response.url().endsWith('/v1/history')) return;
        const entry = { done: false };
        pages.push(entry);
        try {
            const body = await response.body();
            entry.bytes = body.length;
            entry.next = JSON.parse(body.toString('utf8')).next;
        } catch { /* the page went away */ }
        entry.done = true;
    };
    page.on('response', onResponse);
    await page.goto('about:blank');
    const started = performance.now();
    await page.goto(url);
    await page.getByRole('article').first().waitFor({ timeout: uiTimeout });
    let stalls = 0;
    const deadline = Date.now() + scrollLimitSeconds * 1000;
    while (stalls < 3 && Date.now() < deadline) {
        const seen = pages.length;
        await page.evaluate(() => {
            const moments = document.querySelectorAll('article, [role="article"]');
            moments[moments.length - 1]?.scrollIntoView({ block: 'end' });
        });
        await page.keyboard.press('End').catch(() => {});
        const more = await waitFor(() => pages.length > seen && pages.every((p) => p.done), 5_000);
        if (more) {
            stalls = 0;
            continue;
        }
        if (pages.length && pages.at(-1).done && pages.at(-1).next === null) break;
        // A "load more" button instead of loading on scroll.
        const button = page.getByRole('button', { name: /more|older|earlier/i }).last();
        if (await button.isVisible().catch(() => false)) await button.click().catch(() => {});
        ++stalls;
    }
    const elapsed = performance.now() - started;
    page.off('response', onResponse);
    const reachedEnd = pages.length > 0 && pages.at(-1).next === null;
    const inDom = await page.evaluate(() => document.querySelectorAll('article, [role="article"]').length);
    return { elapsed, pages, reachedEnd, inDom };
}

async function waitFor(probe, timeoutMs) {
    const deadline = Date.now() + timeoutMs;
    while (Date.now() < deadline) {
        if (probe()) return true;
        await new Promise((done) => setTimeout(done, 25));
    }
    return probe();
}

async function main() {
    console.error(`Building a home: ${versions} versions over a year, and a folder of ${files} files...`);
    const { daemon, timeline, large, largeID } = await build();
    let window;
    try {
        const timelineID = (await daemon.json(['folder', 'list'])).find((f) => f.path === daemon.folder).id;
        console.error(`Daemon on ${daemon.origin}; timeline folder ${timelineID}, large folder ${largeID}`);

        const api = await pageThroughApi(daemon, timelineID);
        if (api.error) {
            row('history request', api.error);
        } else {
            row('history pages (API, token)', `${api.sizes.length} pages, ${api.moments} moments, ${api.changes} changes`);
            row('history page payload (median / max)', `${kb(median(api.sizes))} / ${kb(Math.max(...api.sizes))}`);
            row('history all pages, bytes', mb(api.sizes.reduce((a, b) => a + b, 0)));
            row('history page request (first / median / max)',
                `${ms(api.times[0])} / ${ms(median(api.times))} / ${ms(Math.max(...api.times))}`);
        }

        const body = { folder: largeID, from: large.from, to: large.to };
        const compareTimes = [];
        let compare;
        for (let i = 0; i < 5; ++i) {
            const started = performance.now();
            compare = await rawRequest(daemon.port, 'POST', '/v1/comparemoments', { body, timeoutMs: 120_000,
                headers: { Authorization: `Bearer ${daemon.token}`, 'Content-Type': 'application/json' } });
            compareTimes.push(performance.now() - started);
            if (compare.status !== 200) break;
        }
        let changedName;
        if (compare.status === 200) {
            const answer = JSON.parse(compare.body);
            changedName = answer.changed?.[0]?.relativePath;
            row(`comparemoments, ${files} files (first / median of 5)`, `${ms(compareTimes[0])} / ${ms(median(compareTimes))}`, '< 1 s');
            row('comparemoments answer', `${mb(Buffer.byteLength(compare.body))}: ${answer.added?.length} added, ` +
                `${answer.changed?.length} changed, ${answer.deleted?.length} deleted, ${answer.renamed?.length} renamed ` +
                `(written: ${large.added}, ${large.changed}, ${large.deleted}, ${large.renamed})`);
        } else {
            row('comparemoments', `answered ${compare.status}: ${compare.body.slice(0, 200)}`, '< 1 s');
        }

        try {
            window = await openWindow(daemon);
        } catch (error) {
            row('the window', `not opened: ${String(error.message ?? error).split('\n').slice(0, 2).join(' ')}`);
            return;
        }
        const { page, context } = window;
        // Notes the instant the first moment enters the page. An init script comes in through the
        // DevTools protocol, not as a page script, so the window's policy does not apply to it.
        await context.addInitScript(() => {
            const seen = () => {
                if (window.__firstMoment === undefined && document.querySelector('article, [role="article"]')) {
                    window.__firstMoment = performance.now();
                }
            };
            new MutationObserver(seen).observe(document, { subtree: true, childList: true });
        });
        const timelineUrl = `${daemon.origin}/#/folder/${timelineID}`;
        try {
            // What the window asks the daemon for on the way, and how long each answer took.
            const asked = [];
            const onFinished = (request) => {
                const path = new URL(request.url()).pathname;
                if (!path.startsWith('/v1/') || path === '/v1/events') return;
                asked.at(-1)?.push(`${path.slice(4)} ${request.timing().responseEnd.toFixed(0)} ms`);
            };
            page.on('requestfinished', onFinished);
            const renders = [];
            for (let i = 0; i < 5; ++i) {
                asked.push([]);
                renders.push(await firstRender(page, timelineUrl));
            }
            page.off('requestfinished', onFinished);
            row('requests of the first render (cold)', asked[0].join(', '));
            row('timeline first render (cold)', ms(renders[0]), '< 300 ms');
            row('timeline first render (median of 4 more)', ms(median(renders.slice(1))), '< 300 ms');
            const hops = [];
            for (let i = 0; i < 3; ++i) hops.push(await inAppRender(page, daemon.origin, `#/folder/${timelineID}`));
            row('timeline from the folder home (median of 3)', ms(median(hops)), '< 300 ms');

            if (process.env.SCROLL === '0') throw new Error('scrolling skipped (SCROLL=0)');
            const scroll = await scrollToEnd(page, timelineUrl);
            const bytes = scroll.pages.map((p) => p.bytes ?? 0);
            row('timeline scrolled to the end', `${(scroll.elapsed / 1000).toFixed(1)} s, ${scroll.pages.length} pages fetched` +
                (scroll.reachedEnd ? '' : ` (NOT AT THE END: stopped after ${scrollLimitSeconds} s or stuck)`), 'paged, never loaded whole');
            row('timeline pages in the window (median / max)', `${kb(median(bytes))} / ${kb(Math.max(0, ...bytes))}`);
            row('moments in the page at the end', String(scroll.inDom));

            const cdp = await context.newCDPSession(page);
            await cdp.send('HeapProfiler.collectGarbage').catch(() => {});
            await cdp.send('Performance.enable');
            const { metrics } = await cdp.send('Performance.getMetrics');
            const metric = (name) => metrics.find((m) => m.name === name)?.value ?? NaN;
            row('tab JS heap used / total', `${mb(metric('JSHeapUsedSize'))} / ${mb(metric('JSHeapTotalSize'))}`, '< 150 MB');
            row('tab DOM nodes', String(metric('Nodes')));
        } catch (error) {
            row('timeline in the window', `not measured: ${String(error.message ?? error).split('\n')[0]}`, '< 300 ms');
        }
        const processes = chromiumProcesses();
        const renderer = Math.max(0, ...processes.filter((p) => p.renderer).map((p) => p.rss));
        row('renderer process RSS (largest)', mb(renderer), '< 150 MB');
        row('all chromium processes RSS', `${mb(processes.reduce((a, p) => a + p.rss, 0))} in ${processes.length} processes`);

        if (changedName) {
            try {
                await page.goto('about:blank');
                const started = performance.now();
                await page.goto(`${daemon.origin}/#/folder/${largeID}/compare?from=${encodeURIComponent(large.from)}&to=${encodeURIComponent(large.to)}`);
                const name = changedName.slice(changedName.lastIndexOf('/') + 1);
                await page.getByText(name).first().waitFor({ timeout: uiTimeout });
                row('compare two moments in the window', ms(performance.now() - started), '< 1 s');
            } catch (error) {
                row('compare two moments in the window', `not measured: ${String(error.message ?? error).split('\n')[0]}`, '< 1 s');
            }
        }
    } finally {
        await window?.closeBrowser();
        await daemon.close();
        printTable();
    }
}

function printTable() {
    const widths = [0, 1, 2].map((i) => Math.max(...rows.map((r) => r[i].length), ['figure', 'value', 'goal'][i].length));
    const line = (cells) => `| ${cells.map((cell, i) => cell.padEnd(widths[i])).join(' | ')} |`;
    console.log(line(['figure', 'value', 'goal']));
    console.log(line(widths.map((w) => '-'.repeat(w))));
    for (const r of rows) console.log(line(r));
}

await main();
