// Pictures of the desktop's surfaces, each of the real program on a display of its own: screenshots.mjs BIN [NAME...]
import { execFileSync, spawn } from 'node:child_process';
import { mkdirSync, statSync, writeFileSync } from 'node:fs';
import path from 'node:path';
import { Screen } from './screen.mjs';
import { Step } from './steps.mjs';
import { World, finishSetup, pause } from './world.mjs';

const bin = path.resolve(process.argv[2]);
const only = process.argv.slice(3);
const target = path.resolve('docs/screenshots');
const LARGEST = 150_000; // bytes of a picture
const SETTLE_MS = 700; // transitions and the page's drawing end in it

/** The program in a world of its own; the daemon is its child. */
class Desktop {
  static async open(screen, { set = [], env = {}, seed, setup = true, resources = true } = {}) {
    const desktop = new Desktop();
    Object.assign(desktop, { screen, world: new World(bin) });
    const { world } = desktop;
    Object.assign(
      world.env,
      {
        DISPLAY: screen.name,
        GDK_BACKEND: 'x11',
        GSK_RENDERER: 'cairo',
        GSETTINGS_BACKEND: 'memory',
        XDG_RUNTIME_DIR: world.root,
        GTK_A11Y: 'none',
      },
      env,
    );
    delete world.env.DBUS_SESSION_BUS_ADDRESS;
    wearStockFont(world);
    if (setup) await finishSetup(bin, world.home);
    desktop.program = spawn('dbus-run-session', ['--', path.join(bin, 'kelvadrome'), ...set], {
      env: resources ? world.env : { ...world.env, KELVADROME_HOME: '/proc/none' },
      stdio: 'ignore',
      detached: true,
    });
    if (resources) {
      await world.until('the daemon', () => world.call('/v1/health', {}, 'GET'), 30);
      await seed?.(world);
    }
    return desktop;
  }

  async see(title, what = title) {
    return this.world.until(`the window "${what}"`, () => this.screen.window(title), 30);
  }

  async close() {
    try {
      process.kill(-this.program.pid, 'SIGTERM');
    } catch {
      /* gone */
    }
    await new Promise((done) =>
      this.program.exitCode === null && this.program.signalCode === null
        ? this.program.once('exit', done)
        : done(),
    );
    this.world.close();
  }
}

const working = [
  {
    agent: 'claude',
    session_id: 's5',
    label: 'Release notes',
    status: 'busy',
    doing: 'Reading the last commits',
    topic: 'Release',
  },
  { agent: 'codex', session_id: 's6', label: 'Importer', status: 'idle' },
];
const questions = {
  suggested: {
    agent: 'claude',
    session_id: 's1',
    title: 'Which database should the migration use?',
    body: 'Both are installed. The old data fits either of them.',
    options: ['PostgreSQL', 'SQLite', 'Keep the old one'],
    default: 'PostgreSQL',
    topic: 'Storage',
  },
  batch: {
    agent: 'codex',
    session_id: 's2',
    kind: 'batch',
    title: '3 choices for the new service',
    topic: 'Service',
    rows: [
      { question_id: 'lang', text: 'Language?', default: 'Rust' },
      { question_id: 'tests', text: 'Write tests first?', default: 'yes' },
      { question_id: 'port', text: 'Port?', default: '8080' },
    ],
  },
  payment: {
    agent: 'claude',
    session_id: 's3',
    kind: 'stop',
    risk: 'high',
    stop_type: 'payment',
    title: 'Pay the invoice of the test account?',
    body: 'Amount as read: $12.50\nThe amount is within the limit of $20.00.',
    options: ['Approve', 'Reject'],
    topic: 'Billing',
  },
  open: {
    agent: 'gemini',
    session_id: 's4',
    title: 'What should the new command be called?',
    topic: 'Command line',
  },
};

async function ask(world, ...names) {
  for (const name of names) await world.call('/v1/ask', { wait: true, ...questions[name] });
}
const inbox = async (world) => {
  for (const session of working) await world.call('/v1/sessions/touch', session);
  await ask(world, 'suggested', 'batch', 'payment', 'open');
};

/** The font of a stock desktop, where there is one: no settings of the machine reach the pictures. */
function wearStockFont(world) {
  const folder = path.join(world.env.XDG_CONFIG_HOME, 'gtk-4.0');
  mkdirSync(folder, { recursive: true });
  writeFileSync(
    path.join(folder, 'settings.ini'),
    '[Settings]\ngtk-font-name=Cantarell 11\ngtk-xft-antialias=1\ngtk-xft-rgba=none\n',
  );
}

const panelKeys = async (desktop) => {
  await desktop.see('kelvadrome', 'main');
  await pause(2500);
  desktop.screen.keys('ctrl+p');
};

/** What each picture shows: how the program starts, what is done then, and the window that is taken. */
const pictures = {
  'main-inbox': { seed: inbox, both: true },
  'main-inspector': { seed: inbox, set: ['-KDInspector', 'YES'] },
  'native-inbox': { seed: inbox, set: ['-KDNativeInbox', 'YES'], both: true },
  'main-expert': { seed: inbox, then: (d) => d.screen.keys('ctrl+shift+e') },
  'main-failed': { resources: false, setup: false },
  'main-200-percent': { seed: inbox, env: { GDK_SCALE: '2' }, wide: true },
  'main-high-contrast': {
    seed: inbox,
    env: { ADW_DEBUG_HIGH_CONTRAST: '1' },
    set: ['-KDNativeInbox', 'YES'],
  },
  'main-right-to-left': { seed: inbox, env: { LANGUAGE: 'ar' } },
  'panel-cards': { seed: inbox, window: 'panel', both: true },
  'panel-clear': { window: 'panel' },
  'panel-hold': {
    seed: (world) => ask(world, 'suggested', 'batch'),
    window: 'panel',
    then: (d) => d.screen.keys('Tab', 'Tab', 'Tab', 'Return'),
    settle: 300,
  },
  'panel-failed': { resources: false, setup: false, window: 'panel' },
  strip: { seed: inbox, set: ['-KDAgentStrip', 'YES'], title: 'kelvadrome agents', both: true },
  setup: { setup: false, title: 'Set up kelvadrome', both: true },
  'setup-agents': {
    setup: false,
    title: 'Set up kelvadrome',
    then: (d) => d.screen.keys('Tab', 'Tab', 'Tab', 'Return'),
  },
  ...Object.fromEntries(
    ['general', 'agents', 'autopilot', 'privacy', 'about'].map((tab) => [
      `settings-${tab}`,
      {
        seed: inbox,
        set: ['-KDOpenSettings', tab],
        title: 'Settings',
        both: tab === 'general' || tab === 'about',
      },
    ]),
  ),
};

async function take(name, picture, appearance) {
  const file = path.join(target, `${name}${picture.both ? `-${appearance}` : ''}.png`);
  const screen = await Screen.open(...(picture.wide ? [2600, 1800] : [1400, 950]));
  let desktop;
  try {
    desktop = await Desktop.open(screen, {
      ...picture,
      set: ['-KDAppearance', appearance, ...(picture.set ?? [])],
    });
    if (picture.window === 'panel') await panelKeys(desktop);
    const title = picture.title ?? 'kelvadrome';
    await desktop.see(title);
    await pause(picture.window === 'panel' ? SETTLE_MS : 4 * SETTLE_MS);
    if (picture.then) {
      await picture.then(desktop);
      await pause(picture.settle ?? SETTLE_MS);
    }
    const id =
      picture.window === 'panel'
        ? String(screen.run('xdotool', 'getactivewindow')).trim()
        : screen.window(title);
    writeFileSync(
      file,
      execFileSync('pngquant', ['--quality', '60-95', '--strip', '-'], {
        input: screen.run('import', '-window', id, 'png:-'),
        maxBuffer: 1 << 26,
      }),
    );
    const { size } = statSync(file);
    console.log(
      `${size > LARGEST ? 'LARGE ' : ''}${path.relative('.', file)} ${Math.round(size / 1024)} KiB`,
    );
  } finally {
    await desktop?.close();
    screen.close();
  }
}

mkdirSync(target, { recursive: true });
let failures = 0;
for (const [name, picture] of Object.entries(pictures)) {
  if (only.length && !only.includes(name)) continue;
  for (const appearance of picture.both ? ['light', 'dark'] : ['light']) {
    try {
      await take(name, picture, appearance);
    } catch (error) {
      failures += 1;
      console.error(`${name}: ${error instanceof Step ? error.message : error.stack}`);
    }
  }
}
process.exit(failures ? 1 : 0);
