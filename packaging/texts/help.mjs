// Reads the text that a program prints for --help, so that manual and completions are made from it.

const ITEM = /^ {2,8}(-\S.*?|[a-z][a-z-]*)(?: {2,}(\S.*))?$/;
const DEEP = /^ {9,}/; // goes on with the item above

/** A short line without a full stop, with indented lines below, is a title. */
const isTitle = (line, next) => /^[A-Za-z][A-Za-z ,]{2,39}$/.test(line) && /^ /.test(next ?? '');

/**
 * {name, summary, usage, parts}; a part is {title} or {term, text} or {paragraph} or {verbatim}. The first line is
 * "name: summary" where the program says what it is.
 */
export function readHelp(text) {
  const lines = text.split('\n');
  const help = { summary: '', usage: '', parts: [] };
  let last = null; // what the next line may go on with
  const add = (part) => {
    help.parts.push(part);
    last = part;
  };
  for (const [index, line] of lines.entries()) {
    const usage = /^usage: (.*)$/i.exec(line);
    const item = ITEM.exec(line);
    const isExample = last?.verbatim !== undefined || last?.title === 'Examples';
    if (index === 0 && !usage) help.summary = line.slice(line.indexOf(': ') + 2);
    else if (usage) help.usage = usage[1];
    else if (line === '') last = isExample ? last : null;
    else if (DEEP.test(line) && last?.term !== undefined) last.text = `${last.text} ${line.trim()}`.trim();
    else if (isExample && line.startsWith('  ')) add({ verbatim: line.trim() });
    else if (item && !isTitle(line, lines[index + 1])) add({ term: item[1], text: item[2] ?? '' });
    else if (isTitle(line, lines[index + 1])) add({ title: line });
    else if (last?.paragraph !== undefined) last.paragraph += ` ${line.trim()}`;
    else add({ paragraph: line.trim() });
  }
  return help;
}

/** What the help says of an option, such as "--json", in a few words; empty where it says nothing. */
export function wordsFor(help, option) {
  const found = help.parts.find(({ term }) => term?.split(/[ ,[=]+/).includes(option));
  return found ? brief(found.text) : '';
}

/** The first clause of a text. */
export const brief = (text) => text.split(/[.:;(]| \(/)[0].trim();
