// Why the relay isn't reached, in words for the user.

const NOT_TRUSTED = /CERT|SELF_SIGNED|VERIFY|ISSUER|_CA_/;
const REFUSED = [4, 5]; // what the relay says to a wrong name or password

/** `trouble` is a Link's {url, error}, or null; gives null when there is nothing to say. */
export function wordsFor(trouble) {
  if (trouble === null) return null;
  const { url, error } = trouble;
  const relay = `The relay at ${new URL(url).host}`;
  if (NOT_TRUSTED.test(error.code))
    return `${relay} shows a certificate that is not trusted: ${error.message.replace(/;.*/s, '')}.`;
  if (REFUSED.includes(error.code)) return `${relay} does not know this computer. Run kd relay serve again.`;
  return `${relay} is not reached: ${error.message || error.code}.`;
}
