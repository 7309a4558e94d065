// The road between a card and a phone: pairing, answers, a relay that lies, and relays that die.
import assert from 'node:assert/strict';
import { readFileSync, readdirSync, rmSync, writeFileSync } from 'node:fs';
import { join } from 'node:path';
import { test, after } from 'node:test';
import { until } from './world.mjs';
import { RelayWorld, answers, mqtt } from './relay-world.mjs';
import { Store } from '../../companion/src/store.mjs';
import { topicDown, topicUp } from '../../companion/shared/relay.js';

after(() => setTimeout(() => process.exit(), 500).unref());
const stateOf = async (relay) => (await relay.status()).pairing?.state;

/** Another MQTT client with the broker's own powers, as a hostile relay has them: it speaks as the computer or as a phone. */
async function client(t, url, username, password) {
  const it = mqtt.connect(url, { username, password, protocolVersion: 4, reconnectPeriod: 0 });
  await new Promise((done, failed) => it.once('connect', done).once('error', failed));
  t.after(() => it.end(true));
  return it;
}

async function deliver(relay, job) {
  await relay.page.report(job.id, 'start');
  await relay.page.report(job.id, 'done', { path: 'host' });
}

for (const broker of ['mosquitto', 'nats'])
  test(`a phone is paired, answers, undoes and is unpaired (${broker})`, { timeout: 120_000 }, async (t) => {
    const relay = await RelayWorld.open(t, { broker, env: { KELVADROME_TEST_HOLD_MS: '4000' } });
    const phone = await relay.paired();
    const { devices, pairing } = await relay.status();
    assert.equal(pairing.state, 'confirmed');
    assert.deepEqual(
      [devices[0].name, devices[0].kind, devices[0].face_id],
      ['Anna’s phone', 'iphone', false],
    );

    const id = await relay.world.ask();
    await phone.answer(await relay.shown(phone, id), 'No');
    await phone.undo(await relay.shown(phone, id, (card) => card.state === 'held'));
    await phone.answer(await relay.shown(phone, id, (card) => card.state === 'open'), 'Yes');
    const job = await until(() => relay.page.claimOne(), 'the job');
    assert.deepEqual(job.steps, [{ kind: 'key', key: '1' }]);
    await deliver(relay, job);
    await relay.gone(phone, id);

    // What isn't for phones.
    const secret = await relay.world.askFromAfar({ topic: 'salaries', restricted: true });
    const risky = await relay.world.askFromAfar({ title: 'Pay?', risk: 'high' });
    const shown = await relay.shown(phone, risky);
    assert.equal(phone.cards.has(secret), false);
    assert.equal(await phone.answer(shown, 'Yes'), false, 'nobody confirmed it');
    phone.confirm = async () => ({ id: 'made up' });
    await phone.answer(shown, 'Yes');
    await until(() => phone.notices.some((notice) => notice.code === 'no_face_id'), 'high risk is refused');
    await phone.answer({ id: secret, version: 1, risk: 'low' }, 'Yes');
    await until(
      () => phone.notices.some((notice) => notice.code === 'unknown_card'),
      'a hidden card is refused',
    );
    assert.equal((await relay.world.card(risky)).state, 'open');

    // A card that is gone says so, and a request becomes a card.
    await relay.page.ok('/v1/page/dismiss', { card_id: risky, version: 1 });
    await relay.gone(phone, risky);
    await phone.answer({ ...shown, risk: 'low' }, 'Yes');
    await until(() => phone.notices.some((notice) => notice.code === 'stale'), 'the answer is refused');
    await phone.request('Look at the failing build');
    await until(
      async () => (await relay.world.cards()).some(({ title }) => /failing build/.test(title)),
      'the request',
    );

    // Unpaired while it is away: its keys are gone at once, and it hears so when it comes back.
    phone.stop();
    await relay.world.ok('/v1/relay/device/revoke', { device_id: devices[0].id });
    assert.equal(await stateOf(relay), undefined, 'no words of a pairing that is no longer so');
    const back = await phone.again();
    await until(
      () => back.phase === 'unpaired' && back.why === 'unpaired',
      'the phone hears that it is unpaired',
    );
    assert.equal(back.kept.value, null);
    assert.deepEqual((await relay.status()).devices, []);
  });

test('what an unpaired phone asked for is taken back, and nothing of it is kept', {
  timeout: 120_000,
}, async (t) => {
  const relay = await RelayWorld.open(t, { env: { KELVADROME_TEST_HOLD_MS: '20000' } });
  const { world } = relay;
  const [lost, other] = [await relay.paired({}, { name: 'Lost' }), await relay.paired({}, { name: 'Other' })];
  const id = async (name) => (await relay.status()).devices.find((device) => device.name === name).id;
  const answered = async (phone) => {
    const card = await world.ask();
    await phone.answer(await relay.shown(phone, card), 'Yes');
    await world.becomes(card, 'held');
    return card;
  };
  const released = await answered(lost);
  await relay.page.stays(20);
  await world.armed(released);
  const [held, kept] = [await answered(lost), await answered(other)];
  await lost.request('Look at the failing build');
  const isThere = async () => (await world.cards()).some(({ title }) => /failing build/.test(title));
  await until(isThere, 'the request');
  await relay.page.ok('/v1/cards/answer', { card_id: await world.ask(), version: 1, answer: 'No' });

  await world.ok('/v1/relay/device/revoke', { device_id: await id('Lost') });
  assert.deepEqual(
    [(await world.card(released)).state, (await world.card(held)).state, await isThere()],
    ['open', 'open', false],
  );
  assert.equal((await world.card(kept)).state, 'held', 'the other phone’s answer stands');
  assert.equal((await world.cards()).filter(({ state }) => state === 'held').length, 2);
  assert.equal(await relay.page.claimOne(100), undefined, 'nothing is typed');
  await until(() => lost.why === 'unpaired', 'the phone hears of it');

  // Its keys are in no file of the database, not even in a part that is free.
  await world.kill();
  const store = new Store(world.home);
  const { up, down } = store.get('SELECT up, down FROM relay_devices WHERE up IS NOT NULL');
  store.close();
  await world.start();
  await world.ok('/v1/relay/device/revoke', { device_id: await id('Other') });
  await world.kill();
  for (const name of readdirSync(world.home).filter((file) => file.startsWith('kelvadromed.db')))
    for (const key of [up, down])
      assert.equal(readFileSync(join(world.home, name)).includes(key), false, name);
});

test('an attempt ends in the states that the pane shows', { timeout: 120_000 }, async (t) => {
  const relay = await RelayWorld.open(t);
  const wrong = (digits) => String((Number(digits) + 1) % 1_000_000).padStart(6, '0');

  const first = await relay.joined();
  assert.equal(await stateOf(relay), 'joined');
  for (const left of ['2 tries', '1 try']) {
    const reply = await relay.decide(first.pairingId, wrong(first.phone.digits));
    assert.match(reply.error.message, new RegExp(left));
  }
  const third = await relay.decide(first.pairingId, wrong(first.phone.digits));
  assert.equal(third.data.pairing.state, 'failed');
  assert.equal((await relay.decide(first.pairingId, first.phone.digits)).error.code, 'unknown_pairing');
  await until(() => first.phone.why === 'failed', 'the phone hears of it');

  const second = await relay.joined();
  await until(() => second.phone.kept.value, 'it has asked and so kept what it knows');
  const reloaded = await second.phone.again();
  assert.deepEqual([reloaded.phase, reloaded.digits], ['digits', second.phone.digits]);
  await relay.decide(second.pairingId, '', false);
  assert.equal(await stateOf(relay), 'declined');
  await until(() => reloaded.why === 'declined', 'the phone is declined');

  // Somebody else who has seen the code comes second, and is shown no digits.
  const { pairingId, url: _, ...offer } = await relay.offer();
  const [owner, thief] = [relay.phone(), relay.phone()];
  await thief.join(offer, { name: 'Thief', kind: 'other' });
  await until(() => thief.phase === 'digits', 'the thief came first');
  await owner.join(offer, { name: 'Owner', kind: 'iphone' });
  await until(async () => (await relay.status()).pairing.phone_name === 'Thief', 'the pane tells who joined');
  await relay.world.advance(181);
  await until(() => thief.why === 'expired', 'the attempt is over');
  assert.equal(await stateOf(relay), 'expired');
  assert.equal(owner.phase, 'joining', 'the owner saw no digits');
  await relay.world.advance(61);
  assert.equal(await stateOf(relay), undefined);
  assert.equal((await relay.decide(pairingId, '123456')).ok, false);
  assert.deepEqual((await relay.status()).devices, []);
});

test('a man in the middle has other digits, and the phone takes no welcome of his', {
  timeout: 60_000,
}, async (t) => {
  const relay = await RelayWorld.open(t);
  const { pairingId, url: _, ...offer } = await relay.offer();
  // He has photographed the code, joins in the phone's place, and passes on to the phone what the computer says.
  const his = relay.phone();
  await his.join(offer, { name: 'Anna’s phone', kind: 'iphone' });
  await until(() => his.phase === 'digits', 'he has digits');
  const hers = relay.phone();
  await hers.join({ ...offer, urls: ['ws://127.0.0.1:1/mqtt'] }, { name: 'Anna’s phone', kind: 'iphone' });
  const config = await relay.world.ok('/v1/relay/connector/config');
  const desk = await client(t, config.urls[0], config.username, config.password);
  const spy = await client(t, offer.urls[0], offer.channel, offer.password);
  const welcomes = [];
  spy.on('message', (_topic, payload) => welcomes.push(payload.toString()));
  await spy.subscribeAsync(topicDown(offer.channel), { qos: 1 });
  his.phase = 'joining'; // he asks again
  his.tick();
  await until(() => welcomes.length > 0, 'the welcome is heard');
  hers.close();
  await hers.join(offer, { name: 'Anna’s phone', kind: 'iphone' });
  await until(() => hers.online, 'the phone is there');
  await desk.publishAsync(topicDown(offer.channel), welcomes[0], { qos: 1 });
  await desk.publishAsync(topicDown(offer.channel), welcomes[0].replace(/"b":"./, '"b":"A'), { qos: 1 });
  await relay.world.advance(1);
  assert.equal(hers.phase, 'joining');
  assert.equal(hers.digits, undefined);
  assert.match((await relay.decide(pairingId, '000000')).error?.message ?? '', /not the digits|over/);
});

test('a phone reaches its own two topics alone', { timeout: 60_000 }, async (t) => {
  for (const broker of ['mosquitto', 'nats']) {
    const relay = await RelayWorld.open(t, { broker });
    const [a, b] = [await relay.paired(), await relay.paired()].map(({ mine }) => mine);
    const spy = await client(t, a.urls[0], a.channel, a.password);
    const heard = [];
    spy.on('message', (topic) => heard.push(topic));
    await spy.subscribeAsync([topicDown(b.channel), 'kd/#', '#'], { qos: 1 }).catch(() => {});
    const other = await client(t, b.urls[0], b.channel, b.password).catch(() => null);
    await other.publishAsync(topicUp(b.channel), 'x', { qos: 1 });
    await relay.world.ask();
    await relay.world.ask();
    await until(async () => (await relay.status()).connector.connected, 'all goes on');
    assert.deepEqual(
      heard.filter((topic) => topic !== topicDown(a.channel)),
      [],
      broker,
    );
  }
});

test('what a hostile relay repeats, reorders, alters and delays is never taken', {
  timeout: 120_000,
}, async (t) => {
  const relay = await RelayWorld.open(t);
  const phone = await relay.paired();
  const config = await relay.world.ok('/v1/relay/connector/config');
  const { channel, password, urls } = phone.mine;
  const up = [];
  const down = [];
  const desk = await client(t, config.urls[0], config.username, config.password);
  desk.on('message', (_topic, payload) => up.push(payload.toString()));
  await desk.subscribeAsync(topicUp(channel), { qos: 1 });
  const spy = await client(t, urls[0], channel, password);
  spy.on('message', (_topic, payload) => down.push(payload.toString()));
  await spy.subscribeAsync(topicDown(channel), { qos: 1 });

  const id = await relay.world.ask();
  await phone.answer(await relay.shown(phone, id), 'Yes');
  await deliver(relay, await until(() => relay.page.claimOne(), 'the job'));
  await relay.gone(phone, id);
  const before = (await relay.world.receipts()).length;

  const commands = up.filter((text) => JSON.parse(text).s === 'do');
  assert.ok(commands.length >= 1 && down.length >= 2);
  const other = await relay.world.askFromAfar();
  await relay.shown(phone, other);
  for (const text of [...up].reverse()) await spy.publishAsync(topicUp(channel), text, { qos: 1 });
  for (const text of commands) {
    const envelope = JSON.parse(text);
    for (const altered of [
      { ...envelope, n: envelope.n + 1 },
      { ...envelope, s: 'ask' },
      { ...envelope, b: `${envelope.b.slice(0, -1)}${envelope.b.endsWith('A') ? 'B' : 'A'}` },
    ])
      await spy.publishAsync(topicUp(channel), JSON.stringify(altered), { qos: 1 });
  }
  for (const text of [...down].reverse()) await desk.publishAsync(topicDown(channel), text, { qos: 1 });
  // It is all behind us once an answer that comes after it has gone through.
  await phone.answer(await relay.shown(phone, other), 'Yes');
  await until(
    async () => !(await relay.world.card(other)) || (await relay.world.card(other)).state !== 'open',
    'it came',
  );
  assert.equal((await relay.world.detail(id)).outcome, 'answered');
  const lines = (await relay.world.receipts()).slice(0, -before || undefined).map(({ action }) => action);
  assert.deepEqual(lines.filter((action) => action === 'answer.held').length, 1);
  assert.deepEqual(phone.notices, []);
});

test('an answer that was held back is refused as too late', { timeout: 60_000 }, async (t) => {
  const relay = await RelayWorld.open(t);
  const phone = await relay.paired();
  const id = await relay.world.askFromAfar();
  const card = await relay.shown(phone, id);
  process.kill(relay.connector.pid, 'SIGSTOP');
  await phone.answer(card, 'Yes');
  await relay.world.advance(40); // on the daemon's clock alone
  await relay.world.ok('/v1/test/advance', { set_ms: -3_600_000 }); // which makes the answer no younger
  process.kill(relay.connector.pid, 'SIGCONT');
  await until(() => phone.notices.some((notice) => notice.code === 'late'), 'it is refused');
  assert.equal((await relay.world.card(id)).state, 'open');
});

test('a clock that is set stops nothing, and makes nothing new that was held back', {
  timeout: 120_000,
}, async (t) => {
  let set = 0;
  const relay = await RelayWorld.open(t);
  const phone = await relay.paired({ set: () => set });
  const goesOn = async () => {
    const id = await relay.world.askFromAfar();
    await phone.answer(await relay.shown(phone, id), 'Yes');
    await until(async () => (await relay.world.card(id))?.state !== 'open', 'the answer is taken');
    await until(() => phone.pending.length === 0, 'the phone knows it'); // else a clock that is set makes it old
  };
  await goesOn();
  const HOURS = 5 * 3_600_000;
  for (const [phones, computers] of [
    [-HOURS, 0],
    [0, -HOURS],
    [2 * HOURS, 0],
  ]) {
    set += phones;
    await relay.world.ok('/v1/test/advance', { set_ms: computers });
    await goesOn();
    assert.equal(phone.fresh, true);
  }
  assert.deepEqual(phone.notices, []);

  // A relay that has kept the computer's words for itself hands them on when the phone's clock is set back.
  const { channel, password, urls, said } = phone.mine;
  const spy = await client(t, urls[0], channel, password);
  const down = [];
  spy.on('message', (_topic, payload) => down.push(payload.toString()));
  await spy.subscribeAsync(topicDown(channel), { qos: 1 });
  phone.stop();
  const gone = await relay.world.askFromAfar();
  const newest = await until(() => down.find((text) => JSON.parse(text).n > said), 'the card is told');
  process.kill(relay.connector.pid, 'SIGSTOP');
  set -= HOURS;
  const back = await phone.again();
  await until(() => back.online, 'the phone is back');
  const config = await relay.world.ok('/v1/relay/connector/config');
  const desk = await client(t, config.urls[0], config.username, config.password);
  await desk.publishAsync(topicDown(channel), newest, { qos: 1 });
  await until(() => back.mine.said === JSON.parse(newest).n, 'it has come');
  assert.deepEqual([back.fresh, back.cards.has(gone)], [false, false]);
  process.kill(relay.connector.pid, 'SIGCONT');
  await relay.shown(back, gone);
});

test('a database of an older backup goes on with its phone, and takes back none that was unpaired', {
  timeout: 120_000,
}, async (t) => {
  const relay = await RelayWorld.open(t);
  const { world } = relay;
  const [phone, lost] = [await relay.paired({}, { name: 'Mine' }), await relay.paired({}, { name: 'Lost' })];
  const id = await world.askFromAfar();
  await relay.shown(phone, id);
  let before;
  const heardAnew = async () => {
    phone.wake(); // it asks
    await until(() => phone.rev !== before, 'the phone hears the new daemon');
  };
  const restart = async (between) => {
    before = phone.rev;
    await world.kill('SIGTERM');
    between();
    await world.start();
    relay.page = await world.login();
    await relay.connected();
  };
  const files = () => readdirSync(world.home).filter((name) => name.startsWith('kelvadromed.db'));
  const path = (name) => join(world.home, name);
  let backup;
  await restart(() => {
    backup = files().map((name) => [name, readFileSync(path(name))]);
  });
  await heardAnew();
  await restart(() => {}); // each run sets numbers aside, so that the phone is far ahead of the backup
  const { channel, password, urls } = phone.mine;
  const spy = await client(t, urls[0], channel, password);
  const config = await world.ok('/v1/relay/connector/config');
  const desk = await client(t, config.urls[0], config.username, config.password);
  const commands = [];
  desk.on('message', (_topic, payload) => {
    if (JSON.parse(payload).s === 'do') commands.push(payload.toString());
  });
  await desk.subscribeAsync(topicUp(channel), { qos: 1 });
  await heardAnew();
  assert.equal(await phone.answer(phone.cards.get(id), 'Yes'), true);
  await until(async () => (await world.card(id))?.state !== 'open', 'it is answered');
  await until(() => phone.pending.length === 0, 'the phone has heard so');
  lost.stop();
  const { devices } = await relay.status();
  const { id: device_id } = devices.find(({ name }) => name === 'Lost');
  await world.ok('/v1/relay/device/revoke', { device_id });

  await restart(() => {
    for (const name of files()) rmSync(path(name));
    for (const [name, bytes] of backup) writeFileSync(path(name), bytes);
  });
  assert.deepEqual(
    (await relay.status()).devices.map(({ name }) => name),
    ['Mine'],
  );
  const away = await lost.again();
  await until(() => away.why === 'unpaired', 'the other phone hears of it');
  // The answer that the relay has seen before means nothing to this run of the daemon.
  for (const text of commands) await spy.publishAsync(topicUp(channel), text, { qos: 1 });
  await heardAnew();
  const later = await world.askFromAfar();
  await phone.answer(await relay.shown(phone, later), 'Yes');
  await until(async () => (await world.card(later))?.state !== 'open', 'the new answer is taken');
  assert.equal((await world.card(id)).state, 'open', 'the old one was not taken again');
});

test('a broker that was away for an hour is found again', { timeout: 120_000 }, async (t) => {
  let ahead = 0;
  const relay = await RelayWorld.open(t);
  const phone = await relay.paired({ ahead: () => ahead });
  const id = await relay.world.askFromAfar();
  await relay.shown(phone, id);
  relay.broker.kill('SIGTERM');
  await relay.connected(false);
  const later = await relay.world.askFromAfar();
  await phone.answer(phone.cards.get(id), 'Yes');
  ahead = 3_600_000;
  await relay.world.advance(3600);
  await until(
    () => phone.notices.some(({ text }) => text.includes('may or may not')),
    'the phone gives it up',
  );
  await relay.page.ok('/v1/cards/list'); // it was there all the time
  await relay.startMosquitto();
  await relay.shown(phone, later);
  assert.equal((await relay.world.card(id)).state, 'open', 'the old answer did not arrive later');
  await phone.answer(await relay.shown(phone, id), 'Yes');
  await until(async () => (await relay.world.card(id))?.state !== 'open', 'a new one does');
});

test('of three servers one is killed under way: nothing is lost, nothing twice', {
  timeout: 400_000,
}, async (t) => {
  const relay = await RelayWorld.open(t, { broker: 'nats' });
  const phone = await relay.paired();
  const limit = 90_000;
  const asked = [];
  const answer = async () => {
    const id = await relay.world.askFromAfar();
    asked.push(id);
    const card = await until(() => phone.cards.get(id), `card ${id} shows on the phone`, limit);
    assert.equal(await phone.answer(card, 'Yes'), true);
    await until(async () => (await relay.world.card(id))?.state !== 'open', `${id} is answered`, limit);
  };
  await answer();
  const [node] = relay.nodes; // the first address of both
  const underWay = [answer(), answer()];
  node.child.kill('SIGKILL');
  await Promise.all([...underWay, answer()]);
  await node.child.ended;
  relay.startNode(node);
  await until(() => answers(node.mqtt_port), 'the server is back', limit);
  await answer();
  assert.deepEqual(phone.notices, []);
  const held = (await relay.world.receipts()).filter(({ action }) => action === 'answer.held');
  assert.deepEqual(held.map(({ card_id }) => card_id).sort(), asked.sort());
});

test('a second program’s connector stands by until the first is gone', { timeout: 120_000 }, async (t) => {
  const relay = await RelayWorld.open(t);
  const phone = await relay.paired();
  const first = relay.connector;
  const poll = { run: 'another', connected: false, wait_ms: 0 };
  assert.equal((await relay.world.ok('/v1/relay/connector/poll', poll)).standby, true);
  relay.startConnector();
  await relay.shown(phone, await relay.world.ask());
  assert.equal(first.exitCode, null);
  first.kill('SIGKILL');
  await relay.shown(phone, await relay.world.ask());
});
