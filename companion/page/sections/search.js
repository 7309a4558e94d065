// What the daemon knows of some words: topics, decisions, and questions that are open.
import { within } from '/shared/text.js';
import { post } from '../lib/api.js';
import { Rows, h, said, showIn } from '../lib/dom.js';
import { icon } from '../lib/icons.js';
import { announce } from '../lib/announce.js';
import { count, moment } from '../lib/words.js';
import { nothing } from './empty.js';

const KINDS = [
  ['topics', 'Topics', 'topics'],
  ['questions', 'Open questions', 'inbox'],
  ['decisions', 'Decisions', 'check'],
];
const MOST = 200;

/** The text with every place marked where `query` stands in it. */
function marked(text, query) {
  const parts = [];
  const low = text.toLowerCase();
  const wanted = query.toLowerCase();
  let from = 0;
  for (
    let at = low.length === text.length ? low.indexOf(wanted) : -1;
    at >= 0;
    at = low.indexOf(wanted, from)
  ) {
    parts.push(text.slice(from, at), h('mark', {}, text.slice(at, at + wanted.length)));
    from = at + wanted.length;
  }
  return [...parts, text.slice(from)];
}

export class Search {
  #told = ''; // the words whose number of hits was announced

  constructor(query, id, { finder }) {
    this.heading = h('h1', { tabindex: '-1' });
    this.groups = new Rows(h('div', {}), ([kind, hits]) => this.group(kind, hits));
    this.none = h('div', {});
    this.element = h(
      'div',
      {},
      h('header', { class: 'top' }, this.heading),
      // For where the page has no search field above it.
      h('div', { class: 'search own-search' }, icon('search'), finder.field()),
      this.groups.element,
      this.none,
    );
    this.follow(query);
  }

  /** Other words are looked for; what shows stays until they are found. */
  follow(query) {
    this.query = within((query.get('q') ?? '').trim(), MOST);
    this.title = this.query ? `Search: ${this.query}` : 'Search';
    return true;
  }

  async load() {
    const { query } = this;
    return { query, ...(query ? await post('/v1/search', { q: query, limit: 20 }) : {}) };
  }

  group([key, title, symbol], hits) {
    const href = (hit) => {
      if (key === 'topics') return `/topics/${encodeURIComponent(hit.id)}`;
      if (hit.card) return `/?card=${encodeURIComponent(hit.card)}`;
      return hit.topic ? `/topics/${encodeURIComponent(hit.topic)}` : '/receipts';
    };
    return h(
      'section',
      { 'aria-label': title },
      h('h2', { class: 'group' }, title),
      h(
        'ul',
        { class: 'boxed' },
        hits.map((hit) =>
          h(
            'li',
            {},
            h(
              'a',
              { class: 'line', href: href(hit) },
              icon(symbol),
              h(
                'span',
                { class: 'grow', dir: 'auto' },
                h('span', { class: 'strong' }, marked(hit.title, this.query)),
                h('span', { class: 'soft sub' }, marked(hit.snippet, this.query)),
              ),
              hit.closed_at ? h('time', { datetime: hit.closed_at }, moment(hit.closed_at)) : null,
            ),
          ),
        ),
      ),
    );
  }

  update(data) {
    if (data.query !== this.query) return; // the words have changed meanwhile
    showIn(this.heading, this.query, (query) => (query ? ['Search: ', said(query)] : 'Search'));
    const found = KINDS.filter(([key]) => data[key]?.length);
    this.groups.update(found.map((kind) => [kind[0], [kind, data[kind[0]], this.query]]));
    const total = found.reduce((sum, [key]) => sum + data[key].length, 0);
    showIn(this.none, total === 0 && this.query, () =>
      total === 0
        ? nothing(
            'search',
            this.query ? 'Nothing found' : 'Search topics, questions and decisions',
            this.query ? 'Try fewer or other words.' : 'Type some words into the search field.',
          )
        : [],
    );
    if (this.query && this.#told !== this.query)
      announce(total ? `${count(total, 'result')}.` : 'Nothing found.');
    this.#told = this.query;
  }
}
