// From a sentence to a proposal: which agent, how, about which topic, to do what, and what has to be asked first. The
// same sentence on the same board always gives the same proposal.
import { agentName, agentNames } from '../shared/agents.js';
import { oneLine, whyNotTypable } from '../shared/text.js';

/** The agents that the shell can start. */
export const STARTABLE = ['claude', 'codex', 'grok'];

const MODES = [
  ['review-readonly', /\b(read[- ]only|without changing|don'?t change|do not change|change nothing)\b/i],
  [
    'browser',
    /^(browse|log ?in to|visit|open (the |a )?(page|site|website)|go to (https?:|www\.))|\bin (the|a) browser\b/i,
  ],
  ['review-readonly', /^(review|audit|check|inspect|verify|critique|proofread|look (at|over|through))\b/i],
  [
    'research',
    /^(research|investigate|find out|explore|compare|explain|summari[sz]e|analy[sz]e|look (into|up|for)|search|read|list|tell me|why|how|what|who|where|when|which|is|are|does|do we|can we|should we)\b/i,
  ],
  [
    'write',
    /^(write|fix|implement|add|change|refactor|build|create|make|rename|update|remove|delete|drop|migrate|upgrade|port|translate|document|test|clean|replace|move|install|configure|deploy|release|run|merge|revert|format|convert|optimi[sz]e|improve|speed|simplify|split|extract|set up|finish|continue|commit|draft|correct|repair|bump|try)\b/i,
  ],
];

const START = String.raw`^(?:please\s+|hey\s+|ok\s+)?`;
const NEXT = String.raw`(?=\s|[,.;:!?]|$)`;

/** All names of agents as people write them, the longest first, each with its agent. */
const NAMES = [
  ...new Map([
    ...Object.entries(agentNames).map(([id, name]) => [name.toLowerCase(), id]),
    ...Object.keys(agentNames).map((id) => [id, id]),
  ]),
].sort(([a], [b]) => b.length - a.length);
const oneOf = (names) =>
  names.map(([name]) => name.split(' ').map(RegExp.escape).join(String.raw`\s+`)).join('|');
const anyName = oneOf(NAMES);
// Names that are words of their own count only where they are clearly spoken to.
const plainName = oneOf(NAMES.filter(([name]) => !/^(pi|amp|omp|cursor|droid|copilot|aider)$/.test(name)));
const idOf = (name) => NAMES.find(([known]) => known === name.toLowerCase().replace(/\s+/g, ' '))[1];

const ADDRESSES = [
  new RegExp(
    `${START}(?:ask|tell|let|have|get|use)\\s+@?(${anyName})${NEXT}[,:]?\\s*(?:to\\s+|and\\s+)?(?:have it\\s+)?`,
    'i',
  ),
  new RegExp(`${START}@?(${anyName})\\s*[,:]\\s*(?:please\\s+)?`, 'i'),
  new RegExp(`${START}(?:@(${anyName})|(${plainName}))\\s+(?:please\\s+|should\\s+|to\\s+)?(?=\\S)`, 'i'),
  new RegExp(`,?\\s+(?:with|using|via|by)\\s+@?(${anyName})(?=[\\s.,;!?]*$)`, 'i'),
  new RegExp(`\\s+@(${anyName})${NEXT}`, 'i'),
];

/** The agents that a sentence speaks to, and the sentence without that. */
function takeAgents(text) {
  const agents = new Set();
  let rest = text;
  for (const pattern of ADDRESSES) {
    const found = pattern.exec(rest);
    if (!found) continue;
    agents.add(idOf(found[1] ?? found[2]));
    rest = `${rest.slice(0, found.index)} ${rest.slice(found.index + found[0].length)}`.trim();
  }
  return { agents: [...agents], rest };
}

const boundary = (name) =>
  String.raw`(?<![\p{L}\p{N}_-])` + RegExp.escape(name) + String.raw`(?![\p{L}\p{N}_-])`;

/** The topics that a sentence names: the longest name wins, and stands for all topics that are called so. */
function takeTopics(text, topics) {
  const named = topics
    .flatMap((topic) => [...new Set([topic.title, topic.id])].map((name) => ({ name, topic })))
    .filter(({ name }) => name.length > 1 && new RegExp(boundary(name), 'iu').test(text))
    .sort((a, b) => b.name.length - a.name.length);
  if (named.length === 0) return { topics: [], rest: text };
  const [{ name }] = named;
  const same = named.filter((one) => one.name.toLowerCase() === name.toLowerCase()).map(({ topic }) => topic);
  // "in Payments" is where; "refund the payments" is part of what is to be done.
  const place = String.raw`(?:\b(?:in|for|on)\s+(?:the\s+)?(?:(?:topic|project|folder|repo)\s+)?|#)`;
  const atStart = new RegExp(`^(?:${place}${boundary(name)}|${boundary(name)}(?=:))\\s*[,:]?\\s*`, 'iu');
  const atEnd = new RegExp(`,?\\s*${place}${boundary(name)}(?=[\\s.!?]*$)`, 'iu');
  const rest = text.replace(atStart, '').replace(atEnd, '').trim();
  return { topics: [...new Set(same)], rest };
}

/** "in ~/projects/shop": a folder by its path. */
function takeFolder(text, home) {
  const found = /(?:^|\s)(?:in|at)\s+((?:~\/|\/)[^\s,;]+?)(?=[.,;!?]?(?:\s|$))/.exec(text);
  if (!found) return { folder: null, rest: text };
  const rest = (text.slice(0, found.index) + text.slice(found.index + found[0].length)).trim();
  return { folder: found[1].replace(/^~(?=\/)/, home), rest };
}

function modeOf(goal) {
  const word = goal.replace(/^(please|can you|could you|would you|i want you to|i need you to)\s+/i, '');
  return MODES.find(([, pattern]) => pattern.test(word))?.[0];
}

const either = (words) =>
  words.length < 2 ? words.join('') : `${words.slice(0, -1).join(', ')} or ${words.at(-1)}`;

/**
 * `board`: `topics` ({id, title, folder}, the last used first), `agents` (those that are installed and can be
 * started, the last used first), `lastAgent` (topic id -> agent), `folder` (where the user works; may be
 * null) and `home`. Absent fields are left out of the proposal. `choices` are what to press on the card:
 * words, and what they settle.
 */
export function parseTalk(text, board) {
  const line = oneLine(text);
  const spoken = takeAgents(line);
  const placed = takeFolder(spoken.rest, board.home);
  const named = takeTopics(placed.rest, board.topics);
  const goal = oneLine(named.rest.replace(/^[\s,:;]+/, ''));
  const topic = named.topics.length === 1 ? named.topics[0] : undefined;
  const folder = placed.folder ?? topic?.folder ?? board.folder ?? null;
  const startable = spoken.agents.filter((agent) => STARTABLE.includes(agent));
  const usual = (topic && board.lastAgent(topic.id)) ?? board.agents[0];
  const agent = startable.length === 1 ? startable[0] : spoken.agents.length === 0 ? usual : undefined;
  const proposal = Object.fromEntries(
    Object.entries({ agent, mode: modeOf(goal), topic: topic?.id, goal: goal || undefined }).filter(
      ([, value]) => value !== undefined,
    ),
  );
  const others = board.agents.filter((one) => one !== agent);
  const withAgent = (one) => [`Run with ${agentName(one)}`, { agent: one }];
  const ask = (clarify, choices) => ({ proposal: { ...proposal, clarify }, folder, choices });

  const why = goal === '' ? null : whyNotTypable(goal);
  if (why !== null) {
    delete proposal.goal;
    return ask(`This cannot be typed for an agent: ${why}. Write it in other words.`, []);
  }
  if (goal === '') return ask(`What should ${agent ? agentName(agent) : 'the agent'} do?`, []);
  if (agent === undefined && spoken.agents.length > 1)
    return ask(`Which agent: ${either(spoken.agents.map(agentName))}?`, startable.map(withAgent));
  if (agent === undefined) {
    const offered = board.agents.length > 0 ? board.agents : STARTABLE;
    const reason =
      spoken.agents.length === 1 ? `${agentName(spoken.agents[0])} cannot be started from here. ` : '';
    return ask(
      `${reason}Which agent should do it: ${either(offered.map(agentName))}?`,
      offered.map(withAgent),
    );
  }
  if (named.topics.length > 1) {
    const shown = named.topics.slice(0, 4);
    return ask(
      `Which one: ${either(shown.map(({ id }) => id))}?`,
      shown.map((one) => [`Run in ${one.id}`, { topic: one.id }]),
    );
  }
  if (folder === null) return ask('In which folder? Name a topic that has one, or write the path.', []);
  return { proposal, folder, choices: [['Run', {}], ...others.slice(0, 2).map(withAgent)] };
}
