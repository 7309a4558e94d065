// Carries sealed envelopes between the daemon's socket and the relay. It has no keys: it can neither read nor make one.
import { request } from 'node:http';
import { randomUUID } from 'node:crypto';
import { setTimeout as pause } from 'node:timers/promises';
import { Links } from './links.mjs';
import { wordsFor } from './trouble.mjs';
import { topicDown, topicUp } from '../../shared/relay.js';

const WAIT_MS = 20_000;
const RETRY_MS = 500;
const LINKS = 3;
const SAME_MS = 1000; // within this, the links bring the same message
const PATIENCE_MS = 60_000; // how long a daemon may be away before this program ends
const CHANNEL_OF = /^kd\/([A-Za-z0-9]+)\/up$/;

class DaemonAway extends Error {}

function call(socketPath, path, body, { timeoutMs = 10_000, signal } = {}) {
  const bytes = Buffer.from(JSON.stringify(body));
  return new Promise((done, failed) => {
    const headers = {
      'Content-Type': 'application/json',
      'Content-Length': bytes.length,
      Connection: 'close',
    };
    const req = request({ socketPath, path, method: 'POST', headers, timeout: timeoutMs, signal }, (res) => {
      let text = '';
      res
        .setEncoding('utf8')
        .on('data', (piece) => {
          text += piece;
        })
        .on('error', () => failed(new DaemonAway()))
        .on('end', () => {
          try {
            const reply = JSON.parse(text);
            if (reply.ok) done(reply.data);
            else failed(new Error(reply.error.message));
          } catch {
            failed(new DaemonAway());
          }
        });
    });
    req.on('timeout', () => req.destroy(new DaemonAway()));
    req.on('error', () => failed(new DaemonAway()));
    req.end(bytes);
  });
}

export class Connector {
  #link = null;
  #after = 0; // the newest message that the daemon has given
  #news = null;
  #told = {}; // how the relay was last found
  #links = 0; // how often the relay was reached
  #waiting = new Map(); // id -> message that has not gone out yet
  #done = [];
  #heard = new Map(); // what came in last -> when the daemon has it: each link brings it
  #poll = new AbortController();
  #login = '';

  constructor({ socketPath, connect, log = () => {} }) {
    Object.assign(this, { socketPath, connect, log });
    this.run = randomUUID();
    this.parent = process.ppid;
  }

  /** Runs until it is aborted, its parent has ended, or the daemon is away for good. Gives the exit code. */
  async serve(signal) {
    signal.addEventListener('abort', () => this.#poll.abort());
    let away = null;
    while (!signal.aborted && process.ppid === this.parent) {
      try {
        await this.#turn();
        away = null;
      } catch (error) {
        if (!(error instanceof DaemonAway)) this.log(error.message);
        else if (!this.#poll.signal.aborted) away ??= performance.now();
        if (away !== null && performance.now() - away > PATIENCE_MS) break;
        if (!this.#poll.signal.aborted) await pause(RETRY_MS);
      }
    }
    this.#link?.close();
    return signal.aborted ? 0 : 1;
  }

  async #turn() {
    this.#poll = new AbortController();
    const done = this.#done.splice(0);
    let reply;
    try {
      reply = await call(
        this.socketPath,
        '/v1/relay/connector/poll',
        {
          run: this.run,
          ...(this.life === undefined ? {} : { life: this.life }),
          done,
          after: this.#after,
          ...(this.#news === null ? {} : { news: this.#news }),
          connected: this.#link?.connected ?? false,
          links: this.#links,
          error: this.#told.words ?? null,
          wait_ms: WAIT_MS,
        },
        { timeoutMs: WAIT_MS + 10_000, signal: this.#poll.signal },
      );
    } catch (error) {
      this.#done.unshift(...done);
      throw error;
    }
    if (reply.standby) {
      this.#done.unshift(...done);
      return this.#drop();
    }
    // A daemon that was started anew numbers its messages from 1 again.
    if (reply.life !== this.life) {
      this.life = reply.life;
      this.#after = 0;
      this.#waiting.clear();
      this.#done.length = 0;
      this.#news = null;
      if (done.length > 0 || reply.messages.length > 0) return;
    }
    await this.#follow(reply);
  }

  async #follow({ enabled, channels, news, messages }) {
    this.#news = news;
    if (!enabled) this.#drop();
    else {
      await this.#keepLink();
      await this.#link.subscribe(channels.map(topicUp));
    }
    for (const message of messages) {
      this.#after = Math.max(this.#after, message.id);
      this.#waiting.set(message.id, message);
      this.#publish(message);
    }
  }

  #drop() {
    this.#link?.close();
    this.#link = null;
    this.#login = '';
    this.#told = {};
    this.#waiting.clear();
  }

  async #keepLink() {
    const login = await call(this.socketPath, '/v1/relay/connector/config', {});
    if (this.#link && JSON.stringify(login) === this.#login) return;
    this.#drop();
    this.#login = JSON.stringify(login);
    this.#link = new Links({
      connect: this.connect,
      width: LINKS,
      // What phones say while this program is away is kept for it.
      keeps: true,
      login: { ...login, clientId: `kd-${login.username}` },
      onMessage: (topic, text) => this.#hear(topic, text),
      onState: (connected) => {
        const words = wordsFor(this.#link?.trouble ?? null);
        // The daemon is told at once, but not of each try that fails like the last one.
        if (connected || this.#told.connected || words !== this.#told.words) this.#poll.abort();
        this.#told = { connected, words };
        if (!connected) return;
        this.#links += 1;
        for (const message of this.#waiting.values()) this.#publish(message);
      },
    });
  }

  /** What gets lost on the way is not said again from here: phones ask, and the daemon tells them after a new link. */
  async #publish(message) {
    if (!(await this.#link?.publish(topicDown(message.channel), message.payload, { qos: 0 }))) return; // sent again once there is a link
    if (this.#waiting.delete(message.id)) this.#done.push(message.id);
  }

  /** Comes back once the daemon has it; until then the relay keeps it, too. */
  #hear(topic, text) {
    const known = this.#heard.get(text);
    if (known) return known;
    const delivered = this.#deliver(topic, text);
    this.#heard.set(text, delivered);
    setTimeout(() => this.#heard.delete(text), SAME_MS).unref(); // what a phone itself says again comes later
    return delivered;
  }

  async #deliver(topic, text) {
    const channel = CHANNEL_OF.exec(topic)?.[1];
    if (channel === undefined) return;
    for (const until = performance.now() + PATIENCE_MS; performance.now() < until; ) {
      try {
        return await call(this.socketPath, '/v1/relay/connector/deliver', { channel, payload: text });
      } catch (error) {
        if (!(error instanceof DaemonAway)) return this.log(error.message);
        await pause(RETRY_MS);
      }
    }
  }
}
