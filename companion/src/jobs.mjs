import { conflict, forbidden, Refusal } from './errors.mjs';
import { clock, iso, newId } from './clock.mjs';
import { agentName } from './names.mjs';
import { Waiters } from './events.mjs';

const OVER = ['done', 'refused', 'failed', 'expired', 'unfinished', 'withdrawn'];

/**
 * Answers on their way. A job is queued -> claimed by one page session -> started -> done, refused or failed. One that
 * nobody starts in time expires; one that was started and never reported ends as unfinished. Each end closes or
 * reopens the card in the same transaction. Type "hand" is an answer for a waiting `kd` and is never claimed.
 */
export class Jobs {
  #claims = new Waiters();
  #askers = new Waiters();

  constructor(app) {
    this.app = app;
    this.store = app.store;
  }

  close() {
    this.#claims.close();
    this.#askers.close();
  }

  /** Looks again at who waits: called after each commit that changed a card or a job. */
  wake() {
    this.#claims.wake();
    this.#askers.wake();
  }

  /** Called in the transaction that arms the card. */
  queue(card, type, extra, now) {
    const expires = now + this.app.settings.expiryMs;
    const { pid, pgid, tty, host, host_ref, codex_thread } = card.live ?? {};
    const id = newId('job', now);
    const payload = {
      id, type, card_id: card.id, agent: card.agent, session_id: card.session_id, pid, pgid, tty, host: host ?? 'unknown', host_ref, codex_thread,
      ...extra, presence: card.presence, expires_at: iso(expires),
    };
    this.store.insert('jobs', { id, card_id: card.id, type, state: 'queued', payload: JSON.stringify(payload), presence: card.presence, expires_ms: expires });
  }

  /** One job for this page session, or none after `waitMs`. A session that pressed an answer is the only one offered it while it lives. */
  async claim(session, waitMs, signal) {
    const job = await this.#claims.wait(() => (session.live ? this.#take(session) : null), waitMs, signal);
    if (!session.live) throw new Refusal('unauthorized', 401, 'This page session has ended.');
    return job ? [job] : [];
  }

  #take(session, now = clock.now()) {
    const open = this.store.all("SELECT * FROM jobs WHERE state = 'queued' AND type = 'answer' AND expires_ms > ? ORDER BY seq", now);
    const job = open.find((row) => row.presence === session.tag || !this.app.auth.isAlive(row.presence));
    if (!job) return undefined;
    this.store.tx(() => this.store.run("UPDATE jobs SET state = 'claimed', claimant = ? WHERE id = ?", session.tag, job.id));
    return JSON.parse(job.payload);
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
      const reason = this.#whyNotStart(job, session, now);
      if (reason) return { proceed: false, reason };
      this.store.run("UPDATE jobs SET state = 'started', started_ms = ? WHERE id = ?", now, id);
      this.store.afterCommit(() => this.app.changed());
      return { proceed: true };
    });
  }

  #whyNotStart(job, session, now) {
    if (job.state === 'withdrawn') return 'the question was withdrawn';
    if (job.state === 'expired' || now >= job.expires_ms) return 'the job expired';
    if (OVER.includes(job.state)) return 'the job is over';
    if (job.state === 'queued') return 'the job was not claimed';
    if (job.claimant !== session.tag) return 'the job was claimed by another page session';
    if (job.state !== 'claimed') return 'the job was started before';
    return this.app.cards.find(job.card_id).state === 'armed' ? null : 'the question is no longer waiting for this answer';
  }

  /** The verdict of the claimant. A second verdict changes nothing. */
  report(id, { outcome, reason, path }, session, now = clock.now()) {
    return this.store.tx(() => {
      const job = this.#find(id);
      if (!this.#mayReport(job, session)) throw forbidden('Another page session claimed this job.');
      if (job.state === 'unfinished' && outcome === 'done') return this.#lateSuccess(job, now);
      if (OVER.includes(job.state)) return { accepted: false, reason: 'the job is over' };
      if (outcome === 'done' && job.state !== 'started') throw conflict('The job was not started.');
      this.#finish(job, outcome, reason ?? null);
      const card = this.app.cards.find(job.card_id);
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

  #finish(job, state, reason, columns = {}) {
    const all = { state, reason, ...columns };
    this.store.run(`UPDATE jobs SET ${Object.keys(all).map((name) => `${name} = ?`).join(', ')} WHERE id = ?`, ...Object.values(all), job.id);
    this.store.afterCommit(() => this.app.changed());
  }

  #about(card) { return { topic: card.topic, card_id: card.id }; }

  #delivered(card, path, now) {
    const how = path === 'codex_queue' ? 'Queued for' : 'Typed into';
    this.app.cards.close(card, 'answered', now);
    this.app.receipts.add('answer.typed', `${how} ${agentName(card.agent)}: "${card.title}".`, this.#about(card), now);
  }

  #notDelivered(card, outcome, reason, mayHaveTyped, now) {
    const warning = mayHaveTyped ? ' Some keys may have been typed.' : ' Nothing was typed.';
    this.app.receipts.add(`answer.${outcome}`, `Not delivered to ${agentName(card.agent)}: "${card.title}": ${reason}.${warning}`, this.#about(card), now);
    return card.over ? this.app.cards.close(card, 'withdrawn', now) : this.app.cards.reopen(card, mayHaveTyped ? `${reason}. Some keys may have been typed.` : reason);
  }

  /** The claimant was slow, not gone: unless the question moved on meanwhile, it is answered after all. */
  #lateSuccess(job, now) {
    const card = this.app.cards.find(job.card_id);
    this.#finish(job, 'done', null);
    if (card.state === 'open' && card.version === job.reopened_version) this.#delivered(card, 'host', now);
    else this.app.receipts.add('answer.typed', `An earlier answer did reach ${agentName(card.agent)}: "${card.title}".`, this.#about(card), now);
    return { accepted: true };
  }

  /** Stops a job that has not started. False when keys are being typed already. */
  withdraw(cardId) {
    const job = this.store.get("SELECT * FROM jobs WHERE card_id = ? AND state IN ('queued','claimed','started')", cardId);
    if (job?.state === 'started') return false;
    if (job) this.#finish(job, 'withdrawn', 'the question was withdrawn');
    return true;
  }

  /** Ends the jobs whose time is over. A started one gets a full term from its start, for it may still be typing. */
  expireDue(now = clock.now()) {
    const grace = this.app.settings.expiryMs;
    const due = this.store.all(
      `SELECT * FROM jobs WHERE (state IN ('queued','claimed') AND expires_ms <= ?1) OR (state = 'started' AND max(expires_ms, started_ms + ?2) <= ?1) ORDER BY seq`, now, grace);
    for (const job of due) this.store.tx(() => this.#expire(job, now));
  }

  #expire(job, now) {
    const card = this.app.cards.find(job.card_id);
    if (job.state === 'started') {
      const after = this.#notDelivered(card, 'unfinished', 'the delivery began and its end was never reported', true, now);
      this.#finish(job, 'unfinished', 'never reported', { reopened_version: after.version });
      return;
    }
    const reason = job.type === 'hand' ? 'the asker no longer waits' : job.state === 'queued' ? 'nobody took the answer in time' : 'the delivery was never begun';
    this.#finish(job, 'expired', reason);
    this.#notDelivered(card, 'expired', reason, false, now);
  }

  nextExpiry() {
    return this.store.get(
      `SELECT min(CASE state WHEN 'started' THEN max(expires_ms, started_ms + ?) ELSE expires_ms END) AS at FROM jobs
       WHERE state IN ('queued','claimed','started')`, this.app.settings.expiryMs).at;
  }

  /** For a waiting asker: the card's end, or after `waitMs` its present state. Hands over an answer that is ready. */
  async waitFor(cardId, waitMs, signal) {
    const ended = await this.#askers.wait(() => this.#ended(cardId), waitMs, signal);
    return ended ?? { state: this.app.cards.find(cardId).state };
  }

  #ended(cardId, now = clock.now()) {
    let card = this.app.cards.find(cardId);
    const hand = card.state === 'armed' && this.store.get("SELECT * FROM jobs WHERE card_id = ? AND type = 'hand' AND state = 'queued'", cardId);
    if (hand) {
      card = this.store.tx(() => {
        this.#finish(hand, 'done', null);
        this.app.receipts.add('answer.handed', `Handed to ${agentName(card.agent)}: "${card.title}".`, this.#about(card), now);
        return this.app.cards.close(card, 'answered', now);
      });
    }
    if (card.state !== 'closed') return undefined;
    return { state: 'closed', outcome: card.outcome, ...(card.answer === null ? {} : { answer: card.answer }) };
  }
}
