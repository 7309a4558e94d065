// Requests from the command bar. A sentence becomes a card, and nothing runs before its "Run" is pressed.
// Then the shell starts the agent in a tmux session of the request's own, and once that agent reports in, the
// goal goes in as its first prompt by the way of every answer. The session has the request's name, so that a
// request starts one agent at most.
import { homedir } from 'node:os';
import { statSync } from 'node:fs';
import { clock, newId } from './clock.mjs';
import { required } from './check.mjs';
import { invalid } from './errors.mjs';
import { about } from './card-view.mjs';
import { Shots } from './shots.mjs';
import { STARTABLE, parseTalk } from './talk.mjs';
import { sessionNameOf } from './reach.mjs';
import { agentName } from '../shared/agents.js';
import { cut, oneLine, sanitize, whyNotTypable } from '../shared/text.js';

const REPORT_IN_MS = 120_000; // an agent may show questions of its own first, which the user answers in its terminal
const LOOK_MS = 500;
const MODE_WORDS = {
  'review-readonly': 'Review only: change nothing.',
  research: 'Research only: change nothing.',
  browser: 'Use the browser.',
};

/** What is asked for, and how to go about it. The second part may restrict the first, so neither goes without the other. */
const orderOf = ({ goal, mode }) => [goal, MODE_WORDS[mode]].filter(Boolean).join(' ');
const whyNotOrdered = (request) => (request.goal ? whyNotTypable(orderOf(request)) : null);

/** A path that holds blanks or the like stands in quotes. */
const inQuotes = (path) =>
  /^[\p{L}\p{N}/._~+-]+$/u.test(path) ? path : `"${path.replace(/["\\]/g, '\\$&')}"`;

const tmuxName = (card) => `kd-${card.id.replace(/^card-/, '')}`;

export class Requests {
  #deadlines = new Map(); // card id -> until when its agent has to report in, on the steady clock
  #asked = new Set(); // "card/pid/started" that were held against the request's session
  #next = -Infinity;

  constructor(app) {
    this.app = app;
    this.store = app.store;
    this.shots = new Shots(app.home);
  }

  find(cardId) {
    const row = this.store.get('SELECT * FROM requests WHERE card_id = ?', cardId);
    return row && { ...row, choices: JSON.parse(row.choices), shots: JSON.parse(row.shots) };
  }

  #board() {
    const used = this.store
      .all('SELECT agent, max(seen_ms) AS seen FROM sessions GROUP BY agent ORDER BY seen DESC')
      .map(({ agent }) => agent);
    const installed = this.app.onboarding
      .status()
      .agents.filter(({ id, install }) => STARTABLE.includes(id) && install.state === 'installed')
      .map(({ id }) => id);
    const rank = (agent) => (used.includes(agent) ? used.indexOf(agent) : Infinity);
    return {
      agents: installed.sort((a, b) => (rank(a) === rank(b) ? 0 : rank(a) - rank(b))),
      lastAgent: (topic) =>
        this.store
          .all('SELECT agent FROM sessions WHERE topic = ? ORDER BY seen_ms DESC', topic)
          .map(({ agent }) => agent)
          .find((agent) => STARTABLE.includes(agent)),
      folder: this.app.onboarding.folder,
      home: homedir(),
    };
  }

  /** `/v1/talk/propose`: a card in state open for a sentence, of `phone` where one sent it. */
  propose(body, phone = null, now = clock.now()) {
    const text = oneLine(required.string(body, 'text', { max: 4000 }));
    if (text === '') throw invalid('text', 'is empty');
    const shots = this.shots.read(body);
    const parsed = parseTalk(text, { ...this.#board(), topics: this.app.search.topicsLike(text) });
    const why = whyNotOrdered(parsed.proposal);
    if (why !== null) throw invalid('text', `This cannot be typed for an agent: ${why}`);
    const card = this.store.tx(() => {
      const made = this.#insert(text, parsed, phone, now);
      this.#keep(made, parsed, shots);
      this.app.receipts.add(
        'request.made',
        `Asked in the bar: "${made.title}". Nothing runs yet.`,
        about(made),
        now,
      );
      return made;
    });
    return { parse: 'rules', proposal: parsed.proposal, card_id: card.id };
  }

  #insert(text, { proposal, folder, choices }, phone, now) {
    const id = newId('card', now);
    const row = {
      id,
      version: 1,
      state: 'open',
      kind: 'question',
      risk: 'low',
      topic: proposal.topic,
      agent: proposal.agent ?? STARTABLE[0],
      session_id: id.replace(/^card-/, ''),
      title: cut(proposal.goal ?? text, 500),
      body: this.#bodyOf(text, proposal, folder),
      options: JSON.stringify(choices.map(([words]) => words)),
      blocking: 0,
      refs: '{}',
      delivery: 'keep',
      menu: 0,
      opened_ms: now,
      phone,
    };
    this.store.insert('cards', row);
    this.store.afterCommit(() => {
      this.app.hub.publish('card.opened', { id, version: 1, state: 'open' });
      this.app.changed();
    });
    return this.app.cards.find(id);
  }

  #bodyOf(text, { agent, mode, topic, clarify }, folder) {
    return [
      clarify,
      [
        agent && `Agent: ${agentName(agent)}`,
        mode && `Mode: ${mode}`,
        topic && `Topic: ${this.app.topics.title(topic)}`,
        folder && `Folder: ${folder}`,
      ]
        .filter(Boolean)
        .join('\n'),
      `You asked: ${text}`,
    ]
      .filter(Boolean)
      .join('\n\n');
  }

  #keep(card, { proposal, folder, choices }, shots) {
    this.store.insert('requests', {
      card_id: card.id,
      agent: proposal.agent,
      mode: proposal.mode,
      topic: proposal.topic,
      goal: proposal.goal,
      folder,
      choices: JSON.stringify(choices),
      shots: JSON.stringify(shots),
    });
    for (const id of shots)
      this.store.run(
        'INSERT INTO request_shots (id, card_id) VALUES (?, ?) ON CONFLICT DO NOTHING',
        id,
        card.id,
      );
  }

  /** What a card shows besides, when it is a request. */
  view(card) {
    const request = this.find(card.id);
    if (!request) return {};
    const shots = request.shots.filter((id) => this.shots.isThere(id)).map((id) => `/shots/${id}.png`);
    return {
      request: true,
      kept: undefined,
      ...(card.state === 'open' && card.delivery === 'keep'
        ? { delivery_note: 'Nothing runs before you press Run.' }
        : {}),
      ...(shots.length > 0 ? { shots } : {}),
    };
  }

  picture(path) {
    return this.shots.picture(
      path,
      (id) => this.store.get('SELECT 1 AS tied FROM request_shots WHERE id = ?', id) !== undefined,
    );
  }

  /**
   * The hold of a pressed answer has ended. False when the card is no request. Called in the transaction of
   * the commit.
   */
  takes(card, now = clock.now()) {
    const request = this.find(card.id);
    if (!request) return false;
    const choice = request.choices.find(([words]) => words === card.answer)?.[1];
    const why = choice === undefined ? null : whyNotOrdered(request);
    if (why !== null) this.app.cards.reopen(card, `it cannot be typed for an agent: ${why}`, false);
    else if (choice === undefined) this.#amend(card, request, now);
    else if (card.delivery === 'terminal') this.#prompt(card, request, now);
    else this.#run(card, { ...request, ...choice }, now);
    return true;
  }

  /** Words in place of a choice complete the sentence. */
  #amend(card, request, now) {
    const before = request.goal ?? '';
    const text = oneLine(`${before} ${card.answer}`);
    const known = { agent: request.agent, topic: request.topic };
    const board = { ...this.#board(), topics: this.app.search.topicsLike(text) };
    if (known.agent !== null) {
      board.agents = [...new Set([known.agent, ...board.agents])];
      board.lastAgent = () => known.agent;
    }
    const parsed = parseTalk(text, board);
    const { proposal } = parsed;
    const mode = proposal.mode ?? request.mode;
    const why = whyNotOrdered({ goal: proposal.goal, mode });
    if (why !== null)
      return this.app.cards.reopen(card, `these words cannot be typed for an agent: ${why}`, false);
    this.store.run(
      'UPDATE requests SET agent = ?, mode = ?, topic = ?, goal = ?, folder = ?, choices = ? WHERE card_id = ?',
      proposal.agent ?? null,
      mode,
      proposal.topic ?? known.topic,
      proposal.goal ?? request.goal,
      parsed.folder ?? request.folder,
      JSON.stringify(parsed.choices),
      card.id,
    );
    this.app.cards.update(card, {
      state: 'open',
      held_until_ms: null,
      answer: null,
      presence: null,
      title: cut(proposal.goal ?? text, 500),
      topic: proposal.topic ?? known.topic,
      agent: proposal.agent ?? card.agent,
      options: JSON.stringify(parsed.choices.map(([words]) => words)),
      body: this.#bodyOf(text, proposal, parsed.folder ?? request.folder),
    });
  }

  #folderOf({ topic, folder }, chosen) {
    if (!chosen) return folder;
    return this.store.get('SELECT folder FROM topics WHERE id = ?', topic)?.folder ?? folder;
  }

  #run(card, request, now) {
    const folder = this.#folderOf(request, request.topic !== this.find(card.id).topic);
    const why = this.#whyNotRun(request, folder);
    if (why !== null) return this.app.cards.reopen(card, why, false);
    this.store.run(
      'UPDATE requests SET agent = ?, topic = ?, folder = ?, opened_ms = coalesce(opened_ms, ?) WHERE card_id = ?',
      request.agent,
      request.topic,
      folder,
      now,
      card.id,
    );
    const armed = this.app.cards.update(card, {
      state: 'armed',
      held_until_ms: null,
      agent: request.agent,
      topic: request.topic,
    });
    const again = request.opened_ms !== null;
    const open = { cwd: folder, argv: [request.agent] };
    this.app.jobs.queue(armed, 'answer', { type: 'open', host: 'tmux', open, again }, now);
  }

  #whyNotRun({ agent, goal }, folder) {
    if (!agent) return 'no agent is chosen';
    if (!goal) return 'there is nothing to do yet';
    try {
      if (folder !== null && statSync(folder).isDirectory()) return null;
    } catch {}
    return folder === null ? 'no folder is chosen' : `the folder ${folder} is gone`;
  }

  /** The shell's verdict on a job that opens. False when it is another job. Called in a transaction. */
  ended(job, card, outcome, reason, now = clock.now()) {
    const { type, again } = JSON.parse(job.payload);
    if (type !== 'open') return false;
    if (outcome === 'done')
      this.app.receipts.add(
        'request.opened',
        `Started ${agentName(card.agent)} in the tmux session ${tmuxName(card)}: "${card.title}".`,
        about(card),
        now,
      );
    // A session of that name is there from an earlier try: its agent may still report in.
    else if (outcome !== 'failed' || !again) this.#failed(card, reason ?? 'no reason was given', now);
    this.store.afterCommit(() => this.app.changed());
    return true;
  }

  #failed(card, reason, now) {
    this.app.receipts.add('request.failed', `Not started: "${card.title}": ${reason}.`, about(card), now);
    this.app.cards.reopen(card, reason, false);
  }

  /** The first prompt, as it is typed: the order, and where the screenshots are if that can be typed as well. */
  #promptOf(card, request, now) {
    const files = request.shots.filter((id) => this.shots.isThere(id)).map((id) => this.shots.file(id));
    const order = orderOf(request);
    if (files.length === 0) return order;
    const these = files.length === 1 ? 'this screenshot' : 'these screenshots';
    const whole = `${order} Look at ${these}: ${files.map(inQuotes).join(' ')}`;
    if (sanitize(whole) === whole) return whole;
    const line = `The screenshots are left out, since their paths cannot be typed along: "${card.title}".`;
    this.app.receipts.add('request.without_shots', line, about(card), now);
    return order;
  }

  #prompt(card, request, now) {
    this.app.cards.update(card, { state: 'armed', held_until_ms: null });
    this.#queuePrompt(this.app.cards.find(card.id), request, now);
  }

  #queuePrompt(card, request, now) {
    const text = this.#promptOf(card, request, now);
    this.app.jobs.queue(card, 'answer', { steps: [{ kind: 'text', text }] }, now);
  }

  #reportedIn(card, session, now) {
    const { live } = session;
    this.#deadlines.delete(card.id);
    const process = `${live.pid}/${live.started ?? ''}/${live.image ?? ''}`;
    const linked = this.app.cards.update(card, {
      delivery: 'terminal',
      live: JSON.stringify(live),
      process,
      session_id: session.session_id,
    });
    this.#queuePrompt(linked, this.find(card.id), now);
  }

  /** Requests whose agent was started and has not reported in. */
  #waiting() {
    return this.store
      .all(
        `SELECT c.id FROM requests r JOIN cards c ON c.id = r.card_id WHERE c.state = 'armed' AND c.delivery = 'keep'
         AND r.opened_ms IS NOT NULL AND NOT EXISTS (SELECT 1 FROM jobs WHERE card_id = c.id AND state IN ('queued','claimed','started'))`,
      )
      .map(({ id }) => this.app.cards.find(id));
  }

  /** Looks for the agents that have reported in since. */
  async look(now = clock.steady()) {
    if (now < this.#next) return;
    this.#next = now + LOOK_MS;
    for (const card of this.#waiting()) {
      if (!this.#deadlines.has(card.id)) this.#deadlines.set(card.id, now + REPORT_IN_MS);
      const session = await this.#sessionFor(card);
      if (this.app.closed) return;
      const current = this.app.cards.find(card.id);
      if (current.version !== card.version) continue;
      if (session !== null) this.store.tx(() => this.#reportedIn(current, session, clock.now()));
      else if (this.#deadlines.get(card.id) <= now) this.#giveUp(current);
    }
  }

  #giveUp(card) {
    this.#deadlines.delete(card.id);
    const reason = `${agentName(card.agent)} was started, and has not reported in. It is in the tmux session ${tmuxName(card)}: "tmux attach -t ${tmuxName(card)}"`;
    this.store.tx(() => this.#failed(card, reason, clock.now()));
  }

  /** The session of an agent that runs in the request's own tmux session. */
  async #sessionFor(card) {
    const rows = this.store.all(
      'SELECT * FROM sessions WHERE agent = ? AND ended_ms IS NULL AND live IS NOT NULL AND seen_ms >= ?',
      card.agent,
      this.find(card.id).opened_ms - REPORT_IN_MS,
    );
    for (const row of rows) {
      const live = JSON.parse(row.live);
      const key = `${card.id}/${live.pid}/${live.started}`;
      if (live.host !== 'tmux' || live.pid === undefined || live.tty === undefined || this.#asked.has(key))
        continue;
      const name = await sessionNameOf(live);
      if (name === tmuxName(card)) return { ...row, live };
      if (name !== null) this.#asked.add(key);
    }
    return null;
  }
}
