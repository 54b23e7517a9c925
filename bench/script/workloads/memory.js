'use strict';
// Memory of a linked tree of 3D entities, and of layered characters, each contender in its own process.
const { spawnSync } = require('child_process');
const { createControllerScene } = require('../lib/controllers-scene');
const { collectGarbage } = require('../lib/measure');
const { printTable } = require('../lib/table');
const { buildTree, createValues, selectPercent } = require('../lib/scenes');

const contenders = {
  nq: () => require('../contenders/native').createNative,
  typed: () => require('../contenders/typed').createTyped,
  three: () => require('../contenders/three').createThree,
  'gl-matrix': () => require('../contenders/glmatrix').createGlMatrix,
};

/** Characters by the entities of a budget. */
const entitiesPerCharacter = 100;

/**
 * Posed characters of contenders, and of the module without what poses them; `pose` does so once.
 * @type {Object<string, function(): function(object): {pose: function(): void}>}
 */
const crowds = {
  nq: () => {
    const { createControllersNative } = require('../contenders/controllers-native');
    return (scene) => layered(createControllersNative(scene));
  },
  'nq, only entities': () => {
    const { createCharacters, createClips, getEngine } = require('../lib/native-scene');
    return (scene) => {
      const engine = getEngine();
      const owned = [createCharacters(engine, scene), createClips(engine, scene)];
      return { owned, pose: () => engine.refreshWorldTransform() };
    };
  },
  typed: () => {
    const { createControllersTyped } = require('../contenders/controllers-typed');
    return (scene) => layered(createControllersTyped(scene));
  },
  three: () => {
    const { createControllersThree } = require('../contenders/controllers-three');
    return (scene) => layered(createControllersThree(scene));
  },
};

/** A contender that poses its characters in layers. */
function layered(contender) {
  return {
    contender,
    pose() {
      contender.layers(0);
      contender.refresh();
    },
  };
}

/** In the child: prints the bytes that posed characters add to the process. */
function measureCrowd(name, characters) {
  const create = crowds[name]();
  const scene = createControllerScene(characters);
  // A character first, so that code, clips and scratch memory don't count.
  const warm = create(createControllerScene(1));
  warm.pose();
  collectGarbage();
  const before = process.memoryUsage().rss;
  const crowd = create(scene);
  crowd.pose();
  collectGarbage();
  const bytes = process.memoryUsage().rss - before;
  crowd.pose();
  process.stdout.write(JSON.stringify(bytes));
}

/** In the child: prints the bytes that the tree adds to the process. */
function measure(name, count) {
  const create = contenders[name]();
  const tree = buildTree('large_tree', count);
  const all = selectPercent(tree, 100);
  const values = createValues(all, 'quaternion', 1, 31)[0];
  // A small tree first, so that code and scratch memory don't count.
  const warm = create(buildTree('large_tree', 10));
  warm.setDirty(selectPercent(buildTree('large_tree', 10), 100), 'quaternion');
  warm.frame(values);
  collectGarbage();
  const before = process.memoryUsage().rss;
  const contender = create(tree);
  contender.setDirty(all, 'quaternion');
  contender.frame(values);
  contender.setDirty(all.subarray(0, 1), 'quaternion');
  collectGarbage();
  const bytes = process.memoryUsage().rss - before;
  contender.frame(values);
  process.stdout.write(JSON.stringify(bytes));
}

/** The bytes that a child prints. */
function bytesInChild(kind, name, count) {
  const child = spawnSync(process.execPath, [__filename, kind, name, String(count)], {
    encoding: 'utf8',
  });
  if (child.status !== 0) {
    throw new Error(`memory of ${name}: ${child.stderr}`);
  }
  return JSON.parse(child.stdout);
}

function run(budget) {
  const { entities } = budget;
  const trees = Object.keys(contenders).map((contender) => ({
    contender,
    entities,
    bytesPerEntity: bytesInChild('tree', contender, entities) / entities,
  }));
  printTable(
    'memory: growth of the process by a linked, refreshed tree',
    ['contender', 'entities', 'bytes per entity'],
    trees.map((row) => [row.contender, row.entities, row.bytesPerEntity])
  );
  const count = Math.floor(entities / entitiesPerCharacter);
  const characters = Object.keys(crowds).map((contender) => ({
    contender,
    characters: count,
    bytesPerCharacter: bytesInChild('characters', contender, count) / count,
  }));
  printTable(
    'memory: growth of the process by characters in layers, posed once',
    ['contender', 'characters', 'bytes per character'],
    characters.map((row) => [row.contender, row.characters, row.bytesPerCharacter])
  );
  return { trees, characters };
}

if (require.main === module) {
  const [kind, name, count] = process.argv.slice(2);
  const measured = { tree: measure, characters: measureCrowd };
  measured[kind](name, Number(count));
}

module.exports = { run };
