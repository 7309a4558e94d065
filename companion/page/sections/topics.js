// The board of topics, and one topic with its questions and what was done in it.
import { post } from '../lib/api.js';
import { Rows, h, said, showIn } from '../lib/dom.js';
import { icon } from '../lib/icons.js';
import { count } from '../lib/words.js';
import { CardList } from '../card/list.js';
import { tellShell } from '../page/shell.js';
import { closedCards } from './closed-cards.js';
import { ReceiptList } from './receipts.js';
import { nothing } from './empty.js';

export class Topics {
  title = 'Topics';

  constructor() {
    this.rows = new Rows(h('ul', { class: 'boxed' }), (topic) =>
      h(
        'li',
        {},
        h(
          'a',
          { class: 'line', href: `/topics/${encodeURIComponent(topic.id)}` },
          icon('topics'),
          said(topic.title, 'span', { class: 'grow' }),
          topic.open_cards > 0
            ? h('span', { class: 'badge' }, topic.open_cards, h('span', { class: 'unseen' }, ' open'))
            : h('span', { class: 'soft' }, 'Nothing open'),
        ),
      ),
    );
    this.none = h('div', {});
    this.element = h(
      'div',
      {},
      h('header', { class: 'top' }, h('h1', { tabindex: '-1' }, 'Topics')),
      this.rows.element,
      this.none,
    );
  }

  load() {
    return post('/v1/board');
  }

  update({ topics }) {
    this.rows.update(topics.map((topic) => [topic.id, topic]));
    showIn(this.none, topics.length === 0, (none) =>
      none
        ? nothing(
            'topics',
            'No topics yet',
            'A question names what it is about, or the folder that it was asked in does.',
          )
        : [],
    );
  }
}

export class Topic {
  title = 'Topic';

  constructor(query, id) {
    this.id = id;
    this.heading = h('h1', { tabindex: '-1' });
    this.folder = h('div', {});
    this.cards = new CardList('Questions of this topic');
    this.earlier = h('div', {});
    this.receipts = new ReceiptList();
    this.element = h(
      'div',
      {},
      h(
        'header',
        { class: 'top' },
        h(
          'div',
          {},
          h('p', { class: 'crumb' }, h('a', { href: '/topics' }, icon('back'), 'Topics')),
          this.heading,
          this.folder,
        ),
      ),
      this.cards.element,
      this.earlier,
      h('h2', { class: 'group' }, 'Activity'),
      this.receipts.element,
    );
  }

  async load() {
    const [detail, agents] = await Promise.all([
      post('/v1/topic/detail', { topic: this.id }),
      post('/v1/agents/status'),
    ]);
    return { ...detail, sessions: agents.sessions };
  }

  update({ topic, folder, cards, receipts, sessions }) {
    this.title = topic.title;
    showIn(this.heading, topic.title, (title) => said(title));
    showIn(this.folder, folder ?? null, () =>
      folder
        ? h(
            'p',
            { class: 'row soft' },
            icon('folder'),
            said(folder, 'code'),
            h(
              'button',
              {
                type: 'button',
                class: 'small native-only',
                onclick: () => tellShell({ type: 'action', action: 'openFolder', topic: this.id }),
              },
              'Open folder',
            ),
          )
        : [],
    );
    const open = cards.filter((card) => card.state !== 'closed');
    const closed = cards.filter((card) => card.state === 'closed');
    this.cards.update(open, { sessions, topics: [topic] });
    showIn(this.earlier, closed, () =>
      closed.length
        ? h(
            'details',
            { class: 'earlier', open: this.earlier.querySelector('details')?.open },
            h('summary', {}, count(closed.length, 'earlier question')),
            closedCards(closed),
          )
        : [],
    );
    this.receipts.update(receipts);
  }
}
