// Who is at the other end of a connection to the page port, as the kernel says it. Only Linux tells this: elsewhere
// nobody is turned away and no process is found.
import { readFileSync, readdirSync, readlinkSync } from 'node:fs';
import { readFile } from 'node:fs/promises';
import { isIPv4 } from 'node:net';
import { endianness } from 'node:os';
import { isRunning, nameOf, parseStat } from './proc.mjs';

const LOOKS = 3; // the table is read in pieces, and a row can slip by while others come and go
const MAX_STEPS = 64;
export const canTell = process.platform === 'linux';

const readTable = (name) => readFileSync(`/proc/net/${name}`, 'latin1');

function bytesOf(address) {
  if (isIPv4(address)) return Buffer.from(address.split('.').map(Number));
  const [head, tail] = address
    .replace(/%.*/, '')
    .split('::')
    .map((half) => (half === '' ? [] : half.split(':')));
  const groups =
    tail === undefined ? head : [...head, ...Array(8 - head.length - tail.length).fill('0'), ...tail];
  return Buffer.from(groups.map((group) => group.padStart(4, '0')).join(''), 'hex');
}

/** An address and port as the kernel's tables print them: words of 4 bytes, each in the machine's own order. */
function printed(bytes, port) {
  let text = '';
  for (let at = 0; at < bytes.length; at += 4)
    text += (endianness() === 'LE' ? bytes.readUInt32LE(at) : bytes.readUInt32BE(at))
      .toString(16)
      .padStart(8, '0');
  return `${text}:${port.toString(16).padStart(4, '0')}`.toUpperCase();
}

const mapped = (bytes) => Buffer.concat([Buffer.from('00000000000000000000ffff', 'hex'), bytes]);

/** The peers' ends of the established connections to `here`, by their address: {uid, inode}. */
function peersOf(here, text) {
  const rows = text.matchAll(new RegExp(`: (\\S+) ${here} 01 \\S+ \\S+ \\S+ +(\\d+) +\\d+ (\\d+) `, 'g'));
  return new Map([...rows].map(([, from, uid, inode]) => [from, { uid: Number(uid), inode }]));
}

/** Where the peer's end of `socket` may stand: [table, its address, ours]; nowhere when it has gone. */
function placesOf({ remoteAddress, remotePort, localAddress, localPort }) {
  if (remoteAddress === undefined || localAddress === undefined) return [];
  const [there, here] = [bytesOf(remoteAddress), bytesOf(localAddress)];
  const place = (table, from, to) => [table, printed(from, remotePort), printed(to, localPort)];
  // A program may also reach an IPv4 address through an IPv6 socket.
  return there.length === 4
    ? [place('tcp', there, here), place('tcp6', mapped(there), mapped(here))]
    : [place('tcp6', there, here)];
}

/**
 * The kernel's row of the peer's own end of `socket`. Only an established one of exactly these two addresses counts:
 * one in TIME_WAIT names no owner. Null when there is none; throws when the table cannot be read.
 */
export function peerOf(socket, read = readTable) {
  const places = placesOf(socket);
  for (let look = 0; look < LOOKS; look++) {
    for (const [table, from, here] of places) {
      const row = peersOf(here, read(table)).get(from);
      if (row) return row;
    }
  }
  return null;
}

/**
 * Lets in the connections of this very user, and of root: a proxy of `ssh -L` or of a container. In doubt it does not.
 * A look takes some milliseconds, so there is one at a time, beside all other work, for all connections that came
 * before it began: a flood of them makes others wait for little more than a look.
 */
export class Admission {
  #waiting = [];
  #looks = false;
  #failed = false;

  constructor(log, read = (name) => readFile(`/proc/net/${name}`, 'latin1')) {
    this.log = log;
    this.read = read;
  }

  /** Whether `socket`, which is open at this end, may be served. */
  async admits(socket) {
    if (!canTell) return true;
    const places = placesOf(socket);
    if (places.length === 0) return false;
    const owner = new Promise((judge) => this.#waiting.push({ places, left: LOOKS, judge }));
    if (!this.#looks) this.#lookOn();
    const uid = await owner;
    return uid === process.getuid() || uid === 0;
  }

  async #lookOn() {
    this.#looks = true;
    while (this.#waiting.length > 0) {
      const batch = this.#waiting.splice(0);
      try {
        await this.#look(batch);
      } catch (error) {
        if (!this.#failed)
          this.log(
            `nobody gets into the page port, for its connections cannot be looked at: ${error.message}`,
          );
        this.#failed = true;
        for (const { judge } of batch) judge(null);
      }
    }
    this.#looks = false;
  }

  async #look(batch) {
    for (const table of ['tcp', 'tcp6']) {
      const left = batch.filter(({ uid }) => uid === undefined);
      if (left.length === 0) break;
      const text = await this.read(table);
      const rows = new Map();
      for (const one of left) {
        for (const [, from, here] of one.places.filter(([name]) => name === table)) {
          if (!rows.has(here)) rows.set(here, peersOf(here, text));
          one.uid = rows.get(here).get(from)?.uid;
        }
      }
    }
    for (const one of batch) {
      if (one.uid !== undefined || --one.left === 0) one.judge(one.uid);
      else this.#waiting.push(one);
    }
  }
}

function holdsSocket(pid, inode) {
  try {
    return readdirSync(`/proc/${pid}/fd`).some((fd) => {
      try {
        return readlinkSync(`/proc/${pid}/fd/${fd}`) === `socket:[${inode}]`;
      } catch {
        return false;
      }
    });
  } catch {
    return false; // it has ended, or is not for us to look into
  }
}

function processTable() {
  const table = new Map();
  for (const name of readdirSync('/proc')) {
    if (!/^\d+$/.test(name)) continue;
    try {
      table.set(Number(name), parseStat(readFileSync(`/proc/${name}/stat`, 'latin1')));
    } catch {
      /* it has ended */
    }
  }
  return table;
}

/** The process that holds the peer's end: {pid, program}; null when it cannot be found. */
export function holderOf(socket) {
  try {
    const { inode } = peerOf(socket);
    for (const info of processTable().values())
      if (holdsSocket(info.pid, inode)) return { pid: info.pid, program: nameOf(info) };
  } catch {
    /* not there, or not for us to see */
  }
  return null;
}

/**
 * Whether a process stems from an agent: by its ancestors, or, when those have ended, by a session that the agent leads
 * or by its process group. A group that the daemon is in, too, says nothing: a script started all of them.
 */
function stemsFrom(info, agent, table) {
  const { pgid } = table.get(agent.pid) ?? {};
  if (info.sid === agent.pid || (info.pgid === pgid && table.get(process.pid)?.pgid !== pgid)) return true;
  for (let at = info, steps = 0; at && steps < MAX_STEPS; at = table.get(at.ppid), steps++)
    if (at.pid === agent.pid) return true;
  return false;
}

/**
 * The first of `agents` ({pid, started}) from which a process stems that holds the peer's end `inode`;
 * undefined for none.
 */
export function agentBehind(inode, agents) {
  const running = agents.filter(({ pid, started }) => isRunning(pid, started));
  if (running.length === 0) return undefined;
  const table = processTable();
  for (const info of table.values()) {
    const agent = running.find((one) => stemsFrom(info, one, table));
    if (agent && holdsSocket(info.pid, inode)) return agent;
  }
  return undefined;
}
