// The inbox: what needs the user, the most urgent first, and below it what nobody can answer any more.
import { post } from '../lib/api.js';
import { icon } from '../lib/icons.js';
import { ACTIONS } from '/shared/words.js';
import { Rows, h, said, showIn } from '../lib/dom.js';
import { keyOf, nameOf, placeOf } from '../lib/who.js';
import { caution, count, moment } from '../lib/words.js';
import { announce } from '../lib/announce.js';
import { CardList, announceNew, needingYou } from '../card/list.js';
import { scope, SCOPES } from '../page/scope.js';

export class Inbox {
  title = 'Inbox';
  #known = null;
  #outcomes = new Map();

  constructor(query) {
    this.linked = query.get('card'); // until it is found in the list
    this.wanted = this.linked; // until it has had the focus
    this.asker = query.get('agent') && { agent: query.get('agent'), session_id: query.get('session') };
    this.heading = h('h1', { tabindex: '-1' });
    this.relief = h('p', { class: 'soft lead' });
    this.scopes = h('div', { class: 'scopes', role: 'group', 'aria-label': 'Scope' });
    this.aside = h('div', {});
    this.lost = h('div', {});
    this.single = new CardList('The question that was asked for');
    this.list = new CardList('Questions that need you');
    this.clear = h('div', { class: 'clear' });
    this.snoozed = new Rows(h('ul', { class: 'boxed' }), (card) => this.sleeping(card));
    this.snoozedHead = h('summary', {});
    this.snoozedPart = h(
      'details',
      { class: 'earlier', hidden: true },
      this.snoozedHead,
      this.snoozed.element,
    );
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
      this.snoozedPart,
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
    if (data.cards.some((card) => card.id === this.linked && !card.snoozed_until)) this.linked = null;
    if (this.linked)
      data.single = await post('/v1/cards/detail', { card_id: this.linked }).then(
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
    const asked = this.asker && keyOf(this.asker);
    const shown = waiting.filter((card) => (asked ? keyOf(card) === asked : inScope(card)));
    const asleep = data.cards.filter((card) => card.snoozed_until && card.state !== 'gone');
    for (const { id } of asleep) this.#outcomes.set(id, 'snoozed');
    const more = { sessions, topics, outcomes: this.#outcomes };
    showIn(this.heading, counts.needs_you, (n) => caution(n));
    showIn(
      this.relief,
      [counts.agents_working, counts.verified_today, asleep.length],
      ([working, delivered]) => [
        working > 0 ? `${count(working, 'agent')} working` : 'No agent is working',
        delivered > 0 ? ` · ${delivered} delivered today` : '',
        asleep.length > 0 ? ` · ${asleep.length} snoozed` : '',
      ],
    );
    this.snoozedPart.hidden = asleep.length === 0;
    showIn(this.snoozedHead, asleep.length, (n) => count(n, 'snoozed question'));
    this.snoozed.update(asleep.map((card) => [card.id, card]));
    this.list.update(shown, more);
    if (asked) this.#showAsker(sessions, shown.length);
    else this.#showScopes(topics, waiting.length - shown.length);
    this.#showGone(
      data.cards.filter((card) => card.state === 'gone'),
      more,
    );
    this.#showSingle(data.single, more);
    showIn(this.clear, !asked && shown.length === 0 && counts.needs_you === 0, (empty) =>
      empty
        ? [h('div', { class: 'empty' }, icon('check'), h('p', {}, 'New questions land here first.'))]
        : [],
    );
    if (this.#known) announceNew(shown, this.#known);
    this.#known = new Set(shown.map((card) => card.id));
    // What a read that is under way doesn't know of yet is told with the next one.
    for (const [id, outcome] of this.#outcomes)
      if (outcome === 'snoozed' || !data.cards.some((card) => card.id === id)) this.#outcomes.delete(id);
    if (this.wanted && (this.list.focus(this.wanted) || this.gone.focus(this.wanted))) this.wanted = null;
    return { needsYou: counts.needs_you };
  }

  #showScopes(topics, hidden) {
    showIn(this.scopes, [[...new Set(topics.map((topic) => topic.scope))], scope.name], ([used, name]) =>
      used.some(Boolean)
        ? SCOPES.filter(([id]) => ['all', name, ...used].includes(id)).map(([id, title]) =>
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

  /** Only one agent's questions show; says whose, and leads back to all. */
  #showAsker(sessions, n) {
    const session = sessions.find((row) => keyOf(row) === keyOf(this.asker)) ?? this.asker;
    showIn(this.aside, [session, n], () =>
      h(
        'p',
        { class: 'notice' },
        h(
          'span',
          {},
          `${count(n, 'question')} of `,
          said([nameOf(session), placeOf(session)].filter(Boolean).join(', ')),
        ),
        h('a', { href: '/' }, 'Show all'),
      ),
    );
  }

  /** A line for a question that is put off. */
  sleeping(card) {
    return h(
      'li',
      { class: 'line' },
      icon('snooze'),
      h(
        'span',
        { class: 'grow' },
        h('a', { class: 'strong', href: `/?card=${encodeURIComponent(card.id)}` }, said(card.title)),
        h('span', { class: 'soft sub' }, said(nameOf(card)), ` · until ${moment(card.snoozed_until)}`),
      ),
      h(
        'button',
        {
          type: 'button',
          class: 'small',
          'aria-label': `${ACTIONS.wake.word}: ${card.title}`,
          onclick: () => this.wake(card),
        },
        ACTIONS.wake.word,
      ),
    );
  }

  async wake(card) {
    try {
      await post('/v1/page/wake', { card_id: card.id });
      announce(`Awake again: ${card.title}`);
    } catch (error) {
      announce(error.message);
    }
  }

  #showGone(cards, more) {
    this.goneHead.hidden = cards.length === 0 || Boolean(this.asker);
    this.goneCards = cards;
    this.gone.update(this.asker ? [] : cards, more);
  }

  /** `card` is a question that is over, null when there is none of that id, undefined when none was asked for. */
  #showSingle(card, more) {
    this.single.update(card ? [card] : [], more);
    showIn(this.lost, card === null, (lost) =>
      lost ? h('p', { class: 'notice' }, 'The question that was linked to is not known any more.') : [],
    );
    if (card && this.wanted && this.single.focus(card.id)) this.wanted = null;
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
