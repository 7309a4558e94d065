// The phone's page in a real browser, served by the broker itself, on a screen of a phone's size.
import assert from 'node:assert/strict';
import { test, after } from 'node:test';
import { until } from './world.mjs';
import { RelayWorld } from './relay-world.mjs';
import { closeBrowser, hold, newTab, PHONE } from './browser.mjs';

after(closeBrowser);
const SHOTS = process.env.KELVADROME_SHOTS;

test('a browser pairs with a face, answers, takes back, and confirms a high risk', {
  timeout: 200_000,
}, async (t) => {
  const relay = await RelayWorld.open(t, { env: { KELVADROME_TEST_HOLD_MS: '5000' } });
  const tab = await newTab(t, PHONE);
  const shot = (name) => SHOTS && tab.screenshot({ path: `${SHOTS}/phone-${name}.png` });
  const cdp = await tab.context().newCDPSession(tab);
  await cdp.send('WebAuthn.enable');
  await cdp.send('WebAuthn.addVirtualAuthenticator', {
    options: {
      protocol: 'ctap2',
      transport: 'internal',
      hasResidentKey: true,
      hasUserVerification: true,
      isUserVerified: true,
      automaticPresenceSimulation: true,
    },
  });

  const offer = await relay.offer();
  await tab.goto(offer.url);
  await tab.getByText('Face ID for high risk').waitFor();
  assert.equal(await tab.evaluate(() => location.hash), '', 'the secret stays in no history');
  await shot('pair');
  await tab.getByRole('button', { name: 'Pair this phone' }).click();
  await tab.getByText('Type these on your computer').waitFor();
  await shot('digits');
  const digits = (await tab.locator('.digits').innerText()).replace(/\D/g, '');
  const decided = await relay.decide(offer.pairingId, digits);
  assert.equal(decided.data?.pairing.state, 'confirmed', JSON.stringify(decided));
  assert.equal(decided.data.devices[0].face_id, true);
  await tab.getByText('Nothing needs you').waitFor();
  await shot('empty');

  const id = await relay.world.ask({
    title: 'Deploy the billing service to staging?',
    body: 'All 214 tests pass. The migration adds one column and takes about two seconds.',
    topic: 'billing',
    default: 'Yes',
  });
  await relay.world.askFromAfar({
    title: 'Which name for the new module?',
    options: ['ledger', 'accounts'],
    menu: false,
  });
  const risky = await relay.world.askFromAfar({
    title: 'Pay the invoice of 480 €?',
    risk: 'high',
    kind: 'stop',
  });
  const card = (title) => tab.locator('.card', { hasText: title });
  await card('Pay the invoice').waitFor();
  await shot('cards');
  const yes = card('Deploy the billing').getByRole('button', { name: 'Yes' });
  await yes.click();
  assert.equal((await relay.world.card(id)).state, 'open', 'a tap is no answer');
  await hold(tab, yes);
  const undo = card('Deploy the billing').getByRole('button', { name: 'Undo' });
  await undo.waitFor();
  await shot('held');
  await undo.click();
  await until(async () => (await relay.world.card(id)).state === 'open', 'it is taken back');
  await yes.waitFor();
  await hold(tab, yes);
  const job = await until(() => relay.page.claimOne(), 'the job');
  await relay.page.report(job.id, 'start');
  await relay.page.report(job.id, 'done', { path: 'host' });
  await until(async () => (await card('Deploy the billing').count()) === 0, 'the card leaves');

  await hold(tab, card('Pay the invoice').getByRole('button', { name: 'Yes' }));
  await until(
    async () => (await relay.world.card(risky))?.state !== 'open',
    'the high risk is confirmed and taken',
  );

  await tab.getByLabel('Request', { exact: true }).fill('claude: look at the failing build');
  await tab.getByRole('button', { name: 'Send the request' }).click();
  await tab.getByText('It is a card on your computer now').waitFor();

  await tab.emulateMedia({ colorScheme: 'dark' });
  await shot('dark');
  await tab.reload();
  await card('Which name').waitFor();

  // A second tab says that there is a first, takes its place, and gives it back when it is closed.
  const second = await tab.context().newPage();
  const isElsewhere = (page) => page.getByText('Open in another tab').waitFor();
  await second.goto(tab.url());
  await isElsewhere(second);
  if (SHOTS) await second.screenshot({ path: `${SHOTS}/phone-elsewhere.png` });
  await second.getByRole('button', { name: 'Use it here' }).click();
  await second.locator('.card', { hasText: 'Which name' }).waitFor();
  await isElsewhere(tab);
  await second.close();
  await card('Which name').waitFor();
  await relay.world.ok('/v1/relay/device/revoke', { device_id: decided.data.devices[0].id });
  await tab.getByText('Your computer has unpaired this phone').waitFor();
  await shot('unpaired');
});
