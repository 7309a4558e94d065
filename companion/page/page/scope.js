// Which part of the user's life the inbox shows. The shell has its own row for this; in a browser the page has one.
export const SCOPES = [
  ['all', 'All'],
  ['scenario', 'Scenario'],
  ['tolvena', 'Tolvena'],
  ['family', 'Family'],
  ['companies', 'Companies'],
];

export const scope = {
  name: 'all',
  onChange: () => {},
  /** False for a word that is no scope. */
  set(name) {
    if (!SCOPES.some(([id]) => id === name)) return false;
    this.name = name;
    this.onChange();
    return true;
  },
  shows(of) {
    return this.name === 'all' || of === this.name;
  },
};
