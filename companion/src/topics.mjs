import { Refusal } from './errors.mjs';
import { agentName } from '../shared/agents.js';
import { cut } from '../shared/text.js';
import { answerLine } from './answers.mjs';
import { clock, iso } from './clock.mjs';
import { like } from './receipts.mjs';

/** The answer of a card's row, cut to be shown. */
const answerOf = ({ answer, rows }) =>
  answer === null ? undefined : cut(answerLine({ rows: JSON.parse(rows) }, JSON.parse(answer)), 160);

/** What questions are about. A topic comes into being with the first question or session that names it. */
export class Topics {
  constructor({ store, hub }) {
    this.store = store;
    this.hub = hub;
  }

  /** Called in a transaction. A title, folder or scope that is given replaces the old one; one that is not leaves it. */
  touch(id, { title, folder, scope } = {}, now = clock.now()) {
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

  /** Topics, answered and open questions that hold `query`, the newest first, at most `limit` of each. */
  search(query, limit) {
    const wanted = like(query);
    const hit = (kind) => (row) => ({
      kind,
      id: row.id,
      topic: row.topic,
      title: row.title,
      snippet: cut((row.snippet || agentName(row.agent)).replace(/\s+/g, ' '), 160),
      ...(row.closed_ms ? { answer: answerOf(row), at: iso(row.closed_ms) } : {}),
    });
    const cards = (state) =>
      this.store.all(
        `SELECT id, topic, title, answer, rows, closed_ms, agent, body AS snippet FROM cards
       WHERE (${state}) AND (title LIKE ?1 ESCAPE '\\' OR body LIKE ?1 ESCAPE '\\' OR topic LIKE ?1 ESCAPE '\\') ORDER BY seq DESC LIMIT ?2`,
        wanted,
        limit,
      );
    return {
      topics: this.store
        .all(
          `SELECT id, id AS topic, title, coalesce(folder, id) AS snippet FROM topics WHERE title LIKE ?1 ESCAPE '\\' OR id LIKE ?1 ESCAPE '\\'
         ORDER BY touched_ms DESC LIMIT ?2`,
          wanted,
          limit,
        )
        .map(hit('topic')),
      decisions: cards("state = 'closed' AND outcome = 'answered'").map(hit('decision')),
      questions: cards("state <> 'closed'").map(hit('question')),
    };
  }
}
