// Turns design/tokens.json into what each surface reads: node scripts/make-design.mjs
import { readFileSync, writeFileSync } from 'node:fs';
import { fileURLToPath, pathToFileURL } from 'node:url';

const ROOT = new URL('../', import.meta.url);
const SOURCE = 'design/tokens.json';
const SHEET = 'Kelvadrome/gtk/parts/desktop.css';
const NOTE = `Made from ${SOURCE} by scripts/make-design.mjs; change it there.`;

const read = (path) => readFileSync(new URL(path, ROOT), 'utf8');
export const tokens = () => JSON.parse(read(SOURCE));
const entries = (table) => Object.entries(table);
const rem = (pixels) => (pixels >= 999 ? `${pixels}px` : `${pixels / 16}rem`);
const capital = (name) => name[0].toUpperCase() + name.slice(1);

/** The colours of one scheme, by name. */
export const schemeOf = ({ colours }, index) =>
  Object.fromEntries(entries(colours).map(([name, values]) => [name, values[index]]));

const block = (selector, lines) => `${selector} {\n${lines.map((line) => `  ${line};\n`).join('')}}\n`;

function pageCss(design) {
  const lengths = ['space', 'radius', 'type'].flatMap((kind) =>
    entries(design[kind]).map(([name, pixels]) => `--${kind}-${name}: ${rem(pixels)}`),
  );
  const colours = (index) =>
    entries(schemeOf(design, index)).map(([name, value]) => `--${name}: ${shortHex(value)}`);
  const scheme = (index, name) => [`color-scheme: ${name}`, ...colours(index)];
  return [
    `/* ${NOTE} */`,
    block(':root', [...lengths, ...scheme(0, 'light')]).trimEnd(),
    block(':root[data-theme="dark"]', scheme(1, 'dark')).trimEnd(),
    block(':root[data-contrast="more"]', scheme(2, 'light')).trimEnd(),
    block(':root[data-contrast="more"][data-theme="dark"]', scheme(3, 'dark')).trimEnd(),
    '',
  ].join('\n');
}

/** As the formatter leaves it. */
const shortHex = (hex) => (/^#(.)\1(.)\2(.)\3$/.test(hex) ? `#${hex[1]}${hex[3]}${hex[5]}` : hex);

/** The desktop's sheet with its var(...) filled in: named colours for colours, numbers for lengths, shares for type. */
function desktopSheet(design) {
  const value = (name) => {
    if (Object.hasOwn(design.colours, name)) return `@kd_${name.replaceAll('-', '_')}`;
    const [, kind, step] = /^(space|radius|type)-(\w+)$/.exec(name) ?? [];
    const length = design[kind]?.[step];
    if (length === undefined) throw new Error(`${SHEET} asks for ${name}, which ${SOURCE} does not have`);
    return kind === 'type' ? `${((100 * length) / design.type.text).toFixed(1)}%` : `${length}px`;
  };
  return read(SHEET).replace(/var\(--([\w-]+)\)/g, (_, name) => value(name));
}

function desktopHeader(design) {
  const colours = (index) => {
    const scheme = schemeOf(design, index);
    return [
      ...entries(scheme).map(([name, value]) => `@define-color kd_${name.replaceAll('-', '_')} ${value};`),
      ...entries(design.toolkit).map(([name, token]) => `@define-color ${name} ${scheme[token]};`),
    ].join('\n');
  };
  const text = (name, css) => `inline constexpr const char* ${name} = R"css(${css})css";\n`;
  const lengths = ['space', 'radius'].flatMap((kind) =>
    entries(design[kind]).map(
      ([name, pixels]) => `inline constexpr int ${kind}${capital(name)} = ${pixels};`,
    ),
  );
  return `// ${NOTE}
#pragma once

namespace kelvadrome::Design {

${lengths.join('\n')}

/// The colours of each scheme, as names for the sheets: ours (kd_...) and the toolkit's.
${design.schemes.map((name, index) => text(`${camel(name)}Colours`, `\n${colours(index)}\n`)).join('')}
/// ${SHEET}
${text('sheet', `\n${desktopSheet(design)}`)}
} // namespace kelvadrome::Design
`;
}

const camel = (name) => name.replace(/-(\w)/g, (_, letter) => letter.toUpperCase());

function terminalHeader({ terminal }) {
  const line = ([name, { colour, as }]) =>
    `inline constexpr short ${name} = ${colour};${as === 'mark' ? ' // for a mark; words beside it keep the terminal’s own colour' : ''}`;
  return `// ${NOTE}
#pragma once

/// Numbers among a terminal's 256 colours that can be read on white and on black.
namespace kelvadrome::TerminalColours {

${entries(terminal).map(line).join('\n')}

} // namespace kelvadrome::TerminalColours
`;
}

function wordsHeader({ words, actions }) {
  const quoted = (text) => `"${text.replace(/["\\]/g, '\\$&')}"`;
  const constant = (name, text) => {
    const line = `inline constexpr std::string_view ${name} = ${quoted(text)};`;
    return line.length <= 110 ? line : line.replace(' = ', ' =\n    ');
  };
  const group = (name, lines) => `namespace ${name} {\n${lines.join('\n')}\n} // namespace ${name}\n`;
  return `// ${NOTE}
#pragma once

#include <string_view>

/// The words and keys that every surface shares.
namespace kelvadrome::DesignWords {

/// What can be done with a card, and the key for it. The first option has the key of \`option\`, the ninth "9".
struct Action {
    std::string_view word;
    std::string_view key;
};

${group(
  'action',
  entries(actions).map(
    ([name, { word, key }]) => `inline constexpr Action ${name}{${quoted(word)}, ${quoted(key)}};`,
  ),
)}
${entries(words)
  .map(([name, table]) =>
    group(
      name,
      entries(table).map(([key, text]) => constant(key, text)),
    ),
  )
  .join('\n')}
} // namespace kelvadrome::DesignWords
`;
}

function wordsModule({ words, actions }) {
  const quoted = (text) => (text.includes("'") ? JSON.stringify(text) : `'${text}'`);
  const table = (name, lines) => `export const ${name} = {\n${lines.join('\n')}\n};\n`;
  return [
    `// ${NOTE}`,
    '// The words and keys that every surface shares.',
    table(
      'ACTIONS',
      entries(actions).map(
        ([name, { word, key }]) => `  ${name}: { word: ${quoted(word)}, key: ${quoted(key)} },`,
      ),
    ),
    ...entries(words).map(([name, group]) =>
      table(
        name.toUpperCase(),
        entries(group).map(([key, text]) => `  ${key}: ${quoted(text)},`),
      ),
    ),
  ].join('\n');
}

/** What is made from the source: path -> text. */
export function made(design = tokens()) {
  return {
    'companion/page/css/tokens.css': pageCss(design),
    'companion/shared/words.js': wordsModule(design),
    'Kelvadrome/gtk/parts/Design.h': desktopHeader(design),
    'Kelvadrome/terminal/panel/TerminalColours.h': terminalHeader(design),
    'KelvadromeKit/attention/DesignWords.h': wordsHeader(design),
  };
}

export const onDisk = (path) => read(path);

if (import.meta.url === pathToFileURL(process.argv[1] ?? '').href)
  for (const [path, text] of entries(made())) writeFileSync(fileURLToPath(new URL(path, ROOT)), text);
