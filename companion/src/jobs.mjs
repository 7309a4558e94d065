import { conflict, forbidden, Refusal } from './errors.mjs';
import { clock, iso, newId } from './clock.mjs';
import { agentName } from '../shared/agents.js';
import { Waiters } from './events.mjs';
import { about } from './card-view.mjs';
import { OVER } from './cards.mjs';
import { whyNotTheAsker } from './proc.mjs';

const FORGET_MS = 3_600_000;
const ENDED = ['done', 'refused', 'failed', 'expired', 'unfinished', 'withdrawn'];

/**
 * Answers on their way. A job is queued -> claimed by the page session whose mark it bears -> started -> done, refused
 * or failed. One that nobody starts in time expires; one that was started and never reported ends as unfinished; both
 * come early when that page session is not heard of any more. Each end closes or reopens the card in the same
 * transaction. Type "hand" is an answer for a waiting `kd` and is never claimed.
 */
export class Jobs {
  #claims = new Waiters();
  // Both use the steady clock, which ends with the process: after a restart terms begin anew and no session is known.
  #terms = new Map(); // job id -> when its time is over
  #heard = new Map(); // mark of a page session -> when it was last heard of
  #polling = new Map(); // mark of a page session -> how many of its claims are waiting

  constructor(app) {
    this.app = app;
    this.store = app.store;
    // A shell that was typing when the last daemon ended is given the time to report.
    for (const { presence } of this.store.all("SELECT presence FROM jobs WHERE state = 'started'"))
      this.heard(presence);
  }

  /** A page session showed that it is there. */
  heard(tag) {
    this.#heard.set(tag, clock.steady());
  }

  /** When a page session that gives no sign counts as gone; always in the past for an unknown one. */
  #goneAt(tag) {
    return this.#polling.has(tag)
      ? Infinity
      : (this.#heard.get(tag) ?? -Infinity) + this.app.settings.unseenMs;
  }

  /** Whether the page session was heard of lately enough to count as being there. */
  isThere(tag) {
    return clock.steady() < this.#goneAt(tag);
  }

  #term(id, begin = false) {
    if (begin || !this.#terms.has(id)) this.#terms.set(id, clock.steady() + this.app.settings.expiryMs);
    return this.#terms.get(id);
  }

  close() {
    this.#claims.close();
  }

  /** Looks again at who waits: called after each commit that changed a card or a job. */
  wake() {
    this.#claims.wake();
  }

  /** Called in the transaction that arms the card. */
  queue(card, type, extra, now) {
    const expires = now + this.app.settings.expiryMs;
    const { pid, pgid, tty, host, host_ref, codex_thread } = card.live ?? {};
    const id = newId('job', now);
    const payload = {
      id,
      type,
      card_id: card.id,
      agent: card.agent,
      session_id: card.session_id,
      pid,
      pgid,
      tty,
      host: host ?? 'unknown',
      host_ref,
      codex_thread,
      ...extra,
      presence: card.presence,
      expires_at: iso(expires),
    };
    this.#term(id, true);
    this.store.insert('jobs', {
      id,
      card_id: card.id,
      type,
      state: 'queued',
      payload: JSON.stringify(payload),
      presence: card.presence,
      expires_ms: expires,
    });
  }

  /** One job for this page session, or none after `waitMs`. Only the session that pressed an answer is offered it. */
  async claim(session, waitMs, signal) {
    const { tag } = session;
    this.#polling.set(tag, (this.#polling.get(tag) ?? 0) + 1);
    try {
      const job = await this.#claims.wait(() => (session.live ? this.#take(tag) : null), waitMs, signal);
      if (!session.live) throw new Refusal('unauthorized', 401, 'This page session has ended.');
      return job ? [job] : [];
    } finally {
      const others = this.#polling.get(tag) - 1;
      if (others > 0) this.#polling.set(tag, others);
      else this.#polling.delete(tag);
      this.heard(tag);
    }
  }

  #take(tag) {
    const job = this.store.get(
      "SELECT * FROM jobs WHERE state = 'queued' AND type = 'answer' AND presence = ? ORDER BY seq LIMIT 1",
      tag,
    );
    if (!job || this.#term(job.id) <= clock.steady()) return this.app.focuses.take(tag);
    this.store.tx(() =>
      this.store.run("UPDATE jobs SET state = 'claimed', claimant = ? WHERE id = ?", tag, job.id),
    );
    // The shell goes by the time of day, which may have been set since the job was made.
    return { ...JSON.parse(job.payload), expires_at: iso(clock.now() + this.#term(job.id) - clock.steady()) };
  }

  #find(id) {
    const job = this.store.get("SELECT * FROM jobs WHERE id = ? AND type = 'answer'", id);
    if (!job) throw new Refusal('unknown_job', 404, `There is no job "${id}".`);
    return job;
  }

  /** The last word before the first key: `proceed` once, to the claimant, while the answer is still wanted. */
  start(id, session, now = clock.now()) {
    return this.store.tx(() => {
      const job = this.#find(id);
      const reason = this.#whyNotStart(job, session);
      if (reason) return { proceed: false, reason };
      this.#term(id, true);
      this.store.run("UPDATE jobs SET state = 'started', started_ms = ? WHERE id = ?", now, id);
      this.store.afterCommit(() => this.app.changed());
      return { proceed: true };
    });
  }

  #whyNotStart(job, session) {
    if (job.state === 'withdrawn') return job.reason;
    if (job.state === 'expired') return 'the job expired';
    if (ENDED.includes(job.state)) return 'the job is over';
    if (this.#term(job.id) <= clock.steady()) return 'the job expired';
    if (job.state === 'queued') return 'the job was not claimed';
    if (job.claimant !== session.tag) return 'the job was claimed by another page session';
    if (job.state !== 'claimed') return 'the job was started before';
    const card = this.app.cards.find(job.card_id);
    if (card.state !== 'armed' || card.over !== OVER.not)
      return 'the question is no longer waiting for this answer';
    return (
      (card.live === null ? null : whyNotTheAsker(card.live)) ??
      (this.app.cards.newerThan(card) ? `${agentName(card.agent)} has asked a newer question since` : null)
    );
  }

  /** The verdict of the claimant. A second verdict changes nothing. */
  report(id, { outcome, reason, path }, session, now = clock.now()) {
    return this.store.tx(() => {
      const job = this.#find(id);
      if (!this.#mayReport(job, session)) throw forbidden('Another page session claimed this job.');
      if (job.state === 'unfinished' && outcome !== 'failed')
        return this.#lateWord(job, outcome, reason ?? null, now);
      if (ENDED.includes(job.state)) return { accepted: false, reason: 'the job is over' };
      if (outcome === 'done' && job.state !== 'started') throw conflict('The job was not started.');
      this.finish(job, outcome, reason ?? null);
      const card = this.app.cards.find(job.card_id);
      if (this.app.requests.ended(job, card, outcome, reason, now)) return { accepted: true };
      if (outcome === 'done') this.#delivered(card, path, now);
      else this.#notDelivered(card, outcome, reason ?? 'no reason was given', outcome === 'failed', now);
      return { accepted: true };
    });
  }

  /** The claimant may report; when its session ended with an earlier daemon, any session of the shell may. */
  #mayReport(job, session) {
    if (job.claimant === session.tag) return true;
    return job.claimant !== null && !this.app.auth.isAlive(job.claimant) && this.app.auth.isShell(session);
  }

  /** Ends a job in a transaction of the caller's. */
  finish(job, state, reason, columns = {}) {
    const all = { state, reason, ...columns };
    this.store.run(
      `UPDATE jobs SET ${Object.keys(all)
        .map((name) => `${name} = ?`)
        .join(', ')} WHERE id = ?`,
      ...Object.values(all),
      job.id,
    );
    this.#terms.delete(job.id);
    this.store.afterCommit(() => this.app.changed());
  }

  #delivered(card, path, now, answer = card.answer) {
    // The keys were typed, but perhaps not for this question: somebody may have answered in the terminal at
    // the same moment, or the agent may have asked the next one meanwhile. Only the agent's own word proves
    // that it got this answer.
    const newer =
      card.over === OVER.not && path !== 'codex_queue' ? this.app.cards.newerThan(card) : undefined;
    if (card.over === OVER.withoutWord || newer) {
      const what = newer ? 'asked something newer' : 'took its question back';
      this.app.receipts.add(
        'answer.overtaken',
        `Typed for ${agentName(card.agent)}, which ${what} meanwhile: "${card.title}".`,
        about(card),
        now,
      );
      if (newer?.state === 'open') this.app.cards.warn(newer);
      return this.app.cards.close(card, newer ? 'went_on' : 'withdrawn', now);
    }
    const how = path === 'codex_queue' ? 'Queued for' : 'Typed into';
    this.app.receipts.add(
      'answer.typed',
      `${how} ${agentName(card.agent)}: "${card.title}".`,
      about(card),
      now,
    );
    return this.app.cards.close(card, 'answered', now, answer);
  }

  #notDelivered(card, outcome, reason, maybeTyped, now) {
    if (card.over === OVER.withOurAnswer) return this.#delivered(card, 'host', now);
    const warning = maybeTyped ? ' Some keys may have been typed.' : ' Nothing was typed.';
    this.app.receipts.add(
      `answer.${outcome}`,
      `Not delivered to ${agentName(card.agent)}: "${card.title}": ${reason}.${warning}`,
      about(card),
      now,
    );
    if (card.over !== OVER.not) return this.app.cards.close(card, 'withdrawn', now);
    return this.app.cards.reopen(
      card,
      maybeTyped ? `${reason}. Some keys may have been typed.` : reason,
      maybeTyped,
    );
  }

  /** A report of a job that was given up as unfinished. It counts unless the card changed meanwhile. */
  #lateWord(job, outcome, reason, now) {
    const card = this.app.cards.find(job.card_id);
    const isAsReopened = card.state === 'open' && card.version === job.reopened_version;
    this.finish(job, outcome, reason);
    if (outcome === 'refused') {
      if (isAsReopened) this.app.cards.clearUnsure(card, reason ?? 'no reason was given');
    } else if (isAsReopened) this.#delivered(card, 'host', now, card.unsure.answer);
    else
      this.app.receipts.add(
        'answer.typed',
        `An earlier answer was typed for ${agentName(card.agent)} after all: "${card.title}".`,
        about(card),
        now,
      );
    return { accepted: true };
  }

  /** Stops a job that has not started. False when keys are being typed already. */
  withdraw(cardId, why = 'the question was withdrawn') {
    const job = this.store.get(
      "SELECT * FROM jobs WHERE card_id = ? AND state IN ('queued','claimed','started')",
      cardId,
    );
    if (job?.state === 'started') return false;
    if (job) this.finish(job, 'withdrawn', why);
    return true;
  }

  /** Ends the jobs whose time is over. A started one gets a full term from its start, for it may still be typing. */
  expireDue(now = clock.steady()) {
    for (const job of this.#live()) if (this.#endOf(job) <= now) this.store.tx(() => this.#expire(job, now));
    for (const [tag, at] of this.#heard) if (at + FORGET_MS < now) this.#heard.delete(tag);
  }

  #live() {
    return this.store.all("SELECT * FROM jobs WHERE state IN ('queued','claimed','started') ORDER BY seq");
  }

  /** When this job ends unless something happens: its term is over, or the page session that it depends on is gone. */
  #endOf(job) {
    const term = this.#term(job.id);
    return job.type === 'hand' ? term : Math.min(term, this.#goneAt(job.presence));
  }

  #expire(job, steady, now = clock.now()) {
    const card = this.app.cards.find(job.card_id);
    if (job.state === 'started') {
      const after = this.#notDelivered(
        card,
        'unfinished',
        'the delivery began and its end was never reported',
        true,
        now,
      );
      this.finish(job, 'unfinished', 'never reported', { reopened_version: after.version });
      return;
    }
    const inTime = this.#term(job.id) > steady;
    const reason = inTime ? this.#whyGone(job.presence) : this.#whyLate(job);
    this.finish(job, 'expired', reason);
    this.#notDelivered(card, 'expired', reason, false, now);
  }

  /** Page sessions end with their daemon, so the session of an earlier daemon is gone. */
  #whyGone(tag) {
    return this.#heard.has(tag)
      ? 'the app in which it was pressed is gone'
      : 'kelvadromed was started again since it was pressed';
  }

  #whyLate({ type, state }) {
    if (type === 'hand') return 'the asker no longer waits';
    return state === 'queued' ? 'nobody took the answer in time' : 'the delivery was never begun';
  }

  /** When the next job ends, on the steady clock; null without one. */
  nextExpiry() {
    const live = this.#live();
    return live.length === 0 ? null : Math.min(...live.map((job) => this.#endOf(job)));
  }
}
