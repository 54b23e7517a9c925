// The picture: draws the characters of a frame by their matrices, on a floor, in the scene's light.
import * as THREE from '/three/three.module.js';
import * as shaders from './shaders.js';

const protocol = self.nqProtocol;

/** Unit vector towards the light. */
const kLight = new THREE.Vector3(-0.36, 0.8, 0.48).normalize();
const kSky = new THREE.Color(14 / 255, 18 / 255, 28 / 255);
const kViewEdge = 0xf0c86e;

/** Texels in a row of the texture of matrices; a matrix is four of them. */
const kRowTexels = 2048;

/** Lamps, in heights of a character: size of the glow, and of the pool of light on the floor. */
const kGlowSize = 0.26;
const kPoolSize = 1;

/** View from outside: vertical angle in radians, and limits of the distance in radii of the crowd. */
const kOutsideFov = 0.65;
const kNearest = 0.25;
const kFarthest = 6;

/** Initial view from outside. */
const kOrbit = { yaw: 0.25, pitch: 0.5, distance: 2.5 };

/** Edges of a view volume: near rectangle, far rectangle, and the edges between them. */
const kViewEdges = [0, 1, 3, 2].reduce(
  (edges, corner, i, around) => [
    ...edges,
    ...[corner, around[(i + 1) % 4]],
    ...[4 + corner, 4 + around[(i + 1) % 4]],
    ...[corner, 4 + corner],
  ],
  []
);

/** Colour for a shader, from red, green, blue up to 255; lamps exceed that. */
function colorOf(rgb) {
  return rgb.map((value) => value / 255);
}

function attributeOf(type, array, width) {
  return new type(array, width, false);
}

/** An instanced attribute that is written in each frame. */
function instanced(length, width) {
  const attribute = new THREE.InstancedBufferAttribute(new Float32Array(length * width), width);
  return attribute.setUsage(THREE.DynamicDrawUsage);
}

/** Geometry of a mesh in the scene's message. */
function geometryOf(geometry, arrays, name) {
  const array = (part) => arrays[`${name}.${part}`];
  geometry.setIndex(attributeOf(THREE.BufferAttribute, array('triangles'), 1));
  geometry.setAttribute('position', attributeOf(THREE.BufferAttribute, array('positions'), 3));
  geometry.setAttribute('normal', attributeOf(THREE.BufferAttribute, array('normals'), 3));
  geometry.setAttribute('aBones', attributeOf(THREE.BufferAttribute, array('bones'), 4));
  geometry.setAttribute('aWeights', attributeOf(THREE.BufferAttribute, array('weights'), 4));
  // Vertex attributes should be multiples of 4 bytes.
  const parts = Float32Array.from(array('parts'));
  geometry.setAttribute('aPart', attributeOf(THREE.BufferAttribute, parts, 1));
  return geometry;
}

/** Shadows darken a pixel once, however many overlap (stencil). */
const shadowSettings = {
  transparent: true,
  depthWrite: false,
  side: THREE.DoubleSide,
  stencilWrite: true,
  stencilRef: 0,
  stencilFunc: THREE.EqualStencilFunc,
  stencilZPass: THREE.IncrementStencilOp,
};

/** Screen blending of lights, so that many of them do not saturate to white. */
const lightSettings = {
  transparent: true,
  depthWrite: false,
  blending: THREE.CustomBlending,
  blendEquation: THREE.AddEquation,
  blendSrc: THREE.OneMinusDstColorFactor,
  blendDst: THREE.OneFactor,
};

/** Owns the canvas's drawing. */
export class Picture {
  /** @param {HTMLCanvasElement} canvas */
  constructor(canvas) {
    this.canvas = canvas;
    this.renderer = new THREE.WebGLRenderer({ canvas, antialias: true });
    this.renderer.setClearColor(kSky);
    this.renderer.autoClear = false;
    this.perspective = new THREE.PerspectiveCamera();
    this.overview = new THREE.OrthographicCamera();
    this.outside = new THREE.PerspectiveCamera((180 / Math.PI) * kOutsideFov);
    /** View from outside: angles in radians, distance in radii of the crowd. */
    this.orbit = Object.assign({}, kOrbit);
    this.uniforms = {
      uLight: { value: kLight },
      uSky: { value: kSky },
      uFogNear: { value: 1 },
      uFogFar: { value: 2 },
      uFloor: { value: 0 },
      uMiddle: { value: new THREE.Vector3() },
      uRadius: { value: 1 },
      uCell: { value: 1 },
      uHeight: { value: 1 },
    };
    this.world = null;
    this.frame = null;
  }

  /** A material with the shared uniforms and its own. */
  material(shader, uniforms = {}, settings = {}) {
    return new THREE.ShaderMaterial(
      Object.assign(
        {
          uniforms: Object.assign({}, this.uniforms, uniforms),
          vertexShader: shader.vertex,
          fragmentShader: shader.fragment,
          side: THREE.DoubleSide,
        },
        settings
      )
    );
  }

  add(object, order) {
    object.frustumCulled = false;
    object.renderOrder = order;
    this.world.add(object);
    return object;
  }

  /**
   * Prepares for the frames of a scene.
   * @param {Object} scene as decoded
   */
  setScene(scene) {
    if (this.world !== null) {
      this.dispose();
    }
    this.scene = scene;
    this.world = new THREE.Scene();
    this.frame = null;
    this.addFloor();
    this.addBodies();
    this.props = [].concat(
      ...scene.props.map((_, prop) => [0, 1].map((hand) => this.addProp(prop, hand)))
    );
    this.addLights();
    this.lines = this.add(
      new THREE.LineSegments(
        new THREE.BufferGeometry().setAttribute(
          'position',
          new THREE.BufferAttribute(new Float32Array(3 * kViewEdges.length), 3)
        ),
        new THREE.LineBasicMaterial({ color: kViewEdge, transparent: true, opacity: 0.8 })
      ),
      5
    );
  }

  /** Releases the GPU resources of the last scene. */
  dispose() {
    this.world.traverse((object) => {
      if (object.geometry) {
        object.geometry.dispose();
        object.material.dispose();
      }
    });
    this.matrices.value.dispose();
  }

  addFloor() {
    this.floor = new THREE.Mesh(
      new THREE.PlaneGeometry(2, 2).rotateX(-Math.PI / 2),
      this.material(shaders.floor, {}, { depthWrite: false })
    );
    this.add(this.floor, 0);
    this.uniforms.uCell.value = this.scene.height;
  }

  addBodies() {
    const { arrays, characters, bones } = this.scene;
    const geometry = geometryOf(new THREE.InstancedBufferGeometry(), arrays, 'body');
    this.tints = instanced(characters, 3);
    this.skins = instanced(characters, 3);
    this.hairs = instanced(characters, 3);
    geometry.setAttribute('aTint', this.tints);
    geometry.setAttribute('aSkin', this.skins);
    geometry.setAttribute('aHair', this.hairs);
    geometry.instanceCount = 0;
    this.matrices = { value: null };
    this.reserve(1);
    const own = { uMatrices: this.matrices, uBones: { value: bones } };
    this.bodies = this.add(new THREE.Mesh(geometry, this.material(shaders.body, own)), 1);
    const shadow = this.material(shaders.bodyShadow, own, shadowSettings);
    this.add(new THREE.Mesh(geometry, shadow), 2);
  }

  /** Reserves texture memory for the matrices of so many characters. */
  reserve(characters) {
    const texels = 4 * this.scene.bones * characters;
    const texture = this.matrices.value;
    if (texture !== null && 4 * texels <= texture.image.data.length) {
      return;
    }
    const rows = Math.ceil((1.25 * texels) / kRowTexels);
    if (texture !== null) {
      texture.dispose();
    }
    this.matrices.value = new THREE.DataTexture(
      new Float32Array(4 * kRowTexels * rows),
      ...[kRowTexels, rows, THREE.RGBAFormat, THREE.FloatType]
    );
  }

  addProp(prop, hand) {
    const { arrays, characters, props } = this.scene;
    const { palettes } = props[prop];
    const geometry = geometryOf(new THREE.BufferGeometry(), arrays, `prop${prop}.${hand}`);
    const palette = instanced(characters, 1);
    geometry.setAttribute('aPalette', palette);
    const colors = [].concat(...palettes.map((parts) => parts.map(colorOf)));
    const own = { uColors: { value: colors.map((color) => new THREE.Vector3(...color)) } };
    const defines = { PARTS: palettes[0].length, PALETTES: palettes.length };
    const material = this.material(shaders.prop, own, { defines });
    const mesh = this.add(new THREE.InstancedMesh(geometry, material, characters), 1);
    mesh.instanceMatrix.setUsage(THREE.DynamicDrawUsage);
    const dark = this.material(shaders.propShadow, {}, shadowSettings);
    const shadow = this.add(new THREE.InstancedMesh(geometry, dark, characters), 2);
    shadow.instanceMatrix = mesh.instanceMatrix;
    return { mesh, shadow, palette, palettes: palettes.length };
  }

  addLights() {
    const { characters, height } = this.scene;
    const places = new THREE.BufferAttribute(new Float32Array(3 * characters), 3);
    const colors = new THREE.BufferAttribute(new Float32Array(3 * characters), 3);
    const points = new THREE.BufferGeometry();
    points.setAttribute('position', places.setUsage(THREE.DynamicDrawUsage));
    points.setAttribute('aColor', colors.setUsage(THREE.DynamicDrawUsage));
    const size = { uSize: { value: kGlowSize * height } };
    this.glows = this.add(
      new THREE.Points(points, this.material(shaders.glow, size, lightSettings)),
      4
    );
    const discs = new THREE.InstancedBufferGeometry().copy(new THREE.PlaneGeometry(2, 2));
    discs.setAttribute('aPlace', instanced(characters, 3));
    discs.setAttribute('aColor', instanced(characters, 3));
    const reach = { uSize: { value: kPoolSize * height } };
    this.pools = this.add(
      new THREE.Mesh(discs, this.material(shaders.pool, reach, lightSettings)),
      3
    );
  }

  /**
   * Sets the frame to draw.
   * @param {Object} frame as decoded
   */
  setFrame(frame) {
    this.frame = frame;
    const { characters, matrices } = frame;
    this.reserve(characters.length);
    const texture = this.matrices.value;
    texture.image.data.set(matrices);
    texture.needsUpdate = true;
    this.bodies.geometry.instanceCount = characters.length;
    this.setColors(frame);
    this.setCarried(frame);
    const [x, y, z, radius, floor] = frame.bounds;
    this.uniforms.uMiddle.value.set(x, y, z);
    this.uniforms.uRadius.value = radius;
    this.uniforms.uFloor.value = floor;
    this.floor.position.set(x, floor, z);
    this.floor.scale.set(4 * radius, 1, 4 * radius);
  }

  /** Sets the colours of characters, by the clips that they play. */
  setColors({ characters, weights, counts }) {
    const { clips, plain, skins, hairs } = this.scene.palettes;
    const [tints, skinArray, hairArray] = [this.tints.array, this.skins.array, this.hairs.array];
    characters.forEach((character, i) => {
      const skin = skins[(character * 7) % skins.length];
      const hair = hairs[(character * 5) % hairs.length];
      for (let k = 0; k < 3; ++k) {
        let tint = counts.clips === 0 ? plain[k] : 0;
        for (let clip = 0; clip < counts.clips; ++clip) {
          tint += weights[i * counts.clips + clip] * clips[clip % clips.length][k];
        }
        tints[3 * i + k] = tint / 255;
        skinArray[3 * i + k] = skin[k] / 255;
        hairArray[3 * i + k] = hair[k] / 255;
      }
    });
    for (const attribute of [this.tints, this.skins, this.hairs]) {
      attribute.updateRange.count = 3 * characters.length;
      attribute.needsUpdate = true;
    }
  }

  /** Sets the props that characters carry, and the lights of lamps. */
  setCarried({ carriers, carried }) {
    const { cast } = this.scene.arrays;
    this.props.forEach(({ mesh }) => {
      mesh.count = 0;
    });
    let lights = 0;
    carriers.forEach((character, i) => {
      const entry = this.props[cast[character] - 1];
      const { mesh, palette } = entry;
      const matrix = carried.subarray(16 * i, 16 * (i + 1));
      mesh.instanceMatrix.array.set(matrix, 16 * mesh.count);
      palette.array[mesh.count] = character % entry.palettes;
      ++mesh.count;
      const { glow } = this.scene.props[(cast[character] - 1) >> 1];
      if (glow !== null) {
        this.setLight(lights++, matrix, glow.places[(cast[character] - 1) & 1], glow.color);
      }
    });
    this.props.forEach(({ mesh, shadow, palette }) => {
      shadow.count = mesh.count;
      mesh.instanceMatrix.needsUpdate = true;
      palette.needsUpdate = true;
    });
    this.glows.geometry.setDrawRange(0, lights);
    this.pools.geometry.instanceCount = lights;
    for (const { geometry } of [this.glows, this.pools]) {
      ['position', 'aPlace', 'aColor']
        .map((name) => geometry.getAttribute(name))
        .filter((attribute) => attribute && attribute.usage === THREE.DynamicDrawUsage)
        .forEach((attribute) => {
          attribute.needsUpdate = true;
        });
    }
  }

  setLight(light, m, [x, y, z], color) {
    const [points, discs] = [this.glows.geometry.attributes, this.pools.geometry.attributes];
    for (let k = 0; k < 3; ++k) {
      const at = m[k] * x + m[4 + k] * y + m[8 + k] * z + m[12 + k];
      points.position.array[3 * light + k] = at;
      discs.aPlace.array[3 * light + k] = at;
      points.aColor.array[3 * light + k] = color[k] / 255;
      discs.aColor.array[3 * light + k] = color[k] / 255;
    }
  }

  /** The camera of a frame, the same as the module culls with. */
  frameCamera({ camera, pose }) {
    const isPerspective = camera === protocol.cameras.perspective;
    const result = isPerspective ? this.perspective : this.overview;
    if (isPerspective) {
      const [fov, aspect, near, far] = pose.subarray(9, 13);
      Object.assign(result, { fov: (180 / Math.PI) * fov, aspect, near, far });
    } else {
      const [left, right, bottom, top, near, far] = pose.subarray(9, 15);
      Object.assign(result, { left, right, bottom, top, near, far });
    }
    result.position.set(...pose.subarray(0, 3));
    result.up.set(...pose.subarray(6, 9));
    result.lookAt(...pose.subarray(3, 6));
    result.updateProjectionMatrix();
    result.updateMatrixWorld();
    return result;
  }

  /** Width over height of a frame's camera. */
  static aspectOf({ camera, pose }) {
    return camera === protocol.cameras.perspective
      ? pose[10]
      : (pose[10] - pose[9]) / (pose[12] - pose[11]);
  }

  /** Draws the edges of a camera's view volume. */
  drawEdges(camera) {
    const corners = [];
    for (const z of [-1, 1]) {
      for (const y of [-1, 1]) {
        for (const x of [-1, 1]) {
          corners.push(new THREE.Vector3(x, y, z).unproject(camera));
        }
      }
    }
    const { position } = this.lines.geometry.attributes;
    kViewEdges.forEach((corner, i) => corners[corner].toArray(position.array, 3 * i));
    position.needsUpdate = true;
  }

  /** The camera from outside, which shows the crowd and the frame's camera. */
  outsideCamera(aspect) {
    const { yaw, pitch, distance } = this.orbit;
    const [x, y, z, radius] = this.frame.bounds;
    const away = distance * radius;
    const { outside } = this;
    Object.assign(outside, { aspect, near: 0.01 * radius, far: 20 * radius });
    outside.position.set(
      x + away * Math.sin(yaw) * Math.cos(pitch),
      y + away * Math.sin(pitch),
      z + away * Math.cos(yaw) * Math.cos(pitch)
    );
    outside.lookAt(x, y, z);
    outside.updateProjectionMatrix();
    outside.updateMatrixWorld();
    return outside;
  }

  /** Rotates the view from outside by radians, and scales its distance. */
  turn(yaw, pitch, nearer = 1) {
    const { orbit } = this;
    orbit.yaw += yaw;
    orbit.pitch = Math.min(1.5, Math.max(0.06, orbit.pitch + pitch));
    orbit.distance = Math.min(kFarthest, Math.max(kNearest, orbit.distance * nearer));
  }

  /** Resets the view from outside. */
  turnBack() {
    Object.assign(this.orbit, kOrbit);
  }

  /** Resizes the picture to the displayed size of its canvas. */
  fit() {
    const ratio = Math.min(2, self.devicePixelRatio || 1);
    const { clientWidth, clientHeight } = this.canvas;
    this.renderer.setPixelRatio(ratio);
    this.renderer.setSize(clientWidth, clientHeight, false);
  }

  /**
   * Draws the frame.
   * @param {boolean} isOutside from beside the crowd instead of through the frame's camera
   */
  draw(isOutside) {
    const { renderer, frame, uniforms } = this;
    const { clientWidth: width, clientHeight: height } = this.canvas;
    if (frame === null || width === 0 || height === 0) {
      return;
    }
    const radius = frame.bounds[3];
    let camera = this.frameCamera(frame);
    const view = { x: 0, y: 0, width, height };
    this.lines.visible = isOutside;
    const isDeep = camera === this.perspective || isOutside;
    if (isOutside) {
      this.drawEdges(camera);
      camera = this.outsideCamera(width / height);
    } else {
      // While its size changes, the canvas may have another aspect ratio than the view.
      const aspect = Picture.aspectOf(frame);
      view.width = Math.min(width, height * aspect);
      view.height = Math.min(height, width / aspect);
      view.x = (width - view.width) / 2;
      view.y = (height - view.height) / 2;
      if (camera === this.perspective) {
        // The module culls the characters; the floor needs a nearer near plane and a farther far plane.
        Object.assign(camera, { near: 0.2 * camera.near, far: 4 * camera.far });
        camera.updateProjectionMatrix();
      }
    }
    const distance = isOutside ? this.orbit.distance : 1;
    uniforms.uFogNear.value = isDeep ? radius * distance * (isOutside ? 1 : 0.7) : 1e9;
    uniforms.uFogFar.value = isDeep ? radius * (distance + 1.6) : 2e9;
    uniforms.uHeight.value = view.height * renderer.getPixelRatio();
    renderer.setViewport(0, 0, width, height);
    renderer.setScissorTest(false);
    renderer.clear();
    renderer.setViewport(view.x, view.y, view.width, view.height);
    renderer.setScissor(view.x, view.y, view.width, view.height);
    renderer.setScissorTest(true);
    renderer.render(this.world, camera);
  }
}
