// Where the real agents meet Kelvadrome: a home of their own, a tmux server, the hub in one of its panes, and the hooks
// installed as a user does it.
import { execFileSync, spawn } from 'node:child_process';
import {
  chmodSync,
  mkdirSync,
  readFileSync,
  readdirSync,
  readlinkSync,
  rmSync,
  writeFileSync,
} from 'node:fs';
import path from 'node:path';
import { check } from '../../scripts/tour/steps.mjs';
import { World, alive, finishSetup, pause } from '../../scripts/tour/world.mjs';
import { startModel } from './model.mjs';

const KEY = 'sk-ant-stand-in';
export const CODEX_WAITS_S = 10; // long enough to answer on the card
const SETTLED_MS = 1500;
export const NEW_ROW_MS = 1600; // a row that has just come takes no answer

const READY = { claude: /❯/, codex: /Ask Codex to do anything/ };

export class Stage extends World {
  #known = new Set();
  #panes = [];

  static async open(bin, agents, record) {
    const stage = new Stage(bin);
    stage.work = stage.folder('project');
    stage.model = await startModel(stage.work);
    stage.#furnish(agents, stage.model.port);
    await finishSetup(bin, stage.home);
    stage.open('keep', 'exec sleep infinity', { width: 120 }); // a tmux server ends with its last pane
    await stage.startHub();
    for (const words of [['claude'], ['codex', '--wait', String(CODEX_WAITS_S)]])
      stage.kd('hooks', 'install', ...words);
    if (record) stage.#record(record);
    await stage.#trustHooks();
    return stage;
  }

  /** Codex asks once, at its first start, whether it may run new hooks. */
  async #trustHooks() {
    const pane = await this.start('codex', { ready: /Hooks need review/ });
    this.keys(pane, '2');
    await pause(500);
    this.keys(pane, 'Enter');
    await this.see(pane, READY.codex, 'Codex with our hooks', 30);
    await this.clear();
  }

  #furnish(agents, port) {
    Object.assign(this.env, {
      PATH: `${agents}/node_modules/.bin:${process.env.PATH}`,
      ANTHROPIC_BASE_URL: `http://127.0.0.1:${port}`,
      ANTHROPIC_API_KEY: KEY,
      OPENAI_API_KEY: KEY,
      DISABLE_TELEMETRY: '1',
      DISABLE_AUTOUPDATER: '1',
      CLAUDE_CODE_DISABLE_NONESSENTIAL_TRAFFIC: '1',
    });
    const claude = {
      hasCompletedOnboarding: true,
      theme: 'dark',
      customApiKeyResponses: { approved: [KEY], rejected: [] },
      projects: { [this.work]: { hasTrustDialogAccepted: true } },
    };
    writeFileSync(path.join(this.root, '.claude.json'), JSON.stringify(claude));
    mkdirSync(path.join(this.root, '.codex'));
    writeFileSync(
      path.join(this.root, '.codex/config.toml'),
      `model = "gpt-5"
model_provider = "standin"
approval_policy = "on-request"
sandbox_mode = "read-only"
check_for_update_on_startup = false
[model_providers.standin]
name = "standin"
base_url = "http://127.0.0.1:${port}/v1"
wire_api = "responses"
env_key = "OPENAI_API_KEY"
`,
    );
  }

  /** From now on each message to a hook is kept as a file in `folder`. */
  #record(folder) {
    const script = path.join(this.root, 'record');
    writeFileSync(
      script,
      `#!/bin/bash\nfile=${folder}/$(date +%s%N)-$RANDOM.json\ncat >"$file"\nexec "$@" <"$file"\n`,
    );
    chmodSync(script, 0o755);
    for (const file of ['.claude/settings.json', '.codex/hooks.json'].map((name) =>
      path.join(this.root, name),
    )) {
      const settings = readFileSync(file, 'utf8');
      writeFileSync(file, settings.replaceAll('"command": "', `"command": "${script} env `));
    }
  }

  folder(name) {
    const folder = path.join(this.root, name);
    mkdirSync(folder, { recursive: true });
    return folder;
  }

  kd(...words) {
    const program = path.join(this.bin, 'resources/kelvadrome/dist/bin.js');
    const node = path.join(this.bin, 'resources/node/bin/node');
    return execFileSync(node, ['--no-warnings', program, ...words], { env: this.env, encoding: 'utf8' });
  }

  async startHub() {
    this.panel = this.open('hub', `exec '${this.bin}/kelvadrome' --terminal`);
    await this.see(this.panel, /New questions land here first|needs? you/, 'the panel', 30);
    this.daemon = (await this.call('/v1/health', {}, 'GET')).pid;
  }

  /** The hub ends, and the daemon with it, which is its child. */
  async endHub() {
    this.keys(this.panel, 'q');
    await this.until('the hub to end', () => !this.paneAlive(this.panel));
    this.tmux('kill-pane', '-t', this.panel);
    await this.until('the daemon to end', () => !alive(this.daemon));
  }

  /** A daemon without any hub. */
  async startDaemon() {
    const words = [path.join(this.bin, 'resources/kelvadrome/kelvadromed-app.mjs'), '--home', this.home];
    const node = path.join(this.bin, 'resources/node/bin/node');
    const child = spawn(node, ['--no-warnings', ...words], {
      env: this.env,
      stdio: ['pipe', 'ignore', 'ignore'],
    });
    await this.until('the daemon', () => this.call('/v1/health', {}, 'GET'));
    return child;
  }

  /** An agent in a pane of its own, ready for a prompt. */
  async start(agent, { folder = this.work, options = '', ready = READY[agent] } = {}) {
    const pane = this.open(agent, `cd '${folder}' && exec ${agent} ${options}`);
    this.#panes.push(pane);
    let since = null; // what is typed while an agent still sets up its screen gets lost
    await this.until(
      `${agent} to be ready`,
      () => {
        since = ready.test(this.screen(pane)) ? (since ?? Date.now()) : null;
        return since !== null && Date.now() - since > SETTLED_MS;
      },
      40,
    );
    return pane;
  }

  /** Types a prompt as a person does; all at once would be a paste. */
  async prompt(pane, text) {
    this.type(pane, text);
    await pause(800);
    this.keys(pane, 'Enter');
  }

  /** The next card that was not there before. */
  async newCard(what = 'the card', seconds = 20) {
    const card = await this.until(
      what,
      async () => (await this.cards()).find(({ id }) => !this.#known.has(id)),
      seconds,
    );
    this.#known.add(card.id);
    return card;
  }

  async asks(pane, word) {
    await this.prompt(pane, `Please ${word}`);
    return this.newCard(`the card of "Please ${word}"`);
  }

  /** Presses the number of an option in the panel, where the card is in this row. */
  async press(card, number, row = 0) {
    await this.until('the card on the panel', () =>
      this.screen(this.panel).includes(card.title.slice(0, 30)),
    );
    await pause(NEW_ROW_MS);
    this.keys(this.panel, 'Home', ...Array(row).fill('Down'));
    await pause(300);
    this.keys(this.panel, String(number));
  }

  async isClosed(card, seconds = 20) {
    await this.until(
      `the card "${card.title}" to close`,
      async () => !(await this.cards()).some(({ id, state }) => id === card.id && state !== 'gone'),
      seconds,
    );
  }

  /** How the card ended, by its newest receipt. */
  async endOf(card) {
    return (await this.receipts()).find(({ card_id: id }) => id === card.id)?.action;
  }

  async endedAs(card, action) {
    await this.isClosed(card);
    const seen = await this.endOf(card);
    check(seen === action, `the card ended as ${seen}, not ${action}`);
  }

  log() {
    try {
      return readFileSync(path.join(this.home, 'hooks.log'), 'utf8');
    } catch {
      return '';
    }
  }

  async whatIsSeen() {
    const screens = [this.panel, ...this.#panes]
      .filter((pane) => this.paneAlive(pane))
      .map((pane) => `--- ${pane}\n${this.screen(pane).trimEnd()}`);
    const receipts = (await this.receipts().catch(() => [])).slice(0, 8);
    const lines = receipts.map(({ action, line }) => `${action}: ${line}`);
    return [...screens, `--- receipts\n${lines.join('\n')}`, `--- hooks.log\n${this.log()}`];
  }

  /** Ends the agents of a scenario, and their questions. */
  async clear() {
    const all = this.tmux('list-panes', '-a', '-F', '#{pane_id}').split('\n');
    for (const pane of this.#panes.splice(0).filter((one) => all.includes(one)))
      this.tmux('kill-pane', '-t', pane);
    await this.#endServers();
    for (const { id } of await this.cards().catch(() => []))
      await this.call('/v1/ask/withdraw', { card_id: id }).catch(() => {});
    await this.until('what goes on after hooks to end', () => this.#goingOn().length === 0);
  }

  /** The processes that go on after a hook of Codex. */
  #goingOn() {
    return readdirSync('/proc').filter((name) => {
      try {
        const line = readFileSync(`/proc/${name}/cmdline`, 'utf8');
        return line.includes('--goes-on') && line.includes(this.home);
      } catch {
        return false;
      }
    });
  }

  /** The servers that Codex leaves behind are those whose program lies in our own home. */
  async #endServers() {
    const ours = readdirSync('/proc').filter((name) => {
      try {
        return readlinkSync(`/proc/${name}/exe`).startsWith(`${this.root}/.codex/`);
      } catch {
        return false; // no process, or one that has ended
      }
    });
    for (const pid of ours.map(Number)) process.kill(pid, 'SIGKILL');
    await this.until('the servers of Codex to end', () => !ours.some((pid) => alive(Number(pid))));
    for (const name of ['daemon.pid', 'daemon-updater.pid'])
      rmSync(path.join(this.root, '.codex/app-server-daemon', name), { force: true });
  }

  async close() {
    this.model.close();
    super.close();
  }
}
