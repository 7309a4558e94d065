// The agents that have told of themselves: those that need the user first, those that have ended last.
import { post } from '../lib/api.js';
import { Rows, h, said, showIn } from '../lib/dom.js';
import { agentDisplay } from '../lib/words.js';
import { tellShell } from '../page/shell.js';
import { nothing } from './empty.js';

const LAMPS = { waiting_me: 'needs', busy: 'working', working: 'working', failed: 'failed', ended: 'ended' };
const WORDS = { waiting_me: 'Needs you', busy: 'Working', working: 'Working', waiting: 'Waiting', idle: 'Idle', failed: 'Failed', ended: 'Ended' };
const ORDER = ['needs', 'failed', 'working', 'idle', 'ended'];
const lampOf = (row) => LAMPS[row.status] ?? 'idle';
const TERMINALS = { iterm2: 'iTerm2', terminal: 'Terminal' };

function line(row) {
  const lamp = lampOf(row);
  const place = [row.host === 'unknown' ? null : row.host, row.tty].filter(Boolean).join(' ');
  return h('li', { class: `line agent ${lamp}` }, h('span', { class: `lamp ${lamp}`, 'aria-hidden': 'true' }),
    h('span', { class: 'grow' }, h('span', { class: 'strong' }, said(agentDisplay(row.agent, row.label)), row.callsign ? h('span', { class: 'soft' }, ' · ', said(row.callsign)) : null),
      h('span', { class: 'soft sub' }, [row.topic ? h('a', { href: `/topics/${encodeURIComponent(row.topic)}` }, said(row.topic_title ?? row.topic)) : null, place || null, h('span', { class: 'expert code' }, `${row.session_id}${row.pid ? `, pid ${row.pid}` : ''}`)]
        .filter(Boolean).map((part, index) => [index && typeof part === 'string' ? ' · ' : index ? ' ' : '', part]))),
    h('span', { class: `word ${lamp}`, dir: 'auto' }, (row.status === 'waiting_me' ? undefined : row.doing) ?? WORDS[row.status] ?? row.status.replaceAll('_', ' ')));
}

export class Agents {
  title = 'Agents';
  static access = null;

  constructor() {
    this.rows = new Rows(h('ul', { class: 'boxed' }), line);
    this.none = h('div', {});
    this.terminals = h('div', {});
    this.element = h('div', {}, h('header', { class: 'top' }, h('h1', { tabindex: '-1' }, 'Agents')), this.rows.element, this.none, this.terminals);
    tellShell({ type: 'action', action: 'terminalAccess' });
  }

  load() { return post('/v1/agents/status'); }

  update({ sessions }) {
    const sorted = [...sessions].sort((a, b) => ORDER.indexOf(lampOf(a)) - ORDER.indexOf(lampOf(b)));
    this.rows.update(sorted.map((row) => [`${row.agent} ${row.session_id}`, row]));
    showIn(this.none, sessions.length === 0, (none) => (none ? nothing('agents', 'No agents yet', 'An agent shows here once it asks with “kd ask” or tells of itself with “kd touch”.') : []));
    this.showAccess(Agents.access);
  }

  /** What the shell may type into; terminals that need no consent here are left out. */
  showAccess(access) {
    Agents.access = access;
    const rows = Object.entries(access ?? {}).filter(([app, status]) => TERMINALS[app] && status !== 'unknown');
    showIn(this.terminals, rows, () => (rows.length ? [h('h2', { class: 'group' }, 'Terminals'), h('ul', { class: 'boxed' }, rows.map(([app, status]) => h('li', { class: 'line' }, h('span', { class: 'grow' }, TERMINALS[app]),
      status === 'granted' ? h('span', { class: 'soft' }, 'Allowed') : h('button', { type: 'button', class: 'small', onclick: () => tellShell({ type: 'action', action: 'allowTerminal', app }) }, status === 'denied' ? 'Open settings' : 'Allow'))))] : []));
  }
}
