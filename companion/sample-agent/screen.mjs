// A terminal in raw mode: keys in, a block of lines at the bottom that is painted over and over.
import { StringDecoder } from 'node:string_decoder';

const ESCAPE_PATIENCE_MS = 50;
const SEQUENCES = { '\x1b[A': 'up', '\x1bOA': 'up', '\x1b[B': 'down', '\x1bOB': 'down' };
const NAMES = {
  '\r': 'enter',
  '\n': 'enter',
  '\x7f': 'backspace',
  '\b': 'backspace',
  '\x03': 'interrupt',
  '\x04': 'interrupt',
};

/** Turns input into keys {name} or {text}. Pieces may end anywhere; a lone Escape is told once nothing follows it. */
export class KeyReader {
  #decoder = new StringDecoder('utf8');
  #rest = '';

  constructor(onKey) {
    this.onKey = onKey;
  }

  feed(bytes) {
    clearTimeout(this.timer);
    this.#rest += this.#decoder.write(bytes);
    while (this.#rest !== '' && this.#next());
    if (this.#rest !== '') this.timer = setTimeout(() => this.#loneEscape(), ESCAPE_PATIENCE_MS);
  }

  #loneEscape() {
    this.#rest = this.#rest.slice(1);
    this.onKey({ name: 'escape' });
    this.feed(Buffer.alloc(0));
  }

  /** Takes one key off; false when more input may belong to it. */
  #next() {
    const sequence = /^\x1b(?:\[[0-?]*[ -/]*[@-~]|O.)/.exec(this.#rest)?.[0];
    if (sequence) {
      this.#rest = this.#rest.slice(sequence.length);
      if (SEQUENCES[sequence]) this.onKey({ name: SEQUENCES[sequence] });
      return true;
    }
    if (/^\x1b(?:\[[0-?]*[ -/]*|O)?$/.test(this.#rest)) return false;
    const [key] = this.#rest;
    this.#rest = this.#rest.slice(key.length);
    if (key === '\x1b') this.onKey({ name: 'escape' });
    else if (NAMES[key]) this.onKey({ name: NAMES[key] });
    else if (key >= ' ') {
      const more = /^[^\x00-\x1f\x7f]*/.exec(this.#rest)[0];
      // Digits come alone so that a menu sees each; other text comes as it was typed or pasted.
      const text = /\d/.test(key) ? '' : /^\D*/.exec(more)[0];
      this.#rest = this.#rest.slice(text.length);
      this.onKey({ text: key + text });
    }
    return true;
  }
}

const isWide = (c) =>
  /[\u1100-\u115f\u2e80-\ua4cf\uac00-\ud7a3\uf900-\ufaff\ufe30-\ufe6f\uff00-\uff60\uffe0-\uffe6]|\p{Emoji_Presentation}/u.test(
    c,
  );
const width = (line) =>
  Array.from(new Intl.Segmenter().segment(line), ({ segment }) => (isWide(segment) ? 2 : 1)).reduce(
    (sum, one) => sum + one,
    0,
  );

export class Screen {
  #block = [];
  #painted = 0; // rows that the block took when it was last painted

  constructor(onKey) {
    this.keys = new KeyReader(onKey);
    process.stdin.setRawMode?.(true);
    process.stdin.on('data', (bytes) => this.keys.feed(bytes));
    process.stdout.on('resize', () => {
      this.#write('\x1b[2J\x1b[H');
      this.#painted = 0;
      this.paint(this.#block);
    });
    this.#write('\x1b[?25l');
  }

  #write(text) {
    process.stdout.write(text);
  }
  #erase() {
    return this.#painted === 0 ? '' : `${this.#painted > 1 ? `\x1b[${this.#painted - 1}A` : ''}\r\x1b[J`;
  }

  /** Replaces the block. */
  paint(lines) {
    const columns = process.stdout.columns || 80;
    const text = this.#erase() + lines.join('\r\n');
    this.#block = lines;
    this.#painted = lines.reduce((rows, line) => rows + Math.max(1, Math.ceil(width(line) / columns)), 0);
    this.#write(text);
  }

  /** Prints lines for good, in the place of the block. */
  print(...lines) {
    this.#write(`${this.#erase()}${lines.join('\r\n')}\r\n`);
    this.#painted = 0;
    this.#block = [];
  }

  close() {
    this.#write(`${this.#painted > 0 ? '\r\n' : ''}\x1b[?25h`);
    process.stdin.setRawMode?.(false);
    process.stdin.pause();
  }
}
