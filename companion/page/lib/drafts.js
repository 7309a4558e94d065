// Words that were typed and not sent. They outlive every repaint and a reload of the page, and end with their card.
const PREFIX = 'kd-draft:';
const memory = new Map();

function storage(work, otherwise) {
  try {
    return work(sessionStorage);
  } catch {
    return otherwise();
  }
}

export const drafts = {
  get(cardId, field) {
    const key = `${PREFIX}${cardId}:${field}`;
    return storage(
      (store) => store.getItem(key),
      () => memory.get(key) ?? null,
    );
  },
  set(cardId, field, text) {
    const key = `${PREFIX}${cardId}:${field}`;
    memory.set(key, text);
    storage(
      (store) => store.setItem(key, text),
      () => {},
    );
  },
  drop(cardId) {
    const mine = (key) => key.startsWith(`${PREFIX}${cardId}:`);
    for (const key of [...memory.keys()].filter(mine)) memory.delete(key);
    storage(
      (store) => {
        for (const key of Object.keys(store).filter(mine)) store.removeItem(key);
      },
      () => {},
    );
  },
};
