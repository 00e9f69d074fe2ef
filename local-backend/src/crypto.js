import fs from 'node:fs';
import path from 'node:path';
import { createCipheriv, createDecipheriv, randomBytes } from 'node:crypto';
import { syncDirectory } from './fsutil.js';

const KEY_FILE = 'secret.key';
const KEY_BYTES = 32;
const NONCE_BYTES = 12;
const TAG_BYTES = 16;
// First byte of every sealed record, so that a later key or algorithm change can tell old records.
const FORMAT = 1;

/** A sealed record that is damaged, truncated, or sealed under another key or record. */
export class DecryptionError extends Error {}

/**
 * Returns the data directory's content key, creating it (32 random bytes, mode 0600) on first
 * use. A key file of the wrong size stops the start rather than being replaced: a new key would
 * make every stored call unreadable.
 * @param {string} dataDir
 * @returns {Buffer}
 */
export function loadOrCreateKey(dataDir) {
  const file = path.join(dataDir, KEY_FILE);
  if (!fs.existsSync(file)) {
    // Written aside and linked into place: link() fails when the name exists, so two backends
    // starting together agree on one key, and nobody ever reads a half-written one.
    const temp = path.join(dataDir, `.${KEY_FILE}.${process.pid}.${randomBytes(4).toString('hex')}.tmp`);
    try {
      const fd = fs.openSync(temp, 'wx', 0o600);
      try {
        fs.writeSync(fd, randomBytes(KEY_BYTES));
        fs.fsyncSync(fd);
      } finally {
        fs.closeSync(fd);
      }
      fs.linkSync(temp, file);
      syncDirectory(dataDir);
    } catch (error) {
      if (error.code !== 'EEXIST') throw error;
    } finally {
      fs.rmSync(temp, { force: true });
    }
  }
  const key = fs.readFileSync(file);
  if (key.length !== KEY_BYTES) {
    throw new Error(`${file} holds ${key.length} bytes instead of a ${KEY_BYTES}-byte key; restore the right file`);
  }
  return key;
}

/**
 * AES-256-GCM with a fresh random nonce per record. The caller passes what the record belongs to
 * (a call's id) as associated data, so a record copied onto another row does not open.
 */
export class Cipher {
  #key;

  /** @param {Buffer} key 32 bytes */
  constructor(key) {
    if (key.length !== KEY_BYTES) throw new RangeError(`the key must be ${KEY_BYTES} bytes`);
    this.#key = key;
  }

  /**
   * @param {Buffer | string} plaintext
   * @param {string} context associated data, needed again to open the record
   * @returns {Buffer} format byte, nonce, ciphertext, tag
   */
  seal(plaintext, context) {
    const nonce = randomBytes(NONCE_BYTES);
    const cipher = createCipheriv('aes-256-gcm', this.#key, nonce);
    cipher.setAAD(Buffer.from(context, 'utf8'));
    const body = Buffer.concat([cipher.update(plaintext), cipher.final()]);
    return Buffer.concat([Buffer.of(FORMAT), nonce, body, cipher.getAuthTag()]);
  }

  /**
   * @param {Uint8Array} sealed
   * @param {string} context the associated data it was sealed with
   * @returns {Buffer} the plaintext
   * @throws {DecryptionError}
   */
  open(sealed, context) {
    const record = Buffer.from(sealed.buffer, sealed.byteOffset, sealed.byteLength);
    if (record.length < 1 + NONCE_BYTES + TAG_BYTES || record[0] !== FORMAT) {
      throw new DecryptionError('not a sealed record');
    }
    const nonce = record.subarray(1, 1 + NONCE_BYTES);
    const body = record.subarray(1 + NONCE_BYTES, record.length - TAG_BYTES);
    const decipher = createDecipheriv('aes-256-gcm', this.#key, nonce);
    decipher.setAAD(Buffer.from(context, 'utf8'));
    decipher.setAuthTag(record.subarray(record.length - TAG_BYTES));
    try {
      return Buffer.concat([decipher.update(body), decipher.final()]);
    } catch {
      throw new DecryptionError('the record failed authentication');
    }
  }
}
