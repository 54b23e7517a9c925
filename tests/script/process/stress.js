'use strict';
// Computes frames with batches of every kind on the worker threads, in this thread and in Workers at the same time:
// stress.js FRAMES [WORKERS]. Prints a line for each tenth of the frames, and at last a digest of all bytes of each
// thread's engine, which is the same however slowly the threads run. Engines start and end with the Workers.
const crypto = require('crypto');
const { Worker, isMainThread, parentPort, workerData } = require('worker_threads');
const { Camera, Model, Scene } = require('../../../lib/scene');
const { makeFigure } = require('../../../bench/script/lib/scene-figure');

const [frames, workers = 0] = isMainThread ? process.argv.slice(2).map(Number) : [workerData];

const kCharacters = 24;

/** Characters that share their clips: by an animator, by controllers with layers, and with nodes that follow bones. */
function makeCrowd() {
  const scene = new Scene({ isTimed: false });
  // Batches even where single calls cost less.
  scene._players._fewAnimatorTargets = 0;
  scene._players._fewControllerTargets = 0;
  const characters = scene.instantiate(Model.from(makeFigure(20)), kCharacters);
  const followers = characters.map((character, i) => {
    character.setPosition(i, 0, i % 5);
    character.play(i % 2, { at: i / kCharacters });
    if (i % 3 === 0) {
      character.addLayer('more', { additive: true }).play(1 - (i % 2), { weight: 0.5 });
    }
    const sword = scene.node({ position: [0, 1, 0] });
    sword.setSphere(0, 0, 0, 0.5);
    character.attach(sword, 'joint7');
    return sword;
  });
  const camera = scene.addCamera(new Camera({ far: 100 }));
  camera.setPosition(kCharacters / 2, 1, 40);
  return { scene, characters, followers, camera };
}

function addBytes(hash, { scene, characters, followers }) {
  for (const character of characters) {
    hash.update(character.skinMatrices());
    hash.update(character.worldMatrix);
  }
  for (const follower of followers) {
    hash.update(follower.worldMatrix);
  }
  hash.update(`${scene.stats.playing}`);
}

function run(say) {
  const crowd = makeCrowd();
  const hash = crypto.createHash('sha256');
  const turn = () => new Promise((resolve) => setImmediate(resolve));
  return (async () => {
    for (let frame = 0; frame < frames; ++frame) {
      crowd.characters.forEach((character, i) => {
        character.setPosition(i, 0, (frame + i) % 7);
        if ((frame + i) % 50 === 0) {
          character.crossfade((frame + i) % 2, 0.1);
        }
      });
      crowd.scene.update(1 / 60);
      hash.update(`${Array.from(crowd.camera.visible).length}`);
      addBytes(hash, crowd);
      if ((frame + 1) % Math.ceil(frames / 10) === 0) {
        say(`frame ${frame + 1}`);
        await turn();
      }
    }
    return hash.digest('hex');
  })();
}

async function main() {
  const digests = [run(console.log)];
  for (let i = 0; i < workers; ++i) {
    digests.push(
      new Promise((resolve, reject) => {
        const worker = new Worker(__filename, { workerData: frames });
        let digest = null;
        worker.on('message', (message) => (digest = message));
        worker.on('error', reject);
        worker.on('exit', () => resolve(digest));
      })
    );
  }
  const all = await Promise.all(digests);
  console.log(JSON.stringify({ digests: all }));
}

process.on('unhandledRejection', (error) => {
  throw error;
});
if (isMainThread) {
  main();
} else {
  run(() => {}).then((digest) => parentPort.postMessage(digest));
}
