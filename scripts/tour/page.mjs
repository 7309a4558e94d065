// The daemon's page as a browser has it: through the link that the panel shows.
import http from 'node:http';
import { check } from './steps.mjs';

export function fetchPage(url, { method = 'GET', headers = {}, body } = {}) {
  return new Promise((resolve, reject) => {
    // Browsers look for every name under localhost on the machine itself; the system's resolver need not.
    const { host, port, pathname, search } = new URL(url);
    const request = http.request(
      {
        host: '127.0.0.1',
        port,
        path: pathname + search,
        method,
        headers: { Host: host, ...headers },
        agent: false,
        timeout: 5000,
      },
      (reply) => {
        const parts = [];
        reply.on('data', (part) => parts.push(part));
        reply.on('end', () =>
          resolve({
            status: reply.statusCode,
            headers: reply.headers,
            body: Buffer.concat(parts).toString('utf8'),
          }),
        );
      },
    );
    request.on('error', reject);
    request.end(body);
  });
}

/** Asks the panel for the link to the page and goes in by it: {get, post} of a browser's session. */
export async function openPage(world, panel) {
  world.keys(panel, 'v');
  await world.see(panel, /http:\/\/127\.0\.0\.1:\d+\/\S+/, 'the link to the page');
  const link = world
    .screen(panel)
    .replace(/\s*\n\s*/g, '')
    .match(/http:\/\/127\.0\.0\.1:\d+\/login\?[\w=&%.~/?-]+/)[0];
  const login = await fetchPage(link);
  check(login.status === 303, `the login link answered ${login.status}`);
  const own = new URL(login.headers.location);
  check(/^[0-9a-f]{32}\.localhost$/.test(own.hostname), `the browser is sent to ${own.hostname}`);
  const entrance = await fetchPage(own);
  const headers = { Cookie: entrance.headers['set-cookie'][0].split(';')[0], Origin: own.origin };
  const token = entrance.body.match(/name="token" content="([^"]+)"/)[1];
  return {
    get: () => fetchPage(own.origin, { headers }),
    post: (route, body) =>
      fetchPage(own.origin + route, {
        method: 'POST',
        body: JSON.stringify(body),
        headers: { ...headers, 'x-kd-csrf': token, 'Content-Type': 'application/json' },
      }),
  };
}
