// How things are called and counted on the page; the same words as on the other surfaces.
import { agentName } from '/shared/agents.js';
import { capitalised, cut } from '/shared/text.js';
import { OUTCOME, STATE } from '/shared/words.js';
import { h } from './dom.js';

export { agentName };

export function age(text, now = Date.now()) {
  const s = Math.floor((now - Date.parse(text)) / 1000);
  if (!(s >= 60)) return 'now';
  if (s < 3600) return `${Math.floor(s / 60)} min`;
  if (s < 86400) return `${Math.floor(s / 3600)} h`;
  return `${Math.floor(s / 86400)} d`;
}

/** A time that grows old on screen; `growOlder` brings all of them up to date. */
export const ageOf = (text) =>
  h('time', { datetime: text, 'data-age': true, title: new Date(text).toLocaleString() }, age(text));
export function growOlder(root = document) {
  for (const element of root.querySelectorAll('time[data-age]')) {
    const words = age(element.dateTime);
    if (element.textContent !== words) element.textContent = words;
  }
}

export const clockTime = (text) =>
  new Date(text).toLocaleTimeString([], { hour: '2-digit', minute: '2-digit' });

const daysAgo = (date, now) =>
  Math.round((new Date(now).setHours(0, 0, 0, 0) - new Date(date).setHours(0, 0, 0, 0)) / 86_400_000);

export function day(text, now = new Date()) {
  const date = new Date(text);
  const ago = daysAgo(date, now);
  if (ago === 0) return 'Today';
  if (ago === 1) return 'Yesterday';
  return date.toLocaleDateString([], { weekday: 'long', year: 'numeric', month: 'long', day: 'numeric' });
}

/** "14:30", with the day when that is not today. */
export const moment = (text, now = new Date()) =>
  daysAgo(text, now) === 0
    ? clockTime(text)
    : `${new Date(text).toLocaleDateString([], { day: 'numeric', month: 'short', year: 'numeric' })}, ${clockTime(text)}`;

export const count = (n, one, many = `${one}s`) => `${n} ${n === 1 ? one : many}`;
export const caution = (n) => (n === 0 ? 'All clear' : n === 1 ? '1 needs you' : `${n} need you`);
export const kindWord = (kind) => capitalised(kind.replaceAll('_', ' '));

/** One kind of quotes, whoever wrote the sentence. */
export const curly = (text) => text.replace(/"([^"]*)"/g, '“$1”');

/** An answer as one text: a batch gives a line per question. */
export const inWords = (answer) =>
  typeof answer === 'string'
    ? answer
    : Object.entries(answer ?? {})
        .map(([id, text]) => `${id}: ${text}`)
        .join('\n');
export const brief = (answer, limit = 48) => cut(inWords(answer).replaceAll('\n', '; '), limit);

/** How a card stands, in a sentence. */
export const standing = (card) =>
  ({
    open: 'The question is open.',
    held: `“${brief(card.answer)}” is on hold.`,
    armed: `“${brief(card.answer)}” is on its way.`,
  })[card.state] ?? `${ending(card)}.`;

/** What became of a closed card. */
export function ending({ outcome, answer }) {
  if (outcome === 'answered') return `${OUTCOME.answered} “${brief(answer)}”`;
  return (
    { withdrawn: OUTCOME.withdrawn, dismissed: OUTCOME.dismissed, went_on: OUTCOME.wentOn }[outcome] ??
    STATE.closed
  );
}
