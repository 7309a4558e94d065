import { existsSync, realpathSync } from 'node:fs';
import { homedir } from 'node:os';
import { delimiter, dirname, join } from 'node:path';
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
/** The stand-in for an agent that asks the sample question. */
export const sampleAgent = beside('sample-agent/sample-agent.mjs');
export const defaultHome = () => join(homedir(), 'Library/Application Support/Kelvadrome');
/** The relay connector and the phone's page, as they were built. */
export const relayFolder = beside('node_modules/@kelvadrome/relay', '../build/relay');
/** What the daemon and the page have in common. The page gets it as /shared/. */
export const sharedFolder = beside('shared');
/** The program that watches processes: beside the daemon as it was started, for a build only links to these sources. */
export const processWatch = join(dirname(process.argv[1] ?? '.'), 'bin/process-watch');

const quoted = (text) => (/^[\w@%+=:,./-]+$/.test(text) ? text : `'${text.replaceAll("'", "'\\''")}'`);

/** Whether the first `kd` on the PATH is this very one. */
function isFoundByName(launcher, env) {
  const found = (env.PATH ?? '')
    .split(delimiter)
    .map((folder) => join(folder, 'kd'))
    .find(existsSync);
  return found !== undefined && realpathSync(found) === realpathSync(launcher);
}

const withHome = (home, command) =>
  home === defaultHome() ? command : `KELVADROME_HOME=${quoted(home)} ${command}`;

/** The script that starts `kd` on this machine; null in a tree that has none. */
const launcher = () =>
  ['../../scripts/kd', '../../../../../../bin/kd']
    .map((place) => fileURLToPath(new URL(place, import.meta.url)))
    .find(existsSync) ?? null;

/** How a program that knows no PATH of ours starts `kd`. */
export function kdByPath(home = defaultHome()) {
  const script = launcher();
  return withHome(home, script ? quoted(script) : `${quoted(process.execPath)} ${quoted(kdProgram)}`);
}

/**
 * How a person at a shell of this machine starts `kd`, ready to be pasted: by name where that finds it, else
 * by its path. For a home that is not the usual one, the command says which.
 */
export function kdCommand(home = defaultHome(), env = process.env) {
  const script = launcher();
  return script && isFoundByName(script, env) ? withHome(home, 'kd') : kdByPath(home);
}
