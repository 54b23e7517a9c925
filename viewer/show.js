'use strict';
// The stage that pages show: the number of active characters, user control, cameras that follow the crowd's size, and
// encoding of a frame as a message.
const { performance } = require('perf_hooks');
const { palettes } = require('../demo/picture');
const { kGrip, kStick } = require('../demo/props');
const { stageTitles } = require('../demo/report');
const { Stage, stages } = require('../demo/stage');
const { Costs } = require('../lib/scene/inspect/costs');
const { displayMesh } = require('../lib/scene/inspect/display-mesh');
const protocol = require('../lib/scene/inspect/protocol');
const { DirectedLapPlan, DirectedPlacePlan, placeOf, steered } = require('./direction');
const { PageCulling } = require('./page-culling');

/** Places of the cameras in messages. */
const cameras = Object.freeze({ perspective: 0, overview: 1 });

/** Rate of the exponential approach of cameras to their target: after a second, e^-4 of the way is left. */
const kCameraRate = 4;

/** Longest step of scene time in seconds: after a pause of the process, the scene resumes without a jump. */
const kMostSeconds = 0.1;

/** Titles of stages in the page's table, where they differ from the demo's report. */
const titles = Object.assign({}, stageTitles, {
  perspective: 'cull, perspective',
  overview: 'cull, overview',
  stream: 'stream to the page',
});

/** A stage whose plan the user can control, and that is culled for pages of any aspect ratio. */
class DirectedStage extends Stage {
  constructor(...given) {
    super(...given);
    this.culling = new PageCulling(this.culling, this.bounds);
  }

  createPlan() {
    const { clips } = this.kind;
    const plan = this.kind.layers
      ? new DirectedLapPlan(clips, this.count, this.seed, this.cast)
      : new DirectedPlacePlan(clips, this.count, this.reach.radius, this.seed);
    return plan.begin();
  }
}

/** Titles of the sliders that the plan sets as long as the user does not. */
const sliderTitles = { crossfade: 'Crossfade', wave: 'Wave layer', breath: 'Breath layer' };

/** Red, green, blue and fraction of the tint, of the parts of a body: clothes, trousers, skin, hair, eyes. */
function bodyPalettes({ skins, hairs }) {
  const all = [];
  for (const skin of skins) {
    for (const hair of hairs) {
      all.push([
        [0, 0, 0, 1],
        [26, 27, 42, 0.225],
        [...skin, 0],
        [...hair, 0],
        [224, 224, 232, 0],
      ]);
    }
  }
  return all;
}

/** The place in these of a character. */
function variantOf({ skins, hairs }, character) {
  return ((character * 7) % skins.length) * hairs.length + ((character * 5) % hairs.length);
}

/** Values of the sliders, averaged over the active characters. */
function meansOf({ plan, cast }, crowd) {
  const sums = [0, 0, 0];
  let carriers = 0;
  for (let i = 0; i < crowd; ++i) {
    const [wave = 0, breath = 0] = plan.layerWeights(i);
    sums[0] += placeOf(plan.weights(i));
    sums[1] += wave;
    sums[2] += breath;
    carriers += cast[i] ? 1 : 0;
  }
  return {
    crossfade: sums[0] / crowd,
    wave: carriers > 0 ? sums[1] / carriers : 0,
    breath: sums[2] / crowd,
  };
}

/** The cameras of a page, as encoded in its messages. */
function poseOfPerspective({ perspective: { eye, target, up, fov, aspect, near, far } }) {
  return [0, ...eye, ...target, ...up, fov, aspect, near, far, 0, 0];
}

function poseOfOverview({ overview: { eye, target, up, left, right, bottom, top, near, far } }) {
  return [protocol.kOrthographic, ...eye, ...target, ...up, left, right, bottom, top, near, far];
}

/** Owns the stage; all pages see the same crowd, each through cameras of its own aspect ratio. */
class Show {
  /**
   * @param {Object} engine of the native module
   * @param {import('../demo/crowd').Kind} kind
   * @param {number} characters at most
   * @param {number} seed
   */
  constructor(engine, kind, characters, seed) {
    this.kind = kind;
    this.characters = characters;
    this.stage = new DirectedStage(engine, kind, characters, seed);
    this.crowd = characters;
    this.isPaused = false;
    /** Target of the bounds after a change of the crowd's size. */
    this.boundsAhead = this.stage.bounds;
    this.frameNumber = 0;
    this.version = 1;
    this.times = Object.assign({ stream: 0 }, ...stages.map((name) => ({ [name]: 0 })));
    this.means = meansOf(this.stage, this.crowd);
    this.start = performance.now();
    this.costs = new Costs(this.stageNames.length);
    this.limits = { sliders: this.createSliders(), cameras: 2, canPause: true };
  }

  /** The sliders: the size of the crowd, and what kind and plan have. */
  createSliders() {
    const { kind, characters } = this;
    const clips = kind.clips.map(({ name }) => name);
    const isThere = {
      crossfade: clips.length > 1,
      wave: Boolean(kind.layers),
      breath: Boolean(kind.layers),
    };
    const crowd = { name: 'crowd', title: 'Crowd', min: 1, max: characters, step: 1 };
    return [
      Object.assign(crowd, { isSteered: false, blends: null }),
      ...steered
        .filter((name) => isThere[name])
        .map((name) => {
          const range = { min: 0, max: 1, step: 0.01, isSteered: true };
          const blends = name === 'crossfade' ? clips : null;
          return Object.assign({ name, title: sliderTitles[name], blends }, range);
        }),
    ];
  }

  /** Stages of a frame, and sending it. */
  get stageNames() {
    return [...stages, 'stream'];
  }

  /**
   * Applies the controls of a page.
   * @param {Object} asked checked controls
   */
  control(asked) {
    const { plan } = this.stage;
    steered.forEach((name) => {
      if (name in asked) {
        plan.handles[name].set(asked[name], this.means[name]);
      }
    });
    if ('paused' in asked) {
      this.isPaused = asked.paused;
    }
    if ('crowd' in asked && asked.crowd !== this.crowd) {
      this.resize(asked.crowd);
    }
  }

  /** Width over height of pages that have not yet sent theirs. */
  get usualAspect() {
    return this.stage.culling.usualAspect;
  }

  /** Sets the number of active characters. */
  resize(crowd) {
    const { stage } = this;
    this.crowd = crowd;
    stage.count = crowd;
    stage.plan.count = crowd;
    stage.crowd.enable(crowd);
    stage.culling.enable(crowd);
    // Reactivated characters have old positions.
    stage.writePlaces();
    this.boundsAhead = stage.measureBounds();
  }

  /** Moves the cameras towards their position for the crowd's size. */
  moveCameras(seconds, aspects) {
    const { stage, boundsAhead } = this;
    const part = 1 - Math.exp(-kCameraRate * seconds);
    const near = (from, to) => from + (to - from) * part;
    stage.bounds = {
      middle: stage.bounds.middle.map((value, axis) => near(value, boundsAhead.middle[axis])),
      radius: near(stage.bounds.radius, boundsAhead.radius),
      floor: near(stage.bounds.floor, boundsAhead.floor),
    };
    stage.culling.setShapes(stage.bounds, aspects);
  }

  /**
   * One frame.
   * @param {number} seconds since the last one
   * @param {Iterable<number>} [aspects] width over height of the pages that it will be sent to
   */
  advance(seconds, aspects = [this.usualAspect]) {
    const step = Math.min(seconds, kMostSeconds);
    this.moveCameras(step, aspects);
    this.stage.plan.steer(step);
    this.stage.frame(this.times, this.isPaused ? 0 : step);
    this.means = meansOf(this.stage, this.crowd);
    this.costs.push(this.stageNames.map((name) => this.times[name]));
    ++this.frameNumber;
  }

  /** The scene message, which a page receives once. */
  describe() {
    const { kind, stage, characters } = this;
    const props = kind.layers ? kind.layers.props : [];
    const bones = kind.joints.length;
    const meshes = [{ name: 'body', bones, palettes: bodyPalettes(palettes), glow: null }];
    const shapes = [kind.mesh];
    // In the order of `meshOf`.
    props.forEach((prop) => {
      prop.meshes.forEach((mesh, hand) => {
        const colors = prop.palettes.map((parts) => parts.map((color) => [...color, 0]));
        const glow = prop.glow && this.glowOf(prop.glow, hand);
        meshes.push({ name: prop.name, bones: 1, palettes: colors, glow });
        shapes.push(mesh);
      });
    });
    const arrays = {};
    shapes.map(displayMesh).forEach((mesh, i) => {
      Object.keys(mesh).forEach((part) => {
        arrays[`${i}.${part}`] = mesh[part];
      });
    });
    const facts = {
      title: 'viewer',
      name: kind.name,
      subject: `${characters} × ${kind.name}, ${bones} bones each`,
      notes: kind.notes,
      restart: 'npm run view',
      unit: 2 * stage.reach.radius,
      stages: this.stageNames.map((name) => [name, titles[name]]),
      cameras: ['Perspective', 'Overview'],
      counters: ['bones moved'],
      sliders: this.limits.sliders,
      canPause: true,
      parts: [],
      meshes,
    };
    const toBytes = (text) => Buffer.from(text, 'utf8');
    return protocol.encodeScene(facts, arrays, toBytes);
  }

  /** Place of the mesh that a character carries, or 0. */
  meshOf(character) {
    const part = this.stage.cast[character];
    return part ? 1 + 2 * part.prop + part.hand : 0;
  }

  /** Position of a light in the space of a hand, and its colour. */
  glowOf({ distance, color }, hand) {
    const [x, y, z] = kGrip.map((value, axis) => value + distance * kStick[axis]);
    return { color, place: [hand === 0 ? x : -x, y, z] };
  }

  /**
   * The last frame as a page's camera saw it.
   * @param {{camera: number, aspect: number, costsAt: number}} page its aspect must be one of those of the last frame
   * @param {number} skipped frames that were dropped for the page
   * @param {function(number): ArrayBuffer} takeBuffer of at least so many bytes
   * @returns {Uint8Array} the message
   */
  encode({ camera, aspect, costsAt }, skipped, takeBuffer) {
    const { stage, kind, costs } = this;
    const { culling, crowd } = stage;
    const shape = culling.shapes.get(aspect);
    const isPerspective = camera === cameras.perspective;
    const { handles } = isPerspective ? shape.views.perspective : shape.views.overview;
    const characters = Array.from(handles, (handle) => culling.characterOf(handle));
    const meshes = 1 + (kind.layers ? 2 * kind.layers.props.length : 0);
    /** Characters that carry each prop, in order; 0 is for all bodies. */
    const carriers = Array.from({ length: meshes }, () => []);
    characters.forEach((character) => carriers[this.meshOf(character)].push(character));
    carriers[0] = [];
    const carried = carriers.reduce((sum, { length }) => sum + length, 0);
    const counts = {
      stages: costs.stages,
      rows: costs.countSince(costsAt),
      cameras: 2,
      sliders: this.limits.sliders.length,
      counters: 1,
      meshes,
      instances: characters.length + carried,
      matrices: characters.length * kind.joints.length + carried,
      nodes: 0,
      segments: 0,
      spheres: 0,
    };
    const bytes = protocol.frameBytes(counts);
    const buffer = takeBuffer(bytes);
    const message = protocol.beginFrame(buffer, counts, {
      camera,
      flags: this.flags(),
      frame: this.frameNumber,
      time: performance.now() - this.start,
      total: this.crowd,
      skipped,
    });
    message.pose.set(
      isPerspective ? poseOfPerspective(shape.cameras) : poseOfOverview(shape.cameras)
    );
    message.bounds.set([...stage.bounds.middle, stage.bounds.radius, stage.bounds.floor]);
    costs.copyLast(message.history, counts.rows);
    message.visible[0] = shape.views.perspective.handles.length;
    message.visible[1] = shape.views.overview.handles.length;
    message.sliders.set(
      this.limits.sliders.map(({ name }) => (name === 'crowd' ? this.crowd : this.means[name]))
    );
    message.counters[0] = this.crowd * kind.joints.length;
    message.instanceCounts.set(carriers.map(({ length }) => length));
    message.instanceCounts[0] = characters.length;
    const floats = 16 * kind.joints.length;
    characters.forEach((character, i) => {
      message.ids[i] = character;
      message.variants[i] = variantOf(palettes, character);
      message.tints.set(this.tintOf(character), 3 * i);
      // Copied unchanged from native memory.
      message.matrices.set(crowd.matrices[character], floats * i);
    });
    let instance = characters.length;
    let at = floats * characters.length;
    carriers.forEach((some, mesh) => {
      some.forEach((character) => {
        message.ids[instance] = character;
        const { prop } = stage.cast[character];
        message.variants[instance] = character % kind.layers.props[prop].palettes.length;
        message.tints.fill(0, 3 * instance, 3 * instance + 3);
        message.matrices.set(crowd.props.worldMatrix(character), at);
        ++instance;
        at += 16;
      });
    });
    return new Uint8Array(buffer, 0, bytes);
  }

  /** Colour of a character, by the clips that it plays. */
  tintOf(character) {
    const weights = this.stage.plan.weights(character);
    if (weights.length === 0) {
      return palettes.plain.map((value) => value / 255);
    }
    const { clips } = palettes;
    return [0, 1, 2].map(
      (k) =>
        weights.reduce((sum, weight, clip) => sum + weight * clips[clip % clips.length][k], 0) / 255
    );
  }

  flags() {
    const { handles } = this.stage.plan;
    return this.limits.sliders.reduce(
      (bits, { name, isSteered }, i) =>
        bits | (isSteered && handles[name].wanted !== null ? protocol.flagOf(i) : 0),
      this.isPaused ? protocol.kPaused : 0
    );
  }
}

module.exports = { Show, cameras };
