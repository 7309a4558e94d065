// The doors themselves: who may knock, how many at once, and in which home the daemon lives at all.
import { test as always } from 'node:test';
import assert from 'node:assert/strict';
import { once } from 'node:events';
import { connect } from 'node:net';
import { spawn, spawnSync } from 'node:child_process';
import {
  chmodSync,
  chownSync,
  existsSync,
  mkdirSync,
  mkdtempSync,
  readFileSync,
  realpathSync,
  rmSync,
  symlinkSync,
  writeFileSync,
} from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { KD, PAGE_KEY, World, until } from './world.mjs';
import { Admission, peerOf } from '../../companion/src/peer.mjs';
import { PageKey } from '../../companion/src/page-key.mjs';

const NOBODY = 65534;
const linux =
  process.platform === 'linux' ? false : 'only Linux tells who is at the other end of a connection';
const asRoot =
  linux ||
  (process.getuid() === 0 && spawnSync('setpriv', ['--version']).status === 0
    ? false
    : 'another user is tried as root only, with setpriv');
if (asRoot) process.stderr.write(`Another user is NOT tried: ${asRoot}.\n`);
const test = (name, skip, run) => always(name, { skip }, run);

/** What the page port says to a request of the user `uid`: nothing at all when it hangs up. */
function asked(uid, port, request, address = '127.0.0.1') {
  const script = `exec 3<>/dev/tcp/${address}/${port}; printf '${request}' >&3; cat <&3`;
  return spawnSync('setpriv', [`--reuid=${uid}`, '--clear-groups', 'bash', '-c', script], {
    encoding: 'utf8',
    timeout: 10_000,
  }).stdout;
}

test('another user of the machine is not heard at the page port', asRoot, async (t) => {
  const world = await World.open(t);
  const link = new URL((await world.mint()).url);
  const request = `GET ${link.pathname}${link.search.replaceAll('%', '%%')}&surface=mac HTTP/1.1\\r\\nHost: 127.0.0.1:${world.port}\\r\\n\\r\\n`;
  for (const address of ['127.0.0.1', '::1'])
    assert.equal(asked(NOBODY, world.port, request, address), '', address);
  assert.match(asked(0, world.port, request), /^HTTP\/1\.1 303 /, 'the link was not used up');
});

test(
  'a peer is its established connection between exactly these ends, whichever table it stands in',
  linux,
  async () => {
    const socket = {
      remoteAddress: '127.0.0.1',
      remotePort: 0x9964,
      localAddress: '127.0.0.1',
      localPort: 0xa785,
    };
    const row = (from, to, state, uid) =>
      `   2: ${from} ${to} ${state} 00000000:00000000 00:00000000 00000000 ${String(uid).padStart(5)}        0 26944 2 0000 20 0 0 10 -1\n`;
    const [there, here, old, v6] = [
      '0100007F:9964',
      '0100007F:A785',
      '0100007F:9965',
      '0000000000000000FFFF0000',
    ];
    const look = (tcp, tcp6 = '', at = socket) => peerOf(at, (name) => (name === 'tcp' ? tcp : tcp6));
    const [mine, other] = [process.getuid(), 4242];
    assert.deepEqual(look(row(here, there, '01', mine) + row(there, here, '01', other)), {
      uid: other,
      inode: '26944',
    });
    assert.deepEqual(look(row(there, here, '06', 0) + row(old, here, '01', mine)), null);
    assert.equal(look('', row(`${v6}${there}`, `${v6}${here}`, '01', other)).uid, other);
    const loopback = '00000000000000000000000001000000';
    assert.equal(
      look('', row(`${loopback}:9964`, `${loopback}:A785`, '01', other), {
        ...socket,
        remoteAddress: '::1',
        localAddress: '::1',
      }).uid,
      other,
    );

    // One look serves all connections that came before it; one that is in no table is dropped after a few.
    const from = (port) => ({ ...socket, remotePort: port });
    const looks = [];
    const admission = new Admission(
      () => {},
      async (name) => {
        looks.push(name);
        return name === 'tcp' ? row(there, here, '01', mine) + row(old, here, '01', other) : '';
      },
    );
    assert.deepEqual(await Promise.all([0x9964, 0x9965].map((port) => admission.admits(from(port)))), [
      true,
      false,
    ]);
    assert.ok(looks.length <= 2, `${looks}`);
    assert.equal(await admission.admits(from(0x9966)), false);

    const lines = [];
    const blind = new Admission(
      (line) => lines.push(line),
      async () => {
        throw new Error('no such file');
      },
    );
    assert.deepEqual(
      [await blind.admits(socket), await blind.admits(socket), lines.length],
      [false, false, 1],
      'why is said once',
    );
  },
);

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

test(
  'a home that others own, may write in, or have put a link into is refused, and a link is followed once',
  false,
  async (t) => {
    const world = await World.open(t);
    const root = mkdtempSync(join(tmpdir(), 'kd-homes-'));
    t.after(() => rmSync(root, { recursive: true, force: true }));
    const make = (name, mode = 0o700) => {
      mkdirSync(join(root, name));
      chmodSync(join(root, name), mode);
      return join(root, name);
    };
    for (const mode of [0o777, 0o770, 0o702])
      assert.match(await refusal(world, make(`open-${mode}`, mode)), /others may write in it/);
    symlinkSync(join(root, 'open-511'), join(root, 'link-to-open'));
    assert.match(await refusal(world, join(root, 'link-to-open')), /others may write in it/);
    if (!asRoot) {
      chownSync(make('foreign'), NOBODY, NOBODY);
      assert.match(await refusal(world, join(root, 'foreign')), /it belongs to another user/);
    }

    const precious = join(root, 'precious');
    writeFileSync(precious, 'mine');
    for (const name of ['kelvadromed.db', 'kelvadromed.db-wal', 'page-key.sha256', 'page-key.sha256.new']) {
      const home = make(`planted-${name}`);
      symlinkSync(precious, join(home, name));
      assert.match(await refusal(world, home), new RegExp(`${name} in it is not a plain file`));
    }
    symlinkSync(precious, join(world.home, 'page-key.sha256.new'));
    await world.call('/v1/page/claim', { key: PAGE_KEY });
    assert.equal(
      readFileSync(precious, 'utf8'),
      'mine',
      'a link that is planted later is not written through',
    );

    symlinkSync(make('real'), join(root, 'link'));
    const child = world.spawn(['--home', `${join(root, 'link')}/`]);
    t.after(() => child.kill('SIGKILL'));
    await until(
      () => child.output.includes(`serves ${realpathSync(join(root, 'real'))},`),
      'it serves the real home',
    );
  },
);

/** Presses "Yes" on a card as a program would that has got hold of the shell's session, and tells what came of it. */
const PRESS = `const [port, cookie, csrf, card, out] = process.argv.slice(2);
const headers = { Cookie: 'kd_session=' + cookie, 'x-kd-csrf': csrf, 'Content-Type': 'application/json' };
fetch('http://127.0.0.1:' + port + '/v1/cards/answer', { method: 'POST', headers, body: JSON.stringify({ card_id: card, version: 1, answer: 'Yes' }) })
  .then((reply) => reply.json()).then((reply) => require('fs').writeFileSync(out, reply.error?.code ?? 'taken'));`;

test(
  'an agent, whatever it starts, does not answer while it has a question open; others do',
  linux,
  async (t) => {
    const [world, page] = await World.loggedIn(t);
    const agent = spawn('sh', [], { stdio: ['pipe', 'ignore', 'inherit'], detached: true });
    t.after(() => agent.kill('SIGKILL'));
    const script = join(world.home, 'press.cjs');
    writeFileSync(script, PRESS);
    const own = await world.askFromAfar({ live: { pid: agent.pid } });
    const other = await world.askFromAfar({ agent: 'codex' });
    // As a child that leads a session of its own, and as an orphan that its parent has left behind.
    for (const [program, how, card] of [
      ['setsid', '', own],
      ['', '& exit', other],
    ]) {
      const out = join(world.home, `pressed-${card}`);
      agent.stdin.write(
        `(${program} ${process.execPath} ${script} ${world.port} ${page.cookie} ${page.csrf} ${card} ${out} ${how})\n`,
      );
      assert.equal(
        await until(() => existsSync(out) && readFileSync(out, 'utf8'), 'the agent has tried'),
        'not_the_user',
      );
      const seen = await world.card(card);
      assert.deepEqual([seen.state, seen.version], ['open', 2]);
      assert.match(seen.refs.last_attempt, /Claude Code tried to answer this, and was refused/);
      assert.equal((await world.receipts())[0].action, 'answer.not_the_user');
    }
    await page.ok('/v1/cards/answer', { card_id: own, version: 2, answer: 'Yes' });

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
  },
);

test(
  'the page key of another is forgotten at a terminal, after a look at who holds the page',
  false,
  async (t) => {
    const [world] = await World.loggedIn(t);
    assert.match((await world.kd(['page-key', '--reset'])).stderr, /needs a terminal/);
    const { stdout } = await world.kd(['page-key']);
    assert.match(
      stdout,
      new RegExp(`is registered[\\s\\S]*${linux ? '' : `\\(pid ${process.pid}\\), since`}`),
    );
    assert.ok(!stdout.includes('reset'));
    const pane = await world.panes.start(
      ['env', `KELVADROME_HOME=${world.home}`, process.execPath, KD, 'page-key', '--reset'],
      'MainThread',
    );
    await until(
      () => world.panes.tmux('capture-pane', '-p', '-t', pane.live.host_ref).includes('Type "reset"'),
      'it asks',
    );
    world.panes.tmux('send-keys', '-t', pane.live.host_ref, 'reset', 'Enter');
    await until(async () => (await world.ok('/v1/page/key')).state === 'none', 'the key is forgotten');
    writeFileSync(join(world.home, 'page-key.sha256'), 'no hash');
    assert.match(
      (await world.call('/v1/page/claim', { key: PAGE_KEY })).error.message,
      /kd page-key --reset/,
    );
    assert.match((await world.kd(['page-key'])).stdout, /damaged/);
  },
);

test(
  'of two keys that are registered at one moment, by processes of their own, exactly one is',
  false,
  async (t) => {
    const home = mkdtempSync(join(tmpdir(), 'kd-key-'));
    t.after(() => rmSync(home, { recursive: true, force: true }));
    const claim = `const { PageKey } = await import(${JSON.stringify(new URL('../../companion/src/page-key.mjs', import.meta.url))});
    process.stdin.once('data', () => { try { new PageKey(${JSON.stringify(home)}).claim(process.argv[1].repeat(43)); console.log('mine'); } catch (error) { console.log(error.code); } process.exit(); });
    console.log('ready');`;
    const claimants = [...'abcd'].map((letter) => {
      const child = spawn(process.execPath, ['--input-type=module', '-e', claim, letter], {
        stdio: ['pipe', 'pipe', 'inherit'],
      });
      child.output = '';
      child.stdout.on('data', (piece) => {
        child.output += piece;
      });
      return child;
    });
    await until(() => claimants.every((child) => child.output.includes('ready')), 'all are ready');
    for (const child of claimants) child.stdin.write('go');
    await Promise.all(claimants.map((child) => once(child, 'close')));
    const said = claimants.map((child) => child.output.trim().split('\n').at(-1));
    assert.deepEqual(said.toSorted(), ['conflict', 'conflict', 'conflict', 'mine']);
    const winner = new PageKey(home);
    assert.equal(winner.claim('abcd'[said.indexOf('mine')].repeat(43)), false, 'the same key again is fine');
  },
);
