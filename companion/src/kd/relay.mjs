// `kd relay serve`: the relay through which a phone reaches this computer. The relay itself is a broker as the
// distribution has it; here it is only configured and started.
import { spawn } from 'node:child_process';
import { createHash, pbkdf2Sync, randomBytes } from 'node:crypto';
import { cpSync, existsSync, mkdirSync, readFileSync, rmSync, statSync, writeFileSync } from 'node:fs';
import { userInfo } from 'node:os';
import { join } from 'node:path';
import { EXIT, KdError } from './client.mjs';
import { openFront } from './relay-front.mjs';
import { clusterFiles } from './relay-cluster.mjs';
import { relayFolder } from '../layout.mjs';
import { readRelayConfig, writeRelayConfig } from '../relay-config.mjs';

const PORT = 7447;
const PLACES = 64;
const say = (line) => process.stdout.write(`${line}\n`);
const usage = (words) => new KdError(`${words}\nTry kd --help.`, EXIT.usage);
const password = () => randomBytes(16).toString('base64url');
const channel = () => randomBytes(12).toString('hex');

function readPort(text) {
  const port = text === undefined ? PORT : Number(text);
  if (!Number.isInteger(port) || port < 1 || port > 65533)
    throw usage(`--port must be a whole number from 1 to 65533, not "${text}".`);
  return port;
}

function readFileOf(path, name) {
  try {
    return readFileSync(path);
  } catch (error) {
    throw usage(`--${name} ${path}: ${error.message}.`);
  }
}

async function openFrontOr(plan) {
  try {
    return await openFront(plan);
  } catch (error) {
    const what =
      error.syscall === 'listen' ? `Port ${plan.port} can’t be had` : 'The certificate can’t be used';
    throw new KdError(`${what}: ${error.message}.`, EXIT.failed);
  }
}

/** A line of mosquitto's password file. The passwords are random, so that the few rounds of its default do no harm. */
function passwordLine(user, text) {
  const salt = randomBytes(12);
  const hash = pbkdf2Sync(text, salt, 101, 64, 'sha512');
  return `${user}:$7$101$${salt.toString('base64')}$${hash.toString('base64')}\n`;
}

const sri = (bytes) => `sha384-${createHash('sha384').update(bytes).digest('base64')}`;

/** The page as any web server can serve it: plain files, with the relay's addresses the only ones that it may reach. */
function writePage(folder, phoneUrls) {
  const from = join(relayFolder, 'page');
  if (!existsSync(from))
    throw new KdError('The phone’s page is missing from this build: run scripts/build-relay.', EXIT.failed);
  rmSync(folder, { recursive: true, force: true });
  cpSync(from, folder, { recursive: true, dereference: true });
  const index = readFileSync(join(from, 'index.html'), 'utf8')
    .replace('RELAYS', phoneUrls.map((url) => new URL(url).origin).join(' '))
    .replace(/INTEGRITY-OF-([a-z.]+)/g, (_, name) => sri(readFileSync(join(from, name))));
  writeFileSync(join(folder, 'index.html'), index);
}

const MOSQUITTO = ({ folder, port }) => `# Written by kd relay serve, at each start anew.
per_listener_settings false
allow_anonymous false
password_file ${folder}/passwords
acl_file ${folder}/topics
persistence true
persistence_location ${folder}/
persistent_client_expiration 14d
autosave_interval 60
max_queued_messages 500
message_size_limit 300000
set_tcp_nodelay true
log_dest stderr
log_type error
log_type warning
user ${userInfo().username}

# This computer's own way in.
listener ${port + 1} 127.0.0.1

# The phones', whose connections kd relay serve passes on.
listener ${port + 2} 127.0.0.1
socket_domain ipv4
protocol websockets
`;

const TOPICS = (desk) => `user ${desk}
topic read kd/+/up
topic write kd/+/down

pattern write kd/%u/up
pattern read kd/%u/down
`;

/** Passwords of before stay good unless they are to be renewed, so that phones stay paired. */
function accounts(home, renew) {
  const old = readRelayConfig(home);
  if (old && !renew) return old;
  return {
    username: `desk${channel()}`,
    password: password(),
    places: Array.from({ length: PLACES }, () => ({ channel: channel(), password: password() })),
  };
}

function writeMosquitto(home, { port, host, cert, renew }) {
  const folder = join(home, 'relay');
  mkdirSync(folder, { recursive: true, mode: 0o700 });
  const { username, password: secret, places } = accounts(home, renew);
  const [web, socket] = cert ? ['https', 'wss'] : ['http', 'ws'];
  const name = host ?? 'localhost';
  const config = {
    app_url: `${web}://${name}:${port}/`,
    phone_urls: [`${socket}://${name}:${port}/mqtt`],
    desk_urls: [`mqtt://127.0.0.1:${port + 1}`],
    username,
    password: secret,
    places,
  };
  const write = (file, text) => writeFileSync(join(folder, file), text, { mode: 0o600 });
  const users = [{ channel: username, password: secret }, ...places];
  write('passwords', users.map((user) => passwordLine(user.channel, user.password)).join(''));
  write('topics', TOPICS(username));
  write('mosquitto.conf', MOSQUITTO({ folder, port }));
  writePage(join(folder, 'www'), config.phone_urls);
  writeRelayConfig(home, config);
  return { folder, config };
}

function runMosquitto(folder) {
  const path = ['/usr/sbin', '/usr/local/sbin', '/opt/homebrew/sbin']
    .concat(process.env.PATH ?? '')
    .join(':');
  const child = spawn('mosquitto', ['-c', join(folder, 'mosquitto.conf')], {
    stdio: ['ignore', 'inherit', 'inherit'],
    env: { ...process.env, PATH: path },
  });
  for (const signal of ['SIGTERM', 'SIGINT', 'SIGHUP']) process.on(signal, () => child.kill('SIGTERM'));
  return new Promise((done, failed) => {
    child.on('error', () =>
      failed(new KdError('There is no mosquitto on this machine: apt-get install mosquitto.', EXIT.failed)),
    );
    child.on('close', (code) => done(code ?? EXIT.ok));
  });
}

async function serveHere(home, values) {
  if (Boolean(values.cert) !== Boolean(values.key) || Boolean(values.cert) !== Boolean(values.host))
    throw usage('--host, --cert and --key belong together.');
  const port = readPort(values.port);
  const [cert, key] = ['cert', 'key'].map((name) => values[name] && readFileOf(values[name], name));
  const { folder, config } = writeMosquitto(home, { port, host: values.host, cert, renew: values.renew });
  const front = await openFrontOr({
    folder: join(folder, 'www'),
    port,
    address: cert ? '0.0.0.0' : '127.0.0.1',
    brokerPort: port + 2,
    tls: cert && { cert, key },
  });
  say(
    `The relay serves ${config.app_url}. Switch on answering from your phone in the settings, and pair it there.`,
  );
  if (!values.cert)
    say(
      'Only this computer can reach it. A phone needs --host, --cert and --key: browsers encrypt on secure pages alone.',
    );
  try {
    return await runMosquitto(folder);
  } finally {
    front.close();
    front.closeAllConnections();
  }
}

function writeCluster(home, values) {
  let plan;
  try {
    plan = JSON.parse(readFileSync(values.cluster, 'utf8'));
  } catch (error) {
    throw usage(`--cluster ${values.cluster}: ${error.message}.`);
  }
  const folder = join(home, 'relay');
  mkdirSync(folder, { recursive: true, mode: 0o700 });
  const { username, password: secret, places } = accounts(home, values.renew);
  const { config, files } = clusterFiles(plan, { username, password: secret, places }, usage);
  for (const [name, text] of Object.entries(files)) {
    writeFileSync(join(folder, name), text, { mode: 0o600 });
    say(`Written: ${join(folder, name)}`);
  }
  writePage(join(folder, 'www'), config.phone_urls);
  writeRelayConfig(home, config);
  say(
    `Start nats-server -c with each on its machine, and serve ${join(folder, 'www')} as ${config.app_url}.`,
  );
  return EXIT.ok;
}

export async function relay({ values, positionals, client: { home } }) {
  if (positionals[0] !== 'serve') throw usage(`kd relay has no command "${positionals[0]}".`);
  process.umask(0o077);
  if (!statSync(home, { throwIfNoEntry: false })?.isDirectory())
    throw new KdError(`There is no data home ${home} yet. Start Kelvadrome first.`, EXIT.failed);
  return values.cluster ? writeCluster(home, values) : serveHere(home, values);
}
