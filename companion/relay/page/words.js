// Words that depend on what they tell of.
import { cut } from '../../shared/text.js';

const STEPS = [
  [86_400, 'd'],
  [3600, 'h'],
  [60, 'min'],
];

/** How long ago `time` was, on the computer's clock. */
export function age(time, now) {
  const seconds = Math.max(0, (now - Date.parse(time)) / 1000);
  const [size, unit] = STEPS.find(([step]) => seconds >= step) ?? [];
  return unit ? `${Math.floor(seconds / size)} ${unit}` : 'now';
}

/** An answer in one short line. */
export const brief = (answer) =>
  cut(typeof answer === 'string' ? answer : Object.values(answer ?? {}).join('; '), 48);
