// The daemon as a whole: reads its arguments, opens its home, serves two doors, and leaves in order.
import { parseArgs } from 'node:util';
import { resolve } from 'node:path';
import { chmodSync, readFileSync } from 'node:fs';
import { StartError, forbidden, invalid, noRoute, Refusal, unauthorized } from './errors.mjs';
import { Store } from './store.mjs';
import { EventHub } from './events.mjs';
import { Receipts } from './receipts.mjs';
import { Topics } from './topics.mjs';
import { Search } from './search.mjs';
import { Sessions } from './sessions.mjs';
import { Cards } from './cards.mjs';
import { Requests } from './requests.mjs';
import { Holds } from './holds.mjs';
import { Presses } from './presses.mjs';
import { Jobs } from './jobs.mjs';
import { Focuses } from './focuses.mjs';
import { Snoozes } from './snoozes.mjs';
import { Sample } from './sample.mjs';
import { Askers } from './askers.mjs';
import { Departed } from './departed.mjs';
import { ProcessWatch } from './process-watch.mjs';
import { Pruning } from './pruning.mjs';
import { keepLogsSmall } from './logs.mjs';
import { Looks } from './looks.mjs';
import { Reviews } from './reviews.mjs';
import { Relay } from './relay.mjs';
import { Voice } from './voice.mjs';
import { Onboarding } from './onboarding.mjs';
import { PageAuth, nextPath, setCookie } from './page-auth.mjs';
import { checkSurface, findRoute } from './routes.mjs';
import { goneSignal, listen, makeServer, readJson, send, sendData, shut } from './http.mjs';
import { PICTURE_HEADERS, sendEntrance, sendFile, sendNotice } from './static.mjs';
import { clearDeadSocket, prepareHome, refuseSecond } from './home.mjs';
import { Admission, agentBehind, canTell, holderOf, peerOf } from './peer.mjs';
import { agentName } from '../shared/agents.js';
import { clock } from './clock.mjs';
import { defaultHome, pageFolder, processWatch } from './layout.mjs';

const VERSION = JSON.parse(readFileSync(new URL('../package.json', import.meta.url), 'utf8')).version;
const LOOK_AROUND_MS = 2000;
const USAGE = 'usage: kelvadromed-app.mjs [--home DIR] [--static DIR] [--port N]';
const log = (line) => process.stderr.write(`kelvadromed: ${line}\n`);

function readArguments(argv, env) {
  let values;
  try {
    ({ values } = parseArgs({
      args: argv,
      options: { home: { type: 'string' }, static: { type: 'string' }, port: { type: 'string' } },
    }));
  } catch (error) {
    throw new StartError(`${error.message}\n${USAGE}`, 64);
  }
  const port = values.port === undefined ? null : Number(values.port);
  if (port !== null && (!Number.isInteger(port) || port < 0 || port > 65535))
    throw new StartError(`--port must be a whole number from 0 to 65535, not "${values.port}".`, 64);
  return {
    home: resolve(values.home || env.KELVADROME_HOME || defaultHome()),
    port,
    staticRoot: resolve(values.static || pageFolder),
  };
}

/** How long things take. Tests may shorten the hold, nobody else. */
function readSettings(env) {
  const test = env.KELVADROME_TEST === '1';
  const hold =
    test && /^\d+$/.test(env.KELVADROME_TEST_HOLD_MS ?? '') ? Number(env.KELVADROME_TEST_HOLD_MS) : null;
  return {
    test,
    holdMs: (risk) => hold ?? (risk === 'high' ? 5000 : 2000),
    processWatch: (test && env.KELVADROME_TEST_PROCESS_WATCH) || processWatch,
    expiryMs: 60_000,
    unseenMs: 12_000,
    goneAfterMs: 5000,
  };
}

class Daemon {
  constructor(home, settings, env) {
    this.home = home;
    this.settings = settings;
    this.started = clock.steady();
    this.store = new Store(home);
    this.hub = new EventHub();
    this.auth = new PageAuth(home);
    this.receipts = new Receipts(this);
    this.topics = new Topics(this);
    this.search = new Search(this);
    this.sessions = new Sessions(this);
    this.cards = new Cards(this);
    this.requests = new Requests(this);
    this.holds = new Holds(this);
    this.presses = new Presses(this);
    this.snoozes = new Snoozes(this);
    this.jobs = new Jobs(this);
    this.focuses = new Focuses(this);
    this.askers = new Askers(this);
    this.departed = new Departed(this);
    this.watch = new ProcessWatch(settings.processWatch, () => this.departed.watchTold(), log);
    this.pruning = new Pruning(this);
    this.looks = new Looks(this);
    this.reviews = new Reviews();
    this.onboarding = new Onboarding(this, env);
    this.sample = new Sample(this, env);
    this.relay = new Relay(this);
    this.voice = new Voice(this);
    this.hosts = { hosts: [], access: {} };
    if (this.store.setAsideAs) {
      log(`the database was damaged; it is kept as ${this.store.setAsideAs}, and a fresh one is in use.`);
      this.store.tx(() =>
        this.receipts.add(
          'store.set_aside',
          `The database was damaged. It is kept as ${this.store.setAsideAs}; a fresh one is in use.`,
        ),
      );
    }
  }

  health() {
    return {
      name: 'kelvadromed',
      version: VERSION,
      pid: process.pid,
      home: this.home,
      watermark: this.receipts.watermark(),
      uptime_s: (clock.steady() - this.started) / 1000,
      port: this.auth.port,
      kd: this.onboarding.kd,
    };
  }

  wentWrong = (error) => log(`internal error: ${error.stack}`);

  /**
   * Something changed: soon, and never inside a transaction, does what is due, wakes callers that wait, sets
   * the timer.
   */
  changed() {
    this.pending ??= setImmediate(() => {
      this.pending = null;
      this.#settle();
    });
  }

  /** The timer fires every 2 s at the latest. When it comes much later, the whole process was stopped meanwhile. */
  #noticeStop() {
    const now = performance.now();
    const gap = now - (this.settled ?? now);
    if (gap > 2 * LOOK_AROUND_MS) clock.wasStopped(gap - LOOK_AROUND_MS);
    this.settled = now;
  }

  #settle() {
    if (this.closed) return;
    this.#noticeStop();
    let soonest = 1;
    try {
      this.auth.prune();
      this.holds.followTimeOfDay();
      this.holds.commitDue();
      this.snoozes.wakeDue();
      this.jobs.expireDue();
      this.askers.forgetLeft();
      this.departed.look();
      this.pruning.look();
      keepLogsSmall();
      this.relay.look();
      this.voice.look();
      this.looks.again().catch(this.wentWrong);
      this.requests.look().catch(this.wentWrong);
    } catch (error) {
      this.wentWrong(error);
      soonest = 1000;
    }
    this.jobs.wake();
    this.askers.wake();
    clearTimeout(this.timer);
    const next = [this.holds.nextEnd(), this.jobs.nextExpiry()].filter((at) => at !== null);
    // Not every end of an agent is reported, so even an idle daemon looks every few seconds.
    this.timer = setTimeout(
      () => this.changed(),
      Math.min(Math.max(Math.min(...next) - clock.steady(), soonest), LOOK_AROUND_MS),
    );
  }

  close() {
    this.closed = true;
    clearTimeout(this.timer);
    clearImmediate(this.pending);
    this.sample.close();
    this.jobs.close();
    this.focuses.close();
    this.askers.close();
    this.relay.close();
    this.voice.close();
    this.pruning.close();
    this.watch.close();
    this.hub.close();
  }

  /** One request of either door. */
  async handle(surface, req, res) {
    const url = URL.parse(req.url, 'http://localhost');
    if (url === null) throw invalid('path', 'is not a valid URL');
    const path = url.pathname;
    if (surface === 'page') this.auth.checkAddress(req.headers);
    if (surface === 'page' && !path.startsWith('/v1/')) return this.#page(req, res, url);
    const route = findRoute(req.method, path);
    if (route === null) throw noRoute(path);
    if (route === 'method')
      throw new Refusal('method_not_allowed', 405, `${path} is not reached with ${req.method}.`);
    const session = surface === 'page' ? this.#caller(req) : null;
    checkSurface(route, surface, this.settings, session);
    if (route.stream) return this.#stream(res, session);
    const body = req.method === 'GET' ? {} : await readJson(req, route.maxBody);
    if (session && !session.live) throw unauthorized();
    if (route.answers && session) this.#refuseAgents(req, body);
    const data = await route.run(this, { body, session, headers: req.headers, signal: goneSignal(res) });
    sendData(res, data);
  }

  /** The page session of a call; throws when it has none, or when the call does not come from its very page. */
  #caller(req) {
    const session = this.auth.session(req.headers);
    const site = req.headers['sec-fetch-site'] ?? 'same-origin';
    if (site !== 'same-origin' && !(site === 'none' && req.method === 'GET'))
      throw forbidden('Pages of other origins may not use kelvadromed.');
    if (req.method !== 'GET') this.auth.checkWrite(session, req.headers);
    this.jobs.heard(session.tag);
    return session;
  }

  /** An agent may not answer: neither its own question nor, while it has one, another's. */
  #refuseAgents(req, { card_id: cardId }) {
    if (!canTell) return;
    const peer = peerOf(req.socket);
    if (peer === null) throw forbidden('Who asked this left before it could be told who it is.');
    const asker = agentBehind(peer.inode, this.cards.askers());
    if (asker === undefined) return;
    if (typeof cardId === 'string') this.presses.noteAttempt(cardId, asker.agent);
    throw new Refusal(
      'not_the_user',
      403,
      `This came from a program that ${agentName(asker.agent)} started, and an agent may not answer. If it opened Kelvadrome or the browser for you: quit that, open it yourself, and press again.`,
    );
  }

  #stream(res, session) {
    this.hub.attach(res);
    session?.streams.add(res);
    res.on('close', () => session?.streams.delete(res));
  }

  async #page(req, res, url) {
    if (req.method !== 'GET' && req.method !== 'HEAD')
      throw new Refusal('method_not_allowed', 405, 'The page is only read.');
    if (url.pathname === '/login') return this.#login(req, res, url.searchParams);
    try {
      this.auth.session(req.headers);
    } catch {
      return sendNotice(res, 401, 'Kelvadrome', 'This page opens from Kelvadrome. Open it there again.');
    }
    if (url.pathname.startsWith('/shots/'))
      return send(res, 200, PICTURE_HEADERS, this.requests.picture(url.pathname));
    return sendFile(res, this.staticRoot, url.pathname);
  }

  #login(req, res, query) {
    // Link previews and prefetching must not use up the link.
    if (
      req.method === 'HEAD' ||
      /prefetch|preview/.test(req.headers['sec-purpose'] ?? req.headers.purpose ?? '')
    )
      return send(res, 503, {}, '');
    const { session, onward, next } =
      this.auth.login(query.get('t') ?? '', {
        host: req.headers.host,
        surface: query.get('surface'),
        next: nextPath(query.get('next')),
      }) ?? {};
    if (onward) return send(res, 303, { Location: onward, 'Referrer-Policy': 'no-referrer' }, '');
    if (!session)
      return sendNotice(
        res,
        403,
        'This link was used already',
        'A login link works once and for one minute. Open the page from Kelvadrome again.',
      );
    const cookie = { 'Set-Cookie': setCookie(session) };
    if (session.surface === 'browser') return sendEntrance(res, session.csrf, next, cookie);
    session.holder = holderOf(req.socket);
    return send(res, 303, { Location: next, ...cookie, 'Referrer-Policy': 'no-referrer' }, '');
  }
}

/**
 * Both loopback addresses, at one port: a browser may look for a name under localhost at either, so nobody else must
 * stand at the other. Where there is no IPv6 loopback, nobody can.
 */
async function listenOnPage(servers, port) {
  const [page, page6] = servers;
  await listen(page, { host: '127.0.0.1', port, exclusive: true });
  try {
    await listen(page6, { host: '::1', port: page.address().port, ipv6Only: true, exclusive: true });
  } catch (error) {
    if (!['EADDRNOTAVAIL', 'EAFNOSUPPORT'].includes(error.code)) {
      await new Promise((closed) => page.close(closed));
      throw error;
    }
    servers.pop();
  }
}

/** Without --port the last port is tried first, so that a page that was left open finds its daemon again. */
async function openPage(app, port) {
  const last = Number(app.store.setting('page_port') ?? 0);
  const tries = port === null ? [last, 0, 0, 0] : [port];
  for (const [index, wanted] of tries.entries()) {
    const admission = new Admission(log);
    const servers = [0, 1].map(() =>
      makeServer(
        (req, res) => app.handle('page', req, res),
        log,
        (socket) => admission.admits(socket),
      ),
    );
    try {
      await listenOnPage(servers, wanted);
    } catch (error) {
      if (index < tries.length - 1) continue;
      throw new StartError(
        error.code === 'EADDRINUSE'
          ? `Port ${port} on the loopback address is in use by another program.`
          : `Port ${port ?? 0} on the loopback address cannot be used: ${error.message}.`,
        69,
      );
    }
    app.auth.port = servers[0].address().port;
    if (app.auth.port !== last) app.store.keepSetting('page_port', app.auth.port);
    return servers;
  }
}

async function openDoors(app, socketPath, port) {
  const servers = await openPage(app, port);
  const socket = makeServer((req, res) => app.handle('socket', req, res), log);
  try {
    await listen(socket, { path: socketPath });
    chmodSync(socketPath, 0o600);
  } catch (error) {
    for (const page of servers) page.close();
    throw new StartError(`The socket ${socketPath} cannot be opened: ${error.message}.`, 73);
  }
  return [...servers, socket];
}

function leaveInOrder(app, servers, env) {
  let leaving = false;
  const leave = async () => {
    if (leaving) return;
    leaving = true;
    app.close();
    await Promise.all(servers.map(shut));
    app.store.close();
    process.exit(0);
  };
  for (const signal of ['SIGTERM', 'SIGINT', 'SIGHUP']) process.on(signal, leave);
  if (env.KELVADROME_PARENT_STDIN === '1') process.stdin.on('end', leave).on('error', leave).resume();
}

async function start(argv, env) {
  const { home: wanted, port, staticRoot } = readArguments(argv, env);
  process.umask(0o077);
  const { home, socketPath } = prepareHome(wanted);
  await refuseSecond(socketPath);
  const app = new Daemon(home, readSettings(env), env);
  clearDeadSocket(socketPath);
  app.staticRoot = staticRoot;
  const servers = await openDoors(app, socketPath, port);
  leaveInOrder(app, servers, env);
  app.changed();
  process.stdout.write(
    `kelvadromed ${VERSION} (pid ${process.pid}) serves ${home}, page port ${app.auth.port}\n`,
  );
}

export async function main(argv, env) {
  // The reader of our output may end before us; that must not end the daemon.
  for (const stream of [process.stdout, process.stderr]) stream.on('error', () => {});
  keepLogsSmall();
  try {
    await start(argv, env);
  } catch (error) {
    log(error instanceof StartError ? error.message : error.stack);
    process.exit(error.exitCode ?? 1);
  }
}
