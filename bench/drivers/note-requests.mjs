// Loaded before the daemon: notes when each request came, a JSON line each, in the file that NOTE_REQUESTS names.
import { appendFileSync } from 'node:fs';
import http from 'node:http';

const emit = http.Server.prototype.emit;
http.Server.prototype.emit = function (type, request, ...others) {
  if (type === 'request') {
    const line = {
      at: performance.timeOrigin + performance.now(),
      door: request.socket.remotePort ? 'page' : 'socket',
      path: request.url.split('?')[0],
    };
    appendFileSync(process.env.NOTE_REQUESTS, `${JSON.stringify(line)}\n`);
  }
  return emit.call(this, type, request, ...others);
};
