// One attempt to pair a phone: the code is shown, a phone joins, the user types its six digits. An attempt lives in
// memory, for some minutes at most. docs/relay.md has the handshake.
import { timingSafeEqual } from 'node:crypto';
import { clock, iso, newId } from './clock.mjs';
import { Refusal, conflict } from './errors.mjs';
import { readPasskey } from './relay-confirm.mjs';
import * as wire from '../shared/relay.js';
import { cut, oneLine } from '../shared/text.js';

const WAITING_MS = 120_000;
const JOINED_MS = 180_000;
const SHOWN_MS = 60_000; // how long the end of an attempt is told
const MAX_TRIES = 3;

const over = () => new Refusal('unknown_pairing', 404, 'This pairing is over. Start again with a new code.');

export class Pairing {
  /** `say(channel, payload)` puts an envelope out. */
  constructor({ place, config, desk, deskName, say, wentWrong, now = clock.now(), steady = clock.steady() }) {
    Object.assign(this, { config, desk, deskName, say, wentWrong });
    this.id = newId('pair', now);
    this.channel = place.channel;
    this.secret = wire.random(wire.SECRET_BYTES);
    this.state = 'waiting';
    this.tries = 0;
    this.#until(WAITING_MS, now, steady);
    this.url = wire.offerUrl(config.app_url, {
      urls: config.phone_urls,
      channel: place.channel,
      password: place.password,
      secret: this.secret,
      desk: desk.bytes,
    });
  }

  #until(ms, now = clock.now(), steady = clock.steady()) {
    this.expires = now + ms;
    this.ends = steady + ms;
  }

  get isUnderWay() {
    return this.state === 'waiting' || this.state === 'joined';
  }

  /** Nobody has joined, so nobody has used the place in the relay that it was given. */
  get leftUnused() {
    return this.phone === undefined;
  }

  #end(state, error) {
    this.state = state;
    this.error = error;
    this.shownUntil = clock.steady() + SHOWN_MS;
    this.keys = undefined;
    this.secret = undefined;
  }

  /** Looks at the time. False once the attempt is so long over that nobody has to hear of it any more. */
  look() {
    if (this.isUnderWay && clock.steady() >= this.ends) {
      this.#end('expired');
      this.#tell('expired').catch(this.wentWrong);
    }
    return this.isUnderWay || clock.steady() < this.shownUntil;
  }

  asWire() {
    return {
      id: this.id,
      state: this.state,
      expires_at: iso(this.expires),
      ...(this.phone ? { phone_name: this.phone.name, fingerprint: this.phone.fingerprint } : {}),
      ...(this.error ? { error: this.error } : {}),
    };
  }

  async receive(envelope) {
    if (envelope.stream === 'join') await this.#join(envelope);
    // A phone that shows its digits asks now and then; its attempt may be over without its having heard.
    else if (this.farewell) this.say(this.channel, this.farewell);
  }

  async #join(envelope) {
    if (!this.look() || !this.isUnderWay) return this.farewell && this.say(this.channel, this.farewell);
    const { channel, secret, desk } = this;
    const key = await wire.joinKey({ secret, channel, desk: desk.bytes });
    const join = await wire.openBytes(key, channel, envelope);
    if (join === null) return;
    if (this.phone) {
      if (Buffer.compare(join, this.join) === 0) this.say(channel, this.welcome);
      return; // one phone for each attempt
    }
    const phone = await this.#readJoin(join);
    if (phone === null || this.state !== 'waiting' || this.phone) return;
    const handshake = {
      mine: desk.keys.privateKey,
      theirs: phone.bytes,
      secret,
      channel,
      desk: desk.bytes,
      join,
    };
    const welcome = wire.toBytes({ nonce: wire.toBase64url(wire.random(16)), desk: this.deskName });
    this.phone = phone;
    this.join = join;
    this.welcomeKey = (await wire.agree(handshake)).welcomeKey;
    this.welcome = await wire.seal(this.welcomeKey, { channel, stream: 'welcome', n: 0 }, welcome);
    this.keys = await wire.agree({ ...handshake, welcome });
    this.state = 'joined';
    this.#until(JOINED_MS);
    this.say(channel, this.welcome);
    this.onChange?.();
  }

  async #readJoin(bytes) {
    try {
      const { key, nonce, name, kind, passkey } = wire.fromBytes(bytes);
      const point = wire.fromBase64url(key);
      await wire.publicKey(point);
      if (wire.fromBase64url(nonce).length !== 16) return null;
      return {
        bytes: point,
        fingerprint: await wire.fingerprint(point),
        name: cut(oneLine(typeof name === 'string' ? name : ''), 40),
        kind: ['iphone', 'android'].includes(kind) ? kind : 'other',
        passkey: passkey ? readPasskey(passkey, new URL(this.config.app_url).hostname) : null,
      };
    } catch {
      return null;
    }
  }

  async #tell(how) {
    const { channel, welcomeKey } = this;
    if (!welcomeKey) return;
    this.farewell = await wire.seal(welcomeKey, { channel, stream: 'end', n: 0 }, { end: how });
    this.say(channel, this.farewell);
  }

  /** The user's decision. Gives the phone with its keys once it is allowed; throws for wrong digits. */
  async decide(id, allow, code) {
    if (id !== this.id || !this.look() || !this.isUnderWay) throw over();
    if (!allow) {
      this.#end('declined');
      await this.#tell('declined');
      return null;
    }
    if (this.state !== 'joined') throw conflict('No phone has joined yet. Scan the code first.');
    if (!this.#isRight(code)) {
      this.tries += 1;
      if (this.tries >= MAX_TRIES) {
        this.#end('failed', 'The digits were wrong 3 times. Start again with a new code.');
        await this.#tell('failed');
        return null;
      }
      const left = MAX_TRIES - this.tries;
      throw new Refusal(
        'wrong_code',
        409,
        `These are not the digits that the phone shows. ${left} ${left === 1 ? 'try' : 'tries'} left.`,
      );
    }
    const { up, down } = this.keys;
    this.#end('confirmed');
    return { ...this.phone, channel: this.channel, up, down };
  }

  #isRight(code) {
    const [typed, wanted] = [Buffer.from(code), Buffer.from(this.keys.digits)];
    return typed.length === wanted.length && timingSafeEqual(typed, wanted);
  }

  /** Another attempt takes its place. */
  async replace() {
    if (!this.isUnderWay) return;
    this.#end('expired');
    await this.#tell('expired');
  }
}
