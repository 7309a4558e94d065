// Who may include whom, and that each library links what it includes. LIBRARIES is what the configuration wrote.
import assert from 'node:assert/strict';
import { existsSync, globSync, readFileSync } from 'node:fs';
import { basename, dirname, relative, resolve } from 'node:path';
import { test } from 'node:test';

const root = resolve(import.meta.dirname, '../..');
const under = (folder, rooms) => rooms.split(' ').map((room) => `${folder}/${room}`);

// From the bottom up: a folder may include itself and those before it in its own stack.
const kit = under(
  'KelvadromeKit',
  'support wire daemon attention page delivery onboarding brand bar capture voice relay',
);
const model = 'Kelvadrome/model';
const glib = 'Kelvadrome/glib';
const ends = under('Kelvadrome/platform/linux', 'process core session desk audio');
const system = [...ends, 'Kelvadrome/hub'];
const gtk = [...under('Kelvadrome/gtk', 'parts web window panel bar strip tray settings'), 'Kelvadrome/gtk'];
const terminal = ['Kelvadrome/terminal/panel', 'Kelvadrome/terminal'];
const stacks = [
  [...kit, model, glib, ...system, 'Kelvadrome'],
  [...kit, model, glib, ...gtk],
  [...kit, model, ...terminal],
];
// Where a front end and the ends of the system are put together.
const compositions = [
  'Kelvadrome/gtk/FrontEnd.cpp',
  'Kelvadrome/gtk/DesktopBar.h',
  'Kelvadrome/gtk/DesktopBar.cpp',
  'Kelvadrome/gtk/DesktopVoice.h',
  'Kelvadrome/gtk/DesktopVoice.cpp',
  'Kelvadrome/terminal/FrontEnd.cpp',
];

const windows = /^(adwaita|cairo|gdk|gtk|libsoup|webkit)/;
const screen = /^(curses|term\.h)/;
const bus = /^(gio|glib|libsecret|X11|xcb)/;
const sound = /^(gst|pocketsphinx|sphinxbase)/;
const noToolkit = [windows, screen, bus, sound];
const forbidden = (folder) => {
  if (gtk.includes(folder)) return [screen, sound];
  if (folder === 'Kelvadrome/terminal') return [windows, bus, sound];
  return folder === glib || system.includes(folder) ? [windows, screen] : noToolkit;
};

// A header of ours without a source: there is nothing to link.
const isInterface = (header) =>
  header.startsWith('Kelvadrome') && !existsSync(`${root}/${header.replace(/\.h$/, '.cpp')}`);
const lineOf = (text, at) => text.slice(0, at).split('\n').length;
const read = (path) => {
  const text = readFileSync(`${root}/${path}`, 'utf8');
  const includes = [...text.matchAll(/^[ \t]*#[ \t]*include[ \t]*(["<])([^">]+)[">]/gm)];
  return {
    path,
    includes: includes.map((m) => ({ own: m[1] === '"', name: m[2], line: lineOf(text, m.index) })),
  };
};
const files = globSync('{KelvadromeKit,Kelvadrome}/**/*.{h,cpp}', { cwd: root }).map(read);
const precompiled = read('cmake/Precompiled.h'); // belongs to the lowest library

function reasonAgainst(path, { own, name }) {
  const [from, to] = [dirname(path), dirname(name)];
  const mine = stacks.filter((stack) => stack.includes(from));
  if (mine.length === 0) return `${from} has no place in the order of folders`;
  if (!own) return forbidden(from).some((toolkit) => toolkit.test(name)) ? `${from} knows no toolkit` : null;
  if (!stacks.flat().includes(to))
    return 'not a path from the root into a folder that has a place in the order';
  if (to === model && ends.includes(from) && !isInterface(name))
    return 'of the model, the ends of the system see interfaces only';
  if (mine.some((stack) => stack.includes(to) && stack.indexOf(to) <= stack.indexOf(from))) return null;
  if (compositions.includes(path) && system.includes(to)) return null;
  return mine.some((stack) => stack.includes(to)) ? `${to} is above ${from}` : `${from} must not know ${to}`;
}

test('Includes point down', () => {
  assert.ok(files.length > 300, `only ${files.length} files were found`);
  const found = files.flatMap(({ path, includes }) =>
    includes
      .map((include) => [include, reasonAgainst(path, include)])
      .filter(([, reason]) => reason)
      .map(([{ line, name }, reason]) => `${path}:${line}: ${name}: ${reason}`),
  );
  assert.equal(found.join('\n'), '');
});

// The target of CMake, or those of which one is enough, that brings a header from outside.
const outside = [
  [/^adwaita/, 'PkgConfig::ADWAITA'],
  [/^boost\/json/, 'Boost::json'],
  [/^boost\/url/, 'Boost::url'],
  [/^boost\//, 'Boost::headers'],
  [/^(cairomm|gdk|giomm|glibmm|gtk)/, 'PkgConfig::GTKMM'],
  [/^curses/, 'ncursesw'],
  [/^curl\//, 'CURL::libcurl'],
  [/^dlfcn/, 'dl'],
  [/^fmt\//, 'PkgConfig::FMT'],
  [/^(gio\/|glib)/, 'PkgConfig::GIO', 'PkgConfig::GTKMM'],
  [/^gst\//, 'PkgConfig::GSTREAMER'],
  [/^libsecret/, 'PkgConfig::SECRET'],
  [/^plist/, 'PkgConfig::PLIST'],
  [/^(pocketsphinx|sphinxbase)/, 'PkgConfig::SPHINX'],
  [/^qrencode/, 'PkgConfig::QRENCODE'],
  [/^re2/, 'PkgConfig::RE2'],
  [/^simdjson/, 'simdjson::simdjson'],
  [/^sodium/, 'PkgConfig::SODIUM'],
  [/^term\.h/, 'tinfo'],
  [/^TrayBus/, 'tray_bus'],
  [/^utf8proc/, 'PkgConfig::UTF8PROC'],
  [/^(libsoup|webkit)/, 'PkgConfig::WEBKIT'],
  [/^xcb\//, 'PkgConfig::EWMH'],
  [/^X11\//, 'PkgConfig::X11'],
];

test('Libraries link what they include', () => {
  const libraries = new Map();
  for (const line of readFileSync(process.env.LIBRARIES, 'utf8').trim().split('\n')) {
    const [name, folder, sources, links] = line.split('|');
    const stems = sources
      .split(';')
      .map((source) => relative(root, resolve(folder, source)).replace(/\.\w+$/, ''));
    const linked = links
      .split(';')
      .map((link) => (link.startsWith('/') ? basename(link).match(/^lib([a-z]+)/)[1] : link));
    libraries.set(name, { stems, links: linked.filter((link) => link !== 'kelvadrome_options') });
  }
  const stem = (path) => path.replace(/\.\w+$/, '');
  const owner = (path) =>
    [...libraries].find(([, { stems }]) => stems.includes(stem(path)))?.[0] ??
    [...libraries].find(([, { stems }]) => stems.some((one) => dirname(one) === dirname(path)))?.[0];
  const reached = (name) => [name, ...(libraries.get(name)?.links ?? []).flatMap(reached)];
  const used = new Map([...libraries.keys()].map((name) => [name, new Map()]));
  for (const { path, includes } of [...files, precompiled]) {
    const user = path === precompiled.path ? 'kit_support' : owner(path);
    for (const { own, name } of includes) {
      const wanted = own ? [owner(name)] : (outside.find(([pattern]) => pattern.test(name)) ?? []).slice(1);
      if (user && wanted[0] && !wanted.includes(user)) used.get(user).set(name, wanted);
    }
  }
  const found = [...libraries].flatMap(([name, { links }]) => {
    const all = new Set(reached(name));
    const targets = new Set([...used.get(name).values()].flat());
    return [
      ...[...used.get(name)]
        .filter(([header, wanted]) => !wanted.some((one) => all.has(one)) && !isInterface(header))
        .map(([header, wanted]) => `${name} includes ${header} and doesn't link ${wanted.join(' or ')}`),
      ...links
        .filter((link) => !targets.has(link))
        .map((link) => `${name} links ${link} and includes nothing of it`),
    ];
  });
  assert.equal(found.join('\n'), '');
});
