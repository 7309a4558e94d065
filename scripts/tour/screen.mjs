import { execFileSync, spawn } from 'node:child_process';

/** An X server on a free display, with a window manager. */
export class Screen {
  static async open(width, height) {
    const screen = new Screen();
    screen.server = spawn(
      'Xvfb',
      ['-noreset', '-displayfd', '3', '-screen', '0', `${width}x${height}x24`, '-nolisten', 'tcp'],
      { stdio: ['ignore', 'ignore', 'ignore', 'pipe'] },
    );
    const number = await new Promise((done, failed) => {
      screen.server.stdio[3].once('data', (text) => done(String(text).trim()));
      screen.server.once('error', failed).once('exit', () => failed(new Error('Xvfb ended')));
    });
    screen.name = `:${number}`;
    screen.manager = spawn('openbox', ['--sm-disable'], {
      env: { ...process.env, DISPLAY: screen.name },
      stdio: 'ignore',
    });
    return screen;
  }

  run(program, ...words) {
    return execFileSync(program, words, {
      env: { PATH: process.env.PATH, HOME: '/nonexistent', DISPLAY: this.name },
      stdio: ['ignore', 'pipe', 'ignore'],
      maxBuffer: 1 << 26,
    });
  }

  keys(...keys) {
    this.run('xdotool', 'key', '--delay', '60', ...keys);
  }
  type(words) {
    this.run('xdotool', 'type', '--delay', '30', words);
  }

  /** The window that shows under this title; a title in vain gives nothing. */
  window(title) {
    try {
      return String(this.run('xdotool', 'search', '--onlyvisible', '--name', `^${title}$`))
        .trim()
        .split('\n')
        .pop();
    } catch {
      return undefined;
    }
  }

  close() {
    this.manager.kill();
    this.server.kill();
  }
}
