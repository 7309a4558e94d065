// Who may use the page port. The shell registers a page key once; with it, it mints one-time login links; a link gives
// a cookie session with its own token for writes. Sessions live in memory: a restart of the daemon ends them all.
//
// The shell's session is at 127.0.0.1, where no browser of the user ever gets a cookie from us: cookies know no ports,
// and any development server on 127.0.0.1 would be sent it. A browser gets a host of its own, a random name under
// localhost, with a cookie that is good there alone.
import { randomBytes } from 'node:crypto';
import { Refusal, conflict, forbidden, unauthorized } from './errors.mjs';
import { clock, iso, secret } from './clock.mjs';
import { PageKey, same, sha256 } from './page-key.mjs';

export const COOKIE = 'kd_session';
export const KEY_HEADER = 'x-kd-page-key';
export const CSRF_HEADER = 'x-kd-csrf';
const LINK_MS = 60_000;
const RESET_MS = 300_000;
const SESSION_IDLE_MS = 7 * 86_400_000;
const SESSION_AGE_MS = { mac: 30 * 86_400_000, browser: 12 * 3_600_000 };
const MAX_SESSIONS = 64;
const MAX_LINKS = 64;
const BROWSER_HOST = /^[0-9a-f]{32}\.localhost:(\d+)$/;

/** The mark that a job carries to name the page session in which its answer was pressed. */
export const presenceTag = (sessionId) => sha256(sessionId).slice(0, 32);
const timeOfDay = (steady) => iso(clock.now() - (clock.steady() - steady));

export class PageAuth {
  #sessions = new Map(); // by id, the oldest first
  #links = new Map(); // by token
  #resets = new Map(); // token -> until when it may reset the key

  constructor(home) {
    this.key = new PageKey(home);
    this.port = null;
  }

  /** Registers the key of this home. Sessions from before there was a key end. */
  claimKey(key) {
    if (!this.key.claim(key)) return;
    this.#links.clear();
    for (const session of this.#sessions.values()) if (session.group === null) this.#end(session);
  }

  /** Whether a key is registered, who holds the page, and a token that may be used once to forget the key. */
  keyState() {
    let state;
    try {
      state = this.key.hash === null ? 'none' : 'registered';
    } catch {
      state = 'damaged';
    }
    const now = clock.steady();
    for (const [token, until] of this.#resets)
      if (until <= now || this.#resets.size >= MAX_LINKS) this.#resets.delete(token);
    const reset = secret();
    this.#resets.set(reset, now + RESET_MS);
    return { state, sessions: this.list(), reset };
  }

  /** Forgets the key and ends every session, for whoever was shown the state of the key. */
  resetKey(token) {
    const until = this.#resets.get(token);
    this.#resets.delete(token);
    if (until === undefined || until <= clock.steady())
      throw conflict('Look at /v1/page/key first, and give the "reset" that it gave.');
    this.key.forget();
    this.#links.clear();
    for (const session of this.#sessions.values()) this.#end(session);
  }

  #end(session) {
    session.live = false;
    this.#sessions.delete(session.id);
    for (const stream of session.streams) stream.end();
  }

  #addLink(link, now) {
    for (const [token, { expires }] of this.#links)
      if (expires <= now || this.#links.size >= MAX_LINKS) this.#links.delete(token);
    const token = secret();
    this.#links.set(token, { ...link, expires: now + LINK_MS });
    return token;
  }

  /** A one-time login link. Once a key is registered, only its holder gets one. */
  mintLink(key, now = clock.steady()) {
    const group = this.key.hash;
    if (group !== null && !this.key.matches(key))
      throw forbidden(`A login link needs the header ${KEY_HEADER} with the registered page key.`);
    const host = this.#shellHost;
    return {
      url: `http://${host}/login?t=${this.#addLink({ group, host }, now)}`,
      expires_at: iso(clock.now() + LINK_MS),
    };
  }

  /**
   * Uses up a link, at the host that it was made for. Only surface "mac", the shell, gets a session at 127.0.0.1. All
   * else is a browser: it is sent on with a second link to a host of its own, `onward`, and gets its session there.
   * Null for a link that is not good.
   */
  login(token, { host, surface, next }, now = clock.steady()) {
    const link = this.#links.get(token);
    if (!link || link.expires <= now || link.host !== host) return null;
    this.#links.delete(token);
    if (link.host !== this.#shellHost) return { session: this.#begin('browser', link, now), next: link.next };
    if (surface === 'mac') return { session: this.#begin('mac', link, now), next };
    const own = `${randomBytes(16).toString('hex')}.localhost:${this.port}`;
    return { onward: `http://${own}/login?t=${this.#addLink({ group: link.group, host: own, next }, now)}` };
  }

  #begin(surface, { group, host }, now) {
    const id = secret();
    const session = {
      id,
      tag: presenceTag(id),
      csrf: secret(),
      name: randomBytes(8).toString('hex'),
      surface,
      group,
      host,
      since: now,
      seen: now,
      live: true,
      streams: new Set(),
      holder: null,
    };
    this.#sessions.set(id, session);
    this.prune(now);
    return session;
  }

  #isOver(session, now) {
    return now - session.seen > SESSION_IDLE_MS || now - session.since > SESSION_AGE_MS[session.surface];
  }

  /** Ends the sessions whose time is over, and of too many the oldest of a browser first: a shell may be typing. */
  prune(now = clock.steady()) {
    const all = () => [...this.#sessions.values()];
    for (const session of all()) if (this.#isOver(session, now)) this.#end(session);
    while (this.#sessions.size > MAX_SESSIONS)
      this.#end(all().find(({ surface }) => surface === 'browser') ?? all()[0]);
  }

  /** The session of a request by its cookie, at its own host; throws `unauthorized`. */
  session(headers, now = clock.steady()) {
    const session = this.#sessions.get(cookieValue(headers.cookie));
    if (!session || session.host !== headers.host || this.#isOver(session, now)) throw unauthorized();
    session.seen = now;
    return session;
  }

  get #shellHost() {
    return `127.0.0.1:${this.port}`;
  }

  /** Refuses other names for this port (DNS rebinding) and pages of other origins. */
  checkAddress(headers) {
    if (headers.host !== this.#shellHost && BROWSER_HOST.exec(headers.host)?.[1] !== String(this.port))
      throw forbidden('This address is not the page of kelvadromed.');
    if (headers.origin !== undefined && headers.origin !== `http://${headers.host}`)
      throw forbidden('Pages of other origins may not use kelvadromed.');
  }

  #hasToken(session, headers) {
    return typeof headers[CSRF_HEADER] === 'string' && same(headers[CSRF_HEADER], session.csrf);
  }

  /** Every write needs the token that only the page itself has; a browser must say, too, that it comes from there. */
  checkWrite(session, headers) {
    if (!this.#hasToken(session, headers))
      throw forbidden(`A write needs the header ${CSRF_HEADER} of this page session.`);
    if (session.surface === 'browser' && headers.origin === undefined)
      throw forbidden('A write needs the header Origin.');
  }

  /** The token of a session. A browser's page was handed it once and keeps it: the cookie alone brings it to nobody. */
  tokenOf(session, headers) {
    if (session.surface === 'browser' && !this.#hasToken(session, headers))
      throw new Refusal(
        'no_token',
        403,
        'This tab cannot be used: the page works in the tab that Kelvadrome opened. Open the page from Kelvadrome again.',
      );
    return session.csrf;
  }

  /**
   * The session under which an answer pressed in `session` is delivered: a shell's own; for a browser's that
   * of the shell which opened it, the newest under its key that `isThere`.
   */
  shellOf(session, isThere, what = 'deliver the answer') {
    if (session.surface === 'mac') return session;
    const shell = [...this.#sessions.values()].findLast(
      ({ surface, group, tag }) => surface === 'mac' && group === session.group && isThere(tag),
    );
    if (!shell)
      throw conflict(
        `Kelvadrome, which opened this page, does not run, so nobody could ${what}. Start it, then press again.`,
      );
    return shell;
  }

  /** The sessions, the newest first, as they go on the wire. */
  list(current) {
    return [...this.#sessions.values()].reverse().map((session) => ({
      session: session.name,
      surface: session.surface,
      since: timeOfDay(session.since),
      seen: timeOfDay(session.seen),
      current: session === current,
      ...session.holder,
    }));
  }

  endByName(name) {
    const session = [...this.#sessions.values()].find((one) => one.name === name);
    if (!session) throw new Refusal('unknown_session', 404, 'This page session has ended already.');
    this.#end(session);
  }

  isAlive(tag) {
    return [...this.#sessions.values()].some((session) => session.tag === tag);
  }

  /** Whether this session was opened by the holder of the page key, or no key is registered at all. */
  isShell(session) {
    return session.surface === 'mac' && session.group === this.key.hash;
  }

  /** The tag of the newest session of a shell, for `kd answer` of the tests. */
  newestTag() {
    return (
      [...this.#sessions.values()].findLast(({ surface }) => surface === 'mac')?.tag ?? presenceTag(secret())
    );
  }
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
