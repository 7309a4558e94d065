// `kd doctor`: what works on this machine, a line a check, each with what to do. Looks and changes nothing.
import { execFile } from 'node:child_process';
import { existsSync, readdirSync, statSync, statfsSync } from 'node:fs';
import { join } from 'node:path';
import { AGENTS, agentName } from '../../shared/agents.js';
import { AGENTS_WITH_HOOKS, stateOf } from '../hooks/install.mjs';
import { kdByPath } from '../layout.mjs';
import { nameOf, processInfo } from '../proc.mjs';
import { whyUntypable } from '../reach.mjs';
import { liveOf } from './agent.mjs';
import { EXIT } from './client.mjs';

const LIMIT_MS = 2000;
const LEAST_DISK = 100 << 20; // bytes
const OTHERS = 0o077;
const ON_DEVICE_MODEL = '/usr/share/pocketsphinx/model/en-us';

/** What a command prints; null when it cannot be had, fails, or takes too long. */
const output = (program, ...words) =>
  new Promise((done) =>
    execFile(program, words, { timeout: LIMIT_MS, killSignal: 'SIGKILL' }, (error, stdout) =>
      done(error ? null : stdout.trim()),
    ),
  );

const ok = (text) => ({ state: 'ok', text });
const note = (text, todo) => ({ state: 'note', text, todo });
const bad = (text, todo) => ({ state: 'bad', text, todo });

async function tmux() {
  const version = await output('tmux', '-V');
  if (version === null) return bad('not found', 'Install tmux: answers are typed through it.');
  const [, major] = /(\d+)\.\d+/.exec(version) ?? [];
  return Number(major) >= 3 ? ok(version) : bad(`${version} is too old`, 'tmux 3.0 or later is needed.');
}

function home({ client }) {
  const info = statSync(client.home, { throwIfNoEntry: false });
  if (!info) return bad(`${client.home} is not there yet`, 'Start Kelvadrome once.');
  if (info.uid !== process.getuid()) return bad(`${client.home} belongs to another user`, 'Choose another.');
  if (info.mode & OTHERS) return bad(`others may look into ${client.home}`, `chmod 700 '${client.home}'`);
  const { bavail, bsize } = statfsSync(client.home);
  const free = bavail * bsize;
  const megabytes = Math.floor(free / (1 << 20));
  return free < LEAST_DISK
    ? bad(`only ${megabytes} MB are free for ${client.home}`, 'Make room: answers are kept there.')
    : ok(`${client.home}, ${megabytes} MB free`);
}

async function daemon({ client }) {
  try {
    const health = await client.call('/v1/health', undefined, LIMIT_MS);
    return ok(`kelvadromed ${health.version} (pid ${health.pid}), page port ${health.port}`);
  } catch (error) {
    return bad(error.message, 'Start Kelvadrome: kelvadrome, or ./run in its sources.');
  }
}

async function shell({ client }) {
  const held = await client.call('/v1/page/holder', {}, LIMIT_MS).catch(() => null);
  if (held === null) return null;
  return held.there
    ? ok('a window or panel is there to type answers')
    : bad('no window and no panel is there to type answers', 'Start Kelvadrome and leave it open.');
}

function hooks(agent, { client, env }) {
  const state = stateOf(agent, kdByPath(client.home), { home: client.home, env });
  const install = `${client.command} hooks install ${agent}`;
  if (state.problem) return bad(`${state.file}: ${state.problem}`, 'Mend the file.');
  if (state.events === 0) return note(`not in ${state.file}`, install);
  if (!state.isCurrent) return bad(`${state.file} names another kd`, install);
  if (!state.seen) return note('installed; none has run yet', `Start ${agentName(agent)} anew.`);
  return ok(`installed; last ran ${state.seen.toLocaleString()}`);
}

/** The agents that run, each with why nothing can be typed for it. */
async function agents() {
  const found = readdirSync('/proc')
    .filter((name) => /^\d+$/.test(name))
    .map((pid) => processInfo(Number(pid)))
    .filter((info) => info?.tty && info.pgid === info.pid && AGENTS.includes(nameOf(info)))
    .filter(({ pid }) => statSync(`/proc/${pid}`, { throwIfNoEntry: false })?.uid === process.getuid());
  return Promise.all(
    found.map(async (info) => {
      const agent = nameOf(info);
      const why = await whyUntypable({ agent, live: liveOf(info), delivery: 'terminal' });
      const text = `${agentName(agent)} (pid ${info.pid}, ${info.tty})`;
      return {
        name: 'agent',
        ...(why
          ? note(`${text}: ${why}`, 'Hooks answer it all the same; or start it with kd run.')
          : ok(text)),
      };
    }),
  );
}

/** Whether somebody has this name on the session bus; null without a bus. */
async function isOnBus(name, env) {
  if (!env.DBUS_SESSION_BUS_ADDRESS) return null;
  const words = [
    '--session',
    '--print-reply=literal',
    '--dest=org.freedesktop.DBus',
    '/org/freedesktop/DBus',
  ];
  const said = await output('dbus-send', ...words, 'org.freedesktop.DBus.NameHasOwner', `string:${name}`);
  return said === null ? null : said.endsWith('true');
}

async function onBus({ env }, name, there, todo) {
  const has = await isOnBus(name, env);
  if (has === null) return note('no session bus to ask', 'Fine over SSH; a desktop has one.');
  return has ? ok(there) : note('nobody offers it on this desktop', todo);
}

function display({ env }) {
  if (env.DISPLAY) return ok(`X11 ${env.DISPLAY}: the global key can be grabbed`);
  if (env.WAYLAND_DISPLAY)
    return note(
      'Wayland: the global key needs the desktop',
      'Bind "kelvadrome --bar" to a key in its settings.',
    );
  return note('no display: the panel in the terminal is used', 'kelvadrome');
}

/** What the kernel knows of, or a sound server that may have a microphone elsewhere; whether it hears is the shell's. */
function microphone({ env }) {
  try {
    const cards = readdirSync('/proc/asound').filter((name) => /^card\d+$/.test(name));
    const takes = cards.filter((card) =>
      readdirSync(`/proc/asound/${card}`).some((name) => /^pcm\d+c$/.test(name)),
    );
    if (takes.length > 0) return ok(`${takes.length} that record`);
  } catch {
    /* no sound at all */
  }
  const server = ['pipewire-0', 'pulse/native'].find(
    (name) => env.XDG_RUNTIME_DIR && existsSync(join(env.XDG_RUNTIME_DIR, name)),
  );
  return server
    ? note(`none found; a sound server is there (${server})`, 'It may still offer one.')
    : note('none found', 'Only dictation needs one.');
}

function onDevice() {
  return existsSync(ON_DEVICE_MODEL)
    ? ok(`English, in ${ON_DEVICE_MODEL}`)
    : note('no model', 'apt-get install pocketsphinx-en-us, to speak without sending anything.');
}

const LOCAL_TODO = {
  no_engine: 'voice install-engine, for a better model on this machine.',
  no_model: 'voice model FOLDER',
  checking: 'voice status, in a moment.',
  failed: 'voice status',
};

async function localSpeech({ client }) {
  const scan = await client.call('/v1/voice/scan', {}).catch(() => null);
  if (scan === null) return null;
  const { local, why } = scan.builtin;
  return local === 'ready'
    ? ok('engine and model work')
    : note(why ?? `not ready (${local})`, `${client.command} ${LOCAL_TODO[local]}`);
}

async function voiceBudget({ client }) {
  const now = await client.call('/v1/voice/settings/get', {}, LIMIT_MS).catch(() => null);
  if (now === null) return null;
  const text = `${now.used_minutes.toFixed(1)} of ${now.daily_minutes_cap} minutes used today`;
  return now.used_minutes < now.daily_minutes_cap
    ? ok(text)
    : note(text, 'Nothing more is sent today; the settings of voice have the limit.');
}

async function relay({ client }) {
  const status = await client.call('/v1/relay/status', {}, LIMIT_MS).catch(() => null);
  if (status === null) return null;
  if (!status.enabled) return ok('switched off: no phone answers');
  const phones = status.devices.length;
  return status.connector.connected
    ? ok(`connected, ${phones} ${phones === 1 ? 'phone' : 'phones'} paired`)
    : bad('switched on and not connected', 'Is the relay running? See docs/relay.md.');
}

const CHECKS = {
  Node: () => ok(process.versions.node),
  tmux,
  'data home': home,
  daemon,
  shell,
  ...Object.fromEntries(
    AGENTS_WITH_HOOKS.map((agent) => [`hooks of ${agentName(agent)}`, (context) => hooks(agent, context)]),
  ),
  tray: (context) =>
    onBus(
      context,
      'org.kde.StatusNotifierWatcher',
      'the desktop shows tray items',
      'Use the window instead.',
    ),
  notifications: (context) =>
    onBus(context, 'org.freedesktop.Notifications', 'the desktop shows them', 'Cards show in the window.'),
  secrets: (context) =>
    onBus(
      context,
      'org.freedesktop.secrets',
      'a keyring is there',
      'Keys are kept in a private file instead.',
    ),
  display,
  microphone,
  'on-device speech': onDevice,
  'local speech': localSpeech,
  'voice budget': voiceBudget,
  relay,
};
/** Without these no answer reaches an agent's terminal. */
const NEEDED = ['Node', 'tmux', 'data home', 'daemon', 'shell'];

const MARKS = { ok: '✓', note: '·', bad: '✗' };

export async function doctor({ values, client, env = process.env }) {
  const context = { client, env };
  const results = await Promise.all(
    Object.entries(CHECKS).map(async ([name, check]) => {
      try {
        const result = await check(context);
        return result && { name, ...result };
      } catch (error) {
        return { name, ...bad(error.message, 'This should not happen.') };
      }
    }),
  );
  const all = [...results.filter(Boolean), ...(await agents())];
  const works = all.every(({ name, state }) => state !== 'bad' || !NEEDED.includes(name));
  if (values.json) process.stdout.write(`${JSON.stringify({ works, checks: all })}\n`);
  else {
    const width = Math.max(...all.map(({ name }) => name.length));
    for (const { name, state, text, todo } of all) {
      process.stdout.write(`${MARKS[state]} ${name.padEnd(width)}  ${text}\n`);
      if (state !== 'ok') process.stdout.write(`  ${' '.repeat(width)}  → ${todo}\n`);
    }
    process.stdout.write(
      works ? '\nAnswers can be typed.\n' : '\nAnswers cannot be typed yet: see what is marked with ✗.\n',
    );
  }
  return works ? EXIT.ok : EXIT.failed;
}
