// The road to a phone through a relay of this machine: relay.mjs [PAIRS,PAIRS...]
//
// Card opened -> shown on the phone and answer -> job claimed, with the real daemon, connector and mosquitto; the same bytes
// sent by a bare pair of MQTT clients and by our envelope and links; and many pairs on one broker and on three servers.
// A pair is a connector's links and a phone's, each with its keys, without a daemon behind it.
import { execFileSync, fork } from 'node:child_process';
import { once } from 'node:events';
import { readFileSync } from 'node:fs';
import { fileURLToPath } from 'node:url';
import { mqtt, RelayWorld } from '../../tests/companion/relay-world.mjs';
import { until } from '../../tests/companion/world.mjs';
import { topicDown, topicUp } from '../../companion/shared/relay.js';

const CARDS = 60;
const MESSAGES = 500;
const PAIRS = (process.argv[2] ?? '10,100,1000').split(',').map(Number);
const HOLD_MS = 100;
const SEALED = 740; // bytes of a card in relay-pairs.mjs, sealed

const print = (name, value) => console.log(JSON.stringify({ name, value }));
const at = (times, part) => times.toSorted((a, b) => a - b)[Math.floor(times.length * part)];

async function roads(relay) {
  const phone = await relay.paired();
  const shown = [];
  const claimed = [];
  for (let i = 0; i < CARDS; ++i) {
    const card = new Promise((done) => {
      phone.changed = () => {
        const [found] = [...phone.cards.values()].filter(({ state }) => state === 'open');
        if (found) done(found);
      };
    });
    const opened = performance.now();
    await relay.world.ask();
    const seen = await card;
    shown.push(performance.now() - opened);
    phone.changed = () => {};
    const claim = relay.page.claimOne(8000);
    const pressed = performance.now();
    await phone.answer(seen, 'Yes');
    const job = await claim;
    claimed.push(performance.now() - pressed - HOLD_MS);
    await relay.page.report(job.id, 'start');
    await relay.page.report(job.id, 'done', { path: 'host' });
    await until(() => phone.cards.size === 0, 'the card leaves the phone');
  }
  print('relay/shown-p95', at(shown, 0.95));
  print('relay/claimed-p95', at(claimed, 0.95));
}

/** One message at a time, there and back: `send(i)` and a promise of its arrival. */
async function eachTook(send) {
  const times = [];
  for (let i = 0; i < MESSAGES; ++i) {
    const start = performance.now();
    await send(i);
    times.push(performance.now() - start);
  }
  return at(times, 0.5);
}

async function bare(config, text) {
  const { channel, password } = config.places.at(-1);
  const open = async (url, username, secret) => {
    const client = mqtt.connect(url, { username, password: secret, protocolVersion: 4 });
    await once(client, 'connect');
    return client;
  };
  const desk = await open(config.desk_urls[0], config.username, config.password);
  const phone = await open(config.phone_urls[0], channel, password);
  await phone.subscribeAsync(topicDown(channel), { qos: 0 });
  await desk.subscribeAsync(topicUp(channel), { qos: 0 });
  desk.on('message', () => desk.publish(topicDown(channel), text, { qos: 0 }));
  const took = await eachTook(() => {
    const back = once(phone, 'message');
    phone.publish(topicUp(channel), text, { qos: 0 });
    return back;
  });
  await Promise.all([desk.endAsync(), phone.endAsync()]);
  return took;
}

/** The pairs run in a process of their own, whose memory tells what a pair takes. */
async function pairs(config, count, rows) {
  const child = fork(fileURLToPath(new URL('relay-pairs.mjs', import.meta.url)), [String(count)]);
  child.send(config);
  for (;;) {
    const [message] = await once(child, 'message');
    if (message.done) break;
    for (const [name, value] of Object.entries(message)) rows(name, value);
  }
  await once(child, 'exit');
}

const memoryOf = (pid) =>
  Number(/VmRSS:\s+(\d+)/.exec(readFileSync(`/proc/${pid}/status`, 'utf8'))[1]) / 1024;
const brokerOf = (child) =>
  execFileSync('pgrep', ['-P', String(child.pid)], { encoding: 'utf8' })
    .trim()
    .split('\n')[0];

async function measure(broker) {
  const cleanups = [];
  const t = { after: (work) => cleanups.unshift(work), passed: true, diagnostic: console.error };
  const places = Array.from({ length: Math.max(...PAIRS) + 2 }, (_, i) => ({
    channel: `place${String(i).padStart(8, '0')}`,
    password: 'placesofthebench',
  }));
  const relay = await RelayWorld.open(t, {
    broker,
    places,
    env: { KELVADROME_TEST_HOLD_MS: String(HOLD_MS) },
  });
  const config = JSON.parse(readFileSync(`${relay.world.home}/relay.json`, 'utf8'));
  if (broker === 'mosquitto') {
    await roads(relay);
    print('relay/bare', await bare(config, 'x'.repeat(SEALED)));
  }
  const servers =
    broker === 'mosquitto' ? [brokerOf(relay.broker)] : relay.nodes.map(({ child }) => child.pid);
  for (const count of PAIRS)
    await pairs(config, count, (name, value) => {
      print(`relay/${broker}/${count}/${name}`, value);
      if (name === 'memory')
        print(
          `relay/${broker}/${count}/broker-memory`,
          servers.reduce((sum, pid) => sum + memoryOf(pid), 0),
        );
    });
  for (const cleanup of cleanups) await cleanup();
}

await measure('mosquitto');
await measure('nats');
process.exit(0);
