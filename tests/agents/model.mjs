// What stands in for the models behind the real agents: the last word of what the user typed says what the "model" does
// next, and after a tool it says what came of it. Just enough of the Messages API (Claude Code) and of the
// Responses API (Codex) for that.
import http from 'node:http';

const choice = (question, header, multiSelect, labels) => ({
  question,
  header,
  multiSelect,
  options: labels.map((label) => ({ label, description: `Take ${label}` })),
});

/** The word, and the tool call that it stands for. `count` makes each call's file another one. */
const TOOLS = {
  RUN: (count) => ['Bash', { command: `touch made-${count}`, description: 'Make a file' }],
  WRITE: (count, cwd) => ['Write', { file_path: `${cwd}/hello-${count}.txt`, content: 'one\ntwo\n' }],
  ASK: () => [
    'AskUserQuestion',
    { questions: [choice('Which database?', 'Database', false, ['PostgreSQL', 'SQLite', 'DuckDB'])] },
  ],
  CHOOSE: () => [
    'AskUserQuestion',
    {
      questions: [
        choice('Which systems?', 'Systems', true, ['Linux', 'macOS', 'Windows']),
        choice('Which name?', 'Name', false, ['kite', 'kelvin']),
      ],
    },
  ],
  PLAN: () => ['ExitPlanMode', { plan: '# The plan\n\n1. Write it\n2. Test it' }],
};
const wordIn = (text) => /Please ([A-Z]+)\s*$/.exec(text.trim())?.[1];

function send(res, events) {
  res.writeHead(200, { 'content-type': 'text/event-stream' });
  res.end(events.map((event) => `event: ${event.type}\ndata: ${JSON.stringify(event)}\n\n`).join(''));
}

function sendMessage(res, block, count) {
  const isText = block.type === 'text';
  const usage = { input_tokens: 1, output_tokens: 1 };
  const message = {
    id: `msg_${count}`,
    type: 'message',
    role: 'assistant',
    model: 'stand-in',
    content: [],
    usage,
  };
  const delta = isText
    ? { type: 'text_delta', text: block.text }
    : { type: 'input_json_delta', partial_json: JSON.stringify(block.input) };
  send(res, [
    { type: 'message_start', message },
    {
      type: 'content_block_start',
      index: 0,
      content_block: isText ? { ...block, text: '' } : { ...block, input: {} },
    },
    { type: 'content_block_delta', index: 0, delta },
    { type: 'content_block_stop', index: 0 },
    {
      type: 'message_delta',
      delta: { stop_reason: isText ? 'end_turn' : 'tool_use', stop_sequence: null },
      usage,
    },
    { type: 'message_stop' },
  ]);
}

/** What the last message of the user says: texts and tools' results, without what the agent itself puts in. */
function lastOfUser({ messages }) {
  const { content } = messages.findLast(({ role }) => role === 'user');
  const parts = typeof content === 'string' ? [{ type: 'text', text: content }] : content;
  return parts.filter(
    ({ type, text }) => type === 'tool_result' || (type === 'text' && !text.startsWith('<')),
  );
}

const textOf = ({ content }) =>
  typeof content === 'string' ? content : content.map(({ text }) => text ?? '').join('\n');

function claude(res, body, count, cwd) {
  const say = (text) => sendMessage(res, { type: 'text', text }, count);
  if (!body.tools?.length) return say('{"title":"Stand-in","isNewTopic":true}');
  const parts = lastOfUser(body);
  const result = parts.find(({ type }) => type === 'tool_result');
  if (result) return say(`Understood: ${textOf(result).slice(0, 300)}`);
  const tool = TOOLS[wordIn(parts.map(({ text }) => text).join('\n'))];
  if (tool === undefined) return say('Hello from the stand-in.');
  const [name, input] = tool(count, cwd);
  return sendMessage(res, { type: 'tool_use', id: `toolu_${count}`, name, input }, count);
}

function codex(res, body, count) {
  const last = body.input?.at(-1);
  const usage = { input_tokens: 1, output_tokens: 1, total_tokens: 2 };
  const give = (item) =>
    send(res, [
      { type: 'response.created', response: { id: `resp_${count}` } },
      { type: 'response.output_item.done', item },
      {
        type: 'response.completed',
        response: {
          id: `resp_${count}`,
          usage: { ...usage, input_tokens_details: null, output_tokens_details: null },
        },
      },
    ]);
  const say = (text) =>
    give({ type: 'message', role: 'assistant', id: `m${count}`, content: [{ type: 'output_text', text }] });
  if (last?.type === 'function_call_output') return say(`Understood: ${String(last.output).slice(0, 300)}`);
  const text = (last?.content ?? []).map((part) => part.text ?? '').join('\n');
  const shell = body.tools?.find(({ name }) => name === 'exec_command')?.name;
  if (!shell || wordIn(text) !== 'RUN') return say('Hello from the stand-in.');
  const input = {
    cmd: `touch made-${count}`,
    sandbox_permissions: 'require_escalated',
    justification: 'Need to make a file',
  };
  return give({
    type: 'function_call',
    id: `fc${count}`,
    call_id: `call_${count}`,
    name: shell,
    arguments: JSON.stringify(input),
  });
}

/** Listens on a free port of this machine; `cwd` is where the files are that the "model" writes. Gives {port, close}. */
export async function startModel(cwd) {
  let count = 0;
  const server = http.createServer(async (req, res) => {
    let text = '';
    for await (const piece of req.setEncoding('utf8')) text += piece;
    const json = (status, body) => {
      res.writeHead(status, { 'content-type': 'application/json' });
      res.end(JSON.stringify(body));
    };
    if (req.url.startsWith('/v1/messages/count_tokens')) return json(200, { input_tokens: 10 });
    if (req.url.startsWith('/v1/messages')) return claude(res, JSON.parse(text), ++count, cwd);
    if (req.url.startsWith('/v1/responses')) return codex(res, JSON.parse(text), ++count);
    return json(404, { error: { type: 'not_found_error', message: 'not offered' } });
  });
  await new Promise((done) => server.listen(0, '127.0.0.1', done));
  return { port: server.address().port, close: () => server.close() };
}
