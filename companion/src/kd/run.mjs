// `kd run AGENT ...`: an agent in tmux for people who do not use tmux, so that it can be answered from elsewhere and
// outlives its terminal. It looks as if nothing were there.
import { execFileSync, spawn } from 'node:child_process';
import { accessSync, constants, mkdtempSync, readFileSync, rmSync, statSync, writeFileSync } from 'node:fs';
import { constants as system, tmpdir } from 'node:os';
import { basename, delimiter, join } from 'node:path';
import { kdProgram } from '../layout.mjs';
import { isRunning } from '../proc.mjs';
import { EXIT, KD, KdError } from './client.mjs';

const PREFIX = 'kd-';
/** What the terminals of today can do, and tmux asks about only in its configuration. */
const FEATURES = '256,RGB,clipboard,focus,mouse,title,hyperlinks';
const NOT_FOUND = 127;
const LOOK_MS = 1000;

function tmux(...words) {
  try {
    return execFileSync('tmux', words, { encoding: 'utf8', stdio: ['ignore', 'pipe', 'pipe'] }).trim();
  } catch (error) {
    if (error.code === 'ENOENT') throw new KdError('tmux is not installed.', EXIT.failed);
    throw new KdError(`tmux: ${String(error.stderr || error.message).trim()}`, EXIT.failed);
  }
}

/** The file of a program as a shell would find it. */
function fileOf(program, env) {
  const places = program.includes('/')
    ? [program]
    : (env.PATH ?? '').split(delimiter).map((at) => join(at, program));
  const found = places.find((path) => {
    try {
      accessSync(path, constants.X_OK);
      return statSync(path).isFile();
    } catch {
      return false;
    }
  });
  if (!found) throw new KdError(`There is no program "${program}".`, NOT_FOUND);
  return found;
}

/** Runs a program in this terminal to its end and gives its exit code, 128 and more for a signal. */
function runToEnd(program, words, env) {
  return new Promise((done, failed) => {
    const child = spawn(program, words, { stdio: 'inherit', env });
    const handlers = ['SIGTERM', 'SIGHUP'].map((signal) => [signal, () => child.kill(signal)]);
    // The terminal gives these to the program itself.
    handlers.push(['SIGINT', () => {}], ['SIGQUIT', () => {}]);
    for (const [signal, handle] of handlers) process.on(signal, handle);
    child.on('error', failed);
    child.on('close', (code, signal) => {
      for (const [name, handle] of handlers) process.off(name, handle);
      done(signal ? 128 + system.signals[signal] : code);
    });
  });
}

const sessions = () => {
  try {
    return tmux('list-sessions', '-F', '#{session_name}')
      .split('\n')
      .filter((name) => name.startsWith(PREFIX));
  } catch (error) {
    if (error.message.startsWith('tmux: ')) return []; // no server runs
    throw error;
  }
};

function freeName(program) {
  const word = basename(program).replace(/[^A-Za-z0-9_-]/g, '') || 'agent';
  const taken = sessions();
  for (let number = 1; ; number++) {
    const name = `${PREFIX}${word}${number === 1 ? '' : `-${number}`}`;
    if (!taken.includes(name)) return name;
  }
}

/** A busy tmux can miss the end of a pane's process; another child of its own makes it look. */
function remindOfEnd(name) {
  const pid = Number(tmux('display-message', '-p', '-t', `=${name}:`, '#{pane_pid}'));
  return setInterval(() => {
    if (isRunning(pid)) return;
    try {
      tmux('run-shell', 'true');
    } catch {
      /* it has seen it */
    }
  }, LOOK_MS);
}

/** Shows the session here until its agent ends or the user leaves; the exit code of the agent, or 0. */
async function show(name, env) {
  const reminder = remindOfEnd(name);
  const code = await runToEnd('tmux', ['-T', FEATURES, 'attach-session', '-t', `=${name}`], env);
  clearInterval(reminder);
  process.stdout.write('\x1b[1A\x1b[2K'); // the line that tmux leaves behind
  let end;
  try {
    end = tmux(
      'display-message',
      '-p',
      '-t',
      `=${name}:`,
      '#{pane_dead} #{pane_dead_status} #{pane_dead_signal}',
    );
  } catch {
    return code; // it is over, and somebody else has cleared up
  }
  const [isDead, status, signal] = end.split(' ');
  if (isDead !== '1') {
    process.stdout.write(`It runs on. To see it again: ${KD} attach ${name.slice(PREFIX.length)}\n`);
    return EXIT.ok;
  }
  tmux('kill-session', '-t', `=${name}`);
  if (signal) return 128 + Number(signal);
  return Number(status) || EXIT.ok;
}

/** `kd run [--] PROGRAM ...` */
export async function runHere(words, env) {
  const [program, ...rest] = words[0] === '--' ? words.slice(1) : words;
  if (program === undefined) throw new KdError('Say what to run: kd run claude', EXIT.usage);
  const file = fileOf(program, env);
  if (env.TMUX) return runToEnd(file, rest, env); // it can be answered as it is
  if (!process.stdin.isTTY || !process.stdout.isTTY)
    throw new KdError('kd run needs a terminal.', EXIT.usage);
  const name = freeName(program);
  // Not as words of a command: what stands in the environment may be secret.
  const folder = mkdtempSync(join(tmpdir(), 'kd-run-'));
  const order = join(folder, 'order.json');
  writeFileSync(order, JSON.stringify({ file, words: [program, ...rest], env, folder }), { mode: 0o600 });
  const [columns, rows] = process.stdout.getWindowSize();
  const inside = [process.execPath, '--no-warnings', kdProgram, 'run-inside', order];
  try {
    tmux(
      ...[
        'new-session',
        '-d',
        '-s',
        name,
        '-x',
        String(columns),
        '-y',
        String(rows),
        '-c',
        process.cwd(),
        ...inside,
      ],
      ...[';', 'set-option', '-t', name, 'status', 'off'],
      ...[';', 'set-option', '-w', '-t', name, 'remain-on-exit', 'on'],
      // Who looks on is let go, and the exit code is read; without anybody there the session goes.
      ...[';', 'set-hook', '-t', name, 'pane-died'],
      `if-shell -F '#{session_attached}' 'detach-client -s =${name}' 'kill-session -t =${name}'`,
    );
  } catch (error) {
    rmSync(folder, { recursive: true, force: true });
    throw error;
  }
  return show(name, env);
}

/** The first process of the pane: becomes the program, with the environment of who started it and that of its pane. */
export function runInside(order) {
  const { file, words, env, folder } = JSON.parse(readFileSync(order, 'utf8'));
  rmSync(folder, { recursive: true, force: true });
  const { TMUX, TMUX_PANE, TERM } = process.env;
  process.execve(file, words, { ...env, TMUX, TMUX_PANE, TERM });
}

/** `kd attach [NAME]` */
export async function attach({ positionals: [wanted], env = process.env }) {
  const names = sessions().map((name) => name.slice(PREFIX.length));
  if (env.TMUX) throw new KdError(`This is tmux: use tmux switch-client -t ${PREFIX}NAME.`, EXIT.usage);
  const name = wanted ?? (names.length === 1 ? names[0] : undefined);
  if (names.includes(name)) return show(PREFIX + name, env);
  const list = names.length > 0 ? `Say which: ${names.join(', ')}` : 'No agent of kd run is there.';
  throw new KdError(wanted ? `There is no "${wanted}". ${list}` : list, EXIT.noAgent);
}
