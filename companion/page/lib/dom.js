/** An element: `h('button', {class: 'x', onclick: f}, 'text', child)`. Text is only ever text. */
export function h(name, attributes = {}, ...children) {
  const element = document.createElement(name);
  for (const [key, value] of Object.entries(attributes)) {
    if (value === undefined || value === null || value === false) continue;
    if (key.startsWith('on')) element.addEventListener(key.slice(2), value);
    else element.setAttribute(key, value === true ? '' : value);
  }
  element.append(
    ...children.flat(3).filter((child) => child !== null && child !== undefined && child !== false),
  );
  return element;
}

/** Words that a person or an agent wrote: they bring their own direction. */
export const said = (text, name = 'bdi', attributes = {}) => h(name, { dir: 'auto', ...attributes }, text);

/**
 * Makes `elements` the children of `parent`, in this order, without ever moving the one that holds the focus: moving
 * it would take the caret, the selection and a half-composed character away.
 */
export function place(parent, elements) {
  const kept = new Set(elements);
  for (const child of [...parent.children]) if (!kept.has(child)) child.remove();
  const pivot = elements.findIndex((element) => element.contains(document.activeElement));
  const from = Math.max(pivot, 0);
  if (elements.length > 0 && elements[from].parentNode !== parent) parent.append(elements[from]);
  for (let i = from - 1; i >= 0; i--)
    if (elements[i].nextElementSibling !== elements[i + 1] || elements[i].parentNode !== parent)
      parent.insertBefore(elements[i], elements[i + 1]);
  for (let i = from + 1; i < elements.length; i++)
    if (elements[i - 1].nextElementSibling !== elements[i])
      parent.insertBefore(elements[i], elements[i - 1].nextElementSibling);
}

/** Rows that stay the same elements as long as they say the same, so that focus and selection survive a refresh. */
export class Rows {
  #rows = new Map();

  constructor(element, make) {
    this.element = element;
    this.make = make;
  }

  /** `items` are [key, what it shows] pairs. */
  update(items) {
    const lost = this.element.contains(document.activeElement)
      ? [...this.#rows].find(([, row]) => row.element.contains(document.activeElement))?.[0]
      : undefined;
    const next = new Map();
    for (const [key, value] of items) {
      const shown = JSON.stringify(value);
      const old = this.#rows.get(key);
      next.set(key, old?.shown === shown ? old : { shown, element: this.make(value) });
    }
    this.#rows = next;
    place(
      this.element,
      [...next.values()].map((row) => row.element),
    );
    if (lost !== undefined && !this.element.contains(document.activeElement))
      next.get(lost)?.element.querySelector('a, button')?.focus();
  }
}

/** Rebuilds the content of `element` only when what it shows has changed. */
export function showIn(element, value, build) {
  const shown = JSON.stringify(value);
  if (element.shown === shown) return false;
  element.shown = shown;
  element.replaceChildren(...[build(value)].flat(3).filter(Boolean));
  return true;
}
