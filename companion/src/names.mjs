// Words for a person.

const AGENT_NAMES = {
  claude: 'Claude Code',
  codex: 'Codex',
  grok: 'Grok',
  gemini: 'Gemini CLI',
  antigravity: 'Antigravity',
  qwen: 'Qwen Code',
  copilot: 'Copilot',
  cursor: 'Cursor Agent',
  'cursor-agent': 'Cursor Agent',
  droid: 'Droid',
  opencode: 'OpenCode',
  amp: 'Amp',
  aider: 'Aider',
  pi: 'Pi',
  omp: 'Omp',
};

export const agentName = (agent) => AGENT_NAMES[agent] ?? agent.charAt(0).toUpperCase() + agent.slice(1);

const CALLSIGNS = [
  'Ada',
  'Bruno',
  'Cleo',
  'Dora',
  'Emil',
  'Freya',
  'Gus',
  'Hana',
  'Ivo',
  'Juno',
  'Kai',
  'Lena',
  'Milo',
  'Nora',
  'Otto',
  'Pia',
  'Quinn',
  'Rosa',
  'Sami',
  'Tove',
  'Uma',
  'Vito',
  'Wanda',
  'Yara',
  'Zeno',
];

/** The first callsign that nobody in `taken` (a set) bears. */
export function freeCallsign(taken) {
  for (let round = 1; ; round++) {
    for (const name of CALLSIGNS) {
      const callsign = round === 1 ? name : `${name} ${round}`;
      if (!taken.has(callsign)) return callsign;
    }
  }
}
