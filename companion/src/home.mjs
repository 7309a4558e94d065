// The data home and its socket: private, and held by one daemon at a time.
import { chmodSync, existsSync, lstatSync, mkdirSync, statSync, unlinkSync } from 'node:fs';
import { request } from 'node:http';
import { join } from 'node:path';
import { StartError } from './errors.mjs';

const MAX_SOCKET_PATH = 103;

/** Makes the home with mode 0700 and gives the path of its socket. */
export function prepareHome(home) {
  try {
    mkdirSync(home, { recursive: true, mode: 0o700 });
    const info = statSync(home);
    if (!info.isDirectory()) throw new Error('it is not a folder');
    if (process.getuid && info.uid !== process.getuid()) throw new Error('it belongs to another user');
    chmodSync(home, 0o700);
  } catch (error) {
    throw new StartError(`The data home ${home} cannot be used: ${error.message}.`, 73);
  }
  const socket = join(home, 'kelvadromed.sock');
  const bytes = Buffer.byteLength(socket);
  if (bytes > MAX_SOCKET_PATH) throw new StartError(`The socket path ${socket} has ${bytes} bytes; at most ${MAX_SOCKET_PATH} are possible. Choose a home with a shorter path.`, 73);
  return socket;
}

/** "none", "dead" (a file without a daemon), "silent" (something holds it and does not answer), or the health that a daemon gave. */
function probe(socketPath) {
  return new Promise((resolve) => {
    if (!existsSync(socketPath)) return resolve('none');
    const req = request({ socketPath, path: '/v1/health', timeout: 2000, headers: { Connection: 'close' } }, (res) => {
      let text = '';
      res.setEncoding('utf8').on('data', (piece) => { text += piece; }).on('error', () => resolve('silent')).on('end', () => {
        try {
          resolve(JSON.parse(text).data ?? 'silent');
        } catch {
          resolve('silent');
        }
      });
    });
    req.on('timeout', () => { req.destroy(); resolve('silent'); });
    req.on('error', (error) => resolve(error.code === 'ECONNREFUSED' || error.code === 'ENOENT' ? 'dead' : 'silent'));
    req.end();
  });
}

/** Refuses to start beside a daemon that runs. */
export async function refuseSecond(socketPath) {
  const found = await probe(socketPath);
  if (found === 'silent') throw new StartError(`A process holds ${socketPath} and does not answer. End it first.`, 3);
  if (typeof found === 'object') throw new StartError(`kelvadromed runs already for this home (pid ${found.pid}).`, 3);
}

/** Clears away the socket of a daemon that died. Only for the one that holds the database: of two that start at once, the other must not. */
export function clearDeadSocket(socketPath) {
  if (!existsSync(socketPath)) return;
  if (!lstatSync(socketPath).isSocket()) throw new StartError(`${socketPath} is in the way: it is not a socket.`, 73);
  unlinkSync(socketPath);
}
