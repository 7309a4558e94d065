// What keeps a daemon well that runs for months: it hears of ends, and neither its state nor its logs grow for ever.
import { test } from 'node:test';
import assert from 'node:assert/strict';
import { spawn } from 'node:child_process';
import fs from 'node:fs';
import { join } from 'node:path';
import { processInfo } from '../../companion/src/proc.mjs';
import { Store } from '../../companion/src/store.mjs';
import { World, collect, until } from './world.mjs';

const program = process.env.KELVADROME_TEST_PROCESS_WATCH;
const skip = program ? false : 'KELVADROME_TEST_PROCESS_WATCH does not name the built process-watch';

/** A process to watch, and the line that names it. */
function sleeper(t) {
  const child = spawn('sleep', ['1000'], { stdio: 'ignore' });
  t.after(() => child.kill('SIGKILL'));
  return { child, line: `${child.pid} ${processInfo(child.pid).started}` };
}

test('the watch tells of each end once, and takes no other process for the one that it was told', {
  skip,
}, async (t) => {
  // With room for 5 descriptors it has to raise that limit: each process takes one.
  const words = ['-c', 'ulimit -S -n 5; exec "$0"', program];
  const watch = collect(spawn('bash', words, { stdio: ['pipe', 'pipe', 'inherit'] }));
  t.after(() => watch.kill('SIGKILL'));
  const [first, dropped, last] = [sleeper(t), sleeper(t), sleeper(t)];
  const other = `${last.child.pid} 5`; // it had this number before
  watch.stdin.write(
    `${first.line}\n${dropped.line}\n-${dropped.child.pid}\nno number\n\n${other}\n${last.line}\n`,
  );
  await until(() => watch.output === `${other}\n`, 'another start is told as an end');
  for (const { child } of [dropped, first]) child.kill('SIGKILL');
  await until(() => watch.output.endsWith(`${first.line}\n`), 'the first has ended');
  last.child.kill('SIGKILL');
  await until(() => watch.output.endsWith(`${last.line}\n`), 'the last has ended');
  assert.equal(watch.output, `${other}\n${first.line}\n${last.line}\n`);
  watch.stdin.end();
  assert.deepEqual(await watch.ended, { code: 0, signal: null });
});

test('a busy session ends with its process, by the watch, without it, and when the watch has died', async (t) => {
  const cases = [['without', '/no/such/program']];
  if (program) cases.push(['with', program], ['killed', program]);
  for (const [name, path] of cases) {
    const world = await World.open(t, { KELVADROME_TEST_PROCESS_WATCH: path });
    const { child } = sleeper(t);
    const touch = { agent: 'codex', session_id: 's', status: 'busy', live: { pid: child.pid } };
    await world.ok('/v1/sessions/touch', touch);
    const events = world.stream();
    if (name !== 'without') {
      const watcher = await until(() => world.childOf(world.child.pid), 'the watch runs');
      if (name === 'killed') process.kill(watcher, 'SIGKILL');
    }
    child.kill('SIGKILL');
    await until(() => events.text.includes('session.changed'), `${name}: the end is told`);
    const [row] = (await world.ok('/v1/agents/status')).sessions;
    assert.equal(row.status, 'ended', name);
  }
});

test('closed cards, receipts and sessions go by age and number; what is open, kept or newest stays', async (t) => {
  const world = await World.open(t);
  await world.kill('SIGTERM');
  const day = 86_400_000;
  const now = Date.now();
  const store = new Store(world.home);
  const ago = (days) => now - Math.round(days * day);
  const facts = { version: 3, state: 'closed', kind: 'question', risk: 'low', outcome: 'answered' };
  const asker = { agent: 'claude', session_id: 's', delivery: 'terminal', live: null };
  const words = { title: 'T', body: '', options: '[]', refs: '{}', menu: 0, blocking: 1 };
  const card = (id, days, more = {}) => {
    const times = { opened_ms: ago(days), closed_ms: ago(days) };
    store.insert('cards', { id, ...facts, ...asker, ...words, ...times, ...more });
  };
  const job = (id, state) => {
    const rest = { type: 'answer', payload: '{}', presence: 'p', expires_ms: 0 };
    store.insert('jobs', { id: `job-${id}`, card_id: id, state, ...rest });
  };
  store.tx(() => {
    card('old', 91, { topic: 'Old' });
    job('old', 'done');
    card('waiting', 91, { state: 'open', closed_ms: null, outcome: null, topic: 'Waiting' });
    job('waiting', 'refused');
    card('unfetched', 80, { delivery: 'keep' });
    for (const topic of ['Old', 'Waiting'])
      store.insert('topics', { id: topic, title: topic, touched_ms: ago(91) });
    for (let i = 0; i < 10_300; i++) card(`many-${i}`, 3 - i / 10_300);
    const receipt = { action: 'answer.typed', line: '', ts_ms: ago(91) };
    for (let i = 0; i < 300; i++) store.insert('receipts', { ...receipt, topic: i < 299 ? 'Old' : null });
    const session = { agent: 'codex', status: 'ended', callsign: 'Ada', seen_ms: 0 };
    store.insert('sessions', { ...session, session_id: 'o', ended_ms: 1 });
    store.insert('sessions', { ...session, session_id: 'n', ended_ms: 2 });
  });
  store.close();
  await world.start();
  const isGone = async (id) =>
    (await world.call('/v1/cards/detail', { card_id: id })).error?.code === 'unknown_card';
  const newest = (await world.ok('/v1/receipts/list', { limit: 1 })).receipts[0].event_id;
  assert.equal((await world.health()).watermark, newest);
  await until(async () => {
    const board = await world.ok('/v1/board');
    return board.topics.length === 1 && (await world.receipts()).length === 1 && (await isGone('many-299'));
  }, 'what is old goes');
  assert.equal((await world.receipts())[0].event_id, newest);
  // What hung on a receipt and on a session is still known.
  const { completed, agents } = await world.ok('/v1/onboarding/status');
  assert.deepEqual([completed, agents.find(({ id }) => id === 'codex').asked], [true, true]);
  assert.equal((await world.card('waiting')).state, 'open');
  await world.detail('unfetched');
  assert.deepEqual([await isGone('old'), await isGone('many-300')], [true, false]);
  await world.kill('SIGTERM');
  const after = new Store(world.home);
  const left = (sql) => after.all(sql).flatMap(Object.values);
  assert.deepEqual(left('SELECT id FROM jobs UNION SELECT session_id FROM sessions'), ['job-waiting', 'n']);
  after.close();
});

test('a log that has grown too large makes room, at the start and while the daemon runs; other files are left alone', async (t) => {
  const world = await World.open(t);
  const folder = join(world.home, 'logs');
  fs.mkdirSync(folder);
  const [out, err, other] = ['kelvadromed.out.log', 'kelvadromed.err.log', 'mine.log'].map((name) =>
    join(folder, name),
  );
  const large = (1 << 20) + 1;
  const precious = join(folder, 'precious');
  fs.writeFileSync(precious, 'mine');
  fs.symlinkSync(precious, `${err}.1`);
  for (const path of [out, err, other]) fs.writeFileSync(path, 'x'.repeat(large));
  await world.kill();
  const start = async (outPath, errPath) => {
    world.child = world.spawn([], {}, ['pipe', fs.openSync(outPath, 'a'), fs.openSync(errPath, 'a')]);
    await world.health();
  };
  await start(out, err);
  assert.deepEqual(
    [out, err].map((path) => fs.statSync(`${path}.1`).size),
    [large, large],
  );
  assert.match(fs.readFileSync(out, 'utf8'), /^kelvadromed \S+ \(pid/);
  assert.equal(fs.readFileSync(precious, 'utf8'), 'mine');
  fs.truncateSync(out, large);
  await until(() => fs.statSync(out).size === 0, 'it makes room while the daemon runs');
  await world.kill();
  await start(other, other);
  assert.ok(fs.statSync(other).size > large);
});
