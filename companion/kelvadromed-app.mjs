#!/usr/bin/env node
// Entry of the daemon. Kept to syntax and imports that an old Node can still load, so that a Node without
// `node:sqlite` gets one clear line instead of a stack trace.
const [major, minor] = process.versions.node.split('.').map(Number);
if (major < 22 || (major === 22 && minor < 13)) {
  process.stderr.write(
    `kelvadromed: Node ${process.versions.node} is too old. kelvadromed needs Node 22.13 or later.\n`,
  );
  process.exit(78);
}

// `node:sqlite` announces on each start that it is experimental; other warnings still show.
process.removeAllListeners('warning');
process.on('warning', (warning) => {
  if (warning.name !== 'ExperimentalWarning')
    process.stderr.write(`kelvadromed: ${warning.name}: ${warning.message}\n`);
});

const { main } = await import('./src/daemon.mjs');
await main(process.argv.slice(2), process.env);
