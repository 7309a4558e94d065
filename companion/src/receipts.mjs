import { answerLine } from './answers.mjs';
import { clock, iso, startOfToday } from './clock.mjs';

const ARRIVED = ['answer.typed', 'answer.handed', 'answer.kept'];

/** Reads texts that may hold the signs of a pattern as what they are. */
const like = (text) => `%${text.replace(/[\\%_]/g, '\\$&')}%`;

/** The answer of a receipt that tells of one that arrived, as its agent would name it. */
function answerOf({ action, answer, rows }) {
  if (answer === null || !ARRIVED.includes(action)) return null;
  return answerLine({ rows: JSON.parse(rows) }, JSON.parse(answer));
}

/**
 * The log of what was done with questions and answers. Lines never hold free text that a person typed; the
 * answer itself is kept with its card, and goes with it.
 */
export class Receipts {
  constructor({ store, hub }) {
    this.store = store;
    this.hub = hub;
  }

  /**
   * Must be called in the transaction of the change that it tells of. Gives the receipt as it goes on the
   * wire. `by` is who did it: "app" and "browser" for the user, "agent", "test"; null for the daemon itself.
   */
  add(action, line, { topic = null, card_id = null, agent = null, by = null } = {}, now = clock.now()) {
    const eventId = this.store.insert('receipts', {
      action,
      line,
      topic,
      card_id,
      agent,
      actor: by,
      ts_ms: now,
    });
    this.store.afterCommit(() => this.hub.publish('receipt.added', { event_id: String(eventId), action }));
    return { event_id: String(eventId), action, line, topic, card_id, agent, by, ts: iso(now) };
  }

  /**
   * Newest first. `text` is looked for in lines, topics and answers; `since` and `until` are times in
   * milliseconds, the second one excluded; `before` is the id of a receipt, to go on behind it; `answers`
   * leaves out all but answers that arrived.
   */
  list({ limit, topic, text, agent, since, until, before, answers = false }) {
    const wheres = [
      [topic, 'r.topic = ?', topic],
      [agent, 'r.agent = ?', agent],
      [since, 'r.ts_ms >= ?', since],
      [until, 'r.ts_ms < ?', until],
      [before, 'r.event_id < ?', before],
      [answers || undefined, `r.action IN ('${ARRIVED.join("','")}')`],
      [
        text,
        `(r.line LIKE ? ESCAPE '\\' OR r.topic LIKE ? ESCAPE '\\' OR c.answer ->> '$' LIKE ? ESCAPE '\\')`,
        ...Array(3).fill(like(text ?? '')),
      ],
    ].filter(([wanted]) => wanted !== undefined);
    const rows = this.store.all(
      `SELECT r.*, c.session_id, c.title, c.answer, c.rows FROM receipts r LEFT JOIN cards c ON c.id = r.card_id
       ${wheres.length > 0 ? 'WHERE' : ''} ${wheres.map(([, sql]) => sql).join(' AND ')} ORDER BY r.event_id DESC LIMIT ?`,
      ...wheres.flatMap(([, , ...values]) => values),
      limit,
    );
    return rows.map((row) => ({
      event_id: String(row.event_id),
      action: row.action,
      line: row.line,
      topic: row.topic,
      card_id: row.card_id,
      agent: row.agent,
      session_id: row.session_id,
      title: row.title,
      answer: answerOf(row),
      by: row.actor,
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
