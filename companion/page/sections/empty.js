import { h } from '../lib/dom.js';
import { icon } from '../lib/icons.js';

/** A place that holds nothing yet, and what would bring something here. */
export const nothing = (symbol, title, ...words) =>
  h('div', { class: 'empty' }, icon(symbol), h('p', { class: 'strong' }, title), h('p', {}, words));
