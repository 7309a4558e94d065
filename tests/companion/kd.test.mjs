// `kd` as agents use it, from a real tmux pane, and the sample agent under a shell's hand.
import { test } from 'node:test';
import assert from 'node:assert/strict';
import { execFile, execFileSync, spawn } from 'node:child_process';
import { once } from 'node:events';
import { readFileSync, realpathSync } from 'node:fs';
import { join } from 'node:path';
import { COMPANION, KD, World, until } from './world.mjs';
import { findAbove } from '../../companion/src/kd/agent.mjs';
import { parseStat, ttyName, whyNotTheAsker } from '../../companion/src/proc.mjs';

const QUESTION = {
  menu: 'Which database',
  text: 'new command be called',
  batch: '3 choices',
  stop: 'Pay the invoice',
  trust: 'Trust the folder',
};

/** The sample agent in a pane of its own. */
async function sampleAgent(world, script) {
  const program = join(COMPANION, 'sample-agent/sample-agent.mjs');
  const command = [
    'env',
    `KELVADROME_HOME=${world.home}`,
    process.execPath,
    program,
    '--once',
    '--pause',
    '0',
  ];
  const pane = await world.panes.start([...command, '--script', script], 'claude', world.home);
  return { ...pane, ref: pane.live.host_ref };
}

const theCard = (world, title) =>
  until(async () => (await world.cards()).find((card) => card.title.includes(title)), `the card "${title}"`);

test('the sample agent takes typed answers of every kind, and its cards end with them', async (t) => {
  const [world, page] = await World.loggedIn(t);
  const pane = await sampleAgent(world, 'menu,text,batch,stop,trust');
  const keysOf = (steps) =>
    steps.flatMap((step) =>
      step.kind === 'text'
        ? [['-l', '--', step.text], ['Enter']]
        : step.kind === 'key'
          ? [['-l', '--', step.key]]
          : [[{ down: 'Down', enter: 'Enter' }[step.key]]],
    );
  const answers = [
    ['menu', 'SQLite'],
    ['text', 'zürich go 42'],
    ['batch', { lang: 'Go', tests: 'no', port: '1' }],
    ['stop', 'Reject'],
    ['trust', 'Yes, I trust this folder'],
  ];
  for (const [kind, answer] of answers) {
    const card = await theCard(world, QUESTION[kind]);
    if (kind === 'trust') {
      const lines = (await pane.shows('Enter to confirm'))
        .split('\n')
        .map((line) => line.trimEnd())
        .filter((line) => line !== '');
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
    const [pid, pgid, tpgid, tty, comm] = execFileSync(
      'ps',
      ['-o', 'pid=,pgid=,tpgid=,tty=,comm=', '-p', String(pane.pid)],
      { encoding: 'utf8' },
    )
      .trim()
      .split(/\s+/);
    assert.deepEqual(
      [job.agent, job.pid, job.pgid, job.pgid, job.tty, job.host, job.host_ref],
      ['claude', Number(pid), Number(pgid), Number(tpgid), tty, 'tmux', pane.ref],
    );
    assert.equal(
      world.panes.tmux('display-message', '-p', '-t', pane.ref, '#{pane_tty} #{pane_current_command}'),
      `/dev/${tty} ${comm}`,
    );
    for (const keys of keysOf(job.steps)) pane.type(...keys);
    await pane.shows(`You chose: ${typeof answer === 'string' ? answer : 'lang: Go; tests: no; port: 1'}`);
    await page.report(job.id, 'done');
    await until(async () => !(await world.card(card.id)), 'the card is closed');
  }
  assert.deepEqual(
    (await world.receipts()).map((receipt) => receipt.action).filter((action) => action !== 'answer.held'),
    Array(5).fill('answer.typed'),
  );
  assert.equal((await world.ok('/v1/topic/detail', { topic: 'Storage' })).folder, realpathSync(world.home));
});

test('an answer by hand withdraws the card, and so does leaving; without a daemon the agent goes on by itself', async (t) => {
  const world = await World.open(t);
  const pane = await sampleAgent(world, 'menu,text');
  await theCard(world, QUESTION.menu);
  pane.type('Down', 'Enter');
  await pane.shows('You chose: SQLite');
  await theCard(world, QUESTION.text);
  assert.equal((await world.receipts())[0].action, 'card.withdrawn');
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
  assert.deepEqual(
    [rows.kind, rows.rows],
    [
      'batch',
      [
        { question_id: 'a', text: 'First?', default: '1', agent_state: 'waiting' },
        { question_id: 'b', text: 'Second?', agent_state: 'waiting' },
      ],
    ],
  );
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
    assert.equal((await world.kd(['answer', card.id, 'Yes'])).code, 0);
    return asked;
  };
  const { kd } = await world.ok('/v1/onboarding/status');
  const question = `${kd} ask -t "Deploy to staging?" -o Yes -o No`;
  assert.deepEqual(await asks(`${question} --wait`, 'staging'), { code: 0, stdout: 'Yes\n', stderr: '' });
  const [readme] = /^ *scripts\/kd ask .*$/m.exec(readFileSync(join(root, 'README.md'), 'utf8'));
  assert.equal((await asks(readme, 'Merge the branch', { KELVADROME_HOME: home })).stdout, 'Yes\n');

  const kept = await asks(question, 'staging');
  const [, wait] = /^kd: Asked from a shell\. To wait for the answer: (.*)$/m.exec(kept.stderr);
  assert.equal((await paste(wait)).stdout, 'Yes\n');
  const { sessions } = await world.ok('/v1/agents/status');
  assert.deepEqual([...new Set(sessions.map((row) => row.status))], ['ended'], 'no shell waits any more');
  const [, help] = /^Try (.*)\.$/m.exec((await paste(`${kd} ask`)).stderr);
  const shown = await paste(help);
  const [, example] = /^Examples\n(.*)$/m.exec(shown.stdout);
  await asks(example, 'Deploy to staging?', { KELVADROME_HOME: home });
  await world.mint();
  const [, who] = /"(.*)"/.exec((await world.call('/v1/page/claim', { key: 'x'.repeat(43) })).error.message);
  assert.match((await paste(who)).stdout, /is registered/);

  const full = await paste(`${kd} inbox > /dev/full`);
  assert.deepEqual(
    [full.code, full.stderr],
    [1, 'kd: The output could not be written: there is no space left.\n'],
  );
  const closed = spawn(process.execPath, [KD, '--help'], { stdio: ['ignore', 'pipe', 'pipe'] });
  closed.stdout.destroy();
  let said = '';
  closed.stderr.on('data', (piece) => {
    said += piece;
  });
  assert.deepEqual([await once(closed, 'close'), said], [[141, null], '']);
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
  world.child.kill('SIGTERM');
  await world.child.ended;
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
  const table = [
    [[], 64, 'nothing to do'],
    [['fly'], 64, 'no command "fly"'],
    [['ask', '--bogus'], 64, 'bogus'],
    [['ask', '--no-terminal', '-t', 'x'], 64, 'needs --agent'],
    [['ask', '--agent', 'grok', '-t', 'x'], 4, 'named "grok"'],
    [['ask', '--pid', '0x1', '-t', 'x'], 64, '--pid'],
    [['ask', '--no-terminal', '--agent', 'grok'], 64, '--title'],
    [['ask', '--no-terminal', '--agent', 'grok', '-t', 'x', '-o', '/a'], 1, 'options[0]'],
    [['ask', '--no-terminal', '--agent', 'grok', '-t', 'x', '--wait=soon'], 64, 'seconds'],
    [['withdraw', 'card-none'], 1, 'no card'],
    [['answer', 'card-none', 'x'], 1, 'no card'],
    [['inbox', '--home', join(world.home, 'none')], 3, 'No kelvadromed'],
  ];
  for (const [args, code, word] of table) {
    const run = await world.kd(args);
    assert.deepEqual([run.code, run.stdout], [code, ''], `${args}: ${run.stderr}`);
    assert.ok(run.stderr.startsWith('kd: ') && run.stderr.includes(word), run.stderr);
  }
  assert.deepEqual(await world.cards(), []);
  assert.equal((await world.kd(['inbox'])).stdout, 'Nothing needs you.\n');
  assert.match((await world.kd(['ask', '--help'])).stdout, /--trust FOLDER/);

  await world.kd('touch --no-terminal --agent grok --session s1 --status busy --doing Reading'.split(' '));
  assert.match((await world.kd(['sessions'])).stdout, /^Ada +Grok +busy +- +- +Reading$/m);
});

test('the process table is read right: names with blanks and brackets, terminals, the way up', () => {
  assert.deepEqual(
    parseStat('42 (a) b (c)) S 7 40 1 34817 40 4194304 1 2 3 4 5 6 7 8 20 0 1 0 987 10 11 12 13 14 1616'),
    {
      pid: 42,
      comm: 'a) b (c)',
      state: 'S',
      ppid: 7,
      pgid: 40,
      sid: 1,
      tty: 'pts/1',
      tpgid: 40,
      started: 987,
      image: 1616,
    },
  );
  for (const [device, name] of [
    [0, null],
    [(136 << 8) | 3, 'pts/3'],
    [(136 << 8) | 44 | (1 << 20), 'pts/300'],
    [(137 << 8) | 1, 'pts/257'],
    [(4 << 8) | 2, 'tty2'],
    [(4 << 8) | 64, 'ttyS0'],
  ])
    assert.equal(ttyName(device), name);
  const table = {
    9: { pid: 9, comm: 'bash', ppid: 8 },
    8: { pid: 8, comm: 'claude', ppid: 7 },
    7: { pid: 7, comm: 'codex', ppid: 6 },
    6: { pid: 6, comm: 'x', ppid: 6 },
  };
  const look = (pid) => table[pid] ?? null;
  const name = ({ comm }) => comm;
  assert.equal(findAbove(9, ['claude', 'codex'], look, name).pid, 8);
  assert.equal(findAbove(9, ['codex'], look, name).pid, 7);
  assert.equal(findAbove(9, ['grok'], look, name), null);
  assert.equal(whyNotTheAsker({ pid: process.pid }), null);
  assert.match(whyNotTheAsker({ pid: process.pid, started: 1 }), /another one than the one that asked/);
});
