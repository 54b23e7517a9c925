'use strict';
// Random words in the shared memory of a checked engine, and random calls: `checked-random.js SEED`. What
// is accepted must not end the process, and what is refused must throw a readable error. Prints on stderr how many
// were accepted; the module's log goes to stdout.
const assert = require('assert');
const fs = require('fs');
const { modulePath } = require('../support/host');
const { clipBytes, frustum, none, targetLists } = require('../support/checked');
const { checked } = require('../../../lib/checked');
const { matrixFlowCommands } = require('../../../lib/commands');
const { createRandom } = require('../../../bench/script/lib/random');

const kRounds = 8000;
const flowPath = process.env.NQ_MATRIXFLOW_MODULE;
const hasFlow = flowPath !== undefined && fs.existsSync(flowPath);
const build = require(hasFlow ? flowPath : modulePath);

function play(seed, rounds) {
  const random = createRandom(seed);
  const engine = checked(build.getEngine(), {
    onHint: ({ message }) => assert(/^[^:]+: .+: .+\.$/.test(message), message),
  });
  const below = (n) => Math.floor(random() * n);
  const pick = (list) => list[below(list.length)];
  const entities = [engine.createEntity(true, 4), engine.createEntity(false, 3)];
  const clips = [1, 2].map((n) => engine.createDataModel(1, clipBytes(n)));
  const bones = engine.createDataModel(2, new Float32Array(48));
  const animators = [0, 1].map(() => engine.createComponent(2, 2, 3));
  const skins = [0, 1].map(() => engine.createComponent(3, 2));
  const states = [0, 1, 2].map(() => engine.createAnimatorControllerStateModel(1));
  const controllers = [0, 1].map(() => engine.createAnimatorControllerModel(2));
  const lists = (id) => targetLists([[id, [entities[0].id, entities[0].id + 1]]]);
  const bindings = clips.map(({ id }) => engine.createAnimationClipBinding(...lists(id), 1));
  const objects = engine.createComponent(1, 4);
  const flows = !hasFlow ? [] : [0, 1].map(() => engine.createMatrixFlowCommandBuffer(96));
  const types = Object.values(matrixFlowCommands);
  const handles = [0, none, 4096, 4097, 4098, 4099, 4100, 8192, 8193, 8195, 12288, 16384];
  const word = () => (random() < 0.7 ? pick(handles) : below(9));
  const batch = () => {
    const count = below(3);
    const words = [count, 1, 2].map((w, i) => (i === 0 ? w : pick([4096, 8192])));
    return Uint32Array.from(words);
  };
  const scribble = ({ buffer }) => {
    const words = new Uint32Array(buffer);
    words[below(words.length)] = word();
  };
  const setFloat = ({ buffer }, index) => {
    new Float32Array(buffer)[index] = pick([0, 0.5, 1, NaN, 2]);
  };
  const stream = (buffer, numbers, room) => {
    const words = new Uint32Array(buffer);
    const length = below(room);
    for (let i = 1; i <= length && i < words.length; ++i) {
      words[i] = random() < 0.4 ? pick(numbers) : word();
    }
    words[0] = random() < 0.02 ? pick([1, none, 49152, 97]) : 4 * length;
  };
  const commandNumbers = [1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11];
  const actions = [
    () => stream(engine.entityCommands, commandNumbers, 7),
    () => {
      // Whole commands, so that many are accepted.
      const number = pick(commandNumbers.filter((n) => n !== 7 && n !== 9));
      const count = number === 3 ? 3 : [2, 6].includes(number) ? 2 : 1;
      const operands = Array.from({ length: count }, () => 4096 + below(4));
      new Uint32Array(engine.entityCommands).set([4 * (1 + count), number, ...operands]);
      engine.refreshWorldTransform();
    },
    () => engine.refreshWorldTransform(),
    () => stream(engine.dirtyEntities, handles, 4),
    () => new Uint32Array(engine.dirtyEntities).set([2, 4096 + below(4), 8192]),
    () => {
      new Uint32Array(engine.entityCommands)[0] = 0;
      new Uint32Array(engine.dirtyEntities)[0] = 0;
      engine.refreshWorldTransform();
    },
    () => scribble(pick([...animators, ...skins, ...states, ...controllers, objects])),
    () => {
      const animator = pick(animators);
      const words = new Uint32Array(animator.buffer);
      words.set([pick(clips).id, 0, 0, pick(clips).id, 0, 0, 4096, 4097, word()]);
      setFloat(animator, 1);
      setFloat(animator, 2);
      setFloat(animator, 5);
    },
    () => {
      new Uint32Array(pick(skins).buffer).set([bones.id, below(4), 1, 4096, 4097]);
    },
    () => {
      const state = pick(states);
      new Uint32Array(state.buffer).set([0, 0, pick([0, ...states.map(({ id }) => id)])]);
      new Uint32Array(state.buffer)[3] = pick(clips).id;
      [0, 1, 4, 5].forEach((index) => setFloat(state, index));
    },
    () => {
      const controller = pick(controllers);
      const words = [pick(bindings).id, below(2), 0, pick(states).id, below(3), 0, word()];
      new Uint32Array(controller.buffer).set(words);
      setFloat(controller, 2);
      setFloat(controller, 5);
    },
    () => engine.updateAnimator(pick([4096, 8192, 12288])),
    () => engine.updateSkinningMatrix(pick([4096, 8192, 12288])),
    () => engine.updateAnimators(batch()),
    () => engine.updateSkinningMatrices(batch()),
    () => engine.updateAnimatorControllers(batch()),
    () => pick(controllers).update(0, new ArrayBuffer(0)),
    () => {
      const mask = Uint32Array.of(word(), 0, word(), 0).buffer;
      pick(controllers).setMaskAtIndex(below(3), mask, 4 * below(3), below(3));
    },
    () => {
      const words = Uint32Array.from({ length: 6 }, word);
      words[0] = pick(clips).id;
      words[1] = below(5);
      const modes = [below(8), below(8), below(8)];
      pick(bindings).updateBinding(words.buffer, 0, below(3), below(6), ...modes);
    },
    () => {
      const record = Uint32Array.of(below(2), 1, 0, 0, 0, 0, word());
      new Uint32Array(objects.buffer).set(record, 7 * below(4));
    },
    () => engine.frustumCullingV2(...frustum),
    () => engine.frustumCulling(...frustum, Uint32Array.of(below(4), word(), word()).buffer),
    () => {
      const bytes = new Uint32Array(clipBytes(1));
      bytes[below(bytes.length)] = word();
      const { id } = engine.createDataModel(1, bytes);
      new Uint32Array(animators[0].buffer)[0] = id;
    },
  ];
  if (hasFlow) {
    const memory = [...flows, ...animators, ...entities].map(({ memoryID }) => memoryID);
    actions.push(
      () => {
        const target = pick(flows);
        const reference = () => [pick(memory), pick([0, 4, 40, 88, 92, 96, none - 3])];
        const type = pick(types);
        const commands = [type, ...reference(), ...reference(), ...reference()];
        if (type === 1) {
          commands[1] = pick(flows).id;
        }
        const words = new Uint32Array(target.buffer);
        words.set([4 * commands.length, ...commands]);
      },
      () => stream(pick(flows).buffer, types, 20),
      () => pick(flows).execute(),
      () => pick(flows).execute()
    );
  }
  const counts = { passed: 0, refused: 0 };
  for (let i = 0; i < rounds; ++i) {
    try {
      pick(actions)();
      ++counts.passed;
    } catch (error) {
      // Any other error is a defect.
      assert(/^[a-zA-Z0-9]+: .+: .+\.$/.test(error.message), `seed ${seed}: ${error.stack}`);
      ++counts.refused;
    }
  }
  return counts;
}

const counts = play(Number(process.argv[2]), kRounds);
fs.writeSync(2, JSON.stringify(counts));
