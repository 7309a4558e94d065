// What became of something that was sent and whose reply was lost or late: the card is read until it tells.
import { post } from '../lib/api.js';

const FIRST_MS = 500;
const LONGEST_MS = 5000;

/**
 * Gives the card as soon as it has another version, or when it was seen unchanged twice: a daemon that wakes up may answer
 * the read before what waits beside it. Null when there is no card any more, or it has left the page.
 */
export async function lookAgain(view, version) {
  let unchanged = 0;
  for (let pause = FIRST_MS; view.element.isConnected; pause = Math.min(2 * pause, LONGEST_MS)) {
    await Promise.race([new Promise((done) => setTimeout(done, pause)), view.nextVersion()]);
    if (view.card.version > version) return view.card;
    try {
      const { card } = await post('/v1/cards/detail', { card_id: view.card.id });
      if (card.version !== version || ++unchanged === 2) return card;
    } catch (error) {
      if (error.code === 'unknown_card') return null;
    }
  }
  return null;
}
