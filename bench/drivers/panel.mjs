// The terminal panel with 1,000 open cards: peak resident memory, then CPU over a quiet minute: panel.mjs BIN
import { readFileSync } from 'node:fs';
import { World } from '../../scripts/tour/world.mjs';

const world = new World(process.argv[2]);
const emit = (name, value) => console.log(JSON.stringify({ name, value }));
try {
  const pane = world.open('panel', `exec '${world.bin}/kelvadrome'`);
  await world.until('the daemon', () => world.call('/v1/health', {}, 'GET'));
  for (let i = 0; i < 1000; ++i) {
    await world.call('/v1/ask', {
      wait: true,
      agent: 'claude',
      session_id: `session-${i % 20}`,
      kind: 'question',
      title: `Question ${i}: which of the two?`,
      body: 'A few lines\nof what the agent says about it.',
      options: ['This one', 'The other'],
      default: 'This one',
    });
  }
  await world.see(pane, /99\d more in the Inbox/, 'a thousand cards on the panel', 30);
  const pid = world.pid(pane);
  const peak = Number(readFileSync(`/proc/${pid}/status`, 'utf8').match(/VmHWM:\s+(\d+)/)[1]);
  emit('panel/peak', Math.round(peak / 102.4) / 10);
  const ticks = () =>
    readFileSync(`/proc/${pid}/stat`, 'utf8')
      .split(') ')[1]
      .split(' ')
      .slice(11, 13)
      .reduce((sum, n) => sum + Number(n), 0);
  await new Promise((resolve) => setTimeout(resolve, 5000));
  const before = ticks();
  await new Promise((resolve) => setTimeout(resolve, 60_000));
  emit('panel/idle', Math.round(((ticks() - before) / 60) * 100) / 100); // a tick is 10 ms, so one in 60 s is 0.017 %
} finally {
  world.close();
}
