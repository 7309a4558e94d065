// The design's one source: what is made from it is up to date, and every declared pair of colours can be read.
import { test } from 'node:test';
import assert from 'node:assert/strict';
import { made, onDisk, schemeOf, tokens } from '../../scripts/make-design.mjs';
import { contrast, ofTerminal } from './contrast.mjs';

const design = tokens();

test('the files on disk are what the source makes', () => {
  for (const [path, text] of Object.entries(made()))
    assert.ok(onDisk(path) === text, `${path} is old: run node scripts/make-design.mjs`);
});

test('each colour has a value for every scheme and stands in a pair or behind one', () => {
  const used = new Set(design.pairs.flatMap(({ of, on }) => [...of, ...on]));
  for (const [name, values] of Object.entries(design.colours)) {
    assert.equal(values.length, design.schemes.length, name);
    for (const value of values) assert.match(value, /^#[0-9a-f]{6}$/, name);
    // A line only separates; what it separates is told apart without it.
    assert.ok(used.has(name) || name === 'line', `${name} is in no pair`);
  }
});

test('text and marks have the contrast that the source asks for, in every scheme', () => {
  const short = [];
  for (const [index, scheme] of design.schemes.entries()) {
    const colours = schemeOf(design, index);
    for (const { as, of, on } of design.pairs)
      for (const front of of)
        for (const back of on) {
          const ratio = contrast(colours[front], colours[back]);
          if (!(ratio >= design.contrast[as][index]))
            short.push(`${scheme}: ${front} on ${back} as ${as}: ${ratio.toFixed(2)}`);
        }
  }
  assert.deepEqual(short, []);
});

test('the terminal’s colours hold on white and on black', () => {
  for (const [name, { colour, as }] of Object.entries(design.terminal))
    for (const ground of ['#ffffff', '#000000'])
      assert.ok(contrast(ofTerminal(colour), ground) >= design.contrast[as][0], `${name} on ${ground}`);
});

test('no two actions of an open card have one key', () => {
  const { wake, ...rest } = design.actions;
  const keys = Object.values(rest).map((action) => action.key);
  assert.equal(new Set(keys).size, keys.length);
  assert.equal(wake.key, rest.snooze.key);
});
