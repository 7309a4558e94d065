// Node's JSON.parse on the replies that make-cards.mjs wrote, bytes to values, measured once: json-parse.mjs
// FOLDER N...
import { readFileSync } from 'node:fs';
import path from 'node:path';

const [folder, ...counts] = process.argv.slice(2);
for (const count of counts.map(Number)) {
  const bytes = readFileSync(path.join(folder, `cards-${count}.json`));
  const times = [];
  const until = performance.now() + 300;
  while (times.length < 3 || performance.now() < until) {
    const start = performance.now();
    if (JSON.parse(bytes.toString('utf8')).data.cards.length !== count) throw new Error('cards are missing');
    times.push(performance.now() - start);
  }
  times.sort((a, b) => a - b);
  console.log(JSON.stringify({ name: `jsonParse/${count}`, ms: times[times.length >> 1] }));
}
