// The event stream: what changed, told to everyone who holds `GET /v1/stream`. Events carry no state that a reader
// would need; whoever missed some reads the lists again.

import { wellFormedJson } from '../shared/text.js';

const PING_MS = 15_000;

export class EventHub {
  #readers = new Set();
  #id = 0;
  #ping;

  /** Takes over a response: sends the head at once and keeps it open until the reader or the daemon goes. */
  attach(res) {
    res.writeHead(200, {
      'Content-Type': 'text/event-stream; charset=utf-8',
      'Cache-Control': 'no-store',
      Connection: 'close',
      'X-Accel-Buffering': 'no',
    });
    res.write('event: hello\ndata: {}\n\n'); // what changed before the reader was heard of is behind it: it reads the lists once more
    this.#readers.add(res);
    res.on('close', () => this.#readers.delete(res));
    this.#ping ??= setInterval(() => this.#send('event: ping\ndata: {}\n\n'), PING_MS).unref();
  }

  publish(event, data) {
    this.#id += 1;
    this.#send(`id: ${this.#id}\nevent: ${event}\ndata: ${wellFormedJson(data)}\n\n`);
  }

  #send(text) {
    for (const res of this.#readers) {
      // A reader that stopped reading is cut off rather than buffered for ever; it reconnects and reads afresh.
      if (res.writableLength > 1_000_000) res.destroy();
      else res.write(text);
    }
  }

  close() {
    clearInterval(this.#ping);
    for (const res of this.#readers) res.end();
    this.#readers.clear();
  }
}

/** Callers of long polls, each waiting for something to become true. */
export class Waiters {
  #waiting = new Set();

  /**
   * Calls `attempt` now and after each `wake` until it gives something other than undefined, or the time or
   * `signal` ends.
   */
  wait(attempt, waitMs, signal) {
    return new Promise((resolve, reject) => {
      const entry = { poke: null };
      const finish = (settle, value) => {
        clearTimeout(timer);
        signal?.removeEventListener('abort', leave);
        this.#waiting.delete(entry);
        settle(value);
      };
      const leave = () => finish(resolve, undefined);
      entry.poke = () => {
        if (!this.#waiting.has(entry)) return;
        try {
          const value = attempt();
          if (value !== undefined) finish(resolve, value);
        } catch (error) {
          finish(reject, error);
        }
      };
      entry.leave = leave;
      const timer = setTimeout(leave, waitMs);
      this.#waiting.add(entry);
      signal?.addEventListener('abort', leave);
      if (signal?.aborted) leave();
      else entry.poke();
    });
  }

  wake() {
    for (const entry of [...this.#waiting]) entry.poke();
  }
  close() {
    for (const entry of [...this.#waiting]) entry.leave();
  }
}
