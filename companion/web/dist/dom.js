/** An element: `h('button', {class: 'x', onclick: f}, 'text', child)`. Text is only ever text. */
export function h(name, attributes = {}, ...children) {
  const element = document.createElement(name);
  for (const [key, value] of Object.entries(attributes)) {
    if (value === undefined || value === null || value === false) continue;
    if (key.startsWith('on')) element.addEventListener(key.slice(2), value);
    else element.setAttribute(key, value === true ? '' : value);
  }
  element.append(...children.flat().filter((child) => child !== null && child !== undefined && child !== false));
  return element;
}

const NAMES = {
  claude: 'Claude Code', codex: 'Codex', grok: 'Grok', gemini: 'Gemini CLI', antigravity: 'Antigravity', qwen: 'Qwen Code', copilot: 'Copilot',
  cursor: 'Cursor Agent', 'cursor-agent': 'Cursor Agent', droid: 'Droid', opencode: 'OpenCode', amp: 'Amp', aider: 'Aider', pi: 'Pi', omp: 'Omp',
};
export const agentName = (agent) => NAMES[agent] ?? agent.charAt(0).toUpperCase() + agent.slice(1);

export function age(text) {
  const s = Math.floor((Date.now() - Date.parse(text)) / 1000);
  if (!(s >= 60)) return 'now';
  if (s < 3600) return `${Math.floor(s / 60)} min`;
  if (s < 86400) return `${Math.floor(s / 3600)} h`;
  return `${Math.floor(s / 86400)} d`;
}

export const clockTime = (text) => new Date(text).toLocaleTimeString([], { hour: '2-digit', minute: '2-digit', second: '2-digit' });
export const day = (text) => new Date(text).toLocaleDateString([], { weekday: 'long', year: 'numeric', month: 'long', day: 'numeric' });
