// The second look at a high-risk answer. It is shown to the user once more as it will go out, and only what was shown
// is then taken: by the same page session, for the same version of the card, within ten minutes.
import { clock, secret } from './clock.mjs';
import { Refusal } from './errors.mjs';

const LASTS_MS = 600_000;
const MAX_OPEN = 200;

export class Reviews {
  #open = new Map();

  /** Gives the token that must come with the answer. */
  begin(subject, now = clock.steady()) {
    for (const [token, review] of this.#open)
      if (review.until <= now || this.#open.size >= MAX_OPEN) this.#open.delete(token);
    const token = secret();
    this.#open.set(token, { subject: JSON.stringify(subject), until: now + LASTS_MS });
    return token;
  }

  /** Uses the token up; throws `review_needed` when it does not stand for exactly this. */
  finish(token, subject, now = clock.steady()) {
    const review = this.#open.get(token);
    this.#open.delete(token);
    if (review && review.until > now && review.subject === JSON.stringify(subject)) return;
    throw new Refusal(
      'review_needed',
      409,
      'This is marked as high risk. Look at the answer once more and confirm it.',
    );
  }
}
