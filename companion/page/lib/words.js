// How things are called and counted on the page; the same words as in the shell.
import { agentDisplay, agentName } from '/shared/agents.js';
import { capitalised, cut } from '/shared/text.js';
import { h } from './dom.js';

export { agentDisplay, agentName };

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

export function day(text, now = new Date()) {
  const date = new Date(text);
  const daysAgo = Math.round(
    (new Date(now).setHours(0, 0, 0, 0) - new Date(date).setHours(0, 0, 0, 0)) / 86_400_000,
  );
  if (daysAgo === 0) return 'Today';
  if (daysAgo === 1) return 'Yesterday';
  return date.toLocaleDateString([], { weekday: 'long', year: 'numeric', month: 'long', day: 'numeric' });
}

export const count = (n, one, many = `${one}s`) => `${n} ${n === 1 ? one : many}`;
export const caution = (n) => (n === 0 ? 'All clear' : n === 1 ? '1 needs you' : `${n} need you`);
export const kindWord = (kind) => capitalised(kind.replaceAll('_', ' '));

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
export function ending(card) {
  if (card.outcome === 'answered') return `Answered “${brief(card.answer)}”`;
  return (
    {
      withdrawn: 'Taken back by the agent',
      dismissed: 'Dismissed without an answer',
      went_on: 'The agent went on',
    }[card.outcome] ?? 'Closed'
  );
}
