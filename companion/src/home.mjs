// The data home and its socket: private, and held by one daemon at a time.
import {
  chmodSync,
  existsSync,
  lstatSync,
  mkdirSync,
  readdirSync,
  realpathSync,
  statSync,
  unlinkSync,
} from 'node:fs';
import { join } from 'node:path';
import { StartError } from './errors.mjs';
import { exchange } from './exchange.mjs';

const MAX_SOCKET_PATH = 103;
const OTHERS_WRITE = 0o022;
const isForeign = (info) => process.getuid !== undefined && info.uid !== process.getuid();

/** A file that somebody else put here, or a link that leads elsewhere, would be read or written in place of ours. */
function refusePlanted(home) {
  for (const name of readdirSync(home).filter((entry) => /^(kelvadromed\.|page-key\.)/.test(entry))) {
    const info = lstatSync(join(home, name), { throwIfNoEntry: false }); // another daemon may be leaving
    if (info && (!(info.isFile() || info.isSocket()) || isForeign(info)))
      throw new Error(`${name} in it is not a plain file of yours. Move it away`);
  }
}

/** Makes the home with mode 0700. Gives its path without links in it, and the path of its socket. */
export function prepareHome(wanted) {
  let home;
  try {
    mkdirSync(wanted, { recursive: true, mode: 0o700 });
    home = realpathSync(wanted);
    const info = statSync(home);
    if (!info.isDirectory()) throw new Error('it is not a folder');
    if (isForeign(info)) throw new Error('it belongs to another user');
    if (info.mode & OTHERS_WRITE)
      throw new Error(`others may write in it. If all that is in it is yours, run: chmod 700 '${home}'`);
    chmodSync(home, 0o700);
    refusePlanted(home);
  } catch (error) {
    throw new StartError(`The data home ${wanted} cannot be used: ${error.message}.`, 73);
  }
  const socketPath = join(home, 'kelvadromed.sock');
  const bytes = Buffer.byteLength(socketPath);
  if (bytes > MAX_SOCKET_PATH)
    throw new StartError(
      `The socket path ${socketPath} has ${bytes} bytes; at most ${MAX_SOCKET_PATH} are possible. Choose a home with a shorter path.`,
      73,
    );
  return { home, socketPath };
}

/**
 * "none", "dead" (a file without a daemon), "silent" (something holds it and does not answer), or the health
 * that a daemon gave.
 */
async function probe(socketPath) {
  if (!existsSync(socketPath)) return 'none';
  try {
    return JSON.parse(await exchange(socketPath, '/v1/health', { timeoutMs: 2000 })).data ?? 'silent';
  } catch (error) {
    return error.code === 'ECONNREFUSED' || error.code === 'ENOENT' ? 'dead' : 'silent';
  }
}

/** Refuses to start beside a daemon that runs. */
export async function refuseSecond(socketPath) {
  const found = await probe(socketPath);
  if (found === 'silent')
    throw new StartError(`A process holds ${socketPath} and does not answer. End it first.`, 3);
  if (typeof found === 'object')
    throw new StartError(`kelvadromed runs already for this home (pid ${found.pid}).`, 3);
}

/**
 * Clears away the socket of a daemon that died. Only for the one that holds the database: of two that start
 * at once, the other must not.
 */
export function clearDeadSocket(socketPath) {
  if (!existsSync(socketPath)) return;
  if (!lstatSync(socketPath).isSocket())
    throw new StartError(`${socketPath} is in the way: it is not a socket.`, 73);
  unlinkSync(socketPath);
}
