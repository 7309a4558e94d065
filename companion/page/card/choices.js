// What an open question can be answered with: its options, own words, a batch of rows, or a dismissal.
import { h, said } from '../lib/dom.js';
import { drafts } from '../lib/drafts.js';
import { ACTIONS, CARD } from '/shared/words.js';
import { icon } from '../lib/icons.js';
import { leave } from './leave.js';

const LONG_OPTION = 30;

export function choices(view) {
  const { card } = view;
  const words = !card.menu && !card.screen;
  const ways = [
    card.options.length > 0 ? options(view) : null,
    card.rows?.length ? batch(view) : words ? ownWords(view) : null,
  ].filter(Boolean);
  const last = ways.pop();
  return [...ways, h('div', { class: 'last' }, last, card.rows?.length ? null : leave(view))];
}

function options(view) {
  const { card } = view;
  const stacked = card.options.some((option) => option.length > LONG_OPTION);
  return h(
    'div',
    { class: `options ${stacked ? 'stacked' : ''}`, role: 'group', 'aria-label': 'Options' },
    card.options.map((option, index) => {
      const suggested = option === card.default;
      return h(
        'button',
        {
          type: 'button',
          class: suggested ? 'suggested' : null,
          'data-accept': suggested,
          'aria-keyshortcuts': index < 9 ? String(index + 1) : null,
          onclick: () => view.choose(option),
        },
        index < 9 ? h('kbd', { 'aria-hidden': 'true' }, String(index + 1)) : null,
        said(option, 'span'),
        suggested ? h('small', {}, CARD.suggested) : null,
        card.risk === 'high' ? h('span', { class: 'unseen' }, ', to be reviewed first') : null,
      );
    }),
  );
}

/** A field that grows with its text, keeps it as a draft, holds one line of any length, and sends on Enter. */
function field(view, name, standard, attributes, send) {
  const grow = () => {
    area.style.blockSize = 'auto';
    area.style.blockSize = `${area.scrollHeight + 2}px`;
  };
  const area = h('textarea', {
    rows: '1',
    dir: 'auto',
    autocomplete: 'off',
    maxlength: '4000',
    ...attributes,
    oninput: () => {
      // An answer is typed into a terminal, where a line break would send the first half of it.
      if (/[\r\n]/.test(area.value)) area.value = area.value.replace(/\s*[\r\n]+\s*/g, ' ');
      drafts.set(view.card.id, name, area.value);
      grow();
    },
    onkeydown: (event) => {
      if (event.key !== 'Enter' || event.isComposing || event.shiftKey) return;
      event.preventDefault();
      send();
    },
  });
  area.value = drafts.get(view.card.id, name) ?? standard ?? '';
  requestAnimationFrame(() => {
    if (area.isConnected && area.value) grow();
  });
  return area;
}

/** One line, no doubled blanks: what the daemon takes as it stands. */
const tidy = (text) => text.replace(/\s+/g, ' ').trim();

function ownWords(view) {
  const { card } = view;
  const alone = card.options.length === 0;
  const send = () => {
    const words = tidy(area.value);
    if (words === '') return view.fail({ message: 'Write an answer first.' });
    return view.choose(words);
  };
  const area = field(
    view,
    'text',
    alone ? card.default : null,
    { 'aria-label': CARD.ownAnswer, 'aria-keyshortcuts': ACTIONS.write.key, placeholder: CARD.ownAnswer },
    send,
  );
  return h(
    'form',
    {
      class: 'words',
      onsubmit: (event) => {
        event.preventDefault();
        send();
      },
    },
    area,
    h('button', { type: 'submit', class: alone ? 'suggested' : null }, icon('send'), CARD.send),
  );
}

function batch(view) {
  const { card } = view;
  const send = () => view.choose(Object.fromEntries([...areas].map(([id, area]) => [id, tidy(area.value)])));
  const areas = new Map(
    card.rows.map((row) => [
      row.question_id,
      field(
        view,
        row.question_id,
        row.default,
        { maxlength: '1000', placeholder: 'Your answer', id: `${card.id}-${row.question_id}` },
        send,
      ),
    ]),
  );
  const ready = card.rows.every((row) => row.default !== undefined);
  const defaults = () =>
    view.choose(Object.fromEntries(card.rows.map((row) => [row.question_id, row.default])), {
      accept_all_defaults: true,
    });
  return h(
    'form',
    {
      class: 'batch',
      onsubmit: (event) => {
        event.preventDefault();
        send();
      },
    },
    h(
      'div',
      { class: 'rows' },
      card.rows.map((row) =>
        h(
          'div',
          { class: 'pair' },
          said(row.text, 'label', { for: `${card.id}-${row.question_id}` }),
          areas.get(row.question_id),
        ),
      ),
    ),
    h(
      'div',
      { class: 'row' },
      ready
        ? h(
            'button',
            {
              type: 'button',
              class: 'suggested',
              'data-accept': true,
              'aria-keyshortcuts': 'a',
              onclick: defaults,
            },
            icon('check'),
            `Accept ${card.rows.length} defaults`,
          )
        : null,
      h('button', { type: 'submit' }, icon('send'), 'Send these answers'),
      leave(view),
    ),
  );
}
