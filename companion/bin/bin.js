#!/usr/bin/env node
// The `kd` command.
import { main } from '../src/kd/main.mjs';

// Who reads our output may have gone (`kd inbox | head -1`), and a disk may be full.
const WORDS = { ENOSPC: 'there is no space left', EIO: 'the terminal is gone' };
process.stderr.on('error', () => {});
process.stdout.on('error', ({ code, message }) => {
  if (code !== 'EPIPE')
    process.stderr.write(`kd: The output could not be written: ${WORDS[code] ?? message}.\n`);
  process.exit(code === 'EPIPE' ? 141 : 1);
});

process.exitCode = await main(process.argv.slice(2), process.env);
