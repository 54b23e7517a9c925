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
const { createProgress, formatLegend, formatTables } = require('./report');
const { Stage } = require('./stage');
const { UserError, fileTrouble, oneLine } = require('./user-error');

/** Exit code for what the person at the keyboard can put right. */
const kUserErrorCode = 2;

/**
 * Makes a folder and those above it. The host's own recursive way never ends where a file system takes no
 * folders, as /proc doesn't.
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

/** Makes the folder for the picture and writes to it ahead of the run, which would else be in vain. */
function prepareFolder(folder) {
  const trial = path.join(folder, `.nq-${process.pid}.tmp`);
  try {
    makeFolder(path.resolve(folder));
    fs.writeFileSync(trial, '');
    fs.unlinkSync(trial);
  } catch (error) {
    // Of a folder that is to be made, or a file in one that is there.
    const trouble = error.code === 'ENOENT' ? 'nothing can be made there' : fileTrouble(error);
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
