// Text that may be typed into a terminal, and text that is cut to be shown. The shell refuses every text that `sanitize`
// would change, so the daemon judges by the very same rules before it accepts an answer.

export const MAX_TYPED = 4000;
const BLANK = 0x20;
const graphemes = new Intl.Segmenter('und', { granularity: 'grapheme' });

const isDropped = (c) =>
  c < 32 ||
  (c >= 127 && c <= 159) ||
  (c >= 0x200b && c <= 0x200f) ||
  (c >= 0x202a && c <= 0x202e) ||
  (c >= 0x2060 && c <= 0x2064) ||
  (c >= 0x2066 && c <= 0x2069) ||
  c === 0xfeff;
const isLineBreak = (c) => (c >= 9 && c <= 13) || c === 133 || c === 0x2028 || c === 0x2029;

/** Index just past the first scalar from `from` on for which `ends` holds; the end of the text when none does. */
function skipPast(scalars, from, ends) {
  for (let i = from; i < scalars.length; i++) if (ends(scalars[i], i)) return i + 1;
  return scalars.length;
}

const endsControl = (c) => c >= 64 && c <= 126;

const JOINER = 0x200d;
const isPicture = (c) => c !== undefined && /\p{Extended_Pictographic}/u.test(String.fromCodePoint(c));
const isPictureTail = (c) => c === 0xfe0f || (c >= 0x1f3fb && c <= 0x1f3ff); // its colour, its shade

/** Whether the joiner at `i` makes one emoji of two. */
function joinsPictures(scalars, i) {
  let before = i - 1;
  while (isPictureTail(scalars[before])) before--;
  return isPicture(scalars[before]) && isPicture(scalars[i + 1]);
}

/**
 * Removes terminal control sequences and invisible characters; line breaks become blanks. In text that is only `shown`
 * the joiners within emoji stay.
 */
function withoutControls(text, shown = false) {
  const scalars = Array.from(text, (c) => c.codePointAt(0));
  const kept = [];
  for (let i = 0; i < scalars.length; ) {
    const c = scalars[i];
    if (c === 27) {
      const next = scalars[i + 1];
      if (next === undefined) break;
      if ('PX]^_'.includes(String.fromCodePoint(next))) {
        const end = skipPast(scalars, i + 2, (s) => s === 7 || s === 27);
        i = scalars[end - 1] === 27 ? end + 1 : end;
      } else if (next === 0x5b) {
        i = skipPast(scalars, i + 2, endsControl);
      } else {
        i += 2;
      }
    } else if (c === 155) {
      i = skipPast(scalars, i + 1, endsControl);
    } else if (c === 144 || c === 152 || (c >= 157 && c <= 159)) {
      i = skipPast(scalars, i + 1, (s) => s === 7 || s === 156);
    } else {
      if (isLineBreak(c)) kept.push(BLANK);
      else if (!isDropped(c) || (shown && c === JOINER && joinsPictures(scalars, i))) kept.push(c);
      i += 1;
    }
  }
  let clean = '';
  for (const c of kept) clean += String.fromCodePoint(c);
  return clean;
}

/** One clean line: no controls, composed, single blanks, trimmed. May be empty; no limit on its length. */
export function oneLine(text, shown = false) {
  return withoutControls(text, shown)
    .normalize('NFC')
    .replace(/ {2,}/g, ' ')
    .replace(/^[\p{Zs}\t]+|[\p{Zs}\t]+$/gu, '');
}

/** The same for a line that is only shown, never typed: emoji stay whole. */
export const shownLine = (text) => oneLine(text, true);

/** Characters as a person counts them (grapheme clusters), counted no further than `limit` + 1. */
export function characterCount(text, limit = Infinity) {
  let count = 0;
  for (const _ of graphemes.segment(text)) if (++count > limit) break;
  return count;
}

/** The first `limit` characters; never half a character. */
export function cut(text, limit) {
  let count = 0;
  for (const { index } of graphemes.segment(text)) if (++count > limit) return `${text.slice(0, index)}…`;
  return text;
}

/** As much of the text as fits in `units` units of UTF-16; never half a scalar. */
export function within(text, units) {
  const start = text.slice(0, units);
  return /[\ud800-\udbff]$/.test(start) ? start.slice(0, -1) : start;
}

/** With a capital in front. */
export const capitalised = (text) => text.replace(/^./u, (first) => first.toUpperCase());

/** As JSON, without half characters: readers refuse a text that holds one. */
export function wellFormedJson(value) {
  const json = JSON.stringify(value);
  // Half a character goes out as an escape of its own, so hardly any text has to be looked at twice.
  return /\\ud[89a-f]/.test(json)
    ? JSON.stringify(value, (_, part) => (typeof part === 'string' ? part.toWellFormed() : part))
    : json;
}

/** What would be typed for `text`, or null when nothing of it may be typed. */
export function sanitize(text) {
  const clean = oneLine(text);
  if (clean === '' || characterCount(clean, MAX_TYPED) > MAX_TYPED) return null;
  // Judged by its first scalar: the agent's prompt does not care that a combining mark follows its "!".
  return '/!#&'.includes(clean[0]) ? null : clean;
}

/** Why `text` may not be typed as it stands, as words that follow the field's name; null when it may. */
export function whyNotTypable(text) {
  const composed = text.normalize('NFC');
  const clean = sanitize(text);
  if (clean === composed) return null;
  const line = oneLine(text);
  if (line === '') return 'it is empty';
  if (characterCount(line, MAX_TYPED) > MAX_TYPED) return `it has more than ${MAX_TYPED} characters`;
  if (clean === null) return `it begins with "${line[0]}", which the agent would take as a command`;
  if (/[\n\r]/.test(text)) return 'it has more than 1 line';
  return withoutControls(composed) === composed
    ? 'it begins or ends with a blank, or has 2 blanks in a row'
    : 'it has control or invisible characters';
}

/** Text of several lines for reading only: line feeds stay, every other control goes. */
export function paragraphs(text) {
  return text
    .replace(/\r\n?/g, '\n')
    .split('\n')
    .map((line) => withoutControls(line, true).normalize('NFC').trimEnd())
    .join('\n')
    .trim();
}
