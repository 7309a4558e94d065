// The steps of a walk: each prints a line of what was seen and how long it took.

export class Step extends Error {}

/**
 * One step. What `walk` gives is what was seen; when it fails, `show` gives what there is to see, and the
 * walk ends.
 */
export async function step(title, walk, show) {
  const start = Date.now();
  const line = (word, words) =>
    console.log(`${word}  ${String(Date.now() - start).padStart(6)} ms  ${title}: ${words}`);
  try {
    line('ok  ', await walk());
  } catch (error) {
    line('FAIL', error.message);
    if (!(error instanceof Step)) console.log(error.stack);
    for (const text of show()) console.log(text);
    throw new Step('What follows stands on what went before.');
  }
}

export function check(condition, otherwise) {
  if (!condition) throw new Step(otherwise);
}
