// `kd run`, `kd attach` and `kd doctor` as a person at a terminal uses them.
import { test } from 'node:test';
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import { chmodSync, mkdirSync, mkdtempSync, rmSync, writeFileSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { KD, World, has, until } from './world.mjs';

test('kd run keeps an agent in tmux, hides that, and passes its exit code on', async (t) => {
  const folder = mkdtempSync(join(tmpdir(), 'kd-'));
  const env = { ...process.env, TMUX: '', TMUX_TMPDIR: join(folder, 'in'), SECRET: 'not to be seen' };
  delete env.TMUX;
  mkdirSync(env.TMUX_TMPDIR);
  const outer = (...words) =>
    execFileSync('tmux', ['-S', join(folder, 'out'), '-f', '/dev/null', ...words], {
      encoding: 'utf8',
      env,
      stdio: 'pipe',
    });
  const inner = (...words) => execFileSync('tmux', words, { encoding: 'utf8', env, stdio: 'pipe' });
  t.after(() => {
    for (const end of [outer, inner]) {
      try {
        end('kill-server');
      } catch {
        /* it went with its last session */
      }
    }
    rmSync(folder, { recursive: true, force: true });
  });
  const agent = join(folder, 'agent');
  writeFileSync(agent, '#!/bin/sh\necho "hears $*, $SECRET"\nread line\necho "heard $line"\nexit 7\n');
  chmodSync(agent, 0o755);
  outer('new-session', '-d', '-x', '90', '-y', '20', '-s', 'o', 'env', '-u', 'TMUX', 'bash', '--norc');
  const type = (text) => outer('send-keys', '-t', 'o', text, 'Enter');
  const shows = (words) => {
    const screen = () => outer('capture-pane', '-p', '-J', '-t', 'o');
    return until(() => words.test(screen()) && screen(), `the terminal shows ${words}`);
  };
  const kd = `${process.execPath} --no-warnings ${KD}`;

  type(`${kd} run ${agent} a "b  c"; echo code=$?`);
  assert.doesNotMatch(await shows(/hears a b {2}c, not to be seen/), /\[kd-|code=\d/);
  // The agent is the first process of its pane, and no argument list told its environment.
  const [pid] = inner('list-panes', '-a', '-F', '#{pane_pid}').split('\n');
  assert.doesNotMatch(execFileSync('ps', ['-eo', 'args'], { encoding: 'utf8' }), /not to be seen/);
  assert.match(execFileSync('ps', ['-o', 'args=', '-p', pid], { encoding: 'utf8' }), /agent a b/);

  outer('send-keys', '-t', 'o', 'C-b', 'd');
  await shows(/runs on.*attach agent\n+code=0/s);
  type(`clear; ${kd} attach; echo code=$?`);
  await shows(/^hears a b/);
  type('you');
  await shows(/code=7/);
  assert.throws(() => inner('list-sessions'), 'nothing is left');
  type(`clear; ${kd} run no-such-program; echo code=$?`);
  await shows(/There is no program "no-such-program"\.\s+code=127/);
  // Within tmux it can be answered as it is.
  type(`clear; TMUX=there ${kd} run ${agent} plain; echo code=$?`);
  await shows(/hears plain/);
  type('you');
  await shows(/heard you\n+code=7/);
});

test('kd doctor says what is wrong and what to do, and tells no secret', async (t) => {
  const world = await World.open(t);
  const env = { ...world.env, CLAUDE_CONFIG_DIR: join(world.home, 'c'), CODEX_HOME: join(world.home, 'x') };
  const doctor = async () => {
    const said = await world.kd(['doctor', '--json'], { env });
    const { works, checks } = JSON.parse(said.stdout);
    return { ...said, works, of: (name) => checks.find((check) => check.name === name) };
  };
  const alone = await doctor();
  has(alone, { code: 1, works: false });
  has(alone.of('daemon'), { state: 'ok' });
  has(alone.of('shell'), { state: 'bad', todo: 'Start Kelvadrome and leave it open.' });
  assert.match(alone.of('hooks of Claude Code').todo, /^KELVADROME_HOME=.*\/kd hooks install claude$/);

  const page = await world.login();
  await page.ok('/v1/deliver/claim', { wait_ms: 1 });
  await world.kd(['hooks', 'install', 'claude'], { env });
  const { live } = await world.panes.start();
  const healthy = await doctor();
  has(healthy, { code: 0, works: true });
  has(healthy.of('shell'), { state: 'ok' });
  assert.match(healthy.stdout, new RegExp(`Claude Code \\(pid ${live.pid}, ${live.tty}\\)`));
  assert.ok(!healthy.stdout.includes(page.cookie));

  chmodSync(world.home, 0o755);
  has((await doctor()).of('data home'), { state: 'bad' });
  await world.kill();
  has((await doctor()).of('daemon'), { state: 'bad' });
});
