// First-run setup in three short steps. Nothing installs or changes before something is pressed.
import { post } from '../lib/api.js';
import { h, said, showIn } from '../lib/dom.js';
import { icon } from '../lib/icons.js';
import { announce } from '../lib/announce.js';
import { count } from '../lib/words.js';
import { inShell, tellShell } from '../page/shell.js';
import { CommandLine } from '../page/command.js';

const STEPS = ['folder', 'agents', 'answers'];
const NAMES = { folder: 'Your work', agents: 'Your agents', answers: 'Your answers' };

export class Setup {
  title = 'Set up kelvadrome';
  #at = 0;
  #told = null;

  constructor(query, id, { reload, go }) {
    this.reload = reload;
    this.go = go;
    this.chosen = query.get('folder');
    this.heading = h('h1', { tabindex: '-1' });
    this.steps = h('ol', { class: 'steps', 'aria-label': 'Steps' });
    this.content = h('div', { class: 'step' });
    this.error = h('p', { class: 'error', role: 'alert', hidden: true });
    this.backButton = h('button', { type: 'button', onclick: () => this.move(-1) }, 'Back');
    this.primary = h('button', { type: 'button', class: 'suggested', onclick: () => this.next() });
    this.element = h(
      'div',
      { class: 'setup-page' },
      this.steps,
      this.heading,
      this.content,
      this.error,
      h(
        'div',
        { class: 'row split' },
        this.backButton,
        h('a', { class: 'later', href: '/' }, 'Set up later'),
        this.primary,
      ),
    );
  }

  async load() {
    const [status, hooks] = await Promise.all([
      post('/v1/onboarding/status'),
      post('/v1/onboarding/hooks').catch(() => null), // setup goes on without
    ]);
    return { ...status, hooks: hooks?.agents ?? {} };
  }

  update(status) {
    this.status = status;
    const step = STEPS[this.#at];
    showIn(
      this.heading,
      step,
      () =>
        ({ folder: 'Where is your work?', agents: 'Let your agents ask', answers: 'How answers go out' })[
          step
        ],
    );
    showIn(this.steps, [step, status.folder], () =>
      STEPS.map((name, index) =>
        h(
          'li',
          {
            class: index < this.#at && this.isDone(name) ? 'done' : null,
            'aria-current': name === step ? 'step' : null,
          },
          h('span', {}, index < this.#at && this.isDone(name) ? icon('check') : index + 1),
          NAMES[name],
        ),
      ),
    );
    showIn(this.content, [step, step === 'answers' ? null : [status, this.hookResult]], () =>
      this[step](status),
    );
    this.backButton.hidden = this.#at === 0;
    this.primary.textContent =
      step !== 'answers'
        ? step === 'folder' && !status.folder
          ? 'Skip for now'
          : 'Continue'
        : status.completed
          ? 'Done'
          : 'Finish setup';
    this.primary.classList.toggle('suggested', step !== 'folder' || Boolean(status.folder));
    const told = JSON.stringify([step, true]);
    if (this.#told !== told) tellShell({ type: 'onboarding', step, primary_enabled: true });
    this.#told = told;
    const { chosen } = this;
    this.chosen = null;
    if (chosen) this.folderChosen(chosen);
  }

  folder({ folder }) {
    const path = h('input', {
      type: 'text',
      'aria-label': 'Folder',
      placeholder: '/home/you/projects',
      value: folder ?? '',
      autocomplete: 'off',
      spellcheck: 'false',
      dir: 'ltr',
    });
    return [
      h(
        'p',
        {},
        'kelvadrome shows you what your coding agents ask and types your answer into the terminal of the very agent that asked.',
      ),
      h(
        'p',
        {},
        'Pick the folder that holds your work. A question asked in a project below it is filed under that project’s name.',
      ),
      folder
        ? h(
            'p',
            { class: 'notice good' },
            icon('folder'),
            said(folder, 'code', { class: 'grow' }),
            icon('check'),
          )
        : null,
      inShell()
        ? h(
            'div',
            { class: 'row' },
            h(
              'button',
              {
                type: 'button',
                class: folder ? null : 'suggested',
                onclick: () => tellShell({ type: 'action', action: 'chooseFolder' }),
              },
              icon('folder'),
              folder ? 'Choose another folder…' : 'Choose a folder…',
            ),
          )
        : h(
            'form',
            {
              class: 'words',
              onsubmit: (event) => {
                event.preventDefault();
                this.folderChosen(path.value.trim());
              },
            },
            path,
            h('button', { type: 'submit', class: folder ? null : 'suggested' }, 'Use folder'),
          ),
      h('p', { class: 'soft' }, 'The folder is only remembered. Nothing in it is read or changed.'),
    ];
  }

  agents({ agents, hooks, kd }) {
    const found = agents.filter((agent) => agent.install?.state === 'installed');
    return [
      h(
        'p',
        {},
        found.length
          ? `${count(found.length, 'agent')} found on this machine. Tell ${found.length === 1 ? 'it' : 'them'} to ask with the command below, in ${found.length === 1 ? 'its' : 'their'} instructions file.`
          : 'No known agent was found on this machine. Any program can ask with the command below.',
      ),
      found.length
        ? h(
            'ul',
            { class: 'boxed' },
            found.map((agent) =>
              h(
                'li',
                { class: 'line' },
                icon('agents'),
                h(
                  'span',
                  { class: 'grow' },
                  h('span', { class: 'strong' }, agent.name),
                  said(agent.path, 'span', { class: 'soft sub code' }),
                ),
                hooks[agent.id] ? this.hookUp(agent, hooks[agent.id], kd) : null,
                agent.asked
                  ? h('span', { class: 'word good' }, icon('check'), 'Has asked')
                  : h('span', { class: 'soft' }, 'Has not asked yet'),
              ),
            ),
          )
        : null,
      found.some(({ id }) => hooks[id])
        ? h(
            'p',
            { class: 'soft' },
            'Hooked up, an agent’s permission requests, questions and plans come to your Inbox by themselves, and your answer goes back without a key being typed.',
          )
        : null,
      this.hookResult
        ? h('p', { class: 'notice good' }, icon('check'), said(this.hookResult, 'span', { class: 'grow' }))
        : null,
      new CommandLine(`${kd} ask -t "Deploy to staging?" -o Yes -o No --wait`).element,
      h(
        'p',
        { class: 'soft' },
        'The question shows in your Inbox at once, and the command prints what you answer.',
      ),
      h(
        'div',
        { class: 'row' },
        h(
          'button',
          { type: 'button', onclick: () => this.sample() },
          icon('inbox'),
          'Ask me a sample question',
        ),
      ),
    ];
  }

  /** A sample agent asks, and its question opens. */
  async sample() {
    try {
      const { card_id: card } = await post('/v1/onboarding/sample');
      return this.go(`/?card=${encodeURIComponent(card)}`);
    } catch (error) {
      return this.fail(error.message);
    }
  }

  /** The offer to have an agent ask through its hooks, or the word that it does. */
  hookUp({ id, name }, hooks, kd) {
    if (hooks.problem) return said(`${hooks.file}: ${hooks.problem}`, 'span', { class: 'soft sub' });
    if (hooks.installed) return h('span', { class: 'word good' }, icon('check'), 'Hooked up');
    return h(
      'button',
      {
        type: 'button',
        class: 'small',
        title: `Adds hooks to ${hooks.file} and changes nothing else in it. To undo: ${kd} hooks uninstall ${id}`,
        'aria-label': `Hook up ${name}`,
        onclick: () => this.runHookUp(id),
      },
      'Hook up',
    );
  }

  async runHookUp(agent) {
    try {
      const { result } = await post('/v1/onboarding/hook-up', { agent });
      this.error.hidden = true;
      this.hookResult = result;
      announce(result);
      await this.reload();
      return this.primary.focus(); // the button that was pressed is gone
    } catch (error) {
      return this.fail(`It was not hooked up. ${error.message}`);
    }
  }

  /** A step that was left out is not ticked. */
  isDone(step) {
    const { folder, agents, hooks } = this.status;
    if (step === 'folder') return Boolean(folder);
    return step !== 'agents' || agents.some(({ id, asked }) => asked || hooks[id]?.installed);
  }

  answers() {
    const point = (symbol, title, words) =>
      h(
        'li',
        { class: 'line' },
        icon(symbol),
        h(
          'span',
          { class: 'grow' },
          h('span', { class: 'strong' }, title),
          h('span', { class: 'soft sub' }, words),
        ),
      );
    return [
      h(
        'ul',
        { class: 'boxed' },
        point('inbox', 'One inbox', 'Whatever your agents ask lands in one list, the most urgent first.'),
        point('undo', 'Two seconds to undo', 'An answer is held for a moment before it goes out.'),
        point(
          'warning',
          'High risk is shown twice',
          'Such an answer is reviewed and confirmed first, and held longer.',
        ),
        point(
          'agents',
          'Typed only where it belongs',
          'The shell checks that the very agent that asked still waits in its terminal. If not, nothing is typed.',
        ),
      ),
    ];
  }

  /** The shell's folder picker has brought a folder, or the field has. */
  async folderChosen(path) {
    if (!path) return this.fail('Choose a folder first.');
    try {
      const { folder } = await post('/v1/onboarding/folder', { path });
      this.error.hidden = true;
      announce(`Folder ${folder} is used.`);
      this.#at = 0;
      return this.reload();
    } catch (error) {
      return this.fail(error.code === 'validation_failed' ? 'That folder is not available.' : error.message);
    }
  }

  fail(words) {
    this.error.textContent = words;
    this.error.hidden = false;
  }

  move(by) {
    this.#at += by;
    this.error.hidden = true;
    this.update(this.status);
    this.heading.focus();
  }

  async next() {
    if (this.#at < STEPS.length - 1) return this.move(1);
    try {
      await post('/v1/onboarding/finish');
    } catch (error) {
      return this.fail(error.message);
    }
    tellShell({ type: 'onboarding_done' });
    dispatchEvent(new Event('kd-setup'));
    return this.go('/');
  }
}
