// The cards of the page in a real browser, as people use them: by keyboard and by pointer, while cards come and go and the
// daemon does, too.
import { after, test as always } from 'node:test';
import assert from 'node:assert/strict';
import { World, until } from './world.mjs';
import {
  articles,
  closeBrowser,
  focusedCard,
  LONG_HOLD,
  open,
  renew,
  said,
  shows,
  without,
} from './browser.mjs';

const test = (name, run) => always(name, { skip: without }, run);
after(closeBrowser);
const rows = [
  { question_id: 'lang', text: 'Language?', default: 'Rust' },
  { question_id: 'port', text: 'Port?', default: '8080' },
];
const free = { options: [], menu: false };
const state = (world, id, wanted) =>
  until(async () => (await world.card(id))?.state === wanted && world.card(id), `the card is ${wanted}`);
/** Has the answer that is on hold delivered. */
async function deliver({ session }) {
  await session.stays(600);
  const job = await session.claimOne();
  await session.report(job.id, 'start');
  await session.report(job.id, 'done');
}

test('by keyboard alone: choose, undo, write, send, put off, wake and dismiss', async (t) => {
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
  await deliver(tab);
  await said(tab, 'Sent to Claude Code: “grüße, 世界”');
  assert.equal(await focusedCard(tab), first);
  await tab.keyboard.press('z');
  await shows(tab.getByRole('heading', { name: 'All clear' }));
  await tab.getByText('1 snooze').first().waitFor();
  await tab.getByText('1 snoozed question').click();
  await tab.getByRole('button', { name: 'Wake: Deploy?' }).click();
  await shows(tab.locator(`#${first} .options`));
  await tab.keyboard.press('j');
  await tab.keyboard.press('x');
  await tab.keyboard.press('Tab');
  await tab.keyboard.press('Enter');
  await world.closed(first);
  await said(tab, 'Dismissed without an answer');
});

test('by pointer: defaults, a batch, own words that cannot be typed, and a dismissal', async (t) => {
  const world = await World.open(t, LONG_HOLD);
  const batch = { kind: 'batch', ...free, rows };
  const [one, two, own] = [
    await world.ask({ ...batch, title: 'First' }),
    await world.ask({ ...batch, title: 'Second' }),
    await world.ask({ title: 'Free', ...free }),
  ];
  const tab = await open(t, world);
  await tab.locator(`#${one}`).getByRole('button', { name: 'Accept 2 defaults' }).click();
  assert.deepEqual((await state(world, one, 'held')).answer, { lang: 'Rust', port: '8080' });
  await tab.locator(`#${two}`).getByLabel('Port?').fill('1');
  await tab.locator(`#${two}`).getByRole('button', { name: 'Send these answers' }).click();
  assert.deepEqual((await state(world, two, 'held')).answer, { lang: 'Rust', port: '1' });
  const card = tab.locator(`#${own}`);
  await card.getByRole('textbox').fill('/quit');
  await card.getByRole('button', { name: 'Send' }).click();
  await shows(card.getByText(/the agent would take as a command/));
  assert.equal(await card.getByRole('textbox').inputValue(), '/quit');
  await card.getByRole('button', { name: 'Dismiss…' }).click();
  await card.getByRole('button', { name: 'Dismiss', exact: true }).click();
  await world.closed(own);
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
  const id = await world.ask({ title: 'Free', ...free });
  for (let i = 0; i < 6; i++) await world.askFromAfar();
  const tab = await open(t, world);
  const area = tab.locator(`#${id} textarea`);
  await area.fill('half a sent');
  await area.evaluate((element) => {
    element.mine = true;
    element.setSelectionRange(4, 6);
  });
  const top = () => area.evaluate((element) => Math.round(element.getBoundingClientRect().top));
  const before = await top();
  for (let i = 0; i < 8; i++) await world.askFromAfar({ title: `Urgent ${i}`, risk: 'high' });
  await shows(tab.getByRole('heading', { name: '15 need you' }));
  await articles(tab, 15, 'all cards show');
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
  const id = await world.ask({ title: 'Free', ...free });
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

test('a daemon that hangs: the card says what is known of the answer until it is known, also after a reload', async (t) => {
  const world = await World.open(t, LONG_HOLD);
  const [taken, refused] = [await world.ask(), await world.ask({ title: 'Free', ...free })];
  const tab = await open(t, world);
  const [first, second] = [tab.locator(`#${taken}`), tab.locator(`#${refused}`)];
  world.child.kill('SIGSTOP');
  await first.getByRole('button', { name: 'Yes' }).click();
  await shows(first.getByText('“Yes” was pressed. The daemon has not said yet whether it has it.'));
  world.child.kill('SIGCONT');
  await shows(first.getByRole('button', { name: 'Undo' }));
  assert.equal((await world.card(taken)).answer, 'Yes');

  await tab.route('**/v1/cards/answer', (route) => route.abort('connectionreset'));
  await second.getByRole('textbox').fill('my words');
  await second.getByRole('button', { name: 'Send' }).click();
  await shows(second.getByText('No answer from the daemon yet: it may or may not have been taken.'));
  await shows(second.getByText('The daemon did not take it. Your words are still here: send it again.'));
  await tab.unroute('**/v1/cards/answer');
  let arrived;
  const pressed = new Promise((done) => {
    arrived = done;
  });
  await tab.route('**/v1/cards/answer', arrived); // and never goes on
  await second.getByRole('button', { name: 'Send' }).click();
  await pressed;
  await tab.reload();
  await shows(second.getByText('“my words” was pressed here. The daemon has not taken it'));
  assert.equal(await second.getByRole('textbox').inputValue(), 'my words');
  await tab.unroute('**/v1/cards/answer');
  await second.getByRole('button', { name: 'Send' }).click();
  assert.equal((await state(world, refused, 'held')).answer, 'my words');
});

test('a question that is answered leaves a line in its place, and nothing moves under the pointer', async (t) => {
  const world = await World.open(t, LONG_HOLD);
  const ids = [];
  for (const title of ['One?', 'Two?', 'Three?']) ids.push(await world.ask({ title }));
  const tab = await open(t, world);
  await tab.locator(`#${ids[0]}`).getByRole('button', { name: 'Yes' }).click();
  await state(world, ids[0], 'held');
  await tab.locator(`#${ids[0]} .hold`).waitFor();
  const third = tab.locator(`#${ids[2]}`).getByRole('button', { name: 'Yes' });
  await third.hover();
  const top = async () => (await third.boundingBox()).y;
  const before = await top();
  const stays = (now) => assert.ok(Math.abs(now - before) <= 1, `moved by ${now - before}`);
  await tab.session.stays(600);
  await shows(tab.locator(`#${ids[0]} .way`));
  stays(await top());
  const job = await tab.session.claimOne();
  for (const outcome of ['start', 'done']) await tab.session.report(job.id, outcome);
  await said(tab, 'Sent to Claude Code: “Yes”');
  await articles(tab, 2, 'the answered one is gone');
  stays(await top());
  await tab.waitForFunction(() => document.querySelector('.farewell[data-over]'));
  stays(await top());
  await tab.locator('main h1').hover();
  await tab.locator('.farewell').waitFor({ state: 'detached' });
});

test('a burst of hundreds of questions is read a few times and shown in part', async (t) => {
  const world = await World.open(t);
  const tab = await open(t, world);
  let reads = 0;
  tab.on('request', (request) => {
    if (request.url().endsWith('/v1/inbox')) reads += 1;
  });
  for (let i = 0; i < 20; i++)
    await Promise.all(
      Array.from({ length: 20 }, (_, k) => world.askFromAfar({ title: `Question ${i * 20 + k}` })),
    );
  const last = (await world.cards()).at(-1).id;
  await shows(tab.getByRole('heading', { name: '400 need you' }));
  assert.ok(reads < 200, `${reads} reads for 800 events`);
  assert.ok((await tab.locator('main article').count()) <= 80);
  assert.equal(await tab.locator('main article').first().getAttribute('aria-setsize'), '400');
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
  await said(tab, 'Kept for Claude Code: “Yes”');

  await shows(card(unsure).getByText('Suggested'));
  await card(unsure).getByRole('button', { name: 'Yes' }).click();
  const job = await tab.session.claimOne();
  await tab.session.report(job.id, 'start');
  await tab.session.report(job.id, 'failed', { reason: 'the app was closed' });
  await shows(card(unsure).getByText(/Look at its terminal before you answer again/));
  await until(
    async () => (await tab.locator('#said').innerText()).includes('the app was closed'),
    'it is told aloud',
  );
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
