// An answer that was pressed and can still be taken back.
import { ACTIONS } from '/shared/words.js';
import { h, said } from '../lib/dom.js';
import { icon } from '../lib/icons.js';
import { agentName, brief } from '../lib/words.js';

const TICK_MS = 200;
const still = matchMedia('(prefers-reduced-motion: reduce)');

export function onHold(view) {
  const { card } = view;
  const left = () => Math.max(0, Date.parse(card.held_until) - Date.now());
  const seconds = h('span', { class: 'countdown', 'aria-hidden': 'true' });
  const bar = h('span', { class: 'bar' });
  const row = h(
    'div',
    { class: 'hold' },
    h('p', {}, h('span', {}, '“', said(brief(card.answer)), `” goes to ${agentName(card.agent)}`), seconds),
    h(
      'button',
      { type: 'button', class: 'undo', 'aria-keyshortcuts': ACTIONS.undo.key, onclick: () => view.undo() },
      icon('undo'),
      ACTIONS.undo.word,
      h('kbd', { 'aria-hidden': 'true' }, ACTIONS.undo.key.toUpperCase()),
    ),
    h('span', { class: 'track', 'aria-hidden': 'true' }, bar),
  );
  let known = false;
  const tick = () => {
    if (known && !row.isConnected) return;
    known = row.isConnected;
    const ms = left();
    seconds.textContent = ms > 0 ? ` in ${Math.ceil(ms / 1000)} s` : ' now';
    if (ms > 0) setTimeout(tick, TICK_MS);
  };
  tick();
  // The bar runs on the compositor, so that it stays smooth while the page is busy.
  const whole = card.risk === 'high' ? 5000 : 2000;
  if (!still.matches)
    bar.animate([{ transform: `scaleX(${Math.min(1, left() / whole)})` }, { transform: 'scaleX(0)' }], {
      duration: left(),
      fill: 'forwards',
    });
  return [row];
}
