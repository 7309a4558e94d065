import { randomBytes } from 'node:crypto';

let ahead = 0;

/** The daemon's one clock, in milliseconds. Tests move it on instead of waiting. */
export const clock = {
  now: () => Date.now() + ahead,
  advance: (ms) => { ahead += ms; },
};

/** ISO 8601 in UTC with milliseconds. */
export const iso = (ms) => new Date(ms).toISOString();

/** An id that sorts by time within a millisecond's reach and is not guessable: "card-mb3k2x1p-5f0c2a91d4e7". */
export const newId = (prefix, now = clock.now()) => `${prefix}-${now.toString(36)}-${randomBytes(6).toString('hex')}`;

export const secret = () => randomBytes(32).toString('base64url');

/** Start of today in the machine's own time zone. */
export function startOfToday(now = clock.now()) {
  const day = new Date(now);
  day.setHours(0, 0, 0, 0);
  return day.getTime();
}
