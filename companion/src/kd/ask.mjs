import { randomUUID } from 'node:crypto';
import { readFileSync } from 'node:fs';
import { EXIT, KD, KdError } from './client.mjs';
import { SHELL } from '../../shared/agents.js';
import { callingAgent } from './agent.mjs';

const POLL_MS = 20_000;
const RESTART_PATIENCE_MS = 20_000;
const WITHDRAW_MS = 20_000; // the daemon lets an answer that is being typed come to its end first
const usage = (words) => new KdError(`${words}\nTry ${KD} --help.`, EXIT.usage);

function wholeNumber(value, name) {
  if (value === undefined) return undefined;
  if (!/^[1-9]\d{0,9}$/.test(value)) throw usage(`--${name} must be a whole number, not "${value}".`);
  return Number(value);
}

/** agent, session_id and live of the caller, from the options and the process table. */
function whoAsks(values, more) {
  if (values['no-terminal']) {
    if (!values.agent) throw usage('--no-terminal needs --agent NAME.');
    return { agent: values.agent, session_id: values.session };
  }
  const found = callingAgent({
    agent: values.agent,
    pid: wholeNumber(values.pid, 'pid'),
    host: values.host,
    host_ref: values['host-ref'],
    codex_thread: values['codex-thread'],
    ...more,
  });
  return { ...found, session_id: values.session ?? found.session_id };
}

function readRow(text) {
  const [id, question, ...rest] = text.split('=');
  if (question === undefined) throw usage(`--row is ID=TEXT or ID=TEXT=DEFAULT, not "${text}".`);
  return { question_id: id, text: question, ...(rest.length > 0 ? { default: rest.join('=') } : {}) };
}

function readRef(text) {
  const at = text.indexOf('=');
  if (at < 1) throw usage(`--ref is KEY=VALUE, not "${text}".`);
  return [text.slice(0, at), text.slice(at + 1)];
}

function readBody(values) {
  return values.body === '-' ? readFileSync(0, 'utf8') : values.body;
}

/** The wire form of `kd ask`. Fields without a value are left out by the JSON writer. */
function askBody(values) {
  const title = values.title ?? (values.trust && `Trust the folder ${values.trust}?`);
  if (!title) throw usage('kd ask needs --title.');
  return {
    ask_id: values['ask-id'] ?? randomUUID(),
    ...whoAsks(values, { orShell: true, waits: values.wait }),
    title,
    body: readBody(values),
    options: values.option,
    default: values.default,
    menu: values.menu,
    kind: values.kind ?? (values.row ? 'batch' : undefined),
    risk: values.risk ?? (values.trust ? 'medium' : undefined),
    stop_type: values['stop-type'],
    topic: values.topic,
    scope: values.scope,
    restricted: values.restricted,
    rows: values.row?.map(readRow),
    screen: values.trust && { profile: 'claude_trust', folder: values.trust },
    blocking: values['not-blocking'] ? false : undefined,
    refs: values.ref && Object.fromEntries(values.ref.map(readRef)),
    wait: values.wait,
    label: values.label,
  };
}

/** How long to wait, in seconds: for ever when nothing was said. */
function patience(given, option) {
  const seconds = given === undefined ? Infinity : Number(given);
  if (!(seconds > 0)) throw usage(`${option} takes a number of seconds, not "${given}".`);
  return seconds;
}

export async function ask({ values, client }) {
  const seconds = patience(values['wait-seconds'], '--wait');
  // The ask id makes a repeated call harmless: it finds the card of the first one.
  const body = askBody(values);
  const asked = client.callPatiently('/v1/ask', body, 10_000, 3000);
  // Whoever names a question can come back to it, so it outlives a wait that was ended.
  const isNamed = values['ask-id'] !== undefined;
  if (values.wait && !isNamed) withdrawOnSignal(client, asked);
  const card = await asked;
  if (values.wait) {
    const reply = await waitForEnd(client, card.card_id, seconds);
    if (reply) return tellEnd(card.card_id, reply, values.json);
    if (!isNamed) await withdrawQuietly(client, card.card_id);
    const rest = isNamed ? 'stays open: ask again with the same --ask-id to go on waiting' : 'is withdrawn';
    throw new KdError(`No answer within ${seconds} s. The question ${rest}.`, EXIT.noAnswer);
  }
  process.stdout.write(values.json ? `${JSON.stringify(card)}\n` : `${card.card_id}\n`);
  if (body.agent === SHELL)
    process.stderr.write(
      `kd: Asked from a shell. To wait for the answer: ${client.command} wait ${card.card_id}\n`,
    );
  return EXIT.ok;
}

/** Fetches the answer of a card that was opened before. Whoever stops waiting leaves the question as it is. */
export async function wait({ values, positionals, client }) {
  const seconds = patience(values.seconds, '--seconds');
  const reply = await waitForEnd(client, positionals[0], seconds);
  if (reply) return tellEnd(positionals[0], reply, values.json);
  throw new KdError(`No answer within ${seconds} s. The question stays open.`, EXIT.noAnswer);
}

const inWords = (answer) =>
  typeof answer === 'string'
    ? answer
    : Object.entries(answer)
        .map(([id, text]) => `${id}: ${text}`)
        .join('\n');

/** Who ends kd no longer waits for the answer; the card must not stay behind, also when its id is still on the way. */
function withdrawOnSignal(client, asked) {
  const giveUp = () =>
    asked
      .then(
        (card) => withdrawQuietly(client, card.card_id),
        () => {},
      )
      .then(() => process.exit(EXIT.noAnswer));
  for (const signal of ['SIGINT', 'SIGTERM', 'SIGHUP']) process.once(signal, giveUp);
}

/** The closed card's end, or null when the time is over. */
async function waitForEnd(client, cardId, seconds) {
  const deadline = performance.now() + seconds * 1000;
  for (let left = seconds * 1000; left > 0; left = deadline - performance.now()) {
    const waitMs = Math.min(POLL_MS, Math.ceil(left));
    const reply = await client.callPatiently(
      '/v1/ask/wait',
      { card_id: cardId, wait_ms: waitMs },
      waitMs + 10_000,
      RESTART_PATIENCE_MS,
    );
    if (reply.state === 'closed') return reply;
  }
  return null;
}

function tellEnd(cardId, reply, json) {
  if (json) process.stdout.write(`${JSON.stringify({ card_id: cardId, ...reply })}\n`);
  else if (reply.answer !== undefined) process.stdout.write(`${inWords(reply.answer)}\n`);
  if (reply.answer !== undefined) return EXIT.ok;
  throw new KdError(
    reply.outcome === 'went_on'
      ? 'The question is over; its answer may have been typed.'
      : `The question was ${reply.outcome}.`,
    EXIT.withdrawn,
  );
}

async function withdrawQuietly(client, cardId) {
  try {
    await client.call('/v1/ask/withdraw', { card_id: cardId }, 2000);
  } catch (error) {
    process.stderr.write(`kd: The question stays open: ${error.message}\n`);
  }
}

export async function withdraw({ values, positionals, client }) {
  const reply = await client.callPatiently(
    '/v1/ask/withdraw',
    { card_id: positionals[0], answered: values.answered },
    WITHDRAW_MS,
    3000,
  );
  process.stdout.write(values.json ? `${JSON.stringify(reply)}\n` : `${reply.outcome ?? reply.state}\n`);
  return EXIT.ok;
}

export async function touch({ values, client }) {
  const body = {
    ...whoAsks(values),
    label: values.label,
    topic: values.topic,
    status: values.status,
    doing: values.doing,
  };
  const reply = await client.callPatiently('/v1/sessions/touch', body, 10_000, 3000);
  process.stdout.write(values.json ? `${JSON.stringify(reply)}\n` : `${reply.callsign}: ${reply.status}\n`);
  return EXIT.ok;
}
