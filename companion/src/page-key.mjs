// The page key of this home, kept as its hash. Whoever registers one first holds the page.
import { createHash, randomBytes, timingSafeEqual } from 'node:crypto';
import {
  closeSync,
  constants,
  fsyncSync,
  linkSync,
  openSync,
  readFileSync,
  unlinkSync,
  writeSync,
} from 'node:fs';
import { basename, dirname, join } from 'node:path';
import { conflict, invalid } from './errors.mjs';
import { kdCommand } from './layout.mjs';

const { O_CREAT, O_EXCL, O_NOFOLLOW = 0, O_RDONLY, O_WRONLY } = constants;
const FORM = /^[\x21-\x7e]{16,256}$/;

export const sha256 = (text) => createHash('sha256').update(text, 'utf8').digest('hex');
export const same = (a, b) =>
  timingSafeEqual(createHash('sha256').update(a).digest(), createHash('sha256').update(b).digest());

function withFile(path, flags, work) {
  const fd = openSync(path, flags, 0o600);
  try {
    return work(fd);
  } finally {
    closeSync(fd);
  }
}

export class PageKey {
  constructor(home) {
    this.path = join(home, 'page-key.sha256');
  }

  get #kd() {
    return kdCommand(dirname(this.path));
  }

  #damaged() {
    return conflict(
      `${basename(this.path)} in the data home is damaged. "${this.#kd} page-key --reset" forgets it.`,
    );
  }

  /** The registered hash, or null. A file that holds none locks the page rather than opening it to everyone. */
  get hash() {
    let text;
    try {
      text = withFile(this.path, O_RDONLY | O_NOFOLLOW, (fd) => readFileSync(fd, 'latin1')).trim();
    } catch (error) {
      if (error.code === 'ENOENT') return null;
      throw this.#damaged();
    }
    if (!/^[0-9a-f]{64}$/.test(text)) throw this.#damaged();
    return text;
  }

  /** Whether `key` is the registered one; false when there is none. */
  matches(key) {
    const known = this.hash;
    return known !== null && typeof key === 'string' && same(known, sha256(key));
  }

  /** Registers the key. The same one again is fine, another is a conflict. Gives whether it is the first. */
  claim(key) {
    if (typeof key !== 'string' || !FORM.test(key))
      throw invalid('key', 'must be 16 to 256 printable characters');
    if (this.hash === null && this.#create(`${sha256(key)}\n`)) return true;
    if (!this.matches(key))
      throw conflict(
        `Another page key is registered for this home. "${this.#kd} page-key" says who holds the page.`,
      );
    return false;
  }

  /** The file comes into being whole, or not at all; false when somebody else was quicker. */
  #create(text) {
    const whole = `${this.path}.${randomBytes(6).toString('hex')}`;
    withFile(whole, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, (fd) => {
      writeSync(fd, text);
      fsyncSync(fd);
    });
    try {
      linkSync(whole, this.path);
      withFile(dirname(this.path), O_RDONLY, fsyncSync);
      return true;
    } catch (error) {
      if (error.code === 'EEXIST') return false;
      throw error;
    } finally {
      unlinkSync(whole);
    }
  }

  forget() {
    try {
      unlinkSync(this.path);
    } catch (error) {
      if (error.code !== 'ENOENT') throw error;
    }
  }
}
