'use strict';
// Makes and drops objects of each kind, and tests that their handles and their memory are used again:
// soak-objects.js COUNT [KIND...] [--keep N], all kinds by default; of every N objects one is kept, to see that it is
// found. Prints a line of JSON for each kind, with what is wrong. Numbers of blocks rise for ever, by design.
const { over } = require('../support/blocks');
const { modulePath } = require('../support/host');
const matrixFlowPath = process.env.NQ_MATRIXFLOW_MODULE;
const { buildClip, sampleTypes } = require('../../../lib/clip');

const [count, ...rest] = process.argv.slice(2);
const kCount = Number(count);
const at = rest.indexOf('--keep');
const kKeepEvery = at < 0 ? 0 : Number(rest.splice(at, 2)[1]);

/** Objects that are made before they are dropped together. */
const kGroup = 1000;

/** Resident memory that the host itself may take in the meantime: compiled code, heap pages. */
const kHostBytes = 8 << 20;

const engine = require(modulePath).getEngine();
const flowEngine = matrixFlowPath ? require(matrixFlowPath).getEngine() : null;

const clipBytes = buildClip({
  framesPerSecond: 30,
  frameCount: 2,
  curves: [
    {
      target: 0,
      type: sampleTypes.PositionX,
      keys: [
        { frame: 0, value: 0, inTangent: 0, outTangent: 0 },
        { frame: 1, value: 1, inTangent: 0, outTangent: 0 },
      ],
    },
  ],
});
const clip = engine.createDataModel(1, clipBytes);
const entity = engine.createEntity(true, 1);
// A clip's handle, and its group: one target.
const lists = Uint32Array.of(clip.id, 1, entity.id).buffer;

const makers = {
  entity2D: () => engine.createEntity(false, 1),
  entity3D: () => engine.createEntity(true, 1),
  entities: () => engine.createEntity(true, 20),
  cullingObjects: () => engine.createComponent(1, 4),
  animator: () => engine.createComponent(2, 2, 8),
  skinning: () => engine.createComponent(3, 8),
  clip: () => engine.createDataModel(1, clipBytes),
  bones: () => engine.createDataModel(2, new ArrayBuffer(128)),
  binding: () => engine.createAnimationClipBinding(lists, 0, 1, 2, 1),
  controller: () => engine.createAnimatorControllerModel(2),
  state: () => engine.createAnimatorControllerStateModel(2),
};
if (flowEngine !== null) {
  makers.commandBuffer = () => flowEngine.createMatrixFlowCommandBuffer(64);
}

const kept = [];

/** Makes a group, drops it, and returns its largest handle. */
function makeGroup(make) {
  const group = [];
  let most = 0;
  for (let i = 0; i < kGroup; ++i) {
    const one = make();
    if (!(one.id > 0)) {
      throw new Error(`an object has handle ${one.id}`);
    }
    most = Math.max(most, one.id);
    if (one.memoryID !== undefined) {
      // The system counts memory only where it is used.
      over(Uint8Array, one).fill(1);
    }
    group.push(one);
    if (kKeepEvery > 0 && i % kKeepEvery === 0) {
      kept.push(one);
    }
  }
  return most;
}

const turn = () => new Promise((resolve) => setImmediate(resolve));

/** Collects what was dropped; weak callbacks run in two passes. */
async function collect() {
  gc();
  await turn();
  gc();
  await turn();
}

async function soak(kind) {
  const groups = Math.max(10, Math.ceil(kCount / kGroup));
  // The first fifth shows what is in use at once: a group may outlive a collection.
  const warm = Math.ceil(groups / 5);
  let first = 0;
  let later = 0;
  const start = Date.now();
  let before = null;
  for (let i = 0; i < groups; ++i) {
    const most = makeGroup(makers[kind]);
    first = i < warm ? Math.max(first, most) : first;
    later = i < warm ? later : Math.max(later, most);
    await collect();
    if (i + 1 === warm) {
      before = process.memoryUsage();
    }
  }
  await collect();
  const after = process.memoryUsage();
  const result = {
    kind,
    made: groups * kGroup,
    seconds: (Date.now() - start) / 1000,
    handles: [first, later],
    residentGrowth: after.rss - before.rss,
    externalGrowth: after.external - before.external,
    problems: [],
  };
  if (later > first) {
    result.problems.push(`handles rise from ${first} to ${later}`);
  }
  if (result.residentGrowth > kHostBytes) {
    result.problems.push(`resident memory grows by ${result.residentGrowth} bytes`);
  }
  if (result.externalGrowth > kGroup) {
    result.problems.push(`external memory grows by ${result.externalGrowth} bytes`);
  }
  console.log(JSON.stringify(result));
  return result.problems.length === 0;
}

(async () => {
  let isGood = true;
  for (const kind of rest.length > 0 ? rest : Object.keys(makers)) {
    isGood = (await soak(kind)) && isGood;
  }
  process.exitCode = isGood ? 0 : 1;
})();
