// What each picture shows: how the program starts, what is done then, and the window that is taken.
import { mkdirSync } from 'node:fs';
import path from 'node:path';
import { pause } from './world.mjs';

const working = [
  {
    agent: 'claude',
    session_id: 's5',
    label: 'Release notes',
    status: 'busy',
    doing: 'Reading the last commits',
    topic: 'Release',
  },
  { agent: 'codex', session_id: 's6', label: 'Importer', status: 'idle' },
];
const questions = {
  suggested: {
    agent: 'claude',
    session_id: 's1',
    title: 'Which database should the migration use?',
    body: 'Both are installed. The old data fits either of them.',
    options: ['PostgreSQL', 'SQLite', 'Keep the old one'],
    default: 'PostgreSQL',
    topic: 'Storage',
  },
  batch: {
    agent: 'codex',
    session_id: 's2',
    kind: 'batch',
    title: '3 choices for the new service',
    topic: 'Service',
    rows: [
      { question_id: 'lang', text: 'Language?', default: 'Rust' },
      { question_id: 'tests', text: 'Write tests first?', default: 'yes' },
      { question_id: 'port', text: 'Port?', default: '8080' },
    ],
  },
  payment: {
    agent: 'claude',
    session_id: 's3',
    kind: 'stop',
    risk: 'high',
    stop_type: 'payment',
    title: 'Pay the invoice of the test account?',
    body: 'Amount as read: $12.50\nThe amount is within the limit of $20.00.',
    options: ['Approve', 'Reject'],
    topic: 'Billing',
  },
  open: {
    agent: 'gemini',
    session_id: 's4',
    title: 'What should the new command be called?',
    topic: 'Command line',
  },
};

/** Waits for the end of a card, or of its daemon: one that nobody waits for says so. */
async function waitFor(world, { card_id }) {
  const wait = () => world.call('/v1/ask/wait', { card_id, wait_ms: 3000 }).catch(() => null);
  for (let seen = await wait(); seen !== null && seen.state !== 'closed'; ) seen = await wait();
}

async function ask(world, ...names) {
  for (const name of names) waitFor(world, await world.call('/v1/ask', { wait: true, ...questions[name] }));
}
const inbox = async (world) => {
  for (const session of working) await world.call('/v1/sessions/touch', session);
  await ask(world, 'suggested', 'batch', 'payment', 'open');
};

export const panelKeys = async (desktop) => {
  await desktop.see('kelvadrome', 'main');
  await pause(2500);
  desktop.screen.keys('ctrl+p');
};

/** Starts an agent that asks, in a folder of its own, with a terminal in which its pane is seen. */
async function startAgent(desktop) {
  const { world, bin } = desktop;
  const folder = path.join(world.root, 'shop');
  mkdirSync(folder);
  const agent = path.join(bin, 'resources/kelvadrome/sample-agent/sample-agent.mjs');
  const node = path.join(bin, 'resources/node/bin/node');
  const command = `cd '${folder}' && exec '${node}' '${agent}' --script menu,text,stop --once --pause 0`;
  const pane = world.open('agent', command, { width: 80, height: 24 });
  await desktop.openTerminal('agent', '80x24', 'tmux', '-S', world.tmuxSocket, 'attach');
  return pane;
}

/** The road of an answer: asked, on hold, typed; then one that is refused, and one that is reviewed first. */
async function journey(desktop, snap) {
  const { world, screen } = desktop;
  const pane = await startAgent(desktop);
  const front = () => screen.run('xdotool', 'windowactivate', '--sync', screen.window('kelvadrome'));
  const after = (what, condition) => world.until(what, condition, 30);
  const card = (kind, index) =>
    after(`question ${index}`, async () =>
      (await world.cards()).find(
        (one) => one.kind === kind && one.state === 'open' && !one.refs?.last_refusal,
      ),
    );
  const state = async ({ id }) => (await world.cards()).find((one) => one.id === id)?.state ?? 'closed';
  /** A card that has just come takes no key, so they are pressed until it does. */
  const press = (asked, ...keys) =>
    after(`${keys} to be taken`, async () => {
      front();
      screen.keys('Escape', 'j', ...keys);
      for (let looks = 0; looks < 10 && (await state(asked)) === 'open'; looks++) await pause(100);
      return (await state(asked)) !== 'open';
    });

  const menu = await card('question', 1);
  await world.see(pane, /1-3 to choose/, 'the question in the terminal');
  await snap('ask');
  await press(menu, '2');
  await snap('hold', { moving: true });
  await world.see(pane, /You chose: SQLite/, 'the answer in the terminal');
  await after('the card to close', async () => (await state(menu)) === 'closed');
  await snap('sent', { moving: true });
  await snap('typed', { title: 'agent' });

  const text = await card('question', 2);
  world.tmux('copy-mode', '-t', pane);
  await press(text, 't', 'k', 'd', 'Return');
  await after('the refusal', async () =>
    (await world.cards()).some((one) => one.id === text.id && one.refs?.last_refusal),
  );
  await snap('refused');
  world.tmux('send-keys', '-t', pane, '-X', 'cancel');
  world.keys(pane, 'k', 'd', 'Enter');
  await after('the question to go', async () => (await state(text)) === 'closed');

  await card('stop', 3);
  await snap('stop', { keep: false });
  front();
  screen.keys('Escape', 'j', '1');
  await snap('review', { unlike: 'stop' });
}

// Until the page has come, the main window shows native cards: where it is wanted, a longer rest.
const PAGE = 8;

export const pictures = {
  journey: { set: ['-KDWindowSize', '720x600'], walk: journey },
  'main-narrow': { seed: inbox, set: ['-KDWindowSize', '380x700'] },
  terminal: { seed: inbox, terminal: '100x30' },
  'terminal-small': { seed: inbox, terminal: '60x20' },
  'main-inbox': { seed: inbox, both: true, rests: PAGE },
  'main-inspector': { seed: inbox, set: ['-KDInspector', 'YES'], rests: 3 },
  'native-inbox': { seed: inbox, set: ['-KDNativeInbox', 'YES'], both: true },
  'main-expert': { seed: inbox, then: (d) => d.screen.keys('ctrl+shift+e') },
  'main-failed': { resources: false, setup: false },
  'main-200-percent': { seed: inbox, env: { GDK_SCALE: '2' }, wide: true },
  'main-high-contrast': {
    seed: inbox,
    env: { ADW_DEBUG_HIGH_CONTRAST: '1' },
    set: ['-KDNativeInbox', 'YES'],
  },
  'main-right-to-left': { seed: inbox, env: { LANGUAGE: 'ar' } },
  'panel-cards': { seed: inbox, window: 'panel', both: true },
  bar: {
    seed: inbox,
    set: ['-KDOpenBar', 'YES', '-KDBarText', 'which data'],
    title: 'Ask kelvadrome',
    both: true,
  },
  'panel-clear': { window: 'panel' },
  'panel-hold': {
    seed: (world) => ask(world, 'suggested', 'batch'),
    window: 'panel',
    then: (d) => d.screen.keys('a'),
    settle: 300,
  },
  'panel-failed': { resources: false, setup: false, window: 'panel' },
  strip: { seed: inbox, set: ['-KDAgentStrip', 'YES'], title: 'kelvadrome agents', both: true },
  setup: { setup: false, title: 'Set up kelvadrome', both: true },
  ...Object.fromEntries(
    ['general', 'agents', 'voice', 'iphone', 'autopilot', 'privacy', 'about'].map((tab) => [
      `settings-${tab}`,
      {
        seed: inbox,
        set: ['-KDOpenSettings', tab],
        title: 'Settings',
        both: tab === 'general' || tab === 'about',
      },
    ]),
  ),
};
