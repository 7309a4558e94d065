// The one line above everything: why what is shown may be old, and what happens next.
import { h } from '../lib/dom.js';
import { icon } from '../lib/icons.js';
import { announce } from '../lib/announce.js';
import { inShell } from './shell.js';

const PATIENCE_MS = 800; // a reconnect that is quicker than this disturbs nobody

export class Banner {
  #timer = null;
  #patience = null;
  #state = 'live';

  constructor(retry) {
    this.element = document.getElementById('banner');
    this.words = h('span', {});
    this.button = h('button', { type: 'button', class: 'small', onclick: retry }, 'Try now');
    // Of the countdown only the first line is read aloud.
    this.next = h('span', { 'aria-hidden': 'true' });
    this.element.append(icon('away'), h('span', { class: 'grow' }, this.words, ' ', this.next), this.button);
  }

  connection({ state, nextAt }) {
    const before = this.#state;
    this.#state = state;
    clearInterval(this.#timer);
    clearTimeout(this.#patience);
    if (state === 'live') {
      if (!this.element.hidden && before !== 'live') announce('Connected again.');
      this.element.hidden = true;
      return;
    }
    const words =
      state === 'ended'
        ? inShell()
          ? 'The page session has ended. Kelvadrome is opening it again.'
          : 'This page session has ended. Open the page from Kelvadrome again; what you typed stays here.'
        : 'The daemon is away. What you see may be old; what you typed stays here.';
    const show = () => {
      if (this.words.textContent !== words) this.words.textContent = words;
      this.element.hidden = false;
    };
    if (before === 'live') this.#patience = setTimeout(show, PATIENCE_MS);
    else show();
    const tick = () => {
      this.next.textContent =
        state === 'away' ? `Trying again in ${Math.max(1, Math.ceil((nextAt - Date.now()) / 1000))} s.` : '';
    };
    tick();
    this.#timer = setInterval(tick, 1000);
  }
}

/** A section that could not be read although the daemon is there. */
export const failure = (error, retry) =>
  h(
    'div',
    { class: 'empty', role: 'alert' },
    icon('warning'),
    h('p', { class: 'strong' }, 'This could not be shown'),
    h('p', {}, error.message),
    h('button', { type: 'button', onclick: retry }, 'Try again'),
  );
