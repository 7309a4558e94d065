// Pictures of the desktop's surfaces, each of the real program on a display of its own: screenshots.mjs BIN [NAME...]
import { execFileSync, spawn } from 'node:child_process';
import { mkdirSync, statSync, writeFileSync } from 'node:fs';
import path from 'node:path';
import { Screen } from './screen.mjs';
import { Step } from './steps.mjs';
import { panelKeys, pictures } from './scenes.mjs';
import { World, finishSetup, pause } from './world.mjs';

const bin = path.resolve(process.argv[2]);
const only = process.argv.slice(3);
const target = path.resolve('docs/screenshots');
const LARGEST = 150_000; // bytes of a picture
const SETTLE_MS = 700; // transitions end in it
const LEAST_COLOURS = 12; // a window that has drawn no words yet has fewer

/** The program in a world of its own; the daemon is its child. */
class Desktop {
  static async open(screen, { set = [], env = {}, seed, setup = true, resources = true } = {}) {
    const desktop = new Desktop();
    Object.assign(desktop, { bin, screen, world: new World(bin), terminals: [] });
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

  /** A terminal of its own window, by the title of `title`, in which `command` runs. */
  async openTerminal(title, size, ...command) {
    const look = [
      '-fa',
      'DejaVu Sans Mono',
      '-fs',
      '11',
      '-bg',
      '#ffffff',
      '-fg',
      '#1d1d20',
      '+sb',
      '-b',
      '12',
    ];
    const words = [
      ...look,
      '-geometry',
      size,
      '-T',
      title,
      '-xrm',
      'XTerm*allowTitleOps: false',
      '-e',
      ...command,
    ];
    this.terminals.push(
      spawn('xterm', words, { env: { ...this.world.env, XTERM_LOCALE: 'C.UTF-8' }, stdio: 'ignore' }),
    );
    await this.see(title);
  }

  async close() {
    for (const terminal of this.terminals) terminal.kill();
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

/** The font of a stock desktop, where there is one: no settings of the machine reach the pictures. */
function wearStockFont(world) {
  const folder = path.join(world.env.XDG_CONFIG_HOME, 'gtk-4.0');
  mkdirSync(folder, { recursive: true });
  writeFileSync(
    path.join(folder, 'settings.ini'),
    '[Settings]\ngtk-font-name=Cantarell 11\ngtk-xft-antialias=1\ngtk-xft-rgba=none\n',
  );
}

/** The words and colours of the middle of a window: {colours, signature}. */
function lookAt(screen, id) {
  screen.run('xdotool', 'windowraise', id);
  const image = screen.run('import', '-window', id, 'png:-');
  const words = [
    'png:-',
    '-gravity',
    'center',
    '-crop',
    '70%x60%+0+0',
    '+repage',
    '-format',
    '%k %#',
    'info:',
  ];
  const [colours, signature] = String(execFileSync('convert', words, { input: image })).split(' ');
  return { image, colours: Number(colours), signature };
}

/** The window once it shows something and has come to rest, or was looked at often; one that is `moving` as it is. */
async function settled({ world, screen }, find, { moving, plain, unlike, rests = 1 } = {}) {
  let last;
  let looks = 0;
  let alike = 0;
  return world.until(
    'a window with content that rests',
    async () => {
      const seen = lookAt(screen, find());
      const isThere = (plain || seen.colours >= LEAST_COLOURS) && seen.signature !== unlike;
      alike = seen.signature === last ? alike + 1 : 0;
      if (isThere && (moving || alike >= rests || ++looks > 8 + rests)) return seen;
      last = seen.signature;
      if (!moving) await pause(SETTLE_MS);
      return false;
    },
    40,
  );
}

function keep(name, image) {
  const file = path.join(target, `${name}.png`);
  writeFileSync(
    file,
    execFileSync('pngquant', ['--quality', '60-95', '--strip', '-'], { input: image, maxBuffer: 1 << 26 }),
  );
  const { size } = statSync(file);
  console.log(`${size > LARGEST ? 'LARGE ' : ''}${path.relative('.', file)} ${Math.round(size / 1024)} KiB`);
}

async function take(name, picture, appearance) {
  const screen = await Screen.open(...(picture.wide ? [2600, 1800] : [1400, 950]));
  let desktop;
  try {
    desktop = await Desktop.open(screen, {
      ...picture,
      set: ['-KDAppearance', appearance, ...(picture.set ?? [])],
    });
    if (picture.terminal)
      await desktop.openTerminal('terminal', picture.terminal, path.join(bin, 'kelvadrome'), '--terminal');
    if (picture.window === 'panel') await panelKeys(desktop);
    const title = picture.title ?? (picture.terminal ? 'terminal' : 'kelvadrome');
    await desktop.see(title);
    const find = (wanted = title) =>
      picture.window === 'panel'
        ? String(screen.run('xdotool', 'getactivewindow')).trim()
        : screen.window(wanted);
    if (picture.walk) {
      const seen = {};
      await picture.walk(desktop, async (step, { title: wanted, unlike, ...how } = {}) => {
        seen[step] = await settled(desktop, () => find(wanted), { ...how, unlike: seen[unlike]?.signature });
        if (how.keep !== false) keep(`${name}-${step}`, seen[step].image);
      });
      return;
    }
    const first = await settled(desktop, find, picture);
    if (picture.then) {
      await picture.then(desktop);
      await pause(picture.settle ?? SETTLE_MS);
    }
    const { image } = picture.then
      ? await settled(desktop, find, { ...picture, moving: picture.settle !== undefined })
      : first;
    keep(`${name}${picture.both ? `-${appearance}` : ''}`, image);
  } finally {
    await desktop?.close();
    screen.close();
  }
}

/** The pictures of the journey in one, in their order. */
function strip() {
  const steps = [
    ['ask', '1  An agent asks'],
    ['hold', '2  Answered; undo for 2 s'],
    ['typed', '3  Typed into its terminal'],
    ['sent', '4  The inbox says so'],
    ['refused', '5  Refused: the pane is in copy mode'],
    ['review', '6  A high risk is reviewed first'],
  ];
  const tiles = steps.flatMap(([step, words]) => ['-label', words, path.join(target, `journey-${step}.png`)]);
  const look = ['-tile', '3x', '-geometry', '440x367+10+8', '-pointsize', '15', '-background', '#f2f2f2'];
  keep('journey', execFileSync('montage', [...look, ...tiles, 'png:-'], { maxBuffer: 1 << 26 }));
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
if (!failures && (!only.length || only.includes('journey'))) strip();
process.exit(failures ? 1 : 0);
