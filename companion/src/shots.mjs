// Screenshots that went with a request: files that the shell took into the home's folder "shots". Only those that are
// tied to a card are served, and only as what they are.
import { constants, closeSync, fstatSync, lstatSync, openSync, readFileSync } from 'node:fs';
import { join } from 'node:path';
import { invalid, noRoute } from './errors.mjs';
import { optional } from './check.mjs';

const ID = /^shot-[0-9]{8}T[0-9]{6}Z-[a-z0-9]{6}$/;
const MOST = 3;
const MAX_BYTES = 26_214_400;
const PNG = Buffer.from([0x89, 0x50, 0x4e, 0x47, 0x0d, 0x0a, 0x1a, 0x0a]);

export class Shots {
  constructor(home) {
    this.folder = join(home, 'shots');
  }

  file(id) {
    return join(this.folder, `${id}.png`);
  }

  isThere(id) {
    try {
      return lstatSync(this.folder).isDirectory() && lstatSync(this.file(id)).isFile();
    } catch {
      return false;
    }
  }

  /** The ids in a request's body, each of a file that is there. */
  read(body) {
    const ids = optional.list(body, 'shots', { max: MOST }) ?? [];
    ids.forEach((id, index) => {
      if (typeof id !== 'string' || !ID.test(id)) throw invalid(`shots[${index}]`, 'is no screenshot');
      if (ids.indexOf(id) !== index) throw invalid(`shots[${index}]`, 'is there twice');
      if (!this.isThere(id)) throw invalid(`shots[${index}]`, 'there is no such screenshot any more');
    });
    return ids;
  }

  /** The picture behind "/shots/<id>.png"; throws `not_found`. `isTied` tells whether a card has it. */
  picture(path, isTied) {
    const id = /^\/shots\/([^/]+)\.png$/.exec(path)?.[1];
    if (id === undefined || !ID.test(id) || !isTied(id) || !this.isThere(id)) throw noRoute(path);
    let file;
    try {
      file = openSync(this.file(id), constants.O_RDONLY | constants.O_NOFOLLOW | constants.O_NONBLOCK);
      const { size, uid } = fstatSync(file);
      if (size > MAX_BYTES || uid !== process.getuid()) throw noRoute(path);
      const bytes = readFileSync(file);
      if (!bytes.subarray(0, PNG.length).equals(PNG)) throw noRoute(path);
      return bytes;
    } catch {
      throw noRoute(path); // swapped or gone since
    } finally {
      if (file !== undefined) closeSync(file);
    }
  }
}
