// What an agent writes down of its session while a hook of it waits. No hook tells that a dialog was left
// with Escape or "No"; the transcript does.
import { closeSync, fstatSync, openSync, readSync, watch } from 'node:fs';

const INTERRUPTED = '[Request interrupted by user'; // Claude Code
const ABORTED = 'turn_aborted'; // Codex

function saysInterrupted(line) {
  if (!line.includes(INTERRUPTED) && !line.includes(ABORTED)) return false; // most lines are none of our business
  try {
    const { type, message, payload } = JSON.parse(line);
    if (type === 'event_msg') return payload?.type === ABORTED;
    const parts = Array.isArray(message?.content) ? message.content : [];
    return (
      type === 'user' && parts.some((part) => part?.type === 'text' && part.text?.startsWith(INTERRUPTED))
    );
  } catch {
    return false;
  }
}

/**
 * Calls `then` once when a line after the present end of the file says that the user interrupted. Gives what ends the
 * watch. A transcript that cannot be watched tells nothing.
 */
export function whenInterrupted(path, then) {
  let fd;
  let watcher;
  const stop = () => {
    watcher?.close();
    if (fd !== undefined) closeSync(fd);
    fd = watcher = undefined;
  };
  const buffer = Buffer.alloc(1 << 16);
  let position = 0;
  let rest = '';
  const look = () => {
    try {
      while (fd !== undefined) {
        const read = readSync(fd, buffer, 0, buffer.length, position);
        if (read === 0) return;
        position += read;
        const lines = (rest + buffer.toString('latin1', 0, read)).split('\n');
        rest = lines.pop();
        if (!lines.some(saysInterrupted)) continue;
        stop();
        then();
      }
    } catch {
      stop();
    }
  };
  try {
    fd = openSync(path, 'r');
    position = fstatSync(fd).size;
    watcher = watch(path, look);
    watcher.on('error', stop);
    look(); // what came between the two
  } catch {
    stop();
  }
  return stop;
}
