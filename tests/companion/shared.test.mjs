// What the daemon and the page share, held against the vectors that the shell's own code is held against, too.
import { test } from 'node:test';
import assert from 'node:assert/strict';
import { readFileSync } from 'node:fs';
import { AGENTS, NEEDS_YOU, agentDisplay, agentName } from '../../companion/shared/agents.js';
import {
  MAX_TYPED,
  paragraphs,
  shownLine,
  cut,
  sanitize,
  whyNotTypable,
  wellFormedJson,
  within,
} from '../../companion/shared/text.js';
import { isShell, programName } from '../../companion/src/proc.mjs';

const vectors = (name) =>
  JSON.parse(readFileSync(new URL(`../vectors/${name}.json`, import.meta.url), 'utf8'));

test('agents have the same names, kinds and programs as in the shell', () => {
  const agents = vectors('agents');
  assert.deepEqual(AGENTS.toSorted(), agents.programs.toSorted());
  for (const [id, name] of Object.entries(agents.names)) assert.equal(agentName(id), name);
  for (const [id, label, name] of agents.displays) assert.equal(agentDisplay(id, label), name);
  assert.deepEqual(NEEDS_YOU.toSorted(), agents.needs_you.toSorted());
  assert.deepEqual(agents.shells.map(isShell).concat(agents.no_shells.map(isShell)), [
    ...agents.shells.map(() => true),
    ...agents.no_shells.map(() => false),
  ]);
  for (const [comm, line, name] of agents.program_names)
    assert.equal(programName(comm, line.split(' ')), name, `${comm}: ${line}`);
});

test('text is cleaned as in the shell, and what would be changed is refused', () => {
  for (const [text, clean] of vectors('typed-text')) {
    assert.equal(sanitize(text), clean, JSON.stringify(text));
    assert.equal(whyNotTypable(text) === null, clean === text.normalize('NFC'), JSON.stringify(text));
  }
  const longest = 'q\u0301'.repeat(MAX_TYPED);
  assert.equal(sanitize(`${longest} \n`), longest, 'what is trimmed does not count');
  assert.equal(sanitize(`${longest}q`), null);
});

test('what is cut, or sent, never holds half a character', () => {
  const family = '👩🏽‍❤️‍👧';
  assert.equal(shownLine(`a\u200db ${family}\u200d`), `ab ${family}`, 'what is only shown keeps its emoji');
  assert.equal(paragraphs(`${family}\n\u200b`), family);
  assert.equal(cut('👩‍👧b', 1), '👩‍👧…');
  assert.equal(within('ab👧', 3), 'ab');
  assert.equal(
    wellFormedJson({ text: `a${'👧'[0]}`, list: ['\\ud800'] }),
    '{"text":"a\ufffd","list":["\\\\ud800"]}',
  );
});
