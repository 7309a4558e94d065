// A question of the real Claude Code as it goes to the panel and back: what both tmux panes showed, as an SVG that plays.
import { writeFileSync } from 'node:fs';
import { pause } from '../../scripts/tour/world.mjs';

const COLUMNS = 78;
const ROWS = 24;
const CELL = { width: 7.4, height: 15 };
const GAP = 14;
const LONGEST_S = 2.2; // a frame; what takes longer in life is shortened
const LAST_S = 4;
const INK = '#f2f1f4';
const GROUND = '#222226';
const BASIC = '#1d1d20 #ff7b7b #8fe3ae #f0b73a #8bbcf5 #d9a7f0 #7fd6dc #d8d7dc'.split(' ');
const BRIGHT = '#85838b #ff9c95 #b0f2c7 #ffe39a #b5d5ff #e8c6f7 #a9e8ec #ffffff'.split(' ');

/** Walks it on a stage and writes `file`. */
export async function writeCast(stage, file) {
  const agent = await stage.start('claude');
  const panes = [agent, stage.panel];
  for (const pane of panes)
    stage.tmux('resize-window', '-t', pane, '-x', String(COLUMNS), '-y', String(ROWS));
  await pause(1500);
  const frames = [];
  let goesOn = true;
  const recorded = (async () => {
    for (; goesOn; await pause(120)) {
      const screens = panes.map((pane) => stage.tmux('capture-pane', '-p', '-e', '-t', pane));
      if (screens.join() !== frames.at(-1)?.screens.join()) frames.push({ at: Date.now(), screens });
    }
  })();
  await pause(600);
  await stage.prompt(agent, 'Set up the database of this project. Please ASK');
  const card = await stage.newCard();
  await pause(1500);
  await stage.press(card, 2);
  await stage.see(agent, /Understood/, 'the agent going on');
  await stage.isClosed(card);
  await pause(1500);
  goesOn = false;
  await recorded;
  writeFileSync(file, drawing(frames));
  return `${frames.length} frames`;
}

function colourOf(codes) {
  const [kind, ...rest] = codes;
  if (kind === 2) return `#${rest.map((part) => part.toString(16).padStart(2, '0')).join('')}`;
  const [index] = rest;
  if (index < 16) return index < 8 ? BASIC[index] : BRIGHT[index - 8];
  if (index >= 232) return `#${(8 + (index - 232) * 10).toString(16).padStart(2, '0').repeat(3)}`;
  const level = (part) => (part === 0 ? 0 : 55 + part * 40).toString(16).padStart(2, '0');
  const cube = index - 16;
  return `#${level(Math.floor(cube / 36))}${level(Math.floor(cube / 6) % 6)}${level(cube % 6)}`;
}

/** The look after one of tmux's SGR sequences. */
function restyled(look, text) {
  const codes = text === '' ? [0] : text.split(';').map(Number);
  let now = look;
  while (codes.length > 0) {
    const code = codes.shift();
    const set = (change) => {
      now = { ...now, ...change };
    };
    if (code === 0) now = {};
    else if (code === 1) set({ isBold: true });
    else if (code === 2) set({ isDim: true });
    else if (code === 7) set({ isReverse: true });
    else if (code === 22) set({ isBold: false, isDim: false });
    else if (code === 27) set({ isReverse: false });
    else if (code >= 30 && code < 38) set({ ink: BASIC[code - 30] });
    else if (code >= 40 && code < 48) set({ ground: BASIC[code - 40] });
    else if (code >= 90 && code < 98) set({ ink: BRIGHT[code - 90] });
    else if (code >= 100 && code < 108) set({ ground: BRIGHT[code - 100] });
    else if (code === 39) set({ ink: undefined });
    else if (code === 49) set({ ground: undefined });
    else if (code === 38 || code === 48) {
      const colour = colourOf(codes.splice(0, codes[0] === 2 ? 4 : 2));
      set(code === 38 ? { ink: colour } : { ground: colour });
    }
  }
  return now;
}

const escaped = (text) => text.replaceAll('&', '&amp;').replaceAll('<', '&lt;').replaceAll('⎿', '└'); // few fonts have it
const at = (value) => String(Math.round(value * 10) / 10);

/** One line of a pane: its pieces of one look, each at its own column, so that no font moves the next one. */
function drawnLine(line, row, begin) {
  let look = begin;
  let column = 0;
  const pieces = line.split(/\x1b\[([\d;]*)m/).map((part, index) => {
    if (index % 2 === 1) {
      look = restyled(look, part);
      return '';
    }
    const cells = [...part].length;
    const [x, y] = [column * CELL.width, row * CELL.height];
    column += cells;
    const [ink, ground] = look.isReverse
      ? [look.ground ?? GROUND, look.ink ?? INK]
      : [look.ink ?? INK, look.ground];
    const behind =
      ground && cells > 0
        ? `<rect x="${at(x)}" y="${at(y)}" width="${at(cells * CELL.width)}" height="${CELL.height}" fill="${ground}"/>`
        : '';
    const words = part.trimEnd();
    if (words === '') return behind;
    const lead = words.length - words.trimStart().length;
    const style = `${ink === INK ? '' : ` fill="${ink}"`}${look.isBold ? ' font-weight="bold"' : ''}${look.isDim ? ' opacity=".6"' : ''}`;
    const width = at(([...words].length - lead) * CELL.width);
    return `${behind}<text x="${at(x + lead * CELL.width)}" y="${at(y + 11)}" textLength="${width}"${style}>${escaped(words.trimStart())}</text>`;
  });
  return { text: pieces.join(''), look };
}

/** tmux tells a look when it changes, also from one line to the next. */
function drawnScreen(screen) {
  let look = {};
  const lines = screen.split('\n').slice(0, ROWS);
  return lines
    .map((line, row) => {
      const drawn = drawnLine(line.replace(/\x1b\[[\d;]*[^\d;m]/g, ''), row, look);
      look = drawn.look;
      return drawn.text;
    })
    .join('');
}

/** Pictures that stand for several frames in turn are drawn once for all of them. */
function drawing(frames) {
  const lengths = frames.map(({ at: begin }, index) =>
    index + 1 < frames.length ? Math.min(LONGEST_S, (frames[index + 1].at - begin) / 1000) : LAST_S,
  );
  const total = lengths.reduce((sum, length) => sum + length, 0);
  const starts = lengths.map((_, index) => lengths.slice(0, index).reduce((sum, length) => sum + length, 0));
  const width = Math.ceil(COLUMNS * CELL.width);
  const height = ROWS * CELL.height;
  const left = [GAP, width + 3 * GAP];
  const styles = [];
  const groups = [0, 1].flatMap((side) => {
    const runs = [];
    for (const [index, { screens }] of frames.entries())
      if (runs.at(-1)?.screen !== screens[side]) runs.push({ screen: screens[side], from: starts[index] });
    return runs.map(({ screen, from }, index) => {
      const name = `s${side}f${index}`;
      const share = (seconds) => `${at((seconds / total) * 1000) / 10}%`;
      const to = runs[index + 1]?.from ?? total;
      const before = from > 0 ? `0%{visibility:hidden}` : '';
      const after = to < total ? `${share(to)}{visibility:hidden}` : '';
      styles.push(
        `@keyframes ${name}{${before}${share(from)}{visibility:visible}${after}}.${name}{animation:${name} ${at(total)}s step-end infinite}`,
      );
      return `<g class="${name}" transform="translate(${left[side]} ${3 * GAP})">${drawnScreen(screen)}</g>`;
    });
  });
  const frame = (x, title) =>
    `<rect x="${x - GAP / 2}" y="${GAP / 2}" width="${width + GAP}" height="${height + 3 * GAP}" rx="8" fill="${GROUND}" stroke="#45444c"/><text x="${x}" y="${2 * GAP - 4}" fill="#b9b7bf">${title}</text>`;
  return `<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 ${2 * width + 4 * GAP} ${height + 4 * GAP}" font-family="ui-monospace,'DejaVu Sans Mono',Menlo,Consolas,monospace" font-size="12" fill="${INK}" xml:space="preserve">
<title>Claude Code asks in its pane, the question is a card in the panel, it is answered there, and Claude goes on</title>
<style>${styles.join('')}</style>
${frame(left[0], 'claude')}${frame(left[1], 'kelvadrome --terminal')}
${groups.join('\n')}
</svg>
`;
}
