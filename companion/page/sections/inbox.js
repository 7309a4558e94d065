// The inbox: what needs the user, the most urgent first, and below it what nobody can answer any more.
import { post } from '../lib/api.js';
import { h, showIn } from '../lib/dom.js';
import { icon } from '../lib/icons.js';
import { caution, count } from '../lib/words.js';
import { announce } from '../lib/announce.js';
import { CardList, announceNew, needingYou } from '../card/list.js';
import { scope, SCOPES } from '../page/scope.js';

export class Inbox {
  title = 'Inbox';
  #known = null;
  #outcomes = new Map();

  constructor(query) {
    this.wanted = query.get('card');
    this.heading = h('h1', { tabindex: '-1' });
    this.relief = h('p', { class: 'soft lead' });
    this.scopes = h('div', { class: 'scopes', role: 'group', 'aria-label': 'Scope' });
    this.aside = h('div', {});
    this.lost = h('div', {});
    this.single = new CardList('The question that was asked for');
    this.list = new CardList('Questions that need you');
    this.clear = h('div', { class: 'clear' });
    this.gone = new CardList('Questions of agents that have ended');
    this.goneHead = h(
      'div',
      { class: 'row split group' },
      h('h2', {}, 'From agents that have ended'),
      h('button', { type: 'button', class: 'small', onclick: () => this.dismissGone() }, 'Dismiss all'),
    );
    this.element = h(
      'div',
      {},
      h('header', { class: 'top' }, h('div', {}, this.heading, this.relief), this.scopes),
      this.aside,
      this.lost,
      this.single.element,
      this.list.element,
      this.clear,
      this.goneHead,
      this.gone.element,
    );
    this.goneHead.hidden = true;
  }

  /** Told of each event before the reload that it causes. */
  onEvent(name, data) {
    if (name === 'card.closed') this.#outcomes.set(data.id, data.outcome);
  }

  async load() {
    const data = await post('/v1/inbox');
    // A link to a question that is over still shows it.
    if (this.wanted && !data.cards.some((card) => card.id === this.wanted))
      data.single = await post('/v1/cards/detail', { card_id: this.wanted }).then(
        (reply) => reply.card,
        () => null,
      );
    return data;
  }

  update(data) {
    const { counts, sessions, topics } = data;
    const scopeOf = new Map(topics.map((topic) => [topic.id, topic.scope]));
    const inScope = (card) => scope.shows(scopeOf.get(card.topic));
    const waiting = needingYou(data.cards);
    const shown = waiting.filter(inScope);
    const more = { sessions, topics, outcomes: this.#outcomes };
    showIn(this.heading, counts.needs_you, (n) => caution(n));
    showIn(this.relief, [counts.agents_working, counts.verified_today], ([working, delivered]) => [
      working > 0 ? `${count(working, 'agent')} working` : 'No agent is working',
      delivered > 0 ? ` · ${delivered} delivered today` : '',
    ]);
    this.list.update(shown, more);
    this.#showScopes(topics, waiting.length - shown.length);
    this.#showGone(
      data.cards.filter((card) => card.state === 'gone'),
      more,
    );
    this.#showSingle(data.single, more);
    showIn(this.clear, shown.length === 0 && counts.needs_you === 0, (empty) =>
      empty
        ? [h('div', { class: 'empty' }, icon('check'), h('p', {}, 'New questions land here first.'))]
        : [],
    );
    if (this.#known) announceNew(shown, this.#known);
    this.#known = new Set(shown.map((card) => card.id));
    this.#outcomes.clear();
    if (this.wanted && (this.list.focus(this.wanted) || this.gone.focus(this.wanted))) this.wanted = null;
    return { needsYou: counts.needs_you };
  }

  #showScopes(topics, hidden) {
    showIn(this.scopes, [topics.some((topic) => topic.scope), scope.name], ([any, name]) =>
      any
        ? SCOPES.map(([id, title]) =>
            h(
              'button',
              {
                type: 'button',
                class: 'kd-seg__item',
                'aria-pressed': String(id === name),
                onclick: () => scope.set(id),
              },
              title,
            ),
          )
        : [],
    );
    showIn(this.aside, hidden, () =>
      hidden > 0
        ? h(
            'p',
            { class: 'notice' },
            h(
              'span',
              {},
              `${count(hidden, 'question')} ${hidden === 1 ? 'belongs' : 'belong'} to another scope.`,
            ),
            h('button', { type: 'button', class: 'small', onclick: () => scope.set('all') }, 'Show all'),
          )
        : [],
    );
  }

  #showGone(cards, more) {
    this.goneHead.hidden = cards.length === 0;
    this.goneCards = cards;
    this.gone.update(cards, more);
  }

  /** `card` is a question that is over, null when there is none of that id, undefined when none was asked for. */
  #showSingle(card, more) {
    if (card === undefined) return;
    this.single.update(card ? [card] : [], more);
    showIn(this.lost, card === null, (lost) =>
      lost ? h('p', { class: 'notice' }, 'The question that was linked to is not known any more.') : [],
    );
    if (card) this.single.focus(card.id);
    this.wanted = null;
  }

  async dismissGone() {
    const cards = this.goneCards;
    const results = await Promise.allSettled(
      cards.map((card) => post('/v1/page/dismiss', { card_id: card.id, version: card.version })),
    );
    announce(
      `${count(results.filter((result) => result.status === 'fulfilled').length, 'question')} dismissed.`,
    );
    this.heading.focus();
  }
}
