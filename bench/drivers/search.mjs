// The daemon's search over many cards, topics and receipts, as the command bar asks it while somebody types: the time
// of one reply, without its way over the socket: search.mjs COUNT
import { mkdtempSync, rmSync } from 'node:fs';
import { tmpdir } from 'node:os';
import path from 'node:path';
import { Search } from '../../companion/src/search.mjs';
import { Store } from '../../companion/src/store.mjs';
import { Topics } from '../../companion/src/topics.mjs';

const count = Number(process.argv[2]);
const vocabulary =
  'deploy payments refund database migrate review service login cache build test release cluster token queue index search storage bridge matter'.split(
    ' ',
  );
// Words that each row has, words that a twentieth has, an agent's name, an id, and what nothing has.
const typed = [
  'deploy payments',
  'refund database migrate',
  'cluster token queue index',
  'shall i review',
  'claude',
  'yes',
  `matter ${count - 1}`,
  `topic-${count >> 1}`,
  'nowhere to be found',
];
const limit = 5; // as the bar has it
const rounds = 5;

let seed = 1;
const word = () => {
  seed = (seed * 1103515245 + 12345) & 0x7fffffff;
  return vocabulary[(seed >> 8) % vocabulary.length];
};
const sentence = (words) => Array.from({ length: words }, word).join(' ');

function fill(store, i) {
  const topic = `topic-${i}`;
  const closed = i % 10 !== 0;
  store.insert('topics', {
    id: topic,
    title: `${sentence(2)} ${i}`,
    folder: `/src/${word()}`,
    touched_ms: i,
  });
  store.insert('cards', {
    id: `card-${i}`,
    version: 1,
    state: closed ? 'closed' : 'open',
    outcome: closed ? 'answered' : null,
    answer: closed ? '"Yes"' : null,
    closed_ms: closed ? i : null,
    kind: 'question',
    risk: 'low',
    topic,
    agent: i % 2 ? 'claude' : 'codex',
    session_id: `session-${i}`,
    title: `Shall I ${sentence(3)}?`,
    body: sentence(5),
    options: '["Yes","No"]',
    blocking: 1,
    refs: '{}',
    delivery: 'keep',
    menu: 0,
    opened_ms: i,
  });
  const line = `Typed into Claude Code: “${sentence(2)}”`;
  store.insert('receipts', { action: 'answer.typed', line, topic, card_id: `card-${i}`, ts_ms: i });
}

const home = mkdtempSync(path.join(tmpdir(), 'kelvadrome-bench-'));
try {
  const store = new Store(home);
  store.tx(() => {
    for (let i = 0; i < count; ++i) fill(store, i);
  });
  const app = { store, hub: { publish() {} } };
  app.topics = new Topics(app);
  app.search = new Search(app); // makes the index of all rows at once

  const times = [];
  const middles = new Map(); // of each query
  let found = 0;
  for (const query of typed.flatMap((text) => Array.from(text, (_, i) => text.slice(0, i + 1)))) {
    if (query.trim() !== query || query.length < 2) continue; // the bar doesn't ask
    const own = [];
    for (let round = 0; round < rounds; ++round) {
      const start = performance.now();
      const reply = JSON.stringify(app.search.find(query, limit));
      own.push(performance.now() - start);
      found += reply.includes('"kind"');
    }
    times.push(...own);
    middles.set(query, own.sort((a, b) => a - b)[rounds >> 1]);
  }
  if (found === 0) throw new Error('the search finds nothing');
  times.sort((a, b) => a - b);
  const [slowest, most] = [...middles].reduce((worst, entry) => (entry[1] > worst[1] ? entry : worst));
  console.log(JSON.stringify({ name: `search/${count}`, ms: times[times.length >> 1] }));
  console.log(JSON.stringify({ name: `search/${count}/p95`, ms: times[Math.floor(times.length * 0.95)] }));
  console.log(JSON.stringify({ name: `search/${count}/slowest`, ms: most }));
  console.error(`slowest: "${slowest}"`);
} finally {
  rmSync(home, { recursive: true, force: true });
}
