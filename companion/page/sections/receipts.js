// What was done with questions and answers, the newest first, by days.
import { agentName } from '/shared/agents.js';
import { OUTCOME } from '/shared/words.js';
import { post } from '../lib/api.js';
import { Rows, h, said, showIn } from '../lib/dom.js';
import { icon } from '../lib/icons.js';
import { nameOf } from '../lib/who.js';
import { brief, clockTime, curly, day } from '../lib/words.js';
import { nothing } from './empty.js';

const FIRST = 100;
const MOST = 1000;
const TYPING_MS = 250;

// What each receipt tells of: its kind, and the words for it; {to} is the agent.
const TOLD = {
  'answer.held': ['plain', 'Answer pressed for {to}'],
  'answer.undone': ['plain', 'Answer taken back'],
  'answer.typed': ['good', 'Typed for {to}'],
  'answer.handed': ['good', 'Handed to {to}'],
  'answer.kept': ['good', 'Kept for {to}'],
  'answer.overtaken': ['warn', 'Typed for {to}, which had gone on'],
  'answer.refused': ['warn', 'Not delivered to {to}'],
  'answer.failed': ['warn', 'Not delivered to {to}'],
  'answer.expired': ['warn', 'Not delivered to {to}'],
  'answer.unfinished': ['warn', 'Perhaps not delivered to {to}'],
  'answer.not_the_user': ['warn', 'A program of {to} tried to answer, and was refused'],
  'card.agent_gone': ['warn', '{to} ended before it had an answer'],
  'card.dismissed': ['plain', OUTCOME.dismissed],
  'card.withdrawn': ['plain', '{to} no longer asks'],
  'card.went_on': ['plain', '{to} went on'],
};
const FILTERS = [
  ['all', 'Everything', () => true],
  ['arrived', 'Delivered', (kind) => kind === 'good'],
  ['not', 'Not delivered', (kind) => kind === 'warn'],
];
const ICONS = { good: 'check', warn: 'warning', plain: 'receipts' };
const BY = { app: 'by you in Kelvadrome', browser: 'by you in a browser' };
const kindOf = ({ action }) => TOLD[action]?.[0] ?? 'plain';

/** What came of it, to whom, why not, and by whom. */
function details(receipt) {
  const { action, agent, answer, by, line, title } = receipt;
  const words = TOLD[action][1].replace('{to}', agent ? nameOf(receipt) : agentName(agent));
  const [, reason] = title ? line.split(`"${title}": `) : [];
  return [
    answer ? [said(`“${brief(answer)}”`), ' · '] : null,
    said(words),
    BY[by] ? `, ${BY[by]}` : null,
    reason ? [': ', said(curly(reason))] : null,
  ];
}

/** A line of history. One that names no question says in its own words what happened. */
function lineOf(receipt) {
  const kind = kindOf(receipt);
  const { action, card_id: card, title, line, ts } = receipt;
  const known = title && TOLD[action];
  return h(
    'li',
    { class: `line receipt ${kind}` },
    icon(ICONS[kind]),
    h(
      'span',
      { class: 'grow' },
      known && card
        ? h('a', { class: 'strong', href: `/?card=${encodeURIComponent(card)}` }, said(title))
        : said(known ? title : curly(line)),
      known ? h('span', { class: 'soft sub' }, details(receipt)) : null,
    ),
    h('span', { class: 'expert code' }, action),
    h('time', { datetime: ts, title: new Date(ts).toLocaleString() }, clockTime(ts)),
  );
}

export class ReceiptList {
  constructor() {
    this.element = h('div', {});
    this.none = h('div', {});
    this.days = new Rows(this.element, ([name, lines]) =>
      h(
        'section',
        { 'aria-label': name },
        h('h3', { class: 'day' }, name),
        h('ul', { class: 'boxed' }, lines.map(lineOf)),
      ),
    );
  }

  /** `sought` when only a part of them is looked for. */
  update(receipts, sought = false) {
    const days = new Map();
    for (const receipt of receipts)
      days.set(day(receipt.ts), [...(days.get(day(receipt.ts)) ?? []), receipt]);
    this.days.update([...days].map(([name, lines]) => [name, [name, lines]]));
    showIn(this.none, sought, () =>
      sought
        ? nothing('search', 'Nothing found', 'Try fewer words, another agent or other days.')
        : nothing('receipts', 'Nothing yet', 'Each answer and what came of it leaves a line here.'),
    );
    if (receipts.length === 0) this.element.append(this.none);
    else this.none.remove();
  }
}

/** The first moment of a day of this machine's calendar, `days` later; undefined without a day. */
function startOf(text, days = 0) {
  if (!text) return undefined;
  const [year, month, date] = text.split('-').map(Number);
  return new Date(year, month - 1, date + days).toISOString();
}

export class Receipts {
  title = 'Receipts';
  #limit = FIRST;
  #filter = 'all';
  #agents = new Set();

  constructor(query, id, { reload }) {
    this.reload = reload;
    this.list = new ReceiptList();
    this.chips = h('div', { class: 'segments', role: 'group', 'aria-label': 'Show' });
    let typing = null;
    const later = () => {
      clearTimeout(typing);
      typing = setTimeout(reload, TYPING_MS);
    };
    this.text = h('input', {
      type: 'search',
      'aria-label': 'Text of receipts',
      placeholder: 'Question, topic or answer',
      autocomplete: 'off',
      maxlength: '200',
      dir: 'auto',
      oninput: later,
    });
    this.agent = h(
      'select',
      { 'aria-label': 'Agent', onchange: reload },
      h('option', { value: '' }, 'All agents'),
    );
    this.since = h('input', { type: 'date', 'aria-label': 'From', onchange: reload });
    this.until = h('input', { type: 'date', 'aria-label': 'To', onchange: reload });
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
      h(
        'form',
        { class: 'filters', role: 'search', onsubmit: (event) => event.preventDefault() },
        this.text,
        this.agent,
        h('span', { class: 'days' }, this.since, h('span', { class: 'soft' }, 'to'), this.until),
      ),
      this.list.element,
      this.more,
    );
  }

  get wanted() {
    return {
      text: this.text.value.trim() || undefined,
      agent: this.agent.value || undefined,
      since: startOf(this.since.value),
      until: startOf(this.until.value, 1),
    };
  }

  load() {
    return post('/v1/receipts/list', { limit: this.#limit, ...this.wanted });
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
    for (const { agent } of receipts)
      if (agent && !this.#agents.has(agent)) {
        this.#agents.add(agent);
        this.agent.append(h('option', { value: agent }, agentName(agent)));
      }
    const sought = this.#filter !== 'all' || Object.values(this.wanted).some(Boolean);
    this.list.update(
      receipts.filter((receipt) => passes(kindOf(receipt))),
      sought,
    );
    this.more.hidden = receipts.length < this.#limit || this.#limit === MOST;
  }
}
