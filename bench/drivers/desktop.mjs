// The desktop on an X server of its own: from start to a painted inbox against a bare web window, a quiet minute, a
// burst of events, and what a headless command costs: desktop.mjs BIN [PART]
//
// Each round is a line of its own, and a peer's follows ours, so that the table can say how far rounds lie apart.
import { execFile, spawn, spawnSync } from 'node:child_process';
import { existsSync, readFileSync, readdirSync } from 'node:fs';
import http from 'node:http';
import path from 'node:path';
import { fileURLToPath } from 'node:url';
import { promisify } from 'node:util';
import { World, pause } from '../../scripts/tour/world.mjs';

const bin = path.resolve(process.argv[2]);
const only = process.argv[3];
const node = path.join(bin, 'resources/node/bin/node');
const here = path.dirname(fileURLToPath(import.meta.url));
const run = promisify(execFile);
const ROUNDS = 5,
  SLOW_ROUNDS = 3,
  COMMANDS = 41,
  SETTLE_S = 20,
  IDLE_S = 60,
  EVENTS = 1000,
  BURST_S = 10,
  PRESSES = 60,
  OPENINGS = 1000;

const emit = (name, value) => console.log(JSON.stringify({ name, value: Math.round(value * 100) / 100 }));
const emitMs = (name, ms) => console.log(JSON.stringify({ name, ms: Math.round(ms * 10) / 10 }));
const median = (values) => values.toSorted((a, b) => a - b)[values.length >> 1];
const now = () => performance.timeOrigin + performance.now();

/** The first line that a program writes. */
function firstLine(program, words, options) {
  const child = spawn(program, words, { ...options, stdio: ['ignore', 'pipe', 'ignore'] });
  const line = new Promise((done, failed) => {
    child.stdout.once('data', (text) => done(String(text).split('\n')[0]));
    child.once('error', failed).once('exit', () => failed(new Error(`${program} ended`)));
  });
  return { child, line };
}

const xvfb = firstLine(
  'Xvfb',
  ['-noreset', '-displayfd', '1', '-screen', '0', '1400x950x24', '-nolisten', 'tcp'],
  {},
);
const display = `:${await xvfb.line}`;
const manager = spawn('openbox', ['--sm-disable'], {
  env: { ...process.env, DISPLAY: display },
  stdio: 'ignore',
});

/** A home with a healthy daemon and an inbox, and a session bus. */
class Stage {
  static async open(cards) {
    const stage = new Stage();
    stage.world = new World(bin);
    const { world } = stage;
    stage.notes = path.join(world.root, 'requests');
    stage.bus = firstLine('dbus-daemon', ['--session', '--nofork', '--print-address'], { env: world.env });
    Object.assign(world.env, {
      DISPLAY: display,
      GDK_BACKEND: 'x11',
      GSK_RENDERER: 'cairo',
      GSETTINGS_BACKEND: 'memory',
      GTK_A11Y: 'none',
      WEBKIT_DISABLE_DMABUF_RENDERER: '1',
      XDG_RUNTIME_DIR: world.root,
      DBUS_SESSION_BUS_ADDRESS: await stage.bus.line,
    });
    stage.daemon = spawn(
      node,
      [
        '--import',
        path.join(here, 'note-requests.mjs'),
        path.join(bin, 'resources/kelvadrome/kelvadromed-app.mjs'),
        '--home',
        world.home,
      ],
      { env: { ...world.env, NOTE_REQUESTS: stage.notes }, stdio: 'ignore' },
    );
    await world.until('the daemon', () => world.call('/v1/health', {}, 'GET'));
    for (let i = 0; i < cards; ++i) {
      await world.call('/v1/ask', {
        agent: 'claude',
        session_id: `session-${i}`,
        title: `Question ${i}: which of the two?`,
        body: 'A few lines\nof what the agent says about it.',
        options: ['This one', 'The other'],
        default: 'This one',
      });
    }
    // Setup is over: an inbox shows at the start, not the setup window.
    await stage.login();
    await stage.post('/v1/onboarding/finish');
    return stage;
  }

  request(target, options = {}) {
    return new Promise((done, failed) => {
      const request = http.request(target, { agent: false, ...options }, (reply) => {
        reply.resume().on('end', () => done(reply));
      });
      request.on('error', failed);
      request.end(options.body);
    });
  }

  async login() {
    const { url } = await this.world.call('/v1/page/token');
    this.cookie = (await this.request(`${url}&surface=mac`)).headers['set-cookie'][0];
    this.origin = new URL(url).origin;
  }

  async post(route) {
    const cookie = this.cookie.split(';')[0];
    const me = await new Promise((done) =>
      http.get(`${this.origin}/v1/page/me`, { headers: { Cookie: cookie }, agent: false }, (reply) => {
        let text = '';
        reply
          .on('data', (piece) => {
            text += piece;
          })
          .on('end', () => done(JSON.parse(text)));
      }),
    );
    await this.request(this.origin + route, {
      method: 'POST',
      body: '{}',
      headers: { Cookie: cookie, 'x-kd-csrf': me.data.csrf, 'Content-Type': 'application/json' },
    });
  }

  requests(since) {
    return readFileSync(this.notes, 'utf8')
      .trim()
      .split('\n')
      .map((line) => JSON.parse(line))
      .filter((request) => request.at >= since);
  }

  start(program, ...words) {
    this.program = spawn(path.join(bin, program), words, { env: this.world.env, stdio: 'ignore' });
    return this.program;
  }

  tool(program, ...words) {
    return run(path.join(bin, program), words, { env: this.world.env }).then(({ stdout }) =>
      JSON.parse(stdout),
    );
  }

  async close() {
    for (const child of [this.program, this.daemon, this.bus.child]) {
      if (!child || child.exitCode !== null || child.signalCode !== null) continue;
      const ended = new Promise((done) => child.once('exit', done));
      child.kill('SIGTERM');
      await Promise.race([ended, pause(5000).then(() => child.kill('SIGKILL'))]);
    }
    this.world.close();
  }
}

async function withStage(cards, use) {
  const stage = await Stage.open(cards);
  try {
    return await use(stage);
  } finally {
    await stage.close();
  }
}

/**
 * Milliseconds from a program's start to its first request, to its request for the page, and to the last
 * change of its window.
 */
const start = (program, title, ...words) =>
  withStage(6, async (stage) => {
    const address = `${stage.origin}/?shell=native`;
    const watching = stage.tool('bench_screen_watch', 'paint', title);
    const began = now();
    stage.start(program, ...words.map((word) => ({ URL: address, COOKIE: stage.cookie })[word] ?? word));
    const { painted } = await watching;
    const requests = stage.requests(began);
    return {
      first: requests[0].at - began,
      page: requests.find((request) => request.door === 'page' && request.path === '/').at - began,
      painted: painted - began,
    };
  });

async function starts() {
  for (let i = 0; i < ROUNDS; ++i) {
    const bare = await start('bench_bare_window', 'bare', 'URL', 'COOKIE');
    emitMs('bare/start', bare.painted);
    emitMs('bare/start-toolkit', bare.page);
    emitMs('bare/start-page', bare.painted - bare.page);
    const ours = await start('kelvadrome', 'kelvadrome');
    emitMs('desktop/start', ours.painted);
    emitMs('desktop/start-toolkit', ours.first);
    emitMs('desktop/start-session', ours.page - ours.first);
    emitMs('desktop/start-page', ours.painted - ours.page);
  }
}

/** A process and all below it. */
function family(pid) {
  const below = readdirSync(`/proc/${pid}/task`).flatMap((task) =>
    readFileSync(`/proc/${pid}/task/${task}/children`, 'utf8').split(' ').filter(Boolean),
  );
  return [pid, ...below.flatMap((child) => family(Number(child)))];
}
/** The CPU that these processes have used, their ended threads included, in milliseconds. */
const used = (pids) =>
  pids
    .filter((pid) => existsSync(`/proc/${pid}/stat`))
    .map((pid) => readFileSync(`/proc/${pid}/stat`, 'utf8').split(') ')[1].split(' '))
    .reduce((sum, fields) => sum + 10 * (Number(fields[11]) + Number(fields[12])), 0);

/** Percent of one CPU over a minute in which nothing happens. */
const quiet = (program, title, ...words) =>
  withStage(6, async (stage) => {
    const address = `${stage.origin}/?shell=native`;
    const { pid } = stage.start(
      program,
      ...words.map((word) => ({ URL: address, COOKIE: stage.cookie })[word] ?? word),
    );
    await stage.tool('bench_screen_watch', 'paint', title);
    await pause(SETTLE_S * 1000);
    const pids = family(pid);
    const before = used(pids);
    await pause(IDLE_S * 1000);
    return (used(pids) - before) / IDLE_S / 10;
  });

async function quietMinutes() {
  for (let i = 0; i < SLOW_ROUNDS; ++i) {
    emit('desktop/idle', await quiet('kelvadrome', 'kelvadrome'));
    emit('bare/idle', await quiet('bench_bare_window', 'bare', 'URL', 'COOKIE'));
  }
}

/** How quickly the main loop answers meanwhile, and the session bus beside it, which has nothing else to do. */
const burst = () =>
  withStage(6, async (stage) => {
    stage.start('kelvadrome');
    await stage.tool('bench_screen_watch', 'paint', 'kelvadrome');
    await pause(5000);
    const quiet = await stage.tool('bench_heartbeat', '5');
    const watching = Promise.all([
      stage.tool('bench_screen_watch', 'repaints', 'kelvadrome', String(BURST_S)),
      stage.tool('bench_heartbeat', String(BURST_S)),
    ]);
    const began = now();
    for (let i = 0; i < EVENTS; ++i) {
      await stage.world.call('/v1/sessions/touch', {
        agent: 'claude',
        session_id: `worker-${i % 6}`,
        status: 'busy',
        doing: `Step ${i}`,
      });
      await pause(Math.max(0, began + ((i + 1) * BURST_S * 1000) / EVENTS - now()));
    }
    const [{ repaints }, beat] = await watching;
    const refreshes = stage
      .requests(began)
      .filter((request) => request.door === 'socket' && request.path === '/v1/cards/list').length;
    emit('desktop/burst-repaints', repaints / BURST_S);
    emit('desktop/burst-refreshes', refreshes / BURST_S);
    emit('desktop/burst-heartbeat', beat.longest);
    emit('bus/burst-heartbeat', beat.busLongest);
    emit('desktop/burst-heartbeat-99', beat.most);
    emit('bus/burst-heartbeat-99', beat.busMost);
    emit('desktop/quiet-heartbeat', quiet.longest);
  });

async function bursts() {
  for (let i = 0; i < SLOW_ROUNDS; ++i) await burst();
}

function commands() {
  const world = new World(bin);
  const time = (program, ...words) => {
    const began = process.hrtime.bigint();
    spawnSync(path.join(bin, program), words, { env: world.env, stdio: 'ignore' });
    return Number(process.hrtime.bigint() - began) / 1e6;
  };
  const ours = [],
    empty = [];
  delete world.env.DBUS_SESSION_BUS_ADDRESS;
  for (let i = 0; i < COMMANDS; ++i) {
    empty.push(time('bench_empty'));
    ours.push(time('kelvadrome', '--background-status'));
  }
  world.close();
  emit('desktop/background-status', median(ours) - median(empty));
}

/** Kilobytes that a process holds. */
const held = (pid) => Number(readFileSync(`/proc/${pid}/status`, 'utf8').match(/VmRSS:\s*(\d+)/)[1]);

/** From the global key to the painted bar with the focus, and what the bar holds on to after many openings. */
async function barKeys() {
  for (let i = 0; i < SLOW_ROUNDS; ++i) {
    await withStage(6, async (stage) => {
      stage.start('bench_bare_bar');
      await pause(1500);
      emitMs('bare/bar-key', (await stage.tool('bench_bar_key', 'bare bar', 'n', String(PRESSES))).p95);
    });
    await withStage(6, async (stage) => {
      const { pid } = stage.start('kelvadrome');
      await stage.tool('bench_screen_watch', 'paint', 'kelvadrome');
      const press = (rounds) => stage.tool('bench_bar_key', 'Ask kelvadrome', 'b', String(rounds));
      emitMs('desktop/bar-key', (await press(PRESSES)).p95);
      if (i > 0) return;
      const before = held(pid);
      await press(OPENINGS);
      emit('desktop/bar-growth', (held(pid) - before) / 1024);
    });
  }
}

const parts = { commands, starts, quietMinutes, bursts, barKeys };
try {
  for (const [name, measure] of Object.entries(parts)) if (!only || only === name) await measure();
} finally {
  manager.kill();
  xvfb.child.kill();
}
