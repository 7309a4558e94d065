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
  for (let time = 0; time < 2; time++)
    assert.deepEqual((await world.call('/v1/page/claim', { key: PAGE_KEY })).data, { registered: true });
  const file = join(world.home, 'page-key.sha256');
  assert.equal(readFileSync(file, 'utf8').trim(), createHash('sha256').update(PAGE_KEY).digest('hex'));
  assert.equal(statSync(file).mode & 0o777, 0o600);
  assert.equal((await world.call('/v1/page/claim', { key: 7 })).error.code, 'validation_failed');

  for (const headers of [{}, { 'x-kd-page-key': 'x'.repeat(43) }])
    assert.equal((await world.call('/v1/page/token', {}, 'POST', headers)).error.code, 'forbidden');
  // A link that was minted before there was a key is worth nothing afterwards.
  assert.equal(
    (await visit(world, new URL(keyless.data.url).pathname + new URL(keyless.data.url).search)).status,
    403,
  );
  await world.restart();
  assert.equal((await world.call('/v1/page/claim', { key: 'x'.repeat(43) })).error.code, 'conflict');
});

test('a login link works once, sets a strict cookie, and leads nowhere but to this page', async (t) => {
  const world = await World.open(t);
  const link = new URL((await world.mint()).url);
  assert.deepEqual([link.hostname, Number(link.port)], ['127.0.0.1', world.port]);
  const first = await visit(world, `${link.pathname}${link.search}&surface=mac`);
  assert.deepEqual([first.status, first.headers.location], [303, '/']);
  assert.match(
    first.headers['set-cookie'][0],
    /^kd_session=[A-Za-z0-9_-]{43}; Path=\/; HttpOnly; SameSite=Strict$/,
  );
  const again = await visit(world, `${link.pathname}${link.search}&surface=mac`);
  assert.deepEqual([again.status, again.headers['set-cookie']], [403, undefined]);

  const table = [
    ['/?card=c-1', '/?card=c-1'],
    ['/topics/a%20b', '/topics/a%20b'],
    ['https://evil.example/', '/'],
    ['//evil.example', '/'],
    ['/\\evil.example', '/'],
    ['/a\r\nX: y', '/'],
  ];
  for (const [next, location] of table) {
    const fresh = new URL((await world.mint()).url);
    assert.equal(
      (await visit(world, `${fresh.pathname}${fresh.search}&surface=mac&next=${encodeURIComponent(next)}`))
        .headers.location,
      location,
      next,
    );
  }

  const ahead = new URL((await world.mint()).url);
  const path = `${ahead.pathname}${ahead.search}&surface=mac`;
  const looks = [
    ['HEAD', {}],
    ['GET', { 'Sec-Purpose': 'prefetch' }],
    ['GET', { 'Sec-Purpose': 'prefetch;prerender' }],
  ];
  for (const [method, headers] of looks)
    assert.equal(
      (await new Page(world, 'none').raw(method, path, undefined, headers)).headers['set-cookie'],
      undefined,
    );
  assert.equal((await visit(world, path)).status, 303, 'who looks ahead uses nothing up');
});

test('a browser has a host of its own: cookie and token are good there alone, and the cookie brings no token', async (t) => {
  const [world, shell] = await World.loggedIn(t, { KELVADROME_TEST_HOLD_MS: '600000' });
  const link = new URL((await world.mint()).url);
  const onward = new URL(
    (await visit(world, `${link.pathname}${link.search}&surface=browser&next=/receipts`)).headers.location,
  );
  assert.match(onward.host, new RegExp(`^[0-9a-f]{32}\\.localhost:${world.port}$`));
  const enter = (host) => visit(world, onward.pathname + onward.search, { Host: host });
  const [browser, other] = [await world.login('browser'), await world.login('browser')];
  const wrongCookie = new Page(world, 'A'.repeat(43), shell.csrf);
  const noToken = new Page(world, shell.cookie);
  for (const host of [`127.0.0.1:${world.port}`, other.host])
    assert.equal((await enter(host)).status, 403, 'the second link is bound to its host');
  const page = await enter(onward.host);
  assert.match(
    page.headers['set-cookie'][0],
    /^kd_session=[A-Za-z0-9_-]{43}; Path=\/; HttpOnly; SameSite=Strict$/,
  );
  assert.match(page.text, /name="next" content="\/receipts"/);
  assert.equal((await enter(onward.host)).status, 403);

  const id = await world.ask();
  const press = { card_id: id, version: 1, answer: 'Yes' };
  const at = (host) => ({ Host: host, Origin: `http://${host}` });
  const [origin, local] = [`http://${browser.host}`, `127.0.0.1:${world.port}`];
  const table = [
    ['the cookie elsewhere', browser, at(local), 'unauthorized'],
    ['at another browser’s host', browser, at(other.host), 'unauthorized'],
    ['the shell’s cookie here', shell, at(browser.host), 'unauthorized'],
    ['without Origin', browser, { Origin: undefined }, 'forbidden'],
    ['of another port', browser, { Origin: `${origin.replace(/\d+$/, '')}3000` }, 'forbidden'],
    ['of another site', browser, { 'Sec-Fetch-Site': 'same-site' }, 'forbidden'],
    ['without the token', browser, { 'x-kd-csrf': undefined }, 'forbidden'],
    ['with another’s token', browser, { 'x-kd-csrf': other.csrf }, 'forbidden'],
    ['at localhost', shell, at(`localhost:${world.port}`), 'forbidden'],
    ['a cookie of nobody', wrongCookie, {}, 'unauthorized'],
    ['the shell’s cookie alone', noToken, {}, 'forbidden'],
    ['the shell’s cookie, another’s token', shell, { 'x-kd-csrf': other.csrf }, 'forbidden'],
    ['of a site', shell, { Origin: 'https://evil.example' }, 'forbidden'],
    ['of no site', shell, { Origin: 'null' }, 'forbidden'],
    ['of a port beside', shell, { Origin: `http://127.0.0.1:${world.port + 1}` }, 'forbidden'],
    ['at a name of elsewhere', shell, { Host: `evil.example:${world.port}` }, 'forbidden'],
    ['at no port', shell, { Host: '127.0.0.1' }, 'forbidden'],
  ];
  for (const [name, from, headers, code] of table)
    assert.equal((await from.post('/v1/cards/answer', press, headers)).error?.code, code, name);
  const me = await browser.raw('GET', '/v1/page/me', undefined, { 'x-kd-csrf': undefined });
  assert.deepEqual([me.status, me.json.error.code, me.text.includes(browser.csrf)], [403, 'no_token', false]);
  assert.match(me.json.error.message, /Open the page from Kelvadrome again/);
  for (const path of ['/v1/deliver/claim', '/v1/deliver/report', '/v1/live/hosts'])
    assert.equal((await browser.post(path)).error.code, 'forbidden', path);
  assert.equal((await world.card(id)).version, 1);
  assert.equal(
    (await browser.post('/v1/cards/answer', press, { 'Sec-Fetch-Site': 'same-origin' })).status,
    200,
  );
  const own = { ...press, card_id: await world.ask() };
  assert.equal((await shell.post('/v1/cards/answer', own, { Origin: `http://${local}` })).ok, true);
});

test('an answer pressed in a browser is delivered by the shell that opened it, and refused when that is gone', async (t) => {
  const [world, shell] = await World.loggedIn(t);
  const browser = await world.login('browser');
  const id = await world.ask({ risk: 'high' });
  await browser.confirm({ card_id: id, version: 1, answer: 'Yes' });
  const job = await shell.claimOne();
  assert.deepEqual(
    [job.card_id, job.presence],
    [id, createHash('sha256').update(shell.cookie).digest('hex').slice(0, 32)],
  );
  await world.advance(60);
  const late = { card_id: await world.ask(), version: 1, answer: 'Yes' };
  const refused = await browser.post('/v1/cards/answer', late);
  assert.deepEqual([refused.status, refused.error.code], [409, 'conflict']);
  assert.match(refused.error.message, /does not run/);
  await shell.ok('/v1/cards/list');
  await browser.ok('/v1/cards/answer', late);
});

test('sessions end by their age, by being ended, and with the page key', async (t) => {
  const [world, shell] = await World.loggedIn(t);
  const browser = await world.login('browser');
  const rows = async (page = shell) => (await page.ok('/v1/page/sessions')).sessions;
  assert.deepEqual(
    (await rows()).map((row) => [row.surface, row.current, row.pid]),
    [
      ['browser', false, undefined],
      ['mac', true, process.pid],
    ],
  );
  const events = await new Promise((opened) =>
    request(
      {
        host: '127.0.0.1',
        port: world.port,
        path: '/v1/stream',
        headers: { Host: browser.host, Cookie: `kd_session=${browser.cookie}` },
      },
      opened,
    ).end(),
  );
  const end = async (page, row) => page.ok('/v1/page/sessions/end', { session: row.session });
  await end(shell, (await rows())[0]);
  await new Promise((closed) => events.on('close', closed).resume());
  assert.equal((await browser.post('/v1/cards/list')).error.code, 'unauthorized');

  const old = await world.login('browser');
  for (let count = 0; count < 62; count++) await world.login('browser');
  assert.deepEqual([(await rows()).length, (await rows()).at(-1).surface], [64, 'mac']);
  await world.login('browser');
  assert.deepEqual(
    [(await rows()).length, (await rows()).at(-1).surface],
    [64, 'mac'],
    'of too many, the oldest of a browser goes',
  );
  assert.equal((await old.post('/v1/cards/list')).error.code, 'unauthorized');

  const aging = await world.login('browser');
  for (let hour = 0; hour < 12; hour++) {
    assert.equal((await aging.post('/v1/cards/list')).ok, true);
    await world.advance(3600);
  }
  assert.equal((await aging.post('/v1/cards/list')).error.code, 'unauthorized');
  for (let day = 0; day < 30; day++) {
    assert.equal((await shell.post('/v1/cards/list')).ok, true, `day ${day}`);
    await world.advance(86_400);
  }
  assert.equal((await shell.post('/v1/cards/list')).error.code, 'unauthorized');

  const last = await world.login();
  const key = await world.ok('/v1/page/key');
  assert.deepEqual([key.state, key.sessions.map((row) => row.pid)], ['registered', [process.pid]]);
  const reset = async (token) => (await world.call('/v1/page/key/reset', { reset: token })).error?.code;
  assert.equal(await reset('x'), 'conflict', 'only after a look');
  const { reset: token } = await world.ok('/v1/page/key');
  assert.deepEqual([await reset(token), await reset(token)], [undefined, 'conflict']);
  assert.equal((await last.post('/v1/cards/list')).error.code, 'unauthorized');
  assert.equal((await world.receipts())[0].action, 'page.key_reset');
  assert.deepEqual((await world.call('/v1/page/claim', { key: 'y'.repeat(43) })).data, { registered: true });
});

test('what an agent could misuse is not offered on its side of the door', async (t) => {
  const [world, page] = await World.loggedIn(t, { KELVADROME_TEST: '' });
  for (const path of [
    'cards/answer',
    'page/cancel',
    'page/dismiss',
    'deliver/claim',
    'deliver/report',
    'live/hosts',
  ])
    assert.equal((await world.call(`/v1/${path}`)).error.code, 'forbidden', path);
  for (const path of ['/v1/ask', '/v1/ask/wait', '/v1/page/token', '/v1/page/claim'])
    assert.equal((await page.post(path)).error.code, 'forbidden', path);
});

/** A GET whose path goes out as it stands; URL parsing would tidy it up first. */
const rawGet = (world, path, cookie) =>
  new Promise((done) =>
    request(
      { host: '127.0.0.1', port: world.port, path, headers: { Cookie: `kd_session=${cookie}` } },
      (res) => {
        let text = '';
        res
          .on('data', (piece) => {
            text += piece;
          })
          .on('end', () => done({ status: res.statusCode, headers: res.headers, text }));
      },
    ).end(),
  );

test('the page is served with a strict policy, only to a session, and nothing beside it', async (t) => {
  const [world, page] = await World.loggedIn(t);
  for (const path of ['/', '/topics/x', '/onboarding', '/app.js', '/css/base.css', '/shared/agents.js']) {
    assert.equal((await visit(world, path)).status, 401, path);
    const reply = await page.raw('GET', path);
    assert.equal(reply.status, 200, path);
    assert.match(reply.headers['content-security-policy'], /default-src 'none'; script-src 'self';/);
  }
  for (const path of [
    '/nope',
    '/../package.json',
    '/%2e%2e/%2e%2e/package.json',
    '/..%2f..%2fsrc/store.mjs',
    '/shared/..%2fsrc/store.mjs',
    '/.hidden.js',
    '/app.js%00.html',
    '/%ff.js',
  ]) {
    assert.equal((await rawGet(world, path, page.cookie)).status, 404, path);
  }

  const root = join(world.home, 'web');
  mkdirSync(root);
  writeFileSync(join(root, 'inside.js'), 'page');
  symlinkSync(join(world.home, 'page-key.sha256'), join(root, 'link.js'));
  await world.restart({}, ['--static', root]);
  const again = await world.login();
  assert.deepEqual(
    [(await again.raw('GET', '/inside.js')).text, (await again.raw('GET', '/link.js')).status],
    ['page', 404],
  );
});
