// Which terminal a question of Codex stands in. Codex runs its hooks in a server that has no terminal and may serve
// several; its terminals are the clients of that server's socket. One is taken only when nothing speaks for any
// other: every client must be a Codex whose screen can be read, exactly one of them may run in the folder of the
// question, and that one, and no other, must show the very question.
import { execFile } from 'node:child_process';
import { setTimeout as pause } from 'node:timers/promises';
import { isRunning, nameOf, processInfo } from '../proc.mjs';
import { liveOf } from '../kd/agent.mjs';
import { screenOf } from '../reach.mjs';
import { optionsOnScreen } from './codex-prompt.mjs';

const SS_MS = 2000;
const DRAWN_MS = 5000; // from the end of the hook until the question is on the screen
const AGAIN_MS = 250;

/** What `ss` tells of all Unix sockets: {name, inode, peer, pids}; null where it tells nothing. */
function unixSockets() {
  const env = { PATH: `${process.env.PATH ?? ''}:/usr/bin:/bin:/usr/sbin:/sbin`, LC_ALL: 'C' };
  return new Promise((done) => {
    execFile('ss', ['-xpHn'], { env, timeout: SS_MS, maxBuffer: 64 << 20 }, (error, stdout) =>
      done(error ? null : readSockets(stdout)),
    );
  });
}

export function readSockets(text) {
  return text.split('\n').flatMap((line) => {
    const match = /^u_str\s+ESTAB\s+\d+\s+\d+\s+(.*?)\s+(\d+)\s+\S+\s+(\d+)\s*(.*)$/.exec(line);
    if (match === null) return [];
    const [, name, inode, peer, users] = match;
    const pids = new Set([...users.matchAll(/\bpid=(\d+)\b/g)].map(([, pid]) => Number(pid)));
    return [{ name, inode, peer, pids: [...pids] }];
  });
}

/** The processes at the other end of a server's socket; null when one of them cannot be told. */
export function clientsOf(server, sockets) {
  const accepted = sockets.filter(({ name, pids }) => name !== '*' && pids.includes(server));
  const clients = new Set();
  for (const { peer } of accepted) {
    const pids = sockets.find(({ inode }) => inode === peer)?.pids ?? [];
    if (pids.length !== 1) return null;
    clients.add(pids[0]);
  }
  return [...clients];
}

/** The one terminal that shows the question, with its options: {live, options}, or {why} there is none. */
async function lookOnce(server, { cwd, tool_input: { command } }) {
  let pids = [server.pid]; // Codex without a server runs its hooks itself
  if (!server.tty) {
    const sockets = await unixSockets();
    if (sockets === null) return { why: 'ss does not tell who uses the server of Codex' };
    pids = clientsOf(server.pid, sockets);
    if (pids === null) return { why: 'a client of the server of Codex cannot be told' };
  }
  const terminals = [];
  for (const info of pids.map(processInfo)) {
    if (info === null || nameOf(info) !== 'codex' || !info.tty)
      return { why: 'the server of Codex has a client that is no terminal' };
    const live = liveOf(info);
    const screen = await screenOf(live);
    if (screen === null) return { why: `nothing tells what the terminal ${info.tty} shows` };
    terminals.push({ live, options: optionsOnScreen(screen, command) });
  }
  const here = terminals.filter(({ live }) => live.cwd === cwd);
  if (here.length !== 1) return { why: `${here.length} terminals of Codex are in ${cwd}` };
  const asking = terminals.filter(({ options }) => options !== null);
  if (asking.length > 1) return { why: 'several terminals of Codex show this question' };
  return asking[0] === here[0]
    ? asking[0]
    : { why: 'the terminal does not show the question', isEarly: true };
}

/** The same, with a moment for Codex to draw its question. `server` is the process whose hook was asked. */
export async function terminalOfQuestion(server, message) {
  if (typeof message.tool_input?.command !== 'string') return { why: 'it is no command' };
  for (const deadline = performance.now() + DRAWN_MS; ; await pause(AGAIN_MS)) {
    if (!isRunning(server.pid, server.started)) return { why: 'Codex has ended' };
    const found = await lookOnce(server, message);
    if (!found.isEarly || performance.now() > deadline) return found;
  }
}

/** Whether the terminal still shows the question with these options; where that cannot be told, it does. */
export async function isStillAsked({ live, options }, command) {
  const screen = await screenOf(live);
  if (screen === null) return true;
  const now = optionsOnScreen(screen, command);
  return now !== null && now.join('\n') === options.join('\n');
}
