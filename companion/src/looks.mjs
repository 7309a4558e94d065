// A fresh look at the terminals of questions whose answer may have been typed. A question that stood on the agent's
// screen when it was answered and no longer does is one that the agent has left behind.
import { clock } from './clock.mjs';
import { whyNotTheAsker } from './proc.mjs';
import { screenOf } from './reach.mjs';

const LOOK_MS = 2000;
const TIMES = 3; // a screen that is being drawn anew may lack the question for a moment

const squashed = (text) => text.replace(/\s+/g, '');

/** Whether a screen shows the question: its title, or all of its options. Lines may be wrapped anywhere. */
function shows(screen, { title, options }) {
  const text = squashed(screen);
  return (
    text.includes(squashed(title)) ||
    (options.length > 0 && options.every((option) => text.includes(squashed(option))))
  );
}

export class Looks {
  #missing = new Map(); // card id -> how many times in a row its question was not to be seen
  #next = -Infinity;

  constructor(app) {
    this.app = app;
  }

  /** An answer was pressed: can its question be seen at all? */
  async remember(card) {
    if (card.delivery !== 'terminal') return;
    const screen = await screenOf(card.live);
    if (screen !== null && shows(screen, card)) this.app.cards.keepShown(card.id);
  }

  /** Looks at most every 2 s, one look at a time. */
  async again(now = clock.steady()) {
    if (now < this.#next) return;
    this.#next = Infinity;
    try {
      const cards = this.app.cards.unsureAndShown();
      for (const id of this.#missing.keys())
        if (!cards.some((card) => card.id === id)) this.#missing.delete(id);
      for (const card of cards) await this.#look(card);
    } finally {
      this.#next = clock.steady() + LOOK_MS;
    }
  }

  async #look(card) {
    const screen = whyNotTheAsker(card.live) === null ? await screenOf(card.live) : null;
    if (this.app.closed || screen === null) return;
    const times = shows(screen, card) ? 0 : (this.#missing.get(card.id) ?? 0) + 1;
    this.#missing.set(card.id, times);
    if (times >= TIMES) this.app.cards.leftBehind(card);
  }
}
