// Walks the scenarios with the real agents: main.mjs BIN AGENTS [--record FOLDER] [--cast FILE] [NAME...]
// See scripts/real-agents.
import { parseArgs } from 'node:util';
import { Step } from '../../scripts/tour/steps.mjs';
import { writeCast } from './cast.mjs';
import { Stage } from './stage.mjs';
import { SCENARIOS } from './scenarios.mjs';

const { values, positionals } = parseArgs({
  options: { record: { type: 'string' }, cast: { type: 'string' } },
  allowPositionals: true,
});
const [bin, agents, ...names] = positionals;
const walks = values.cast ? { 'the picture': (stage) => writeCast(stage, values.cast) } : SCENARIOS;
const chosen = Object.entries(walks).filter(
  ([title]) => names.length === 0 || names.some((name) => title.includes(name)),
);
const stage = await Stage.open(bin, agents, values.record);
let failed = 0;
try {
  for (const [title, walk] of chosen) {
    const start = Date.now();
    const say = (word, words) =>
      console.log(`${word} ${String(Date.now() - start).padStart(6)} ms  ${title}: ${words}`);
    try {
      const seen = await walk(stage);
      await stage.clear();
      say('ok    ', seen);
    } catch (error) {
      failed += 1;
      say('FAILED', error instanceof Step ? error.message : error.stack);
      for (const text of await stage.whatIsSeen()) console.log(text);
      await stage.clear().catch(() => {});
    }
  }
} finally {
  await stage.close();
}
console.log(failed ? `${failed} of ${chosen.length} failed.` : `All ${chosen.length} are as they should be.`);
process.exit(failed ? 1 : 0);
