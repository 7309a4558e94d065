// What the daemon keeps beside the questions: who is gone, what was reviewed, how far setup is, and the port of last time.
import { test } from 'node:test';
import assert from 'node:assert/strict';
import { once } from 'node:events';
import { createServer } from 'node:net';
import { chmodSync, mkdirSync, readFileSync, writeFileSync } from 'node:fs';
import { join } from 'node:path';
import { World, has, refused, until } from './world.mjs';

test('the question of an agent that ended can no longer be answered, counts no longer, and is dismissed', async (t) => {
  const [world, page] = await World.loggedIn(t);
  const child = await world.panes.start();
  const id = await world.ask({ topic: 'Storage', live: child.live });
  const { id: underWay, job } = await world.answered(page, { live: child.live });
  const [alive, kept] = [await world.ask(), await world.ask({ live: undefined, menu: false })];
  await page.stays(5);
  assert.equal((await world.card(id)).state, 'open');
  await child.end();
  // An answer under way when its agent ends is refused properly first.
  await page.stays(20);
  assert.equal((await world.card(underWay)).state, 'armed');
  await page.report(job.id, 'refused', { reason: 'the agent process ended' });
  assert.equal((await world.abandoned(underWay)).refs.last_refusal, 'the agent process ended');
  const card = await world.abandoned(id);
  assert.equal(card.version, 2);
  refused(await page.press(id, 'Yes', 2), 'stale', /Claude Code has ended/);
  assert.equal((await world.ok('/v1/board')).topics[0].open_cards, 0);
  assert.equal((await world.actions())[0], 'card.agent_gone');
  assert.equal((await world.ok('/v1/inbox')).counts.needs_you, 2);
  await world.restart();
  for (const [one, state] of Object.entries({ [id]: 'gone', [alive]: 'open', [kept]: 'open' }))
    assert.equal((await world.card(one)).state, state);
  await (await world.login()).ok('/v1/page/dismiss', { card_id: id, version: 2 });
  assert.equal(await world.card(id), undefined);
  assert.equal((await world.detail(id)).outcome, 'dismissed');
});

test('a high risk is answered only as it was reviewed', async (t) => {
  const [world, page] = await World.loggedIn(t, { KELVADROME_TEST_HOLD_MS: '' });
  const other = await world.login();
  const id = await world.ask({ risk: 'high' });
  const press = { card_id: id, version: 1, answer: 'Yes' };
  const review = async (body = press, from = page) => (await from.ok('/v1/page/review', body)).review;
  const old = await review();
  await world.advance(601);
  for (const [name, token] of Object.entries({
    'without a review': undefined,
    'an invented one': 'x',
    'of another answer': await review({ ...press, answer: 'No' }),
    'of another page session': await review(press, other),
    'that is too old': old,
  })) {
    const { error } = await page.post('/v1/cards/answer', { ...press, review: token });
    assert.equal(error?.code, 'review_needed', name);
  }
  refused(await page.post('/v1/page/review', { ...press, answer: 'Maybe' }), 'validation_failed');
  refused(await page.post('/v1/page/review', { ...press, version: 2 }), 'stale');

  const shown = await page.ok('/v1/page/review', press);
  assert.deepEqual([shown.answer, shown.hold_s], ['Yes', 5]);
  assert.equal((await page.ok('/v1/cards/answer', { ...press, review: shown.review })).status, 'held');
  await page.ok('/v1/page/cancel', { card_id: id });
  const again = { ...press, version: 3, review: shown.review };
  refused(await page.post('/v1/cards/answer', again), 'review_needed');
});

test('setup tells what is true: the folder, the agents on this machine, and when it is over', async (t) => {
  const world = await World.open(t);
  const [bin, work] = [join(world.home, 'bin'), join(world.home, 'work')];
  mkdirSync(bin);
  mkdirSync(join(work, 'shop/src'), { recursive: true });
  writeFileSync(join(bin, 'aider'), '#!/bin/sh\n');
  writeFileSync(join(bin, 'droid'), 'not executable');
  writeFileSync(join(bin, 'claude'), '#!/bin/sh\n');
  for (const agent of ['aider', 'claude']) chmodSync(join(bin, agent), 0o755);
  const settings = join(world.home, '.claude/settings.json');
  await world.restart({ PATH: bin, HOME: world.home, CLAUDE_CONFIG_DIR: '' });
  const status = () => world.ok('/v1/onboarding/status');
  const first = await status();
  assert.deepEqual([first.completed, first.folder], [false, undefined]);
  const found = Object.fromEntries(first.agents.map((row) => [row.id, row]));
  const install = { state: 'installed', kind: 'path' };
  assert.deepEqual(found.aider, {
    id: 'aider',
    name: 'Aider',
    install,
    path: join(bin, 'aider'),
    asked: false,
  });
  assert.equal(found.droid.install.state, 'missing');

  const page = await world.login();
  const hooks = async () => (await page.ok('/v1/onboarding/hooks')).agents.claude;
  assert.deepEqual(await hooks(), { file: settings, installed: false });
  assert.equal((await world.call('/v1/onboarding/hook-up', { agent: 'claude' })).error.code, 'forbidden');
  refused(await page.post('/v1/onboarding/hook-up', { agent: 'nobody' }), 'validation_failed');
  for (const when of ['now', 'already'])
    assert.match(
      (await page.ok('/v1/onboarding/hook-up', { agent: 'claude' })).result,
      new RegExp(`${when}\\.$`),
    );
  assert.equal((await hooks()).installed, true);
  writeFileSync(settings, '{ broken');
  assert.match((await hooks()).problem, /is no JSON/);
  assert.match(
    (await page.post('/v1/onboarding/hook-up', { agent: 'claude' })).error.message,
    /settings\.json/,
  );
  assert.equal(readFileSync(settings, 'utf8'), '{ broken');

  for (const path of ['work', join(work, 'nope'), join(bin, 'aider')])
    refused(await world.call('/v1/onboarding/folder', { path }), 'validation_failed');
  assert.deepEqual(await world.ok('/v1/onboarding/folder', { path: `${work}/` }), { folder: work });
  for (const [cwd, topic, more] of [
    [join(work, 'shop/src'), 'shop'],
    [work, undefined],
    ['/elsewhere', undefined],
    [join(work, 'shop'), 'Own', { topic: 'Own' }],
  ])
    has(await world.card(await world.ask({ live: { cwd }, menu: false, ...more })), { topic }, cwd);

  assert.equal((await world.call('/v1/onboarding/finish')).error.code, 'forbidden');
  await (await world.login()).ok('/v1/onboarding/finish');
  await world.restart();
  const last = await status();
  assert.deepEqual([last.completed, last.folder], [true, work]);
});

test('a card that is put off is counted and marked as such, and comes back in time, when it is woken or answered', async (t) => {
  const [world, page] = await World.loggedIn(t);
  const [id, other] = [await world.askFromAfar(), await world.askFromAfar()];
  const counts = async () => {
    const { needs_you, snoozed } = (await world.ok('/v1/inbox', { counts_only: true })).counts;
    return [needs_you, snoozed];
  };
  const snooze = (minutes) => page.ok('/v1/page/snooze', { card_id: id, minutes });
  const { card } = await snooze(5);
  assert.deepEqual([card.version, await counts()], [1, [1, 1]]);
  assert.ok(Date.parse(card.snoozed_until) > Date.now() + 290_000);
  await page.ok('/v1/page/wake', { card_id: id });
  assert.deepEqual(await counts(), [2, 0]);
  await snooze(5);
  const events = world.stream();
  await until(() => events.text.includes('hello'), 'the stream is open');
  await world.advance(301);
  await until(() => events.text.includes(id), 'it is told that the card is back');
  assert.equal((await world.card(id)).snoozed_until, undefined);
  await snooze();
  await page.press(id);
  assert.deepEqual(await counts(), [2, 0]);
  refused(await page.post('/v1/page/snooze', { card_id: id }), 'conflict');
  refused(await world.call('/v1/page/snooze', { card_id: other }), 'forbidden');
});

test('the terminal of an agent is brought to the front by the shell, or it is said why not', async (t) => {
  const [world, page] = await World.loggedIn(t);
  const { live } = await world.panes.start();
  const agent = { agent: 'claude', session_id: 's' };
  await world.ok('/v1/sessions/touch', { ...agent, live });
  const [row] = (await world.ok('/v1/agents/status')).sessions;
  assert.deepEqual([row.folder, row.pane], [live.cwd, live.host_ref]);
  const [done, job] = [page.ok('/v1/page/focus', agent), await page.claimOne()];
  const { id, presence, expires_at, ...rest } = job;
  const { cwd, ...where } = live;
  assert.deepEqual(rest, { type: 'focus', ...agent, ...where });
  assert.match(presence, /^[0-9a-f]{32}$/);
  assert.ok(Date.parse(expires_at) > Date.now());
  const other = await world.login();
  assert.equal((await other.post('/v1/deliver/report', { job_id: id, outcome: 'start' })).status, 403);
  assert.deepEqual(await page.report(id, 'start'), { proceed: true });
  assert.equal((await page.report(id, 'start')).proceed, false);
  await page.report(id, 'failed', { reason: 'focus failed' });
  assert.deepEqual(await done, { outcome: 'failed', reason: 'focus failed' });
  for (const [session_id, where, status, words] of [
    ['none', null, 404, /no session "none"/],
    ['far', { pid: process.pid }, 409, /did not say in which terminal/],
    ['window', { ...live, host: 'unknown', host_ref: undefined }, 409, /cannot be brought to the front/],
  ]) {
    if (where) await world.ok('/v1/sessions/touch', { agent: 'claude', session_id, live: where });
    const reply = await page.post('/v1/page/focus', { agent: 'claude', session_id });
    assert.deepEqual([reply.status, words.test(reply.error.message)], [status, true], reply.error.message);
  }
});

test('receipts tell what was answered, to whom, when and by whom, and are found by each of these', async (t) => {
  const [world, page] = await World.loggedIn(t);
  const browser = await world.login('browser');
  const asks = [
    [page, { agent: 'codex', title: 'Name?', options: [], menu: false, topic: 'Shop' }, 'kiosk 100%'],
    [
      browser,
      { agent: 'grok', kind: 'batch', options: [], menu: false, rows: [{ question_id: 'a', text: 'A?' }] },
      { a: 'b' },
    ],
  ];
  for (const [from, ask, answer] of asks) {
    const id = await world.askFromAfar(ask);
    await from.press(id, answer);
    await world.ok('/v1/ask/wait', { card_id: id, wait_ms: 8000 });
    await page.stays(5);
  }
  await world.ok('/v1/ask/withdraw', { card_id: await world.askFromAfar({ title: 'Never mind?' }) });
  const list = async (filter) =>
    (await page.ok('/v1/receipts/list', filter)).receipts.map(({ action, agent, answer, by }) =>
      [action.replace(/.*\./, ''), agent, answer, by].filter(Boolean).join(' '),
    );
  const all = [
    'withdrawn claude agent',
    'handed grok a: b browser',
    'held grok browser',
    'handed codex kiosk 100% app',
    'held codex app',
  ];
  const { receipts } = await page.ok('/v1/receipts/list');
  for (const [filter, expected] of [
    [{}, all],
    [{ agent: 'grok' }, all.slice(1, 3)],
    [{ text: '0%' }, all.slice(3)],
    [{ text: 'SHOP' }, all.slice(3)],
    [{ text: 'never mind' }, all.slice(0, 1)],
    [{ answers: true }, [all[1], all[3]]],
    [{ since: receipts[2].ts }, all.slice(0, 3)],
    [{ since: receipts[2].ts, until: receipts[0].ts }, all.slice(1, 3)],
    [{ before: receipts[1].event_id, limit: 2 }, all.slice(2, 4)],
  ])
    assert.deepEqual(await list(filter), expected, JSON.stringify(filter));
  assert.equal(receipts[3].title, 'Name?');
  assert.equal((await page.post('/v1/receipts/list', { since: 'soon' })).error.code, 'validation_failed');
});

test('the page port of last time is taken again when it is free', async (t) => {
  const world = await World.open(t);
  const { port } = world;
  assert.equal((await world.restart()).port, port);
  await world.kill();
  const other = createServer().listen(port, '127.0.0.1');
  await once(other, 'listening');
  assert.notEqual((await world.start()).port, port);
  other.close();
});
