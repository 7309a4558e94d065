// Callers that wait for a card to close: `kd ask --wait`, `kd wait`, and a withdrawal while keys are being typed.
import { clock } from './clock.mjs';
import { about } from './card-view.mjs';
import { Waiters } from './events.mjs';
import { agentName } from '../shared/agents.js';

const NEXT_POLL_MS = 2000;
const COMES_BACK_MS = 5000; // after a restart of the daemon; `kd` tries four times a second

export class Askers {
  #waiters = new Waiters();
  #awaited = new Map(); // card id -> how many wait for its end, and until when that counts after the last one

  constructor(app) {
    this.app = app;
    this.store = app.store;
    for (const { id } of this.store.all("SELECT id FROM cards WHERE delivery = 'wait' AND state <> 'closed'"))
      this.expect(id, COMES_BACK_MS);
  }

  /** The asker of this card is about to wait for its end. */
  expect(cardId, withinMs = NEXT_POLL_MS) {
    const { waiting } = this.#awaited.get(cardId) ?? { waiting: 0 };
    this.#awaited.set(cardId, { waiting, until: clock.steady() + withinMs });
  }

  close() {
    this.#waiters.close();
  }

  /** Looks again at who waits: called after each commit that changed a card or a job. */
  wake() {
    this.#waiters.wake();
  }

  /**
   * Cards that nobody waits for any more may take no answer now: tells their readers. A hook that waits for a time
   * takes its question back in the end; one that was ended before went with its question, as Codex's do at Escape.
   */
  forgetLeft() {
    for (const id of [...this.#awaited.keys()].filter((id) => !this.isAwaited(id))) {
      this.#awaited.delete(id);
      const { state, refs } = this.app.cards.find(id);
      if (state === 'open' && refs?.waits_s) this.app.cards.withdraw(id);
      else this.app.cards.awaitedAnew(id);
    }
  }

  /** For a waiting asker: the card's end, or after `waitMs` its present state. Hands over an answer that is ready. */
  async waitFor(cardId, waitMs, signal) {
    this.app.sessions.seen(this.app.cards.find(cardId));
    const leave = this.#join(cardId);
    try {
      const ended = await this.#waiters.wait(() => this.#ended(cardId), waitMs, signal);
      return ended ?? { state: this.app.cards.find(cardId).state };
    } finally {
      leave();
    }
  }

  /** Whether somebody waits for this card's end. The short gap between two polls of one caller counts as waiting. */
  isAwaited(cardId) {
    const { waiting, until } = this.#awaited.get(cardId) ?? { waiting: 0, until: -Infinity };
    return waiting > 0 || clock.steady() < until;
  }

  #join(cardId) {
    const isNew = !this.isAwaited(cardId);
    const entry = this.#awaited.get(cardId) ?? { waiting: 0, until: -Infinity };
    entry.waiting += 1;
    this.#awaited.set(cardId, entry);
    if (isNew) this.app.cards.awaitedAnew(cardId);
    return () => {
      entry.waiting -= 1;
      entry.until = clock.steady() + NEXT_POLL_MS;
    };
  }

  #ended(cardId, now = clock.now()) {
    const card = this.app.cards.find(cardId);
    const hand =
      card.state === 'armed' &&
      this.store.get("SELECT * FROM jobs WHERE card_id = ? AND type = 'hand' AND state = 'queued'", cardId);
    if (!hand) return this.#endOfCard(card);
    return this.#endOfCard(
      this.store.tx(() => {
        this.app.jobs.finish(hand, 'done', null);
        this.app.receipts.add(
          'answer.handed',
          `Handed to ${agentName(card.agent)}: "${card.title}".`,
          about(card),
          now,
        );
        return this.app.cards.close(card, 'answered', now, card.answer);
      }),
    );
  }

  /**
   * What an asker is told of a closed card, an answer that was kept for it included; undefined while it is
   * not closed.
   */
  #endOfCard(card) {
    if (card.state !== 'closed') return undefined;
    this.app.cards.fetch(card);
    return {
      state: 'closed',
      outcome: card.outcome,
      ...(card.answer === null ? {} : { answer: card.answer }),
    };
  }

  /** Waits until no keys are being typed for this card, or `waitMs` are over. */
  settled(cardId, waitMs, signal) {
    return this.#waiters.wait(
      () =>
        this.store.get("SELECT 1 AS found FROM jobs WHERE card_id = ? AND state = 'started'", cardId)
          ? undefined
          : true,
      waitMs,
      signal,
    );
  }
}
