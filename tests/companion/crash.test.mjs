// kill -9 at the moments where an answer could be lost, doubled, or told wrongly.
import { test } from 'node:test';
import assert from 'node:assert/strict';
import { once } from 'node:events';
import { readdirSync, writeFileSync } from 'node:fs';
import { request } from 'node:http';
import { join } from 'node:path';
import { World, has, refused, until } from './world.mjs';

test('an answer on hold can be undone for its whole hold after a restart, and goes back to the card when the app that pressed it went with the daemon', async (t) => {
  const [world, before] = await World.loggedIn(t, { KELVADROME_TEST_HOLD_MS: '600000' });
  const [id, waited] = [await world.askAndAnswer(before), await world.askAndAnswer(before, { wait: true })];
  const undone = await world.askAndAnswer(before);
  await before.ok('/v1/page/cancel', { card_id: undone });
  await world.advance(599);
  await world.restart();
  refused(await before.post('/v1/deliver/claim'), 'unauthorized');
  const after = await world.login();
  assert.ok(
    Date.parse((await world.card(id)).held_until) > Date.now() + 500_000,
    'the hold is shown as begun anew',
  );
  await world.advance(590);
  assert.equal((await world.card(id)).state, 'held');
  await world.advance(10);
  // Only in the session that pressed it could it have been typed, and that one ended with the daemon.
  const why = 'kelvadromed was started again since it was pressed';
  assert.equal((await world.reopened(id)).refs.last_refusal, why);
  assert.equal(await after.claimOne(0), undefined);
  assert.equal((await world.ok('/v1/ask/wait', { card_id: waited, wait_ms: 8000 })).answer, 'Yes');
  has(await world.card(undone), { state: 'open', version: 3, answer: undefined });
});

test('a job that was claimed before the crash is not started after it, one that was typing is reported or ends as unfinished, and a reported one stays so', async (t) => {
  const [world, page] = await World.loggedIn(t);
  const jobs = {};
  for (const name of ['claimed', 'forgotten', 'typing', 'mute', 'over']) {
    const { id, job } = await world.answered(page, { ask_id: name, session_id: name });
    jobs[id] = job;
  }
  const [claimed, forgotten, typing, mute, over] = Object.keys(jobs);
  for (const id of [typing, mute, over])
    assert.deepEqual(await page.report(jobs[id].id, 'start'), { proceed: true });
  await page.report(jobs[over].id, 'done');
  await world.restart();
  const after = await world.login();
  const elsewhere = { proceed: false, reason: 'the job was claimed by another page session' };
  assert.deepEqual(await after.report(jobs[claimed].id, 'start'), elsewhere);
  await after.report(jobs[claimed].id, 'refused', { reason: 'gone' });
  assert.equal((await world.reopened(claimed)).refs.last_refusal, 'gone');
  assert.deepEqual(await after.report(jobs[typing].id, 'done', { path: 'host' }), { accepted: true });
  assert.equal(await world.card(typing), undefined);
  assert.deepEqual(await after.report(jobs[over].id, 'done'), { accepted: false, reason: 'the job is over' });
  assert.equal((await world.actions()).filter((action) => action === 'answer.typed').length, 2);
  await world.advance(12);
  const reason = async (id) => (await world.reopened(id)).refs.last_refusal;
  assert.equal(await reason(forgotten), 'the app in which it was pressed is gone');
  assert.match(await reason(mute), /never reported\. Some keys may have been typed/);
  // An ask that is repeated after a crash makes no second card.
  assert.equal(await world.ask({ ask_id: 'over', session_id: 'over' }), over);
  assert.equal(await world.card(over), undefined);
});

test('whatever was confirmed before a crash is there after it', async (t) => {
  const world = await World.open(t, { KELVADROME_TEST_HOLD_MS: '600000' });
  const confirmed = [];
  for (let round = 0; round < 3; round++) {
    const page = await world.login();
    let writing = true;
    const writers = [0, 1, 2, 3].map(async () => {
      while (writing) {
        try {
          const id = await world.askFromAfar();
          confirmed.push([id, 'open']);
          await page.ok('/v1/cards/answer', { card_id: id, version: 1, answer: 'No' });
          confirmed.push([id, 'held']);
        } catch {
          return;
        }
      }
    });
    await until(() => confirmed.length > (round + 1) * 20, 'answers come in');
    await world.kill();
    writing = false;
    await Promise.all(writers);
    await world.start();
  }
  const states = new Map((await world.cards()).map((card) => [card.id, card.state]));
  for (const [id, state] of new Map(confirmed))
    assert.ok([state, 'held'].includes(states.get(id)), `${id} was ${state} and is ${states.get(id)}`);
});

test('while the daemon is stopped no hold ends and no app is gone', async (t) => {
  const [world, page] = await World.loggedIn(t, { KELVADROME_TEST_HOLD_MS: '5000' });
  const typing = await world.askAndAnswer(page);
  await page.stays(6);
  const job = await page.claimOne();
  await page.report(job.id, 'start');
  await page.stays(11);
  const id = await world.askAndAnswer(page);
  world.child.kill('SIGSTOP');
  await new Promise((done) => setTimeout(done, 5500));
  world.child.kill('SIGCONT');
  assert.equal((await page.ok('/v1/page/cancel', { card_id: id })).status, 'undone');
  assert.equal((await world.card(typing)).state, 'armed');
});

test('a question whose asker gave up while the daemon hung is not asked', async (t) => {
  const world = await World.open(t);
  world.child.kill('SIGSTOP');
  const leaves = request({
    socketPath: world.socketPath,
    path: '/v1/ask',
    method: 'POST',
    headers: { Connection: 'close' },
  });
  leaves.on('error', () => {}).end(JSON.stringify({ agent: 'claude', title: 'Left', wait: true }));
  const [socket] = await once(leaves, 'socket');
  await until(() => leaves.writableFinished && socket.bytesWritten > 0, 'the question is sent');
  leaves.destroy();
  const stays = world.askFromAfar({ title: 'Stays' });
  world.child.kill('SIGCONT');
  await stays;
  assert.equal((await world.cards()).map((card) => card.title).join(), 'Stays');
});

test('a damaged database is kept aside under a dated name, and the log says so', async (t) => {
  const world = await World.open(t);
  await world.ask();
  // Left in order, everything is in the file itself; with a log beside it, the log would mend the file.
  await world.kill('SIGTERM');
  writeFileSync(join(world.home, 'kelvadromed.db'), 'no database, but long enough for one'.repeat(60));
  await world.start();
  assert.deepEqual(await world.cards(), []);
  assert.match(
    world.log,
    /kelvadromed: the database was damaged; it is kept as .*kelvadromed\.db\.damaged-\d{8}T\d{6}Z/,
  );
  assert.equal(readdirSync(world.home).filter((name) => /damaged-\d{8}T\d{6}Z$/.test(name)).length, 1);
  assert.equal((await world.receipts())[0].action, 'store.set_aside');
});
