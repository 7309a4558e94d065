// Many pairs in one process, for relay.mjs: relay-pairs.mjs COUNT, with the relay's configuration as its message. A pair is
// a connector's link and a phone's, which send one another sealed envelopes of the size of a card.
import { once } from 'node:events';
import { createRequire } from 'node:module';
import { fileURLToPath } from 'node:url';
import { Links } from '../../companion/relay/src/links.mjs';
import * as wire from '../../companion/shared/relay.js';

const mqtt = createRequire(fileURLToPath(new URL('../../build/relay/x.js', import.meta.url)))('mqtt');
const count = Number(process.argv[2]);
const WINDOW_MS = 5000;
const AT_ONCE = 50; // pairs that have a message on its way at the same time
const CARD = { t: 'state', set: [{ id: 'card', title: 'x'.repeat(80), body: 'y'.repeat(250) }] };

const memory = () => {
  globalThis.gc?.();
  return process.memoryUsage().rss / 1024 / 1024;
};
const [config] = await once(process, 'message');

const connected = (make) =>
  new Promise((done) => {
    const links = make((is) => is && done(links));
  });
const connect = (url, options) => mqtt.connect(url, options);

/** A message there and back: the connector's end opens what the phone has sealed, and answers. */
async function pair({ channel, password }) {
  const [up, down] = await Promise.all([0, 1].map(() => wire.cipherKey(wire.random(32))));
  let n = 0;
  let arrived;
  const at = (stream) => ({ channel, stream, n });
  const desk = await connected(
    (onState) =>
      new Links({
        connect,
        width: 1,
        login: {
          urls: config.desk_urls,
          username: config.username,
          password: config.password,
          clientId: `bench-${channel}`,
        },
        onMessage: async (_, text) => {
          const body = await wire.open(up, channel, wire.readEnvelope(text));
          if (body)
            desk.publish(wire.topicDown(channel), await wire.seal(down, at('down'), CARD), { qos: 0 });
        },
        onState,
      }),
  );
  const phone = await connected(
    (onState) =>
      new Links({
        connect,
        width: 1,
        login: { urls: config.phone_urls, username: channel, password, clientId: `phone-${channel}` },
        onMessage: async (_, text) => {
          if (await wire.open(down, channel, wire.readEnvelope(text))) arrived?.();
        },
        onState,
      }),
  );
  await Promise.all([desk.subscribe([wire.topicUp(channel)]), phone.subscribe([wire.topicDown(channel)])]);
  return {
    exchange: async () => {
      n += 1;
      const back = new Promise((done) => {
        arrived = done;
      });
      phone.publish(wire.topicUp(channel), await wire.seal(up, at('ask'), CARD), { qos: 0 });
      await back;
    },
    close() {
      desk.close();
      phone.close();
    },
  };
}

const before = memory();
const all = [];
const places = config.places.slice(1, count + 1);
while (places.length > 0) all.push(...(await Promise.all(places.splice(0, 20).map(pair))));
process.send({ memory: (memory() - before) / count });
let messages = 0;
let next = 0;
const times = [];
const start = performance.now();
async function work() {
  while (performance.now() - start < WINDOW_MS) {
    const own = all[next++ % all.length];
    if (own.busy) {
      await new Promise(setImmediate);
      continue;
    }
    own.busy = true;
    const begin = performance.now();
    await own.exchange();
    times.push(performance.now() - begin);
    own.busy = false;
    messages += 2;
  }
}
await Promise.all(Array.from({ length: Math.min(AT_ONCE, count) }, work));
const seconds = (performance.now() - start) / 1000;
process.send({ 'per-second': messages / seconds, 'ms-per-message': (seconds * 1000) / messages });
const alone = [];
for (let i = 0; i < 300; ++i) {
  const begin = performance.now();
  await all[i % all.length].exchange();
  alone.push(performance.now() - begin);
}
process.send({ exchange: alone.sort((a, b) => a - b)[alone.length >> 1] });
for (const one of all) one.close();
process.send({ done: true });
process.disconnect();
