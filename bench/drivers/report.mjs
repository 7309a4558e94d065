// One table of ratios from what the drivers wrote: report.mjs RESULTS
import { readFileSync, readdirSync } from 'node:fs';
import path from 'node:path';

const folder = process.argv[2];
const measured = new Map();
for (const file of readdirSync(folder)) {
  const text = readFileSync(path.join(folder, file), 'utf8');
  if (file.endsWith('.json')) {
    const toMs = { ns: 1e-6, us: 1e-3, ms: 1, s: 1e3 };
    for (const row of JSON.parse(text).benchmarks ?? []) {
      if (row.aggregate_name !== 'median') continue;
      measured.set(row.run_name.replace(/\/real_time$/, ''), row.real_time * toMs[row.time_unit]);
    }
  } else {
    for (const line of text.split('\n').filter(Boolean)) {
      const { name, ...value } = JSON.parse(line);
      measured.set(name, value.ms ?? value.value);
    }
  }
}

const ms = (value) =>
  value === undefined ? '-' : value < 1 ? `${(value * 1000).toFixed(1)} us` : `${value.toFixed(2)} ms`;
const rows = [['what', 'ours', 'peer', 'ratio', 'target', '']];

// `faster`: the target is how many times faster than the peer; otherwise how many times its time at most.
function compare(what, ours, peer, target, faster = false) {
  const [a, b] = [measured.get(ours), measured.get(peer)];
  const ratio = faster ? b / a : a / b;
  const met = Number.isNaN(ratio)
    ? 'not measured'
    : (faster ? ratio >= target : ratio <= target)
      ? 'met'
      : 'MISSED';
  rows.push([
    what,
    ms(a),
    ms(b),
    Number.isNaN(ratio) ? '-' : ratio.toFixed(2),
    `${faster ? '>=' : '<='} ${target}`,
    met,
  ]);
}

// A ratio to know, without a target.
function tell(what, ours, peer) {
  const [a, b] = [measured.get(ours), measured.get(peer)];
  rows.push([what, ms(a), ms(b), Number.isNaN(b / a) ? '-' : (b / a).toFixed(2), '', '']);
}

// Growth over growth of the work: 1 is linear; the target leaves room for caches.
function growth(what, small, large, factor, target = 1.5) {
  const [a, b] = [measured.get(small), measured.get(large)];
  const ratio = b / a / factor;
  rows.push([
    what,
    ms(b),
    ms(a),
    Number.isNaN(ratio) ? '-' : ratio.toFixed(2),
    `<= ${target}`,
    ratio <= target ? 'met' : 'MISSED',
  ]);
}

function limit(what, name, unit, target) {
  const value = measured.get(name);
  rows.push([
    what,
    value === undefined ? '-' : `${value} ${unit}`,
    '',
    '',
    `<= ${target} ${unit}`,
    value === undefined ? 'not measured' : value <= target ? 'met' : 'MISSED',
  ]);
}

for (const [size, word] of [
  [256, '256 B'],
  [1 << 20, '1 MiB'],
]) {
  compare(`exchange of ${word} / libcurl`, `exchangeOurs/${size}`, `exchangeCurl/${size}`, 1);
  compare(`exchange of ${word} / bare loop`, `exchangeOurs/${size}`, `exchangeBare/${size}`, 1.25);
}
for (const count of [1000, 10000, 100000])
  compare(`${count} cards / JSON.parse`, `decodeCards/${count}`, `jsonParse/${count}`, 4, true);
tell(
  '100000 cards into memory that is new / JSON.parse',
  'decodeCardsIntoFreshMemory/100000',
  'jsonParse/100000',
);
growth('cards, growth 1,000 to 100,000', 'decodeCards/1000', 'decodeCards/100000', 100);
for (const [mib, piece, word] of [
  [1, 16384, 'whole'],
  [64, 16384, 'whole'],
  [1, 1, '1-byte pieces'],
  [64, 1, '1-byte pieces'],
]) {
  compare(
    `event stream, ${mib} MiB ${word} / eventsource-parser`,
    `parseStream/${mib}/${piece}`,
    `eventsourceParser/${mib}/${piece}`,
    5,
    true,
  );
}
growth('event stream, growth 1 to 64 MiB whole', 'parseStream/1/16384', 'parseStream/64/16384', 64);
growth('event stream, growth 1 to 64 MiB in bytes', 'parseStream/1/1', 'parseStream/64/1', 64);
compare('ProcessRunner on /bin/true / posix_spawn', 'processOurs', 'processBare', 1.3);
compare('a tmux answer less its pauses / shell script', 'tmuxAnswerOurs', 'tmuxAnswerScript', 1.1);
limit('panel with 1,000 cards, peak memory', 'panel/peak', 'MiB', 30);
limit('panel, idle CPU over 60 s', 'panel/idle', '%', 0.2);
compare('desktop, start to a painted inbox / bare web window', 'desktop/start', 'bare/start', 1.3);
tell(
  '  of it the toolkit, until the first call to the daemon / until the page is asked for',
  'desktop/start-toolkit',
  'bare/start-toolkit',
);
tell('  of it the page session', 'desktop/start-session');
tell('  of it the page', 'desktop/start-page', 'bare/start-page');
limit('desktop, idle CPU over 60 s with the page open', 'desktop/idle', '%', 0.5);
limit('desktop, repaints a second while 1,000 events come', 'desktop/burst-repaints', '', 6);
limit('desktop, longest turn of its main loop meanwhile', 'desktop/burst-heartbeat', 'ms', 16);
limit('--background-status over an empty program', 'desktop/background-status', 'ms', 5);

const widths = rows[0].map((_, i) => Math.max(...rows.map((row) => row[i].length)));
for (const row of rows)
  console.log(row.map((cell, i) => (i === 0 ? cell.padEnd(widths[i]) : cell.padStart(widths[i]))).join('  '));
