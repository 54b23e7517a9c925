'use strict';
// What it shows: particles thrown upwards, moved by a command buffer: the commands are written once, and each frame is
// one call. All numbers are exact in single precision.
//
//   node examples/08-matrixflow.js
//
// Needs a build with NQ_SCRIPT_MATRIXFLOW, see docs/matrixflow.md.
const {
  MatrixFlowWriter,
  blockBytes,
  blockFloats,
  blockWords,
  loadMatrixFlow,
  matrixFlowResults,
} = require('../lib');

const particles = 4;
const frames = 64;
const frameSeconds = 1 / 64;
const gravity = -8; // metres per second, each second

// Bytes of a vector of three floats.
const vectorBytes = 12;

// --- Set up: blocks of memory, and two streams of commands.
const engine = loadMatrixFlow().getEngine();

// Blocks that JavaScript and native code share. A command buffer that is never executed is a block of plain memory;
// the records of entities would do as well.
const positions = engine.createMatrixFlowCommandBuffer(particles * vectorBytes);
const velocities = engine.createMatrixFlowCommandBuffer(particles * vectorBytes);
const heights = engine.createMatrixFlowCommandBuffer(frames * 4);
const constants = engine.createMatrixFlowCommandBuffer(3 * vectorBytes);
const position = blockFloats(positions);
const velocity = blockFloats(velocities);
for (let i = 0; i < particles; ++i) {
  velocity.set([1, 4 + i, 0], 3 * i);
}
// Gravity in one frame, the length of a frame, and room for the displacement in a frame.
blockFloats(constants).set([
  ...[0, gravity * frameSeconds, 0],
  ...[frameSeconds, frameSeconds, frameSeconds],
]);
const at = (object, offset) => ({ memoryID: object.memoryID, offset });
const pull = at(constants, 0);
const time = at(constants, vectorBytes);
const way = at(constants, 2 * vectorBytes);

// A stream for one frame, written once. With the sizes of blocks, an operand that does not fit throws here; without
// them, the run would end there with result 4.
const blockSizes = new Map(
  [positions, velocities, heights, constants].map((object) => [
    object.memoryID,
    blockBytes(object).byteLength,
  ])
);
const step = engine.createMatrixFlowCommandBuffer(1024);
const stepWriter = new MatrixFlowWriter(step, { blockSizes });
for (let i = 0; i < particles; ++i) {
  const p = at(positions, i * vectorBytes);
  const v = at(velocities, i * vectorBytes);
  stepWriter.vector3Add(v, pull, v);
  stepWriter.vector3Mul(v, time, way);
  stepWriter.vector3Add(p, way, p);
}

// A second stream calls it, and stores the height of particle 0. The destination changes with each frame, so one word
// of the stream is overwritten.
const frame = engine.createMatrixFlowCommandBuffer(64);
const frameWriter = new MatrixFlowWriter(frame, { blockSizes });
frameWriter.call(step.id);
const copy = frameWriter.scalarCopy(at(heights, 0), at(positions, 4));
const frameWords = blockWords(frame);
const copyTarget = copy / 4 + 2; // after the type and the memoryID

// --- Frame: one word of the stream, and one call.
for (let n = 0; n < frames; ++n) {
  frameWords[copyTarget] = 4 * n;
  const result = frame.execute();
  if (result !== matrixFlowResults.done) {
    throw new Error(`frame ${n} ended with result ${result}`);
  }
}

// --- Print.
const commands = 3 * particles + 2;
console.log(`${particles} particles, ${frames} frames, ${commands} commands a frame`);
for (let i = 0; i < particles; ++i) {
  const [x, y] = position.subarray(3 * i);
  console.log(`particle ${i}: x ${x}, height ${y}, speed ${velocity[3 * i + 1]}`);
}
const curve = blockFloats(heights);
console.log(`highest point of particle 0: ${Math.max(...curve)}`);
console.log(`last height kept: ${curve[frames - 1]}`);
