// The event stream of the daemon. It tells that something changed, never what: who hears of it reads the lists anew.
import { me } from './api.js';

const EVENTS = ['card.opened', 'card.changed', 'card.closed', 'receipt.added', 'session.changed'];
const FIRST_PAUSE_MS = 500;
const LONGEST_PAUSE_MS = 15_000;
const SILENCE_MS = 40_000; // the daemon pings every 15 s

/**
 * Keeps a stream open. `onState({state, nextAt})` tells "live", "away" (the daemon does not answer; the next try is at
 * `nextAt`) or "ended" (the page session is over; tried again all the same, for the shell may renew it).
 */
export class Stream {
  #source = null;
  #timer = null;
  #silence = null;
  #pause = FIRST_PAUSE_MS;

  constructor({ onEvent, onState }) {
    this.onEvent = onEvent;
    this.onState = onState;
    this.state = 'starting';
    // A machine that wakes up, or a window that comes back, does not wait for the next try.
    addEventListener('online', () => this.retry());
    document.addEventListener('visibilitychange', () => {
      if (document.visibilityState === 'visible') this.retry();
    });
  }

  /** Tries at once, unless the stream stands. */
  retry() {
    if (this.state === 'live' || this.state === 'trying') return;
    this.#pause = FIRST_PAUSE_MS;
    this.open();
  }

  async open() {
    this.#close();
    this.state = 'trying';
    try {
      await me();
    } catch (error) {
      return this.#again(['unauthorized', 'no_token'].includes(error.code) ? 'ended' : 'away');
    }
    const source = new EventSource('/v1/stream');
    this.#source = source;
    source.onopen = () => {
      this.#pause = FIRST_PAUSE_MS;
      this.#set('live');
      this.onEvent('open');
      this.#heard();
    };
    source.onerror = () => this.#again('away');
    source.addEventListener('ping', () => this.#heard());
    for (const name of EVENTS) {
      source.addEventListener(name, (event) => {
        this.#heard();
        this.onEvent(name, JSON.parse(event.data));
      });
    }
  }

  #heard() {
    clearTimeout(this.#silence);
    this.#silence = setTimeout(() => this.#again('away'), SILENCE_MS);
  }

  #again(state) {
    this.#close();
    const pause = this.#pause * (0.8 + 0.4 * Math.random());
    this.#pause = Math.min(this.#pause * 2, LONGEST_PAUSE_MS);
    this.#timer = setTimeout(() => this.open(), pause);
    this.#set(state, Date.now() + pause);
  }

  #close() {
    clearTimeout(this.#timer);
    clearTimeout(this.#silence);
    this.#source?.close();
    this.#source = null;
  }

  #set(state, nextAt = null) {
    this.state = state;
    this.onState({ state, nextAt });
  }
}
