// The sections that mostly explain themselves: handoffs, skills and autopilot.
import { me, post } from '../lib/api.js';
import { h, showIn } from '../lib/dom.js';

import { CardList } from '../card/list.js';
import { CommandLine } from '../page/command.js';
import { closedCards } from './closed-cards.js';
import { nothing } from './empty.js';

export class Handoffs {
  title = 'Handoffs';

  constructor() {
    this.open = new CardList('Handoffs to review');
    this.rest = h('div', {});
    this.element = h(
      'div',
      {},
      h(
        'header',
        { class: 'top' },
        h(
          'div',
          {},
          h('h1', { tabindex: '-1' }, 'Handoffs'),
          h('p', { class: 'soft lead' }, 'Work that one agent wants to pass on waits here for your review.'),
        ),
      ),
      this.open.element,
      this.rest,
    );
  }

  async load() {
    const [{ cards }, { sessions }, { topics }, { kd }] = await Promise.all([
      post('/v1/handoffs/list'),
      post('/v1/agents/status'),
      post('/v1/board'),
      me(),
    ]);
    return { cards, sessions, topics, kd };
  }

  update({ cards, sessions, topics, kd }) {
    const live = cards.filter((card) => card.state !== 'closed');
    const closed = cards.filter((card) => card.state === 'closed');
    this.open.update(live, { sessions, topics });
    showIn(this.rest, [cards.length === 0, closed], () => [
      cards.length === 0 ? nothing('handoffs', 'No handoffs yet', 'An agent asks for one itself:') : null,
      cards.length === 0
        ? new CommandLine(
            `${kd} ask --kind handoff_review -t "Hand the release notes to Codex?" -o Yes -o No`,
          ).element
        : null,
      closed.length ? [h('h2', { class: 'group' }, 'Reviewed'), closedCards(closed)] : null,
    ]);
  }
}

export class Skills {
  title = 'Skills';
  element = h(
    'div',
    {},
    h('header', { class: 'top' }, h('h1', { tabindex: '-1' }, 'Skills')),
    nothing(
      'skills',
      'No skills',
      'This daemon keeps no skills. Your agents’ own skills are theirs and work as before.',
    ),
  );
  async load() {
    return {};
  }
  update() {}
}

export class Autopilot {
  title = 'Autopilot';

  constructor() {
    this.rules = h('ul', { class: 'boxed' });
    this.element = h(
      'div',
      {},
      h(
        'header',
        { class: 'top' },
        h(
          'div',
          {},
          h('h1', { tabindex: '-1' }, 'Autopilot'),
          h(
            'p',
            { class: 'soft lead' },
            'Every question comes to you. There are no rules that answer for you, so there is nothing to set here.',
          ),
        ),
      ),
      this.rules,
    );
  }

  load() {
    return me();
  }

  update({ hold_s: hold }) {
    const row = (title, words, word) =>
      h(
        'li',
        { class: 'line' },
        h(
          'span',
          { class: 'grow' },
          h('span', { class: 'strong' }, title),
          h('span', { class: 'soft sub' }, words),
        ),
        h('span', { class: 'tag' }, word),
      );
    showIn(this.rules, hold, () => [
      row(
        'Low and medium risk',
        `Your answer is held for ${hold.low} s, so that you can undo it, and then goes out.`,
        'Asks',
      ),
      row(
        'High risk',
        `Your answer is shown once more to be confirmed, and then held for ${hold.high} s.`,
        'Asks twice',
      ),
      row(
        'Suggested answers and defaults',
        'They are only offered. Nothing is accepted before you press it.',
        'Asks',
      ),
    ]);
  }
}
