// A phone's whole way in a real browser, for a test that is no program of Node's: it opens the link, is paired, and holds
// the first button that has these words. Each step is told in a line.
import { browser, closeBrowser, hold, PHONE } from './browser.mjs';

const [link, answer] = process.argv.slice(2);
const say = (line) => process.stdout.write(`${line}\n`);

const tab = await (await (await browser()).newContext(PHONE)).newPage();
tab.setDefaultTimeout(60_000);
await tab.goto(link);
await tab.getByRole('button', { name: 'Pair this phone' }).click();
await tab.getByText('Type these on your computer').waitFor();
say(`digits ${(await tab.locator('.digits').innerText()).replace(/\D/g, '')}`);
await tab.getByText('Nothing needs you').waitFor();
say('paired');
const button = tab.getByRole('button', { name: answer });
await button.waitFor();
await hold(tab, button);
await tab.getByText('Nothing needs you').waitFor();
say('answered');
await tab.getByText('Your computer has unpaired this phone').waitFor();
say('unpaired');
await closeBrowser();
