// One request to a daemon on its socket. `kd` and a daemon that starts speak to another one with it.
import { request } from 'node:http';

/**
 * Gives the text of the reply. Without a body it is a GET. Throws what the socket did, or that nothing came
 * in time.
 */
export function exchange(socketPath, path, { body, timeoutMs = 10_000 } = {}) {
  const bytes = body === undefined ? null : Buffer.from(JSON.stringify(body));
  const headers = {
    Connection: 'close',
    ...(bytes && { 'Content-Type': 'application/json', 'Content-Length': bytes.length }),
  };
  return new Promise((done, failed) => {
    const req = request(
      { socketPath, path, method: bytes ? 'POST' : 'GET', headers, timeout: timeoutMs },
      (res) => {
        let text = '';
        res
          .setEncoding('utf8')
          .on('data', (piece) => {
            text += piece;
          })
          .on('error', failed)
          .on('end', () => done(text));
      },
    );
    req.on('timeout', () => req.destroy(new Error('it did not answer in time')));
    req.on('error', failed);
    req.end(bytes);
  });
}
