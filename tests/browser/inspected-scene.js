'use strict';
// A program with a scene of its own, which it shows in pages of the inspector: a node with a sphere, a character of two
// bones, and a camera. Lines on its input change the scene.
const { Camera, Model, Scene } = require('../../scene');

const identity = [1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1];
const node = (name, parent, translation) => {
  const rest = { rotation: [0, 0, 0, 1], scale: [1, 1, 1], skin: -1, mesh: -1 };
  return Object.assign({ name, fileIndex: 0, parent, translation }, rest);
};

const model = Model.from(
  {
    nodes: [node('hip', -1, [0, 0, 0]), node('head', 0, [0, 4, 0])],
    skins: [
      {
        name: '',
        joints: [0, 1],
        inverseBindMatrices: Float32Array.of(...identity, ...identity).buffer,
      },
    ],
    animations: [],
  },
  { name: 'stick', bounds: { center: [0, 2, 0], radius: 2.5 } }
);

async function main() {
  const scene = new Scene();
  const camera = scene.addCamera(new Camera({ fovDegrees: 60, aspect: 1, near: 0.5, far: 50 }));
  camera.setPosition(0, 2, 12);
  camera.lookAt(0, 2, 0);
  const ball = scene.node({ name: 'ball', position: [4, 2, 0] });
  ball.setSphere(0, 0, 0, 1.5);
  const [character] = scene.instantiate(model);
  character.setPosition(-4, 0, 0);
  const { url, close } = await scene.inspect(0);
  console.log(`at ${url} `);
  const timer = setInterval(() => scene.update(1 / 60), 16);
  const commands = {
    hide() {
      ball.layers = 0;
    },
    show() {
      ball.layers = 1;
    },
    remove: () => character.dispose(),
  };
  process.stdin.setEncoding('utf8');
  process.stdin.on('data', (text) => commands[text.trim()]());
  process.on('SIGINT', () => {
    clearInterval(timer);
    process.stdin.destroy();
    close();
  });
}

main();
