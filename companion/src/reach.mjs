// Whether an answer could be typed into the terminal of the agent that asks. These are the tests that the shell makes
// before it types, as far as they cannot turn out otherwise later; so the card can say it before anybody presses.
import { execFile } from 'node:child_process';
import { lstatSync, statSync } from 'node:fs';
import { environmentOf, isShell, processInfo } from './proc.mjs';
import { agentName } from './names.mjs';

const TMUX_MS = 2000;
const PATH = [process.env.PATH, '/usr/local/bin', '/usr/bin', '/bin', '/opt/homebrew/bin'].filter(Boolean).join(':');

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

/** What a pane holds: {server, tty, command}; null when it is not there, undefined when tmux did not say. */
function paneOf(socket, pane) {
  const words = ['-S', socket, 'display-message', '-p', '-t', pane, '#{pid} #{pane_tty} #{pane_current_command}'];
  return new Promise((done) => {
    execFile('tmux', words, { timeout: TMUX_MS, killSignal: 'SIGKILL', env: { PATH, LC_ALL: 'C.UTF-8' } }, (error, stdout) => {
      const [server, tty, ...command] = stdout.trim().split(' ');
      if (error) done(typeof error.code === 'number' ? null : undefined);
      else done(tty?.startsWith('/dev/') ? { server, tty: tty.slice('/dev/'.length), command: command.join(' ') } : null);
    });
  });
}

/**
 * Whether the terminal that the process has open is another one than the pane's of the same name: each container numbers
 * its own. False where it cannot be told.
 */
function isNamesake(pid, tty) {
  const pane = statOf(`/dev/${tty}`);
  const open = [0, 1, 2].map((fd) => statOf(`/proc/${pid}/fd/${fd}`)).filter((file) => file?.isCharacterDevice() && file.rdev === pane?.rdev);
  return open.length > 0 && !open.some((file) => file.dev === pane.dev && file.ino === pane.ino);
}

async function whyNotThroughTmux(name, info, pane) {
  const named = serverOf(info.pid);
  if (named === null) return `${name} does not say which tmux server it runs in`;
  const file = statOf(named.socket, lstatSync);
  if (!file?.isSocket()) return `the tmux server of ${name} is gone`;
  if (file.uid !== process.getuid()) return `the tmux server of ${name} belongs to another user`;
  const held = await paneOf(named.socket, pane);
  if (held === undefined) return null;
  if (held === null || held.server !== named.server) return `tmux has no pane ${pane} for ${name}`;
  if (held.tty !== info.tty) return `${name} runs in the terminal ${info.tty}, but its tmux pane is ${held.tty}; something like "script" or "su" is between them`;
  if (isNamesake(info.pid, info.tty)) return `${name} runs in a terminal of a container, which only has the same name as its tmux pane`;
  // What tmux calls the command is the leader of the group in front: only while that is the agent's group it says something of the agent.
  if (info.tpgid === info.pgid && isShell(held.command)) return `the shell "${held.command}" that started ${name} has the terminal together with it`;
  return null;
}

async function whyNot(name, { pid, pgid, tty, host, host_ref: ref, codex_thread: thread }) {
  if (host === 'unknown' && thread !== undefined) return null;  // goes through Codex's own queue
  const info = processInfo(pid);
  if (info === null) return `${name} has ended`;
  if (info.tty !== tty) return `${name} runs in ${info.tty === null ? 'no terminal' : `the terminal ${info.tty}`}, not in ${tty}`;
  if (pgid !== undefined && info.pgid !== pgid) return `${name} is not the process group that it says it is`;
  if (host === 'unknown') return `${name} runs in a terminal that nothing can be typed into from outside, such as a window without tmux`;
  return host === 'tmux' ? whyNotThroughTmux(name, info, ref) : null;
}

/** Why no answer to this checked ask could be typed, in sentences for a person; null when one could, or none has to be. */
export async function whyUntypable({ agent, live, delivery }) {
  if (delivery !== 'terminal') return null;
  const name = agentName(agent);
  const why = await whyNot(name, live);
  return why === null ? null : `${why.charAt(0).toUpperCase()}${why.slice(1)}. Answer it there.`;
}
