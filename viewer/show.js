'use strict';
// The stage that pages show: the number of active characters, user control, cameras that follow the crowd's size, and
// encoding of a frame as a message.
const { performance } = require('perf_hooks');
const { palettes } = require('../demo/picture');
const { kGrip, kStick } = require('../demo/props');
const { stageTitles } = require('../demo/report');
const { Stage, stages } = require('../demo/stage');
const { DirectedLapPlan, DirectedPlacePlan, placeOf } = require('./direction');
const { displayMesh } = require('./display-mesh');
const { PageCulling } = require('./page-culling');
const protocol = require('./protocol');

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
  return [sums[0] / crowd, carriers > 0 ? sums[1] / carriers : 0, sums[2] / crowd];
}

/** The cameras of a page, as encoded in its messages. */
function poseOfPerspective({ perspective: { eye, target, up, fov, aspect, near, far } }) {
  return [...eye, ...target, ...up, fov, aspect, near, far, 0, 0];
}

function poseOfOverview({ overview: { eye, target, up, left, right, bottom, top, near, far } }) {
  return [...eye, ...target, ...up, left, right, bottom, top, near, far];
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
    this.frame = 0;
    this.times = Object.assign({ stream: 0 }, ...stages.map((name) => ({ [name]: 0 })));
    this.means = meansOf(this.stage, this.crowd);
    this.start = performance.now();
  }

  /** Stages of a frame; without props, there is no stage for them. */
  get stageNames() {
    return [...stages.filter((name) => name !== 'props' || this.kind.layers), 'stream'];
  }

  /**
   * Applies the controls of a page.
   * @param {Object} asked checked controls
   */
  control(asked) {
    const { plan } = this.stage;
    protocol.sliders.forEach((name, i) => {
      if (name in asked) {
        plan.handles[name].set(asked[name], this.means[i]);
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
    ++this.frame;
  }

  /** The scene message, which a page receives once. */
  describe() {
    const { kind, stage } = this;
    const arrays = {};
    const addMesh = (name, mesh) => {
      const shown = displayMesh(mesh);
      Object.keys(shown).forEach((key) => {
        arrays[`${name}.${key}`] = shown[key];
      });
    };
    addMesh('body', kind.mesh);
    const props = kind.layers ? kind.layers.props : [];
    props.forEach(({ meshes }, prop) => {
      meshes.forEach((mesh, hand) => addMesh(`prop${prop}.${hand}`, mesh));
    });
    // 0: carries nothing; otherwise prop and hand.
    arrays.cast = Uint8Array.from({ length: this.characters }, (none, i) => {
      const part = stage.cast[i];
      return part ? 1 + 2 * part.prop + part.hand : 0;
    });
    const facts = {
      name: kind.name,
      characters: this.characters,
      bones: kind.joints.length,
      nodes: kind.nodes.length,
      clips: kind.clips.map(({ name }) => name),
      layers: kind.layers ? ['wave', 'breath'] : [],
      stages: this.stageNames.map((name) => [name, titles[name]]),
      props: props.map(({ name, palettes: colors, glow }) => {
        return { name, palettes: colors, glow: glow && this.glowOf(glow) };
      }),
      palettes,
      height: 2 * stage.reach.radius,
      notes: kind.notes,
    };
    const toBytes = (text) => Buffer.from(text, 'utf8');
    return protocol.encodeScene(facts, arrays, toBytes);
  }

  /** Position of a light in the space of each hand, and its colour. */
  glowOf({ distance, color }) {
    const [x, y, z] = kGrip.map((value, axis) => value + distance * kStick[axis]);
    return { color, places: [1, -1].map((side) => [x * side, y, z]) };
  }

  /**
   * The last frame as a page's camera saw it.
   * @param {{camera: number, aspect: number}} page its aspect must be one of those of the last frame
   * @param {number} skipped frames that were dropped for the page
   * @param {function(number): ArrayBuffer} takeBuffer of at least so many bytes
   * @returns {Uint8Array} the message
   */
  encode({ camera, aspect }, skipped, takeBuffer) {
    const { stage, kind } = this;
    const { culling, crowd, cast, plan } = stage;
    const { cameras, views } = culling.shapes.get(aspect);
    const isPerspective = camera === protocol.cameras.perspective;
    const { handles } = isPerspective ? views.perspective : views.overview;
    const characters = Array.from(handles, (handle) => culling.characterOf(handle));
    const carriers = characters.filter((i) => cast[i]);
    const counts = {
      stages: this.stageNames.length,
      characters: characters.length,
      clips: kind.clips.length,
      bones: kind.joints.length,
      carriers: carriers.length,
    };
    const bytes = protocol.frameBytes(counts);
    const buffer = takeBuffer(bytes);
    const message = protocol.beginFrame(buffer, counts, {
      camera,
      flags: this.flags(),
      frame: this.frame,
      time: performance.now() - this.start,
      crowd: this.crowd,
      skipped,
    });
    message.visible[0] = views.perspective.handles.length;
    message.visible[1] = views.overview.handles.length;
    message.sliders.set(this.means);
    message.pose.set(isPerspective ? poseOfPerspective(cameras) : poseOfOverview(cameras));
    message.bounds.set([...stage.bounds.middle, stage.bounds.radius, stage.bounds.floor]);
    message.milliseconds.set(this.stageNames.map((name) => this.times[name]));
    message.characters.set(characters);
    message.carriers.set(carriers);
    characters.forEach((character, i) => {
      message.weights.set(plan.weights(character), i * counts.clips);
      // Copied unchanged from native memory.
      message.matrices.set(crowd.matrices[character], i * 16 * counts.bones);
    });
    carriers.forEach((character, i) => {
      message.carried.set(crowd.props.worldMatrix(character), 16 * i);
    });
    return new Uint8Array(buffer, 0, bytes);
  }

  flags() {
    const { handles } = this.stage.plan;
    return protocol.sliders.reduce(
      (bits, name) => bits | (handles[name].wanted === null ? 0 : protocol.flags[name]),
      this.isPaused ? protocol.flags.paused : 0
    );
  }
}

module.exports = { Show };
