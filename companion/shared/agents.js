// What agents are called, by their programs and by people, and what of theirs needs the user. The daemon, `kd` and the
// page all read it here; the shell keeps the same tables, and the vectors of the tests hold both against each other.
import { capitalised } from './text.js';

/** The programs that are known as coding agents, by the name that `ps` prints. */
export const AGENTS = [
  'claude',
  'codex',
  'grok',
  'gemini',
  'qwen',
  'copilot',
  'cursor-agent',
  'droid',
  'opencode',
  'amp',
  'aider',
  'pi',
];

/** Who asks when a person at a shell does. */
export const SHELL = 'shell';

export const agentNames = {
  claude: 'Claude Code',
  codex: 'Codex',
  grok: 'Grok',
  gemini: 'Gemini CLI',
  antigravity: 'Antigravity',
  qwen: 'Qwen Code',
  copilot: 'Copilot',
  cursor: 'Cursor Agent',
  droid: 'Droid',
  opencode: 'OpenCode',
  amp: 'Amp',
  aider: 'Aider',
  pi: 'Pi',
  omp: 'Omp',
};

/** An agent's name for a person. */
export function agentName(agent) {
  if (agent === undefined || agent === null) return 'Agent';
  return Object.hasOwn(agentNames, agent) ? agentNames[agent] : capitalised(agent);
}

/** The agent with the label of its session; a label that says the name itself stands alone. */
export function agentDisplay(agent, label) {
  const name = agentName(agent);
  if (!label) return name;
  return label.toLowerCase().startsWith(name.toLowerCase()) ? label : `${name} ${label}`;
}

/** Whose card it is: an agent's, or the user's own who asked in the command bar. */
export const YOUR_REQUEST = 'Your request';
export const askerOf = (card) => (card.request ? YOUR_REQUEST : agentDisplay(card.agent, card.label));

/** The kinds of cards that need the user. */
export const NEEDS_YOU = ['stop', 'question', 'batch', 'conflict', 'handoff_review', 'precedent'];
