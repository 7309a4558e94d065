// Calls to the daemon over its socket.
import { statSync } from 'node:fs';
import { homedir } from 'node:os';
import { join, resolve } from 'node:path';
import { exchange } from '../exchange.mjs';
import { defaultHome, kdCommand } from '../layout.mjs';

/** Why `kd` cannot go on: words for a person and the exit code. */
export class KdError extends Error {
  constructor(message, exitCode, code) {
    super(message);
    this.exitCode = exitCode;
    this.code = code;
  }
}

export const EXIT = { ok: 0, failed: 1, noDaemon: 3, noAgent: 4, noAnswer: 5, withdrawn: 6, usage: 64 };

/** How a person starts this program on this machine, for words that name a command. */
export const KD = kdCommand();

/** `~` is expanded here too, for values that no shell has seen. */
export function resolveHome(option, env) {
  const home = option || env.KELVADROME_HOME || defaultHome();
  return resolve(home === '~' || home.startsWith('~/') ? homedir() + home.slice(1) : home);
}

export class Client {
  constructor(home) {
    this.home = home;
    this.socketPath = join(home, 'kelvadromed.sock');
    this.command = kdCommand(home);
  }

  /** In a home of somebody else there is nobody to ask, and an answer that came from there would be theirs. */
  #refuseForeignHome() {
    const me = process.getuid?.() ?? 0;
    const owner = statSync(this.home, { throwIfNoEntry: false })?.uid ?? me;
    if (owner !== me && me !== 0)
      throw new KdError(`The home ${this.home} belongs to another user.`, EXIT.failed);
  }

  /** The `data` of the reply. A daemon that says no, and one that is not there, are `KdError`s. */
  async call(path, body, timeoutMs = 10_000) {
    this.#refuseForeignHome();
    let text;
    try {
      text = await exchange(this.socketPath, path, { body, timeoutMs });
    } catch (error) {
      throw new KdError(
        `No kelvadromed answers on ${this.socketPath} (${error.code ?? error.message}). Start Kelvadrome first.`,
        EXIT.noDaemon,
        'no_daemon',
      );
    }
    let reply;
    try {
      reply = JSON.parse(text);
    } catch {
      throw new KdError('kelvadromed gave an answer that is no JSON.', EXIT.noDaemon, 'no_daemon');
    }
    if (!reply.ok)
      throw new KdError(
        reply.error?.message ?? 'kelvadromed refused without a reason.',
        EXIT.failed,
        reply.error?.code,
      );
    return reply.data;
  }

  /** As `call`, but tries again for `patienceMs` while the daemon is away. Only for calls that may be repeated. */
  async callPatiently(path, body, timeoutMs, patienceMs) {
    const deadline = performance.now() + patienceMs;
    for (;;) {
      try {
        return await this.call(path, body, timeoutMs);
      } catch (error) {
        if (error.code !== 'no_daemon' || performance.now() >= deadline) throw error;
        await new Promise((done) => setTimeout(done, 250));
      }
    }
  }
}
