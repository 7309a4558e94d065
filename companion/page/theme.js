// Runs before the first paint: the theme and the shell that this page stands in. No module, so that nothing flashes.
(() => {
  const root = document.documentElement;
  const dark = matchMedia('(prefers-color-scheme: dark)');
  let wanted = 'system';
  const apply = () => {
    root.dataset.theme = wanted === 'system' ? (dark.matches ? 'dark' : 'light') : wanted;
  };
  dark.addEventListener('change', apply);
  // A browser says itself that more contrast is wanted; the shell sets it.
  const contrast = matchMedia('(prefers-contrast: more)');
  const follow = () => {
    root.dataset.contrast = contrast.matches ? 'more' : '';
  };
  contrast.addEventListener('change', follow);
  follow();
  /** "light", "dark", or anything else for what the system wants. */
  window.kelvadromeTheme = (name) => {
    wanted = name === 'light' || name === 'dark' ? name : 'system';
    apply();
  };
  apply();

  const query = new URLSearchParams(location.search);
  if (query.get('shell') === 'native' || navigator.userAgent.includes('KelvadromeShell/'))
    root.dataset.shell = 'native';
  root.dataset.mode = query.get('mode') === 'expert' ? 'expert' : 'simple';
})();
