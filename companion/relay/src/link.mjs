// A connection to the relay that comes back by itself: MQTT 3.1.1, several addresses by turns. Which MQTT client it is
// made of is for the caller to bring.

const FIRST_PAUSE_MS = 250;
const LONGEST_PAUSE_MS = 5000;
const CONNECT_MS = 5000;
const KEEPALIVE_S = 8; // a relay that dies without a word is noticed after one and a half times that
const ANSWER_MS = 6000; // a relay that has not answered by then is left: of several, another may be well

export class Link {
  #client = null;
  #timer;
  #failures = 0;
  #topics = new Set();
  #closed = false;
  #unsure = new Set(); // publications that wait for the relay's word

  /**
   * `next()` gives the address to try. `login`: {urls, username, password, clientId, clean, qos}; `qos` is that of subscriptions. `onMessage(topic, text)`
   * may give a promise: the message is acknowledged after it. Nothing else that comes in is heard before, the relay's
   * word on a publication included, so the promise must not wait for one.
   */
  constructor({ connect, login, next, onMessage, onState }) {
    Object.assign(this, { connect, login, next, onMessage, onState });
    this.connected = false;
    this.trouble = null; // {url, error} of the last attempt, when it is known why it failed
    this.#open();
  }

  #open() {
    const { username, password, clientId, clean, ca } = this.login;
    this.url = this.next(); // where it is, or tries to be
    const client = this.connect(this.url, {
      protocolVersion: 4,
      // An attempt that was given up may succeed late, and would cut off its successor if that had the same name.
      clientId: clean ? `${clientId}-${Math.random().toString(36).slice(2, 12)}` : clientId,
      clean,
      username,
      password,
      ...(ca ? { ca } : {}),
      keepalive: KEEPALIVE_S,
      reschedulePings: false,
      timerVariant: 'native', // a worker for timers is nothing that the page's policy allows
      connectTimeout: CONNECT_MS,
      reconnectPeriod: 0,
      resubscribe: false,
    });
    this.#client = client;
    client.handleMessage = (packet, acknowledge) => {
      Promise.resolve(this.onMessage(packet.topic, packet.payload.toString('utf8'))).then(
        () => acknowledge(),
        () => acknowledge(),
      );
    };
    client.on('connect', () => this.#connected(client));
    client.on('error', (error) => {
      if (client === this.#client) this.trouble = { url: this.url, error };
      this.#lost(client);
    });
    client.on('close', () => this.#lost(client));
  }

  async #connected(client) {
    await this.#change(client, [], [...this.#topics]);
    if (client !== this.#client || this.#closed) return;
    this.#failures = 0;
    this.trouble = null;
    this.connected = true;
    this.onState(true);
  }

  #lost(client) {
    if (client !== this.#client || this.#closed) return;
    this.#client = null;
    client.end(true);
    for (const settle of this.#unsure) settle(false);
    this.url = undefined;
    this.#failures += 1;
    // A relay that is gone for good is tried less and less; with several, the next is tried at once.
    const rounds = Math.floor((this.#failures - 1) / this.login.urls.length);
    const pause = Math.min(FIRST_PAUSE_MS * 2 ** Math.min(rounds, 8), LONGEST_PAUSE_MS);
    this.#timer = setTimeout(() => this.#open(), pause * (0.75 + Math.random() / 2));
    this.connected = false;
    this.onState(false);
  }

  /** Exactly these topics from now on, also after every new connection. */
  async subscribe(topics) {
    const wanted = new Set(topics);
    const gone = [...this.#topics].filter((topic) => !wanted.has(topic));
    const fresh = topics.filter((topic) => !this.#topics.has(topic));
    this.#topics = wanted;
    if (!this.connected) return;
    await this.#change(this.#client, gone, fresh);
  }

  /** What the relay refuses, or doesn't answer, is tried with a new connection. */
  async #change(client, gone, fresh) {
    const patience = setTimeout(() => this.#lost(client), ANSWER_MS);
    try {
      if (gone.length > 0) await client.unsubscribeAsync(gone);
      if (fresh.length > 0) await client.subscribeAsync(fresh, { qos: this.login.qos });
    } catch {
      this.#lost(client);
    } finally {
      clearTimeout(patience);
    }
  }

  /**
   * With `qos` 1: true once the relay has acknowledged it; false when it can't be said that it has. With 0: true once it
   * is on its way.
   */
  async publish(topic, text, { qos }) {
    if (!this.connected) return false;
    const client = this.#client;
    return new Promise((done) => {
      const patience = setTimeout(() => this.#lost(client), ANSWER_MS);
      const settle = (sent) => {
        clearTimeout(patience);
        this.#unsure.delete(settle);
        done(sent);
      };
      this.#unsure.add(settle);
      client.publish(topic, text, { qos }, (error) => settle(!error));
    });
  }

  /** Looks at once for a relay again, in place of waiting out the pause: a phone has been taken out of a pocket. */
  wake() {
    if (this.connected || this.#client || this.#closed) return;
    clearTimeout(this.#timer);
    this.#failures = 0;
    this.#open();
  }

  close() {
    this.#closed = true;
    this.connected = false;
    clearTimeout(this.#timer);
    this.#client?.end(true);
    this.#client = null;
    for (const settle of this.#unsure) settle(false);
  }
}
