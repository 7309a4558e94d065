// What was done with questions and answers, the newest first, by days.
import { post } from '../lib/api.js';
import { Rows, h, said, showIn } from '../lib/dom.js';
import { icon } from '../lib/icons.js';
import { clockTime, day } from '../lib/words.js';
import { nothing } from './empty.js';

const FIRST = 100;
const MOST = 1000;
const FILTERS = [
  ['all', 'Everything', () => true],
  ['arrived', 'Delivered', (action) => ['answer.typed', 'answer.handed', 'answer.kept'].includes(action)],
  [
    'not',
    'Not delivered',
    (action) =>
      [
        'answer.refused',
        'answer.failed',
        'answer.expired',
        'answer.unfinished',
        'answer.not_the_user',
        'card.agent_gone',
      ].includes(action),
  ],
];
const kindOf = (action) => (FILTERS[1][2](action) ? 'good' : FILTERS[2][2](action) ? 'warn' : 'plain');
const ICONS = { good: 'check', warn: 'warning', plain: 'receipts' };

export class ReceiptList {
  constructor() {
    this.element = h('div', {});
    this.none = nothing('receipts', 'Nothing yet', 'Each answer and what came of it leaves a line here.');
    this.days = new Rows(this.element, ([name, lines]) =>
      h(
        'section',
        { 'aria-label': name },
        h('h3', { class: 'day' }, name),
        h(
          'ul',
          { class: 'boxed' },
          lines.map((receipt) => this.line(receipt)),
        ),
      ),
    );
  }

  line(receipt) {
    const kind = kindOf(receipt.action);
    return h(
      'li',
      { class: `line receipt ${kind}` },
      icon(ICONS[kind]),
      said(receipt.line, 'span', { class: 'grow' }),
      h('span', { class: 'expert code' }, receipt.action),
      h(
        'time',
        { datetime: receipt.ts, title: new Date(receipt.ts).toLocaleString() },
        clockTime(receipt.ts),
      ),
    );
  }

  update(receipts) {
    const days = new Map();
    for (const receipt of receipts)
      days.set(day(receipt.ts), [...(days.get(day(receipt.ts)) ?? []), receipt]);
    this.days.update([...days].map(([name, lines]) => [name, [name, lines]]));
    if (receipts.length === 0) this.element.append(this.none);
    else this.none.remove();
  }
}

export class Receipts {
  title = 'Receipts';
  #limit = FIRST;
  #filter = 'all';

  constructor(query, id, { reload }) {
    this.reload = reload;
    this.list = new ReceiptList();
    this.chips = h('div', { class: 'segments', role: 'group', 'aria-label': 'Show' });
    this.more = h(
      'button',
      {
        type: 'button',
        class: 'more',
        hidden: true,
        onclick: () => {
          this.#limit = MOST;
          this.reload();
        },
      },
      'Show older ones',
    );
    this.element = h(
      'div',
      {},
      h('header', { class: 'top' }, h('h1', { tabindex: '-1' }, 'Receipts'), this.chips),
      this.list.element,
      this.more,
    );
  }

  load() {
    return post('/v1/receipts/list', { limit: this.#limit });
  }

  update({ receipts }) {
    const [, , passes] = FILTERS.find(([id]) => id === this.#filter);
    const choose = (id) => {
      this.#filter = id;
      this.update({ receipts });
      this.chips.querySelector('[aria-pressed="true"]').focus();
    };
    showIn(this.chips, [this.#filter, receipts.length], () =>
      FILTERS.map(([id, title]) =>
        h(
          'button',
          { type: 'button', 'aria-pressed': String(id === this.#filter), onclick: () => choose(id) },
          title,
        ),
      ),
    );
    this.list.update(receipts.filter((receipt) => passes(receipt.action)));
    this.more.hidden = receipts.length < this.#limit || this.#limit === MOST;
  }
}
