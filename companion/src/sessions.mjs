import { isRunning } from './proc.mjs';
import { freeCallsign } from './callsigns.mjs';
import { clock } from './clock.mjs';

const ENDED_SHOWN_MS = 3_600_000;
const SILENT_MS = 86_400_000;
const TELL_EVERY_MS = 60_000;
export const STATUS_WORDS = ['busy', 'working', 'waiting', 'waiting_me', 'idle', 'failed', 'ended'];
export const isWorking = (row) => row.status === 'busy' || row.status === 'working';

export const isWaiting = (status) => status === 'waiting' || status === 'waiting_me';

/** The agents that have told of themselves, by asking or by `kd touch`. */
export class Sessions {
  constructor(app) {
    this.app = app;
    this.store = app.store;
  }

  #changed(agent, sessionId) {
    this.app.hub.publish('session.changed', { agent, session_id: sessionId });
    this.app.changed();
  }

  /** Called in a transaction. Fields that are not given keep what they had. */
  touch({ agent, session_id: sessionId, label, status, doing, topic, kind, live }, now = clock.now()) {
    const old = this.store.get('SELECT * FROM sessions WHERE agent = ? AND session_id = ?', agent, sessionId);
    const next = {
      label: label ?? old?.label ?? null,
      status: status ?? old?.status ?? 'idle',
      topic: topic ?? old?.topic ?? null,
      kind: kind ?? old?.kind ?? null,
      // What an agent was doing does not outlive the status that it was said with.
      doing: doing ?? (status === undefined || status === old?.status ? (old?.doing ?? null) : null),
      live: live ? JSON.stringify(live) : (old?.live ?? null),
      callsign: old && old.ended_ms === null ? old.callsign : this.#callsign(),
      ended_ms: status === 'ended' ? now : null,
      seen_ms: now,
    };
    const names = Object.keys(next);
    this.store.run(
      `INSERT INTO sessions (agent, session_id, ${names.join(', ')}) VALUES (?, ?, ${names.map(() => '?').join(', ')})
       ON CONFLICT (agent, session_id) DO UPDATE SET ${names.map((name) => `${name} = excluded.${name}`).join(', ')}`,
      agent,
      sessionId,
      ...Object.values(next),
    );
    this.store.afterCommit(() => this.#changed(agent, sessionId));
    return { agent, session_id: sessionId, status: next.status, callsign: next.callsign };
  }

  /**
   * A question of this card's session is over: unless another one blocks it, the agent no longer waits.
   * Called in a transaction.
   */
  goOn({ agent, session_id: sessionId }, now = clock.now()) {
    const { changes } = this.store.run(
      `UPDATE sessions SET status = 'working', seen_ms = ?1 WHERE agent = ?2 AND session_id = ?3 AND ended_ms IS NULL AND status IN ('waiting','waiting_me')
       AND NOT EXISTS (SELECT 1 FROM cards c WHERE c.agent = ?2 AND c.session_id = ?3 AND c.state <> 'closed' AND c.gone_ms IS NULL AND c.blocking = 1)`,
      now,
      agent,
      sessionId,
    );
    if (changes > 0) this.store.afterCommit(() => this.#changed(agent, sessionId));
  }

  /** The asker of this card gave a sign of life. */
  seen({ agent, session_id: sessionId }, now = clock.now()) {
    this.store.run(
      'UPDATE sessions SET seen_ms = ?1 WHERE agent = ?2 AND session_id = ?3 AND ended_ms IS NULL AND seen_ms < ?1 - ?4',
      now,
      agent,
      sessionId,
      TELL_EVERY_MS,
    );
  }

  /** What tells the session of a card from others of the same agent: {callsign, label}, null where it has none. */
  namesOf({ agent, session_id: sessionId }) {
    return (
      this.store.get(
        'SELECT callsign, label FROM sessions WHERE agent = ? AND session_id = ?',
        agent,
        sessionId,
      ) ?? { callsign: null, label: null }
    );
  }

  /** {agent, session_id, live, ended}; undefined when nothing was heard of it. */
  find(agent, sessionId) {
    const row = this.store.get('SELECT * FROM sessions WHERE agent = ? AND session_id = ?', agent, sessionId);
    return row && { ...row, live: row.live ? JSON.parse(row.live) : null, ended: row.ended_ms !== null };
  }

  #callsign() {
    return freeCallsign(
      new Set(
        this.store.all('SELECT callsign FROM sessions WHERE ended_ms IS NULL').map((row) => row.callsign),
      ),
    );
  }

  /**
   * Ends the sessions whose process has ended, or that were silent for a day, and tells of it. A process that
   * is watched is looked at only when its watch told of an end.
   */
  endGone(watchTold = false, now = clock.now()) {
    for (const row of this.store.all('SELECT * FROM sessions WHERE ended_ms IS NULL')) {
      const live = row.live ? JSON.parse(row.live) : null;
      if (live !== null && !watchTold && this.app.watch.covers(live)) continue;
      if (!this.#hasEnded(live, row.seen_ms, now)) continue;
      this.store.run(
        "UPDATE sessions SET status = 'ended', ended_ms = ?, doing = NULL WHERE agent = ? AND session_id = ?",
        now,
        row.agent,
        row.session_id,
      );
      this.#changed(row.agent, row.session_id);
    }
  }

  /** A process that is known tells by itself; without one, a day of silence counts as the end. */
  #hasEnded(live, seen, now) {
    return live?.pid === undefined ? now - seen >= SILENT_MS : !isRunning(live.pid, live.started);
  }

  /** The processes of the sessions that live, as far as they are known for good: {pid, started}. */
  processes() {
    return this.store
      .all('SELECT live FROM sessions WHERE ended_ms IS NULL AND live IS NOT NULL')
      .map(({ live }) => JSON.parse(live))
      .filter(({ pid, started }) => pid !== undefined && started !== undefined);
  }

  /** Every session that lives or ended within the hour, with the status that is true now. */
  #current(now = clock.now()) {
    this.endGone(false, now);
    return this.store
      .all(
        'SELECT * FROM sessions WHERE ended_ms IS NULL OR ended_ms > ? ORDER BY agent, session_id',
        now - ENDED_SHOWN_MS,
      )
      .map((row) => ({ ...row, live: row.live ? JSON.parse(row.live) : null }));
  }

  /**
   * Rows of `/v1/agents/status`. A session with a question that blocks it waits for the user, whatever it
   * said last.
   */
  list(topics) {
    const asking = new Set(
      this.store
        .all(
          "SELECT DISTINCT agent, session_id FROM cards WHERE state <> 'closed' AND gone_ms IS NULL AND blocking = 1",
        )
        .map((row) => `${row.agent}\0${row.session_id}`),
    );
    return this.#current().map((row) => {
      const waits = row.status !== 'ended' && asking.has(`${row.agent}\0${row.session_id}`);
      const fields = {
        agent: row.agent,
        session_id: row.session_id,
        label: row.label,
        status: waits ? 'waiting_me' : row.status,
        topic: row.topic,
        kind: row.kind,
        doing: waits ? 'waits for you' : row.doing,
        topic_title: topics.title(row.topic),
        callsign: row.callsign,
        pid: row.live?.pid,
        tty: row.live?.tty,
        host: row.live?.host,
        pane: row.live?.host_ref,
        folder: row.live?.cwd,
      };
      return Object.fromEntries(
        Object.entries(fields).filter(([, value]) => value !== null && value !== undefined),
      );
    });
  }

  /** Rows of `/v1/sessions/live`. */
  live() {
    return this.#current()
      .filter((row) => row.live)
      .map((row) => ({
        key: `${row.agent}:${row.session_id}`,
        host: row.live.host ?? 'unknown',
        ...(row.live.tty ? { tty: row.live.tty } : {}),
        callsign: row.callsign,
        status: row.status,
      }));
  }
}
