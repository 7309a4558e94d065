import { clock, iso, startOfToday } from './clock.mjs';

/** The log of what was done with questions and answers. Lines never hold free text that a person typed. */
export class Receipts {
  constructor({ store, hub }) {
    this.store = store;
    this.hub = hub;
  }

  /** Must be called in the transaction of the change that it tells of. Gives the receipt as it goes on the wire. */
  add(action, line, { topic = null, card_id = null } = {}, now = clock.now()) {
    const eventId = this.store.insert('receipts', { action, line, topic, card_id, ts_ms: now });
    this.store.afterCommit(() => this.hub.publish('receipt.added', { event_id: String(eventId), action }));
    return { event_id: String(eventId), action, line, topic, card_id, ts: iso(now) };
  }

  /** Newest first. */
  list(limit, topic) {
    const rows =
      topic === undefined
        ? this.store.all('SELECT * FROM receipts ORDER BY event_id DESC LIMIT ?', limit)
        : this.store.all(
            'SELECT * FROM receipts WHERE topic = ? ORDER BY event_id DESC LIMIT ?',
            topic,
            limit,
          );
    return rows.map((row) => ({
      event_id: String(row.event_id),
      action: row.action,
      line: row.line,
      topic: row.topic,
      card_id: row.card_id,
      ts: iso(row.ts_ms),
    }));
  }

  /** The id of the newest receipt, as text. */
  watermark() {
    return String(this.store.get('SELECT max(event_id) AS last FROM receipts').last ?? 0);
  }

  has(actions) {
    return (
      this.store.get(
        `SELECT 1 AS found FROM receipts WHERE action IN (${actions.map(() => '?').join(', ')}) LIMIT 1`,
        ...actions,
      ) !== undefined
    );
  }

  countToday(actions) {
    const marks = actions.map(() => '?').join(', ');
    return this.store.get(
      `SELECT count(*) AS n FROM receipts WHERE ts_ms >= ? AND action IN (${marks})`,
      startOfToday(),
      ...actions,
    ).n;
  }
}
