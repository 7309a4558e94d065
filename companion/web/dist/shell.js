// The other side of the native shell's bridge. In a plain browser none of it is there, and nothing is sent.

export function tellShell(message) {
  window.webkit?.messageHandlers?.kelvadrome?.postMessage(message);
}

/** Offers `window.kelvadrome`. `go(route)` shows a route of the page and gives whether there is one; `notice(words)` shows a line. */
export function offerToShell({ go, notice }) {
  const root = document.documentElement;
  window.kelvadrome = {
    navigate: (path) => go(path),
    search: (query) => go(`/search?q=${encodeURIComponent(query)}`),
    setTheme: (theme) => {
      if (theme === 'dark' || theme === 'light') root.dataset.theme = theme;
      else delete root.dataset.theme;
      return true;
    },
    // Nothing here belongs to a scope, so every scope shows everything.
    setScope: () => true,
    setMode: (mode) => {
      root.dataset.mode = mode === 'expert' ? 'expert' : 'simple';
      return true;
    },
    folderChosen: (path) => notice(`kelvadromed cannot use a folder yet. You chose ${path}.`),
  };
}
