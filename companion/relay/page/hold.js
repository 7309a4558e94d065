// A button that is held to be pressed, so that a pocket presses nothing. A keyboard and a screen reader press it as usual.
import { h } from '../../page/lib/dom.js';

const HOLD_MS = 550;

export function holdButton(words, act, { kind = '', disabled = false } = {}) {
  const button = h(
    'button',
    { type: 'button', class: `hold ${kind}`, disabled, 'aria-description': 'Hold to answer' },
    h('span', { class: 'fill', 'aria-hidden': 'true' }),
    h('span', { class: 'words', dir: 'auto' }, words),
  );
  let timer = null;
  let done = false;
  const stop = () => {
    clearTimeout(timer);
    timer = null;
    button.classList.remove('holding');
  };
  button.addEventListener('pointerdown', (event) => {
    if (button.disabled || event.button !== 0) return;
    done = false;
    button.classList.add('holding');
    timer = setTimeout(() => {
      stop();
      done = true;
      navigator.vibrate?.(12);
      act();
    }, HOLD_MS);
  });
  for (const end of ['pointerup', 'pointercancel', 'pointerleave']) button.addEventListener(end, stop);
  button.addEventListener('contextmenu', (event) => event.preventDefault());
  button.addEventListener('click', (event) => {
    // Only a press without a pointer counts at once.
    if (event.detail === 0 && event.pointerType !== 'touch' && event.pointerType !== 'mouse') act();
    else if (!done) hint(button);
  });
  return button;
}

function hint(button) {
  button.classList.add('hint');
  setTimeout(() => button.classList.remove('hint'), 1200);
}
