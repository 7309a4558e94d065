// Expert mode's side pane: the daemon and the page session, and the question that has the focus, as they are.
import { health } from '../lib/api.js';
import { h, said, showIn } from '../lib/dom.js';

const facts = (rows) =>
  h(
    'dl',
    {},
    rows
      .filter(([, value]) => value !== undefined && value !== null && value !== '')
      .map(([name, value]) => [h('dt', {}, name), said(String(value), 'dd')]),
  );

function uptime(seconds) {
  const m = Math.floor(seconds / 60);
  return m < 1 ? 'under 1 min' : m < 60 ? `${m} min` : `${Math.floor(m / 60)} h ${m % 60} min`;
}

export class Inspector {
  constructor({ connection }) {
    this.connection = connection;
    this.element = document.getElementById('inspector');
    this.daemon = h('section', { 'aria-label': 'Daemon' });
    this.card = h('section', { 'aria-label': 'Question' });
    this.element.append(this.daemon, this.card);
    addEventListener('kd-mode', () => this.refresh());
    document.addEventListener('focusin', (event) => {
      const article = event.target.closest('main article');
      if (article && this.shown) this.inspect(article.id);
    });
  }

  get shown() {
    return (
      document.documentElement.dataset.mode === 'expert' &&
      document.documentElement.dataset.section !== 'onboarding'
    );
  }

  /** `cards` are those of the section, by id. */
  async refresh(cards) {
    if (cards) this.cards = cards;
    this.element.hidden = !this.shown;
    if (!this.shown) return;
    this.inspect(this.id);
    const data = await health().catch(() => null);
    showIn(
      this.daemon,
      [this.connection(), data && { ...data, uptime_s: uptime(data.uptime_s) }],
      ([state, now]) => [
        h('h2', {}, 'Daemon'),
        facts([
          ['Stream', state],
          ['Version', now?.version],
          ['Process', now?.pid],
          ['Running for', now?.uptime_s],
          ['Page port', now?.port],
          ['Home', now?.home],
          ['Watermark', now?.watermark],
          ['Session', 'HttpOnly, in memory'],
          ['Writes', 'CSRF header on every write'],
        ]),
      ],
    );
  }

  inspect(id) {
    this.id = id;
    const card = this.cards?.get(id);
    showIn(this.card, card ?? null, () =>
      card
        ? [
            h('h2', {}, 'Question'),
            facts([
              ['Id', card.id],
              ['Version', card.version],
              ['State', card.state],
              ['Kind', card.kind],
              ['Risk', card.risk],
              ['Stop', card.stop_type],
              ['Agent', card.agent],
              ['Session', card.session_id],
              ['Topic', card.topic],
              ['Opened', card.opened_at],
              ['Held until', card.held_until],
              ...Object.entries(card.refs ?? {}),
            ]),
          ]
        : [h('h2', {}, 'Question'), h('p', { class: 'soft' }, 'Focus a question to see its details.')],
    );
  }
}
