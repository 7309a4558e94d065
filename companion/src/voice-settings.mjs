// The settings of voice: what each may be, and what holds while nobody has set it.
import { isAbsolute } from 'node:path';
import { optional } from './check.mjs';
import { invalid } from './errors.mjs';
import { AGENTS } from '../shared/agents.js';
import { DICTATION_APPS } from './voice-scan.mjs';

const NAME = 'voice_settings';
const BUILT_IN = ['openai', 'apple-on-device', 'parakeet', 'none'];
const OPENAI_MODELS = ['gpt-transcribe', 'gpt-4o-mini-transcribe'];
const DAY_MINUTES = 24 * 60;

const DEFAULTS = {
  live: false,
  bar_hotkey: 'Control Option B',
  hold_to_talk: false,
  auto_start: false,
  openai_enabled: true,
  openai_model: 'gpt-transcribe',
  daily_minutes_cap: 30,
  parse_agent: 'claude',
  superwhisper_mode: false,
};

function modelFolder(body, field) {
  const path = optional.string(body, field, { max: 4096 });
  if (path !== undefined && (!isAbsolute(path) || path.includes('\0')))
    throw invalid(field, 'must be the whole path of a folder');
  return path;
}

const oneOf = (words) => (body, field) => optional.oneOf(body, field, words);
const READERS = {
  selected: oneOf([...BUILT_IN, ...DICTATION_APPS.map(({ id }) => id)]),
  live: optional.boolean,
  // Words with single blanks; which of them are keys is the shell's to know.
  bar_hotkey: (body, field) => optional.string(body, field, { max: 64, pattern: /^\S+( \S+)*$/ }),
  hold_to_talk: optional.boolean,
  auto_start: optional.boolean,
  openai_enabled: optional.boolean,
  openai_model: oneOf(OPENAI_MODELS),
  daily_minutes_cap: (body, field) => optional.integer(body, field, { max: DAY_MINUTES }),
  parse_agent: oneOf(AGENTS),
  superwhisper_mode: optional.boolean,
  local_model: modelFolder,
};

/** What was changed from the defaults. Each value is checked as it is read. */
export class VoiceSettings {
  constructor(store) {
    this.store = store;
  }

  #changed() {
    return JSON.parse(this.store.setting(NAME) ?? '{}');
  }

  all() {
    return { ...DEFAULTS, ...this.#changed() };
  }

  /** Changes the named ones, all or none; null brings back what holds by itself. */
  change(body) {
    const changed = this.#changed();
    for (const name of Object.keys(body)) {
      if (!Object.hasOwn(READERS, name)) throw invalid(name, 'is no setting of voice');
      const value = READERS[name](body, name);
      if (value === undefined) delete changed[name];
      else changed[name] = value;
    }
    this.store.keepSetting(NAME, JSON.stringify(changed));
    return this.all();
  }
}
