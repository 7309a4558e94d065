// Names by which a person tells agents of one kind apart.
const CALLSIGNS = [
  'Ada',
  'Bruno',
  'Cleo',
  'Dora',
  'Emil',
  'Freya',
  'Gus',
  'Hana',
  'Ivo',
  'Juno',
  'Kai',
  'Lena',
  'Milo',
  'Nora',
  'Otto',
  'Pia',
  'Quinn',
  'Rosa',
  'Sami',
  'Tove',
  'Uma',
  'Vito',
  'Wanda',
  'Yara',
  'Zeno',
];

/** The first callsign that nobody in `taken` (a set) bears. */
export function freeCallsign(taken) {
  for (let round = 1; ; round++) {
    for (const name of CALLSIGNS) {
      const callsign = round === 1 ? name : `${name} ${round}`;
      if (!taken.has(callsign)) return callsign;
    }
  }
}
