// Rounds of the whole: a daemon, a panel that types, an agent in a pane that writes down what it reads, and
// something that happens at a random moment from the press to the last key.
//   hub.mjs BIN [--rounds N] [--seed S] [--row NAME] [--jobs K]     plays N rounds of each row and prints the table

import { execFileSync } from 'node:child_process';
import {
  copyFileSync,
  existsSync,
  mkdirSync,
  readFileSync,
  realpathSync,
  symlinkSync,
  writeFileSync,
} from 'node:fs';
import path from 'node:path';
import { fileURLToPath } from 'node:url';
import { World, alive, finishSetup, pause } from '../../../scripts/tour/world.mjs';

const PRESS_TO_LAST_KEY_MS = 700;
const DECIDED_WITHIN_S = 70;
const TEXT = 'use port 8081; then "go"';
const LEAVE_QUESTION = 6; // as in Orders.h

/** Numbers from 0 to 1, the same ones for the same seed (mulberry32). */
export function randomOf(seed) {
  let state = seed >>> 0;
  return () => {
    state = (state + 0x6d2b79f5) >>> 0;
    let mixed = Math.imul(state ^ (state >>> 15), state | 1);
    mixed ^= mixed + Math.imul(mixed ^ (mixed >>> 7), mixed | 61);
    return ((mixed ^ (mixed >>> 14)) >>> 0) / 2 ** 32;
  };
}

class Agent {
  constructor(hub, pane, log) {
    Object.assign(this, { hub, pane, log });
  }

  events() {
    const lines = existsSync(this.log) ? readFileSync(this.log, 'utf8').trim().split('\n') : [];
    return lines.map((line) => line.split(' '));
  }

  /** What was read while this question stood on the screen. */
  bytes(who) {
    const read = this.events()
      .filter(([by, , event]) => by === who && event === 'read')
      .map(([, , , hex]) => hex);
    return Buffer.from(read.join(''), 'hex').toString('utf8');
  }

  async ready() {
    this.pid = await this.hub.world.until('the agent', () =>
      Number(this.events().find(([, , event]) => event === 'ready')?.[1]),
    );
    const tty = this.hub.world
      .tmux('display-message', '-p', '-t', this.pane, '#{pane_tty}')
      .trim()
      .slice('/dev/'.length);
    this.live = { pid: this.pid, pgid: this.pid, tty, host: 'tmux', host_ref: this.pane };
  }

  /** Another question takes the place of the first. */
  async moveOn() {
    execFileSync('/bin/kill', ['-s', 'RTMIN', '-q', String(LEAVE_QUESTION), String(this.pid)]);
    await this.hub.world.until('the next question', () => this.events().some(([who]) => who === 'later'));
  }

  async ask(title) {
    return (await this.hub.world.call('/v1/ask', { agent: 'claude', title, live: this.live })).card_id;
  }

  end() {
    this.hub.world.tmux('kill-pane', '-t', this.pane);
  }
}

/** A daemon's entry that keeps no answer on hold, and writes down the cards for which it gives its word to type. */
const entry = (real, started) => `
  import { appendFileSync } from 'node:fs';
  import { Jobs } from 'file://${real}/src/jobs.mjs';
  Object.assign(process.env, { KELVADROME_TEST: '1', KELVADROME_TEST_HOLD_MS: '1' });
  const { start } = Jobs.prototype;
  Jobs.prototype.start = function (id, ...rest) {
    const word = start.call(this, id, ...rest);
    const { card_id } = this.store.get('SELECT card_id FROM jobs WHERE id = ?', id);
    if (word.proceed) appendFileSync('${started}', card_id + '\\n');
    return word;
  };
  await import('file://${real}/kelvadromed-app.mjs');
`;

/**
 * The program beside a daemon that takes an answer on its socket and keeps it on hold for no time. The
 * program finds its daemon beside itself and hands it no variable, so that it is copied, and the daemon's
 * entry is another.
 */
function testedBin(bin, root) {
  const folder = path.join(root, 'bin');
  const daemon = path.join(folder, 'resources/kelvadrome');
  const real = realpathSync(path.join(bin, 'resources/kelvadrome'));
  mkdirSync(daemon, { recursive: true });
  copyFileSync(path.join(bin, 'kelvadrome'), path.join(folder, 'kelvadrome'));
  symlinkSync(path.join(bin, 'libkelvadrome-terminal.so'), path.join(folder, 'libkelvadrome-terminal.so'));
  symlinkSync(path.join(bin, 'resources/node'), path.join(folder, 'resources/node'));
  symlinkSync(path.join(real, 'web'), path.join(daemon, 'web'));
  writeFileSync(path.join(daemon, 'kelvadromed-app.mjs'), entry(real, path.join(folder, 'started')));
  return folder;
}

/** A panel with its daemon in a world of their own. */
export class Hub {
  static async open(bin) {
    const hub = new Hub();
    hub.count = 0;
    hub.world = new World(bin);
    hub.bin = testedBin(bin, hub.world.root);
    try {
      await finishSetup(bin, hub.world.home);
      hub.folder = path.join(hub.world.root, 'agents');
      mkdirSync(hub.folder);
      symlinkSync(path.join(bin, 'keystroke_recorder'), path.join(hub.folder, 'claude'));
      hub.startPanel();
      await hub.delivers();
    } catch (error) {
      await hub.close();
      throw error;
    }
    return hub;
  }

  startPanel() {
    this.panel = this.world.open('panel', `exec '${this.bin}/kelvadrome'`);
    this.pid = this.world.pid(this.panel);
  }

  async daemon() {
    return (await this.world.until('the daemon', () => this.world.call('/v1/health', {}, 'GET'), 60)).pid;
  }

  async agent() {
    this.count += 1;
    const log = path.join(this.folder, `log-${this.count}`);
    const command = `exec '${this.folder}/claude' '${log}' agent agent`;
    const agent = new Agent(this, this.world.open(`agent-${this.count}`, command), log);
    await agent.ready();
    return agent;
  }

  press(card) {
    return this.world.call('/v1/cards/answer', { card_id: card, version: 1, answer: TEXT });
  }

  /** Whether the daemon has given its word to type. From then on it cannot take the answer back. */
  hasStarted(card) {
    const started = path.join(this.bin, 'started');
    return existsSync(started) && readFileSync(started, 'utf8').split('\n').includes(card);
  }

  /** Waits until an answer is typed; the panel has to find its daemon and log in first. */
  async delivers() {
    if (!alive(this.pid)) this.startPanel();
    await this.world.until(
      'a panel that types',
      async () => {
        await this.daemon();
        const agent = await this.agent();
        try {
          const card = await agent.ask('Ready?');
          await this.press(card);
          return await this.world.until('the first answer', () => agent.bytes('agent') === `${TEXT}\r`, 3);
        } finally {
          agent.end();
        }
      },
      90,
    );
  }

  async close() {
    const health = await this.world.call('/v1/health', {}, 'GET').catch(() => undefined);
    for (const pid of [this.pid, health?.pid]) if (pid && alive(pid)) process.kill(pid, 'SIGKILL');
    this.world.close();
  }
}

const killed = (pid) => process.kill(pid, 'SIGKILL');

async function frozen(pid, ms) {
  process.kill(pid, 'SIGSTOP');
  await pause(ms);
  if (alive(pid)) process.kill(pid, 'SIGCONT');
}

/**
 * What happens, by name. It gets the hub, the agent, its card and random numbers; true when it came too late
 * to be heeded.
 */
export const ROWS = {
  nothing: { words: 'nothing', harmless: true, apply: async () => {} },
  'hub-killed': {
    words: 'panel killed and started again',
    apply: async (hub) => {
      killed(hub.pid);
      await pause(300);
      hub.startPanel();
    },
  },
  'hub-quit': {
    words: 'panel quits, and is started again',
    apply: async (hub) => {
      process.kill(hub.pid, 'SIGTERM');
      await hub.world.until('the panel to end', () => !alive(hub.pid));
      hub.startPanel();
    },
  },
  'hub-frozen': {
    words: 'panel stands still for a while',
    apply: (hub, { random }) => frozen(hub.pid, random() < 0.5 ? 2000 : 16_000),
  },
  'daemon-killed': { words: 'daemon killed', apply: async (hub, { daemon }) => killed(daemon) },
  'daemon-frozen': {
    words: 'daemon stands still for a while',
    apply: (hub, { daemon, random }) => frozen(daemon, 500 + random() * 3000),
  },
  withdrawn: {
    words: 'question withdrawn, then a second one',
    apply: async (hub, { agent, card }) => {
      await hub.world.call('/v1/ask/withdraw', { card_id: card }).catch(() => undefined);
      const tooLate = hub.hasStarted(card);
      await agent.moveOn();
      await agent.ask('And now?');
      return tooLate;
    },
  },
  second: {
    words: 'a second question, the first not withdrawn',
    apply: async (hub, { agent, card }) => {
      await agent.ask('And now?');
      const tooLate = hub.hasStarted(card);
      await agent.moveOn();
      return tooLate;
    },
  },
};

/**
 * What the daemon says of the card in the end: "answered", "refused", "warned" or "withdrawn". Null as long
 * as it is open to question.
 */
async function decision(hub, card) {
  const { card: now } = await hub.world.call('/v1/cards/detail', { card_id: card });
  if (now.state === 'closed') return now.outcome === 'answered' ? 'answered' : 'withdrawn';
  if (now.state !== 'open' || !now.refs?.last_refusal) return null;
  return /may have been typed/.test(now.refs.last_refusal) ? 'warned' : 'refused';
}

/** One round. What was said is held against what the agent read. */
export async function play(hub, name, random, moment = random() * PRESS_TO_LAST_KEY_MS) {
  const row = ROWS[name];
  const agent = await hub.agent();
  const card = await agent.ask('Which port?');
  const daemon = await hub.daemon();
  await hub.press(card);
  const pressed = Date.now();
  await pause(moment);
  const tooLate = (await row.apply(hub, { agent, card, daemon, random })) === true;
  const said = await hub.world
    .until('the card to be decided', () => decision(hub, card), DECIDED_WITHIN_S)
    .catch((error) => error.message);
  const seconds = (Date.now() - pressed) / 1000;
  await hub.delivers(); // also: whatever was still under way has gone
  const [got, stray] = [agent.bytes('agent'), agent.bytes('later')];
  const whole = got === `${TEXT}\r`;
  agent.end();
  return {
    name,
    moment,
    tooLate,
    said,
    seconds,
    got,
    stray,
    right: said === 'answered' && whole && !stray,
    falsely: (said === 'answered' && !whole) || (said === 'refused' && got + stray !== ''),
    whole,
  };
}

/** What a round must not come to. */
export function fault({ name, tooLate, said, got, stray, right, falsely }) {
  if (stray && !tooLate) return `the second question got ${JSON.stringify(stray)}`;
  if (falsely) return `the card says ${said}, but the agent read ${JSON.stringify(got)}`;
  if (!['answered', 'refused', 'warned', 'withdrawn'].includes(said)) return said;
  return ROWS[name].harmless && !right ? `the answer was kept back: ${said}` : null;
}

const COLUMNS = {
  Right: (r) => r.right,
  Refused: (r) => r.said === 'refused' && !r.falsely,
  Warned: (r) => r.said === 'warned',
  Withdrawn: (r) => r.said === 'withdrawn',
  'Typed in full, but warned': (r) => r.said === 'warned' && r.whole,
  'Half a line': (r) => r.said === 'warned' && r.got === TEXT,
  'Wrong question': (r) => r.stray && !r.tooLate,
  'Wrong question, asked after the word to type': (r) => r.stray && r.tooLate,
  'Said "answered" falsely': (r) => r.falsely && r.said === 'answered',
  'Said "refused" falsely': (r) => r.falsely && r.said === 'refused',
};

function table(names, results) {
  const line = (...cells) => `| ${cells.join(' | ')} |`;
  const head = ['What happens', 'Rounds', ...Object.keys(COLUMNS), 'Decided after, at most'];
  const rows = names.map((name) => {
    const own = results.filter((result) => result.name === name);
    const counts = Object.values(COLUMNS).map((holds) => own.filter(holds).length);
    return line(
      ROWS[name].words,
      own.length,
      ...counts,
      `${Math.max(...own.map((r) => r.seconds)).toFixed(1)} s`,
    );
  });
  return [line(...head), line(...head.map(() => '---')), ...rows].join('\n');
}

async function main() {
  const words = process.argv.slice(3);
  const option = (name, otherwise) => (words.includes(name) ? words[words.indexOf(name) + 1] : otherwise);
  const names = words.includes('--row') ? [option('--row')] : Object.keys(ROWS);
  const seed = Number(option('--seed', 1));
  const tasks = Array.from({ length: Number(option('--rounds', 3)) }, (_, round) =>
    names.map((name) => [name, round]),
  ).flat();
  const results = [];
  await Promise.all(
    Array.from({ length: Number(option('--jobs', 3)) }, async () => {
      const hub = await Hub.open(path.resolve(process.argv[2]));
      try {
        for (let task = tasks.shift(); task; task = tasks.shift()) {
          const [name, round] = task;
          const own = seed * 7919 + round * 104729 + Object.keys(ROWS).indexOf(name) * 31;
          const result = await play(hub, name, randomOf(own));
          results.push(result);
          const wrong = fault(result);
          console.error(
            `${wrong ? 'FAULT ' : ''}${name} at ${result.moment.toFixed(0)} ms: ${result.said} after ${result.seconds.toFixed(1)} s, read ${JSON.stringify(result.got)}${wrong ? `: ${wrong}` : ''}`,
          );
        }
      } finally {
        await hub.close();
      }
    }),
  );
  console.log(table(names, results));
  process.exit(results.some((result) => fault(result)) ? 1 : 0);
}

if (process.argv[1] === fileURLToPath(import.meta.url)) await main();
