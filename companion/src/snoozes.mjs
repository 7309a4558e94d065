// Cards that the user has put off. They stay in the list, marked, and come back by themselves or when they are woken.
import { clock } from './clock.mjs';
import { conflict } from './errors.mjs';

/** A week. */
export const LONGEST_MINUTES = 10_080;

export class Snoozes {
  constructor({ store, cards }) {
    this.store = store;
    this.cards = cards;
  }

  /** Puts an open card off; one that is put off already begins anew. Gives the card. */
  put(id, minutes, now = clock.now()) {
    return this.store.tx(() => {
      const card = this.cards.find(id);
      if (card.state !== 'open')
        throw conflict(
          card.state === 'closed' ? 'This question is over.' : 'This question has an answer on its way.',
        );
      return this.#mark(card, now + minutes * 60_000);
    });
  }

  /** Brings a card back. One that is not put off stays as it is. */
  wake(id) {
    return this.store.tx(() => this.#mark(this.cards.find(id), null));
  }

  /** Brings back all whose time has come, or lies further ahead than can be asked for: the clock was set back. */
  wakeDue(now = clock.now()) {
    const due = this.store.all(
      'SELECT id FROM cards WHERE snoozed_until_ms <= ? OR snoozed_until_ms > ?',
      now,
      now + LONGEST_MINUTES * 60_000,
    );
    for (const { id } of due) this.wake(id);
  }

  #mark(card, until) {
    const marked =
      card.snoozed_until_ms === until ? card : this.cards.mark(card, { snoozed_until_ms: until });
    return this.cards.view(marked);
  }
}
