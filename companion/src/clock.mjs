import { randomBytes } from 'node:crypto';
import { uptime } from 'node:os';

let ahead = 0;
let set = 0;
let lost = 0;

/**
 * The daemon's two clocks, in milliseconds. `now` is the time of day, for what is shown and what outlives the process;
 * it can be set at any moment. `steady` measures every wait: it only goes on, and only while the daemon itself does, so
 * that what waited for somebody is not over because the daemon was stopped meanwhile. Tests move both on
 * instead of waiting.
 */
export const clock = {
  now: () => Math.round(Date.now() + ahead + set),
  steady: () => performance.now() + ahead - lost,
  /** For spans.js: its steady clock goes on while the machine sleeps or the daemon is stopped. */
  reading: () => ({ steady: uptime() * 1000 + ahead, day: clock.now() }),
  advance: (ms) => {
    ahead += ms;
  },
  setTimeOfDay: (ms) => {
    set += ms;
  },
  wasStopped: (ms) => {
    lost += ms;
  },
};

/** ISO 8601 in UTC with milliseconds. */
export const iso = (ms) => new Date(ms).toISOString();

/** An id that sorts by time within a millisecond's reach and is not guessable: "card-mb3k2x1p-5f0c2a91d4e7". */
export const newId = (prefix, now = clock.now()) =>
  `${prefix}-${now.toString(36)}-${randomBytes(6).toString('hex')}`;

export const secret = () => randomBytes(32).toString('base64url');

/** Start of today in the machine's own time zone. */
export function startOfToday(now = clock.now()) {
  const day = new Date(now);
  day.setHours(0, 0, 0, 0);
  return day.getTime();
}
