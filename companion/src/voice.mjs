// Voice: the settings, the day's budget, what can turn speech into text on this machine, and the local engine.
import { optional, required } from './check.mjs';
import { clock } from './clock.mjs';
import { invalid } from './errors.mjs';
import { LONGEST_CLIP_S, VoiceBudget } from './voice-budget.mjs';
import { VoiceEngine } from './voice-engine.mjs';
import { VoiceSettings } from './voice-settings.mjs';
import { scanApps } from './voice-scan.mjs';

const MAX_CLIP = 2 * 16_000 * LONGEST_CLIP_S; // bytes
const MAX_BASE64 = Math.ceil(MAX_CLIP / 3) * 4;
const SCAN_MS = 5000; // the shell waits for twice as long
const MODE = /^[a-z0-9_-]{1,64}$/;
const LOCAL_WORDS = {
  no_engine: 'The local speech engine is not installed: kd voice install-engine.',
  no_model: 'The local speech engine has no model: kd voice model FOLDER.',
  checking: 'The local speech model is still being loaded.',
};

export class Voice {
  #told = { openai: 'no_key', apple: 'unknown' }; // by the shell, which holds the key

  constructor(app) {
    this.app = app;
    this.settings = new VoiceSettings(app.store);
    this.budget = new VoiceBudget(app.store);
    this.engine = new VoiceEngine(app.home);
  }

  shown() {
    return { ...this.settings.all(), used_minutes: this.budget.usedMinutes() };
  }

  change(body) {
    this.app.store.tx(() => this.settings.change(body));
    return this.shown();
  }

  async scan(force) {
    const { selected = 'none', local_model: model } = this.settings.all();
    const apps = scanApps(selected);
    const local = await this.engine.state(model, force, SCAN_MS);
    const hint = this.#hint(selected, apps, local);
    return {
      selected,
      hint,
      apps,
      builtin: { local: local.state, ...(local.why ? { why: local.why } : {}) },
    };
  }

  /** What keeps the selected route from working; empty when nothing is known to. */
  #hint(selected, apps, local) {
    const app = apps.find((one) => one.selected);
    if (app) return app.installed ? '' : `${app.name} is not installed on this machine.`;
    if (selected === 'parakeet')
      return local.state === 'ready' ? '' : (LOCAL_WORDS[local.state] ?? local.why);
    if (selected === 'openai' && this.#told.openai !== 'ready')
      return 'Add your OpenAI key in Settings, Voice.';
    return '';
  }

  tell(openai, apple) {
    this.#told = { openai, apple };
    return {};
  }

  async transcribe(base64, signal) {
    const clip = Buffer.from(base64, 'base64');
    if (clip.toString('base64').length !== base64.length) throw invalid('pcm16_b64', 'is not base64');
    if (clip.length % 2 !== 0) throw invalid('pcm16_b64', 'holds half a sample');
    return { text: await this.engine.transcribe(clip, this.settings.all().local_model, signal) };
  }

  /** The shell switched a dictation app's mode, or restored it: the user may want to know later. */
  modeSwitched(previous, restored) {
    this.app.store.tx(() =>
      this.app.receipts.add(
        'voice.mode',
        restored
          ? `The dictation app went back to its mode "${previous}".`
          : `The dictation app was switched from its mode "${previous}" while the bar is open.`,
      ),
    );
    return {};
  }

  look() {
    this.budget.look(clock.steady());
  }

  close() {
    this.engine.close();
  }
}

const reservation = (body) => ({
  engine: required.string(body, 'engine', { max: 64 }),
  model: required.string(body, 'model', { max: 200 }),
  seconds: required.integer(body, 'seconds', { min: 1, max: LONGEST_CLIP_S }),
});

/** The page has none of them: whoever speaks in its name could raise the limit, or name another model. */
const post = (run, more = {}) => ({ on: ['socket'], run, ...more });

/** The routes, as routes.mjs has them. */
export const voiceRoutes = {
  'POST /v1/voice/scan': post((app, { body }) => app.voice.scan(optional.boolean(body, 'force') ?? false)),
  'POST /v1/voice/settings/get': post((app) => app.voice.shown()),
  'POST /v1/voice/settings': post((app, { body }) => app.voice.change(body)),
  'POST /v1/voice/engine/status': post((app, { body }) =>
    app.voice.tell(
      required.oneOf(body, 'openai', ['ready', 'no_key']),
      required.oneOf(body, 'apple', ['ready', 'needs_asset', 'unknown']),
    ),
  ),
  'POST /v1/voice/budget/reserve': post((app, { body }) =>
    app.voice.budget.reserve(reservation(body), app.voice.settings.all().daily_minutes_cap),
  ),
  'POST /v1/voice/engine/used': post((app, { body }) => {
    required.integer(body, 'seconds'); // what was reserved is charged: a report can't make it less
    return app.voice.budget.settle(
      required.string(body, 'reservation_id', { max: 100 }),
      required.boolean(body, 'ok'),
    );
  }),
  'POST /v1/voice/mode/switched': post((app, { body }) =>
    app.voice.modeSwitched(
      required.string(body, 'previous', { pattern: MODE }),
      required.boolean(body, 'restored'),
    ),
  ),
  'POST /v1/voice/transcribe': post(
    (app, { body, signal }) =>
      app.voice.transcribe(required.string(body, 'pcm16_b64', { max: MAX_BASE64 }), signal),
    { maxBody: MAX_BASE64 + 1000 },
  ),
};
