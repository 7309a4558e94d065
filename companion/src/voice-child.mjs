// The speech engine in a process of its own: it may take long, hang or crash without the daemon. Told of an engine's and
// a model's folder, it says that it is ready or why not, then answers each clip with its text.
import { createRequire } from 'node:module';
import { writeFileSync } from 'node:fs';
import { join } from 'node:path';
import { readModel } from './voice-model.mjs';

const RATE = 16_000;
const [engine, model] = process.argv.slice(2);
const say = (message) => process.send?.(message);

function begin() {
  try {
    writeFileSync('/proc/self/oom_score_adj', '1000'); // short of memory, the machine ends this one first
  } catch {
    /* no such thing here */
  }
  const { OfflineRecognizer } = createRequire(join(engine, 'package.json'))(engine);
  return new OfflineRecognizer(readModel(model));
}

function textOf(recognizer, bytes) {
  const view = new DataView(bytes.buffer, bytes.byteOffset, bytes.byteLength);
  const samples = Float32Array.from(
    { length: bytes.byteLength / 2 },
    (_, i) => view.getInt16(2 * i, true) / 32768,
  );
  const stream = recognizer.createStream();
  stream.acceptWaveform({ sampleRate: RATE, samples });
  recognizer.decode(stream);
  return String(recognizer.getResult(stream).text).trim();
}

process.on('disconnect', () => process.exit());
try {
  const recognizer = begin();
  process.on('message', ({ clip }) => {
    try {
      say({ text: textOf(recognizer, clip) });
    } catch (error) {
      say({ error: error.message });
    }
  });
  say({ ready: true });
} catch (error) {
  say({ error: error.message });
  process.disconnect?.();
}
