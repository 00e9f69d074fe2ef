/**
 * The event socket: Socket.IO (protocol 5, Engine.IO 4) on the HTTP server, namespace "/calls".
 * A session there drives one live call: transcript in, summaries and answers out, the chat with
 * the assistant, and agent mode's tool suggestions. docs/protocol.md describes every event.
 */
import { Server } from 'socket.io';
import { reply, suggest, suggestionKey } from './assistant.js';
import { UNATTRIBUTED, newId } from './liveCalls.js';
import { enabledDefinitions, parseToolConfig, toolNames } from './localTools.js';
import { PayloadError, eventPayload, field, isPlainObject, printableName } from './payload.js';

const NAMESPACE = '/calls';
// Engine.IO closes a connection that sends a bigger message; the same bound as an HTTP body.
const MAX_MESSAGE_BYTES = 1024 * 1024;

const DIRECTIONS = ['outbound', 'inbound'];
// A session client closing on purpose; anything else (a network loss, a crash) may come back.
const CLIENT_CLOSED = 'client namespace disconnect';

// accumulated_summary goes out after this many stored pieces or this much new text, whichever
// comes first: often enough to follow the call, rarely enough not to flood the client.
export const SUMMARY_EVERY_PIECES = 3;
export const SUMMARY_EVERY_CHARACTERS = 600;

const MIN_SUGGESTION_INTERVAL_MS = 1000;
const MAX_SUGGESTION_INTERVAL_MS = 600_000;
const DEFAULT_SUGGESTION_INTERVAL_MS = 30_000;
// When agent mode starts, the suggestions look back this many segments.
const SUGGESTION_LOOKBACK_SEGMENTS = 8;

const MAX_SPEAKER_NAME = 200;
const MAX_HISTORY_PAGE = 1000;

// The event that reports a refused payload, by the event refused.
// A Map, not an object: an event named "toString" must not find Object.prototype's.
const ERROR_EVENT = new Map([
  ['initializeSession', 'sessionError'],
  ['chatMessage', 'chatError'],
  ['getChatHistory', 'chatError'],
  ['clearChatHistory', 'chatError'],
]);

const now = () => new Date().toISOString();

/** One connection to the namespace and what it has set up. */
class Session {
  /** @type {import('./liveCalls.js').LiveCall | null} */
  call = null;
  /**
   * The client's tool configuration as last received (null before one, or when the session was
   * started without), and by which event and when.
   * @type {{document: import('./localTools.js').ToolDocument | null, updatedBy: string | null, updatedAt: string | null}}
   */
  tools = { document: null, updatedBy: null, updatedAt: null };
  agent = { enabled: false, intervalMs: DEFAULT_SUGGESTION_INTERVAL_MS, timer: null, cursor: 0, made: new Set() };

  constructor(socket, user) {
    this.socket = socket;
    this.user = user;
  }

  /** Keeps a configuration received on `event`; the names of its tools, for the answer. */
  keepTools(document, event) {
    this.tools = { document, updatedBy: event, updatedAt: now() };
    return toolNames(document);
  }

  /** What the assistant needs of the tools: the enabled names and their definitions. */
  assistantTools() {
    const { document } = this.tools;
    return { enabledTools: toolNames(document).enabled, toolDefinitions: enabledDefinitions(document) };
  }

  stopAgent() {
    clearInterval(this.agent.timer);
    this.agent.timer = null;
  }
}

/**
 * Attaches the event socket to the HTTP server.
 * @param {import('node:http').Server} httpServer
 * @param {{auth: import('./auth.js').AuthService, liveCalls: import('./liveCalls.js').LiveCalls,
 *          log: (line: string) => void}} deps
 * @returns {{close: () => void, toolConfigurations: (userId: string) => object[]}} `close` closes
 *   every connection (the calls stay open to be continued); `toolConfigurations` tells what each
 *   of a user's connections holds of its client's tools, oldest connection first
 */
export function attachEventSocket(httpServer, { auth, liveCalls, log }) {
  const io = new Server(httpServer, { serveClient: false, maxHttpBufferSize: MAX_MESSAGE_BYTES });
  /** @type {Map<string, Session>} */
  const sessions = new Map();

  // Handshakes that fail below Socket.IO (unknown session id, bad transport). The request's URL
  // is left out: it carries the token.
  io.engine.on('connection_error', (error) => log(`event socket: handshake refused (${error.message})`));
  io.of('/').use((socket, next) => next(new Error(`unknown namespace: connect to ${NAMESPACE}`)));

  const calls = io.of(NAMESPACE);
  // The token is checked once, here: a connection outlives its token, as a request in progress would.
  calls.use((socket, next) => {
    const { token } = socket.handshake.query;
    const user = typeof token === 'string' && token !== '' ? auth.authenticate(`Bearer ${token}`) : null;
    if (!user) {
      log(`event socket: connection refused (${token ? 'unknown or expired token' : 'no token'})`);
      next(new Error(token ? 'unauthorized: invalid or expired token' : 'unauthorized: missing token'));
      return;
    }
    socket.data.user = user;
    next();
  });

  calls.on('connection', (socket) => {
    const session = new Session(socket, socket.data.user);
    sessions.set(socket.id, session);
    log(`event socket: ${session.user.id} connected (${socket.id})`);
    socket.emit('connected', { message: 'Connected to Quillmoss', timestamp: now() });

    socket.onAny((event, ...args) => {
      // A trailing function is an acknowledgement callback; the protocol uses none.
      if (typeof args.at(-1) === 'function') args.pop();
      const handler = typeof event === 'string' && Object.hasOwn(HANDLERS, event) ? HANDLERS[event] : undefined;
      try {
        if (!handler) throw new PayloadError(`unknown event ${printableName(event)}`);
        handler(session, eventPayload(args));
      } catch (error) {
        const errorEvent = ERROR_EVENT.get(event) ?? 'error';
        if (error instanceof PayloadError) {
          log(`event socket: ${printableName(event)} refused: ${error.message}`);
          socket.emit(errorEvent, { message: error.message });
        } else {
          log(`event socket: ${printableName(event)} failed: ${error?.stack ?? error}`);
          socket.emit(errorEvent, { message: `The server could not handle ${printableName(event)}` });
        }
      }
    });

    socket.on('disconnect', (reason) => {
      session.stopAgent();
      sessions.delete(socket.id);
      if (session.call) liveCalls.end(session.call, socket.id, { final: reason === CLIENT_CLOSED });
      log(`event socket: ${session.user.id} disconnected (${reason})`);
    });
  });

  const enhancedSummary = (call) => ({
    callId: call.id,
    summary: call.summary(),
    timestamp: now(),
    processedSegments: call.segments.length,
  });

  function requireCall(session) {
    if (!session.call) throw new PayloadError('no session yet: send initializeSession first');
    return session.call;
  }

  function agentStatus(session) {
    const { enabled, intervalMs } = session.agent;
    return {
      success: true,
      enabled,
      suggestionIntervalMs: intervalMs,
      message: enabled ? `Agent mode is on: suggestions every ${intervalMs / 1000} s` : 'Agent mode is off',
    };
  }

  // Suggestions for what was said since the last look; nothing is sent when nothing new applies.
  function suggestNow(session) {
    const { call, agent } = session;
    if (!call) return;
    const all = call.summarySegments();
    const fresh = all.slice(agent.cursor);
    agent.cursor = all.length;
    if (fresh.length === 0) return;
    const suggestions = suggest(fresh, all, {
      ...session.assistantTools(),
      summary: () => call.summary(),
    }).filter((s) => !agent.made.has(suggestionKey(s)));
    if (suggestions.length === 0) return;
    for (const s of suggestions) agent.made.add(suggestionKey(s));
    session.socket.emit('agentSuggestions', { suggestions, timestamp: now() });
  }

  const chatMessageOut = (message) => {
    const fromUser = message.role === 'user';
    const toolCalls = (message.tool_calls ?? []).map((call) => ({
      id: call.id,
      name: call.function?.name ?? call.name,
      parameters: parseArguments(call.function?.arguments ?? call.parameters),
      requiresApproval: true,
    }));
    return {
      id: message.id,
      messageId: message.id,
      content: message.content,
      role: message.role,
      timestamp: message.timestamp,
      isFromUser: fromUser,
      ...(!fromUser && { processingTime: message.metadata?.processing_time ?? 0, type: message.metadata?.type ?? 'answer' }),
      ...(toolCalls.length > 0 && { toolCalls, requiresApproval: true, isPendingToolApproval: true }),
    };
  };

  // The tool calls of the assistant's latest request, which a results message answers.
  const lastAskedCalls = (messages) => {
    const asking = messages.findLast((m) => m.role === 'assistant' && m.tool_calls?.length > 0);
    return (asking?.tool_calls ?? []).map((call) => ({
      name: call.function?.name ?? call.name,
      parameters: parseArguments(call.function?.arguments ?? call.parameters),
    }));
  };

  const HANDLERS = {
    initializeSession(session, payload) {
      const direction = field(payload, 'direction', 'string', { required: true });
      if (!DIRECTIONS.includes(direction)) throw new PayloadError(`"direction" must be "outbound" or "inbound", not ${printableName(direction)}`);
      field(payload, 'timestamp', 'string');
      const document = parseToolConfig(payload.localTools, '"localTools"');
      // The same connection initializing again keeps its call.
      let resumed = true;
      if (!session.call) {
        const { call, resumed: continued, supersedes } = liveCalls.begin({ userId: session.user.id, direction, connectionId: session.socket.id });
        const previous = supersedes && sessions.get(supersedes);
        if (previous) {
          previous.call = null;
          previous.socket.emit('sessionError', { message: 'This call has continued on a newer connection' });
          previous.socket.disconnect(true);
        }
        session.call = call;
        resumed = continued;
        session.agent.cursor = Math.max(0, call.segments.length - SUGGESTION_LOOKBACK_SEGMENTS);
        log(`event socket: ${session.user.id} ${continued ? 'continues' : 'starts'} call ${call.id}`);
      }
      const tools = session.keepTools(document, 'initializeSession');
      session.socket.emit('sessionInitialized', {
        callId: session.call.id,
        enabledTools: tools.enabled,
        availableTools: tools.available,
        timestamp: now(),
        resumed,
      });
    },

    clientTranscription(session, payload) {
      const call = requireCall(session);
      const text = field(payload, 'text', 'string', { required: true });
      const isPartial = field(payload, 'isPartial', 'boolean') ?? false;
      const speaker = speakerName(field(payload, 'speaker', 'string'), 'speaker');
      const confidence = field(payload, 'confidence', 'number');
      if (confidence !== undefined && (confidence < 0 || confidence > 1)) throw new PayloadError('"confidence" must be from 0 to 1');
      field(payload, 'timestamp', 'string');
      const parts = field(payload, 'segments', 'array');

      // Pieces with their own speakers when the client split the text; else the text itself.
      const pieces = (parts?.length ? parts : [{ text }]).map((part, i) => {
        if (!isPlainObject(part)) throw new PayloadError(`segments[${i}] must be an object`);
        const partText = field(part, 'text', 'string', { required: true });
        const own = speakerName(field(part, 'speaker', 'string'), `segments[${i}].speaker`);
        return { text: partText.trim(), speaker: own ?? speaker };
      }).filter((piece) => piece.text !== '');

      const stored = isPartial || pieces.length === 0 ? [] : liveCalls.addTranscript(call, pieces.map((p) => ({ text: p.text, speaker: p.speaker ?? UNATTRIBUTED })), { confidence });
      const socket = session.socket;
      socket.emit('clientTranscriptionProcessed', {
        success: true,
        text,
        speaker: speaker ?? UNATTRIBUTED,
        timestamp: now(),
        processedSegments: stored.length,
        // Only attributed pieces: the client shows its own unattributed text already.
        segments: pieces.filter((p) => p.speaker).map((p) => ({ speaker: p.speaker, text: p.text, isPartial })),
      });
      socket.emit('transcriptionReceived', { success: true, timestamp: now(), processed: true, summary: enhancedSummary(call) });

      if (stored.length === 0) return;
      call.sinceSummary.pieces += stored.length;
      call.sinceSummary.characters += stored.reduce((n, s) => n + s.text.length, 0);
      if (call.sinceSummary.pieces >= SUMMARY_EVERY_PIECES || call.sinceSummary.characters >= SUMMARY_EVERY_CHARACTERS) {
        call.sinceSummary = { pieces: 0, characters: 0 };
        socket.emit('accumulated_summary', enhancedSummary(call));
      }
    },

    transcriptionSummary(session, payload) {
      const call = requireCall(session);
      field(payload, 'transcriptionText', 'string');
      liveCalls.keepClientSummary(call, payload);
    },

    updateAgentMode(session, payload) {
      const { socket, agent } = session;
      const enabled = payload.enabled;
      const interval = payload.suggestionIntervalMs;
      let problem;
      if (typeof enabled !== 'boolean') problem = '"enabled" must be true or false';
      else if (interval !== undefined && interval !== null && !Number.isSafeInteger(interval)) problem = '"suggestionIntervalMs" must be a whole number of milliseconds';
      else if (Number.isSafeInteger(interval) && (interval < MIN_SUGGESTION_INTERVAL_MS || interval > MAX_SUGGESTION_INTERVAL_MS)) {
        problem = `"suggestionIntervalMs" must be from ${MIN_SUGGESTION_INTERVAL_MS} to ${MAX_SUGGESTION_INTERVAL_MS}`;
      }
      if (problem) {
        log(`event socket: "updateAgentMode" refused: ${problem}`);
        socket.emit('agentModeUpdated', { success: false, message: problem });
        return;
      }
      const wasEnabled = agent.enabled;
      session.stopAgent();
      agent.enabled = enabled;
      if (Number.isSafeInteger(interval)) agent.intervalMs = interval;
      if (enabled) {
        if (!wasEnabled && session.call) agent.cursor = Math.max(0, session.call.segments.length - SUGGESTION_LOOKBACK_SEGMENTS);
        agent.timer = setInterval(() => {
          try {
            suggestNow(session);
          } catch (error) {
            log(`event socket: agent suggestions failed: ${error?.stack ?? error}`);
          }
        }, agent.intervalMs);
      }
      socket.emit('agentModeUpdated', agentStatus(session));
    },

    getAgentModeStatus(session) {
      session.socket.emit('agentModeStatus', agentStatus(session));
    },

    chatMessage(session, payload) {
      const call = requireCall(session);
      const message = field(payload, 'message', 'string', { required: true });
      if (message.trim() === '') throw new PayloadError('"message" must not be empty');
      field(payload, 'type', 'string');
      field(payload, 'timestamp', 'string');
      const started = process.hrtime.bigint();
      const answer = reply(message, {
        segments: call.summarySegments(),
        summary: () => call.summary(),
        ...session.assistantTools(),
        askedCalls: lastAskedCalls(call.messages),
        newId: () => newId('call'),
      });
      const processingTime = Math.round(Number(process.hrtime.bigint() - started) / 1e6) / 1000;
      const at = new Date();
      const userMessage = { id: newId('msg'), role: 'user', content: message, timestamp: at.toISOString() };
      const assistantMessage = {
        id: newId('msg'),
        role: 'assistant',
        content: answer.content,
        timestamp: at.toISOString(),
        ...(answer.toolCalls && {
          // Stored the way the call history keeps tool calls.
          tool_calls: answer.toolCalls.map((t) => ({ id: t.id, type: 'function', function: { name: t.name, arguments: JSON.stringify(t.parameters) } })),
        }),
        metadata: { processing_time: processingTime, type: answer.type },
      };
      liveCalls.addMessages(call, [userMessage, assistantMessage], at);
      session.socket.emit('chatResponse', { success: true, ...chatMessageOut(assistantMessage) });
    },

    getChatHistory(session, payload) {
      const limit = field(payload, 'limit', 'integer');
      const offset = field(payload, 'offset', 'integer') ?? 0;
      if (limit !== undefined && (limit < 1 || limit > MAX_HISTORY_PAGE)) throw new PayloadError(`"limit" must be from 1 to ${MAX_HISTORY_PAGE}`);
      if (offset < 0) throw new PayloadError('"offset" must not be negative');
      const all = session.call?.messages ?? [];
      const page = all.slice(offset, offset + (limit ?? MAX_HISTORY_PAGE));
      session.socket.emit('chatHistory', { messages: page.map(chatMessageOut), total: all.length });
    },

    clearChatHistory(session) {
      if (session.call) liveCalls.clearMessages(session.call);
      session.socket.emit('chatCleared', { timestamp: now() });
    },

    update_local_tools(session, payload) {
      // The configuration itself, or wrapped as {"localTools": "<JSON text>"} like initializeSession's.
      const config = typeof payload.localTools === 'string' ? payload.localTools : payload;
      const tools = session.keepTools(parseToolConfig(config, 'the local tool configuration'), 'update_local_tools');
      session.socket.emit('status', {
        status: 'Local tools updated',
        enabledTools: tools.enabled,
        availableTools: tools.available,
      });
    },
  };

  return {
    toolConfigurations(userId) {
      // A Map keeps the order of insertion: the order the connections came in.
      return [...sessions.values()]
        .filter((session) => session.user.id === userId)
        .map((session) => ({ callId: session.call?.id ?? null, ...session.tools }));
    },

    close() {
      liveCalls.shutdown();
      for (const session of sessions.values()) session.stopAgent();
      io.local.disconnectSockets(true);
      io.engine.close();
    },
  };
}

function speakerName(value, what) {
  if (value === undefined) return undefined;
  const name = value.trim();
  if (name.length > MAX_SPEAKER_NAME) throw new PayloadError(`"${what}" must be at most ${MAX_SPEAKER_NAME} characters`);
  return name === '' ? undefined : name;
}

function parseArguments(value) {
  if (isPlainObject(value)) return value;
  try {
    const parsed = JSON.parse(value);
    return isPlainObject(parsed) ? parsed : {};
  } catch {
    return {};
  }
}
