// Which processes have ended, told at once by a small program of our own: Node cannot wait for a process that
// is not its child. Where the program is not there, or does not run at the moment, others have to look by
// themselves.
import { spawn } from 'node:child_process';
import { statSync } from 'node:fs';
import { createInterface } from 'node:readline';
import { clock } from './clock.mjs';

const FIRST_PAUSE_MS = 1000;
const LONGEST_PAUSE_MS = 300_000;
const keyOf = ({ pid, started }) => `${pid} ${started}`;

const isProgram = (path) => statSync(path, { throwIfNoEntry: false })?.isFile() ?? false;

export class ProcessWatch {
  #child = null;
  #watched = new Map(); // pid -> the line that names it
  #pause = FIRST_PAUSE_MS;
  #startAt = -Infinity; // on the steady clock
  #closed = false;

  /** `ended` is called without words, once for any number of processes that ended at one moment. */
  constructor(program, ended, log) {
    this.program = program;
    this.ended = ended;
    this.log = log;
  }

  /** Whether the end of this process will be told. */
  covers({ pid, started }) {
    return this.#child !== null && this.#watched.get(pid) === keyOf({ pid, started });
  }

  /** Watches exactly these processes ({pid, started}) from now on. */
  follow(processes) {
    if (this.#child === null && processes.length > 0) this.#start();
    if (this.#child === null) return;
    const wanted = new Map(processes.map((one) => [one.pid, keyOf(one)]));
    const lines = [];
    for (const pid of this.#watched.keys()) if (!wanted.has(pid)) lines.push(`-${pid}`);
    for (const [pid, line] of wanted) if (this.#watched.get(pid) !== line) lines.push(line);
    this.#watched = wanted;
    if (lines.length > 0) this.#child.stdin.write(`${lines.join('\n')}\n`);
  }

  #start() {
    if (this.#closed || clock.steady() < this.#startAt || !isProgram(this.program)) return;
    const began = clock.steady();
    const child = spawn(this.program, [], { stdio: ['pipe', 'pipe', 'ignore'] });
    this.#child = child;
    this.#watched = new Map();
    child.stdin.on('error', () => {});
    createInterface({ input: child.stdout }).on('line', () => this.#tell());
    child.on('error', (error) => this.#stopped(began, error.message));
    child.on('exit', (code, signal) => this.#stopped(began, `it ended with ${signal ?? code}`));
  }

  #tell() {
    this.telling ??= setImmediate(() => {
      this.telling = null;
      if (!this.#closed) this.ended();
    });
  }

  #stopped(began, why) {
    if (this.#child === null || this.#closed) return;
    this.#child = null;
    const now = clock.steady();
    if (now - began > LONGEST_PAUSE_MS) this.#pause = FIRST_PAUSE_MS;
    this.log(`processes are not watched for ${this.#pause / 1000} s: ${why}.`);
    this.#startAt = now + this.#pause;
    this.#pause = Math.min(this.#pause * 2, LONGEST_PAUSE_MS);
  }

  close() {
    this.#closed = true;
    this.#child?.stdin.end();
  }
}
