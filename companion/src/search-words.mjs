// How texts and queries are cut into words for the search: both by this, so that they meet.

// Scripts that put no blanks between words. Their marks stay with their letters.
const RUNS = /[\p{scx=Han}\p{scx=Hira}\p{scx=Kana}\p{scx=Thai}\p{scx=Laoo}\p{scx=Khmr}\p{scx=Mymr}]\p{M}*/gu;
// Points and vowel signs, which are hardly ever typed, and the stretcher of Arabic.
const POINTS = /(?=\p{M})[\p{scx=Hebr}\p{scx=Arab}]|\u0640/gu;
const isPlain = (text) => !/[^\0-\u058f]/.test(text);

const WORDS = /[\p{L}\p{N}\p{M}\p{Co}]+/gu;

/** The text as it is indexed: without points, and each letter of a script without blanks by itself. */
export const spread = (text) => (isPlain(text) ? text : text.replace(POINTS, '').replace(RUNS, ' $& '));

/** The words of a text, each as a string of the index's language: one of several letters by themselves is a phrase. */
export const wordsOf = (text) => text.replace(POINTS, '').match(WORDS) ?? [];
export const quoted = (word) => `"${spread(word).trim()}"`;
