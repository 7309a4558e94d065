// Answers from their press to their keys, with the daemon, the panel and agents in panes: tmux-answers.mjs BIN [ROUNDS]
//
// First one answer after the other, each with a bare `tmux send-keys` beside it; then 50 answers to 10 agents, each
// pressed as soon as its agent asks. The recorder that plays the agent notes on the monotonic clock when it read a key.
import { spawnSync } from 'node:child_process';
import path from 'node:path';
import { Hub } from '../../tests/live/keystrokes/hub.mjs';

const PAUSES_MS = 350; // of an answer of one line: 250 after the text, 100 after Return
const BEFORE_RETURN_MS = 250;
const AGENTS = 10;
const ANSWERS_EACH = 5;

const emit = (name, ms) => console.log(JSON.stringify({ name, ms }));
const emitValue = (name, value) => console.log(JSON.stringify({ name, value }));
const nowMs = () => Number(process.hrtime.bigint()) / 1e6;
const nth = (values, share) => values.toSorted((a, b) => a - b)[Math.ceil(share * values.length) - 1];

/** Its answers; all differ, as a line that stands on the screen already is no echo. */
const answersOf = new Map();

async function press(hub, agent, card_id, number) {
  const answer = `use port ${number + 8001}; then "go"`;
  answersOf.set(agent, [...(answersOf.get(agent) ?? []), answer]);
  const pressed = nowMs();
  await hub.world.call('/v1/cards/answer', { card_id, version: 1, answer });
  return pressed;
}

/** A question that comes while an answer to an earlier one is typed gets a warning, and has to be read again. */
const settled = (hub, card_id) =>
  hub.world.until(
    'the card to close',
    async () => !(await hub.world.cards()).some(({ id }) => id === card_id),
  );

/** When the agent had read all its answers, whole and in their order. */
function typed(hub, agent, seconds) {
  const whole = answersOf
    .get(agent)
    .map((answer) => `${answer}\r`)
    .join('');
  const arrived = () => {
    if (agent.bytes('agent') !== whole) return undefined;
    const reads = agent.events().filter(([who, , event]) => who === 'agent' && event === 'read');
    return Number(reads.at(-1).at(-1)) / 1e6;
  };
  return hub.world.until('all answers to be typed whole', arrived, seconds);
}

async function oneByOne(hub, rounds) {
  const agent = await hub.agent();
  const other = await hub.agent();
  const delays = [];
  for (let round = 0; round < rounds; ++round) {
    const card = await agent.ask(`Which port for ${round}?`);
    const pressed = await press(hub, agent, card, round);
    const delay = (await typed(hub, agent, 30)) - pressed - BEFORE_RETURN_MS;
    await settled(hub, card);
    delays.push(delay);
    emit('answer/press-to-key', delay);
    const sent = nowMs();
    spawnSync('tmux', ['-S', hub.world.tmuxSocket, 'send-keys', '-t', other.pane, '-l', '--', 'x']);
    emit('answer/bare-send-keys', nowMs() - sent);
  }
  emitValue('answer/press-to-key-p95', nth(delays, 0.95));
  for (const one of [agent, other]) one.end();
}

async function allAtOnce(hub) {
  const agents = await Promise.all(Array.from({ length: AGENTS }, () => hub.agent()));
  const began = nowMs();
  // Only the newest question of an agent can be answered.
  const answerAll = async (agent) => {
    let end;
    for (let number = 0; number < ANSWERS_EACH; ++number) {
      const card = await agent.ask(`Which port for ${number}?`);
      await press(hub, agent, card, number);
      end = await typed(hub, agent, 90);
      await settled(hub, card);
    }
    return end;
  };
  const ends = await Promise.all(agents.map(answerAll));
  emitValue('answers/over-pauses', (Math.max(...ends) - began) / (AGENTS * ANSWERS_EACH * PAUSES_MS));
}

const hub = await Hub.open(path.resolve(process.argv[2]));
try {
  await oneByOne(hub, Number(process.argv[3] ?? 40));
  await allAtOnce(hub);
} finally {
  await hub.close();
}
