// A phone's own confirmation of a high-risk answer (its face, finger or code): a WebAuthn assertion by the key that the
// phone showed when it was paired. Only what the daemon needs of the standard.
import { createHash, createPublicKey, verify } from 'node:crypto';

const ES256 = -7;
const USER_PRESENT = 1;
const USER_VERIFIED = 4;
const sha256 = (bytes) => createHash('sha256').update(bytes).digest();
const bytesOf = (text) => Buffer.from(typeof text === 'string' ? text : '', 'base64url');

/**
 * The key that a phone brings, as it is kept; null when it is none that can be checked. `host` is that of the
 * phone's page.
 */
export function readPasskey(passkey, host) {
  if (passkey?.alg !== ES256 || typeof passkey.id !== 'string' || passkey.id.length > 400) return null;
  try {
    const key = createPublicKey({ key: bytesOf(passkey.key), format: 'der', type: 'spki' });
    if (key.asymmetricKeyType !== 'ec' || key.asymmetricKeyDetails.namedCurve !== 'prime256v1') return null;
    return { id: passkey.id, key: passkey.key, host };
  } catch {
    return null;
  }
}

/** Whether `proof` confirms `challenge` (base64url) with this key, on this page, by a person whom the phone knows. */
export function confirms(passkey, proof, challenge, origin) {
  const data = bytesOf(proof?.data);
  const client = bytesOf(proof?.client);
  if (proof?.id !== passkey.id || data.length < 37) return false;
  try {
    const said = JSON.parse(client.toString('utf8'));
    if (said.type !== 'webauthn.get' || said.challenge !== challenge || said.origin !== origin) return false;
    if (said.crossOrigin === true) return false;
    const wanted = USER_PRESENT | USER_VERIFIED;
    if (!data.subarray(0, 32).equals(sha256(passkey.host)) || (data[32] & wanted) !== wanted) return false;
    const key = createPublicKey({ key: bytesOf(passkey.key), format: 'der', type: 'spki' });
    return verify('sha256', Buffer.concat([data, sha256(client)]), key, bytesOf(proof.signature));
  } catch {
    return false;
  }
}
