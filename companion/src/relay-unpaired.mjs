// The phones that were unpaired, kept beside the database: when that is restored from an older backup, it must not take one
// of them back in.
import { closeSync, fsyncSync, openSync, readFileSync, renameSync, writeSync } from 'node:fs';
import { join } from 'node:path';

const FILE = 'relay-unpaired.json';

export class Unpaired {
  #farewells; // channel -> the sealed farewell

  constructor(home, wentWrong) {
    this.path = join(home, FILE);
    let kept = {};
    try {
      kept = JSON.parse(readFileSync(this.path, 'utf8'));
    } catch (error) {
      if (error.code !== 'ENOENT') wentWrong(error);
    }
    this.#farewells = new Map(Object.entries(kept ?? {}).filter(([, text]) => typeof text === 'string'));
  }

  get all() {
    return [...this.#farewells];
  }

  has(channel) {
    return this.#farewells.has(channel);
  }

  /** On the disk when this comes back. */
  keep(channel, farewell) {
    this.#farewells.set(channel, farewell);
    const fd = openSync(`${this.path}.new`, 'w', 0o600);
    try {
      writeSync(fd, JSON.stringify(Object.fromEntries(this.#farewells)));
      fsyncSync(fd);
    } finally {
      closeSync(fd);
    }
    renameSync(`${this.path}.new`, this.path);
  }
}
