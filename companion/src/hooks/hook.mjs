// `kd hook AGENT`: what an agent runs at its events. Its questions become cards, and their answers go back
// through what the hook prints, so that no key is typed. Whatever goes wrong here, the agent goes on as if
// there were no hook: nothing is printed, the exit code is 0, and a line in the log says why.
import { createHash, randomUUID } from 'node:crypto';
import { appendFileSync, existsSync, renameSync, statSync, writeFileSync } from 'node:fs';
import { join } from 'node:path';
import { EXIT, KdError } from '../kd/client.mjs';
import { callingAgent, findAbove } from '../kd/agent.mjs';
import { isRunning } from '../proc.mjs';
import { oneLine, within } from '../../shared/text.js';
import { askByKeys, goOnByKeys } from './goes-on.mjs';
import { isConsent, requestOf } from './questions.mjs';
import { whenInterrupted } from './transcript.mjs';

const QUICK_MS = 1000; // the agent stands still meanwhile
const ASK_MS = 10_000; // its dialog is on the screen already
const POLL_MS = 20_000;
const LOOK_MS = 1000; // whether the agent still runs
const RESTART_MS = 20_000;
const HOLD_MS = 8000; // longer than any answer is held, and less than an agent gives its hook beyond its time
const LONGEST_MESSAGE = 16 << 20;
const LARGEST_LOG = 1 << 20;

/** The events after which none of the session's questions can still stand on its screen. */
const ENDS_ALL = ['UserPromptSubmit', 'Stop', 'SessionStart', 'SessionEnd'];
const STATUS = { SessionStart: 'idle', UserPromptSubmit: 'working', Stop: 'idle', SessionEnd: 'ended' };

function log(home, words) {
  const file = join(home, 'hooks.log');
  try {
    if (!existsSync(home)) return; // never started here: nothing is left behind
    if (statSync(file, { throwIfNoEntry: false })?.size > LARGEST_LOG) renameSync(file, `${file}.1`);
    appendFileSync(file, `${new Date().toISOString()} ${oneLine(words)}\n`, { mode: 0o600 });
  } catch {
    /* a full disk is no reason to disturb the agent */
  }
}

/** When a hook of this agent last ran, for who looks whether the hooks work. */
function markSeen(home, agent) {
  try {
    if (existsSync(home)) writeFileSync(join(home, `hook-${agent}.seen`), '', { mode: 0o600 });
  } catch {
    /* as above */
  }
}

async function readMessage() {
  const pieces = [];
  let size = 0;
  for await (const piece of process.stdin) {
    size += piece.length;
    if (size > LONGEST_MESSAGE) throw new Error('the message is too long');
    pieces.push(piece);
  }
  const message = JSON.parse(Buffer.concat(pieces).toString('utf8'));
  if (message === null || typeof message !== 'object' || typeof message.session_id !== 'string')
    throw new Error('the message names no session');
  return message;
}

/**
 * One deed of an agent, by what it is and not by an id: a permission request has none. Answers come to a question later,
 * and Codex gives its reason for a command when it asks, but not when the command has run.
 */
function deedOf({ tool_name: tool, tool_input: input }) {
  const asked = tool === 'AskUserQuestion' ? input?.questions : (input?.command ?? input);
  return createHash('sha256')
    .update(JSON.stringify([tool, asked ?? null]))
    .digest('hex')
    .slice(0, 32);
}

/** What later events tell the card by, and for how long its hook waits. */
const refsOf = (message, seconds) => ({
  hook: deedOf(message),
  tool: String(message.tool_name),
  ...(seconds === Infinity ? {} : { waits_s: String(seconds) }),
});

/** The process whose hook this is, as the process table shows it; null when it cannot be told. */
const agentAbove = (agent) => findAbove(process.ppid, [agent]);

/** Who asks. An agent that runs its hooks in a process without a terminal stands for no terminal at all. */
function whoAsks(agent, message) {
  const who = { agent, session_id: message.session_id };
  return agentAbove(agent)?.tty
    ? { ...who, live: callingAgent({ agent }).live }
    : { ...who, live: { cwd: message.cwd } };
}

/** The questions of this session that hooks have opened and that nobody has answered. */
async function openCards(client, agent, { session_id: session }, limit) {
  const { cards } = await client.call('/v1/cards/list', {}, limit);
  return cards.filter((card) => card.agent === agent && card.session_id === session && card.refs?.hook);
}

/** `answered` gives what an agent's own word shows to have been chosen for a card. */
const withdraw = (client, cards, limit, answered = () => undefined) =>
  Promise.all(
    cards.map((card) =>
      client.call('/v1/ask/withdraw', { card_id: card.card_id ?? card.id, answered: answered(card) }, limit),
    ),
  );

/** The end of a card: its answer, or undefined when it ended without one. One that was pressed in time is waited for. */
async function answerOf(client, cardId, deadline, isWanted) {
  for (let end = deadline; performance.now() < end && isWanted(); ) {
    const wait_ms = Math.ceil(Math.min(POLL_MS, end - performance.now()));
    const reply = await client.callPatiently(
      '/v1/ask/wait',
      { card_id: cardId, wait_ms },
      wait_ms + 10_000,
      RESTART_MS,
    );
    if (reply.state === 'closed') return reply.outcome === 'answered' ? reply.answer : undefined;
    end = deadline + (reply.state === 'open' ? 0 : HOLD_MS);
  }
  return undefined;
}

/** Asks, waits, and gives what the hook prints; undefined when the agent is to ask in its own way. */
async function decide({ client, agent, message, seconds }) {
  const request = requestOf(message);
  if (request === null) return undefined;
  // An agent's dialog takes the place of the one before.
  await withdraw(client, await openCards(client, agent, message, ASK_MS), ASK_MS);
  const call = randomUUID();
  const who = whoAsks(agent, message);
  const asked = [];
  const leave = () =>
    Promise.allSettled(asked)
      .then((all) =>
        withdraw(
          client,
          all.flatMap(({ value }) => value ?? []),
          2000,
        ),
      )
      .catch(() => {});
  const end = () => leave().finally(() => process.exit(0));
  for (const signal of ['SIGINT', 'SIGTERM', 'SIGHUP']) process.once(signal, end);
  const stopWatching = whenInterrupted(message.transcript_path, end);
  for (const [index, body] of request.asks.entries())
    asked.push(
      client.callPatiently(
        '/v1/ask',
        {
          ...who,
          ...body,
          ask_id: `${call}-${index}`,
          wait: true,
          refs: refsOf(message, seconds),
        },
        ASK_MS,
        QUICK_MS,
      ),
    );
  const deadline = performance.now() + seconds * 1000;
  const caller = agentAbove(agent); // a hook outlives an agent that is killed
  const isWanted = () => caller === null || isRunning(caller.pid, caller.started);
  const look = setInterval(() => isWanted() || end(), LOOK_MS);
  try {
    const cards = await Promise.all(asked);
    const answers = await Promise.all(
      cards.map((card) => answerOf(client, card.card_id, deadline, isWanted)),
    );
    if (!answers.includes(undefined)) return request.decide(answers);
  } catch (error) {
    await leave();
    throw error;
  } finally {
    clearInterval(look);
    stopWatching();
  }
  await leave(); // the time is over, or one of several was taken back
  if (agent === 'codex' && caller !== null && performance.now() >= deadline)
    await goOnByKeys(client, agent, caller, message);
  return undefined;
}

/** What an event tells of questions that stand, and of what the agent does. */
async function follow({ client, agent, message }) {
  const { hook_event_name: event } = message;
  const isOver = ENDS_ALL.includes(event)
    ? () => true
    : event.startsWith('PostToolUse')
      ? (card) => card.refs.hook === deedOf(message)
      : () => false;
  const over = (await openCards(client, agent, message, QUICK_MS)).filter(isOver);
  // What was asked has been done, so a yes that is being typed has arrived.
  const isDone = event.startsWith('PostToolUse');
  await withdraw(client, over, QUICK_MS, ({ answer }) =>
    isDone && typeof answer === 'string' && isConsent(answer) ? answer : undefined,
  );
  const status = STATUS[event];
  const doing = event === 'Notification' ? oneLine(String(message.message ?? '')) : undefined;
  if (status !== undefined || doing)
    await client.call(
      '/v1/sessions/touch',
      { ...whoAsks(agent, message), status, doing: doing && within(doing, 190) },
      QUICK_MS,
    );
}

/** "What next?" after a stop: a card whose answer is typed as the next prompt. Nothing waits for it. */
async function askWhatNext({ client, agent, message }) {
  const who = whoAsks(agent, message);
  if (who.live.pid === undefined) return; // it could not be typed
  const last = typeof message.last_assistant_message === 'string' ? message.last_assistant_message : '';
  await client.call(
    '/v1/ask',
    {
      ...who,
      ask_id: randomUUID(),
      title: 'What next?',
      body: within(last, 18_000),
      blocking: false,
      refs: { hook: 'what_next' },
    },
    QUICK_MS,
  );
}

const FOLLOWED = [...ENDS_ALL, 'PostToolUse', 'PostToolUseFailure', 'Notification'];

export async function hook({ values, positionals: [agent], client }) {
  const seconds = values.wait === undefined ? Infinity : Number(values.wait);
  if (!(seconds > 0)) throw new KdError('--wait takes a number of seconds.', EXIT.usage);
  try {
    const message = await readMessage();
    if (values['goes-on']) {
      const why = await askByKeys(client, agent, message, refsOf(message, Infinity));
      if (why) log(client.home, `${agent}: the question is answered in its terminal alone: ${why}`);
      return EXIT.ok;
    }
    markSeen(client.home, agent);
    const call = { client, agent, message, seconds };
    const { hook_event_name: event } = message;
    if (event === 'PermissionRequest') {
      const output = await decide(call);
      if (output !== undefined) process.stdout.write(`${JSON.stringify(output)}\n`);
    } else if (FOLLOWED.includes(event)) {
      // Each call has its limit; this is the limit of all of them.
      setTimeout(() => process.exit(EXIT.ok), QUICK_MS).unref();
      await follow(call);
      if (event === 'Stop' && values['what-next']) await askWhatNext(call);
    }
  } catch (error) {
    log(client.home, `${agent}: ${error.message}`);
  }
  return EXIT.ok;
}
