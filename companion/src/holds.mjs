// An answer that was pressed waits a moment, in which it can be taken back, and is sent on its way then.
import { clock } from './clock.mjs';
import { deliveryOf } from './answers.mjs';
import { about } from './card-view.mjs';
import { agentName } from '../shared/agents.js';

const CLOCK_WAS_SET_MS = 1000;

export class Holds {
  #ends = new Map(); // card id -> when its hold ends, on the steady clock
  #offset = clock.now() - clock.steady();

  constructor(app) {
    this.app = app;
    this.store = app.store;
    this.cards = app.cards;
    // While no daemon ran nobody could undo, and the clock may have been set: each hold begins anew.
    for (const { id, risk } of this.#held())
      this.store.run(
        'UPDATE cards SET held_until_ms = ? WHERE id = ?',
        clock.now() + this.begin({ id, risk }),
        id,
      );
  }

  #held() {
    return this.store.all("SELECT id, risk FROM cards WHERE state = 'held' AND state <> 'closed'");
  }

  /** Begins a hold; gives its length. */
  begin({ id, risk }) {
    const ms = this.app.settings.holdMs(risk);
    this.#ends.set(id, clock.steady() + ms);
    return ms;
  }

  /** Sends every answer on its way whose hold has ended. */
  commitDue(now = clock.steady()) {
    for (const { id, risk } of this.#held()) {
      if (!this.#ends.has(id)) this.begin({ id, risk });
      if (this.#ends.get(id) <= now) this.store.tx(() => this.#commit(this.cards.find(id)));
    }
  }

  #commit(card, now = clock.now()) {
    if (this.app.requests.takes(card, now)) return;
    if (card.delivery === 'keep') {
      this.cards.close(card, 'answered', now, card.answer);
      this.app.receipts.add(
        'answer.kept',
        `Kept for ${agentName(card.agent)}, which has not fetched it yet: "${card.title}". Nothing was typed.`,
        about(card),
        now,
      );
      return;
    }
    this.cards.update(card, { state: 'armed', held_until_ms: null });
    // A card that cannot be typed into takes answers only while somebody waits for them.
    if (card.delivery === 'wait' || card.untypable !== null) this.app.jobs.queue(card, 'hand', {}, now);
    else this.app.jobs.queue(card, 'answer', deliveryOf(card, card.answer), now);
  }

  /** When the next hold ends, on the steady clock; null without one. */
  nextEnd() {
    const held = this.#held();
    for (const id of this.#ends.keys()) if (!held.some((card) => card.id === id)) this.#ends.delete(id);
    return held.length === 0 ? null : Math.min(...held.map(({ id }) => this.#ends.get(id) ?? 0));
  }

  /** The time of day may be set while an answer is on hold; what is shown of the hold then has to follow. */
  followTimeOfDay() {
    const offset = clock.now() - clock.steady();
    if (Math.abs(offset - this.#offset) < CLOCK_WAS_SET_MS) return;
    this.#offset = offset;
    for (const { id } of this.#held())
      this.store.tx(() =>
        this.cards.update(this.cards.find(id), { held_until_ms: Math.round(this.#ends.get(id) + offset) }),
      );
  }
}
