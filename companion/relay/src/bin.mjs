// The relay connector: connect --socket PATH. Ends with SIGTERM, and by itself when the daemon is gone for a minute.
import { parseArgs } from 'node:util';
import mqtt from 'mqtt';
import { Connector } from './connector.mjs';

function readSocket(argv) {
  try {
    const { values, positionals } = parseArgs({
      args: argv,
      options: { socket: { type: 'string' } },
      allowPositionals: true,
    });
    if (positionals.length === 1 && positionals[0] === 'connect' && values.socket) return values.socket;
  } catch {
    // the usage says it
  }
  process.stderr.write('usage: bin.js connect --socket PATH\n');
  process.exit(64);
}

const leaving = new AbortController();
for (const signal of ['SIGTERM', 'SIGINT', 'SIGHUP']) process.on(signal, () => leaving.abort());
new Connector({
  socketPath: readSocket(process.argv.slice(2)),
  connect: (url, options) => mqtt.connect(url, options),
  log: (line) => process.stderr.write(`relay connector: ${line}\n`),
})
  .serve(leaving.signal)
  .then((code) => process.exit(code));
