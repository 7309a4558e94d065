import { isDeepStrictEqual } from 'node:util';
import { conflict, unknownCard } from './errors.mjs';
import { clock, newId } from './clock.mjs';
import { answerLine } from './answers.mjs';
import { about, fromRow, stateOf, viewOf } from './card-view.mjs';
import { NEEDS_YOU, SHELL, agentName } from '../shared/agents.js';
import { isWaiting } from './sessions.mjs';

/** The identity of the process that asks, as text: its pid, start and image; null without a process. */
const processOf = (live) =>
  live?.pid === undefined ? null : `${live.pid}/${live.started ?? ''}/${live.image ?? ''}`;

/** What makes a question another one under the same name. */
const QUESTION = ['kind', 'title', 'body', 'options', 'rows', 'menu', 'screen'];

/** An asker's own name for its question, among those of all askers. To the user all shells are one. */
const nameOf = ({ agent, session_id: session, ask_id: name }) =>
  `${agent}/${agent === SHELL ? '' : session}/${name}`;

/** How a card was taken back while its keys were being typed. */
export const OVER = { not: 0, withoutWord: 1, withOurAnswer: 2 };

/**
 * The questions. A card goes open -> held (an answer was pressed and can be taken back) -> armed (the answer is on its
 * way to the agent) -> closed; a way that fails leads back to open, with the card as it was. Each change
 * raises `version`.
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

  /** The newest blocking question of the same process after this card: its terminal shows that one, and not this. */
  newerThan(card) {
    const row =
      card.process === null
        ? undefined
        : this.store.get(
            "SELECT * FROM cards WHERE process = ? AND seq > ? AND state <> 'closed' AND gone_ms IS NULL AND blocking = 1 ORDER BY seq DESC LIMIT 1",
            card.process,
            card.seq,
          );
    return row && fromRow(row);
  }

  /** Nobody waits for the answer to this card and none is typed, so that it lies here until somebody fetches it. */
  isKept({ id, delivery, state, fetched_ms: fetched }) {
    if (delivery === 'keep') return fetched === null;
    return delivery === 'wait' && state === 'open' && !this.app.askers.isAwaited(id);
  }

  /** Why no answer to an open card can reach its agent, in a sentence; null when one can, or can be fetched. */
  whyNotTypable(card) {
    if (card.state !== 'open') return null;
    // Hooks fetch no answers later, and the agent's own dialog stands in its terminal.
    if (card.delivery === 'wait' && card.refs.hook && this.isKept(card))
      return `${agentName(card.agent)} no longer waits for this, and nothing can be typed there. Answer it in its terminal.`;
    if (card.delivery !== 'terminal') return null;
    if (card.untypable !== null) return this.app.askers.isAwaited(card.id) ? null : card.untypable;
    return this.newerThan(card)
      ? `${agentName(card.agent)} has asked a newer question since. Answer that one first.`
      : null;
  }

  view(card) {
    const names = this.app.sessions.namesOf(card);
    const way = { whyNot: this.whyNotTypable(card), isKept: this.isKept(card) };
    return { ...viewOf(card, way, names), ...this.app.requests.view(card) };
  }

  /** Cards that are not closed, the one that waits longest first. */
  list() {
    return this.store
      .all("SELECT * FROM cards WHERE state <> 'closed' ORDER BY seq")
      .map((row) => this.view(fromRow(row)));
  }

  ofTopic(topic) {
    return this.store
      .all('SELECT * FROM cards WHERE topic = ? ORDER BY seq DESC LIMIT 100', topic)
      .map((row) => this.view(fromRow(row)));
  }

  /** How many cards wait for the user, and how many of those that do are put off. */
  counts() {
    return this.store.get(
      `SELECT count(*) FILTER (WHERE snoozed_until_ms IS NULL) AS needs_you, count(snoozed_until_ms) AS snoozed
       FROM cards WHERE state <> 'closed' AND gone_ms IS NULL AND +kind IN ('${NEEDS_YOU.join("','")}')`,
    );
  }

  ofKind(kind, limit) {
    return this.store
      .all('SELECT * FROM cards WHERE kind = ? ORDER BY seq DESC LIMIT ?', kind, limit)
      .map((row) => this.view(fromRow(row)));
  }

  /** The open cards whose answer would go to a process that is known by its id. */
  answerable() {
    return this.store
      .all(
        "SELECT * FROM cards WHERE state = 'open' AND gone_ms IS NULL AND delivery <> 'keep' AND live IS NOT NULL",
      )
      .map(fromRow)
      .filter((card) => card.live.pid !== undefined);
  }

  /** The processes that have a question open: {pid, started, agent}. */
  askers() {
    return this.store
      .all("SELECT agent, live FROM cards WHERE state <> 'closed' AND gone_ms IS NULL AND live IS NOT NULL")
      .map(({ agent, live }) => ({ ...JSON.parse(live), agent }))
      .filter(({ pid }) => pid > 1);
  }

  /**
   * The card of an earlier ask with this `ask_id` by the same asker. A name is free again once its question has ended
   * without an answer, and for other words once the answer has arrived.
   */
  #named(ask) {
    const row = ask.ask_id && this.store.get('SELECT * FROM cards WHERE ask_id = ?', nameOf(ask));
    if (!row) return undefined;
    const card = fromRow(row);
    const isAnswered = card.state === 'closed' && card.outcome === 'answered';
    const isSame = QUESTION.every((field) => isDeepStrictEqual(card[field] ?? null, ask[field] ?? null));
    if (isSame && (isAnswered || card.state !== 'closed')) return card;
    if (card.state !== 'closed' || (isAnswered && card.delivery === 'keep' && card.fetched_ms === null))
      throw conflict(
        `"${ask.ask_id}" is the name of another question of yours, ${card.id}: "${card.title}". Fetch its answer or withdraw it first, or take another name.`,
      );
    this.store.run('UPDATE cards SET ask_id = NULL WHERE id = ?', card.id);
    return undefined;
  }

  /** The way that an answer takes follows the newest ask; one that is on its way already goes on as it began. */
  #askedAgain(card, ask) {
    if (ask.delivery === 'wait') this.app.askers.expect(card.id);
    if (card.state !== 'open' && card.state !== 'held') return card;
    const { delivery, untypable = null } = ask;
    const live = ask.live && JSON.stringify(ask.live);
    return this.mark(card, { delivery, live, untypable, process: processOf(ask.live), gone_ms: null });
  }

  /** Opens a card for a checked ask. The same `ask_id` again gives the card that the first one made. */
  open(ask, now = clock.now()) {
    return this.store.tx(() => {
      const known = this.#named(ask);
      if (known) return this.#askedAgain(known, ask);
      const id = newId('card', now);
      const process = processOf(ask.live);
      for (const card of this.#unsureOf(ask.agent, ask.session_id, process)) this.wentOn(card, now);
      ask.topic ??= this.app.onboarding.topicOf(ask.live?.cwd) ?? undefined;
      this.app.topics.touch(
        ask.topic,
        { title: ask.topic_title, folder: ask.live?.cwd, scope: ask.scope, restricted: ask.restricted },
        now,
      );
      // A shell that does not wait has nothing to show among the agents.
      if (ask.agent !== SHELL || ask.live?.pid !== undefined)
        this.app.sessions.touch(
          {
            agent: ask.agent,
            session_id: ask.session_id,
            label: ask.label,
            topic: ask.topic,
            live: ask.live,
            status: ask.blocking ? 'waiting' : 'working',
          },
          now,
        );
      this.store.insert('cards', {
        id,
        ask_id: ask.ask_id && nameOf(ask),
        version: 1,
        state: 'open',
        kind: ask.kind,
        risk: ask.risk,
        stop_type: ask.stop_type,
        topic: ask.topic,
        agent: ask.agent,
        session_id: ask.session_id,
        title: ask.title,
        body: ask.body,
        options: JSON.stringify(ask.options),
        default_answer: ask.default,
        rows: ask.rows && JSON.stringify(ask.rows),
        blocking: Number(ask.blocking),
        refs: JSON.stringify(ask.refs),
        delivery: ask.delivery,
        menu: Number(ask.menu),
        live: ask.live && JSON.stringify(ask.live),
        screen: ask.screen && JSON.stringify(ask.screen),
        opened_ms: now,
        process,
        untypable: ask.untypable,
        restricted: Number(ask.restricted ?? false),
      });
      if (ask.delivery === 'wait') this.app.askers.expect(id);
      return this.#changed(this.find(id), 'card.opened');
    });
  }

  #changed(card, event = 'card.changed') {
    this.store.afterCommit(() => {
      this.app.hub.publish(event, {
        id: card.id,
        version: card.version,
        state: stateOf(card),
        ...(card.outcome ? { outcome: card.outcome } : {}),
      });
      this.app.changed();
    });
    return card;
  }

  #set(card, columns, more = '') {
    const names = Object.keys(columns);
    this.store.run(
      `UPDATE cards SET ${more}${names.map((name) => `${name} = ?`).join(', ')} WHERE id = ?`,
      ...Object.values(columns),
      card.id,
    );
    return this.find(card.id);
  }

  /** Sets columns and raises the version; gives the card as it is then. */
  update(card, columns, event) {
    return this.#changed(this.#set(card, columns, 'version = version + 1, '), event);
  }

  /** Sets columns that change nothing of the question or its answer, so the version stays. */
  mark(card, columns) {
    return this.#changed(this.#set(card, columns));
  }

  /** `answer` is what the agent got, when it is known that it got one. */
  close(card, outcome, now = clock.now(), answer = null) {
    const closed = this.update(
      card,
      {
        state: 'closed',
        outcome,
        held_until_ms: null,
        closed_ms: now,
        answer: answer === null ? null : JSON.stringify(answer),
      },
      'card.closed',
    );
    const isKept = card.delivery === 'keep' && outcome === 'answered';
    if (!isKept && outcome !== 'dismissed') this.app.sessions.goOn(card, now);
    return closed;
  }

  /**
   * Back to open after an answer that did not arrive; `refs.last_refusal` says why. `maybeTyped`: it may have
   * arrived.
   */
  reopen(card, reason, maybeTyped) {
    const refs = JSON.stringify({ ...card.refs, last_refusal: reason });
    const unsure = maybeTyped ? { unsure: JSON.stringify({ answer: card.answer }) } : {};
    return this.update(card, {
      state: 'open',
      held_until_ms: null,
      answer: null,
      presence: null,
      refs,
      ...unsure,
    });
  }

  /** What was typed for an earlier question of the same process may have gone here. */
  warn(card) {
    const refs = JSON.stringify({
      ...card.refs,
      last_refusal:
        'an answer to an earlier question was typed while this one came. Some keys may have gone here',
    });
    return this.update(card, { refs, unsure: card.unsure === null ? '{}' : JSON.stringify(card.unsure) });
  }

  /** A late report says that nothing was typed after all: the card is again as it was before the answer. */
  clearUnsure(card, reason) {
    return this.update(card, { unsure: null, refs: JSON.stringify({ ...card.refs, last_refusal: reason }) });
  }

  #unsureOf(agent, sessionId, process) {
    return this.store
      .all(
        "SELECT * FROM cards WHERE state = 'open' AND state <> 'closed' AND unsure IS NOT NULL AND (process = ? OR (agent = ? AND session_id = ?))",
        process,
        agent,
        sessionId,
      )
      .map(fromRow);
  }

  /** Closes an open card whose answer may have been typed, once its agent is seen to do something else. */
  wentOn(card, now = clock.now()) {
    this.app.receipts.add(
      'card.went_on',
      `${agentName(card.agent)} went on after "${card.title}". Your answer may have been typed.`,
      about(card, 'agent'),
      now,
    );
    return this.close(card, 'went_on', now);
  }

  /** This card's question was to be seen on the screen of its agent. */
  keepShown(id) {
    this.store.run('UPDATE cards SET shown = 1 WHERE id = ?', id);
  }

  unsureAndShown() {
    return this.store
      .all(
        "SELECT * FROM cards WHERE state = 'open' AND state <> 'closed' AND unsure IS NOT NULL AND shown = 1 AND gone_ms IS NULL",
      )
      .map(fromRow);
  }

  /** The question of this card, as it was a moment ago, is not on the screen any more. */
  leftBehind({ id, version }) {
    this.store.tx(() => {
      const card = this.find(id);
      if (card.version === version && card.state === 'open') this.wentOn(card);
    });
  }

  /** An agent told what it does now. Called in a transaction. */
  heardOf({ agent, session_id: sessionId, live, status }, now = clock.now()) {
    if (status === undefined || isWaiting(status)) return;
    for (const card of this.#unsureOf(agent, sessionId, processOf(live))) this.wentOn(card, now);
  }

  /**
   * The asker no longer needs an answer. `answered` is what was chosen in the terminal, when the agent says
   * so. Gives the state that the card is in then.
   */
  withdraw(id, answered, now = clock.now()) {
    return this.store.tx(() => {
      const card = this.find(id);
      if (card.state === 'closed') return card;
      const isOurs = (pressed) =>
        (pressed ?? null) !== null && answered !== undefined && answerLine(card, pressed) === answered;
      if (card.state === 'armed' && !this.app.jobs.withdraw(card.id)) {
        // Keys are being typed right now, and the agent may withdraw because of them. The final report decides.
        // A word that the answer came is not taken back by the next one, that the agent has stopped.
        this.store.run(
          'UPDATE cards SET over = ? WHERE id = ?',
          Math.max(card.over, isOurs(card.answer) ? OVER.withOurAnswer : OVER.withoutWord),
          card.id,
        );
        return this.find(id);
      }
      if (card.state === 'open' && isOurs(card.unsure?.answer)) {
        this.app.receipts.add(
          'answer.typed',
          `The answer did reach ${agentName(card.agent)}: "${card.title}".`,
          about(card),
          now,
        );
        return this.close(card, 'answered', now, card.unsure.answer);
      }
      this.app.receipts.add(
        'card.withdrawn',
        `${agentName(card.agent)} no longer asks: "${card.title}".`,
        about(card, 'agent'),
        now,
      );
      return this.close(card, 'withdrawn', now);
    });
  }

  /** Somebody fetches the answer of a card that nobody waited for or could type for. */
  fetch(card, now = clock.now()) {
    if (card.delivery !== 'keep' || card.outcome !== 'answered' || card.fetched_ms !== null) return;
    this.store.tx(() => {
      this.store.run('UPDATE cards SET fetched_ms = ? WHERE id = ?', now, card.id);
      this.app.receipts.add(
        'answer.handed',
        `Fetched by ${agentName(card.agent)}: "${card.title}".`,
        about(card),
        now,
      );
      this.app.sessions.goOn(card, now);
    });
  }

  /**
   * Somebody began or stopped waiting for this card's end, which a card that nothing is typed for says.
   */
  awaitedAnew(id) {
    const card = this.find(id);
    const isTyped = card.delivery === 'terminal' && card.untypable === null;
    if (!isTyped && card.state !== 'closed') this.store.tx(() => this.#changed(card));
  }
}
