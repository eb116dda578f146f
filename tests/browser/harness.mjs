// The browser tests' harness: a real daemon (`vosklin run` as a child process) with a home
// and a watched folder of its own, a logged-in window in Debian's chromium (through
// `vosklin ui --no-open`, as a person would), and what the tests need around them.
//
//   const w = await startWindow({ files: { 'notes.txt': 'hello' } });
//   t.after(() => w.close());          // always: stops the daemon, removes the temp dirs
//   await w.writeFile('notes.txt', 'hello again'); await w.settle();
//
// startDaemon() is the same without a browser, for tests that speak HTTP themselves.
import { execFile, spawn } from 'node:child_process';
import { existsSync, readFileSync, rmSync } from 'node:fs';
import { mkdir, mkdtemp, readFile, rm, writeFile } from 'node:fs/promises';
import http from 'node:http';
import { tmpdir } from 'node:os';
import { dirname, join, resolve } from 'node:path';
import { fileURLToPath } from 'node:url';
import { chromium } from 'playwright-core';

const here = dirname(fileURLToPath(import.meta.url));
export const repositoryRoot = resolve(here, '../..');
export const binary = resolve(process.env.VOSKLIN_BINARY ?? join(repositoryRoot, 'build/relwithdebinfo/vosklin'));
export const chromiumPath = process.env.VOSKLIN_CHROMIUM ?? '/usr/bin/chromium';
// Every browser test passes this to test(): one stuck page fails its test, not the whole run.
export const testTimeout = 120_000;

// Whatever a crashed test leaves, the test process does not leave a daemon or a temp dir behind.
const live = new Set();
process.on('exit', () => {
    for (const daemon of live) daemon.abandon();
});
// A test run or benchmark stopped from outside still cleans up on its way out.
for (const signal of ['SIGINT', 'SIGTERM']) process.once(signal, () => process.exit(128 + (signal === 'SIGINT' ? 2 : 15)));

function wait(ms) {
    return new Promise((done) => setTimeout(done, ms));
}

// Polls `probe` until it returns something truthy; throws `what` after `timeoutMs`.
export async function waitUntil(probe, what, timeoutMs = 15_000) {
    const deadline = Date.now() + timeoutMs;
    for (;;) {
        const value = await probe();
        if (value) return value;
        if (Date.now() > deadline) throw new Error(`Timed out waiting for ${what}`);
        await wait(50);
    }
}

// `vosklin --home HOME args...`: {status, stdout, stderr}, never throws for a failing command.
export function runVosklin(home, args, { timeoutMs = 60_000 } = {}) {
    return new Promise((done) => {
        execFile(binary, ['--home', home, ...args], { timeout: timeoutMs, maxBuffer: 64 << 20 },
            (error, stdout, stderr) => {
                const status = error ? (typeof error.code === 'number' ? error.code : -1) : 0;
                done({ status, stdout, stderr });
            });
    });
}

// One HTTP request to the daemon with exactly the headers given (Host included: this is how the
// tests pretend to be another site). Resolves {status, headers, body}; with `headersOnly` it
// stops reading once the headers are in (for the event stream, which never ends).
export function rawRequest(port, method, path, { headers = {}, body, headersOnly = false, timeoutMs = 15_000 } = {}) {
    return new Promise((done, fail) => {
        const request = http.request({ host: '127.0.0.1', port, method, path, headers: { Host: `127.0.0.1:${port}`, ...headers },
            setHost: false, agent: false, timeout: timeoutMs }, (response) => {
            const answer = { status: response.statusCode, headers: response.headers, body: '' };
            if (headersOnly) {
                response.destroy();
                done(answer);
                return;
            }
            const chunks = [];
            response.on('data', (chunk) => chunks.push(chunk));
            response.on('end', () => done({ ...answer, body: Buffer.concat(chunks).toString('utf8') }));
            response.on('error', fail);
        });
        request.on('timeout', () => request.destroy(new Error(`${method} ${path}: no answer in ${timeoutMs} ms`)));
        request.on('error', fail);
        if (body !== undefined) request.write(typeof body === 'string' ? body : JSON.stringify(body));
        request.end();
    });
}

// The Set-Cookie of a login answer as {value, attributes: Set of lowercased attributes}.
export function sessionCookieOf(response) {
    const line = [].concat(response.headers['set-cookie'] ?? []).find((c) => c.startsWith('vosklin_session='));
    if (!line) return undefined;
    const [pair, ...attributes] = line.split(';').map((piece) => piece.trim());
    return { cookie: pair, value: pair.slice(pair.indexOf('=') + 1), attributes: new Set(attributes.map((a) => a.toLowerCase())) };
}

// A home with a watched folder (the files given, written before the first scan) and its daemon.
//   files:    { 'relative/path': string | Buffer }
//   settings: more of settings.json (the merge window is one second unless given)
//   noFolder: a home that watches nothing yet (onboarding)
//   manual:   the folder is added in manual mode (kept only by snapshots)
//   prepare:  async (daemon) => ..., run after the folder is added and before the daemon starts
export async function startDaemon({ files = {}, settings = {}, noFolder = false, manual = false, prepare } = {}) {
    if (!existsSync(binary)) throw new Error(`No vosklin binary at ${binary}: build it (scripts/build.sh) or set VOSKLIN_BINARY`);
    const root = await mkdtemp(join(tmpdir(), 'vosklin-browser-'));
    const home = join(root, 'home');
    const folder = join(root, 'folder');
    await mkdir(home);
    await mkdir(folder);
    await writeFile(join(home, 'settings.json'), JSON.stringify({ 'vosklin.mergeWindowSeconds': 1, ...settings }));

    const daemon = new Daemon(root, home, folder);
    live.add(daemon);
    try {
        for (const [path, bytes] of Object.entries(files)) await daemon.writeFile(path, bytes);
        if (!noFolder) await daemon.vosklinOk(['folder', 'add', ...(manual ? ['--manual'] : []), folder]);
        if (prepare) await prepare(daemon);
        await daemon.start();
        return daemon;
    } catch (error) {
        await daemon.close();
        throw error;
    }
}

class Daemon {
    constructor(root, home, folder) {
        this.root = root;
        this.home = home;
        this.folder = folder;
        this.child = undefined;
        this.log = '';
        this.port = 0;
        this.token = '';
        this.closed = false;
    }

    async start() {
        this.child = spawn(binary, ['--home', this.home, 'run'], { stdio: ['ignore', 'pipe', 'pipe'] });
        const keep = (chunk) => { this.log = (this.log + chunk).slice(-20_000); };
        this.child.stdout.on('data', keep);
        this.child.stderr.on('data', keep);
        const exited = new Promise((done) => this.child.once('exit', (code, signal) => done({ code, signal })));
        this.exited = exited;
        const endpoint = await Promise.race([
            waitUntil(() => this.endpoint(), 'the daemon to publish daemon.json'),
            exited.then(({ code, signal }) => { throw new Error(`vosklin run exited (${code ?? signal}):\n${this.log}`); }),
        ]);
        this.port = endpoint.port;
        this.token = readFileSync(join(this.home, 'api-token'), 'utf8').trim();
    }

    // daemon.json once it names our child.
    endpoint() {
        try {
            const endpoint = JSON.parse(readFileSync(join(this.home, 'daemon.json'), 'utf8'));
            return endpoint.pid === this.child.pid && endpoint.port > 0 ? endpoint : undefined;
        } catch {
            return undefined;
        }
    }

    get origin() {
        return `http://127.0.0.1:${this.port}`;
    }

    vosklin(args, options) {
        return runVosklin(this.home, args, options);
    }

    // The command's standard output; throws with its error when it fails.
    async vosklinOk(args, options) {
        const result = await this.vosklin(args, options);
        if (result.status !== 0) throw new Error(`vosklin ${args.join(' ')} failed (${result.status}): ${result.stderr}`);
        return result.stdout;
    }

    async json(args) {
        return JSON.parse(await this.vosklinOk([...args, '--json']));
    }

    // Everything changed before this call has been captured when it returns.
    async settle() {
        await this.vosklinOk(['settle', '--timeout', '30']);
    }

    async writeFile(relativePath, bytes) {
        const path = join(this.folder, relativePath);
        await mkdir(dirname(path), { recursive: true });
        await writeFile(path, bytes);
        return path;
    }

    async readFile(relativePath) {
        return readFile(join(this.folder, relativePath));
    }

    async folderID() {
        const [folder] = await this.json(['folder', 'list']);
        return folder.id;
    }

    // `vosklin versions PATH --json` of a file of the watched folder.
    async versionsOf(relativePath) {
        return this.json(['versions', join(this.folder, relativePath)]);
    }

    // A fresh one-time login URL, as `vosklin ui --no-open` prints it (its only line on stdout).
    async loginUrl() {
        const result = await this.vosklin(['ui', '--no-open']);
        if (result.status !== 0) {
            throw new Error(`'vosklin ui --no-open' failed (${result.status}); the window's serving must be built in:\n${result.stderr}`);
        }
        const lines = result.stdout.split('\n').filter((line) => line !== '');
        const pattern = new RegExp(`^http://127\\.0\\.0\\.1:${this.port}/login\\?code=[^\\s&]+$`);
        if (lines.length !== 1 || !pattern.test(lines[0])) {
            throw new Error(`'vosklin ui --no-open' should print one login URL for port ${this.port}, printed:\n${result.stdout}`);
        }
        return lines[0];
    }

    // A session of its own, logged in over plain HTTP: the Cookie header value ("vosklin_session=...").
    async sessionCookie() {
        const url = new URL(await this.loginUrl());
        const answer = await rawRequest(this.port, 'GET', url.pathname + url.search);
        const cookie = sessionCookieOf(answer);
        if (answer.status !== 303 || !cookie) throw new Error(`The login answered ${answer.status} without a session cookie`);
        return cookie.cookie;
    }

    // One request with the API token, as any non-browser client makes it.
    async api(name, body = {}) {
        const answer = await rawRequest(this.port, 'POST', `/v1/${name}`, {
            headers: { Authorization: `Bearer ${this.token}`, 'Content-Type': 'application/json' }, body });
        if (answer.status !== 200) throw new Error(`/v1/${name}: ${answer.status} ${answer.body}`);
        return JSON.parse(answer.body);
    }

    async close() {
        if (this.closed) return;
        this.closed = true;
        live.delete(this);
        if (this.child && this.child.exitCode === null && this.child.signalCode === null) {
            this.child.kill('SIGTERM');
            const stopped = await Promise.race([this.exited, wait(15_000).then(() => false)]);
            if (!stopped) {
                this.child.kill('SIGKILL');
                await this.exited;
            }
        }
        this.killStray();
        await rm(this.root, { recursive: true, force: true });
    }

    // A daemon of this home that is not our child (one `vosklin ui` started itself) goes too.
    killStray() {
        try {
            const { pid } = JSON.parse(readFileSync(join(this.home, 'daemon.json'), 'utf8'));
            if (pid > 0 && pid !== this.child?.pid) process.kill(pid, 'SIGKILL');
        } catch {
            // no daemon.json, or that process is gone
        }
    }

    // Synchronous last resort when the test process exits without close().
    abandon() {
        try { this.child?.kill('SIGKILL'); } catch { /* gone */ }
        this.killStray();
        rmSync(this.root, { recursive: true, force: true });
    }
}

// Flags that keep chromium off the network this machine does not have, and quiet.
const chromiumArgs = ['--disable-background-networking', '--disable-component-update', '--disable-sync',
    '--no-first-run', '--disable-gpu', '--disable-quic', '--disable-default-apps'];

export async function launchChromium() {
    if (!existsSync(chromiumPath)) throw new Error(`No chromium at ${chromiumPath}: run scripts/install-dependencies.sh`);
    const args = [...chromiumArgs];
    // Chromium's own sandbox refuses to start as root (as on CI); an ordinary user keeps it.
    if (process.getuid?.() === 0) args.push('--no-sandbox');
    return chromium.launch({ executablePath: chromiumPath, args, headless: true });
}

// A daemon as startDaemon() makes it, and a chromium page logged in through `vosklin ui --no-open`,
// showing the window. Besides the daemon's fields and methods: browser, context, page, and what
// the page did that a test may want to assert on: pageErrors (uncaught exceptions), consoleErrors,
// dialogs (alert/confirm/prompt texts; each is dismissed).
export async function startWindow(options = {}) {
    const daemon = await startDaemon(options);
    try {
        return await openWindow(daemon, options);
    } catch (error) {
        await daemon.close();
        throw error;
    }
}

// The same window on a daemon the test already has.
export async function openWindow(daemon, { colorScheme = 'light', viewport = { width: 1280, height: 900 } } = {}) {
    const browser = await launchChromium();
    try {
        const context = await browser.newContext({ viewport, acceptDownloads: true, colorScheme });
        const page = await context.newPage();
        const seen = { pageErrors: [], consoleErrors: [], dialogs: [] };
        context.on('page', (other) => watch(other, seen));
        watch(page, seen);
        const loginUrl = await daemon.loginUrl();
        await page.goto(loginUrl);
        if (page.url() !== `${daemon.origin}/`) throw new Error(`The login ${loginUrl} led to ${page.url()}, not the window`);
        return windowOf(daemon, browser, context, page, seen);
    } catch (error) {
        await browser.close().catch(() => {});
        throw error;
    }
}

function watch(page, seen) {
    page.on('pageerror', (error) => seen.pageErrors.push(String(error)));
    page.on('console', (message) => { if (message.type() === 'error') seen.consoleErrors.push(message.text()); });
    page.on('dialog', (dialog) => {
        seen.dialogs.push(dialog.message());
        dialog.dismiss().catch(() => {});
    });
}

// The window reads through to its daemon (home, folder, settle(), ...); closeBrowser() leaves the
// daemon running for a test that shares one, close() stops both.
function windowOf(daemon, browser, context, page, seen) {
    return Object.assign(Object.create(daemon), seen, {
        browser,
        context,
        page,
        // Where the window shows `hash` (a route such as '#/folder/ID').
        async open(hash) {
            await page.goto(`${daemon.origin}/${hash}`);
        },
        async closeBrowser() {
            await browser.close().catch(() => {});
        },
        async close() {
            await browser.close().catch(() => {});
            await daemon.close();
        },
    });
}

// axe-core's serious and critical violations on what the page shows now, as
// [{id, impact, help, targets}] (empty when there are none).
let axeSource;
export async function axeCheck(page, { exclude = [] } = {}) {
    axeSource ??= await readFile(join(here, 'node_modules/axe-core/axe.min.js'), 'utf8');
    // The window's Content-Security-Policy refuses inline scripts, so addScriptTag({content}) would be
    // blocked. The DevTools protocol's evaluation is not a page script and is not subject to it, so
    // axe goes in that way; the page's own policy stays in force for everything else.
    if (!(await page.evaluate(() => typeof window.axe === 'object'))) {
        await page.evaluate(`${axeSource}\n;void 0`);
    }
    const violations = await page.evaluate(async (excluded) => {
        const context = excluded.length ? { include: [document], exclude: excluded.map((selector) => [selector]) } : document;
        const results = await window.axe.run(context, { resultTypes: ['violations'] });
        return results.violations.map((v) => ({ id: v.id, impact: v.impact, help: v.help,
            targets: v.nodes.map((node) => node.target.join(' ')) }));
    }, exclude);
    return violations.filter((v) => v.impact === 'serious' || v.impact === 'critical');
}

// A readable message for an assertion on axeCheck's answer.
export function describeViolations(violations) {
    return violations.map((v) => `${v.impact} ${v.id}: ${v.help}\n    ${v.targets.slice(0, 5).join('\n    ')}`).join('\n');
}
