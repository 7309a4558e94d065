// What the daemon and the page share, held against the vectors that the shell's own code is held against, too.
import { test } from 'node:test';
import assert from 'node:assert/strict';
import { readFileSync } from 'node:fs';
import { AGENTS, NEEDS_YOU, agentDisplay, agentName } from '../../companion/shared/agents.js';
import * as text from '../../companion/shared/text.js';
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
  for (const [given, clean] of vectors('typed-text')) {
    assert.equal(text.sanitize(given), clean, JSON.stringify(given));
    assert.equal(text.whyNotTypable(given) === null, clean === given.normalize('NFC'), JSON.stringify(given));
  }
  const longest = 'q\u0301'.repeat(text.MAX_TYPED);
  assert.equal(text.sanitize(`${longest} \n`), longest, 'what is trimmed does not count');
  assert.equal(text.sanitize(`${longest}q`), null);
});

test('what is cut, or sent, never holds half a character', () => {
  const family = '👩🏽‍❤️‍👧';
  assert.equal(
    text.shownLine(`a\u200db ${family}\u200d`),
    `ab ${family}`,
    'what is only shown keeps its emoji',
  );
  assert.equal(text.paragraphs(`${family}\n\u200b`), family);
  assert.equal(text.cut('👩‍👧b', 1), '👩‍👧…');
  assert.equal(text.within('ab👧', 3), 'ab');
  assert.equal(
    text.wellFormedJson({ text: `a${'👧'[0]}`, list: ['\\ud800'] }),
    '{"text":"a\ufffd","list":["\\\\ud800"]}',
  );
});
