// The sample question of the setup: a stand-in for an agent asks it, in a tmux of its own where there is
// tmux, so that the answer is typed as it would be for a real one; elsewhere the answer is handed to it.
import { spawn, spawnSync } from 'node:child_process';
import { randomUUID } from 'node:crypto';
import { rmSync } from 'node:fs';
import { join } from 'node:path';
import { setTimeout } from 'node:timers/promises';
import { conflict } from './errors.mjs';
import { sampleAgent } from './layout.mjs';

const ASKS_WITHIN_MS = 10_000;
const LOOK_MS = 50;

export class Sample {
  #asked = null; // {askId, child, tmux}

  constructor(app, env) {
    this.app = app;
    this.env = env;
    this.socket = join(app.home, 'sample.tmux');
  }

  /** Asks; while that question is open, a second call gives the same one. {card_id, note} */
  async ask() {
    const card = this.#card();
    if (this.#asked === null || card?.state === 'closed' || (card?.gone_ms ?? null) !== null) this.#start();
    const asked = this.#asked;
    for (const end = performance.now() + ASKS_WITHIN_MS; this.#card() === undefined; ) {
      if (performance.now() > end || this.#asked !== asked) {
        this.#end();
        throw conflict(`The sample agent could not ask${asked.why ? `: ${asked.why}` : ' in time.'}`);
      }
      await setTimeout(LOOK_MS);
    }
    const note =
      asked.tmux === undefined
        ? 'Without tmux on this machine the answer is handed to the sample agent, and not typed into its terminal.'
        : `The sample agent runs in tmux, out of sight. To watch it: tmux -S '${this.socket}' attach`;
    return { card_id: this.#card().id, note };
  }

  #card() {
    // The name begins with the asker's own, and this part of it is like no other.
    return this.app.store.get(
      'SELECT id, state, gone_ms FROM cards WHERE ask_id LIKE ?',
      `%/${this.#asked?.askId ?? '/'}`,
    );
  }

  #start() {
    this.#end();
    const askId = `sample-${randomUUID()}`;
    const agent = [process.execPath, sampleAgent, '--sample', askId, '--home', this.app.home];
    const tmux = this.app.onboarding.program('tmux');
    const asked = { askId, tmux };
    const [program, ...words] =
      tmux === undefined
        ? agent
        : [
            tmux,
            '-S',
            this.socket,
            '-f',
            '/dev/null',
            'new-session',
            '-d',
            '-x',
            '100',
            '-y',
            '30',
            ...agent,
          ];
    const { TMUX: _, TMUX_PANE: __, ...env } = this.env;
    asked.child = spawn(program, words, {
      env: { ...env, TERM: 'xterm-256color' },
      detached: true,
      stdio: ['ignore', 'ignore', 'pipe'],
    });
    asked.child.stderr.on('data', (piece) => {
      asked.why ??= String(piece).trim().split('\n')[0];
    });
    asked.child.on('error', (error) => {
      asked.why = error.message;
    });
    this.#asked = asked;
  }

  /** Ends the agent; its question goes with it. */
  #end() {
    if (this.#asked === null) return;
    const card = this.#card();
    if (card && card.state !== 'closed') this.app.cards.withdraw(card.id);
    const { child, tmux } = this.#asked;
    this.#asked = null;
    if (tmux === undefined) return child.kill();
    spawnSync(tmux, ['-S', this.socket, 'kill-server'], { timeout: 1000, stdio: 'ignore' });
    rmSync(this.socket, { force: true });
  }

  close() {
    this.#end();
  }
}
