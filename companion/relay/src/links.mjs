// How the connector and a phone reach a relay. Where it has several addresses, links to some of them are held at once: a
// cluster that has lost a server takes up to ten seconds before it lets anybody in again, but goes on serving who is
// connected. What comes in may come more than once; it goes out through one link.
import { Link } from './link.mjs';

export class Links {
  #links = [];
  #speaker = null; // the link through which things go out
  #address = -1;

  /**
   * `login` as for a Link, `width` is how many are held at most. With `keeps`, the relay keeps for the first one what comes
   * while it is away. `onState(connected)` is called again with true when another link takes over: what was on its way may
   * be lost.
   */
  constructor({ connect, login, width, keeps = false, onMessage, onState }) {
    this.urls = login.urls;
    this.onState = onState;
    for (let i = 0; i < Math.min(width, login.urls.length); ++i)
      this.#links.push(
        new Link({
          connect,
          login: keeps && i === 0 ? { ...login, clean: false, qos: 1 } : { ...login, clean: true, qos: 0 },
          next: () => this.#next(),
          onMessage,
          onState: () => this.#look(),
        }),
      );
  }

  /** The addresses by turns; one that another link is at only when there is none beside it. */
  #next() {
    const taken = new Set(this.#links.map(({ url }) => url));
    for (let i = 0; i < this.urls.length; ++i) {
      this.#address = (this.#address + 1) % this.urls.length;
      if (!taken.has(this.urls[this.#address])) break;
    }
    return this.urls[this.#address];
  }

  #look() {
    if (this.#speaker?.connected) return;
    this.#speaker = this.#links.find(({ connected }) => connected) ?? null;
    this.onState(this.connected);
  }

  get connected() {
    return this.#speaker?.connected === true;
  }

  /** Why it isn't connected, as far as that is known: {url, error}; null else. */
  get trouble() {
    return this.connected ? null : (this.#links.find(({ trouble }) => trouble !== null)?.trouble ?? null);
  }

  /** Exactly these topics from now on. */
  async subscribe(topics) {
    await Promise.all(this.#links.map((link) => link.subscribe(topics)));
  }

  /** As a Link's. */
  async publish(topic, text, how) {
    return this.#speaker ? this.#speaker.publish(topic, text, how) : false;
  }

  wake() {
    for (const link of this.#links) link.wake();
  }

  close() {
    for (const link of this.#links) link.close();
  }
}
