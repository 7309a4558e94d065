// Agents that have ended. Their sessions end at once. Nobody is there to take an answer, so their cards must
// not look as if they waited for one: a card turns "gone", counts no longer, and stays only until the user
// has seen and dismissed it.
import { clock } from './clock.mjs';
import { whyNotTheAsker } from './proc.mjs';
import { about } from './card-view.mjs';
import { agentName } from '../shared/agents.js';

const LOOK_MS = 1000;
const WATCHED_LOOK_MS = 10_000; // a watch tells of an end, not of another program that the process runs since

export class Departed {
  #since = new Map(); // a process that has ended -> when it was first missed
  #looked = -Infinity; // at the list of who is to be watched
  #lookedAtAll = -Infinity; // at each process

  constructor(app) {
    this.app = app;
  }

  /** The watch tells that some process has ended. */
  watchTold() {
    this.#looked = -Infinity;
    this.#lookedAtAll = -Infinity;
    this.app.sessions.endGone(true);
    this.app.changed();
  }

  /** Looks at most once a second, however many cards come and go, and rarely at what is watched. */
  look(now = clock.steady()) {
    if (now - this.#looked < LOOK_MS) return;
    this.#looked = now;
    this.app.sessions.endGone();
    const cards = this.app.cards.answerable();
    const known = cards.map((card) => card.live).filter(({ started }) => started !== undefined);
    this.app.watch.follow([...this.app.sessions.processes(), ...known]);
    const areWatched = cards.every((card) => this.app.watch.covers(card.live));
    if (areWatched && this.#since.size === 0 && now - this.#lookedAtAll < WATCHED_LOOK_MS) return;
    this.#lookedAtAll = now;
    const running = new Map();
    for (const card of cards) {
      const key = card.process;
      if (!running.has(key)) running.set(key, whyNotTheAsker(card.live) === null);
      if (!running.get(key) && this.#isOver(key, now)) this.#depart(card);
    }
    for (const key of this.#since.keys()) if (running.get(key) !== false) this.#since.delete(key);
  }

  /**
   * True some seconds after the process was first missed, so that an answer on its way is still refused by
   * the shell.
   */
  #isOver(key, now) {
    if (!this.#since.has(key)) this.#since.set(key, now);
    return now - this.#since.get(key) >= this.app.settings.goneAfterMs;
  }

  #depart(card, now = clock.now()) {
    this.app.store.tx(() => {
      if (card.unsure !== null) return this.app.cards.wentOn(card, now);
      this.app.cards.update(card, { gone_ms: now });
      this.app.receipts.add(
        'card.agent_gone',
        `${agentName(card.agent)} ended before it had an answer: "${card.title}".`,
        about(card, 'agent'),
        now,
      );
    });
  }
}
