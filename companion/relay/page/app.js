// The page of a paired phone: pairing, the cards that need somebody, and a field for a request.
import mqtt from 'mqtt';
import { h, place, said, showIn } from '../../page/lib/dom.js';
import { alone } from './alone.js';
import { CardView } from './card.js';
import { Phone } from './phone.js';
import { canConfirm, confirmWith, makePasskey } from './passkey.js';
import { storage } from './storage.js';
import { readOffer } from '../../shared/relay.js';

const NOTICE_MS = 8000;
const top = document.getElementById('top');
const main = document.getElementById('main');
const views = new Map(); // card id -> its view
const cardNotices = new Map(); // card id -> words
let said_ = '';
let offer = null;
let wants = true; // Face ID, while pairing

const dark = matchMedia('(prefers-color-scheme: dark)');
const more = matchMedia('(prefers-contrast: more)');
function dress() {
  document.documentElement.dataset.theme = dark.matches ? 'dark' : 'light';
  document.documentElement.dataset.contrast = more.matches ? 'more' : '';
}
for (const query of [dark, more]) query.addEventListener('change', dress);
dress();

const phone = new Phone({
  store: storage,
  connect: (url, options) => mqtt.connect(url, options),
  confirm: confirmWith,
  changed: () => show(),
});

const ENDS = {
  declined: ['Declined', 'Your computer declined this phone. To try again, show a new code there.'],
  failed: [
    'Pairing failed',
    'The digits did not match, or too much time has passed. Show a new code and scan it.',
  ],
  expired: [
    'The code expired',
    'A code is good for two minutes and for one phone. Show a new one and scan it.',
  ],
  unpaired: ['Unpaired', 'Your computer has unpaired this phone. Nothing of it is kept here.'],
};

function kindOfPhone() {
  if (/iPhone|iPad/.test(navigator.userAgent)) return 'iphone';
  return /Android/.test(navigator.userAgent) ? 'android' : 'other';
}
const usualName = () => ({ iphone: 'iPhone', android: 'Android phone' })[kindOfPhone()] ?? 'Phone';

const mark = () => h('img', { class: 'mark', src: 'icon-512.png', alt: '' });
const sheet = (...parts) => h('section', { class: 'sheet' }, ...parts);

function introduction() {
  const [title, words] = ENDS[phone.why] ?? [
    'Answer from here',
    'On your computer open the settings of kelvadrome, choose iPhone, and press “Pair a phone”. Then scan the code with your camera.',
  ];
  return sheet(mark(), h('h1', {}, title), h('p', { class: 'soft' }, words));
}

function welcome() {
  const name = h('input', {
    type: 'text',
    value: usualName(),
    maxlength: '40',
    'aria-label': 'Name of this phone',
  });
  const face = h('input', { type: 'checkbox', checked: wants, onchange: () => (wants = face.checked) });
  const faceRow = h('label', { class: 'switch', hidden: true }, h('span', {}, 'Face ID for high risk'), face);
  canConfirm().then((can) => (faceRow.hidden = !can));
  const button = h('button', { type: 'button', class: 'big' }, 'Pair this phone');
  button.addEventListener('click', async () => {
    button.disabled = true;
    const wanted = face.checked && !faceRow.hidden;
    const passkey = wanted ? await makePasskey() : null;
    await phone.join(offer, { name: name.value.trim(), kind: kindOfPhone(), passkey });
    offer = null;
    show();
  });
  return sheet(
    mark(),
    h('h1', {}, 'Pair this phone'),
    h(
      'p',
      { class: 'soft' },
      'The cards that need you will show here, and you can answer them. Only your computer and this phone can read them.',
    ),
    h('label', { class: 'field' }, h('span', {}, 'Its name'), name),
    faceRow,
    button,
  );
}

function joining() {
  return sheet(
    h('span', { class: 'spinner large', 'aria-hidden': 'true' }),
    h('h1', {}, 'Looking for your computer…'),
    h(
      'p',
      { class: 'soft' },
      phone.online ? 'The relay is there; your computer has not answered yet.' : 'Connecting to the relay.',
    ),
    h('button', { type: 'button', class: 'flat', onclick: () => phone.forget() }, 'Cancel'),
  );
}

function digits() {
  return sheet(
    h('h1', {}, 'Type these on your computer'),
    h(
      'p',
      { class: 'digits', 'aria-label': phone.digits.split('').join(' ') },
      [...phone.digits].map((digit) => h('span', { 'aria-hidden': 'true' }, digit)),
    ),
    h(
      'p',
      { class: 'soft' },
      'They show that nobody stands between this phone and ',
      said(phone.mine.deskName),
      '. Tell them to nobody.',
    ),
    h('button', { type: 'button', class: 'flat', onclick: () => phone.forget() }, 'Cancel'),
  );
}

let request;
function composer() {
  if (request) return request;
  const field = h('textarea', {
    rows: '1',
    maxlength: '2000',
    placeholder: 'Send a request',
    'aria-label': 'Request',
  });
  const button = h(
    'button',
    { type: 'submit', class: 'round', 'aria-label': 'Send the request', disabled: true },
    '↑',
  );
  const fit = () => {
    button.disabled = field.value.trim() === '';
    field.rows = Math.min(5, field.value.split('\n').length);
  };
  field.addEventListener('input', fit);
  request = h('form', { class: 'composer' }, field, button);
  request.addEventListener('submit', async (event) => {
    event.preventDefault();
    if (!(await phone.request(field.value.trim()))) return;
    field.value = '';
    fit();
  });
  return request;
}

const list = h('div', { class: 'list' });
const toasts = h('div', { class: 'toasts', role: 'status' });
const empty = h('section', { class: 'sheet quiet' });

function inbox() {
  for (const notice of phone.notices.splice(0)) {
    const onCard = notice.card && phone.cards.has(notice.card);
    if (onCard) cardNotices.set(notice.card, notice.text);
    else toast(notice.text, notice.good);
  }
  for (const id of [...views.keys()]) if (!phone.cards.has(id)) views.delete(id);
  for (const id of cardNotices.keys())
    if (!phone.cards.has(id) || phone.pendingOf(id)) cardNotices.delete(id);
  for (const card of phone.cards.values()) {
    if (!views.has(card.id)) views.set(card.id, new CardView(phone));
    views.get(card.id).update(card, cardNotices.get(card.id));
  }
  place(
    list,
    [...phone.cards.keys()].map((id) => views.get(id).element),
  );
  const known = phone.rev !== undefined;
  empty.hidden = phone.cards.size > 0;
  showIn(empty, known, () =>
    known
      ? [
          mark(),
          h('h1', {}, 'Nothing needs you'),
          h('p', { class: 'soft' }, 'New questions show here as they come.'),
        ]
      : [h('span', { class: 'spinner large', 'aria-hidden': 'true' }), h('h1', {}, 'Asking your computer…')],
  );
  document.title = phone.cards.size > 0 ? `(${phone.cards.size}) kelvadrome` : 'kelvadrome';
  return [empty, list, toasts, composer()];
}

function toast(words, good) {
  const element = h('p', { class: `toast ${good ? 'good' : 'warn'}` }, words);
  toasts.append(element);
  setTimeout(() => element.remove(), NOTICE_MS);
}

const LAMPS = {
  fresh: 'Connected',
  stale: 'Your computer does not answer',
  offline: 'No connection to the relay',
};
const lamp = () => (phone.fresh ? 'fresh' : phone.online ? 'stale' : 'offline');

function header() {
  const state = lamp();
  showIn(top, [phone.phase, state, phone.mine?.deskName, phone.cards.size], () => [
    h('h1', { class: 'brand' }, 'kelvadrome'),
    phone.phase === 'paired'
      ? h(
          'details',
          { class: 'desk' },
          h('summary', {}, h('span', { class: `lamp ${state}`, 'aria-hidden': 'true' }), LAMPS[state]),
          h(
            'div',
            { class: 'menu' },
            h('p', {}, 'Paired with ', said(phone.mine.deskName)),
            h(
              'p',
              { class: 'soft small' },
              phone.mine.face ? 'Face ID confirms high risk.' : 'High risk stays on your computer.',
            ),
            h(
              'button',
              { type: 'button', class: 'flat', onclick: () => phone.forget() },
              'Forget it on this phone',
            ),
          ),
        )
      : null,
  ]);
  if (said_ !== state && phone.phase === 'paired') document.getElementById('said').textContent = LAMPS[state];
  said_ = state;
}

function elsewhere(take) {
  const button = h('button', { type: 'button', class: 'big' }, 'Use it here');
  button.addEventListener('click', () => {
    button.disabled = true;
    take();
  });
  return sheet(
    mark(),
    h('h1', {}, 'Open in another tab'),
    h(
      'p',
      { class: 'soft' },
      'kelvadrome works in one tab at a time. It goes on here once you close the other.',
    ),
    button,
  );
}

/** Another tab works now: this one begins anew, and waits. */
async function leave() {
  left = true;
  await phone.leave();
  location.reload();
}

let phase;
let left = false;
function show() {
  if (left) return;
  header();
  document.body.dataset.phase = phone.phase;
  if (phone.phase === 'paired') {
    const parts = inbox();
    if (phase !== 'paired') main.replaceChildren(...parts);
    phase = 'paired';
    return;
  }
  const now = [
    phone.phase,
    phone.why,
    offer !== null,
    phone.digits,
    phone.online && phone.phase === 'joining',
  ].join();
  if (now === phase) return;
  phase = now;
  const build = { joining, digits }[phone.phase] ?? (offer ? welcome : introduction);
  main.replaceChildren(build());
}

async function begin() {
  if (!globalThis.crypto?.subtle) {
    main.replaceChildren(
      sheet(
        mark(),
        h('h1', {}, 'This page is not secure'),
        h(
          'p',
          { class: 'soft' },
          'Browsers encrypt on https pages alone. The relay has to be served with a certificate.',
        ),
      ),
    );
    return;
  }
  offer = readOffer(location.hash);
  // The code's secret is to be in no history.
  if (location.hash) history.replaceState(null, '', location.pathname);
  await alone({ waits: (take) => main.replaceChildren(elsewhere(take)), leave });
  await phone.load();
  if (offer && phone.phase === 'paired') await phone.forget();
  navigator.storage?.persist?.();
  show();
  setInterval(() => {
    phone.tick();
    show();
  }, 1000);
  document.addEventListener('visibilitychange', () => {
    if (document.hidden) phone.rest();
    else phone.wake();
  });
  addEventListener('online', () => phone.wake());
}

begin();
