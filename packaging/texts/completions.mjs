// Completions for bash, zsh and fish, from the options that the programs read and the words of their help.
import { brief, wordsFor } from './help.mjs';

/** Words that stand behind a command of kd. */
const WORDS = {
  hooks: ['install', 'uninstall', 'status', 'claude', 'codex'],
  hook: ['claude', 'codex'],
  relay: ['serve'],
  voice: ['status', 'install-engine', 'model'],
  run: ['claude', 'codex'],
};
const HIDDEN = ['wait-seconds', 'goes-on']; // what kd says to itself alone

const optionsOf = (options, help) =>
  Object.entries(options)
    .filter(([name]) => !HIDDEN.includes(name))
    .map(([name, { type, short }]) => ({
      name,
      short,
      takesValue: type === 'string',
      words: wordsFor(help, `--${name}`),
    }));

/** The programs as data: {name, options, commands: [{name, words, options, rest}]}. */
export function programs({ kd: { help, commands, general }, kelvadrome }) {
  const described = Object.fromEntries(
    help.parts.filter(({ term }) => term && !term.startsWith('-')).map(({ term, text }) => [term, brief(text)]),
  );
  return [
    {
      name: 'kd',
      options: optionsOf(general, help),
      commands: Object.keys(described).map((name) => ({
        name,
        words: described[name],
        options: optionsOf({ ...general, ...commands[name]?.options }, help),
        rest: WORDS[name] ?? [],
      })),
    },
    {
      name: 'kelvadrome',
      options: kelvadrome.parts
        .filter(({ term }) => term?.includes('--'))
        .map(({ term, text }) => ({
          name: /--([a-z-]+)/.exec(term)[1],
          short: /^-([a-z]),/.exec(term)?.[1],
          takesValue: false,
          words: brief(text),
        })),
      commands: [],
    },
  ];
}

const flags = (options) => options.map(({ name }) => `--${name}`).join(' ');

export function bash({ name, options, commands }) {
  const cases = commands.map(
    (command) => `    ${command.name}) words="${[...command.rest, flags(command.options)].join(' ').trim()}" ;;`,
  );
  return `# Completion of ${name} for bash.
_${name}() {
  local words="${[...commands.map((command) => command.name), flags(options)].join(' ').trim()}"
  ${commands.length ? `((COMP_CWORD == 1)) || case \${COMP_WORDS[1]} in\n${cases.join('\n')}\n  esac` : ':'}
  mapfile -t COMPREPLY < <(compgen -W "$words" -- "\${COMP_WORDS[COMP_CWORD]}")
}
complete -o default -F _${name} ${name}
`;
}

const inZsh = (text) => text.replaceAll("'", '’').replace(/[[\]:]/g, '');
const zshOption = ({ name, words, takesValue }) =>
  `'*--${name}[${inZsh(words)}]${takesValue ? `:${name}:_files` : ''}'`;

export function zsh({ name, options, commands }) {
  const own = options.map(zshOption).join(' ');
  if (commands.length === 0) return `#compdef ${name}\n_arguments ${own}\n`;
  const list = commands.map((command) => `  '${command.name}:${inZsh(command.words)}'`);
  const cases = commands.map((command) => {
    const rest = command.rest.length ? ` '*:word:(${command.rest.join(' ')})'` : " '*:word:_files'";
    return `  ${command.name}) _arguments ${command.options.map(zshOption).join(' ')}${rest} ;;`;
  });
  return `#compdef ${name}
local -a commands=(
${list.join('\n')}
)
if ((CURRENT == 2)); then
  _describe command commands
  _arguments ${own}
  return
fi
shift words
((CURRENT--))
case $words[1] in
${cases.join('\n')}
esac
`;
}

const inFish = (text) => `'${text.replaceAll("'", '’')}'`;

export function fish({ name, options, commands }) {
  const option = (condition) => (one) =>
    `complete -c ${name}${condition} -l ${one.name}${one.short ? ` -s ${one.short}` : ''}${one.takesValue ? ' -r' : ''} -d ${inFish(one.words)}`;
  const first = commands.length ? ' -n __fish_use_subcommand' : '';
  return `${[
    `# Completion of ${name} for fish.`,
    ...commands.map(
      (command) => `complete -c ${name}${first} -f -a ${command.name} -d ${inFish(command.words)}`,
    ),
    ...options.map(option(first)),
    ...commands.flatMap((command) => {
      const condition = ` -n '__fish_seen_subcommand_from ${command.name}'`;
      const rest = command.rest.length
        ? [`complete -c ${name}${condition} -f -a '${command.rest.join(' ')}'`]
        : [];
      return [...rest, ...command.options.map(option(condition))];
    }),
  ].join('\n')}\n`;
}
