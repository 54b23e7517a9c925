'use strict';
// What it shows: an entity and its child, written as records and read as world matrices.
//
//   node examples/01-hello.js
//
// JavaScript and native code work on the same memory. Writing its record moves an entity; one call updates all world
// matrices.
const nq = require('../lib');

// --- Set up: two entities in one batch. The view keeps their memory alive: keep the view.
const engine = nq.getEngine();
const commands = new nq.EntityCommandWriter(engine);
const dirty = new nq.DirtyListWriter(engine);
const entities = new nq.Entity3DView(engine.createEntity(true, 2));
const [parent, child] = [0, 1];

commands.addRoot(entities.handle(parent));
commands.addChild(entities.handle(parent), entities.handle(child));

// --- Frame: the parent is at 1, 2, 3, rotated by a quarter turn about z; the child is at x = 5 in its space.
entities.setPosition(parent, 1, 2, 3);
entities.setEuler(parent, 0, 0, Math.PI / 2);
entities.setScale(parent, 1, 1, 1); // a new record has scale 0
entities.setPosition(child, 5, 0, 0);
entities.setScale(child, 1, 1, 1);
dirty.appendRange(entities.id, 2);
engine.refreshWorldTransform();

// --- Print: the columns of the child's world matrix are its axes and its position.
const matrix = entities.worldMatrix(child, new Float32Array(16));
const round = (value) => Number(value.toFixed(3)) || 0;
const column = (i) => Array.from(matrix.subarray(4 * i, 4 * i + 3), round).join(' ');
console.log(`module version ${nq.getVersion().version}`);
console.log(`child at ${column(3)}`);
console.log(`its x axis: ${column(0)}`);
console.log(`its y axis: ${column(1)}`);
