// The envelope, the refusals, the event stream, and how the daemon comes up and goes down.
import { test } from 'node:test';
import assert from 'node:assert/strict';
import { connect } from 'node:net';
import { once } from 'node:events';
import { createServer } from 'node:http';
import { chmodSync, existsSync, mkdirSync, statSync, writeFileSync } from 'node:fs';
import { join } from 'node:path';
import { spawn } from 'node:child_process';
import { DatabaseSync } from 'node:sqlite';
import { World, has, until } from './world.mjs';

test('every refusal is an envelope that names what was wrong, and loses nothing', async (t) => {
  const world = await World.open(t);
  const id = await world.ask();
  const asks = [
    [{ scope: 'all' }, 'scope'],
    [{ agent: 'a b' }, 'agent'],
    [{ session_id: `-${'👧'.repeat(70)}` }, '👧…"'],
    [{ title: ' \u200b ' }, 'title'],
    [{ risk: 'huge' }, 'low, medium, high'],
    [{ options: ['a', 'a'] }, 'options'],
    [{ options: ['/a'] }, 'options[0]'],
    [{ menu: true }, 'options'],
    [{ menu: true, options: [...'abcdefghij'] }, '1 to 9'],
    [{ menu: true, options: ['a'], default: 'b' }, 'default'],
    [{ kind: 'batch' }, 'rows'],
    [{ live: { pid: -1 } }, 'pid'],
    [{ live: { host: 'tmux', host_ref: '%3;rm' } }, 'host_ref'],
    [{ screen: { profile: 'claude_trust', folder: '/a' } }, 'screen'],
  ].map(([more, word]) => [
    JSON.stringify({ agent: 'claude', title: 'T', ...more }),
    400,
    'validation_failed',
    word,
  ]);
  const table = [
    ['POST', '/v1/nope', '{}', 404, 'not_found', '/v1/nope'],
    ['GET', '/v1/cards/list', undefined, 405, 'method_not_allowed', 'GET'],
    ['POST', '/v1/voice/transcribe', '{"pcm16_b64":"AAA="}', 501, 'not_implemented', 'engine'],
    ['POST', '/v1/ask', '{"agent"', 400, 'validation_failed', 'JSON'],
    ['POST', '/v1/ask', `{"👧":${'👧'.repeat(20)}`, 400, 'validation_failed', 'JSON'],
    ['POST', '/v1/ask', '[]', 400, 'validation_failed', 'object'],
    ['POST', '/v1/ask', Buffer.from([0x7b, 0x22, 0xff, 0x22, 0x7d]), 400, 'validation_failed', 'UTF-8'],
    ['POST', '/v1/ask', 'x'.repeat(1_000_001), 413, 'too_large', '1000000'],
    ...asks.map((row) => ['POST', '/v1/ask', ...row]),
    ['POST', '/v1/ask/wait', '{"card_id":"x"}', 404, 'unknown_card', 'x'],
    ['POST', '/v1/topic/detail', '{"topic":"x"}', 404, 'unknown_topic', 'x'],
    ['POST', '/v1/receipts/list', '{"limit":0}', 400, 'validation_failed', 'limit'],
  ];
  for (const [method, path, body, status, code, word] of table) {
    const reply = await world.raw(method, path, body);
    assert.deepEqual(
      [reply.status, reply.json?.ok, reply.json?.error.code],
      [status, false, code],
      `${path} ${String(body).slice(0, 60)}: ${reply.text}`,
    );
    assert.ok(reply.json.error.message.includes(word), reply.json.error.message);
    assert.ok(reply.json.error.message.isWellFormed(), reply.text);
    assert.equal(reply.headers.connection, 'close');
  }
  assert.equal((await world.cards()).map((card) => card.id).join(), id);
  const socket = connect(world.socketPath, () => socket.write('no http at all\r\n\r\n'));
  const garbage = (await socket.toArray()).join('');
  assert.match(garbage, /^HTTP\/1\.1 400 .*"validation_failed"/s);
});

test('what is read tells what is true: sessions wait while they ask and end with their process, and text is clean', async (t) => {
  const world = await World.open(t);
  const child = spawn('true', { stdio: 'ignore' });
  await once(child, 'close');
  const touch = (agent, pid, more) =>
    world.ok('/v1/sessions/touch', { agent, status: 'busy', live: { pid, tty: 'pts/4' }, ...more });
  await touch('codex', process.pid, { doing: 'Testing', topic: 'Storage' });
  await touch('grok', child.pid);
  const words = { title: ' Deploy\nit\x1b[31m red ', body: 'a\r\n  b\x07\x1b]0;t\x07c \n' };
  const id = await world.ask({ topic: 'Storage', scope: 'family', kind: 'handoff_review', ...words });
  has(await world.card(id), { title: 'Deploy it red', body: 'a\n  bc' });
  const rows = (await world.ok('/v1/agents/status')).sessions;
  assert.deepEqual(
    rows.map((row) => [row.agent, row.status, row.doing, row.topic_title].join()),
    ['claude,waiting_me,waits for you,Storage', 'codex,busy,Testing,Storage', 'grok,ended,,'],
  );
  const none = { answered_by_rules_today: 0, verified_today: 0, snoozed: 0 };
  assert.deepEqual((await world.ok('/v1/inbox')).counts, { needs_you: 1, agents_working: 1, ...none });
  // The name of one that has ended is free again.
  const live = (await world.ok('/v1/sessions/live')).sessions.filter(({ status }) => status !== 'ended');
  assert.equal(new Set(live.map((row) => row.callsign)).size, live.length);
  for (const row of live) assert.match(row.callsign, /^[\p{L}][\p{L}0-9' -]{0,23}$/u);
  assert.equal((await world.ok('/v1/topic/detail', { topic: 'Storage' })).folder, '/home/user/project');
  assert.equal((await world.ok('/v1/handoffs/list')).cards[0].id, id);
  assert.equal((await world.ok('/v1/board')).topics[0].scope, 'family');
  const [hit] = (await world.ok('/v1/search', { q: 'DEPLOY' })).questions;
  has(hit, { kind: 'question', id, topic: 'Storage' });
  assert.deepEqual(await world.ok('/v1/search', { q: '%' }), { topics: [], decisions: [], questions: [] });
});

test('the event stream tells of each change, at both doors, and ends in order', async (t) => {
  const [world, page] = await World.loggedIn(t);
  const port = { host: '127.0.0.1', port: world.port };
  const headers = { Cookie: `kd_session=${page.cookie}` };
  const streams = [world.stream(), world.stream({ ...port, headers })];
  for (const stream of streams)
    await until(() => stream.text.startsWith('event: hello'), 'the head of the stream');
  const id = await world.ask();
  await page.ok('/v1/cards/answer', { card_id: id, version: 1, answer: 'Yes' });
  for (const stream of streams) {
    await until(() => stream.text.includes('"state":"held"'), 'the held event');
    const events = stream.text
      .split('\n\n')
      .filter((block) => block.includes('event: card.'))
      .map((block) => [/event: (.*)/.exec(block)[1], JSON.parse(/data: (.*)/.exec(block)[1])]);
    assert.deepEqual(events.slice(0, 2), [
      ['card.opened', { id, version: 1, state: 'open' }],
      ['card.changed', { id, version: 2, state: 'held' }],
    ]);
  }
  const refused = world.stream(port);
  await until(() => refused.status === 401, 'a stream without a session is refused');
  assert.deepEqual(await world.kill('SIGTERM'), { code: 0, signal: null });
  for (const stream of streams) await until(() => stream.closed, 'the stream ends');
  assert.equal(existsSync(world.socketPath), false);
});

test('the daemon leaves when its parent does, and only when it was told to watch for that', async (t) => {
  const world = await World.open(t);
  world.child.stdin.end();
  assert.equal((await world.call('/v1/health', undefined, 'GET')).ok, true);
  await world.restart({ KELVADROME_PARENT_STDIN: '1' });
  world.child.stdin.end();
  assert.deepEqual(await world.child.ended, { code: 0, signal: null });
  assert.equal(existsSync(world.socketPath), false);
});

test('a second daemon, a busy port, a bad home and bad words each end the start with a clear line', async (t) => {
  const world = await World.open(t);
  chmodSync(world.home, 0o755);
  await world.restart();
  assert.equal(statSync(world.home).mode & 0o777, 0o700);
  assert.equal(statSync(world.socketPath).mode & 0o777, 0o600);
  const blocker = createServer().listen(0, '127.0.0.1');
  await until(() => blocker.listening, 'the port is taken');
  const other = join(world.home, 'other');
  const file = join(world.home, 'file');
  writeFileSync(file, '');
  mkdirSync(join(world.home, 'newer'));
  const newer = new DatabaseSync(join(world.home, 'newer/kelvadromed.db'));
  newer.exec('PRAGMA user_version=99');
  newer.close();
  const table = [
    [[], 3, `runs already for this home (pid ${world.child.pid})`],
    [['--home', other, '--port', String(blocker.address().port)], 69, 'is in use'],
    [['--port', '7x'], 64, '--port'],
    [['--bogus'], 64, 'usage'],
    [['--home', file], 73, 'cannot be used'],
    [['--home', join(world.home, 'x'.repeat(100))], 73, 'at most 103'],
    [['--home', join(world.home, 'newer')], 1, 'newer kelvadromed'],
  ];
  for (const [args, code, word] of table) {
    const child = world.spawn(args);
    assert.deepEqual(await child.ended, { code, signal: null }, `${args}: ${child.output}`);
    assert.ok(child.output.startsWith('kelvadromed: ') && child.output.includes(word), child.output);
    assert.ok(!child.output.includes('    at '), child.output);
  }
  blocker.close();

  // A daemon that is stopped holds its socket still: another must neither take it over nor wait for ever.
  world.child.kill('SIGSTOP');
  const rival = world.spawn();
  assert.equal((await rival.ended).code, 3);
  assert.match(rival.output, /does not answer/);
  world.child.kill('SIGCONT');
  assert.equal((await world.call('/v1/health', undefined, 'GET')).ok, true);
});

test('two daemons that start at the same moment over a dead socket: one serves, one refuses', async (t) => {
  const world = await World.open(t);
  for (let round = 0; round < 3; round++) {
    await world.kill();
    assert.equal(existsSync(world.socketPath), true);
    const pair = [world.spawn(), world.spawn()];
    const loser = await Promise.race(pair.map(async (child) => ({ child, ...(await child.ended) })));
    assert.equal(loser.code, 3, loser.child.output);
    world.child = pair.find((child) => child !== loser.child);
    assert.equal((await world.health()).pid, world.child.pid);
  }
});
