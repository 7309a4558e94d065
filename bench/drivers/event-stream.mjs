// npm's eventsource-parser on the text that EventStreamBench.cpp makes, measured once: event-stream.mjs PEERS
import { createRequire } from 'node:module';
import path from 'node:path';

const { createParser } = createRequire(path.join(process.argv[2], 'package.json'))('eventsource-parser');

function streamText(bytes) {
  const parts = [];
  for (let i = 0, size = 0; size < bytes; ++i) {
    parts.push(
      `event: card.opened\nid: ${i}\ndata: {"id":"card-${i}","title":"Should the migration run against staging first?"}\n\n`,
    );
    size += parts.at(-1).length;
  }
  return parts.join('');
}

for (const [mib, piece] of [
  [1, 16384],
  [64, 16384],
  [1, 1],
  [64, 1],
]) {
  const text = streamText(mib << 20);
  const times = [];
  const until = performance.now() + 300;
  while (times.length < 1 || performance.now() < until) {
    let events = 0;
    const parser = createParser({
      onEvent: () => {
        ++events;
      },
    });
    const start = performance.now();
    for (let at = 0; at < text.length; at += piece) parser.feed(text.slice(at, at + piece));
    times.push(performance.now() - start);
    if (events === 0) throw new Error('no events');
  }
  times.sort((a, b) => a - b);
  console.log(JSON.stringify({ name: `eventsourceParser/${mib}/${piece}`, ms: times[times.length >> 1] }));
}
