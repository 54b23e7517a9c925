'use strict';
// The module, used as documented: whole batches, transforms written directly into the shared records, one dirty list,
// one call per frame.
const { over } = require('../../../tests/script/support/blocks');
const { entityCommands, rotationModes } = require('../../../lib/layout');
const {
  batchCapacity,
  copyWorld,
  createEntities,
  dirtyCapacity,
  getEngine,
  linkTree,
  positionAt,
  recordWords,
  rotationAt,
  scaleAt,
  setRotationModes,
} = require('../lib/native-scene');

/**
 * The contender.
 * @param {import('../lib/scenes').Tree} tree
 * @param {{heldRoot: boolean}} options for frames with more entries than the list can hold: keep the root inactive
 *   until the last pass, so that the world pass runs once; or not, with the deepest nodes listed first and the root
 *   last
 */
function createNative(tree, options = { heldRoot: true }) {
  const engine = getEngine();
  const created = createEntities(engine, tree.count);
  const { objects, records } = created;
  const placeOf = (node) => (tree.places === undefined ? node : tree.places[node]);
  const handles = Uint32Array.from({ length: tree.count }, (_, i) => created.handles[placeOf(i)]);
  for (let node = 0; node < tree.count; ++node) {
    const place = placeOf(node);
    const record = records[Math.floor(place / batchCapacity)];
    record.set(
      tree.scales.subarray(3 * node, 3 * node + 3),
      (place % batchCapacity) * recordWords + scaleAt
    );
  }
  linkTree(engine, tree.parents, handles);
  const dirtyWords = over(Uint32Array, engine.dirtyEntities);
  const commandWords = over(Uint32Array, engine.entityCommands);

  // The changes of a frame, in list order. Nodes of one batch are consecutive, so a span holds the batch once: its
  // records, and its end in the arrays.
  let dirtyHandles = new Uint32Array(0);
  let offsets = new Uint32Array(0);
  let valueOffsets = new Uint32Array(0);
  let spans = [];
  let passEnds = [];
  let mode = 'quaternion';

  function writeQuaternions(record, values, from, to, listed) {
    for (let k = from; k < to; ++k) {
      const at = offsets[k];
      const v = valueOffsets[k];
      record[at + rotationAt] = values[v];
      record[at + rotationAt + 1] = values[v + 1];
      record[at + rotationAt + 2] = values[v + 2];
      record[at + rotationAt + 3] = values[v + 3];
      record[at + positionAt] = values[v + 4];
      record[at + positionAt + 1] = values[v + 5];
      record[at + positionAt + 2] = values[v + 6];
      dirtyWords[++listed] = dirtyHandles[k];
    }
    return listed;
  }

  function writeEuler(record, values, from, to, listed) {
    for (let k = from; k < to; ++k) {
      const at = offsets[k];
      const v = valueOffsets[k];
      record[at + rotationAt] = values[v];
      record[at + rotationAt + 1] = values[v + 1];
      record[at + rotationAt + 2] = values[v + 2];
      record[at + positionAt] = values[v + 3];
      record[at + positionAt + 1] = values[v + 4];
      record[at + positionAt + 2] = values[v + 5];
      dirtyWords[++listed] = dirtyHandles[k];
    }
    return listed;
  }

  function writePass(values, spanAt, end) {
    const write = mode === 'quaternion' ? writeQuaternions : writeEuler;
    let listed = 0;
    while (spanAt < spans.length && spans[spanAt].from < end) {
      const span = spans[spanAt];
      listed = write(span.record, values, span.from, span.to, listed);
      ++spanAt;
    }
    dirtyWords[0] = listed;
    return spanAt;
  }

  function runPasses(values, call) {
    let spanAt = 0;
    const held = options.heldRoot && passEnds.length > 1;
    for (let pass = 0; pass < passEnds.length; ++pass) {
      if (held && (pass === 0 || pass === passEnds.length - 1)) {
        commandWords[1] = pass === 0 ? entityCommands.deactivate : entityCommands.activate;
        commandWords[2] = handles[0];
        commandWords[0] = 8;
      }
      spanAt = writePass(values, spanAt, passEnds[pass]);
      if (call) {
        engine.refreshWorldTransform();
      }
    }
  }

  return {
    name: 'nq',

    setDirty(dirty, rotationMode) {
      mode = rotationMode;
      const stride = mode === 'quaternion' ? 7 : 6;
      const count = dirty.length;
      dirtyHandles = new Uint32Array(count);
      offsets = new Uint32Array(count);
      valueOffsets = new Uint32Array(count);
      spans = [];
      passEnds = [];
      let span = null;
      // In the order of the records.
      const order = Float64Array.from(dirty, (node, k) => placeOf(node) * count + k).sort();
      for (let k = 0; k < count; ++k) {
        const source = order[options.heldRoot ? k : count - 1 - k] % count;
        const node = dirty[source];
        const place = placeOf(node);
        const batch = Math.floor(place / batchCapacity);
        dirtyHandles[k] = handles[node];
        offsets[k] = (place % batchCapacity) * recordWords;
        valueOffsets[k] = source * stride;
        const newPass = k % dirtyCapacity === 0;
        if (newPass || span.batch !== batch) {
          span = { batch, record: records[batch], from: k, to: k };
          spans.push(span);
        }
        span.to = k + 1;
        if (newPass) {
          passEnds.push(count);
          if (passEnds.length > 1) {
            passEnds[passEnds.length - 2] = k;
          }
        }
      }
      // The mode is a separate byte, written once.
      setRotationModes(objects, rotationModes[mode]);
    },

    frame(values) {
      runPasses(values, true);
    },

    /** Only the JavaScript part of a frame: everything except the calls. */
    write(values) {
      runPasses(values, false);
      dirtyWords[0] = 0;
      commandWords[0] = 0;
    },

    idle() {
      engine.refreshWorldTransform();
    },

    world(out) {
      for (let node = 0; node < tree.count; ++node) {
        copyWorld(records, placeOf(node), out, 16 * node);
      }
    },
  };
}

module.exports = { createNative };
