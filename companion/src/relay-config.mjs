// Which relay this home uses: relay.json in the home, which `kd relay` writes. It holds passwords of the broker, none
// of which opens an envelope.
import { chmodSync, lstatSync, readFileSync, renameSync, writeFileSync } from 'node:fs';
import { isAbsolute, join } from 'node:path';
import { CHANNEL } from '../shared/relay.js';
import { conflict } from './errors.mjs';

const FILE = 'relay.json';
const PASSWORD = /^[A-Za-z0-9_-]{8,128}$/;
const isUrl = (pattern) => (text) => typeof text === 'string' && pattern.test(text) && URL.canParse(text);
const areUrls = (list, pattern) =>
  Array.isArray(list) && list.length > 0 && list.length <= 8 && list.every(isUrl(pattern));

/** What is wrong with a configuration, in words; null when nothing is. */
export function whyBad({ app_url: app, phone_urls: phone, desk_urls: desk, username, password, places, ca }) {
  if (!isUrl(/^https?:\/\//)(app)) return 'app_url is no http or https address';
  if (!areUrls(phone, /^wss?:\/\//)) return 'phone_urls are not 1 to 8 ws or wss addresses';
  if (!areUrls(desk, /^(wss?|mqtts?):\/\//))
    return 'desk_urls are not 1 to 8 mqtt, mqtts, ws or wss addresses';
  if (!CHANNEL.test(username ?? '') || !PASSWORD.test(password ?? ''))
    return 'username or password is missing';
  if (ca !== undefined && (typeof ca !== 'string' || !isAbsolute(ca)))
    return 'ca is not the full path of a file';
  const good = (place) => CHANNEL.test(place?.channel ?? '') && PASSWORD.test(place?.password ?? '');
  return Array.isArray(places) && places.length > 0 && places.every(good)
    ? null
    : 'places are not as they should be';
}

/** The configuration of `home`, with the text of the certificate authority that it names; null when there is none. Throws for one that cannot be used. */
export function readRelayConfig(home) {
  const path = join(home, FILE);
  const info = lstatSync(path, { throwIfNoEntry: false });
  if (info === undefined) return null;
  const bad = (why) => conflict(`${FILE} in the data home cannot be used: ${why}. Run kd relay serve again.`);
  if (!info.isFile() || (process.getuid && info.uid !== process.getuid()) || info.mode & 0o077)
    throw bad('it is not a private file of yours');
  let config;
  try {
    config = JSON.parse(readFileSync(path, 'utf8'));
  } catch (error) {
    throw bad(error.message);
  }
  const why = config === null || typeof config !== 'object' ? 'it holds no object' : whyBad(config);
  if (why !== null) throw bad(why);
  try {
    return config.ca ? { ...config, authority: readFileSync(config.ca, 'utf8') } : config;
  } catch (error) {
    throw bad(error.message);
  }
}

/** Written whole, or not at all. */
export function writeRelayConfig(home, config) {
  const path = join(home, FILE);
  writeFileSync(`${path}.new`, `${JSON.stringify(config, null, 2)}\n`, { mode: 0o600 });
  chmodSync(`${path}.new`, 0o600);
  renameSync(`${path}.new`, path);
}
