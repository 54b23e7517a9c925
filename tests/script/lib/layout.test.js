'use strict';
// The layouts of lib/layout.js: generated files are up to date, and agree with the library's other parts and with the
// engine's blocks and calls. Offsets are compared with the structs by the native suite LayoutsTest.
const assert = require('assert');
const { over } = require('../support/blocks');
const fs = require('fs');
const { modulePath } = require('../support/host');
const clip = require('../../../lib/clip');
const commands = require('../../../lib/commands');
const layout = require('../../../lib/layout');
const description = require('../../../scripts/layouts/description');
const { staleLayouts } = require('../../../scripts/layouts');
const { validate } = require('../../../scripts/layouts/validate');

const { getEngine } = require(modulePath);
const engine = getEngine();

describe('lib/layout.js', () => {
  it('and all other generated files are up to date', () => {
    assert.deepStrictEqual(staleLayouts(), []);
  });

  it('is deeply frozen', () => {
    for (const name of Object.keys(layout)) {
      assert(Object.isFrozen(layout[name]), name);
    }
  });

  it('has the command numbers of the writers', () => {
    assert.strictEqual(commands.entityCommands, layout.entityCommands);
    assert.strictEqual(commands.matrixFlowCommands, layout.matrixFlowCommands);
    assert.strictEqual(commands.matrixFlowResults, layout.matrixFlowResults);
    assert.strictEqual(clip.sampleTypes, layout.sampleTypes);
  });

  it('describes the bytes of buildClip', () => {
    const keys = [{ frame: 7, value: 5, inTangent: 1, outTangent: 2 }];
    const curves = [0, 1].map((target) => ({ target, type: 9, keys }));
    const bytes = clip.buildClip({ framesPerSecond: 30, frameCount: 60, curves });
    const view = new DataView(bytes);
    assert.strictEqual(bytes.byteLength, layout.clip.bytes(2, 2));
    assert.strictEqual(view.getUint32(layout.clipHeader.keyDataOffset, true), layout.clip.keys(2));
    assert.strictEqual(view.getFloat32(layout.clipHeader.framesPerSecond, true), 30);
    assert.strictEqual(view.getUint32(layout.clipHeader.frameCount, true), 60);
    assert.strictEqual(view.getUint32(layout.clipHeader.curveCount, true), 2);
    const curve = layout.clip.curves + layout.clipCurve.size;
    assert.strictEqual(view.getUint32(curve + layout.clipCurve.targetIndex, true), 1);
    assert.strictEqual(view.getUint32(curve + layout.clipCurve.sampleType, true), 9);
    assert.strictEqual(view.getUint32(curve + layout.clipCurve.keyCount, true), 1);
    const key = layout.clip.keys(2) + layout.clipKey.size;
    assert.strictEqual(view.getUint32(key + layout.clipKey.frame, true), 7);
    assert.strictEqual(view.getFloat32(key + layout.clipKey.value, true), 5);
    assert.strictEqual(view.getFloat32(key + layout.clipKey.inTangent, true), 1);
    assert.strictEqual(view.getFloat32(key + layout.clipKey.outTangent, true), 2);
  });
});

describe('sizes of the engine', () => {
  it('are correct for entities and lists', () => {
    const { entity3D, entity2D, dirtyEntityList, entityCommandStream, limits } = layout;
    assert.strictEqual(engine.createEntity(true, 5).buffer.byteLength, 5 * entity3D.size);
    assert.strictEqual(engine.createEntity(false, 5).buffer.byteLength, 5 * entity2D.size);
    assert.strictEqual(engine.dirtyEntities.byteLength, dirtyEntityList.size);
    assert.strictEqual(engine.entityCommands.byteLength, entityCommandStream.size);
    assert.strictEqual(dirtyEntityList.size, dirtyEntityList.handles + 4 * limits.dirtyEntities);
    assert.strictEqual(
      entityCommandStream.size,
      entityCommandStream.commands + limits.commandBytes
    );
  });

  it('are correct for components, controllers and states', () => {
    const { componentKinds, cullingObject, animator, skinning } = layout;
    const { culling: cullingKind, animator: animatorKind, skinning: skinningKind } = componentKinds;
    const bytes = (object) => object.buffer.byteLength;
    assert.strictEqual(bytes(engine.createComponent(cullingKind, 3)), 3 * cullingObject.size);
    assert.strictEqual(bytes(engine.createComponent(animatorKind, 3, 7)), animator.bytes(3, 7));
    assert.strictEqual(bytes(engine.createComponent(skinningKind, 9)), skinning.bytes(9));
    assert.strictEqual(bytes(engine.createAnimatorControllerModel(4)), layout.controller.bytes(4));
    assert.strictEqual(
      bytes(engine.createAnimatorControllerStateModel(6)),
      layout.controllerState.bytes(6)
    );
    assert.strictEqual(engine.createComponent(4, 1, 1), null);
  });

  it('are correct for the initial culling result', () => {
    const { cullingResult, limits } = layout;
    const bytes = cullingResult.bytes(limits.cullingResultObjects);
    assert.strictEqual(getEngine().cullingResult.byteLength, bytes);
  });

  it('respect the limit of a batch', () => {
    const { batch } = layout.limits;
    const { elementBits, elementMask } = layout.handles;
    const whole = engine.createEntity(true, batch);
    assert.strictEqual(whole.buffer.byteLength, batch * layout.entity3D.size);
    assert.strictEqual((whole.id + batch - 1) >>> elementBits, whole.id >>> elementBits);
    assert.strictEqual(whole.id & elementMask, 0);
    assert.strictEqual(engine.createEntity(true, batch + 1).id, 0);
    assert.strictEqual(engine.createComponent(layout.componentKinds.culling, batch + 1).id, 0);
  });
});

describe('enumerations and argument positions of the engine', () => {
  it('are correct for data models', () => {
    const { dataModelKinds, inverseBindMatrices } = layout;
    const bytes = new ArrayBuffer(inverseBindMatrices.bytes(2));
    assert.notStrictEqual(engine.createDataModel(dataModelKinds.bones, bytes).id, 0);
    assert.notStrictEqual(engine.createDataModel(dataModelKinds.clip, bytes).id, 0);
    assert.strictEqual(engine.createDataModel(3, bytes).id, 0);
  });

  // A sphere at the origin, and cameras that look at it from 10 units along z.
  it('are correct for culling calls', () => {
    const { cullingList, cullingObject, frustumCullingArguments, orthoCullingArguments } = layout;
    const carrier = engine.createEntity(true, 1);
    const record = over(DataView, carrier);
    [0, 4, 8].forEach((at) => record.setFloat32(layout.entity3D.scale + at, 1, true));
    over(Uint32Array, engine.entityCommands).set([8, layout.entityCommands.addRoot, carrier.id]);
    over(Uint32Array, engine.dirtyEntities).set([1, carrier.id]);
    engine.refreshWorldTransform();
    const object = engine.createComponent(layout.componentKinds.culling, 1);
    const sphere = over(DataView, object);
    sphere.setUint8(cullingObject.enabled, 1);
    sphere.setUint32(cullingObject.mask, 4, true);
    sphere.setFloat32(cullingObject.radius, 1, true);
    sphere.setUint32(cullingObject.entity, carrier.id, true);

    const list = new ArrayBuffer(cullingList.bytes(1));
    new Uint32Array(list)[cullingList.count / 4] = 1;
    new Uint32Array(list)[cullingList.handles / 4] = object.id;
    const common = { mask: 4, eye: [0, 0, 10], target: [0, 0, 0], up: [0, 1, 0], near: 1, far: 20 };
    const own = {
      frustumCulling: [frustumCullingArguments, { fov: 1, aspect: 2 }],
      orthoCulling: [orthoCullingArguments, { left: -1, right: 2, bottom: -3, top: 4 }],
    };
    for (const method of Object.keys(own)) {
      const [positions, values] = own[method];
      const all = Object.assign({}, common, values);
      const args = [];
      for (const name of Object.keys(all)) {
        [].concat(all[name]).forEach((value, i) => {
          args[positions[name] + i] = value;
        });
      }
      assert.strictEqual(args.length, positions.required, method);
      // Holes would count as undefined.
      assert.strictEqual(Object.keys(args).length, positions.required, method);
      const seen = engine[method](...args);
      assert.deepStrictEqual(new Uint32Array(seen.objects), Uint32Array.of(object.id), method);
      assert.deepStrictEqual(new Float32Array(seen.distances), Float32Array.of(10), method);
      assert.strictEqual(engine[method](...args.slice(0, -1)), null, method);
      assert.strictEqual(positions.list, positions.required);
      args[positions.list] = list;
      assert.deepStrictEqual(new Uint32Array(engine[method](...args).objects)[0], object.id);
      new Uint32Array(list)[cullingList.handles / 4] = 0;
      assert.strictEqual(engine[method](...args), null, `${method} with an empty list`);
      new Uint32Array(list)[cullingList.handles / 4] = object.id;
      args.pop();
      args[positions.mask] = 2;
      assert.strictEqual(engine[method](...args), null, `${method} of another layer`);
    }
  });
});

describe('layout description', () => {
  it('documents all properties of its entries in its first comment', () => {
    const file = require.resolve('../../../scripts/layouts/description');
    const [comment] = fs.readFileSync(file, 'utf8').split('\nconst ');
    /** Properties in the first column of the tables whose head has this word. */
    const documented = (head) => {
      const [, rows] = comment.split(`// | Of a ${head} | |\n// |---|---|\n`);
      assert(rows, head);
      const names = rows.split('\n//\n')[0].match(/^\/\/ \| [^|]+/gm);
      return [].concat(...names.map((cell) => cell.slice('// | '.length).trim().split(', ')));
    };
    const used = (entries) => Array.from(new Set([].concat(...entries.map(Object.keys)))).sort();
    const viewsOf = (entries) => entries.map(({ view }) => view).filter(Boolean);
    const { groups } = description;
    const records = [].concat(...groups.map((group) => group.records));
    const fields = [].concat(...records.map((record) => record.fields));
    const kinds = { group: groups, record: records, field: fields };
    kinds["record's view"] = viewsOf(records);
    kinds["field's view"] = viewsOf(fields);
    for (const kind of Object.keys(kinds)) {
      assert.deepStrictEqual(documented(kind).sort(), used(kinds[kind]), kind);
    }
    const setters = [].concat(...viewsOf(records).map((view) => view.setters || []));
    const parts = [].concat(...viewsOf(fields).map((view) => view.parts || []));
    for (const name of [...used(setters), ...used(parts)]) {
      assert(comment.includes(`\`${name}\``), name);
    }
  });
});

describe('validate', () => {
  /** The description with one changed record. */
  function changed(name, change) {
    const copy = JSON.parse(JSON.stringify(description));
    change(
      [].concat(...copy.groups.map(({ records }) => records)).find((one) => one.name === name)
    );
    return () => validate(copy);
  }

  it('accepts the description', () => {
    validate(description);
    assert.doesNotThrow(changed('entity3D', () => {}));
  });

  it('refuses gaps, overlaps and wrong sizes', () => {
    const moved = changed('entity3D', ({ fields }) => {
      fields.find(({ name }) => name === 'scale').offset = 36;
    });
    assert.throws(moved, /entity3D\.scale: gap or overlap/);
    const shorter = changed('entity3D', ({ fields }) => {
      fields.find(({ name }) => name === 'rotation').count = 3;
    });
    assert.throws(shorter, /entity3D\.position: gap or overlap/);
    const larger = changed('entity2D', (record) => {
      record.size = 60;
    });
    assert.throws(larger, /entity2D: not its size/);
    const steeper = changed('skinning', ({ fields }) => {
      fields.find(({ name }) => name === 'results').offset.count = 12;
    });
    assert.throws(steeper, /skinning\.results: gap or overlap/);
    const argument = changed('frustumCullingArguments', ({ fields }) => {
      fields.find(({ name }) => name === 'near').offset = 13;
    });
    assert.throws(argument, /frustumCullingArguments\.near: gap or overlap/);
  });

  it('refuses duplicate names and unknown records', () => {
    const twice = changed('clipKey', ({ fields }) => {
      fields[1].name = 'frame';
    });
    assert.throws(twice, /clipKey: duplicate name/);
    const unknown = changed('animator', ({ fields }) => {
      fields[0].of = 'animatorClips';
    });
    assert.throws(unknown, /clips: no type, or an unknown record/);
  });
});
