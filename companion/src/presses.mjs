// What the user does with a card on the page: answers it, takes an answer back, or dismisses the card.
import { conflict, stale } from './errors.mjs';
import { clock } from './clock.mjs';
import { fitAnswer } from './answers.mjs';
import { about, stateOf } from './card-view.mjs';
import { agentName } from '../shared/agents.js';
import { isAnother } from './proc.mjs';

export class Presses {
  #attempted = new Set(); // cards that an agent's program tried to answer

  constructor(app) {
    this.app = app;
    this.store = app.store;
    this.cards = app.cards;
  }

  /** Takes an answer and holds it for the undo window. Only for the version that the presser saw, and only once. */
  answer(
    { id, version, answer, acceptAllDefaults, presser, presence, review, by, holdAs, phone },
    now = clock.now(),
  ) {
    return this.store.tx(() => {
      const { card, fitted } = this.#fit({ id, version, answer, acceptAllDefaults });
      if (card.risk === 'high' && by !== 'test')
        this.app.reviews.finish(review, [id, version, presser, fitted.answer]);
      const seconds = Math.round(this.app.settings.holdMs(holdAs ?? card.risk) / 1000);
      const held = this.cards.update(card, {
        state: 'held',
        held_until_ms: now + this.app.holds.begin({ ...card, risk: holdAs ?? card.risk }),
        answer: JSON.stringify(fitted.answer),
        // Pressed in the knowledge that nobody waits.
        ...(this.cards.isKept(card) ? { delivery: 'keep' } : {}),
        presence,
        pressed_in: by,
        phone: phone ?? null,
        snoozed_until_ms: null,
      });
      const receipt = this.app.receipts.add(
        'answer.held',
        `${fitted.words} for ${agentName(card.agent)}: "${card.title}". Undo within ${seconds} s.`,
        about(held),
        now,
      );
      this.store.afterCommit(() => this.app.looks.remember(card).catch(this.app.wentWrong));
      return { receipt, status: 'held', card: this.cards.view(held) };
    });
  }

  /**
   * What a high-risk answer needs first: the answer as it would go out, to be read once more, and the token
   * that confirms it.
   */
  review({ id, version, answer, acceptAllDefaults, presser }) {
    const { card, fitted } = this.#fit({ id, version, answer, acceptAllDefaults });
    return {
      review: this.app.reviews.begin([id, version, presser, fitted.answer]),
      answer: fitted.answer,
      hold_s: this.app.settings.holdMs(card.risk) / 1000,
    };
  }

  /** The card and the answer as it fits it; throws when the card is not the one that the presser saw. */
  #fit({ id, version, answer, acceptAllDefaults }) {
    const card = this.cards.find(id);
    if (stateOf(card) !== 'open') throw stale(this.#whyNotOpen(card));
    if (card.version !== version) throw stale('The question changed since you read it. Look at it again.');
    const whyNot = this.cards.whyNotTypable(card);
    if (whyNot !== null) throw conflict(whyNot);
    if (card.delivery === 'terminal' && isAnother(card.live)) throw stale(this.#whyEnded(card));
    return { card, fitted: fitAnswer(card, answer, acceptAllDefaults && card.unsure === null) };
  }

  #whyNotOpen(card) {
    if (stateOf(card) === 'gone') return this.#whyEnded(card);
    if (card.state === 'closed')
      return card.outcome === 'answered'
        ? 'This question was answered already.'
        : 'This question is no longer asked.';
    return 'This question has an answer on its way already.';
  }

  #whyEnded(card) {
    return `${agentName(card.agent)} has ended, so its question cannot be answered any more.`;
  }

  /** Takes a held answer back. */
  undo(id, by, now = clock.now()) {
    return this.store.tx(() => {
      const card = this.cards.find(id);
      if (card.state !== 'held')
        throw conflict(
          card.state === 'open'
            ? 'There is no answer to take back.'
            : 'Too late: the answer is on its way or delivered.',
        );
      const open = this.cards.update(card, {
        state: 'open',
        held_until_ms: null,
        answer: null,
        presence: null,
        phone: null,
      });
      const receipt = this.app.receipts.add(
        'answer.undone',
        `Answer taken back: "${card.title}".`,
        about(card, by),
        now,
      );
      return { receipt, status: 'undone', card: this.cards.view(open) };
    });
  }

  /** A phone was unpaired: what came from it and has not been done yet never is. Called in a transaction. */
  takeBackOf(phone, now = clock.now()) {
    const why = 'the phone that answered was unpaired';
    for (const { id } of this.store.all(
      "SELECT id FROM cards WHERE phone = ? AND state <> 'closed'",
      phone,
    )) {
      const card = this.cards.find(id);
      if (card.state === 'open') {
        if (this.app.requests.find(id)) this.dismiss(id, card.version, 'phone', now);
        continue;
      }
      if (card.state === 'armed' && !this.app.jobs.withdraw(id, why)) continue; // it is being typed
      this.app.receipts.add(
        'answer.undone',
        `Answer taken back, since its phone was unpaired: "${card.title}".`,
        about(card),
        now,
      );
      this.cards.reopen(card, why, false);
    }
  }

  /** Ends a card from the page without an answer. The agent is told nothing. */
  dismiss(id, version, by, now = clock.now()) {
    return this.store.tx(() => {
      const card = this.cards.find(id);
      if (card.version !== version || card.state !== 'open')
        throw stale(
          card.state === 'open' ? 'The question changed since you read it.' : this.#whyNotOpen(card),
        );
      const receipt = this.app.receipts.add(
        'card.dismissed',
        `Dismissed without an answer: "${card.title}".`,
        about(card, by),
        now,
      );
      return {
        receipt,
        status: 'dismissed',
        card: this.cards.view(this.cards.close(card, 'dismissed', now)),
      };
    });
  }

  /** An agent's program tried to answer. The card says so once only, since each note raises its version. */
  noteAttempt(id, agent) {
    const card = this.cards.find(id);
    if (card.state === 'closed' || this.#attempted.has(id)) return;
    this.#attempted.add(id);
    const words = `A program of ${agentName(agent)} tried to answer this, and was refused.`;
    this.store.tx(() => {
      this.cards.update(card, { refs: JSON.stringify({ ...card.refs, last_attempt: words }) });
      this.app.receipts.add('answer.not_the_user', `${words} "${card.title}".`, about(card, 'agent'));
    });
  }
}
