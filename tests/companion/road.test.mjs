// The road of one answer, and every way in which it can end.
import { test } from 'node:test';
import assert from 'node:assert/strict';
import { World, until } from './world.mjs';

test('an answer goes from ask to typed: held, armed, claimed, started, done', async (t) => {
  const [world, page] = await World.loggedIn(t, { KELVADROME_TEST_HOLD_MS: '' });
  const { live } = await world.panes.start();
  const id = await world.ask({ topic: 'Billing', default: 'Yes', live });
  const open = await world.card(id);
  assert.deepEqual([open.version, open.default], [1, 'Yes']);
  const held = await page.ok('/v1/cards/answer', { card_id: id, version: 1, answer: 'No' });
  assert.deepEqual([held.status, held.card.version], ['held', 2]);
  assert.match(held.receipt.line, /"No" for Claude Code: "Deploy\?"/);
  const claim = page.claimOne();
  await world.advance(2);
  const job = await claim;
  const { id: job_id, presence, expires_at, ...rest } = job;
  assert.deepEqual(rest, {
    type: 'answer',
    card_id: id,
    agent: 'claude',
    session_id: `claude-${live.pid}`,
    pid: live.pid,
    pgid: live.pid,
    tty: live.tty,
    host: 'tmux',
    host_ref: live.host_ref,
    steps: [{ kind: 'key', key: '2' }],
  });
  assert.match(presence, /^[0-9a-f]{32}$/);
  assert.ok(Date.parse(expires_at) > Date.now());
  assert.equal((await world.card(id)).state, 'armed');
  assert.deepEqual(await page.report(job.id, 'start'), { proceed: true });
  assert.deepEqual(await page.report(job.id, 'start'), {
    proceed: false,
    reason: 'the job was started before',
  });
  await page.report(job_id, 'done', { path: 'host' });
  assert.equal(
    (await world.ok('/v1/onboarding/status')).completed,
    true,
    'setup is over once an answer has arrived',
  );
  assert.equal(await world.card(id), undefined);
  assert.deepEqual(
    (await world.receipts()).map((receipt) => receipt.action),
    ['answer.typed', 'answer.held'],
  );
  assert.equal((await world.ok('/v1/inbox')).counts.verified_today, 1);
  assert.deepEqual((await world.ok('/v1/board')).topics, [
    { id: 'Billing', title: 'Billing', open_cards: 0 },
  ]);
});

test('an answer that is taken back, is stale, or does not fit changes nothing', async (t) => {
  const [world, page] = await World.loggedIn(t, { KELVADROME_TEST_HOLD_MS: '60000' });
  const id = await world.ask();
  const press = (body) => page.post('/v1/cards/answer', { card_id: id, version: 1, answer: 'Yes', ...body });
  const refusals = [
    [{ version: 2 }, 409, 'stale'],
    [{ version: undefined }, 400, 'validation_failed'],
    [{ version: '1' }, 400, 'validation_failed'],
    [{ card_id: 'card-none' }, 404, 'unknown_card'],
    [{ answer: 'Maybe' }, 400, 'validation_failed'],
    [{ answer: 3 }, 400, 'validation_failed'],
    [{ answer: { a: 'b' } }, 400, 'validation_failed'],
  ];
  for (const [body, status, code] of refusals) {
    const reply = await press(body);
    assert.deepEqual([reply.status, reply.error?.code], [status, code], JSON.stringify(body));
  }
  assert.equal((await world.card(id)).version, 1);

  assert.equal((await press({})).ok, true);
  assert.match((await press({})).error.message, /on its way/);
  const undone = await page.ok('/v1/page/cancel', { card_id: id });
  assert.deepEqual(
    [undone.status, undone.card.state, undone.card.version, undone.card.held_until],
    ['undone', 'open', 3, undefined],
  );
  assert.equal((await page.post('/v1/page/cancel', { card_id: id })).error.code, 'conflict');
});

test('the hold lasts 2 s, and 5 s for a high risk; afterwards undo comes too late', async (t) => {
  const [world, page] = await World.loggedIn(t, { KELVADROME_TEST_HOLD_MS: '' });
  for (const [risk, seconds] of [
    ['low', 2],
    ['high', 5],
  ]) {
    const id = await world.ask({ risk });
    const before = Date.now();
    const press = { card_id: id, version: 1, answer: 'Yes' };
    const { card } = await (risk === 'high' ? page.confirm(press) : page.ok('/v1/cards/answer', press));
    const until = Date.parse(card.held_until);
    assert.ok(until >= before + seconds * 1000 && until <= Date.now() + seconds * 1000, risk);
  }
  const [low, high] = await world.cards();
  await world.advance(2);
  await until(async () => (await world.card(low.id)).state === 'armed', 'the hold of 2 s ends');
  assert.equal((await page.post('/v1/page/cancel', { card_id: high.id })).ok, true);
  assert.match((await page.post('/v1/page/cancel', { card_id: low.id })).error.message, /Too late/);
});

test('the answer is typed as the kind of question wants it', async (t) => {
  const [world, page] = await World.loggedIn(t);
  const rows = [
    { question_id: 'lang', text: 'Language?', default: 'Rust' },
    { question_id: 'tests', text: 'Tests?', default: 'yes' },
  ];
  const cases = [
    [{ options: ['Ja', 'Nein'], menu: false }, 'Ja', [{ kind: 'text', text: 'Ja' }]],
    [{ options: [], menu: false }, 'u\u0308ber 42', [{ kind: 'text', text: 'über 42' }]],
    [
      { options: [], menu: false, kind: 'batch', rows },
      { lang: 'Go', tests: 'no' },
      [{ kind: 'text', text: 'lang: Go; tests: no' }],
    ],
    [{ options: [], menu: false, kind: 'batch', rows }, 'just start', [{ kind: 'text', text: 'just start' }]],
  ];
  for (const [ask, answer, steps] of cases) {
    const { job } = await world.answered(page, ask, answer);
    assert.deepEqual(job.steps, steps);
    assert.equal('screen' in job, false);
  }
  for (const [answer, want, keys] of [
    ['Yes, I trust this folder', 'trust', ['down', 'enter']],
    ['No, exit', 'exit', ['enter']],
  ]) {
    const { job } = await world.answered(
      page,
      { options: undefined, menu: undefined, screen: { profile: 'claude_trust', folder: '/a b' } },
      answer,
    );
    assert.deepEqual(job.screen, { profile: 'claude_trust', folder: '/a b', want });
    assert.deepEqual(
      job.steps,
      keys.map((key) => ({ kind: 'nav', key })),
    );
  }
  const batch = await world.ask({ options: [], menu: false, kind: 'batch', rows });
  const partial = { card_id: batch, version: 1, answer: { lang: 'Go' } };
  assert.match((await page.post('/v1/cards/answer', partial)).error.message, /"Tests\?" has no answer/);
  assert.deepEqual(
    (await page.ok('/v1/cards/answer', { ...partial, accept_all_defaults: true })).card.answer,
    { lang: 'Go', tests: 'yes' },
  );
});

test('an answer that the shell would not type is refused with the reason, and the card stays open', async (t) => {
  const [world, page] = await World.loggedIn(t);
  const id = await world.ask({ options: [], menu: false });
  const table = [
    ['', 'empty'],
    [' a', 'blank'],
    ['a  b', '2 blanks'],
    ['a\nb', 'more than 1 line'],
    ['!\u0301ls', 'command'],
    ['a\x1b[31mb', 'control'],
    ['x'.repeat(4001), '4000'],
  ];
  for (const [answer, word] of table) {
    const { error } = await page.press(id, answer);
    assert.equal(error?.code, 'validation_failed', word);
    assert.ok(error.message.includes(word), `${word}: ${error.message}`);
  }
  const half = await page.raw(
    'POST',
    '/v1/cards/answer',
    `{"card_id":"${id}","version":1,"answer":"a\\ud800"}`,
  );
  assert.match(half.json.error.message, /half a character/);
  assert.equal((await page.press(id, '字'.repeat(4000))).data.status, 'held');
});

test('a job goes to the page session that pressed, and to one claimant only', async (t) => {
  const world = await World.open(t);
  const [shell, other] = [await world.login(), await world.login()];
  const waiting = [other.claimOne(600), shell.claimOne(), shell.claimOne(600)];
  const id = await world.askAndAnswer(shell);
  const [foreign, first, second] = await Promise.all(waiting);
  assert.equal(foreign, undefined);
  assert.deepEqual([first?.card_id, second].sort(), [id, undefined].sort());

  assert.deepEqual(await other.report(first.id, 'start'), {
    proceed: false,
    reason: 'the job was claimed by another page session',
  });
  assert.equal(
    (await other.post('/v1/deliver/report', { job_id: first.id, outcome: 'done' })).error.code,
    'forbidden',
  );
  assert.equal(
    (await shell.post('/v1/deliver/report', { job_id: first.id, outcome: 'done' })).error.code,
    'conflict',
  );
  assert.deepEqual(await shell.report(first.id, 'start'), { proceed: true });
  assert.equal(
    (await shell.post('/v1/deliver/report', { job_id: 'job-none', outcome: 'done' })).error.code,
    'unknown_job',
  );

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
  const refused = await answerAndClaim(1);
  await page.report(refused.id, 'refused', { reason: 'the agent process ended', path: 'host' });
  const card = await world.reopened(id);
  assert.deepEqual(
    [card.version, card.body, card.refs],
    [4, 'the body', { pr: '12', last_refusal: 'the agent process ended' }],
  );
  assert.match((await world.receipts())[0].line, /the agent process ended\. Nothing was typed/);
  assert.deepEqual(await page.report(refused.id, 'start'), { proceed: false, reason: 'the job is over' });

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
  await until(async () => (await world.card(unclaimed)).state === 'armed', 'the answer is armed');
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
  await until(async () => (await world.card(queued)).state === 'armed', 'the answer is armed');
  const first = await page.claimOne();
  const { id: typing, job: second } = await world.answered(page, menu);
  const { id: batch, job: third } = await world.answered(
    page,
    { options: [], menu: false, kind: 'batch', rows },
    { a: 'y' },
  );
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
    assert.deepEqual(
      [card.refs.last_refusal, card.default, card.maybe_typed],
      ['the app in which it was pressed is gone', 'Yes', undefined],
    );
  }
  for (const id of [typing, batch]) {
    const card = await world.reopened(id);
    assert.match(card.refs.last_refusal, /never reported\. Some keys may have been typed/);
    assert.deepEqual([card.default, card.rows?.[0].default, card.maybe_typed], [undefined, undefined, true]);
  }
  // The shell was only slow: what it had not begun it may not begin now, and what it typed counts.
  for (const job of [first, fourth]) assert.equal((await page.report(job.id, 'start')).proceed, false);
  const unsure = await world.card(batch);
  const accept = await page.post('/v1/cards/answer', {
    card_id: batch,
    version: unsure.version,
    answer: {},
    accept_all_defaults: true,
  });
  assert.match(accept.error.message, /has no answer/);
  assert.deepEqual(await page.report(second.id, 'done'), { accepted: true });
  await world.closed(typing);
  assert.deepEqual(await page.report(third.id, 'refused', { reason: 'the agent moved' }), { accepted: true });
  const again = await world.card(batch);
  assert.deepEqual(
    [again.rows[0].default, again.maybe_typed, again.refs.last_refusal],
    ['x', undefined, 'the agent moved'],
  );
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
    await until(async () => {
      await world.advance(3);
      return (await world.detail(id)).state === 'closed';
    }, `the card of an agent that ${name} is closed`);
    const closed = await world.detail(id);
    assert.deepEqual(
      [closed.outcome, closed.answer],
      [outcome, outcome === 'answered' ? 'Yes' : undefined],
      name,
    );
  }
});

test('a withdrawn question stops its job before the first key, and waits for the end of one that types', async (t) => {
  const [world, page] = await World.loggedIn(t);
  const { id: stopped, job: early } = await world.answered(page);
  assert.equal((await world.ok('/v1/ask/withdraw', { card_id: stopped })).outcome, 'withdrawn');
  assert.equal((await page.report(early.id, 'start')).reason, 'the question was withdrawn');
  assert.equal((await page.report(early.id, 'refused', { reason: 'x' })).reason, 'the job is over');

  // The agent takes its question back at the moment in which it is answered. Only its own word tells by whom.
  const ends = [
    [undefined, 'done', 'answer.overtaken', 'withdrawn'],
    ['No', 'done', 'answer.overtaken', 'withdrawn'],
    ['Yes', 'done', 'answer.typed', 'answered'],
    ['Yes', 'failed', 'answer.typed', 'answered'],
    [undefined, 'failed', 'answer.failed', 'withdrawn'],
  ];
  for (const [answered, outcome, action, end] of ends) {
    const { id, job } = await world.answered(page);
    await page.report(job.id, 'start');
    const order = [];
    const withdrawal = world.ok('/v1/ask/withdraw', { card_id: id, answered }).then((reply) => {
      order.push('back');
      return reply;
    });
    await until(
      async () => (await page.report(job.id, 'start')).reason === 'the job was started before',
      'the job is under way',
    );
    await page.claimOne(200);
    order.push('reports');
    await page.report(job.id, outcome, {
      reason: outcome === 'done' ? undefined : 'the terminal did not take the keys',
    });
    assert.deepEqual([(await withdrawal).outcome, order], [end, ['reports', 'back']]);
    assert.equal((await world.detail(id)).answer, end === 'answered' ? 'Yes' : undefined);
    assert.equal((await world.receipts())[0].action, action);
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
  assert.deepEqual(await waiting, { state: 'closed', outcome: 'answered', answer: 'No' });
  assert.equal(await page.claimOne(0), undefined);
  assert.deepEqual(await world.ok('/v1/ask/wait', { card_id: id, wait_ms: 0 }), {
    state: 'closed',
    outcome: 'answered',
    answer: 'No',
  });

  const left = await world.askAndAnswer(page, { wait: true });
  await until(async () => (await world.card(left)).state === 'armed', 'the answer is ready');
  await world.advance(60);
  assert.equal((await world.reopened(left)).refs.last_refusal, 'the asker no longer waits');
});
