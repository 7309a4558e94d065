// What a phone knows and does, without a screen: it pairs, keeps its keys, follows the cards, and sends commands that are
// taken once. The page shows it; the tests drive it. Storage, connection, clock and confirmation come from outside.
import * as wire from '../../shared/relay.js';
import { longest, shortest } from '../../shared/spans.js';
import { Links } from '../src/links.mjs';

const JOIN_AGAIN_MS = 3000;
const JOIN_MS = 120_000; // as long as the code is good
const DIGITS_MS = 180_000;
const ASK_MS = 20_000;
const ASK_SOON_MS = 3000;
const ASK_JUST_NOW_MS = 400;
const SEND_AGAIN_MS = 2500;
// The computer may be away just now, and this page closed before it is back, so the relay keeps one of the tries. That one
// comes second: a cluster that has lost a server takes seconds to keep anything, and hears nothing else from us meanwhile.
const KEPT_TRY = 1;
const KEEP_MS = 1000;
const GRACE_MS = 3000;
const STALE_MS = 120_000; // older than the question that it knows of, the computer's word counts no more
const KEPT_ASKS = 20;
const FRESH_MS = 50_000;
const LINKS = 2;

export class Phone {
  #link = null;
  #key = null; // while joining: what the first message is sealed with
  #sent = -Infinity; // when the last thing that is repeated was sent
  #turn = Promise.resolve();
  #asks = []; // {n, steady, day}: when the last questions were sent
  #newest = null; // {n, life, at, heard} of the computer's newest word: its number, its time, and our reading
  #saving = Promise.resolve();

  /**
   * `store`: {load, save, clear} of one object. `connect`: an MQTT client's. `confirm(id, challenge)`: the person's own
   * confirmation, or null when the person does not give it. `changed` is called after anything that shows has changed.
   */
  constructor({ store, connect, confirm, changed, now = Date.now, steady = () => performance.now() }) {
    Object.assign(this, { store, connect, confirm, changed, now, steady });
    this.phase = 'unpaired'; // joining, digits, paired; unpaired again with `why`: declined, failed, expired, unpaired
    this.why = null;
    this.cards = new Map();
    this.heard = null; // when the computer's word came last, as a reading
    this.rev = undefined;
    this.notices = []; // what became of commands whose card can't say it: {text, good}
    this.mine = null; // all that is kept
  }

  /** What the person types on the computer, while it waits for that. */
  get digits() {
    return this.mine?.digits;
  }

  get online() {
    return this.#link?.connected === true;
  }

  /** Whether what is shown is known to be so. */
  get fresh() {
    return this.online && this.#silence < FRESH_MS;
  }

  #read() {
    return { steady: this.steady(), day: this.now() };
  }

  /** How long nothing has been heard. */
  get #silence() {
    return this.heard === null ? Infinity : longest(this.heard, this.#read());
  }

  /** The computer's time of day, never ahead of it. */
  get deskNow() {
    return this.#newest ? this.#newest.at + this.steady() - this.#newest.heard.steady : this.now();
  }

  async load() {
    this.mine = (await this.store.load()) ?? null;
    if (this.mine === null) return;
    this.phase = this.mine.paired ? 'paired' : 'digits';
    this.until = this.steady() + DIGITS_MS;
    // The steady clock of the page that made these is gone. What the time of day can't say is as good as over.
    const now = this.#read();
    const dated = (command) => {
      const age = now.day - command.made.day;
      return { ...command, made: { ...command.made, steady: age >= 0 ? now.steady - age : -Infinity } };
    };
    this.mine.pending = this.pending.map(dated);
    this.#open();
  }

  #save() {
    const copy = { ...this.mine };
    this.#saving = this.#saving.then(() => this.store.save(copy));
    return this.#saving;
  }

  #open() {
    const { urls, channel, password } = this.mine;
    this.#link = new Links({
      connect: this.connect,
      width: LINKS,
      // What is missed is asked for, so the relay need not keep anything for a phone.
      login: { urls, username: channel, password, clientId: `kd-${channel}` },
      onMessage: (_, text) => this.#inTurn(() => this.#receive(text)),
      onState: (connected) => {
        this.#sent = -Infinity;
        for (const command of this.pending) Object.assign(command, { at: undefined, tries: 0 });
        if (connected) this.tick();
        this.changed();
      },
    });
    this.#link.subscribe([wire.topicDown(channel)]);
  }

  /** One at a time: counters are read and written in between. */
  #inTurn(work) {
    const turn = this.#turn.then(work);
    this.#turn = turn.catch((error) => console.warn(error));
    return turn;
  }

  /** What is said again anyway need not be kept by the relay. Nobody waits for its word: turns would stand still. */
  #publish(text, { qos = 0 } = {}) {
    this.#link.publish(wire.topicUp(this.mine.channel), text, { qos });
  }

  /** The page is looked at again. */
  wake() {
    this.#link?.wake();
    this.#sent = -Infinity;
    this.tick();
  }

  // Pairing

  /** `passkey` is what `confirm` will use, as the computer gets to know it; null without one. */
  async join(offer, { name, kind, passkey = null }) {
    const keys = await wire.newKeys(false);
    const key = wire.toBase64url(await wire.publicBytes(keys));
    const nonce = wire.toBase64url(wire.random(16));
    const join = wire.toBytes({ key, nonce, name, kind, passkey });
    this.mine = { ...offer, keys, join, passkeyId: passkey?.id ?? null };
    this.#key = await wire.joinKey(offer);
    this.joinText = await wire.seal(this.#key, { channel: offer.channel, stream: 'join', n: 0 }, join);
    this.until = this.steady() + JOIN_MS;
    this.phase = 'joining';
    this.why = null;
    this.#open();
    this.changed();
  }

  async #receiveWelcome(envelope) {
    const { keys, desk, secret, channel, join } = this.mine;
    const handshake = { mine: keys.privateKey, theirs: desk, secret, channel, desk, join };
    const { welcomeKey } = await wire.agree(handshake);
    const welcome = await wire.openBytes(welcomeKey, channel, envelope);
    if (welcome === null || this.phase !== 'joining') return;
    const { digits, up, down } = await wire.agree({ ...handshake, welcome });
    Object.assign(this.mine, {
      welcomeKey,
      digits,
      up: await wire.cipherKey(up),
      down: await wire.cipherKey(down),
      deskName: wire.fromBytes(welcome).desk,
      said: 0, // the newest number that came down
      next: 1, // the number of the next command
      asked: 0,
      pending: [],
      paired: false,
    });
    this.until = this.steady() + DIGITS_MS;
    this.phase = 'digits';
    this.changed();
  }

  async #receiveEnd(envelope) {
    const { welcomeKey, channel } = this.mine;
    const body = welcomeKey && (await wire.open(welcomeKey, channel, envelope));
    if (body && this.phase === 'digits') await this.#over(body.end);
  }

  /** Back to where a phone begins. Everything that was known is gone. */
  async #over(why) {
    this.#link?.close();
    this.#link = null;
    this.mine = null;
    this.cards = new Map();
    this.heard = null;
    this.#newest = null;
    this.#asks = [];
    this.rev = undefined;
    this.phase = 'unpaired';
    this.why = why;
    await this.#saving;
    await this.store.clear();
    this.changed();
  }

  /** The person forgets the computer here; the computer is told nothing. */
  forget() {
    return this.#inTurn(() => this.#over(null));
  }

  // Following

  async #receive(text) {
    const envelope = wire.readEnvelope(text);
    if (envelope === null || this.mine === null) return;
    if (envelope.stream === 'welcome') {
      if (this.phase === 'joining') await this.#receiveWelcome(envelope);
    } else if (envelope.stream === 'end') await this.#receiveEnd(envelope);
    else if (envelope.stream === 'down' && this.mine.down) await this.#receiveDown(envelope);
  }

  async #receiveDown(envelope) {
    const { mine } = this;
    if (envelope.n <= mine.said) return; // it was here before, or has been overtaken
    const body = await wire.open(mine.down, mine.channel, envelope);
    if (body === null) return;
    if (body.t === 'unpaired') return this.#over('unpaired');
    mine.said = envelope.n;
    mine.asked = Math.max(mine.asked, body.asked ?? 0);
    mine.next = Math.max(mine.next, (body.did ?? 0) + 1);
    if (this.phase === 'digits') this.#paired();
    await this.#save();
    const now = this.#read();
    // It is not older than the question that it knows of, whatever the computer's clock says.
    const asked = this.#asks.find(({ n }) => n === body.asked);
    if (asked === undefined || longest(asked, now) > STALE_MS) return this.#askSoon();
    const isNewLife = this.#newest?.life !== body.life;
    this.#newest = { n: envelope.n, life: body.life, at: body.at, heard: now };
    this.heard = now;
    if (isNewLife) await this.#sendAll();
    if (body.t === 'state') this.#follow(body);
    else if (body.t === 'result') await this.#settle(body);
    this.changed();
  }

  #paired() {
    this.phase = 'paired';
    this.mine.paired = true;
    this.#asks.push({ n: 0, ...this.#read() }); // the first word of a pairing comes unasked
    for (const name of ['join', 'secret', 'digits', 'welcomeKey']) delete this.mine[name];
  }

  #follow({ from, rev, set, del, face }) {
    if (face !== undefined) this.mine.face = face;
    if (from === undefined) this.cards = new Map(set.map((card) => [card.id, card]));
    else if (from !== this.rev) return this.#askSoon();
    else {
      for (const card of set) this.cards.set(card.id, card);
      for (const id of del) this.cards.delete(id);
    }
    this.rev = rev;
    const order = (card) => [card.opened_at, card.id].join();
    this.cards = new Map([...this.cards].sort(([, a], [, b]) => (order(a) < order(b) ? -1 : 1)));
  }

  #askSoon() {
    this.#sent = Math.min(this.#sent, this.steady() - ASK_MS + ASK_JUST_NOW_MS);
    setTimeout(() => this.tick(), ASK_JUST_NOW_MS);
  }

  async #ask() {
    const { mine } = this;
    mine.asked = Math.max(mine.asked + 1, this.now());
    this.#asks = [...this.#asks, { n: mine.asked, ...this.#read() }].slice(-KEPT_ASKS);
    await this.#save();
    const text = await wire.seal(
      mine.up,
      { channel: mine.channel, stream: 'ask', n: mine.asked },
      { have: this.rev ?? null, heard: mine.said },
    );
    this.#publish(text);
  }

  /** To be called every second or so: repeats what got no answer, and gives up what came too late. */
  tick() {
    return this.#inTurn(() => this.#look());
  }

  async #look() {
    if (this.mine === null) return;
    const now = this.steady();
    if (this.phase === 'joining' || this.phase === 'digits') {
      if (now > this.until) return this.#over(this.phase === 'joining' ? 'expired' : 'failed');
    }
    if (this.phase === 'paired') await this.#giveUp();
    if (!this.online) return;
    const since = now - this.#sent;
    if (this.phase === 'joining') {
      if (since < JOIN_AGAIN_MS) return;
      this.#sent = now;
      this.#publish(this.joinText);
    } else {
      const isWaiting = this.phase === 'digits' || this.#silence > ASK_MS + ASK_SOON_MS;
      if (since >= (isWaiting ? ASK_SOON_MS : ASK_MS)) {
        this.#sent = now;
        await this.#ask();
      }
      await this.#sendPending();
    }
  }

  // Commands

  get pending() {
    return this.mine?.pending ?? [];
  }

  /** The command for a card that has no result yet. */
  pendingOf(id) {
    return this.pending.find((command) => command.card === id);
  }

  /** An answer to `card` as it is shown. Gives false when the person did not confirm a high risk. */
  answer(card, answer, { defaults = false } = {}) {
    return this.#command(card.id, async (n) => {
      const body = { do: 'answer', card_id: card.id, version: card.version, answer, defaults };
      if (card.risk !== 'high') return body;
      const challenge = await wire.confirmationOf({ channel: this.mine.channel, n, ...body });
      const proof = await this.confirm(this.mine.passkeyId, challenge);
      return proof && { ...body, proof };
    });
  }

  undo(card) {
    return this.#command(card.id, () => ({ do: 'undo', card_id: card.id, version: card.version }));
  }

  request(text) {
    return this.#command(null, () => ({ do: 'request', text }));
  }

  async #command(card, make) {
    if (this.phase !== 'paired' || this.#newest === null || (card && this.pendingOf(card))) return false;
    const { mine } = this;
    const n = mine.next;
    const body = await make(n);
    if (!body) return false;
    return this.#inTurn(async () => {
      if (this.mine !== mine || (card && this.pendingOf(card))) return false;
      if (body.proof && mine.next !== n) return false; // it was given for that number
      const command = { n: mine.next, card, made: this.#read(), did: body.do, tries: 0, body };
      mine.next += 1;
      mine.pending = [...mine.pending, command];
      await this.#save(); // a number is never used for two commands
      this.changed();
      await this.#send(command);
      return true;
    });
  }

  /** How long after the computer's newest word a command was made, at least; below 0 when it was made before. */
  #madeAfter({ made }) {
    const { heard } = this.#newest;
    return made.steady >= heard.steady ? shortest(heard, made) : -longest(made, heard);
  }

  async #send(command) {
    const { mine } = this;
    if (!this.#newest) return; // it goes out once the computer is heard
    command.at = this.steady();
    const { n, body } = command;
    const text = await wire.seal(
      mine.up,
      { channel: mine.channel, stream: 'do', n },
      {
        ...body,
        first: mine.pending[0]?.n ?? n,
        heard: mine.said,
        made: { life: this.#newest.life, n: this.#newest.n, after: this.#madeAfter(command) },
      },
    );
    if (!this.online) return;
    this.#publish(text, { qos: command.tries === KEPT_TRY ? 1 : 0 });
    command.tries += 1;
  }

  /** The computer runs anew, and can't tell how old what was sent before is. */
  async #sendAll() {
    for (const command of this.pending) await this.#send(command);
  }

  async #sendPending() {
    const now = this.steady();
    for (const command of this.pending) {
      const pause = command.tries > KEPT_TRY ? SEND_AGAIN_MS : KEEP_MS;
      if (!(now - (command.at ?? -Infinity) < pause)) await this.#send(command);
    }
  }

  /** The page is about to be out of sight, and may be stopped: the relay is to keep what the computer has not taken yet. */
  rest() {
    return this.#inTurn(async () => {
      for (const command of this.pending) {
        command.tries = Math.max(command.tries, KEPT_TRY);
        if (command.tries === KEPT_TRY) await this.#send(command);
      }
    });
  }

  async #settle({ n, ok, code, message }) {
    const command = this.pending.find((one) => one.n === n);
    if (!command) return;
    this.mine.pending = this.pending.filter((one) => one !== command);
    await this.#save();
    if (!ok) this.notices.push({ text: message, code, card: command.card, good: false });
    else if (command.did === 'request')
      this.notices.push({ text: 'Sent. It is a card on your computer now.', good: true });
  }

  /** What the computer would no longer take is given up, and said so: nobody knows whether it was taken. */
  async #giveUp() {
    const now = this.#read();
    const late = this.pending.filter(({ made }) => longest(made, now) > wire.GOOD_MS + GRACE_MS);
    if (late.length === 0) return;
    this.mine.pending = this.pending.filter((command) => !late.includes(command));
    await this.#save();
    for (const { card, did } of late)
      this.notices.push({
        text: `No word from your computer. ${did === 'request' ? 'Your request' : 'This'} may or may not have arrived; it will not arrive later.`,
        card,
        good: false,
      });
    this.changed();
  }

  close() {
    this.#link?.close();
    this.#link = null;
  }

  /** Nothing more is said or kept once this comes back. */
  leave() {
    return this.#inTurn(async () => {
      this.close();
      this.mine = null;
      await this.#saving;
    });
  }
}
