// Phones: the user switches the relay on, pairs a phone, and takes its keys away again. The connector only carries
// envelopes between here and the broker; keys never leave the daemon.
import { hostname } from 'node:os';
import { conflict, invalid } from './errors.mjs';
import { clock, iso } from './clock.mjs';
import { optional, required } from './check.mjs';
import { Devices } from './relay-devices.mjs';
import { Outbox } from './relay-outbox.mjs';
import { Pairing } from './relay-pairing.mjs';
import { PhoneView } from './relay-view.mjs';
import { Traffic } from './relay-traffic.mjs';
import { Unpaired } from './relay-unpaired.mjs';
import { readRelayConfig } from './relay-config.mjs';
import * as wire from '../shared/relay.js';

const MAX_POLL_MS = 25_000;

export class Relay {
  #desk = null; // a promise of this computer's keys
  #pairing = null;
  #link = ''; // the connector's link to the relay that phones were told of everything through

  constructor(app) {
    this.app = app;
    this.store = app.store;
    this.devices = new Devices(app.store, new Unpaired(app.home, app.wentWrong));
    this.outbox = new Outbox();
    this.view = new PhoneView(app);
    this.say = (channel, payload) => this.enabled && this.outbox.add(channel, payload);
    this.traffic = new Traffic(app, {
      devices: this.devices,
      view: this.view,
      say: this.say,
      origin: () => new URL(this.#config().app_url).origin,
    });
    this.#unpairRevived();
  }

  /** A database of an older backup takes no phone back in that was unpaired since. */
  #unpairRevived() {
    const revived = this.devices.revived();
    if (revived.length === 0) return;
    this.store.tx(() => {
      for (const device of revived) this.#unpair(device, device.farewell);
    });
    this.store.scrub();
  }

  /** Called in a transaction. */
  #unpair(device, farewell) {
    this.devices.revoke(device, farewell);
    this.app.presses.takeBackOf(device.id);
  }

  get enabled() {
    return this.store.setting('relay_enabled') === '1';
  }

  #config() {
    const config = readRelayConfig(this.app.home);
    if (config === null)
      throw conflict('No relay is set up for this home yet. Run kd relay serve in a terminal first.');
    return config;
  }

  /** This computer's key pair and id, made when they are first needed. */
  desk() {
    this.#desk ??= this.#loadDesk();
    return this.#desk;
  }

  async #loadDesk() {
    const kept = this.store.setting('relay_desk');
    const { subtle } = globalThis.crypto;
    const curve = { name: 'ECDH', namedCurve: 'P-256' };
    let keys;
    if (kept === null) {
      keys = await wire.newKeys(true);
      const [secret, open] = await Promise.all(
        [keys.privateKey, keys.publicKey].map((key) => subtle.exportKey('jwk', key)),
      );
      this.store.keepSetting('relay_desk', JSON.stringify({ secret, open }));
    } else {
      const { secret, open } = JSON.parse(kept);
      keys = {
        privateKey: await subtle.importKey('jwk', secret, curve, false, ['deriveBits']),
        publicKey: await subtle.importKey('jwk', open, curve, true, []),
      };
    }
    const bytes = await wire.publicBytes(keys);
    const print = await wire.fingerprint(bytes);
    return { keys, bytes, id: `mac-${print.replaceAll(' ', '')}`, fingerprint: print };
  }

  async status() {
    const desk = this.enabled || this.store.setting('relay_desk') !== null ? await this.desk() : null;
    if (this.#pairing && !this.#pairing.look()) await this.#endAttempt();
    let config = null;
    try {
      config = readRelayConfig(this.app.home);
    } catch {
      // What is wrong with it is told when it is used.
    }
    const { isConnected, lastSeen, trouble } = this.outbox;
    return {
      enabled: this.enabled,
      connector: {
        connected: this.enabled && isConnected,
        ...(lastSeen ? { last_seen: iso(lastSeen) } : {}),
        ...(this.enabled && trouble ? { error: trouble } : {}),
      },
      ...(desk ? { mac: { id: desk.id, fingerprint: desk.fingerprint } } : {}),
      devices: this.devices.list(),
      ...(this.#pairing ? { pairing: this.#pairing.asWire() } : {}),
      relay_url: config?.phone_urls[0] ?? '',
      app_url: config?.app_url ?? '',
    };
  }

  async setEnabled(on) {
    if (on) this.#config();
    this.store.tx(() => {
      if (on !== this.enabled)
        this.app.receipts.add('relay.switched', `Answering from a phone was switched ${on ? 'on' : 'off'}.`);
      this.store.keepSetting('relay_enabled', on ? '1' : '0');
    });
    if (!on) await this.#endAttempt();
    this.outbox.clear();
    return this.status();
  }

  async startPairing() {
    if (!this.enabled) throw conflict('Switch on answering from your phone first.');
    const config = this.#config();
    const desk = await this.desk();
    await this.#endAttempt();
    this.#pairing = new Pairing({
      place: this.#freePlace(config),
      config,
      desk,
      deskName: hostname(),
      say: this.say,
      wentWrong: this.app.wentWrong,
    });
    this.outbox.changed();
    const { id, url, expires } = this.#pairing;
    return { pairing_id: id, url, expires_at: iso(expires) };
  }

  /** A place that a phone has joined in is not used again: that phone knows its password. */
  async #endAttempt() {
    const old = this.#pairing;
    if (old === null) return;
    this.#pairing = null;
    if (!old.leftUnused)
      this.store.keepSetting('relay_burned', JSON.stringify([...this.#burned(), old.channel]));
    await old.replace();
  }

  #burned() {
    return JSON.parse(this.store.setting('relay_burned') ?? '[]');
  }

  #freePlace({ places }) {
    const burned = new Set(this.#burned());
    const free = places.filter(({ channel }) => !burned.has(channel) && !this.devices.isUsed(channel));
    if (free.length === 0)
      throw conflict('The relay has no place left for another phone. Run kd relay serve --renew.');
    return free[0];
  }

  async decide(id, allow, code) {
    if (this.#pairing === null)
      throw invalid('pairing_id', 'This pairing is over. Start again with a new code.');
    const phone = await this.#pairing.decide(id, allow, code);
    if (phone !== null) {
      const deviceId = this.store.tx(() => {
        this.app.receipts.add(
          'relay.paired',
          `A phone was paired and can answer cards: ${phone.name || 'without a name'}, key ${phone.fingerprint}.`,
        );
        return this.devices.add(phone);
      });
      const device = await this.devices.find(deviceId);
      this.look();
      await this.traffic.tell(device, {
        t: 'state',
        face: device.passkey !== null,
        ...this.view.since(),
      });
      device.heard = clock.steady();
    }
    return this.status();
  }

  async revoke(id) {
    const device = await this.devices.find(id);
    const { channel, down } = device;
    const farewell = await wire.seal(
      down,
      { channel, stream: 'down', n: wire.LAST },
      { t: 'unpaired', at: clock.now() },
    );
    if (!this.devices.isPaired(device)) return this.status(); // somebody else was faster
    this.devices.unpaired.keep(channel, farewell);
    this.store.tx(() => {
      this.app.receipts.add('relay.unpaired', `A phone was unpaired: ${device.name || 'without a name'}.`);
      this.#unpair(device, farewell);
    });
    this.store.scrub();
    this.traffic.forget(device);
    this.outbox.drop(channel);
    this.say(channel, farewell);
    if (this.#pairing?.channel === channel) await this.#endAttempt(); // that it was paired is no longer so
    return this.status();
  }

  /** Called with every turn of the daemon: tells the phones what has changed. */
  look() {
    if (this.#pairing && !this.#pairing.look()) this.#endAttempt().catch(this.app.wentWrong);
    if (!this.enabled) return;
    const change = this.view.look();
    if (change) this.traffic.broadcast(change).catch(this.app.wentWrong);
  }

  // The connector's two calls.

  async poll(body, signal) {
    const run = required.string(body, 'run', { max: 64 });
    const connected = required.boolean(body, 'connected');
    this.#followLink(connected && `${run} ${optional.integer(body, 'links') ?? 0}`);
    const result = await this.outbox.poll({
      run,
      life: optional.string(body, 'life', { max: 64 }),
      done: optional.list(body, 'done', { max: 10_000 }) ?? [],
      after: optional.integer(body, 'after') ?? 0,
      news: optional.integer(body, 'news'),
      connected,
      trouble: optional.string(body, 'error', { max: 500 }),
      waitMs: optional.integer(body, 'wait_ms', { max: MAX_POLL_MS }) ?? 0,
      signal,
    });
    return { enabled: this.enabled, ...result, channels: this.#channels() };
  }

  /** What was on its way through the connector's last link may be lost, so that everything is said again. */
  #followLink(link) {
    if (!link || link === this.#link) return;
    this.#link = link;
    this.traffic.broadcast(this.view.since()).catch(this.app.wentWrong);
  }

  #channels() {
    if (!this.enabled) return [];
    return [...new Set([...this.devices.channels(), ...(this.#pairing ? [this.#pairing.channel] : [])])];
  }

  /** An envelope that came in on a channel. What isn't good is dropped without a word. */
  async deliver(body) {
    const channel = required.string(body, 'channel', { pattern: wire.CHANNEL });
    const envelope = wire.readEnvelope(required.string(body, 'payload', { max: wire.MAX_ENVELOPE }));
    if (envelope === null || !this.enabled) return {};
    if (this.#pairing?.channel === channel && this.#pairing.state !== 'confirmed')
      await this.#pairing.receive(envelope);
    else {
      const device = await this.devices.ofChannel(channel);
      if (device?.farewell) this.say(channel, device.farewell);
      else if (device) await this.traffic.receive(device, envelope);
    }
    return {};
  }

  connectorConfig() {
    const { desk_urls: urls, username, password, authority } = this.#config();
    return { urls, username, password, ...(authority ? { ca: authority } : {}) };
  }

  close() {
    this.outbox.close();
  }
}

/** The routes, as routes.mjs has them. */
export const relayRoutes = {
  'POST /v1/relay/status': { on: ['socket', 'page'], run: (app) => app.relay.status() },
  'POST /v1/relay/enable': {
    on: ['socket', 'page'],
    run: (app, { body }) => app.relay.setEnabled(required.boolean(body, 'enabled')),
  },
  'POST /v1/relay/pair/start': { on: ['socket', 'page'], run: (app) => app.relay.startPairing() },
  'POST /v1/relay/pair/decide': {
    on: ['socket', 'page'],
    run: (app, { body }) =>
      app.relay.decide(
        required.string(body, 'pairing_id'),
        required.boolean(body, 'allow'),
        optional.string(body, 'code', { max: 20 }) ?? '',
      ),
  },
  'POST /v1/relay/device/revoke': {
    on: ['socket', 'page'],
    run: (app, { body }) => app.relay.revoke(required.string(body, 'device_id')),
  },
  'POST /v1/relay/connector/config': { on: ['socket'], run: (app) => app.relay.connectorConfig() },
  'POST /v1/relay/connector/poll': {
    on: ['socket'],
    run: (app, { body, signal }) => app.relay.poll(body, signal),
  },
  'POST /v1/relay/connector/deliver': { on: ['socket'], run: (app, { body }) => app.relay.deliver(body) },
};
