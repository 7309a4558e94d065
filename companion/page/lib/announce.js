// What a screen reader is told. Several things at once become one sentence after another, never an interruption.
const PAUSE_MS = 400;
let waiting = [];
let timer = null;

export function announce(words) {
  waiting.push(words);
  if (timer !== null) return;
  timer = setTimeout(() => {
    document.getElementById('said').textContent = waiting.slice(-4).join(' ');
    waiting = [];
    timer = null;
  }, PAUSE_MS);
}
