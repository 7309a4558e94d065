// A real browser for the tests of the page: the machine's Chromium, driven by playwright-core, which is fetched once into
// build/browser. Without a Chromium the tests are skipped, and say so.
import assert from 'node:assert/strict';
import { execFileSync, spawnSync } from 'node:child_process';
import { existsSync } from 'node:fs';
import { createRequire } from 'node:module';
import { join } from 'node:path';
import { fileURLToPath } from 'node:url';
import { until } from './world.mjs';

const PREFIX = fileURLToPath(new URL('../../build/browser', import.meta.url));
const VERSION = '1.65.1';
const NAMES = ['chromium', 'chromium-browser', 'google-chrome', 'google-chrome-stable'];

const onPath = () =>
  spawnSync('sh', ['-c', NAMES.map((name) => `command -v ${name}`).join(' || ')], {
    encoding: 'utf8',
  }).stdout.trim();

export const chromium = process.env.CHROMIUM ?? onPath();
export const without = chromium
  ? false
  : 'there is no Chromium on this machine (apt-get install chromium, or set CHROMIUM)';
if (without) process.stderr.write(`The page is NOT tested: ${without}.\n`);

function playwright() {
  const home = join(PREFIX, 'node_modules/playwright-core');
  if (!existsSync(home))
    execFileSync(
      'npm',
      [
        'install',
        '--silent',
        '--no-audit',
        '--no-fund',
        '--no-save',
        '--prefix',
        PREFIX,
        `playwright-core@${VERSION}`,
      ],
      { stdio: 'inherit' },
    );
  return createRequire(join(PREFIX, 'x.js'))('playwright-core');
}

// A test of its own fetches it before the others, which would do so side by side.
if (import.meta.main) playwright();

let running = null;
/** One browser for all tests of a file; it leaves with the process, which is told to end it. */
export function browser() {
  running ??= playwright().chromium.launch({
    executablePath: chromium,
    args: ['--no-sandbox', '--disable-gpu'],
  });
  return running;
}
export const closeBrowser = async () => {
  if (running) await (await running).close();
};

/**
 * A tab that is logged in, as the shell's is. Whatever the page logs as an error, or the policy
 * refuses, fails the test. `tab.bridge()` gives the messages that were posted to the shell.
 */
export async function open(t, world, path = '/', options = {}) {
  const tab = await newTab(t, options);
  await renew(tab, world);
  await tab.goto(`http://127.0.0.1:${world.port}${path}`);
  await tab.locator('main h1').waitFor();
  return tab;
}

/** A tab of a context of its own that has not been anywhere. */
export async function newTab(t, { shell = false, ...options } = {}) {
  const context = await (await browser()).newContext({
    viewport: { width: 1200, height: 800 },
    reducedMotion: 'reduce',
    locale: 'en-US',
    ...options,
  });
  t.after(async () => {
    await context.close();
    assert.deepEqual(tab.problems, []);
  });
  if (shell)
    await context.addInitScript(() => {
      window.posted = [];
      window.webkit = {
        messageHandlers: { kelvadrome: { postMessage: (message) => window.posted.push(message) } },
      };
    });
  await context.addInitScript(() => {
    window.saidInPlace = [];
    new MutationObserver(() => {
      for (const line of document.querySelectorAll('.farewell')) window.saidInPlace.push(line.textContent);
    }).observe(document, { childList: true, subtree: true });
  });
  const tab = await context.newPage();
  tab.setDefaultTimeout(60_000); // for a machine that does a lot besides; what fails at once doesn't wait
  tab.problems = [];
  tab.on('pageerror', (error) => tab.problems.push(error.message));
  tab.on('console', (message) => {
    if (
      message.type() === 'error' &&
      !/ERR_CONNECTION|ERR_EMPTY|ERR_INCOMPLETE|40[0139]/.test(message.text())
    )
      tab.problems.push(message.text());
  });
  tab.bridge = () => tab.evaluate(() => window.posted);
  return tab;
}

export const LONG_HOLD = { KELVADROME_TEST_HOLD_MS: '600000' };
export const shows = (locator) => locator.waitFor();
export const articles = (tab, count, what) =>
  until(async () => (await tab.locator('main article').count()) === count, what);
/** Waits until a card's place has said `words`; such a line is there for some seconds only, so the page collects them. */
export const said = (tab, words) =>
  until(
    async () => (await tab.evaluate(() => window.saidInPlace)).some((line) => line.includes(words)),
    `a line says: ${words}`,
  );
export const focusedCard = (tab) => tab.evaluate(() => document.activeElement.closest('article')?.id);

/** A new session of the page, put into the tab as the shell does it: at first, and after a restart of the daemon. */
export async function renew(tab, world) {
  tab.session = await world.login();
  await tab.context().addCookies([
    {
      name: 'kd_session',
      value: tab.session.cookie,
      url: `http://127.0.0.1:${world.port}`,
      httpOnly: true,
      sameSite: 'Strict',
    },
  ]);
}

/** A screen of a phone's size. */
export const PHONE = {
  viewport: { width: 390, height: 844 },
  deviceScaleFactor: 2,
  hasTouch: true,
  isMobile: true,
};

/** Keeps a button of the phone's page down for as long as an answer takes. */
export async function hold(tab, locator) {
  await locator.evaluate((button) => button.scrollIntoView({ block: 'center' }));
  const box = await locator.boundingBox();
  await tab.mouse.move(box.x + box.width / 2, box.y + box.height / 2);
  await tab.mouse.down();
  await new Promise((done) => setTimeout(done, 700));
  await tab.mouse.up();
}
