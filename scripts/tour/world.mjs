// A private world for the tour: its own home, settings, secrets and tmux server, gone afterwards.

import { execFileSync } from 'node:child_process';
import { mkdirSync, mkdtempSync, rmSync, existsSync, readFileSync, writeFileSync } from 'node:fs';
import { tmpdir } from 'node:os';
import path from 'node:path';
import { fileURLToPath, pathToFileURL } from 'node:url';
import { exchange } from '../../companion/src/exchange.mjs';
import { Step } from './steps.mjs';

/** The top of the repository. */
export const root = fileURLToPath(new URL('../..', import.meta.url));

export const pause = (ms) => new Promise((resolve) => setTimeout(resolve, ms));

/** Makes a home in which the first-run setup is done. No daemon may use it yet. */
export async function finishSetup(bin, home) {
  mkdirSync(home, { recursive: true, mode: 0o700 });
  const { Store } = await import(pathToFileURL(path.join(bin, 'resources/kelvadrome/src/store.mjs')));
  const store = new Store(home);
  store.keepSetting('setup_finished', 'now');
  store.close();
}

export class World {
  constructor(bin) {
    this.bin = bin;
    this.root = mkdtempSync(path.join(tmpdir(), 'kd-tour-'));
    this.home = path.join(this.root, 'home');
    this.socket = path.join(this.home, 'kelvadromed.sock');
    this.tmuxSocket = path.join(this.root, 'tmux.sock');
    // A pane whose command has ended keeps its screen, so that what was typed can still be read.
    this.tmuxConfig = path.join(this.root, 'tmux.conf');
    writeFileSync(this.tmuxConfig, 'set -g remain-on-exit on\nset -g status off\n');
    this.env = {
      PATH: process.env.PATH,
      HOME: this.root,
      USER: process.env.USER ?? 'tour',
      LANG: 'C.UTF-8',
      TERM: 'xterm-256color',
      SHELL: '/bin/bash',
      KELVADROME_HOME: this.home,
      XDG_CONFIG_HOME: path.join(this.root, 'config'),
      XDG_DATA_HOME: path.join(this.root, 'data'),
      DBUS_SESSION_BUS_ADDRESS: `unix:path=${this.root}/no-bus`,
    };
  }

  tmux(...args) {
    return execFileSync('tmux', ['-S', this.tmuxSocket, '-f', this.tmuxConfig, ...args], {
      encoding: 'utf8',
      env: this.env,
      timeout: 10_000,
    });
  }

  // Starts a command in a new window of its own; the answer is its pane.
  open(name, command, { width = 100, height = 40 } = {}) {
    const format = ['-P', '-F', '#{pane_id}'];
    if (!this.started) {
      this.started = true;
      return this.tmux(
        'new-session',
        '-d',
        ...format,
        '-s',
        'tour',
        '-n',
        name,
        '-x',
        String(width),
        '-y',
        String(height),
        command,
      ).trim();
    }
    return this.tmux('new-window', '-d', ...format, '-n', name, '-t', 'tour', command).trim();
  }

  screen(pane) {
    return this.tmux('capture-pane', '-p', '-J', '-t', pane);
  }

  keys(pane, ...keys) {
    this.tmux('send-keys', '-t', pane, ...keys);
  }

  type(pane, text) {
    this.tmux('send-keys', '-t', pane, '-l', '--', text);
  }

  pid(pane) {
    return Number(this.tmux('display-message', '-p', '-t', pane, '#{pane_pid}'));
  }

  paneAlive(pane) {
    try {
      return this.tmux('list-panes', '-a', '-F', '#{pane_id} #{pane_dead}').split('\n').includes(`${pane} 0`);
    } catch {
      return false;
    }
  }

  // The daemon's reply on its socket: the data, or an error with the daemon's own words.
  async call(route, body = {}, method = 'POST') {
    const options = { body: method === 'POST' ? body : undefined, timeoutMs: 5000 };
    const envelope = JSON.parse(await exchange(this.socket, route, options));
    if (!envelope.ok) throw new Error(`${envelope.error.code}: ${envelope.error.message}`);
    return envelope.data;
  }

  async cards() {
    return (await this.call('/v1/cards/list')).cards;
  }

  async receipts() {
    return (await this.call('/v1/receipts/list', { limit: 50 })).receipts;
  }

  // Waits for a condition with a limit; what it returns when it holds is the result.
  async until(what, condition, seconds = 15) {
    const limit = Date.now() + seconds * 1000;
    let last;
    for (;;) {
      try {
        const result = await condition();
        if (result) return result;
        last = undefined;
      } catch (error) {
        last = error;
      }
      if (Date.now() > limit)
        throw new Step(`waited ${seconds} s in vain for ${what}${last ? ` (${last.message})` : ''}`);
      await pause(50);
    }
  }

  async see(pane, pattern, what, seconds = 15) {
    return this.until(what, () => this.screen(pane).match(pattern), seconds);
  }

  logTail(lines = 20) {
    const log = path.join(this.root, 'Library/Logs/Kelvadrome/kelvadrome.log');
    return existsSync(log) ? readFileSync(log, 'utf8').split('\n').slice(-lines).join('\n') : '';
  }

  close() {
    if (this.started)
      try {
        this.tmux('kill-server');
      } catch {
        /* it may be gone already */
      }
    rmSync(this.root, { recursive: true, force: true, maxRetries: 10, retryDelay: 100 });
  }
}

export function alive(pid) {
  try {
    process.kill(pid, 0);
    // A zombie is no process any more.
    return !/^State:\s+Z/m.test(readFileSync(`/proc/${pid}/status`, 'utf8'));
  } catch {
    return false;
  }
}
