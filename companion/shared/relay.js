// What the daemon and a paired phone have in common: how they agree on keys, and the envelopes that travel through the
// relay. Everything is WebCrypto: P-256 (every browser has it), HKDF and AES-GCM with SHA-256. docs/relay.md says why.

const { subtle } = globalThis.crypto;
const CURVE = { name: 'ECDH', namedCurve: 'P-256' };
const LABEL = 'kelvadrome relay 1';
const PUBLIC_BYTES = 65;
const IV_BYTES = 12;
const PAD = 256; // so that the length of an envelope doesn't tell "Yes" from "No"
export const SECRET_BYTES = 16;
export const MAX_ENVELOPE = 256 * 1024; // characters
export const DIGITS = 6;
export const GOOD_MS = 30_000; // how long a command may be on its way
export const LAST = Number.MAX_SAFE_INTEGER; // the number of a farewell: nothing comes after it

const encoder = new TextEncoder();
const decoder = new TextDecoder('utf-8', { fatal: true });
export const random = (bytes) => globalThis.crypto.getRandomValues(new Uint8Array(bytes));

export function toBase64url(bytes) {
  let text = '';
  for (const byte of new Uint8Array(bytes)) text += String.fromCharCode(byte);
  return btoa(text).replaceAll('+', '-').replaceAll('/', '_').replaceAll('=', '');
}

/** Throws for what is not base64url. */
export function fromBase64url(text) {
  if (typeof text !== 'string' || !/^[A-Za-z0-9_-]*$/.test(text)) throw new Error('not base64url');
  return Uint8Array.from(atob(text.replaceAll('-', '+').replaceAll('_', '/')), (c) => c.charCodeAt(0));
}

/** Pieces with their lengths in front, so that no two lists give the same bytes. */
function joined(...pieces) {
  const all = pieces.map((piece) =>
    typeof piece === 'string' ? encoder.encode(piece) : new Uint8Array(piece),
  );
  const bytes = new Uint8Array(all.reduce((sum, piece) => sum + 4 + piece.length, 0));
  let at = 0;
  for (const piece of all) {
    new DataView(bytes.buffer).setUint32(at, piece.length);
    bytes.set(piece, at + 4);
    at += 4 + piece.length;
  }
  return bytes;
}

const digest = async (bytes) => new Uint8Array(await subtle.digest('SHA-256', bytes));

export const newKeys = (extractable) => subtle.generateKey(CURVE, extractable, ['deriveBits']);
export const publicBytes = async (keys) => new Uint8Array(await subtle.exportKey('raw', keys.publicKey));

/** Throws for bytes that are no point of the curve. */
export function publicKey(bytes) {
  if (bytes.length !== PUBLIC_BYTES) throw new Error('not a public key');
  return subtle.importKey('raw', bytes, CURVE, true, []);
}

/** A key as people compare it: 4 groups of 4 hex digits. */
export async function fingerprint(bytes) {
  const hex = [...(await digest(bytes)).slice(0, 8)]
    .map((byte) => byte.toString(16).padStart(2, '0'))
    .join('');
  return hex.match(/.{4}/g).join(' ');
}

async function derive(ikm, salt, info, bits) {
  const key = await subtle.importKey('raw', ikm, 'HKDF', false, ['deriveBits']);
  return new Uint8Array(
    await subtle.deriveBits({ name: 'HKDF', hash: 'SHA-256', salt, info: encoder.encode(info) }, key, bits),
  );
}

export const cipherKey = (raw) => subtle.importKey('raw', raw, 'AES-GCM', false, ['encrypt', 'decrypt']);

/** The key of the first message: whoever has seen the code on the screen has it. */
export async function joinKey({ secret, channel, desk }) {
  return cipherKey(await derive(secret, await digest(joined(LABEL, channel, desk)), 'join', 256));
}

/**
 * What both ends make of their handshake. `desk` is the computer's public key, as it stands in the code; `join` and
 * `welcome` are the two messages as bytes. Without `welcome`, only the key that it is sealed with.
 */
export async function agree({ mine, theirs, secret, channel, desk, join, welcome }) {
  const shared = await subtle.deriveBits({ name: 'ECDH', public: await publicKey(theirs) }, mine, 256);
  const ikm = joined(shared, secret);
  if (welcome === undefined) {
    const salt = await digest(joined(LABEL, channel, desk, join));
    return { welcomeKey: await cipherKey(await derive(ikm, salt, 'welcome', 256)) };
  }
  const salt = await digest(joined(LABEL, channel, desk, join, welcome));
  const number = new DataView((await derive(ikm, salt, 'digits', 64)).buffer).getBigUint64(0);
  return {
    digits: String(number % 10n ** BigInt(DIGITS)).padStart(DIGITS, '0'),
    up: await derive(ikm, salt, 'up', 256),
    down: await derive(ikm, salt, 'down', 256),
  };
}

export const toBytes = (value) => encoder.encode(JSON.stringify(value));
export const fromBytes = (bytes) => JSON.parse(decoder.decode(bytes));

const bound = (channel, stream, n) => joined(LABEL, channel, stream, String(n));

/** An envelope: text for the relay. Where it belongs and its number are bound in, so it is good in that one place alone. */
export async function seal(key, { channel, stream, n }, value) {
  const plain = typeof value === 'object' && value instanceof Uint8Array ? value : toBytes(value);
  const padded = new Uint8Array(Math.ceil((plain.length + 1) / PAD) * PAD).fill(0x20);
  padded.set(plain);
  const iv = random(IV_BYTES);
  const sealed = await subtle.encrypt(
    { name: 'AES-GCM', iv, additionalData: bound(channel, stream, n) },
    key,
    padded,
  );
  return JSON.stringify({ v: 1, s: stream, n, b: `${toBase64url(iv)}${toBase64url(sealed)}` });
}

/** The outside of an envelope: {stream, n, box}; null for anything else. */
export function readEnvelope(text) {
  if (typeof text !== 'string' || text.length > MAX_ENVELOPE) return null;
  try {
    const { v, s, n, b } = JSON.parse(text);
    const isOurs =
      v === 1 && typeof s === 'string' && Number.isSafeInteger(n) && n >= 0 && typeof b === 'string';
    return isOurs ? { stream: s, n, box: b } : null;
  } catch {
    return null;
  }
}

const IV_TEXT = 16; // 12 bytes as base64url

/** The bytes in an envelope, without the padding; null when it was not sealed with this key for this very place. */
export async function openBytes(key, channel, { stream, n, box }) {
  try {
    const iv = fromBase64url(box.slice(0, IV_TEXT));
    const plain = new Uint8Array(
      await subtle.decrypt(
        { name: 'AES-GCM', iv, additionalData: bound(channel, stream, n) },
        key,
        fromBase64url(box.slice(IV_TEXT)),
      ),
    );
    return plain.subarray(0, plain.findLastIndex((byte) => byte !== 0x20) + 1);
  } catch {
    return null;
  }
}

/** The same, as the value that was sealed. */
export async function open(key, channel, envelope) {
  const bytes = await openBytes(key, channel, envelope);
  try {
    return bytes && fromBytes(bytes);
  } catch {
    return null;
  }
}

// The two topics of a channel, the only ones that its phone may use.
export const topicUp = (channel) => `kd/${channel}/up`;
export const topicDown = (channel) => `kd/${channel}/down`;
export const CHANNEL = /^[A-Za-z0-9]{8,64}$/;

/** The code on the screen: an address of the phone's page whose fragment, which no server gets to see, holds the rest. */
export function offerUrl(appUrl, { urls, channel, password, secret, desk }) {
  const url = new URL(appUrl);
  url.hash = new URLSearchParams({
    v: '1',
    r: urls.join(' '),
    c: channel,
    w: password,
    s: toBase64url(secret),
    k: toBase64url(desk),
  }).toString();
  return url.href;
}

/** What the code holds; null when it isn't one. */
export function readOffer(hash) {
  const fields = new URLSearchParams(hash.replace(/^#/, ''));
  try {
    const offer = {
      urls: fields.get('r').split(' '),
      channel: fields.get('c'),
      password: fields.get('w'),
      secret: fromBase64url(fields.get('s')),
      desk: fromBase64url(fields.get('k')),
    };
    const good =
      fields.get('v') === '1' &&
      CHANNEL.test(offer.channel) &&
      offer.secret.length === SECRET_BYTES &&
      offer.desk.length === PUBLIC_BYTES &&
      offer.urls.every((url) => /^wss?:\/\//.test(url));
    return good ? offer : null;
  } catch {
    return null;
  }
}

/** What a high-risk answer's confirmation on the phone signs: this answer, of this phone, once. */
export async function confirmationOf({ channel, n, card_id: card, version, answer }) {
  return toBase64url(
    await digest(
      joined(LABEL, 'confirm', channel, String(n), card, String(version), JSON.stringify(answer ?? null)),
    ),
  );
}
