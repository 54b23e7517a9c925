'use strict';
// Objects of scenes that come and go: memory over thousands of them, and the use of those that were disposed of.
const assert = require('assert');
const { AnimationLayer, Camera, Character, Model, Node, Scene } = require('../../../../scene');
const nq = require('../../../../lib');
const { makeFigure } = require('../../../../bench/script/lib/scene-figure');
const { assertCleanExit, runScriptWithFlags } = require('../../support/child');
const { sanitized } = require('../../support/host');

const engine = nq.getEngine();
const kBounds = { center: [0, 0, 0], radius: 1 };

describe('a scene in which characters come and go', () => {
  it('neither grows nor waits for collections', function () {
    if (sanitized) {
      this.skip();
    }
    // A young generation of 2 MB: newer versions of V8 let it grow to 100 MB while there is room.
    const flags = ['--max-semi-space-size=2'];
    const result = runScriptWithFlags(flags, 'soak-scene.js', '60000');
    assertCleanExit(result);
    const { afterWarmUp, levels, problems } = JSON.parse(result.stdout);
    assert.deepStrictEqual(problems, []);
    assert(afterWarmUp > 30000, `${afterWarmUp} characters`);
    assert(levels > 0, 'no level has come and gone');
  });

  it('reuses entities for models of other sizes: free runs are joined', () => {
    const scene = new Scene({ engine });
    const models = [];
    for (let joints = 3; joints < 40; ++joints) {
      models.push(Model.from(makeFigure(1 + ((joints * 7) % 37)), { bounds: kBounds }));
    }
    const entities = () => scene._blocks.capacity;
    let most = 0;
    for (let round = 0; round < 4; ++round) {
      for (const model of models) {
        const kept = scene.node();
        scene.instantiate(model, Math.ceil(3000 / model.nodes.length));
        most = Math.max(most, scene.nodeCount);
        scene.update();
        model.dispose();
        kept.dispose();
        scene.update();
        models[models.indexOf(model)] = Model.from(
          { nodes: model.nodes, skins: [], animations: [], warnings: [] },
          { bounds: kBounds }
        );
      }
    }
    assert.strictEqual(scene.nodeCount, 0);
    assert(entities() < 2 * most, `${entities()} entities, of which ${most} lived at once`);
    scene.dispose();
  });
});

/** Public members of instances of a class, by name, with their descriptors. */
function membersOf(Class) {
  const members = new Map();
  for (let at = Class.prototype; at !== Object.prototype; at = Object.getPrototypeOf(at)) {
    for (const name of Object.getOwnPropertyNames(at)) {
      if (name[0] !== '_' && name !== 'constructor' && !members.has(name)) {
        members.set(name, Object.getOwnPropertyDescriptor(at, name));
      }
    }
  }
  return members;
}

/** What may be called on an object that is disposed of. */
const allowed = ['dispose', 'isDisposed'];

const makeCharacter = () =>
  new Scene({ engine }).instantiate(Model.from(makeFigure(3), { name: 'it' }))[0];
/** What returns a promise, which is rejected instead. */
const asynchronous = ['inspect'];

describe('an object that is disposed of', () => {
  const makers = {
    Node: () => new Scene({ engine }).node({ name: 'it' }),
    Character: makeCharacter,
    AnimationLayer: () => makeCharacter().addLayer('it'),
    Model: () => Model.from(makeFigure(3), { name: 'it' }),
    Scene: () => new Scene({ engine }),
  };
  const classes = { AnimationLayer, Node, Character, Model, Scene };
  const patterns = {
    Node: (method) =>
      new RegExp(`^Node\\.${method}: (the )?node 'it' is disposed of: make a new one\\.$`),
    Character: (method) =>
      new RegExp(`^Character\\.${method}: character 'it' is disposed of: make a new one\\.$`),
    AnimationLayer: (method) =>
      new RegExp(`^AnimationLayer\\.${method}: layer 'it' .*is disposed of: .*\\.$`),
    Model: (method) =>
      new RegExp(`^Model\\.${method}: model 'it' is disposed of: load it again\\.$`),
    Scene: (method) =>
      new RegExp(`^Scene\\.${method}: the scene is disposed of: make a new one\\.$`),
  };

  for (const name of Object.keys(classes)) {
    const members = membersOf(classes[name]);

    it(`throws at each use of a ${name}`, async () => {
      const object = makers[name]();
      object.dispose();
      let checked = 0;
      for (const [member, { get, set, value }] of members) {
        if (allowed.includes(member)) {
          continue;
        }
        const message = patterns[name](member);
        if (asynchronous.includes(member)) {
          await assert.rejects(object[member](), { name: 'Error', message }, member);
          ++checked;
        } else if (typeof value === 'function') {
          assert.throws(() => object[member](), { name: 'Error', message }, member);
          ++checked;
        }
        if (get !== undefined) {
          assert.throws(() => object[member], { name: 'Error', message }, member);
          ++checked;
        }
        if (set !== undefined) {
          assert.throws(() => (object[member] = undefined), { name: 'Error', message }, member);
          ++checked;
        }
      }
      assert(checked > 1, `${checked} uses`);
    });

    it(`can be disposed of again: a ${name}`, () => {
      const object = makers[name]();
      object.dispose();
      object.dispose();
      assert.strictEqual(object.isDisposed, true);
    });
  }

  it('is refused as an argument', () => {
    const scene = new Scene({ engine });
    const gone = { node: scene.node(), scene: new Scene({ engine }), model: makers.Model() };
    Object.keys(gone).forEach((kind) => gone[kind].dispose());
    const node = scene.node();
    const [character] = scene.instantiate(makers.Model());
    const uses = [
      () => node.add(gone.node),
      () => scene.node({ parent: gone.node }),
      () => scene.add(gone.node, node),
      () => scene.add(node, gone.node),
      () => scene.remove(gone.node),
      () => character.attach(gone.node, 0),
      () => scene.instantiate(gone.model),
      () => new Camera().cull(gone.scene),
    ];
    for (const use of uses) {
      assert.throws(use, { name: 'Error', message: / is disposed of: / });
    }
    scene.dispose();
  });
});
