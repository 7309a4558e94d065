// What the daemon keeps beside the questions: who is gone, what was reviewed, how far setup is, and the port of last time.
import { test } from 'node:test';
import assert from 'node:assert/strict';
import { once } from 'node:events';
import { createServer } from 'node:net';
import { chmodSync, mkdirSync, writeFileSync } from 'node:fs';
import { join } from 'node:path';
import { World } from './world.mjs';

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
  const refused = await page.post('/v1/cards/answer', { card_id: id, version: 2, answer: 'Yes' });
  assert.deepEqual([refused.status, refused.error.code], [409, 'stale']);
  assert.match(refused.error.message, /Claude Code has ended/);
  assert.equal((await world.ok('/v1/board')).topics[0].open_cards, 0);
  assert.equal((await world.receipts())[0].action, 'card.agent_gone');
  assert.equal((await world.ok('/v1/inbox')).counts.needs_you, 2);
  await world.restart();
  assert.deepEqual(
    [(await world.card(id)).state, (await world.card(alive)).state, (await world.card(kept)).state],
    ['gone', 'open', 'open'],
  );
  await (await world.login()).ok('/v1/page/dismiss', { card_id: id, version: 2 });
  assert.equal(await world.card(id), undefined);
  assert.equal((await world.ok('/v1/cards/detail', { card_id: id })).card.outcome, 'dismissed');
});

test('a high risk is answered only as it was reviewed', async (t) => {
  const [world, page] = await World.loggedIn(t, { KELVADROME_TEST_HOLD_MS: '' });
  const other = await world.login();
  const id = await world.ask({ risk: 'high' });
  const press = { card_id: id, version: 1, answer: 'Yes' };
  const review = async (body = press, from = page) => (await from.ok('/v1/page/review', body)).review;
  const refusals = [
    ['without a review', async () => press],
    ['an invented one', async () => ({ ...press, review: 'x' })],
    ['of another answer', async () => ({ ...press, review: await review({ ...press, answer: 'No' }) })],
    ['of another page session', async () => ({ ...press, review: await review(press, other) })],
    [
      'that is too old',
      async () => {
        const token = await review();
        await world.advance(601);
        return { ...press, review: token };
      },
    ],
  ];
  for (const [name, body] of refusals)
    assert.equal((await page.post('/v1/cards/answer', await body())).error?.code, 'review_needed', name);
  assert.equal(
    (await page.post('/v1/page/review', { ...press, answer: 'Maybe' })).error.code,
    'validation_failed',
  );
  assert.equal((await page.post('/v1/page/review', { ...press, version: 2 })).error.code, 'stale');

  const shown = await page.ok('/v1/page/review', press);
  assert.deepEqual([shown.answer, shown.hold_s], ['Yes', 5]);
  assert.equal((await page.ok('/v1/cards/answer', { ...press, review: shown.review })).status, 'held');
  await page.ok('/v1/page/cancel', { card_id: id });
  assert.equal(
    (await page.post('/v1/cards/answer', { ...press, version: 3, review: shown.review })).error.code,
    'review_needed',
  );
});

test('setup tells what is true: the folder, the agents on this machine, and when it is over', async (t) => {
  const world = await World.open(t);
  const [bin, work] = [join(world.home, 'bin'), join(world.home, 'work')];
  mkdirSync(bin);
  mkdirSync(join(work, 'shop/src'), { recursive: true });
  writeFileSync(join(bin, 'aider'), '#!/bin/sh\n');
  writeFileSync(join(bin, 'droid'), 'not executable');
  chmodSync(join(bin, 'aider'), 0o755);
  await world.restart({ PATH: bin, HOME: world.home });
  const status = () => world.ok('/v1/onboarding/status');
  const first = await status();
  assert.deepEqual([first.completed, first.folder], [false, undefined]);
  const found = Object.fromEntries(first.agents.map((row) => [row.id, row]));
  assert.deepEqual(found.aider, {
    id: 'aider',
    name: 'Aider',
    install: { state: 'installed', kind: 'path' },
    path: join(bin, 'aider'),
    asked: false,
  });
  assert.equal(found.droid.install.state, 'missing');

  for (const path of ['work', join(work, 'nope'), join(bin, 'aider')])
    assert.equal(
      (await world.call('/v1/onboarding/folder', { path })).error?.code,
      'validation_failed',
      path,
    );
  assert.deepEqual(await world.ok('/v1/onboarding/folder', { path: `${work}/` }), { folder: work });
  const topicAt = async (cwd, more) =>
    (await world.card(await world.ask({ live: { cwd }, menu: false, ...more }))).topic;
  assert.deepEqual(
    [
      await topicAt(join(work, 'shop/src')),
      await topicAt(work),
      await topicAt('/elsewhere'),
      await topicAt(join(work, 'shop'), { topic: 'Own' }),
    ],
    ['shop', undefined, undefined, 'Own'],
  );

  assert.equal((await world.call('/v1/onboarding/finish')).error.code, 'forbidden');
  await (await world.login()).ok('/v1/onboarding/finish');
  await world.restart();
  const last = await status();
  assert.deepEqual([last.completed, last.folder], [true, work]);
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
