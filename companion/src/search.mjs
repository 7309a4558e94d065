// Full-text search over what a user remembers: questions with their options, answers and receipts, topics with their
// agents. The index follows the tables by triggers, and is made anew when its layout has changed.
import { YOUR_REQUEST, agentName, agentNames } from '../shared/agents.js';
import { cut } from '../shared/text.js';
import { answerLine } from './answers.mjs';
import { iso } from './clock.mjs';
import { quoted, wordsOf } from './search-words.mjs';

const LAYOUT = '3'; // raise it with any change of the SQL below, or of how a text is spread

const LABELLED = 50; // sessions of a topic that lend it their labels, the last seen ones: each new one has it indexed anew

const index = (name) =>
  `CREATE VIRTUAL TABLE ${name} USING fts5(title, words, content='', contentless_delete=1, prefix='2 3 4 5 6', detail=full,
    tokenize="unicode61 remove_diacritics 2 categories 'L* N* Co M*'");`;
const put = (table, rowid, title, words) =>
  `INSERT INTO ${table} (rowid, title, words) SELECT ${rowid}, search_spread(${title}), search_spread(${words})`;

const CARD_WORDS = (card) =>
  `concat_ws(' ', ${card}.body, ${card}.options, ${card}.answer, ${card}.topic, ${card}.agent,
    (SELECT name FROM search_agents WHERE agent = ${card}.agent),
    (SELECT group_concat(value ->> 'text', ' ') FROM json_each(${card}.rows)))`;
const IS_ASKED = (card) => `${card}.state <> 'closed'`;
const IS_DECIDED = (card) => `${card}.state = 'closed' AND ${card}.outcome = 'answered'`;
const TOPIC_WORDS = (topic) =>
  `concat_ws(' ', ${topic}.id, ${topic}.folder, (SELECT group_concat(DISTINCT concat_ws(' ', s.agent, n.name))
    FROM sessions s LEFT JOIN search_agents n ON n.agent = s.agent WHERE s.topic = ${topic}.id),
    (SELECT group_concat(label, ' ') FROM (SELECT label FROM sessions
      WHERE topic = ${topic}.id ORDER BY seen_ms DESC LIMIT ${LABELLED})))`;
/** Whether a session that has gone leaves words behind. */
const LEFT_WORDS = `old.topic IS NOT NULL AND (
  NOT EXISTS (SELECT 1 FROM sessions WHERE agent = old.agent AND topic = old.topic)
  OR old.label IS NOT NULL AND ${LABELLED} > (SELECT count(*) FROM
    (SELECT 1 FROM sessions WHERE topic = old.topic AND seen_ms > old.seen_ms LIMIT ${LABELLED})))`;

const putCard = (table, card) => put(table, `${card}.seq`, `${card}.title`, CARD_WORDS(card));
const addCard = (card) =>
  `${putCard('search_questions', card)} WHERE ${IS_ASKED(card)}; ${putCard('search_decisions', card)} WHERE ${IS_DECIDED(card)};`;
const dropCard =
  'DELETE FROM search_questions WHERE rowid = old.seq; DELETE FROM search_decisions WHERE rowid = old.seq;';
const addTopic = (where) =>
  `${put('search_topics', 't.rowid', 't.title', TOPIC_WORDS('t'))} FROM topics t ${where};`;
const againTopic = (id) =>
  `DELETE FROM search_topics WHERE rowid = (SELECT rowid FROM topics WHERE id = ${id}); ${addTopic(`WHERE t.id = ${id}`)}`;

const differs = (names) => names.map((name) => `old.${name} IS NOT new.${name}`).join(' OR ');
const COLUMNS = ['title', 'body', 'options', 'answer', 'topic', 'agent', 'rows'];

// The rows of `topics` keep their rowids, since nothing here ever vacuums.
const MAKE = `
  CREATE INDEX search_sessions ON sessions (topic, seen_ms);
  CREATE TABLE search_agents (agent TEXT PRIMARY KEY, name TEXT NOT NULL) STRICT;
  ${['search_questions', 'search_decisions', 'search_receipts', 'search_topics'].map(index).join('\n')}
  CREATE TRIGGER search_card_in AFTER INSERT ON cards BEGIN ${addCard('new')} END;
  CREATE TRIGGER search_card_up AFTER UPDATE OF state, ${COLUMNS.join(', ')} ON cards
    WHEN (old.state = 'closed') <> (new.state = 'closed') OR ${differs(COLUMNS)} BEGIN ${dropCard} ${addCard('new')} END;
  CREATE TRIGGER search_card_out AFTER DELETE ON cards BEGIN ${dropCard} END;
  CREATE TRIGGER search_receipt_in AFTER INSERT ON receipts BEGIN
    ${put('search_receipts', 'new.event_id', 'new.line', 'new.topic')}; END;
  CREATE TRIGGER search_receipt_out AFTER DELETE ON receipts BEGIN
    DELETE FROM search_receipts WHERE rowid = old.event_id; END;
  CREATE TRIGGER search_topic_in AFTER INSERT ON topics BEGIN ${addTopic('WHERE t.rowid = new.rowid')} END;
  CREATE TRIGGER search_topic_up AFTER UPDATE OF title, folder ON topics WHEN ${differs(['title', 'folder'])} BEGIN
    ${againTopic('new.id')} END;
  CREATE TRIGGER search_topic_out AFTER DELETE ON topics BEGIN DELETE FROM search_topics WHERE rowid = old.rowid; END;
  CREATE TRIGGER search_session_in AFTER INSERT ON sessions WHEN new.topic IS NOT NULL BEGIN ${againTopic('new.topic')} END;
  CREATE TRIGGER search_session_up AFTER UPDATE OF topic, label ON sessions WHEN ${differs(['topic', 'label'])} BEGIN
    ${againTopic('old.topic')} ${againTopic('new.topic')} END;
  CREATE TRIGGER search_session_out AFTER DELETE ON sessions WHEN ${LEFT_WORDS} BEGIN ${againTopic('old.topic')} END;`;
const FILL = `
  ${putCard('search_questions', 'c')} FROM cards c WHERE ${IS_ASKED('c')};
  ${putCard('search_decisions', 'c')} FROM cards c WHERE ${IS_DECIDED('c')};
  ${put('search_receipts', 'event_id', 'line', 'topic')} FROM receipts;
  ${addTopic('')}`;

const LONGEST = 12; // words of a query

/**
 * What a query asks of the index, to be tried in turn; empty when it has no words. The word that is being
 * typed counts from its second character on and is the beginning of one; those before it are whole, or else
 * beginnings as well.
 */
function wanted(query) {
  const words = wordsOf(query).slice(0, LONGEST);
  const last = words.at(-1);
  if (words.length > 1 && [...last].length < 2) words.pop();
  const beginning = (word) => ([...word].length < 2 ? quoted(word) : `${quoted(word)}*`);
  const whole = words.map((word, index) => (index === words.length - 1 ? beginning(word) : quoted(word)));
  return [...new Set([whole.join(' '), words.map(beginning).join(' ')])].filter(Boolean);
}

/** The piece of a text around the first of the words, on one line. */
function excerpt(text, query, most) {
  const line = text.replace(/\s+/g, ' ').trim();
  const words = query.toLowerCase().split(/\s+/).filter(Boolean);
  const at = Math.min(
    ...words.map((word) => line.toLowerCase().indexOf(word)).filter((place) => place >= 0),
    line.length,
  );
  const from = at === line.length || at < most / 2 ? 0 : line.lastIndexOf(' ', at - most / 4) + 1;
  return cut((from > 0 ? '… ' : '') + line.slice(from), most);
}

const day = (ms) => iso(ms).slice(0, 10);
const joined = (...parts) => parts.filter(Boolean).join(' · ');

export class Search {
  constructor(app) {
    this.app = app;
    this.store = app.store;
    if (this.store.setting('search_layout') !== LAYOUT) this.#make();
  }

  #make() {
    this.store.tx(() => {
      for (const { type, name } of this.store.all(
        "SELECT type, name FROM sqlite_schema WHERE name GLOB 'search_*' AND (type IN ('trigger', 'index') OR sql LIKE 'CREATE VIRTUAL %' OR name = 'search_agents')",
      ))
        this.store.exec(`DROP ${type} ${name}`);
      this.store.exec(MAKE);
      for (const [agent, name] of Object.entries(agentNames))
        this.store.insert('search_agents', { agent, name });
      this.store.exec(FILL);
      this.store.keepSetting('search_layout', LAYOUT);
    });
  }

  /**
   * Topics, decisions and open questions for a query, at most `limit` in all: first what has the words in its
   * title, the newest first. Each kind gets its share, and what one does not use goes to the others.
   */
  find(query, limit) {
    const words = wanted(query);
    if (words.length === 0) return { topics: [], decisions: [], questions: [] };
    const questions = this.#cards('search_questions', words, limit);
    const answers = this.#cards('search_decisions', words, limit);
    const told = new Set([...questions, ...answers].map(({ id }) => id));
    const receipts = answers.length < limit ? this.#receipts(words, limit, told) : [];
    const found = {
      questions: questions.map((card) => this.#questionHit(card, query)),
      topics: this.#topics(words, limit).map((topic) => this.#topicHit(topic)),
      decisions: [
        ...answers.map((card) => this.#decisionHit(card, query)),
        ...receipts.map((receipt) => this.#receiptHit(receipt)),
      ],
    };
    const shares = { questions: 0, topics: 0, decisions: 0 };
    for (let left = limit, more = true; left > 0 && more; ) {
      more = false;
      for (const kind of Object.keys(shares)) {
        if (left === 0 || shares[kind] === found[kind].length) continue;
        shares[kind]++;
        left--;
        more = true;
      }
    }
    return Object.fromEntries(
      ['topics', 'decisions', 'questions'].map((kind) => [kind, found[kind].slice(0, shares[kind])]),
    );
  }

  /** The topics that share a word with a sentence, the last used first; none when the index is damaged. */
  topicsLike(text) {
    const words = wordsOf(text)
      .filter((word) => word.length > 1)
      .slice(0, 200);
    if (words.length === 0) return [];
    try {
      return this.store.all(
        `SELECT t.id, t.title, t.folder FROM search_topics s JOIN topics t ON t.rowid = s.rowid
         WHERE search_topics MATCH ? ORDER BY t.touched_ms DESC LIMIT 500`,
        words.map(quoted).join(' OR '),
      );
    } catch (error) {
      this.app.wentWrong(error); // a request without its topic is better than none
      return [];
    }
  }

  /** The rowids that hold the words: those with all of them in the title first, then the others; the newest first. */
  #ids(table, [words, ...instead], limit) {
    const all = this.#matches(table, words, limit);
    if (all.length === 0) return instead.length === 0 ? [] : this.#ids(table, instead, limit);
    return [...new Set([...this.#matches(table, `title : (${words})`, limit), ...all])].slice(0, limit);
  }

  #matches(table, match, limit) {
    return this.store
      .all(`SELECT rowid FROM ${table} WHERE ${table} MATCH ? ORDER BY rowid DESC LIMIT ?`, match, limit)
      .map(({ rowid }) => rowid);
  }

  #cards(table, words, limit) {
    return this.#ids(table, words, limit).map((seq) =>
      this.store.get(
        `SELECT id, topic, agent, title, body, options, answer, rows, closed_ms,
           EXISTS (SELECT 1 FROM requests WHERE card_id = cards.id) AS requested FROM cards WHERE seq = ?`,
        seq,
      ),
    );
  }

  /** Receipts of cards that were found already, or of one card twice, tell nothing new. Old cards may be gone. */
  #receipts(words, limit, told) {
    return this.#matches('search_receipts', words[0], limit * 4)
      .map((id) =>
        this.store.get(
          'SELECT r.*, c.id AS card FROM receipts r LEFT JOIN cards c ON c.id = r.card_id WHERE event_id = ?',
          id,
        ),
      )
      .filter(({ card_id: id }) => id === null || (!told.has(id) && told.add(id)))
      .slice(0, limit);
  }

  #topics(words, limit) {
    return this.#ids('search_topics', words, limit).map((rowid) =>
      this.store.get('SELECT id, title, folder FROM topics WHERE rowid = ?', rowid),
    );
  }

  #hit(kind, { id, topic, title, snippet, card, answer, closed_at }) {
    const fields = {
      kind,
      id,
      topic,
      title: cut(title, 200),
      snippet: cut(snippet.replace(/\s+/g, ' '), 160),
      card,
      answer,
      closed_at,
    };
    return Object.fromEntries(Object.entries(fields).filter(([, value]) => (value ?? null) !== null));
  }

  #where(card) {
    return joined(card.requested ? YOUR_REQUEST : agentName(card.agent), this.app.topics.title(card.topic));
  }

  #questionHit(card, query) {
    const options = JSON.parse(card.options).join(' / ');
    const snippet = joined(this.#where(card), excerpt(joined(options, card.body), query, 100));
    return this.#hit('question', { ...card, answer: null, snippet, card: card.id });
  }

  #decisionHit(card, query) {
    const { rows, closed_ms: at } = card;
    const answer = JSON.parse(card.answer);
    const said = answer === null ? '' : answerLine({ rows: JSON.parse(rows) }, answer);
    const snippet = joined(
      said && `“${cut(said, 60)}”`,
      this.#where(card),
      at === null ? '' : day(at),
      excerpt(card.body, query, 60),
    );
    const closedAt = at === null ? null : iso(at);
    return this.#hit('decision', { ...card, snippet, card: card.id, answer, closed_at: closedAt });
  }

  #receiptHit({ event_id: event, line, topic, card, ts_ms: at }) {
    return this.#hit('decision', {
      id: `receipt-${event}`,
      topic,
      title: line,
      snippet: joined('Receipt', this.app.topics.title(topic), day(at)),
      card,
    });
  }

  #topicHit({ id, title, folder }) {
    const agents = this.store.all(
      'SELECT DISTINCT agent FROM sessions WHERE topic = ? ORDER BY seen_ms DESC LIMIT 4',
      id,
    );
    const { open } = this.store.get(
      "SELECT count(*) AS open FROM cards WHERE topic = ? AND state <> 'closed' AND gone_ms IS NULL",
      id,
    );
    const asks = open === 0 ? '' : `${open} open question${open === 1 ? '' : 's'}`;
    const snippet = joined(asks, agents.map(({ agent }) => agentName(agent)).join(', '), folder ?? id);
    return this.#hit('topic', { id, topic: id, title, snippet });
  }
}
