import { createInterface } from 'node:readline/promises';
import { EXIT, KdError } from './client.mjs';

const STATES = {
  none: 'No page key is registered for this home.',
  registered: 'A page key is registered for this home.',
  damaged: 'The page key of this home is damaged, and nobody gets into the page.',
};
const print = (lines) => process.stdout.write(lines.map((line) => `${line}\n`).join(''));
const time = (text) => new Date(text).toLocaleString();

function holder({ surface, program, pid, since, seen }) {
  const who =
    surface === 'browser'
      ? 'A browser'
      : program
        ? `${program} (pid ${pid})`
        : 'A program that cannot be looked up';
  return `  ${who}, since ${time(since)}, last seen ${time(seen)}`;
}

/** Asks at a terminal: what runs without one, as an agent's commands do, is not the user. */
async function confirmed() {
  if (!process.stdin.isTTY)
    throw new KdError(
      'kd page-key --reset asks before it does anything, so it needs a terminal.',
      EXIT.usage,
    );
  const reader = createInterface({ input: process.stdin, output: process.stdout });
  const line = await reader.question(
    'This forgets the key and ends all of them. A program that still runs registers its key again at once:\nend it first if it should not hold the page. Type "reset" to go on: ',
  );
  reader.close();
  return line.trim() === 'reset';
}

/** Who holds the page; with --reset, the way back for somebody whom a lost key locks out. */
export async function pageKey({ values, client }) {
  const { reset, ...shown } = await client.call('/v1/page/key', {});
  if (values.json) print([JSON.stringify(shown)]);
  else
    print([
      STATES[shown.state],
      ...(shown.sessions.length
        ? ['The page is held by', ...shown.sessions.map(holder)]
        : ['Nobody holds the page now.']),
    ]);
  if (!values.reset) return EXIT.ok;
  if (!(await confirmed())) throw new KdError('Nothing was changed.', EXIT.failed);
  await client.call('/v1/page/key/reset', { reset });
  print(['Forgotten. Open Kelvadrome again: the first to come holds the page.']);
  return EXIT.ok;
}
