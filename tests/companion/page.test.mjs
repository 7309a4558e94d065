// Who gets into the page port, and who may write there.
import { test } from 'node:test';
import assert from 'node:assert/strict';
import { mkdirSync, readFileSync, statSync, symlinkSync, writeFileSync } from 'node:fs';
import { createHash } from 'node:crypto';
import { join } from 'node:path';
import { request } from 'node:http';
import { Page, PAGE_KEY, World } from './world.mjs';

const visit = (world, path, headers = {}) => new Page(world, 'none').raw('GET', path, undefined, headers);

test('the page key is claimed once: its hash is kept, the same key is fine, another is a conflict', async (t) => {
  const world = await World.open(t);
  const keyless = await world.call('/v1/page/token');
  for (let time = 0; time < 2; time++) assert.deepEqual((await world.call('/v1/page/claim', { key: PAGE_KEY })).data, { registered: true });
  const file = join(world.home, 'page-key.sha256');
  assert.equal(readFileSync(file, 'utf8').trim(), createHash('sha256').update(PAGE_KEY).digest('hex'));
  assert.equal(statSync(file).mode & 0o777, 0o600);
  assert.equal((await world.call('/v1/page/claim', { key: 7 })).error.code, 'validation_failed');

  for (const headers of [{}, { 'x-kd-page-key': 'x'.repeat(43) }]) assert.equal((await world.call('/v1/page/token', {}, 'POST', headers)).error.code, 'forbidden');
  // A link that was minted before there was a key is worth nothing afterwards.
  assert.equal((await visit(world, new URL(keyless.data.url).pathname + new URL(keyless.data.url).search)).status, 403);
  await world.restart();
  assert.equal((await world.call('/v1/page/claim', { key: 'x'.repeat(43) })).error.code, 'conflict');
});

test('a login link works once, sets a strict cookie, and leads nowhere but to this page', async (t) => {
  const world = await World.open(t);
  const alone = await world.login('browser');
  const link = new URL((await world.mint()).url);
  assert.deepEqual([link.hostname, Number(link.port)], ['127.0.0.1', world.port]);
  const first = await visit(world, `${link.pathname}${link.search}&surface=mac`);
  assert.deepEqual([first.status, first.headers.location], [303, '/']);
  assert.match(first.headers['set-cookie'][0], /^kd_session=[A-Za-z0-9_-]{43}; Path=\/; HttpOnly; SameSite=Strict$/);
  const again = await visit(world, `${link.pathname}${link.search}&surface=mac`);
  assert.deepEqual([again.status, again.headers['set-cookie']], [403, undefined]);

  const table = [['/?card=c-1', '/?card=c-1'], ['/topics/a%20b', '/topics/a%20b'], ['https://evil.example/', '/'], ['//evil.example', '/'], ['/\\evil.example', '/'], ['/a\r\nX: y', '/']];
  for (const [next, location] of table) {
    const fresh = new URL((await world.mint()).url);
    assert.equal((await visit(world, `${fresh.pathname}${fresh.search}&next=${encodeURIComponent(next)}`)).headers.location, location, next);
  }

  // A browser joins the session of the shell; other surfaces get their own.
  const shell = await world.login('mac');
  const browser = await world.login('browser');
  assert.equal(browser.cookie, shell.cookie);
  for (const other of [alone, await world.login('mac')]) assert.notEqual(other.cookie, shell.cookie);
});

test('a write needs the cookie, the token, and a request of this very page', async (t) => {
  const [world, page] = await World.loggedIn(t);
  const stranger = await world.login();
  const id = await world.ask();
  const body = { card_id: id, version: 1, answer: 'Yes' };
  const wrongCookie = new Page(world, 'A'.repeat(43), page.csrf);
  const table = [
    [wrongCookie, {}, 401, 'unauthorized'], [page, { 'x-kd-csrf': '' }, 403, 'forbidden'], [page, { 'x-kd-csrf': stranger.csrf }, 403, 'forbidden'],
    [page, { Origin: 'https://evil.example' }, 403, 'forbidden'], [page, { Origin: 'null' }, 403, 'forbidden'], [page, { Origin: `http://127.0.0.1:${world.port + 1}` }, 403, 'forbidden'],
    [page, { Host: `evil.example:${world.port}` }, 403, 'forbidden'], [page, { Host: '127.0.0.1' }, 403, 'forbidden'],
  ];
  for (const [from, headers, status, code] of table) {
    const reply = await from.post('/v1/cards/answer', body, headers);
    assert.deepEqual([reply.status, reply.error?.code], [status, code], JSON.stringify(headers));
  }
  assert.equal((await new Page(world, page.cookie).post('/v1/cards/list')).error.code, 'forbidden');
  assert.equal((await world.card(id)).version, 1);
  assert.equal((await page.post('/v1/cards/answer', body, { Origin: `http://localhost:${world.port}`, Host: `localhost:${world.port}` })).ok, true);

  await world.restart();
  assert.equal((await page.post('/v1/cards/list')).error.code, 'unauthorized');
});

test('what an agent could misuse is not offered on its side of the door', async (t) => {
  const [world, page] = await World.loggedIn(t, { KELVADROME_TEST: '' });
  for (const path of ['/v1/cards/answer', '/v1/page/cancel', '/v1/page/dismiss', '/v1/deliver/claim', '/v1/deliver/report', '/v1/live/hosts']) assert.equal((await world.call(path)).error.code, 'forbidden', path);
  for (const path of ['/v1/ask', '/v1/ask/wait', '/v1/page/token', '/v1/page/claim']) assert.equal((await page.post(path)).error.code, 'forbidden', path);
});

/** A GET whose path goes out as it stands; URL parsing would tidy it up first. */
const rawGet = (world, path, cookie) => new Promise((done) => request({ host: '127.0.0.1', port: world.port, path, headers: { Cookie: `kd_session=${cookie}` } }, (res) => {
  let text = '';
  res.on('data', (piece) => { text += piece; }).on('end', () => done({ status: res.statusCode, headers: res.headers, text }));
}).end());

test('the page is served with a strict policy, only to a session, and nothing beside it', async (t) => {
  const [world, page] = await World.loggedIn(t);
  for (const path of ['/', '/topics/x', '/onboarding', '/app.js', '/css/base.css']) {
    assert.equal((await visit(world, path)).status, 401, path);
    const reply = await page.raw('GET', path);
    assert.equal(reply.status, 200, path);
    assert.match(reply.headers['content-security-policy'], /default-src 'none'; script-src 'self';/);
  }
  for (const path of ['/nope', '/../package.json', '/%2e%2e/%2e%2e/package.json', '/..%2f..%2fsrc/store.mjs', '/.hidden.js', '/app.js%00.html', '/%ff.js']) {
    assert.equal((await rawGet(world, path, page.cookie)).status, 404, path);
  }

  const root = join(world.home, 'web');
  mkdirSync(root);
  writeFileSync(join(root, 'inside.js'), 'page');
  symlinkSync(join(world.home, 'page-key.sha256'), join(root, 'link.js'));
  await world.restart({}, ['--static', root]);
  const again = await world.login();
  assert.deepEqual([(await again.raw('GET', '/inside.js')).text, (await again.raw('GET', '/link.js')).status], ['page', 404]);
});
