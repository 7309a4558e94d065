// A few rounds of each row: whatever happens to the panel, the daemon or the question, no card says what
// isn't so, and no key goes to another question, unless that one was asked after the daemon's word to type.
// BIN is where the programs are.
import { describe, test } from 'node:test';
import assert from 'node:assert/strict';
import { Hub, ROWS, fault, play, randomOf } from './hub.mjs';

describe('an answer on its way', { concurrency: 3 }, () => {
  for (const [number, [name, { words }]] of Object.entries(ROWS).entries()) {
    test(words, async (t) => {
      const hub = await Hub.open(process.env.BIN);
      t.after(() => hub.close());
      // One in the looks before the keys, one in the pause between the text and Return.
      for (const moment of [60, 300]) {
        const result = await play(hub, name, randomOf(number), moment);
        assert.equal(fault(result), null, `${name} after ${moment} ms`);
      }
    });
  }
});
