// Of all tabs of this page one works at a time: two would count with the same numbers. The others say so, offer to take
// over, and go on by themselves once that one is gone.

const NAME = 'kelvadrome';
const LEAVE_MS = 1500; // how long the working tab may take to let go; one that sleeps can't

/**
 * Comes back once this tab is the one that works. `waits(take)` is called when another is: `take()` takes its place.
 * `leave()` is called when another tab takes this one's place; it gives a promise of having stopped.
 */
export async function alone({ waits, leave }) {
  if (!navigator.locks) return;
  const others = new BroadcastChannel(NAME);
  await new Promise((works) => {
    let patience = null;
    let isOurs = false;
    const hold = (lock) => {
      if (lock === null || isOurs) return undefined;
      isOurs = true;
      clearTimeout(patience);
      works();
      return new Promise((letGo) => {
        others.onmessage = () => leave().finally(letGo);
      });
    };
    // What is taken by force is told so by an error; the other may have waited in vain for this tab.
    const request = (options) => navigator.locks.request(NAME, options, hold).catch(() => isOurs && leave());
    const take = () => {
      others.postMessage('take');
      clearTimeout(patience);
      patience = setTimeout(() => isOurs || request({ steal: true }), LEAVE_MS);
    };
    request({ ifAvailable: true }).then(() => {
      if (isOurs) return;
      waits(take);
      request({});
    });
  });
}
