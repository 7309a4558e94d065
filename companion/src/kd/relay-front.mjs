// What a phone reaches: the files of its page, and behind /mqtt the broker, which listens on the loopback address alone.
// Debian's broker offers browsers HTTP/2 on a secure listener and then can't speak it, so that none of them gets the page.
import { readFileSync, readdirSync } from 'node:fs';
import { createServer } from 'node:http';
import { createServer as createSecureServer } from 'node:https';
import { connect } from 'node:net';
import { extname, join } from 'node:path';

const TYPES = {
  '.html': 'text/html; charset=utf-8',
  '.js': 'text/javascript; charset=utf-8',
  '.css': 'text/css; charset=utf-8',
  '.json': 'application/manifest+json',
  '.png': 'image/png',
};
const HEADERS = {
  'Cache-Control': 'no-cache',
  'Content-Security-Policy': "frame-ancestors 'none'",
  'Cross-Origin-Opener-Policy': 'same-origin',
  'Referrer-Policy': 'no-referrer',
  'X-Content-Type-Options': 'nosniff',
};
const MAX_CONNECTIONS = 2000;
const DIAL_MS = 5000;

/** The files of `folder` as they are now; nothing else can be asked for. */
function readFiles(folder) {
  const files = new Map(
    readdirSync(folder).map((name) => [
      `/${name}`,
      { bytes: readFileSync(join(folder, name)), type: TYPES[extname(name)] ?? 'application/octet-stream' },
    ]),
  );
  return files.set('/', files.get('/index.html'));
}

function sendFile(files, req, res) {
  const file = files.get(req.url.replace(/\?.*/, ''));
  if (!file || !['GET', 'HEAD'].includes(req.method)) return res.writeHead(404, HEADERS).end();
  const headers = { ...HEADERS, 'Content-Type': file.type, 'Content-Length': file.bytes.length };
  res.writeHead(200, headers).end(req.method === 'HEAD' ? undefined : file.bytes);
}

/** Joins the two connections; when one of them ends, so does the other. */
function passOn(req, socket, head, brokerPort) {
  const broker = connect({ host: '127.0.0.1', port: brokerPort });
  const limit = setTimeout(() => broker.destroy(), DIAL_MS);
  for (const [one, other] of [
    [socket, broker],
    [broker, socket],
  ])
    one
      .setNoDelay(true)
      .on('error', () => other.destroy())
      .on('close', () => other.destroy());
  broker.on('connect', () => {
    clearTimeout(limit);
    const lines = [`GET ${req.url} HTTP/1.1`];
    for (let i = 0; i < req.rawHeaders.length; i += 2)
      lines.push(`${req.rawHeaders[i]}: ${req.rawHeaders[i + 1]}`);
    broker.write(`${lines.join('\r\n')}\r\n\r\n`, 'latin1');
    broker.write(head);
    socket.pipe(broker).pipe(socket);
  });
}

/** Listens at once; `tls` is {cert, key} as they stand in their files, or undefined. Rejects when it can't. */
export async function openFront({ folder, port, address, brokerPort, tls }) {
  const files = readFiles(folder);
  const server = tls ? createSecureServer(tls) : createServer();
  server.maxConnections = MAX_CONNECTIONS;
  server.on('request', (req, res) => sendFile(files, req, res));
  server.on('upgrade', (req, socket, head) => {
    if (req.url === '/mqtt') passOn(req, socket, head, brokerPort);
    else socket.destroy();
  });
  await new Promise((done, failed) => server.once('error', failed).listen(port, address, done));
  return server;
}
