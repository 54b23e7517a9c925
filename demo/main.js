'use strict';
// The demo: a crowd of skinned characters, run for some frames, with its cost and its picture.
const fs = require('fs');
const path = require('path');
const { createFigure } = require('./figure');
const { loadModel } = require('./model');
const { loadNativeModule } = require('./native-module');
const { checkSize, help, parseOptions } = require('./options');
const { MomentRecorder } = require('./moments');
const { drawPicture, savePicture } = require('./picture');
const { createProgress, formatTables } = require('./report');
const { Stage } = require('./stage');
const { UserError, fileTrouble, oneLine } = require('./user-error');

/** Exit code for what the person at the keyboard can put right. */
const kUserErrorCode = 2;

/** Makes the folder for the picture ahead of the run, which would else be in vain. */
function prepareFolder(folder) {
  try {
    fs.mkdirSync(folder, { recursive: true });
    fs.accessSync(folder, fs.constants.W_OK);
  } catch (error) {
    const trouble = fileTrouble(error);
    throw new UserError(`folder '${folder}' can't be used, ${trouble}: choose another --out.`);
  }
}

async function main(args) {
  const options = parseOptions(args);
  if (options.help) {
    process.stdout.write(help);
    return;
  }
  const { getEngine } = loadNativeModule();
  const kind = options.model === null ? createFigure() : await loadModel(options.model);
  checkSize(kind, options.characters);
  const stage = new Stage(getEngine(), kind, options.characters, options.seed);
  prepareFolder(options.out);
  kind.notes.forEach((note) => console.log(`note: ${oneLine(note)}`));

  const recorder = new MomentRecorder(stage, options.frames);
  const progress = createProgress(options.frames);
  const timings = stage.run(options.frames, (done) => {
    recorder.record(done);
    progress.update(done);
  });
  progress.stop();

  const file = path.join(options.out, 'scene.png');
  savePicture(drawPicture(stage, recorder), file);
  console.log(formatTables(stage, timings));
  console.log(`picture: ${file}`);
}

main(process.argv.slice(2)).catch((error) => {
  if (error instanceof UserError) {
    console.error(`demo: ${oneLine(error.message)}`);
    process.exitCode = kUserErrorCode;
  } else {
    console.error(error);
    process.exitCode = 1;
  }
});
