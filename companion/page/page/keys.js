// The keyboard beyond Tab and Enter. Keys act on the card that has the focus; none acts while something is typed.
import { h } from '../lib/dom.js';

const HELP = [
  ['j', 'k', 'next and previous question'],
  ['1', '9', 'choose an option'],
  ['a', null, 'accept what is suggested, or all defaults'],
  ['t', null, 'write your own answer'],
  ['u', null, 'undo while an answer is on hold'],
  ['Esc', null, 'back to the question'],
  ['/', null, 'search'],
  ['?', null, 'this help'],
];
let dialog = null;
const searchShown = () => document.querySelector('#chrome .search').offsetParent !== null; // the shell has its own

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
        HELP.filter(([key]) => key !== '/' || searchShown()).map(([key, other, words]) => [
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

export function listenToKeys({ search }) {
  document.addEventListener('keydown', (event) => {
    if (event.defaultPrevented || event.ctrlKey || event.metaKey || event.altKey || event.isComposing) return;
    if (event.target.closest('input, textarea, select, dialog')) return;
    const act = { j: () => step(1), k: () => step(-1), '/': searchShown() && search, '?': showHelp }[
      event.key
    ];
    if (!act) return;
    event.preventDefault();
    act();
  });
}
