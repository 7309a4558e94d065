// Which speech model lies in a folder, by the names of its files, as the engine wants to be told.
import { readdirSync } from 'node:fs';
import { basename, join } from 'node:path';

/** The file of this part: of several the smaller, quantised one. */
function part(files, pattern) {
  const found = files.filter((name) => pattern.test(name)).toSorted();
  return found.find((name) => name.includes('int8')) ?? found[0];
}

function partsOf(files, patterns) {
  const parts = Object.entries(patterns).map(([name, pattern]) => [name, part(files, pattern)]);
  return parts.every(([, file]) => file !== undefined) ? Object.fromEntries(parts) : null;
}

// The first that fits. One with a joiner would fit as one without, so it comes first.
const KINDS = [
  ['transducer', { encoder: /encoder.*\.onnx$/, decoder: /decoder.*\.onnx$/, joiner: /joiner.*\.onnx$/ }],
  [
    'moonshine',
    {
      preprocessor: /^preprocess.*\.onnx$/,
      encoder: /^encode\b.*\.onnx$/,
      uncachedDecoder: /^uncached_decode.*\.onnx$/,
      cachedDecoder: /^cached_decode.*\.onnx$/,
    },
  ],
  ['whisper', { encoder: /encoder.*\.onnx$/, decoder: /decoder.*\.onnx$/ }],
  ['senseVoice', { model: /^model.*\.onnx$/ }, /sense-?voice/i],
  ['nemoCtc', { model: /^model.*\.onnx$/ }],
];

/** The engine's configuration for the model in `folder`; throws, in words for a person, when there is none. */
export function readModel(folder) {
  let files;
  try {
    files = readdirSync(folder);
  } catch {
    throw new Error(`the folder ${folder} cannot be read`);
  }
  const tokens = part(files, /tokens\.txt$/);
  const name = basename(folder);
  for (const [kind, patterns, isNamed] of KINDS) {
    const parts = (isNamed?.test(name) ?? true) && partsOf(files, patterns);
    if (!parts || !tokens) continue;
    const at = (file) => join(folder, file);
    const whole = Object.fromEntries(Object.entries(parts).map(([key, file]) => [key, at(file)]));
    const isNemo = kind === 'transducer' && /nemo|parakeet/i.test(name);
    return {
      featConfig: { sampleRate: 16000, featureDim: 80 },
      modelConfig: {
        [kind]: whole,
        tokens: at(tokens),
        numThreads: 2,
        provider: 'cpu',
        debug: 0,
        ...(isNemo ? { modelType: 'nemo_transducer' } : {}),
      },
    };
  }
  throw new Error(`${folder} holds no speech model that is known here (ONNX files with a tokens.txt)`);
}
