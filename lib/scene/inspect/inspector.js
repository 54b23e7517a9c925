'use strict';
// Shows a scene in pages of the inspector: gathers what pages draw after an update, while any is open.
const path = require('path');
const { performance } = require('perf_hooks');
const { entity3D } = require('../../layout');
const { Costs } = require('./costs');
const { modelMesh } = require('./display-mesh');
const protocol = require('./protocol');
const { PageServer, kAddress } = require('./server');

/**
 * @typedef {import('../../scene').Scene} Scene
 */

/**
 * Pages that show a scene, made by `scene.inspect()`.
 * @readonly
 * @typedef {Object} Inspector
 * @property {string} url Address of the page, for a browser on this machine.
 * @property {() => Promise<void>} close Disconnects all pages, and frees the port. It resolves when that is done.
 */

/** Milliseconds from one frame that pages are sent to the next, at least: screens show no more. */
const kLeastMilliseconds = 14;

/** Cameras that pages can choose from. */
const kMostCameras = 255;

/** Bounds are renewed when they are larger than what they hold by this factor. */
const kLooseBounds = 2;

const kMatrixFloats = 16;
const kWorldMatrix = entity3D.worldMatrix / 4;
const kTranslation = 12;

const stages = [
  ['animate', 'animate'],
  ['transform', 'transform'],
  ['cull', 'cull'],
  ['skin', 'skin'],
  ['inspect', 'inspect'],
];
const counters = ['nodes', 'characters', 'playing', 'skinned', 'passes'];

/** Colours of characters by the clips that they play, and of those that play none. */
const clipColors = [
  [0.36, 0.6, 0.92],
  [0.93, 0.49, 0.42],
  [0.42, 0.78, 0.62],
  [0.9, 0.74, 0.42],
  [0.68, 0.56, 0.9],
  [0.4, 0.78, 0.85],
];
const kPlain = [0.62, 0.65, 0.72];

/** Bones of a model, as pairs of nodes: those between joints, or all links of a model without skins. */
function bonesOf({ nodes, skins }) {
  const joints = new Set([].concat(...skins.map((skin) => skin.joints)));
  const pairs = [];
  nodes.forEach(({ parent }, node) => {
    if (parent >= 0 && (skins.length === 0 || (joints.has(node) && joints.has(parent)))) {
      pairs.push(node, parent);
    }
  });
  return pairs;
}

/** Numbers that grow; the same array in each frame. */
class Floats {
  constructor() {
    this.values = new Float32Array(256);
    this.length = 0;
  }

  push(value) {
    if (this.length === this.values.length) {
      const larger = new Float32Array(2 * this.length);
      larger.set(this.values);
      this.values = larger;
    }
    this.values[this.length++] = value;
  }

  /** Adds three numbers of an array. */
  pushPlace(array, at) {
    this.push(array[at]);
    this.push(array[at + 1]);
    this.push(array[at + 2]);
  }

  get used() {
    return this.values.subarray(0, this.length);
  }
}

/** What pages are sent of a scene. */
class SceneSource {
  /** @param {Scene} scene */
  constructor(scene) {
    this.scene = scene;
    this.costs = new Costs(stages.length);
    this.version = 0;
    this.limits = { sliders: [], cameras: kMostCameras, canPause: false };
    this.usualAspect = 1;
    this.server = null;
    /** Number of the last frame that pages were sent. */
    this.frameNumber = 0;
    this._start = performance.now();
    this._sentAt = -Infinity;
    /** What sending the last frame took: a page is sent it with the next one. */
    this._sendMilliseconds = 0;
    this._models = [];
    this._cameras = 0;
    /** Meshes of the models with the facts that pages are sent. */
    this._meshes = [];
    this._bones = new Map();
    this._treeVersion = -1;
    /** Nodes of the tree with the nodes that they are drawn below, and the characters. */
    this._nodes = [];
    this._above = [];
    this._characters = [];
    this._shownNodes = new Floats();
    this._segments = new Floats();
    this._spheres = new Floats();
    /** What each sphere is of. */
    this._objects = [];
    /** Characters whose meshes are drawn, by model. */
    this._bodies = new Map();
    this._bounds = null;
    this._sphere = new Float64Array(4);
  }

  control() {}

  /** Takes an update, and sends it to pages. */
  frame(milliseconds) {
    this.costs.push([...milliseconds, this._sendMilliseconds]);
    this._sendMilliseconds = 0;
    const now = performance.now();
    if (now - this._sentAt >= kLeastMilliseconds) {
      this._sentAt = now;
      this.show();
      this._sendMilliseconds = performance.now() - now;
    }
  }

  /** Sends the scene as it is. */
  show() {
    this._compareModels();
    this._gather();
    ++this.frameNumber;
    this.server.stream();
  }

  /** Pages need another scene message when models or cameras come or go. */
  _compareModels() {
    const { _models: models, _cameras: cameras } = this.scene;
    const found = Array.from(models.keys());
    const isSame =
      found.length === this._models.length && found.every((model, i) => model === this._models[i]);
    if (isSame && cameras.length === this._cameras && this.version > 0) {
      return;
    }
    ++this.version;
    this._models = found;
    this._cameras = cameras.length;
    this._meshes = [];
    this._bones = new Map();
    for (const model of found) {
      this._bones.set(model, bonesOf(model));
      model.meshes.forEach((mesh) => {
        const bones = mesh.skin < 0 ? 1 : model.skins[mesh.skin].joints.length;
        this._meshes.push({ model, mesh, bones, display: null });
      });
    }
  }

  /** The scene message. */
  describe() {
    this._compareModels();
    const arrays = {};
    this._meshes.forEach((entry, i) => {
      if (entry.display === null) {
        entry.display = modelMesh(entry.mesh, entry.bones);
      }
      Object.keys(entry.display).forEach((part) => {
        arrays[`${i}.${part}`] = entry.display[part];
      });
    });
    const names = this._models.map(({ name }) => path.basename(name)).filter((name) => name !== '');
    const facts = {
      title: 'inspector',
      name: names.length > 0 ? names.join(', ') : 'scene',
      subject: names.length > 0 ? `a scene with ${names.join(', ')}` : 'a scene',
      notes: [].concat(...this._models.map(({ warnings }) => warnings)),
      restart: '',
      unit: 0,
      stages,
      cameras: this.scene._cameras.slice(0, kMostCameras).map((_, i) => `Camera ${i + 1}`),
      counters,
      sliders: [],
      canPause: false,
      parts: ['meshes', 'spheres', 'skeletons', 'nodes'],
      meshes: this._meshes.map(({ model, bones }) => {
        return { name: model.name, bones, palettes: [[[0, 0, 0, 1]]], glow: null };
      }),
    };
    return protocol.encodeScene(facts, arrays, (text) => Buffer.from(text, 'utf8'));
  }

  /** Lists the nodes of the tree, if it has changed. */
  _readTree() {
    const { scene } = this;
    if (scene._changes.version === this._treeVersion) {
      return;
    }
    this._treeVersion = scene._changes.version;
    this._nodes = [];
    this._above = [];
    this._characters = [];
    const visit = (node, above) => {
      if (node._children !== null) {
        for (const child of node._children) {
          this._nodes.push(child);
          this._above.push(above);
        }
      }
    };
    visit(scene.root, null);
    for (let i = 0; i < this._nodes.length; ++i) {
      const node = this._nodes[i];
      visit(node, node);
      if (node._label === 'Character') {
        this._characters.push(node);
        if (node._parts !== null) {
          node._parts.forEach((part) => visit(part, part));
        }
      }
    }
  }

  /** Gathers what all pages are sent. */
  _gather() {
    this._readTree();
    const { scene } = this;
    this._shownNodes.length = 0;
    this._segments.length = 0;
    this._spheres.length = 0;
    this._objects.length = 0;
    this._bodies.clear();
    this._nodes.forEach((node, i) => {
      if (node._layers === 0) {
        return;
      }
      const at = node._word + kWorldMatrix + kTranslation;
      this._shownNodes.pushPlace(node._f32, at);
      const above = this._above[i];
      if (above !== null && above._layers !== 0) {
        this._segments.pushPlace(node._f32, at);
        this._segments.pushPlace(above._f32, above._word + kWorldMatrix + kTranslation);
      }
      if (node._object >= 0) {
        this._addSphere(node);
      }
    });
    const blocks = scene._blocks;
    for (const character of this._characters) {
      if (character._layers === 0) {
        continue;
      }
      const { model, _body: body } = character;
      const first = body.first + 1;
      for (const node of this._bones.get(model)) {
        const { f32 } = blocks.view(first + node);
        this._segments.pushPlace(f32, blocks.word(first + node) + kWorldMatrix + kTranslation);
      }
      // With `skin: 'visible'`, the matrices of others are of an earlier frame.
      if (scene._seenSkins === null || character._seen === scene._frame) {
        if (!this._bodies.has(model)) {
          this._bodies.set(model, []);
        }
        this._bodies.get(model).push(character);
      }
    }
    this._measure();
  }

  /** Adds the world sphere of a node: its radius grows with the longest axis, as for culling. */
  _addSphere(node) {
    const [x, y, z, radius] = this.scene._objects.readSphere(node._object, this._sphere);
    const { _f32: f32 } = node;
    const at = node._word + kWorldMatrix;
    let longest = 0;
    for (let column = 0; column < 3; ++column) {
      const c = at + 4 * column;
      longest = Math.max(longest, Math.hypot(f32[c], f32[c + 1], f32[c + 2]));
    }
    for (let row = 0; row < 3; ++row) {
      const r = at + row;
      this._spheres.push(f32[r] * x + f32[r + 4] * y + f32[r + 8] * z + f32[r + 12]);
    }
    this._spheres.push(radius * longest);
    this._objects.push(node);
  }

  /** Bounds of all; they stay as long as they fit, so that the view from outside is steady. */
  _measure() {
    const least = [Infinity, Infinity, Infinity];
    const most = [-Infinity, -Infinity, -Infinity];
    const include = (values, at, radius) => {
      for (let k = 0; k < 3; ++k) {
        const value = values[at + k];
        if (Number.isFinite(value) && Number.isFinite(radius)) {
          least[k] = Math.min(least[k], value - radius);
          most[k] = Math.max(most[k], value + radius);
        }
      }
    };
    const [places, ends, spheres] = [this._shownNodes, this._segments, this._spheres];
    for (let i = 0; i < places.length; i += 3) {
      include(places.values, i, 0);
    }
    for (let i = 0; i < ends.length; i += 3) {
      include(ends.values, i, 0);
    }
    for (let i = 0; i < spheres.length; i += 4) {
      include(spheres.values, i, spheres.values[i + 3]);
    }
    if (!(most[0] >= least[0] && most[1] >= least[1] && most[2] >= least[2])) {
      this._bounds = this._bounds || [0, 0, 0, 1, 0];
      return;
    }
    const middle = least.map((value, k) => (value + most[k]) / 2);
    const radius = Math.max(1e-6, Math.hypot(...least.map((value, k) => most[k] - value)) / 2);
    const last = this._bounds;
    const isFitting =
      last !== null &&
      last[3] <= kLooseBounds * radius &&
      Math.hypot(...middle.map((value, k) => value - last[k])) + radius <= last[3] * 1.01 &&
      least[1] >= last[4] - 0.01 * radius;
    if (!isFitting) {
      // With some room, so that what moves outwards does not renew them in every frame.
      this._bounds = [...middle, radius * 1.15, least[1]];
    }
  }

  /** The last frame as a page's camera saw it. */
  encode(page, skipped, takeBuffer) {
    const { scene, costs } = this;
    const cameras = scene._cameras.slice(0, kMostCameras);
    const instances = this._meshes.map(({ model }) => this._bodies.get(model) || []);
    const sum = (values) => values.reduce((total, value) => total + value, 0);
    const rows = costs.countSince(page.costsAt);
    const counts = {
      stages: stages.length,
      rows,
      cameras: cameras.length,
      sliders: 0,
      counters: counters.length,
      meshes: this._meshes.length,
      instances: sum(instances.map(({ length }) => length)),
      matrices: sum(instances.map(({ length }, i) => length * this._meshes[i].bones)),
      nodes: this._shownNodes.length / 3,
      segments: this._segments.length / 6,
      spheres: this._spheres.length / 4,
    };
    const bytes = protocol.frameBytes(counts);
    const buffer = takeBuffer(bytes);
    const camera = Math.min(page.camera, cameras.length - 1);
    const message = protocol.beginFrame(buffer, counts, {
      camera: camera < 0 ? protocol.kNoCamera : camera,
      flags: 0,
      frame: this.frameNumber,
      time: performance.now() - this._start,
      total: counts.spheres,
      skipped,
    });
    message.pose.fill(0);
    if (camera >= 0) {
      message.pose.set(poseOf(cameras[camera]));
    }
    message.bounds.set(this._bounds);
    costs.copyLast(message.history, rows);
    message.visible.set(cameras.map(({ visible }) => visible.count));
    const { stats } = scene;
    const { playing, skinned, passes } = stats;
    message.counters.set([scene.nodeCount, this._characters.length, playing, skinned, passes]);
    message.nodes.set(this._shownNodes.used);
    message.segments.set(this._segments.used);
    message.spheres.set(this._spheres.used);
    const seen = new Set(camera < 0 ? [] : cameras[camera].visible);
    this._objects.forEach((object, i) => {
      message.seen[i] = seen.has(object) ? 1 : 0;
    });
    this._writeInstances(message, instances);
    return new Uint8Array(buffer, 0, bytes);
  }

  _writeInstances(message, instances) {
    const blocks = this.scene._blocks;
    let [instance, float] = [0, 0];
    this._meshes.forEach(({ mesh, bones }, i) => {
      message.instanceCounts[i] = instances[i].length;
      for (const character of instances[i]) {
        const { _body: body } = character;
        message.ids[instance] = body.first;
        message.variants[instance] = 0;
        this._writeTint(message.tints, 3 * instance, body.player);
        if (mesh.skin >= 0) {
          // Copied unchanged from native memory.
          message.matrices.set(body.skins[mesh.skin].view.results, float);
        } else {
          const index = body.first + 1 + mesh.node;
          const at = blocks.word(index) + kWorldMatrix;
          message.matrices.set(blocks.view(index).f32.subarray(at, at + kMatrixFloats), float);
        }
        ++instance;
        float += kMatrixFloats * bones;
      }
    });
  }

  /** Mixes the colours of the clips that a character plays, without those of its layers. */
  _writeTint(tints, at, player) {
    const players = this.scene._players;
    const slots = player === null ? [] : player.base.slots;
    const total = slots.reduce((sum, slot) => sum + players.weightOf(slot.at), 0);
    for (let k = 0; k < 3; ++k) {
      tints[at + k] = total > 0 ? 0 : kPlain[k];
    }
    for (const slot of total > 0 ? slots : []) {
      const share = players.weightOf(slot.at) / total;
      const color = clipColors[slot.clip.index % clipColors.length];
      for (let k = 0; k < 3; ++k) {
        tints[at + k] += share * color[k];
      }
    }
  }
}

/** A camera as pages are sent it. */
function poseOf(camera) {
  const isPerspective = camera._isPerspective;
  const [, ...numbers] = isPerspective ? camera._perspective : camera._orthographic;
  return [isPerspective ? 0 : protocol.kOrthographic, ...numbers];
}

/** A readable error for a failed `listen`. */
function listenError(error, port) {
  const words = {
    EADDRINUSE: 'it is in use',
    EACCES: 'permission is denied',
  };
  const trouble = words[error.code] || error.message;
  const cure = 'give another one, or 0 for any that is free';
  const text = `Scene.inspect: port ${port} of ${kAddress} can't be opened, ${trouble}: ${cure}.`;
  return Object.assign(new Error(text), { code: error.code });
}

/**
 * Opens the pages of a scene.
 * @param {Scene} scene
 * @param {number} port
 * @returns {Promise<Inspector>}
 */
async function openInspector(scene, port) {
  const source = new SceneSource(scene);
  let inspector = null;
  const server = new PageServer(source, {
    isHolding: false,
    changed(pages) {
      if (scene._inspector !== inspector) {
        return; // pages that close after it: frames are those of the next one
      }
      scene._frames = pages > 0 ? source : null;
      if (pages > 0) {
        // A program that updates its scene seldom is shown, too.
        setImmediate(() => scene._frames === source && source.show());
      }
    },
  });
  source.server = server;
  let closed = null;
  inspector = {
    url: '',
    close() {
      if (closed === null) {
        scene._inspector = null;
        scene._frames = null;
        closed = server.close();
      }
      return closed;
    },
  };
  // At once, so that a second call finds it.
  scene._inspector = inspector;
  try {
    inspector.url = await server.listen(port);
  } catch (error) {
    scene._inspector = null;
    if (closed !== null) {
      throw new Error('Scene.inspect: the scene is disposed of: make a new one.');
    }
    throw listenError(error, port);
  }
  return inspector;
}

module.exports = { openInspector };
