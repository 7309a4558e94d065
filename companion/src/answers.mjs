// From a pressed answer to what is typed for it.
import { invalid } from './errors.mjs';
import { whyNotTypable, characterCount, cut } from '../shared/text.js';

export const MENU_KEYS = '123456789';
export const TRUST_OPTIONS = ['Yes, I trust this folder', 'No, exit'];

/** Throws `validation_failed` on `field` unless the shell would type `text` as it stands. Gives the text composed. */
export function typable(text, field) {
  if (typeof text !== 'string') throw invalid(field, 'must be text');
  const why = whyNotTypable(text);
  if (why) throw invalid(field, `This cannot be typed: ${why}`);
  return text.normalize('NFC');
}

function batchAnswers(card, answer, useDefaults) {
  const known = new Map(card.rows.map((row) => [row.question_id, row]));
  for (const id of Object.keys(answer))
    if (!known.has(id)) throw invalid('answer', `there is no question "${cut(id, 60)}" on this card`);
  const result = {};
  for (const [id, row] of known) {
    const text = Object.hasOwn(answer, id)
      ? answer[id]
      : useDefaults
        ? (row.default ?? undefined)
        : undefined;
    if (text === undefined) throw invalid('answer', `"${cut(row.text, 60)}" has no answer`);
    result[id] = typable(text, `answer.${id}`);
  }
  return result;
}

/** The line that answers a whole batch: "lang: Rust; tests: yes". */
const batchLine = (card, answer) =>
  card.rows.map((row) => `${row.question_id}: ${answer[row.question_id]}`).join('; ');

/**
 * Judges an answer against its card. Gives the answer to keep (a text, or for a batch a text per question) and
 * `words`, which name it in a receipt without repeating what a person typed.
 */
export function fitAnswer(card, answer, acceptAllDefaults) {
  if (answer !== null && typeof answer === 'object' && !Array.isArray(answer)) {
    if (!card.rows?.length) throw invalid('answer', 'must be text: this card asks 1 question');
    const fitted = batchAnswers(card, answer, acceptAllDefaults);
    typable(batchLine(card, fitted), 'answer');
    const all = card.rows.every((row) => fitted[row.question_id] === row.default);
    return { answer: fitted, words: all ? `${card.rows.length} defaults` : `${card.rows.length} answers` };
  }
  if (typeof answer !== 'string')
    throw invalid('answer', 'must be text, or for a batch an object with a text per question');
  if (card.options.includes(answer)) return { answer, words: `"${cut(answer, 80)}"` };
  if (card.menu || card.screen)
    throw invalid('answer', `must be one of the options: ${card.options.join(' / ')}`);
  const fitted = typable(answer, 'answer');
  return { answer: fitted, words: `your text (${characterCount(fitted)} characters)` };
}

/** An answer as the agent that got it would name it: an option, a text, or the line of a batch. */
export const answerLine = (card, answer) => (typeof answer === 'string' ? answer : batchLine(card, answer));

/**
 * What a delivery job carries for this answer: `steps`, `screen` for a question that is read off the screen, and `menu`,
 * the options that must still stand there when one of them is chosen by its number.
 */
export function deliveryOf(card, answer) {
  if (card.screen) {
    const trust = answer === card.options[0];
    // The shell reads the screen before each key; the steps only say which keys are allowed to come.
    const enter = { kind: 'nav', key: 'enter' };
    return {
      steps: trust ? [{ kind: 'nav', key: 'down' }, enter] : [enter],
      screen: { ...card.screen, want: trust ? 'trust' : 'exit' },
    };
  }
  if (card.menu)
    return {
      steps: [{ kind: 'key', key: MENU_KEYS[card.options.indexOf(answer)] }],
      menu: card.options,
    };
  return { steps: [{ kind: 'text', text: answerLine(card, answer) }] };
}
