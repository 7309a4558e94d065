import { h, said } from '../lib/dom.js';
import { ageOf, ending } from '../lib/words.js';

/** Questions that are over: a line for each, with what became of it. */
export const closedCards = (cards) =>
  h(
    'ul',
    { class: 'boxed' },
    cards.map((card) =>
      h(
        'li',
        {},
        h(
          'a',
          { class: 'line', href: `/?card=${encodeURIComponent(card.id)}` },
          h(
            'span',
            { class: 'grow' },
            said(card.title, 'span', { class: 'strong' }),
            said(ending(card), 'span', { class: 'soft sub' }),
          ),
          ageOf(card.closed_at),
        ),
      ),
    ),
  );
