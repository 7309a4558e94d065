// Whether an answer could be typed into the terminal of the agent that asks. These are the tests that the shell makes
// before it types, as far as they cannot turn out otherwise later; so the card can say it before anybody presses.
import { execFile } from 'node:child_process';
import { lstatSync, statSync } from 'node:fs';
import { environmentOf, isShell, processInfo } from './proc.mjs';
import { agentName } from '../shared/agents.js';
import { capitalised } from '../shared/text.js';

const TMUX_MS = 2000;
const PATH = [process.env.PATH, '/usr/local/bin', '/usr/bin', '/bin', '/opt/homebrew/bin']
  .filter(Boolean)
  .join(':');

function statOf(path, stat = statSync) {
  try {
    return stat(path);
  } catch {
    return null;
  }
}

/** The tmux server that the agent's environment names ("socket,pid,session"); null without one. */
function serverOf(pid) {
  const [, socket, server] = /^(\/.*),(\d+),\d+$/.exec(environmentOf(pid, 'TMUX') ?? '') ?? [];
  return socket === undefined ? null : { socket, server };
}

/** Why this socket is not asked; null when it is our own user's. */
function whyNotOurs(socket) {
  const file = statOf(socket, lstatSync);
  if (!file?.isSocket()) return 'is gone';
  return file.uid === process.getuid() ? null : 'belongs to another user';
}

/**
 * Asks a tmux server: what it says, null when it says no, undefined when it says nothing in time. A server that hangs
 * holds the client's output open beyond the client's end, so the limit is ours and not the client's.
 */
function askTmux(socket, ...words) {
  return new Promise((done) => {
    const client = execFile(
      'tmux',
      ['-S', socket, ...words],
      { env: { PATH, LC_ALL: 'C.UTF-8' } },
      (error, stdout) => {
        clearTimeout(timer);
        if (error) done(typeof error.code === 'number' ? null : undefined);
        else done(stdout);
      },
    );
    const timer = setTimeout(() => {
      client.kill('SIGKILL');
      for (const end of [client.stdout, client.stderr]) end.destroy();
      done(undefined);
    }, TMUX_MS);
  });
}

/** What the pane of a process that asks shows; null where that cannot be told. */
export async function screenOf({ pid, host, host_ref: pane }) {
  const named = host === 'tmux' ? serverOf(pid) : null;
  if (named === null || whyNotOurs(named.socket) !== null) return null;
  return (await askTmux(named.socket, 'capture-pane', '-p', '-t', pane)) ?? null;
}

/** The name of the tmux session that a process runs in; null where it runs in none, or that cannot be told. */
export async function sessionNameOf({ pid, host_ref: pane }) {
  const named = serverOf(pid);
  if (named === null || pane === undefined || whyNotOurs(named.socket) !== null) return null;
  const said = await askTmux(named.socket, 'display-message', '-p', '-t', pane, '#{session_name}');
  return said?.trim() || null;
}

/**
 * Whether the terminal that the process has open is another one than the pane's of the same name: each
 * container numbers its own. False where it cannot be told.
 */
function isNamesake(pid, tty) {
  const pane = statOf(`/dev/${tty}`);
  const open = [0, 1, 2]
    .map((fd) => statOf(`/proc/${pid}/fd/${fd}`))
    .filter((file) => file?.isCharacterDevice() && file.rdev === pane?.rdev);
  return open.length > 0 && !open.some((file) => file.dev === pane.dev && file.ino === pane.ino);
}

async function whyNotThroughTmux(name, info, pane) {
  const named = serverOf(info.pid);
  if (named === null) return `${name} does not say which tmux server it runs in`;
  const why = whyNotOurs(named.socket);
  if (why !== null) return `the tmux server of ${name} ${why}`;
  const said = await askTmux(
    named.socket,
    'display-message',
    '-p',
    '-t',
    pane,
    '#{pid} #{pane_tty} #{pane_current_command}',
  );
  if (said === undefined) return null;
  const [server, path, ...command] = (said ?? '').trim().split(' ');
  if (server !== named.server || !path?.startsWith('/dev/')) return `tmux has no pane ${pane} for ${name}`;
  const tty = path.slice('/dev/'.length);
  if (tty !== info.tty)
    return `${name} runs in the terminal ${info.tty}, but its tmux pane is ${tty}; something like "script" or "su" is between them`;
  if (isNamesake(info.pid, tty))
    return `${name} runs in a terminal of a container, which only has the same name as its tmux pane`;
  // tmux names the leader of the group in front. It says something of the agent only while that is the agent's group.
  const leader = command.join(' ');
  return info.tpgid === info.pgid && isShell(leader)
    ? `the shell "${leader}" that started ${name} has the terminal together with it`
    : null;
}

async function whyNot(name, { pid, pgid, tty, host, host_ref: pane, codex_thread: thread }) {
  if (host === 'unknown' && thread !== undefined) return null; // goes through Codex's own queue
  const info = processInfo(pid);
  if (info === null) return `${name} has ended`;
  if (info.tty !== tty)
    return `${name} runs in ${info.tty === null ? 'no terminal' : `the terminal ${info.tty}`}, not in ${tty}`;
  if (pgid !== undefined && info.pgid !== pgid) return `${name} is not the process group that it says it is`;
  if (host === 'unknown')
    return `${name} runs in a terminal that nothing can be typed into from outside, such as a window without tmux`;
  return host === 'tmux' ? whyNotThroughTmux(name, info, pane) : null;
}

/**
 * Why no answer to this checked ask could be typed, in sentences for a person; null when one could, or none
 * has to be.
 */
export async function whyUntypable({ agent, live, delivery }) {
  if (delivery !== 'terminal') return null;
  const why = await whyNot(agentName(agent), live);
  return why === null ? null : `${capitalised(why)}. Answer it there.`;
}
