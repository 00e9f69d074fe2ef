import { parseArguments, USAGE, UsageError } from './cli.js';
import { startBackend } from './server.js';

const PROGRAM = 'quillmoss-local-backend';

const LISTEN_ERRORS = {
  EADDRINUSE: 'the address is already in use (is another backend running?)',
  EADDRNOTAVAIL: 'the address is not one of this machine',
  EACCES: 'permission denied',
};

/**
 * Runs the program: exit status 2 for a bad command line, 1 when the backend cannot start,
 * 0 after SIGINT or SIGTERM once the database is written.
 * @param {string[]} argv
 */
export async function main(argv) {
  let options;
  try {
    options = parseArguments(argv);
  } catch (error) {
    if (!(error instanceof UsageError)) throw error;
    process.stderr.write(`${PROGRAM}: ${error.message}\nTry '${PROGRAM} --help'.\n`);
    process.exit(2);
  }
  if (options.help) {
    process.stdout.write(USAGE);
    return;
  }

  let backend;
  try {
    backend = await startBackend(options);
  } catch (error) {
    const reason = error.syscall === 'listen' ? LISTEN_ERRORS[error.code] : undefined;
    process.stderr.write(
      reason
        ? `${PROGRAM}: cannot listen on ${options.host}:${options.port}: ${reason}\n`
        : `${PROGRAM}: cannot start: ${error.message}\n`,
    );
    process.exit(1);
  }
  // Test harnesses and scripts wait for this line; nothing else goes to stdout.
  process.stdout.write(`Quillmoss local backend listening on ${backend.url}\n`);

  let stopping = false;
  const stop = async (signal) => {
    if (stopping) return;
    stopping = true;
    process.stderr.write(`${signal}: shutting down\n`);
    try {
      await backend.close();
    } catch (error) {
      process.stderr.write(`${PROGRAM}: could not write the database on shutdown: ${error.message}\n`);
      process.exit(1);
    }
    process.exit(0);
  };
  process.on('SIGINT', stop);
  process.on('SIGTERM', stop);
}
