// The page in a real browser, as people use it: by keyboard and by pointer, while cards come and go and the daemon does, too.
import { after, test as always } from 'node:test';
import assert from 'node:assert/strict';
import { createServer } from 'node:http';
import { writeFileSync } from 'node:fs';
import { join } from 'node:path';
import { World, until } from './world.mjs';
import { closeBrowser, newTab, open, renew, without } from './browser.mjs';

const test = (name, run) => always(name, { skip: without }, run);
after(closeBrowser);
const LONG_HOLD = { KELVADROME_TEST_HOLD_MS: '600000' };
const rows = [
  { question_id: 'lang', text: 'Language?', default: 'Rust' },
  { question_id: 'port', text: 'Port?', default: '8080' },
];
const shows = (locator) => locator.waitFor();
const state = (world, id, wanted) =>
  until(async () => (await world.card(id))?.state === wanted && world.card(id), `the card is ${wanted}`);
const articles = (tab, count, what) =>
  until(async () => (await tab.locator('main article').count()) === count, what);
const focusedCard = (tab) => tab.evaluate(() => document.activeElement.closest('article')?.id);

test('by keyboard alone: choose, undo, write, send, and on to the next question', async (t) => {
  const world = await World.open(t, LONG_HOLD);
  const [first, second] = [
    await world.ask(),
    await world.ask({ title: 'Which name?', options: ['Ada'], menu: false }),
  ];
  const tab = await open(t, world);
  await tab.keyboard.press('j');
  assert.equal(await focusedCard(tab), first);
  await tab.keyboard.press('2');
  assert.equal((await state(world, first, 'held')).answer, 'No');
  await shows(tab.locator(`#${first} .hold`));
  assert.equal(await focusedCard(tab), first);
  await tab.keyboard.press('u');
  await state(world, first, 'open');

  await tab.keyboard.press('j');
  await tab.keyboard.press('t');
  await tab.keyboard.type('  grüße,  世界 ');
  assert.equal(await tab.locator(`#${second} textarea`).inputValue(), '  grüße,  世界 ');
  await tab.keyboard.press('Enter');
  assert.equal((await state(world, second, 'held')).answer, 'grüße, 世界');
  await tab.session.stays(600);
  const job = await tab.session.claimOne();
  await tab.session.report(job.id, 'start');
  await tab.session.report(job.id, 'done');
  await shows(tab.locator('.farewell', { hasText: 'Sent to Claude Code: “grüße, 世界”' }));
  assert.equal(await focusedCard(tab), first);
  await tab.keyboard.press('/');
  await tab.keyboard.type('deploy');
  await tab.keyboard.press('Enter');
  await shows(tab.getByRole('link', { name: /Deploy\?/ }));
  assert.match(await tab.title(), /Search: deploy/);
});

test('by pointer: defaults, a batch, own words that cannot be typed, and a dismissal', async (t) => {
  const world = await World.open(t, LONG_HOLD);
  const batch = { kind: 'batch', options: [], menu: false, rows };
  const [one, two, free] = [
    await world.ask({ ...batch, title: 'First' }),
    await world.ask({ ...batch, title: 'Second' }),
    await world.ask({ title: 'Free', options: [], menu: false }),
  ];
  const tab = await open(t, world);
  await tab.locator(`#${one}`).getByRole('button', { name: 'Accept 2 defaults' }).click();
  assert.deepEqual((await state(world, one, 'held')).answer, { lang: 'Rust', port: '8080' });
  await tab.locator(`#${two}`).getByLabel('Port?').fill('1');
  await tab.locator(`#${two}`).getByRole('button', { name: 'Send these answers' }).click();
  assert.deepEqual((await state(world, two, 'held')).answer, { lang: 'Rust', port: '1' });
  const card = tab.locator(`#${free}`);
  await card.getByRole('textbox').fill('/quit');
  await card.getByRole('button', { name: 'Send' }).click();
  await shows(card.getByText(/the agent would take as a command/));
  assert.equal(await card.getByRole('textbox').inputValue(), '/quit');
  await card.getByRole('button', { name: 'Dismiss…' }).click();
  await card.getByRole('button', { name: 'Keep' }).click();
  await card.getByRole('button', { name: 'Dismiss…' }).click();
  await card.getByRole('button', { name: 'Dismiss', exact: true }).click();
  await world.closed(free);
});

test('a high risk is sent only after its review was confirmed', async (t) => {
  const world = await World.open(t, LONG_HOLD);
  const id = await world.ask({ risk: 'high', kind: 'stop', title: 'Pay?', options: ['Approve', 'Reject'] });
  const tab = await open(t, world);
  const card = tab.locator(`#${id}`);
  await tab.keyboard.press('j');
  await tab.keyboard.press('1');
  await shows(card.getByRole('group', { name: 'Review before it is sent' }));
  assert.match(await card.locator('.review').innerText(), /Claude Code[\s\S]*Pay\?[\s\S]*Approve[\s\S]*undo/);
  assert.equal(await tab.evaluate(() => document.activeElement.textContent), 'Back');
  await tab.keyboard.press('Escape');
  await card.getByRole('button', { name: 'Reject' }).click();
  assert.equal((await world.card(id)).version, 1);
  await card.getByRole('button', { name: 'Confirm and send “Reject”' }).click();
  assert.equal((await state(world, id, 'held')).answer, 'Reject');
  await card.getByRole('button', { name: 'Undo' }).click();
  await shows(card.getByRole('button', { name: 'Approve' }));
});

test('what is being typed survives every repaint and a reload, in its place, with its caret', async (t) => {
  const world = await World.open(t);
  const id = await world.ask({ title: 'Free', options: [], menu: false });
  for (let i = 0; i < 10; i++) await world.askFromAfar();
  const tab = await open(t, world);
  const area = tab.locator(`#${id} textarea`);
  await area.fill('half a sent');
  await area.evaluate((element) => {
    element.mine = true;
    element.setSelectionRange(4, 6);
  });
  const top = () => area.evaluate((element) => Math.round(element.getBoundingClientRect().top));
  const before = await top();
  for (let i = 0; i < 20; i++) await world.askFromAfar({ title: `Urgent ${i}`, risk: 'high' });
  await shows(tab.getByRole('heading', { name: '31 need you' }));
  await articles(tab, 31, 'all cards show');
  assert.deepEqual(
    await tab.evaluate(() => {
      const a = document.activeElement;
      return [a.mine, a.value, a.selectionStart, a.selectionEnd];
    }),
    [true, 'half a sent', 4, 6],
  );
  assert.ok(Math.abs((await top()) - before) <= 1, 'the field stays where it was on screen');
  await tab.reload();
  await shows(area);
  assert.equal(await area.inputValue(), 'half a sent');
});

test('while the daemon is away the page says so, keeps what was typed, and comes back by itself', async (t) => {
  const world = await World.open(t);
  const id = await world.ask({ title: 'Free', options: [], menu: false });
  const tab = await open(t, world);
  await shows(tab.getByText('Connected', { exact: true }));
  await world.kill();
  await shows(tab.getByText('The daemon is away. What you see may be old; what you typed stays here.'));
  const card = tab.locator(`#${id}`);
  await card.getByRole('textbox').fill('written meanwhile');
  await card.getByRole('button', { name: 'Send' }).click();
  await shows(card.getByText(/may or may not have been taken/));
  await world.start();
  await shows(tab.getByText(/This page session has ended/));
  await renew(tab, world);
  await tab.getByRole('button', { name: 'Try now' }).click();
  await tab.locator('#banner').waitFor({ state: 'hidden' });
  await shows(card.getByText('The daemon did not take it.'));
  assert.equal(await card.getByRole('textbox').inputValue(), 'written meanwhile');
  await card.getByRole('button', { name: 'Send' }).click();
  await until(async () => (await world.card(id))?.answer === 'written meanwhile', 'the answer goes out');
});

test('a reply that is lost is looked after, and then said as it is', async (t) => {
  const world = await World.open(t, LONG_HOLD);
  const [taken, refused] = [await world.ask(), await world.ask({ title: 'Free', options: [], menu: false })];
  const tab = await open(t, world);
  let calls = 0;
  await tab.route('**/v1/cards/answer', async (route) => {
    if (++calls === 1) await route.fetch();
    await route.abort('connectionreset');
  });
  const first = tab.locator(`#${taken}`);
  await first.getByRole('button', { name: 'Yes' }).click();
  await shows(first.getByRole('button', { name: 'Undo' }));
  assert.equal((await world.card(taken)).answer, 'Yes');
  await first.getByText(/may or may not/).waitFor({ state: 'hidden' });

  const second = tab.locator(`#${refused}`);
  await second.getByRole('textbox').fill('my words');
  await second.getByRole('button', { name: 'Send' }).click();
  await shows(second.getByText('No answer from the daemon yet: it may or may not have been taken.'));
  await shows(second.getByText('The daemon did not take it. Your words are still here: send it again.'));
  assert.equal(await second.getByRole('textbox').inputValue(), 'my words');
  await tab.unroute('**/v1/cards/answer');
  await second.getByRole('button', { name: 'Send' }).click();
  assert.equal((await state(world, refused, 'held')).answer, 'my words');
});

test('a burst of a thousand questions is read a few times and shown in part', async (t) => {
  const world = await World.open(t);
  const tab = await open(t, world);
  let reads = 0;
  tab.on('request', (request) => {
    if (request.url().endsWith('/v1/inbox')) reads += 1;
  });
  for (let i = 0; i < 50; i++)
    await Promise.all(
      Array.from({ length: 20 }, (_, k) => world.askFromAfar({ title: `Question ${i * 20 + k}` })),
    );
  const last = (await world.cards()).at(-1).id;
  await shows(tab.getByRole('heading', { name: '1000 need you' }));
  assert.ok(reads < 250, `${reads} reads for 2000 events`);
  assert.ok((await tab.locator('main article').count()) <= 80);
  assert.equal(await tab.locator('main article').first().getAttribute('aria-setsize'), '1000');
  assert.equal(await tab.evaluate((id) => window.kelvadrome.navigate(`/?card=${id}`), last), true);
  await until(async () => (await focusedCard(tab)) === last, 'the last one has the focus');
});

test('what cannot be typed, or may have been typed already, is said on the card, and offers nothing to press', async (t) => {
  const world = await World.open(t);
  const { live } = await world.panes.start();
  const elsewhere = await world.ask({
    live: { ...live, host: 'unknown', host_ref: undefined },
    default: 'Yes',
  });
  const kept = await world.ask({ live: undefined, menu: false, title: 'Kept?' });
  const unsure = await world.ask({ default: 'Yes' });
  const tab = await open(t, world);
  const card = (id) => tab.locator(`#${id}`);
  await shows(card(elsewhere).getByText('can be typed into from outside'));
  await shows(card(elsewhere).getByText('It offers: Yes · No'));
  assert.equal(await card(elsewhere).getByRole('button', { name: 'Yes' }).count(), 0);
  await card(elsewhere).focus();
  for (const key of ['1', 'a']) await tab.keyboard.press(key);
  assert.equal((await world.card(elsewhere)).state, 'open');

  await shows(card(kept).getByText('Your answer is kept until Claude Code fetches it.'));
  await card(kept).getByRole('button', { name: 'Yes' }).click();
  await shows(tab.locator('.farewell', { hasText: 'Kept for Claude Code: “Yes”' }));

  await shows(card(unsure).getByText('Suggested'));
  await card(unsure).getByRole('button', { name: 'Yes' }).click();
  const job = await tab.session.claimOne();
  await tab.session.report(job.id, 'start');
  await tab.session.report(job.id, 'failed', { reason: 'the app was closed' });
  await shows(card(unsure).getByText(/Look at its terminal before you answer again/));
  assert.equal(await card(unsure).locator('.suggested').count(), 0);
  await shows(card(unsure).getByRole('button', { name: 'Yes' }));
});

test('the questions of agents that ended stand apart and are dismissed together', async (t) => {
  const world = await World.open(t);
  const child = await world.panes.start();
  const id = await world.ask({ live: child.live });
  const tab = await open(t, world);
  await child.end();
  await world.abandoned(id);
  await shows(tab.getByText('Claude Code has ended. Nobody is left to take an answer.'));
  assert.equal(await tab.locator(`#${id} .options`).count(), 0);
  await shows(tab.getByRole('heading', { name: 'All clear' }));
  await tab.getByRole('button', { name: 'Dismiss all' }).click();
  await world.closed(id);
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
  assert.equal((await world.ok('/v1/onboarding/status')).folder, world.home);
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
  for (const [scope, mode, shown] of [
    ['family', 'expert', 1],
    ['all', 'simple', 2],
  ]) {
    await call('setScope', scope);
    await call('setMode', mode);
    await tab.reload();
    await articles(tab, shown, `the scope ${scope} after a reload`);
    assert.equal(await root('mode'), mode);
  }
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
    await shows(tab.getByText(/bin\/bin\.js ask/));
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

/** Words whose contrast with what they stand on is below 4.5, and controls that have no name or lie out of the window. */
function faults() {
  const rgb = (text) => (text.match(/[\d.]+/g) ?? []).map(Number);
  const light = ([r, g, b]) =>
    [r, g, b]
      .map((c) => (c / 255 <= 0.03928 ? c / 255 / 12.92 : ((c / 255 + 0.055) / 1.055) ** 2.4))
      .reduce((sum, c, i) => sum + c * [0.2126, 0.7152, 0.0722][i], 0);
  const under = (element) => {
    for (let e = element; e; e = e.parentElement) {
      const [r, g, b, a = 1] = rgb(getComputedStyle(e).backgroundColor);
      if (a === 1) return [r, g, b];
    }
    return [255, 255, 255];
  };
  const found = [];
  const walk = document.createTreeWalker(document.body, NodeFilter.SHOW_TEXT);
  while (walk.nextNode()) {
    const element = walk.currentNode.parentElement;
    if (
      !walk.currentNode.data.trim() ||
      !element.checkVisibility() ||
      element.closest('.unseen, .skip, noscript')
    )
      continue;
    const [a, b] = [light(rgb(getComputedStyle(element).color)), light(under(element))].sort((x, y) => y - x);
    if ((a + 0.05) / (b + 0.05) < 4.5)
      found.push(
        `${element.className || element.tagName}: ${walk.currentNode.data.trim()} ${((a + 0.05) / (b + 0.05)).toFixed(2)}`,
      );
  }
  for (const control of document.querySelectorAll('button, a, input, textarea'))
    if (
      control.checkVisibility() &&
      !(control.textContent.trim() || control.labels?.length || control.getAttribute('aria-label'))
    )
      found.push(control.outerHTML);
  if (document.documentElement.scrollWidth > innerWidth)
    found.push(`${document.documentElement.scrollWidth} px wide`);
  return found;
}

test('every section reads well in light, dark and high contrast, narrow or zoomed, and from right to left', async (t) => {
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
  await world.ok('/v1/sessions/touch', { agent: 'codex', status: 'failed', doing: 'Reading' });
  const looks = [
    { colorScheme: 'light' },
    { colorScheme: 'dark' },
    { colorScheme: 'dark', contrast: 'more' },
    { colorScheme: 'light', contrast: 'more', viewport: { width: 320, height: 600 } },
  ];
  for (const look of looks) {
    const tab = await open(t, world, '/?mode=expert', look);
    const paths =
      '/ /topics /topics/Storage /handoffs /skills /receipts /agents /autopilot /search?q=storage /onboarding';
    for (const path of paths.split(' ')) {
      await tab.evaluate((to) => {
        document.querySelector('main > div').left = true;
        window.kelvadrome.navigate(to);
      }, path);
      await tab.waitForFunction(() => !document.querySelector('main > div').left);
      assert.deepEqual(await tab.evaluate(faults), [], `${JSON.stringify(look)} ${path}`);
    }
    await tab.evaluate(() => {
      document.documentElement.dir = 'rtl';
      window.kelvadrome.navigate('/');
    });
    await shows(tab.locator('main article').first());
    assert.deepEqual(await tab.evaluate(faults), [], 'from right to left');
  }
});
