#!/usr/bin/env node
// A stand-in for a coding agent: it runs in a terminal under the name "claude", asks questions in the ways real agents
// do, puts each into the inbox through `kd ask`, and prints what was typed.
import { execFile } from 'node:child_process';
import { parseArgs } from 'node:util';
import { kdProgram } from '../src/layout.mjs';
import { KINDS, askArguments, question } from './questions.mjs';
import { Screen } from './screen.mjs';

process.title = 'claude';

const USAGE = `usage: sample-agent.mjs [--script KIND,KIND,...] [--once] [--pause SECONDS] [--sample ID] [--home DIR]

  --script   what to ask, in this order: menu, text, batch, stop, trust (the standard: all of them but trust)
  --once     ask each once and leave; otherwise go on for ever with other questions
  --pause    seconds of "work" before each question (the standard: 2)
  --trust-first  draw the folder question with "Yes" above "No", as some versions of agents do
  --sample   ask one question under this id, in a terminal or without one, and leave after 15 minutes
  --home     the data home of kelvadromed
`;

function readArguments() {
  const fail = (words) => {
    process.stderr.write(`sample-agent: ${words}\n${USAGE}`);
    process.exit(64);
  };
  try {
    const { values } = parseArgs({
      options: {
        script: { type: 'string' },
        once: { type: 'boolean' },
        pause: { type: 'string' },
        'trust-first': { type: 'boolean' },
        sample: { type: 'string' },
        home: { type: 'string' },
        help: { type: 'boolean', short: 'h' },
      },
    });
    if (values.help) {
      process.stdout.write(USAGE);
      process.exit(0);
    }
    const { sample, 'trust-first': trustFirst } = values;
    const script = (values.script ?? (sample ? 'menu' : 'menu,text,batch,stop')).split(',');
    for (const kind of script)
      if (!Object.hasOwn(KINDS, kind)) fail(`there is no kind of question "${kind}"`);
    const pause = Number(values.pause ?? (sample ? 0 : 2));
    if (!(pause >= 0)) fail('--pause takes a number of seconds');
    return {
      script,
      once: values.once ?? Boolean(sample),
      pauseMs: pause * 1000,
      sample,
      trustFirst,
      home: values.home,
    };
  } catch (error) {
    return fail(error.message);
  }
}

const settings = readArguments();
const hasTerminal = process.stdin.isTTY && process.stdout.isTTY;
if (!hasTerminal && !settings.sample) {
  process.stderr.write('sample-agent: it needs a terminal.\n');
  process.exit(1);
}
if (hasTerminal && (process.env.TERM ?? 'dumb') === 'dumb') {
  process.stderr.write(
    'sample-agent: this terminal (TERM=dumb) cannot be drawn on. Try TERM=xterm-256color, or another terminal.\n',
  );
  process.exit(1);
}

/** Runs `kd`; gives {ok, text} and never fails. */
function kd(...words) {
  return new Promise((done) => {
    const home = settings.home ? ['--home', settings.home] : [];
    execFile(process.execPath, [kdProgram, ...words, ...home], (error, stdout, stderr) =>
      done({ ok: !error, text: (error ? stderr : stdout).trim() }),
    );
  });
}

const SAMPLE_S = 900;
const sampleWords = settings.sample ? ['--ask-id', settings.sample, '--label', 'sample'] : [];

let onKey = () => {};
let current = null; // the ask under way: a promise of {ok, text}
/** Without a terminal there is nothing to draw on: the answer is waited for and taken as it comes. */
if (!hasTerminal) {
  const asked = question('menu', 0, process.cwd());
  const { ok } = await kd('ask', ...sampleWords, ...askArguments(asked), `--wait=${SAMPLE_S}`);
  process.exit(ok ? 0 : 1);
}

const screen = new Screen((key) => (key.name === 'interrupt' ? leave(130) : onKey(key)));

async function leave(code) {
  onKey = () => {};
  screen.close();
  const card = await current;
  if (card?.ok) await kd('withdraw', card.text);
  process.exit(code);
}
for (const signal of ['SIGTERM', 'SIGHUP']) process.on(signal, () => leave(0));
if (settings.sample) setTimeout(() => leave(0), SAMPLE_S * 1000).unref();

const sleep = (ms) => new Promise((done) => setTimeout(done, ms));

/**
 * Shows a question until it is answered on this terminal, by a person's hand or by Kelvadrome. Gives {chosen,
 * leave}.
 */
function play(asked) {
  const kind = KINDS[asked.kind];
  return new Promise((done) => {
    let state = kind.begin(asked);
    onKey = (key) => {
      state = kind.press(asked, state, key);
      if (state.chosen === undefined) return screen.paint(kind.view(asked, state));
      onKey = () => {};
      screen.paint([`● ${asked.title}`]); // at once, though its card may still be on its way
      return done(state);
    };
    screen.paint(kind.view(asked, state));
  });
}

async function askOne(kind, round) {
  const asked = question(kind, round, process.cwd(), { trustFirst: settings.trustFirst });
  current = kd('ask', ...sampleWords, ...askArguments(asked));
  const answer = play(asked);
  const card = await current;
  const { chosen, leave: leaves } = await answer;
  screen.print(
    `● ${asked.title}`,
    `  You chose: ${chosen}`,
    ...(card.ok ? [] : [`  (Only asked here: ${card.text.split('\n')[0]})`]),
    '',
  );
  // Who answers in the terminal needs no card any more; when Kelvadrome typed it, its own report closes the card.
  if (card.ok) await kd('withdraw', card.text, `--answered=${chosen}`);
  current = null;
  if (leaves) await leave(0);
}

async function work(what) {
  if (settings.pauseMs === 0) return;
  kd('touch', '--status', 'busy', '--doing', what);
  screen.paint([`✻ ${what}…`]);
  await sleep(settings.pauseMs);
}

const WORK = ['Reading the code', 'Running the tests', 'Thinking', 'Looking at the last commits'];
screen.print('Sample agent. Its questions go to Kelvadrome; answer there or here. Ctrl-C leaves.', '');
for (let round = 0; ; round++) {
  for (const [index, kind] of settings.script.entries()) {
    await work(WORK[(round + index) % WORK.length]);
    await askOne(kind, round);
  }
  if (settings.once) break;
}
screen.print('All questions are answered.');
await kd('touch', '--status', 'ended');
await leave(0);
