// How far two colours stand apart for the eye, as the Web Content Accessibility Guidelines count it.
const channels = (hex) => [1, 3, 5].map((at) => Number.parseInt(hex.slice(at, at + 2), 16) / 255);
const linear = (c) => (c <= 0.03928 ? c / 12.92 : ((c + 0.055) / 1.055) ** 2.4);

const luminance = (hex) =>
  channels(hex)
    .map(linear)
    .reduce((sum, c, i) => sum + c * [0.2126, 0.7152, 0.0722][i], 0);

/** From 1, the same, to 21, black on white. */
export function contrast(one, other) {
  const [high, low] = [luminance(one), luminance(other)].sort((a, b) => b - a);
  return (high + 0.05) / (low + 0.05);
}

/** The usual colour behind a number from 16 to 255 of a terminal. */
export function ofTerminal(number) {
  const cube = [0, 95, 135, 175, 215, 255];
  const at = number - 16;
  const grey = 8 + 10 * (number - 232);
  const parts =
    number < 232
      ? [cube[Math.floor(at / 36)], cube[Math.floor(at / 6) % 6], cube[at % 6]]
      : [grey, grey, grey];
  return `#${parts.map((part) => part.toString(16).padStart(2, '0')).join('')}`;
}
