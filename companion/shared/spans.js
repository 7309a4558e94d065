// How long something took, where each clock may mislead: one that only goes on stands still while a phone sleeps, and the
// time of day can be set. A reading is {steady, day}, in milliseconds.

/** Not less than it took, unless both clocks mislead at once. */
export const longest = (from, to) => Math.max(to.steady - from.steady, to.day - from.day);

/** Not more than it took. */
export const shortest = (from, to) => Math.max(0, Math.min(to.steady - from.steady, to.day - from.day));
