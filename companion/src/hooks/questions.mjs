// From an agent's hook message to the questions that a person is asked, and from their answers to what the hook prints.
// Pure. Fields and tools that are not known are shown as they are, never guessed at.
import { relative } from 'node:path';
import { oneLine, paragraphs, whyNotTypable, within } from '../../shared/text.js';
import { riskOf } from './risk.mjs';

const TITLE = 160;
const BODY = 18_000; // the daemon takes 20,000

const YES = 'Yes';
const NO = 'No';
const isYes = (text) => /^(y|yes|ja|true|x|1)$/i.test(text);
const isNo = (text) => /^(n|no|nein|false|0|-)$/i.test(text);

/** Whether an answer to a permission gives it or denies it, in our own words or in those of an agent's menu. */
export const isConsent = (answer) => isYes(answer) || answer.startsWith(YES);
export const isRefusal = (answer) => isNo(answer) || answer.startsWith(NO);

const string = (value) => (typeof value === 'string' ? value : '');
const shorten = (text, limit) => {
  const line = oneLine(text);
  return line.length > limit ? `${within(line, limit - 1).trimEnd()}…` : line;
};
const json = (value) => JSON.stringify(value, null, 2) ?? '';

/** A text for the card. One that is too long is cut and says so; then it may hide anything, so it counts as high. */
function bodyOf(text) {
  const clean = paragraphs(text);
  if (clean.length <= BODY) return { body: clean };
  const kept = within(clean, BODY);
  const left = clean.slice(kept.length).split('\n').length;
  return { body: `${kept}\n… ${left} more lines, to be read in the terminal`, risk: 'high' };
}

const prefixed = (mark, text) =>
  string(text)
    .replace(/\n$/, '')
    .split('\n')
    .map((line) => `${mark} ${line}`)
    .join('\n');
const change = ({ old_string: before, new_string: after }) =>
  [before ? prefixed('-', before) : '', after ? prefixed('+', after) : ''].filter(Boolean).join('\n');

function placeOf(path, cwd) {
  const near = cwd && path ? relative(cwd, path) : path;
  return near && !near.startsWith('..') ? near : path;
}

/** What a tool is about to do: {title, body, subject}; `subject` is what its risk is told from. */
function deed(tool, input, cwd) {
  const file = string(input.file_path) || string(input.notebook_path) || string(input.path);
  const place = placeOf(file, cwd);
  switch (tool) {
    case 'Bash': {
      const command = Array.isArray(input.command) ? input.command.join(' ') : string(input.command);
      const why = string(input.description);
      return { title: `Run ${command}`, body: why ? `${command}\n\n${why}` : command, subject: command };
    }
    case 'Edit':
      return { title: `Edit ${place}`, body: `${file}\n\n${change(input)}`, subject: file };
    case 'MultiEdit':
      return {
        title: `Edit ${place}`,
        body: `${file}\n\n${(Array.isArray(input.edits) ? input.edits : []).map(change).join('\n\n')}`,
        subject: file,
      };
    case 'Write':
      return { title: `Write ${place}`, body: `${file}\n\n${prefixed('+', input.content)}`, subject: file };
    case 'NotebookEdit':
      return { title: `Edit ${place}`, body: `${file}\n\n${prefixed('+', input.new_source)}`, subject: file };
    case 'Read':
      return { title: `Read ${place}`, body: file, subject: file };
    case 'WebFetch':
      return { title: `Fetch ${string(input.url)}`, body: json(input), subject: string(input.url) };
    case 'WebSearch':
      return { title: `Search the web for ${string(input.query)}`, body: json(input), subject: '' };
    default: {
      const server = /^mcp__(.+?)__(.+)$/.exec(tool);
      const name = server ? `${server[2]} of ${server[1]}` : tool;
      return { title: `Use ${name}`, body: json(input), subject: json(input) };
    }
  }
}

/** What Claude offers to allow for good, in words; absent when it offers nothing that can be named. */
function alwaysOf(suggestions) {
  const words = suggestions.map((one) => {
    if (one?.type === 'setMode')
      return one.mode === 'acceptEdits' ? 'accept all edits' : `switch to ${one.mode}`;
    if (one?.type === 'addDirectories') return `allow ${(one.directories ?? []).join(', ')}`;
    if (one?.type !== 'addRules') return null;
    const rules = (one.rules ?? []).map(({ toolName, ruleContent }) =>
      ruleContent ? `${toolName}(${ruleContent})` : toolName,
    );
    return `${one.behavior === 'deny' ? 'always deny' : 'always allow'} ${rules.join(', ')}`;
  });
  if (words.length === 0 || words.includes(null)) return undefined;
  const text = shorten(`Yes, and ${words.join(' and ')}`, 200);
  return whyNotTypable(text) ? 'Yes, and do not ask again' : text;
}

const decision = (value) => ({ hookSpecificOutput: { hookEventName: 'PermissionRequest', decision: value } });

/** An answer that is none of the options is what the agent is to do instead. */
const deny = (text) =>
  decision(
    text === undefined
      ? { behavior: 'deny', message: 'The user said no.' }
      : { behavior: 'deny', message: text },
  );

function permission(message) {
  const { tool_name: tool, tool_input: input = {}, permission_suggestions: offered } = message;
  const { title, body, subject } = deed(tool, input, message.cwd);
  const suggestions = Array.isArray(offered) ? offered : [];
  const always = alwaysOf(suggestions);
  const risk = riskOf(subject);
  return {
    asks: [
      {
        kind: risk.risk === 'high' ? 'stop' : 'question',
        title: `${shorten(title, TITLE)}?`,
        options: always ? [YES, always, NO] : [YES, NO],
        ...risk,
        ...bodyOf(body),
      },
    ],
    decide([answer]) {
      if (answer === YES || isYes(answer)) return decision({ behavior: 'allow' });
      if (answer === always) return decision({ behavior: 'allow', updatedPermissions: suggestions });
      return answer === NO || isNo(answer) ? deny() : deny(answer);
    },
  };
}

const ACCEPT_EDITS = 'Yes, and accept edits';
const ASK_BEFORE_EDITS = 'Yes, and ask before edits';
const KEEP_PLANNING = 'No, keep planning';

function plan(message) {
  // Without it Claude goes back to the mode from before the plan, which may accept edits.
  const go = (mode) =>
    decision({ behavior: 'allow', updatedPermissions: [{ type: 'setMode', mode, destination: 'session' }] });
  return {
    asks: [
      {
        kind: 'question',
        title: 'Go on with this plan?',
        options: [ACCEPT_EDITS, ASK_BEFORE_EDITS, KEEP_PLANNING],
        risk: 'low',
        ...bodyOf(string(message.tool_input?.plan)),
      },
    ],
    decide([answer]) {
      if (answer === ACCEPT_EDITS) return go('acceptEdits');
      if (answer === ASK_BEFORE_EDITS) return go('default');
      return answer === KEEP_PLANNING ? deny('The user wants to go on planning.') : deny(answer);
    },
  };
}

/** The labels as options of a card, each once and in a form that it takes, and the way back to the agent's own. */
function optionsOf(list) {
  const labels = new Map();
  for (const [index, { label }] of list.entries()) {
    const line = shorten(string(label), 200);
    const option = line === '' || whyNotTypable(line) || labels.has(line) ? `Option ${index + 1}` : line;
    labels.set(option, string(label));
  }
  return labels;
}

const described = (list) =>
  list.map(({ label, description }) => (description ? `${label}: ${description}` : label)).join('\n');

function single(question, list) {
  const labels = optionsOf(list);
  return {
    ask: { kind: 'question', options: [...labels.keys()], risk: 'low', ...bodyOf(described(list)) },
    read: (answer) => labels.get(answer) ?? answer,
  };
}

/** Several may be chosen: a row for each, and one for words of the user's own. */
function several(question, list) {
  const rows = list.map(({ label, description }, index) => ({
    question_id: `o${index + 1}`,
    text: shorten(description ? `${label}: ${description}` : string(label), 400),
    default: 'no',
  }));
  rows.push({ question_id: 'other', text: 'Something else, in your words', default: 'no' });
  return {
    ask: { kind: 'batch', rows, risk: 'low', body: 'Several may be chosen: yes or no for each.' },
    read(answers) {
      const chosen = list
        .filter((_, index) => isYes(answers[`o${index + 1}`]))
        .map(({ label }) => string(label));
      if (!isNo(answers.other) && !isYes(answers.other)) chosen.push(answers.other);
      return chosen.length > 0 ? chosen.join(', ') : 'None of these';
    },
  };
}

function questions(message) {
  const { questions: list } = message.tool_input;
  const forms = list.map((question) => {
    const options = question.options.filter((option) => option !== null && typeof option === 'object');
    const form = (question.multiSelect ? several : single)(question, options);
    return { ...form, ask: { ...form.ask, title: shorten(question.question, 480) } };
  });
  return {
    asks: forms.map(({ ask }) => ask),
    decide(answers) {
      const byQuestion = Object.fromEntries(
        list.map(({ question }, index) => [question, forms[index].read(answers[index])]),
      );
      return decision({ behavior: 'allow', updatedInput: { ...message.tool_input, answers: byQuestion } });
    },
  };
}

const isQuestion = (one) =>
  one !== null &&
  typeof one === 'object' &&
  string(one.question).trim() !== '' &&
  Array.isArray(one.options) &&
  one.options.length > 0;

/**
 * What a permission request asks: `asks` are bodies for /v1/ask without who asks, and `decide` makes of their
 * answers, in the same order, the object that the hook prints. Null for a message that asks nothing.
 */
export function requestOf(message) {
  const { tool_name: tool, tool_input: input } = message;
  if (string(tool) === '' || (input !== undefined && (input === null || typeof input !== 'object')))
    return null;
  if (tool === 'AskUserQuestion' && Array.isArray(input?.questions) && input.questions.length > 0)
    return input.questions.every(isQuestion) ? questions(message) : null;
  if (tool === 'ExitPlanMode') return plan(message);
  return permission(message);
}
