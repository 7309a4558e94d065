// The cards as a phone gets them, and what changed since it last did. Cards of restricted topics
// are never among them, nor requests, which are started at the computer alone.
import { randomBytes } from 'node:crypto';
import { fromRow } from './card-view.mjs';
import { agentDisplay, NEEDS_YOU } from '../shared/agents.js';
import { cut } from '../shared/text.js';

const MAX_CARDS = 60;
const MAX_BODY = 2000; // characters
const MAX_BYTES = 160_000; // of all cards: sealed they have to fit into one envelope
const SHOWN = [
  'id version kind risk state title options default rows menu held_until opened_at blocking answer',
  'delivery_note answerable maybe_typed',
].flatMap((line) => line.split(' '));

export class PhoneView {
  #cards = new Map(); // id -> {text, view}
  #life = randomBytes(4).toString('hex'); // numbers of another run of the daemon mean nothing
  #n = 0;

  constructor(app) {
    this.app = app;
  }

  get rev() {
    return `${this.#life}.${this.#n}`;
  }

  get cards() {
    return [...this.#cards.values()].map(({ view }) => view);
  }

  has(id) {
    return this.#cards.has(id);
  }

  #rows() {
    return this.app.store
      .all(
        `SELECT c.*, t.title AS topic_title, s.label AS session_label FROM cards c LEFT JOIN topics t ON t.id = c.topic
         LEFT JOIN sessions s ON s.agent = c.agent AND s.session_id = c.session_id
         WHERE c.state <> 'closed' AND c.gone_ms IS NULL AND c.restricted = 0 AND c.id NOT IN (SELECT card_id FROM requests) AND coalesce(t.restricted, 0) = 0
         AND +c.kind IN ('${NEEDS_YOU.join("','")}') ORDER BY c.seq LIMIT ${MAX_CARDS}`,
      )
      .map(fromRow);
  }

  #viewOf(row) {
    const full = this.app.cards.view(row);
    const view = Object.fromEntries(
      SHOWN.filter((name) => full[name] !== undefined).map((name) => [name, full[name]]),
    );
    return {
      ...view,
      agent: agentDisplay(row.agent, row.session_label),
      body: cut(row.body, MAX_BODY),
      ...(row.topic ? { topic: row.topic_title ?? row.topic } : {}),
      ...(row.refs?.last_refusal && row.state === 'open' ? { refusal: row.refs.last_refusal } : {}),
    };
  }

  /** Looks at the cards again; gives what changed, null when nothing has. */
  look() {
    const before = this.#cards;
    const now = new Map();
    let bytes = 0;
    for (const row of this.#rows()) {
      const view = this.#viewOf(row);
      const text = JSON.stringify(view);
      bytes += Buffer.byteLength(text);
      if (bytes > MAX_BYTES) break; // the next ones show as these are answered
      now.set(row.id, { view, text });
    }
    const set = [...now.values()]
      .filter(({ view, text }) => before.get(view.id)?.text !== text)
      .map(({ view }) => view);
    const del = [...before.keys()].filter((id) => !now.has(id));
    if (set.length === 0 && del.length === 0) return null;
    const from = this.rev;
    this.#cards = now;
    this.#n += 1;
    return { from, rev: this.rev, set, del };
  }

  /** What a phone that has `have` lacks: nothing, or everything. */
  since(have) {
    return have === this.rev
      ? { from: have, rev: have, set: [], del: [] }
      : { rev: this.rev, set: this.cards };
  }
}
