// Every route, with the surface that offers it: "socket" (anyone who may open the socket file: the user's own
// programs, agents among them) or "page" (a cookie session). What presses or types answers is for page sessions alone.
import { setTimeout } from 'node:timers/promises';
import { optional, required } from './check.mjs';
import { clock } from './clock.mjs';
import { conflict, forbidden, invalid } from './errors.mjs';
import { readAsk, readIdentity, readLive, readTopic } from './asks.mjs';
import { KEY_HEADER } from './page-auth.mjs';
import { shownLine, within } from '../shared/text.js';
import { relayRoutes } from './relay.mjs';
import { voiceRoutes } from './voice.mjs';
import { whyUntypable } from './reach.mjs';
import { STATUS_WORDS, isWorking } from './sessions.mjs';
import { LONGEST_MINUTES } from './snoozes.mjs';

const LONGEST_QUERY = 200;
const MAX_WAIT_MS = 25_000;
const MAX_CLAIM_MS = 8_000;
const WITHDRAW_MS = 15_000;
const LEAVING_MS = 5;
const both = ['socket', 'page'];

const shortLine = (body, field, max) => {
  const text = optional.string(body, field, { max });
  return text === undefined ? undefined : shownLine(text) || undefined;
};

const shellOf = (app, session, what) => app.auth.shellOf(session, (tag) => app.jobs.isThere(tag), what);

/** Where the user pressed, as receipts name it; the socket is for tests alone. */
const presserOf = (session) => (!session ? 'test' : session.surface === 'browser' ? 'browser' : 'app');

const cardId = (body) => required.string(body, 'card_id');

const pressed = (app, { body, session }) => ({
  id: cardId(body),
  version: required.integer(body, 'version'),
  answer: body.answer,
  acceptAllDefaults: optional.boolean(body, 'accept_all_defaults') ?? false,
  presser: session?.tag,
  presence: session ? shellOf(app, session).tag : app.auth.newestTag(),
  by: presserOf(session),
});

function answer(app, call) {
  return app.presses.answer({
    ...pressed(app, call),
    review: optional.string(call.body, 'review'),
  });
}

async function ask(app, { body, signal }) {
  const asked = readAsk(body);
  asked.untypable = await whyUntypable(asked);
  // An asker that gave up while this daemon hung has been told that nothing is asked. That it closed its connection
  // is only read after this request.
  await setTimeout(LEAVING_MS);
  if (signal.aborted) throw conflict('The asker has left.');
  const card = app.cards.open(asked);
  return { card_id: card.id, version: card.version, state: card.state };
}

/** Replies once no keys are being typed for the card, so that the agent can draw its next question safely. */
async function withdraw(app, { body, signal }) {
  const id = cardId(body);
  app.cards.withdraw(id, optional.string(body, 'answered', { max: 200_000 }));
  await app.askers.settled(id, WITHDRAW_MS, signal);
  const card = app.cards.find(id);
  return { card_id: card.id, state: card.state, ...(card.outcome ? { outcome: card.outcome } : {}) };
}

function touch(app, { body }) {
  const { agent, session_id } = readIdentity(body);
  const live = readLive(body);
  const seen = {
    agent,
    session_id: session_id ?? `${agent}-${live?.pid ?? 'local'}`,
    live,
    label: shortLine(body, 'label', 80),
    doing: shortLine(body, 'doing', 200),
    kind: shortLine(body, 'kind', 40),
    topic: readTopic(body),
    status: optional.oneOf(body, 'status', STATUS_WORDS),
  };
  return app.store.tx(() => {
    app.topics.touch(seen.topic, { folder: live?.cwd });
    app.cards.heardOf(seen);
    return app.sessions.touch(seen);
  });
}

function report(app, { body, session }) {
  const id = required.string(body, 'job_id');
  const outcome = required.oneOf(body, 'outcome', ['start', 'done', 'refused', 'failed']);
  const jobs = app.focuses.has(id) ? app.focuses : app.jobs;
  if (outcome === 'start') return jobs.start(id, session);
  return jobs.report(
    id,
    { outcome, reason: shortLine(body, 'reason', 1000), path: optional.string(body, 'path') ?? 'host' },
    session,
  );
}

function inbox(app, { body }) {
  const sessions = app.sessions.list(app.topics);
  const counts = {
    ...app.cards.counts(),
    // No rule answers anything yet, so none was.
    answered_by_rules_today: 0,
    agents_working: sessions.filter(isWorking).length,
    // Answers that arrived: typed and reported so, or handed to a waiting asker.
    verified_today: app.receipts.countToday(['answer.typed', 'answer.handed']),
  };
  if (optional.boolean(body, 'counts_only')) return { counts };
  return { counts, cards: app.cards.list(), sessions, topics: app.topics.board() };
}

/** A time in milliseconds, from text that names one. */
function moment(body, field) {
  const text = optional.string(body, field, { max: 40 });
  if (text === undefined) return undefined;
  const ms = Date.parse(text);
  if (Number.isNaN(ms)) throw invalid(field, 'must be a time as in ISO 8601');
  return ms;
}

function receiptsWanted(body) {
  return {
    limit: optional.integer(body, 'limit', { min: 1, max: 1000 }) ?? 100,
    topic: readTopic(body),
    text: optional.string(body, 'text', { max: 200 })?.trim() || undefined,
    agent: optional.string(body, 'agent', { max: 64 }),
    since: moment(body, 'since'),
    until: moment(body, 'until'),
    before: optional.string(body, 'before', { pattern: /^\d{1,15}$/ }),
    answers: optional.boolean(body, 'answers'),
  };
}

function liveHosts(app, { body }) {
  app.hosts = {
    hosts: required.list(body, 'hosts', { max: 400 }),
    access: optional.object(body, 'access') ?? {},
  };
  return { received: app.hosts.hosts.length };
}

const routes = {
  'GET /v1/health': { on: both, run: (app) => app.health() },
  'GET /v1/stream': { on: both, stream: true },
  'GET /v1/page/me': {
    on: ['page'],
    run: (app, { session, headers }) => ({
      csrf: app.auth.tokenOf(session, headers),
      kd: app.onboarding.kd,
      hold_s: { low: app.settings.holdMs('low') / 1000, high: app.settings.holdMs('high') / 1000 },
    }),
  },

  'POST /v1/cards/list': { on: both, run: (app) => ({ cards: app.cards.list() }) },
  'POST /v1/cards/detail': {
    on: both,
    run: (app, { body }) => ({ card: app.cards.view(app.cards.find(cardId(body))) }),
  },
  'POST /v1/handoffs/list': { on: both, run: (app) => ({ cards: app.cards.ofKind('handoff_review', 100) }) },
  'POST /v1/board': { on: both, run: (app) => ({ topics: app.topics.board() }) },
  'POST /v1/topic/detail': {
    on: both,
    run: (app, { body }) => app.topics.detail(required.string(body, 'topic'), app.cards, app.receipts),
  },
  'POST /v1/receipts/list': {
    on: both,
    run: (app, { body }) => ({ receipts: app.receipts.list(receiptsWanted(body)) }),
  },
  'POST /v1/agents/status': {
    on: both,
    run: (app) => ({ sessions: app.sessions.list(app.topics), locks: [], autopilot: [] }),
  },
  'POST /v1/inbox': { on: both, run: inbox },
  'POST /v1/search': {
    on: both,
    run: (app, { body }) =>
      app.search.find(
        within(required.string(body, 'q', { max: Infinity }).trim(), LONGEST_QUERY),
        optional.integer(body, 'limit', { min: 1, max: 50 }) ?? 20,
      ),
  },
  'POST /v1/talk/propose': { on: ['page'], run: (app, { body }) => app.requests.propose(body) },
  'POST /v1/sessions/live': {
    on: both,
    run: (app) => ({ sessions: app.sessions.live(), crew_labels: true }),
  },

  'POST /v1/ask': { on: ['socket'], run: ask },
  'POST /v1/ask/wait': {
    on: ['socket'],
    run: (app, { body, signal }) =>
      app.askers.waitFor(
        cardId(body),
        optional.integer(body, 'wait_ms', { max: MAX_WAIT_MS }) ?? MAX_WAIT_MS,
        signal,
      ),
  },
  'POST /v1/ask/withdraw': { on: ['socket'], run: withdraw },
  'POST /v1/sessions/touch': { on: ['socket'], run: touch },

  'POST /v1/page/claim': {
    on: ['socket'],
    run: (app, { body }) => {
      app.auth.claimKey(body.key);
      return { registered: true };
    },
  },
  'POST /v1/page/token': {
    on: ['socket'],
    run: (app, { headers }) => app.auth.mintLink(headers[KEY_HEADER]),
  },

  'POST /v1/page/holder': {
    on: ['socket'],
    run: (app) => ({ there: app.jobs.isThere(app.auth.newestTag()) }),
  },
  'POST /v1/page/key': { on: ['socket'], run: (app) => app.auth.keyState() },
  'POST /v1/page/key/reset': {
    on: ['socket'],
    run: (app, { body }) => {
      app.auth.resetKey(required.string(body, 'reset'));
      app.store.tx(() =>
        app.receipts.add(
          'page.key_reset',
          'The page key was forgotten and every page session ended. Whoever registers a key next holds the page.',
        ),
      );
      app.changed();
      return { forgotten: true };
    },
  },
  'POST /v1/page/sessions': {
    on: ['page'],
    run: (app, { session }) => ({ sessions: app.auth.list(session) }),
  },
  'POST /v1/page/sessions/end': {
    on: ['page'],
    run: (app, { body }) => {
      app.auth.endByName(required.string(body, 'session'));
      app.changed();
      return { ended: true };
    },
  },

  'POST /v1/onboarding/status': { on: both, run: (app) => app.onboarding.status() },
  'POST /v1/onboarding/folder': {
    on: both,
    run: (app, { body }) => app.onboarding.setFolder(required.string(body, 'path', { max: 4096 })),
  },
  // A program on the socket could ask all by itself anyway.
  'POST /v1/onboarding/hooks': {
    on: ['page'],
    run: async (app) => ({ agents: await app.onboarding.hooks() }),
  },
  'POST /v1/onboarding/hook-up': {
    on: ['page'],
    answers: true,
    run: (app, { body }) => app.onboarding.hookUp(required.string(body, 'agent', { max: 64 })),
  },
  'POST /v1/onboarding/sample': { on: both, run: (app) => app.sample.ask() },
  'POST /v1/onboarding/finish': { on: ['page'], run: (app) => app.onboarding.finish() },

  'POST /v1/test/advance': {
    on: [],
    testSocket: true,
    run: (app, { body }) => {
      clock.advance(optional.integer(body, 'ms') ?? 0);
      clock.setTimeOfDay(optional.integer(body, 'set_ms', { min: -Number.MAX_SAFE_INTEGER }) ?? 0);
      app.changed();
      return {};
    },
  },

  'POST /v1/cards/answer': { on: ['page'], answers: true, testSocket: true, run: answer },
  'POST /v1/page/review': {
    on: ['page'],
    answers: true,
    run: (app, call) => app.presses.review(pressed(app, call)),
  },
  'POST /v1/page/cancel': {
    on: ['page'],
    answers: true,
    run: (app, { body, session }) => app.presses.undo(cardId(body), presserOf(session)),
  },
  'POST /v1/page/dismiss': {
    on: ['page'],
    answers: true,
    run: (app, { body, session }) =>
      app.presses.dismiss(cardId(body), required.integer(body, 'version'), presserOf(session)),
  },
  'POST /v1/page/snooze': {
    on: ['page'],
    answers: true,
    run: (app, { body }) => ({
      card: app.snoozes.put(
        cardId(body),
        optional.integer(body, 'minutes', { min: 1, max: LONGEST_MINUTES }) ?? 30,
      ),
    }),
  },
  'POST /v1/page/wake': {
    on: ['page'],
    answers: true,
    run: (app, { body }) => ({ card: app.snoozes.wake(cardId(body)) }),
  },
  'POST /v1/page/focus': {
    on: ['page'],
    run: (app, { body, session, signal }) =>
      app.focuses.bring(
        { agent: required.string(body, 'agent'), session_id: required.string(body, 'session_id') },
        shellOf(app, session, 'bring its terminal to the front').tag,
        signal,
      ),
  },
  'POST /v1/deliver/claim': {
    on: ['page'],
    shell: true,
    run: async (app, { body, session, signal }) => ({
      jobs: await app.jobs.claim(
        session,
        optional.integer(body, 'wait_ms', { max: MAX_CLAIM_MS }) ?? 0,
        signal,
      ),
    }),
  },
  'POST /v1/deliver/report': { on: ['page'], shell: true, run: report },
  ...relayRoutes,
  ...voiceRoutes,
  'POST /v1/live/hosts': { on: ['page'], shell: true, run: liveHosts },
};

const paths = new Set(Object.keys(routes).map((key) => key.split(' ')[1]));

/** The route for a request, null when there is none, or "method" when only the method is wrong. */
export function findRoute(method, path) {
  const route = Object.hasOwn(routes, `${method} ${path}`) ? routes[`${method} ${path}`] : null;
  return route ?? (paths.has(path) ? 'method' : null);
}

export function checkSurface(route, surface, settings, session) {
  if (route.shell && session?.surface === 'browser') throw forbidden('Only Kelvadrome itself may do this.');
  if (route.on.includes(surface) || (surface === 'socket' && route.testSocket && settings.test)) return;
  throw forbidden(
    surface === 'socket'
      ? 'Only a page session may do this: an answer must be pressed by the user.'
      : 'This route is for programs on the local socket.',
  );
}
