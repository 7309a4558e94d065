// The demo as a person runs it, on a screen of its own: its agent's questions are answered on the desktop's
// page by keys, and typed into the demo's own tmux. Then the demo is killed, and nothing of it may be left.

import { execFileSync } from 'node:child_process';
import { existsSync, readFileSync, readdirSync } from 'node:fs';
import path from 'node:path';
import { Screen } from './screen.mjs';
import { check, step as anyStep } from './steps.mjs';
import { World, alive, pause, root } from './world.mjs';

const PROGRAMS = ['Xvfb', 'openbox', 'xdotool', 'dbus-run-session'];
const isThere = (program) =>
  process.env.PATH.split(':').some((folder) => existsSync(path.join(folder, program)));

/** The processes of ours of which `is` holds, given what /proc says: a reader of the file of a name. */
function processesThat(is) {
  return readdirSync('/proc')
    .filter((name) => /^\d+$/.test(name) && Number(name) !== process.pid)
    .filter((pid) => {
      try {
        return is((file) => readFileSync(`/proc/${pid}/${file}`, 'latin1'));
      } catch {
        return false; // it has ended, or is not ours
      }
    })
    .map(Number)
    .filter(alive);
}

/** The processes that name `folder` in their command line or environment. */
const processesOf = (folder) =>
  processesThat((read) => read('cmdline').includes(folder) || read('environ').includes(folder));

class Demo {
  static async start(bin, screen) {
    const demo = new Demo();
    Object.assign(demo, { screen, world: new World(bin), script: path.join(root, 'scripts/demo') });
    const { world } = demo;
    Object.assign(world.env, {
      DISPLAY: screen.name,
      GDK_BACKEND: 'x11',
      GSK_RENDERER: 'cairo',
      GSETTINGS_BACKEND: 'memory',
      GTK_A11Y: 'none',
      XDG_RUNTIME_DIR: world.root,
      TMPDIR: world.root,
    });
    for (const name of ['DBUS_SESSION_BUS_ADDRESS', 'KELVADROME_HOME']) delete world.env[name];
    demo.pane = world.open('demo', `exec dbus-run-session -- '${demo.script}' '${bin}'`);
    return demo;
  }

  /** The demo's own world, which it makes in the temporary folder. */
  async find() {
    this.folder = await this.world.until('the world of the demo', () => {
      const name = readdirSync(this.world.root).find((entry) => entry.startsWith('kelvadrome-demo.'));
      return name && path.join(this.world.root, name);
    });
    this.world.socket = path.join(this.folder, 'home/kelvadromed.sock');
  }

  /** What the agent's pane shows, whether or not anybody is attached. */
  agentShows() {
    return execFileSync(
      'tmux',
      ['-S', path.join(this.folder, 'tmux'), 'capture-pane', '-p', '-J', '-t', 'demo'],
      {
        encoding: 'utf8',
      },
    );
  }

  async card(kind) {
    return this.world.until(
      `a question of the kind ${kind}`,
      async () => (await this.world.cards()).find((card) => card.kind === kind && card.state === 'open'),
      30,
    );
  }

  async state(card) {
    return (await this.world.cards()).find((other) => other.id === card.id)?.state ?? 'closed';
  }

  /** Presses keys on the page, and again until the card is in another state: a card that has just come takes none. */
  async press(card, ...keys) {
    const from = await this.state(card);
    await this.world.until(
      `"${keys.join(' ')}" to be taken by the card "${card.title}"`,
      async () => {
        this.screen.run('xdotool', 'windowactivate', '--sync', this.screen.window('kelvadrome'));
        this.screen.keys('Escape', 'j', ...keys);
        for (let looks = 0; looks < 10 && (await this.state(card)) === from; looks++) await pause(100);
        return (await this.state(card)) !== from;
      },
      60,
    );
  }

  /** Whatever is left, such as the bus of the screen readers, which nobody ends. */
  close() {
    for (const pid of processesOf(this.world.root))
      try {
        process.kill(pid, 'SIGKILL');
      } catch {
        /* it has ended */
      }
    this.world.close();
  }
}

/** Walks it; throws where the road breaks. Where there is no desktop or no means to drive it, it says so. */
export async function walkDesktop(bin) {
  const lacking = PROGRAMS.find((program) => !isThere(program));
  if (lacking || !existsSync(path.join(bin, 'libkelvadrome-desktop.so')))
    return console.log(`skip   the desktop: ${lacking ? `${lacking} is not installed` : 'it was not built'}`);
  const screen = await Screen.open(1200, 900);
  const demo = await Demo.start(bin, screen);
  try {
    await tour(demo);
  } finally {
    demo.close();
    screen.close();
  }
}

async function tour(demo) {
  const { world, screen } = demo;
  const step = (title, walk) =>
    anyStep(title, walk, () => [world.paneAlive(demo.pane) ? world.screen(demo.pane) : '(the demo is gone)']);

  await step('the demo on a display', async () => {
    await demo.find();
    await world.until('its window', () => screen.window('kelvadrome'), 60);
    const card = await demo.card('question');
    await world.see(demo.pane, /1-3 to choose/, "the agent's question in the terminal", 30);
    return `the window is there, and the agent asks "${card.title}"`;
  });

  for (const [kind, keys, words] of [
    ['question', ['2'], 'SQLite'],
    ['question', ['t', 'k', 'd', 'Return'], 'kd'],
    ['batch', ['a'], 'lang: Rust; tests: yes; port: 8080'],
  ])
    await step(`answered on the page by ${keys.join(' ')}`, async () => {
      const card = await demo.card(kind);
      await demo.press(card, ...keys);
      await world.until(
        `"${words}" on the agent's screen`,
        () => demo.agentShows().includes(`You chose: ${words}`),
        30,
      );
      await world.until('the card to close', async () => (await demo.state(card)) === 'closed', 30);
      return `typed into the demo's own tmux: "${words}"`;
    });

  await step('the demo killed with SIGKILL', async () => {
    const before = processesOf(demo.folder);
    const command = `bash\0${demo.script}\0`;
    const [shell] = processesThat(
      (read) => read('cmdline').startsWith(command) && read('environ').includes(world.root),
    );
    check(
      shell !== undefined && before.length > 3,
      `the demo was not found beside ${before.length} processes`,
    );
    process.kill(shell, 'SIGKILL');
    await world.until('its folder to be gone', () => !existsSync(demo.folder), 30);
    await world.until('its processes to be gone', () => processesOf(demo.folder).length === 0, 30);
    return `${before.length} processes, the tmux server and the folder are gone`;
  });
}
