// One question on the page. An element lives as long as its card looks the same, so that words being typed survive
// every refresh; what changes with the card is built anew.
import { post } from './api.js';
import { age, agentName, h } from './dom.js';

const isHigh = (card) => card.risk === 'high';
const inWords = (answer) => (typeof answer === 'string' ? answer : Object.entries(answer).map(([id, text]) => `${id}: ${text}`).join('\n'));
const brief = (answer) => { const words = inWords(answer).replaceAll('\n', '; '); return words.length > 40 ? `${words.slice(0, 40)}…` : words; };

function meta(card) {
  return h('p', { class: 'meta' },
    h('strong', {}, agentName(card.agent)), card.topic ? h('a', { href: `/topics/${encodeURIComponent(card.topic)}` }, card.topic) : null,
    h('time', { datetime: card.opened_at, title: card.opened_at }, age(card.opened_at)),
    card.kind === 'question' ? null : h('span', { class: 'tag' }, card.kind.replace('_', ' ')),
    card.risk === 'low' ? null : h('span', { class: `tag risk-${card.risk}` }, `${card.risk} risk`),
    card.blocking ? null : h('span', { class: 'tag' }, 'agent goes on working'),
    h('span', { class: 'expert' }, `${card.id} · version ${card.version}`));
}

class CardView {
  constructor(card) {
    this.card = card;
    this.error = h('p', { class: 'error', role: 'alert', hidden: true });
    this.actions = h('div', { class: 'actions' });
    this.element = h('article', { class: `card ${card.state} ${isHigh(card) ? 'high' : ''}`, id: card.id, tabindex: '-1', 'aria-label': card.title, onkeydown: (event) => this.onKey(event) },
      meta(card), h('h2', {}, card.title), card.body ? h('p', { class: 'body' }, card.body) : null,
      card.refs?.last_refusal ? h('p', { class: 'refusal' }, `Not delivered: ${card.refs.last_refusal}`) : null,
      this.actions, this.error);
    this.show();
  }

  show() {
    const build = { open: () => this.choices(), held: () => this.hold(), armed: () => [h('p', { class: 'quiet' }, `“${brief(this.card.answer)}” is on its way to the agent…`)] }[this.card.state] ?? (() => this.ended());
    this.actions.replaceChildren(...build());
  }

  ended() { return [h('p', { class: 'quiet' }, `${this.card.answer === undefined ? this.card.outcome : `Answered “${brief(this.card.answer)}”`}, ${age(this.card.closed_at)}`)]; }

  fail(error) {
    this.error.textContent = error.message;
    this.error.hidden = false;
  }

  /** Sends something for this card; the daemon's event then brings the new state. Words stay on a failure. */
  async send(path, body) {
    this.error.hidden = true;
    const focused = this.actions.contains(document.activeElement) ? document.activeElement : null;
    // A control that is disabled or replaced loses the focus; the card keeps it meanwhile.
    if (focused) this.element.focus({ preventScroll: true });
    this.setBusy(true);
    try {
      await post(path, { card_id: this.card.id, ...body });
    } catch (error) {
      this.fail(error);
      this.setBusy(false);
      focused?.focus();
    }
  }

  setBusy(busy) { for (const control of this.actions.querySelectorAll('button, input, textarea')) control.disabled = busy; }

  /** A high risk is looked at once more before it is sent. */
  choose(answer, more = {}) {
    const send = () => this.send('/v1/cards/answer', { version: this.card.version, answer, ...more });
    if (!isHigh(this.card)) return send();
    const back = h('button', { type: 'button', onclick: () => this.show() }, 'Back');
    this.actions.replaceChildren(h('div', { class: 'review', role: 'group', 'aria-label': 'Review' },
      h('p', {}, 'You are about to answer:'), h('blockquote', {}, inWords(answer)), h('p', {}, 'This is marked as high risk. Read the question once more before you send it.'),
      h('div', { class: 'row' }, back, h('button', { type: 'button', class: 'danger', onclick: send }, `Send “${brief(answer)}”`))));
    back.focus();
  }

  choices() {
    const { card } = this;
    const parts = [];
    if (card.options.length > 0) {
      parts.push(h('div', { class: 'row options' }, card.options.map((option, index) => h('button', {
        type: 'button', class: option === card.default ? 'suggested' : null, onclick: () => this.choose(option),
      }, h('kbd', { 'aria-hidden': 'true' }, String(index + 1)), option, option === card.default ? h('small', {}, 'suggested') : null))));
    }
    if (card.rows?.length) parts.push(this.batch());
    else if (!card.menu && !card.screen) parts.push(this.freeText());
    parts.push(this.dismissal());
    return parts;
  }

  freeText() {
    const { card } = this;
    const field = h('input', { type: 'text', 'aria-label': 'Your answer', autocomplete: 'off', placeholder: card.options.length ? 'Or your own words' : 'Your answer', maxlength: '4000' });
    if (card.options.length === 0 && card.default !== undefined) field.value = card.default;
    return h('form', { class: 'row', onsubmit: (event) => { event.preventDefault(); this.choose(field.value.trim()); } }, field, h('button', { type: 'submit' }, 'Send'));
  }

  batch() {
    const { card } = this;
    const fields = new Map(card.rows.map((row) => [row.question_id, h('input', { type: 'text', autocomplete: 'off', maxlength: '1000', value: row.default ?? '' })]));
    const answers = () => Object.fromEntries([...fields].map(([id, field]) => [id, field.value.trim()]));
    const ready = card.rows.every((row) => row.default !== undefined);
    const defaults = () => Object.fromEntries(card.rows.map((row) => [row.question_id, row.default]));
    return h('form', { class: 'batch', onsubmit: (event) => { event.preventDefault(); this.choose(answers()); } },
      card.rows.map((row) => h('label', {}, h('span', {}, row.text), fields.get(row.question_id))),
      h('div', { class: 'row' },
        ready ? h('button', { type: 'button', class: 'suggested', onclick: () => this.choose(defaults(), { accept_all_defaults: true }) }, `Accept ${card.rows.length} defaults`) : null,
        h('button', { type: 'submit' }, 'Send these answers')));
  }

  dismissal() {
    const first = h('button', { type: 'button', class: 'plain', onclick: () => first.replaceWith(sure) }, 'Dismiss');
    const sure = h('button', { type: 'button', class: 'plain', onclick: () => this.send('/v1/page/dismiss', { version: this.card.version }) }, 'Dismiss without an answer');
    return h('div', { class: 'row end' }, first);
  }

  hold() {
    const until = Date.parse(this.card.held_until);
    const bar = h('progress', { max: String(isHigh(this.card) ? 5 : 2), 'aria-label': 'Time to undo' });
    const tick = () => {
      bar.value = Math.max(0, (until - Date.now()) / 1000);
      if (bar.isConnected && bar.value > 0) requestAnimationFrame(tick);
    };
    requestAnimationFrame(tick);
    return [h('div', { class: 'row held-row', role: 'status' }, h('span', {}, `“${brief(this.card.answer)}” goes out in a moment.`), bar, h('button', { type: 'button', onclick: () => this.send('/v1/page/cancel', {}) }, 'Undo'))];
  }

  onKey(event) {
    if (event.target !== this.element || event.ctrlKey || event.metaKey || event.altKey) return;
    const option = /^[1-9]$/.test(event.key) ? this.card.options[Number(event.key) - 1] : undefined;
    if (this.card.state === 'open' && option !== undefined) this.choose(option);
    else if (this.card.state === 'held' && event.key === 'u') this.send('/v1/page/cancel', {});
    else if (event.key === 'j' || event.key === 'k') (event.key === 'j' ? this.element.nextElementSibling : this.element.previousElementSibling)?.focus();
    else return;
    event.preventDefault();
  }
}

/** Keeps the elements of a list of cards in step with the daemon's list. */
export class CardList {
  #views = new Map();

  constructor() {
    this.element = h('div', { class: 'cards' });
  }

  update(cards) {
    const focused = this.element.contains(document.activeElement) ? document.activeElement.closest('article')?.id : null;
    const next = new Map();
    for (const card of cards) {
      const shown = JSON.stringify(card);
      const old = this.#views.get(card.id);
      next.set(card.id, old?.shown === shown ? old : { shown, view: new CardView(card) });
    }
    const elements = [...next.values()].map(({ view }) => view.element);
    for (const { view } of this.#views.values()) if (!elements.includes(view.element)) view.element.remove();
    // Elements that are in place are not touched: moving one would take the focus from it.
    elements.forEach((element, index) => {
      if (this.element.children[index] !== element) this.element.insertBefore(element, this.element.children[index] ?? null);
    });
    this.#views = next;
    if (focused && !this.element.contains(document.activeElement)) document.getElementById(focused)?.focus();
  }
}

const KINDS = ['stop', 'question', 'batch', 'conflict', 'handoff_review', 'precedent'];
const rank = (card) => (card.risk === 'high' ? 0 : 2) + (card.blocking ? 0 : 1);

/** The cards that need the user, the most urgent first. */
export const needingYou = (cards) => cards.filter((card) => KINDS.includes(card.kind)).sort((a, b) => rank(a) - rank(b));
