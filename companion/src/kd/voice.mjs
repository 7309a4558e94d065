// `kd voice`: the local speech route, whose engine and model are the user's to bring.
import { spawn } from 'node:child_process';
import { mkdirSync } from 'node:fs';
import { resolve } from 'node:path';
import { ENGINE, engineHome } from '../voice-engine.mjs';
import { EXIT, KdError } from './client.mjs';

/** The version that this was made with. */
const VERSION = '1.13.8';
const LOAD_MS = 45_000;
const say = (line) => process.stdout.write(`${line}\n`);

function npm(folder) {
  // None of the packages needs a script to be run: the engine's binary is a file in one of them.
  const words = ['install', '--prefix', folder, '--ignore-scripts', '--no-audit', '--no-fund', '--omit=dev'];
  const child = spawn('npm', [...words, `${ENGINE}@${VERSION}`], { stdio: ['ignore', 'inherit', 'inherit'] });
  return new Promise((done, failed) => {
    child.on('error', () => failed(new KdError('There is no npm on this machine.', EXIT.failed)));
    child.on('close', (code) => done(code));
  });
}

async function installEngine(client) {
  const folder = engineHome(client.home);
  mkdirSync(folder, { recursive: true, mode: 0o700 });
  if ((await npm(folder)) !== 0) throw new KdError('npm could not install the engine.', EXIT.failed);
  say(`Installed in ${folder}. Name a model: ${client.command} voice model FOLDER`);
  return EXIT.ok;
}

const WORDS = {
  ready: 'engine and model work',
  no_engine: 'the engine is not installed (kd voice install-engine)',
  no_model: 'no model is named, or its folder is gone (kd voice model FOLDER)',
  checking: 'the model is still being loaded',
};

/** Waits for a model that takes long. */
async function lookAgain(client, force) {
  const deadline = performance.now() + LOAD_MS;
  let scan = await client.call('/v1/voice/scan', { force });
  while (scan.builtin.local === 'checking' && performance.now() < deadline)
    scan = await client.call('/v1/voice/scan', { force: false });
  return scan;
}

async function status(client, json, force = false) {
  const scan = await lookAgain(client, force);
  const settings = await client.call('/v1/voice/settings/get', {});
  const { local, why } = scan.builtin;
  if (json) say(JSON.stringify({ scan, settings }));
  else {
    say(`Selected: ${scan.selected}${scan.hint ? ` (${scan.hint})` : ''}`);
    say(
      `Today: ${settings.used_minutes.toFixed(1)} of ${settings.daily_minutes_cap} minutes sent or reserved`,
    );
    say(`Local route: ${why ?? WORDS[local]}`);
    if (settings.local_model) say(`Model: ${settings.local_model}`);
  }
  return local;
}

export async function voice({ values, positionals: [what, folder], client }) {
  if (what === 'install-engine' && folder === undefined) return installEngine(client);
  if (what === 'status' && folder === undefined) {
    await status(client, values.json, true);
    return EXIT.ok;
  }
  if (what !== 'model' || folder === undefined)
    throw new KdError('kd voice takes: status, install-engine, or model FOLDER.', EXIT.usage);
  await client.call('/v1/voice/settings', { local_model: resolve(folder) });
  return (await status(client, values.json, true)) === 'ready' ? EXIT.ok : EXIT.failed;
}
