// The road of one answer, and every way in which it can end.
import { test } from 'node:test';
import assert from 'node:assert/strict';
import { World, has, refused, until } from './world.mjs';
import { deliveryOf, fitAnswer } from '../../companion/src/answers.mjs';

test('an answer goes from ask to typed: held, armed, claimed, started, done', async (t) => {
  const [world, page] = await World.loggedIn(t, { KELVADROME_TEST_HOLD_MS: '' });
  const { live } = await world.panes.start();
  const id = await world.ask({ topic: 'Billing', default: 'Yes', live });
  has(await world.card(id), { version: 1, default: 'Yes' });
  const held = await page.ok('/v1/cards/answer', { card_id: id, version: 1, answer: 'No' });
  assert.deepEqual([held.status, held.card.version], ['held', 2]);
  assert.match(held.receipt.line, /"No" for Claude Code: "Deploy\?"/);
  const claim = page.claimOne();
  await world.advance(2);
  const { id: job_id, presence, expires_at, ...rest } = await claim;
  const { cwd: _, ...where } = live;
  const asker = { card_id: id, agent: 'claude', session_id: `claude-${live.pid}` };
  const steps = [{ kind: 'key', key: '2' }];
  assert.deepEqual(rest, { type: 'answer', ...asker, ...where, steps, menu: ['Yes', 'No'] });
  assert.match(presence, /^[0-9a-f]{32}$/);
  assert.ok(Date.parse(expires_at) > Date.now());
  assert.equal((await world.card(id)).state, 'armed');
  assert.deepEqual(await page.report(job_id, 'start'), { proceed: true });
  has(await page.report(job_id, 'start'), { proceed: false, reason: 'the job was started before' });
  await page.report(job_id, 'done', { path: 'host' });
  has(await world.ok('/v1/onboarding/status'), { completed: true }); // for an answer has arrived
  assert.equal(await world.card(id), undefined);
  assert.deepEqual(await world.actions(), ['answer.typed', 'answer.held']);
  assert.equal((await world.ok('/v1/inbox')).counts.verified_today, 1);
  const topic = { id: 'Billing', title: 'Billing', open_cards: 0 };
  assert.deepEqual((await world.ok('/v1/board')).topics, [topic]);
});

test('an answer that is taken back, is stale, or does not fit changes nothing', async (t) => {
  const [world, page] = await World.loggedIn(t, { KELVADROME_TEST_HOLD_MS: '60000' });
  const id = await world.ask();
  const press = (body) => page.post('/v1/cards/answer', { card_id: id, version: 1, answer: 'Yes', ...body });
  for (const [body, code] of [
    [{ version: 2 }, 'stale'],
    [{ version: undefined }, 'validation_failed'],
    [{ version: '1' }, 'validation_failed'],
    [{ card_id: 'card-none' }, 'unknown_card'],
    [{ answer: 'Maybe' }, 'validation_failed'],
  ])
    refused(await press(body), code);
  assert.equal((await world.card(id)).version, 1);
  assert.equal((await press({})).ok, true);
  refused(await press({}), 'stale', /on its way/);
  const undone = await page.ok('/v1/page/cancel', { card_id: id });
  has(undone.card, { state: 'open', version: 3, held_until: undefined });
  refused(await page.post('/v1/page/cancel', { card_id: id }), 'conflict');
});

test('the hold lasts 2 s, and 5 s for a high risk; afterwards undo comes too late', async (t) => {
  const [world, page] = await World.loggedIn(t, { KELVADROME_TEST_HOLD_MS: '' });
  for (const [risk, seconds] of Object.entries({ low: 2, high: 5 })) {
    const press = { card_id: await world.ask({ risk }), version: 1, answer: 'Yes' };
    const before = Date.now();
    const { card } = await (risk === 'high' ? page.confirm(press) : page.ok('/v1/cards/answer', press));
    const end = Date.parse(card.held_until) - seconds * 1000;
    assert.ok(end >= before && end <= Date.now(), risk);
  }
  const [low, high] = await world.cards();
  await world.advance(2);
  await until(async () => (await world.card(low.id)).state === 'armed', 'the hold of 2 s ends');
  await page.ok('/v1/page/cancel', { card_id: high.id });
  refused(await page.post('/v1/page/cancel', { card_id: low.id }), 'conflict', /Too late/);
});

test('the answer is typed as the kind of question wants it, and refused where the shell would not type it', () => {
  const rows = [
    { question_id: 'lang', text: 'Language?', default: 'Rust' },
    { question_id: 'tests', text: 'Tests?', default: 'yes' },
  ];
  const text = { options: [] };
  const batch = { options: [], rows };
  const menu = { options: ['Ja', 'Nein'], menu: true };
  const trust = { options: ['Yes, I trust this folder', 'No, exit'], screen: { folder: '/a b' } };
  const nav = (...keys) => keys.map((key) => ({ kind: 'nav', key }));
  const typed = (line) => [{ kind: 'text', text: line }];
  for (const [card, answer, steps, words] of [
    [{ options: ['Ja', 'Nein'] }, 'Ja', typed('Ja'), '"Ja"'],
    [menu, 'Nein', [{ kind: 'key', key: '2' }], '"Nein"'],
    [text, 'u\u0308ber 42', typed('über 42'), 'your text (7 characters)'],
    [batch, { lang: 'Go', tests: 'no' }, typed('lang: Go; tests: no'), '2 answers'],
    [batch, { tests: 'yes' }, typed('lang: Rust; tests: yes'), '2 defaults'],
    [batch, 'just start', typed('just start'), 'your text (10 characters)'],
    [trust, 'Yes, I trust this folder', nav('down', 'enter'), '"Yes, I trust this folder"'],
    [trust, 'No, exit', nav('enter'), '"No, exit"'],
    [text, '字'.repeat(4000), typed('字'.repeat(4000)), 'your text (4000 characters)'],
  ]) {
    const fitted = fitAnswer(card, answer, true);
    assert.deepEqual([deliveryOf(card, fitted.answer).steps, fitted.words], [steps, words]);
  }
  assert.equal(deliveryOf(trust, 'No, exit').screen.want, 'exit');
  for (const [card, answer, words] of [
    [batch, { lang: 'Go' }, /"Tests\?" has no answer/],
    [batch, { lang: 'Go', other: 'x' }, /no question "other"/],
    [batch, { lang: 'Go', tests: '/no' }, /answer\.tests/],
    [menu, 'Maybe', /one of the options/],
    [trust, 'yes', /one of the options/],
    [text, { a: 'b' }, /asks 1 question/],
    [text, 3, /must be text/],
    [text, '', /empty/],
    [text, ' a', /blank/],
    [text, 'a  b', /2 blanks/],
    [text, 'a\nb', /more than 1 line/],
    [text, '!\u0301ls', /command/],
    [text, 'a\x1b[31mb', /control/],
    [text, 'x'.repeat(4001), /4000/],
  ])
    assert.throws(() => fitAnswer(card, answer, false), { code: 'validation_failed', message: words });
});

test('a job goes to the page session that pressed, and to one claimant only', async (t) => {
  const world = await World.open(t);
  const [shell, other] = [await world.login(), await world.login()];
  const waiting = [other.claimOne(600), shell.claimOne(), shell.claimOne(600)];
  const id = await world.askAndAnswer(shell);
  const [foreign, first, second] = await Promise.all(waiting);
  assert.equal(foreign, undefined);
  assert.deepEqual([first?.card_id, second].sort(), [id, undefined].sort());

  const elsewhere = { proceed: false, reason: 'the job was claimed by another page session' };
  assert.deepEqual(await other.report(first.id, 'start'), elsewhere);
  const done = { job_id: first.id, outcome: 'done' };
  refused(await other.post('/v1/deliver/report', done), 'forbidden');
  refused(await shell.post('/v1/deliver/report', done), 'conflict');
  assert.deepEqual(await shell.report(first.id, 'start'), { proceed: true });
  refused(await shell.post('/v1/deliver/report', { ...done, job_id: 'job-none' }), 'unknown_job');

  // A claimant that left while it waited is not given the job.
  const gone = new AbortController();
  const left = fetch(`http://127.0.0.1:${world.port}/v1/deliver/claim`, {
    method: 'POST',
    signal: gone.signal,
    body: '{"wait_ms":8000}',
    headers: { Cookie: `kd_session=${shell.cookie}`, 'x-kd-csrf': shell.csrf },
  }).catch(() => null);
  assert.equal(await shell.claimOne(0), undefined);
  gone.abort();
  await left;
  const next = await world.askAndAnswer(shell);
  assert.equal((await shell.claimOne()).card_id, next);
});

test('a refused or failed job opens the card again as it was, with the reason', async (t) => {
  const [world, page] = await World.loggedIn(t);
  const id = await world.ask({ body: 'the body', refs: { pr: '12' } });
  const answerAndClaim = async (version) => {
    await page.ok('/v1/cards/answer', { card_id: id, version, answer: 'Yes' });
    return page.claimOne();
  };
  const first = await answerAndClaim(1);
  await page.report(first.id, 'refused', { reason: 'the agent process ended', path: 'host' });
  const refs = { pr: '12', last_refusal: 'the agent process ended' };
  has(await world.reopened(id), { version: 4, body: 'the body', refs });
  assert.match((await world.receipts())[0].line, /the agent process ended\. Nothing was typed/);
  assert.deepEqual(await page.report(first.id, 'start'), { proceed: false, reason: 'the job is over' });

  const failed = await answerAndClaim(4);
  assert.deepEqual(await page.report(failed.id, 'start'), { proceed: true });
  await page.report(failed.id, 'failed', { reason: 'stopped after 1 of 2 steps: x', path: 'host' });
  assert.match((await world.reopened(id)).refs.last_refusal, /Some keys may have been typed/);
  assert.deepEqual(await page.report(failed.id, 'done'), { accepted: false, reason: 'the job is over' });
  assert.equal((await world.card(id)).state, 'open');
});

test('a job that nobody starts expires; one that was started and never reported says that keys may have been typed', async (t) => {
  const [world, page] = await World.loggedIn(t);
  const unclaimed = await world.askAndAnswer(page);
  await world.armed(unclaimed);
  await page.stays(60);
  assert.equal((await world.reopened(unclaimed)).refs.last_refusal, 'nobody took the answer in time');

  const { id: claimed, job: idle } = await world.answered(page);
  await page.stays(60);
  assert.equal((await world.reopened(claimed)).refs.last_refusal, 'the delivery was never begun');
  assert.deepEqual(await page.report(idle.id, 'start'), { proceed: false, reason: 'the job expired' });

  const { id: started, job: slow } = await world.answered(page);
  await page.stays(40);
  assert.deepEqual(await page.report(slow.id, 'start'), { proceed: true });
  // Its typing gets a full term of its own, past the job's.
  await page.stays(40);
  assert.equal((await world.card(started)).state, 'armed');
  await page.stays(20);
  assert.match((await world.reopened(started)).refs.last_refusal, /Some keys may have been typed/);
  assert.deepEqual(await page.report(slow.id, 'done'), { accepted: true });
  await world.closed(started);
  assert.equal((await world.detail(started)).answer, 'Yes');
});

test('when the shell is gone for 12 s, its answers are open again: with words, and what may have been typed without a suggestion', async (t) => {
  const [world, page] = await World.loggedIn(t);
  const menu = { default: 'Yes' };
  const rows = [{ question_id: 'a', text: 'A?', default: 'x' }];
  const queued = await world.askAndAnswer(page, menu);
  await world.armed(queued);
  const first = await page.claimOne();
  const { id: typing, job: second } = await world.answered(page, menu);
  const asked = { options: [], menu: false, kind: 'batch', rows };
  const { id: batch, job: third } = await world.answered(page, asked, { a: 'y' });
  for (const job of [second, third]) assert.deepEqual(await page.report(job.id, 'start'), { proceed: true });
  const poll = page.claimOne(8000);
  const last = await world.askAndAnswer(page, menu);
  const fourth = await poll;
  await page.stays(11);
  assert.equal((await world.card(queued)).state, 'armed');
  await world.advance(8);
  assert.equal((await world.card(typing)).state, 'armed');
  await world.advance(4);
  for (const id of [queued, last]) {
    const card = await world.reopened(id);
    assert.equal(card.refs.last_refusal, 'the app in which it was pressed is gone');
    has(card, { default: 'Yes', maybe_typed: undefined });
  }
  for (const id of [typing, batch]) {
    const card = await world.reopened(id);
    assert.match(card.refs.last_refusal, /never reported\. Some keys may have been typed/);
    has(card, { default: undefined, maybe_typed: true });
    assert.equal(card.rows?.[0].default, undefined);
  }
  // The shell was only slow: what it had not begun it may not begin now, and what it typed counts.
  for (const job of [first, fourth]) has(await page.report(job.id, 'start'), { proceed: false });
  const { version } = await world.card(batch);
  const accept = { card_id: batch, version, answer: {}, accept_all_defaults: true };
  refused(await page.post('/v1/cards/answer', accept), 'validation_failed', /has no answer/);
  assert.deepEqual(await page.report(second.id, 'done'), { accepted: true });
  await world.closed(typing);
  assert.deepEqual(await page.report(third.id, 'refused', { reason: 'the agent moved' }), { accepted: true });
  const again = await world.card(batch);
  assert.deepEqual([again.rows[0].default, again.refs.last_refusal], ['x', 'the agent moved']);
  assert.equal(again.maybe_typed, undefined);
});

test('a claim that waits is a sign of life for as long as it waits, and leaves with whoever made it', async (t) => {
  const [world, page] = await World.loggedIn(t);
  const { id, job } = await world.answered(page);
  await page.report(job.id, 'start');
  const poll = page.claimOne(8000);
  for (let i = 0; i < 5; i++) await page.ok('/v1/cards/list'); // by then the claim waits
  await world.advance(30);
  assert.equal((await world.card(id)).state, 'armed');
  await world.askAndAnswer(page);
  await poll;
  await world.advance(13);
  await world.reopened(id);
});

test('a card whose answer may have been typed closes once its agent is seen to go on, or says what it got', async (t) => {
  const [world, page] = await World.loggedIn(t);
  const identity = { agent: 'claude', session_id: 's' };
  const withdraw = (id, answered) => world.ok('/v1/ask/withdraw', { card_id: id, answered });
  const goesOn = [
    ['asks again', ({ live }) => world.ask({ live, session_id: 's' }), 'went_on'],
    ['works', () => world.ok('/v1/sessions/touch', { ...identity, status: 'busy' }), 'went_on'],
    ['ends', (agent) => agent.end(), 'went_on'],
    ['takes it back', (_, id) => withdraw(id), 'withdrawn'],
    ['says what it got', (_, id) => withdraw(id, 'Yes'), 'answered'],
    ['says another answer', (_, id) => withdraw(id, 'No'), 'withdrawn'],
  ];
  for (const [name, act, outcome] of goesOn) {
    const agent = await world.panes.start();
    const { id, job } = await world.answered(page, { live: agent.live, session_id: 's' });
    await page.report(job.id, 'start');
    await page.report(job.id, 'failed', { reason: 'the app was closed' });
    assert.equal((await world.card(id)).maybe_typed, true, name);
    await world.ok('/v1/sessions/touch', { ...identity, status: 'waiting' });
    assert.equal((await world.card(id)).state, 'open', name);
    await act(agent, id);
    await world.passes(3, async () => (await world.detail(id)).state === 'closed', name);
    const closed = await world.detail(id);
    has(closed, { outcome, answer: outcome === 'answered' ? 'Yes' : undefined }, name);
  }
});

test('a withdrawn question stops its job before the first key, and waits for the end of one that types', async (t) => {
  const [world, page] = await World.loggedIn(t);
  const { id: stopped, job: early } = await world.answered(page);
  has(await world.ok('/v1/ask/withdraw', { card_id: stopped }), { outcome: 'withdrawn' });
  has(await page.report(early.id, 'start'), { reason: 'the question was withdrawn' });
  has(await page.report(early.id, 'refused', { reason: 'x' }), { reason: 'the job is over' });

  // The agent takes its question back at the moment in which it is answered. Only its own word tells by whom.
  for (const [answered, outcome, action, end] of [
    [undefined, 'done', 'answer.overtaken', 'withdrawn'],
    ['No', 'done', 'answer.overtaken', 'withdrawn'],
    ['Yes', 'done', 'answer.typed', 'answered'],
    ['Yes', 'failed', 'answer.typed', 'answered'],
    [undefined, 'failed', 'answer.failed', 'withdrawn'],
  ]) {
    const { id, job } = await world.answered(page);
    await page.report(job.id, 'start');
    const order = [];
    const withdrawal = world.ok('/v1/ask/withdraw', { card_id: id, answered }).then((reply) => {
      order.push('back');
      return reply;
    });
    await page.claimOne(200);
    // That it has stopped, which it says next, takes nothing away from its word.
    const stopped = answered === 'Yes' ? world.ok('/v1/ask/withdraw', { card_id: id }) : undefined;
    if (stopped) await page.claimOne(200);
    order.push('reports');
    await page.report(job.id, outcome, outcome === 'done' ? {} : { reason: 'the keys were not taken' });
    await stopped;
    assert.deepEqual([(await withdrawal).outcome, order], [end, ['reports', 'back']]);
    assert.equal((await world.detail(id)).answer, end === 'answered' ? 'Yes' : undefined);
    assert.equal((await world.actions())[0], action);
  }
});

test('a hold and a job last as long as they should when the time of day is set, forward or back', async (t) => {
  const hour = 3_600_000;
  for (const jump of [-hour, hour]) {
    const [world, page] = await World.loggedIn(t, { KELVADROME_TEST_HOLD_MS: '30000' });
    const id = await world.askAndAnswer(page);
    const left = async () => Date.parse((await world.card(id)).held_until) - Date.now() - jump;
    await world.ok('/v1/test/advance', { set_ms: jump });
    await until(async () => Math.abs(await left()) < 31_000, 'what is shown of the hold follows');
    assert.equal((await world.card(id)).state, 'held');
    await page.stays(30);
    const job = await page.claimOne();
    await world.ok('/v1/test/advance', { set_ms: -jump });
    assert.deepEqual(await page.report(job.id, 'start'), { proceed: true });
    assert.ok(Math.abs(Date.parse(job.expires_at) - Date.now() - jump - 90_000) < 30_000, job.expires_at);
  }
});

test('an answer for a waiting asker is handed over once it waits, and comes back when it has gone', async (t) => {
  const [world, page] = await World.loggedIn(t);
  const id = await world.ask({ wait: true });
  const waiting = world.ok('/v1/ask/wait', { card_id: id, wait_ms: 8000 });
  await page.ok('/v1/cards/answer', { card_id: id, version: 1, answer: 'No' });
  const end = { state: 'closed', outcome: 'answered', answer: 'No' };
  assert.deepEqual(await waiting, end);
  assert.equal(await page.claimOne(0), undefined);
  assert.deepEqual(await world.ok('/v1/ask/wait', { card_id: id, wait_ms: 0 }), end);

  const left = await world.askAndAnswer(page, { wait: true });
  await world.armed(left);
  await world.advance(60);
  assert.equal((await world.reopened(left)).refs.last_refusal, 'the asker no longer waits');
});
