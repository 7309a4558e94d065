// Questions whose agent has ended. Nobody is there to take an answer, so such a card must not look as if it waited for
// one: it turns "gone", counts no longer, and stays only until the user has seen and dismissed it.
import { clock } from './clock.mjs';
import { whyNotTheAsker } from './proc.mjs';
import { agentName } from '../shared/agents.js';

const LOOK_MS = 1000;

export class Departed {
  #since = new Map(); // a process that has ended -> when it was first missed
  #looked = -Infinity;

  constructor(app) {
    this.app = app;
  }

  /** Looks at most once a second, however many cards come and go. */
  look(now = clock.steady()) {
    if (now - this.#looked < LOOK_MS) return;
    this.#looked = now;
    const running = new Map();
    for (const card of this.app.cards.answerable()) {
      const key = card.process;
      if (!running.has(key)) running.set(key, whyNotTheAsker(card.live) === null);
      if (!running.get(key) && this.#isOver(key, now)) this.#depart(card);
    }
    for (const key of this.#since.keys()) if (running.get(key) !== false) this.#since.delete(key);
  }

  /** A moment of grace: what is on its way when an agent ends still gets its proper refusal. */
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
        { topic: card.topic, card_id: card.id },
        now,
      );
    });
  }
}
