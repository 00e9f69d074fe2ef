import fs from 'node:fs';
import initSqlJs from 'sql.js';
import { writeFileAtomic } from './fsutil.js';
import { migrations as defaultMigrations } from './migrations.js';

/** @typedef {{version: number, name: string, sql: string}} Migration */

let sqlJs;

/**
 * The backend's SQLite database. SQLite runs in memory (sql.js) and the whole database is written
 * back to its file, atomically, whenever a write commits: an answer the server has sent is on
 * disk, and a crash leaves the last committed state.
 *
 * Everything here is synchronous on purpose. Node runs one callback at a time, so a
 * {@link Database#transaction} callback cannot interleave with another request: read-then-write
 * sequences in it (token rotation, rate limits) are atomic.
 */
export class Database {
  #db;
  #file;
  #depth = 0;
  #dirty = false;

  /** @private use {@link Database.open} */
  constructor(db, file) {
    this.#db = db;
    this.#file = file;
  }

  /**
   * Opens (or creates) the database kept in `file` and brings its schema up to date.
   * @param {string} file
   * @param {{migrations?: Migration[]}} [options]
   * @returns {Promise<Database>}
   */
  static async open(file, { migrations = defaultMigrations } = {}) {
    sqlJs ??= initSqlJs();
    const SQL = await sqlJs;
    let bytes;
    try {
      bytes = fs.readFileSync(file);
    } catch (error) {
      if (error.code !== 'ENOENT') throw error;
    }
    const database = new Database(new SQL.Database(bytes), file);
    try {
      // The first read is where SQLite notices a file that is not a database.
      database.#db.exec('SELECT COUNT(*) FROM sqlite_master; PRAGMA foreign_keys = ON');
    } catch (error) {
      database.#db.close();
      throw new Error(`${file} is not a usable database (${error.message}); move it aside to start afresh`);
    }
    try {
      // Also writes the file back once, so an unwritable data directory shows at start.
      database.#migrate(migrations);
    } catch (error) {
      database.#db.close();
      throw error;
    }
    return database;
  }

  /** Runs one or more statements without parameters (schema changes). */
  exec(sql) {
    this.#db.exec(sql);
    this.#changed();
  }

  /**
   * Runs one writing statement.
   * @returns {number} the number of rows it changed
   */
  run(sql, params = []) {
    this.#db.run(sql, params);
    const changes = this.#db.getRowsModified();
    this.#changed();
    return changes;
  }

  /** @returns {Record<string, any> | undefined} the first row of a query */
  get(sql, params = []) {
    return this.#query(sql, params, 1)[0];
  }

  /** @returns {Record<string, any>[]} all rows of a query */
  all(sql, params = []) {
    return this.#query(sql, params, Infinity);
  }

  /**
   * Runs `fn` in one transaction and writes the result to disk once it commits; a throw rolls
   * everything back. Nested calls join the outer transaction. `fn` must be synchronous: awaiting
   * inside would let other requests run in the middle of the transaction.
   * @template T
   * @param {() => T} fn
   * @returns {T}
   */
  transaction(fn) {
    if (this.#depth > 0) return fn();
    const wasDirty = this.#dirty;
    this.#db.exec('BEGIN IMMEDIATE');
    this.#depth = 1;
    let result;
    try {
      result = fn();
      if (typeof result?.then === 'function') {
        throw new TypeError('a transaction callback must not be asynchronous');
      }
      this.#db.exec('COMMIT');
    } catch (error) {
      this.#db.exec('ROLLBACK');
      // What was rolled back needs no writing.
      this.#dirty = wasDirty;
      throw error;
    } finally {
      this.#depth = 0;
    }
    if (this.#dirty) this.#persist();
    return result;
  }

  /** Writes what is not on disk yet and closes the database. */
  close() {
    if (this.#dirty) this.#persist();
    this.#db.close();
  }

  #query(sql, params, limit) {
    const statement = this.#db.prepare(sql, params);
    try {
      const rows = [];
      while (rows.length < limit && statement.step()) rows.push(statement.getAsObject());
      return rows;
    } finally {
      statement.free();
    }
  }

  #changed() {
    this.#dirty = true;
    if (this.#depth === 0) this.#persist();
  }

  #persist() {
    writeFileAtomic(this.#file, this.#db.export());
    this.#dirty = false;
  }

  #migrate(migrations) {
    migrations.forEach((migration, index) => {
      if (migration.version !== index + 1) {
        throw new Error(`migration "${migration.name}" has version ${migration.version}, expected ${index + 1}`);
      }
    });
    this.transaction(() => {
      this.exec(`CREATE TABLE IF NOT EXISTS schema_migrations (
        version INTEGER PRIMARY KEY,
        name TEXT NOT NULL,
        applied_at TEXT NOT NULL)`);
      const current = this.get('SELECT COALESCE(MAX(version), 0) AS version FROM schema_migrations').version;
      if (current > migrations.length) {
        throw new Error(
          `${this.#file} has schema version ${current}, newer than this backend knows (${migrations.length}); ` +
            'update the backend',
        );
      }
      for (const migration of migrations.slice(current)) {
        this.exec(migration.sql);
        this.run('INSERT INTO schema_migrations (version, name, applied_at) VALUES (?, ?, ?)', [
          migration.version,
          migration.name,
          new Date().toISOString(),
        ]);
      }
    });
  }
}
