import { randomUUID } from 'node:crypto';
import { DecryptionError } from './crypto.js';
import { sendJson } from './http.js';

const DECRYPTION_ERROR = 'Unable to decrypt call contents';

const DIRECTIONS = ['outbound', 'inbound'];
const END_STATUSES = ['completed', 'failed'];
const ROLES = ['user', 'assistant'];
const PRIORITIES = ['high', 'medium', 'low'];
const SENTIMENTS = ['positive', 'neutral', 'negative'];

/** Data for a call that breaks the call's rules (a bad segment, an unknown status). */
export class InvalidCallData extends Error {}
/** A call that does not exist. */
export class UnknownCall extends Error {}
/** A change a call's state does not allow, such as adding to a finished call. */
export class CallStateError extends Error {}

/**
 * "12:05" for 725 seconds, "1:02:03" from an hour on.
 * @param {number} seconds
 */
export function formatDuration(seconds) {
  const total = Math.max(0, Math.round(seconds));
  const h = Math.floor(total / 3600);
  const m = Math.floor((total % 3600) / 60);
  const s = String(total % 60).padStart(2, '0');
  return h > 0 ? `${h}:${String(m).padStart(2, '0')}:${s}` : `${m}:${s}`;
}

function check(condition, message) {
  if (!condition) throw new InvalidCallData(message);
}

const isTime = (value) => Number.isFinite(value) && value >= 0;

function checkSegment(segment) {
  check(segment && typeof segment === 'object', 'a segment must be an object');
  const { start_time: start, end_time: end, speaker, text } = segment;
  check(isTime(start) && isTime(end) && end >= start, 'a segment needs start_time <= end_time, both seconds');
  check(typeof speaker === 'string' && typeof text === 'string', 'a segment needs a speaker and a text');
  return { start_time: start, end_time: end, speaker, text };
}

function checkMessage(message, at) {
  check(message && typeof message === 'object', 'a message must be an object');
  const { id = randomUUID(), content, timestamp = at, role, tool_calls: toolCalls, metadata } = message;
  check(typeof id === 'string' && id !== '', 'a message id must be a non-empty string');
  check(typeof content === 'string', 'a message needs a content string');
  check(ROLES.includes(role), `a message role is one of ${ROLES.join(', ')}`);
  check(typeof timestamp === 'string' && !Number.isNaN(Date.parse(timestamp)), 'a message timestamp is an ISO time');
  check(toolCalls === undefined || Array.isArray(toolCalls), 'tool_calls must be a list');
  check(
    metadata === undefined ||
      (metadata && Number.isFinite(metadata.processing_time) && typeof metadata.type === 'string'),
    'metadata needs processing_time and type',
  );
  return {
    id,
    content,
    timestamp,
    role,
    ...(toolCalls && { tool_calls: toolCalls }),
    ...(metadata && { metadata: { processing_time: metadata.processing_time, type: metadata.type } }),
  };
}

function checkSummary(summary) {
  check(summary && typeof summary === 'object', 'a summary must be an object');
  const { content, key_points: keyPoints, action_items: actionItems, sentiment, sentiment_score: score } = summary;
  check(typeof content === 'string', 'a summary needs content');
  check(Array.isArray(keyPoints) && keyPoints.every((p) => typeof p === 'string'), 'key_points is a list of strings');
  const validItem = (item) => typeof item?.description === 'string' && PRIORITIES.includes(item.priority);
  check(Array.isArray(actionItems) && actionItems.every(validItem), 'an action item needs a description and a priority');
  check(SENTIMENTS.includes(sentiment), `sentiment is one of ${SENTIMENTS.join(', ')}`);
  check(score === undefined || (Number.isFinite(score) && Math.abs(score) <= 1), 'sentiment_score is from -1 to 1');
  check(summary.topics === undefined || Array.isArray(summary.topics), 'topics is a list');
  check(summary.speakers === undefined || Array.isArray(summary.speakers), 'speakers is a list');
}

const round4 = (value) => Math.round(value * 1e4) / 1e4;

// The running confidence is weighted by speaking time, so a long chunk weighs more than a short one.
const spoken = (segments) => segments.reduce((sum, s) => sum + (s.end_time - s.start_time), 0);

/**
 * A user's calls. What was said (transcription, summary, chat) is sealed per call under the
 * data directory's key, bound to the call and its owner; the rest stays readable for listing.
 * The event socket drives a live call through create → append… → complete.
 */
export class CallStore {
  #db;
  #cipher;
  #warn;

  /**
   * @param {import('./db.js').Database} db
   * @param {import('./crypto.js').Cipher} cipher
   * @param {{warn?: (line: string) => void}} [options] where to report calls that do not decrypt
   */
  constructor(db, cipher, { warn = () => {} } = {}) {
    this.#db = db;
    this.#cipher = cipher;
    this.#warn = warn;
  }

  /**
   * Starts a call for a user.
   * @param {{userId: string, direction?: 'outbound' | 'inbound', at?: Date}} call
   * @returns {string} the call's id
   */
  create({ userId, direction = 'outbound', at = new Date() }) {
    if (!DIRECTIONS.includes(direction)) throw new InvalidCallData(`direction is one of ${DIRECTIONS.join(', ')}`);
    const id = randomUUID();
    const time = at.toISOString();
    this.#db.run(
      `INSERT INTO calls (id, user_id, direction, status, contents, created_at, updated_at, last_saved)
       VALUES (?, ?, ?, 'active', ?, ?, ?, ?)`,
      [id, userId, direction, this.#seal(id, userId, { messages: [] }), time, time, time],
    );
    return id;
  }

  /**
   * Adds transcript segments and chat messages to an active call.
   * @param {string} callId
   * @param {{segments?: object[], confidence?: number, messages?: object[], clientSummary?: object, at?: Date}} addition
   *   `confidence` (0–1) is the recognizer's for these segments, required with segments;
   *   `clientSummary` replaces the summary the client made of the call so far (kept, not listed)
   * @returns {number | undefined} the transcript's confidence now, once it has one
   */
  append(callId, { segments = [], confidence, messages = [], clientSummary, at = new Date() }) {
    check(Array.isArray(segments) && Array.isArray(messages), 'segments and messages are lists');
    const time = at.toISOString();
    const newSegments = segments.map(checkSegment);
    const newMessages = messages.map((message) => checkMessage(message, time));
    if (newSegments.length > 0) {
      check(Number.isFinite(confidence) && confidence >= 0 && confidence <= 1, 'confidence is between 0 and 1');
    }
    return this.#update(callId, time, (row, contents) => {
      if (newSegments.length > 0) {
        const previous = contents.transcription;
        const all = [...(previous?.segments ?? []), ...newSegments];
        const before = spoken(previous?.segments ?? []);
        const added = spoken(newSegments);
        const weight = before + added;
        contents.transcription = {
          id: previous?.id ?? randomUUID(),
          text: all.map((s) => s.text.trim()).filter(Boolean).join(' '),
          duration: all.reduce((longest, s) => Math.max(longest, s.end_time), 0),
          confidence: round4(weight > 0 ? ((previous?.confidence ?? 0) * before + confidence * added) / weight : confidence),
          segments: all,
          created_at: previous?.created_at ?? time,
        };
      }
      contents.messages.push(...newMessages);
      if (clientSummary !== undefined) contents.client_summary = clientSummary;
      return { result: contents.transcription?.confidence };
    });
  }

  /**
   * Empties an active call's chat.
   * @param {string} callId
   * @param {{at?: Date}} [when]
   */
  clearMessages(callId, { at = new Date() } = {}) {
    this.#update(callId, at.toISOString(), (row, contents) => {
      contents.messages = [];
      return {};
    });
  }

  /**
   * Removes an active call that never had anything in it, so that a session opened and closed
   * without a word leaves no empty call in the history.
   * @param {string} callId
   * @returns {boolean} whether it was removed
   */
  discard(callId) {
    return this.#db.run("DELETE FROM calls WHERE id = ? AND status = 'active'", [callId]) === 1;
  }

  /**
   * Every active call with its contents, oldest first: what a start finds still open after the
   * last run stopped in the middle of calls. Calls whose contents cannot be opened are left out
   * (and reported): they cannot be continued.
   * @returns {{id: string, userId: string, direction: string, createdAt: string, lastSaved: string,
   *            segments: object[], confidence: number | undefined, messages: object[]}[]}
   */
  openCalls() {
    const open = [];
    for (const row of this.#db.all("SELECT * FROM calls WHERE status = 'active' ORDER BY created_at, id")) {
      let contents;
      try {
        contents = this.#open(row);
      } catch (error) {
        if (!(error instanceof DecryptionError)) throw error;
        this.#warn(`call ${row.id}: contents cannot be opened (${error.message}); it cannot be continued`);
        continue;
      }
      open.push({
        id: row.id,
        userId: row.user_id,
        direction: row.direction,
        createdAt: row.created_at,
        lastSaved: row.last_saved,
        segments: contents.transcription?.segments ?? [],
        confidence: contents.transcription?.confidence,
        messages: contents.messages,
      });
    }
    return open;
  }

  /**
   * Ends an active call.
   * @param {string} callId
   * @param {{status?: 'completed' | 'failed', summary?: object, durationSeconds?: number, at?: Date}} end
   *   without durationSeconds, the time since the call was created
   */
  complete(callId, { status = 'completed', summary, durationSeconds, at = new Date() }) {
    if (!END_STATUSES.includes(status)) throw new InvalidCallData(`a call ends ${END_STATUSES.join(' or ')}`);
    if (summary !== undefined) checkSummary(summary);
    check(durationSeconds === undefined || isTime(durationSeconds), 'durationSeconds is a number of seconds');
    const time = at.toISOString();
    this.#update(callId, time, (row, contents) => {
      if (summary !== undefined) contents.summary = { ...summary, created_at: time };
      return {
        status,
        duration_seconds: durationSeconds ?? Math.max(0, (at.getTime() - Date.parse(row.created_at)) / 1000),
      };
    });
  }

  /**
   * A user's calls, newest first, as the client lists them. A call whose contents cannot be
   * opened is listed without them, with `decryption_error`.
   * @param {string} userId
   */
  listForUser(userId) {
    return this.#db
      .all('SELECT * FROM calls WHERE user_id = ? ORDER BY created_at DESC, id', [userId])
      .map((row) => this.#present(row));
  }

  /** @returns {number} how many calls a user has */
  countForUser(userId) {
    return this.#db.get('SELECT COUNT(*) AS n FROM calls WHERE user_id = ?', [userId]).n;
  }

  // Reads, changes and re-seals a call in one transaction. `change` edits the contents in place
  // and returns the columns to set besides them, and under `result` what to return.
  #update(callId, time, change) {
    return this.#db.transaction(() => {
      const row = this.#db.get('SELECT * FROM calls WHERE id = ?', [callId]);
      if (!row) throw new UnknownCall(`no call ${callId}`);
      if (row.status !== 'active') throw new CallStateError(`call ${callId} has ended (${row.status})`);
      // A damaged record stays as it is rather than being replaced by a partial one.
      const contents = this.#open(row);
      const { result, ...columns } = change(row, contents);
      const assignments = { ...columns, message_count: contents.messages.length };
      const names = Object.keys(assignments);
      this.#db.run(
        `UPDATE calls SET ${names.map((n) => `${n} = ?`).join(', ')}, contents = ?, updated_at = ?, last_saved = ?
         WHERE id = ?`,
        [...Object.values(assignments), this.#seal(callId, row.user_id, contents), time, time, callId],
      );
      return result;
    });
  }

  #seal(callId, userId, contents) {
    return this.#cipher.seal(JSON.stringify(contents), `${userId}/${callId}`);
  }

  #open(row) {
    return JSON.parse(this.#cipher.open(row.contents, `${row.user_id}/${row.id}`).toString('utf8'));
  }

  #present(row) {
    const call = {
      id: row.id,
      user_id: row.user_id,
      direction: row.direction,
      status: row.status,
      created_at: row.created_at,
      updated_at: row.updated_at,
      last_saved: row.last_saved,
      message_count: row.message_count,
    };
    if (row.duration_seconds !== null) {
      call.duration_seconds = row.duration_seconds;
      call.call_duration = formatDuration(row.duration_seconds);
    }
    try {
      const contents = this.#open(row);
      if (contents.transcription) call.transcription = contents.transcription;
      if (contents.summary) call.summary = contents.summary;
      call.messages = contents.messages;
    } catch (error) {
      if (!(error instanceof DecryptionError)) throw error;
      this.#warn(`call ${row.id}: contents cannot be opened (${error.message}); listed without them`);
      call.decryption_error = DECRYPTION_ERROR;
    }
    return call;
  }
}

/**
 * @param {import('./auth.js').AuthService} auth
 * @param {CallStore} calls
 * @returns {import('./http.js').Routes}
 */
export function callRoutes(auth, calls) {
  return {
    '/calls': {
      GET: (req, res) => {
        const data = calls.listForUser(auth.requireUser(req).id);
        sendJson(res, 200, { success: true, data, count: data.length });
      },
    },
  };
}
