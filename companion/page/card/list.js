// The cards of a section, in step with the daemon's list: kept elements, a steady view, and only as many on the page as
// anybody looks at.
import { NEEDS_YOU, YOUR_REQUEST } from '/shared/agents.js';
import { OUTCOME, STATE } from '/shared/words.js';
import { keyOf } from '../lib/who.js';
import { h, place } from '../lib/dom.js';
import { icon } from '../lib/icons.js';
import { drafts } from '../lib/drafts.js';
import { announce } from '../lib/announce.js';
import { agentName, brief, count } from '../lib/words.js';
import { CardView } from './card.js';

const AT_A_TIME = 40;
const FAREWELL_MS = 4000;
const SETTLE_MS = 350;

export class CardList {
  #views = new Map();
  #cards = [];
  #limit = AT_A_TIME;
  #farewells = new Map(); // card id -> the row that says what became of it
  #settle = null;
  #pointer = null; // how far down the window it stands, while it is over these cards

  constructor(label) {
    this.context = {
      sessions: new Map(),
      topics: new Map(),
      session: (card) => this.context.sessions.get(keyOf(card)),
      topic: (card) => this.context.topics.get(card.topic),
    };
    const follow = (event) => {
      this.#pointer = event.pointerType === 'touch' ? null : event.clientY;
    };
    this.feed = h('div', {
      class: 'cards',
      role: 'feed',
      'aria-label': label,
      onpointermove: follow,
      onpointerover: follow,
      onpointerleave: () => {
        this.#pointer = null;
      },
    });
    this.more = h('button', { type: 'button', class: 'more', hidden: true, onclick: () => this.showMore() });
    this.element = h('div', {}, this.feed, this.more);
    new IntersectionObserver(
      (seen) => {
        if (seen.some((entry) => entry.isIntersecting) && !this.more.hidden) this.showMore();
      },
      { rootMargin: '800px' },
    ).observe(this.more);
  }

  /** `outcomes` tells of cards that closed a moment ago: id -> outcome. */
  update(cards, { sessions = [], topics = [], outcomes = new Map() } = {}) {
    this.context.sessions = new Map(sessions.map((row) => [keyOf(row), row]));
    this.context.topics = new Map(topics.map((row) => [row.id, row]));
    this.#sayFarewell(cards, outcomes);
    this.#cards = cards;
    this.#steadily(() => this.#paint());
  }

  #paint() {
    const focused = this.feed.contains(document.activeElement)
      ? document.activeElement.closest('article')
      : null;
    const after = focused?.nextElementSibling?.id ?? focused?.previousElementSibling?.id;
    const before = [...this.feed.children];
    const shown = this.#cards.slice(0, this.#limit);
    const next = new Map();
    for (const card of shown) {
      const view = this.#views.get(card.id);
      if (view && card.version >= view.card.version) view.update(card);
      next.set(card.id, view ?? new CardView(card, this.context));
    }
    this.#views = next;
    place(
      this.feed,
      this.#inPlace(
        before,
        [...next.values()].map((view) => view.element),
      ),
    );
    this.#count();
    if (focused && !focused.isConnected)
      (
        document.getElementById(after) ??
        this.feed.querySelector('article') ??
        document.querySelector('main h1')
      )?.focus();
  }

  /** The cards with the lines of those that left between them, each where its card was in `before`. */
  #inPlace(before, cards) {
    const order = [...cards];
    for (const [id, slot] of this.#farewells) {
      const at = before.findIndex((element) => element === slot || element.id === id);
      const above = before.slice(0, Math.max(at, 0)).findLast((element) => order.includes(element));
      order.splice(above ? order.indexOf(above) + 1 : 0, 0, slot);
    }
    return order;
  }

  #count() {
    const left = this.#cards.length - this.#views.size;
    this.more.hidden = left <= 0;
    this.more.textContent = `Show ${Math.min(left, AT_A_TIME)} more of ${left}`;
    let index = 0;
    for (const { element } of this.#views.values()) {
      element.setAttribute('aria-posinset', String(++index));
      element.setAttribute('aria-setsize', String(this.#cards.length));
    }
  }

  showMore() {
    this.#limit += AT_A_TIME;
    this.#paint();
  }

  /** Cards that come or go above must not push away what the user reads, types into, or is about to press. */
  #steadily(paint) {
    const under = this.#pointer === null ? null : this.feed.querySelector('article:hover');
    const anchor = this.feed.contains(document.activeElement)
      ? document.activeElement.closest('article')
      : under
        ? under
        : scrollY > 0
          ? [...this.feed.children].find((element) => element.getBoundingClientRect().bottom > 0)
          : null;
    const before = anchor?.getBoundingClientRect().top;
    const tops = new Map([...this.feed.children].slice(0, 6).map((element) => [element, element.offsetTop]));
    paint();
    const moved = () => Math.abs(anchor.getBoundingClientRect().top - before) > 1;
    if (anchor?.isConnected) {
      if (moved()) scrollBy(0, anchor.getBoundingClientRect().top - before);
      if (moved()) this.#pause(); // the page's end was nearer than that
    } else if ([...tops].some(([element, top]) => element.isConnected && element.offsetTop !== top))
      this.#pause();
  }

  /** What has just moved takes no press for a moment: nobody answers what they have not seen. */
  #pause() {
    this.feed.toggleAttribute('data-moving', true);
    clearTimeout(this.#settle);
    this.#settle = setTimeout(() => this.feed.toggleAttribute('data-moving', false), SETTLE_MS);
  }

  /** A card that left is not simply gone: a line in its place, as high as the card was, says what became of it. */
  #sayFarewell(cards, outcomes) {
    const live = new Set(cards.map((card) => card.id));
    for (const id of this.#farewells.keys()) if (live.has(id)) this.#farewells.delete(id); // it is back
    for (const [id, view] of this.#views) {
      if (live.has(id) || this.#farewells.has(id)) continue;
      drafts.drop(id);
      const words = farewell(view.card, outcomes.get(id));
      if (!words) continue;
      announce(words);
      const slot = h('p', { class: 'farewell' }, icon('check'), h('span', { dir: 'auto' }, words));
      slot.style.minBlockSize = `${view.element.getBoundingClientRect().height}px`;
      this.#farewells.set(id, slot);
      setTimeout(() => this.#close(id), FAREWELL_MS);
    }
  }

  /**
   * Takes a line away once that moves nothing under the pointer: a line below it goes, one above it when the page can be
   * scrolled by as much, else when the pointer leaves.
   */
  #close(id) {
    const slot = this.#farewells.get(id);
    if (!slot) return;
    const { top, height } = slot.getBoundingClientRect();
    if (this.#pointer !== null && top <= this.#pointer && scrollY < height) {
      slot.dataset.over = ''; // its time is over
      this.feed.addEventListener('pointerleave', () => this.#close(id), { once: true });
      return;
    }
    this.#farewells.delete(id);
    this.#steadily(() => this.#paint());
  }

  /** Brings a card into view and gives it the focus. False when it is not in the list. */
  focus(id) {
    const index = this.#cards.findIndex((card) => card.id === id);
    if (index < 0) return false;
    if (index >= this.#limit) {
      this.#limit = index + AT_A_TIME;
      this.#paint();
    }
    const { element } = this.#views.get(id);
    element.focus({ preventScroll: true });
    element.scrollIntoView({ block: element.offsetHeight > innerHeight ? 'start' : 'center' });
    return true;
  }
}

/** What became of a card that left, in words; null where nothing has to be said. */
function farewell(card, outcome) {
  const name = agentName(card.agent);
  if (outcome === 'answered' && card.answer !== undefined)
    return `${card.kept ? 'Kept for' : 'Sent to'} ${name}: “${brief(card.answer)}”`;
  return {
    dismissed: OUTCOME.dismissed,
    withdrawn: OUTCOME.withdrawn,
    went_on: OUTCOME.wentOn,
    snoozed: STATE.snoozed,
  }[outcome];
}

const rank = (card) => (card.risk === 'high' ? 0 : 2) + (card.blocking ? 0 : 1);

/** The cards that need the user, the most urgent first. */
export const needingYou = (cards) =>
  cards
    .filter((card) => NEEDS_YOU.includes(card.kind) && card.state !== 'gone' && !card.snoozed_until)
    .sort((a, b) => rank(a) - rank(b));

/** What a screen reader hears of cards that are new since `known`, a set of ids. */
export function announceNew(cards, known) {
  const fresh = cards.filter((card) => !known.has(card.id));
  if (fresh.length === 1) {
    const [{ agent, request, risk, title }] = fresh;
    const who = request ? YOUR_REQUEST : `${agentName(agent)} asks`;
    announce(`${risk === 'high' ? 'High risk. ' : ''}${who}: ${title}`);
  } else if (fresh.length > 1) announce(`${count(fresh.length, 'new question')}.`);
}
