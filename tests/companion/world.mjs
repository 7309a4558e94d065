// A private world for one test: the real daemon in a home of its own, with the means to end, stop and look at it.
import { spawn, execFile, execFileSync } from 'node:child_process';
import { mkdtempSync, readFileSync, rmSync, symlinkSync } from 'node:fs';
import { once } from 'node:events';
import { request } from 'node:http';
import { text } from 'node:stream/consumers';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { fileURLToPath } from 'node:url';
import assert from 'node:assert/strict';

export const COMPANION = fileURLToPath(new URL('../../companion/', import.meta.url));
export const KD = join(COMPANION, 'bin/bin.js');
export const PAGE_KEY = 'k'.repeat(43);

/** Waits until `condition` gives something truthy and gives that; fails with `message` after 30 s. */
export async function until(condition, message, limitMs = 30_000) {
  for (const deadline = Date.now() + limitMs; ; ) {
    const value = await condition();
    if (value) return value;
    if (Date.now() > deadline) throw new Error(`waited in vain: ${message}`);
    await new Promise((done) => setTimeout(done, 15));
  }
}

/** `object` has these values; one that is undefined is missing. */
export function has(object, values, message) {
  const seen = Object.fromEntries(Object.keys(values).map((name) => [name, object?.[name]]));
  assert.deepEqual(seen, values, message);
}

/** `reply` is a refusal with this code, in words of this form. */
export function refused(reply, code, words = /./) {
  assert.equal(reply.error?.code, code, JSON.stringify(reply));
  assert.match(reply.error.message, words);
}

/**
 * A tmux server with a pane for each agent: a program called "claude", or as it is told, that sits in its terminal and
 * does nothing. What `start` gives has its pid and `live`, as `kd` tells it, and `end` to end it.
 */
export class Panes {
  constructor(folder) {
    this.folder = folder;
    this.socket = join(folder, 'tmux.sock');
    symlinkSync('/bin/sleep', join(folder, 'claude'));
  }

  tmux(...words) {
    return execFileSync('tmux', ['-S', this.socket, '-f', '/dev/null', ...words], {
      encoding: 'utf8',
      stdio: ['ignore', 'pipe', 'pipe'],
    }).trim();
  }

  /** A pane in which `command` runs; without one, the agent. `comm` is what its process is called once it runs. */
  async start(
    command = [join(this.folder, 'claude'), 'infinity'],
    comm = 'claude',
    cwd = '/home/user/project',
  ) {
    const words = ['-d', '-P', '-F', '#{pane_id} #{pane_pid} #{pane_tty}', '-c', this.folder, ...command];
    // The server ends with its last pane, so that one pane stays.
    if (!this.isOpen)
      this.tmux('new-session', '-d', '-x', '90', '-y', '40', '-s', 'agents', 'sleep', 'infinity');
    this.isOpen = true;
    const [pane, pid, tty] = this.tmux('new-window', '-t', 'agents:', ...words).split(' ');
    await until(
      () => readFileSync(`/proc/${pid}/comm`, 'utf8').trim() === comm,
      `${command} runs as ${comm}`,
    );
    const at = { tty: tty.slice('/dev/'.length), host: 'tmux', host_ref: pane, cwd };
    const live = { pid: Number(pid), pgid: Number(pid), ...at };
    const screen = () => this.tmux('capture-pane', '-p', '-t', pane);
    return {
      pid: live.pid,
      live,
      end: () => process.kill(live.pid, 'SIGKILL'),
      type: (...keys) => this.tmux('send-keys', '-t', pane, ...keys),
      shows: (words) => until(() => screen().includes(words) && screen(), `the pane shows "${words}"`),
    };
  }

  close() {
    if (this.isOpen) this.tmux('kill-server');
  }
}

/** Gives the child its `output` so far, and `ended`, a promise of {code, signal}. */
export function collect(child, hear = () => {}) {
  child.output = '';
  for (const stream of [child.stdout, child.stderr])
    stream?.on('data', (piece) => {
      child.output += piece;
      hear(piece);
    });
  child.ended = new Promise((done) => child.on('close', (code, signal) => done({ code, signal })));
  return child;
}

/** One request; gives {status, headers, text, json}, of which json is null for a page. */
async function exchange(options, body) {
  const headers = { Connection: 'close', ...options.headers };
  const req = request({ timeout: 20_000, ...options, headers }).end(body);
  req.on('error', () => {}).on('timeout', () => req.destroy(new Error('no reply within 20 s')));
  const [res] = await once(req, 'response');
  const content = await text(res);
  const isJson = res.headers['content-type']?.startsWith('application/json');
  return {
    status: res.statusCode,
    headers: res.headers,
    text: content,
    json: isJson ? JSON.parse(content) : null,
  };
}

function dataOf(reply, path) {
  if (!reply.ok) throw new Error(`${path}: ${JSON.stringify(reply)}`);
  return reply.data;
}

/** A page session, as the shell holds it, or as a browser does at its `host`. */
export class Page {
  constructor(world, cookie, csrf, host) {
    Object.assign(this, { world, cookie, csrf, host });
  }

  raw(method, path, body, headers = {}) {
    const browser = this.host ? { Host: this.host, Origin: `http://${this.host}` } : {};
    const token = this.csrf ? { 'x-kd-csrf': this.csrf } : {};
    const all = { Cookie: `kd_session=${this.cookie}`, ...token, ...browser, ...headers };
    for (const name of Object.keys(all)) if (all[name] === undefined) delete all[name];
    return exchange({ host: '127.0.0.1', port: this.world.port, method, path, headers: all }, body);
  }

  async post(path, body = {}, headers = {}) {
    const type = { 'Content-Type': 'application/json' };
    const reply = await this.raw('POST', path, JSON.stringify(body), { ...type, ...headers });
    return { status: reply.status, ...reply.json };
  }

  /** As `post`, but a refusal is an error. */
  async ok(path, body) {
    return dataOf(await this.post(path, body), path);
  }

  /** Presses an answer that is marked as high risk: the daemon wants it reviewed first. */
  async confirm(press) {
    const { review } = await this.ok('/v1/page/review', press);
    return this.ok('/v1/cards/answer', { ...press, review });
  }

  /** Time goes by while this page session shows that it is there. */
  async stays(seconds) {
    for (let left = seconds; left > 0; left -= 10) {
      await this.world.advance(Math.min(left, 10));
      await this.ok('/v1/cards/list');
    }
  }

  async claimOne(waitMs = 5000) {
    return (await this.ok('/v1/deliver/claim', { wait_ms: waitMs })).jobs[0];
  }
  /** Presses an answer, and gives the reply, whatever it is. */
  press(id, answer = 'Yes', version = 1) {
    return this.post('/v1/cards/answer', { card_id: id, version, answer });
  }
  report(jobId, outcome, more = {}) {
    return this.ok('/v1/deliver/report', { job_id: jobId, outcome, ...more });
  }
}

export class World {
  /** `t` is the test: its end ends the daemon, and its failure prints the daemon's log. */
  static async open(t, env = {}) {
    const world = new World();
    world.home = mkdtempSync(join(tmpdir(), 'kd-'));
    const test = { KELVADROME_TEST: '1', KELVADROME_TEST_HOLD_MS: '30' };
    world.env = { ...process.env, KELVADROME_HOME: world.home, ...test, ...env };
    world.log = '';
    world.panes = new Panes(world.home);
    t.after(async () => {
      await world.kill();
      world.panes.close();
      if (t.error || !t.passed) t.diagnostic(world.log);
      // A server of the test may still be writing there.
      rmSync(world.home, { recursive: true, force: true, maxRetries: 10, retryDelay: 100 });
    });
    await world.start();
    return world;
  }

  /** The same, with a page session: gives both. */
  static async loggedIn(t, env) {
    const world = await World.open(t, env);
    return [world, await world.login()];
  }

  get socketPath() {
    return join(this.home, 'kelvadromed.sock');
  }

  spawn(args = [], env = {}, stdio = ['pipe', 'pipe', 'pipe']) {
    const words = [join(COMPANION, 'kelvadromed-app.mjs'), '--home', this.home, ...args];
    const child = spawn(process.execPath, words, { env: { ...this.env, ...env }, stdio });
    return collect(child, (piece) => {
      this.log += piece;
    });
  }

  async start(env = {}, args = []) {
    this.child = this.spawn(args, env);
    const health = await this.health();
    this.port = health.port;
    return health;
  }

  /** What the daemon says of itself, once it answers. */
  health() {
    const ask = async () => (await this.call('/v1/health', undefined, 'GET')).data;
    return until(() => ask().catch(() => null), 'the daemon answers');
  }

  /** kill -9, unless told otherwise; gives {code, signal}. */
  kill(signal = 'SIGKILL') {
    this.child.kill(signal);
    return this.child.ended;
  }

  async restart(env, args) {
    await this.kill();
    return this.start(env, args);
  }

  raw(method, path, body, headers = {}) {
    return exchange({ socketPath: this.socketPath, method, path, headers }, body);
  }

  async call(path, body = {}, method = 'POST', headers = {}) {
    const reply = await this.raw(method, path, method === 'GET' ? undefined : JSON.stringify(body), headers);
    return { status: reply.status, ...reply.json };
  }

  async ok(path, body) {
    return dataOf(await this.call(path, body), path);
  }

  async mint(key = PAGE_KEY) {
    await this.call('/v1/page/claim', { key });
    return (await this.call('/v1/page/token', {}, 'POST', { 'x-kd-page-key': key })).data;
  }

  async login(surface = 'mac', key = PAGE_KEY) {
    const url = new URL((await this.mint(key)).url);
    const visitor = new Page(this, 'none');
    const first = await visitor.raw('GET', `${url.pathname}${url.search}&surface=${surface}`);
    const own = surface === 'mac' ? null : new URL(first.headers.location);
    const reply = own
      ? await visitor.raw('GET', own.pathname + own.search, undefined, { Host: own.host })
      : first;
    const cookie = /^kd_session=([^;]+)/.exec(reply.headers['set-cookie'][0])[1];
    const token = /name="token" content="([^"]+)"/.exec(reply.text)?.[1];
    const page = new Page(this, cookie, token, own?.host);
    page.csrf = (await page.raw('GET', '/v1/page/me')).json.data.csrf;
    return page;
  }

  /** Asks as an agent in a tmux pane of its own would. */
  async ask(more = {}) {
    const live = Object.hasOwn(more, 'live') ? more.live : (await this.panes.start()).live;
    const asked = { agent: 'claude', title: 'Deploy?', options: ['Yes', 'No'], menu: true, ...more, live };
    return (await this.ok('/v1/ask', asked)).card_id;
  }

  /** Asks as somebody who waits for the answer without a terminal: for tests that ask a lot. */
  askFromAfar(more = {}) {
    return this.ask({ wait: true, live: undefined, ...more });
  }

  /** Moves the daemon's clock on; what comes due thereby happens soon after. */
  advance(seconds) {
    return this.ok('/v1/test/advance', { ms: seconds * 1000 });
  }

  /** Opens the event stream and collects its text. */
  stream(options = { socketPath: this.socketPath }) {
    const seen = { text: '', status: 0 };
    const req = request({ path: '/v1/stream', ...options }, (res) => {
      seen.status = res.statusCode;
      const hear = (piece) => {
        seen.text += piece;
      };
      const close = () => {
        seen.closed = true;
      };
      res
        .on('data', hear)
        .on('close', close)
        .on('error', () => {});
    });
    req.on('error', () => {}).end();
    return seen;
  }

  /** The one child of a process; undefined without one. */
  childOf(pid) {
    const children = readFileSync(`/proc/${pid}/task/${pid}/children`, 'utf8').trim();
    return children === '' ? undefined : Number(children.split(' ')[0]);
  }

  async cards() {
    return (await this.ok('/v1/cards/list')).cards;
  }
  async card(id) {
    return (await this.cards()).find((card) => card.id === id);
  }
  async detail(id) {
    return (await this.ok('/v1/cards/detail', { card_id: id })).card;
  }
  async receipts() {
    return (await this.ok('/v1/receipts/list')).receipts;
  }

  /** What the receipts tell of, the newest first. */
  async actions() {
    return (await this.receipts()).map((receipt) => receipt.action);
  }

  /** Opens a card and presses an answer on `page`; gives the card's id. */
  async askAndAnswer(page, more, answer = 'Yes') {
    const id = await this.ask(more);
    await page.ok('/v1/cards/answer', { card_id: id, version: 1, answer });
    return id;
  }

  /** The same, and the job that comes of it. */
  async answered(page, more, answer) {
    const id = await this.askAndAnswer(page, more, answer);
    return { id, job: await page.claimOne() };
  }

  /** Waits until the card is in this state, and gives it. */
  becomes(id, state) {
    return until(async () => {
      const card = await this.card(id);
      return (card?.state ?? 'closed') === state && (card ?? true);
    }, `the card is ${state}`);
  }
  armed(id) {
    return this.becomes(id, 'armed');
  }
  reopened(id) {
    return this.becomes(id, 'open');
  }
  closed(id) {
    return this.becomes(id, 'closed');
  }
  /** Lets time pass in steps of so many seconds until the condition holds. */
  passes(seconds, condition, message) {
    return until(async () => {
      await this.advance(seconds);
      return condition();
    }, message);
  }
  /** A card whose agent has ended; looks for ended agents come every few seconds. */
  async abandoned(id) {
    await this.passes(3, async () => (await this.card(id)).state === 'gone', 'the card is gone');
    return this.card(id);
  }

  /** The status of the one session of an agent. */
  async status(agent) {
    return (await this.ok('/v1/agents/status')).sessions.find((row) => row.agent === agent)?.status;
  }

  kd(args, options = {}) {
    return new Promise((done) => {
      const all = { env: this.env, ...options };
      const child = execFile(process.execPath, [KD, ...args], all, (error, stdout, stderr) =>
        done({ code: error?.code ?? 0, stdout, stderr }),
      );
      child.stdin.end();
    });
  }
}
