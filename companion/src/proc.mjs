// The process table, as far as the daemon and `kd` need it: from /proc on Linux, from `ps` elsewhere.
import { readFileSync } from 'node:fs';
import { execFileSync } from 'node:child_process';

/** The programs that are known as coding agents, by the name that `ps` prints. */
export const AGENTS = ['claude', 'codex', 'grok', 'gemini', 'qwen', 'copilot', 'cursor-agent', 'droid', 'opencode', 'amp', 'aider', 'pi'];

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
  const [state, ppid, pgid, , device, tpgid] = fields;
  return {
    pid: Number(text.slice(0, open)), comm: text.slice(open + 1, close), state,
    ppid: Number(ppid), pgid: Number(pgid), tty: ttyName(Number(device)), tpgid: Number(tpgid), started: Number(fields[19]),
  };
}

function fromPs(pid) {
  const line = execFileSync('ps', ['-o', 'pid=,ppid=,pgid=,stat=,tty=,comm=', '-p', String(pid)], { encoding: 'utf8', timeout: 3000, stdio: ['ignore', 'pipe', 'ignore'] });
  const match = /^\s*(\d+)\s+(\d+)\s+(\d+)\s+(\S+)\s+(\S+)\s+(.*?)\s*$/m.exec(line);
  if (!match) return null;
  const tty = ['?', '??', '-'].includes(match[5]) ? null : match[5];
  return { pid: Number(match[1]), ppid: Number(match[2]), pgid: Number(match[3]), state: match[4][0], tty, comm: match[6].split('/').pop() };
}

/** One process, or null when there is none with this id. */
export function processInfo(pid) {
  try {
    return process.platform === 'linux' ? parseStat(readFileSync(`/proc/${pid}/stat`, 'latin1')) : fromPs(pid);
  } catch {
    return null;
  }
}

/**
 * Whether the process still runs; one that has ended and was not yet collected does not. `started`, when known, is its
 * `startOf`: another process that got the same id since is not it.
 */
export function isRunning(pid, started) {
  if (process.platform === 'linux') {
    const info = processInfo(pid);
    return info !== null && info.state !== 'Z' && info.state !== 'X' && (started === undefined || info.started === started);
  }
  try {
    process.kill(pid, 0);
    return true;
  } catch (error) {
    return error.code === 'EPERM';
  }
}

/** When the process started, in the kernel's ticks; undefined where that cannot be told. */
export const startOf = (pid) => (process.platform === 'linux' ? processInfo(pid)?.started : undefined);

/** One variable of another process's environment at its start; null when it has none or cannot be read. */
export function environmentOf(pid, name) {
  try {
    const entry = readFileSync(`/proc/${pid}/environ`, 'utf8').split('\0').find((line) => line.startsWith(`${name}=`));
    return entry === undefined ? null : entry.slice(name.length + 1);
  } catch {
    return pid === process.pid || process.platform !== 'linux' ? process.env[name] ?? null : null;
  }
}
