// Every refusal of the window's security rules, over real HTTP to a real daemon, and in a real
// browser for the one that matters most there: a script inside an old version never runs.
import assert from 'node:assert/strict';
import http from 'node:http';
import { after, before, test } from 'node:test';

import { openWindow, rawRequest, sessionCookieOf, startDaemon, testTimeout } from './harness.mjs';

// Old versions a stranger could have put in the folder: each tries to run a script that
// leaves a global, asks the server for /pwned/..., and opens a dialog.
const payloadScript = "top.__vosklinPwned = 'ran'; fetch('/pwned/script').catch(() => {}); alert('pwned')";
const evilSvg = `<svg xmlns="http://www.w3.org/2000/svg" width="40" height="30" onload="fetch('/pwned/onload')">
<rect width="40" height="30" fill="#c00"/><script>${payloadScript}</script></svg>\n`;
const evilHtml = `<!doctype html><html><body><h1>old page</h1><script>${payloadScript}</script></body></html>\n`;

let daemon;
let cookie; // a logged-in session's Cookie header
const ids = {}; // version and file ids of the hostile files

before(async () => {
    daemon = await startDaemon({ files: { 'drawing.svg': evilSvg, 'page.html': evilHtml, 'notes.txt': 'plain\n' } });
    // Make the hostile versions old ones: the live files change after them.
    await daemon.settle();
    await daemon.writeFile('drawing.svg', '<svg xmlns="http://www.w3.org/2000/svg" width="40" height="30"/>\n');
    await daemon.writeFile('page.html', '<!doctype html><p>new</p>\n');
    await daemon.settle();
    for (const [key, path] of [['svg', 'drawing.svg'], ['html', 'page.html'], ['text', 'notes.txt']]) {
        const history = await daemon.versionsOf(path);
        ids[key] = { version: history.versions.at(-1).id, file: history.file.id };
    }
    assert.notEqual(ids.svg.version, (await daemon.versionsOf('drawing.svg')).versions[0].id, 'the SVG has a newer version');
    cookie = await daemon.sessionCookie();
}, { timeout: testTimeout });
after(() => daemon?.close());

const request = (method, path, options) => rawRequest(daemon.port, method, path, options);
const json = { 'Content-Type': 'application/json' };
const withCookie = () => ({ Cookie: cookie, 'X-Vosklin-Request': '1', ...json });
const withToken = () => ({ Authorization: `Bearer ${daemon.token}`, ...json });
const eventStream = (headers) => request('GET', '/v1/events', { headers, headersOnly: true });

// The routes a rule covers, each as a function of the headers to send.
const routes = {
    'POST /v1/status': (headers) => request('POST', '/v1/status', { headers, body: {} }),
    'GET /v1/events': eventStream,
    'GET /v1/payload': (headers) => request('GET', `/v1/payload/${ids.text.version}`, { headers }),
    'GET /v1/live': (headers) => request('GET', `/v1/live/${ids.text.file}`, { headers }),
};

test('the routes answer a logged-in browser and a token holder (what the refusals below are measured against)', { timeout: testTimeout }, async () => {
    for (const [route, send] of Object.entries(routes)) {
        assert.equal((await send(withCookie())).status, 200, `${route} with the session`);
        assert.equal((await send(withToken())).status, 200, `${route} with the token`);
        assert.equal((await send({ ...withCookie(), 'Sec-Fetch-Site': 'same-origin' })).status, 200, `${route} same-origin`);
    }
    assert.equal((await request('GET', `/v1/payload/${ids.text.version}`, { headers: withCookie() })).body, 'plain\n');
});

test('a login code works once; a used, unknown or empty code is refused', { timeout: testTimeout }, async () => {
    const url = new URL(await daemon.loginUrl());
    const first = await request('GET', url.pathname + url.search);
    assert.equal(first.status, 303);
    assert.equal(first.headers.location, '/');
    const session = sessionCookieOf(first);
    assert.ok(session?.value, 'a session cookie is set');
    for (const flag of ['httponly', 'samesite=strict', 'path=/']) assert.ok(session.attributes.has(flag), `cookie has ${flag}: ${[...session.attributes]}`);
    assert.equal((await routes['POST /v1/status']({ ...json, 'X-Vosklin-Request': '1', Cookie: session.cookie })).status, 200);

    for (const path of [url.pathname + url.search, '/login?code=0123456789abcdef', '/login?code=']) {
        const again = await request('GET', path);
        assert.equal(again.status, 403, path);
        assert.equal(sessionCookieOf(again), undefined, `${path} sets no session`);
        assert.match(again.body, /vosklin ui/, `${path} says to run 'vosklin ui' again`);
    }
});

test('requests addressed to another host are refused (DNS rebinding)', { timeout: testTimeout }, async () => {
    const port = daemon.port;
    const code = new URL(await daemon.loginUrl());
    for (const host of [`evil.example:${port}`, 'evil.example', `127.0.0.1:${port + 1}`, `localhost.evil.example:${port}`, `127.0.0.2:${port}`]) {
        for (const [route, send] of Object.entries(routes)) {
            assert.equal((await send({ ...withToken(), Host: host })).status, 403, `${route} token, Host ${host}`);
            assert.equal((await send({ ...withCookie(), Host: host })).status, 403, `${route} cookie, Host ${host}`);
        }
        assert.equal((await request('GET', '/', { headers: { Host: host } })).status, 403, `the page, Host ${host}`);
        assert.equal((await request('GET', code.pathname + code.search, { headers: { Host: host } })).status, 403, `login, Host ${host}`);
    }
    assert.equal((await request('GET', '/', { headers: { Host: `localhost:${port}` } })).status, 200, 'localhost is this host');
});

test("a request another site's page makes is refused (Sec-Fetch-Site)", { timeout: testTimeout }, async () => {
    for (const site of ['cross-site', 'same-site']) {
        for (const [route, send] of Object.entries(routes)) {
            assert.equal((await send({ ...withCookie(), 'Sec-Fetch-Site': site })).status, 403, `${route} cookie, ${site}`);
            assert.equal((await send({ ...withToken(), 'Sec-Fetch-Site': site })).status, 403, `${route} token, ${site}`);
        }
    }
});

test('the API and the event stream need the session cookie or the token', { timeout: testTimeout }, async () => {
    const strangers = { 'nothing': {}, 'a wrong token': { Authorization: 'Bearer 00ff' },
        'a made-up session': { Cookie: 'vosklin_session=00ff00ff00ff', 'X-Vosklin-Request': '1' },
        'the token as a cookie': { Cookie: `vosklin_session=${daemon.token}`, 'X-Vosklin-Request': '1' } };
    for (const [who, headers] of Object.entries(strangers)) {
        for (const [route, send] of Object.entries(routes)) {
            assert.equal((await send({ ...json, ...headers })).status, 401, `${route} with ${who}`);
        }
    }
});

test('a cookie-authenticated POST without X-Vosklin-Request is refused and changes nothing', { timeout: testTimeout }, async () => {
    const headers = { Cookie: cookie, ...json };
    assert.equal((await request('POST', '/v1/status', { headers, body: {} })).status, 403);
    assert.equal((await request('POST', '/v1/star', { headers, body: { version: ids.text.version } })).status, 403);
    const version = (await daemon.versionsOf('notes.txt')).versions.find((v) => v.id === ids.text.version);
    assert.equal(version.isStarred, false, 'the refused star left the version as it was');
});

test('nothing answers a GET on a request, and a GET changes nothing', { timeout: testTimeout }, async () => {
    for (const path of ['/v1/status', `/v1/star?version=${ids.text.version}`, '/v1/snapshot']) {
        for (const headers of [withCookie(), withToken()]) {
            const answer = await request('GET', path, { headers });
            assert.notEqual(answer.status, 200, `GET ${path}`);
            assert.ok(answer.status >= 400 && answer.status < 500, `GET ${path} answered ${answer.status}`);
            assert.doesNotMatch(answer.body, /"isStarred"|"versions"/, `GET ${path} carried no answer`);
        }
    }
    const version = (await daemon.versionsOf('notes.txt')).versions.find((v) => v.id === ids.text.version);
    assert.equal(version.isStarred, false, 'a GET starred nothing');
});

// The directives of a Content-Security-Policy header as {directive: [values]}.
function policyOf(answer) {
    const header = answer.headers['content-security-policy'];
    assert.ok(header, 'a Content-Security-Policy header');
    return Object.fromEntries(header.split(';').map((d) => d.trim()).filter(Boolean).map((d) => {
        const [name, ...values] = d.split(/\s+/);
        return [name.toLowerCase(), values];
    }));
}

function assertNoCors(answer, what) {
    const cors = Object.keys(answer.headers).filter((name) => name.startsWith('access-control-'));
    assert.deepEqual(cors, [], `${what} has no CORS headers`);
}

test('every answer carries a strict policy, nosniff and no CORS headers, even to a foreign Origin', { timeout: testTimeout }, async () => {
    const page = await request('GET', '/');
    const asset = page.body.match(/(?:src|href)="(\/assets\/[^"]+)"/)?.[1] ?? '/assets/app.css';
    const origin = { Origin: 'http://evil.example' };
    const answers = {
        page,
        'page to a foreign Origin': await request('GET', '/', { headers: origin }),
        [`asset ${asset}`]: await request('GET', asset, { headers: origin }),
        'API answer': await request('POST', '/v1/status', { headers: { ...withCookie(), ...origin }, body: {} }),
        'API refusal': await request('POST', '/v1/status', { headers: { ...json, ...origin }, body: {} }),
        'API error': await request('POST', '/v1/star', { headers: { ...withCookie(), ...origin }, body: { version: 999999 } }),
        'login refusal': await request('GET', '/login?code=bad', { headers: origin }),
        'event stream': await eventStream({ ...withCookie(), ...origin }),
        'preflight': await request('OPTIONS', '/v1/status', { headers: { ...origin, 'Access-Control-Request-Method': 'POST',
            'Access-Control-Request-Headers': 'x-vosklin-request, content-type' } }),
    };
    assert.equal(answers[`asset ${asset}`].status, 200, `${asset} is served`);
    assert.equal(answers['event stream'].status, 200);
    assert.match(answers['event stream'].headers['content-type'], /^text\/event-stream/);
    for (const [what, answer] of Object.entries(answers)) {
        const policy = policyOf(answer);
        assert.deepEqual(policy['script-src'], ["'self'"], `${what}: script-src`);
        assert.deepEqual(policy['frame-ancestors'], ["'none'"], `${what}: frame-ancestors`);
        assert.deepEqual(policy['default-src'], ["'self'"], `${what}: default-src`);
        assert.deepEqual(policy['object-src'], ["'none'"], `${what}: object-src`);
        assert.ok(!Object.values(policy).flat().some((v) => /unsafe/.test(v)), `${what}: nothing unsafe allowed`);
        assert.equal(answer.headers['x-content-type-options'], 'nosniff', `${what}: nosniff`);
        assertNoCors(answer, what);
    }
});

test('old versions and live files are bytes in a sandbox: SVG as an image, HTML as a download', { timeout: testTimeout }, async () => {
    const cases = [
        [`/v1/payload/${ids.svg.version}`, 'image/svg+xml', evilSvg],
        [`/v1/payload/${ids.html.version}`, 'application/octet-stream', evilHtml],
        [`/v1/live/${ids.html.file}`, 'application/octet-stream', '<!doctype html><p>new</p>\n'],
        [`/v1/live/${ids.svg.file}`, 'image/svg+xml', '<svg xmlns="http://www.w3.org/2000/svg" width="40" height="30"/>\n'],
    ];
    for (const [path, type, bytes] of cases) {
        const answer = await request('GET', path, { headers: withCookie() });
        assert.equal(answer.status, 200, path);
        assert.equal(answer.headers['content-type'].split(';')[0], type, `${path}: type`);
        assert.deepEqual(policyOf(answer), { sandbox: [] }, `${path}: Content-Security-Policy: sandbox, nothing allowed`);
        assert.match(answer.headers['content-disposition'] ?? '', /^attachment/, `${path}: a navigation downloads`);
        assert.equal(answer.headers['x-content-type-options'], 'nosniff', `${path}: nosniff`);
        assertNoCors(answer, path);
        assert.equal(answer.body, bytes, `${path}: the bytes as kept`);
    }
});

// The same hostile bytes on a throwaway origin with no protection: proves the probe below sees a
// script that runs, so its silence about the window's answers means something.
async function unprotectedServer() {
    const server = http.createServer((req, res) => {
        res.writeHead(200, { 'Content-Type': req.url.endsWith('.svg') ? 'image/svg+xml' : 'text/html' });
        res.end(req.url.endsWith('.svg') ? evilSvg : evilHtml);
    });
    await new Promise((done) => server.listen(0, '127.0.0.1', done));
    return { origin: `http://127.0.0.1:${server.address().port}`, close: () => new Promise((done) => server.close(done)) };
}

test('a script inside an old SVG or HTML version never runs in the browser', { timeout: testTimeout }, async () => {
    const browser = await openWindow(daemon);
    const control = await unprotectedServer();
    try {
        const { page, context, dialogs } = browser;
        const pwned = [];
        context.on('request', (r) => { if (new URL(r.url()).pathname.startsWith('/pwned')) pwned.push(r.url()); });
        const ran = () => page.evaluate(() => window.__vosklinPwned);

        for (const name of ['drawing.svg', 'page.html']) {
            await page.goto(`${control.origin}/${name}`);
            assert.equal(await ran(), 'ran', `the probe sees ${name}'s script run when nothing stops it`);
        }
        assert.deepEqual(dialogs, ['pwned', 'pwned']);
        dialogs.length = 0;
        pwned.length = 0;

        // Opened directly, as a link or a typed URL would: a download, never a document.
        await page.goto(`${daemon.origin}/`);
        for (const path of [`/v1/payload/${ids.svg.version}`, `/v1/payload/${ids.html.version}`, `/v1/live/${ids.html.file}`]) {
            const download = page.waitForEvent('download', { timeout: 10_000 }).catch(() => undefined);
            await page.goto(`${daemon.origin}${path}`).catch(() => {}); // a download aborts the navigation
            assert.ok(await download, `${path} is downloaded, not shown`);
            assert.equal(await ran(), undefined, `${path}: no script ran`);
        }

        // Shown as the window shows an image version: an <img> on the window's own page.
        await page.goto(`${daemon.origin}/`);
        const size = await page.evaluate(async (src) => {
            const image = document.createElement('img');
            image.alt = 'old drawing';
            image.src = src;
            document.body.append(image);
            await image.decode();
            return [image.naturalWidth, image.naturalHeight];
        }, `/v1/payload/${ids.svg.version}`);
        assert.deepEqual(size, [40, 30], 'the old SVG is shown as an image');
        assert.equal(await ran(), undefined, 'the SVG shown as an image ran no script');
        assert.deepEqual(dialogs, [], 'no dialog opened');
        assert.deepEqual(pwned, [], 'no script of a payload made a request');

        // The session cookie is out of any script's reach.
        assert.doesNotMatch(await page.evaluate(() => document.cookie), /vosklin_session/);
        assert.ok((await context.cookies()).some((c) => c.name === 'vosklin_session' && c.httpOnly && c.sameSite === 'Strict'));
    } finally {
        await control.close();
        await browser.closeBrowser();
    }
});
