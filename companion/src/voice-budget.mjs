// How much speech may leave this computer in a day. A clip is reserved before it is sent and settled after; both are on
// disk before they are answered, so a daemon that dies between them has neither forgotten nor counted it twice.
import { Refusal } from './errors.mjs';
import { clock, newId } from './clock.mjs';

export const LONGEST_CLIP_S = 120;
/** A clip that nobody settles is over by then: the shell gives up on its upload after 60 s. */
const EXPIRY_MS = 300_000;
const KEPT = 1000; // settled reservations, so that a repeated report is known as one

/** The day by the calendar of this machine, "2026-03-29". However long it is, and however often a clock comes to it. */
export function dayOf(ms) {
  const at = new Date(ms);
  const two = (number) => String(number).padStart(2, '0');
  return `${at.getFullYear()}-${two(at.getMonth() + 1)}-${two(at.getDate())}`;
}

/**
 * The ledger. What was used is kept for each day for good, so that a clock that is set back finds a day as it was left.
 * A reservation counts on the day it was made, also when it is settled on the next. It ends by the steady clock; after a
 * restart its time begins anew.
 */
export class VoiceBudget {
  #ends = new Map(); // id -> when it expires, on the steady clock

  constructor(store) {
    this.store = store;
  }

  #held() {
    return this.store.all("SELECT * FROM voice_reservations WHERE state = 'held' ORDER BY seq");
  }

  /** Lets go of what nobody settled in time. */
  look(steady = clock.steady()) {
    for (const { id } of this.#held()) {
      if (!this.#ends.has(id)) this.#ends.set(id, steady + EXPIRY_MS);
      if (this.#ends.get(id) <= steady) this.store.tx(() => this.#close(id, 'expired'));
    }
  }

  #close(id, state) {
    this.store.run('UPDATE voice_reservations SET state = ? WHERE id = ?', state, id);
    this.store.run(
      `DELETE FROM voice_reservations WHERE state <> 'held'
       AND seq <= (SELECT max(seq) FROM voice_reservations) - ?`,
      KEPT,
    );
    this.store.afterCommit(() => this.#ends.delete(id));
  }

  /** Seconds of a day that are used or reserved. */
  #seconds(day) {
    const used = this.store.get('SELECT seconds FROM voice_days WHERE day = ?', day)?.seconds ?? 0;
    const held = this.store.get(
      "SELECT coalesce(sum(seconds), 0) AS sum FROM voice_reservations WHERE state = 'held' AND day = ?",
      day,
    ).sum;
    return used + held;
  }

  usedMinutes(now = clock.now()) {
    this.look();
    return this.#seconds(dayOf(now)) / 60;
  }

  /** `{reservation_id}`, or `{denied, used_minutes}` when the clip doesn't fit into what is left of the day. */
  reserve({ engine, model, seconds }, capMinutes, now = clock.now()) {
    this.look();
    const day = dayOf(now);
    return this.store.tx(() => {
      const taken = this.#seconds(day);
      if (taken + seconds > capMinutes * 60) return { denied: true, used_minutes: taken / 60 };
      const id = newId('voice', now);
      this.store.insert('voice_reservations', { id, day, engine, model, seconds, state: 'held' });
      this.store.afterCommit(() => this.#ends.set(id, clock.steady() + EXPIRY_MS));
      return { reservation_id: id };
    });
  }

  /**
   * Settles a reservation, once: its seconds are charged when the audio was transcribed, else they are free again. A
   * report that comes after it expired still counts, since the audio was sent.
   */
  settle(id, ok) {
    this.look();
    return this.store.tx(() => {
      const found = this.store.get('SELECT * FROM voice_reservations WHERE id = ?', id);
      if (!found) throw new Refusal('unknown_reservation', 404, `There is no voice reservation "${id}".`);
      if (found.state !== 'held' && found.state !== 'expired')
        return { accepted: false, reason: 'the reservation was settled before' };
      this.#close(id, ok ? 'used' : 'released');
      if (ok)
        this.store.run(
          `INSERT INTO voice_days (day, seconds) VALUES (?, ?)
           ON CONFLICT (day) DO UPDATE SET seconds = seconds + excluded.seconds`,
          found.day,
          found.seconds,
        );
      return { accepted: true };
    });
  }
}
