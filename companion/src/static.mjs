// The page's files, and the sections that are all the same page.
import { readFile, realpath, stat } from 'node:fs/promises';
import { createHash } from 'node:crypto';
import { extname, join, sep } from 'node:path';
import { noRoute } from './errors.mjs';
import { send } from './http.mjs';
import { sharedFolder } from './layout.mjs';

const TYPES = {
  '.html': 'text/html; charset=utf-8',
  '.js': 'text/javascript; charset=utf-8',
  '.css': 'text/css; charset=utf-8',
  '.svg': 'image/svg+xml',
  '.png': 'image/png',
  '.ico': 'image/x-icon',
};
const SECTIONS = /^\/(topics(\/[^/]+)?|handoffs|skills|receipts|agents|autopilot|search|onboarding)?$/;

export const PAGE_HEADERS = {
  'Content-Security-Policy':
    "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self' data:; connect-src 'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'; require-trusted-types-for 'script'",
  // Not "no-referrer": some engines then send "Origin: null" with the page's own writes.
  'Referrer-Policy': 'same-origin',
  'Cross-Origin-Resource-Policy': 'same-origin',
};

/** Of a picture that only the page itself may show. */
export const PICTURE_HEADERS = { 'Content-Type': TYPES['.png'], ...PAGE_HEADERS };

/**
 * In the shell nobody else can hold the page's window; WebKit would start a second process, to keep for ever,
 * to make sure.
 */
const openerPolicy = (req) =>
  req.headers['user-agent']?.includes('KelvadromeShell/')
    ? {}
    : { 'Cross-Origin-Opener-Policy': 'same-origin' };

const SHARED = '/shared/';
const placeOf = (root, name) =>
  name.startsWith(SHARED) ? [sharedFolder, name.slice(SHARED.length)] : [root, name];

/**
 * Sends the file for `pathname`, or throws `not_found`. Nothing outside `root` and what the page shares with the daemon
 * is reachable, not by links either.
 */
export async function sendFile(res, root, pathname) {
  let name;
  try {
    name = SECTIONS.test(pathname) ? '/index.html' : decodeURIComponent(pathname);
  } catch {
    throw noRoute(pathname);
  }
  const type = TYPES[extname(name)];
  if (!type || name.includes('\0') || name.split('/').some((piece) => piece.startsWith('.')))
    throw noRoute(pathname);
  try {
    const [folder, inside] = placeOf(root, name);
    const top = await realpath(folder);
    const file = await realpath(join(top, inside));
    if (!file.startsWith(top + sep) || !(await stat(file)).isFile()) throw noRoute(pathname);
    send(res, 200, { 'Content-Type': type, ...PAGE_HEADERS, ...openerPolicy(res.req) }, await readFile(file));
  } catch (error) {
    throw error.code === 'ENOENT' || error.code === 'ENOTDIR' ? noRoute(pathname) : error;
  }
}

const escaped = (text) =>
  text.replace(/[&<>"]/g, (c) => ({ '&': '&amp;', '<': '&lt;', '>': '&gt;', '"': '&quot;' })[c]);

const STYLE =
  'body{font:1rem/1.5 system-ui,sans-serif;max-width:28rem;margin:20vh auto;padding:0 1.5rem;text-align:center}h1{font-size:1.5rem}';
// From a file or another program a browser sends no strict cookie along a redirect; from this page on it does.
const ENTER =
  "const say=(name)=>document.querySelector(`[name=${name}]`).content;try{sessionStorage.setItem('kd-token',say('token'));location.replace(say('next'))}catch{document.querySelector('p').hidden=false}";
const hash = (text) => `'sha256-${createHash('sha256').update(text).digest('base64')}'`;
const BARE_HEADERS = {
  ...PAGE_HEADERS,
  'Content-Security-Policy': PAGE_HEADERS['Content-Security-Policy']
    .replace("style-src 'self'", `style-src ${hash(STYLE)}`)
    .replace("script-src 'self'", `script-src ${hash(ENTER)}`),
};

function sendBare(res, status, title, content, headers = {}) {
  const body = `<!doctype html><html lang="en"><meta charset="utf-8"><meta name="color-scheme" content="light dark"><meta name="viewport" content="width=device-width"><title>${escaped(title)}</title><style>${STYLE}</style>${content}</html>`;
  send(
    res,
    status,
    { 'Content-Type': TYPES['.html'], ...BARE_HEADERS, ...openerPolicy(res.req), ...headers },
    body,
  );
}

/** A bare page with one sentence, for a visitor without a session. */
export const sendNotice = (res, status, title, words) =>
  sendBare(res, status, title, `<h1>${escaped(title)}</h1><p>${escaped(words)}</p>`);

/** Hands a browser's tab the token for its writes, to keep for as long as it is open, and leads on to the page. */
export const sendEntrance = (res, token, next, headers) =>
  sendBare(
    res,
    200,
    'Kelvadrome',
    `<meta name="token" content="${escaped(token)}"><meta name="next" content="${escaped(next)}"><p hidden>This browser keeps no data for this page, so it cannot be used here. Allow it to, and open the page from Kelvadrome again.</p><noscript>This page needs JavaScript.</noscript><script>${ENTER}</script>`,
    headers,
  );
