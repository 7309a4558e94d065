import { EXIT } from './client.mjs';
import { YOUR_REQUEST, agentName } from '../../shared/agents.js';

const SAMPLE_MS = 15_000;
const print = (lines) => process.stdout.write(lines.map((line) => `${line}\n`).join(''));

function cardLines(card) {
  const marks = [
    card.state === 'open' ? null : card.state,
    card.risk === 'low' ? null : `${card.risk} risk`,
    card.snoozed_until ? 'put off' : null,
    card.topic,
  ].filter(Boolean);
  const lines = [
    `${card.id}  ${card.request ? YOUR_REQUEST : agentName(card.agent)}: ${card.title}${marks.length ? `  (${marks.join(', ')})` : ''}`,
  ];
  for (const [index, option] of card.options.entries())
    lines.push(`    ${index + 1}. ${option}${option === card.default ? '  (suggested)' : ''}`);
  for (const row of card.rows ?? [])
    lines.push(`    ${row.question_id}: ${row.text}${row.default === undefined ? '' : `  [${row.default}]`}`);
  if (card.refs.last_attempt) lines.push(`    ${card.refs.last_attempt}`);
  if (card.delivery_note) lines.push(`    ${card.delivery_note}`);
  if (card.refs.last_refusal) lines.push(`    not delivered: ${card.refs.last_refusal}`);
  return lines;
}

export async function inbox({ values, client }) {
  const { cards } = await client.call('/v1/cards/list', {});
  if (values.json) print([JSON.stringify(cards)]);
  else print(cards.length ? cards.flatMap(cardLines) : ['Nothing needs you.']);
  return EXIT.ok;
}

export async function sessions({ values, client }) {
  const { sessions: rows } = await client.call('/v1/agents/status', {});
  if (values.json) print([JSON.stringify(rows)]);
  else
    print(
      rows.length
        ? rows.map((row) =>
            [
              row.callsign.padEnd(8),
              agentName(row.agent).padEnd(13),
              row.status.padEnd(11),
              row.tty ?? '-',
              row.pane ?? '-',
              row.topic_title ?? row.folder ?? '',
              row.doing ?? '',
            ]
              .join('  ')
              .trimEnd(),
          )
        : ['No agents.'],
    );
  return EXIT.ok;
}

/** Has the sample agent ask its question. */
export async function sample({ values, client }) {
  const reply = await client.call('/v1/onboarding/sample', {}, SAMPLE_MS);
  print(values.json ? [JSON.stringify(reply)] : [reply.card_id, reply.note]);
  return EXIT.ok;
}

/** For the daemon's own tests; any other daemon refuses it. A JSON object answers a batch. */
export async function answer({ values, positionals, client }) {
  const [cardId, given] = positionals;
  const { cards } = await client.call('/v1/cards/list', {});
  const version = cards.find((card) => card.id === cardId)?.version ?? 0;
  const reply = await client.call('/v1/cards/answer', {
    card_id: cardId,
    version,
    answer: given.startsWith('{') ? JSON.parse(given) : given,
  });
  print([values.json ? JSON.stringify(reply) : reply.receipt.line]);
  return EXIT.ok;
}
