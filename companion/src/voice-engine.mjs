// The local speech engine, as the daemon sees it: a child process that holds the model, one clip at a time, and that is
// ended when it takes too long or has had nothing to do for a while. The engine is no part of this program: the user
// installs it into the data home (`kd voice install-engine`) and names a model's folder.
import { fork } from 'node:child_process';
import { existsSync, statSync } from 'node:fs';
import { join } from 'node:path';
import { fileURLToPath } from 'node:url';
import { conflict, Refusal } from './errors.mjs';
import { shownLine } from '../shared/text.js';

export const ENGINE = 'sherpa-onnx-node';
export const engineHome = (home) => join(home, 'voice-engine');
const LONGEST_WHY = 500; // characters
const MAX_WAITING = 2;
const IDLE_MS = 120_000;
const LIMIT_MS = 40_000; // the shell waits for 45 s
const CHILD = fileURLToPath(new URL('voice-child.mjs', import.meta.url));

const missing = (words) => new Refusal('not_implemented', 501, words);
const failed = (words) => new Refusal('engine_failed', 502, words);

export class VoiceEngine {
  #child = null;
  #key = null; // engine and model that the child, or the last trial, was started with
  #trial = null; // a promise of why the model doesn't work, or null; for #key
  #turn = Promise.resolve();
  #count = 0;

  constructor(home, limitMs = LIMIT_MS) {
    this.folder = join(engineHome(home), 'node_modules', ENGINE);
    this.limitMs = limitMs;
  }

  /** Why there is nothing to start: `no_engine` or `no_model`; null when both are there. */
  whyNone(model) {
    if (!existsSync(join(this.folder, 'package.json'))) return 'no_engine';
    return model && statSync(model, { throwIfNoEntry: false })?.isDirectory() ? null : 'no_model';
  }

  /** `ready` when the model has been loaded; else `no_engine`, `no_model`, `checking` (for longer than `waitMs`), `failed`. */
  async state(model, force, waitMs) {
    const none = this.whyNone(model);
    if (none !== null) return { state: none };
    const key = this.#keyOf(model);
    if (this.#key !== key) this.#begin(key);
    const anew = force && this.#count === 0; // no clip is ended for it
    if (this.#trial === null || anew)
      this.#trial = this.#line(() => this.#load(key, model, anew)).then(
        () => null,
        (error) => error.message,
      );
    const slow = Symbol('slow');
    let timer;
    const why = await Promise.race([
      this.#trial,
      new Promise((done) => {
        timer = setTimeout(done, waitMs, slow);
      }),
    ]);
    clearTimeout(timer);
    if (why === slow) return { state: 'checking' };
    return why === null ? { state: 'ready' } : { state: 'failed', why };
  }

  #keyOf(model) {
    return [this.folder, model].map((path) => `${path}@${statSync(path).mtimeMs}`).join(' ');
  }

  /** A child for another engine or model is no use. */
  #begin(key) {
    this.#end();
    this.#key = key;
    this.#trial = null;
  }

  /** The text of a clip: bytes of 16-bit samples at 16 kHz. */
  async transcribe(clip, model, signal) {
    const none = this.whyNone(model);
    if (none === 'no_engine')
      throw missing('No speech engine is installed in the data home. Run kd voice install-engine.');
    if (none === 'no_model') throw missing('No speech model is named. Run kd voice model FOLDER.');
    if (this.#count > MAX_WAITING)
      throw conflict('Other clips are being transcribed. Try again in a moment.');
    return this.#line(async () => {
      if (signal?.aborted) throw conflict('The asker has left.');
      const key = this.#keyOf(model);
      if (this.#key !== key) this.#begin(key);
      await this.#load(key, model, false);
      const { text } = await this.#exchange({ clip });
      return text;
    });
  }

  /** One after the other. */
  #line(work) {
    this.#count++;
    clearTimeout(this.idle);
    const result = this.#turn.then(work);
    this.#turn = result
      .catch(() => {})
      .finally(() => {
        this.#count--;
        if (this.#count === 0) this.idle = setTimeout(() => this.#end(), IDLE_MS).unref();
      });
    return result;
  }

  /** Sees to it that the child holds this model. Another may have been chosen while this one waited for its turn. */
  async #load(key, model, anew) {
    if (this.#key !== key) throw failed('Another speech model was chosen.');
    if (anew || this.#child === null) await this.#start(model);
  }

  #start(model) {
    this.#end();
    this.#child = fork(CHILD, [this.folder, model], {
      serialization: 'advanced',
      stdio: ['ignore', 'ignore', 'pipe', 'ipc'],
      execArgv: ['--max-old-space-size=512'],
      env: { PATH: process.env.PATH }, // nothing of the user's is its business
    });
    return this.#loaded(this.#child);
  }

  /** An engine that ends over a model says why on its standard error; what it says later may be of what was spoken. */
  async #loaded(child) {
    let words = '';
    const hear = (piece) => {
      words = (words + piece).slice(-LONGEST_WHY);
    };
    child.stderr.setEncoding('utf8').on('data', hear);
    try {
      return await this.#exchange(null);
    } catch (error) {
      const why = shownLine(words);
      throw why ? failed(`${error.message} It said: ${why}`) : error;
    } finally {
      child.stderr.off('data', hear).resume();
    }
  }

  /** What the child says next. One that says nothing in time, ends or says that it failed is ended. */
  async #exchange(message) {
    const child = this.#child;
    let timer;
    const said = await new Promise((done) => {
      timer = setTimeout(done, this.limitMs, { error: `it took longer than ${this.limitMs / 1000} s` });
      child.once('message', done);
      child.once('error', (error) => done({ error: error.message }));
      child.once('exit', (code, signal) => done({ error: `it ended with ${signal ?? code}` }));
      if (message !== null) child.send(message, (error) => error && done({ error: error.message }));
    });
    clearTimeout(timer);
    for (const name of ['message', 'exit', 'error']) child.removeAllListeners(name);
    child.on('error', () => {});
    if (said.error === undefined && child === this.#child) {
      child.once('exit', () => child === this.#child && this.#end());
      return said;
    }
    this.#end();
    throw failed(`The local speech engine failed: ${said.error ?? 'another model was chosen'}.`);
  }

  #end() {
    this.#child?.kill('SIGKILL');
    this.#child = null;
  }

  close() {
    clearTimeout(this.idle);
    this.#end();
  }
}
