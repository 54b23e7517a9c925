'use strict';
// The demo: runs a crowd of skinned characters for some frames, prints the cost, and draws a picture.
const fs = require('fs');
const path = require('path');
const { createFigure } = require('./figure');
const { loadModel } = require('./model');
const { loadNativeModule } = require('./native-module');
const { checkSize, help, parseOptions } = require('./options');
const { MomentRecorder } = require('./moments');
const { drawPicture, savePicture } = require('./picture');
const { createProgress, formatLegend, formatTables } = require('./report');
const { Stage } = require('./stage');
const { UserError, fileTrouble, oneLine } = require('./user-error');

/** Exit code for errors that the user can fix. */
const kUserErrorCode = 2;

/**
 * Creates a folder and its parents. Node's own recursive option never ends on file systems that allow no new folders,
 * such as /proc.
 */
function makeFolder(folder) {
  try {
    fs.mkdirSync(folder);
  } catch (error) {
    const above = path.dirname(folder);
    if (error.code === 'EEXIST' && fs.statSync(folder).isDirectory()) {
      return;
    }
    if (error.code !== 'ENOENT' || fs.existsSync(above)) {
      throw error;
    }
    makeFolder(above);
    fs.mkdirSync(folder);
  }
}

/** Creates the folder for the picture and tests writing to it before the run, so that an error comes early. */
function prepareFolder(folder) {
  const trial = path.join(folder, `.nq-${process.pid}.tmp`);
  try {
    makeFolder(path.resolve(folder));
    fs.writeFileSync(trial, '');
    fs.unlinkSync(trial);
  } catch (error) {
    // The folder can't be created, or no file in an existing one.
    const trouble = error.code === 'ENOENT' ? 'nothing can be created there' : fileTrouble(error);
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
  console.log(formatLegend(kind));
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
