// Makes tests/vectors/hook-messages.json anew of what `scripts/real-agents --record FOLDER` kept: vectors.mjs FOLDER
// The messages stay as the agents sent them, but for what tells of a machine: paths, ids and times.
import { readFileSync, readdirSync, writeFileSync } from 'node:fs';
import path from 'node:path';

const WANTED = {
  bash: ['claude', 'PermissionRequest', 'Bash'],
  bash_done: ['claude', 'PostToolUse', 'Bash'],
  write: ['claude', 'PermissionRequest', 'Write'],
  plan: ['claude', 'PermissionRequest', 'ExitPlanMode'],
  questions: ['claude', 'PermissionRequest', 'AskUserQuestion'],
  questions_done: ['claude', 'PostToolUse', 'AskUserQuestion'],
  stop: ['claude', 'Stop'],
  end: ['claude', 'SessionEnd'],
  codex: ['codex', 'PermissionRequest', 'Bash'],
  codex_done: ['codex', 'PostToolUse', 'Bash'],
  codex_stop: ['codex', 'Stop'],
};

const [folder] = process.argv.slice(2);
const messages = readdirSync(folder)
  .sort()
  .map((file) => JSON.parse(readFileSync(path.join(folder, file), 'utf8')));
const agentOf = ({ transcript_path: file }) => (file.includes('/.codex/') ? 'codex' : 'claude');

const ids = new Map();
const idOf = (id) => {
  if (!ids.has(id)) ids.set(id, `00000000-0000-4000-8000-${String(ids.size + 1).padStart(12, '0')}`);
  return ids.get(id);
};
const clean = (text, { cwd }) =>
  text
    .replaceAll(path.dirname(cwd), '/home/user')
    .replaceAll(path.dirname(cwd).replaceAll('/', '-'), '-home-user')
    .replace(/[0-9a-f]{8}(?:-[0-9a-f]{4}){3}-[0-9a-f]{12}/g, idOf)
    .replace(/\d{4}-\d\d-\d\dT\d\d-\d\d-\d\d/g, '2026-01-01T00-00-00')
    .replace(/\/\d{4}\/\d\d\/\d\d\//g, '/2026/01/01/')
    .replace(/(made-|hello-|toolu_|call_)\d+/g, '$11');

const result = {};
for (const [name, [agent, event, tool]] of Object.entries(WANTED)) {
  const found = messages.findLast(
    (one) => agentOf(one) === agent && one.hook_event_name === event && one.tool_name === tool,
  );
  if (found === undefined) throw new Error(`no message for ${name}`);
  result[name] = JSON.parse(clean(JSON.stringify(found), found));
}
const file = new URL('../vectors/hook-messages.json', import.meta.url);
writeFileSync(file, `${JSON.stringify(result, null, 2)}\n`);
