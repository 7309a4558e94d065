import { conflict, stale, unknownCard } from './errors.mjs';
import { clock, iso, newId } from './clock.mjs';
import { answerLine, deliveryOf, fitAnswer } from './answers.mjs';
import { NEEDS_YOU, agentName } from '../shared/agents.js';
import { isAnother } from './proc.mjs';
import { isWaiting } from './sessions.mjs';

const JSON_COLUMNS = ['options', 'rows', 'refs', 'live', 'screen', 'answer', 'unsure'];
const CLOCK_WAS_SET_MS = 1000;

function fromRow(row) {
  for (const name of JSON_COLUMNS) row[name] = row[name] === null ? null : JSON.parse(row[name]);
  row.menu = row.menu === 1;
  row.blocking = row.blocking === 1;
  return row;
}

/** What the process that asks is known by; null without one. */
const processOf = (live) =>
  live?.pid === undefined ? null : `${live.pid}/${live.started ?? ''}/${live.image ?? ''}`;

/** How a card was taken back while its keys were being typed. */
export const OVER = { not: 0, withoutWord: 1, withOurAnswer: 2 };

/** An open card whose agent has ended is "gone": it can be dismissed, no longer answered. */
const stateOf = (card) => (card.state === 'open' && card.gone_ms !== null ? 'gone' : card.state);

/**
 * The questions. A card goes open -> held (an answer was pressed and can be taken back) -> armed (the answer is on its
 * way to the agent) -> closed; a way that fails leads back to open, with the card as it was. Each change raises `version`.
 */
export class Cards {
  #attempted = new Set(); // cards that an agent's program tried to answer
  #holds = new Map(); // card id -> when its hold ends, on the steady clock
  #offset = clock.now() - clock.steady();

  constructor(app) {
    this.app = app;
    this.store = app.store;
    // Nobody could undo while no daemon ran, and the time of day may have been set since: each hold begins anew.
    for (const { id, risk } of this.#held())
      this.store.run(
        'UPDATE cards SET held_until_ms = ? WHERE id = ?',
        clock.now() + this.#hold(id, risk),
        id,
      );
  }

  #held() {
    return this.store.all("SELECT id, risk FROM cards WHERE state = 'held' AND state <> 'closed'");
  }

  /** Begins a hold; gives its length. */
  #hold(id, risk) {
    const ms = this.app.settings.holdMs(risk);
    this.#holds.set(id, clock.steady() + ms);
    return ms;
  }

  find(id) {
    const row = this.store.get('SELECT * FROM cards WHERE id = ?', id);
    if (!row) throw unknownCard(id);
    return fromRow(row);
  }

  /** What the agent's process has asked since and is blocked by: that, and not this, is what its terminal shows. */
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

  /** Why no answer can be typed for an open card, in a sentence; null when one can, or when none has to be typed. */
  #whyNotTypable(card) {
    if (card.delivery !== 'terminal' || card.state !== 'open') return null;
    if (card.untypable !== null) return this.app.jobs.isAwaited(card.id) ? null : card.untypable;
    return this.newerThan(card)
      ? `${agentName(card.agent)} has asked a newer question since. Answer that one first.`
      : null;
  }

  /** As it goes on the wire; absent fields are left out. After an answer that may have been typed nothing is suggested any more. */
  view(card) {
    const whyNot = this.#whyNotTypable(card);
    const suggests = card.unsure === null;
    const rows = suggests ? card.rows : (card.rows?.map(({ default: _, ...row }) => row) ?? null);
    const fields = {
      id: card.id,
      version: card.version,
      kind: card.kind,
      risk: card.risk,
      state: stateOf(card),
      topic: card.topic,
      agent: card.agent,
      session_id: card.session_id,
      stop_type: card.stop_type,
      title: card.title,
      body: card.body,
      options: card.options,
      default: suggests ? card.default_answer : null,
      blocking: card.blocking,
      rows,
      opened_at: iso(card.opened_ms),
      held_until: card.state === 'held' ? iso(card.held_until_ms) : null,
      refs: card.refs,
      menu: card.menu,
      delivery_note:
        card.delivery === 'keep'
          ? `Nothing is typed for this one. Your answer is kept until ${agentName(card.agent)} fetches it.`
          : whyNot,
      answerable: whyNot === null ? null : false,
      maybe_typed: suggests ? null : true,
      screen: card.screen,
      answer: card.answer,
      outcome: card.outcome,
      closed_at: card.closed_ms === null ? null : iso(card.closed_ms),
    };
    return Object.fromEntries(Object.entries(fields).filter(([, value]) => value !== null));
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
  needsYouCount() {
    return this.store.get(
      `SELECT count(*) AS n FROM cards WHERE state <> 'closed' AND gone_ms IS NULL AND +kind IN ('${NEEDS_YOU.join("','")}')`,
    ).n;
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

  /** An agent's program tried to answer. The card says so once, however often it is tried, for each time raises its version. */
  noteAttempt(id, agent) {
    const card = this.find(id);
    if (card.state === 'closed' || this.#attempted.has(id)) return;
    this.#attempted.add(id);
    const words = `A program of ${agentName(agent)} tried to answer this, and was refused.`;
    this.store.tx(() => {
      this.update(card, { refs: JSON.stringify({ ...card.refs, last_attempt: words }) });
      this.app.receipts.add('answer.not_the_user', `${words} "${card.title}".`, this.#about(card));
    });
  }

  /** Opens a card for a checked ask. The same `ask_id` again gives the card that the first one made. */
  open(ask, now = clock.now()) {
    return this.store.tx(() => {
      const known = ask.ask_id && this.store.get('SELECT id FROM cards WHERE ask_id = ?', ask.ask_id);
      if (known) return this.find(known.id);
      const id = newId('card', now);
      const process = processOf(ask.live);
      for (const card of this.#unsureOf(ask.agent, ask.session_id, process)) this.wentOn(card, now);
      ask.topic ??= this.app.onboarding.topicOf(ask.live?.cwd) ?? undefined;
      this.app.topics.touch(
        ask.topic,
        { title: ask.topic_title, folder: ask.live?.cwd, scope: ask.scope },
        now,
      );
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
        ask_id: ask.ask_id,
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
      });
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

  /** Sets columns and raises the version; gives the card as it is then. */
  update(card, columns, event) {
    const names = Object.keys(columns);
    this.store.run(
      `UPDATE cards SET version = version + 1, ${names.map((name) => `${name} = ?`).join(', ')} WHERE id = ?`,
      ...Object.values(columns),
      card.id,
    );
    return this.#changed(this.find(card.id), event);
  }

  /** Takes an answer and holds it for the undo window. Only for the version that the presser saw, and only once. */
  answer({ id, version, answer, acceptAllDefaults, presser, presence, review, surface }, now = clock.now()) {
    return this.store.tx(() => {
      const { card, fitted } = this.#fit({ id, version, answer, acceptAllDefaults });
      if (card.risk === 'high' && surface === 'page')
        this.app.reviews.finish(review, [id, version, presser, fitted.answer]);
      const seconds = Math.round(this.app.settings.holdMs(card.risk) / 1000);
      const held = this.update(card, {
        state: 'held',
        held_until_ms: now + this.#hold(card.id, card.risk),
        answer: JSON.stringify(fitted.answer),
        presence,
      });
      const receipt = this.app.receipts.add(
        'answer.held',
        `${fitted.words} for ${agentName(card.agent)}: "${card.title}". Undo within ${seconds} s.`,
        this.#about(card),
        now,
      );
      this.store.afterCommit(() => this.app.looks.remember(card).catch(this.app.wentWrong));
      return { receipt, status: 'held', card: this.view(held) };
    });
  }

  /** What a high-risk answer needs first: the answer as it would go out, to be read once more, and the token that confirms it. */
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
    const card = this.find(id);
    if (stateOf(card) !== 'open') throw stale(this.#whyNotOpen(card));
    if (card.version !== version) throw stale('The question changed since you read it. Look at it again.');
    const whyNot = this.#whyNotTypable(card);
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

  #about(card) {
    return { topic: card.topic, card_id: card.id };
  }

  /** Takes a held answer back. */
  undo(id, now = clock.now()) {
    return this.store.tx(() => {
      const card = this.find(id);
      if (card.state !== 'held')
        throw conflict(
          card.state === 'open'
            ? 'There is no answer to take back.'
            : 'Too late: the answer is on its way or delivered.',
        );
      const open = this.update(card, { state: 'open', held_until_ms: null, answer: null, presence: null });
      const receipt = this.app.receipts.add(
        'answer.undone',
        `Answer taken back: "${card.title}".`,
        this.#about(card),
        now,
      );
      return { receipt, status: 'undone', card: this.view(open) };
    });
  }

  /** Ends a card from the page without an answer. The agent is told nothing. */
  dismiss(id, version, now = clock.now()) {
    return this.store.tx(() => {
      const card = this.find(id);
      if (card.version !== version || card.state !== 'open')
        throw stale(
          card.state === 'open' ? 'The question changed since you read it.' : this.#whyNotOpen(card),
        );
      const receipt = this.app.receipts.add(
        'card.dismissed',
        `Dismissed without an answer: "${card.title}".`,
        this.#about(card),
        now,
      );
      return { receipt, status: 'dismissed', card: this.view(this.close(card, 'dismissed', now)) };
    });
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

  /** Back to open after an answer that did not arrive; `refs.last_refusal` says why. `maybeTyped`: or perhaps it did. */
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

  /** What looked as if it might have been typed was not: the card is again as it was. */
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
      this.#about(card),
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
   * The asker no longer needs an answer. `answered` is what was chosen in the terminal, when the agent says so. Gives the
   * state that the card is in then.
   */
  withdraw(id, answered, now = clock.now()) {
    return this.store.tx(() => {
      const card = this.find(id);
      if (card.state === 'closed') return card;
      const isOurs = (pressed) =>
        (pressed ?? null) !== null && answered !== undefined && answerLine(card, pressed) === answered;
      if (card.state === 'armed' && !this.app.jobs.withdraw(card.id)) {
        // Keys are being typed at this moment, and this withdrawal may well be their effect. The final report decides.
        this.store.run(
          'UPDATE cards SET over = ? WHERE id = ?',
          isOurs(card.answer) ? OVER.withOurAnswer : OVER.withoutWord,
          card.id,
        );
        return this.find(id);
      }
      if (card.state === 'open' && isOurs(card.unsure?.answer)) {
        this.app.receipts.add(
          'answer.typed',
          `The answer did reach ${agentName(card.agent)}: "${card.title}".`,
          this.#about(card),
          now,
        );
        return this.close(card, 'answered', now, card.unsure.answer);
      }
      this.app.receipts.add(
        'card.withdrawn',
        `${agentName(card.agent)} no longer asks: "${card.title}".`,
        this.#about(card),
        now,
      );
      return this.close(card, 'withdrawn', now);
    });
  }

  /** Sends every answer on its way whose hold has ended. */
  commitDue(now = clock.steady()) {
    for (const { id, risk } of this.#held()) {
      if (!this.#holds.has(id)) this.#hold(id, risk);
      if (this.#holds.get(id) <= now) this.store.tx(() => this.#commit(this.find(id)));
    }
  }

  #commit(card, now = clock.now()) {
    if (card.delivery === 'keep') {
      this.close(card, 'answered', now, card.answer);
      this.app.receipts.add(
        'answer.kept',
        `Kept for ${agentName(card.agent)}, which has not fetched it yet: "${card.title}". Nothing was typed.`,
        this.#about(card),
        now,
      );
      return;
    }
    this.update(card, { state: 'armed', held_until_ms: null });
    // What could not be typed was pressed because somebody waited for it.
    if (card.delivery === 'wait' || card.untypable !== null) this.app.jobs.queue(card, 'hand', {}, now);
    else this.app.jobs.queue(card, 'answer', deliveryOf(card, card.answer), now);
  }

  /** When the next hold ends, on the steady clock; null without one. */
  nextHoldEnd() {
    const held = this.#held();
    for (const id of this.#holds.keys()) if (!held.some((card) => card.id === id)) this.#holds.delete(id);
    return held.length === 0 ? null : Math.min(...held.map(({ id }) => this.#holds.get(id) ?? 0));
  }

  /** The time of day may be set while an answer is on hold; what is shown of the hold then has to follow. */
  followTimeOfDay() {
    const offset = clock.now() - clock.steady();
    if (Math.abs(offset - this.#offset) < CLOCK_WAS_SET_MS) return;
    this.#offset = offset;
    for (const { id } of this.#held())
      this.store.tx(() =>
        this.update(this.find(id), { held_until_ms: Math.round(this.#holds.get(id) + offset) }),
      );
  }

  /** Somebody fetches the answer of a card that nobody waited for or could type for. */
  fetch(card, now = clock.now()) {
    if (card.delivery !== 'keep' || card.outcome !== 'answered' || card.fetched_ms !== null) return;
    this.store.tx(() => {
      this.store.run('UPDATE cards SET fetched_ms = ? WHERE id = ?', now, card.id);
      this.app.receipts.add(
        'answer.handed',
        `Fetched by ${agentName(card.agent)}: "${card.title}".`,
        this.#about(card),
        now,
      );
      this.app.sessions.goOn(card, now);
    });
  }

  /** Somebody began or stopped to wait for this card's end, which can make the difference whether it takes answers. */
  awaitedAnew(id) {
    const card = this.find(id);
    if (card.untypable !== null && card.state !== 'closed') this.store.tx(() => this.#changed(card));
  }
}
