import { randomUUID } from 'node:crypto';
import { HttpError, readJsonObject, sendJson } from './http.js';

const FEEDBACK_TYPES = ['feature-request', 'bug-report', 'compliment', 'improvement', 'question', 'other'];
const MAX_FEEDBACK_CHARACTERS = 5000;
const FEEDBACK_LIMIT = { count: 5, windowSeconds: 60 };

/** A user has sent as much feedback as the rolling window allows. */
class RateLimited extends Error {
  /** @param {number} retryAfterSeconds when the oldest feedback in the window leaves it */
  constructor(retryAfterSeconds) {
    super('Too much feedback in a short time; please try again shortly');
    this.retryAfterSeconds = retryAfterSeconds;
  }
}

/**
 * Checks a feedback body: a known type and 1–5000 characters, counted as Unicode code points so
 * that an emoji counts once.
 * @param {Record<string, unknown>} body
 * @returns {{type: string, text: string}}
 * @throws {HttpError} 400
 */
function checkFeedback({ type, text }) {
  if (!FEEDBACK_TYPES.includes(type)) {
    throw new HttpError(400, `type must be one of ${FEEDBACK_TYPES.join(', ')}`);
  }
  if (typeof text !== 'string' || text.trim() === '') throw new HttpError(400, 'text must not be empty');
  // A lone surrogate: JSON allows it, but it is no character and cannot be stored as UTF-8.
  if (/\p{Surrogate}/u.test(text)) throw new HttpError(400, 'text must be valid Unicode');
  if ([...text].length > MAX_FEEDBACK_CHARACTERS) {
    throw new HttpError(400, `text must be at most ${MAX_FEEDBACK_CHARACTERS} characters`);
  }
  return { type, text };
}

/** Feedback as received. The rolling limit counts what is stored, so it holds across restarts. */
export class FeedbackStore {
  #db;

  /** @param {import('./db.js').Database} db */
  constructor(db) {
    this.#db = db;
  }

  /**
   * Stores one feedback of a user, unless the user has reached the limit: counting and storing
   * are one transaction, so simultaneous requests cannot slip past it together.
   * @param {string} userId
   * @param {{type: string, text: string}} feedback
   * @throws {RateLimited}
   */
  submit(userId, { type, text }) {
    return this.#db.transaction(() => {
      const now = new Date();
      const windowStart = new Date(now.getTime() - FEEDBACK_LIMIT.windowSeconds * 1000).toISOString();
      const recent = this.#db.all(
        'SELECT created_at FROM feedback WHERE user_id = ? AND created_at > ? ORDER BY created_at',
        [userId, windowStart],
      );
      if (recent.length >= FEEDBACK_LIMIT.count) {
        // The window frees a place when the oldest of the last `count` leaves it.
        const oldest = Date.parse(recent[recent.length - FEEDBACK_LIMIT.count].created_at);
        throw new RateLimited(Math.max(1, Math.ceil((oldest + FEEDBACK_LIMIT.windowSeconds * 1000 - now) / 1000)));
      }
      const record = { id: `f_${randomUUID()}`, type, text, status: 'received', created_at: now.toISOString() };
      this.#db.run('INSERT INTO feedback (id, user_id, type, text, status, created_at) VALUES (?, ?, ?, ?, ?, ?)', [
        record.id,
        userId,
        record.type,
        record.text,
        record.status,
        record.created_at,
      ]);
      return record;
    });
  }
}

/**
 * @param {import('./auth.js').AuthService} auth
 * @param {FeedbackStore} store
 * @returns {import('./http.js').Routes}
 */
export function feedbackRoutes(auth, store) {
  return {
    '/feedback': {
      POST: async (req, res) => {
        const user = auth.requireUser(req);
        const feedback = checkFeedback(await readJsonObject(req));
        let record;
        try {
          record = store.submit(user.id, feedback);
        } catch (error) {
          if (!(error instanceof RateLimited)) throw error;
          throw new HttpError(429, error.message, { 'Retry-After': String(error.retryAfterSeconds) });
        }
        sendJson(res, 201, { success: true, message: 'Thank you for your feedback', data: record });
      },
    },
  };
}
