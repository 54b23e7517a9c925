'use strict';
// Culling for the demo's cameras: a sphere around each character, and two cameras of the scene.
const { Camera } = require('../scene');
const { aim } = require('./cameras');

/** The last culling result of a camera. */
class View {
  /** @param {import('../scene').VisibleList} visible */
  constructor(visible) {
    this.characters = new Array(visible.count);
    for (let i = 0; i < visible.count; ++i) {
      this.characters[i] = visible.at(i);
    }
    /** Of the culling objects in their order. */
    this.hash = visible.hash;
  }

  /** Handles of the visible characters, nearest first. */
  get handles() {
    return Uint32Array.from(this.characters, ({ handle }) => handle);
  }
}

/** Culls a crowd for two cameras. */
class CrowdCulling {
  /**
   * @param {import('./crowd').Crowd} crowd
   * @param {{middle: number[], radius: number}} sphere around a character, relative to its position
   * @param {import('./cameras').PerspectiveCamera} perspective
   * @param {import('./cameras').OrthographicCamera} overview
   */
  constructor(crowd, sphere, perspective, overview) {
    this.crowd = crowd;
    this.sphere = sphere;
    this.perspective = perspective;
    this.overview = overview;
    this.cameras = { perspective: new Camera(), overview: new Camera() };
    /** The poses that they have. */
    this.poses = { perspective: null, overview: null };
    /** Numbers of characters by their handles. */
    this.numbers = new Map();
    /** @type {{perspective: ?View, overview: ?View}} */
    this.views = { perspective: null, overview: null };
    this.enable(crowd.count);
  }

  /** Culls by the perspective camera. */
  cullPerspective() {
    this.cull('perspective');
  }

  /** Culls by the orthographic camera. */
  cullOverview() {
    this.cull('overview');
  }

  cull(name) {
    const camera = this.cameras[name];
    if (this.poses[name] !== this[name]) {
      this.poses[name] = this[name];
      aim(camera, this[name]);
    }
    this.views[name] = new View(camera.cull(this.crowd.scene));
  }

  /** The character of a handle. */
  characterOf(handle) {
    return this.numbers.get(handle);
  }

  /** Gives spheres to the characters that the crowd has now. */
  enable() {
    const [x, y, z] = this.sphere.middle;
    this.numbers.clear();
    this.crowd.characters.forEach((character, i) => {
      character.setSphere(x, y, z, this.sphere.radius);
      this.numbers.set(character.handle, i);
    });
  }

  /**
   * Flags of the characters that a camera saw.
   * @param {View} view
   * @returns {Uint8Array} 1 where visible
   */
  visible(view) {
    const marks = new Uint8Array(this.crowd.count);
    for (const handle of view.handles) {
      marks[this.characterOf(handle)] = 1;
    }
    return marks;
  }
}

module.exports = { CrowdCulling };
