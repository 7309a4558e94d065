// The phone's own confirmation: its face, finger or code, as the browser asks for it.
import { fromBase64url, random, toBase64url } from '../../shared/relay.js';

const ES256 = -7;
const LIMIT_MS = 60_000;
const isName = (host) => host === 'localhost' || /[a-z]/i.test(host.split('.').pop());

export async function canConfirm() {
  try {
    return (
      isName(location.hostname) && (await PublicKeyCredential.isUserVerifyingPlatformAuthenticatorAvailable())
    );
  } catch {
    return false;
  }
}

/** Makes the key of confirmations; null when the person or the phone doesn't want to. */
export async function makePasskey() {
  if (!(await canConfirm())) return null;
  try {
    const { rawId, response } = await navigator.credentials.create({
      publicKey: {
        rp: { name: 'kelvadrome' },
        user: { id: random(16), name: 'kelvadrome', displayName: 'kelvadrome' },
        challenge: random(32),
        pubKeyCredParams: [{ type: 'public-key', alg: ES256 }],
        authenticatorSelection: { authenticatorAttachment: 'platform', userVerification: 'required' },
        timeout: LIMIT_MS,
      },
    });
    return {
      id: toBase64url(rawId),
      alg: response.getPublicKeyAlgorithm(),
      key: toBase64url(response.getPublicKey()),
    };
  } catch {
    return null;
  }
}

/** The person's confirmation of `challenge`; null when it isn't given. */
export async function confirmWith(id, challenge) {
  try {
    const { rawId, response } = await navigator.credentials.get({
      publicKey: {
        challenge: fromBase64url(challenge),
        allowCredentials: [{ type: 'public-key', id: fromBase64url(id) }],
        userVerification: 'required',
        timeout: LIMIT_MS,
      },
    });
    return {
      id: toBase64url(rawId),
      data: toBase64url(response.authenticatorData),
      client: toBase64url(response.clientDataJSON),
      signature: toBase64url(response.signature),
    };
  } catch {
    return null;
  }
}
