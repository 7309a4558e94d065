// One question on the phone.
import { h, said } from '../../page/lib/dom.js';
import { age, brief } from './words.js';
import { holdButton } from './hold.js';

export class CardView {
  constructor(phone) {
    this.phone = phone;
    this.element = h('article', { class: 'card' });
    this.draft = h('textarea', {
      rows: '2',
      maxlength: '4000',
      'aria-label': 'Your own answer',
      placeholder: 'Your own answer',
    });
    this.rows = new Map(); // question id -> its field
    this.draft.addEventListener('input', () => this.showSend());
  }

  update(card, notice) {
    this.card = card;
    const pending = this.phone.pendingOf(card.id);
    const shown = JSON.stringify([card, pending?.did, notice, this.phone.mine?.face]);
    if (shown === this.shown) return;
    this.shown = shown;
    const focused = this.element.contains(document.activeElement) ? document.activeElement : null;
    this.element.className = `card ${card.risk === 'high' ? 'high' : ''}`;
    this.element.replaceChildren(
      ...[this.head(), said(card.title, 'h2'), this.body(), this.notes(notice), ...this.controls(pending)]
        .flat()
        .filter(Boolean),
    );
    if (focused?.isConnected) focused.focus({ preventScroll: true });
  }

  head() {
    const { card } = this;
    return h(
      'p',
      { class: 'meta' },
      h('strong', {}, said(card.agent)),
      card.topic ? h('span', {}, said(card.topic)) : null,
      card.risk === 'high' ? h('span', { class: 'tag danger' }, 'High risk') : null,
      h('span', { class: 'age' }, age(card.opened_at, this.phone.deskNow)),
    );
  }

  body() {
    return this.card.body ? said(this.card.body, 'p', { class: 'body' }) : null;
  }

  notes(notice) {
    const { card } = this;
    return [
      notice ? h('p', { class: 'note warn', role: 'alert' }, notice) : null,
      card.refusal && card.state === 'open'
        ? h(
            'p',
            { class: 'note warn' },
            card.maybe_typed ? 'Look at its terminal first: ' : 'Not delivered: ',
            said(card.refusal),
          )
        : null,
      card.delivery_note && card.state === 'open'
        ? h('p', { class: 'note' }, said(card.delivery_note))
        : null,
    ];
  }

  controls(pending) {
    const { card } = this;
    if (pending) {
      const words = pending.did === 'undo' ? 'Taking it back…' : 'Sending…';
      return [h('p', { class: 'way' }, h('span', { class: 'spinner', 'aria-hidden': 'true' }), words)];
    }
    if (card.state === 'held') return this.held();
    if (card.state === 'armed')
      return [
        h(
          'p',
          { class: 'way' },
          h('span', { class: 'spinner', 'aria-hidden': 'true' }),
          h('span', {}, '“', said(brief(card.answer)), '” is on its way.'),
        ),
      ];
    if (card.answerable === false) return [];
    if (card.risk === 'high' && !this.phone.mine.face)
      return [
        h('p', { class: 'note' }, 'High risk is answered on your computer: this phone has no Face ID.'),
      ];
    return card.rows?.length ? this.batch() : this.choices();
  }

  press(answer, more) {
    this.phone.answer(this.card, answer, more).then((sent) => {
      if (sent) this.draft.value = '';
    });
  }

  choices() {
    const { card } = this;
    const buttons = card.options.map((option) =>
      holdButton(option, () => this.press(option), { kind: option === card.default ? 'suggested' : '' }),
    );
    if (card.risk === 'high')
      buttons.push(h('p', { class: 'soft small' }, 'Each asks for Face ID before it is sent.'));
    const free = !card.menu && !card.screen;
    this.send = holdButton('Hold to send', () => this.press(this.draft.value.trim()), { kind: 'suggested' });
    this.showSend();
    return [
      h('div', { class: 'choices' }, buttons),
      free ? h('div', { class: 'own' }, this.draft, this.send) : null,
    ];
  }

  showSend() {
    if (this.send) this.send.hidden = this.draft.value.trim() === '';
  }

  batch() {
    const { card } = this;
    const fields = card.rows.map((row) => {
      const field =
        this.rows.get(row.question_id) ??
        h('input', { type: 'text', value: row.default ?? '', maxlength: '1000' });
      this.rows.set(row.question_id, field);
      return h('label', { class: 'rowed' }, said(row.text, 'span'), field);
    });
    const answers = () =>
      Object.fromEntries(
        card.rows.map((row) => [row.question_id, this.rows.get(row.question_id).value.trim()]),
      );
    return [
      h('div', { class: 'rows' }, fields),
      holdButton('Hold to send all', () => this.press(answers()), { kind: 'suggested' }),
    ];
  }

  held() {
    const { card } = this;
    const seconds = h('span', { class: 'count', 'aria-hidden': 'true' });
    const left = () => Math.max(0, Date.parse(card.held_until) - this.phone.deskNow);
    const tick = () => {
      seconds.textContent = String(Math.ceil(left() / 1000));
      if (seconds.isConnected && left() > 0) setTimeout(tick, 200);
    };
    const bar = h('span', { class: 'bar' });
    setTimeout(tick);
    seconds.textContent = String(Math.ceil(left() / 1000));
    bar.animate?.([{ transform: `scaleX(${Math.min(1, left() / 5000)})` }, { transform: 'scaleX(0)' }], {
      duration: Math.max(left(), 1),
      fill: 'forwards',
    });
    return [
      h(
        'div',
        { class: 'held' },
        h('p', {}, '“', said(brief(card.answer)), '” goes out in ', seconds, ' s'),
        h('button', { type: 'button', class: 'undo', onclick: () => this.phone.undo(card) }, 'Undo'),
        h('span', { class: 'track', 'aria-hidden': 'true' }, bar),
      ),
    ];
  }
}
