// Where the phone keeps its keys: one object in IndexedDB. Its private key can be used from there, never read out.

const open = () =>
  new Promise((done, failed) => {
    const request = indexedDB.open('kelvadrome', 1);
    request.onupgradeneeded = () => request.result.createObjectStore('phone');
    request.onsuccess = () => done(request.result);
    request.onerror = () => failed(request.error);
  });

async function inStore(mode, work) {
  const db = await open();
  try {
    return await new Promise((done, failed) => {
      const transaction = db.transaction('phone', mode, { durability: 'strict' });
      const request = work(transaction.objectStore('phone'));
      transaction.oncomplete = () => done(request.result);
      transaction.onabort = () => failed(transaction.error);
    });
  } finally {
    db.close();
  }
}

export const storage = {
  load: () => inStore('readonly', (store) => store.get('mine')),
  save: (value) => inStore('readwrite', (store) => store.put(value, 'mine')),
  clear: () => inStore('readwrite', (store) => store.clear()),
};
