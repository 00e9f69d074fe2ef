import fs from 'node:fs';
import path from 'node:path';
import { randomBytes } from 'node:crypto';

/**
 * Replaces `file` with `data` so that a reader (or the next start after a crash or power cut)
 * sees either the old contents or the new ones, never a mix: the data goes to a temporary file in
 * the same directory, is synced, then renamed over the target, and the directory is synced so the
 * rename itself is durable.
 * @param {string} file
 * @param {Uint8Array} data written with mode 0600: what the backend keeps is private
 */
export function writeFileAtomic(file, data) {
  const dir = path.dirname(file);
  const temp = path.join(dir, `.${path.basename(file)}.${process.pid}.${randomBytes(4).toString('hex')}.tmp`);
  const fd = fs.openSync(temp, 'wx', 0o600);
  try {
    try {
      fs.writeSync(fd, data);
      fs.fsyncSync(fd);
    } finally {
      fs.closeSync(fd);
    }
    fs.renameSync(temp, file);
  } catch (error) {
    fs.rmSync(temp, { force: true });
    throw error;
  }
  syncDirectory(dir);
}

/** Makes a completed rename or link in `dir` survive a crash. */
export function syncDirectory(dir) {
  const fd = fs.openSync(dir, 'r');
  try {
    fs.fsyncSync(fd);
  } finally {
    fs.closeSync(fd);
  }
}
