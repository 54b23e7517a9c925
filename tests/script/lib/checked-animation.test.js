'use strict';
// The checked engine on bindings, players and batches; calls that end the process without it; and a whole scene,
// whose results must be the same as without it.
const assert = require('assert');
const { over } = require('../support/blocks');
const fs = require('fs');
const path = require('path');
const { spawnSync } = require('child_process');
const { modulePath } = require('../support/host');
const { collect, collectUntil } = require('../support/collect');
const { Lab, assertWords, clipBytes, counted, none, targetLists } = require('../support/checked');
const { hostileObjects } = require('../support/hostile');
const { cases, silences } = require('../support/checked-ends');
const { playScene } = require('../support/checked-scene');
const { randomNumbers } = require('../support/reference');
const { buildClip, sampleTypes } = require('../../../lib/clip');
const { checked } = require('../../../lib/checked');

const nq = require(modulePath);
const flowPath = process.env.NQ_MATRIXFLOW_MODULE;
const flow = flowPath !== undefined && fs.existsSync(flowPath) ? require(flowPath) : null;

describe('target lists of a checked engine', () => {
  const lab = new Lab(nq);
  const { engine } = lab;
  const { id } = lab.entities(3);
  const flat = lab.entities(2, false);
  const clip = lab.clip(2);
  const binding = lab.binding([[clip.id, [id, id + 1]]]);

  const methods = [
    [
      'createAnimationClipBinding',
      (...args) =>
        () =>
          engine.createAnimationClipBinding(...args),
      1,
    ],
    [
      'updateBinding',
      (...args) =>
        () =>
          binding.updateBinding(...args),
      3,
    ],
  ];
  for (const [method, call, modes] of methods) {
    const mode = new Array(modes).fill(1);

    it(`are refused by ${method} if they are not in an ArrayBuffer`, () => {
      const [buffer, ...rest] = targetLists([[clip.id, [id]]]);
      const views = [new Uint32Array(buffer), new DataView(buffer)];
      for (const value of [undefined, null, 7, ...views, ...hostileObjects()]) {
        lab.refuses(
          call(value, ...rest, ...mode),
          TypeError,
          `${method}: buffer is`,
          'ArrayBuffer'
        );
      }
    });

    it(`are refused by ${method} for invalid numbers`, () => {
      const args = targetLists([[clip.id, [id]]]);
      const names = ['byteOffset', 'clipCount', 'targetWords'];
      names.forEach((name, i) => {
        for (const value of [-1, 0.5, NaN, 2 ** 32]) {
          const given = args.slice();
          given[1 + i] = value;
          lab.refuses(call(...given, ...mode), RangeError, `${method}: ${name} is ${value}`);
        }
        for (const value of [undefined, '1', null]) {
          const given = args.slice();
          given[1 + i] = value;
          lab.refuses(call(...given, ...mode), TypeError, `${method}: ${name} is`);
        }
      });
      const modeNames = modes === 1 ? ['mode'] : ['removedMode', 'keptMode', 'addedMode'];
      modeNames.forEach((name, i) => {
        lab.refuses(call(...args, ...mode.slice(0, i)), TypeError, `${name} is undefined`);
        const given = mode.slice();
        given[i] = -1;
        lab.refuses(call(...args, ...given), RangeError, `${name} is -1`);
      });
    });

    it(`are refused by ${method} if they extend beyond the buffer`, () => {
      const [buffer, , clips, words] = targetLists([[clip.id, [id]]]);
      const short = call(buffer, 4, clips, words, ...mode);
      lab.refuses(short, RangeError, method, 'end at 16', 'buffer has 12 bytes');
      const wrapping = call(buffer, 0, 0x40000000, 0xc0000000, ...mode);
      lab.refuses(wrapping, RangeError, method, 'end at 17179869184');
    });

    it(`are refused by ${method} for unknown clips and entities`, () => {
      const lists = (groups) => call(...targetLists(groups), ...mode);
      const noClip = lists([
        [clip.id, [id]],
        [8192, [id]],
      ]);
      lab.refuses(
        noClip,
        RangeError,
        'clip 1 of the lists, 8192 names no clip',
        'it is the handle'
      );
      lab.refuses(lists([[0, [id]]]), RangeError, 'clip 0 of the lists, 0 names no clip');
      for (const handle of [0, id + 3, 99 * 4096]) {
        const found = `target 1 of clip 0, ${handle} names no entity`;
        lab.refuses(lists([[clip.id, [id, handle]]]), RangeError, method, found);
      }
      const found = `target 0 of clip 0, ${flat.id} is a 2D entity`;
      lab.refuses(lists([[clip.id, [flat.id]]]), RangeError, found, '0xFFFFFFFF for nothing');
    });

    it(`are refused by ${method} if a group extends too far`, () => {
      const words = Uint32Array.of(clip.id, 3, id, id + 1, id + 2).buffer;
      const far = call(words, 0, 1, 3, ...mode);
      lab.refuses(far, RangeError, 'list of clip 0 ends at word 4', 'targetWords is 3');
      const second = Uint32Array.of(clip.id, clip.id, 1, id, 0).buffer;
      const cut = call(second, 0, 2, 2, ...mode);
      lab.refuses(cut, RangeError, 'list of clip 1 ends at word 3', 'targetWords is 2');
      const huge = Uint32Array.of(clip.id, none, id).buffer;
      lab.refuses(call(huge, 0, 1, 2, ...mode), RangeError, `ends at word ${2 ** 32}`);
    });

    it(`are accepted by ${method} with gaps, duplicates, empty, or at odd offsets`, () => {
      const [buffer, , clips, words] = targetLists([[clip.id, [none, id]]]);
      const moved = new Uint8Array(buffer.byteLength + 3);
      moved.set(new Uint8Array(buffer), 3);
      lab.passes(call(moved.buffer, 3, clips, words, ...mode));
      lab.passes(call(buffer, 0, clips, words, ...mode.map(() => none)));
      lab.passes(call(...targetLists([[clip.id, []]]), ...mode));
      const twice = targetLists([
        [clip.id, [id]],
        [clip.id, [id + 1]],
      ]);
      lab.passes(call(...twice, ...mode));
    });
  }

  it('require a count at creation, but not at an update', () => {
    const words = targetLists([[clip.id, [id]]]);
    const noClips = () => engine.createAnimationClipBinding(words[0], 0, 0, 1, 1);
    lab.refuses(noClips, RangeError, 'clipCount is 0', 'from 1');
    const noWords = () => engine.createAnimationClipBinding(words[0], 0, 1, 0, 1);
    lab.refuses(noWords, RangeError, 'targetWords is 0', 'from 1');
    const emptied = () => binding.updateBinding(new ArrayBuffer(4), 0, 0, 0, 2, 0, 0);
    assert.strictEqual(lab.passes(emptied), true);
    // Natively false, for a buffer without bytes.
    const nowhere = () => binding.updateBinding(new ArrayBuffer(0), 0, 0, 0, 2, 0, 0);
    lab.refuses(nowhere, RangeError, 'updateBinding', 'buffer has 0 bytes', 'at least one byte');
  });

  it('are refused natively with false if they exceed the words at creation', () => {
    const small = lab.binding([[clip.id, [id]]]);
    const longer = targetLists([[clip.id, [id, id + 1, id + 2]]]);
    assert.strictEqual(
      lab.passes(() => small.updateBinding(...longer, 0, 0, 1)),
      false
    );
    assert.strictEqual(small.writeDefaultValues(), null);
  });
});

describe('animators of a checked engine', () => {
  const lab = new Lab(nq);
  const { engine } = lab;
  const { id } = lab.entities(4);
  const flat = lab.entities(1, false);
  const clip = lab.clip(2);
  const update =
    ({ id: handle }) =>
    () =>
      engine.updateAnimator(handle);

  it('are refused for records without a clip, of any weight', () => {
    for (const handle of [0, none, 99 * 4096]) {
      const animator = lab.animator([[clip.id], [handle, 0]], [id, id + 1]);
      const found = `animator ${animator.id}, clip 1: ${handle} names no clip`;
      lab.refuses(update(animator), RangeError, 'updateAnimator', found, 'createDataModel(1');
      lab.refuses(() => engine.updateAnimators(counted(animator.id)), RangeError, found);
    }
  });

  it('are refused for a target table that is too short for the playing clips', () => {
    const short = lab.animator([[clip.id]], [id]);
    const words = ['its 2 targets end at entry 2', 'which has 1', 'sum over its clips'];
    lab.refuses(update(short), RangeError, `animator ${short.id}, clip 0`, ...words);
    const second = lab.animator([[clip.id, 0], [clip.id]], [id, id + 1, id]);
    lab.refuses(update(second), RangeError, 'clip 1', 'end at entry 4 of the target table');
  });

  it('are refused for targets that name no entity', () => {
    const animator = lab.animator([[clip.id]], [id, id + 4]);
    const found = `entry 1 of the targets: ${id + 4} names no entity`;
    lab.refuses(update(animator), RangeError, `animator ${animator.id}, ${found}`);
  });

  it('are accepted if they are valid', () => {
    for (const [records, table] of [
      [[[clip.id]], [id, id + 1]],
      [[[clip.id]], [id, id]],
      [[[clip.id]], [0, none]],
      [[[clip.id]], [flat.id, id, 12345]], // entries after the targets
      [
        [[clip.id], [clip.id, 0]],
        [id, id + 1],
      ], // no part in it, no targets
      [[[clip.id, 2]], [id]],
      [[[clip.id, -1]], [id]],
      [[[clip.id, NaN]], [id]],
      [
        [
          [clip.id, 0.5],
          [clip.id, 0.5],
        ],
        [id, id + 1, id + 1, id],
      ],
    ]) {
      const animator = lab.animator(records, table);
      over(DataView, animator).setFloat32(4, NaN, true);
      assert.strictEqual(lab.passes(update(animator)), null);
    }
  });
});

describe('skinning components of a checked engine', () => {
  const lab = new Lab(nq);
  const { engine } = lab;
  const { id } = lab.entities(2);
  const flat = lab.entities(2, false);
  const model = lab.keep(engine.createDataModel(2, new Float32Array(32)));
  const update =
    ({ id: handle }) =>
    () =>
      engine.updateSkinningMatrix(handle);

  it('are refused for input that would end the process', () => {
    for (const handle of [0, none, 99 * 4096]) {
      const skin = lab.skin(handle, [[0, id]]);
      const found = `skinning component ${skin.id}, model ${handle} names no model`;
      lab.refuses(update(skin), RangeError, found, 'createDataModel(2');
      const bone = lab.skin(model.id, [
        [0, id],
        [0, handle],
      ]);
      lab.refuses(update(bone), RangeError, `entity of bone 1: ${handle} names no entity`);
    }
  });

  it('are refused for matrices beyond the model, and for 2D beside 3D bones', () => {
    const beyond = lab.skin(model.id, [
      [1, id],
      [2, id],
    ]);
    lab.refuses(update(beyond), RangeError, 'bone 1 has matrix 2 of a model of 2', '0xFFFFFFFF');
    const mixed = lab.skin(model.id, [
      [0, id],
      [1, flat.id],
    ]);
    lab.refuses(
      update(mixed),
      RangeError,
      'bones 0 and 1 are of both kinds',
      'different components'
    );
  });

  it('are refused twice in a batch, but may share all that they read', () => {
    const bones = [
      [0, id],
      [none, id + 1],
      [0, id],
    ];
    const skins = [lab.skin(model.id, bones), lab.skin(model.id, bones)];
    const flatSkin = lab.skin(model.id, [
      [0, flat.id],
      [1, flat.id + 1],
    ]);
    const batch =
      (...handles) =>
      () =>
        engine.updateSkinningMatrices(counted(...handles));
    lab.passes(batch(skins[0].id, skins[1].id, flatSkin.id));
    const [{ id: first }] = skins;
    const twice = batch(first, skins[1].id, first + 1);
    lab.refuses(twice, RangeError, `handles, entry 2: ${first} is in the batch twice`);
  });
});

describe('controllers of a checked engine', () => {
  const lab = new Lab(nq);
  const { engine } = lab;
  const { id } = lab.entities(4);
  const flat = lab.entities(1, false);
  const clip = lab.clip(2);
  const other = lab.clip(1);
  const binding = lab.binding([[clip.id, [id, id + 1]]]);
  const state = lab.state([[clip.id]]);
  const ways = [
    ['update', (controller) => () => controller.update(0, new ArrayBuffer(0))],
    [
      'updateAnimatorControllers',
      (controller) => () => engine.updateAnimatorControllers(counted(controller.id)),
    ],
  ];

  for (const [method, update] of ways) {
    it(`are refused by ${method} for unknown handles`, () => {
      const gone = 99 * 4096;
      const unbound = lab.controller(gone, [[0, none]]);
      const label = `${method}: controller ${unbound.id}, binding ${gone} names no binding`;
      lab.refuses(update(unbound), RangeError, label, 'createAnimationClipBinding');
      const stateless = lab.controller(binding.id, [
        [2, 0],
        [1, gone],
      ]);
      lab.refuses(update(stateless), RangeError, `layer 1, first state ${gone} names no state`);
      const cut = lab.state([[clip.id]], { next: gone });
      const chained = lab.controller(binding.id, [[0, cut.id]]);
      lab.refuses(update(chained), RangeError, `next state of ${cut.id}: ${gone} names no state`);
    });

    it(`are refused by ${method} for states that loop`, () => {
      const first = lab.state([[clip.id]], { weight: 0 });
      const second = lab.state([[clip.id]], { next: first.id });
      over(Uint32Array, first)[2] = second.id;
      const controller = lab.controller(binding.id, [
        [0, state.id],
        [1, second.id],
      ]);
      const words = [`controller ${controller.id}, layer 1`, `loops back to ${second.id}`];
      lab.refuses(update(controller), RangeError, method, ...words, '0xFFFFFFFF');
      // The chain of a layer that is off is not read.
      over(Uint32Array, controller)[4] = 2;
      lab.passes(update(controller));
    });

    it(`are refused by ${method} for clips of their binding that were collected`, async () => {
      const lost = (() => engine.createDataModel(1, clipBytes(2)).id)();
      const partly = lab.binding([
        [clip.id, [id]],
        [lost, [id + 1, id]],
      ]);
      const played = lab.state([[clip.id], [lost]]);
      const taken = lab.state([[clip.id, 1, lost]]);
      const playing = update(lab.controller(partly.id, [[0, played.id]]));
      const added = update(lab.controller(partly.id, [[1, taken.id]]));
      const isRefused = (call, ...words) => {
        try {
          call();
          return false;
        } catch (error) {
          assertWords(call, RangeError, method, ...words, 'collected: keep what createDataModel(1');
          return true;
        }
      };
      const words = `state ${played.id}, clip 1: ${lost} names no clip`;
      assert(await collectUntil(() => isRefused(playing, words)));
      assert(isRefused(added, `state ${taken.id}, clip 0, reference: ${lost} names no clip`));
    });

    it(`skip a clip without a list in ${method}, and take its start for a reference`, () => {
      for (const gone of [0, none, 99 * 4096, id + 1]) {
        const [plain, guarded] = [true, false].map((isPlain) => {
          const one = new Lab(nq, isPlain);
          const batch = one.entities(4);
          const moving = one.clip(2);
          const lists = one.binding([[moving.id, [batch.id, batch.id + 1]]]);
          const states = [
            one.state([[gone], [moving.id]]),
            one.state([
              [moving.id, 0.5, gone],
              [gone, 1, moving.id],
            ]),
          ];
          const controller = one.controller(lists.id, [
            [0, states[0].id],
            [1, states[1].id],
          ]);
          if (method === 'update') {
            controller.update(0, new ArrayBuffer(0));
          } else {
            one.engine.updateAnimatorControllers(counted(controller.id));
          }
          return Buffer.from(batch.buffer.slice(0));
        });
        assert.strictEqual(plain.readFloatLE(20), 1);
        assert(plain.equals(guarded), `${gone}`);
      }
    });

    it(`are accepted by ${method} if they are valid`, () => {
      const gone = 99 * 4096;
      const skipped = lab.state([[clip.id], [gone, 0]], { next: 0 });
      const weightless = lab.state([[gone]], { weight: 0 });
      for (const [handle, layers] of [
        [0, [[0, gone]]],
        [none, [[0, gone]]],
        [
          binding.id,
          [
            [2, gone],
            [0, 0],
            [1, none],
          ],
        ],
        [
          binding.id,
          [
            [0, skipped.id],
            [1, skipped.id],
          ],
        ],
        [binding.id, [[0, weightless.id]]],
        [binding.id, [[0, lab.state([[0], [none]]).id]]],
        [binding.id, [[0, lab.state([[other.id]]).id]]], // without a list in the binding
        [binding.id, [[0, lab.state([[clip.id, 1, gone]]).id]]], // references are not used
        [binding.id, [[1, lab.state([[clip.id, NaN, other.id]], { weight: NaN }).id]]],
        [binding.id, [[0, lab.state([[clip.id]], { fillDefaults: NaN }).id]]],
      ]) {
        const controller = lab.controller(handle, layers);
        over(DataView, controller).setFloat32(8, NaN, true);
        assert.strictEqual(lab.passes(update(controller)), null);
      }
    });
  }

  it('are refused by update without an ArrayBuffer as second argument', () => {
    const controller = lab.controller(binding.id, [[0, state.id]]);
    for (const args of [[], [0], [0, 7], [0, new Uint8Array(4)], [new ArrayBuffer(4)]]) {
      const call = () => controller.update(...args);
      lab.refuses(call, TypeError, 'update: the second argument is', 'only an ArrayBuffer');
    }
  });

  it('refuse masks that would be ignored', () => {
    const controller = lab.controller(binding.id, [
      [0, none],
      [0, none],
    ]);
    const mask =
      (...args) =>
      () =>
        controller.setMaskAtIndex(...args);
    const bytes = Uint32Array.of(id, 0, id + 1, 0).buffer;
    lab.refuses(mask(2, bytes, 0, 2), RangeError, 'setMaskAtIndex: layer is 2', 'from 0 to 1');
    lab.refuses(mask(-1, bytes, 0, 2), RangeError, 'layer is -1');
    lab.refuses(mask('0', bytes, 0, 2), TypeError, "layer is '0'");
    lab.refuses(mask(0, new Uint8Array(bytes), 0, 2), TypeError, 'buffer is a Uint8Array');
    lab.refuses(mask(0, bytes, 4, 2), RangeError, '2 records from byte 4 end at 20', '16 bytes');
    lab.refuses(mask(0, bytes, 17, 0), RangeError, 'from byte 17 end at 17');
    lab.refuses(mask(0, bytes, 0, 0x20000000), RangeError, 'end at 4294967296');
    lab.refuses(mask(0, new ArrayBuffer(0), 0, 0), RangeError, 'buffer has 0 bytes', 'one byte');
    for (const value of [NaN, -1, 1.5]) {
      lab.refuses(mask(0, bytes, value, 1), RangeError, `byteOffset is ${value}`);
      lab.refuses(mask(0, bytes, 0, value), RangeError, `count is ${value}`);
    }
    lab.refuses(mask(0, bytes), TypeError, 'byteOffset is undefined');
    lab.refuses(mask(0, bytes, 0), TypeError, 'count is undefined');
    const gone = Uint32Array.of(id, 0, id + 4, 0).buffer;
    lab.refuses(mask(0, gone, 0, 2), RangeError, `entity of record 1: ${id + 4} names no entity`);
    const plane = Uint32Array.of(flat.id, 0).buffer;
    lab.refuses(mask(0, plane, 0, 1), RangeError, `record 0: ${flat.id} is 2D`);
    for (const args of [
      [0, bytes, 0, 2],
      [1, bytes, 8, 1],
      [1, bytes, 16, 0],
      [0, new ArrayBuffer(1), 0, 0],
      [0, Uint32Array.of(id, 0, id, 1, 0, 0, none, 0).buffer, 0, 4],
    ]) {
      assert.strictEqual(lab.passes(mask(...args)), null);
    }
  });
});

describe('batches of a checked engine', () => {
  function fixture(rooted = true) {
    const lab = new Lab(nq);
    const entities = lab.entities(6);
    const { id } = entities;
    if (rooted) {
      lab.run([1, id], ...[1, 2, 3, 4, 5].map((i) => [2, id, id + i]));
    }
    const clip = lab.clip(1);
    const animate =
      (...objects) =>
      () =>
        lab.engine.updateAnimators(counted(...objects.map((object) => object.id)));
    const control =
      (...objects) =>
      () =>
        lab.engine.updateAnimatorControllers(counted(...objects.map((object) => object.id)));
    return { lab, id, clip, animate, control };
  }

  it('are refused if two animators move one entity', () => {
    const { lab, id, clip, animate } = fixture();
    const a = lab.animator([[clip.id]], [id + 1]);
    const b = lab.animator([[clip.id], [clip.id, 0]], [id + 2, id + 1]);
    const c = lab.animator(
      [
        [clip.id, 0.5],
        [clip.id, 0.5],
      ],
      [id + 3, id + 1]
    );
    lab.passes(animate(a, b));
    const words = [`${a.id} and ${c.id} both move entity ${id + 1}`, 'different batches'];
    lab.refuses(animate(b, a, c), RangeError, 'updateAnimators', ...words);
    lab.refuses(animate(a, a), RangeError, `entry 1: ${a.id} is in the batch twice`);
    const flat = lab.entities(1, false).id;
    const [d, e] = [0, 1].map(() => lab.animator([[clip.id]], [flat]));
    lab.refuses(animate(d, e), RangeError, `${d.id} and ${e.id} both move entity ${flat}`);
    lab.passes(animate(c));
  });

  it('are refused if two players write into a tree under no root', () => {
    const { lab, id, clip, animate } = fixture(false);
    lab.run([2, id, id + 1], [2, id, id + 2]);
    const a = lab.animator([[clip.id]], [id + 1]);
    const b = lab.animator([[clip.id]], [id + 2]);
    const apart = lab.animator([[clip.id]], [id + 3]);
    lab.passes(animate(a, apart));
    lab.refuses(
      animate(a, apart, b),
      RangeError,
      `the tree of ${id}, which has no root`,
      a.id,
      b.id
    );
    lab.run([1, id]);
    lab.passes(animate(a, apart, b));
  });

  it('are refused if a player computes bones that entities of another player follow', () => {
    const { lab, id, clip, animate } = fixture(false);
    // 2 is below 1; 3 follows it.
    lab.run([2, id + 1, id + 2], [6, id + 3, id + 2]);
    const bone = lab.animator([[clip.id]], [id + 1]);
    const follower = lab.animator([[clip.id]], [id + 3]);
    const apart = lab.animator([[clip.id]], [id]);
    lab.passes(animate(bone, apart));
    lab.passes(animate(apart, follower));
    for (const batch of [animate(bone, follower), animate(follower, apart, bone)]) {
      lab.refuses(
        batch,
        RangeError,
        `${bone.id} and ${follower.id} both write entity ${id + 3}`,
        `follows bone ${id + 2} of the tree of ${id + 1}, which has no root`,
        `add ${id + 1} as a root`
      );
    }
    // The tree of another player has the follower.
    lab.run([2, id, id + 3]);
    lab.refuses(animate(apart, bone), RangeError, `both write entity ${id + 3}`);
    // What is inactive is not computed.
    lab.run([11, id + 2]);
    lab.passes(animate(apart, bone));
    lab.run([10, id + 2]);
    lab.refuses(animate(apart, bone), RangeError, `both write entity ${id + 3}`);
    lab.run([1, id + 1]);
    lab.passes(animate(apart, bone));
  });

  it('are refused if controllers share a binding', () => {
    const { lab, id, clip, control } = fixture();
    const binding = lab.binding([[clip.id, [id + 1]]]);
    const a = lab.controller(binding.id, [[2, 0]]);
    const b = lab.controller(binding.id, [[2, 0]]);
    const words = [`${a.id} and ${b.id} share the binding ${binding.id}`, 'different batches'];
    lab.refuses(control(a, b), RangeError, 'updateAnimatorControllers', ...words);
    lab.passes(control(a));
    lab.passes(control(a, lab.controller(none, [[0, 0]]), lab.controller(0, [[0, 0]])));
  });

  it('are refused if controllers move one entity, and only then', () => {
    const { lab, id, clip, control } = fixture();
    const upper = lab.clip(2);
    const groups = [
      [clip.id, [id + 1]],
      [upper.id, [id + 1, id + 2]],
    ];
    const state = lab.state([[clip.id]]);
    const a = lab.controller(lab.binding(groups).id, [[0, state.id]]);
    const binding = lab.binding([
      [upper.id, [none, id + 2, id + 1]],
      [clip.id, [id + 3]],
    ]);
    const b = lab.controller(binding.id, [[0, lab.state([[upper.id]]).id]]);
    // The third entry of that list is no target of the clip.
    lab.passes(control(a, b));
    const c = lab.controller(lab.binding(groups).id, [[1, lab.state([[upper.id]]).id]]);
    const shared = `${a.id} and ${c.id} both move entity ${id + 1}`;
    lab.refuses(control(a, c), RangeError, shared, 'different batches');
    lab.refuses(control(b, c), RangeError, `both move entity ${id + 2}`);
    // A mask of 0 keeps it off.
    c.setMaskAtIndex(0, Uint32Array.of(id + 1, 0).buffer, 0, 1);
    lab.passes(control(a, c));
    lab.refuses(control(b, c), RangeError, `both move entity ${id + 2}`);
    c.setMaskAtIndex(0, new ArrayBuffer(8), 0, 0);
    lab.refuses(control(a, c), RangeError, shared);
    // Nor does a clip of weight 0 move it.
    const still = lab.state([[clip.id, 0]]);
    lab.passes(control(a, lab.controller(lab.binding(groups).id, [[0, still.id]])));
    // Without a rest pose nothing moves.
    const restless = lab.controller(lab.binding(groups, 0).id, [[0, state.id]]);
    lab.passes(control(a, restless));
    // With rest poses filled in, all that have one do.
    const filled = lab.state([[clip.id, 0]], { fillDefaults: 1 });
    const d = lab.controller(lab.binding(groups).id, [[0, filled.id]]);
    lab.refuses(control(b, d), RangeError, `both move entity ${id + 2}`);
  });

  it('are accepted if the batch of an entity that two would move was collected', async () => {
    const { lab, id, clip, control } = fixture();
    const gone = (() => lab.engine.createEntity(true).id)();
    const lists = [
      [clip.id, [id + 1]],
      [lab.clip(1).id, [gone]],
    ];
    const state = lab.state([[lists[1][0]]], { fillDefaults: 1 });
    const a = lab.controller(lab.binding([lists[1]]).id, [[0, state.id]]);
    const b = lab.controller(lab.binding(lists).id, [[0, state.id]]);
    const passes = () => {
      try {
        control(a, b)();
        return true;
      } catch (error) {
        assert(error.message.includes(`both move entity ${gone}`), error.message);
        return false;
      }
    };
    assert.strictEqual(passes(), false);
    assert(await collectUntil(passes));
  });

  it('are accepted with a reused handle whose rest pose an update removed', async () => {
    const { lab, id, clip, control } = fixture();
    const { engine } = lab;
    const first = (() => engine.createEntity(true).id)();
    const binding = lab.binding([[clip.id, [first]]]);
    const filling = lab.state([[clip.id]], { fillDefaults: 1 });
    const a = lab.controller(binding.id, [[0, filling.id]]);
    await collect();
    await collect();
    assert(binding.updateBinding(...targetLists([[clip.id, [id + 1]]]), 0, 0, 1));
    const later = lab.entities();
    assert.strictEqual(later.id, first);
    const other = lab.binding([[clip.id, [later.id]]]);
    const b = lab.controller(other.id, [[0, lab.state([[clip.id]]).id]]);
    lab.passes(control(a, b));
  });

  it('are refused with a reused handle whose rest pose is kept', async () => {
    const { lab, id, clip, control } = fixture();
    const { engine } = lab;
    const first = (() => engine.createEntity(true).id)();
    const binding = lab.binding([[clip.id, [first]]]);
    const a = lab.controller(binding.id, [[0, lab.state([[clip.id]], { fillDefaults: 1 }).id]]);
    assert(binding.updateBinding(...targetLists([[clip.id, [id + 1]]]), 0, 0, 1));
    await collect();
    await collect();
    const later = lab.entities();
    assert.strictEqual(later.id, first);
    const other = lab.binding([[clip.id, [later.id]]]);
    const b = lab.controller(other.id, [[0, lab.state([[clip.id]]).id]]);
    lab.refuses(control(a, b), RangeError, `both move entity ${first}`);
  });

  it('follow the rest poses through updates of a binding', () => {
    const { lab, id, clip, control } = fixture();
    const state = lab.state([[clip.id]]);
    const a = lab.controller(lab.binding([[clip.id, [id + 1]]]).id, [[0, state.id]]);
    const binding = lab.binding([[clip.id, [id + 1]]]);
    const b = lab.controller(binding.id, [[0, state.id]]);
    const both = `both move entity ${id + 1}`;
    const relist = (handle, ...modes) => {
      assert.strictEqual(
        binding.updateBinding(...targetLists([[clip.id, [handle]]]), ...modes),
        true
      );
    };
    for (const [kept, stays] of [
      [0, true],
      [1, true],
      [2, true],
      [3, true],
      [4, false],
      [7, false],
    ]) {
      relist(id + 1, 0, 1, 1);
      relist(id + 1, 0, kept, 0);
      if (stays) {
        lab.refuses(control(a, b), RangeError, both);
      } else {
        lab.passes(control(a, b));
      }
    }
    for (const [removed, stays] of [
      [0, true],
      [2, true],
      [1, false],
      [3, false],
    ]) {
      relist(id + 1, 0, 1, 1);
      relist(id + 2, removed, 0, 0);
      relist(id + 1, 0, 0, 0);
      if (stays) {
        lab.refuses(control(a, b), RangeError, both);
      } else {
        lab.passes(control(a, b));
      }
    }
    relist(id + 1, 1, 4, 0);
    relist(id + 1, 1, 4, 2);
    lab.passes(control(a, b));
  });

  it('are refused if the trees of two bindings meet under no root', () => {
    const { lab, id, clip, control } = fixture(false);
    lab.run([2, id, id + 1], [2, id, id + 2]);
    const state = lab.state([[clip.id]]);
    const play = (handle) => lab.controller(lab.binding([[clip.id, [handle]]]).id, [[0, state.id]]);
    const [a, b, apart] = [play(id + 1), play(id + 2), play(id + 3)];
    lab.passes(control(a, apart));
    lab.refuses(control(b, apart, a), RangeError, `the tree of ${id}, which has no root`);
    lab.run([1, id]);
    lab.passes(control(b, apart, a));
  });
});

describe('rest poses that blending enters by numbers, in a checked engine', () => {
  const { PositionX, ScaleZ, EulerX, EulerY, EulerZ } = sampleTypes;

  /** A clip of one target whose channels hold a value each. */
  function holding(lab, values) {
    const curves = Object.keys(values).map((type) => ({
      target: 0,
      type: Number(type),
      keys: [{ frame: 0, value: values[type], inTangent: 0, outTangent: 0 }],
    }));
    const bytes = buildClip({ framesPerSecond: 30, frameCount: 10, curves });
    return lab.keep(lab.engine.createDataModel(1, bytes));
  }

  /**
   * A controller that moves one entity by a clip, in a state of weight 0.5, and fills defaults in the layer
   * above; and one that moves one of three further entities, whose handles begin at `foreign`.
   */
  function fixture(values, { weight = 0.5, filled = true } = {}) {
    const lab = new Lab(nq);
    const { id } = lab.entities();
    const foreign = lab.entities(3).id;
    lab.run([1, id], [1, foreign], [1, foreign + 1], [1, foreign + 2]);
    const clip = holding(lab, values);
    const binding = lab.binding([[clip.id, [id]]]);
    const blending = lab.state([[clip.id]], { weight });
    const filling = lab.state([[clip.id, 0]], { fillDefaults: 1 });
    const own = lab.controller(binding.id, [
      [0, blending.id],
      [filled ? 0 : 2, filling.id],
    ]);
    const mover = lab.clip();
    const rival = (handle) => {
      const state = lab.state([[mover.id]]);
      return lab.controller(lab.binding([[mover.id, [handle]]]).id, [[0, state.id]]);
    };
    const control =
      (...objects) =>
      () =>
        lab.engine.updateAnimatorControllers(counted(...objects.map((object) => object.id)));
    return { lab, id, foreign, clip, binding, own, rival, control };
  }

  const words = (own, handle) => [
    `both move entity ${handle}`,
    `${own.id} by a rest pose that blending enters under that number`,
    'different batches',
  ];

  it('are compared with the other players of the batch that enters them', () => {
    // 0.5 x 16386 is 8193: element 1 of the second batch.
    const { lab, foreign, own, rival, control } = fixture({ [PositionX]: 16386 });
    assert.strictEqual(foreign, 8192);
    const [other, moved] = [rival(foreign), rival(foreign + 1)];
    lab.refuses(control(own, moved), RangeError, ...words(own, foreign + 1));
    lab.refuses(control(moved, own), RangeError, ...words(own, foreign + 1));
    lab.passes(control(own, other));
    lab.passes(control(own));
    lab.passes(control(moved));
  });

  it('are the blended number, truncated, of each channel that has a weight below 1', () => {
    for (const [values, options, offset] of [
      [{ [PositionX]: 8194.75 }, { weight: 1 }, null], // nothing is missing
      [{ [PositionX]: 8194.75 }, { weight: 2 }, null],
      [{ [PositionX]: 8190 }, { weight: -1 }, null],
      [{ [PositionX]: -8192 }, { weight: -1 }, 0],
      [{ [PositionX]: 16389.5 }, {}, 2],
      [{ [PositionX]: 16390 }, {}, null], // 8195, one past the batch
      [{ [ScaleZ]: 16384 }, {}, 0],
      [{ [ScaleZ]: 16383.5 }, {}, null], // 8191.75, without a rotation
      // A rotation is looked up by the z scale, which 0.5 x 1 completes: 8192.25.
      [{ [ScaleZ]: 16383.5, [EulerX]: 0, [EulerY]: 0, [EulerZ]: 0 }, {}, 0],
      [{ [ScaleZ]: 16383.5, [EulerX]: 0, [EulerY]: 0 }, {}, null], // only a part of one
    ]) {
      const { lab, foreign, own, rival, control } = fixture(values, options);
      for (let i = 0; i < 3; ++i) {
        const call = control(rival(foreign + i), own);
        if (i === offset) {
          lab.refuses(call, RangeError, ...words(own, foreign + i));
        } else {
          lab.passes(call);
        }
      }
    }
  });

  it('are found where a curve goes far beyond its keys', () => {
    const { lab, foreign, clip, rival, control } = fixture({ [PositionX]: 0 });
    // After a third of its 0.3 seconds the slope of the first key has the weight 4 / 27: 16387.
    const keys = [0, 9].map((frame) => ({
      frame,
      value: 0,
      inTangent: 0,
      outTangent: 368707.5,
    }));
    const curves = [{ target: 0, type: PositionX, keys }];
    const bytes = buildClip({ framesPerSecond: 30, frameCount: 10, curves });
    const steep = lab.keep(lab.engine.createDataModel(1, bytes));
    const state = lab.state([[steep.id]], { weight: 0.5 });
    over(DataView, state).setFloat32(16, 3, true);
    const groups = [
      [clip.id, [none]],
      [steep.id, [foreign]],
    ];
    const filling = lab.state([[clip.id, 0]], { fillDefaults: 1 });
    const plays = lab.controller(lab.binding(groups).id, [
      [0, state.id],
      [0, filling.id],
    ]);
    lab.refuses(control(plays, rival(foreign + 1)), RangeError, ...words(plays, foreign + 1));
  });

  it('stay for later updates, also of a handle that is assigned later', () => {
    const { lab, own, rival, control } = fixture({ [PositionX]: 2 * 40960 }, { filled: false });
    lab.passes(control(own));
    lab.passes(() => own.update(0, new ArrayBuffer(0)));
    const made = [];
    while (made.length < 8) {
      made.push(lab.entities());
    }
    assert.strictEqual(made[7].id, 40960);
    const moved = rival(made[7].id);
    lab.passes(control(own, moved));
    // The second layer begins to fill defaults.
    over(DataView, own).setUint32(4 + 12, 0, true);
    lab.refuses(control(own, moved), RangeError, ...words(own, made[7].id));
  });

  it('are not noted by a batch that is refused', () => {
    const { lab, foreign, own, rival, control } = fixture({ [PositionX]: 16386 });
    const blend = over(DataView, own);
    lab.refuses(control(own, rival(foreign + 1)), RangeError, ...words(own, foreign + 1));
    blend.setUint32(4, 2, true); // the layer is off
    lab.passes(control(own, rival(foreign + 1)));
  });

  it('are not written back over an entity by an update of the binding', () => {
    const { lab, id, foreign, clip, binding, own, rival, control } = fixture({
      [PositionX]: 16386,
    });
    lab.passes(control(own));
    const lists = (...handles) => targetLists([[clip.id, handles]]);
    const update =
      (handle, ...modes) =>
      () =>
        binding.updateBinding(...lists(handle), ...modes);
    const number = `an identity under the number ${foreign + 1}, which is an entity`;
    for (const mode of [2, 3]) {
      lab.refuses(update(id, mode, 0, 0), RangeError, `removedMode is ${mode}`, number);
      const relist = update(foreign + 1, 1, mode, 0);
      lab.refuses(relist, RangeError, `keptMode is ${mode}`, number);
    }
    lab.passes(update(id, 0, 2, 0));
    lab.refuses(control(own, rival(foreign + 1)), RangeError, ...words(own, foreign + 1));
    // The pose is dropped, and the layer that enters it is off.
    lab.passes(update(id, 1, 0, 0));
    over(DataView, own).setUint32(4, 2, true);
    lab.passes(control(own, rival(foreign + 1)));
    lab.passes(update(id, 3, 3, 0));
  });

  it('move an entity of the lists that had none', () => {
    const { lab, foreign, binding, own, rival, control } = fixture({ [PositionX]: 16386 });
    const second = lab.clip();
    lab.passes(control(own));
    const groups = [[second.id, [foreign + 1]]];
    assert.strictEqual(binding.updateBinding(...targetLists(groups), 0, 0, 0), true);
    const state = lab.state([[second.id]]);
    const plays = lab.controller(binding.id, [[0, state.id]]);
    lab.refuses(control(plays, rival(foreign + 1)), RangeError, `move entity ${foreign + 1}`);
  });

  /**
   * Blends clips of random curves and fills defaults, then moves all foreign entities without listing them and
   * refreshes: those whose matrices follow were marked, and so moved, by the controller.
   */
  function play(isPlain, seed) {
    const random = randomNumbers(seed);
    const lab = new Lab(nq, isPlain);
    const { engine } = lab;
    const kTargets = 6;
    const own = lab.entities(kTargets);
    const foreign = [4095, 4095].map((count) => lab.entities(count));
    foreign.forEach(({ id }) => {
      lab.run(...Array.from({ length: 4095 }, (_, i) => [1, id + i]));
    });
    const scales = over(Float32Array, own);
    for (let i = 0; i < kTargets; ++i) {
      scales[27 * i + 10] = 4 * random();
    }
    const clips = [0, 1].map(() => {
      const curves = [];
      for (let target = 0; target < kTargets; ++target) {
        // Channels of position and scale, and a rotation of one kind or the other.
        const rotation = random() < 0.5 ? [7, 8, 9] : [10, 11, 12, 13];
        for (const type of [1, 2, 3, 4, 5, 6, ...rotation]) {
          if (random() < 0.8 || type >= 10) {
            const keys = [0, 4, 9].map((frame) => ({
              frame,
              value: 30000 * random() - 6000,
              inTangent: 20000 * (random() - 0.5),
              outTangent: random() < 0.1 ? Infinity : 20000 * (random() - 0.5),
            }));
            curves.push({ target, type, keys });
          }
        }
      }
      const bytes = buildClip({ framesPerSecond: 30, frameCount: 12, curves });
      return lab.keep(engine.createDataModel(1, bytes));
    });
    const handles = Array.from({ length: kTargets }, (_, i) => own.id + i);
    const binding = lab.binding(clips.map(({ id }) => [id, handles]));
    const states = [0, 1].map(() => {
      const weight = 0.2 + 0.4 * random();
      const entries = clips.map(({ id }) => [id, random()]);
      const fillDefaults = random() < 0.5 ? 1 : 0;
      return lab.state(entries, { weight, fillDefaults });
    });
    new Uint32Array(states[0].buffer)[2] = states[1].id;
    const filling = lab.state([[clips[0].id, 0]], { fillDefaults: 1 });
    const controller = lab.controller(binding.id, [
      [0, states[0].id],
      [0, filling.id],
    ]);
    const mask = new DataView(new ArrayBuffer(8));
    mask.setUint32(0, own.id + 1, true);
    mask.setFloat32(4, random(), true);
    controller.setMaskAtIndex(0, mask.buffer, 0, 1);
    const mover = lab.clip();
    const rivals = lab.state([[mover.id]]);
    const rivalBinding = lab.binding([[mover.id, [foreign[0].id]]]);
    const rival = lab.controller(rivalBinding.id, [[0, rivals.id]]);
    const advance = (frame) =>
      states.forEach(({ buffer }) => {
        const view = new DataView(buffer);
        [0, 1].forEach((k) => view.setFloat32(16 + 20 * k, 0.73 * frame + 5 * k, true));
      });
    return { lab, foreign, controller, rivalBinding, mover, rival, advance };
  }

  for (const seed of [3, 14, 159, 2653]) {
    it(`are those that a plain engine enters, of random clips, seed ${seed}`, () => {
      const [plain, guarded] = [true, false].map((isPlain) => play(isPlain, seed));
      const seen = new Set();
      for (let frame = 0; frame < 12; ++frame) {
        [plain, guarded].forEach(({ lab, controller, advance }) => {
          advance(frame);
          lab.engine.refreshWorldTransform();
          lab.engine.updateAnimatorControllers(counted(controller.id));
        });
        plain.foreign.forEach(({ buffer }) => {
          const floats = new Float32Array(buffer);
          for (let i = 0; i < 4095; ++i) {
            floats[27 * i + 5] = frame + 2;
          }
        });
        // Local matrices of the plain engine were built before that; the next update builds them again.
        plain.lab.engine.updateAnimatorControllers(counted(plain.controller.id));
        plain.lab.engine.refreshWorldTransform();
        plain.foreign.forEach(({ id, buffer }) => {
          const floats = new Float32Array(buffer);
          for (let i = 0; i < 4095; ++i) {
            if (floats[27 * i + 11 + 12] === frame + 2) {
              seen.add(id + i);
            }
          }
        });
      }
      assert(seen.size > 10, `${seen.size} numbers`);
      const { lab, foreign, controller, rivalBinding, mover, rival } = guarded;
      const isRefused = (handle) => {
        const lists = targetLists([[mover.id, [handle]]]);
        assert.strictEqual(rivalBinding.updateBinding(...lists, 1, 1, 1), true);
        const call = () => lab.engine.updateAnimatorControllers(counted(controller.id, rival.id));
        try {
          call();
          return false;
        } catch (error) {
          assertWords(call, RangeError, ...words(controller, handle));
          return true;
        }
      };
      const refused = new Set();
      foreign.forEach(({ id }) => {
        for (let i = 0; i < 4095; ++i) {
          if (isRefused(id + i)) {
            refused.add(id + i);
          }
        }
      });
      assert.deepStrictEqual([...refused].sort(), [...seen].sort());
    });
  }
});

describe('a checked engine in the place of', () => {
  for (const name of Object.keys(cases)) {
    const { build, way, stage, type, words, prepare } = cases[name];
    const test = build === 'flow' && flow === null ? it.skip : it;
    test(`the end of the process by ${name} (${way})`, () => {
      const engine = checked((build === 'flow' ? flow : nq).getEngine());
      if (stage === 'prepare') {
        assertWords(() => prepare(engine), type, ...words);
      } else {
        assertWords(prepare(engine), type, ...words);
      }
      const script = path.join(__dirname, '..', 'process', 'checked.js');
      const run = (timeout) => {
        const options = { encoding: 'utf8', timeout, killSignal: 'SIGKILL' };
        return spawnSync(process.execPath, [script, name], options);
      };
      let result = run(way === 'hang' ? 1500 : 60000);
      // On a busy machine, 1.5 seconds may end before the call begins.
      if (way === 'hang' && result.stdout === '') {
        result = run(20000);
      }
      const told = `${result.error} ${result.signal} ${result.status} ${result.stderr}`;
      // Log lines of the module may follow.
      assert(result.stdout.startsWith('about to end\n'), told);
      assert(!result.stdout.includes('went on'), told);
      if (way === 'hang') {
        assert.strictEqual(result.error.code, 'ETIMEDOUT', told);
      } else {
        assert.strictEqual(result.error, undefined, told);
        assert(result.signal !== null || result.status !== 0, told);
      }
      if (way === 'abort') {
        assert.strictEqual(result.signal, 'SIGABRT', told);
      }
    });
  }
});

describe('a checked engine instead of a call that is silently ignored', () => {
  for (const name of Object.keys(silences)) {
    it(`about ${name}`, () => {
      const { run, native, type, words } = silences[name];
      assert.strictEqual(run(nq.getEngine()), native);
      assertWords(() => run(checked(nq.getEngine())), type, ...words);
    });
  }
});

describe('a scene in a checked engine', () => {
  for (const [label, module] of [
    ['the module', nq],
    ['the module with command buffers', flow],
  ]) {
    const test = module === null ? it.skip : it;
    test(`comes out as in a plain one, of ${label}`, () => {
      const plain = playScene(module.getEngine());
      const hints = [];
      const engine = checked(module.getEngine(), { onHint: (hint) => hints.push(hint) });
      const guarded = playScene(engine);
      assert.deepStrictEqual(hints, []);
      assert.strictEqual(guarded.length, plain.length);
      assert(plain.length > 200);
      plain.forEach((entry, i) => assert.deepStrictEqual(guarded[i], entry));
    });
  }
});

describe('a checked engine with random words in shared memory', () => {
  for (const seed of [1, 2, 3, 4, 5]) {
    it(`refuses them or continues, seed ${seed}`, () => {
      const script = path.join(__dirname, '..', 'process', 'checked-random.js');
      const options = { encoding: 'utf8', timeout: 60000, killSignal: 'SIGKILL' };
      const { status, signal, stderr } = spawnSync(process.execPath, [script, seed], options);
      assert.deepStrictEqual({ status, signal }, { status: 0, signal: null }, stderr);
      const { passed, refused } = JSON.parse(stderr);
      assert(passed > 2000 && refused > 1000, stderr);
    });
  }
});
