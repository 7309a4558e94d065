// First-run setup: the folder that holds the user's work, the agents found on this machine, and whether setup is over.
import { execFile } from 'node:child_process';
import { accessSync, constants, statSync } from 'node:fs';
import { homedir } from 'node:os';
import { delimiter, join, relative, sep } from 'node:path';
import { conflict, invalid } from './errors.mjs';
import { kdCommand, kdProgram } from './layout.mjs';
import { AGENTS, agentName } from '../shared/agents.js';
import { cut, oneLine } from '../shared/text.js';

// Where agents install themselves, for a daemon that was started without a login shell's PATH.
const USUAL = ['.local/bin', 'bin', '.npm-global/bin', '.bun/bin', '.cargo/bin']
  .map((name) => join(homedir(), name))
  .concat('/usr/local/bin', '/usr/bin', '/opt/homebrew/bin');

const KD_LIMIT_MS = 10_000;

function findProgram(name, folders) {
  return folders
    .map((folder) => join(folder, name))
    .find((path) => {
      try {
        accessSync(path, constants.X_OK);
        return statSync(path).isFile();
      } catch {
        return false;
      }
    });
}

export class Onboarding {
  constructor({ store, receipts, home }, env) {
    this.store = store;
    this.receipts = receipts;
    this.home = home;
    this.env = env;
    this.kd = kdCommand(home, env);
    this.folders = [
      ...new Set([...(env.PATH ?? '').split(delimiter).filter((folder) => folder.startsWith('/')), ...USUAL]),
    ];
  }

  /** The path of a program in the folders where this machine's programs are; undefined without one. */
  program(name) {
    return findProgram(name, this.folders);
  }

  /** Whoever has had an answer arrive has nothing left to set up. */
  get completed() {
    if (this.store.setting('setup_finished') !== null) return true;
    const hasArrived = this.receipts.has(['answer.typed', 'answer.handed', 'answer.kept']);
    if (hasArrived) this.finish(); // the receipt is not kept for ever
    return hasArrived;
  }

  get folder() {
    return this.store.setting('work_folder');
  }

  status() {
    const asked = new Set(this.store.all('SELECT DISTINCT agent FROM sessions').map((row) => row.agent));
    const agents = AGENTS.map((id) => {
      const path = this.program(id);
      return {
        id,
        name: agentName(id),
        install: path ? { state: 'installed', kind: 'path' } : { state: 'missing' },
        ...(path ? { path } : {}),
        asked: asked.has(id),
      };
    });
    return {
      completed: this.completed,
      ...(this.folder ? { folder: this.folder } : {}),
      agents,
      kd: this.kd,
    };
  }

  /** Which of the agents that have hooks are hooked up, by id: {file, installed, problem}. */
  async hooks() {
    const states = Object.entries(JSON.parse(await this.#runKd('hooks', 'status', '--json')));
    return Object.fromEntries(
      states.map(([id, { file, isCurrent, problem }]) => [id, { file, installed: isCurrent, problem }]),
    );
  }

  /** Adds our hooks to the agent's own settings, as `kd hooks install` does. Gives what it says. */
  async hookUp(agent) {
    if (!AGENTS.includes(agent)) throw invalid('agent', 'is none that is known');
    return { result: await this.#runKd('hooks', 'install', agent) };
  }

  #runKd(...words) {
    const env = { ...this.env, KELVADROME_HOME: this.home };
    return new Promise((done, failed) => {
      execFile(
        process.execPath,
        ['--no-warnings', kdProgram, ...words],
        { env, timeout: KD_LIMIT_MS, killSignal: 'SIGKILL' },
        (error, said, complaint) =>
          error ? failed(conflict(complaint.trim() || 'kd did not end in time.')) : done(said.trim()),
      );
    });
  }

  /** The folder that holds the user's projects. Must exist; it is only remembered, never changed. */
  setFolder(path) {
    if (!path.startsWith('/')) throw invalid('path', 'must begin with "/"');
    try {
      if (!statSync(path).isDirectory()) throw new Error('no folder');
    } catch {
      throw invalid('path', 'That folder is not available.');
    }
    const folder = path.replace(/(?<=.)\/+$/, '');
    this.store.keepSetting('work_folder', folder);
    return { folder };
  }

  finish() {
    this.store.keepSetting('setup_finished', new Date().toISOString());
    return { completed: true };
  }

  /**
   * A question that names no topic belongs to the project that it was asked in: the folder just below the
   * work folder.
   */
  topicOf(cwd) {
    if (!this.folder || !cwd) return null;
    const [first] = relative(this.folder, cwd).split(sep);
    return first && first !== '..' ? cut(oneLine(first), 119) || null : null;
  }
}
