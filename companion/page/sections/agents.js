// The agents that have told of themselves: those that need the user first, those that have ended last.
import { post } from '../lib/api.js';
import { announce } from '../lib/announce.js';
import { Rows, h, said, showIn } from '../lib/dom.js';
import { icon } from '../lib/icons.js';
import { LAMP } from '/shared/words.js';
import { keyOf, nameOf, placeOf } from '../lib/who.js';
import { ageOf, count } from '../lib/words.js';
import { tellShell } from '../page/shell.js';
import { nothing } from './empty.js';

const LAMPS = { waiting_me: 'needs', busy: 'working', working: 'working', failed: 'failed', ended: 'ended' };
const WORDS = {
  waiting_me: LAMP.needsYou,
  busy: LAMP.working,
  working: LAMP.working,
  waiting: LAMP.waiting,
  idle: LAMP.idle,
  failed: LAMP.failed,
  ended: LAMP.ended,
};
const ORDER = ['needs', 'failed', 'working', 'idle', 'ended'];
const lampOf = (row) => LAMPS[row.status] ?? 'idle';
const TERMINALS = { iterm2: 'iTerm2', terminal: 'Terminal' };

/** A press on an agent leads to its questions; one without any has its terminal brought to the front. */
function line([row, questions], show) {
  const lamp = lampOf(row);
  const place = placeOf(row, row.topic_title ?? row.topic);
  const query = new URLSearchParams({ agent: row.agent, session: row.session_id });
  return h(
    'li',
    { class: `line agent ${lamp}` },
    h('span', { class: `lamp ${lamp}`, 'aria-hidden': 'true' }),
    h(
      'span',
      { class: 'grow' },
      h(
        'span',
        { class: 'strong' },
        questions > 0 ? h('a', { href: `/?${query}` }, said(nameOf(row))) : said(nameOf(row)),
      ),
      h(
        'span',
        { class: 'soft sub' },
        [
          row.topic
            ? h('a', { href: `/topics/${encodeURIComponent(row.topic)}` }, said(row.topic_title ?? row.topic))
            : null,
          place || null,
          questions > 0 ? count(questions, 'question') : null,
          h('span', { class: 'expert code' }, `${row.session_id}${row.pid ? `, pid ${row.pid}` : ''}`),
        ]
          .filter(Boolean)
          .map((part, index) => [index && typeof part === 'string' ? ' · ' : index ? ' ' : '', part]),
      ),
    ),
    h(
      'span',
      { class: `word ${lamp}`, dir: 'auto' },
      (row.status === 'waiting_me' ? undefined : row.doing) ??
        WORDS[row.status] ??
        row.status.replaceAll('_', ' '),
    ),
    row.tty && lamp !== 'ended'
      ? h(
          'button',
          {
            type: 'button',
            class: 'flat small',
            'aria-label': `Show the terminal of ${[nameOf(row), placeOf(row)].filter(Boolean).join(', ')}`,
            onclick: (event) => show(row, event.currentTarget),
          },
          'Show terminal',
        )
      : null,
  );
}

const openedBy = ({ surface, program, pid }) =>
  surface === 'browser' ? 'A browser' : `Kelvadrome${program ? ` (${program}, pid ${pid})` : ''}`;

/** One place where the page is open. One that is not this very page can be ended here; Kelvadrome itself then comes in anew. */
function openPage(row, end) {
  return h(
    'li',
    { class: 'line' },
    icon('inbox'),
    h(
      'span',
      { class: 'grow' },
      said(openedBy(row), 'span', { class: 'strong' }),
      h('span', { class: 'soft sub' }, 'since ', ageOf(row.since), ', last seen ', ageOf(row.seen)),
    ),
    row.current
      ? h('span', { class: 'word' }, 'This page')
      : h(
          'button',
          { type: 'button', class: 'small', 'aria-label': `End ${openedBy(row)}`, onclick: () => end(row) },
          'End',
        ),
  );
}

export class Agents {
  title = 'Agents';
  static access = null;

  constructor(query, id, { reload }) {
    this.reload = reload;
    this.rows = new Rows(h('ul', { class: 'boxed' }), (row) => line(row, (one, at) => this.show(one, at)));
    this.notShown = h('p', { class: 'error', role: 'alert', hidden: true });
    this.none = h('div', {});
    this.terminals = h('div', {});
    this.pages = new Rows(h('ul', { class: 'boxed' }), (row) => openPage(row, (one) => this.end(one)));
    this.error = h('p', { class: 'error', role: 'alert', hidden: true });
    this.element = h(
      'div',
      {},
      h('header', { class: 'top' }, h('h1', { tabindex: '-1' }, 'Agents')),
      this.rows.element,
      this.notShown,
      this.none,
      this.terminals,
      h('h2', { class: 'group' }, 'Where this page is open'),
      this.pages.element,
      this.error,
    );
    tellShell({ type: 'action', action: 'terminalAccess' });
  }

  async load() {
    const [{ sessions, cards, counts }, pages] = await Promise.all([
      post('/v1/inbox'),
      post('/v1/page/sessions'),
    ]);
    return { sessions, cards, counts, pages: pages.sessions };
  }

  async show(row, button) {
    this.notShown.hidden = true;
    button.setAttribute('aria-busy', 'true');
    try {
      const { agent, session_id: session } = row;
      const { outcome, reason } = await post('/v1/page/focus', { agent, session_id: session });
      if (outcome !== 'done') throw new Error(reason ?? 'Its terminal could not be brought to the front.');
      announce('Its terminal is in front.');
    } catch (error) {
      this.notShown.textContent = `${nameOf(row)}: ${error.message}`;
      this.notShown.hidden = false;
    }
    button.removeAttribute('aria-busy');
  }

  async end({ session }) {
    this.error.hidden = true;
    try {
      await post('/v1/page/sessions/end', { session });
      announce('That page was ended.');
    } catch (error) {
      this.error.textContent = error.message;
      this.error.hidden = false;
    }
    return this.reload();
  }

  update({ sessions, cards, pages }) {
    const questions = new Map();
    for (const card of cards)
      if (card.state !== 'gone') questions.set(keyOf(card), (questions.get(keyOf(card)) ?? 0) + 1);
    const sorted = [...sessions].sort((a, b) => ORDER.indexOf(lampOf(a)) - ORDER.indexOf(lampOf(b)));
    this.rows.update(sorted.map((row) => [keyOf(row), [row, questions.get(keyOf(row)) ?? 0]]));
    showIn(this.none, sessions.length === 0, (none) =>
      none
        ? nothing(
            'agents',
            'No agents yet',
            'An agent shows here once it asks with “kd ask” or tells of itself with “kd touch”.',
          )
        : [],
    );
    this.showAccess(Agents.access);
    this.pages.update(pages.map((row) => [row.session, row]));
  }

  /** What the shell may type into; terminals that need no consent here are left out. */
  showAccess(access) {
    Agents.access = access;
    const rows = Object.entries(access ?? {}).filter(
      ([app, status]) => TERMINALS[app] && status !== 'unknown',
    );
    showIn(this.terminals, rows, () =>
      rows.length
        ? [
            h('h2', { class: 'group' }, 'Terminals'),
            h(
              'ul',
              { class: 'boxed' },
              rows.map(([app, status]) =>
                h(
                  'li',
                  { class: 'line' },
                  h('span', { class: 'grow' }, TERMINALS[app]),
                  status === 'granted'
                    ? h('span', { class: 'soft' }, 'Allowed')
                    : h(
                        'button',
                        {
                          type: 'button',
                          class: 'small',
                          onclick: () => tellShell({ type: 'action', action: 'allowTerminal', app }),
                        },
                        status === 'denied' ? 'Open settings' : 'Allow',
                      ),
                ),
              ),
            ),
          ]
        : [],
    );
  }
}
