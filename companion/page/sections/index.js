// Which section a path is. A section is made when it is entered, and has: `title`, `element`, `load()`, which reads
// what it shows, and `update(data)`, which shows it; the latter may give {needsYou}.
import { Inbox } from './inbox.js';
import { Topic, Topics } from './topics.js';
import { Receipts } from './receipts.js';
import { Agents } from './agents.js';
import { Search } from './search.js';
import { Autopilot, Handoffs, Skills } from './plain.js';
import { Setup } from './setup.js';

const SECTIONS = {
  '': Inbox,
  topics: Topics,
  handoffs: Handoffs,
  skills: Skills,
  receipts: Receipts,
  agents: Agents,
  autopilot: Autopilot,
  search: Search,
  onboarding: Setup,
};

/** {Section, name, id} for a path of this page, or null. */
export function sectionOf(path) {
  const [, name, rest, ...more] = path.split('/');
  if (more.length > 0 || !Object.hasOwn(SECTIONS, name)) return null;
  if (!rest) return { Section: SECTIONS[name], name };
  try {
    return name === 'topics' ? { Section: Topic, name, id: decodeURIComponent(rest) } : null;
  } catch {
    return null;
  }
}
