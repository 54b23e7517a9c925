'use strict';
// Culling objects and the five culling methods of "Engine", as JavaScript sees them.
const assert = require('assert');
const { over } = require('../support/blocks');
const { spawnSync } = require('child_process');

const modulePath = process.env.NQ_MODULE;
const { getEngine } = require(modulePath);
const addon = require(process.env.NQ_TEST_ADDON);

const recordBytes = 28;
const entityWords = 27;
const every = 0xffffffff;

/** A scene in its own engine. Keeps all batches alive until they are dropped. */
class Scene {
  constructor() {
    this.engine = getEngine();
    this.dirty = over(Uint32Array, this.engine.dirtyEntities);
    this.commands = over(Uint32Array, this.engine.entityCommands);
    this.kept = [];
  }

  /** A batch of entities of scale 1, as roots. */
  addEntities(count = 1, is3D = true) {
    const batch = this.engine.createEntity(is3D, count);
    const floats = over(Float32Array, batch);
    for (let i = 0; i < count; ++i) {
      if (is3D) {
        floats.set([1, 1, 1], i * entityWords + 8);
      }
      this.command(1, batch.id + i);
    }
    this.kept.push(batch);
    return batch;
  }

  /** Runs one command of the entity stream at the next refresh. */
  command(...words) {
    if (this.commands[0] > 40000) {
      this.engine.refreshWorldTransform();
    }
    this.commands.set(words, 1 + this.commands[0] / 4);
    this.commands[0] += 4 * words.length;
  }

  /** Moves element `i` of a 3D batch, to take effect with the next refresh. */
  place(batch, i, x, y, z) {
    over(Float32Array, batch).set([x, y, z], i * entityWords + 5);
    this.dirty[0] += 1;
    this.dirty[this.dirty[0]] = batch.id + i;
  }

  move(batch, i, x, y, z) {
    this.place(batch, i, x, y, z);
    this.refresh();
  }

  refresh() {
    this.engine.refreshWorldTransform();
  }

  addObjects(count) {
    const batch = this.engine.createComponent(1, count);
    this.kept.push(batch);
    return batch;
  }

  /** Writes a record; by default an object is enabled on all layers. */
  put(batch, i, entity, { center = [0, 0, 0], radius = 1, mask = every, enabled = 1 } = {}) {
    const view = new DataView(batch.buffer, i * recordBytes, recordBytes);
    view.setUint8(0, enabled);
    view.setUint32(4, mask, true);
    center.forEach((value, axis) => view.setFloat32(8 + 4 * axis, value, true));
    view.setFloat32(20, radius, true);
    view.setUint32(24, entity, true);
  }

  /** An entity at a point with one object around it; the object's handle. */
  addSphere(x, y, z, fields) {
    const entity = this.addEntities();
    this.move(entity, 0, x, y, z);
    const objects = this.addObjects(1);
    this.put(objects, 0, entity.id, fields);
    return objects.id;
  }

  /** `count` spheres in a row along the view, from depth 2 on in steps of `step`. */
  addRow(count, step = 0.01) {
    const handles = [];
    const entity = this.addEntities();
    this.move(entity, 0, 0, 0, -2);
    for (let first = 0; first < count; first += 4095) {
      const size = Math.min(4095, count - first);
      const objects = this.addObjects(size);
      for (let i = 0; i < size; ++i) {
        this.put(objects, i, entity.id, { center: [0, 0, -(first + i) * step] });
        handles.push(objects.id + i);
      }
    }
    return handles;
  }

  /** Enables the first `count` objects of a batch, disables the others. */
  enable(batch, count) {
    const bytes = over(Uint8Array, batch);
    for (let i = 0; i * recordBytes < bytes.length; ++i) {
      bytes[i * recordBytes] = i < count ? 1 : 0;
    }
  }

  get result() {
    return readResult(this.engine.cullingResult);
  }
}

/** 14 arguments: at the origin, down the negative z axis, 90 degrees wide and high, 1 to 100. */
function frustum(mask = every) {
  return [mask, 0, 0, 0, 0, 0, -1, 0, 1, 0, Math.PI / 2, 1, 1, 100];
}

/** 16 arguments: the same pose, a box of half width 50. */
function box(mask = every) {
  return [mask, 0, 0, 0, 0, 0, -1, 0, 1, 0, -50, 50, -50, 50, 1, 100];
}

function readResult(buffer) {
  const words = new Uint32Array(buffer);
  const [hash, count] = words;
  return {
    hash,
    objects: Array.from(words.subarray(2, 2 + count)),
    distances: Array.from(new Float32Array(buffer, 8 + 4 * count, count)),
  };
}

function readObject(object) {
  return {
    hash: object.hash,
    objects: Array.from(new Uint32Array(object.objects)),
    distances: Array.from(new Float32Array(object.distances)),
  };
}

function hashOf(handles) {
  return handles.reduce((hash, handle) => (Math.imul(hash, 31) + handle) >>> 0, 0);
}

function list(handles, { count = handles.length, bytes = 4 + 4 * handles.length } = {}) {
  const buffer = new ArrayBuffer(bytes);
  const words = new Uint32Array(buffer, 0, bytes >> 2);
  [count, ...handles].slice(0, words.length).forEach((word, i) => {
    words[i] = word;
  });
  return buffer;
}

/** The methods with their differences. */
const methods = {
  cullWithCamera: { camera: frustum, v2: false },
  frustumCulling: { camera: frustum, v2: false },
  frustumCullingV2: { camera: frustum, v2: true },
  orthoCulling: { camera: box, v2: false },
  orthoCullingV2: { camera: box, v2: true },
};

/** Calls a method and returns its handles, from the buffer or from the result object. */
function seen(scene, name, ...rest) {
  const { camera, v2 } = methods[name];
  const answer = scene.engine[name](...(rest.length ? rest : camera()));
  if (!v2) {
    return answer === null ? [] : readObject(answer).objects;
  }
  assert.strictEqual(typeof answer, 'boolean');
  return scene.result.objects;
}

async function collectUntil(done) {
  for (let i = 0; i < 20 && !done(); ++i) {
    gc();
    await new Promise((resolve) => setImmediate(resolve));
  }
  return done();
}

describe('createComponent', () => {
  it('returns null without arguments and for unknown kinds', () => {
    const { engine } = new Scene();
    assert.strictEqual(engine.createComponent(), null);
    for (const kind of [0, 4, 9, 9.9, -1, 0x100000000, undefined, null, 'x', {}, NaN]) {
      assert.strictEqual(engine.createComponent(kind, 1), null, String(kind));
    }
    assert.strictEqual(engine.createComponent(1).id, 0x1000);
  });

  it('creates batches of culling objects with zeroed records of 28 bytes', () => {
    const { engine } = new Scene();
    for (const [count, bytes] of [
      [1, 28],
      [2, 56],
      [4095, 114660],
    ]) {
      const objects = engine.createComponent(1, count);
      assert.strictEqual(objects.constructor.name, 'EngineComponent');
      assert.deepStrictEqual(Object.keys(objects), ['id', 'buffer', 'memoryID']);
      assert(objects.buffer instanceof ArrayBuffer);
      assert.strictEqual(objects.buffer.byteLength, bytes);
      assert(over(Uint8Array, objects).every((byte) => byte === 0));
    }
  });

  it('treats a count of 0 or none as 1, and converts by the rules of JavaScript', () => {
    const { engine } = new Scene();
    for (const [args, count] of [
      [[1], 1],
      [[1, undefined], 1],
      [[1, 0], 1],
      [[1, NaN], 1],
      [[1, 'x'], 1],
      [[1, 2.9], 2],
      [['1', '3'], 3],
      [[1.5, true], 1],
      [[1, 0x100000005], 5],
      [[0x100000001, 2, 7, 7], 2],
    ]) {
      assert.strictEqual(engine.createComponent(...args).buffer.byteLength, 28 * count, args);
    }
  });

  it('refuses counts beyond 4095 with an object of id 0', () => {
    const { engine } = new Scene();
    for (const count of [4096, 100000, -1, -4095, 0x80000000, 0xffffffff]) {
      const refused = engine.createComponent(1, count);
      assert.deepStrictEqual(Object.keys(refused), ['id'], String(count));
      assert.strictEqual(refused.id, 0);
      assert.strictEqual(refused.constructor.name, 'EngineComponent');
    }
    assert.strictEqual(engine.createComponent(1).id, 0x1000, 'no handle was used up');
  });

  it('numbers handles independently of those of entities', () => {
    const { engine } = new Scene();
    const first = engine.createComponent(1, 9);
    const entity = engine.createEntity();
    const second = engine.createComponent(1);
    assert.deepStrictEqual([first.id, entity.id, second.id], [0x1000, 0x1000, 0x2000]);
  });

  it('releases a handle with its component; a refused component has none', async () => {
    const { engine } = new Scene();
    const kept = [engine.createComponent(1)];
    (() => {
      assert.strictEqual(engine.createComponent(1, 4096).id, 0);
      assert.strictEqual(engine.createComponent(1, 10).id, 0x2000);
    })();
    const found = await collectUntil(() => {
      kept.push(engine.createComponent(1));
      return kept.some(({ id }) => id === 0x2000);
    });
    assert(found);
    assert.strictEqual(new Set(kept.map(({ id }) => id)).size, kept.length);
    assert(kept.every(({ id, buffer }) => id !== 0 && buffer.byteLength === 28));
  });

  it('is counted by batches under its quoted name while objects are tracked', async () => {
    const { engine } = new Scene();
    addon.enableObjectTracking(engine);
    const label = '"EngineComponent"';
    const kept = [engine.createComponent(1, 100), engine.createComponent(1, 4096)];
    engine.createComponent(9);
    assert.deepStrictEqual(addon.objectCounts(engine), { [label]: 2 });
    (() => {
      for (let i = 0; i < 20; ++i) {
        engine.createComponent(1);
      }
    })();
    assert(addon.objectCounts(engine)[label] > 2);
    assert(await collectUntil(() => addon.objectCounts(engine)[label] === 2));
    assert.strictEqual(kept[1].id, 0);
  });

  it('releases its block with the component, even after the engine', async () => {
    let [engine, component] = [getEngine(), null];
    const runtime = addon.runtimeOf(engine);
    component = engine.createComponent(1, 5);
    const { memoryID } = component;
    over(Uint8Array, component).fill(1);
    engine = null;
    await collectUntil(() => false);
    assert(addon.hasBlock(runtime, memoryID), 'kept by the component');
    assert(over(Uint8Array, component).every((byte) => byte === 1));
    component = null;
    assert(await collectUntil(() => !addon.hasBlock(runtime, memoryID)));
  });
});

describe('culling methods', () => {
  it('are five functions, of which two are the same', () => {
    const { engine } = new Scene();
    const functions = Object.keys(methods).map((name) => engine[name]);
    assert(functions.every((method) => typeof method === 'function'));
    assert.strictEqual(new Set(functions).size, 5);
  });

  it('without a batch return null, or false with an unchanged buffer', () => {
    const { engine } = new Scene();
    over(Uint8Array, engine.cullingResult).fill(0x5a);
    const before = engine.cullingResult;
    for (const [name, { camera, v2 }] of Object.entries(methods)) {
      assert.strictEqual(engine[name](...camera()), v2 ? false : null, name);
    }
    assert.strictEqual(engine.cullingResult, before);
    assert(new Uint8Array(before).every((byte) => byte === 0x5a));
  });

  for (const name of Object.keys(methods)) {
    const { camera, v2 } = methods[name];
    const required = camera().length;
    const empty = v2 ? false : null;

    describe(name, () => {
      it(`returns null with fewer than ${required} arguments, without converting any`, () => {
        const scene = new Scene();
        scene.addSphere(0, 0, -10);
        const untouchable = {
          valueOf() {
            throw new Error('converted');
          },
        };
        for (let count = 0; count < required; ++count) {
          const args = camera().slice(0, count).fill(untouchable);
          assert.strictEqual(scene.engine[name](...args), null, `${count} arguments`);
        }
        assert.strictEqual(scene.result.objects.length, 0);
      });

      it('reads a list only from the argument after the required ones', () => {
        const scene = new Scene();
        const near = scene.addSphere(0, 0, -10);
        const far = scene.addSphere(0, 0, -20);
        const args = camera();
        assert.deepStrictEqual(seen(scene, name, ...args), [near, far]);
        assert.deepStrictEqual(seen(scene, name, ...args, list([far])), [far]);
        assert.deepStrictEqual(seen(scene, name, ...args, list([far]), 0), [near, far]);
        assert.deepStrictEqual(seen(scene, name, ...args, 0, list([far])), [near, far]);
      });

      it('ignores a list that is no ArrayBuffer', () => {
        const scene = new Scene();
        const near = scene.addSphere(0, 0, -10);
        const far = scene.addSphere(0, 0, -20);
        const buffer = list([far]);
        const shared = new SharedArrayBuffer(8);
        new Uint32Array(shared).set([1, far]);
        const others = [new Uint32Array(buffer), new DataView(buffer), new Uint8Array(0), shared];
        for (const other of [...others, undefined, null, 1, 'x', {}, [1, far], Symbol('s')]) {
          assert.deepStrictEqual(seen(scene, name, ...camera(), other), [near, far]);
        }
      });

      it('refuses lists whose count exceeds the buffer', () => {
        const scene = new Scene();
        const object = scene.addSphere(0, 0, -10);
        scene.engine.frustumCullingV2(...frustum());
        const before = scene.result;
        const detached = list([object]);
        detachBuffer(detached);
        const refused = {
          'no bytes': new ArrayBuffer(0),
          '4 bytes': list([], { count: 1 }),
          '4 bytes, of count 0': list([]),
          '5 bytes': list([], { count: 1, bytes: 5 }),
          '7 bytes': list([], { count: 1, bytes: 7 }),
          'count 0': list([object], { count: 0 }),
          'count 2 in 8 bytes': list([object], { count: 2 }),
          'count 2 in 11 bytes': list([object], { count: 2, bytes: 11 }),
          'a count of all bits': list([object, object, object], { count: every }),
          'a count that overflows in bytes': list([object], { count: 0x40000001 }),
          detached,
        };
        for (const [why, buffer] of Object.entries(refused)) {
          assert.strictEqual(scene.engine[name](...camera(), buffer), null, why);
        }
        assert.deepStrictEqual(scene.result, before);
      });

      it('accepts lists in buffers that are as large as needed, or larger', () => {
        const scene = new Scene();
        const object = scene.addSphere(0, 0, -10);
        const second = scene.addSphere(0, 0, -20);
        const one = [object];
        assert.deepStrictEqual(seen(scene, name, ...camera(), list(one)), one);
        assert.deepStrictEqual(seen(scene, name, ...camera(), list(one, { bytes: 9 })), one);
        assert.deepStrictEqual(seen(scene, name, ...camera(), list(one, { bytes: 4096 })), one);
        const two = list([object, second], { bytes: 12 });
        assert.deepStrictEqual(seen(scene, name, ...camera(), two), [object, second]);
        new Uint32Array(two)[0] = 1;
        assert.deepStrictEqual(seen(scene, name, ...camera(), two), one);
      });

      it('skips unknown handles, and reports duplicates twice', () => {
        const scene = new Scene();
        const near = scene.addSphere(0, 0, -10);
        const far = scene.addSphere(0, 0, -20);
        const handles = [far, 0, near + 1, 0x900000, every, near, far];
        assert.deepStrictEqual(seen(scene, name, ...camera(), list(handles)), [near, far, far]);
        assert.strictEqual(scene.engine[name](...camera(), list([near + 1, every])), empty);
      });

      it('sorts from near to far, with depths and a hash of that order', () => {
        const scene = new Scene();
        const far = scene.addSphere(1, 2, -30);
        const near = scene.addSphere(-1, 3, -10);
        const behind = scene.addSphere(0, 0, 0.5, { radius: 2 });
        const answer = scene.engine[name](...camera());
        const expected = {
          hash: hashOf([behind, near, far]),
          objects: [behind, near, far],
          distances: [-0.5, 10, 30],
        };
        assert.deepStrictEqual(v2 ? scene.result : readObject(answer), expected);
        assert.strictEqual(expected.hash, ((0x3000 * 31 + 0x2000) * 31 + 0x1000) >>> 0);
      });

      it('skips objects that are disabled, on other layers, on 2D entities, or without an entity', () => {
        const scene = new Scene();
        const plain = scene.addSphere(0, 0, -10);
        const disabled = scene.addSphere(0, 0, -11, { enabled: 0 });
        const elsewhere = scene.addSphere(0, 0, -12, { mask: 4 });
        const flat = scene.addEntities(1, false);
        const objects = scene.addObjects(3);
        scene.put(objects, 0, flat.id, { center: [0, 0, -5], radius: 1000 });
        scene.put(objects, 1, 0x7000, { radius: 1000 });
        scene.put(objects, 2, 0, { radius: 1000 });
        const all = [plain, disabled, elsewhere, objects.id, objects.id + 1, objects.id + 2];
        for (const rest of [[], [list(all)]]) {
          assert.deepStrictEqual(seen(scene, name, ...camera(3), ...rest), [plain]);
          assert.deepStrictEqual(seen(scene, name, ...camera(4), ...rest), [plain, elsewhere]);
          assert.strictEqual(scene.engine[name](...camera(0), ...rest), empty);
        }
      });

      it('sees objects of inactive entities', () => {
        const scene = new Scene();
        const object = scene.addSphere(0, 0, -10);
        scene.command(11, 0x1000);
        scene.refresh();
        assert.deepStrictEqual(seen(scene, name), [object]);
      });

      it('converts numbers and the mask by the rules of JavaScript', () => {
        const scene = new Scene();
        const object = scene.addSphere(0, 0, -10, { mask: 0x80000000 });
        const order = [];
        const args = camera(0xf0000000).map((value, i) => ({
          valueOf() {
            order.push(i);
            return String(value);
          },
        }));
        assert.deepStrictEqual(seen(scene, name, ...args), [object]);
        assert.deepStrictEqual(order, [...Array(required).keys()]);
      });

      it('survives NaN cameras', () => {
        const scene = new Scene();
        const handles = scene.addRow(300, 0.1);
        for (const odd of [NaN, Infinity, -Infinity, 1e300, 5e-324, undefined, 'x']) {
          for (let i = 1; i < required; ++i) {
            const args = camera();
            args[i] = odd;
            const found = seen(scene, name, ...args);
            assert(found.every((handle) => handles.includes(handle)));
          }
          const found = seen(scene, name, ...camera().fill(odd, 1));
          if (!(odd <= 0) && Number.isNaN(Number(odd))) {
            assert.strictEqual(found.length, 300, 'planes that are none reject nothing');
          }
        }
      });

      it('sees everything with NaN depths if eye and target are equal', () => {
        const scene = new Scene();
        const handles = scene.addRow(300);
        const args = camera();
        args.splice(4, 3, 0, 0, 0);
        const answer = scene.engine[name](...args);
        const { objects, distances, hash } = v2 ? scene.result : readObject(answer);
        assert.deepStrictEqual(objects.slice().sort(), handles.slice().sort());
        assert(distances.every(Number.isNaN));
        assert.strictEqual(hash, hashOf(objects));
      });

      it('returns null for a wrong receiver with too few arguments', () => {
        const { engine } = new Scene();
        const component = engine.createComponent(1);
        for (const receiver of [
          component,
          engine.createEntity(),
          {},
          [],
          new engine.constructor(),
        ]) {
          assert.strictEqual(engine[name].call(receiver), null);
          assert.strictEqual(engine[name].apply(receiver, camera().slice(1)), null);
        }
      });
    });
  }

  it('createComponent returns null for a wrong receiver and an unknown kind', () => {
    const { engine } = new Scene();
    assert.strictEqual(engine.createComponent.call(engine.createEntity()), null);
    assert.strictEqual(engine.createComponent.call({}, 9), null);
  });

  it('give the same result by all names and by both ways of returning it', () => {
    const scene = new Scene();
    scene.addRow(50, 3);
    scene.addSphere(5, 5, -30, { radius: 4 });
    for (const mask of [every, 1]) {
      for (const rest of [[], [list([0x2000, 0x1003, 0x1000, 0x1009])]]) {
        const camera = readObject(scene.engine.cullWithCamera(...frustum(mask), ...rest));
        const plain = readObject(scene.engine.frustumCulling(...frustum(mask), ...rest));
        scene.engine.frustumCullingV2(...frustum(mask), ...rest);
        assert.deepStrictEqual(plain, camera);
        assert.deepStrictEqual(scene.result, camera);
        const ortho = readObject(scene.engine.orthoCulling(...box(mask), ...rest));
        scene.engine.orthoCullingV2(...box(mask), ...rest);
        assert.deepStrictEqual(scene.result, ortho);
        assert(camera.objects.length > 2);
      }
    }
  });

  it('keep a sphere that touches the far plane, and cull one a thousandth farther', () => {
    const scene = new Scene();
    scene.addSphere(0, 0, -101);
    for (const name of Object.keys(methods)) {
      assert.deepStrictEqual(seen(scene, name), [0x1000]);
    }
    assert.deepStrictEqual(scene.result.distances, [101]);
    scene.move(scene.kept[0], 0, 0, 0, -101.001);
    assert.strictEqual(scene.engine.frustumCulling(...frustum()), null);
    assert.strictEqual(scene.engine.orthoCulling(...box()), null);
  });

  it('transform the sphere by the entity, and scale the radius by its longest axis', () => {
    const scene = new Scene();
    scene.addSphere(0, 0, 0, { center: [1, 2, -10], radius: 2 });
    new Float32Array(scene.kept[0].buffer).set([0.5, 1, 3], 8);
    scene.move(scene.kept[0], 0, 0, 0, -5);
    // At depth 5 + 3 . 10 with radius 6.
    const near = (depth) => [...frustum().slice(0, 12), depth, 100];
    assert.deepStrictEqual(seen(scene, 'frustumCulling', ...near(41)), [0x1000]);
    assert.deepStrictEqual(seen(scene, 'frustumCulling', ...near(41.01)), []);
    const { distances } = readObject(scene.engine.frustumCulling(...frustum()));
    assert.deepStrictEqual(distances, [35]);
  });
});

describe('world spheres', () => {
  const depths = (scene) => {
    const answer = scene.engine.frustumCulling(...frustum());
    return answer === null ? null : readObject(answer).distances;
  };

  it('are updated when the entity is recomputed, not when the record changes', () => {
    const scene = new Scene();
    scene.addSphere(0, 0, -10);
    const [entity, objects] = scene.kept;
    assert.deepStrictEqual(depths(scene), [10]);
    scene.put(objects, 0, entity.id, { center: [0, 0, -7] });
    assert.deepStrictEqual(depths(scene), [10]);
    scene.refresh();
    assert.deepStrictEqual(depths(scene), [10], 'the entity is clean');
    scene.move(entity, 0, 0, 0, -11);
    assert.deepStrictEqual(depths(scene), [18]);
  });

  it('are points at the origin until the world matrix of the entity is computed', () => {
    const scene = new Scene();
    const entity = scene.addEntities();
    const objects = scene.addObjects(1);
    scene.put(objects, 0, entity.id, { center: [0, 0, -10], radius: 50 });
    assert.strictEqual(depths(scene), null);
    const args = frustum();
    args[3] = 4;
    assert.deepStrictEqual(readObject(scene.engine.frustumCulling(...args)).distances, [4]);
    scene.move(entity, 0, 0, 0, 0);
    assert.deepStrictEqual(depths(scene), [10]);
  });

  it('are not updated when a reset restores an old world version', () => {
    const scene = new Scene();
    scene.addSphere(0, 0, -10);
    assert.deepStrictEqual(depths(scene), [10]);
    scene.command(5, scene.kept[0].id);
    scene.move(scene.kept[0], 0, 0, 0, -40);
    assert.deepStrictEqual(depths(scene), [10]);
    scene.move(scene.kept[0], 0, 0, 0, -41);
    assert.deepStrictEqual(depths(scene), [41]);
  });

  it('are kept for a new entity without a world matrix', () => {
    const scene = new Scene();
    scene.addSphere(0, 0, -10);
    assert.deepStrictEqual(depths(scene), [10]);
    const fresh = scene.addEntities();
    scene.put(scene.kept[1], 0, fresh.id);
    assert.deepStrictEqual(depths(scene), [10]);
    scene.move(fresh, 0, 0, 0, -30);
    assert.deepStrictEqual(depths(scene), [30]);
  });

  it('are not looked up again while an unknown handle is unchanged', () => {
    const scene = new Scene();
    const objects = scene.addObjects(1);
    scene.put(objects, 0, 0x1000);
    assert.strictEqual(depths(scene), null);
    const entity = scene.addEntities();
    scene.move(entity, 0, 0, 0, -10);
    assert.strictEqual(depths(scene), null);
    scene.put(objects, 0, 0);
    assert.strictEqual(depths(scene), null);
    scene.put(objects, 0, 0x1000);
    assert.deepStrictEqual(depths(scene), [10]);
  });

  it('are released with their entity, and use a new entity of the same handle', async () => {
    const scene = new Scene();
    const stays = scene.addSphere(0, 0, -20);
    (() => {
      scene.addSphere(0, 0, -10);
      scene.kept.splice(2, 1);
    })();
    assert.deepStrictEqual(depths(scene), [10, 20]);
    scene.put(scene.kept[1], 0, scene.kept[0].id, { center: [0, 0, -50] });
    assert(await collectUntil(() => depths(scene).length === 1));
    const fresh = scene.addEntities();
    assert.strictEqual(fresh.id, 0x2000);
    scene.move(fresh, 0, 0, 0, -15);
    assert.deepStrictEqual(
      depths(scene),
      [20],
      'found nothing meanwhile; the other kept its cache'
    );
    assert.deepStrictEqual(seen(scene, 'frustumCulling'), [stays]);
    const objects = scene.kept[2];
    scene.put(objects, 0, 0);
    assert.deepStrictEqual(depths(scene), [20]);
    scene.put(objects, 0, fresh.id);
    assert.deepStrictEqual(depths(scene), [15, 20]);
  });

  it('are released with their batch: a list of its handles is then empty', async () => {
    const scene = new Scene();
    const object = (() => scene.addSphere(0, 0, -10))();
    scene.engine.frustumCullingV2(...frustum());
    scene.kept.length = 1;
    const buffer = list([object]);
    const call = (name, camera) => scene.engine[name](...camera(), buffer);
    assert(await collectUntil(() => call('frustumCulling', frustum) === null));
    assert.strictEqual(call('orthoCulling', box), null);
    assert.strictEqual(call('frustumCullingV2', frustum), false);
    assert.strictEqual(call('orthoCullingV2', box), false);
    assert.deepStrictEqual(scene.result.objects, [object], 'of the last result that was not empty');
  });
});

describe('results in new objects', () => {
  it('are plain objects of two buffers and a hash, in this order', () => {
    const scene = new Scene();
    const handles = scene.addRow(3);
    const result = scene.engine.frustumCulling(...frustum());
    assert.strictEqual(Object.getPrototypeOf(result), Object.prototype);
    assert.deepStrictEqual(Object.keys(result), ['objects', 'distances', 'hash']);
    for (const name of ['objects', 'distances']) {
      assert(result[name] instanceof ArrayBuffer);
      assert.strictEqual(result[name].byteLength, 12);
    }
    assert.notStrictEqual(result.objects, result.distances);
    assert.strictEqual(result.hash, hashOf(handles));
    assert(result.hash > 0x7fffffff || hashOf([0xfffff, 0xfffff, 0xfffff]) > 0);
  });

  it('give hashes beyond 31 bits as positive numbers', () => {
    const scene = new Scene();
    const handles = scene.addRow(9);
    for (let count = 1; count <= 9; ++count) {
      scene.enable(scene.kept[1], count);
      const { hash } = scene.engine.frustumCulling(...frustum());
      assert.strictEqual(hash, hashOf(handles.slice(0, count)));
      scene.engine.frustumCullingV2(...frustum());
      assert.strictEqual(scene.result.hash, hash);
    }
    const hashes = handles.map((handle, i) => hashOf(handles.slice(0, i + 1)));
    assert(
      hashes.some((hash) => hash > 0x7fffffff),
      'the row is long enough to show it'
    );
  });

  it('share no memory with one another or with "cullingResult"', () => {
    const scene = new Scene();
    scene.addRow(4);
    const first = scene.engine.frustumCulling(...frustum());
    const expected = readObject(first);
    const second = scene.engine.frustumCulling(...frustum());
    scene.engine.frustumCullingV2(...frustum());
    new Uint8Array(second.objects).fill(0xff);
    new Uint8Array(second.distances).fill(0xff);
    over(Uint8Array, scene.engine.cullingResult).fill(0xff);
    scene.enable(scene.kept[1], 2);
    scene.engine.frustumCulling(...frustum());
    assert.deepStrictEqual(readObject(first), expected);
  });

  it('do not change "cullingResult"', () => {
    const scene = new Scene();
    scene.addRow(4);
    scene.engine.frustumCulling(...frustum());
    scene.engine.orthoCulling(...box());
    assert(over(Uint8Array, scene.engine.cullingResult).every((byte) => byte === 0));
  });

  it('live as long as their buffers', async () => {
    const scene = new Scene();
    const handles = scene.addRow(500);
    const { objects } = scene.engine.frustumCulling(...frustum());
    const { distances } = scene.engine.frustumCulling(...frustum());
    for (let i = 0; i < 10; ++i) {
      gc();
      await new Promise((resolve) => setImmediate(resolve));
      for (let call = 0; call < 20; ++call) {
        new Uint8Array(scene.engine.frustumCulling(...frustum()).objects).fill(0xee);
      }
    }
    assert.deepStrictEqual(Array.from(new Uint32Array(objects)), handles);
    assert.strictEqual(new Float32Array(distances)[0], 2);
    assert.strictEqual(new Float32Array(distances)[499], Math.fround(2 + Math.fround(4.99)));
  });

  it('belong to their own call if a setter culls again', () => {
    const scene = new Scene();
    const handles = scene.addRow(40);
    const expected = readObject(scene.engine.frustumCulling(...frustum()));
    let calls = 0;
    Object.defineProperty(Object.prototype, 'objects', {
      configurable: true,
      set(value) {
        ++calls;
        Object.defineProperty(this, 'objects', { value });
        scene.engine.frustumCullingV2(...frustum(), list([handles[20]]));
      },
    });
    let result;
    try {
      result = scene.engine.frustumCulling(...frustum());
    } finally {
      delete Object.prototype.objects;
    }
    assert.strictEqual(calls, 1);
    assert.deepStrictEqual(readObject(result), expected);
    assert.deepStrictEqual(scene.result.objects, [handles[20]]);
  });
});

describe('"cullingResult"', () => {
  it('starts with 8008 bytes of zeros', () => {
    const { engine } = new Scene();
    assert(engine.cullingResult instanceof ArrayBuffer);
    assert.strictEqual(engine.cullingResult.byteLength, 8008);
    assert(over(Uint8Array, engine.cullingResult).every((byte) => byte === 0));
  });

  it('keeps the last result that was not empty', () => {
    const scene = new Scene();
    const handles = scene.addRow(3);
    assert.strictEqual(scene.engine.frustumCullingV2(...frustum()), false);
    const before = new Uint8Array(scene.engine.cullingResult.slice(0));
    scene.enable(scene.kept[1], 0);
    for (const [name, camera] of [
      ['frustumCullingV2', frustum],
      ['orthoCullingV2', box],
    ]) {
      assert.strictEqual(scene.engine[name](...camera()), false);
      assert.deepStrictEqual(over(Uint8Array, scene.engine.cullingResult), before);
    }
    const words = over(Uint32Array, scene.engine.cullingResult);
    assert.deepStrictEqual([words[0], words[1]], [hashOf(handles), 3]);
  });

  it('has its distances directly after the objects, and does not write further', () => {
    const scene = new Scene();
    const handles = scene.addRow(3, 1);
    const { engine } = scene;
    over(Uint32Array, engine.cullingResult).fill(0xabcdef01);
    engine.frustumCullingV2(...frustum());
    const words = over(Uint32Array, engine.cullingResult);
    const floats = over(Float32Array, engine.cullingResult);
    assert.deepStrictEqual(Array.from(words.subarray(0, 5)), [hashOf(handles), 3, ...handles]);
    assert.deepStrictEqual(Array.from(floats.subarray(5, 8)), [2, 3, 4]);
    assert(words.subarray(8).every((word) => word === 0xabcdef01));

    scene.enable(scene.kept[1], 2);
    engine.frustumCullingV2(...frustum());
    assert.strictEqual(words[1], 2);
    assert.deepStrictEqual(Array.from(words.subarray(2, 4)), handles.slice(0, 2));
    assert.deepStrictEqual(Array.from(floats.subarray(4, 6)), [2, 3], 'at byte 16');
    assert.deepStrictEqual(Array.from(floats.subarray(6, 8)), [3, 4], 'left behind');
  });

  for (const [name, camera] of [
    ['frustumCullingV2', frustum],
    ['orthoCullingV2', box],
  ]) {
    it(`grows with 480 spare entries, and returns true (${name})`, () => {
      const scene = new Scene();
      const handles = scene.addRow(4095);
      const objects = scene.kept[1];
      const { engine } = scene;
      const steps = [
        // count, grows, bytes
        [1000, false, 8008],
        [1001, true, 11856],
        [1000, false, 11856],
        [1481, false, 11856],
        [1482, true, 15704],
        [1962, false, 15704],
        [3, false, 15704],
        [0, false, 15704],
        [4095, true, 36608],
        [4095, false, 36608],
      ];
      let before = engine.cullingResult;
      for (const [count, grows, bytes] of steps) {
        scene.enable(objects, count);
        assert.strictEqual(engine[name](...camera()), grows, `${count} objects`);
        assert.strictEqual(engine.cullingResult !== before, grows);
        assert.strictEqual(engine.cullingResult.byteLength, bytes);
        before = engine.cullingResult;
        if (count !== 0) {
          const { hash, objects: found, distances } = scene.result;
          assert.deepStrictEqual(found, handles.slice(0, count));
          assert.strictEqual(hash, hashOf(found));
          assert.strictEqual(distances[0], 2);
          const last = -Math.fround(-(count - 1) * 0.01) + 2;
          assert.strictEqual(distances[count - 1], Math.fround(last));
        }
      }
    });
  }

  it('holds a thousand objects in exactly its bytes', () => {
    const scene = new Scene();
    scene.addRow(1000);
    scene.engine.frustumCullingV2(...frustum());
    const floats = over(Float32Array, scene.engine.cullingResult);
    assert.strictEqual(floats.length, 2002);
    assert.strictEqual(floats[2001], Math.fround(2 + Math.fround(9.99)));
  });

  it('grows beyond the size of one batch', () => {
    const scene = new Scene();
    const handles = scene.addRow(10000, 0.009);
    assert.strictEqual(scene.engine.frustumCullingV2(...frustum()), true);
    assert.strictEqual(scene.engine.cullingResult.byteLength, 8 * 10000 + 3848);
    assert.deepStrictEqual(scene.result.objects, handles);
  });

  it('is written before a setter of that name can cull again', () => {
    const scene = new Scene();
    const handles = scene.addRow(3000);
    const { engine } = scene;
    const published = [];
    Object.defineProperty(engine, 'cullingResult', {
      set(buffer) {
        published.push([buffer.byteLength, new Uint32Array(buffer)[1]]);
        if (published.length === 1) {
          scene.enable(scene.kept[1], 7);
          assert.strictEqual(engine.frustumCullingV2(...frustum()), false);
          assert.deepStrictEqual(readResult(buffer).objects, handles.slice(0, 7));
        }
      },
    });
    assert.strictEqual(engine.frustumCullingV2(...frustum()), true);
    assert.deepStrictEqual(published, [[27848, 3000]]);
  });
});

describe('memory', () => {
  /** Runs a function with its arguments in a child process; returns its output. */
  function runChild(body, environment, ...args) {
    const source = `(${body})(...${JSON.stringify(args)})`;
    const options = { encoding: 'utf8', env: Object.assign({}, process.env, environment) };
    return spawnSync(process.execPath, ['--expose-gc', '-e', source], options);
  }

  it('of results is released when they are collected', function () {
    this.timeout(120000);
    // The address sanitizer quarantines freed blocks, by default more than are used here.
    const settings = `${process.env.ASAN_OPTIONS || ''}:quarantine_size_mb=1`;
    const child = runChild(
      function soak(path, objectCount, rounds, callsPerRound) {
        const engine = require(path).getEngine();
        const entity = engine.createEntity(true, 1);
        const objects = engine.createComponent(1, objectCount);
        const view = new DataView(objects.buffer);
        for (let i = 0; i < objectCount; ++i) {
          view.setUint8(i * 28, 1);
          view.setUint32(i * 28 + 4, 1, true);
          view.setUint32(i * 28 + 24, entity.id, true);
        }
        const camera = [1, 0, 0, 5, 0, 0, 0, 0, 1, 0, 1, 1, 1, 100];
        global.kept = [entity, objects];
        let round = 0;
        let base;
        (function next() {
          for (let i = 0; i < callsPerRound; ++i) {
            const { distances } = engine.frustumCulling(...camera);
            if (distances.byteLength !== 4 * objectCount) {
              throw new Error(`${distances.byteLength} bytes`);
            }
          }
          gc();
          setImmediate(() => {
            ++round;
            const { rss, external } = process.memoryUsage();
            base = round === 5 ? { rss, external } : base;
            if (round < rounds) {
              next();
            } else {
              const grown = { rss: rss - base.rss, external: external - base.external };
              process.stdout.write(JSON.stringify(grown));
            }
          });
        })();
      },
      { ASAN_OPTIONS: settings },
      modulePath,
      4000,
      45,
      100
    );
    assert.strictEqual(child.status, 0, child.stderr);
    const grown = JSON.parse(child.stdout);
    // 40 rounds of 100 calls of 32000 bytes are 128 MB.
    assert(grown.rss < 32e6, `resident memory grew by ${grown.rss} bytes`);
    assert(grown.external < 4e6, `external memory grew by ${grown.external} bytes`);
  });

  it('of engines, entities and objects that are dropped in any order is not accessed', async () => {
    for (let order = 0; order < 6; ++order) {
      await (async () => {
        const scene = new Scene();
        scene.addRow(20);
        scene.addSphere(0, 0, -10);
        seen(scene, 'frustumCulling');
        const kept = [...scene.kept];
        const engine = scene.engine;
        scene.kept.length = 0;
        for (let i = 0; i < 4; ++i) {
          kept.splice((i + order) % kept.length, 1);
          await collectUntil(() => false);
          engine.frustumCulling(...frustum());
          engine.frustumCullingV2(...frustum(), list([0x1000, 0x1001, 0x2000]));
        }
      })();
      gc();
    }
    const last = new Scene();
    const handles = last.addRow(3);
    assert.deepStrictEqual(seen(last, 'frustumCulling'), handles);
  });

  describe('the host ends the process', () => {
    const values = {
      'a symbol': "Symbol('s')",
      'an object whose valueOf throws': '{ valueOf() { throw new Error(); } }',
      'a big integer': '1n',
    };
    for (const [what, value] of Object.entries(values)) {
      it(`where a number is ${what}`, () => {
        const calls = [
          `engine.frustumCulling(${value}, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0)`,
          `engine.orthoCullingV2(0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, ${value})`,
          `engine.createComponent(${value})`,
          `engine.createComponent(1, ${value})`,
        ];
        for (const call of calls) {
          const source = `
            const engine = require(${JSON.stringify(modulePath)}).getEngine();
            process.stdout.write('about to end');
            ${call};
            process.stdout.write(', but did not');`;
          const child = spawnSync(process.execPath, ['-e', source], { encoding: 'utf8' });
          assert.strictEqual(child.signal, 'SIGABRT', `${call}\n${child.stderr}`);
          assert.strictEqual(child.stdout, 'about to end');
          assert(child.stderr.includes('FATAL ERROR: v8::FromJust'), child.stderr);
        }
      });
    }
  });
});

/** Detaches a buffer by transferring it to a message channel. */
function detachBuffer(buffer) {
  const { MessageChannel } = require('worker_threads');
  const { port1, port2 } = new MessageChannel();
  port1.postMessage(buffer, [buffer]);
  port1.close();
  port2.close();
  assert.strictEqual(buffer.byteLength, 0);
}
