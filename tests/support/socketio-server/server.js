// The reference Socket.IO 4 server the client's tests talk to. It serves the
// namespace "/calls" on 127.0.0.1, prints one line "listening on http://127.0.0.1:PORT"
// on stdout, then takes commands as JSON lines on stdin and answers each with
// one JSON line on stdout carrying the command's "id":
//
//   {"id":1,"command":"state"}          -> {"id":1,"ok":true,"upgrades":N,"refused":N,
//                                            "connections":[{"id","nsp","query","connected",
//                                            "reason"}],"events":[{"socket","event","args"}]}
//   {"id":2,"command":"emit","event":"e","args":[...],"ack":false}
//                                        -> emits to every connected client ("ack": true asks
//                                           the client for an acknowledgement); {"count":N}
//   {"id":3,"command":"emitBinary","event":"e"}    a binary event (a Buffer argument)
//   {"id":4,"command":"strayAck","ackId":7}        an ACK the client never asked for
//   {"id":5,"command":"drop"}            -> closes every client's transport (they reconnect)
//   {"id":6,"command":"disconnect"}      -> disconnects every client from the namespace
//   {"id":7,"command":"pause","ms":500}  -> stops listening and drops every connection,
//                                           listens again on the same port after ms
//   {"id":8,"command":"exit"}            -> answers, then exits
//
// Options: --port N (0: any free port), --ping-interval MS, --ping-timeout MS.
// The process exits when stdin closes, so it never outlives its test.
import { createServer } from "node:http";
import { createInterface } from "node:readline";
import { Server } from "socket.io";

function option(name, fallback) {
  const index = process.argv.indexOf(name);
  return index >= 0 && index + 1 < process.argv.length
    ? Number(process.argv[index + 1])
    : fallback;
}

const host = "127.0.0.1";
let port = option("--port", 0);
const httpServer = createServer();
const io = new Server(httpServer, {
  transports: ["websocket"],
  pingInterval: option("--ping-interval", 25000),
  pingTimeout: option("--ping-timeout", 20000),
});

// Every WebSocket handshake that reaches this server, refused or not: what a
// test counts to see whether a client is still trying.
let upgrades = 0;
httpServer.on("upgrade", () => {
  upgrades += 1;
});
// Connections kept open by the HTTP server, so that "pause" can cut them all.
const sockets = new Set();
httpServer.on("connection", (socket) => {
  sockets.add(socket);
  socket.on("close", () => sockets.delete(socket));
});

const connections = [];
const events = [];
let refused = 0;

const calls = io.of("/calls");
calls.use((socket, next) => {
  const token = String(socket.handshake.query.token ?? "");
  // "bad" is refused with the usual text; "refuse:TEXT" with TEXT, so that a
  // test can see what a client makes of any refusal.
  if (token === "bad" || token.startsWith("refuse:")) {
    refused += 1;
    next(new Error(token === "bad" ? "unauthorized: bad token" : token.slice("refuse:".length)));
    return;
  }
  next();
});
calls.on("connection", (socket) => {
  const record = {
    id: socket.id,
    nsp: socket.nsp.name,
    query: { ...socket.handshake.query },
    connected: true,
    reason: null,
  };
  connections.push(record);
  socket.onAny((event, ...args) => {
    events.push({ socket: socket.id, event, args: args.filter((a) => typeof a !== "function") });
  });
  socket.on("echo", (...args) => {
    socket.emit("echoed", ...args.filter((a) => typeof a !== "function"));
  });
  socket.on("disconnect", (reason) => {
    record.connected = false;
    record.reason = reason;
  });
});

function connectedSockets() {
  return [...calls.sockets.values()];
}

const commands = {
  state: () => ({ upgrades, refused, connections, events }),
  emit: ({ event, args = [], ack = false }) => {
    const targets = connectedSockets();
    for (const socket of targets) {
      if (ack) {
        socket.emit(event, ...args, () => {});
      } else {
        socket.emit(event, ...args);
      }
    }
    return { count: targets.length };
  },
  emitBinary: ({ event }) => {
    const targets = connectedSockets();
    for (const socket of targets) {
      socket.emit(event, Buffer.from([1, 2, 3, 4]));
    }
    return { count: targets.length };
  },
  strayAck: ({ ackId = 1 }) => {
    const targets = connectedSockets();
    for (const socket of targets) {
      // Socket.IO only sends ACKs for what a client asked; this one it did not.
      socket.packet({ type: 3, id: ackId, data: ["stray"] });
    }
    return { count: targets.length };
  },
  drop: () => {
    const targets = connectedSockets();
    for (const socket of targets) {
      socket.conn.close();
    }
    return { count: targets.length };
  },
  disconnect: () => {
    const targets = connectedSockets();
    for (const socket of targets) {
      socket.disconnect();
    }
    return { count: targets.length };
  },
  pause: ({ ms = 1000 }) => {
    httpServer.close();
    for (const socket of connectedSockets()) {
      socket.conn.close();
    }
    for (const socket of sockets) {
      socket.destroy();
    }
    setTimeout(() => httpServer.listen(port, host), ms);
    return {};
  },
  exit: () => {
    setImmediate(() => process.exit(0));
    return {};
  },
};

function reply(message) {
  process.stdout.write(JSON.stringify(message) + "\n");
}

createInterface({ input: process.stdin })
  .on("line", (line) => {
    let request;
    try {
      request = JSON.parse(line);
    } catch {
      reply({ id: null, ok: false, error: "not JSON" });
      return;
    }
    const handler = commands[request.command];
    if (!handler) {
      reply({ id: request.id, ok: false, error: `unknown command ${request.command}` });
      return;
    }
    try {
      reply({ id: request.id, ok: true, ...handler(request) });
    } catch (error) {
      reply({ id: request.id, ok: false, error: String(error) });
    }
  })
  .on("close", () => process.exit(0));

// A failed listen (the port taken while paused) would otherwise end the process
// without a word; the test sees the refused connections instead.
httpServer.on("error", (error) => {
  process.stderr.write(`socketio-server: ${error.message}\n`);
});

httpServer.listen(port, host, () => {
  port = httpServer.address().port;
  process.stdout.write(`listening on http://${host}:${port}\n`);
});
