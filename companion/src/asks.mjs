// From the body of `/v1/ask` to a card. Whatever could not be typed as an answer later is refused here, where the
// agent that asks can still see why.
import { invalid } from './errors.mjs';
import { optional, required } from './check.mjs';
import { NEEDS_YOU } from '../shared/agents.js';
import { paragraphs, shownLine } from '../shared/text.js';
import { identityOf, isShell, nameOf, processInfo } from './proc.mjs';
import { MENU_KEYS, TRUST_OPTIONS, typable } from './answers.mjs';

export const RISKS = ['low', 'medium', 'high'];
export const SCOPES = ['scenario', 'tolvena', 'family', 'companies'];
const HOSTS = ['iterm2', 'terminal', 'tmux', 'herdr', 'unknown'];
const NAME = /^[A-Za-z0-9][A-Za-z0-9._-]{0,63}$/;
const SESSION = /^[A-Za-z0-9][A-Za-z0-9._:-]{0,127}$/;
const REFS = { tmux: /^%[0-9]+$/, herdr: /^w[0-9]+:p[0-9]+$/ };

function line(read, body, field, max) {
  const text = read(body, field, { max });
  if (text === undefined) return undefined;
  const clean = shownLine(text);
  if (clean === '') throw invalid(field, 'is empty');
  return clean;
}

export const readTopic = (body) => line(optional.string, body, 'topic', 120);

export const readIdentity = (body) => ({
  agent: required.string(body, 'agent', { pattern: NAME }),
  session_id: optional.string(body, 'session_id', { pattern: SESSION }),
});

/** Where the agent runs. Absent fields stay absent; nothing is guessed. */
export function readLive(body) {
  const live = optional.object(body, 'live');
  if (live === undefined) return null;
  const host = optional.oneOf(live, 'host', HOSTS) ?? 'unknown';
  const result = {
    pid: optional.integer(live, 'pid', { min: 1, max: 0x7fffffff }),
    pgid: optional.integer(live, 'pgid', { min: 1, max: 0x7fffffff }),
    tty: optional.string(live, 'tty', { pattern: /^[A-Za-z][A-Za-z0-9/]{0,31}$/ }),
    host,
    host_ref: optional.string(live, 'host_ref', { max: 200, pattern: REFS[host] }),
    codex_thread: optional.string(live, 'codex_thread', { pattern: SESSION }),
    cwd: optional.string(live, 'cwd', { max: 4096, pattern: /^\// }),
  };
  if (result.pid !== undefined) Object.assign(result, identityOf(result.pid));
  return Object.fromEntries(Object.entries(result).filter(([, value]) => value !== undefined));
}

function readScreen(body, agent) {
  const screen = optional.object(body, 'screen');
  if (screen === undefined) return null;
  required.oneOf(screen, 'profile', ['claude_trust']);
  const folder = required.string(screen, 'folder', { max: 4096, pattern: /^\// });
  if (agent !== 'claude') throw invalid('screen', 'only claude shows a folder question');
  return { profile: 'claude_trust', folder };
}

function readOptions(body, menu, screen) {
  const given = optional.list(body, 'options', { max: 20 });
  if (screen) {
    if (given !== undefined) throw invalid('options', 'a folder question brings its own');
    return TRUST_OPTIONS;
  }
  const options = (given ?? []).map((text, index) => typable(text, `options[${index}]`));
  if (new Set(options).size !== options.length) throw invalid('options', 'two of them are the same');
  if (menu && (options.length === 0 || options.length > MENU_KEYS.length))
    throw invalid('options', `a menu has 1 to ${MENU_KEYS.length} options`);
  return options;
}

function readRows(body, kind) {
  const rows = (optional.list(body, 'rows', { max: 50 }) ?? []).map((row, index) => {
    const field = `rows[${index}]`;
    if (row === null || typeof row !== 'object' || Array.isArray(row))
      throw invalid(field, 'must be an object');
    const standard = optional.string(row, 'default');
    return {
      question_id: required.string(row, 'question_id', { pattern: /^[A-Za-z0-9_-]{1,64}$/ }),
      text: line(required.string, row, 'text', 500),
      ...(standard === undefined ? {} : { default: typable(standard, `${field}.default`) }),
      agent_state: optional.oneOf(row, 'agent_state', ['working', 'waiting']) ?? 'waiting',
    };
  });
  if (kind === 'batch' && rows.length === 0) throw invalid('rows', 'a batch has at least 1');
  if (kind !== 'batch' && rows.length > 0) throw invalid('rows', 'only a card of kind batch has them');
  if (new Set(rows.map((row) => row.question_id)).size !== rows.length)
    throw invalid('rows', 'two of them have the same question_id');
  return rows.length > 0 ? rows : null;
}

function readRefs(body) {
  const refs = optional.object(body, 'refs') ?? {};
  if (Object.keys(refs).length > 20) throw invalid('refs', 'has more than 20 entries');
  for (const [key, value] of Object.entries(refs)) {
    if (typeof value !== 'string' || value.length > 2000)
      throw invalid(`refs.${key}`, 'must be text of at most 2000 characters');
  }
  return refs;
}

/** How an answer reaches the asker: handed to a waiting `kd`, typed into a terminal, or kept until it is fetched. */
function deliveryRoad(live, waits) {
  if (waits) return 'wait';
  const typed = live && live.pid !== undefined && (live.tty !== undefined || live.codex_thread !== undefined);
  return typed ? 'terminal' : 'keep';
}

/** Throws when no answer could ever be typed into this process. Its terminal is checked elsewhere: `whyUntypable`. */
function refuseUntypable(agent, { pid, host, host_ref }) {
  const info = processInfo(pid);
  if (info === null) throw invalid('live.pid', `there is no process ${pid}`);
  const name = nameOf(info);
  if (isShell(name))
    throw invalid('live.pid', `process ${pid} is a shell (${name}); an answer is never typed into one`);
  if (name !== agent) throw invalid('live.pid', `process ${pid} is ${name}, not ${agent}`);
  if (host === 'terminal')
    throw invalid(
      'live.host',
      'keys are never typed into Terminal; the agent can wait for its answer instead',
    );
  if (host === 'iterm2' && process.platform === 'linux')
    throw invalid(
      'live.host',
      'there is no iTerm2 on this machine; the agent can wait for its answer instead',
    );
  if (host !== 'unknown' && host_ref === undefined)
    throw invalid('live.host_ref', `is missing: which pane of ${host}?`);
}

/** The checked ask. `session_id` falls back to agent and pid, so that one agent process is one session. */
export function readAsk(body) {
  const identity = readIdentity(body);
  const live = readLive(body);
  const kind = optional.oneOf(body, 'kind', NEEDS_YOU) ?? 'question';
  const menu = optional.boolean(body, 'menu') ?? false;
  const screen = readScreen(body, identity.agent);
  const options = readOptions(body, menu, screen);
  if (menu && kind === 'batch') throw invalid('menu', 'a batch is answered with text');
  const standard = optional.string(body, 'default');
  if (standard !== undefined && (menu || screen) && !options.includes(standard))
    throw invalid('default', 'is not one of the options');
  const delivery = deliveryRoad(live, optional.boolean(body, 'wait') ?? false);
  if (delivery === 'terminal') refuseUntypable(identity.agent, live);
  if (screen && delivery !== 'terminal')
    throw invalid('screen', 'a folder question needs the pid and the terminal of its agent');
  return {
    ask_id: optional.string(body, 'ask_id', { pattern: SESSION }),
    ...identity,
    session_id: identity.session_id ?? `${identity.agent}-${live?.pid ?? 'local'}`,
    kind,
    risk: optional.oneOf(body, 'risk', RISKS) ?? 'low',
    stop_type: optional.string(body, 'stop_type', { pattern: NAME }),
    topic: readTopic(body),
    topic_title: line(optional.string, body, 'topic_title', 200),
    scope: optional.oneOf(body, 'scope', SCOPES),
    restricted: optional.boolean(body, 'restricted') ?? false,
    title: line(required.string, body, 'title', 500),
    body: paragraphs(optional.string(body, 'body', { max: 20_000 }) ?? ''),
    options,
    menu,
    screen,
    rows: readRows(body, kind),
    default: standard === undefined ? undefined : typable(standard, 'default'),
    blocking: optional.boolean(body, 'blocking') ?? true,
    refs: readRefs(body),
    live,
    delivery,
    label: line(optional.string, body, 'label', 80),
  };
}
