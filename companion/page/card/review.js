// The second look at an answer that is marked as high risk: what goes to whom, said in full, before it can be sent.
import { CARD } from '/shared/words.js';
import { h, said } from '../lib/dom.js';
import { icon } from '../lib/icons.js';
import { nameOf, placeOf } from '../lib/who.js';
import { brief, inWords } from '../lib/words.js';

/** `press` is what was pressed, `shown` the daemon's word on it: the answer as it goes out, and the token that confirms it. */
export function review(view, press, shown) {
  const { card } = view;
  const place = placeOf({ ...view.context.session(card), ...card });
  const title = `${card.id}-review`;
  const facts = [
    ['To', said([nameOf(card), place].filter(Boolean).join(', '))],
    ['Question', said(card.title)],
    ['Answer', said(inWords(shown.answer), 'blockquote')],
  ];
  return [
    h(
      'section',
      { class: 'review', role: 'group', 'aria-labelledby': title, 'aria-describedby': `${title}-facts` },
      h('h3', { id: title }, icon('warning'), CARD.review),
      h(
        'dl',
        { id: `${title}-facts` },
        facts.map(([name, value]) => [h('dt', {}, name), h('dd', {}, value)]),
      ),
      h(
        'p',
        { class: 'soft' },
        `This is marked as high risk. After you confirm it you have ${shown.hold_s} seconds to undo.`,
      ),
      h(
        'div',
        { class: 'row end' },
        h(
          'button',
          {
            type: 'button',
            'data-first': true,
            onclick: () => {
              view.show();
              view.element.focus();
            },
          },
          'Back',
        ),
        h(
          'button',
          {
            type: 'button',
            class: 'danger',
            'data-confirm': true,
            onclick: () => view.press({ ...press, review: shown.review }),
          },
          h('span', {}, 'Confirm and send “', said(brief(shown.answer, 28)), '”'),
        ),
      ),
    ),
  ];
}
