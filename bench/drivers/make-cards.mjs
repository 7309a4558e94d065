// Writes cards-N.json files, replies of /v1/cards/list as the daemon sends them: make-cards.mjs FOLDER N...
import { writeFileSync } from 'node:fs';
import path from 'node:path';

const [folder, ...counts] = process.argv.slice(2);
for (const count of counts.map(Number)) {
  const cards = Array.from({ length: count }, (_, i) => ({
    id: `card-${i}`,
    version: 3,
    kind: 'question',
    risk: i % 7 ? 'low' : 'high',
    state: 'open',
    topic: `topic-${i % 40}`,
    agent: 'claude',
    session_id: `session-${i % 9}`,
    stop_type: null,
    title: `Should migration ${i} run against staging first?`,
    body: 'The agent wants to run "migrate" now.\nAmount as read: $12.50\nThe paths are in the log.',
    options: ['Yes, run it', 'No', 'Ask again later'],
    default: 'Yes, run it',
    blocking: true,
    opened_at: '2026-11-24T10:00:00.000Z',
    held_until: null,
    refs: { host: 'tmux', pane: `%${i % 90}` },
  }));
  writeFileSync(path.join(folder, `cards-${count}.json`), JSON.stringify({ ok: true, data: { cards } }));
}
