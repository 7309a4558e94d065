// The ways to leave a question without an answer: for later, or for good.
import { ACTIONS, CARD } from '/shared/words.js';
import { h } from '../lib/dom.js';

export const leave = (view) => h('span', { class: 'leave' }, later(view), dismissal(view));

function later(view) {
  const { word, key } = view.card.snoozed_until ? ACTIONS.wake : ACTIONS.snooze;
  return h(
    'button',
    {
      type: 'button',
      class: 'flat small',
      'data-snooze': true,
      'aria-keyshortcuts': key,
      onclick: () => (view.card.snoozed_until ? view.wake() : view.snooze()),
    },
    word,
  );
}

function dismissal(view) {
  const ask = h(
    'button',
    {
      type: 'button',
      class: 'flat small',
      'data-dismiss': true,
      'aria-keyshortcuts': ACTIONS.dismiss.key,
      onclick: () => {
        ask.replaceWith(sure);
        sure.querySelector('button').focus();
      },
    },
    `${ACTIONS.dismiss.word}…`,
  );
  const sure = h(
    'span',
    { class: 'row', role: 'group', 'aria-label': CARD.dismissAsks },
    h('span', { class: 'soft' }, 'The agent is told nothing.'),
    h(
      'button',
      {
        type: 'button',
        class: 'small',
        onclick: () => {
          sure.replaceWith(ask);
          ask.focus();
        },
      },
      CARD.keep,
    ),
    h(
      'button',
      { type: 'button', class: 'small danger-text', onclick: () => view.dismiss() },
      ACTIONS.dismiss.word,
    ),
  );
  return ask;
}
