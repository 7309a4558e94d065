// Which agent called `kd`, and where it runs.
import { readlinkSync } from 'node:fs';
import { AGENTS, SHELL } from '../../shared/agents.js';
import { environmentOf, nameOf, processInfo } from '../proc.mjs';
import { EXIT, KdError } from './client.mjs';

const MAX_STEPS = 32;

/** From `start` upward, the first process that goes by one of `names`; null when there is none. */
export function findAbove(start, names, look = processInfo, name = nameOf) {
  for (let pid = start, steps = 0; pid > 1 && steps < MAX_STEPS; steps++) {
    const info = look(pid);
    if (info === null) return null;
    if (names.includes(name(info))) return info;
    pid = info.ppid;
  }
  return null;
}

function workingFolder(pid) {
  try {
    return readlinkSync(`/proc/${pid}/cwd`);
  } catch {
    return process.cwd();
  }
}

/** The terminal that holds the agent: a tmux pane, an iTerm2 session, or one that cannot be typed into. */
function terminalOf(pid) {
  const pane = environmentOf(pid, 'TMUX_PANE');
  if (pane !== null && /^%[0-9]+$/.test(pane)) return { host: 'tmux', host_ref: pane };
  const iterm =
    process.platform === 'linux'
      ? null
      : /^w\d+t\d+p\d+:([0-9A-Fa-f-]{36})$/.exec(environmentOf(pid, 'ITERM_SESSION_ID') ?? '');
  return iterm ? { host: 'iterm2', host_ref: iterm[1] } : { host: 'unknown' };
}

/** Where a process runs, as an ask tells it. */
export const liveOf = (info) => ({
  pid: info.pid,
  pgid: info.pgid,
  ...(info.tty ? { tty: info.tty } : {}),
  ...terminalOf(info.pid),
  cwd: workingFolder(info.pid),
});

/** No agent, so a person at a shell. Only one that waits has a process that its question ends with. */
const shellThatAsks = (waits) => ({
  agent: SHELL,
  session_id: `${SHELL}-${process.ppid}`,
  live: { ...(waits ? { pid: process.pid } : {}), cwd: process.cwd() },
});

/**
 * `options`: agent, pid, host, host_ref, codex_thread as given on the command line; with
 * `orShell` a shell may ask, which `waits` for its answer or not. Gives {agent, live}, of a shell with a session_id.
 */
export function callingAgent(options, parent = process.ppid) {
  const info =
    options.pid !== undefined
      ? processInfo(options.pid)
      : findAbove(parent, options.agent ? [options.agent] : AGENTS);
  if (options.pid !== undefined && info === null)
    throw new KdError(`There is no process ${options.pid}.`, EXIT.noAgent);
  if (info === null && !options.agent && options.orShell) return shellThatAsks(options.waits);
  if (info === null) {
    const whom = options.agent ? `No process named "${options.agent}"` : 'No known agent';
    throw new KdError(
      `${whom} called kd. Give --agent NAME --pid PID, or --no-terminal --agent NAME to ask without one.`,
      EXIT.noAgent,
    );
  }
  const live = liveOf(info);
  if (options.host) Object.assign(live, { host: options.host, host_ref: options.host_ref });
  if (options.codex_thread) live.codex_thread = options.codex_thread;
  return { agent: options.agent ?? nameOf(info), live };
}
