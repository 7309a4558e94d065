// Walks the road from question to typed answer, without a person: tour.mjs BIN
// First in a terminal, then, where the desktop was built, with the demo on a screen of its own. The exit status is 1 if
// anything was not as it should be.
import path from 'node:path';
import { Step } from './tour/steps.mjs';
import { walkDesktop } from './tour/desktop.mjs';
import { walkTerminal } from './tour/terminal.mjs';

const bin = path.resolve(process.argv[2]);
let failed = false;
for (const walk of [walkTerminal, walkDesktop]) {
  try {
    await walk(bin);
  } catch (error) {
    if (!(error instanceof Step)) console.error(error);
    failed = true;
  }
}
console.log(failed ? 'The road is broken.' : 'The whole road stands.');
process.exit(failed ? 1 : 0);
