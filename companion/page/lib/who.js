// Who asks, and what tells them from others of the same name.
import { askerOf } from '/shared/agents.js';

const lastPart = (path) => path?.replace(/\/+$/, '').split('/').at(-1);

/** Where an agent runs, by its terminal: "tmux %3", "pts/4"; empty when nothing is known. */
const terminalOf = ({ host, tty, pane }) =>
  [host === 'unknown' ? null : host, pane ?? tty].filter(Boolean).join(' ');

/** `who` is a card, a receipt or a session. */
export const nameOf = askerOf;

/** Callsign, folder and pane, as far as they are known and not said yet by `without`, a topic. */
export function placeOf(who, without) {
  const folder = lastPart(who.folder);
  return [who.callsign, folder === without ? null : folder, terminalOf(who)].filter(Boolean).join(' · ');
}

export const keyOf = ({ agent, session_id: id }) => `${agent} ${id}`;
