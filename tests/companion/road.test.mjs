// The road of one answer, and every way in which it can end.
import { test } from 'node:test';
import assert from 'node:assert/strict';
import { World, until } from './world.mjs';

const gone = (world, id) => until(async () => !(await world.card(id)), 'the card is closed');
const reopened = (world, id) => until(async () => { const card = await world.card(id); return card.state === 'open' && card; }, 'the card is open again');

test('an answer goes from ask to typed: held, armed, claimed, started, done', async (t) => {
  const world = await World.open(t, { KELVADROME_TEST_HOLD_MS: '150' });
  const page = await world.login();
  const id = await world.ask({ topic: 'Billing', default: 'Yes' });
  const open = await world.card(id);
  assert.equal(open.version, 1);
  assert.equal(open.default, 'Yes');

  const held = await page.ok('/v1/cards/answer', { card_id: id, version: 1, answer: 'No' });
  assert.equal(held.status, 'held');
  assert.equal(held.card.version, 2);
  assert.match(held.receipt.line, /"No" for Claude Code: "Deploy\?"/);
  assert.ok(Date.parse(held.card.held_until) > Date.now() - 1000);

  const job = await page.claimOne();
  assert.deepEqual(
    { ...job, id: undefined, presence: undefined, expires_at: undefined },
    { type: 'answer', card_id: id, agent: 'claude', session_id: `claude-${process.pid}`, pid: process.pid, pgid: process.pid, tty: 'pts/3', host: 'tmux', host_ref: '%3', steps: [{ kind: 'key', key: '2' }], id: undefined, presence: undefined, expires_at: undefined });
  assert.match(job.presence, /^[0-9a-f]{32}$/);
  assert.equal((await world.card(id)).state, 'armed');
  assert.deepEqual(await page.report(job.id, 'start'), { proceed: true });
  assert.deepEqual(await page.report(job.id, 'start'), { proceed: false, reason: 'the job was started before' });
  await page.report(job.id, 'done', { path: 'host' });

  assert.equal(await world.card(id), undefined);
  assert.deepEqual((await world.receipts()).map((receipt) => receipt.action), ['answer.typed', 'answer.held']);
  assert.equal((await world.ok('/v1/inbox')).counts.verified_today, 1);
  assert.deepEqual((await world.ok('/v1/board')).topics, [{ id: 'Billing', title: 'Billing', open_cards: 0 }]);
});
