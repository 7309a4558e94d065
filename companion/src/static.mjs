// The page's files, and the sections that are all the same page.
import { readFile, realpath, stat } from 'node:fs/promises';
import { createHash } from 'node:crypto';
import { extname, join, sep } from 'node:path';
import { noRoute } from './errors.mjs';
import { send } from './http.mjs';

const TYPES = { '.html': 'text/html; charset=utf-8', '.js': 'text/javascript; charset=utf-8', '.css': 'text/css; charset=utf-8', '.svg': 'image/svg+xml', '.png': 'image/png', '.ico': 'image/x-icon' };
const SECTIONS = /^\/(topics(\/[^/]+)?|handoffs|skills|receipts|agents|autopilot|search|onboarding)?$/;

export const PAGE_HEADERS = {
  'Content-Security-Policy': "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self' data:; connect-src 'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'; require-trusted-types-for 'script'",
  // Not "no-referrer": some engines then send "Origin: null" with the page's own writes.
  'Referrer-Policy': 'same-origin',
  'Cross-Origin-Resource-Policy': 'same-origin',
};

/** In the shell nobody else can hold the page's window; WebKit would start a second process, to keep for ever, to make sure. */
const openerPolicy = (req) => (req.headers['user-agent']?.includes('KelvadromeShell/') ? {} : { 'Cross-Origin-Opener-Policy': 'same-origin' });

/** Sends the file for `pathname`, or throws `not_found`. Nothing outside `root` is reachable, not by links either. */
export async function sendFile(res, root, pathname) {
  let name;
  try {
    name = SECTIONS.test(pathname) ? '/index.html' : decodeURIComponent(pathname);
  } catch {
    throw noRoute(pathname);
  }
  const type = TYPES[extname(name)];
  if (!type || name.includes('\0') || name.split('/').some((piece) => piece.startsWith('.'))) throw noRoute(pathname);
  try {
    const top = await realpath(root);
    const file = await realpath(join(top, name));
    if (!file.startsWith(top + sep) || !(await stat(file)).isFile()) throw noRoute(pathname);
    send(res, 200, { 'Content-Type': type, ...PAGE_HEADERS, ...openerPolicy(res.req) }, await readFile(file));
  } catch (error) {
    throw error.code === 'ENOENT' || error.code === 'ENOTDIR' ? noRoute(pathname) : error;
  }
}

const escape = (text) => text.replace(/[&<>"]/g, (c) => ({ '&': '&amp;', '<': '&lt;', '>': '&gt;', '"': '&quot;' })[c]);

const NOTICE_STYLE = 'body{font:1rem/1.5 system-ui,sans-serif;max-width:28rem;margin:20vh auto;padding:0 1.5rem;text-align:center}h1{font-size:1.5rem}';
const NOTICE_HEADERS = { ...PAGE_HEADERS, 'Content-Security-Policy': PAGE_HEADERS['Content-Security-Policy'].replace("style-src 'self'", `style-src 'sha256-${createHash('sha256').update(NOTICE_STYLE).digest('base64')}'`) };

/** A bare page with one sentence, for a visitor without a session. */
export function sendNotice(res, status, title, words) {
  const body = `<!doctype html><html lang="en"><meta charset="utf-8"><meta name="color-scheme" content="light dark"><meta name="viewport" content="width=device-width"><title>${escape(title)}</title><style>${NOTICE_STYLE}</style><h1>${escape(title)}</h1><p>${escape(words)}</p></html>`;
  send(res, status, { 'Content-Type': TYPES['.html'], ...NOTICE_HEADERS, ...openerPolicy(res.req) }, body);
}
