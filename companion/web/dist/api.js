// Calls to the daemon, with the token that only this page may read.
let csrf = null;

export class ApiError extends Error {
  constructor(code, message) {
    super(message);
    this.code = code;
  }
}

async function call(method, path, body) {
  let reply;
  try {
    const response = await fetch(path, {
      method, headers: { ...(body ? { 'Content-Type': 'application/json' } : {}), ...(csrf ? { 'x-kd-csrf': csrf } : {}) }, body: body && JSON.stringify(body),
    });
    reply = await response.json();
  } catch {
    throw new ApiError('unreachable', 'kelvadromed does not answer.');
  }
  if (!reply.ok) throw new ApiError(reply.error.code, reply.error.message);
  return reply.data;
}

export async function post(path, body = {}) {
  csrf ??= (await call('GET', '/v1/page/me')).csrf;
  return call('POST', path, body);
}

/** Calls `onChange` after each event, `onState(true|false)` as the stream comes and goes. */
export function listen(onChange, onState) {
  const stream = new EventSource('/v1/stream');
  for (const name of ['card.opened', 'card.changed', 'card.closed', 'receipt.added', 'session.changed']) stream.addEventListener(name, onChange);
  stream.onopen = () => { onState(true); onChange(); };
  stream.onerror = () => {
    onState(false);
    // A stream that the daemon refused is not tried again by the browser.
    if (stream.readyState === EventSource.CLOSED) setTimeout(() => listen(onChange, onState), 3000);
  };
}
