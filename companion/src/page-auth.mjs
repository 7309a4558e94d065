// Who may use the page port. The shell registers a page key once; with it, it mints one-time login links; a link gives
// a cookie session with its own CSRF token. Sessions live in memory: a restart of the daemon ends them all.
import { forbidden, unauthorized } from './errors.mjs';
import { clock, iso, secret } from './clock.mjs';
import { PageKey, same, sha256 } from './page-key.mjs';

export const COOKIE = 'kd_session';
export const KEY_HEADER = 'x-kd-page-key';
export const CSRF_HEADER = 'x-kd-csrf';
const LINK_MS = 60_000;
const SESSION_IDLE_MS = 7 * 86_400_000;
const MAX_SESSIONS = 64;
const MAX_LINKS = 64;

/** The mark that a job carries to name the page session in which its answer was pressed. */
export const presenceTag = (sessionId) => sha256(sessionId).slice(0, 32);

export class PageAuth {
  #sessions = new Map();  // by id, the oldest first
  #links = new Map();     // by token

  constructor(home) {
    this.key = new PageKey(home);
    this.port = null;
  }

  /** Registers the key of this home. Whoever came in before there was a key must come again with it. */
  claimKey(key) {
    if (!this.key.claim(key)) return;
    this.#links.clear();
    for (const session of this.#sessions.values()) if (session.group === null) this.#end(session);
  }

  #end(session) {
    session.live = false;
    this.#sessions.delete(session.id);
  }

  /** A one-time login link. Once a key is registered, only its holder gets one. */
  mintLink(key, now = clock.now()) {
    const group = this.key.hash;
    if (group !== null && !this.key.matches(key)) throw forbidden(`A login link needs the header ${KEY_HEADER} with the registered page key.`);
    for (const [token, link] of this.#links) if (link.expires <= now || this.#links.size >= MAX_LINKS) this.#links.delete(token);
    const token = secret();
    this.#links.set(token, { expires: now + LINK_MS, group });
    return { url: `http://127.0.0.1:${this.port}/login?t=${token}`, expires_at: iso(now + LINK_MS) };
  }

  /**
   * Uses up a link. A browser joins the session that the shell holds under the same key, so that an answer pressed
   * there counts as pressed in the shell; every other surface gets a session of its own. Null for a link that is not good.
   */
  login(token, surface, now = clock.now()) {
    const link = this.#links.get(token);
    if (!link || link.expires <= now) return null;
    this.#links.delete(token);
    if (surface === 'browser' && link.group !== null) {
      const shells = [...this.#sessions.values()].filter((session) => session.group === link.group && !this.#isIdle(session, now));
      const joined = shells.findLast((session) => session.surface === 'mac') ?? shells.at(-1);
      if (joined) return joined;
    }
    const id = secret();
    const session = { id, tag: presenceTag(id), csrf: secret(), surface, group: link.group, seen: now, live: true };
    this.#sessions.set(id, session);
    this.#prune(now);
    return session;
  }

  #isIdle(session, now) { return now - session.seen > SESSION_IDLE_MS; }

  #prune(now) {
    for (const session of this.#sessions.values()) {
      if (this.#sessions.size > MAX_SESSIONS || this.#isIdle(session, now)) this.#end(session);
    }
  }

  /** The session of a request by its cookie; throws `unauthorized`. */
  session(headers, now = clock.now()) {
    const session = this.#sessions.get(cookieValue(headers.cookie));
    if (!session || this.#isIdle(session, now)) throw unauthorized();
    session.seen = now;
    return session;
  }

  /** Every write needs the token that only a page of this origin can have read. */
  checkCsrf(session, headers) {
    if (typeof headers[CSRF_HEADER] !== 'string' || !same(headers[CSRF_HEADER], session.csrf)) throw forbidden(`A write needs the header ${CSRF_HEADER} of this page session.`);
  }

  /** Refuses other names for this port (DNS rebinding) and pages of other origins. */
  checkOrigin(headers) {
    const hosts = [`127.0.0.1:${this.port}`, `localhost:${this.port}`];
    if (!hosts.includes(headers.host)) throw forbidden('This address is not the page of kelvadromed.');
    if (headers.origin !== undefined && !hosts.some((host) => headers.origin === `http://${host}`)) throw forbidden('Pages of other origins may not use kelvadromed.');
  }

  isAlive(tag) { return [...this.#sessions.values()].some((session) => session.tag === tag); }

  /** Whether this session was opened by the holder of the page key, or no key is registered at all. */
  isShell(session) { return session.group === this.key.hash; }

  /** The tag of the newest session, for `kd answer` of the tests. */
  newestTag() { return [...this.#sessions.values()].at(-1)?.tag ?? presenceTag(secret()); }
}

/** The session id of a Cookie header, or null. */
export function cookieValue(header) {
  for (const piece of (header ?? '').split(';')) {
    const [name, ...rest] = piece.trim().split('=');
    if (name !== COOKIE) continue;
    try {
      return decodeURIComponent(rest.join('='));
    } catch {
      return null;
    }
  }
  return null;
}

export const setCookie = (session) => `${COOKIE}=${session.id}; Path=/; HttpOnly; SameSite=Strict`;

/** Where a login leads: a path on this origin, never anywhere else. */
export function nextPath(text) {
  if (typeof text !== 'string' || !/^\/(?![/\\])[\x21-\x7e]*$/.test(text) || text.includes('\\')) return '/';
  const url = new URL(text, 'http://127.0.0.1');
  return url.origin === 'http://127.0.0.1' ? url.pathname + url.search : '/';
}

