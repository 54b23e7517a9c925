'use strict';
// Lifetime of entities: creation in batches and one by one, and garbage collection.
const { batchCapacity, getEngine } = require('../lib/native-scene');
const { collectGarbage, interleave, now, once } = require('../lib/measure');
const { printTable } = require('../lib/table');

function createBatches(engine, entities, batch) {
  const objects = [];
  for (let left = entities; left > 0; left -= batch) {
    objects.push(engine.createEntity(true, Math.min(batch, left)));
  }
  return objects;
}

function run(budget) {
  const engine = getEngine();
  const cases = [
    { batch: batchCapacity, entities: budget.entities },
    { batch: 50, entities: budget.entities },
    { batch: 1, entities: budget.singles },
  ];
  const rows = cases.map(({ batch, entities }) => {
    const created = once(
      budget,
      () => null,
      () => createBatches(engine, entities, batch)
    );
    const emptyCollection = interleave([() => collectGarbage()], budget)[0];
    const released = [];
    for (let round = 0; round < budget.rounds; ++round) {
      createBatches(engine, entities, batch);
      const start = now();
      collectGarbage();
      released.push(now() - start - emptyCollection);
    }
    released.sort((a, b) => a - b);
    return {
      batch,
      entities,
      create: created / entities,
      release: Math.max(0, released[released.length >> 1] / entities),
    };
  });
  printTable(
    'creation: ns per 3D entity; release is a garbage collection, less an empty one',
    ['entities a batch', 'entities', 'create', 'release'],
    rows.map((row) => [row.batch, row.entities, row.create, row.release])
  );
  return rows;
}

module.exports = { run };
