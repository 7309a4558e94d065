// What stands around the content in a browser and in expert mode: the sections, the search field, the state of the
// connection. In the shell's simple mode its own window has all of that.
import { TITLE } from '/shared/words.js';
import { h } from '../lib/dom.js';
import { icon } from '../lib/icons.js';
import { isExpert, setMode } from './shell.js';
import { showHelp } from './keys.js';

const NAVIGATION = [
  ['/', 'inbox'],
  ['/topics', 'topics'],
  ['/handoffs', 'handoffs'],
  ['/skills', 'skills'],
  ['/receipts', 'receipts'],
  ['/agents', 'agents'],
  ['/autopilot', 'autopilot'],
];

export class Chrome {
  constructor({ finder }) {
    this.badge = h('span', { class: 'badge', hidden: true });
    this.links = NAVIGATION.map(([path, name]) =>
      h('a', { href: path }, icon(name), h('span', {}, TITLE[name]), path === '/' ? this.badge : null),
    );
    this.expert = h('input', {
      type: 'checkbox',
      role: 'switch',
      onchange: () => setMode(this.expert.checked ? 'expert' : 'simple', { fromPage: true }),
    });
    this.setup = h('a', { href: '/onboarding', class: 'setup', hidden: true }, 'Finish setup');
    this.dot = h('span', { class: 'dot', 'aria-hidden': 'true' });
    this.words = h('span', {}, 'Connecting');
    document
      .getElementById('chrome')
      .append(
        h('a', { class: 'brand', href: '/' }, 'kelvadrome'),
        h('div', { role: 'search', class: 'search' }, icon('search'), finder.field()),
        h('nav', { 'aria-label': 'Sections' }, this.links),
        h(
          'div',
          { class: 'foot' },
          this.setup,
          h('label', { class: 'switch' }, this.expert, h('span', {}, 'Expert mode')),
          h('button', { type: 'button', class: 'flat small', onclick: showHelp }, icon('help'), 'Keyboard'),
          h('p', { class: 'state soft' }, this.dot, this.words),
        ),
      );
    addEventListener('kd-mode', () => this.showMode());
    this.showMode();
  }

  showMode() {
    this.expert.checked = isExpert();
  }

  showRoute(path) {
    const here = `/${path.split('/')[1]}`;
    for (const link of this.links) {
      if (link.getAttribute('href') === here) link.setAttribute('aria-current', 'page');
      else link.removeAttribute('aria-current');
    }
  }

  showCount(needsYou) {
    this.badge.hidden = needsYou === 0;
    this.badge.replaceChildren(
      String(needsYou),
      h('span', { class: 'unseen' }, needsYou === 1 ? ' needs you' : ' need you'),
    );
  }

  showConnection(state) {
    this.dot.dataset.state = state;
    this.words.textContent =
      { live: 'Connected', away: 'The daemon is away', ended: 'Session ended' }[state] ?? 'Connecting';
  }
}
