// The road from question to typed answer with the panel in a terminal, on real panes.

import { existsSync } from 'node:fs';
import path from 'node:path';
import { check, step as anyStep } from './steps.mjs';
import { openPage } from './page.mjs';
import { World, alive, pause, root } from './world.mjs';

const agentScript = path.join(root, 'companion/sample-agent/sample-agent.mjs');
let world;
let node;
let panel;

const step = (title, walk) =>
  anyStep(title, walk, () => [
    panel && world.paneAlive(panel) ? world.screen(panel) : '(the panel is gone)',
    world.logTail(),
  ]);

// An agent in a pane of its own whose question is on the panel; the answer says which card it is.
async function ask(script) {
  const before = new Set((await world.cards()).map((card) => card.id));
  const pane = world.open(script, `exec '${node}' '${agentScript}' --script ${script} --once --pause 0`);
  const card = await world.until(`the card of "${script}"`, async () =>
    (await world.cards()).find((card) => !before.has(card.id)),
  );
  await world.see(panel, title(card), `"${card.title}" on the panel`);
  await world.see(pane, /choose|Enter to|Enter alone/, "the question on the agent's pane");
  await pause(1500); // a row that has just come or changed takes no answer, so that nobody answers what they have not seen
  return { pane, card };
}

// How a card shows on the panel: a batch and a payment stop by their summaries, any other by the first words
// of its title.
function title(card) {
  if (card.kind === 'batch') return /defaults ready/;
  if (card.kind === 'stop') return /Review in kelvadrome/;
  return new RegExp(card.title.slice(0, 24).replace(/[.*+?^${}()|[\]\\]/g, '\\$&'));
}

async function closed(card) {
  await world.until(
    `the card "${card.title}" to close`,
    async () => !(await world.cards()).some((other) => other.id === card.id),
  );
  await world.until(
    'the row to leave the panel',
    () => !title(card).test(world.screen(panel)) && !/Sent to|Sending/.test(world.screen(panel)),
  );
}

async function lastRefusal(card) {
  return world.until(
    'the refusal',
    async () => (await world.cards()).find((other) => other.id === card.id)?.refs?.last_refusal,
  );
}

function closePane(pane) {
  world.tmux('kill-pane', '-t', pane);
}

/** Walks it; throws where the road breaks. */
export async function walkTerminal(bin) {
  world = new World(bin);
  node = path.join(bin, 'resources/node/bin/node');
  try {
    await tour(bin);
  } finally {
    world.close();
  }
}

async function tour(bin) {
  let health;
  await step('start with no daemon', async () => {
    panel = world.open('panel', `exec '${bin}/kelvadrome'`);
    await world.see(panel, /New questions land here first\./, 'an empty, connected panel', 30);
    health = await world.call('/v1/health', {}, 'GET');
    check(alive(health.pid), 'the daemon has no process');
    await pause(4000); // the event stream opens when the start-up sequence has ended; what comes before it shows 20 s later
    return `the daemon was spawned (pid ${health.pid}), the panel says "All clear"`;
  });

  await step('menu answer', async () => {
    const { pane, card } = await ask('menu');
    await world.see(panel, /1 needs you/, 'the count in the header');
    world.keys(panel, '2');
    await world.see(panel, /Undo/, 'the hold row');
    await world.see(pane, /You chose: .+/, "the choice on the agent's pane");
    const seen = world
      .screen(pane)
      .match(/You chose: (.+)/)[1]
      .trim();
    check(seen.includes(card.options[1]), `the pane says "${seen}", not "${card.options[1]}"`);
    await closed(card);
    return `the question became a card, the pane says "You chose: ${seen}", the card closed`;
  });

  await step('text answer', async () => {
    const { pane, card } = await ask('text');
    const text = 'Use port 8081 - grüße, 世界';
    world.keys(panel, 't');
    await world.see(panel, /Your answer to/, 'the field');
    world.type(panel, text);
    await world.see(panel, /世界/, 'the typed words');
    world.keys(panel, 'Enter');
    await world.until("the text on the agent's pane", () =>
      world.screen(pane).includes(`You chose: ${text}`),
    );
    await closed(card);
    return `the pane says "You chose: ${text}"`;
  });

  await step('batch defaults', async () => {
    const { pane, card } = await ask('batch');
    await world.see(panel, /Accept \d+ defaults/, 'the offer of the defaults');
    world.keys(panel, 'd');
    await world.see(pane, /You chose: .+/, 'the answers on the pane');
    await closed(card);
    return `${card.rows.length} questions, one press; the pane says "${world
      .screen(pane)
      .match(/You chose: .+/)[0]
      .trim()}"`;
  });

  await step('undo inside the window', async () => {
    const { pane, card } = await ask('menu');
    const before = world.screen(pane);
    world.keys(panel, '1');
    await world.see(panel, /Undo/, 'the hold row');
    world.keys(panel, 'u');
    await world.until(
      'the card to be open again',
      async () => (await world.cards()).find((other) => other.id === card.id)?.state === 'open',
    );
    await pause(3000); // longer than the hold: a lost undo would have typed by now
    check(world.screen(pane) === before, 'something was typed in spite of the undo');
    world.keys(pane, '3'); // answered by hand in the terminal: the agent takes its card back
    await closed(card);
    return 'the card is open again and the pane is as it was; answered there by hand, it closed';
  });

  await step('high-risk stop', async () => {
    const { pane, card } = await ask('stop');
    const before = world.screen(pane);
    world.keys(panel, '1');
    await pause(300);
    check(
      (await world.cards()).find((other) => other.id === card.id).state === 'open',
      'the panel answered a high-risk card',
    );
    const { get, post } = await openPage(world, panel);
    const page = await get();
    check(page.status === 200 && /<html/i.test(page.body), 'the page did not load');
    check(world.screen(pane) === before, 'something was typed');
    // The answer pressed on that page is delivered by the shell that opened it: it is typed after the page's 5 seconds.
    const press = { card_id: card.id, version: card.version, answer: card.options[0] };
    check((await post('/v1/cards/answer', press)).status === 409, 'an answer that nobody reviewed was taken');
    const { review } = JSON.parse((await post('/v1/page/review', press)).body).data;
    const answer = await post('/v1/cards/answer', { ...press, review });
    check(answer.status === 200, `the page's answer got ${answer.status}: ${answer.body}`);
    await world.see(pane, /You chose: .+/, "the page's answer on the pane");
    await closed(card);
    return "the panel did not answer it; its link opened the page, and the page's answer was typed";
  });

  await step('folder trust by screen', async () => {
    const { pane, card } = await ask('trust');
    const yes = card.options.findIndex((option) => /trust/i.test(option)) + 1;
    check(yes > 0, 'the card does not offer to trust');
    world.keys(panel, String(yes));
    await world.see(pane, /You chose: .+/, 'the agent going on');
    await closed(card);
    return `the selection was moved on the screen and confirmed; the pane says "${world
      .screen(pane)
      .match(/You chose: .+/)[0]
      .trim()}"`;
  });

  await step('agent replaced by a shell', async () => {
    const { pane, card } = await ask('menu');
    process.kill(world.pid(pane), 'SIGKILL');
    await world.until('the agent to be gone', () => !world.paneAlive(pane));
    world.tmux('respawn-pane', '-t', pane, 'exec bash --norc');
    await world.see(pane, /bash.*[$#]/, "the shell's prompt");
    const before = world.screen(pane);
    world.keys(panel, '1');
    const refusal = await lastRefusal(card);
    check(refusal === 'the agent process ended', `the refusal says "${refusal}"`);
    check(world.screen(pane) === before, 'something was typed into the shell');
    closePane(pane);
    // Nobody is left to take an answer: the panel says so, and lets it go when it is dismissed.
    await world.until(
      'the card of nobody',
      async () => (await world.cards()).find((other) => other.id === card.id)?.state === 'gone',
    );
    await world.see(panel, /From agents that have ended/, 'the card among those of ended agents');
    await world.call('/v1/ask/withdraw', { card_id: card.id });
    await closed(card);
    return `refused with "${refusal}", nothing typed into the shell, and its card no longer waits`;
  });

  await step('daemon killed with SIGKILL', async () => {
    const cards = await world.cards();
    const { pid } = await world.call('/v1/health', {}, 'GET');
    process.kill(pid, 'SIGKILL');
    const fresh = await world.until(
      'another daemon',
      async () => {
        const now = await world.call('/v1/health', {}, 'GET');
        return now.pid !== pid && now;
      },
      30,
    );
    check((await world.cards()).length >= cards.length, 'cards were lost');
    await pause(7000); // the panel looks at the daemon's health every 5 s, then logs in to the new one
    const { pane } = await ask('menu');
    world.keys(panel, '1');
    await world.see(pane, /You chose: .+/, 'an answer under the renewed session', 20);
    return `pid ${pid} became ${fresh.pid}, ${cards.length} card(s) intact, and an answer under the renewed page session was typed`;
  });

  await step('quit', async () => {
    const { pid } = await world.call('/v1/health', {}, 'GET');
    world.keys(panel, 'q');
    await world.until('the panel to leave', () => !world.paneAlive(panel), 20);
    await world.until('the child to leave', () => !alive(pid), 5);
    check(!existsSync(world.socket), 'the socket is still there');
    return `the child (pid ${pid}) and its socket are gone`;
  });
}
