// The terminal panel with 1,000 open cards: peak resident memory, then CPU over a quiet minute, a fifth of it
// at a time: panel.mjs BIN
import { readFileSync } from 'node:fs';
import { World } from '../../scripts/tour/world.mjs';

const world = new World(process.argv[2]);
const emit = (name, value) => console.log(JSON.stringify({ name, value }));
try {
  const pane = world.open('panel', `exec '${world.bin}/kelvadrome'`);
  await world.until('the daemon', () => world.call('/v1/health', {}, 'GET'));
  for (let i = 0; i < 1000; ++i) {
    await world.call('/v1/ask', {
      agent: 'claude',
      session_id: `session-${i % 20}`,
      kind: 'question',
      title: `Question ${i}: which of the two?`,
      body: 'A few lines\nof what the agent says about it.',
      options: ['This one', 'The other'],
      default: 'This one',
    });
  }
  await world.see(pane, /1000 need you/, 'a thousand cards on the panel', 30);
  const pid = world.pid(pane);
  const peak = Number(readFileSync(`/proc/${pid}/status`, 'utf8').match(/VmHWM:\s+(\d+)/)[1]);
  emit('panel/peak', Math.round(peak / 102.4) / 10);
  // The time on a processor in milliseconds, of threads that have ended, too: /proc tells it in ticks of 10 ms.
  const used = () =>
    readFileSync(`/proc/${pid}/stat`, 'utf8')
      .split(') ')[1]
      .split(' ')
      .slice(11, 13)
      .reduce((sum, ticks) => sum + 10 * Number(ticks), 0);
  const pause = (ms) => new Promise((resolve) => setTimeout(resolve, ms));
  await pause(5000);
  for (let i = 0; i < 5; ++i) {
    const before = used();
    await pause(12_000);
    emit('panel/idle', (used() - before) / 120);
  }
} finally {
  world.close();
}
