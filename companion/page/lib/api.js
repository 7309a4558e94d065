// Calls to the daemon, with the token that only this page may read. The shell's page asks for it; a browser's tab was
// handed it once, at its login, and keeps it for as long as the tab is open.
const TIMEOUT_MS = 10_000;
let csrf = kept();

function kept() {
  try {
    return sessionStorage.getItem('kd-token');
  } catch {
    return null;
  }
}

export class ApiError extends Error {
  constructor(code, message) {
    super(message);
    this.code = code;
  }
}

async function call(method, path, body) {
  const headers = {
    ...(body ? { 'Content-Type': 'application/json' } : {}),
    ...(csrf ? { 'x-kd-csrf': csrf } : {}),
  };
  const stop = new AbortController();
  const timer = setTimeout(() => stop.abort(), TIMEOUT_MS);
  let reply;
  try {
    const response = await fetch(path, {
      method,
      headers,
      body: body && JSON.stringify(body),
      signal: stop.signal,
    });
    reply = await response.json();
  } catch {
    throw new ApiError(
      'unreachable',
      'The daemon does not answer. What was sent may or may not have been taken; your words stay here.',
    );
  } finally {
    clearTimeout(timer);
  }
  if (!reply.ok)
    throw new ApiError(reply.error?.code ?? 'internal', reply.error?.message ?? 'The daemon gave no reason.');
  return reply.data;
}

/** Who this page is to the daemon; throws "unauthorized" when its session has ended, "no_token" in a tab that was never let in. */
export async function me() {
  const data = await call('GET', '/v1/page/me');
  csrf = data.csrf;
  return data;
}

export const health = () => call('GET', '/v1/health');

export async function post(path, body = {}) {
  if (csrf === null) await me();
  try {
    return await call('POST', path, body);
  } catch (error) {
    // The shell logged in anew meanwhile and the browser sends its new cookie: the token of the old one is refused,
    // which changed nothing, so it is asked for once more.
    if (error.code !== 'forbidden') throw error;
    await me();
    return call('POST', path, body);
  }
}
