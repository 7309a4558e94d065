// Writes the texts of the packages: make.mjs KELVADROME OUT. KELVADROME is the built program, whose --help is read.
// OUT/core and OUT/desktop are laid out as below share.
import { execFileSync } from 'node:child_process';
import { mkdirSync, readFileSync, rmSync, writeFileSync } from 'node:fs';
import { dirname, join } from 'node:path';
import { fileURLToPath } from 'node:url';
import { gzipSync } from 'node:zlib';
import { helpFor } from '../../companion/src/kd/help.mjs';
import { COMMANDS, GENERAL } from '../../companion/src/kd/main.mjs';
import { bash, fish, programs, zsh } from './completions.mjs';
import { readHelp } from './help.mjs';
import { copyright, debianChangelog, thirdParty } from './legal.mjs';
import { manual } from './manual.mjs';

const CONTACT = 'Kelvadrome maintainers <maintainers@kelvadrome.invalid>';
const [program, out] = process.argv.slice(2);
const root = fileURLToPath(new URL('../..', import.meta.url));
const read = (name) => readFileSync(join(root, name), 'utf8');

function write(path, text) {
  mkdirSync(dirname(join(out, path)), { recursive: true });
  writeFileSync(join(out, path), path.endsWith('.gz') ? gzipSync(text, { level: 9 }) : text);
}

const version = execFileSync(program, ['--version'], { encoding: 'utf8' }).trim().split(' ').at(-1);
const kd = readHelp(helpFor('kd'));
const kelvadrome = readHelp(execFileSync(program, ['--help'], { encoding: 'utf8' }));

for (const part of ['core', 'desktop']) rmSync(join(out, part), { recursive: true, force: true });
const kdPage = { version, summary: kd.summary.replace(/\.$/, ''), also: 'kelvadrome' };
write('core/man/man1/kd.1.gz', manual('kd', kd, kdPage));
const page = { version, summary: 'answer your coding agents from one place', also: 'kd' };
write('core/man/man1/kelvadrome.1.gz', manual('kelvadrome', kelvadrome, page));
for (const one of programs({ kd: { help: kd, commands: COMMANDS, general: GENERAL }, kelvadrome })) {
  write(`core/bash-completion/completions/${one.name}`, bash(one));
  write(`core/zsh/vendor-completions/_${one.name}`, zsh(one));
  write(`core/fish/vendor_completions.d/${one.name}.fish`, fish(one));
}
const changelog = debianChangelog(read('CHANGELOG.md'), CONTACT);
for (const [part, name] of [
  ['core', 'kelvadrome-core'],
  ['desktop', 'kelvadrome'],
]) {
  write(`${part}/doc/${name}/copyright`, copyright(part === 'core'));
  write(`${part}/doc/${name}/changelog.gz`, changelog.replace(/^kelvadrome \(/gm, `${name} (`));
}
write('core/lintian/overrides/kelvadrome-core', read('packaging/kelvadrome-core.lintian-overrides'));
write('core/doc/kelvadrome-core/third-party.txt.gz', thirdParty(root));
