// What is wrong with the page as it stands on the screen; run in the browser.

/**
 * {faults, least}: words and marks that stand out too little, controls without a name or out of the window; and the
 * least contrast of any word. `text` and `mark` are the ratios that are asked for.
 */
export function faultsOf({ text: leastText, mark: leastMark }) {
  const rgba = (words) => {
    const [r, g, b, a = 1] = (words.match(/[\d.]+/g) ?? [0, 0, 0, 0]).map(Number);
    return [r, g, b, a];
  };
  const over = ([r, g, b, a], back) => [r, g, b].map((c, i) => c * a + back[i] * (1 - a));
  const luminance = (colour) =>
    colour
      .map((c) => (c / 255 <= 0.03928 ? c / 255 / 12.92 : ((c / 255 + 0.055) / 1.055) ** 2.4))
      .reduce((sum, c, i) => sum + c * [0.2126, 0.7152, 0.0722][i], 0);
  const contrast = (one, other) => {
    const [high, low] = [luminance(one), luminance(other)].sort((a, b) => b - a);
    return (high + 0.05) / (low + 0.05);
  };
  const chain = (element) => (element ? [...chain(element.parentElement), element] : []);
  /** The colour behind the content of an element: what its ancestors and itself paint, one over the other. */
  const ground = (element) =>
    chain(element).reduce(
      (back, e) => over(rgba(getComputedStyle(e).backgroundColor), back),
      [255, 255, 255],
    );
  const opacity = (element) => chain(element).reduce((all, e) => all * getComputedStyle(e).opacity, 1);
  const ratio = (colour, element, back = ground(element)) => {
    const [r, g, b, a] = rgba(colour);
    return contrast(over([r, g, b, a * opacity(element)], back), back);
  };
  const skipped = (element) =>
    !element.checkVisibility() || element.closest('.unseen, .skip, noscript, option');
  const found = [];
  let least = 21;
  const look = (colour, element, what) => {
    const seen = ratio(colour, element);
    least = Math.min(least, seen);
    if (seen < leastText) found.push(`${element.className || element.tagName}: ${what}: ${seen.toFixed(2)}`);
  };
  const walk = document.createTreeWalker(document.body, NodeFilter.SHOW_TEXT);
  while (walk.nextNode()) {
    const element = walk.currentNode.parentElement;
    if (walk.currentNode.data.trim() && !skipped(element))
      look(getComputedStyle(element).color, element, walk.currentNode.data.trim());
  }
  for (const field of document.querySelectorAll('input, textarea, select')) {
    if (skipped(field) || field.type === 'checkbox') continue;
    look(getComputedStyle(field).color, field, 'what is typed');
    look(getComputedStyle(field, '::placeholder').color, field, 'placeholder');
    const edge = ratio(getComputedStyle(field).borderTopColor, field, ground(field.parentElement));
    if (edge < leastMark) found.push(`the edge of ${field.outerHTML.slice(0, 60)}: ${edge.toFixed(2)}`);
  }
  for (const mark of document.querySelectorAll('.lamp, .dot, .icon')) {
    if (skipped(mark)) continue;
    const style = getComputedStyle(mark);
    const colour = mark.matches('.icon')
      ? style.color
      : mark.matches('.dot')
        ? style.backgroundColor
        : style.borderTopColor;
    const seen = ratio(colour, mark, ground(mark.parentElement));
    if (seen < leastMark) found.push(`mark ${mark.getAttribute('class')}: ${seen.toFixed(2)}`);
  }
  for (const control of document.querySelectorAll('button, a, input, textarea, select'))
    if (
      control.checkVisibility() &&
      !(control.textContent.trim() || control.labels?.length || control.getAttribute('aria-label'))
    )
      found.push(control.outerHTML);
  for (const card of document.querySelectorAll('main article'))
    if (!document.getElementById(card.getAttribute('aria-labelledby'))?.matches('h2'))
      found.push(`${card.id} has no heading`);
  if (document.documentElement.scrollWidth > innerWidth)
    found.push(`${document.documentElement.scrollWidth} px wide`);
  return { faults: found, least };
}
