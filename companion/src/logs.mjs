// The daemon's own logs, which the launcher gives it as its output. One daemon may run for months, so a log that has
// grown too large is copied to NAME.1, over the one of before, and begins anew.
import { constants, copyFileSync, fstatSync, ftruncateSync, readlinkSync, rmSync } from 'node:fs';
import { basename } from 'node:path';

const LARGEST = 1 << 20;
const OURS = /^kelvadromed\.(out|err)\.log$/;

function keepSmall(fd) {
  const info = fstatSync(fd);
  if (!info.isFile() || info.size <= LARGEST) return;
  const path = readlinkSync(`/proc/self/fd/${fd}`);
  if (!OURS.test(basename(path))) return;
  rmSync(`${path}.1`, { force: true });
  copyFileSync(path, `${path}.1`, constants.COPYFILE_EXCL);
  // The file is open for appending, so the next line goes to its new beginning.
  ftruncateSync(fd, 0);
}

/** Only files with the names that the launcher gives them are touched; a log that cannot be moved is written on. */
export function keepLogsSmall() {
  for (const fd of [1, 2]) {
    try {
      keepSmall(fd);
    } catch {
      /* it is closed, or its folder is gone */
    }
  }
}
