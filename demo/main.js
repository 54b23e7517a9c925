'use strict';
// The demo: a scene as entities, animated and culled for some frames, with its cost and its picture.
const fs = require('fs');
const path = require('path');
const { animate } = require('./animate');
const { SceneCulling } = require('./culling');
const { EngineScene } = require('./engine-scene');
const { loadNativeModule } = require('./native-module');
const { help, parseOptions } = require('./options');
const { drawScene, savePicture } = require('./picture');
const { createProgress, formatTable } = require('./report');
const { loadGltfScene } = require('./scene-gltf');
const { createProceduralScene } = require('./scene-procedural');
const { UserError, fileTrouble, oneLine } = require('./user-error');

/** Exit code for what the person at the keyboard can put right. */
const kUserErrorCode = 2;

/** Makes the folder for the picture before any work is done for it. */
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
  const scene =
    options.model === null
      ? createProceduralScene(options.figures)
      : await loadGltfScene(options.model);
  prepareFolder(options.out);

  const engineScene = new EngineScene(getEngine(), scene.nodes);
  const culling = new SceneCulling(engineScene, scene.nodes);
  const progress = createProgress(options.frames);
  const timings = animate(scene, engineScene, culling, options.frames, (done) =>
    progress.update(done)
  );
  progress.stop();

  const file = path.join(options.out, 'scene.png');
  savePicture(drawScene(scene.nodes, engineScene.worldPositions(), culling.seen()), file);
  console.log(formatTable(scene, engineScene, culling, timings));
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
