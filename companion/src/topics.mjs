import { Refusal } from './errors.mjs';
import { clock } from './clock.mjs';

/** What questions are about. A topic comes into being with the first question or session that names it. */
export class Topics {
  constructor({ store, hub }) {
    this.store = store;
    this.hub = hub;
  }

  /**
   * Called in a transaction. A title, folder or scope that is given replaces the old one; one that is not
   * leaves it. Restricted, it stays so.
   */
  touch(id, { title, folder, scope, restricted } = {}, now = clock.now()) {
    if (id === undefined || id === null) return;
    this.store.run(
      `INSERT INTO topics (id, title, folder, touched_ms, scope) VALUES (?1, coalesce(?2, ?1), ?3, ?4, ?5)
       ON CONFLICT (id) DO UPDATE SET title = coalesce(?2, title), folder = coalesce(?3, folder), touched_ms = ?4, scope = coalesce(?5, scope)`,
      id,
      title ?? null,
      folder ?? null,
      now,
      scope ?? null,
    );
    if (restricted) this.store.run('UPDATE topics SET restricted = 1 WHERE id = ?', id);
  }

  board() {
    return this.store
      .all(
        `SELECT t.id, t.title, t.scope, coalesce(o.n, 0) AS open_cards FROM topics t LEFT JOIN
         (SELECT topic, count(*) AS n FROM cards INDEXED BY cards_live WHERE state <> 'closed' AND gone_ms IS NULL GROUP BY topic) o
         ON o.topic = t.id ORDER BY open_cards DESC, t.touched_ms DESC, t.id`,
      )
      .map(({ scope, ...row }) => (scope ? { ...row, scope } : row));
  }

  title(id) {
    return id ? (this.store.get('SELECT title FROM topics WHERE id = ?', id)?.title ?? null) : null;
  }

  detail(id, cards, receipts) {
    const row = this.store.get('SELECT id, title, folder FROM topics WHERE id = ?', id);
    if (!row) throw new Refusal('unknown_topic', 404, `There is no topic "${id}".`);
    return {
      ...(row.folder ? { folder: row.folder } : {}),
      topic: { id: row.id, title: row.title },
      cards: cards.ofTopic(id),
      receipts: receipts.list({ limit: 100, topic: id }),
    };
  }
}
