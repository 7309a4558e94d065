// What the sample agent asks, and how each kind of question takes keys. A question is played without a terminal:
// `begin` gives its state, `view` its lines, `press` the next state, or {chosen} once it is answered.

const menuKinds = {
  begin: () => ({ at: 0 }),
  view: (question, { at }) => [
    `● ${question.title}`,
    ...(question.body ? question.body.split('\n').map((line) => `  ${line}`) : []),
    '',
    ...question.options.map((option, index) => `${index === at ? '❯' : ' '} ${index + 1}. ${option}`),
    '',
    `1-${question.options.length} to choose · ↑↓ and Enter work too`,
  ],
  press: (question, { at }, key) => {
    const count = question.options.length;
    const number = /^[1-9]$/.test(key.text ?? '') ? Number(key.text) : 0;
    if (number >= 1 && number <= count) return { chosen: question.options[number - 1] };
    if (key.name === 'enter') return { chosen: question.options[at] };
    if (key.name === 'up') return { at: (at + count - 1) % count };
    if (key.name === 'down') return { at: (at + 1) % count };
    return { at };
  },
};

function edit({ line }, key) {
  if (key.name === 'backspace')
    return {
      line: Array.from(new Intl.Segmenter().segment(line), (part) => part.segment)
        .slice(0, -1)
        .join(''),
    };
  return { line: line + (key.text ?? '') };
}

const textKinds = {
  begin: () => ({ line: '' }),
  view: (question, { line }) => [`● ${question.title}`, '', `> ${line}▏`, '', 'Enter to send'],
  press: (question, state, key) => {
    if (key.name !== 'enter') return edit(state, key);
    if (state.line.trim() !== '') return { chosen: state.line };
    return question.default === undefined ? state : { chosen: question.default };
  },
};

const batchKinds = {
  begin: () => ({ line: '' }),
  view: (question, { line }) => [
    `● ${question.title}`,
    '',
    ...question.rows.map((row) => `  ${row.id}: ${row.text}  [${row.default}]`),
    '',
    `> ${line}▏`,
    '',
    'id: answer; id: answer · Enter alone takes what stands in [ ]',
  ],
  press: (question, state, key) => {
    if (key.name !== 'enter') return edit(state, key);
    return {
      chosen: state.line.trim() || question.rows.map((row) => `${row.id}: ${row.default}`).join('; '),
    };
  },
};

const EXIT = 'No, exit';
const TRUST = [EXIT, 'Yes, I trust this folder'];
const TRUST_FIRST = ['1. Yes, I trust this folder', '2. No, exit'];
const trustOptions = ({ trustFirst }) => (trustFirst ? TRUST_FIRST : TRUST);
const trustKinds = {
  begin: () => ({ at: 0 }),
  view: (question, { at }) => [
    'Accessing workspace:',
    '',
    question.folder,
    '',
    'Quick safety check: Is this a project you created or one you trust?',
    '',
    ...trustOptions(question).map((option, index) => `${index === at ? '❯' : ' '} ${option}`),
    '',
    'Enter to confirm · Esc to cancel',
  ],
  press: (question, { at }, key) => {
    if (key.name === 'escape') return { chosen: EXIT, leave: true };
    if (key.name === 'enter') {
      const chosen = trustOptions(question)[at].replace(/^\d\. /, '');
      return { chosen, leave: chosen === EXIT };
    }
    if (key.name === 'up') return { at: 0 };
    if (key.name === 'down') return { at: 1 };
    return { at };
  },
};

export const KINDS = {
  menu: menuKinds,
  text: textKinds,
  batch: batchKinds,
  stop: menuKinds,
  trust: trustKinds,
};

const BANK = {
  menu: [
    {
      title: 'Which database should the migration use?',
      options: ['PostgreSQL', 'SQLite', 'Keep the old one'],
      default: 'PostgreSQL',
      topic: 'Storage',
    },
    {
      title: 'The tests pass. Merge the branch?',
      options: ['Yes', 'No, I want to read it first'],
      default: 'Yes',
      topic: 'Release',
    },
    {
      title: 'Two files define the same color. Which one stays?',
      options: ['theme.css', 'legacy.css', 'Merge both', 'Stop here'],
      topic: 'Theme',
    },
  ],
  text: [
    { title: 'What should the new command be called?', topic: 'Command line' },
    { title: 'Which customer should the example name?', default: 'Example Company', topic: 'Docs' },
    { title: 'How many days should logs be kept?', default: '30', topic: 'Storage' },
  ],
  batch: [
    {
      title: '3 choices for the new service',
      topic: 'Service',
      rows: [
        { id: 'lang', text: 'Language?', default: 'Rust' },
        { id: 'tests', text: 'Write tests first?', default: 'yes' },
        { id: 'port', text: 'Port?', default: '8080' },
      ],
    },
    {
      title: '2 choices for the release notes',
      topic: 'Release',
      rows: [
        { id: 'tone', text: 'Tone?', default: 'plain' },
        { id: 'length', text: 'Length?', default: 'short' },
      ],
    },
  ],
  stop: [
    {
      title: 'Pay the invoice of the test account?',
      body: 'Amount as read: $12.50\nThe amount is within the limit of $20.00.',
      options: ['Approve', 'Reject'],
      risk: 'high',
      stopType: 'payment',
      topic: 'Billing',
    },
    {
      title: 'Delete the branch "old-importer" on the server?',
      body: 'It has 3 commits that are nowhere else.',
      options: ['Delete it', 'Keep it'],
      risk: 'high',
      stopType: 'deletion',
      topic: 'Cleanup',
    },
  ],
  trust: [{ topic: 'Folders' }],
};

/** The `round`th question of a kind, in the folder that the agent works in; `more` are fields of it. */
export function question(kind, round, folder, more = {}) {
  const given = BANK[kind][round % BANK[kind].length];
  return kind === 'trust'
    ? { kind, title: `Trust the folder ${folder}?`, folder, ...given, ...more }
    : { kind, ...given };
}

/** The words after `kd ask` that put a question into the inbox. */
export function askArguments(asked) {
  const words = ['--topic', asked.topic];
  if (asked.kind === 'trust') return [...words, '--trust', asked.folder];
  words.push('--title', asked.title);
  if (asked.body) words.push('--body', asked.body);
  if (asked.default !== undefined) words.push('--default', asked.default);
  if (asked.options) words.push('--menu', ...asked.options.flatMap((option) => ['--option', option]));
  if (asked.rows)
    words.push(
      '--kind',
      'batch',
      ...asked.rows.flatMap((row) => ['--row', `${row.id}=${row.text}=${row.default}`]),
    );
  if (asked.kind === 'stop')
    words.push('--kind', 'stop', '--risk', asked.risk, '--stop-type', asked.stopType);
  return words;
}
