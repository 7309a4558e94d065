// The doors themselves: who may knock, how many at once, and in which home the daemon lives at all.
import { test as always } from 'node:test';
import assert from 'node:assert/strict';
import { once } from 'node:events';
import { connect } from 'node:net';
import { spawn, spawnSync } from 'node:child_process';
import fs from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { KD, PAGE_KEY, World, collect, has, refused, until } from './world.mjs';
import { Admission, peerOf } from '../../companion/src/peer.mjs';
import { PageKey } from '../../companion/src/page-key.mjs';

const NOBODY = 65534;
const onLinux = process.platform === 'linux';
const linux = onLinux ? false : 'only Linux tells who is at the other end';
const isRoot = process.getuid() === 0 && spawnSync('setpriv', ['--version']).status === 0;
const asRoot = linux || (isRoot ? false : 'another user is tried as root only, with setpriv');
if (asRoot) process.stderr.write(`Another user is NOT tried: ${asRoot}.\n`);
const test = (name, skip, run) => always(name, { skip }, run);

/** What the page port says to a request of the user `uid`: nothing at all when it hangs up. */
function asked(uid, port, request, address = '127.0.0.1') {
  const script = `exec 3<>/dev/tcp/${address}/${port}; printf '${request}' >&3; cat <&3`;
  const words = [`--reuid=${uid}`, '--clear-groups', 'bash', '-c', script];
  return spawnSync('setpriv', words, { encoding: 'utf8', timeout: 10_000 }).stdout;
}

test('another user of the machine is not heard at the page port', asRoot, async (t) => {
  const world = await World.open(t);
  const link = new URL((await world.mint()).url);
  const request = `GET ${link.pathname}${link.search.replaceAll('%', '%%')}&surface=mac HTTP/1.1\\r\\nHost: 127.0.0.1:${world.port}\\r\\n\\r\\n`;
  for (const address of ['127.0.0.1', '::1'])
    assert.equal(asked(NOBODY, world.port, request, address), '', address);
  assert.match(asked(0, world.port, request), /^HTTP\/1\.1 303 /, 'the link was not used up');
});

test('a peer is its established connection between exactly these ends', linux, async () => {
  const ends = { remoteAddress: '127.0.0.1', localAddress: '127.0.0.1' };
  const from = (port, more) => ({ ...ends, remotePort: port, localPort: 0xa785, ...more });
  const row = (there, here, state, uid) =>
    `   2: ${there} ${here} ${state} 00000000:00000000 00:00000000 00000000 ${String(uid).padStart(5)}        0 26944 2 0000 20 0 0 10 -1\n`;
  const [there, here, old] = ['0100007F:9964', '0100007F:A785', '0100007F:9965'];
  const v6 = '0000000000000000FFFF0000';
  const loopback = '00000000000000000000000001000000';
  const both = { remoteAddress: '::1', localAddress: '::1' };
  const [mine, other] = [process.getuid(), 4242];
  for (const [tcp, tcp6, socket, uid] of [
    [row(here, there, '01', mine) + row(there, here, '01', other), '', {}, other],
    [row(there, here, '06', 0) + row(old, here, '01', mine), '', {}, undefined],
    ['', row(`${v6}${there}`, `${v6}${here}`, '01', other), {}, other],
    ['', row(`${loopback}:9964`, `${loopback}:A785`, '01', other), both, other],
  ]) {
    const peer = peerOf(from(0x9964, socket), (name) => (name === 'tcp' ? tcp : tcp6));
    assert.deepEqual(peer ?? {}, uid === undefined ? {} : { uid, inode: '26944' });
  }

  // One look serves all connections that came before it; one that is in no table is dropped after a few.
  const looks = [];
  const admission = new Admission(
    () => {},
    async (name) => {
      looks.push(name);
      return name === 'tcp' ? row(there, here, '01', mine) + row(old, here, '01', other) : '';
    },
  );
  const admitted = [0x9964, 0x9965].map((port) => admission.admits(from(port)));
  assert.deepEqual(await Promise.all(admitted), [true, false]);
  assert.ok(looks.length <= 2, `${looks}`);
  assert.equal(await admission.admits(from(0x9966)), false);

  const lines = [];
  const fails = async () => Promise.reject(new Error('no such file'));
  const blind = new Admission((line) => lines.push(line), fails);
  const answers = [await blind.admits(from(0x9964)), await blind.admits(from(0x9964))];
  assert.deepEqual([...answers, lines.length], [false, false, 1], 'why is said once');
});

test('connections that ask nothing make way, at both doors', false, async (t) => {
  const world = await World.open(t);
  for (const door of [{ path: world.socketPath }, { host: '127.0.0.1', port: world.port }]) {
    const [idle, closed] = [[], new Set()];
    for (let count = 0; count < 500; count++) {
      const socket = connect(door)
        .on('error', () => {})
        .on('close', () => closed.add(socket));
      await once(socket, 'connect');
      idle.push(socket);
    }
    await until(() => closed.has(idle[0]), 'the first of them is let go');
    assert.equal((await world.call('/v1/health', undefined, 'GET')).ok, true);
    assert.equal((await world.login()).csrf.length, 43);
    assert.equal(closed.has(idle.at(-1)), false);
    for (const socket of idle) socket.destroy();
  }
});

/** The daemon's words when it refuses to start in `home`. */
async function refusal(world, home) {
  const child = world.spawn(['--home', home]);
  assert.equal((await child.ended).code, 73, child.output);
  return child.output;
}

test('a home that others own, may write in or put a link into is refused', false, async (t) => {
  const world = await World.open(t);
  const root = fs.mkdtempSync(join(tmpdir(), 'kd-homes-'));
  t.after(() => fs.rmSync(root, { recursive: true, force: true }));
  const make = (name, mode = 0o700) => {
    fs.mkdirSync(join(root, name));
    fs.chmodSync(join(root, name), mode);
    return join(root, name);
  };
  for (const mode of [0o777, 0o770, 0o702])
    assert.match(await refusal(world, make(`open-${mode}`, mode)), /others may write in it/);
  fs.symlinkSync(join(root, 'open-511'), join(root, 'link-to-open'));
  assert.match(await refusal(world, join(root, 'link-to-open')), /others may write in it/);
  if (!asRoot) {
    fs.chownSync(make('foreign'), NOBODY, NOBODY);
    assert.match(await refusal(world, join(root, 'foreign')), /it belongs to another user/);
  }

  const precious = join(root, 'precious');
  fs.writeFileSync(precious, 'mine');
  for (const name of ['kelvadromed.db', 'kelvadromed.db-wal', 'page-key.sha256', 'page-key.sha256.new']) {
    const home = make(`planted-${name}`);
    fs.symlinkSync(precious, join(home, name));
    assert.match(await refusal(world, home), new RegExp(`${name} in it is not a plain file`));
  }
  fs.symlinkSync(precious, join(world.home, 'page-key.sha256.new'));
  await world.call('/v1/page/claim', { key: PAGE_KEY });
  assert.equal(
    fs.readFileSync(precious, 'utf8'),
    'mine',
    'a link that is planted later is not written through',
  );

  fs.symlinkSync(make('real'), join(root, 'link'));
  const child = world.spawn(['--home', `${join(root, 'link')}/`]);
  t.after(() => child.kill('SIGKILL'));
  await until(
    () => child.output.includes(`serves ${fs.realpathSync(join(root, 'real'))},`),
    'it serves the real home',
  );
});

/** Presses "Yes" on a card as a program would that has got hold of the shell's session, and tells what came of it. */
const PRESS = `const [port, cookie, csrf, card, out] = process.argv.slice(2);
const headers = { Cookie: 'kd_session=' + cookie, 'x-kd-csrf': csrf, 'Content-Type': 'application/json' };
fetch('http://127.0.0.1:' + port + '/v1/cards/answer', { method: 'POST', headers, body: JSON.stringify({ card_id: card, version: 1, answer: 'Yes' }) })
  .then((reply) => reply.json()).then((reply) => require('fs').writeFileSync(out, reply.error?.code ?? 'taken'));`;

test('an agent with an open question does not answer, whatever it starts', linux, async (t) => {
  const [world, page] = await World.loggedIn(t);
  const agent = spawn('sh', [], { stdio: ['pipe', 'ignore', 'inherit'], detached: true });
  t.after(() => agent.kill('SIGKILL'));
  const script = join(world.home, 'press.cjs');
  fs.writeFileSync(script, PRESS);
  const own = await world.askFromAfar({ live: { pid: agent.pid } });
  const other = await world.askFromAfar({ agent: 'codex' });
  // As a child that leads a session of its own, and as an orphan that its parent has left behind.
  for (const [program, how, card] of [
    ['setsid', '', own],
    ['', '& exit', other],
  ]) {
    const out = join(world.home, `pressed-${card}`);
    const words = [script, world.port, page.cookie, page.csrf, card, out];
    agent.stdin.write(`(${program} ${process.execPath} ${words.join(' ')} ${how})\n`);
    const tried = await until(
      () => fs.existsSync(out) && fs.readFileSync(out, 'utf8'),
      'the agent has tried',
    );
    assert.equal(tried, 'not_the_user');
    const seen = await world.card(card);
    has(seen, { state: 'open', version: 2 });
    assert.match(seen.refs.last_attempt, /Claude Code tried to answer this, and was refused/);
    assert.equal((await world.actions())[0], 'answer.not_the_user');
  }
  assert.equal((await page.press(own, 'Yes', 2)).ok, true);

  // Who leaves at once is not looked at, and so not heard.
  const body = JSON.stringify({ card_id: other, version: 2, answer: 'Yes' });
  const head = `POST /v1/cards/answer HTTP/1.1\r\nHost: 127.0.0.1:${world.port}\r\nCookie: kd_session=${page.cookie}\r\nx-kd-csrf: ${page.csrf}\r\nContent-Length: ${body.length}\r\n\r\n`;
  const socket = connect(world.port, '127.0.0.1');
  await once(socket, 'connect');
  socket.write(head);
  await page.ok('/v1/cards/list');
  world.child.kill('SIGSTOP');
  await new Promise((sent) => socket.end(body, sent));
  world.child.kill('SIGCONT');
  const [reply] = await once(socket, 'data');
  assert.match(String(reply), /"forbidden".*left before/);
  assert.equal((await world.card(other)).state, 'open');
});

test('a page key is forgotten at a terminal, after a look at its holders', false, async (t) => {
  const [world] = await World.loggedIn(t);
  assert.match((await world.kd(['page-key', '--reset'])).stderr, /needs a terminal/);
  const { stdout } = await world.kd(['page-key']);
  assert.match(stdout, new RegExp(`is registered[^]*${linux ? '' : `\\(pid ${process.pid}\\), since`}`));
  assert.ok(!stdout.includes('reset'));
  const reset = ['env', `KELVADROME_HOME=${world.home}`, process.execPath, KD, 'page-key', '--reset'];
  const pane = await world.panes.start(reset, 'MainThread');
  await pane.shows('Type "reset"');
  pane.type('reset', 'Enter');
  await until(async () => (await world.ok('/v1/page/key')).state === 'none', 'the key is forgotten');
  fs.writeFileSync(join(world.home, 'page-key.sha256'), 'no hash');
  refused(await world.call('/v1/page/claim', { key: PAGE_KEY }), 'conflict', /kd page-key --reset/);
  assert.match((await world.kd(['page-key'])).stdout, /damaged/);
});

test('of the keys registered at one moment exactly one is taken', false, async (t) => {
  const home = fs.mkdtempSync(join(tmpdir(), 'kd-key-'));
  t.after(() => fs.rmSync(home, { recursive: true, force: true }));
  const module = new URL('../../companion/src/page-key.mjs', import.meta.url);
  const claim = `const { PageKey } = await import(${JSON.stringify(module)});
    process.stdin.once('data', () => { try { new PageKey(${JSON.stringify(home)}).claim(process.argv[1].repeat(43)); console.log('mine'); } catch (error) { console.log(error.code); } process.exit(); });
    console.log('ready');`;
  const claimants = [...'abcd'].map((letter) => {
    const stdio = ['pipe', 'pipe', 'inherit'];
    return collect(spawn(process.execPath, ['--input-type=module', '-e', claim, letter], { stdio }));
  });
  await until(() => claimants.every((child) => child.output.includes('ready')), 'all are ready');
  for (const child of claimants) child.stdin.write('go');
  await Promise.all(claimants.map((child) => child.ended));
  const said = claimants.map((child) => child.output.trim().split('\n').at(-1));
  assert.deepEqual(said.toSorted(), ['conflict', 'conflict', 'conflict', 'mine']);
  const winner = new PageKey(home);
  assert.equal(winner.claim('abcd'[said.indexOf('mine')].repeat(43)), false, 'the same key again is fine');
});
