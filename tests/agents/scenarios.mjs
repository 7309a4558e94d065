// What can happen between an agent and the user, with the real agents. Each gives what was seen, or throws a Step.
import { existsSync } from 'node:fs';
import path from 'node:path';
import { Step, check } from '../../scripts/tour/steps.mjs';
import { openPage } from '../../scripts/tour/page.mjs';
import { pause } from '../../scripts/tour/world.mjs';
import { CODEX_WAITS_S, NEW_ROW_MS } from './stage.mjs';

const QUIET_MS = 2500; // in which what must not happen would have happened

/** The file that the command or the change of a card makes. */
const fileOf = (card, folder) => path.join(folder, /(?:made|hello)-[\d]+(?:\.txt)?/.exec(card.title)[0]);

async function makes(stage, card, folder = stage.work) {
  await stage.until('the agent to do it', () => existsSync(fileOf(card, folder)));
}
function makesNothing(stage, card, folder = stage.work) {
  check(!existsSync(fileOf(card, folder)), 'the agent did it all the same');
}

/** Codex has waited for its hook, and its question is in the terminal: the card that goes on there, if there is one. */
const codexAsks = (stage, pane) =>
  stage.see(
    pane,
    /Press enter to confirm or esc to cancel/,
    'the question in the terminal',
    CODEX_WAITS_S + 10,
  );

async function codexByKeys(stage, { folder, options } = {}) {
  const pane = await stage.start('codex', { folder, options });
  await stage.asks(pane, 'RUN');
  await codexAsks(stage, pane);
  const card = await stage.newCard('the card that goes on by keys');
  check(card.options[0] === 'Yes, proceed' && card.menu, `its options are ${card.options.join(' / ')}`);
  return { pane, card };
}

export const SCENARIOS = {
  'claude, permission on the card': async (stage) => {
    const pane = await stage.start('claude');
    const card = await stage.asks(pane, 'RUN');
    await stage.press(card, 1);
    await makes(stage, card);
    await stage.endedAs(card, 'answer.handed');
    return `"${card.title}" answered with "${card.options[0]}", no key typed`;
  },
  'claude, denied on the card': async (stage) => {
    const pane = await stage.start('claude');
    const card = await stage.asks(pane, 'RUN');
    await stage.press(card, card.options.length);
    await stage.endedAs(card, 'answer.handed');
    await stage.see(pane, /user said no/i, 'the denial in the pane');
    makesNothing(stage, card);
    return 'the agent was told "The user said no."';
  },
  'claude, question with options': async (stage) => {
    const pane = await stage.start('claude');
    const card = await stage.asks(pane, 'ASK');
    await stage.press(card, 2);
    await stage.see(pane, /Understood.*SQLite/s, 'the answer at the agent');
    await stage.endedAs(card, 'answer.handed');
    return `${card.options.join(' / ')}: the agent understood SQLite`;
  },
  'claude, multi-select': async (stage) => {
    const pane = await stage.start('claude');
    const card = await stage.asks(pane, 'CHOOSE');
    await stage.until('the card on the panel', () => stage.screen(stage.panel).includes(card.title));
    const page = await openPage(stage, stage.panel);
    const answer = { o1: 'yes', o2: 'no', o3: 'yes', other: 'no' };
    const press = { card_id: card.id, version: card.version, answer };
    const reply = await page.post('/v1/cards/answer', press);
    check(reply.status === 200, `the page's answer got ${reply.status}: ${reply.body}`);
    await stage.endedAs(card, 'answer.handed');
    const second = await stage.newCard('the card of the second question');
    await stage.press(second, 1);
    await stage.see(pane, /Understood.*Linux, Windows.*kite/s, 'both at the agent');
    await stage.endedAs(second, 'answer.handed');
    return `${card.rows.length} rows, answered on the page, and a second question: "Linux, Windows", "kite"`;
  },
  'claude, plan approval': async (stage) => {
    const pane = await stage.start('claude', { options: '--permission-mode plan' });
    const card = await stage.asks(pane, 'PLAN');
    check(/1\. Write it/.test(card.body), `the card does not show the plan, but "${card.body}"`);
    await stage.press(card, 2);
    await stage.see(pane, /Understood/, 'the agent going on');
    await stage.endedAs(card, 'answer.handed');
    check(!/plan mode on/.test(stage.screen(pane)), 'it is still in plan mode');
    return `the plan is on the card; "${card.options[1]}" ended plan mode`;
  },
  'claude, a diff': async (stage) => {
    const pane = await stage.start('claude');
    const card = await stage.asks(pane, 'WRITE');
    check(/^\+ one\n\+ two$/m.test(card.body), `the card does not show the change, but "${card.body}"`);
    await stage.press(card, 1);
    await makes(stage, card);
    await stage.endedAs(card, 'answer.handed');
    return 'the change is on the card, and was made';
  },
  'claude, answered in the terminal': async (stage) => {
    const pane = await stage.start('claude');
    const card = await stage.asks(pane, 'RUN');
    await stage.see(pane, /❯ 1\. Yes/, "the agent's own dialog");
    const start = Date.now();
    stage.keys(pane, '1');
    await makes(stage, card);
    await stage.endedAs(card, 'card.withdrawn');
    return `the card went ${Date.now() - start} ms after the key`;
  },
  'claude, interrupted with Escape': async (stage) => {
    const pane = await stage.start('claude');
    const card = await stage.asks(pane, 'RUN');
    await stage.see(pane, /❯ 1\. Yes/, "the agent's own dialog");
    const start = Date.now();
    stage.keys(pane, 'Escape');
    await stage.endedAs(card, 'card.withdrawn');
    makesNothing(stage, card);
    return `the card went ${Date.now() - start} ms after the key`;
  },
  'claude, killed': async (stage) => {
    const pane = await stage.start('claude');
    const card = await stage.asks(pane, 'RUN');
    process.kill(stage.pid(pane), 'SIGKILL');
    await stage.isClosed(card, 40);
    return `its card ended as ${await stage.endOf(card)}`;
  },
  'claude, trust screen': async (stage) => {
    const folder = stage.folder('unknown');
    const pane = await stage.start('claude', { folder, ready: /Yes, I trust this folder/ });
    const pid = String(stage.pid(pane));
    stage.kd(
      'ask',
      '--trust',
      folder,
      '--agent',
      'claude',
      '--pid',
      pid,
      '--host',
      'tmux',
      '--host-ref',
      pane,
    );
    const card = await stage.newCard();
    await stage.press(card, 1);
    await stage.until('the folder to be trusted', () => !/I trust this folder/.test(stage.screen(pane)));
    await stage.endedAs(card, 'answer.typed');
    check(stage.paneAlive(pane), 'the agent ended');
    return `"${card.options[0]}" typed; Claude runs`;
  },
  'codex, permission on the card': async (stage) => {
    const pane = await stage.start('codex');
    const card = await stage.asks(pane, 'RUN');
    check(/waits \d+ s for this/.test(card.delivery_note), `its note is "${card.delivery_note}"`);
    await stage.press(card, 1);
    await makes(stage, card);
    await stage.endedAs(card, 'answer.handed');
    return `"${card.delivery_note}" Answered before, no key typed`;
  },
  'codex, pressed at the last moment': async (stage) => {
    const pane = await stage.start('codex');
    const card = await stage.asks(pane, 'RUN');
    await pause(Date.parse(card.opened_at) + (CODEX_WAITS_S - 1) * 1000 - NEW_ROW_MS - Date.now());
    await stage.press(card, 1);
    await makes(stage, card);
    await stage.endedAs(card, 'answer.handed');
    return 'its hold outlasted the wait, and it was handed over all the same';
  },
  'codex, by keys after the wait': async (stage) => {
    const { card } = await codexByKeys(stage);
    await stage.press(card, 1);
    await makes(stage, card);
    await stage.endedAs(card, 'answer.typed');
    return `the digit of "${card.options[0]}" typed into ${card.pane}`;
  },
  'codex, No by keys': async (stage) => {
    const { pane, card } = await codexByKeys(stage);
    await stage.press(card, card.options.length);
    await stage.see(pane, /interrupted|canceled/, 'the refusal in the pane');
    await stage.endedAs(card, 'answer.typed');
    makesNothing(stage, card);
    return `the digit of "${card.options.at(-1)}" typed`;
  },
  'codex, by keys without its server': async (stage) => {
    const { card } = await codexByKeys(stage, { options: '--no-daemon' });
    await stage.press(card, 1);
    await makes(stage, card);
    await stage.endedAs(card, 'answer.typed');
    return 'the hook runs below the terminal itself; typed';
  },
  'codex, answered in the terminal': async (stage) => {
    const { pane, card } = await codexByKeys(stage);
    const start = Date.now();
    stage.keys(pane, '1');
    await makes(stage, card);
    await stage.endedAs(card, 'card.withdrawn');
    return `the card went ${Date.now() - start} ms after the key`;
  },
  'codex, interrupted with Escape': async (stage) => {
    const pane = await stage.start('codex');
    const first = await stage.asks(pane, 'RUN');
    await stage.see(pane, /Running hook/, 'the waiting hook');
    stage.keys(pane, 'Escape');
    await stage.endedAs(first, 'card.withdrawn');
    await stage.asks(pane, 'RUN');
    await codexAsks(stage, pane);
    const card = await stage.newCard('the card that goes on by keys');
    const start = Date.now();
    stage.keys(pane, 'Escape');
    await stage.endedAs(card, 'card.withdrawn');
    makesNothing(stage, card);
    return `the card went while the hook waited, and ${Date.now() - start} ms after Escape at the prompt`;
  },
  'codex, killed': async (stage) => {
    const { pane, card } = await codexByKeys(stage);
    stage.tmux('kill-pane', '-t', pane);
    await stage.isClosed(card, 40);
    return `its card ended as ${await stage.endOf(card)}`;
  },
  'codex, two in one folder': async (stage) => {
    const panes = [await stage.start('codex'), await stage.start('codex')];
    const card = await stage.asks(panes[1], 'RUN');
    await codexAsks(stage, panes[1]);
    await stage.isClosed(card);
    await stage.until('the reason in the log', () => /2 terminals of Codex are in/.test(stage.log()));
    await pause(QUIET_MS);
    const cards = await stage.cards();
    check(cards.length === 0, `there is a card: "${cards[0]?.title}"`);
    makesNothing(stage, card);
    return `no card, and ${stage.log().trim().split(': ').at(-1).replaceAll(stage.root, '')}`;
  },
  'codex, two in two folders': async (stage) => {
    const folder = stage.folder('second');
    await stage.start('codex');
    const { pane, card } = await codexByKeys(stage, { folder });
    check(card.pane === pane, `the card is of ${card.pane}, not ${pane}`);
    await stage.press(card, 1);
    await makes(stage, card, folder);
    await stage.endedAs(card, 'answer.typed');
    return 'the digit went to the one that asked';
  },
  'both at once': async (stage) => {
    const [claude, codex] = [await stage.start('claude'), await stage.start('codex')];
    const cards = [await stage.asks(claude, 'RUN'), await stage.asks(codex, 'RUN')];
    for (const [row, card] of [...cards.entries()].reverse()) {
      await stage.press(card, 1, row); // Codex first: it waits for a time only
      await makes(stage, card);
      await stage.endedAs(card, 'answer.handed');
    }
    return cards.map(({ agent, title }) => `${agent} "${title}"`).join(', ');
  },
  'daemon away': async (stage) => {
    await stage.endHub();
    try {
      const claude = await stage.start('claude');
      await stage.prompt(claude, 'Please RUN');
      const start = Date.now();
      await stage.see(claude, /❯ 1\. Yes/, "the agent's own dialog");
      stage.keys(claude, '1');
      await stage.see(claude, /Understood/, 'the agent going on');
      const codex = await stage.start('codex');
      await stage.prompt(codex, 'Please RUN');
      await codexAsks(stage, codex);
      check(/No kelvadromed answers/.test(stage.log()), 'the log does not say why');
      return `both ask in their terminals (Claude after ${Date.now() - start} ms), the log says why`;
    } finally {
      await stage.startHub();
    }
  },
  'hub away': async (stage) => {
    await stage.endHub();
    const daemon = await stage.startDaemon();
    try {
      const pane = await stage.start('claude');
      const first = await stage.asks(pane, 'RUN');
      await stage.see(pane, /❯ 1\. Yes/, "the agent's own dialog");
      stage.keys(pane, '1');
      await stage.isClosed(first);
      const second = await stage.asks(pane, 'RUN');
      await stage.startHub();
      await stage.press(second, 1);
      await makes(stage, second);
      await stage.endedAs(second, 'answer.handed');
      return 'answered in the terminal the card went; one that stood was answered when the hub came';
    } catch (error) {
      if (!stage.paneAlive(stage.panel)) await stage.startHub().catch(() => {});
      throw error instanceof Step ? error : new Step(error.message);
    } finally {
      daemon.kill();
    }
  },
};
