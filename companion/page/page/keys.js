// The keyboard beyond Tab and Enter. Keys act on the card that has the focus; none acts while something is typed.
import { ACTIONS } from '/shared/words.js';
import { h } from '../lib/dom.js';

const of = ({ key, word }) => [key, null, word];
const HELP = [
  ['j', 'k', 'Next and previous question'],
  [ACTIONS.option.key, '9', ACTIONS.option.word],
  of(ACTIONS.accept),
  of(ACTIONS.write),
  of(ACTIONS.undo),
  [ACTIONS.snooze.key, null, `${ACTIONS.snooze.word}, or wake`],
  of(ACTIONS.dismiss),
  ['Esc', null, 'Back to the question, or out of the search'],
  of(ACTIONS.search),
  of(ACTIONS.help),
];
let dialog = null;

export function showHelp() {
  dialog?.remove();
  dialog = document.body.appendChild(
    h(
      'dialog',
      { class: 'dialog', 'aria-labelledby': 'help-title' },
      h('h2', { id: 'help-title' }, 'Keyboard'),
      h(
        'dl',
        {},
        HELP.map(([key, other, words]) => [
          h('dt', {}, h('kbd', {}, key), other ? [key === '1' ? ' to ' : ' ', h('kbd', {}, other)] : null),
          h('dd', {}, words),
        ]),
      ),
      h('form', { method: 'dialog', class: 'row end' }, h('button', { class: 'suggested' }, 'Close')),
    ),
  );
  dialog.showModal();
}

function step(by) {
  const cards = [...document.querySelectorAll('main article')].filter((card) => card.offsetParent !== null);
  const at = cards.indexOf(document.activeElement?.closest('article'));
  const next = cards[at < 0 ? (by > 0 ? 0 : cards.length - 1) : at + by];
  next?.focus({ preventScroll: true });
  next?.scrollIntoView({ block: next.offsetHeight > innerHeight ? 'start' : 'nearest' });
}

export function listenToKeys({ finder }) {
  document.addEventListener('keydown', (event) => {
    if (event.defaultPrevented || event.ctrlKey || event.metaKey || event.altKey || event.isComposing) return;
    if (event.key === 'Escape' && !event.target.closest('dialog, select') && finder.leave())
      return event.preventDefault();
    if (event.target.closest('input, textarea, select, dialog')) return;
    const act = {
      j: () => step(1),
      k: () => step(-1),
      [ACTIONS.search.key]: () => finder.start(),
      [ACTIONS.help.key]: showHelp,
    }[event.key];
    if (!act) return;
    event.preventDefault();
    act();
  });
}
