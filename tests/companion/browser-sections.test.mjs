// The sections of the page, its way into the shell and into browsers, and how it reads, in a real browser.
import { after, test as always } from 'node:test';
import assert from 'node:assert/strict';
import { execFile } from 'node:child_process';
import { createServer } from 'node:http';
import { writeFileSync } from 'node:fs';
import { join } from 'node:path';
import { promisify } from 'node:util';
import { tokens } from '../../scripts/make-design.mjs';
import { World, until } from './world.mjs';
import { articles, closeBrowser, focusedCard, LONG_HOLD, newTab, open, shows, without } from './browser.mjs';
import { faultsOf } from './faults.mjs';

const test = (name, run) => always(name, { skip: without }, run);
after(closeBrowser);

test('receipts read as history, are filtered by text, agent and day, and lead to their question', async (t) => {
  const [world, page] = await World.loggedIn(t);
  const { id, job } = await world.answered(page, { title: 'Rotate "all" keys?' });
  await page.report(job.id, 'start');
  await page.report(job.id, 'refused', { reason: 'the pane shows "less"' });
  await world.reopened(id);
  const other = await world.askFromAfar({ agent: 'codex', title: 'Which name?' });
  await page.ok('/v1/page/dismiss', { card_id: other, version: 1 });
  const tab = await open(t, world, '/receipts');
  const lines = tab.locator('.receipt');
  await shows(lines.filter({ hasText: 'Dismissed without an answer, by you in Kelvadrome' }));
  const refused = lines.filter({ hasText: 'Not delivered to Claude Code' });
  await shows(refused.getByText('the pane shows “less”'));
  assert.doesNotMatch(await lines.last().innerText(), /Undo within/);
  await tab.getByLabel('Text of receipts').fill('which name');
  await until(async () => (await lines.count()) === 1, 'one holds the text');
  await tab.getByLabel('Text of receipts').fill('');
  await tab.getByLabel('Agent').selectOption('claude');
  await until(async () => (await lines.filter({ hasText: 'Which name?' }).count()) === 0, 'one agent');
  await tab.getByLabel('To', { exact: true }).fill('2020-01-01');
  await shows(tab.getByText('Nothing found'));
  await tab.getByLabel('To', { exact: true }).fill('');
  await refused.getByRole('link').click();
  await until(async () => (await focusedCard(tab)) === id, 'its question shows');
});

test('search finds while one types, answers with their dates too, and Escape leaves it', async (t) => {
  const world = await World.open(t);
  const id = await world.askFromAfar({ title: 'Deploy the shop?' });
  await world.askFromAfar({ title: 'Which shop first?' });
  const tab = await open(t, world, '/topics');
  await tab.session.press(id);
  await world.ok('/v1/ask/wait', { card_id: id, wait_ms: 20_000 });
  await tab.keyboard.press('/');
  await tab.keyboard.type('shop');
  const hit = tab.getByRole('link', { name: /Deploy the shop\?/ });
  await shows(hit);
  assert.match(await hit.innerText(), /“Yes”[\s\S]*\d:\d\d/);
  await shows(tab.getByRole('link', { name: /Which shop first\?/ }));
  assert.match(await tab.title(), /Search: shop/);
  await tab.keyboard.type(' first');
  await hit.waitFor({ state: 'detached' });
  await tab.keyboard.press('Escape');
  await shows(tab.getByRole('heading', { name: 'Topics' }));
  assert.equal(await tab.getByLabel('Search').inputValue(), '');
});

test('agents of one name are told apart, lead to their own questions, and have their terminal shown', async (t) => {
  const world = await World.open(t);
  const panes = [await world.panes.start(), await world.panes.start()];
  const [first] = [
    await world.ask({ title: 'Mine?', live: { ...panes[0].live, cwd: '/home/user/shop' } }),
    await world.ask({ title: 'Other?', live: { ...panes[1].live, cwd: '/home/user/api' } }),
  ];
  const tab = await open(t, world, '/agents');
  const mine = tab.locator('.agent', { hasText: 'shop' });
  await shows(mine.getByText('1 question'));
  await mine.getByRole('button', { name: /^Show the terminal of Claude Code, .*shop/ }).click();
  const job = await tab.session.claimOne();
  assert.deepEqual([job.type, job.pid], ['focus', panes[0].pid]);
  await tab.session.report(job.id, 'start');
  await tab.session.report(job.id, 'failed', { reason: 'the window is on another desk' });
  await shows(tab.getByText('Claude Code: the window is on another desk'));
  await mine.getByRole('link', { name: 'Claude Code' }).click();
  await articles(tab, 1, 'only its own question');
  await shows(tab.locator(`#${first}`));
  await tab.getByRole('link', { name: 'Show all' }).click();
  await articles(tab, 2, 'all again');
});

test('the command of the handoffs section works as it stands', async (t) => {
  const world = await World.open(t);
  const tab = await open(t, world, '/handoffs');
  const command = await tab.locator('.command code').innerText();
  const run = promisify(execFile)('/bin/sh', ['-c', command], { env: world.env, cwd: world.home });
  run.child.stdin.end();
  await shows(tab.getByRole('heading', { name: 'Hand the release notes to Codex?' }));
  const [{ id }] = await world.cards();
  await tab.session.ok('/v1/page/dismiss', { card_id: id, version: 1 });
  await run.catch(() => {}); // it may say that there was no answer
});

test('the shell steers the page, and hears of what the page does', async (t) => {
  const world = await World.open(t);
  const mine = await world.ask({ topic: 'Home', scope: 'family', title: 'Family matter?' });
  await world.ask({ title: 'Other matter?' });
  const tab = await open(t, world, '/?shell=native', { shell: true });
  const call = (name, value) =>
    tab.evaluate(([method, given]) => window.kelvadrome[method](given), [name, value]);
  const root = (key) => tab.evaluate((name) => document.documentElement.dataset[name], key);
  assert.equal(await tab.locator('#chrome').isVisible(), false);
  for (const [given, theme] of [
    ['dark', 'dark'],
    ['light', 'light'],
    ['system', 'light'],
  ]) {
    assert.equal(await call('setTheme', given), true);
    assert.equal(await root('theme'), theme);
  }
  assert.equal(await call('setScope', 'family'), true);
  await articles(tab, 1, 'one scope shows');
  await shows(tab.getByText('1 question belongs to another scope.'));
  assert.deepEqual(
    [
      await call('setScope', 'nowhere'),
      await call('navigate', '/nowhere'),
      await call('navigate', 'https://example.org/'),
    ],
    [false, false, false],
  );
  assert.equal(await call('setScope', 'all'), true);
  assert.equal(await call('navigate', `/?card=${mine}`), true);
  await until(async () => (await focusedCard(tab)) === mine, 'the card has the focus');
  assert.equal(await call('search', 'matter & more'), true);
  await shows(tab.getByRole('heading', { name: 'Search: matter & more' }));
  assert.equal(await call('setMode', 'expert'), true);
  await shows(tab.locator('#inspector').getByText('CSRF header on every write'));
  await tab.getByRole('switch', { name: 'Expert mode' }).click();
  await call('folderChosen', world.home);
  await shows(tab.locator('main').getByText(world.home));
  const posted = await tab.bridge();
  assert.deepEqual(
    posted.filter((message) => message.type === 'route').map((message) => message.route),
    ['/', '/', '/search', '/onboarding'],
  );
  assert.deepEqual(
    posted.filter((message) => ['ready', 'mode'].includes(message.type)),
    [{ type: 'ready' }, { type: 'mode', mode: 'simple' }],
  );
  // Loaded again, the page is the one that the shell knows.
  await call('navigate', '/');
  await call('setScope', 'family');
  await call('setMode', 'expert');
  await tab.reload();
  await articles(tab, 1, 'the scope after a reload');
  assert.equal(await root('mode'), 'expert');
});

test('setup goes through its steps, in the shell and in a browser', async (t) => {
  const world = await World.open(t);
  for (const shell of [true, false]) {
    const tab = await open(t, world, `/onboarding?first_run=1${shell ? '&shell=native' : ''}`, { shell });
    if (shell) await tab.getByRole('button', { name: 'Choose a folder…' }).click();
    else {
      await tab.getByRole('textbox', { name: 'Folder' }).fill('/no/such/folder');
      await tab.getByRole('button', { name: 'Use folder' }).click();
      await shows(tab.getByText('That folder is not available.'));
    }
    await tab.getByRole('button', { name: 'Skip for now' }).click();
    await shows(tab.getByText(/kd ask/));
    assert.equal(await tab.locator('.steps .done').count(), 0, 'what was skipped is not ticked');
    await tab.getByRole('button', { name: 'Continue' }).click();
    await tab.getByRole('button', { name: shell ? 'Finish setup' : 'Done' }).click();
    await shows(tab.getByRole('heading', { name: 'All clear' }));
    if (shell)
      assert.deepEqual(
        (await tab.bridge()).filter((message) => message.type !== 'route' && message.type !== 'ready'),
        [
          { type: 'onboarding', step: 'folder', primary_enabled: true },
          { type: 'action', action: 'chooseFolder' },
          { type: 'onboarding', step: 'agents', primary_enabled: true },
          { type: 'onboarding', step: 'answers', primary_enabled: true },
          { type: 'onboarding_done' },
        ],
      );
  }
  assert.equal((await world.ok('/v1/onboarding/status')).completed, true);
});

test('a browser comes in by a link, goes on after a reload, and nobody on another port can use its session', async (t) => {
  const [world, shell] = await World.loggedIn(t);
  const id = await world.ask();
  const tab = await newTab(t);
  const entry = join(world.home, 'open.html');
  writeFileSync(
    entry,
    `<meta http-equiv="refresh" content="0;url=${(await world.mint()).url}&amp;surface=browser&amp;next=/agents">`,
    { mode: 0o600 },
  );
  await tab.goto(`file://${entry}`);
  await shows(tab.getByRole('heading', { name: 'Agents' }));
  const { host, href } = await tab.evaluate(() => ({ host: location.host, href: location.href }));
  assert.match(host, /^[0-9a-f]{32}\.localhost:\d+$/);
  assert.equal(href, `http://${host}/agents`);
  const pages = tab.locator('ul', { hasText: 'This page' });
  assert.match(await pages.innerText(), /A browser[\s\S]*This page[\s\S]*Kelvadrome \(/);

  const seen = [];
  const server = createServer((req, res) => {
    if (req.headers.host.startsWith('127.') || req.headers.host.startsWith('localhost'))
      seen.push(req.headers.cookie);
    res.setHeader('Content-Type', 'text/html');
    res.end('<h1>Development</h1>');
  }).listen(0, '127.0.0.1');
  t.after(() => server.close());
  await until(() => server.listening, 'the development server');
  const development = await tab.context().newPage();
  for (const name of ['127.0.0.1', 'localhost', host.split(':')[0]]) {
    await development.goto(`http://${name}:${server.address().port}/`);
    const reach = (target) =>
      development.evaluate(
        async ([url, body]) => {
          const call = (path, options) =>
            fetch(url + path, { credentials: 'include', ...options }).then(
              (reply) => reply.text(),
              () => 'refused',
            );
          return [await call('/v1/page/me'), await call('/v1/cards/answer', { method: 'POST', body })];
        },
        [target, JSON.stringify({ card_id: id, version: 1, answer: 'Yes' })],
      );
    for (const target of [`http://127.0.0.1:${world.port}`, `http://${host}`])
      assert.deepEqual(await reach(target), ['refused', 'refused'], `${name} reaches ${target}`);
  }
  assert.deepEqual(
    [seen.length > 1, seen.filter(Boolean)],
    [true, []],
    'a development server is not sent the cookie',
  );
  assert.equal((await world.card(id)).version, 1);
  await development.goto(`http://${host}/`);
  await shows(development.getByText('Open the page from Kelvadrome again.').first());

  await tab.reload();
  await shows(pages);
  await tab.evaluate(() => window.kelvadrome.navigate('/'));
  await shell.ok('/v1/cards/list'); // it is still there
  await tab.locator(`#${id}`).getByRole('button', { name: 'Yes' }).click();
  assert.equal((await shell.claimOne()).card_id, id);

  await tab.evaluate(() => window.kelvadrome.navigate('/agents'));
  await tab.getByRole('button', { name: /^End Kelvadrome/ }).click();
  await until(
    async () => (await shell.post('/v1/cards/list')).error?.code === 'unauthorized',
    'the session was ended on the page',
  );
});

const rows = [
  { question_id: 'lang', text: 'Language?', default: 'Rust' },
  { question_id: 'port', text: 'Port?', default: '8080' },
];

test('every section reads well in light, dark and high contrast, wide and narrow, and from right to left', async (t) => {
  const [world, page] = await World.loggedIn(t, LONG_HOLD);
  await world.ask({
    topic: 'Storage',
    body: 'x'.repeat(2000),
    risk: 'high',
    options: ['Y'.repeat(200), 'No'],
  });
  await world.ask({ kind: 'batch', options: [], menu: false, rows, blocking: false });
  await world.ask({ kind: 'handoff_review', risk: 'medium', options: [], menu: false });
  await world.askAndAnswer(page, { default: 'Yes' });
  const put = { card_id: await world.ask({ title: 'Later?' }) };
  await page.ok('/v1/page/snooze', put);
  await page.ok('/v1/page/dismiss', { card_id: await world.ask({ title: 'Never?' }), version: 1 });
  await world.ok('/v1/sessions/touch', { agent: 'codex', status: 'failed', doing: 'Reading' });
  const { contrast, schemes } = tokens();
  const widths = { light: 1400, dark: 360, 'light-contrast': 320, 'dark-contrast': 900 };
  const paths =
    '/ /topics /topics/Storage /handoffs /skills /receipts /agents /autopilot /search?q=storage /onboarding';
  const tab = await open(t, world, '/?mode=expert');
  for (const [index, scheme] of schemes.entries()) {
    await tab.emulateMedia({
      colorScheme: scheme.startsWith('dark') ? 'dark' : 'light',
      contrast: scheme.endsWith('contrast') ? 'more' : 'no-preference',
      reducedMotion: 'reduce',
    });
    await tab.setViewportSize({ width: widths[scheme], height: 700 });
    const asked = { text: contrast.text[index], mark: contrast.mark[index] };
    let least = 21;
    for (const path of [...paths.split(' '), 'rtl /']) {
      await tab.evaluate((to) => {
        document.documentElement.dir = to.startsWith('rtl') ? 'rtl' : 'ltr';
        document.querySelector('main > div').left = true;
        window.kelvadrome.navigate(to.replace('rtl ', ''));
      }, path);
      await tab.waitForFunction(() => document.querySelector('main > div')?.left === undefined);
      await tab.evaluate(() => {
        for (const details of document.querySelectorAll('details')) details.open = true;
      });
      const seen = await tab.evaluate(faultsOf, asked);
      assert.deepEqual(seen.faults, [], `${scheme} ${path}`);
      least = Math.min(least, seen.least);
    }
    t.diagnostic(`${scheme}, ${widths[scheme]} px: the least contrast of a word is ${least.toFixed(2)}`);
  }
});
