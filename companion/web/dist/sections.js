// The sections of the page. Each is {load, show}: what it reads from the daemon, and the elements it makes of that.
import { post } from './api.js';
import { CardList, needingYou } from './card.js';
import { agentName, clockTime, day, h } from './dom.js';
import { tellShell } from './shell.js';

const quiet = (text) => h('p', { class: 'quiet' }, text);

/** Lists that keep their elements between refreshes, by the path that they stand on. */
const lists = new Map();
function cardList(path, cards) {
  if (!lists.has(path)) {
    lists.clear();
    lists.set(path, new CardList());
  }
  const list = lists.get(path);
  list.update(cards);
  return list.element;
}

function receiptLines(receipts) {
  if (receipts.length === 0) return [quiet('Nothing yet.')];
  const days = new Map();
  for (const receipt of receipts) days.set(day(receipt.ts), [...days.get(day(receipt.ts)) ?? [], receipt]);
  return [...days].flatMap(([name, lines]) => [h('h2', {}, name), h('ul', { class: 'lines' }, lines.map((receipt) => h('li', {}, h('time', { datetime: receipt.ts }, clockTime(receipt.ts)), h('span', {}, receipt.line))))]);
}

const topicLink = (topic) => h('a', { href: `/topics/${encodeURIComponent(topic.id)}` }, topic.title);

const inbox = {
  load: () => post('/v1/inbox'),
  show: ({ counts, cards }) => {
    const waiting = needingYou(cards);
    return [
      h('h1', {}, counts.needs_you === 0 ? 'All clear' : counts.needs_you === 1 ? '1 needs you' : `${counts.needs_you} need you`),
      h('p', { class: 'quiet' }, `${counts.agents_working} working · ${counts.verified_today} delivered today`), cardList('/', waiting),
    ];
  },
};

const topics = {
  load: () => post('/v1/board'),
  show: (data) => [h('h1', {}, 'Topics'), data.topics.length === 0 ? quiet('No topics yet. A question names its topic.')
    : h('ul', { class: 'lines' }, data.topics.map((topic) => h('li', {}, topicLink(topic), topic.open_cards > 0 ? h('span', { class: 'tag' }, `${topic.open_cards} open`) : null)))],
};

const topic = {
  load: (path) => post('/v1/topic/detail', { topic: decodeURIComponent(path.slice('/topics/'.length)) }),
  show: (data, path) => [
    h('h1', {}, data.topic.title),
    data.folder ? h('p', { class: 'row' }, h('code', {}, data.folder), h('button', { type: 'button', class: 'native-only', onclick: () => tellShell({ type: 'action', action: 'openFolder', topic: data.topic.id }) }, 'Open folder')) : null,
    cardList(path, data.cards), h('h2', {}, 'Activity'), ...receiptLines(data.receipts),
  ],
};

const receipts = { load: () => post('/v1/receipts/list', { limit: 200 }), show: (data) => [h('h1', {}, 'Receipts'), ...receiptLines(data.receipts)] };

const agents = {
  load: () => post('/v1/agents/status'),
  show: ({ sessions }) => [h('h1', {}, 'Agents'), sessions.length === 0 ? quiet('No agent has asked anything yet.')
    : h('table', {}, h('thead', {}, h('tr', {}, ['Callsign', 'Agent', 'Status', 'Topic', 'Terminal'].map((name) => h('th', { scope: 'col' }, name)))),
      h('tbody', {}, sessions.map((row) => h('tr', { class: row.status }, h('td', {}, row.callsign), h('td', {}, row.label ?? agentName(row.agent)),
        h('td', {}, row.status === 'waiting_me' ? 'needs you' : row.doing ?? row.status), h('td', {}, row.topic_title ?? ''), h('td', {}, [row.host, row.tty].filter(Boolean).join(' '))))))],
};

const HIT_KINDS = [['topics', 'Topics'], ['decisions', 'Decisions'], ['questions', 'Questions']];
const search = {
  load: (path, query) => (query.get('q')?.trim() ? post('/v1/search', { q: query.get('q').trim(), limit: 20 }) : {}),
  show: (data, path, query) => [
    h('h1', {}, `Search: ${query.get('q') ?? ''}`),
    ...HIT_KINDS.filter(([key]) => data[key]?.length).flatMap(([key, title]) => [h('h2', {}, title), h('ul', { class: 'lines' }, data[key].map((hit) => h('li', {},
      hit.topic ? h('a', { href: `/topics/${encodeURIComponent(hit.topic)}` }, hit.title) : h('a', { href: `/?card=${hit.id}` }, hit.title), h('span', { class: 'quiet' }, hit.snippet))))]),
    HIT_KINDS.some(([key]) => data[key]?.length) ? null : quiet('Nothing found.'),
  ],
};

const empty = (title, words) => ({ load: () => ({}), show: () => [h('h1', {}, title), quiet(words)] });

const SECTIONS = {
  '/': inbox, '/topics': topics, '/receipts': receipts, '/agents': agents, '/search': search,
  '/handoffs': empty('Handoffs', 'This kelvadromed keeps no handoffs yet.'), '/skills': empty('Skills', 'This kelvadromed runs no skills yet.'),
  '/autopilot': empty('Autopilot', 'No rule answers for you. Every question comes to you.'),
  '/onboarding': empty('Set up kelvadrome', 'There is nothing to set up here yet: an agent that calls “kd ask” appears in the Inbox by itself.'),
};

export const NAVIGATION = [['/', 'Inbox'], ['/topics', 'Topics'], ['/handoffs', 'Handoffs'], ['/skills', 'Skills'], ['/receipts', 'Receipts'], ['/agents', 'Agents'], ['/autopilot', 'Autopilot']];
export const sectionOf = (path) => SECTIONS[path] ?? (path.startsWith('/topics/') ? topic : null);
