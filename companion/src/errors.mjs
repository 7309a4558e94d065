/** What the daemon says no to: a machine code, an HTTP status, and a sentence for a person. */
export class Refusal extends Error {
  constructor(code, status, message) {
    super(message);
    this.code = code;
    this.status = status;
  }
}

export const invalid = (field, words) => new Refusal('validation_failed', 400, `${field}: ${words}`);
export const stale = (message) => new Refusal('stale', 409, message);
export const conflict = (message) => new Refusal('conflict', 409, message);
export const forbidden = (message) => new Refusal('forbidden', 403, message);
export const unauthorized = () =>
  new Refusal('unauthorized', 401, 'This page session is not known. Open the page from Kelvadrome again.');
export const unknownCard = (id) => new Refusal('unknown_card', 404, `There is no card "${id}".`);
export const noRoute = (path) => new Refusal('not_found', 404, `kelvadromed has no route ${path}.`);

/** A start that cannot go on: `message` goes to stderr, the process exits with `exitCode`. */
export class StartError extends Error {
  constructor(message, exitCode = 1) {
    super(message);
    this.exitCode = exitCode;
  }
}
