// Voice: the day's budget through faults of every kind, the settings, dictation apps, and an engine that misbehaves.
import assert from 'node:assert/strict';
import { test } from 'node:test';
import { mkdirSync, mkdtempSync, rmSync, symlinkSync, writeFileSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { World, has, refused } from './world.mjs';
import { Store } from '../../companion/src/store.mjs';
import { clock } from '../../companion/src/clock.mjs';
import { VoiceBudget } from '../../companion/src/voice-budget.mjs';
import { VoiceEngine } from '../../companion/src/voice-engine.mjs';
import { scanApps } from '../../companion/src/voice-scan.mjs';

process.env.TZ = 'Europe/Berlin';

function folderFor(t) {
  const folder = mkdtempSync(join(tmpdir(), 'kdv-'));
  t.after(() => rmSync(folder, { recursive: true, force: true }));
  return folder;
}

test('the budget of a day holds through midnight, set clocks, long days, restarts and repeats', (t) => {
  const home = folderFor(t);
  let store;
  let budget;
  const restart = () => {
    store?.close();
    store = new Store(home);
    budget = new VoiceBudget(store);
  };
  const at = (text) => clock.setTimeOfDay(Date.parse(text) - clock.now());
  const reserve = (seconds) => budget.reserve({ engine: 'openai', model: 'm', seconds }, 3);
  const grant = (seconds = 60) => {
    const id = reserve(seconds).reservation_id;
    assert.ok(id, 'granted');
    return id;
  };
  const minutes = (expected, why) => assert.equal(budget.usedMinutes(), expected, why);
  restart();
  t.after(() => store.close());

  at('2026-10-24T23:59:50+02:00');
  const late = grant();
  minutes(1, 'a reservation counts');
  const failed = grant();
  assert.deepEqual(reserve(120), { denied: true, used_minutes: 2 }, 'two at once near the cap');
  budget.settle(failed, false);
  minutes(1, 'what failed is free again');
  at('2026-10-25T00:00:10+02:00'); // a day of 25 hours begins
  minutes(0);
  budget.settle(late, true);
  minutes(0, 'it counts on the day it was made');
  const first = grant(120);
  restart();
  minutes(2, 'a reservation outlives the daemon');
  assert.equal(budget.settle(first, true).accepted, true);
  restart();
  for (const ok of [true, false]) assert.equal(budget.settle(first, ok).accepted, false, 'settled once');
  at('2026-10-25T23:30:00+01:00');
  minutes(2, 'the last hour of the long day');
  at('2026-10-24T12:00:00+02:00');
  minutes(1, 'a clock that is set back finds the day as it was');
  at('2027-10-25T12:00:00+02:00');
  at('2026-10-25T12:00:00+01:00');
  minutes(2, 'and so after a leap ahead');
  assert.equal(reserve(61).denied, true);

  const forgotten = grant();
  clock.advance(200_000);
  restart();
  budget.look();
  clock.advance(200_000);
  minutes(3, 'after a restart the time of a reservation begins anew');
  clock.advance(101_000);
  minutes(2, 'nobody settled it');
  const other = grant();
  budget.settle(forgotten, true);
  minutes(4, 'a late word counts all the same');
  assert.deepEqual(reserve(1), { denied: true, used_minutes: 4 });
  budget.settle(other, false);
  assert.throws(() => budget.settle('voice-x', true), { code: 'unknown_reservation' });
  assert.throws(() => reserve(0), 'nothing of no length');
  minutes(3);
});

test('settings, the budget and the scan over the wire', async (t) => {
  const world = await World.open(t);
  const call = (path, body) => world.call(`/v1/voice/${path}`, body);
  const settings = async () => (await call('settings/get')).data;
  has(await settings(), {
    daily_minutes_cap: 30,
    openai_enabled: true,
    selected: undefined,
    used_minutes: 0,
  });
  for (const [name, value] of [
    ['selected', 'siri'],
    ['live', 1],
    ['bar_hotkey', ' '],
    ['openai_model', 'gpt'],
    ['daily_minutes_cap', -1],
    ['daily_minutes_cap', 1.5],
    ['parse_agent', 'rm'],
    ['local_model', 'model'],
    ['toString', true],
  ])
    refused(
      await call('settings', { hold_to_talk: true, [name]: value }),
      'validation_failed',
      new RegExp(name),
    );
  has(await settings(), { hold_to_talk: false }, undefined);
  await call('settings', { selected: 'superwhisper', daily_minutes_cap: 1, live: true });
  await call('settings', { live: null });
  await world.restart();
  has(await settings(), { selected: 'superwhisper', daily_minutes_cap: 1, live: false });

  const scan = (await call('scan', { force: true })).data;
  has(scan, { selected: 'superwhisper', builtin: { local: 'no_engine' } });
  assert.match(scan.hint, /not installed/);
  assert.deepEqual(scan.apps, [
    { id: 'superwhisper', name: 'superwhisper', installed: false, selected: true, running: false },
  ]);

  const clip = { engine: 'openai', model: 'm', seconds: 45 };
  const { reservation_id: id } = (await call('budget/reserve', clip)).data;
  await world.restart();
  assert.deepEqual((await call('budget/reserve', clip)).data, { denied: true, used_minutes: 0.75 });
  refused(await call('budget/reserve', { ...clip, seconds: 121 }), 'validation_failed', /seconds/);
  const used = { reservation_id: id, seconds: 45, ok: true };
  has((await call('engine/used', used)).data, { accepted: true });
  has((await call('engine/used', used)).data, { accepted: false });
  refused(await call('engine/used', { ...used, reservation_id: 'x' }), 'unknown_reservation');
  refused(await call('engine/status', { openai: 'yes', apple: 'ready' }), 'validation_failed', /openai/);
  refused(await call('mode/switched', { previous: 'A b', restored: true }), 'validation_failed', /previous/);
  await call('mode/switched', { previous: 'default', restored: false });
  assert.ok((await world.actions()).includes('voice.mode'));

  const longest = Buffer.alloc(3_840_000).toString('base64');
  refused(await call('transcribe', { pcm16_b64: longest }), 'not_implemented');
  refused(await call('transcribe', { pcm16_b64: `${longest}AAAA` }), 'validation_failed', /pcm16_b64/);
  refused(await call('transcribe', { pcm16_b64: 'AAAA' }), 'validation_failed', /half a sample/);
  refused(await call('scan', { force: true, longest }), 'too_large');
});

test('a dictation app is told of as its bundle says, and one outside its root is none', (t) => {
  const root = folderFor(t);
  const bundle = (name, id, scheme) => {
    mkdirSync(join(root, name, 'Contents'), { recursive: true });
    writeFileSync(
      join(root, name, 'Contents/Info.plist'),
      `<plist><dict><key>CFBundleIdentifier</key><string>${id}</string>
       <key>CFBundleShortVersionString</key><string>2.1</string><key>CFBundleURLTypes</key><array><dict>
       <key>CFBundleURLSchemes</key><array><string>x</string><string>${scheme}</string></array></dict></array></dict></plist>`,
    );
  };
  bundle('Applications/superwhisper.app', 'com.superduper.superwhisper', 'superwhisper-debug');
  bundle('Downloads/Spokenly.app', 'app.spokenly', 'spokenly');
  symlinkSync(join(root, 'Downloads/Spokenly.app'), join(root, 'Applications/Spokenly.app'));
  const apps = () => scanApps('superwhisper', [join(root, 'none'), join(root, 'Applications')]);
  has(apps()[0], { installed: true, running: false, version: '2.1', selected: true, team_ok: undefined });
  assert.deepEqual(apps()[0].url_control, { start: false, stop: false, mode: false }, 'another scheme');
  assert.equal(apps().length, 1);
  bundle('Applications/superwhisper.app', 'com.superduper.superwhisper', 'superwhisper');
  assert.equal(apps()[0].url_control.start, true);
});

// What the engine does is told by the first sample of the clip, or by the model's name.
const FAKE = `exports.OfflineRecognizer = class {
  constructor(config) { if (/bad/.test(config.modelConfig.tokens)) throw new Error('no such model'); }
  createStream() { return { acceptWaveform({ samples }) { this.samples = samples; } }; }
  decode({ samples }) { if (samples[0] === 0.25) for (;;); if (samples[0] === 0.5) process.abort(); }
  getResult({ samples }) { return { text: ' ' + samples.length + ' at ' + samples[1] + ' ' }; }
};`;

test('an engine that hangs or crashes costs its clip alone, and one clip is transcribed at a time', async (t) => {
  const home = folderFor(t);
  const engine = new VoiceEngine(home, 3000);
  t.after(() => engine.close());
  const model = (name) => {
    mkdirSync(join(home, name));
    for (const file of ['a-encoder.int8.onnx', 'a-decoder.onnx', 'a-tokens.txt'])
      writeFileSync(join(home, name, file), '');
    return join(home, name);
  };
  const [good, bad] = [model('whisper'), model('bad')];
  assert.equal((await engine.state(good, false, 5000)).state, 'no_engine');
  mkdirSync(engine.folder, { recursive: true });
  writeFileSync(join(engine.folder, 'package.json'), '{}');
  writeFileSync(join(engine.folder, 'index.js'), FAKE);
  const clip = (first) => Buffer.from(new Int16Array([first, -16384, 0]).buffer);
  const hear = (first, which = good) => engine.transcribe(clip(first), which);
  assert.deepEqual(await engine.state(undefined, false, 5000), { state: 'no_model' });
  assert.deepEqual(await engine.state(good, false, 20_000), { state: 'ready' });
  const many = await Promise.allSettled([hear(0), hear(8192), hear(16384), hear(0)]);
  const said = many.map(({ value, reason }) => value ?? `${reason.code}: ${reason.message}`);
  assert.equal(said[0], '3 at -0.5');
  assert.match(said[1], /engine_failed: .*longer than 3 s/);
  assert.match(said[2], /engine_failed: .*SIGABRT/);
  assert.match(said[3], /conflict/, 'the queue has an end');
  assert.equal(await hear(0), '3 at -0.5', 'and works again');
  assert.match((await engine.state(bad, false, 20_000)).why, /no such model/);
  await assert.rejects(hear(0, home), /no speech model/);
});
