'use strict';
// Calls that end the process. `misuse.js CASE`.
const fs = require('fs');
const { MessageChannel } = require('worker_threads');
const { modulePath, addonPath } = require('../support/host');

const nq = require(modulePath);
const engine = nq.getEngine();
const empty = new engine.constructor();
const entity = engine.createEntity(true, 2);
const throwing = {
  valueOf() {
    throw new Error('from valueOf');
  },
};

const cases = {
  createOnEmpty: () => engine.createEntity.call(empty),
  createOnEntity: () => engine.createEntity.call(entity, true, 3),
  createOnPlainObject: () => engine.createEntity.call({}),
  createOnUndefined: () => engine.createEntity.call(undefined),
  nameOnEmpty: () => engine.setEntityName.call(empty, entity.id, 'x'),
  nameOnEntity: () => engine.setEntityName.call(entity, entity.id, 'x'),
  refreshOnEmpty: () => engine.refreshWorldTransform.call(empty),
  refreshOnPlainObject: () => engine.refreshWorldTransform.call({}),
  refreshOnNumber: () => engine.refreshWorldTransform.call(7),

  countThrows: () => engine.createEntity(true, throwing),
  countIsSymbol: () => engine.createEntity(true, Symbol('1')),
  countIsBigInt: () => engine.createEntity(true, BigInt(1)),
  handleThrows: () => engine.setEntityName(throwing, 'x'),
  handleIsBigInt: () => engine.setEntityName(BigInt(entity.id), 'x'),
  handleIsSymbol: () => engine.setEntityName(Symbol('1'), 'x'),

  batchOfNumber: () => require(addonPath).batch(engine, 7, 0),
  batchOfNothing: () => require(addonPath).batch(engine),
  batchOfEmptyBuffer: () => require(addonPath).batch(engine, new ArrayBuffer(0), 0),
  batchOfDetachedView() {
    const view = new Uint32Array([1, 2]);
    const { port1 } = new MessageChannel();
    port1.postMessage(view.buffer, [view.buffer]);
    require(addonPath).batch(engine, view, 0);
  },
};

fs.writeSync(1, 'about to end\n');
cases[process.argv[2]]();
fs.writeSync(1, 'went on\n');
