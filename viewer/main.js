'use strict';
// The viewer's server: loads the module, creates a crowd, and streams it to pages until it is interrupted.
const { UserError, oneLine } = require('../demo/user-error');
const { checkRuntime, help, parseOptions } = require('./options');

/** Exit code for errors that the user can fix. */
const kUserErrorCode = 2;

async function main(args) {
  const options = parseOptions(args);
  if (options.help) {
    process.stdout.write(help);
    return;
  }
  checkRuntime(process.versions);
  // Loaded after the check: their dependencies may not load on other runtimes.
  const { createFigure } = require('../demo/figure');
  const { loadModel } = require('../demo/model');
  const { loadNativeModule } = require('../demo/native-module');
  const { checkSize } = require('../demo/options');
  const { ViewerServer } = require('./server');
  const { Show } = require('./show');

  const { getEngine } = loadNativeModule();
  const kind = options.model === null ? createFigure() : await loadModel(options.model);
  checkSize(kind, options.characters);
  const show = new Show(getEngine(), kind, options.characters, options.seed);
  const server = new ViewerServer(show);
  const address = await server.listen(options.port);
  kind.notes.forEach((note) => console.log(`note: ${oneLine(note)}`));
  console.log(`viewer: ${options.characters} of '${kind.name}' at ${address} (Ctrl+C ends it)`);

  let isClosing = false;
  const close = () => {
    // Ignores a second signal while pages are being disconnected.
    if (!isClosing) {
      isClosing = true;
      server.close().then(() => console.log('viewer: ended'));
    }
  };
  process.on('SIGINT', close);
  process.on('SIGTERM', close);
}

main(process.argv.slice(2)).catch((error) => {
  if (error instanceof UserError) {
    console.error(`viewer: ${oneLine(error.message)}`);
    process.exitCode = kUserErrorCode;
  } else {
    console.error(error);
    process.exitCode = 1;
  }
});
