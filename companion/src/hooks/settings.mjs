// An agent's own settings file, with our hooks put in or taken out and every other byte left as it was. Pure.
import jsonc from 'jsonc-parser';
import { KdError, EXIT } from '../kd/client.mjs';

const { createScanner, findNodeAtLocation, getNodeValue, parseTree, printParseErrorCode, SyntaxKind } = jsonc;

const OURS = /(^|[\s/'"])kd(['"]|\.js['"]?)? hook (claude|codex)(\s|$)/;
const unreadable = (words) => new KdError(`${words} Nothing was changed.`, EXIT.failed);

export const isOurs = (hook) => typeof hook?.command === 'string' && OURS.test(hook.command);

/** The file as a tree; throws for one that cannot be read whole, which is then left alone. */
function treeOf(text) {
  const errors = [];
  const tree = parseTree(text, errors, { allowTrailingComma: true });
  if (errors.length > 0) {
    const line = text.slice(0, errors[0].offset).split('\n').length;
    throw unreadable(`Line ${line} of it is no JSON (${printParseErrorCode(errors[0].error)}).`);
  }
  if (tree?.type !== 'object') throw unreadable('It is not a JSON object.');
  const hooks = findNodeAtLocation(tree, ['hooks']);
  if (hooks && hooks.type !== 'object') throw unreadable('Its "hooks" are not an object.');
  for (const property of hooks?.children ?? []) {
    const [name, value] = property.children;
    if (value?.type !== 'array') throw unreadable(`Its "hooks" for ${name.value} are not a list.`);
  }
  return tree;
}

/** {event: groups} as it stands in the file. */
const hooksOf = (text) => {
  if (text.trim() === '') return {};
  const hooks = findNodeAtLocation(treeOf(text), ['hooks']);
  return hooks ? getNodeValue(hooks) : {};
};

/** Without the value at `path`, and the comma that it no longer needs. */
function remove(text, path) {
  const value = findNodeAtLocation(treeOf(text), path);
  const entry = value.parent.type === 'property' ? value.parent : value;
  const siblings = entry.parent.children;
  const at = siblings.indexOf(entry);
  const end = (node) => node.offset + node.length;
  if (siblings.length === 1) {
    const [first, last] = [entry.parent.offset + 1, end(entry.parent) - 1];
    const rest =
      text.slice(first, entry.offset) + text.slice(commaAfter(text, end(entry), last) ?? end(entry), last);
    return text.slice(0, first) + (rest.trim() === '' ? '' : rest) + text.slice(last);
  }
  const [from, to] = at > 0 ? [end(siblings[at - 1]), end(entry)] : [entry.offset, siblings[1].offset];
  return text.slice(0, from) + text.slice(to);
}

/** The blanks that the line with `offset` begins with. */
const indentAt = (text, offset) => /^[ \t]*/.exec(text.slice(text.lastIndexOf('\n', offset - 1) + 1))[0];

/**
 * Puts `value` behind what stands in the object or list at `path`, under `name` in an object. It is laid out
 * as what stands around it, and nothing else is touched.
 */
function append(text, path, value, name) {
  const root = treeOf(text);
  const node = path.length === 0 ? root : findNodeAtLocation(root, path);
  const end = node.offset + node.length - 1; // its last bracket
  const last = node.children.at(-1);
  const isOneLine = node.length > 2 && !text.slice(node.offset, end).includes('\n');
  const eol = text.includes('\r\n') ? '\r\n' : '\n';
  const outer = indentAt(text, node.offset);
  const step = /\n([ \t]+)\S/.exec(text)?.[1] ?? '  ';
  const inner = last && !isOneLine ? indentAt(text, last.offset) : outer + step;
  const key = name === undefined ? '' : `${JSON.stringify(name)}: `;
  const piece = isOneLine
    ? key + JSON.stringify(value)
    : key + JSON.stringify(value, null, step).replaceAll('\n', eol + inner);
  // A comment may stand where no entry does.
  if (!last) return `${text.slice(0, end).trimEnd()}${eol}${inner}${piece}${eol}${outer}${text.slice(end)}`;
  const after = last.offset + last.length;
  const comma = commaAfter(text, after, end);
  const at = comma ?? after;
  const gap = isOneLine ? ' ' : eol + inner;
  const [before, behind] = comma === undefined ? [',', ''] : ['', ','];
  return `${text.slice(0, at)}${before}${gap}${piece}${behind}${text.slice(at)}`;
}

/** Where a comma ends that stands behind the last entry; comments may hold others. */
function commaAfter(text, from, end) {
  const scanner = createScanner(text.slice(0, end));
  scanner.setPosition(from);
  for (let kind = scanner.scan(); kind !== SyntaxKind.EOF; kind = scanner.scan())
    if (kind === SyntaxKind.CommaToken) return scanner.getTokenOffset() + 1;
  return undefined;
}

/** Our hooks that stand in the file, by event. */
export function installed(text) {
  const found = Object.entries(hooksOf(text)).map(([event, groups]) => [
    event,
    groups.flatMap((group) => (Array.isArray(group?.hooks) ? group.hooks : [])).filter(isOurs),
  ]);
  return Object.fromEntries(found.filter(([, hooks]) => hooks.length > 0));
}

/** Without our hooks. What stands empty only for want of them goes too. */
export function withoutHooks(text) {
  if (Object.keys(installed(text)).length === 0) return text;
  for (const [event, groups] of Object.entries(hooksOf(text))) {
    for (let g = groups.length - 1; g >= 0; g--) {
      const hooks = Array.isArray(groups[g]?.hooks) ? groups[g].hooks : [];
      const ours = hooks.map(isOurs);
      if (!ours.includes(true)) continue;
      if (!ours.includes(false)) text = remove(text, ['hooks', event, g]);
      else
        for (let h = hooks.length - 1; h >= 0; h--)
          if (ours[h]) text = remove(text, ['hooks', event, g, 'hooks', h]);
    }
    if (groups.length > 0 && hooksOf(text)[event]?.length === 0) text = remove(text, ['hooks', event]);
  }
  const isEmpty = Object.keys(hooksOf(text)).length === 0;
  return isEmpty && findNodeAtLocation(treeOf(text), ['hooks'])?.type === 'object'
    ? remove(text, ['hooks'])
    : text;
}

/** With our `hooks` ({event: hook}), after those that stand there, and with no older ones of ours. */
export function withHooks(text, hooks) {
  if (text.trim() === '') text = '{}\n';
  if (JSON.stringify(installed(text)) === JSON.stringify(sorted(text, hooks))) return text;
  text = withoutHooks(text);
  if (!findNodeAtLocation(treeOf(text), ['hooks'])) text = append(text, [], {}, 'hooks');
  for (const [event, hook] of Object.entries(hooks))
    text =
      event in hooksOf(text)
        ? append(text, ['hooks', event], { hooks: [hook] })
        : append(text, ['hooks'], [{ hooks: [hook] }], event);
  return text;
}

/** `hooks` in the order and form in which `installed` would give them. */
const sorted = (text, hooks) =>
  Object.fromEntries(
    [...new Set([...Object.keys(hooksOf(text)), ...Object.keys(hooks)])]
      .filter((event) => event in hooks)
      .map((event) => [event, [hooks[event]]]),
  );
