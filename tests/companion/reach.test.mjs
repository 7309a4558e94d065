// Who gets an answer: the very process that asked, for the question that it asked last, where keys can reach it; and
// what happens to an answer that nobody can type.
import { test } from 'node:test';
import assert from 'node:assert/strict';
import { execFileSync, spawn, spawnSync } from 'node:child_process';
import { mkdirSync, readFileSync, readlinkSync, symlinkSync, writeFileSync } from 'node:fs';
import { join } from 'node:path';
import { KD, World, has, refused, until } from './world.mjs';
import { isRunning } from '../../companion/src/proc.mjs';

/** A shell that goes by the name of an agent, and so can do things that a test wants of one. */
function scriptable(world) {
  const folder = join(world.home, 'scriptable');
  mkdirSync(folder);
  symlinkSync('/bin/bash', join(folder, 'claude'));
  return join(folder, 'claude');
}

/** One that has ended is fine. */
const end = (pid, signal = 'KILL') => spawnSync('kill', ['-s', signal, String(pid)]);

test('only the process that asked is answered: not one that ended, nor another program in its place', async (t) => {
  const [world, page] = await World.loggedIn(t);
  const claude = scriptable(world);
  const next = join(world.home, 'claude');
  const runsSleep = (pid) => readlinkSync(`/proc/${pid}/exe`).includes('sleep');
  const changes = [
    ['ends', ({ end: kill }) => kill(), (pid) => !isRunning(pid), /the agent process ended/],
    ['runs a new agent', ({ type }) => type('Enter'), runsSleep, /another one than the one that asked/],
  ];
  for (const [name, change, isOver, words] of changes) {
    const agent = await world.panes.start([claude, '-c', `read x; exec ${next} infinity`]);
    const { live } = agent;
    const { id, job } = await world.answered(page, { live });
    await change(agent);
    await until(() => isOver(live.pid), name);
    const reply = await page.report(job.id, 'start');
    assert.equal(reply.proceed, false, name);
    assert.match(reply.reason, words);
    await page.report(job.id, 'refused', { reason: reply.reason });
    assert.match((await world.card(id)).refs.last_refusal, words);
    const { version } = await world.card(id);
    if (name !== 'ends') refused(await page.press(id, 'Yes', version), 'stale', /has ended, so its question/);
    assert.equal((await world.abandoned(id)).state, 'gone');
  }
});

test('an answer to an older question waits while a newer one blocks the same process, and says so', async (t) => {
  const [world, page] = await World.loggedIn(t);
  const [{ live }, other] = [await world.panes.start(), await world.ask()];
  const { id: older, job } = await world.answered(page, { live });
  await world.ask({ live, blocking: false, title: 'By the way?' });
  const newer = await world.ask({ live, title: 'Newer?' });
  const reply = await page.report(job.id, 'start');
  assert.deepEqual(reply, { proceed: false, reason: 'Claude Code has asked a newer question since' });
  await page.report(job.id, 'refused', { reason: reply.reason });
  const card = await world.reopened(older);
  const note = 'Claude Code has asked a newer question since. Answer that one first.';
  has(card, { answerable: false, delivery_note: note });
  refused(await page.press(older, 'Yes', card.version), 'conflict', new RegExp(note));
  for (const id of [newer, other]) assert.equal((await world.card(id)).answerable, undefined);
  await world.ok('/v1/ask/withdraw', { card_id: newer });
  has(await world.card(older), { answerable: undefined, delivery_note: undefined });
  await page.ok('/v1/cards/answer', { card_id: older, version: card.version, answer: 'Yes' });
  const second = await page.claimOne();
  assert.deepEqual(await page.report(second.id, 'start'), { proceed: true });

  // Asked under the very keys: nobody can say which of the two got them.
  const under = await world.ask({ live, title: 'Under the keys?', default: 'Yes' });
  await page.report(second.id, 'done');
  has(await world.detail(older), { outcome: 'went_on', answer: undefined });
  assert.equal((await world.actions())[0], 'answer.overtaken');
  const warned = await world.card(under);
  has(warned, { state: 'open', maybe_typed: true, default: undefined, answerable: undefined });
  assert.match(warned.refs.last_refusal, /Some keys may have gone here/);
});

test('a card whose answer may have been typed closes once its question has left the screen', async (t) => {
  const [world, page] = await World.loggedIn(t);
  const claude = scriptable(world);
  const asks = { title: 'Which of the two should it be?', options: ['Alpha', 'Beta'] };
  const draw = `printf '${asks.title}\\n1. Alpha\\n2. Beta\\n'`;
  const cases = [
    ['goes on', `${draw}; read x; clear; read y`, true],
    ['still asks', `${draw}; read x; clear; ${draw}; read y`, false],
    ['never showed it', 'read x; read y', false],
  ];
  const shown = [];
  for (const [name, script, isOver] of cases) {
    const { live, shows, type } = await world.panes.start([claude, '-c', script]);
    if (script.startsWith('printf')) await shows('Beta');
    const { id, job } = await world.answered(page, { ...asks, live }, 'Beta');
    await page.report(job.id, 'start');
    type('2', 'Enter');
    await page.report(job.id, 'failed', { reason: 'the app was closed' });
    assert.equal((await world.card(id)).maybe_typed, true, name);
    shown.push([name, id, isOver]);
  }
  for (const [name, id, isOver] of shown.toSorted((a, b) => b[2] - a[2]))
    if (isOver) await world.passes(2, async () => (await world.detail(id)).outcome === 'went_on', name);
    else assert.equal((await world.card(id)).state, 'open', name);
});

test('what can never be typed into says so on its card before anybody presses, and takes no press', async (t) => {
  const [world, page] = await World.loggedIn(t);
  const claude = join(world.home, 'claude');
  let count = 1000;
  /** An agent somewhere below a pane: `command` gets the words that start it. */
  const below = async (command, comm) => {
    const words = `${claude} ${++count}`;
    const { live } = await world.panes.start(command(words), comm);
    const found = await until(() => {
      const table = execFileSync('ps', ['-eo', 'pid=,pgid=,tty=,args='], { encoding: 'utf8' });
      return new RegExp(`^ *(\\d+) +(\\d+) +(\\S+) +${words}$`, 'm').exec(table);
    }, `"${words}" runs`);
    const [pid, pgid] = [Number(found[1]), Number(found[2])];
    t.after(() => end(pid)); // what is between it and the pane may outlive the pane
    return { ...live, pid, pgid, tty: found[3] };
  };
  const [fine, second] = [await world.panes.start(), await world.panes.start()];
  const nowhere = ({ live }) => ({ ...live, host: 'unknown', host_ref: undefined });
  const cases = [
    [
      'script',
      await below((words) => ['script', '-qc', words, '/dev/null'], 'script'),
      /but its tmux pane is/,
    ],
    [
      'sh',
      await below((words) => ['sh', '-c', `${words}; true`], 'sh'),
      /The shell "sh" that started Claude/,
    ],
    ['no environment', await below((words) => ['env', '-i', ...words.split(' ')]), /which tmux server/],
    ['another pane', { ...fine.live, host_ref: second.live.host_ref }, /but its tmux pane is/],
    ['a pane that is not there', { ...fine.live, host_ref: '%999' }, /no pane %999/],
    ['an unknown window', nowhere(fine), /can be typed into from outside/],
    ['another terminal', { ...fine.live, tty: 'pts/9999' }, /not in pts\/9999/],
  ];
  for (const [name, live, words] of cases) {
    const id = await world.ask({ live });
    const { answerable, delivery_note } = await world.card(id);
    assert.deepEqual([answerable, words.test(delivery_note)], [false, true], `${name}: ${delivery_note}`);
    const { error } = await page.press(id);
    assert.deepEqual([error.code, error.message], ['conflict', delivery_note], name);
    has(await world.card(await world.ask({ live, wait: true })), { delivery_note: undefined }, name);
  }
  const good = await world.card(await world.ask({ live: fine.live }));
  has(good, { answerable: undefined, delivery_note: undefined });
  // A tmux server that hangs says nothing, so nothing is said of it, and the asker is not held up.
  const server = Number(world.panes.tmux('display-message', '-p', '#{pid}'));
  process.kill(server, 'SIGSTOP');
  t.after(() => end(server, 'CONT'));
  assert.equal((await world.card(await world.ask({ live: fine.live }))).delivery_note, undefined);
  process.kill(server, 'SIGCONT');
  // Whoever waits for such a card gets the answer handed, so it can be pressed then.
  const late = await world.ask({ live: nowhere(second) });
  await world.ok('/v1/ask/wait', { card_id: late, wait_ms: 50 });
  assert.equal((await world.card(late)).answerable, undefined);
  const takesAnswers = async () => (await world.card(late)).answerable === undefined;
  await world.passes(1, async () => !(await takesAnswers()), 'nobody waits any more');
  const waiting = world.ok('/v1/ask/wait', { card_id: late, wait_ms: 8000 });
  await until(takesAnswers, 'the card can be answered');
  assert.equal((await page.press(late, 'No', (await world.card(late)).version)).ok, true);
  assert.equal((await waiting).answer, 'No');
});

test('a terminal of a container that only has the same name as the pane is told apart', async (t) => {
  const needs = spawnSync('unshare', ['-m', 'python3', '-c', ''], { stdio: 'ignore' });
  if (process.getuid() !== 0 || needs.status !== 0) return t.skip('it needs root, unshare and python3');
  const world = await World.open(t);
  const program = join(world.home, 'container.py');
  // Opens terminals of its own until one has the number of the pane's, and runs the agent there.
  writeFileSync(
    program,
    `import os, pty, subprocess, sys
kept, number = [], sys.argv[1]
while True:
    kept.append(pty.openpty())
    if os.ttyname(kept[-1][1]) == number: break
end = kept[-1][1]
agent = subprocess.Popen(sys.argv[2:], stdin=end, stdout=end, stderr=end, start_new_session=True, preexec_fn=lambda: __import__('fcntl').ioctl(0, __import__('termios').TIOCSCTTY, 0))
print(agent.pid, flush=True)
agent.wait()
`,
  );
  const inside = `mount -t devpts -o newinstance,ptmxmode=0666 devpts /dev/pts && mount --bind /dev/pts/ptmx /dev/ptmx && exec python3 ${program} $TTY ${join(world.home, 'claude')} infinity`;
  const outer = await world.panes.start(
    ['sh', '-c', `TTY=$(tty) exec unshare -m sh -c '${inside}' > ${world.home}/pid`],
    'python3',
  );
  const pid = await until(() => Number(readFileSync(join(world.home, 'pid'), 'utf8')), 'the agent runs');
  t.after(() => end(pid));
  const card = await world.card(await world.ask({ live: { ...outer.live, pid, pgid: pid } }));
  assert.match(card.delivery_note ?? '', /a terminal of a container/);
  assert.equal(card.answerable, false);
});

test('what is no agent, or can take no keys, is refused when it asks', async (t) => {
  const world = await World.open(t);
  const { live, pid } = await world.panes.start();
  const shell = await world.panes.start(['bash', '--norc'], 'bash');
  const table = [
    [{ agent: 'bash', live: shell.live }, /is a shell \(bash\)/],
    [{ live: shell.live }, /is a shell/],
    [{ agent: 'codex', live }, new RegExp(`process ${pid} is claude, not codex`)],
    [{ live: { ...live, pid: 0x7ffffffe } }, /there is no process/],
    [{ live: { ...live, host: 'terminal', host_ref: undefined } }, /never typed into Terminal/],
    [{ live: { ...live, host: 'iterm2', host_ref: 'x' } }, /no iTerm2/],
    [{ live: { ...live, host_ref: undefined } }, /host_ref: is missing/],
    [{ live: { pid: shell.pid, host: 'unknown', codex_thread: 't' }, agent: 'codex' }, /is a shell/],
  ];
  for (const [more, words] of table) {
    const asked = { agent: 'claude', title: 'x', ...more };
    refused(await world.call('/v1/ask', asked), 'validation_failed', words);
  }
  assert.deepEqual(await world.cards(), []);
  const run = await world.kd(['ask', '--agent', 'bash', '--pid', String(shell.pid), '-t', 'x']);
  assert.deepEqual([run.code, run.stdout], [1, '']);
  assert.match(run.stderr, /never typed into one/);
});

test('an answer that nobody can type or waits for is kept, and fetched with kd wait or by asking again', async (t) => {
  const [world, page] = await World.loggedIn(t);
  const ask = 'ask --no-terminal --agent codex --session s -t Goon? --ask-id mine'.split(' ');
  const id = (await world.kd(ask)).stdout.trim();
  const note = 'Nothing can be typed there. Your answer is kept until Codex fetches it.';
  has(await world.card(id), { delivery_note: note, kept: true, answerable: undefined });
  const early = await world.kd(['wait', id, '--seconds', '0.2']);
  assert.deepEqual([early.code, early.stdout], [5, '']);
  assert.match(early.stderr, /The question stays open/);
  assert.equal(await world.status('codex'), 'waiting_me');
  await page.press(id, 'Sure');
  await world.closed(id);
  assert.match((await world.receipts())[0].line, /^Kept for Codex, which has not fetched it yet: "Goon\?"\./);
  assert.equal(await world.status('codex'), 'waiting');
  for (const again of [`wait ${id}`.split(' '), [...ask, '--wait']])
    assert.deepEqual(await world.kd(again), { code: 0, stdout: 'Sure\n', stderr: '' });
  has(JSON.parse((await world.kd([...ask, '--json'])).stdout), { card_id: id, state: 'closed' });
  assert.deepEqual(await world.actions(), ['answer.handed', 'answer.kept', 'answer.held']);
  assert.equal(await world.status('codex'), 'working');
});

test('who waited and is gone is told of on the card, and asking again under the same name finds the answer', async (t) => {
  const [world, page] = await World.loggedIn(t);
  const ask = async (title, agent = 'codex') => {
    const words = `ask --no-terminal --agent ${agent} -t ${title} --wait=0.2 --ask-id mine`;
    const { code, stdout, stderr } = await world.kd(words.split(' '));
    return [code, stdout || stderr];
  };
  const [code, words] = await ask('Goon?');
  assert.equal(code, 5);
  assert.match(words, /stays open: ask again with the same --ask-id/);
  const byHook = await world.askFromAfar({ refs: { hook: 'deed' } });
  assert.equal((await world.card(byHook)).answerable, undefined); // it is about to wait
  const isTold = async () => (await world.cards()).every((card) => card.delivery_note);
  await world.passes(1, isTold, 'nobody waits any more');
  const hook = await world.card(byHook);
  has(hook, { answerable: false, kept: true });
  refused(
    await page.press(byHook),
    'conflict',
    /^Claude Code no longer waits .* Answer it in its terminal\.$/,
  );

  const { id, ...card } = (await world.cards()).find(({ agent }) => agent === 'codex');
  has(card, { kept: true, answerable: undefined, version: 1 });
  assert.match(
    card.delivery_note,
    /^Codex no longer waits, and nothing can be typed there\. .* kept until “kd wait”/,
  );
  assert.match((await ask('Stop?'))[1], new RegExp(`"mine" is the name of .*, ${id}: "Goon\\?"`));
  assert.equal((await ask('Goon?', 'grok'))[0], 5); // another's name, and so another question
  assert.equal((await world.cards()).length, 3);
  await world.passes(1, isTold, 'nobody waits any more');
  await page.press(id, 'Sure');
  await world.closed(id);
  assert.match((await world.receipts())[0].line, /^Kept for Codex, which has not fetched it yet/);
  assert.deepEqual(await ask('Goon?'), [0, 'Sure\n']);
  assert.equal((await world.receipts())[0].line, 'Fetched by Codex: "Goon?".');
  assert.equal((await ask('Stop?'))[0], 5); // the name is free for other words
  const next = (await world.cards()).find(({ title }) => title === 'Stop?');
  await world.ok('/v1/ask/withdraw', { card_id: next.id });
  await ask('Stop?');
  assert.notEqual((await world.cards()).find(({ title }) => title === 'Stop?').id, next.id);
});

test('an agent that runs as a script of node is found by its name', async (t) => {
  const world = await World.open(t);
  const script = join(world.home, 'gemini.mjs');
  const asks = `execFileSync(process.execPath, [${JSON.stringify(KD)}, 'ask', '-t', 'Found?']); setInterval(() => {}, 1e6);`;
  writeFileSync(script, `import { execFileSync } from 'node:child_process'; ${asks}`);
  const child = spawn(process.execPath, [script], { env: world.env, stdio: 'ignore' });
  t.after(() => child.kill('SIGKILL'));
  const card = await until(async () => (await world.cards())[0], 'the card');
  has(card, { agent: 'gemini', title: 'Found?' });
});

test('a session no longer waits once its question is over, and one without a process ends after a day of silence', async (t) => {
  const [world, page] = await World.loggedIn(t);
  const are = async (agent, status) => assert.equal(await world.status(agent), status);
  const { job } = await world.answered(page);
  await are('claude', 'waiting_me');
  await page.report(job.id, 'start');
  await page.report(job.id, 'done');
  await are('claude', 'working');
  const grok = { agent: 'grok', session_id: 's' };
  const [first, second] = [await world.askFromAfar(grok), await world.askFromAfar(grok)];
  await page.press(first);
  await world.ok('/v1/ask/wait', { card_id: first });
  await are('grok', 'waiting_me');
  await world.ok('/v1/ask/withdraw', { card_id: second });
  await are('grok', 'working');
  await world.advance(86_300);
  await are('grok', 'working');
  await world.ok('/v1/sessions/touch', { ...grok, status: 'idle' });
  await world.advance(86_300);
  await are('grok', 'idle');
  await world.advance(200);
  await are('grok', 'ended');
  await are('claude', 'working'); // its process runs
});
