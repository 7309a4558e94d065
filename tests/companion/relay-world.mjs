// A world with a relay: the real daemon, the real connector, a real broker as `kd relay serve` sets it up, and phones.
import { spawn, spawnSync } from 'node:child_process';
import { createServer } from 'node:http';
import { existsSync, mkdirSync, readFileSync, writeFileSync } from 'node:fs';
import { createRequire } from 'node:module';
import { connect as dial, createServer as listenPlain } from 'node:net';
import { extname, join } from 'node:path';
import { fileURLToPath } from 'node:url';
import { World, KD, until } from './world.mjs';
import { Phone } from '../../companion/relay/page/phone.js';
import { writeRelayConfig } from '../../companion/src/relay-config.mjs';
import { readOffer } from '../../companion/shared/relay.js';

const ROOT = fileURLToPath(new URL('../../', import.meta.url));
const BUILT = join(ROOT, 'build/relay');
const READY_MS = 40_000;

// What is missing here is a fault of the machine, never a reason to pass.
const built = spawnSync(join(ROOT, 'scripts/build-relay'), { encoding: 'utf8' });
if (built.status !== 0) throw new Error(`The relay's programs could not be built: ${built.stderr}`);
for (const program of ['mosquitto', 'nats-server'])
  if (!['/usr/sbin', '/usr/bin', '/usr/local/bin'].some((folder) => existsSync(join(folder, program))))
    throw new Error(`${program} is missing: packaging/apt-packages.txt names it. The relay was not tested.`);

export const mqtt = createRequire(join(BUILT, 'x.js'))('mqtt');

async function freePort() {
  const server = listenPlain().listen(0, '127.0.0.1');
  await new Promise((done) => server.on('listening', done));
  const { port } = server.address();
  await new Promise((done) => server.close(done));
  return port;
}

/** Three ports in a row. */
async function freePorts() {
  for (;;) {
    const port = await freePort();
    const isFree = async (at) => {
      const server = listenPlain();
      const free = await new Promise((done) => {
        server.once('error', () => done(false)).listen(at, '127.0.0.1', () => done(true));
      });
      if (free) await new Promise((done) => server.close(done));
      return free;
    };
    if ((await isFree(port + 1)) && (await isFree(port + 2))) return port;
  }
}

export const answers = (port) =>
  new Promise((done) => {
    const socket = dial({ host: '127.0.0.1', port });
    socket.on('connect', () => done(true) || socket.destroy()).on('error', () => done(false));
  });

function start(t, program, args, env) {
  const child = spawn(program, args, { stdio: ['ignore', 'pipe', 'pipe'], env });
  child.output = '';
  for (const stream of [child.stdout, child.stderr])
    stream.on('data', (piece) => {
      child.output += piece;
    });
  child.ended = new Promise((done) => child.on('close', (code, signal) => done({ code, signal })));
  t.after(async () => {
    child.kill(args.includes('serve') ? 'SIGTERM' : 'SIGKILL'); // the first has the broker to end
    await child.ended;
    if (!t.passed) t.diagnostic(`${program}: ${child.output.slice(-3000)}`);
  });
  return child;
}

export class RelayWorld {
  /**
   * `places`: the relay's configuration has as many as these, in place of those that kd makes. With `tls`, {cert, key, ca} by
   * the paths of their files, all of the relay is reached over TLS alone, the connector's way included.
   */
  static async open(t, { broker = 'mosquitto', env = {}, places, tls } = {}) {
    const relay = new RelayWorld();
    relay.t = t;
    relay.tls = tls;
    relay.world = await World.open(t, { KELVADROME_TEST_HOLD_MS: '300', ...env });
    relay.page = await relay.world.login();
    // The shell shows that it is there, for nothing is taken that nobody could type.
    const there = setInterval(() => relay.page.ok('/v1/cards/list').catch(() => {}), 3000);
    t.after(() => clearInterval(there));
    if (places)
      writeRelayConfig(relay.world.home, {
        app_url: 'http://localhost/',
        phone_urls: ['ws://localhost/'],
        desk_urls: ['ws://localhost/'],
        username: 'deskofthetests',
        password: 'deskofthetests',
        places,
      });
    await (broker === 'mosquitto' ? relay.startMosquitto() : relay.startCluster());
    await relay.world.ok('/v1/relay/enable', { enabled: true });
    relay.startConnector();
    await relay.connected();
    return relay;
  }

  get #kdEnv() {
    return { ...process.env, KELVADROME_HOME: this.world.home };
  }

  async startMosquitto() {
    this.port ??= await freePorts();
    this.broker = start(
      this.t,
      process.execPath,
      [
        ...[KD, 'relay', 'serve', '--port', String(this.port)],
        ...(this.tls ? ['--host', 'localhost', '--cert', this.tls.cert, '--key', this.tls.key] : []),
      ],
      this.#kdEnv,
    );
    await until(
      async () => (await Promise.all([0, 1, 2].map((i) => answers(this.port + i)))).every(Boolean),
      'mosquitto listens',
      READY_MS,
    );
    // The connector's way as from another machine: in at the phones' door.
    if (this.tls) this.rewrite({ desk_urls: [`wss://localhost:${this.port}/mqtt`], ca: this.tls.ca });
  }

  /** Changes relay.json. */
  rewrite(change) {
    const path = join(this.world.home, 'relay.json');
    const config = JSON.parse(readFileSync(path, 'utf8'));
    writeFileSync(path, JSON.stringify({ ...config, ...change }));
  }

  /** The connector and the phones reach the broker through `proxy` from then on; before anything is paired. */
  async behind(proxy) {
    this.rewrite({ phone_urls: [`ws://127.0.0.1:${proxy.port}/mqtt`] });
  }

  async startCluster() {
    const nodes = [];
    for (const name of ['n1', 'n2', 'n3']) {
      const [client_port, cluster_port, mqtt_port, phone_port] = await Promise.all(
        [0, 0, 0, 0].map(freePort),
      );
      const store = join(this.world.home, name);
      mkdirSync(store);
      const node = { name, host: '127.0.0.1', client_port, cluster_port, mqtt_port, phone_port, store };
      nodes.push(this.tls ? { ...node, cert: this.tls.cert, key: this.tls.key } : node);
    }
    const pages = await servePage(this.t, join(this.world.home, 'relay/www'));
    const plan = join(this.world.home, 'cluster.json');
    writeFileSync(plan, JSON.stringify({ app_url: `http://localhost:${pages}/`, nodes, ca: this.tls?.ca }));
    const made = await this.world.kd(['relay', 'serve', '--cluster', plan]);
    if (made.code !== 0) throw new Error(made.stderr);
    this.nodes = nodes.map((node) => ({
      ...node,
      config: join(this.world.home, 'relay', `${node.name}.conf`),
    }));
    for (const node of this.nodes) this.startNode(node);
    for (const node of this.nodes)
      await until(
        () => answers(node.mqtt_port),
        `${node.name} listens: ${node.child.output.slice(-500)}`,
        READY_MS,
      );
  }

  startNode(node) {
    node.child = start(this.t, 'nats-server', ['-c', node.config], process.env);
  }

  startConnector() {
    this.connector = start(
      this.t,
      process.execPath,
      [join(BUILT, 'dist/bin.js'), 'connect', '--socket', this.world.socketPath],
      this.#kdEnv,
    );
    return this.connector;
  }

  status() {
    return this.world.ok('/v1/relay/status');
  }

  connected(wanted = true) {
    return until(
      async () => (await this.status()).connector.connected === wanted,
      `the connector is ${wanted ? '' : 'not '}connected`,
      READY_MS,
    );
  }

  /** A phone that isn't paired yet. `ahead` moves both its clocks on, `set` its time of day alone. */
  phone({ confirm = async () => null, ahead = () => 0, set = () => 0 } = {}) {
    const kept = { value: null };
    const make = () => {
      const phone = new Phone({
        store: {
          load: async () => kept.value,
          save: async (value) => {
            kept.value = value;
          },
          clear: async () => {
            kept.value = null;
          },
        },
        connect: (url, options) =>
          mqtt.connect(url, this.tls ? { ...options, ca: readFileSync(this.tls.ca) } : options),
        confirm,
        changed: () => {},
        now: () => Date.now() + ahead() + set(),
        steady: () => performance.now() + ahead(),
      });
      phone.kept = kept;
      phone.again = async () => {
        phone.stop();
        const next = make();
        await next.load();
        return next;
      };
      const ticking = setInterval(() => phone.tick(), 200);
      phone.stop = () => {
        clearInterval(ticking);
        phone.close();
      };
      this.t.after(() => phone.stop());
      return phone;
    };
    return make();
  }

  async offer() {
    const start = await this.world.ok('/v1/relay/pair/start');
    return { ...readOffer(new URL(start.url).hash), pairingId: start.pairing_id, url: start.url };
  }

  /** A phone on its way into being paired: it shows its digits. */
  async joined(options = {}, join = {}) {
    const { pairingId, url: _, ...offer } = await this.offer();
    const phone = this.phone(options);
    await phone.join(offer, { name: 'Anna’s phone', kind: 'iphone', ...join });
    await until(() => phone.phase === 'digits', `the phone shows its digits (${phone.phase})`, READY_MS);
    return { phone, pairingId };
  }

  decide(pairingId, code, allow = true) {
    return this.world.call('/v1/relay/pair/decide', { pairing_id: pairingId, allow, code });
  }

  async paired(options, join) {
    const { phone, pairingId } = await this.joined(options, join);
    const reply = await this.decide(pairingId, phone.digits);
    if (!reply.ok) throw new Error(JSON.stringify(reply));
    await until(() => phone.phase === 'paired' && phone.rev !== undefined, 'the phone is paired');
    return phone;
  }

  /** The card once it shows on the phone, and as `is` wants it. */
  shown(phone, id, is = () => true) {
    return until(() => {
      const card = phone.cards.get(id);
      return card && is(card) && card;
    }, `card ${id} shows on the phone`);
  }

  gone(phone, id) {
    return until(() => !phone.cards.has(id), `card ${id} leaves the phone`);
  }
}

const TYPES = { '.html': 'text/html', '.js': 'text/javascript', '.css': 'text/css', '.svg': 'image/svg+xml' };

/** A plain web server for the phone's page. Gives its port. */
async function servePage(t, folder) {
  const server = createServer((req, res) => {
    const name = req.url === '/' ? '/index.html' : req.url.replace(/[?#].*/, '');
    const path = join(folder, name);
    if (!existsSync(path)) return res.writeHead(404).end();
    res.writeHead(200, { 'Content-Type': TYPES[extname(path)] ?? 'application/octet-stream' });
    res.end(readFileSync(path));
  }).listen(0, '127.0.0.1');
  await new Promise((done) => server.on('listening', done));
  t.after(() => server.close());
  return server.address().port;
}
