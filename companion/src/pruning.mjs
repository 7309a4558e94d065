// What is over is not kept for ever: closed cards with their jobs, receipts, ended sessions, and topics that nothing is
// left of. It goes by age, and the oldest go where there are too many. Small steps with pauses keep nobody waiting.
import { clock, startOfToday } from './clock.mjs';

const DAY_MS = 86_400_000;
const AGE_MS = 90 * DAY_MS;
const MOST = { cards: 10_000, receipts: 50_000, sessionsOfAnAgent: 1000 };
const EVERY_MS = 3_600_000;
const PAUSE_MS = 50;
const STEP = 100;
const JUST_CLOSED_MS = 600_000; // somebody may still ask for it by its id, or report how its answer went
const JUST_ENDED_MS = 2 * 3_600_000; // for an hour it is still listed

export class Pruning {
  #next = -Infinity;
  #timer;

  constructor(app) {
    this.app = app;
    this.store = app.store;
  }

  /** Begins when it is time. */
  look(now = clock.steady()) {
    if (now < this.#next) return;
    this.#next = Infinity;
    this.#goOn();
  }

  #goOn() {
    let more = false;
    try {
      more = this.step();
    } catch (error) {
      this.app.wentWrong(error);
    }
    if (more) this.#timer = setTimeout(() => this.#goOn(), PAUSE_MS);
    else this.#next = clock.steady() + EVERY_MS;
  }

  close() {
    clearTimeout(this.#timer);
  }

  /** One transaction of a few milliseconds. Whether there is more to do. */
  step(now = clock.now()) {
    return this.store.tx(() => {
      void this.app.onboarding.completed; // it may hang on a receipt that goes now; asked for, it is kept
      const gone = [this.#cards(now), this.#receipts(now), this.#sessions(now), this.#topics(now - AGE_MS)];
      return gone.some((count) => count >= STEP);
    });
  }

  /** An answer that was kept and not fetched yet goes by its age alone. */
  #cards(now) {
    const tooMany = this.store.get(
      "SELECT closed_ms FROM cards WHERE state = 'closed' ORDER BY closed_ms DESC LIMIT 1 OFFSET ?",
      MOST.cards,
    );
    const tooOld = now - AGE_MS;
    const until = Math.min(Math.max(tooOld, tooMany?.closed_ms ?? tooOld), now - JUST_CLOSED_MS);
    const cards = this.store.all(
      `SELECT id FROM cards WHERE state = 'closed' AND closed_ms <= ?1
       AND (closed_ms <= ?2 OR delivery <> 'keep' OR outcome <> 'answered' OR fetched_ms IS NOT NULL)
       AND NOT EXISTS (SELECT 1 FROM jobs WHERE card_id = cards.id AND state IN ('queued','claimed','started'))
       ORDER BY closed_ms LIMIT ?3`,
      until,
      tooOld,
      STEP,
    );
    for (const { id } of cards) {
      this.store.run('DELETE FROM jobs WHERE card_id = ?', id);
      this.store.run('DELETE FROM cards WHERE id = ?', id);
    }
    return cards.length;
  }

  /** The newest stays, for readers go by its number; and those of today, which are counted. */
  #receipts(now) {
    const newest = Number(this.app.receipts.watermark());
    const { changes } = this.store.run(
      `DELETE FROM receipts WHERE event_id IN (SELECT event_id FROM receipts
       WHERE event_id < ?1 AND (ts_ms <= ?2 OR (event_id <= ?1 - ?3 AND ts_ms < ?4)) ORDER BY event_id LIMIT ?5)`,
      newest,
      now - AGE_MS,
      MOST.receipts,
      startOfToday(now),
      STEP,
    );
    return changes;
  }

  /** The last one of each agent stays: it tells that this agent has asked before. */
  #sessions(now) {
    let count = 0;
    for (const { agent } of this.store.all('SELECT DISTINCT agent FROM sessions')) {
      const ended = (offset) =>
        this.store.get(
          'SELECT ended_ms FROM sessions WHERE agent = ? AND ended_ms IS NOT NULL ORDER BY ended_ms DESC LIMIT 1 OFFSET ?',
          agent,
          offset,
        )?.ended_ms ?? 0;
      const tooOld = Math.max(now - AGE_MS, ended(MOST.sessionsOfAnAgent));
      const until = Math.min(tooOld, now - JUST_ENDED_MS, ended(0) - 1);
      count += this.store.run(
        `DELETE FROM sessions WHERE rowid IN
         (SELECT rowid FROM sessions WHERE agent = ? AND ended_ms <= ? ORDER BY ended_ms LIMIT ?)`,
        agent,
        until,
        STEP,
      ).changes;
    }
    return count;
  }

  #topics(until) {
    return this.store.run(
      `DELETE FROM topics WHERE id IN (SELECT id FROM topics t WHERE touched_ms <= ?
       AND NOT EXISTS (SELECT 1 FROM cards WHERE topic = t.id) AND NOT EXISTS (SELECT 1 FROM receipts WHERE topic = t.id)
       AND id NOT IN (SELECT topic FROM sessions WHERE topic IS NOT NULL) LIMIT ?)`,
      until,
      STEP,
    ).changes;
  }
}
