// One question. Its element lives as long as the card is shown; only the parts that look different are built anew, so
// that what the user types into the others stays as it is.
import { post } from '../lib/api.js';
import { h, said, showIn } from '../lib/dom.js';
import { icon } from '../lib/icons.js';
import { announce } from '../lib/announce.js';
import { ACTIONS, CARD, STATE } from '/shared/words.js';
import { drafts } from '../lib/drafts.js';
import { nameOf, placeOf } from '../lib/who.js';
import { ageOf, agentName, brief, ending, kindWord, moment, standing } from '../lib/words.js';
import { choices } from './choices.js';
import { leave } from './leave.js';
import { lookAgain } from './look.js';
import { review } from './review.js';
import { onHold } from './hold.js';

const LONG_BODY = 900;
const LONG_LINES = 14;
const PATIENCE_MS = 800; // a reply that comes sooner needs no words
const PRESSED = ' pressed'; // beside the drafts of a card's fields: no field is called so

export class CardView {
  /** `context` gives `session(card)` and `topic(card)`, what is known of them, or undefined. */
  constructor(card, context) {
    this.context = context;
    this.head = h('p', { class: 'meta', id: `${card.id}-head` });
    this.title = said('', 'h2', { id: `${card.id}-title` });
    this.body = h('div', { class: 'body' });
    this.notice = h('div', { class: 'notices' });
    this.actions = h('div', { class: 'actions' });
    this.error = h('p', { class: 'error', role: 'alert', hidden: true });
    this.waiting = h('p', { class: 'waiting', role: 'status' });
    this.element = h(
      'article',
      {
        class: 'card',
        id: card.id,
        tabindex: '0',
        'aria-labelledby': `${card.id}-title`,
        'aria-describedby': `${card.id}-head`,
        onkeydown: (event) => this.onKey(event),
      },
      this.head,
      this.title,
      this.body,
      this.notice,
      this.actions,
      this.waiting,
      this.error,
    );
    this.update(card);
    this.recall();
  }

  update(card) {
    const before = this.card;
    this.card = card;
    this.element.classList.toggle('high', card.risk === 'high');
    this.element.dataset.state = card.state;
    showIn(
      this.head,
      [
        card.agent,
        card.topic,
        card.opened_at,
        card.kind,
        card.risk,
        card.blocking,
        this.place(),
        card.label,
        this.context.topic(card),
      ],
      () => this.meta(),
    );
    showIn(this.title, card.title, () => card.title);
    showIn(this.body, [card.body, card.shots?.join()], () => [...this.paragraphs(), ...this.shots()]);
    showIn(
      this.notice,
      [
        card.state,
        card.refs?.last_refusal,
        card.refs?.last_attempt,
        card.delivery_note,
        card.maybe_typed,
        card.snoozed_until,
      ],
      () => this.notices(),
    );
    const {
      version,
      held_until: heldUntil,
      rows,
      options,
      state,
      answer,
      menu,
      screen,
      kind,
      risk,
      closed_at: closedAt,
    } = card;
    const stays = state === 'open' ? null : [version, heldUntil, answer, closedAt];
    const shown = JSON.stringify([
      state,
      card.answerable,
      options,
      card.default,
      rows,
      menu,
      screen,
      kind,
      risk,
      Boolean(card.snoozed_until),
      stays,
    ]);
    if (shown !== this.shown) {
      this.shown = shown;
      this.show();
    } else if (before && before.version !== version && this.reviewing) this.show();
    if (before && before.version !== version) {
      drafts.set(card.id, PRESSED, '');
      this.waiting.textContent = '';
      const refusal = card.refs?.last_refusal;
      if (refusal && refusal !== before.refs?.last_refusal)
        announce(`${card.maybe_typed ? CARD.lookFirst : CARD.notDelivered}: ${card.title}. ${refusal}`);
    }
    if (before?.version !== version) this.heard?.();
  }

  /** The controls as the state of the card wants them. */
  show() {
    this.reviewing = false;
    this.error.hidden = true;
    const build =
      {
        open: () => (this.takesAnswers() ? choices(this) : this.elsewhere()),
        held: () => onHold(this),
        gone: () => this.ofNobody(),
        armed: () => [
          h(
            'p',
            { class: 'way' },
            h('span', { class: 'spinner', 'aria-hidden': 'true' }),
            h(
              'span',
              {},
              '“',
              said(brief(this.card.answer)),
              `” is on its way to ${agentName(this.card.agent)}.`,
            ),
          ),
        ],
      }[this.card.state] ??
      (() => [
        h(
          'p',
          { class: 'soft' },
          ending(this.card),
          this.card.closed_at ? [', ', ageOf(this.card.closed_at)] : null,
        ),
      ]);
    // An answer on its way takes as much room as its hold did, so that the cards below stay under the pointer.
    const room = this.card.state === 'armed' ? this.actions.getBoundingClientRect().height : 0;
    this.actions.style.minBlockSize = room ? `${room}px` : '';
    this.replace(build());
  }

  /** A control that is replaced loses the focus; the card keeps it meanwhile. */
  replace(parts) {
    const focused = this.actions.contains(document.activeElement);
    this.actions.replaceChildren(...parts.flat().filter(Boolean));
    // Out of its place, as a screen reader lists them, a button would not say which question it belongs to.
    for (const control of this.actions.querySelectorAll('button, textarea'))
      control.setAttribute('aria-describedby', this.title.id);
    if (focused) this.element.focus({ preventScroll: true });
  }

  place() {
    const { card } = this;
    return placeOf({ ...this.context.session(card), ...card }, this.context.topic(card)?.title ?? card.topic);
  }

  meta() {
    const { card } = this;
    const topic = this.context.topic(card);
    const place = this.place();
    return [
      h('strong', {}, said(nameOf(card))),
      place ? h('span', {}, said(place)) : null,
      card.topic
        ? h('a', { href: `/topics/${encodeURIComponent(card.topic)}` }, said(topic?.title ?? card.topic))
        : null,
      card.risk === 'low'
        ? null
        : h(
            'span',
            { class: `tag risk-${card.risk}` },
            card.risk === 'high' ? icon('warning') : null,
            card.risk === 'high' ? CARD.highRisk : CARD.mediumRisk,
          ),
      card.kind === 'question' ? null : h('span', { class: 'tag' }, kindWord(card.kind)),
      card.blocking || card.request ? null : h('span', { class: 'tag' }, 'Agent goes on working'),
      ageOf(card.opened_at),
    ];
  }

  /** The screenshots that came with a request. */
  shots() {
    return (this.card.shots ?? []).map((src, index) =>
      h(
        'a',
        { href: src, target: '_blank' },
        h('img', { class: 'shot', src, alt: `Screenshot ${index + 1}` }),
      ),
    );
  }

  paragraphs() {
    const { body } = this.card;
    if (!body) return [];
    const text = said(body, 'p', { class: 'text' });
    if (body.length <= LONG_BODY && body.split('\n').length <= LONG_LINES) return [text];
    text.classList.add('cut');
    const more = h(
      'button',
      {
        type: 'button',
        class: 'flat small',
        'aria-expanded': 'false',
        onclick: () => {
          const cut = text.classList.toggle('cut');
          more.textContent = cut ? 'Show all of it' : 'Show less';
          more.setAttribute('aria-expanded', String(!cut));
        },
      },
      'Show all of it',
    );
    return [text, more];
  }

  notices() {
    const { card } = this;
    const name = agentName(card.agent);
    return [
      card.refs?.last_attempt
        ? h('p', { class: 'notice warn' }, icon('warning'), said(card.refs.last_attempt, 'span'))
        : null,
      card.refs?.last_refusal && (card.state === 'open' || card.state === 'gone')
        ? h(
            'p',
            { class: 'notice warn' },
            icon('warning'),
            h(
              'span',
              {},
              `${card.maybe_typed ? CARD.lookFirst : CARD.notDelivered}: `,
              said(card.refs.last_refusal),
            ),
          )
        : null,
      card.delivery_note && card.state === 'open'
        ? h(
            'p',
            { class: this.takesAnswers() ? 'notice' : 'notice warn' },
            icon(this.takesAnswers() ? 'inbox' : 'warning'),
            said(card.delivery_note, 'span'),
          )
        : null,
      card.snoozed_until && card.state === 'open'
        ? h(
            'p',
            { class: 'notice' },
            icon('snooze'),
            h('span', {}, `${STATE.snoozed} until ${moment(card.snoozed_until)}.`),
          )
        : null,
      card.state === 'gone'
        ? h(
            'p',
            { class: 'notice' },
            icon('away'),
            h('span', {}, `${name} has ended. Nobody is left to take an answer.`),
          )
        : null,
    ];
  }

  /** False for a question that only its own terminal can answer; the note on the card says why. */
  takesAnswers() {
    return this.card.answerable !== false;
  }

  offered(words) {
    const { options } = this.card;
    return options.length > 0
      ? h(
          'p',
          { class: 'soft' },
          words,
          options.map((option, index) => [index ? ' · ' : '', said(option)]),
        )
      : null;
  }

  elsewhere() {
    return [this.offered('It offers: '), leave(this)];
  }

  ofNobody() {
    return [
      this.offered('It offered: '),
      h(
        'div',
        { class: 'row end' },
        h(
          'button',
          { type: 'button', 'data-dismiss': true, onclick: () => this.dismiss() },
          ACTIONS.dismiss.word,
        ),
      ),
    ];
  }

  /** Settles when this card is heard of anew. */
  nextVersion() {
    return new Promise((done) => {
      this.heard = done;
    });
  }

  /** Sends something for this card. Words stay on a failure. `lost` says what it means that no reply came. */
  async send(path, body, lost) {
    if (this.busy) return false;
    this.error.hidden = true;
    this.setBusy(true);
    const slow = setTimeout(() => {
      this.waiting.textContent = `${this.sending(body)} The daemon has not said yet whether it has it.`;
    }, PATIENCE_MS);
    try {
      return await post(path, { card_id: this.card.id, ...body });
    } catch (error) {
      if (error.code === 'unreachable') return await lost();
      this.fail(error);
      return false;
    } finally {
      clearTimeout(slow);
      this.waiting.textContent = '';
      this.setBusy(false);
    }
  }

  sending({ answer }) {
    return answer === undefined
      ? 'Your press is on its way to the daemon.'
      : `“${brief(answer)}” was pressed.`;
  }

  /** A page that was loaded anew while the daemon hung still knows what was pressed on it. */
  recall() {
    const [version, words] = JSON.parse(drafts.get(this.card.id, PRESSED) || '[]');
    if (version === this.card.version && this.card.state === 'open')
      this.waiting.textContent = `“${words}” was pressed here. The daemon has not taken it: press again to send it.`;
  }

  /** Busy controls keep their place and the focus; they only do nothing. */
  setBusy(busy) {
    this.busy = busy;
    this.actions.toggleAttribute('data-busy', busy);
    this.actions.setAttribute('aria-busy', String(busy));
  }

  fail(error) {
    this.error.textContent = error.message;
    this.error.hidden = false;
    this.error.scrollIntoView({ block: 'nearest' });
  }

  /** The reply to what changed this card shows at once; the event that follows says the same. */
  async change(path, body, words) {
    const { version } = this.card;
    const reply = await this.send(path, body, () => this.lookAgain(version));
    if (!reply) return false;
    if (reply.card.version >= this.card.version) this.update(reply.card);
    announce(reply.looked ? standing(reply.card) : words(reply.card));
    return true;
  }

  /** Without a reply nobody knows whether it was taken, until the card tells. */
  async lookAgain(version) {
    this.fail({
      message: CARD.unknown,
    });
    const card = await lookAgain(this, version);
    if (!card) return false;
    this.error.hidden = card.version !== version;
    if (card.version !== version) return { card, looked: true };
    this.fail({ message: 'The daemon did not take it. Your words are still here: send it again.' });
    return false;
  }

  /** A high risk is looked at once more before it is sent, and the daemon insists on that, too. */
  async choose(answer, more = {}) {
    if (this.card.state !== 'open' || !this.takesAnswers()) return;
    const press = { version: this.card.version, answer, ...more };
    if (this.card.risk !== 'high') return this.press(press);
    const shown = await this.send('/v1/page/review', press, () =>
      this.fail({ message: 'The daemon does not answer. Nothing was sent; your words stay here.' }),
    );
    if (!shown) return;
    this.replace(review(this, press, shown));
    this.reviewing = true;
    this.actions.querySelector('[data-first]').focus();
  }

  async press(press) {
    drafts.set(this.card.id, PRESSED, JSON.stringify([press.version, brief(press.answer)]));
    const taken = await this.change(
      '/v1/cards/answer',
      press,
      (card) => `“${brief(card.answer)}” is on hold. Press U to undo.`,
    );
    drafts.set(this.card.id, PRESSED, '');
    return taken;
  }

  undo() {
    return this.change('/v1/page/cancel', {}, () => 'Taken back. The question is open again.');
  }

  snooze() {
    return this.change('/v1/page/snooze', {}, (card) => `Snoozed until ${moment(card.snoozed_until)}.`);
  }

  wake() {
    return this.change('/v1/page/wake', {}, () => 'Awake again.');
  }

  dismiss() {
    return this.change('/v1/page/dismiss', { version: this.card.version }, () => 'Dismissed.');
  }

  onKey(event) {
    if (event.ctrlKey || event.metaKey || event.altKey) return;
    if (event.key === 'Escape' && this.element.contains(event.target)) {
      if (this.reviewing) this.show();
      this.element.focus();
      return event.preventDefault();
    }
    if (event.target !== this.element || this.busy) return;
    const act = this.keys()[event.key];
    if (!act) return;
    event.preventDefault();
    act();
  }

  /** What a key does while the card itself has the focus. */
  keys() {
    const { card } = this;
    const press = (selector) => {
      const control = this.actions.querySelector(selector);
      return control && (() => (control.matches('textarea') ? control.focus() : control.click()));
    };
    if (card.state === 'held') return { [ACTIONS.undo.key]: () => this.undo() };
    if (this.reviewing) return {};
    const leaving = {
      [ACTIONS.snooze.key]: press('[data-snooze]'),
      [ACTIONS.dismiss.key]: press('[data-dismiss]'),
    };
    if (card.state !== 'open' || !this.takesAnswers()) return leaving;
    return {
      ...leaving,
      ...Object.fromEntries(
        card.options.slice(0, 9).map((option, index) => [String(index + 1), () => this.choose(option)]),
      ),
      [ACTIONS.write.key]: press('textarea'),
      [ACTIONS.accept.key]: press('[data-accept]'),
    };
  }
}
