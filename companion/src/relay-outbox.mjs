// What waits for the connector to publish it. Kept in memory only: a phone that misses something asks for the
// state anew.
import { randomUUID } from 'node:crypto';
import { Waiters } from './events.mjs';
import { clock } from './clock.mjs';

const KEPT_MS = 60_000;
const MAX_OF_CHANNEL = 64;
const AWAY_MS = 30_000;
const HANDOVER_MS = 2000; // without a call of the connector, after which another one takes its place

export class Outbox {
  #messages = []; // {id, channel, payload, until}
  #waiters = new Waiters();
  #next = 1;
  #seen = null; // {connected, trouble, at} of the connector's last call; `at` on the steady clock
  #polls = 0;
  #run; // the connector that is heard
  #life = randomUUID();
  #news = 0; // counts what the connector has to know beside messages

  add(channel, payload) {
    const own = this.#messages.filter((message) => message.channel === channel);
    if (own.length >= MAX_OF_CHANNEL) this.#messages.splice(this.#messages.indexOf(own[0]), 1);
    this.#messages.push({ id: this.#next++, channel, payload, until: clock.steady() + KEPT_MS });
    this.#waiters.wake();
  }

  /** What waits for this channel is not sent any more. */
  drop(channel) {
    this.#messages = this.#messages.filter((message) => message.channel !== channel);
  }

  /** The channels, or whether the relay is wanted at all, have changed. */
  changed() {
    this.#news += 1;
    this.#waiters.wake();
  }

  clear() {
    this.#messages = [];
    this.changed();
  }

  /**
   * The connector's long poll: drops what it has published (`done`), gives what it hasn't got yet (after `after`), at
   * once also when something else has changed since `news`.
   */
  async poll({ run, life, done, after, news, connected, trouble, waitMs, signal }) {
    // One connector at a time: that of another program on this home stands by.
    const end = clock.steady() + waitMs;
    const isFree = () => run === this.#run || !this.#isServed;
    if (!(await this.#waiters.wait(() => isFree() || undefined, waitMs, signal))) return { standby: true };
    this.#run = run;
    // Its numbers are those of an earlier daemon, and mean other messages here.
    if (life !== undefined && life !== this.#life)
      return { life: this.#life, news: this.#news, messages: [] };
    const gone = new Set(done);
    this.#messages = this.#messages.filter(({ id, until }) => !gone.has(id) && until > clock.steady());
    this.#polls += 1;
    this.#seen = { connected, trouble, at: clock.steady(), time: clock.now() };
    const messages = await this.#waiters.wait(
      () => {
        // Without a link they are of no use to it, and may have gone stale before it has one.
        const fresh = connected ? this.#messages.filter(({ id }) => id > after) : [];
        return fresh.length > 0 || news !== this.#news ? fresh : undefined;
      },
      Math.max(0, end - clock.steady()),
      signal,
    );
    this.#polls -= 1;
    if (this.#polls === 0) {
      this.#seen = { ...this.#seen, at: clock.steady() };
      setTimeout(() => this.#waiters.wake(), HANDOVER_MS + 100).unref();
    }
    return {
      life: this.#life,
      news: this.#news,
      messages: (messages ?? []).map(({ id, channel, payload }) => ({ id, channel, payload })),
    };
  }

  get #isServed() {
    return this.#polls > 0 || clock.steady() - (this.#seen?.at ?? -Infinity) < HANDOVER_MS;
  }

  get isConnected() {
    const heard = this.#polls > 0 || clock.steady() - (this.#seen?.at ?? -Infinity) < AWAY_MS;
    return heard && this.#seen.connected;
  }

  /** Why the connector doesn't reach the relay, in words. */
  get trouble() {
    return this.isConnected ? null : this.#seen?.trouble;
  }

  get lastSeen() {
    return this.#seen?.time ?? null;
  }

  close() {
    this.#waiters.close();
  }
}
