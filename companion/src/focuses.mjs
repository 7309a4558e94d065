// Bringing an agent's terminal to the front. The shell does it, by a job of the type "focus" that it claims
// as it claims answers. Such a job matters for a few seconds only, so it lives in memory, and whoever asked
// for it waits for its end.
import { agentName } from '../shared/agents.js';
import { clock, iso, newId } from './clock.mjs';
import { conflict, forbidden, Refusal } from './errors.mjs';
import { Waiters } from './events.mjs';

const LASTS_MS = 10_000;

export class Focuses {
  #jobs = new Map(); // id -> {payload, tag, state, end}
  #waiters = new Waiters();

  constructor(app) {
    this.app = app;
  }

  close() {
    this.#waiters.close();
  }

  has(id) {
    return this.#jobs.has(id);
  }

  /**
   * Has the shell of the page session `tag` bring the terminal of this agent session to the front. Gives
   * {outcome, reason} as the shell reports it, or "expired" when no shell took it in time.
   */
  async bring({ agent, session_id: sessionId }, tag, signal) {
    const { pid, pgid, tty, host, host_ref } = this.#liveOf(agent, sessionId);
    const id = newId('job');
    const payload = { id, type: 'focus', agent, session_id: sessionId, pid, pgid, tty, host, host_ref };
    const job = {
      payload: { ...payload, presence: tag, expires_at: iso(clock.now() + LASTS_MS) },
      tag,
      state: 'queued',
    };
    this.#jobs.set(id, job);
    this.app.jobs.wake();
    try {
      const end = await this.#waiters.wait(() => job.end, LASTS_MS, signal);
      return end ?? { outcome: 'expired', reason: 'Kelvadrome did not take it in time.' };
    } finally {
      this.#jobs.delete(id);
    }
  }

  /** Where the agent runs; throws in a sentence when that cannot be brought to the front. */
  #liveOf(agent, sessionId) {
    const session = this.app.sessions.find(agent, sessionId);
    if (session === undefined)
      throw new Refusal('unknown_agent_session', 404, `There is no session "${sessionId}" of ${agent}.`);
    const name = agentName(agent);
    if (session.ended) throw conflict(`${name} has ended.`);
    const { live } = session;
    if (live?.tty === undefined) throw conflict(`${name} did not say in which terminal it runs.`);
    if (live.host === 'unknown')
      throw conflict(
        `${name} runs in ${live.tty}, a terminal that cannot be brought to the front from here.`,
      );
    return live;
  }

  /** The next one for this page session; undefined without one. */
  take(tag) {
    const job = [...this.#jobs.values()].find((one) => one.tag === tag && one.state === 'queued');
    if (job) job.state = 'claimed';
    return job?.payload;
  }

  #claimed(id, { tag }) {
    const job = this.#jobs.get(id);
    if (job.tag !== tag) throw forbidden('Another page session claimed this job.');
    return job;
  }

  start(id, session) {
    const job = this.#claimed(id, session);
    if (job.state !== 'claimed') return { proceed: false, reason: 'the job was started before' };
    job.state = 'started';
    return { proceed: true };
  }

  report(id, { outcome, reason }, session) {
    const job = this.#claimed(id, session);
    job.end = { outcome, ...(reason === undefined ? {} : { reason }) };
    this.#waiters.wake();
    return { accepted: true };
  }
}
