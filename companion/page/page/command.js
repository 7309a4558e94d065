// A command to be copied, through the shell where there is one, else by the browser's clipboard.
import { h } from '../lib/dom.js';
import { icon } from '../lib/icons.js';
import { announce } from '../lib/announce.js';
import { inShell, tellShell } from './shell.js';

const SHOWN_MS = 2000;

export class CommandLine {
  constructor(command) {
    this.command = command;
    this.code = h('code', { dir: 'ltr' }, command);
    this.words = h('span', {}, 'Copy');
    this.element = h(
      'div',
      { class: 'command' },
      this.code,
      h(
        'button',
        { type: 'button', class: 'small', 'aria-label': 'Copy the command', onclick: () => this.copy() },
        icon('copy'),
        this.words,
      ),
    );
  }

  async copy() {
    // The shell takes nothing but commands of ours.
    if (inShell() && this.command.startsWith('kd '))
      tellShell({ type: 'action', action: 'delegate', command: this.command });
    else {
      try {
        await navigator.clipboard.writeText(this.command);
      } catch {
        getSelection().selectAllChildren(this.code); // for the keyboard, where the clipboard is closed to the page
        return announce('Not copied. The command is selected.');
      }
    }
    this.words.textContent = 'Copied';
    announce('Copied.');
    setTimeout(() => {
      this.words.textContent = 'Copy';
    }, SHOWN_MS);
  }
}
