// Search as one types: the fields, and the way into the search section and out of it again.
import { ACTIONS } from '/shared/words.js';
import { h } from '../lib/dom.js';

const TYPING_MS = 150;
const routeOf = (words) => (words ? `/search?q=${encodeURIComponent(words)}` : '/search');

export class Finder {
  #fields = [];
  #timer = null;
  #cameFromPage = false;
  #here = '/';

  constructor({ go }) {
    this.go = go;
  }

  /** A search field. All of them hold the same words. */
  field() {
    const field = h('input', {
      type: 'search',
      name: 'q',
      'aria-label': ACTIONS.search.word,
      'aria-keyshortcuts': ACTIONS.search.key,
      placeholder: ACTIONS.search.word,
      autocomplete: 'off',
      maxlength: '200',
      dir: 'auto',
      oninput: () => {
        clearTimeout(this.#timer);
        this.#timer = setTimeout(() => this.#find(field.value.trim()), TYPING_MS);
      },
      onkeydown: (event) => {
        if (event.key === 'Enter' && !event.isComposing) {
          event.preventDefault();
          this.#find(field.value.trim());
        }
      },
    });
    this.#fields = [...this.#fields.filter((one) => one.isConnected), field];
    return field;
  }

  #find(words) {
    clearTimeout(this.#timer);
    if (this.#here === '/search') return this.go(routeOf(words), { record: 'replace', focus: false });
    if (words === '') return false;
    this.#cameFromPage = true;
    return this.go(routeOf(words), { focus: false });
  }

  /** Puts the caret into the field that can be seen; where there is none, the search section has one. */
  start() {
    const seen = () => this.#fields.find((field) => field.offsetParent !== null);
    if (!seen()) {
      this.#cameFromPage = true;
      this.go('/search', { focus: false, then: () => seen()?.focus() });
    }
    seen()?.focus();
  }

  /** Leaves the search for what was there before it. False when there is none to leave. */
  leave() {
    if (this.#here !== '/search') return false;
    clearTimeout(this.#timer);
    if (this.#cameFromPage) history.back();
    else this.go('/');
    return true;
  }

  /** The page shows another route now. */
  at(path, query) {
    clearTimeout(this.#timer);
    this.#here = path;
    if (path !== '/search') this.#cameFromPage = false;
    const words = path === '/search' ? (query.get('q') ?? '') : '';
    for (const field of this.#fields)
      if (field !== document.activeElement || path !== '/search') field.value = words;
  }
}
