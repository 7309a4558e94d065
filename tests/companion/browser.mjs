// A real browser for the tests of the page: the machine's Chromium, driven by playwright-core, which is fetched once into
// build/browser. Without a Chromium the tests are skipped, and say so.
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import { accessSync, constants, existsSync } from 'node:fs';
import { createRequire } from 'node:module';
import { delimiter, join } from 'node:path';
import { fileURLToPath } from 'node:url';
import { Page } from './world.mjs';

const PREFIX = fileURLToPath(new URL('../../build/browser', import.meta.url));
const VERSION = '1.65.1';
const NAMES = ['chromium', 'chromium-browser', 'google-chrome', 'google-chrome-stable'];

const isProgram = (path) => {
  try {
    accessSync(path, constants.X_OK);
    return true;
  } catch {
    return false;
  }
};
const onPath = () => (process.env.PATH ?? '').split(delimiter).flatMap((folder) => NAMES.map((name) => join(folder, name))).find(isProgram);

export const chromium = process.env.CHROMIUM ?? onPath();
export const without = chromium ? false : 'there is no Chromium on this machine (apt-get install chromium, or set CHROMIUM)';
if (without) process.stderr.write(`The page is NOT tested: ${without}.\n`);

function playwright() {
  const home = join(PREFIX, 'node_modules/playwright-core');
  if (!existsSync(home)) execFileSync('npm', ['install', '--silent', '--no-audit', '--no-fund', '--no-save', '--prefix', PREFIX, `playwright-core@${VERSION}`], { stdio: 'inherit' });
  return createRequire(join(PREFIX, 'x.js'))('playwright-core');
}

let running = null;
/** One browser for all tests of a file; it leaves with the process, which is told to end it. */
export function browser() {
  running ??= playwright().chromium.launch({ executablePath: chromium, args: ['--no-sandbox', '--disable-gpu'] });
  return running;
}
export const closeBrowser = async () => { if (running) await (await running).close(); };

/**
 * A tab that is logged in, as the shell's or a browser's would be. Whatever the page logs as an error, or the policy
 * refuses, fails the test. `tab.bridge()` gives the messages that were posted to the shell.
 */
export async function open(t, world, path = '/', { shell = false, ...options } = {}) {
  const session = await world.login();
  const context = await (await browser()).newContext({ viewport: { width: 1200, height: 800 }, reducedMotion: 'reduce', locale: 'en-US', ...options });
  t.after(async () => {
    await context.close();
    assert.deepEqual(tab.problems, []);
  });
  await context.addCookies([{ name: 'kd_session', value: session.cookie, url: `http://127.0.0.1:${world.port}`, httpOnly: true, sameSite: 'Strict' }]);
  if (shell) await context.addInitScript(() => { window.posted = []; window.webkit = { messageHandlers: { kelvadrome: { postMessage: (message) => window.posted.push(message) } } }; });
  const tab = await context.newPage();
  tab.setDefaultTimeout(20_000);
  tab.problems = [];
  tab.on('pageerror', (error) => tab.problems.push(error.message));
  tab.on('console', (message) => { if (message.type() === 'error' && !/ERR_CONNECTION|ERR_EMPTY|ERR_INCOMPLETE|401|409|400/.test(message.text())) tab.problems.push(message.text()); });
  tab.session = session;
  tab.bridge = () => tab.evaluate(() => window.posted);
  await tab.goto(`http://127.0.0.1:${world.port}${path}`);
  await tab.locator('main h1').waitFor();
  return tab;
}

/** The session of the page after a restart of the daemon, put into the tab as the shell does it. */
export async function renew(tab, world) {
  tab.session = await world.login();
  await tab.context().addCookies([{ name: 'kd_session', value: tab.session.cookie, url: `http://127.0.0.1:${world.port}`, httpOnly: true, sameSite: 'Strict' }]);
  return new Page(world, tab.session.cookie);
}
