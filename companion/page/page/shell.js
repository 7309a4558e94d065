// The other side of the native shell's bridge. In a plain browser none of it is there, and nothing is sent.
import { scope } from './scope.js';

const handler = () => window.webkit?.messageHandlers?.kelvadrome;
export const inShell = () => handler() !== undefined;

export function tellShell(message) {
  handler()?.postMessage(message);
}

/** Switches between the simple and the expert page; `fromPage` when the user pressed it here, so that the shell follows. */
export function setMode(mode, { fromPage = false } = {}) {
  if (mode !== 'simple' && mode !== 'expert') return false;
  document.documentElement.dataset.mode = mode;
  if (fromPage) tellShell({ type: 'mode', mode });
  dispatchEvent(new Event('kd-mode'));
  return true;
}
export const isExpert = () => document.documentElement.dataset.mode === 'expert';

/** The shell may send a word as it stands or as JSON text. */
function word(value) {
  try {
    const parsed = JSON.parse(value);
    return typeof parsed === 'string' ? parsed : value;
  } catch {
    return value;
  }
}

/**
 * Offers `window.kelvadrome`. `go(route)` shows a route of the page and gives whether there is one. Every call gives
 * whether the page did it; for false the shell loads the address anew.
 */
export function offerToShell({ go, section }) {
  window.kelvadrome = {
    navigate: (path) => go(path),
    search: (query) => go(`/search?q=${encodeURIComponent(query)}`),
    setTheme: (name) => {
      window.kelvadromeTheme(word(name));
      return true;
    },
    setScope: (name) => scope.set(word(name)),
    setMode: (mode) => setMode(word(mode)),
    folderChosen: (path) => {
      if (section()?.folderChosen) section().folderChosen(path);
      else go(`/onboarding?folder=${encodeURIComponent(path)}`);
      return true;
    },
    terminalAccess: (access) => {
      section()?.showAccess?.(access);
      return true;
    },
  };
}
