// What the command bar gets of the daemon: search, requests and their screenshots.
import { after, test } from 'node:test';
import assert from 'node:assert/strict';
import { existsSync, mkdirSync, mkdtempSync, rmSync, symlinkSync, writeFileSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { World, until } from './world.mjs';
import { Search } from '../../companion/src/search.mjs';
import { Store } from '../../companion/src/store.mjs';
import { parseTalk } from '../../companion/src/talk.mjs';

// The homes of these tests have a blank in their paths.
process.env.TMPDIR = mkdtempSync(join(tmpdir(), 'kd bar-'));
after(() => rmSync(process.env.TMPDIR, { recursive: true, force: true }));

const PNG = Buffer.concat([Buffer.from('\x89PNG\r\n\x1a\n', 'latin1'), Buffer.from('picture')]);

test('A sentence is read the same way each time', () => {
  const board = {
    topics: [
      { id: 'shop', title: 'Payments', folder: '/w/shop' },
      { id: 'pay-web', title: 'Payments web', folder: '/w/web' },
      { id: 'a/api', title: 'API', folder: '/a' },
      { id: 'b/api', title: 'API', folder: '/b' },
    ],
    agents: ['claude', 'codex'],
    lastAgent: (topic) => (topic === 'shop' ? 'codex' : undefined),
    folder: '/w',
    home: '/home/u',
  };
  const table = [
    [
      'ask claude to review the refunds in Payments',
      'claude',
      'review-readonly',
      'shop',
      'review the refunds',
      '/w/shop',
    ],
    ['fix the login', 'claude', 'write', undefined, 'fix the login', '/w'],
    ['Codex: add tests in Payments web.', 'codex', 'write', 'pay-web', 'add tests.', '/w/web'],
    ['in Payments, why is it slow?', 'codex', 'research', 'shop', 'why is it slow?', '/w/shop'],
    ['refund the payments', 'codex', undefined, 'shop', 'refund the payments', '/w/shop'],
    ['look at the diff with grok', 'grok', 'review-readonly', undefined, 'look at the diff', '/w'],
    ['use codex to write docs in ~/x', 'codex', 'write', undefined, 'write docs', '/home/u/x'],
    [
      'fix it, but change nothing else in the browser',
      'claude',
      'review-readonly',
      undefined,
      undefined,
      '/w',
    ],
    ['fix @claude it', 'claude', 'write', undefined, 'fix it', '/w'],
    ['amp up the volume', 'claude', undefined, undefined, 'amp up the volume', '/w'],
  ];
  for (const [text, agent, mode, topic, goal, folder] of table) {
    const { proposal, folder: at, choices } = parseTalk(text, board);
    const wanted = { agent, mode, topic, goal: goal ?? text };
    assert.deepEqual({ agent: undefined, mode: undefined, topic: undefined, ...proposal }, wanted, text);
    assert.equal(at, folder, text);
    assert.deepEqual(choices[0], ['Run', {}], text);
  }
  const asked = [
    ['ask claude', 'What should Claude Code do?', []],
    [
      'let claude and codex fight',
      'Which agent: Claude Code or Codex?',
      ['Run with Claude Code', 'Run with Codex'],
    ],
    [
      'ask gemini to fix it',
      'Gemini CLI cannot be started from here. Which agent should do it: Claude Code or Codex?',
      ['Run with Claude Code', 'Run with Codex'],
    ],
    [
      '#123 fix it',
      'This cannot be typed for an agent: it begins with "#", which the agent would take as a command. Write it in other words.',
      [],
    ],
    ['review API', 'Which one: a/api or b/api?', ['Run in a/api', 'Run in b/api']],
  ];
  for (const [text, clarify, words] of asked) {
    const { proposal, choices } = parseTalk(text, board);
    assert.deepEqual([proposal.clarify, choices.map(([word]) => word)], [clarify, words], text);
  }
  assert.match(parseTalk('fix it', { ...board, folder: null }).proposal.clarify, /^In which folder/);
  // As it comes from a dictation, or from somebody who means harm.
  const long = 'a '.repeat(2000);
  for (const text of [
    long,
    `ask ${long}`,
    '((((',
    '[[a-z]]+$',
    '#',
    '@claude@codex',
    `in ${'/'.repeat(3000)}`,
  ])
    parseTalk(text, { ...board, topics: [{ id: '(', title: '((' }] });
});

test('Search finds what one remembers, by the beginnings of words, and says where it is from', async (t) => {
  const [world, page] = await World.loggedIn(t);
  const find = async (q, limit = 5) => {
    const found = await world.ok('/v1/search', { q, limit });
    return ['topics', 'decisions', 'questions'].flatMap((kind) =>
      found[kind].map((hit) => [hit.kind, hit.title, hit.snippet]),
    );
  };
  const id = await world.askFromAfar({
    title: 'Migrate the ledger?',
    topic: 'shop',
    topic_title: 'Payments',
    options: ['Tonight', 'Über next week'],
    body: 'Ärger with café tables.',
  });
  for (const q of ['mig led', 'LEDGER', 'uber', 'cafe', 'tonight', 'payments', 'claude code', 'ledger m'])
    assert.ok((await find(q)).length > 0, q);
  assert.deepEqual(await find('tonight'), [
    [
      'question',
      'Migrate the ledger?',
      'Claude Code · Payments · Tonight / Über next week · Ärger with café tables.',
    ],
  ]);
  assert.deepEqual((await find('payments'))[0].slice(0, 2), ['topic', 'Payments']);
  for (const q of ['%', '"', 'NOT', 'a" OR "b', 'title:x', '*', 'egger', '(', '\u0000']) await find(q);
  assert.deepEqual(await find('edger'), []);

  const { version } = await world.card(id);
  await page.ok('/v1/cards/answer', { card_id: id, version, answer: 'Tonight' });
  await world.kd(['wait', id]).catch(() => {});
  for (let i = 0; i < 8; i++)
    await world.askFromAfar({ title: `Ledger ${i}?`, topic: `ledger-${i}`, session_id: `s${i}` });
  const shares = await world.ok('/v1/search', { q: 'ledger', limit: 5 });
  const total = shares.topics.length + shares.decisions.length + shares.questions.length;
  assert.equal(total, 5);
  assert.ok(shares.topics.length >= 1 && shares.questions.length >= 2);
  assert.equal(shares.questions[0].title, 'Ledger 7?');

  const gone = await world.askFromAfar({ title: 'Zebra?' });
  await world.ok('/v1/ask/withdraw', { card_id: gone });
  const [receipt] = await find('zebra');
  assert.deepEqual(receipt.slice(0, 1), ['decision']);
  assert.match(receipt[1], /no longer asks: "Zebra\?"/);
  assert.match(receipt[2], /^Receipt · /);
  const found = await world.ok('/v1/search', { q: 'zebra' });
  assert.equal(found.decisions[0].card, gone);
  await world.restart();
  assert.ok((await find('mig led')).length > 0);
  assert.ok(
    (await find('ledger, '.repeat(40))).length > 0,
    'a sentence that is longer than what is looked for',
  );
});

test('The index knows the scripts of the world, and follows its tables', (t) => {
  const home = mkdtempSync(join(tmpdir(), 'search-'));
  const store = new Store(home);
  t.after(() => store.close());
  const search = new Search({ store, topics: { title: (id) => id }, wentWrong: assert.ifError });
  const card = {
    version: 1,
    state: 'open',
    kind: 'question',
    risk: 'low',
    session_id: 's',
    body: '',
    menu: 0,
  };
  const more = { options: '[]', blocking: 1, refs: '{}', delivery: 'keep', opened_ms: 0, agent: 'claude' };
  const scripts = [
    ['हिन्दी में लिखो', ['हिन्दी', 'हिन्', 'लिखो'], ['दी']],
    ['שָׁלוֹם עולם', ['שלום', 'שָׁלוֹם', 'שלו'], ['לום']],
    ['مَرْحَبًا بك', ['مرحبا', 'مَرْحَبًا'], []],
    ['日本語のテストを直す', ['テスト', '日本', '本語の'], ['本日']],
    ['แก้การทดสอบ', ['ทดสอบ'], []],
    ['Cafe\u0301 x\u0302y', ['café', 'cafe', 'xy'], []],
  ];
  for (const [title] of scripts) store.insert('cards', { ...card, ...more, id: title, title });
  for (const [title, hits, misses] of scripts) {
    const at = (query) => search.find(query, 5).questions.map(({ id }) => id);
    for (const query of hits) assert.deepEqual(at(query), [title], query);
    for (const query of misses) assert.deepEqual(at(query), [], query);
    assert.deepEqual(search.topicsLike(title), []);
  }

  store.insert('topics', { id: 'shop', title: 'Shop', touched_ms: 0 });
  store.insert('sessions', {
    agent: 'grok',
    session_id: 's',
    status: 'idle',
    topic: 'shop',
    callsign: 'a',
    seen_ms: 0,
  });
  const counts = () =>
    ['claude', 'codex', 'grok'].map((q) => Object.values(search.find(q, 50)).flat().length).join();
  assert.equal(counts(), '6,0,1');
  store.run("UPDATE cards SET agent = 'codex' WHERE seq = 1");
  store.run('DELETE FROM sessions');
  assert.equal(counts(), '5,1,0');
});

test('A request is a card, and its screenshots are served to the page alone', async (t) => {
  const [world, page] = await World.loggedIn(t);
  const folder = join(world.home, 'shots');
  const [a, b] = ['shot-20260101T120000Z-aaaaaa', 'shot-20260101T120000Z-bbbbbb'];
  mkdirSync(folder);
  writeFileSync(join(folder, `${a}.png`), PNG);
  writeFileSync(join(folder, `${b}.png`), PNG);
  symlinkSync('/etc/hostname', join(folder, 'shot-20260101T120000Z-cccccc.png'));
  const propose = (body) => page.post('/v1/talk/propose', { surface: 'panel', ...body });
  for (const body of [
    {},
    { text: ' ' },
    { text: 'fix it', shots: ['../x'] },
    { text: 'fix it', shots: ['shot-20260101T120000Z-cccccc'] },
    { text: 'fix it', shots: ['shot-20260101T120000Z-dddddd'] },
    { text: 'fix it', shots: [a, a] },
    { text: `review ${'x'.repeat(3980)}` }, // too long together with "change nothing"
  ])
    assert.equal((await propose(body)).error?.code, 'validation_failed', JSON.stringify(body));
  assert.equal((await world.call('/v1/talk/propose', { text: 'x' })).error.code, 'forbidden');
  assert.deepEqual(await world.cards(), []);

  const { data } = await propose({ text: 'ask claude to fix it in /tmp', shots: [a] });
  assert.deepEqual(data.proposal, { agent: 'claude', mode: 'write', goal: 'fix it' });
  const card = await world.card(data.card_id);
  assert.deepEqual(
    [card.state, card.title, card.options[0], card.shots, card.delivery_note],
    ['open', 'fix it', 'Run', [`/shots/${a}.png`], 'Nothing runs before you press Run.'],
  );
  assert.match((await world.kd(['inbox'])).stdout, /Your request: fix it/);
  const untypable = (await propose({ text: 'claude, /clear' })).data;
  assert.match(untypable.proposal.clarify, /begins with "\/"/);
  assert.deepEqual((await world.card(untypable.card_id)).options, []);
  const picture = await page.raw('GET', `/shots/${a}.png`);
  assert.deepEqual([picture.status, picture.headers['content-type']], [200, 'image/png']);
  const foreign = new page.constructor(world, 'none');
  assert.equal((await foreign.raw('GET', `/shots/${a}.png`)).status, 401);
  for (const path of [`/shots/${b}.png`, '/shots/x.png', '/shots/..%2Fkelvadromed.db', `/shots/${a}.jpg`])
    assert.equal((await page.raw('GET', path)).status, 404, path);
  rmSync(join(folder, `${a}.png`));
  symlinkSync('/etc/hostname', join(folder, `${a}.png`));
  assert.equal((await page.raw('GET', `/shots/${a}.png`)).status, 404);
  assert.equal((await world.card(card.id)).shots, undefined);
});

test('A pressed request starts its agent once, and the goal is its first prompt', async (t) => {
  const [world, page] = await World.loggedIn(t);
  const shot = 'shot-20260101T120000Z-aaaaaa';
  const picture = join(world.home, 'shots', `${shot}.png`);
  mkdirSync(join(world.home, 'shots'));
  writeFileSync(picture, PNG);
  const propose = async (text) => (await page.ok('/v1/talk/propose', { text, shots: [shot] })).card_id;
  const id = await propose('claude, fix it in /tmp');
  const press = async (card = id) =>
    page.ok('/v1/cards/answer', { card_id: card, version: (await world.card(card)).version, answer: 'Run' });
  const report = (job, outcome, reason) =>
    page.ok('/v1/deliver/report', { job_id: job.id, outcome, ...(reason ? { reason } : {}) });

  await press();
  const refused = await page.claimOne();
  assert.equal((await report(refused, 'start')).proceed, true);
  await report(refused, 'refused', 'tmux or the agent was not found');
  assert.equal((await world.reopened(id)).refs.last_refusal, 'tmux or the agent was not found');

  await press();
  const job = await page.claimOne();
  assert.deepEqual(
    [job.type, job.host, job.agent, job.open, job.presence],
    ['open', 'tmux', 'claude', { cwd: '/tmp', argv: ['claude'] }, refused.presence],
  );
  assert.equal((await report(job, 'start')).proceed, true);
  await report(job, 'done');

  // The agent in the request's own tmux session, and another one, report in.
  const other = await world.panes.start();
  const touch = (id, { live }) =>
    world.ok('/v1/sessions/touch', { agent: 'claude', session_id: id, live, status: 'idle' });
  const reportsIn = async ({ session_id: name }) => {
    const own = await world.panes.start();
    world.panes.tmux('new-session', '-d', '-s', `kd-${name}`, 'sleep', 'infinity');
    world.panes.tmux('move-window', '-s', own.live.host_ref, '-t', `kd-${name}:`);
    await touch(`own-${name}`, own);
    return own;
  };
  await touch('other', other);
  const own = await reportsIn(job);
  const prompt = await page.claimOne();
  assert.deepEqual(
    [prompt.type, prompt.pid, prompt.host_ref, prompt.steps],
    [
      'answer',
      own.pid,
      own.live.host_ref,
      [{ kind: 'text', text: `fix it Look at this screenshot: "${picture}"` }],
    ],
  );
  assert.equal((await report(prompt, 'start')).proceed, true);
  await report(prompt, 'done');
  await world.closed(id);
  assert.equal((await world.detail(id)).outcome, 'answered');

  // What restricts a request goes with it in any case, the screenshots where there is room.
  const goal = `review ${'x'.repeat(3940)}`;
  const long = await propose(`claude, ${goal} in /tmp`);
  await press(long);
  const start = await page.claimOne();
  await report(start, 'start');
  await report(start, 'done');
  await reportsIn(start);
  const { id: last, steps } = await page.claimOne();
  assert.equal(steps[0].text, `${goal} Review only: change nothing.`);
  assert.match((await world.receipts())[0].line, /^The screenshots are left out/);
  await report({ id: last }, 'start');
  await report({ id: last }, 'done');

  // One that never reports in says where it is; a daemon that is started anew goes on waiting for it.
  const late = (await page.post('/v1/talk/propose', { text: 'claude, review it in /tmp' })).data.card_id;
  await page.ok('/v1/cards/answer', { card_id: late, version: 1, answer: 'Run' });
  const opened = await page.claimOne();
  await report(opened, 'start');
  await report(opened, 'done');
  await world.restart();
  assert.equal((await world.card(late)).state, 'armed');
  await until(async () => {
    await world.advance(50);
    return (await world.card(late)).state === 'open';
  }, 'the request is given up');
  assert.match((await world.card(late)).refs.last_refusal, /has not reported in.*tmux attach -t kd-/);
});

test('Words in place of a choice complete the request', async (t) => {
  const [world, page] = await World.loggedIn(t);
  const { card_id: id, proposal } = (await page.post('/v1/talk/propose', { text: 'claude, fix it' })).data;
  assert.match(proposal.clarify, /^In which folder/);
  assert.deepEqual((await world.card(id)).options, []);
  await page.ok('/v1/cards/answer', { card_id: id, version: 1, answer: 'in /tmp' });
  const card = await until(async () => {
    const now = await world.card(id);
    return now.options.includes('Run') && now.state === 'open' && now;
  }, 'the request is complete');
  assert.equal(card.title, 'fix it');
  assert.ok(existsSync('/tmp'));
});
