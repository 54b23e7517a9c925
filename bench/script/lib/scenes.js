'use strict';
// The trees for all contenders, their changed nodes, and new transforms.
const { createRandom } = require('./random');

/**
 * A tree under one root. Parents come before their children, the root is node 0. `places`, if any, are the positions of
 * the nodes in the batches of the module, which are the same as their numbers otherwise.
 * @typedef {{name: string, count: number, parents: Int32Array, scales: Float32Array,
 *   places: (Int32Array|undefined)}} Tree
 */

/** Bones by parent: hips; spine, neck, head; face; two arms with four fingers; two legs. */
const skeleton = [-1];

function grow(parent, length) {
  let last = parent;
  for (let i = 0; i < length; ++i) {
    skeleton.push(last);
    last = skeleton.length - 1;
  }
  return last;
}

const chest = grow(0, 3);
const head = grow(chest, 2);
for (let i = 0; i < 4; ++i) {
  grow(head, 1);
}
for (let side = 0; side < 2; ++side) {
  const hand = grow(chest, 4);
  for (let finger = 0; finger < 4; ++finger) {
    grow(hand, 3);
  }
}
for (let side = 0; side < 2; ++side) {
  grow(0, 4);
}

/** Bones of one character. */
const bonesPerCharacter = skeleton.length;

function createTree(name, parents, scaleSpread) {
  const random = createRandom(7);
  const scales = new Float32Array(parents.length * 3);
  for (let i = 0; i < scales.length; ++i) {
    scales[i] = 1 + scaleSpread * (2 * random() - 1);
  }
  return { name, count: parents.length, parents, scales };
}

const builders = {
  /** Every node has 4 to 8 children; numbered breadth-first, as a level loader would create it. */
  large_tree(count) {
    const random = createRandom(1);
    const parents = new Int32Array(count).fill(-1);
    let next = 1;
    for (let node = 0; next < count; ++node) {
      const end = Math.min(count, next + 4 + Math.floor(random() * 5));
      for (; next < end; ++next) {
        parents[next] = node;
      }
    }
    return createTree('large_tree', parents, 0.05);
  },

  /** Characters of 50 bones under one root, contiguous. */
  humanoids(count) {
    const characters = Math.max(1, Math.round(count / bonesPerCharacter));
    const parents = new Int32Array(1 + characters * bonesPerCharacter).fill(-1);
    for (let c = 0; c < characters; ++c) {
      const first = 1 + c * bonesPerCharacter;
      for (let bone = 0; bone < bonesPerCharacter; ++bone) {
        parents[first + bone] = bone === 0 ? 0 : first + skeleton[bone];
      }
    }
    return createTree('humanoids', parents, 0.05);
  },

  /** All nodes are children of the root. */
  wide_tree(count) {
    const parents = new Int32Array(count);
    parents[0] = -1;
    return createTree('wide_tree', parents, 0.05);
  },

  /** Every node has one child. Scales are 1: they would multiply over the depth. */
  chain(count) {
    return createTree(
      'chain',
      Int32Array.from({ length: count }, (_, i) => i - 1),
      0
    );
  },
};

/**
 * Builds a tree by its name.
 * @param {string} name one of `treeNames`
 * @param {number} count nodes; humanoids round to whole characters
 * @returns {Tree}
 */
function buildTree(name, count) {
  return builders[name](count);
}

/** Limb of a bone: trunk and head, arms, legs. */
const limbEnds = [10, 26, 42, 46, bonesPerCharacter];
const limbOf = (bone) => limbEnds.findIndex((end) => bone < end);

/** Ways to number the humanoids within a batch; each returns the sort key of a node. */
const numberings = {
  'depth first': () => (node) => node,
  'limb by limb': () => (node) => node === 0 ? 0 : limbOf((node - 1) % bonesPerCharacter),
  random: () => {
    const random = createRandom(3);
    return () => random();
  },
};

/**
 * The same humanoids, with their nodes at other places within each batch. The depth-first one is as without places.
 * @param {Tree} tree
 * @param {string} numbering one of `numberingNames`
 * @param {number} batchSize
 * @returns {Tree}
 */
function renumber(tree, numbering, batchSize) {
  const keyOf = numberings[numbering]();
  const places = new Int32Array(tree.count);
  for (let first = 0; first < tree.count; first += batchSize) {
    const size = Math.min(batchSize, tree.count - first);
    const keys = Array.from({ length: size }, (_, i) => ({
      node: first + i,
      key: keyOf(first + i),
    }));
    keys.sort((a, b) => a.key - b.key || a.node - b.node);
    keys.forEach(({ node }, i) => {
      places[node] = first + i;
    });
  }
  return Object.assign({}, tree, { places });
}

/**
 * The nodes that change in a frame, ascending: whole characters among humanoids, single nodes from
 * all over the tree otherwise. Everything, root included, for 100 percent.
 * @param {Tree} tree
 * @param {number} percent
 * @returns {Int32Array}
 */
function selectPercent(tree, percent) {
  if (percent === 100) {
    return Int32Array.from({ length: tree.count }, (_, i) => i);
  }
  if (tree.name !== 'humanoids') {
    return selectCount(tree, Math.max(1, Math.round((tree.count * percent) / 100)));
  }
  const characters = (tree.count - 1) / bonesPerCharacter;
  const chosen = pick(characters, Math.max(1, Math.round((characters * percent) / 100)));
  const nodes = new Int32Array(chosen.length * bonesPerCharacter);
  for (let i = 0; i < nodes.length; ++i) {
    const character = chosen[Math.floor(i / bonesPerCharacter)];
    nodes[i] = 1 + character * bonesPerCharacter + (i % bonesPerCharacter);
  }
  return nodes;
}

/**
 * `count` nodes from all over the tree, without the root, ascending.
 * @param {Tree} tree
 * @param {number} count
 * @returns {Int32Array}
 */
function selectCount(tree, count) {
  return pick(tree.count - 1, count).map((node) => node + 1);
}

/** `count` different numbers below `limit`, ascending. */
function pick(limit, count) {
  const random = createRandom(limit ^ count);
  const numbers = Int32Array.from({ length: limit }, (_, i) => i);
  for (let i = 0; i < count; ++i) {
    const j = i + Math.floor(random() * (limit - i));
    const swapped = numbers[i];
    numbers[i] = numbers[j];
    numbers[j] = swapped;
  }
  return numbers.slice(0, count).sort();
}

/**
 * Number of world matrices that change with `dirty`: those nodes and all descendants.
 * @param {Tree} tree
 * @param {Int32Array} dirty
 * @returns {number}
 */
function countAffected(tree, dirty) {
  const affected = new Uint8Array(tree.count);
  for (const node of dirty) {
    affected[node] = 1;
  }
  let count = affected[0];
  for (let node = 1; node < tree.count; ++node) {
    affected[node] |= affected[tree.parents[node]];
    count += affected[node];
  }
  return count;
}

/**
 * The position of each node in depth-first order, where subtrees are contiguous.
 * @param {Tree} tree
 * @returns {Int32Array}
 */
function preorder(tree) {
  const sizes = new Int32Array(tree.count).fill(1);
  for (let node = tree.count - 1; node > 0; --node) {
    sizes[tree.parents[node]] += sizes[node];
  }
  const slots = new Int32Array(tree.count);
  const nextSlots = new Int32Array(tree.count); // for the next child of each node
  nextSlots[0] = 1;
  for (let node = 1; node < tree.count; ++node) {
    const parent = tree.parents[node];
    slots[node] = nextSlots[parent];
    nextSlots[parent] += sizes[node];
    nextSlots[node] = slots[node] + 1;
  }
  return slots;
}

/** Numbers of a node's new transform: rotation (4 or 3), then position (3). */
const valuesPerNode = { quaternion: 7, euler: 6 };

/**
 * New transforms of `dirty` nodes, enough different sets that a frame never repeats the previous one.
 * @param {Int32Array} dirty
 * @param {string} mode 'quaternion' or 'euler'
 * @param {number} frames number of sets
 * @param {number} seed
 * @returns {Float32Array[]} per frame, `valuesPerNode[mode]` numbers per node
 */
function createValues(dirty, mode, frames, seed) {
  const random = createRandom(seed);
  const stride = valuesPerNode[mode];
  const sets = [];
  for (let frame = 0; frame < frames; ++frame) {
    const values = new Float32Array(dirty.length * stride);
    for (let at = 0; at < values.length; at += stride) {
      if (mode === 'quaternion') {
        const q = [random() - 0.5, random() - 0.5, random() - 0.5, random() + 0.1];
        const length = Math.hypot(q[0], q[1], q[2], q[3]);
        values.set(
          q.map((c) => c / length),
          at
        );
      } else {
        values.set([random() * 6 - 3, random() * 3 - 1.5, random() * 6 - 3], at);
      }
      values.set([random() * 4 - 2, random() * 4 - 2, random() * 4 - 2], at + stride - 3);
    }
    sets.push(values);
  }
  return sets;
}

const treeNames = Object.keys(builders);
const numberingNames = Object.keys(numberings);

module.exports = {
  buildTree,
  countAffected,
  createValues,
  numberingNames,
  preorder,
  renumber,
  selectCount,
  selectPercent,
  treeNames,
  valuesPerNode,
};
