// `kd hooks`: puts our hooks into an agent's own settings, takes them out, and tells whether they are there.
import {
  closeSync,
  fsyncSync,
  lstatSync,
  mkdirSync,
  openSync,
  readFileSync,
  realpathSync,
  renameSync,
  rmSync,
  statSync,
  writeFileSync,
} from 'node:fs';
import { homedir } from 'node:os';
import { dirname, join } from 'node:path';
import { EXIT, KdError } from '../kd/client.mjs';
import { agentName } from '../../shared/agents.js';
import { kdByPath } from '../layout.mjs';
import { installed, withHooks, withoutHooks } from './settings.mjs';

const DAY_S = 86_400;
const CODEX_WAITS_S = 15; // its terminal shows no prompt while the hook waits

const AGENTS = {
  claude: {
    folder: (env) => env.CLAUDE_CONFIG_DIR || join(homedir(), '.claude'),
    file: 'settings.json',
    projectFile: '.claude/settings.local.json', // the one that isn't shared: it names a path of this machine
    quick: [
      'SessionStart',
      'UserPromptSubmit',
      'PostToolUse',
      'PostToolUseFailure',
      'Notification',
      'Stop',
      'SessionEnd',
    ],
  },
  codex: {
    folder: (env) => env.CODEX_HOME || join(homedir(), '.codex'),
    file: 'hooks.json',
    projectFile: '.codex/hooks.json',
    waits: CODEX_WAITS_S,
    quick: ['SessionStart', 'UserPromptSubmit', 'PostToolUse', 'Stop'],
    after: 'Codex asks once whether it may trust new hooks: say yes when it starts.',
  },
};

export const AGENTS_WITH_HOOKS = Object.keys(AGENTS);

/** {event: hook} for the settings of an agent. */
export function hooksFor(agent, command, { wait, whatNext } = {}) {
  const { quick, waits } = AGENTS[agent];
  const run = (...words) => [command, 'hook', agent, ...words].join(' ');
  const seconds = wait ?? waits;
  const asks = {
    type: 'command',
    command: run(...(seconds === undefined ? [] : ['--wait', String(seconds)])),
    timeout: seconds === undefined ? DAY_S : seconds + 10,
  };
  const told = (event) => ({
    type: 'command',
    command: run(...(event === 'Stop' && whatNext ? ['--what-next'] : [])),
    timeout: 5,
  });
  return { PermissionRequest: asks, ...Object.fromEntries(quick.map((event) => [event, told(event)])) };
}

function read(file) {
  const info = statSync(file, { throwIfNoEntry: false });
  if (info === undefined) return { text: '', isNew: true };
  if (!info.isFile()) throw new KdError(`${file} is not a file. Nothing was changed.`, EXIT.failed);
  try {
    const text = new TextDecoder('utf-8', { fatal: true, ignoreBOM: true }).decode(readFileSync(file));
    const mark = text.startsWith('\ufeff') ? '\ufeff' : '';
    return { text: text.slice(mark.length), mark, mode: info.mode & 0o777, seen: info.mtimeMs };
  } catch (error) {
    throw new KdError(`${file} cannot be read: ${error.message}. Nothing was changed.`, EXIT.failed);
  }
}

/** All or nothing, and only over the file that was read. A link stays a link: what it leads to is written. */
function write(file, text, { mark = '', mode = 0o600, seen }) {
  mkdirSync(dirname(file), { recursive: true, mode: 0o700 });
  const target = lstatSync(file, { throwIfNoEntry: false })?.isSymbolicLink() ? realpathSync(file) : file;
  const draft = `${target}.kelvadrome-${process.pid}`;
  const fd = openSync(draft, 'wx', mode);
  try {
    writeFileSync(fd, mark + text);
    fsyncSync(fd);
    if (statSync(target, { throwIfNoEntry: false })?.mtimeMs !== seen)
      throw new KdError(`${file} was changed by somebody else just now. Try again.`, EXIT.failed);
    renameSync(draft, target);
  } finally {
    closeSync(fd);
    rmSync(draft, { force: true });
  }
}

const backupOf = (file) => `${file}.before-kelvadrome`;

function inWords(file, change) {
  try {
    return change();
  } catch (error) {
    throw error instanceof KdError ? new KdError(`${file}: ${error.message}`, error.exitCode) : error;
  }
}

function install(place, hooks, dryRun) {
  const { file } = place;
  const before = read(file);
  const after = inWords(file, () => withHooks(before.text, hooks));
  if (after === before.text) return `The hooks are in ${file} already.`;
  if (dryRun) return after.trimEnd();
  // The backup is what stood there before any hook of ours.
  if (!before.isNew && Object.keys(installed(before.text)).length === 0)
    writeFileSync(backupOf(file), (before.mark ?? '') + before.text, { mode: before.mode });
  write(file, after, before);
  return `The hooks are in ${file} now.`;
}

function uninstall(place, dryRun) {
  const { file } = place;
  const before = read(file);
  if (before.isNew || Object.keys(inWords(file, () => installed(before.text))).length === 0)
    return `There are no hooks of Kelvadrome in ${file}.`;
  const after = asItWas(file, before.text) ?? inWords(file, () => withoutHooks(before.text));
  if (dryRun) return after.trimEnd();
  if (/^\s*\{\s*\}\s*$/.test(after) && !statSync(backupOf(file), { throwIfNoEntry: false })) rmSync(file);
  else write(file, after, before);
  rmSync(backupOf(file), { force: true });
  return `The hooks are out of ${file}.`;
}

/** The bytes from before, when nothing but our hooks came since. */
function asItWas(file, text) {
  if (!statSync(backupOf(file), { throwIfNoEntry: false })) return undefined;
  const { text: before } = read(backupOf(file));
  const ours = Object.fromEntries(Object.entries(installed(text)).map(([event, [hook]]) => [event, hook]));
  return withHooks(before, ours) === text ? before : undefined;
}

/** What `kd doctor` tells too: whether the hooks are there, whether they run this `kd`, and when one last ran. */
export function stateOf(agent, command, { home, env = process.env, folder }) {
  const place = placeOf(agent, env, folder);
  const seen = statSync(join(home, `hook-${agent}.seen`), { throwIfNoEntry: false })?.mtime ?? null;
  try {
    const events = Object.values(installed(read(place.file).text)).flat();
    const isCurrent =
      events.length > 0 && events.every((hook) => hook.command.startsWith(`${command} hook `));
    return { file: place.file, events: events.length, isCurrent, seen };
  } catch (error) {
    if (!(error instanceof KdError)) throw error;
    return { file: place.file, events: 0, isCurrent: false, seen, problem: error.message };
  }
}

function placeOf(agent, env, projectFolder) {
  const { folder, file, projectFile } = AGENTS[agent];
  return { file: projectFolder ? join(projectFolder, projectFile) : join(folder(env), file) };
}

function sayState(agent, { file, events, isCurrent, seen, problem }) {
  if (problem) return `${agentName(agent)}: ${file} cannot be used. ${problem}`;
  if (events === 0) return `${agentName(agent)}: no hooks in ${file}`;
  const when = seen ? `last ran ${seen.toLocaleString()}` : 'none has run yet';
  return `${agentName(agent)}: ${events} hooks in ${file}, ${when}${isCurrent ? '' : '; they run another kd: install them again'}`;
}

export async function hooks({ values, positionals: [verb, agent], client, env = process.env }) {
  const command = kdByPath(client.home);
  const folder = values.project ? process.cwd() : undefined;
  const say = (text) => process.stdout.write(`${text}\n`);
  const known = AGENTS_WITH_HOOKS;
  if (verb === 'status' && agent === undefined) {
    const states = known.map((name) => [name, stateOf(name, command, { home: client.home, env, folder })]);
    if (values.json) say(JSON.stringify(Object.fromEntries(states)));
    else for (const [name, state] of states) say(sayState(name, state));
    return EXIT.ok;
  }
  if (!known.includes(agent) || !['install', 'uninstall', 'status'].includes(verb))
    throw new KdError(`Say: kd hooks install, uninstall or status, and ${known.join(' or ')}.`, EXIT.usage);
  if (verb === 'status') {
    say(sayState(agent, stateOf(agent, command, { home: client.home, env, folder })));
    return EXIT.ok;
  }
  const place = placeOf(agent, env, folder);
  if (verb === 'uninstall') {
    say(uninstall(place, values['dry-run']));
    return EXIT.ok;
  }
  const wait = values.wait === undefined ? undefined : Number(values.wait);
  if (wait !== undefined && !(wait > 0 && wait <= DAY_S))
    throw new KdError('--wait takes a number of seconds, at most a day.', EXIT.usage);
  say(install(place, hooksFor(agent, command, { wait, whatNext: values['what-next'] }), values['dry-run']));
  if (!values['dry-run'] && AGENTS[agent].after) say(AGENTS[agent].after);
  return EXIT.ok;
}
