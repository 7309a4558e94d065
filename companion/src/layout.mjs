import { existsSync } from 'node:fs';
import { dirname, join } from 'node:path';
import { fileURLToPath } from 'node:url';

/** The first of these that is there: an installed tree has other folder names than the source tree. */
const beside = (...places) => {
  const paths = places.map((place) => fileURLToPath(new URL(`../${place}`, import.meta.url)));
  return paths.find(existsSync) ?? paths[0];
};

/** The folder of the page. */
export const pageFolder = beside('web/dist', 'page');
/** The program `kd`. */
export const kdProgram = beside('dist/bin.js', 'bin/bin.js');
/** What the daemon and the page have in common. The page gets it as /shared/. */
export const sharedFolder = beside('shared');
/** The program that watches processes: beside the daemon as it was started, for a build only links to these sources. */
export const processWatch = join(dirname(process.argv[1] ?? '.'), 'bin/process-watch');
