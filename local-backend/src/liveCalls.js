import { randomUUID } from 'node:crypto';
import { CallStateError, UnknownCall, formatDuration } from './calls.js';
import { summarize } from './summarizer/index.js';

/** How long a call whose connection dropped waits for the client to come back and continue it. */
export const DEFAULT_RESUME_WINDOW_SECONDS = 300;

/** The speaker of transcript text the client did not attribute to anyone. */
export const UNATTRIBUTED = 'Unknown';

// A pace of speech used to place a piece on the call's timeline: the piece ends when it
// arrives and began as long before as its words take to say.
const WORDS_PER_SECOND = 2.5;
const MIN_PIECE_SECONDS = 0.5;

const round1 = (seconds) => Math.round(seconds * 10) / 10;
const wordCount = (text) => text.split(/\s+/).filter(Boolean).length;

/**
 * A call in progress, held in memory beside its stored record: what the summarizer and the
 * assistant read without opening the record again. Everything here is also on disk.
 */
export class LiveCall {
  /** @type {{start_time: number, end_time: number, speaker: string, text: string}[]} */
  segments = [];
  /** @type {object[]} the chat as stored */
  messages = [];
  /** @type {number | undefined} the recognizer's running confidence */
  confidence;
  /** @type {string | null} the connection it belongs to; null while it waits for a reconnect */
  connectionId = null;
  /** @type {number} when it lost its connection (ms), or its last stored change after a restart */
  detachedAt = 0;
  expiryTimer = null;
  /** What was stored since the last accumulated summary went out. */
  sinceSummary = { pieces: 0, characters: 0 };
  #summary = null;
  #forSummarizer = [];

  constructor({ id, userId, direction, createdAt }) {
    this.id = id;
    this.userId = userId;
    this.direction = direction;
    this.createdAt = createdAt;
  }

  /**
   * The call's summary now, recomputed only when the transcript has grown.
   * @param {Date} now for the call's running duration
   * @returns {import('./summarizer/index.js').CallSummary}
   */
  summary(now = new Date()) {
    if (this.#summary?.count !== this.segments.length) {
      this.#summary = { count: this.segments.length, value: summarize(this.summarySegments(), { confidence: this.confidence ?? 1 }) };
    }
    return { ...this.#summary.value, duration: durationText(this, now) };
  }

  /**
   * The transcript as the summarizer reads it: unattributed text has no speaker. The objects stay
   * the same from one call to the next, which lets the summarizer keep what it worked out of each.
   */
  summarySegments() {
    for (const s of this.segments.slice(this.#forSummarizer.length)) {
      this.#forSummarizer.push({ text: s.text, speaker: s.speaker === UNATTRIBUTED ? undefined : s.speaker });
    }
    return this.#forSummarizer.slice();
  }
}

const durationText = (call, now) => formatDuration(Math.max(0, (now.getTime() - call.createdAt) / 1000));

/**
 * The calls being held open for their users: created by a session, continued by the same user's
 * next session while they wait for a reconnect, and completed when the session ends for good.
 *
 * The rules: a call belongs to one connection at a time. When its connection drops it waits
 * `resumeWindowSeconds` for a new session of the same user and direction, which continues it;
 * after that it is completed with the time of the drop as its end. A session that ends on the
 * client's request completes its call at once. A call open when the backend stopped waits the
 * same window from its last stored change.
 */
export class LiveCalls {
  #store;
  #log;
  #resumeWindowMs;
  /** @type {Map<string, LiveCall>} */
  #open = new Map();
  #closing = false;

  /**
   * @param {import('./calls.js').CallStore} store
   * @param {{resumeWindowSeconds?: number, log?: (line: string) => void}} [options]
   */
  constructor(store, { resumeWindowSeconds = DEFAULT_RESUME_WINDOW_SECONDS, log = () => {} } = {}) {
    this.#store = store;
    this.#log = log;
    this.#resumeWindowMs = resumeWindowSeconds * 1000;
  }

  /**
   * Takes up the calls a previous run left open: those whose window has passed are completed,
   * the others wait for their client for the rest of it.
   */
  recover() {
    const now = Date.now();
    for (const record of this.#store.openCalls()) {
      const call = new LiveCall({
        id: record.id,
        userId: record.userId,
        direction: record.direction,
        createdAt: Date.parse(record.createdAt),
      });
      call.segments = record.segments;
      call.messages = record.messages;
      call.confidence = record.confidence;
      call.detachedAt = Date.parse(record.lastSaved);
      this.#open.set(call.id, call);
      this.#waitForReconnect(call, Math.max(0, call.detachedAt + this.#resumeWindowMs - now));
    }
  }

  /**
   * The call for a session that starts: the user's call waiting for a reconnect (or still held by
   * a connection of theirs that has not noticed it is gone), else a new one.
   * @param {{userId: string, direction: 'outbound' | 'inbound', connectionId: string}} session
   * @returns {{call: LiveCall, resumed: boolean, supersedes: string | null}} `supersedes` is the
   *   connection that held the call until now, which should be told and closed
   */
  begin({ userId, direction, connectionId }) {
    const now = Date.now();
    const candidates = [...this.#open.values()].filter(
      (c) => c.userId === userId && c.direction === direction && c.connectionId !== connectionId &&
        (c.connectionId !== null || now - c.detachedAt <= this.#resumeWindowMs),
    );
    // The most recently active one: a waiting call by when it lost its connection, a held one now.
    candidates.sort((a, b) => (b.connectionId ? now : b.detachedAt) - (a.connectionId ? now : a.detachedAt) || b.createdAt - a.createdAt);
    const resumable = candidates[0];
    if (resumable) {
      const supersedes = resumable.connectionId;
      this.#attach(resumable, connectionId);
      return { call: resumable, resumed: true, supersedes };
    }
    const at = new Date(now);
    const id = this.#store.create({ userId, direction, at });
    const call = new LiveCall({ id, userId, direction, createdAt: at.getTime() });
    this.#open.set(id, call);
    this.#attach(call, connectionId);
    return { call, resumed: false, supersedes: null };
  }

  /**
   * The connection is gone. On the client's request the call is completed now; otherwise it
   * waits for a reconnect. A connection that no longer holds the call changes nothing.
   * @param {LiveCall} call
   * @param {string} connectionId
   * @param {{final: boolean}} how
   */
  end(call, connectionId, { final }) {
    if (this.#closing || call.connectionId !== connectionId || !this.#open.has(call.id)) return;
    call.connectionId = null;
    call.detachedAt = Date.now();
    if (final) this.#finish(call, call.detachedAt);
    else this.#waitForReconnect(call, this.#resumeWindowMs);
  }

  /**
   * Stores finished pieces of transcript, placed on the call's timeline by when they arrived.
   * @param {LiveCall} call
   * @param {{speaker: string, text: string}[]} pieces
   * @param {{confidence?: number, at?: Date}} [details] without a confidence, the running one
   * @returns {object[]} the stored segments
   */
  addTranscript(call, pieces, { confidence, at = new Date() } = {}) {
    const previousEnd = call.segments.at(-1)?.end_time ?? 0;
    const end = Math.max(previousEnd, (at.getTime() - call.createdAt) / 1000);
    const words = pieces.map((p) => Math.max(1, wordCount(p.text)));
    const total = words.reduce((a, b) => a + b, 0);
    const start = Math.max(previousEnd, end - Math.max(MIN_PIECE_SECONDS, total / WORDS_PER_SECOND));
    let cursor = start;
    const segments = pieces.map((piece, i) => {
      const from = cursor;
      cursor = i === pieces.length - 1 ? end : cursor + ((end - start) * words[i]) / total;
      return { start_time: round1(from), end_time: round1(Math.max(from, cursor)), speaker: piece.speaker, text: piece.text };
    });
    call.confidence = this.#store.append(call.id, { segments, confidence: confidence ?? call.confidence ?? 1, at });
    call.segments.push(...segments);
    return segments;
  }

  /**
   * @param {LiveCall} call
   * @param {object[]} messages in the stored shape
   */
  addMessages(call, messages, at = new Date()) {
    this.#store.append(call.id, { messages, at });
    call.messages.push(...messages.map((m) => ({ timestamp: at.toISOString(), ...m })));
  }

  clearMessages(call) {
    this.#store.clearMessages(call.id);
    call.messages = [];
  }

  /** Keeps the client's own latest summary of the call with it. */
  keepClientSummary(call, summary) {
    this.#store.append(call.id, { clientSummary: summary });
  }

  /** Stops every timer; open calls stay open on disk and wait for their clients after a restart. */
  shutdown() {
    this.#closing = true;
    for (const call of this.#open.values()) clearTimeout(call.expiryTimer);
  }

  #attach(call, connectionId) {
    clearTimeout(call.expiryTimer);
    call.expiryTimer = null;
    call.connectionId = connectionId;
  }

  #waitForReconnect(call, delayMs) {
    clearTimeout(call.expiryTimer);
    call.expiryTimer = setTimeout(() => {
      if (call.connectionId === null) this.#finish(call, call.detachedAt);
    }, delayMs);
    call.expiryTimer.unref();
  }

  // Completes the call as of `endedAt`, with its final summary; a call in which nothing was said
  // or asked is removed instead of being listed empty.
  #finish(call, endedAt) {
    clearTimeout(call.expiryTimer);
    this.#open.delete(call.id);
    try {
      if (call.segments.length === 0 && call.messages.length === 0) {
        this.#store.discard(call.id);
        this.#log(`call ${call.id} ended with nothing said; removed`);
        return;
      }
      const durationSeconds = Math.max(0, (endedAt - call.createdAt) / 1000);
      const summary =
        call.segments.length > 0
          ? storedSummary(summarize(call.summarySegments(), { durationSeconds, confidence: call.confidence ?? 1 }))
          : undefined;
      this.#store.complete(call.id, { summary, durationSeconds });
      this.#log(`call ${call.id} completed (${call.segments.length} segments, ${Math.round(durationSeconds)} s)`);
    } catch (error) {
      if (!(error instanceof CallStateError || error instanceof UnknownCall)) {
        this.#log(`call ${call.id} could not be completed: ${error.message}`);
        return;
      }
      this.#log(`call ${call.id} had already ended`);
    }
  }
}

/**
 * A summary as the call history keeps it (snake case, the overview as `content`).
 * @param {import('./summarizer/index.js').CallSummary} summary
 */
export function storedSummary(summary) {
  return {
    content: summary.overview,
    key_points: summary.keyPoints,
    action_items: summary.actionItems,
    sentiment: summary.sentiment.overall,
    sentiment_score: summary.sentiment.score,
    topics: summary.topics,
    speakers: summary.speakers,
  };
}

/** A new id for a chat message or a tool call. */
export const newId = (prefix) => `${prefix}_${randomUUID()}`;
