// The relay over TLS: the page, the phone and the connector check whom they speak to, and what is wrong is said in words.
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import { mkdtempSync, readFileSync, rmSync } from 'node:fs';
import { get } from 'node:https';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { text } from 'node:stream/consumers';
import { test, after } from 'node:test';
import { until } from './world.mjs';
import { RelayWorld, mqtt } from './relay-world.mjs';
import { openFront } from '../../companion/src/kd/relay-front.mjs';

const folder = mkdtempSync(join(tmpdir(), 'kd-tls-'));
after(() => {
  rmSync(folder, { recursive: true });
  setTimeout(() => process.exit(), 500).unref();
});

/** A certificate and its key, by their paths; `by` has signed it, or it has itself. */
function certificate(name, { by, names = [] } = {}) {
  const [cert, key] = ['pem', 'key'].map((ending) => join(folder, `${name}.${ending}`));
  const words = [
    'req',
    '-x509',
    '-newkey',
    'ec',
    '-pkeyopt',
    'ec_paramgen_curve:P-256',
    '-nodes',
    '-days',
    '2',
  ];
  if (by) words.push('-CA', by.cert, '-CAkey', by.key, '-addext', `subjectAltName=${names.join(',')}`);
  execFileSync('openssl', [...words, '-subj', `/CN=${name}`, '-out', cert, '-keyout', key], {
    stdio: 'pipe',
  });
  return { cert, key };
}

const authority = certificate('authority');
const stranger = certificate('stranger');

function fetchPage(url, ca) {
  return new Promise((done, failed) => {
    get(url, { ca, agent: false }, async (res) => done({ res, page: await text(res) })).on('error', failed);
  });
}

/** A phone is paired over TLS, shows a card and answers it. */
async function goesThrough(relay) {
  const phone = await relay.paired();
  assert.ok(phone.mine.urls.every((url) => url.startsWith('wss://')));
  const id = await relay.world.ask();
  await phone.answer(await relay.shown(phone, id), 'Yes');
  await until(async () => (await relay.world.card(id))?.state !== 'open', 'the answer is taken');
  return phone;
}

/** Each `fault` of relay.json reaches the status as its words, which go when it is mended; the phone then hears of a card. */
async function saysWhatIsWrong(relay, phone, faults) {
  const good = JSON.parse(readFileSync(join(relay.world.home, 'relay.json'), 'utf8'));
  // Switched on once more, the connector looks at its configuration at once.
  const change = async (config) => {
    relay.rewrite(config);
    await relay.world.ok('/v1/relay/enable', { enabled: true });
  };
  const told = async () => (await relay.status()).connector;
  for (const [fault, words] of faults) {
    await change(fault);
    const { connected, error } = await until(
      async () => {
        const connector = await told();
        return connector.error && connector;
      },
      `words on ${JSON.stringify(fault)}`,
    );
    assert.equal(connected, false);
    assert.match(error, words);
    assert.equal(error.includes(good.password) || error.includes(fault.password ?? good.password), false);
    await change(good);
    await relay.connected();
    assert.equal((await told()).error, undefined, 'the words are gone');
    await relay.shown(phone, await relay.world.askFromAfar());
  }
}

test('kd relay serve shows page and relay over TLS alone, and what is wrong is said until it is mended', {
  timeout: 120_000,
}, async (t) => {
  const tls = { ...certificate('here', { by: authority, names: ['DNS:localhost'] }), ca: authority.cert };
  const relay = await RelayWorld.open(t, { tls });
  const { app_url: address } = await relay.status();
  assert.equal(address, `https://localhost:${relay.port}/`);
  const { res, page } = await fetchPage(address, readFileSync(authority.cert));
  assert.equal(res.statusCode, 200);
  assert.match(page, new RegExp(`connect-src[^;"]* wss://localhost:${relay.port}`));
  await assert.rejects(fetchPage(address, readFileSync(stranger.cert)), /certificate/);

  const phone = await goesThrough(relay);
  const door = `wss://127.0.0.1:${relay.port}/mqtt`;
  await saysWhatIsWrong(relay, phone, [
    [{ ca: stranger.cert }, /^The relay at localhost:\d+ shows a certificate that is not trusted: .+\.$/],
    [
      { desk_urls: [door] },
      /^The relay at 127\.0\.0\.1:\d+ shows .+ not trusted: Hostname\/IP does not match/,
    ],
    [{ password: 'nobody-knows-this' }, /^The relay at localhost:\d+ does not know this computer\./],
  ]);
});

test('a relay that gets a bad certificate, and a good one again, is found again by itself', {
  timeout: 60_000,
}, async (t) => {
  const good = certificate('renewed', { by: authority, names: ['DNS:localhost'] });
  const bad = certificate('forged', { by: stranger, names: ['DNS:localhost'] });
  const read = ({ cert, key }) => ({ cert: readFileSync(cert), key: readFileSync(key) });
  const relay = await RelayWorld.open(t, { tls: { ...good, ca: authority.cert } });
  const phone = await relay.paired();
  // The connector's own door, whose certificate changes while it is there.
  const plan = {
    folder: join(relay.world.home, 'relay/www'),
    port: 0,
    address: '127.0.0.1',
    tls: read(good),
  };
  const door = await openFront({ ...plan, brokerPort: relay.port + 2 });
  const streams = new Set();
  door.on('secureConnection', (stream) => streams.add(stream));
  t.after(() => door.close());
  relay.rewrite({ desk_urls: [`wss://localhost:${door.address().port}/mqtt`] });
  await relay.world.ok('/v1/relay/enable', { enabled: true });
  await until(() => streams.size > 0, 'the connector comes through its door');
  await relay.connected();

  door.setSecureContext(read(bad));
  for (const stream of streams) stream.destroy();
  await until(
    async () => /certificate that is not trusted/.test((await relay.status()).connector.error),
    'the words',
  );
  const id = await relay.world.askFromAfar();
  door.setSecureContext(read(good));
  await relay.connected();
  assert.equal((await relay.status()).connector.error, undefined);
  await relay.shown(phone, id);
});

test('a cluster of NATS is reached over TLS alone, too', { timeout: 240_000 }, async (t) => {
  const tls = { ...certificate('nodes', { by: authority, names: ['IP:127.0.0.1'] }), ca: authority.cert };
  const relay = await RelayWorld.open(t, { broker: 'nats', tls });
  const config = JSON.parse(readFileSync(join(relay.world.home, 'relay.json'), 'utf8'));
  assert.ok(config.desk_urls.every((url) => url.startsWith('mqtts://')));
  const { username, password } = config;
  const plain = config.desk_urls[0].replace('mqtts', 'mqtt');
  await assert.rejects(
    mqtt.connectAsync(plain, { username, password, protocolVersion: 4, reconnectPeriod: 0 }, false),
  );

  const phone = await goesThrough(relay);
  const named = config.desk_urls.map((url) => url.replace('127.0.0.1', 'localhost'));
  await saysWhatIsWrong(relay, phone, [
    [{ ca: stranger.cert }, /^The relay at 127\.0\.0\.1:\d+ shows a certificate that is not trusted: .+\.$/],
    [{ desk_urls: named }, /^The relay at localhost:\d+ shows .+ not trusted: Hostname\/IP does not match/],
    [{ password: 'nobody-knows-this' }, /^The relay at 127\.0\.0\.1:\d+ does not know this computer\./],
  ]);
});
