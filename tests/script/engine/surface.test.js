'use strict';
// Classes, prototypes and properties as JavaScript sees them.
const assert = require('assert');
const { differences, modulePath } = require('../support/host');
const { methods } = require('../support/surface');

const nq = require(modulePath);

const plainProperty = { writable: true, enumerable: true, configurable: true };

function attributes(object, name) {
  const { writable, enumerable, configurable } = Object.getOwnPropertyDescriptor(object, name);
  return { writable, enumerable, configurable };
}

describe('Engine object', () => {
  const engine = nq.getEngine();

  it('is of class Engine', () => {
    assert.strictEqual(engine.constructor.name, 'Engine');
    assert.strictEqual(Object.prototype.toString.call(engine), differences.tagOf('Engine'));
    assert(engine instanceof engine.constructor);
  });

  it('has the three shared buffers as own properties, in order', () => {
    assert.deepStrictEqual(Reflect.ownKeys(engine), [
      'dirtyEntities',
      'entityCommands',
      'cullingResult',
    ]);
    for (const name of Object.keys(engine)) {
      assert(engine[name] instanceof ArrayBuffer);
      assert.deepStrictEqual(attributes(engine, name), plainProperty);
    }
  });

  it('has buffers of 49152, 49152 and 8008 bytes, all zero', () => {
    const fresh = nq.getEngine();
    assert.strictEqual(fresh.dirtyEntities.byteLength, 49152);
    assert.strictEqual(fresh.entityCommands.byteLength, 49152);
    assert.strictEqual(fresh.cullingResult.byteLength, 8008);
    for (const name of Object.keys(fresh)) {
      assert.strictEqual(
        new Uint8Array(fresh[name]).findIndex((byte) => byte !== 0),
        -1,
        name
      );
    }
  });

  it('has methods in order of installation, on a prototype without a base class', () => {
    const prototype = Object.getPrototypeOf(engine);
    assert.deepStrictEqual(Reflect.ownKeys(prototype), [...methods.Engine, 'constructor']);
    assert.strictEqual(Object.getPrototypeOf(prototype), Object.prototype);
    assert.strictEqual(prototype.constructor, engine.constructor);
  });

  it('has writable, enumerable methods that cannot be deleted', () => {
    const prototype = Object.getPrototypeOf(engine);
    for (const name of methods.Engine) {
      assert.deepStrictEqual(
        attributes(prototype, name),
        { writable: true, enumerable: true, configurable: false },
        name
      );
      assert.throws(() => delete prototype[name], TypeError);
    }
  });

  it('has a distinct function for every method, with its name', () => {
    const functions = methods.Engine.map((name) => engine[name]);
    assert.strictEqual(new Set(functions).size, methods.Engine.length);
    functions.forEach((method, i) => assert.strictEqual(method.name, methods.Engine[i]));
  });

  it('lists its methods after its own properties', () => {
    const names = [];
    for (const name in engine) {
      names.push(name);
    }
    assert.deepStrictEqual(names, [...Object.keys(engine), ...methods.Engine]);
  });

  it('shares only its class with engines of later calls', () => {
    const other = nq.getEngine();
    assert.notStrictEqual(other, engine);
    assert.strictEqual(other.constructor, engine.constructor);
    assert.strictEqual(Object.getPrototypeOf(other), Object.getPrototypeOf(engine));
    for (const name of Object.keys(engine)) {
      assert.notStrictEqual(other[name], engine[name]);
      new Uint8Array(engine[name])[0] = 7;
      assert.strictEqual(new Uint8Array(other[name])[0], 0, name);
      new Uint8Array(engine[name])[0] = 0;
    }
  });

  it('keeps the same shared buffers during its lifetime', () => {
    const first = engine.dirtyEntities;
    engine.createEntity(true, 100);
    engine.refreshWorldTransform();
    assert.strictEqual(engine.dirtyEntities, first);
  });

  it('is returned by getEngine for any arguments and receiver', () => {
    const other = nq.getEngine.call(7, Symbol('unread'), 1);
    assert.strictEqual(other.constructor, engine.constructor);
    assert.deepStrictEqual(Object.keys(other), Object.keys(engine));
  });

  it('has methods but no buffers if new created it', () => {
    const empty = new engine.constructor(1, 2);
    assert.deepStrictEqual(Reflect.ownKeys(empty), []);
    assert.strictEqual(empty.createEntity, engine.createEntity);
  });
});

describe('EngineEntity object', () => {
  const engine = nq.getEngine();
  const entity = engine.createEntity(true, 2);

  it('is of class EngineEntity, which has no methods', () => {
    assert.strictEqual(entity.constructor.name, 'EngineEntity');
    const prototype = Object.getPrototypeOf(entity);
    assert.deepStrictEqual(Reflect.ownKeys(prototype), [...methods.EngineEntity, 'constructor']);
    assert.strictEqual(Object.getPrototypeOf(prototype), Object.prototype);
    assert.notStrictEqual(entity.constructor, engine.constructor);
  });

  it('has "id", "buffer" and "memoryID" as own properties, in order', () => {
    assert.deepStrictEqual(Reflect.ownKeys(entity), ['id', 'buffer', 'memoryID']);
    for (const name of Object.keys(entity)) {
      assert.deepStrictEqual(attributes(entity, name), plainProperty);
    }
    assert(entity.buffer instanceof ArrayBuffer);
  });

  it('has only "id" if there is no block', () => {
    const refused = engine.createEntity(true, 5000);
    assert.deepStrictEqual(Reflect.ownKeys(refused), ['id']);
    assert.strictEqual(refused.id, 0);
    assert.strictEqual(refused.constructor, entity.constructor);
  });

  it('is of one class in all engines of a thread', () => {
    assert.strictEqual(nq.getEngine().createEntity().constructor, entity.constructor);
  });
});
