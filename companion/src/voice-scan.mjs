// Dictation apps on this machine. Only what their bundles and /proc say is told; whose signature a bundle bears can't
// be seen here, so nothing is said of it, and the shell looks at a bundle itself before it opens anything.
import { readFileSync, readdirSync, readlinkSync, realpathSync } from 'node:fs';
import { homedir } from 'node:os';
import { join, sep } from 'node:path';

export const DICTATION_APPS = [
  {
    id: 'superwhisper',
    name: 'superwhisper',
    file: 'superwhisper.app',
    bundle: 'com.superduper.superwhisper',
    scheme: 'superwhisper',
  },
  { id: 'spokenly', name: 'Spokenly', file: 'Spokenly.app', bundle: 'app.spokenly', scheme: 'spokenly' },
];

/** The folders that apps are looked for in. */
export const appRoots = (home = homedir()) => [
  '/Applications',
  join(home, 'Applications'),
  '/Applications/Setapp',
];

/** Where an app lies; undefined when it is nowhere, or a link that leads out of its root. */
function locate(file, roots) {
  for (const root of roots)
    try {
      const real = realpathSync(root);
      const path = realpathSync(join(real, file));
      if (path.startsWith(real + sep)) return path;
    } catch {
      /* not there */
    }
  return undefined;
}

/** What a bundle says of itself. Only the XML form is read: of a binary one nothing is known here. */
function infoOf(path) {
  let text;
  try {
    text = readFileSync(join(path, 'Contents/Info.plist'), 'utf8');
  } catch {
    return {};
  }
  const textOf = (key) => new RegExp(`<key>${key}</key>\\s*<string>([^<]*)</string>`).exec(text)?.[1];
  const lists = text.matchAll(/<key>CFBundleURLSchemes<\/key>\s*<array>([\s\S]*?)<\/array>/g);
  const schemes = [...lists].flatMap(([, list]) =>
    [...list.matchAll(/<string>([^<]*)<\/string>/g)].map(([, scheme]) => scheme),
  );
  return { id: textOf('CFBundleIdentifier'), version: textOf('CFBundleShortVersionString'), schemes };
}

function isRunning(path) {
  try {
    return readdirSync('/proc').some((pid) => {
      try {
        return /^\d+$/.test(pid) && readlinkSync(`/proc/${pid}/exe`).startsWith(path + sep);
      } catch {
        return false; // it has ended, or is not for us to look into
      }
    });
  } catch {
    return false;
  }
}

/** The apps that are here, and the selected one if it isn't. */
export function scanApps(selected, roots = appRoots()) {
  const rows = DICTATION_APPS.map((app) => {
    const path = locate(app.file, roots);
    const row = { id: app.id, name: app.name, installed: path !== undefined, selected: app.id === selected };
    if (path === undefined) return { ...row, running: false };
    const info = infoOf(path);
    const takes = info.id === app.bundle && info.schemes.includes(app.scheme);
    return {
      ...row,
      running: isRunning(path),
      ...(info.version ? { version: info.version } : {}),
      path,
      ...(info.schemes ? { url_control: { start: takes, stop: takes, mode: takes } } : {}),
    };
  });
  return rows.filter((row) => row.installed || row.selected);
}
