// Made from design/tokens.json by scripts/make-design.mjs; change it there.
// The words and keys that every surface shares.
export const ACTIONS = {
  option: { word: 'Choose an option', key: '1' },
  accept: { word: 'Accept what is suggested', key: 'a' },
  write: { word: 'Write your own answer', key: 't' },
  undo: { word: 'Undo', key: 'u' },
  snooze: { word: 'Snooze', key: 'z' },
  wake: { word: 'Wake', key: 'z' },
  dismiss: { word: 'Dismiss', key: 'x' },
  search: { word: 'Search', key: '/' },
  help: { word: 'Keyboard', key: '?' },
};

export const CARD = {
  highRisk: 'High risk',
  mediumRisk: 'Medium risk',
  highRiskMark: '!',
  suggested: 'Suggested',
  ownAnswer: 'Your own answer',
  send: 'Send',
  review: 'Review before it is sent',
  dismissAsks: 'Dismiss without an answer?',
  keep: 'Keep',
  notDelivered: 'Your answer was not delivered',
  lookFirst: 'Look at its terminal before you answer again',
  unknown: 'No answer from the daemon yet: it may or may not have been taken. Your words stay here.',
};

export const STATE = {
  open: 'Open',
  held: 'On hold',
  armed: 'On its way',
  gone: 'Its agent has ended',
  snoozed: 'Snoozed',
  closed: 'Closed',
};

export const OUTCOME = {
  answered: 'Answered',
  withdrawn: 'Taken back by the agent',
  dismissed: 'Dismissed without an answer',
  wentOn: 'The agent went on',
};

export const LAMP = {
  needsYou: 'Needs you',
  working: 'Working',
  waiting: 'Waiting',
  failed: 'Failed',
  idle: 'Idle',
  ended: 'Ended',
};

export const TITLE = {
  inbox: 'Inbox',
  topics: 'Topics',
  handoffs: 'Handoffs',
  skills: 'Skills',
  receipts: 'Receipts',
  agents: 'Agents',
  autopilot: 'Autopilot',
  search: 'Search',
  snoozed: 'Snoozed',
};
