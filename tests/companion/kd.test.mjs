// `kd` as agents use it, from a real tmux pane, and the sample agent under a shell's hand.
import { test } from 'node:test';
import assert from 'node:assert/strict';
import { execFile, execFileSync, spawn } from 'node:child_process';
import { once } from 'node:events';
import { openSync, readFileSync, realpathSync } from 'node:fs';
import { join } from 'node:path';
import { COMPANION, KD, World, collect, has, until } from './world.mjs';
import { findAbove } from '../../companion/src/kd/agent.mjs';
import { main as kd } from '../../companion/src/kd/main.mjs';
import { parseStat, ttyName, whyNotTheAsker } from '../../companion/src/proc.mjs';

const QUESTION = {
  menu: 'database',
  text: 'new command',
  batch: '3 choices',
  stop: 'invoice',
  trust: 'Trust',
};

/** The sample agent in a pane of its own. */
async function sampleAgent(world, script) {
  const program = join(COMPANION, 'sample-agent/sample-agent.mjs');
  const command = ['env', `KELVADROME_HOME=${world.home}`, process.execPath, program, '--once', '--pause=0'];
  return world.panes.start([...command, '--script', script], 'claude', world.home);
}

const theCard = (world, title) =>
  until(async () => (await world.cards()).find((card) => card.title.includes(title)), `the card "${title}"`);

test('the sample agent takes typed answers of every kind, and its cards end with them', async (t) => {
  const [world, page] = await World.loggedIn(t);
  const pane = await sampleAgent(world, 'menu,text,batch,stop,trust');
  const keysOf = {
    text: ({ text }) => [['-l', '--', text], ['Enter']],
    key: ({ key }) => [['-l', '--', key]],
    nav: ({ key }) => [[{ down: 'Down', enter: 'Enter' }[key]]],
  };
  const batch = { lang: 'Go', tests: 'no', port: '1' };
  const trust = 'Yes, I trust this folder';
  const answers = { menu: 'SQLite', text: 'zürich go 42', batch, stop: 'Reject', trust };
  for (const [kind, answer] of Object.entries(answers)) {
    const card = await theCard(world, QUESTION[kind]);
    if (kind === 'trust') {
      const lines = (await pane.shows('Enter to confirm')).split(/\s*\n/).filter(Boolean);
      assert.deepEqual(lines.slice(-6), [
        'Accessing workspace:',
        realpathSync(world.home),
        'Quick safety check: Is this a project you created or one you trust?',
        '❯ No, exit',
        '  Yes, I trust this folder',
        'Enter to confirm · Esc to cancel',
      ]);
    } else await pane.shows(card.title);
    const press = { card_id: card.id, version: card.version, answer };
    await (card.risk === 'high' ? page.confirm(press) : page.ok('/v1/cards/answer', press));
    const job = await page.claimOne();
    assert.deepEqual(await page.report(job.id, 'start'), { proceed: true });
    // kd told the pid, group, terminal and pane of the agent that called it, as ps and tmux print them.
    const ps = ['-o', 'pid=,pgid=,tpgid=,tty=,comm=', '-p', String(pane.pid)];
    const facts = execFileSync('ps', ps, { encoding: 'utf8' }).trim().split(/\s+/);
    const [pid, pgid, , tty, comm] = facts;
    const { host_ref } = pane.live;
    has(job, { agent: 'claude', pid: Number(pid), pgid: Number(pgid), tty, host: 'tmux', host_ref });
    assert.equal(facts[2], pgid, 'its group is in front');
    const shown = world.panes.tmux('display', '-p', '-t', host_ref, '#{pane_tty} #{pane_current_command}');
    assert.equal(shown, `/dev/${tty} ${comm}`);
    for (const keys of job.steps.flatMap((step) => keysOf[step.kind](step))) pane.type(...keys);
    await pane.shows(`You chose: ${typeof answer === 'string' ? answer : 'lang: Go; tests: no; port: 1'}`);
    await page.report(job.id, 'done');
    await world.closed(card.id);
  }
  const arrived = (await world.actions()).filter((action) => action !== 'answer.held');
  assert.deepEqual(arrived, Array(5).fill('answer.typed'));
  assert.equal((await world.ok('/v1/topic/detail', { topic: 'Storage' })).folder, realpathSync(world.home));
});

test('an answer by hand withdraws the card, and so does leaving; without a daemon the agent goes on by itself', async (t) => {
  const world = await World.open(t);
  const pane = await sampleAgent(world, 'menu,text');
  await theCard(world, QUESTION.menu);
  pane.type('Down', 'Enter');
  await pane.shows('You chose: SQLite');
  await theCard(world, QUESTION.text);
  assert.equal((await world.actions())[0], 'card.withdrawn');
  pane.type('C-c');
  await until(async () => (await world.cards()).length === 0, 'the second card is withdrawn');

  await world.kill();
  const alone = await sampleAgent(world, 'menu,text');
  await alone.shows('1-3 to choose');
  alone.type('-l', '1');
  await alone.shows('Only asked here: kd: No kelvadromed answers');
  await alone.shows(QUESTION.text);
});

test('kd ask --wait prints the answer, outlives a restart, and withdraws when it is ended or out of time', async (t) => {
  const world = await World.open(t, { KELVADROME_TEST_HOLD_MS: '200' });
  const ask = ['ask', '--no-terminal', '--agent', 'codex', '-t', 'Go on?', '--wait=30'];
  const waiting = world.kd([...ask, '-o', 'Yes', '-o', 'No']);
  const card = await theCard(world, 'Go on?');
  await world.restart();
  assert.equal((await world.kd(['answer', card.id, 'Yes'])).code, 0);
  await world.restart();
  assert.deepEqual(await waiting, { code: 0, stdout: 'Yes\n', stderr: '' });

  const child = spawn(process.execPath, [KD, ...ask], { env: world.env, stdio: 'ignore' });
  await theCard(world, 'Go on?');
  child.kill('SIGTERM');
  assert.deepEqual(await once(child, 'exit'), [5, null]);
  assert.deepEqual(await world.cards(), []);

  const late = await world.kd(['ask', '--no-terminal', '--agent', 'codex', '-t', 'Soon?', '--wait', '0.3']);
  assert.equal(late.code, 5);
  assert.deepEqual(await world.cards(), []);

  const batch = world.kd([...ask, '--row', 'a=First?=1', '--row', 'b=Second?']);
  const rows = await theCard(world, 'Go on?');
  const [first, second] = rows.rows;
  assert.deepEqual([rows.kind, rows.rows.length], ['batch', 2]);
  has(first, { question_id: 'a', text: 'First?', default: '1', agent_state: 'waiting' });
  has(second, { question_id: 'b', text: 'Second?', default: undefined });
  await world.kd(['answer', rows.id, '{"a":"1","b":"two"}']);
  assert.equal((await batch).stdout, 'a: 1\nb: two\n');
});

test('every command that is printed works when it is pasted, and a person at a shell may ask', async (t) => {
  const world = await World.open(t);
  const root = join(COMPANION, '..');
  const { KELVADROME_HOME: home, ...env } = world.env;
  const paste = (command, more = {}) =>
    new Promise((done) =>
      execFile('bash', ['-c', command], { cwd: root, env: { ...env, ...more } }, (error, stdout, stderr) =>
        done({ code: error?.code ?? 0, stdout, stderr }),
      ),
    );
  const asks = async (command, title, more) => {
    const asked = paste(command, more);
    const card = await theCard(world, title);
    assert.match(card.delivery_note, /^Asked from a shell/);
    await world.ok('/v1/cards/answer', { card_id: card.id, version: 1, answer: 'Yes' });
    return asked;
  };
  const { kd: command } = await world.ok('/v1/onboarding/status');
  const question = `${command} ask -t "Deploy to staging?" -o Yes -o No`;
  assert.deepEqual(await asks(`${question} --wait`, 'staging'), { code: 0, stdout: 'Yes\n', stderr: '' });
  const [readme] = /^ *scripts\/kd ask .*$/m.exec(readFileSync(join(root, 'README.md'), 'utf8'));
  assert.equal((await asks(readme, 'Merge the branch', { KELVADROME_HOME: home })).stdout, 'Yes\n');

  const kept = await asks(question, 'staging');
  const [, wait] = /^kd: Asked from a shell\. To wait for the answer: (.*)$/m.exec(kept.stderr);
  assert.equal((await paste(wait)).stdout, 'Yes\n');
  const sessions = async () => (await world.ok('/v1/agents/status')).sessions;
  await until(
    async () => (await sessions()).every((row) => row.status === 'ended'),
    'no shell waits any more',
  );
  const [, help] = /^Try (.*)\.$/m.exec((await paste(`${command} ask`)).stderr);
  const shown = await paste(help);
  const [, example] = /^Examples\n(.*)$/m.exec(shown.stdout);
  await asks(example, 'Deploy to staging?', { KELVADROME_HOME: home });
  await world.mint();
  const [, who] = /"(.*)"/.exec((await world.call('/v1/page/claim', { key: 'x'.repeat(43) })).error.message);
  assert.match((await paste(who)).stdout, /is registered/);
});

test('kd says one line when its output cannot be written, and nothing when nobody reads it', async (t) => {
  const world = await World.open(t);
  const full = openSync('/dev/full', 'w');
  for (const [stdout, end, words] of [
    [full, 1, 'kd: The output could not be written: there is no space left.\n'],
    ['pipe', 141, ''],
  ]) {
    const child = spawn(process.execPath, [KD, 'inbox'], {
      env: world.env,
      stdio: ['ignore', stdout, 'pipe'],
    });
    collect(child).stdout?.destroy();
    assert.deepEqual([(await child.ended).code, child.output], [end, words]);
  }
});

test('the sample question asks in a tmux of its own, once at a time, and without a terminal waits for its answer', async (t) => {
  const [world, page] = await World.loggedIn(t);
  const asked = JSON.parse((await world.kd(['sample', '--json'])).stdout);
  assert.deepEqual(await page.ok('/v1/onboarding/sample'), asked);
  const card = await world.card(asked.card_id);
  assert.deepEqual([card.label, card.answerable], ['sample', undefined]);
  const [, tmux] = /To watch it: (tmux -S '.*') attach$/.exec(asked.note);
  assert.match(execFileSync('bash', ['-c', `${tmux} list-panes -a`], { encoding: 'utf8' }), /%0/);
  assert.equal((await page.press(card.id, 'SQLite')).ok, true);
  assert.equal((await page.claimOne()).host, 'tmux');
  await world.kill('SIGTERM');
  assert.throws(() => execFileSync('bash', ['-c', `${tmux} list-panes -a`], { stdio: 'ignore' }));

  await world.start();
  const program = join(COMPANION, 'sample-agent/sample-agent.mjs');
  const alone = spawn(process.execPath, [program, '--sample', 'mine'], { env: world.env, stdio: 'ignore' });
  const left = once(alone, 'exit');
  const handed = await theCard(world, QUESTION.menu);
  assert.equal((await world.kd(['answer', handed.id, 'SQLite'])).code, 0);
  assert.deepEqual(await left, [0, null]);
});

test('kd says what is wrong, with an exit code for each case', async (t) => {
  const world = await World.open(t);
  const grok = 'ask --no-terminal --agent grok';
  const said = t.mock.method(process.stderr, 'write', () => true);
  const results = [];
  const table = [
    ['', 64, /nothing to do/],
    ['fly', 64, /no command "fly"/],
    ['ask --bogus', 64, /bogus/],
    ['ask --no-terminal -t x', 64, /needs --agent/],
    ['ask --agent grok -t x', 4, /named "grok"/],
    ['ask --pid 0x1 -t x', 64, /--pid/],
    [grok, 64, /--title/],
    [`${grok} -t x -o /a`, 1, /options\[0\]/],
    [`${grok} -t x --wait=soon`, 64, /seconds/],
    ['withdraw card-none', 1, /no card/],
    ['answer card-none x', 1, /no card/],
    [`inbox --home ${world.home}/none`, 3, /No kelvadromed/],
  ];
  for (const [line] of table) results.push(await kd(line.split(' ').filter(Boolean), world.env));
  said.mock.restore();
  for (const [index, [line, code, words]] of table.entries()) {
    const text = said.mock.calls[index].arguments[0];
    assert.deepEqual(
      [results[index], text.startsWith('kd: '), words.test(text)],
      [code, true, true],
      `${line}: ${text}`,
    );
  }
  assert.deepEqual(await world.cards(), []);
  assert.equal((await world.kd(['inbox'])).stdout, 'Nothing needs you.\n');
  assert.match((await world.kd(['ask', '--help'])).stdout, /--trust FOLDER/);

  await world.kd('touch --no-terminal --agent grok --session s1 --status busy --doing Reading'.split(' '));
  assert.match((await world.kd(['sessions'])).stdout, /^Ada +Grok +busy +- +- +Reading$/m);
});

test('the process table is read right: names with blanks and brackets, terminals, the way up', () => {
  const line = '42 (a) b (c)) S 7 40 1 34817 40 4194304 1 2 3 4 5 6 7 8 20 0 1 0 987 10 11 12 13 14 1616';
  const ids = { pid: 42, ppid: 7, pgid: 40, sid: 1, tpgid: 40, started: 987, image: 1616 };
  assert.deepEqual(parseStat(line), { ...ids, comm: 'a) b (c)', state: 'S', tty: 'pts/1' });
  const devices = { 'pts/3': 0x8803, 'pts/300': 0x10882c, 'pts/257': 0x8901, tty2: 0x402, ttyS0: 0x440 };
  for (const [name, device] of Object.entries(devices)) assert.equal(ttyName(device), name);
  assert.equal(ttyName(0), null);
  const chain = { 9: 'bash', 8: 'claude', 7: 'codex', 6: 'x' };
  const look = (pid) => (chain[pid] ? { pid, comm: chain[pid], ppid: Math.max(pid - 1, 6) } : null);
  const name = ({ comm }) => comm;
  assert.equal(findAbove(9, ['claude', 'codex'], look, name).pid, 8);
  assert.equal(findAbove(9, ['codex'], look, name).pid, 7);
  assert.equal(findAbove(9, ['grok'], look, name), null);
  assert.equal(whyNotTheAsker({ pid: process.pid }), null);
  assert.match(whyNotTheAsker({ pid: process.pid, started: 1 }), /another one than the one that asked/);
});
