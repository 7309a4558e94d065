// The few symbolic icons, drawn on a grid of 16 in the colour of the text around them. Each stands beside words.
const SVG = 'http://www.w3.org/2000/svg';
const PATHS = {
  inbox:
    'M2.5 9.5v3a1 1 0 0 0 1 1h9a1 1 0 0 0 1-1v-3M2.5 9.5l2-6.2a1 1 0 0 1 1-.8h5a1 1 0 0 1 1 .8l2 6.2M2.5 9.5h3.2l.8 1.5h3l.8-1.5h3.2',
  topics: 'M2.5 4.5v7a1 1 0 0 0 1 1h9a1 1 0 0 0 1-1v-6a1 1 0 0 0-1-1H8L6.5 3h-3a1 1 0 0 0-1 1z',
  handoffs: 'M2.5 5.5h9M9 3l2.5 2.5L9 8M13.5 10.5h-9M7 8l-2.5 2.5L7 13',
  skills: 'M9.5 2 4 9h3.5L6.5 14 12 7H8.5z',
  receipts: 'M4 2.5h8v11l-2-1.2-2 1.2-2-1.2-2 1.2zM6 5.5h4M6 8.5h4',
  agents:
    'M3 3.5h10a1 1 0 0 1 1 1v7a1 1 0 0 1-1 1H3a1 1 0 0 1-1-1v-7a1 1 0 0 1 1-1zM4.5 6.5 6.5 8l-2 1.5M8 10h3',
  autopilot: 'M8 2.5a5.5 5.5 0 1 0 0 11 5.5 5.5 0 0 0 0-11zM8 5v3l2 1.5',
  search: 'M7 2.5a4.5 4.5 0 1 0 0 9 4.5 4.5 0 0 0 0-9zM10.3 10.3l3.2 3.2',
  check: 'M3 8.5 6.5 12 13 4.5',
  warning: 'M8 2.5 14 13H2zM8 6.5v3M8 11.2v.3',
  undo: 'M3 6.5h6.5a3.5 3.5 0 0 1 0 7H6M3 6.5l3-3M3 6.5l3 3',
  folder: 'M2.5 4.5v7a1 1 0 0 0 1 1h9a1 1 0 0 0 1-1v-6a1 1 0 0 0-1-1H8L6.5 3h-3a1 1 0 0 0-1 1z',
  back: 'M10 3 5 8l5 5',
  send: 'M8 13V3M4 7l4-4 4 4',
  copy: 'M5.5 5.5h7v8h-7zM3.5 10.5v-8h7',
  away: 'M3 3l10 10M5 6.3A6 6 0 0 0 3.5 7.5M8 5.5c1.7 0 3.3.7 4.5 2M6.3 9.5A3 3 0 0 1 8 9M8 12v.2',
  snooze: 'M8 3.5a5 5 0 1 0 0 10 5 5 0 0 0 0-10zM8 6v2.5l1.7 1M3 4.5 5 2.8M13 4.5l-2-1.7',
  help: 'M8 2.5a5.5 5.5 0 1 0 0 11 5.5 5.5 0 0 0 0-11zM6.5 6.5a1.5 1.5 0 1 1 2 1.4c-.4.2-.5.5-.5 1M8 11v.2',
};

export function icon(name) {
  const svg = document.createElementNS(SVG, 'svg');
  for (const [key, value] of Object.entries({ viewBox: '0 0 16 16', 'aria-hidden': 'true', class: 'icon' }))
    svg.setAttribute(key, value);
  const path = document.createElementNS(SVG, 'path');
  path.setAttribute('d', PATHS[name]);
  svg.append(path);
  return svg;
}
