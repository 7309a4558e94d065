// A man page from the text of --help.
const escaped = (text) =>
  text
    .replaceAll('\\', '\\e')
    .replaceAll('-', '\\-')
    .replace(/^([.'])/, '\\&$1');

function lines(part) {
  if (part.title !== undefined) return [`.SS "${escaped(part.title)}"`];
  if (part.verbatim !== undefined) return ['.EX', escaped(part.verbatim), '.EE'];
  if (part.paragraph !== undefined) return ['.PP', escaped(part.paragraph)];
  return ['.TP', `.B ${escaped(part.term)}`, escaped(part.text) || '\\&'];
}

export const manual = (name, help, { version, summary, also }) =>
  [
    `.TH ${name.toUpperCase()} 1 "" "kelvadrome ${version}" "User Commands"`,
    '.SH NAME',
    `${name} \\- ${escaped(summary)}`,
    '.SH SYNOPSIS',
    `.B ${escaped(help.usage)}`,
    '.SH DESCRIPTION',
    ...help.parts.flatMap(lines),
    '.SH SEE ALSO',
    `.BR ${also} (1)`,
    '',
  ].join('\n');
