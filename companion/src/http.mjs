// One request to one reply. Every reply of the API is the envelope {"ok":true,"data":...} or
// {"ok":false,"error":{"code":...,"message":...}}, and every connection carries one exchange.
import { createServer } from 'node:http';
import { Refusal, invalid } from './errors.mjs';
import { wellFormedJson } from '../shared/text.js';

export const MAX_BODY = 1_000_000;
const MAX_CONNECTIONS = 400;
const strictUtf8 = new TextDecoder('utf-8', { fatal: true, ignoreBOM: true });

export function send(res, status, headers, body) {
  if (res.destroyed || res.headersSent) return;
  const bytes = Buffer.from(body);
  res.writeHead(status, {
    'Content-Length': bytes.length,
    Connection: 'close',
    'Cache-Control': 'no-store',
    'X-Content-Type-Options': 'nosniff',
    ...headers,
  });
  res.end(bytes);
}

const sendJson = (res, status, value) =>
  send(res, status, { 'Content-Type': 'application/json; charset=utf-8' }, wellFormedJson(value));
export const sendData = (res, data) => sendJson(res, 200, { ok: true, data });
const failure = (code, message) => ({ ok: false, error: { code, message } });

export function sendError(res, error, log) {
  if (error instanceof Refusal) return sendJson(res, error.status, failure(error.code, error.message));
  log(`internal error: ${error.stack ?? error}`);
  return sendJson(res, 500, failure('internal', `kelvadromed could not do this: ${error.message}`));
}

/** Reads a body to its end even when it is too large, so that the sender can read the reply; a huge one is cut off. */
async function readBytes(req, max) {
  const pieces = [];
  let size = 0;
  for await (const piece of req) {
    size += piece.length;
    if (size <= max) pieces.push(piece);
    else if (size > 20 * MAX_BODY) break;
  }
  if (size > max) throw new Refusal('too_large', 413, `The request has more than ${max} bytes.`);
  return Buffer.concat(pieces);
}

/** JSON text may hold half characters as escapes; they could neither be stored nor typed. */
function refuseHalfCharacters(key, value) {
  if ((typeof value === 'string' && !value.isWellFormed()) || !key.isWellFormed())
    throw invalid('body', 'a text in it holds half a character');
  return value;
}

/** The body as an object. An empty body counts as {}. */
export async function readJson(req, max = MAX_BODY) {
  const bytes = await readBytes(req, max);
  if (bytes.length === 0) return {};
  let text;
  try {
    text = strictUtf8.decode(bytes);
  } catch {
    throw invalid('body', 'is not valid UTF-8');
  }
  let value;
  try {
    value = JSON.parse(text, refuseHalfCharacters);
  } catch (error) {
    if (error instanceof Refusal) throw error;
    throw invalid('body', `is not valid JSON: ${error.message}`);
  }
  if (value === null || typeof value !== 'object' || Array.isArray(value))
    throw invalid('body', 'must be a JSON object');
  return value;
}

/** A signal that fires when the other side goes away before its reply was sent. */
export function goneSignal(res) {
  const controller = new AbortController();
  res.on('close', () => {
    if (!res.writableFinished) controller.abort();
  });
  return controller.signal;
}

/**
 * Keeps the connections below `MAX_CONNECTIONS`: for a new one the oldest that asks nothing goes, else the
 * oldest of all.
 */
function limitConnections(server) {
  const [idle, asking] = [new Set(), new Set()];
  const forget = (socket) => idle.delete(socket) || asking.delete(socket);
  server.on('connection', (socket) => {
    if (idle.size + asking.size >= MAX_CONNECTIONS) {
      const [oldest] = idle.size > 0 ? idle : asking;
      forget(oldest);
      oldest.destroy();
    }
    idle.add(socket);
    socket.on('close', () => forget(socket));
  });
  server.on('request', ({ socket }) => {
    if (idle.delete(socket)) asking.add(socket);
  });
}

/** Serves and counts a connection once it was admitted; nothing of it is read before. */
function judgeFirst(server, admits) {
  const serve = server.listeners('connection');
  server.removeAllListeners('connection');
  server.pauseOnConnect = true;
  server.on('connection', async (socket) => {
    socket.on('error', () => {});
    const admitted = await admits(socket).catch(() => false);
    if (!admitted) socket.destroy();
    if (socket.destroyed) return;
    for (const listener of serve) listener.call(server, socket);
    socket.resume();
  });
}

/**
 * A server whose `handle(req, res)` may throw; what it throws becomes the reply. A connection that `admits`, where it
 * is given, refuses ends before a byte of it is read.
 */
export function makeServer(handle, log, admits) {
  const limits = {
    keepAliveTimeout: 0,
    headersTimeout: 10_000,
    requestTimeout: 30_000,
    connectionsCheckingInterval: 2000,
  };
  const server = createServer(limits, (req, res) => {
    res.on('error', () => {});
    handle(req, res).catch((error) => sendError(res, error, log));
  });
  limitConnections(server);
  if (admits) judgeFirst(server, admits);
  server.on('clientError', (error, socket) => {
    if (socket.writable) {
      const body = JSON.stringify(failure('validation_failed', 'This is not a valid HTTP request.'));
      socket.end(
        `HTTP/1.1 400 Bad Request\r\nContent-Type: application/json\r\nContent-Length: ${Buffer.byteLength(body)}\r\nConnection: close\r\n\r\n${body}`,
      );
    }
    socket.destroySoon();
  });
  return server;
}

/** Starts listening; a failure rejects with the system's error. */
export const listen = (server, options) =>
  new Promise((resolve, reject) => {
    server.once('error', reject);
    server.listen(options, () => {
      server.off('error', reject);
      resolve(server);
    });
  });

/** Stops listening, lets replies under way finish for a moment, then cuts what is left. */
export const shut = (server) =>
  new Promise((resolve) => {
    server.close(resolve);
    server.closeIdleConnections();
    setTimeout(() => server.closeAllConnections(), 200).unref();
  });
