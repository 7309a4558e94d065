// Codex's own question on its screen, as far as it can be held against what its hook was asked. Pure.
// A screen that is not wholly as Codex draws this question shows none.
import { oneLine } from '../../shared/text.js';

const ASKS = /^\s*Would you like to run the following command\?\s*$/;
const COMMAND = /^\s*\$ /;
const OPTION = /^(?:› | {2})([1-9])\. (\S.*)$/;
const END = /^\s*Press enter to confirm or esc to cancel\s*$/;
const KEY = /\s*\((?:[a-z]|esc)\)$/; // behind a label: the key that chooses it too

/** The lines show the whole command and nothing else. A line may end anywhere, and takes the blanks there with it. */
function showWhole(lines, command) {
  let rest = command.trim();
  for (const words of lines.map((line) => line.trim())) {
    if (!rest.startsWith(words)) return false;
    rest = rest.slice(words.length).trimStart();
  }
  return rest === '';
}

/**
 * The labels of the question's options, in the order of their numbers, when the screen ends in it and the command
 * that it shows is the whole of `command`; else null.
 */
export function optionsOnScreen(screen, command) {
  const lines = screen.trimEnd().split('\n');
  if (!END.test(lines.pop())) return null;
  const from = lines.findLastIndex((line) => ASKS.test(line));
  if (from < 0) return null;
  const asked = lines.slice(from + 1);
  const first = asked.findIndex((line) => OPTION.test(line));
  const shown = asked.findIndex((line) => COMMAND.test(line));
  if (shown < 0 || first < shown) return null;
  const [begin, ...others] = asked.slice(shown, first);
  if (!showWhole([begin.replace(COMMAND, ''), ...others], command)) return null;
  return labelsOf(asked.slice(first));
}

function labelsOf(lines) {
  const labels = [];
  let isOpen = true; // the label above may go on in this line
  for (const line of lines) {
    const [, number, words] = OPTION.exec(line) ?? [];
    if (number !== undefined && Number(number) !== labels.length + 1) return null;
    if (number !== undefined) labels.push(words);
    else if (line.trim() !== '' && !isOpen) return null;
    else if (line.trim() !== '') labels.push(`${labels.pop()} ${line}`);
    isOpen = line.trim() !== '';
  }
  const clean = labels.map((label) => oneLine(label).replace(KEY, ''));
  const marked = lines.filter((line) => line.startsWith('› ')).length;
  return marked === 1 && clean.length > 1 && clean[0].startsWith('Yes') && clean.at(-1).startsWith('No')
    ? clean
    : null;
}
