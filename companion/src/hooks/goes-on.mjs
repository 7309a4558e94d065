// What follows a hook of Codex whose time is over. Codex then asks in its terminal; where that is known for certain,
// the question is a card again, which is answered by keys. The hook has to end for that, so a process of its own does it.
import { spawn } from 'node:child_process';
import { once } from 'node:events';
import { randomUUID } from 'node:crypto';
import { setTimeout as pause } from 'node:timers/promises';
import { kdProgram } from '../layout.mjs';
import { isRunning } from '../proc.mjs';
import { isStillAsked, terminalOfQuestion } from './codex-terminal.mjs';
import { isRefusal, requestOf } from './questions.mjs';
import { whenInterrupted } from './transcript.mjs';

const LOOK_MS = 1000;
const CALL_MS = 10_000;
const RESTART_MS = 20_000;
const TIMES = 2; // a screen that is being drawn anew may lack the question for a moment

/** Starts it, beyond the life of this process. `server` is the process whose hook this is. */
export async function goOnByKeys(client, agent, server, message) {
  const words = ['--no-warnings', kdProgram, 'hook', agent, '--goes-on', '--home', client.home];
  const child = spawn(process.execPath, words, { detached: true, stdio: ['pipe', 'ignore', 'ignore'] });
  child.unref();
  child.stdin.end(JSON.stringify({ ...message, server }));
  await once(child.stdin, 'close');
}

/** What that process does. Gives why there is no card, or null when there was one and it is over. */
export async function askByKeys(client, agent, { server, ...message }, refs) {
  const found = await terminalOfQuestion(server, message);
  if (found.why) return found.why;
  const { live, options } = found;
  const { card_id: id } = await client.call(
    '/v1/ask',
    {
      ...requestOf(message).asks[0],
      options,
      menu: true,
      agent,
      session_id: message.session_id,
      live,
      ask_id: randomUUID(),
      refs,
    },
    CALL_MS,
  );
  const left = new AbortController(); // with Escape, or by an answer that denies
  const stopWatching = whenInterrupted(message.transcript_path, () => left.abort());
  try {
    await follow(client, id, found, message, left.signal);
  } finally {
    stopWatching(); // this process lives as long as it watches
  }
  return null;
}

/** Takes the card back once its question is over. Gives up where the card has ended, or the agent. */
async function follow(client, id, found, { tool_input: input }, left) {
  let answered;
  for (let missing = 0; missing < TIMES; await pause(LOOK_MS, null, { signal: left }).catch(() => {})) {
    const { cards } = await client.callPatiently('/v1/cards/list', {}, CALL_MS, RESTART_MS);
    const card = cards.find((one) => one.id === id);
    if (card === undefined || !isRunning(found.live.pid)) return;
    answered = isRefusal(card.answer ?? '') ? card.answer : undefined;
    if (left.aborted) break;
    // While an answer is on its way, what becomes of it is told by who types it.
    const isAsked = card.state !== 'open' || (await isStillAsked(found, input.command));
    missing = isAsked ? 0 : missing + 1;
  }
  await client.call('/v1/ask/withdraw', { card_id: id, answered }, CALL_MS);
}
