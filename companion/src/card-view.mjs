// A card as it stands in the store, and as it goes on the wire.
import { iso } from './clock.mjs';
import { SHELL, agentName } from '../shared/agents.js';

const JSON_COLUMNS = ['options', 'rows', 'refs', 'live', 'screen', 'answer', 'unsure'];

export function fromRow(row) {
  for (const name of JSON_COLUMNS) row[name] = row[name] === null ? null : JSON.parse(row[name]);
  row.menu = row.menu === 1;
  row.blocking = row.blocking === 1;
  return row;
}

/** An open card whose agent has ended is "gone": it can be dismissed, no longer answered. */
export const stateOf = (card) => (card.state === 'open' && card.gone_ms !== null ? 'gone' : card.state);

/** What a receipt names of a card: `by` is where the answer was pressed, or who else did what it tells of. */
export const about = (card, by = card.pressed_in) => ({
  topic: card.topic,
  card_id: card.id,
  agent: card.agent,
  by,
});

/** What has to be said of the way that an answer to this card takes; null when it is the usual one. */
function noteOf({ agent, delivery, refs }, { whyNot, isKept }) {
  if (whyNot !== null) return whyNot;
  const asker = agent === SHELL ? 'Whoever asked from a shell' : agentName(agent);
  if (isKept && delivery === 'wait')
    return `${asker} no longer waits, and nothing can be typed there. Your answer is kept until “kd wait” fetches it.`;
  if (isKept && agent === SHELL)
    return 'Asked from a shell, where nothing can be typed. Your answer is kept until “kd wait” fetches it.';
  if (isKept) return `Nothing can be typed there. Your answer is kept until ${asker} fetches it.`;
  if (delivery === 'wait' && refs?.waits_s)
    return `${asker} waits ${refs.waits_s} s for this, then asks in its terminal.`;
  if (agent === SHELL && delivery === 'wait') return 'Asked from a shell. Your answer is printed there.';
  return null;
}

/**
 * As it goes on the wire; absent fields are left out. `way` is how an answer to it would go: `whyNot` says why none can,
 * null when one can, and `isKept` that it waits to be fetched. The names are those of the session that asks. After an
 * answer that may have been typed nothing is suggested any more.
 */
export function viewOf(card, way, { callsign, label }) {
  const suggests = card.unsure === null;
  const rows = suggests ? card.rows : (card.rows?.map(({ default: _, ...row }) => row) ?? null);
  const fields = {
    id: card.id,
    version: card.version,
    kind: card.kind,
    risk: card.risk,
    state: stateOf(card),
    topic: card.topic,
    agent: card.agent,
    session_id: card.session_id,
    label,
    callsign,
    folder: card.live?.cwd ?? null,
    pane: card.live?.host_ref ?? null,
    stop_type: card.stop_type,
    title: card.title,
    body: card.body,
    options: card.options,
    default: suggests ? card.default_answer : null,
    blocking: card.blocking,
    rows,
    opened_at: iso(card.opened_ms),
    held_until: card.state === 'held' ? iso(card.held_until_ms) : null,
    snoozed_until: card.snoozed_until_ms === null ? null : iso(card.snoozed_until_ms),
    refs: card.refs,
    menu: card.menu,
    delivery_note: noteOf(card, way),
    answerable: way.whyNot === null ? null : false,
    kept: way.isKept ? true : null,
    maybe_typed: suggests ? null : true,
    screen: card.screen,
    answer: card.answer,
    outcome: card.outcome,
    closed_at: card.closed_ms === null ? null : iso(card.closed_ms),
  };
  return Object.fromEntries(Object.entries(fields).filter(([, value]) => value !== null));
}
