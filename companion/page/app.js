// The page: which section shows, when it reads anew, and how it moves.
import { post } from './lib/api.js';
import { Stream } from './lib/stream.js';
import { growOlder } from './lib/words.js';
import { sectionOf } from './sections/index.js';
import { Chrome } from './page/chrome.js';
import { Finder } from './page/finder.js';
import { Banner, failure } from './page/banner.js';
import { Inspector } from './page/inspector.js';
import { listenToKeys } from './page/keys.js';
import { scope } from './page/scope.js';
import { isExpert, offerToShell, setMode, tellShell } from './page/shell.js';

const PAUSE_MS = 120;
const POLL_MS = 60_000; // for what no event told of; a stream that falls silent is noticed by itself
const AGE_MS = 30_000;

const root = document.documentElement;
const main = document.getElementById('main');
const first = new URLSearchParams(location.search);
let section = null;
let latest = null; // what the section showed last
let needsYou = 0;
let restoring = null;
let shown = null; // called once the section has been shown

const stream = new Stream({
  onEvent: (name, data) => {
    section?.onEvent?.(name, data);
    refreshSoon();
  },
  onState: (connection) => {
    banner.connection(connection);
    chrome.showConnection(connection.state);
    inspector.refresh();
  },
});
const banner = new Banner(() => stream.retry());
const finder = new Finder({ go });
const chrome = new Chrome({ finder });
const inspector = new Inspector({ connection: () => stream.state });

// A burst of events is read once: never two reads at a time, and a pause that grows with what a read costs.
let timer = null;
let reading = false;
let again = false;
let cost = 0;

/** Nobody sees a hidden window of the shell, nor its title: what it missed is read when it shows again. */
const rests = () => document.hidden && root.dataset.shell === 'native';

function refreshSoon() {
  if (reading || rests()) again = true;
  else timer ??= setTimeout(refresh, Math.max(PAUSE_MS, 2 * cost));
}

async function refresh() {
  clearTimeout(timer);
  timer = null;
  if (reading) {
    again = true;
    return;
  }
  reading = true;
  again = false;
  const began = performance.now();
  const mine = section;
  try {
    const data = await mine.load();
    if (mine === section) show(data);
    if (!('counts' in (data ?? {})))
      showCount((await post('/v1/inbox', { counts_only: true })).counts.needs_you);
  } catch (error) {
    // What a section has shown stays, with the words of the stream above it; one that has shown nothing says why.
    if (mine === section && latest === null) main.replaceChildren(failure(error, refresh));
  }
  cost = performance.now() - began;
  reading = false;
  if (again || mine !== section) refreshSoon();
}

function show(data) {
  if (latest === null) main.replaceChildren(section.element);
  latest = data;
  const told = section.update(data);
  if (told) showCount(told.needsYou);
  showTitle();
  inspector.refresh(new Map((data.cards ?? []).map((card) => [card.id, card])));
  if (restoring !== null) scrollTo(0, restoring);
  restoring = null;
  shown?.();
  shown = null;
}

function showCount(n) {
  needsYou = n;
  chrome.showCount(n);
  showTitle();
}

function showTitle() {
  document.title = `${needsYou > 0 ? `(${needsYou}) ` : ''}${section.title} – kelvadrome`;
}

function addressOf(route) {
  try {
    return new URL(route, location.origin);
  } catch {
    return null;
  }
}

/** The address with what holds on every section, so that a reload finds the page as it was. */
function kept(url) {
  const now = {
    shell: first.get('shell'),
    scope: scope.name === 'all' ? null : scope.name,
    mode: isExpert() ? 'expert' : null,
  };
  for (const [name, value] of Object.entries(now)) {
    if (value === null) url.searchParams.delete(name);
    else url.searchParams.set(name, value);
  }
  return url;
}

function keep() {
  const { href } = kept(new URL(location));
  if (href !== location.href) history.replaceState(history.state, '', href);
}

/**
 * Shows a route of this page ("/topics", "/?card=..."). False when there is no such section. `record` is "replace" when
 * the way back leads past what shows now; `then` is called once the route shows.
 */
function go(route, { record = true, focus = true, then = null } = {}) {
  const url = addressOf(route);
  const found = url?.origin === location.origin ? sectionOf(url.pathname) : null;
  if (!found) return false;
  if (record === 'replace') history.replaceState(history.state, '', kept(url));
  else if (record) {
    history.replaceState({ scroll: scrollY }, '');
    history.pushState(null, '', kept(url));
  } else keep();
  root.dataset.section = found.name || 'inbox';
  shown = then;
  if (!(section instanceof found.Section && section.follow?.(url.searchParams))) {
    section = new found.Section(url.searchParams, found.id, { reload: refresh, go, finder });
    latest = null;
  }
  chrome.showRoute(url.pathname);
  finder.at(url.pathname, url.searchParams);
  tellShell({ type: 'route', route: url.pathname });
  showTitle();
  restoring = record ? 0 : (history.state?.scroll ?? null);
  if (focus) main.focus({ preventScroll: true });
  refresh();
  return true;
}

document.addEventListener('visibilitychange', () => {
  if (again) refreshSoon();
});
document.addEventListener('click', (event) => {
  const link = event.target.closest('a');
  if (
    !link ||
    event.defaultPrevented ||
    event.ctrlKey ||
    event.metaKey ||
    event.shiftKey ||
    link.origin !== location.origin ||
    link.hash
  )
    return;
  if (go(link.pathname + link.search)) event.preventDefault();
});
addEventListener('popstate', () => go(location.pathname + location.search, { record: false }));
addEventListener('kd-setup', () => showSetup());
addEventListener('kd-mode', keep);
scope.onChange = () => {
  keep();
  if (latest) show(latest);
};

/** The line that leads back to a setup that was not finished; the shell has one of its own. */
function showSetup() {
  post('/v1/onboarding/status').then(
    (status) => {
      chrome.setup.hidden = status.completed !== false;
    },
    () => {},
  );
}

history.scrollRestoration = 'manual';
scope.set(first.get('scope') ?? 'all');
offerToShell({ go, section: () => section });
listenToKeys({ finder });
go(location.pathname + location.search, { record: false, focus: false });
stream.open();
setInterval(refreshSoon, POLL_MS);
setInterval(() => growOlder(), AGE_MS);
showSetup();
setMode(root.dataset.mode);
tellShell({ type: 'ready' });
