// The paired phones, as the database keeps them: their keys, how far each stream has come, and what was said last.
import { randomUUID } from 'node:crypto';
import { newId, clock, iso } from './clock.mjs';
import { Refusal } from './errors.mjs';
import { cipherKey } from '../shared/relay.js';

const RESERVED = 256; // numbers of envelopes that are set aside with one write
const KEPT_RESULTS = 16;
const KEPT_SENT = 500;
const MOST_HEARD = 2 ** 52;
const FAREWELL_MS = 90 * 86_400_000;

export class Devices {
  #open = new Map(); // id -> the phone with its keys and counters
  life = randomUUID(); // numbers of an earlier run prove no time, for its database may have been another

  constructor(store, unpaired) {
    this.store = store;
    this.unpaired = unpaired;
  }

  /** The phones that a restored database has taken back in: {id, channel, farewell}. */
  revived() {
    return this.unpaired.all.flatMap(([channel, farewell]) => {
      const row = this.store.get(
        'SELECT id, channel FROM relay_devices WHERE channel = ? AND revoked_ms IS NULL',
        channel,
      );
      return row ? [{ ...row, farewell }] : [];
    });
  }

  /** Called in a transaction. */
  add({ name, kind, fingerprint, channel, up, down, passkey }, now = clock.now()) {
    const id = newId('phone', now);
    this.store.insert('relay_devices', {
      id,
      name,
      kind,
      fingerprint,
      channel,
      up,
      down,
      passkey: passkey && JSON.stringify(passkey),
      paired_ms: now,
      seen_ms: now,
    });
    return id;
  }

  /** The phones that are paired now, as they go on the wire. */
  list() {
    return this.#rows().map((row) => ({
      id: row.id,
      name: row.name,
      kind: row.kind,
      fingerprint: row.fingerprint,
      face_id: row.passkey !== null,
      paired_at: iso(row.paired_ms),
      last_seen: iso(row.seen_ms),
    }));
  }

  #rows() {
    return this.store.all('SELECT * FROM relay_devices WHERE revoked_ms IS NULL ORDER BY paired_ms, id');
  }

  /** The phones that are paired, ready to be spoken with. */
  async active() {
    return Promise.all(this.#rows().map((row) => this.#ready(row)));
  }

  async #ready(row) {
    const known = this.#open.get(row.id);
    if (known) return known;
    const device = {
      id: row.id,
      name: row.name,
      channel: row.channel,
      passkey: row.passkey && JSON.parse(row.passkey),
      up: await cipherKey(row.up),
      down: await cipherKey(row.down),
      did: row.did, // the newest command that was taken
      asked: row.asked, // the newest question that was answered
      said: row.said, // the newest number that may have been used on the way down
      reserved: row.said,
      results: new Map(JSON.parse(row.results)),
      sent: new Map(), // number -> when it went out, in this run
      heard: -Infinity, // on the steady clock
    };
    // Two that looked at the same time must go on with one set of counters.
    if (!this.#open.has(row.id)) this.#open.set(row.id, device);
    return this.#open.get(row.id);
  }

  /** The phone of a channel: ready, or {farewell} once it is unpaired; null for none. */
  async ofChannel(channel) {
    const row = this.store.get('SELECT * FROM relay_devices WHERE channel = ?', channel);
    if (!row) return null;
    return row.revoked_ms === null ? this.#ready(row) : { channel, farewell: row.farewell };
  }

  /** Every channel that somebody may speak in, unpaired phones' too. */
  channels() {
    return this.store
      .all(
        'SELECT channel FROM relay_devices WHERE revoked_ms IS NULL OR revoked_ms > ?',
        clock.now() - FAREWELL_MS,
      )
      .map((row) => row.channel);
  }

  isUsed(channel) {
    return (
      this.unpaired.has(channel) ||
      this.store.get('SELECT 1 AS used FROM relay_devices WHERE channel = ?', channel) !== undefined
    );
  }

  isPaired(device) {
    return (
      this.#open.get(device.id) === device &&
      // It may have been unpaired while its keys were being made ready.
      this.store.get(
        'SELECT 1 AS paired FROM relay_devices WHERE id = ? AND revoked_ms IS NULL',
        device.id,
      ) !== undefined
    );
  }

  /** The next number on the way down. None is used twice, also not after `kill -9`. */
  nextSaid(device) {
    if (device.said === device.reserved) {
      device.reserved += RESERVED;
      this.store.run('UPDATE relay_devices SET said = ? WHERE id = ?', device.reserved, device.id);
    }
    device.said += 1;
    device.sent.set(device.said, clock.reading());
    for (const old of device.sent.keys()) if (device.sent.size > KEPT_SENT) device.sent.delete(old);
    return device.said;
  }

  /** The phone has heard everything up to `n`. A database that was restored may know of less, and goes on after it. */
  heardUpTo(device, n) {
    if (!Number.isSafeInteger(n) || n <= device.said || n > MOST_HEARD) return;
    device.said = n;
    device.reserved = Math.max(device.reserved, n);
  }

  keepAsked(device, n) {
    device.asked = n;
    device.heard = clock.steady();
    this.store.run('UPDATE relay_devices SET asked = ?, seen_ms = ? WHERE id = ?', n, clock.now(), device.id);
  }

  keepResult(device, n, result) {
    device.did = n;
    device.heard = clock.steady();
    device.results.set(n, result);
    for (const old of device.results.keys())
      if (device.results.size > KEPT_RESULTS) device.results.delete(old);
    this.store.run(
      'UPDATE relay_devices SET did = ?, results = ?, seen_ms = ? WHERE id = ?',
      n,
      JSON.stringify([...device.results]),
      clock.now(),
      device.id,
    );
  }

  async find(id) {
    const row = this.store.get('SELECT * FROM relay_devices WHERE id = ? AND revoked_ms IS NULL', id);
    if (!row) throw new Refusal('unknown_device', 404, 'This phone is not paired any more.');
    return this.#ready(row);
  }

  /**
   * Called in a transaction. The keys and all that was known of the phone go. What stays is the one sealed word of
   * farewell, and its channel, so that no other phone gets that one.
   */
  revoke(device, farewell, now = clock.now()) {
    this.#open.delete(device.id);
    this.store.run(
      `UPDATE relay_devices SET revoked_ms = ?, farewell = ?, up = NULL, down = NULL, passkey = NULL, results = '[]', name = '',
       kind = '', fingerprint = '' WHERE id = ?`,
      now,
      farewell,
      device.id,
    );
  }
}
