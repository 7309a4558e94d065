// The process table, as far as the daemon and `kd` need it: from /proc on Linux, from `ps` elsewhere.
import { readFileSync } from 'node:fs';
import { execFileSync } from 'node:child_process';
import { basename } from 'node:path';

/** Programs that wait for commands. What an answer says must never reach one. */
const SHELLS = ['zsh', 'bash', 'sh', 'fish', 'tcsh', 'csh', 'dash', 'ksh', 'nu', 'login'];
export const isShell = (name) => SHELLS.includes(name.replace(/^-/, ''));

const INTERPRETER = /^(node|nodejs|bun|deno|python[0-9.]*)$/;
const NO_NAME = ['MainThread', 'node-MainThread']; // what Node calls its first thread, and thereby the process
const TAKES_A_VALUE = [
  '-r',
  '--require',
  '--import',
  '--loader',
  '--experimental-loader',
  '-C',
  '--conditions',
  '--env-file',
  '-X',
  '-W',
];
const NO_SCRIPT = ['-e', '--eval', '-p', '--print', '-c', '-'];
const SAYS_NOTHING = ['index', 'cli', 'main', '__main__'];

/** The package that a file belongs to, without a tail that only says what kind of package it is. */
function packageOf(path) {
  const match = /.*\/(?:node_modules|site-packages)\/(?:@[^/]+\/)?([^/]+)\//.exec(path);
  return match ? match[1].replace(/-(cli|code|ai)$/, '') : '';
}

/**
 * The name that a process goes by: its command, but for a script that an interpreter runs the script's own
 * name, without its extension; a script that is called "index" or the like goes by its package, a module of
 * Python by its first part. `args` are the words of its command line, the interpreter first.
 */
export function programName(comm, args) {
  const name = basename(comm) || comm;
  if (!INTERPRETER.test(basename(args[0] ?? '')) || !(INTERPRETER.test(name) || NO_NAME.includes(name)))
    return name;
  for (let i = 1; i < args.length; i++) {
    if (NO_SCRIPT.includes(args[i])) return name;
    if (args[i] === '-m') return args[i + 1]?.split('.')[0] || name;
    if (TAKES_A_VALUE.includes(args[i])) i++;
    else if (!args[i].startsWith('-') && !(i === 1 && args[i] === 'run' && args.length > 2)) {
      const script = basename(args[i]).replace(/\.([cm]?[jt]sx?|pyz?)$/, '');
      return (SAYS_NOTHING.includes(script) && packageOf(args[i])) || script || name;
    }
  }
  return name;
}

/** Terminal name as `ps -o tty` prints it, from the kernel's device number; null without a terminal. */
export function ttyName(device) {
  if (device === 0) return null;
  const major = (device >> 8) & 0xfff;
  const minor = (device & 0xff) | ((device >>> 12) & 0xfff00);
  if (major >= 136 && major <= 143) return `pts/${(major - 136) * 256 + minor}`;
  if (major === 4) return minor < 64 ? `tty${minor}` : `ttyS${minor - 64}`;
  return null;
}

/** Fields of /proc/PID/stat. The command may hold blanks and parentheses, so the last ")" ends it. */
export function parseStat(text) {
  const open = text.indexOf('(');
  const close = text.lastIndexOf(')');
  const fields = text.slice(close + 2).split(' ');
  const [state, ppid, pgid, sid, device, tpgid] = fields;
  return {
    pid: Number(text.slice(0, open)),
    comm: text.slice(open + 1, close),
    state,
    ppid: Number(ppid),
    pgid: Number(pgid),
    sid: Number(sid),
    tty: ttyName(Number(device)),
    tpgid: Number(tpgid),
    started: Number(fields[19]),
    image: Number(fields[25]),
  };
}

function fromPs(pid) {
  const line = execFileSync('ps', ['-o', 'pid=,ppid=,pgid=,stat=,tty=,comm=', '-p', String(pid)], {
    encoding: 'utf8',
    timeout: 3000,
    stdio: ['ignore', 'pipe', 'ignore'],
  });
  const match = /^\s*(\d+)\s+(\d+)\s+(\d+)\s+(\S+)\s+(\S+)\s+(.*?)\s*$/m.exec(line);
  if (!match) return null;
  const tty = ['?', '??', '-'].includes(match[5]) ? null : match[5];
  return {
    pid: Number(match[1]),
    ppid: Number(match[2]),
    pgid: Number(match[3]),
    state: match[4][0],
    tty,
    comm: match[6].split('/').pop(),
  };
}

/** One process, or null when there is none with this id. */
export function processInfo(pid) {
  try {
    return process.platform === 'linux'
      ? parseStat(readFileSync(`/proc/${pid}/stat`, 'latin1'))
      : fromPs(pid);
  } catch {
    return null;
  }
}

/** The words of a process's command line; none when they cannot be read. */
export function argumentsOf(pid) {
  try {
    if (process.platform === 'linux')
      return readFileSync(`/proc/${pid}/cmdline`, 'utf8').replace(/\0$/, '').split('\0');
    return execFileSync('ps', ['-o', 'args=', '-p', String(pid)], {
      encoding: 'utf8',
      timeout: 3000,
      stdio: ['ignore', 'pipe', 'ignore'],
    })
      .trim()
      .split(/\s+/);
  } catch {
    return [];
  }
}

/** The name that the process of this `info` goes by. */
export const nameOf = (info) =>
  programName(
    info.comm,
    INTERPRETER.test(info.comm) || NO_NAME.includes(info.comm) ? argumentsOf(info.pid) : [],
  );

/**
 * Whether the process still runs; one that has ended and was not yet collected does not. `started`, when known, is its
 * `startOf`: another process that got the same id since is not it.
 */
export function isRunning(pid, started) {
  if (process.platform === 'linux') {
    const info = processInfo(pid);
    return (
      info !== null &&
      info.state !== 'Z' &&
      info.state !== 'X' &&
      (started === undefined || info.started === started)
    );
  }
  try {
    process.kill(pid, 0);
    return true;
  } catch (error) {
    return error.code === 'EPERM';
  }
}

/**
 * What identifies a process beside its id, which is used again: when it started, in the kernel's ticks, and
 * where its stack begins, which changes when it runs another program. Empty where that cannot be told.
 */
export function identityOf(pid) {
  const info = process.platform === 'linux' ? processInfo(pid) : null;
  return info === null ? {} : { started: info.started, ...(info.image > 0 ? { image: info.image } : {}) };
}

/** Whether the process of `live` is another one with its number, or runs another program since `live` was told. */
export function isAnother({ pid, started, image }) {
  const now = identityOf(pid);
  return (
    now.started !== undefined &&
    ((started !== undefined && now.started !== started) || (image !== undefined && now.image !== image))
  );
}

/** Why the process of `live` is no longer the one that asked; null while it is. */
export function whyNotTheAsker(live) {
  if (live.pid === undefined) return null;
  if (!isRunning(live.pid)) return 'the agent process ended';
  return isAnother(live) ? 'the agent process is another one than the one that asked' : null;
}

/** One variable of another process's environment at its start; null when it has none or cannot be read. */
export function environmentOf(pid, name) {
  try {
    const entry = readFileSync(`/proc/${pid}/environ`, 'utf8')
      .split('\0')
      .find((line) => line.startsWith(`${name}=`));
    return entry === undefined ? null : entry.slice(name.length + 1);
  } catch {
    return pid === process.pid || process.platform !== 'linux' ? (process.env[name] ?? null) : null;
  }
}
