import { parseArgs } from 'node:util';
import { Client, EXIT, KD, KdError, resolveHome } from './client.mjs';
import { ask, touch, wait, withdraw } from './ask.mjs';
import { answer, inbox, sample, sessions } from './lists.mjs';
import { pageKey } from './page-key.mjs';
import { doctor } from './doctor.mjs';
import { helpFor } from './help.mjs';
import { attach, runHere, runInside } from './run.mjs';
import { hook } from '../hooks/hook.mjs';
import { hooks } from '../hooks/install.mjs';
import { relay } from './relay.mjs';
import { voice } from './voice.mjs';

const text = { type: 'string' };
const many = { type: 'string', multiple: true };
const flag = { type: 'boolean' };
export const GENERAL = { home: text, json: flag, help: { ...flag, short: 'h' } };
const identity = {
  agent: text,
  pid: text,
  session: text,
  host: text,
  'host-ref': text,
  'codex-thread': text,
  'no-terminal': flag,
  label: text,
  topic: text,
};

export const COMMANDS = {
  ask: {
    run: ask,
    words: 0,
    options: {
      ...identity,
      title: { ...text, short: 't' },
      body: { ...text, short: 'b' },
      option: { ...many, short: 'o' },
      default: { ...text, short: 'd' },
      menu: flag,
      kind: text,
      risk: text,
      scope: text,
      restricted: flag,
      'stop-type': text,
      row: many,
      trust: text,
      'not-blocking': flag,
      ref: many,
      wait: flag,
      'wait-seconds': text,
      'ask-id': text,
    },
  },
  wait: { run: wait, words: 1, options: { seconds: text } },
  withdraw: { run: withdraw, words: 1, options: { answered: text } },
  touch: { run: touch, words: 0, options: { ...identity, status: text, doing: text } },
  inbox: { run: inbox, words: 0, options: {} },
  sessions: { run: sessions, words: 0, options: {} },
  sample: { run: sample, words: 0, options: {} },
  answer: { run: answer, words: 2, options: {} },
  doctor: { run: doctor, words: 0, options: {} },
  attach: { run: attach, words: [0, 1], options: {} },
  hook: { run: hook, words: 1, options: { wait: text, 'what-next': flag, 'goes-on': flag } },
  hooks: {
    run: hooks,
    words: [1, 2],
    options: { project: flag, 'dry-run': flag, 'what-next': flag, wait: text },
  },
  relay: {
    run: relay,
    words: 1,
    options: {
      port: text,
      host: text,
      cert: text,
      key: text,
      cluster: text,
      renew: flag,
    },
  },
  voice: { run: voice, words: [1, 2], options: {} },
  'page-key': { run: pageKey, words: 0, options: { reset: flag } },
};

/**
 * `--wait`, `-w`, `--wait 30` and `--wait=30` all mean what they say; the parser knows no options with an
 * optional value.
 */
function spellOutWait(argv) {
  const result = [];
  for (let i = 0; i < argv.length; i++) {
    if (argv[i] === '--') return [...result, ...argv.slice(i)];
    const given = /^(?:--wait|-w)(?:=(.*))?$/.exec(argv[i]);
    const seconds = given?.[1] ?? (given && /^\d+(\.\d+)?$/.test(argv[i + 1] ?? '') ? argv[++i] : undefined);
    if (!given) result.push(argv[i]);
    else result.push('--wait', ...(seconds === undefined ? [] : [`--wait-seconds=${seconds}`]));
  }
  return result;
}

function read(name, argv) {
  const command = COMMANDS[name];
  try {
    const { values, positionals } = parseArgs({
      args: name === 'ask' ? spellOutWait(argv) : argv,
      options: { ...GENERAL, ...command.options },
      allowPositionals: true,
    });
    const counts = [command.words].flat();
    if (!values.help && !counts.includes(positionals.length))
      throw new Error(`kd ${name} takes ${counts.join(' or ')} words, not ${positionals.length}`);
    return { values, positionals };
  } catch (error) {
    throw new KdError(`${error.message}\nTry ${KD} --help.`, EXIT.usage);
  }
}

/** Runs one command and gives the exit code. */
export async function main(argv, env) {
  const [name, ...rest] = argv;
  try {
    // What stands behind these is another program's own.
    if (name === 'run' && rest[0] !== '--help' && rest[0] !== '-h') return await runHere(rest, env);
    if (name === 'run-inside') return runInside(rest[0], rest.slice(1));
    if (name === undefined) throw new KdError(`There is nothing to do. Try ${KD} --help.`, EXIT.usage);
    if (['help', '--help', '-h'].includes(name)) {
      process.stdout.write(helpFor(KD));
      return EXIT.ok;
    }
    if (!Object.hasOwn(COMMANDS, name))
      throw new KdError(`kd has no command "${name}". Try ${KD} --help.`, EXIT.usage);
    const { values, positionals } = read(name, rest);
    if (values.help) {
      process.stdout.write(helpFor(KD));
      return EXIT.ok;
    }
    return await COMMANDS[name].run({
      values,
      positionals,
      client: new Client(resolveHome(values.home, env)),
    });
  } catch (error) {
    if (!(error instanceof KdError)) throw error;
    process.stderr.write(`kd: ${error.message}\n`);
    return error.exitCode;
  }
}
