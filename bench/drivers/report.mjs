// One table of ratios from what the drivers wrote: report.mjs RESULTS
//
// A driver writes lines of {"name", "ms"} or {"name", "value"}. A name that stands on several lines was measured
// that often, and so was one with several repetitions in a file of Google Benchmark. Each row shows the middle one
// and, behind it, the least and the greatest: of the ratios where there is a peer. The nth measurement of one side is
// compared with the nth of the other, since bench.sh takes the two shortly after one another.
import { readFileSync, readdirSync } from 'node:fs';
import path from 'node:path';

const folder = process.argv[2];
const measured = new Map();

function add(name, value) {
  if (!measured.has(name)) measured.set(name, []);
  measured.get(name).push(value);
}

const toMs = { ns: 1e-6, us: 1e-3, ms: 1, s: 1e3 };
for (const file of readdirSync(folder).sort()) {
  const text = readFileSync(path.join(folder, file), 'utf8');
  if (file.endsWith('.json')) {
    for (const row of JSON.parse(text).benchmarks) {
      if (row.run_type === 'iteration' && !row.error_occurred)
        add(row.run_name.replace(/\/real_time$/, ''), row.real_time * toMs[row.time_unit]);
    }
  } else {
    for (const line of text.split('\n').filter(Boolean)) {
      const { name, ms, value } = JSON.parse(line);
      add(name, ms ?? value);
    }
  }
}

function median(values) {
  const sorted = values.toSorted((a, b) => a - b);
  const middle = sorted.length >> 1;
  return sorted.length % 2 ? sorted[middle] : (sorted[middle - 1] + sorted[middle]) / 2;
}

/** One value for each measurement of the two; the middle of `below` where they weren't taken equally often. */
function ratios(above, below) {
  const paired = above.length === below.length;
  return above.map((value, i) => value / (paired ? below[i] : median(below)));
}

const inMs = (value) => (value < 1 ? `${(value * 1000).toFixed(1)} us` : `${value.toFixed(2)} ms`);
const plain = (value) => String(Math.round(value * 100) / 100);
const spread = (values, write) =>
  values.length > 1 ? `${write(Math.min(...values))} to ${write(Math.max(...values))}` : 'once';

const rows = [['what', 'ours', 'peer', 'ratio', 'least to greatest', 'target', '']];

/** A row of two measurements with the `most` or the `least` that their middle ratio may be. */
function ratioRow(what, [above, below], [ours, peer], { most, least } = {}) {
  const time = (name) => (measured.has(name) ? inMs(median(measured.get(name))) : '-');
  const row = [what, time(ours), time(peer)];
  rows.push(row);
  if (!measured.has(above) || !measured.has(below)) {
    row.push('-', '', '', 'not measured');
    return;
  }
  const all = ratios(measured.get(above), measured.get(below));
  const ratio = median(all);
  row.push(
    ratio.toFixed(2),
    spread(all, (value) => value.toFixed(2)),
  );
  if (most !== undefined) row.push(`<= ${most}`, ratio <= most ? 'met' : 'MISSED');
  else if (least !== undefined) row.push(`>= ${least}`, ratio >= least ? 'met' : 'MISSED');
  else row.push('', '');
}

/** How many times the peer's time ours takes. */
const slower = (what, ours, peer, most) => ratioRow(what, [ours, peer], [ours, peer], { most });

/** How many times as fast as the peer ours is. */
const faster = (what, ours, peer, least) => ratioRow(what, [peer, ours], [ours, peer], { least });

/** Growth of the time over growth of the work: 1 is linear; the limit leaves room for caches. */
function growth(what, small, large, factor, most = 1.5) {
  const perPart = `${large} / ${factor}`;
  if (measured.has(large))
    measured.set(
      perPart,
      measured.get(large).map((value) => value / factor),
    );
  ratioRow(what, [perPart, small], [large, small], { most });
}

/** A time to know, without a peer. */
function alone(what, name) {
  const values = measured.get(name);
  rows.push([
    what,
    values ? inMs(median(values)) : '-',
    '',
    '',
    values ? spread(values, inMs) : '',
    '',
    values ? '' : 'not measured',
  ]);
}

/** A value to know. */
function plainly(what, name, unit) {
  const values = measured.get(name);
  rows.push([
    what,
    values ? `${plain(median(values))} ${unit}` : '-',
    '',
    '',
    values ? spread(values, plain) : '',
    '',
    values ? '' : 'not measured',
  ]);
}

/** One value against the most that it may be; the one of `peer` stands beside it. */
function limit(what, name, unit, most, peer) {
  const values = measured.get(name);
  const write = (measurements) => (measurements ? `${plain(median(measurements))} ${unit}` : '-');
  const row = [what, write(values), peer ? write(measured.get(peer)) : '', ''];
  row.push(values ? spread(values, plain) : '', `<= ${most} ${unit}`);
  row.push(values ? (median(values) <= most ? 'met' : 'MISSED') : 'not measured');
  rows.push(row);
}

for (const [size, word, most] of [
  [256, '256 B', 1.25],
  [1 << 20, '1 MiB', 1.15],
]) {
  slower(`exchange of ${word} / libcurl`, `exchangeOurs/${size}`, `exchangeCurl/${size}`, 1);
  slower(`exchange of ${word} / bare loop`, `exchangeOurs/${size}`, `exchangeBare/${size}`, most);
}
for (const count of [1000, 10000, 100000])
  faster(`${count} cards / JSON.parse`, `decodeCards/${count}`, `jsonParse/${count}`, 3);
faster(
  '100000 cards into memory that is new / JSON.parse',
  'decodeCardsIntoFreshMemory/100000',
  'jsonParse/100000',
);
growth('cards, growth 1,000 to 100,000', 'decodeCards/1000', 'decodeCards/100000', 100);
for (const mib of [1, 64]) {
  slower(
    `event stream, ${mib} MiB whole / memchr for its line ends`,
    `parseStream/${mib}/16384`,
    `findLineEnds/${mib}`,
    3,
  );
  faster(
    `event stream, ${mib} MiB whole / eventsource-parser`,
    `parseStream/${mib}/16384`,
    `eventsourceParser/${mib}/16384`,
  );
  faster(
    `event stream, ${mib} MiB in 1-byte pieces / eventsource-parser`,
    `parseStream/${mib}/1`,
    `eventsourceParser/${mib}/1`,
    5,
  );
}
growth('event stream, growth 1 to 64 MiB whole', 'parseStream/1/16384', 'parseStream/64/16384', 64);
growth('event stream, growth 1 to 64 MiB in bytes', 'parseStream/1/1', 'parseStream/64/1', 64);
slower('ProcessRunner on /bin/true / posix_spawn', 'processOurs', 'processBare', 1.3);
slower('a tmux answer less its pauses / shell script', 'tmuxAnswerOurs', 'tmuxAnswerScript', 0.5);
slower('a tmux answer less its pauses / bare tmux send-keys', 'tmuxAnswerOurs', 'tmuxSendKeys');
slower(
  'press to last key less the pauses / bare tmux send-keys',
  'answer/press-to-key',
  'answer/bare-send-keys',
);
limit('press to last key less the pauses, p95', 'answer/press-to-key-p95', 'ms', 40);
limit('50 answers to 10 panes / their pauses', 'answers/over-pauses', 'times', 1.1);
limit('panel with 1,000 cards, peak memory', 'panel/peak', 'MiB', 30);
limit('panel, idle CPU over 60 s', 'panel/idle', '%', 0.2);
slower('desktop, start to a painted inbox / bare web window', 'desktop/start', 'bare/start', 1.3);
faster(
  '  of it the toolkit, until the first call to the daemon / until the page is asked for',
  'desktop/start-toolkit',
  'bare/start-toolkit',
);
alone('  of it the page session', 'desktop/start-session');
faster('  of it the page', 'desktop/start-page', 'bare/start-page');
limit(
  'desktop, idle CPU over 60 s with the page open / bare web window',
  'desktop/idle',
  '%',
  0.5,
  'bare/idle',
);
limit('desktop, repaints a second while 1,000 events come', 'desktop/burst-repaints', '', 6);
limit(
  'desktop, longest turn of its main loop meanwhile / longest answer of the idle bus',
  'desktop/burst-heartbeat',
  'ms',
  16,
  'bus/burst-heartbeat',
);
limit('the global key to the painted bar, p95', 'desktop/bar-key', 'ms', 50);
slower('  of a bare window by the same key', 'desktop/bar-key', 'bare/bar-key', 1.5);
alone('  memory that 1,000 openings leave behind, MiB', 'desktop/bar-growth');
limit('a search over 100,000 cards, topics and receipts, p95', 'search/100000/p95', 'ms', 10);
alone('  its middle', 'search/100000');
alone('  the middle of its slowest query', 'search/100000/slowest');
limit('card opened to shown on a phone, loopback relay, p95', 'relay/shown-p95', 'ms', 150);
limit('answer on a phone to claimed beyond the hold, p95', 'relay/claimed-p95', 'ms', 150);
limit(
  'sealed message there and back / bare MQTT clients',
  'relay/mosquitto/10/exchange',
  'ms',
  4,
  'relay/bare',
);
for (const broker of ['mosquitto', 'nats']) {
  growth(
    `${broker}: time of a message, 1,000 pairs / 10`,
    `relay/${broker}/10/ms-per-message`,
    `relay/${broker}/1000/ms-per-message`,
    1,
  );
  for (const pairs of [10, 100, 1000]) {
    plainly(`  ${pairs} pairs, messages a second`, `relay/${broker}/${pairs}/per-second`, '');
    plainly(`  ${pairs} pairs, memory of a pair's two ends`, `relay/${broker}/${pairs}/memory`, 'MiB');
    plainly(`  ${pairs} pairs, memory of the servers`, `relay/${broker}/${pairs}/broker-memory`, 'MiB');
  }
}
limit('--background-status over an empty program', 'desktop/background-status', 'ms', 5);

const widths = rows[0].map((_, i) => Math.max(...rows.map((row) => row[i].length)));
for (const row of rows)
  console.log(row.map((cell, i) => (i === 0 ? cell.padEnd(widths[i]) : cell.padStart(widths[i]))).join('  '));
