'use strict';
// Compares typings with run time: exports, members, results, numbers. Code that they accept and reject is in
// types/index.test-d.ts; the check of layouts verifies that those of lib/ are up to date with its JSDoc.
const assert = require('assert');
const fs = require('fs');
const path = require('path');
const three = require('three');
const ts = require('typescript');
const { modulePath } = require('../support/host');
const { Typings, compile, complaints } = require('../support/typings');
const { methods } = require('../support/surface');
const nq = require('../../../lib');

const root = path.join(__dirname, '..', '..', '..');
const flowPath = process.env.NQ_MATRIXFLOW_MODULE;
const hasFlow = flowPath !== undefined && fs.existsSync(flowPath);

/** Modules of lib/ with typings; files with a hyphen in their names are parts of others. */
const modules = [
  'checked',
  'clip',
  'commands',
  'gltf',
  'index',
  'layout',
  'load',
  'scene',
  'views',
  'wasm',
];

/** Typings without a module in lib/. */
const typesOnly = ['engine', 'handles'];

const typings = new Typings([...modules, ...typesOnly]);
const sorted = (values) => Array.from(values).sort();
const isClass = (value) => typeof value === 'function' && /^class\b/.test(String(value));

/** Public members of objects of a class: own ones, and those of its prototypes. */
function namesOf(object) {
  const names = new Set(Object.keys(object));
  for (let at = Object.getPrototypeOf(object); at !== Object.prototype; ) {
    Object.getOwnPropertyNames(at).forEach((name) => names.add(name));
    at = Object.getPrototypeOf(at);
  }
  return sorted(names).filter((name) => name !== 'constructor' && name[0] !== '_');
}

const readKind = (object, name) => (typeof object[name] === 'function' ? 'method' : 'property');
const toldKind = ({ isMethod }) => (isMethod ? 'method' : 'property');

/** Compares all members of an object with their declarations. */
function assertMembers(object, declared, label) {
  const found = namesOf(object).map((name) => `${name}: ${readKind(object, name)}`);
  if (typeof object[Symbol.iterator] === 'function') {
    found.push('[Symbol.iterator]: method');
  }
  // As the compiler names members of well-known symbols.
  const shown = (name) => name.replace(/^__@(\w+)@\d+$/, '[Symbol.$1]');
  const told = Array.from(declared, ([name, one]) => `${shown(name)}: ${toldKind(one)}`);
  assert.deepStrictEqual(sorted(found), sorted(told), label);
}

describe('typings of lib/', () => {
  it('exist for each module, and for no other', () => {
    const files = fs.readdirSync(path.join(root, 'lib')).filter((file) => file.endsWith('.js'));
    const open = files.map((file) => file.slice(0, -3)).filter((name) => !name.includes('-'));
    assert.deepStrictEqual(sorted(open), modules);
    const declared = fs.readdirSync(path.join(root, 'types'));
    const names = declared.filter((file) => file.endsWith('.d.ts')).map((f) => f.slice(0, -5));
    assert.deepStrictEqual(sorted(names), sorted([...modules, ...typesOnly]));
  });

  for (const name of modules) {
    it(`declare exactly what ${name} exports`, () => {
      const exported = require(`../../../lib/${name}`);
      assert.deepStrictEqual(sorted(typings.valuesOf(name).keys()), sorted(Object.keys(exported)));
    });
  }

  it('export only values that a module exports', () => {
    for (const name of typesOnly) {
      assert.deepStrictEqual(Array.from(typings.valuesOf(name).keys()), [], name);
      assert(typings.exportsOf(name).size > 5, name);
    }
  });

  it('distinguish classes, functions and other values', () => {
    for (const module of modules) {
      const exported = require(`../../../lib/${module}`);
      for (const [name, symbol] of typings.valuesOf(module)) {
        const label = `${module}: ${name}`;
        const type = name === 'layout' ? null : typings.typeOf(symbol);
        const calls = type === null ? 0 : type.getCallSignatures().length;
        const news = type === null ? 0 : type.getConstructSignatures().length;
        const isFunction = typeof exported[name] === 'function' && !isClass(exported[name]);
        assert.strictEqual(news > 0, isClass(exported[name]), label);
        assert.strictEqual(calls > 0, isFunction, label);
      }
    }
  });

  it('have a comment on each export and each member', () => {
    const ofAllErrors = ['message', 'name', 'stack'];
    let told = 0;
    for (const module of [
      'checked',
      'clip',
      'commands',
      'engine',
      'gltf',
      'handles',
      'load',
      'scene',
      'views',
    ]) {
      for (const [name, symbol] of typings.exportsOf(module)) {
        assert(typings.isTold(symbol), `${module}: ${name}`);
        for (const [member, { isTold }] of typings.membersOf(symbol)) {
          assert(isTold || ofAllErrors.includes(member), `${module}: ${name}.${member}`);
          ++told;
        }
      }
    }
    assert(told > 300);
  });

  // The compiler declares what a comment of lib/ does not describe, such as a misspelt parameter, as any.
  it('declare no type as any', () => {
    const found = [];
    for (const module of modules) {
      const file = typings.program.getSourceFile(path.join(root, 'types', `${module}.d.ts`));
      const visit = (node) => {
        if (node.kind === ts.SyntaxKind.AnyKeyword) {
          found.push(`${module}: ${node.parent.getText()}`);
        }
        ts.forEachChild(node, visit);
      };
      visit(file);
    }
    assert.deepStrictEqual(found, []);
  });

  it('have the values of constants', () => {
    const layoutValues = typings.valuesOf('layout');
    let held = 0;
    const assertLiteral = (type, value, label) => {
      const shown = typings.checker.typeToString(type);
      assert.strictEqual(shown, JSON.stringify(value), label);
      ++held;
    };
    for (const [name, symbol] of layoutValues) {
      const actual = nq.layout[name];
      const declared = typings.typeOf(symbol).getProperties();
      assert.deepStrictEqual(sorted(declared.map((one) => one.name)), sorted(Object.keys(actual)));
      for (const property of declared) {
        const label = `${name}.${property.name}`;
        const type = typings.typeOf(property);
        const value = actual[property.name];
        if (typeof value === 'function') {
          const [{ parameters, result }] = typings.callsOf(property);
          assert.strictEqual(parameters.length, value.length, label);
          assert.strictEqual(typings.checker.typeToString(result), 'number', label);
        } else {
          assertLiteral(type, value, label);
        }
      }
    }
    assert(held > 150);
    // It has no literal type.
    const stepTangent = typings.typeOf(typings.valuesOf('clip').get('stepTangent'));
    assert.strictEqual(typings.checker.typeToString(stepTangent), 'number');
    assert.strictEqual(nq.stepTangent, Infinity);
  });
});

/** A model of one node, with a clip that moves it. */
function movedModel() {
  const keys = [{ frame: 0, value: 1, inTangent: 0, outTangent: 0 }];
  const curves = [{ target: 0, type: nq.sampleTypes.PositionX, keys }];
  const clip = nq.buildClip({ framesPerSecond: 30, frameCount: 1, curves });
  const [translation, rotation, scale] = [
    [0, 0, 0],
    [0, 0, 0, 1],
    [1, 1, 1],
  ];
  return {
    nodes: [{ name: 'node', parent: -1, translation, rotation, scale }],
    skins: [],
    animations: [{ name: 'move', framesPerSecond: 30, clip, targets: [0] }],
  };
}

/** An object of each class of the library. */
function instances() {
  const engine = nq.load(modulePath).getEngine();
  const { GltfError } = require('../../../lib/gltf');
  const layer = require('../../../lib/scene');
  const matrixFlow = { buffer: new ArrayBuffer(64) };
  const scene = new layer.Scene({ engine });
  const model = layer.Model.from({ nodes: [], skins: [], animations: [] });
  const world = layer.toThree(three, scene);
  const moved = layer.Model.from(movedModel());
  return {
    AnimationLayer: scene.instantiate(moved)[0].addLayer('all'),
    AnimatorView: new nq.AnimatorView(engine.createComponent(2, 1, 1), 1),
    Camera: new layer.Camera(),
    Character: scene.instantiate(model)[0],
    ControllerStateView: new nq.ControllerStateView(engine.createAnimatorControllerStateModel(1)),
    ControllerView: new nq.ControllerView(engine.createAnimatorControllerModel(1)),
    CullingAnswerView: new nq.CullingAnswerView(null),
    CullingObjectsView: new nq.CullingObjectsView(engine.createComponent(1)),
    CullingResultView: new nq.CullingResultView(engine),
    DirtyListWriter: new nq.DirtyListWriter(engine),
    Entity2DView: new nq.Entity2DView(engine.createEntity(false)),
    Entity3DView: new nq.Entity3DView(engine.createEntity(true)),
    EntityCommandWriter: new nq.EntityCommandWriter(engine),
    GltfError: new GltfError('what is wrong'),
    HandleList: new nq.HandleList(1),
    MaskView: new nq.MaskView(1),
    MatrixFlowWriter: new nq.MatrixFlowWriter(matrixFlow),
    Model: model,
    Node: scene.node(),
    Recording: scene.record(),
    Scene: scene,
    SceneStats: scene.stats,
    SkinningView: new nq.SkinningView(engine.createComponent(3, 1)),
    ThreeInstances: world.instances(new three.InstancedMesh(undefined, undefined, 1)),
    ThreeWorld: world,
    TargetListsView: new nq.TargetListsView([1]),
    VisibleList: new layer.Camera().visible,
  };
}

/** Classes of all modules with their declarations. */
function declaredClasses() {
  const classes = new Map();
  for (const module of modules) {
    const exported = require(`../../../lib/${module}`);
    for (const [name, symbol] of typings.valuesOf(module)) {
      if (isClass(exported[name])) {
        classes.set(name, { type: exported[name], symbol });
      }
    }
  }
  return classes;
}

/** Properties of scenes that programs set. */
const settable = new Set([
  'layers',
  'onEnd',
  'onLoop',
  'position',
  'quaternion',
  'scale',
  'weight',
]);

describe('classes of lib/', () => {
  const classes = declaredClasses();
  const objects = instances();

  it('are all tested', () => {
    assert.deepStrictEqual(sorted(Object.keys(objects)), sorted(classes.keys()));
  });

  for (const [name, { type, symbol }] of classes) {
    // Own members of an error are those of Error, which the language declares.
    if (name !== 'GltfError') {
      it(`${name} has exactly the declared members`, () => {
        assert.strictEqual(Object.getPrototypeOf(objects[name]), type.prototype);
        assertMembers(objects[name], typings.membersOf(symbol), name);
      });

      it(`${name} has readonly properties, but for those that are set`, () => {
        for (const [member, { isMethod, isReadonly }] of typings.membersOf(symbol)) {
          assert.strictEqual(isReadonly, !isMethod && !settable.has(member), member);
        }
      });
    }

    it(`${name} has the declared static members`, () => {
      const names = Object.getOwnPropertyNames(type).filter(
        (member) => !['length', 'name', 'prototype'].includes(member)
      );
      const inherited = name === 'GltfError' ? ['captureStackTrace', 'stackTraceLimit'] : [];
      const declared = sorted(typings.staticsOf(symbol).keys());
      assert.deepStrictEqual(
        declared.filter((member) => !inherited.includes(member)),
        sorted(names)
      );
    });
  }

  it('have array properties of the declared classes', () => {
    const shown = (type) => typings.checker.typeToString(type);
    let held = 0;
    for (const [name, { symbol }] of classes) {
      for (const [member, { type }] of typings.membersOf(symbol)) {
        const value = objects[name][member];
        if (ArrayBuffer.isView(value) || value instanceof ArrayBuffer) {
          assert.strictEqual(shown(type), value.constructor.name, `${name}.${member}`);
          ++held;
        } else if (typeof value === 'boolean') {
          assert.strictEqual(shown(type), 'boolean', `${name}.${member}`);
        }
      }
    }
    assert(held > 25);
  });
});

// --- The native module.

const natives = typings.exportsOf('engine');

/** Every class with a valid object and, if there is one, an object with `id` 0. */
function nativeObjects() {
  const engine = nq.load(modulePath).getEngine();
  const lists = Uint32Array.of(1, 1, 1).buffer;
  return [
    ['Engine', engine, null],
    ['EngineEntity', engine.createEntity(true), engine.createEntity(true, 4096)],
    ['EngineComponent', engine.createComponent(1), engine.createComponent(1, 4096)],
    ['EngineComponent', engine.createComponent(2, 1, 1), engine.createComponent(2, 0, 1)],
    ['EngineComponent', engine.createComponent(3, 1), engine.createComponent(3, 0)],
    ['EngineDataModel', engine.createDataModel(1, lists), null],
    ['EngineDataModel', engine.createDataModel(2, new ArrayBuffer(64)), null],
    [
      'EngineAnimationClipBinding',
      engine.createAnimationClipBinding(lists, 0, 1, 2, 1),
      engine.createAnimationClipBinding(lists, 0, 0, 2, 1),
    ],
    [
      'EngineAnimatorControllerModel',
      engine.createAnimatorControllerModel(1),
      engine.createAnimatorControllerModel(0),
    ],
    [
      'EngineAnimatorControllerStateModel',
      engine.createAnimatorControllerStateModel(1),
      engine.createAnimatorControllerStateModel(0),
    ],
  ];
}

function flowObjects() {
  const engine = nq.loadMatrixFlow(flowPath).getEngine();
  return [
    ['EngineWithMatrixFlow', engine, null],
    [
      'EngineMatrixFlowCommandBuffer',
      engine.createMatrixFlowCommandBuffer(64),
      engine.createMatrixFlowCommandBuffer(0),
    ],
  ];
}

/** Compares native objects with the interfaces of their names. */
function assertNatives(rows) {
  for (const [name, object, empty] of rows) {
    const declared = typings.membersOf(natives.get(name));
    assertMembers(object, declared, name);
    const optional = [];
    for (const [member, { isMethod, isOptional, isReadonly }] of declared) {
      assert.strictEqual(isReadonly, !isMethod, `${name}.${member}`);
      if (isOptional) {
        optional.push(member);
      }
    }
    const missing =
      empty === null ? [] : Object.keys(object).filter((member) => !(member in empty));
    assert.deepStrictEqual(
      optional.filter(() => empty !== null),
      missing,
      name
    );
    if (empty !== null) {
      assert.strictEqual(empty.id, 0, name);
    }
  }
}

describe('typings of native objects', () => {
  it('declare exactly their properties, optional ones if they may be missing', () => {
    const rows = nativeObjects();
    assertNatives(rows);
    assert.deepStrictEqual(
      sorted(new Set(rows.map(([name]) => name))),
      sorted(Object.keys(methods))
    );
  });

  it('declare the methods of the prototypes, in order', () => {
    for (const [name, object] of nativeObjects()) {
      const own = Object.getOwnPropertyNames(Object.getPrototypeOf(object));
      const declared = Array.from(typings.membersOf(natives.get(name)))
        .filter(([, { isMethod }]) => isMethod)
        .map(([member]) => member);
      assert.deepStrictEqual(
        sorted(declared),
        sorted(own.filter((member) => member !== 'constructor')),
        name
      );
    }
  });

  (hasFlow ? it : it.skip)('declare exactly what command buffers add', () => {
    assertNatives(flowObjects());
  });

  it('declare the members of a checked engine', () => {
    const engine = nq.checked(nq.load(modulePath).getEngine());
    assertMembers(engine, typings.membersOf(natives.get('Engine')), 'checked');
  });

  it('declare camera arguments in the order of the layouts', () => {
    const members = typings.membersOf(natives.get('Engine'));
    const cameras = [
      ['frustumCulling', nq.layout.frustumCullingArguments],
      ['frustumCullingV2', nq.layout.frustumCullingArguments],
      ['cullWithCamera', nq.layout.frustumCullingArguments],
      ['orthoCulling', nq.layout.orthoCullingArguments],
      ['orthoCullingV2', nq.layout.orthoCullingArguments],
    ];
    for (const [name, places] of cameras) {
      const [{ parameters }] = members.get(name).calls;
      assert.strictEqual(parameters.length, places.list + 1, name);
      parameters.forEach((parameter, i) => {
        assert.strictEqual(
          parameter.isOptional,
          i >= places.required,
          `${name}: ${parameter.name}`
        );
      });
      for (const place of Object.keys(places).filter((key) => key !== 'required')) {
        const isPoint = ['eye', 'target', 'up'].includes(place);
        const names = isPoint ? ['X', 'Y', 'Z'].map((axis) => place + axis) : [place];
        const found = parameters.slice(places[place], places[place] + names.length);
        assert.deepStrictEqual(
          found.map((parameter) => parameter.name),
          names,
          name
        );
      }
    }
  });
});

/** Kind of a value, as in `Typings.kindsOf`. */
function kindOf(value) {
  return typeof value === 'object' && value !== null ? 'object' : String(value);
}

/** Results of all native methods, for each outcome that doesn't end the process. */
function nativeResults() {
  const engine = nq.load(modulePath).getEngine();
  const eye = [0, 0, 10, 0, 0, 0, 0, 1, 0];
  const perspective = [1, ...eye, 1, 1, 0.1, 100];
  const orthographic = [1, ...eye, -5, 5, -5, 5, 0.1, 100];
  const away = [1, 0, 0, 10, 0, 0, 20, 0, 1, 0];
  const refused = new ArrayBuffer(4);
  const entity = engine.createEntity(true);
  const place = new nq.Entity3DView(entity);
  place.reset(0);
  new nq.EntityCommandWriter(engine).addRoot(entity.id);
  new nq.DirtyListWriter(engine).append(entity.id);
  const clip = engine.createDataModel(
    1,
    nq.buildClip({ framesPerSecond: 30, frameCount: 1, curves: [] })
  );
  const lists = nq.TargetListsView.from([{ clip: clip.id, entities: [entity.id] }]);
  const given = [lists.buffer, 0, 1, 2];
  const binding = engine.createAnimationClipBinding(...given, 1);
  const controller = engine.createAnimatorControllerModel(1);
  const animator = engine.createComponent(2, 1, 1);
  new nq.AnimatorView(animator, 1).setClip(0, clip.id, 0, 1);
  const skin = engine.createComponent(3, 1);
  const bones = engine.createDataModel(2, new Float32Array(16));
  const skinning = new nq.SkinningView(skin);
  skinning.setBonesModel(bones.id);
  skinning.setBone(0, 0, entity.id);
  const kept = [];
  /** Visible objects: one first, then more than the buffer has room for. */
  const addObjects = (count) => {
    const objects = new nq.CullingObjectsView(engine.createComponent(1, count));
    for (let i = 0; i < count; ++i) {
      objects.setEnabled(i, true);
      objects.setMask(i, 1);
      objects.setSphere(i, 0, 0, 0, 1);
      objects.setEntity(i, entity.id);
    }
    kept.push(objects);
  };
  const results = {
    createEntity: [engine.createEntity(), engine.createEntity(true, 5000)],
    createComponent: [engine.createComponent(1), engine.createComponent(2, 0, 0)],
    createDataModel: [clip, bones],
    createAnimationClipBinding: [binding, engine.createAnimationClipBinding(refused, 0, 1, 2, 1)],
    createAnimatorControllerModel: [controller, engine.createAnimatorControllerModel(0)],
    createAnimatorControllerStateModel: [engine.createAnimatorControllerStateModel(0)],
    setEntityName: [engine.setEntityName(entity.id, 'box'), engine.setEntityName(1, 'none')],
    refreshWorldTransform: [engine.refreshWorldTransform()],
    updateAnimator: [engine.updateAnimator(animator.id), engine.updateAnimator(1)],
    updateAnimators: [engine.updateAnimators(Uint32Array.of(1, animator.id))],
    updateAnimatorControllers: [engine.updateAnimatorControllers(Uint32Array.of(1, controller.id))],
    updateSkinningMatrix: [engine.updateSkinningMatrix(skin.id), engine.updateSkinningMatrix(1)],
    updateSkinningMatrices: [engine.updateSkinningMatrices(Uint32Array.of(2, skin.id, 1).buffer)],
    frustumCullingV2: [],
    orthoCullingV2: [],
  };
  addObjects(1);
  for (const [name, camera, end] of [
    ['frustumCulling', perspective, [1, 1, 0.1, 100]],
    ['cullWithCamera', perspective, [1, 1, 0.1, 100]],
    ['orthoCulling', orthographic, [-1, 1, -1, 1, 0.1, 100]],
  ]) {
    results[name] = [engine[name](...camera), engine[name](...away, ...end)];
  }
  results.orthoCullingV2.push(engine.orthoCullingV2(...orthographic, refused));
  results.frustumCullingV2.push(engine.frustumCullingV2(...perspective, refused));
  results.orthoCullingV2.push(engine.orthoCullingV2(...orthographic));
  results.frustumCullingV2.push(engine.frustumCullingV2(...perspective));
  addObjects(1000); // 1001: one more than there is room for
  results.orthoCullingV2.push(engine.orthoCullingV2(...orthographic));
  addObjects(481); // 1482: one more than the room for 1001 and 480 further ones
  results.frustumCullingV2.push(engine.frustumCullingV2(...perspective));
  return {
    Engine: results,
    EngineAnimationClipBinding: {
      updateBinding: [
        binding.updateBinding(...given, 0, 0, 1),
        binding.updateBinding(refused, 0, 1, 2, 0, 0, 1),
      ],
      writeDefaultValues: [binding.writeDefaultValues()],
    },
    EngineAnimatorControllerModel: {
      update: [controller.update(0, refused)],
      setMaskAtIndex: [
        controller.setMaskAtIndex(0, new ArrayBuffer(8), 0, 1),
        controller.setMaskAtIndex(0, refused, 0, 1),
      ],
    },
  };
}

/** Results of methods for command buffers. */
function flowResults() {
  const engine = nq.loadMatrixFlow(flowPath).getEngine();
  const run = (write) => {
    const buffer = engine.createMatrixFlowCommandBuffer(128);
    write(new nq.MatrixFlowWriter(buffer), new Uint32Array(buffer.buffer), buffer.memoryID);
    return buffer.execute();
  };
  return {
    EngineWithMatrixFlow: {
      createMatrixFlowCommandBuffer: [engine.createMatrixFlowCommandBuffer(8)],
    },
    EngineMatrixFlowCommandBuffer: {
      execute: [
        run(() => {}),
        engine.createMatrixFlowCommandBuffer(0).execute(),
        run((writer, words) => words.set([4, nq.matrixFlowCommands.scalarAdd])),
        run((writer, words) => words.set([8, 77, 0])),
        run((writer, words, id) => writer.scalarCopy(id, 1000, id, 0)),
        run((writer, words, id) => writer.scalarDiv(id, 120, id, 124, id, 120)),
      ],
    },
  };
}

/** Compares results with the declared ones: each occurs, and no other does. */
function assertResults(results) {
  for (const name of Object.keys(results)) {
    const declared = typings.membersOf(natives.get(name));
    for (const method of Object.keys(results[name])) {
      const kinds = new Set();
      for (const { result } of declared.get(method).calls) {
        typings.kindsOf(result).forEach((kind) => kinds.add(kind));
      }
      const found = new Set(results[name][method].map(kindOf));
      assert.deepStrictEqual(sorted(found), sorted(kinds), `${name}.${method}`);
    }
  }
}

describe('declared results of native methods', () => {
  it('are exactly those that occur', () => {
    const results = nativeResults();
    assertResults(results);
    for (const name of Object.keys(results)) {
      assert.deepStrictEqual(sorted(Object.keys(results[name])), sorted(methods[name]));
    }
  });

  (hasFlow ? it : it.skip)('are those that come of command buffers', () => {
    assertResults(flowResults());
  });

  it('have the declared properties', () => {
    const { frustumCulling } = nativeResults().Engine;
    assertMembers(frustumCulling[0], typings.membersOf(natives.get('CullingAnswer')), 'answer');
    const { getVersion, getEngine } = nq.load(modulePath);
    const [{ result }] = typings.callsOf(typings.valuesOf('index').get('getVersion'));
    assert.deepStrictEqual(
      Object.keys(getVersion()),
      result.getProperties().map(({ name }) => name)
    );
    const module = typings.membersOf(typings.exportsOf('load').get('NativeModule'));
    assertMembers(Object.assign({}, { getVersion, getEngine }), module, 'module');
  });
});

// --- Users.

describe('typings in use', () => {
  const script = { allowJs: true, checkJs: true, strict: false };

  /** Compiler errors of a script in a project with the package installed. */
  function complaintsOn(texts) {
    const changes = Object.assign({ types: ['node'], skipLibCheck: true }, script);
    return complaints(compile([], texts, changes));
  }

  it('accept the examples', () => {
    const texts = {};
    for (const file of fs.readdirSync(path.join(root, 'examples'))) {
      if (/^\d\d-.*\.js$/.test(file)) {
        const text = fs.readFileSync(path.join(root, 'examples', file), 'utf8');
        texts[`examples/${file}`] = text
          .replace("require('../lib')", "require('nq_logic')")
          .replace("require('../scene')", "require('nq_logic/scene')")
          .replace(/require\('\.\.\/lib\//g, "require('nq_logic/lib/");
      }
    }
    assert(Object.keys(texts).length >= 8);
    // The compiler does not know the length of an array that the script created.
    const own =
      /A spread argument must either have a tuple type|is not assignable to type '\[any, any/;
    assert.deepStrictEqual(
      complaintsOn(texts).filter((line) => !own.test(line)),
      []
    );
  });

  it('reject errors in a script', () => {
    const lines = [
      "const nq = require('nq_logic');",
      "const { importGltf } = require('nq_logic/lib/gltf');",
      'const engine = nq.getEngine();',
      'engine.updateAnimator(engine.createComponent(3, 1).id);',
      'importGltf(4);',
      "nq.importGltf('fox.glb');",
    ];
    const found = complaintsOn({ 'examples/wrong.js': lines.join('\n') });
    assert.deepStrictEqual(
      found.map((line) => line.replace(/: .*/, '')),
      ['examples/wrong.js:4', 'examples/wrong.js:5', 'examples/wrong.js:6']
    );
  });

  it('let nodes and what else scenes make be named, but not made', () => {
    const text = `
import { AnimationLayer, Character, Node, Recording, Scene } from 'nq_logic/scene';
const scene = new Scene();
const node: Node = scene.node();
const found: Character | null = node instanceof Character ? node : null;
const recording: Recording = scene.record();
new Node();
new Character();
new AnimationLayer();
new Recording();
export { found, recording };`.trim();
    const found = complaints(compile([], { 'examples/made.ts': text }));
    assert.deepStrictEqual(
      found.map((line) => /made\.ts:(\d+).*is protected/.exec(line)[1]),
      ['6', '7', '8', '9']
    );
  });

  it('accept the programs of docs/typescript.md, and reject its errors', () => {
    const text = fs.readFileSync(path.join(root, 'docs', 'typescript.md'), 'utf8');
    const texts = {};
    for (const [, program] of text.matchAll(/^```ts\n([^]*?)^```$/gm)) {
      texts[`docs/program${Object.keys(texts).length}.ts`] = program;
    }
    assert.strictEqual(Object.keys(texts).length, 4);
    assert.deepStrictEqual(complaints(compile([], texts)), []);
  });

  it('accept the program on the front page of the API reference', () => {
    const text = fs.readFileSync(path.join(root, 'types', 'api.md'), 'utf8');
    const [, program] = /^```ts\n([^]*?)^```$/m.exec(text);
    assert.deepStrictEqual(complaints(compile([], { 'types/program.ts': program })), []);
  });
});
