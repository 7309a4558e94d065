// What a paired phone says, and what it is told. A command is taken once, in its order and before it is too late; its
// result is kept, so that a phone that didn't hear it can be told again.
import { clock } from './clock.mjs';
import { Refusal, conflict } from './errors.mjs';
import { confirms } from './relay-confirm.mjs';
import { GOOD_MS, confirmationOf, seal, open } from '../shared/relay.js';
import { longest } from '../shared/spans.js';
import { optional, required } from './check.mjs';

const LISTENS_MS = 90_000; // a phone asks every 20 s while it is looked at
const MAX_REQUEST = 2000;
const AGAIN_MS = 1000;

export class Traffic {
  #turns = new Map(); // phone's id -> the end of its last turn: envelopes of one phone are handled one by one

  constructor(app, { devices, view, say, origin }) {
    Object.assign(this, { app, devices, view, say, origin });
  }

  /** An envelope from the channel of a paired phone. */
  receive(device, envelope) {
    return this.#inTurn(device, async () => {
      const body = await open(device.up, device.channel, envelope);
      if (body === null || typeof body !== 'object' || !this.devices.isPaired(device)) return;
      if (envelope.stream === 'ask') await this.#ask(device, envelope.n, body);
      else if (envelope.stream === 'do') await this.#do(device, envelope.n, body);
    });
  }

  #inTurn(device, work) {
    const turn = (this.#turns.get(device.id) ?? Promise.resolve()).then(work);
    this.#turns.set(
      device.id,
      turn.catch(() => {}),
    );
    return turn;
  }

  async tell(device, body) {
    const n = this.devices.nextSaid(device);
    const { channel, down, asked, did } = device;
    const { life } = this.devices;
    const text = await seal(
      down,
      { channel, stream: 'down', n },
      { ...body, at: clock.now(), life, asked, did },
    );
    if (this.devices.isPaired(device)) this.say(channel, text);
  }

  async #ask(device, n, body) {
    this.devices.heardUpTo(device, body.heard);
    if (n <= device.asked) return this.#again(device);
    this.devices.keepAsked(device, n);
    await this.tell(device, {
      t: 'state',
      face: device.passkey !== null,
      ...this.view.since(body.have),
    });
  }

  /** The phone can't know what it has to: how far it has counted, or that this run of the daemon is another. */
  async #again(device) {
    const now = clock.steady();
    if (now - (device.again ?? -Infinity) < AGAIN_MS) return; // a relay may repeat what it likes
    device.again = now;
    await this.tell(device, { t: 'again' });
  }

  /**
   * How old a command is at most; null when that can't be told. The phone says how long after one of our numbers it was
   * made, and when that number went out is known here, so no two clocks have to agree.
   */
  #ageOf(device, made) {
    const sent = made?.life === this.devices.life ? device.sent.get(made.n) : undefined;
    return sent && Number.isFinite(made.after) ? longest(sent, clock.reading()) - made.after : null;
  }

  async #do(device, n, body) {
    this.devices.heardUpTo(device, body.heard);
    if (n <= device.did) {
      const result = device.results.get(n);
      if (result) await this.tell(device, { t: 'result', n, ...result });
      return;
    }
    // Everything before it that the phone still stands by has to come first; the phone sends all of that again.
    if (n !== device.did + 1 && body.first !== n) return;
    const age = this.#ageOf(device, body.made);
    if (age === null) return this.#again(device);
    const result = await this.#run(device, n, body, age);
    if (!this.devices.isPaired(device)) return;
    this.devices.keepResult(device, n, result);
    await this.tell(device, { t: 'result', n, ...result, rev: this.view.rev });
  }

  /** Does what was asked and gives the result; nothing is thrown. */
  async #run(device, n, body, age) {
    try {
      if (!(age < GOOD_MS))
        throw new Refusal('late', 409, 'This came too late, so nothing was done. Try again.');
      const act = { answer: this.#answer, undo: this.#undo, request: this.#request }[body.do];
      if (act === undefined)
        throw new Refusal('unknown', 400, 'The computer does not know what this phone wants.');
      await act.call(this, device, n, body);
      return { ok: true };
    } catch (error) {
      if (!(error instanceof Refusal)) this.app.wentWrong(error);
      const { code, message } =
        error instanceof Refusal ? error : { code: 'internal', message: 'The computer could not do this.' };
      return { ok: false, code, message };
    }
  }

  /** A card that is on the phone: one of a restricted topic doesn't exist for it. */
  #card(body) {
    const id = required.string(body, 'card_id', { max: 100 });
    const { store, cards } = this.app;
    const hidden = store.get(
      'SELECT 1 AS hidden FROM cards c LEFT JOIN topics t ON t.id = c.topic WHERE c.id = ? AND (c.restricted = 1 OR t.restricted = 1 OR c.id IN (SELECT card_id FROM requests))',
      id,
    );
    if (hidden) throw new Refusal('unknown_card', 404, 'This question is no longer asked.');
    return cards.find(id);
  }

  async #answer(device, n, body) {
    const { presses, auth, jobs } = this.app;
    const card = this.#card(body);
    const version = required.integer(body, 'version');
    const press = {
      id: card.id,
      version,
      answer: body.answer,
      acceptAllDefaults: optional.boolean(body, 'defaults') ?? false,
      presser: device.id,
      by: 'phone',
      holdAs: 'high',
      phone: device.id,
    };
    let review;
    if (card.risk === 'high') {
      review = presses.review(press).review; // throws for a card that is gone or has changed
      await this.#confirm(device, n, card, body);
      if (!this.devices.isPaired(device)) throw new Refusal('unpaired', 403, 'This phone is not paired.');
    }
    // The shell that types it: whichever was heard of last.
    const presence = auth.shellOf({ surface: 'phone', group: auth.key.hash }, (tag) => jobs.isThere(tag)).tag;
    presses.answer({ ...press, review, presence });
  }

  async #confirm(device, n, card, body) {
    if (device.passkey === null)
      throw new Refusal(
        'no_face_id',
        403,
        'High risk is answered on the computer: this phone has no Face ID.',
      );
    const { channel } = device;
    const { card_id, version, answer } = body;
    const challenge = await confirmationOf({ channel, n, card_id, version, answer });
    if (!confirms(device.passkey, body.proof, challenge, this.origin()))
      throw new Refusal('not_confirmed', 403, 'This is marked as high risk and was not confirmed.');
  }

  #undo(device, _, body) {
    const card = this.#card(body);
    if (card.version !== required.integer(body, 'version'))
      throw conflict('Too late: the answer is on its way or delivered.');
    this.app.presses.undo(card.id, 'phone');
  }

  /** A request becomes a card on the computer; nothing runs before somebody presses there. */
  #request(device, n, body) {
    const text = required.string(body, 'text', { max: MAX_REQUEST });
    const { store, requests } = this.app;
    // In one step, so that a daemon that dies in between makes no second card of it.
    store.tx(() => {
      requests.propose({ text }, device.id);
      store.run('UPDATE relay_devices SET did = ? WHERE id = ?', n, device.id);
    });
  }

  /** A phone was unpaired. */
  forget(device) {
    this.#turns.delete(device.id);
  }

  /** The cards have changed: those who listen are told. */
  async broadcast(change) {
    const since = clock.steady() - LISTENS_MS;
    const devices = (await this.devices.active()).filter((device) => device.heard > since);
    await Promise.all(
      devices.map((device) => this.#inTurn(device, () => this.tell(device, { t: 'state', ...change }))),
    );
  }
}
