// The page: which section shows, when it reads anew, and how it moves.
import { listen } from './api.js';
import { h } from './dom.js';
import { NAVIGATION, sectionOf } from './sections.js';
import { offerToShell, tellShell } from './shell.js';

const REFRESH_PAUSE_MS = 120;
const POLL_MS = 20_000;
const KEPT = ['shell', 'scope', 'mode'];

const main = document.getElementById('main');
const banner = document.getElementById('banner');
const first = new URLSearchParams(location.search);
if (first.get('shell') === 'native') document.documentElement.dataset.shell = 'native';
document.documentElement.dataset.mode = first.get('mode') === 'expert' ? 'expert' : 'simple';

let generation = 0;
let focusCard = null;

function notice(words) {
  banner.textContent = words ?? '';
  banner.hidden = !words;
}

function showNavigation() {
  const here = `/${location.pathname.split('/')[1]}`;
  document.getElementById('nav').replaceChildren(...NAVIGATION.map(([path, name]) => h('a', { href: path, 'aria-current': path === here ? 'page' : null }, name)));
}

/** Reads what the section needs and shows it; a result that was overtaken by a later one is dropped. */
async function refresh() {
  const mine = ++generation;
  const query = new URLSearchParams(location.search);
  const path = location.pathname;
  try {
    const section = sectionOf(path);
    const data = await section.load(path, query);
    if (mine !== generation) return;
    place(section.show(data, path, query).flat().filter(Boolean));
    notice(null);
    focusWanted();
  } catch (error) {
    if (mine !== generation) return;
    notice(error.code === 'unauthorized' ? 'This page session has ended. Open the page from Kelvadrome again.' : error.message);
  }
}

/** Puts the elements into the page without moving those that are there already, so that focus and typed words stay. */
function place(elements) {
  const kept = new Set(elements);
  for (const child of [...main.childNodes]) if (!kept.has(child)) child.remove();
  elements.forEach((element, index) => {
    if (main.children[index] !== element) main.insertBefore(element, main.children[index] ?? null);
  });
}

function focusWanted() {
  const card = focusCard && document.getElementById(focusCard);
  if (!card) return;
  focusCard = null;
  card.scrollIntoView({ block: 'center' });
  card.focus();
}

let timer = null;
const refreshSoon = () => { timer ??= setTimeout(() => { timer = null; refresh(); }, REFRESH_PAUSE_MS); };

/** Shows a route of this page ("/topics", "/?card=..."). False when there is no such section. */
function go(route, { record = true } = {}) {
  const url = new URL(route, location.origin);
  if (url.origin !== location.origin || !sectionOf(url.pathname)) return false;
  focusCard = url.searchParams.get('card');
  for (const name of KEPT) if (first.has(name) && !url.searchParams.has(name)) url.searchParams.set(name, first.get(name));
  if (record) history.pushState(null, '', url);
  showNavigation();
  tellShell({ type: 'route', route: url.pathname });
  refresh();
  return true;
}

document.addEventListener('click', (event) => {
  const link = event.target.closest('a');
  if (!link || event.ctrlKey || event.metaKey || event.shiftKey || link.origin !== location.origin) return;
  if (go(link.pathname + link.search)) event.preventDefault();
});
document.getElementById('search').addEventListener('submit', (event) => {
  event.preventDefault();
  go(`/search?q=${encodeURIComponent(new FormData(event.target).get('q'))}`);
});
window.addEventListener('popstate', () => go(location.pathname + location.search, { record: false }));

offerToShell({ go, notice });
listen(refreshSoon, (open) => { if (!open) refreshSoon(); });
setInterval(refreshSoon, POLL_MS);
go(location.pathname + location.search, { record: false });
tellShell({ type: 'ready' });
