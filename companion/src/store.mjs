// The state on disk: one SQLite file in the data home, write-ahead log, every commit synced. The file is locked for
// this process alone; the lock goes with the process, however it ends.
import { DatabaseSync } from 'node:sqlite';
import { randomInt } from 'node:crypto';
import { existsSync, renameSync } from 'node:fs';
import { join } from 'node:path';
import { StartError } from './errors.mjs';
import { clock, iso } from './clock.mjs';
import { spread } from './search-words.mjs';

const MIGRATIONS = [
  `CREATE TABLE cards (
     seq INTEGER PRIMARY KEY AUTOINCREMENT, id TEXT NOT NULL UNIQUE, ask_id TEXT UNIQUE,
     version INTEGER NOT NULL, state TEXT NOT NULL CHECK (state IN ('open','held','armed','closed')),
     kind TEXT NOT NULL, risk TEXT NOT NULL, stop_type TEXT, topic TEXT, agent TEXT NOT NULL, session_id TEXT NOT NULL,
     title TEXT NOT NULL, body TEXT NOT NULL, options TEXT NOT NULL, default_answer TEXT, rows TEXT,
     blocking INTEGER NOT NULL, refs TEXT NOT NULL, delivery TEXT NOT NULL CHECK (delivery IN ('terminal','wait','keep')),
     menu INTEGER NOT NULL, live TEXT, screen TEXT, opened_ms INTEGER NOT NULL,
     held_until_ms INTEGER, answer TEXT, presence TEXT,
     over INTEGER NOT NULL DEFAULT 0, outcome TEXT, closed_ms INTEGER) STRICT;
   CREATE INDEX cards_live ON cards (seq) WHERE state <> 'closed';
   CREATE INDEX cards_topic ON cards (topic);
   CREATE TABLE jobs (
     seq INTEGER PRIMARY KEY AUTOINCREMENT, id TEXT NOT NULL UNIQUE, card_id TEXT NOT NULL REFERENCES cards (id),
     type TEXT NOT NULL CHECK (type IN ('answer','hand')),
     state TEXT NOT NULL CHECK (state IN ('queued','claimed','started','done','refused','failed','expired','unfinished','withdrawn')),
     payload TEXT NOT NULL, presence TEXT NOT NULL, expires_ms INTEGER NOT NULL,
     claimant TEXT, started_ms INTEGER, reason TEXT, reopened_version INTEGER) STRICT;
   CREATE INDEX jobs_live ON jobs (seq) WHERE state IN ('queued','claimed','started');
   CREATE INDEX jobs_card ON jobs (card_id);
   CREATE TABLE receipts (
     event_id INTEGER PRIMARY KEY AUTOINCREMENT, action TEXT NOT NULL, line TEXT NOT NULL, topic TEXT, card_id TEXT,
     ts_ms INTEGER NOT NULL) STRICT;
   CREATE INDEX receipts_time ON receipts (ts_ms);
   CREATE TABLE sessions (
     agent TEXT NOT NULL, session_id TEXT NOT NULL, label TEXT, status TEXT NOT NULL, doing TEXT, topic TEXT, kind TEXT,
     live TEXT, callsign TEXT NOT NULL, seen_ms INTEGER NOT NULL, ended_ms INTEGER, PRIMARY KEY (agent, session_id)) STRICT;
   CREATE TABLE topics (
     id TEXT PRIMARY KEY, title TEXT NOT NULL, folder TEXT, touched_ms INTEGER NOT NULL) STRICT;`,
  `ALTER TABLE cards ADD COLUMN gone_ms INTEGER;
   ALTER TABLE topics ADD COLUMN scope TEXT;
   CREATE INDEX cards_kind ON cards (kind, seq);
   CREATE TABLE settings (name TEXT PRIMARY KEY, value TEXT NOT NULL) STRICT;`,
  `ALTER TABLE cards ADD COLUMN process TEXT;
   ALTER TABLE cards ADD COLUMN untypable TEXT;
   ALTER TABLE cards ADD COLUMN unsure TEXT;
   ALTER TABLE cards ADD COLUMN fetched_ms INTEGER;
   ALTER TABLE cards ADD COLUMN shown INTEGER NOT NULL DEFAULT 0;
   UPDATE cards SET process = concat(live ->> 'pid', '/', live ->> 'started', '/') WHERE live ->> 'pid' IS NOT NULL;
   CREATE INDEX cards_process ON cards (process, seq) WHERE process IS NOT NULL;`,
  `DROP INDEX cards_process;
   CREATE INDEX cards_process ON cards (process, seq) WHERE process IS NOT NULL AND state <> 'closed';
   CREATE INDEX cards_closed ON cards (closed_ms) WHERE state = 'closed';
   CREATE INDEX receipts_topic ON receipts (topic);
   CREATE INDEX sessions_ended ON sessions (ended_ms);
   CREATE INDEX sessions_agent ON sessions (agent, ended_ms);`,
  `ALTER TABLE cards ADD COLUMN snoozed_until_ms INTEGER;
   ALTER TABLE cards ADD COLUMN pressed_in TEXT;
   ALTER TABLE receipts ADD COLUMN agent TEXT;
   ALTER TABLE receipts ADD COLUMN actor TEXT;
   UPDATE receipts SET agent = (SELECT agent FROM cards WHERE id = card_id) WHERE card_id IS NOT NULL;
   CREATE INDEX receipts_agent ON receipts (agent, event_id);
   CREATE INDEX cards_snoozed ON cards (snoozed_until_ms) WHERE snoozed_until_ms IS NOT NULL;`,
  `CREATE TABLE requests (
     card_id TEXT PRIMARY KEY REFERENCES cards (id) ON DELETE CASCADE, agent TEXT, mode TEXT, topic TEXT, goal TEXT,
     folder TEXT, choices TEXT NOT NULL, shots TEXT NOT NULL, opened_ms INTEGER) STRICT;
   CREATE TABLE request_shots (id TEXT PRIMARY KEY, card_id TEXT NOT NULL REFERENCES cards (id) ON DELETE CASCADE) STRICT;
   CREATE INDEX request_shots_card ON request_shots (card_id);`,
  `CREATE TABLE relay_devices (
     id TEXT PRIMARY KEY, name TEXT NOT NULL, kind TEXT NOT NULL, fingerprint TEXT NOT NULL, channel TEXT NOT NULL UNIQUE,
     up BLOB, down BLOB, passkey TEXT, farewell TEXT, did INTEGER NOT NULL DEFAULT 0, asked INTEGER NOT NULL DEFAULT 0,
     said INTEGER NOT NULL DEFAULT 0, results TEXT NOT NULL DEFAULT '[]', paired_ms INTEGER NOT NULL,
     seen_ms INTEGER NOT NULL, revoked_ms INTEGER) STRICT;
   ALTER TABLE cards ADD COLUMN restricted INTEGER NOT NULL DEFAULT 0;
   ALTER TABLE topics ADD COLUMN restricted INTEGER NOT NULL DEFAULT 0;`,
  `UPDATE cards SET ask_id = agent || '/' || CASE agent WHEN 'shell' THEN '' ELSE session_id END || '/' || ask_id
     WHERE ask_id IS NOT NULL;`,
  `CREATE TABLE voice_days (day TEXT PRIMARY KEY, seconds INTEGER NOT NULL CHECK (seconds >= 0)) STRICT;
   CREATE TABLE voice_reservations (
     seq INTEGER PRIMARY KEY AUTOINCREMENT, id TEXT NOT NULL UNIQUE, day TEXT NOT NULL, engine TEXT NOT NULL,
     model TEXT NOT NULL, seconds INTEGER NOT NULL CHECK (seconds > 0),
     state TEXT NOT NULL CHECK (state IN ('held','used','released','expired'))) STRICT;
   CREATE INDEX voice_held ON voice_reservations (day) WHERE state = 'held';`,
  `ALTER TABLE cards ADD COLUMN phone TEXT;
   CREATE INDEX cards_phone ON cards (phone) WHERE phone IS NOT NULL AND state <> 'closed';`,
];

const FILE = 'kelvadromed.db';
const SQLITE_BUSY = 5;
const OPEN_TRIES = 4;
const isCorrupt = (error) => error.errcode === 11 || error.errcode === 26; // SQLITE_CORRUPT, SQLITE_NOTADB

function openChecked(path) {
  const db = new DatabaseSync(path, { timeout: 500 });
  try {
    db.exec(
      'PRAGMA locking_mode = EXCLUSIVE; PRAGMA journal_mode = WAL; PRAGMA synchronous = FULL; PRAGMA foreign_keys = ON; PRAGMA secure_delete = ON;',
    );
    db.exec('BEGIN IMMEDIATE; COMMIT');
    const verdict = db.prepare('PRAGMA quick_check(1)').get();
    if (Object.values(verdict)[0] !== 'ok')
      throw Object.assign(new Error(String(Object.values(verdict)[0])), { errcode: 11 });
    return db;
  } catch (error) {
    db.close();
    throw error;
  }
}

/**
 * Two daemons that start at once can each hold half of the lock and keep the other from the rest. Both let go then, and
 * come back after pauses of their own.
 */
function openAlone(path) {
  for (let left = OPEN_TRIES; ; left--) {
    try {
      return openChecked(path);
    } catch (error) {
      if (error.errcode !== SQLITE_BUSY || left === 1) throw error;
      Atomics.wait(new Int32Array(new SharedArrayBuffer(4)), 0, 0, randomInt(20, 300));
    }
  }
}

function setAside(path, now) {
  const kept = `${path}.damaged-${iso(now).replace(/[-:]/g, '').replace(/\.\d+/, '')}`;
  for (const suffix of ['', '-wal', '-shm'])
    if (existsSync(path + suffix)) renameSync(path + suffix, kept + suffix);
  return kept;
}

function migrate(db) {
  const { user_version: version } = db.prepare('PRAGMA user_version').get();
  if (version > MIGRATIONS.length) {
    throw new StartError(
      `The database was written by a newer kelvadromed (schema ${version}, this one knows ${MIGRATIONS.length}). Nothing was changed.`,
    );
  }
  for (let next = version; next < MIGRATIONS.length; next++) {
    db.exec(`BEGIN IMMEDIATE; ${MIGRATIONS[next]} PRAGMA user_version = ${next + 1}; COMMIT;`);
  }
}

export class Store {
  #db;
  #statements = new Map();
  #depth = 0;
  #afterCommit = [];

  /**
   * Opens the database of `home`. A damaged file is kept under a dated name, a fresh one takes its place, and
   * `setAsideAs` names the kept file. Throws `StartError` when another process holds it or it cannot be used.
   */
  constructor(home, now = clock.now()) {
    const path = join(home, FILE);
    this.setAsideAs = null;
    try {
      try {
        this.#db = openAlone(path);
      } catch (error) {
        if (!isCorrupt(error)) throw error;
        this.setAsideAs = setAside(path, now);
        this.#db = openAlone(path);
      }
      this.#db.function('search_spread', { deterministic: true }, spread); // the search's triggers call it
      migrate(this.#db);
    } catch (error) {
      if (error instanceof StartError) throw error;
      if (error.errcode === SQLITE_BUSY)
        throw new StartError(`Another kelvadromed uses the home ${home}.`, 3);
      throw new StartError(`The database ${path} cannot be used: ${error.message}.`);
    }
  }

  #prepared(sql) {
    let statement = this.#statements.get(sql);
    if (!statement) {
      statement = this.#db.prepare(sql);
      this.#statements.set(sql, statement);
    }
    return statement;
  }

  get(sql, ...values) {
    return this.#prepared(sql).get(...values);
  }
  all(sql, ...values) {
    return this.#prepared(sql).all(...values);
  }
  run(sql, ...values) {
    return this.#prepared(sql).run(...values);
  }

  /** Statements without values, such as those that make a table. */
  exec(sql) {
    this.#db.exec(sql);
  }

  /** Inserts one row given as an object; absent values become NULL. Returns the row id. */
  insert(table, row) {
    const names = Object.keys(row);
    const sql = `INSERT INTO ${table} (${names.join(', ')}) VALUES (${names.map(() => '?').join(', ')})`;
    return Number(this.run(sql, ...names.map((name) => row[name] ?? null)).lastInsertRowid);
  }

  /** All or nothing. An inner call joins the outer one. What `afterCommit` was given runs once the disk has it all. */
  tx(work) {
    if (this.#depth > 0) return work();
    this.#db.exec('BEGIN IMMEDIATE');
    this.#depth = 1;
    let result;
    try {
      result = work();
      this.#db.exec('COMMIT');
    } catch (error) {
      this.#afterCommit.length = 0;
      if (this.#db.isTransaction) this.#db.exec('ROLLBACK');
      throw error;
    } finally {
      this.#depth = 0;
    }
    for (const tell of this.#afterCommit.splice(0)) tell();
    return result;
  }

  /** Must be called inside `tx`. */
  afterCommit(tell) {
    this.#afterCommit.push(tell);
  }

  /** What was deleted until now is in none of the database's files any more. Not to be called inside `tx`. */
  scrub() {
    this.#db.exec('PRAGMA wal_checkpoint(TRUNCATE)');
  }

  /** A small fact that outlives the process; null when it was never kept. */
  setting(name) {
    return this.get('SELECT value FROM settings WHERE name = ?', name)?.value ?? null;
  }
  keepSetting(name, value) {
    this.run(
      'INSERT INTO settings (name, value) VALUES (?, ?) ON CONFLICT (name) DO UPDATE SET value = excluded.value',
      name,
      String(value),
    );
  }

  close() {
    this.#db.close();
  }
}
