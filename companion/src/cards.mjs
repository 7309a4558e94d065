import { conflict, stale, unknownCard } from './errors.mjs';
import { clock, iso, newId } from './clock.mjs';
import { deliveryOf, fitAnswer } from './answers.mjs';
import { agentName } from './names.mjs';

const JSON_COLUMNS = ['options', 'rows', 'refs', 'live', 'screen', 'answer'];
const NEEDS_YOU = "kind IN ('stop','question','batch','conflict','handoff_review','precedent')";

function fromRow(row) {
  for (const name of JSON_COLUMNS) row[name] = row[name] === null ? null : JSON.parse(row[name]);
  row.menu = row.menu === 1;
  row.blocking = row.blocking === 1;
  row.over = row.over === 1;
  return row;
}

/** An open card whose agent has ended is "gone": it can be dismissed, no longer answered. */
const stateOf = (card) => (card.state === 'open' && card.gone_ms !== null ? 'gone' : card.state);

/**
 * The questions. A card goes open -> held (an answer was pressed and can be taken back) -> armed (the answer is on its
 * way to the agent) -> closed; a way that fails leads back to open, with the card as it was. Each change raises `version`.
 */
export class Cards {
  constructor(app) {
    this.app = app;
    this.store = app.store;
  }

  find(id) {
    const row = this.store.get('SELECT * FROM cards WHERE id = ?', id);
    if (!row) throw unknownCard(id);
    return fromRow(row);
  }

  /** As it goes on the wire; absent fields are left out. */
  view(card) {
    const fields = {
      id: card.id, version: card.version, kind: card.kind, risk: card.risk, state: stateOf(card), topic: card.topic, agent: card.agent,
      session_id: card.session_id, stop_type: card.stop_type, title: card.title, body: card.body, options: card.options,
      default: card.default_answer, blocking: card.blocking, rows: card.rows, opened_at: iso(card.opened_ms),
      held_until: card.state === 'held' ? iso(card.held_until_ms) : null, refs: card.refs, menu: card.menu,
      screen: card.screen, answer: card.answer, outcome: card.outcome, closed_at: card.closed_ms === null ? null : iso(card.closed_ms),
    };
    return Object.fromEntries(Object.entries(fields).filter(([, value]) => value !== null));
  }

  /** Cards that are not closed, the one that waits longest first. */
  list() { return this.store.all("SELECT * FROM cards WHERE state <> 'closed' ORDER BY seq").map((row) => this.view(fromRow(row))); }
  ofTopic(topic) { return this.store.all('SELECT * FROM cards WHERE topic = ? ORDER BY seq DESC LIMIT 100', topic).map((row) => this.view(fromRow(row))); }
  needsYouCount() { return this.store.get(`SELECT count(*) AS n FROM cards WHERE state <> 'closed' AND gone_ms IS NULL AND ${NEEDS_YOU}`).n; }
  ofKind(kind, limit) { return this.store.all('SELECT * FROM cards WHERE kind = ? ORDER BY seq DESC LIMIT ?', kind, limit).map((row) => this.view(fromRow(row))); }

  /** The open cards whose answer would go to a process that is known by its id. */
  answerable() {
    return this.store.all("SELECT * FROM cards WHERE state = 'open' AND gone_ms IS NULL AND delivery <> 'keep' AND live IS NOT NULL").map(fromRow).filter((card) => card.live.pid !== undefined);
  }

  /** Opens a card for a checked ask. The same `ask_id` again gives the card that the first one made. */
  open(ask, now = clock.now()) {
    return this.store.tx(() => {
      const known = ask.ask_id && this.store.get('SELECT id FROM cards WHERE ask_id = ?', ask.ask_id);
      if (known) return this.find(known.id);
      const id = newId('card', now);
      ask.topic ??= this.app.onboarding.topicOf(ask.live?.cwd) ?? undefined;
      this.app.topics.touch(ask.topic, { title: ask.topic_title, folder: ask.live?.cwd, scope: ask.scope }, now);
      this.app.sessions.touch({ agent: ask.agent, session_id: ask.session_id, label: ask.label, topic: ask.topic, live: ask.live, status: ask.blocking ? 'waiting' : 'working' }, now);
      this.store.insert('cards', {
        id, ask_id: ask.ask_id, version: 1, state: 'open', kind: ask.kind, risk: ask.risk, stop_type: ask.stop_type, topic: ask.topic, agent: ask.agent,
        session_id: ask.session_id, title: ask.title, body: ask.body, options: JSON.stringify(ask.options), default_answer: ask.default,
        rows: ask.rows && JSON.stringify(ask.rows), blocking: Number(ask.blocking), refs: JSON.stringify(ask.refs), delivery: ask.delivery,
        menu: Number(ask.menu), live: ask.live && JSON.stringify(ask.live), screen: ask.screen && JSON.stringify(ask.screen), opened_ms: now,
      });
      return this.#changed(this.find(id), 'card.opened');
    });
  }

  #changed(card, event = 'card.changed') {
    this.store.afterCommit(() => {
      this.app.hub.publish(event, { id: card.id, version: card.version, state: stateOf(card), ...(card.outcome ? { outcome: card.outcome } : {}) });
      this.app.changed();
    });
    return card;
  }

  /** Sets columns and raises the version; gives the card as it is then. */
  update(card, columns, event) {
    const names = Object.keys(columns);
    this.store.run(`UPDATE cards SET version = version + 1, ${names.map((name) => `${name} = ?`).join(', ')} WHERE id = ?`, ...Object.values(columns), card.id);
    return this.#changed(this.find(card.id), event);
  }

  /** Takes an answer and holds it for the undo window. Only for the version that the presser saw, and only once. */
  answer({ id, version, answer, acceptAllDefaults, presence, review, surface }, now = clock.now()) {
    return this.store.tx(() => {
      const { card, fitted } = this.#fit({ id, version, answer, acceptAllDefaults });
      if (card.risk === 'high' && surface === 'page') this.app.reviews.finish(review, [id, version, presence, fitted.answer]);
      const holdMs = this.app.settings.holdMs(card.risk);
      const held = this.update(card, { state: 'held', held_until_ms: now + holdMs, answer: JSON.stringify(fitted.answer), presence });
      const receipt = this.app.receipts.add('answer.held', `${fitted.words} for ${agentName(card.agent)}: "${card.title}". Undo within ${Math.round(holdMs / 1000)} s.`, this.#about(card), now);
      return { receipt, status: 'held', card: this.view(held) };
    });
  }

  /** What a high-risk answer needs first: the answer as it would go out, to be read once more, and the token that confirms it. */
  review({ id, version, answer, acceptAllDefaults, presence }) {
    const { card, fitted } = this.#fit({ id, version, answer, acceptAllDefaults });
    return { review: this.app.reviews.begin([id, version, presence, fitted.answer]), answer: fitted.answer, hold_s: this.app.settings.holdMs(card.risk) / 1000 };
  }

  /** The card and the answer as it fits it; throws when the card is not the one that the presser saw. */
  #fit({ id, version, answer, acceptAllDefaults }) {
    const card = this.find(id);
    if (stateOf(card) !== 'open') throw stale(this.#whyNotOpen(card));
    if (card.version !== version) throw stale('The question changed since you read it. Look at it again.');
    return { card, fitted: fitAnswer(card, answer, acceptAllDefaults) };
  }

  #whyNotOpen(card) {
    if (stateOf(card) === 'gone') return `${agentName(card.agent)} has ended, so its question cannot be answered any more.`;
    if (card.state === 'closed') return card.outcome === 'answered' ? 'This question was answered already.' : 'This question is no longer asked.';
    return 'This question has an answer on its way already.';
  }

  #about(card) { return { topic: card.topic, card_id: card.id }; }

  /** Takes a held answer back. */
  undo(id, now = clock.now()) {
    return this.store.tx(() => {
      const card = this.find(id);
      if (card.state !== 'held') throw conflict(card.state === 'open' ? 'There is no answer to take back.' : 'Too late: the answer is on its way or delivered.');
      const open = this.update(card, { state: 'open', held_until_ms: null, answer: null, presence: null });
      const receipt = this.app.receipts.add('answer.undone', `Answer taken back: "${card.title}".`, this.#about(card), now);
      return { receipt, status: 'undone', card: this.view(open) };
    });
  }

  /** Ends a card from the page without an answer. The agent is told nothing. */
  dismiss(id, version, now = clock.now()) {
    return this.store.tx(() => {
      const card = this.find(id);
      if (card.version !== version || card.state !== 'open') throw stale(card.state === 'open' ? 'The question changed since you read it.' : this.#whyNotOpen(card));
      const receipt = this.app.receipts.add('card.dismissed', `Dismissed without an answer: "${card.title}".`, this.#about(card), now);
      return { receipt, status: 'dismissed', card: this.view(this.close(card, 'dismissed', now)) };
    });
  }

  close(card, outcome, now = clock.now()) {
    return this.update(card, { state: 'closed', outcome, held_until_ms: null, closed_ms: now, ...(outcome === 'answered' ? {} : { answer: null }) }, 'card.closed');
  }

  /** Back to open after an answer that did not arrive; `refs.last_refusal` says why. */
  reopen(card, reason) {
    const refs = JSON.stringify({ ...card.refs, last_refusal: reason });
    return this.update(card, { state: 'open', held_until_ms: null, answer: null, presence: null, refs });
  }

  /** The asker no longer needs an answer. Gives the state that the card is in then. */
  withdraw(id, now = clock.now()) {
    return this.store.tx(() => {
      const card = this.find(id);
      if (card.state === 'closed') return card;
      if (card.state === 'armed' && !this.app.jobs.withdraw(card.id, now)) {
        // Keys are being typed at this moment, and this withdrawal may well be their effect. The final report decides.
        this.store.run('UPDATE cards SET over = 1 WHERE id = ?', card.id);
        return this.find(id);
      }
      this.app.receipts.add('card.withdrawn', `${agentName(card.agent)} no longer asks: "${card.title}".`, this.#about(card), now);
      return this.close(card, 'withdrawn', now);
    });
  }

  /** Sends every answer on its way whose hold has ended. */
  commitDue(now = clock.now()) {
    for (const row of this.store.all("SELECT * FROM cards WHERE state = 'held' AND held_until_ms <= ? ORDER BY held_until_ms", now)) {
      this.store.tx(() => this.#commit(fromRow(row), now));
    }
  }

  #commit(card, now) {
    if (card.delivery === 'keep') {
      this.close(card, 'answered', now);
      this.app.receipts.add('answer.kept', `Answered: "${card.title}". ${agentName(card.agent)} fetches it when it asks again.`, this.#about(card), now);
      return;
    }
    this.update(card, { state: 'armed', held_until_ms: null });
    if (card.delivery === 'wait') this.app.jobs.queue(card, 'hand', {}, now);
    else this.app.jobs.queue(card, 'answer', deliveryOf(card, card.answer), now);
  }

  nextHoldEnd() { return this.store.get("SELECT min(held_until_ms) AS at FROM cards WHERE state = 'held'").at; }
}
