// The picture: draws the meshes of a frame by their matrices, on a floor, in the scene's light; and nodes, skeletons and
// spheres as lines. WebGL 2 without a library, since pages are served from the installed package.
import { axesOf, lookAt, multiply, orthographic, perspective } from './matrices.js';
import * as shaders from './shaders.js';

const protocol = self.nqProtocol;

/** Unit vector towards the light. */
const kLight = [-0.36, 0.8, 0.48].map((value) => value / Math.hypot(0.36, 0.8, 0.48));
const kSky = [14 / 255, 18 / 255, 28 / 255];

/** Colours of lines, with opacity. */
const kViewEdge = [0.941, 0.784, 0.431, 0.8];
const kSeenSphere = [0.941, 0.784, 0.431, 0.75];
const kUnseenSphere = [0.45, 0.52, 0.66, 0.4];
const kBone = [0.39, 0.82, 0.88, 0.95];
const kNode = [0.85, 0.87, 0.92, 1];

/** Pixels of the point of a node. */
const kNodePixels = 5;

/** Texels in a row of the texture of matrices; a matrix is four of them. */
const kRowTexels = 2048;

/** Lamps, in units of the scene: size of the glow, and of the pool of light on the floor. */
const kGlowSize = 0.26;
const kPoolSize = 1;

/** View from outside: vertical angle in radians, and limits of the distance in radii of all. */
const kOutsideFov = 0.65;
const kNearest = 0.25;
const kFarthest = 6;

/** Initial view from outside. */
const kOrbit = { yaw: 0.25, pitch: 0.5, distance: 2.5 };

/** Corners of a view volume in clip space, and its edges: near rectangle, far rectangle, and those between them. */
const kEdges = [0, 1, 3, 2].reduce(
  (edges, corner, i, around) => [
    ...edges,
    ...[corner, around[(i + 1) % 4]],
    ...[4 + corner, 4 + around[(i + 1) % 4]],
    ...[corner, 4 + corner],
  ],
  []
);

/** Lines of a great circle. */
const kCircleLines = 32;

/** Places of vertex attributes, the same in all programs. */
const attributes = [
  ...['aPosition', 'aNormal', 'aBones', 'aWeights', 'aPart', 'aLook'],
  ...['aPlace', 'aColor', 'aSphere', 'aSeen'],
];

/** The three great circles of a sphere of radius 1, as pairs of ends. */
function circles() {
  const ends = [];
  for (let axis = 0; axis < 3; ++axis) {
    for (let i = 0; i < kCircleLines; ++i) {
      for (const at of [i, i + 1]) {
        const angle = (2 * Math.PI * at) / kCircleLines;
        const end = [0, 0, 0];
        end[(axis + 1) % 3] = Math.cos(angle);
        end[(axis + 2) % 3] = Math.sin(angle);
        ends.push(...end);
      }
    }
  }
  return Float32Array.from(ends);
}

/** A program of shaders, with its uniforms. */
class Program {
  constructor(gl, { vertex, fragment }) {
    this.gl = gl;
    this.program = gl.createProgram();
    for (const [type, text] of [
      [gl.VERTEX_SHADER, vertex],
      [gl.FRAGMENT_SHADER, fragment],
    ]) {
      const shader = gl.createShader(type);
      gl.shaderSource(shader, text);
      gl.compileShader(shader);
      gl.attachShader(this.program, shader);
    }
    attributes.forEach((name, i) => gl.bindAttribLocation(this.program, i, name));
    gl.linkProgram(this.program);
    if (!gl.getProgramParameter(this.program, gl.LINK_STATUS) && !gl.isContextLost()) {
      const logs = gl.getAttachedShaders(this.program).map((one) => gl.getShaderInfoLog(one));
      throw new Error(
        `a shader is refused: ${[gl.getProgramInfoLog(this.program), ...logs].join(' ')}`
      );
    }
    this.uniforms = new Map();
    const count = gl.getProgramParameter(this.program, gl.ACTIVE_UNIFORMS);
    for (let i = 0; i < count; ++i) {
      const { name, type } = gl.getActiveUniform(this.program, i);
      this.uniforms.set(name, { type, at: gl.getUniformLocation(this.program, name) });
    }
  }

  /** Selects it, and sets those of the values that it has. */
  use(values) {
    this.gl.useProgram(this.program);
    this.set(values);
  }

  set(values) {
    const { gl } = this;
    for (const name of Object.keys(values)) {
      const uniform = this.uniforms.get(name);
      const value = values[name];
      if (uniform === undefined) {
        continue;
      }
      switch (uniform.type) {
        case gl.FLOAT_MAT4:
          gl.uniformMatrix4fv(uniform.at, false, value);
          break;
        case gl.FLOAT_VEC3:
          gl.uniform3fv(uniform.at, value);
          break;
        case gl.FLOAT_VEC4:
          gl.uniform4fv(uniform.at, value);
          break;
        case gl.FLOAT:
          gl.uniform1f(uniform.at, value);
          break;
        default:
          gl.uniform1i(uniform.at, value);
      }
    }
  }
}

/** Vertex data on the GPU, and how they are read. */
class Geometry {
  constructor(gl) {
    this.gl = gl;
    this.array = gl.createVertexArray();
    this.buffers = new Map();
  }

  /**
   * Sets the data of an attribute, or of several in one buffer.
   * @param {string} name
   * @param {TypedArray} data
   * @param {Array<[string, number]>} parts attributes with their width in elements, in order
   * @param {number} divisor 1 for data of instances
   */
  set(name, data, parts, divisor = 0) {
    const { gl } = this;
    gl.bindVertexArray(this.array);
    const isNew = !this.buffers.has(name);
    if (isNew) {
      this.buffers.set(name, gl.createBuffer());
    }
    gl.bindBuffer(gl.ARRAY_BUFFER, this.buffers.get(name));
    gl.bufferData(gl.ARRAY_BUFFER, data, gl.DYNAMIC_DRAW);
    if (isNew) {
      const types = { Uint8Array: gl.UNSIGNED_BYTE, Uint16Array: gl.UNSIGNED_SHORT };
      const type = types[data.constructor.name] || gl.FLOAT;
      const bytes = data.BYTES_PER_ELEMENT;
      const stride = parts.reduce((sum, [, width]) => sum + width, 0) * bytes;
      let offset = 0;
      for (const [attribute, width] of parts) {
        const at = attributes.indexOf(attribute);
        gl.enableVertexAttribArray(at);
        gl.vertexAttribPointer(at, width, type, false, stride, offset);
        gl.vertexAttribDivisor(at, divisor);
        offset += width * bytes;
      }
    }
  }

  setIndices(data) {
    const { gl } = this;
    gl.bindVertexArray(this.array);
    this.buffers.set('indices', gl.createBuffer());
    gl.bindBuffer(gl.ELEMENT_ARRAY_BUFFER, this.buffers.get('indices'));
    gl.bufferData(gl.ELEMENT_ARRAY_BUFFER, data, gl.STATIC_DRAW);
  }

  bind() {
    this.gl.bindVertexArray(this.array);
  }

  dispose() {
    this.buffers.forEach((buffer) => this.gl.deleteBuffer(buffer));
    this.gl.deleteVertexArray(this.array);
  }
}

/** A texture that is read texel by texel. */
function createTexture(gl) {
  const texture = gl.createTexture();
  gl.bindTexture(gl.TEXTURE_2D, texture);
  gl.texParameteri(gl.TEXTURE_2D, gl.TEXTURE_MIN_FILTER, gl.NEAREST);
  gl.texParameteri(gl.TEXTURE_2D, gl.TEXTURE_MAG_FILTER, gl.NEAREST);
  return texture;
}

function writeTexture(gl, texture, width, height, data) {
  gl.bindTexture(gl.TEXTURE_2D, texture);
  gl.texImage2D(gl.TEXTURE_2D, 0, gl.RGBA32F, width, height, 0, gl.RGBA, gl.FLOAT, data);
}

/** A mesh of the scene, and its instances in a frame. */
class Mesh {
  constructor(gl, facts, arrays, index) {
    const array = (part) => arrays[`${index}.${part}`];
    this.gl = gl;
    this.facts = facts;
    this.indices = array('triangles').length;
    this.geometry = new Geometry(gl);
    this.geometry.set('positions', array('positions'), [['aPosition', 3]]);
    this.geometry.set('normals', array('normals'), [['aNormal', 3]]);
    this.geometry.set('bones', array('bones'), [['aBones', 4]]);
    this.geometry.set('weights', array('weights'), [['aWeights', 4]]);
    this.geometry.set('parts', Float32Array.from(array('parts')), [['aPart', 1]]);
    this.geometry.setIndices(array('triangles'));
    this.palettes = createTexture(gl);
    const colors = []
      .concat(...[].concat(...facts.palettes))
      .map((value, i) => (i % 4 === 3 ? value : value / 255));
    const [width, height] = [facts.palettes[0].length, facts.palettes.length];
    writeTexture(gl, this.palettes, width, height, Float32Array.from(colors));
    this.count = 0;
    this.firstMatrix = 0;
  }

  /** Takes its instances of a frame. */
  setInstances({ tints, variants }, first, count, firstMatrix) {
    this.count = count;
    this.firstMatrix = firstMatrix;
    const looks = new Float32Array(4 * count);
    for (let i = 0; i < count; ++i) {
      looks.set(tints.subarray(3 * (first + i), 3 * (first + i) + 3), 4 * i);
      looks[4 * i + 3] = Math.min(variants[first + i], this.facts.palettes.length - 1);
    }
    this.geometry.set('looks', looks, [['aLook', 4]], 1);
  }

  draw(program) {
    const { gl } = this;
    if (this.count === 0) {
      return;
    }
    program.set({ uFirstMatrix: this.firstMatrix, uBones: this.facts.bones });
    gl.activeTexture(gl.TEXTURE1);
    gl.bindTexture(gl.TEXTURE_2D, this.palettes);
    gl.activeTexture(gl.TEXTURE0);
    this.geometry.bind();
    gl.drawElementsInstanced(gl.TRIANGLES, this.indices, gl.UNSIGNED_INT, 0, this.count);
  }

  dispose() {
    this.geometry.dispose();
    this.gl.deleteTexture(this.palettes);
  }
}

/** Owns the canvas's drawing. */
export class Picture {
  /** @param {HTMLCanvasElement} canvas */
  constructor(canvas) {
    this.canvas = canvas;
    const gl = canvas.getContext('webgl2', { antialias: true, stencil: true });
    if (gl === null) {
      throw new Error('there is no context for it.');
    }
    this.gl = gl;
    /** View from outside: angles in radians, distance in radii of all. */
    this.orbit = Object.assign({}, kOrbit);
    /** What is drawn. */
    this.shown = { meshes: true, spheres: true, skeletons: true, nodes: true, lights: true };
    /** Whether only the ground is drawn, which takes little time. */
    this.isResting = false;
    /** Places of meshes that are not drawn; their shadows are. */
    this.hidden = new Set();
    this.scene = null;
    this.frame = null;
    this.meshes = [];
    this.lights = 0;
    /** Of the last drawing: where from, whether with the edges of a camera, and from the world to clip space. */
    this.eye = [0, 0, 0];
    this.hasEdges = false;
    this.viewProjection = new Array(16).fill(0);
    this.create();
    // A context that was lost comes back empty.
    canvas.addEventListener('webglcontextlost', (event) => event.preventDefault());
    canvas.addEventListener('webglcontextrestored', () => {
      const { scene, frame } = this;
      this.meshes = [];
      this.create();
      if (scene !== null) {
        this.setScene(scene);
      }
      if (frame !== null) {
        this.setFrame(frame);
      }
    });
  }

  /** Makes what all scenes need on the GPU. */
  create() {
    const { gl } = this;
    this.programs = {};
    Object.keys(shaders).forEach((name) => {
      this.programs[name] = new Program(gl, shaders[name]);
    });
    this.matrices = createTexture(gl);
    this.matrixRows = 0;
    this.matrixData = new Float32Array(0);
    const corners = Float32Array.of(-1, -1, 0, 1, -1, 0, -1, 1, 0, 1, 1, 0);
    this.square = new Geometry(gl);
    this.square.set('corners', corners, [['aPosition', 3]]);
    this.pools = new Geometry(gl);
    this.pools.set('corners', corners, [['aPosition', 3]]);
    this.glows = new Geometry(gl);
    this.circles = new Geometry(gl);
    this.circles.set('circles', circles(), [['aPosition', 3]]);
    this.lines = new Geometry(gl);
    this.bones = new Geometry(gl);
    this.points = new Geometry(gl);
  }

  /**
   * Prepares for the frames of a scene.
   * @param {Object} scene as decoded
   */
  setScene(scene) {
    this.meshes.forEach((mesh) => mesh.dispose());
    this.scene = scene;
    this.frame = null;
    this.meshes = scene.meshes.map((facts, i) => new Mesh(this.gl, facts, scene.arrays, i));
  }

  /**
   * Sets the frame to draw.
   * @param {Object} frame as decoded
   */
  setFrame(frame) {
    this.frame = frame;
    this.writeMatrices(frame.matrices);
    let [instance, matrix] = [0, 0];
    this.meshes.forEach((mesh, i) => {
      const count = frame.instanceCounts[i];
      mesh.setInstances(frame, instance, count, matrix);
      instance += count;
      matrix += count * mesh.facts.bones;
    });
    this.setLights(frame);
    this.bones.set('ends', frame.segments, [['aPosition', 3]]);
    this.points.set('places', frame.nodes, [['aPosition', 3]]);
    this.circles.set('spheres', frame.spheres, [['aSphere', 4]], 1);
    this.circles.set('seen', Float32Array.from(frame.seen), [['aSeen', 1]], 1);
  }

  /** Copies matrices into their texture, which grows with them. */
  writeMatrices(matrices) {
    const { gl } = this;
    const rows = Math.ceil(matrices.length / 4 / kRowTexels);
    const floats = 4 * kRowTexels * rows;
    if (this.matrixData.length < floats) {
      this.matrixData = new Float32Array(Math.ceil(1.25 * rows) * 4 * kRowTexels);
    }
    this.matrixData.set(matrices);
    if (rows > this.matrixRows) {
      this.matrixRows = this.matrixData.length / 4 / kRowTexels;
      writeTexture(gl, this.matrices, kRowTexels, this.matrixRows, this.matrixData);
    } else if (rows > 0) {
      gl.bindTexture(gl.TEXTURE_2D, this.matrices);
      gl.texSubImage2D(
        ...[gl.TEXTURE_2D, 0, 0, 0, kRowTexels, rows, gl.RGBA, gl.FLOAT],
        this.matrixData.subarray(0, floats)
      );
    }
  }

  /** Places the lights of meshes that glow. */
  setLights({ matrices }) {
    const lights = [];
    for (const { facts, count, firstMatrix } of this.meshes) {
      if (facts.glow === null) {
        continue;
      }
      const [x, y, z] = facts.glow.place;
      for (let i = 0; i < count; ++i) {
        const m = matrices.subarray(16 * (firstMatrix + i * facts.bones));
        [0, 1, 2].forEach((k) => lights.push(m[k] * x + m[4 + k] * y + m[8 + k] * z + m[12 + k]));
        lights.push(...facts.glow.color.map((value) => value / 255));
      }
    }
    this.lights = lights.length / 6;
    const data = Float32Array.from(lights);
    const parts = [
      ['aPlace', 3],
      ['aColor', 3],
    ];
    this.glows.set('lights', data, parts);
    this.pools.set('lights', data, parts, 1);
  }

  /** Whether a frame has a camera to look through. */
  static hasCamera({ camera }) {
    return camera !== protocol.kNoCamera;
  }

  /** Width over height of a frame's camera. */
  static aspectOf({ pose }) {
    return pose[0] === protocol.kOrthographic
      ? (pose[11] - pose[10]) / (pose[13] - pose[12])
      : pose[11];
  }

  /** The camera of a frame, the same as the module culls with. */
  frameCamera({ pose }, isDeep) {
    const [eye, target, up] = [1, 4, 7].map((at) => Array.from(pose.subarray(at, at + 3)));
    const isOrthographic = pose[0] === protocol.kOrthographic;
    const volume = Array.from(pose.subarray(10, 16));
    let projection;
    if (isOrthographic) {
      projection = orthographic(...volume);
    } else {
      const [fov, aspect, near, far] = volume;
      // What is culled is not drawn; the floor needs a nearer near plane and a farther far plane.
      projection = isDeep
        ? perspective(fov, aspect, 0.2 * near, 4 * far)
        : perspective(fov, aspect, near, far);
    }
    return { eye, target, up, view: lookAt(eye, target, up), projection, isOrthographic };
  }

  /** Corners of the view volume of a frame's camera, as the ends of its edges. */
  static edgesOf({ pose }) {
    const [eye, target, up] = [1, 4, 7].map((at) => Array.from(pose.subarray(at, at + 3)));
    const axes = axesOf(eye, target, up);
    const corners = [];
    const add = (distance, across, upwards) =>
      corners.push(
        eye.map((value, k) => {
          const sideways = axes.right[k] * across + axes.up[k] * upwards;
          return value + sideways - axes.back[k] * distance;
        })
      );
    const isOrthographic = pose[0] === protocol.kOrthographic;
    for (const distance of isOrthographic ? [pose[14], pose[15]] : [pose[12], pose[13]]) {
      for (const y of [0, 1]) {
        for (const x of [0, 1]) {
          if (isOrthographic) {
            add(distance, pose[10 + x], pose[12 + y]);
          } else {
            const slope = Math.tan(pose[10] / 2) * distance;
            add(distance, (2 * x - 1) * slope * pose[11], (2 * y - 1) * slope);
          }
        }
      }
    }
    return Float32Array.from([].concat(...kEdges.map((corner) => corners[corner])));
  }

  /** The camera from outside, which shows all, and the frame's camera. */
  outsideCamera(aspect) {
    const { yaw, pitch, distance } = this.orbit;
    const [x, y, z, radius] = this.frame.bounds;
    const away = distance * radius;
    const eye = [
      x + away * Math.sin(yaw) * Math.cos(pitch),
      y + away * Math.sin(pitch),
      z + away * Math.cos(yaw) * Math.cos(pitch),
    ];
    const projection = perspective(kOutsideFov, aspect, 0.01 * radius, 20 * radius);
    return { eye, view: lookAt(eye, [x, y, z], [0, 1, 0]), projection, isOrthographic: false };
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
    this.ratio = Math.min(2, self.devicePixelRatio || 1);
    const { canvas } = this;
    canvas.width = Math.max(1, Math.floor(canvas.clientWidth * this.ratio));
    canvas.height = Math.max(1, Math.floor(canvas.clientHeight * this.ratio));
  }

  /** Distance of lines on the floor: that of the scene, or a round number for its size. */
  get cell() {
    const { unit } = this.scene;
    return unit > 0 ? unit : 10 ** Math.floor(Math.log10(this.frame.bounds[3] || 1));
  }

  /**
   * Draws the frame.
   * @param {boolean} isOutside from beside all instead of through the frame's camera
   */
  draw(isOutside) {
    const { gl, frame } = this;
    const { clientWidth: width, clientHeight: height } = this.canvas;
    if (frame === null || width === 0 || height === 0 || gl.isContextLost()) {
      return;
    }
    const [x, y, z, radius, floor] = frame.bounds;
    const isThrough = !isOutside && Picture.hasCamera(frame);
    const rectangle = { x: 0, y: 0, width, height };
    let camera;
    if (isThrough) {
      camera = this.frameCamera(frame, true);
      // The canvas may have another aspect ratio than the camera.
      const aspect = Picture.aspectOf(frame);
      rectangle.width = Math.min(width, height * aspect);
      rectangle.height = Math.min(height, width / aspect);
      rectangle.x = (width - rectangle.width) / 2;
      rectangle.y = (height - rectangle.height) / 2;
    } else {
      camera = this.outsideCamera(width / height);
    }
    this.eye = camera.eye;
    this.hasEdges = !isThrough && Picture.hasCamera(frame);
    this.viewProjection = multiply(camera.projection, camera.view);
    const isDeep = !camera.isOrthographic;
    const distance = isThrough ? 1 : this.orbit.distance;
    const values = {
      uViewProjection: this.viewProjection,
      uView: camera.view,
      uEye: camera.eye,
      uIsOrthographic: camera.isOrthographic,
      uLight: kLight,
      uSky: kSky,
      uFogNear: isDeep ? radius * distance * (isThrough ? 0.7 : 1) : 1e9,
      uFogFar: isDeep ? radius * (distance + 1.6) : 2e9,
      uFloor: floor,
      uMiddle: [x, y, z],
      uRadius: radius,
      uCell: this.cell,
      uMatrices: 0,
      uPalettes: 1,
      // Pixels of a unit at distance 1.
      uHeight: rectangle.height * this.ratio * camera.projection[5],
    };
    this.clear(rectangle);
    if (this.isResting) {
      return;
    }
    this.drawSolids(values);
    this.drawLights(values);
    this.drawLines(values);
    gl.bindVertexArray(null);
  }

  clear(rectangle) {
    const { gl, canvas } = this;
    gl.disable(gl.SCISSOR_TEST);
    gl.depthMask(true);
    gl.viewport(0, 0, canvas.width, canvas.height);
    gl.clearColor(...kSky, 1);
    gl.clear(gl.COLOR_BUFFER_BIT | gl.DEPTH_BUFFER_BIT | gl.STENCIL_BUFFER_BIT);
    const pixels = ['x', 'y', 'width', 'height'].map((k) => Math.round(rectangle[k] * this.ratio));
    gl.viewport(...pixels);
    gl.scissor(...pixels);
    gl.enable(gl.SCISSOR_TEST);
    gl.enable(gl.DEPTH_TEST);
    gl.disable(gl.BLEND);
    gl.activeTexture(gl.TEXTURE0);
    gl.bindTexture(gl.TEXTURE_2D, this.matrices);
  }

  /** Floor, meshes and their shadows. */
  drawSolids(values) {
    const { gl, programs } = this;
    gl.depthMask(false);
    programs.floor.use(values);
    this.square.bind();
    gl.drawArrays(gl.TRIANGLE_STRIP, 0, 4);
    gl.depthMask(true);
    if (!this.shown.meshes) {
      return;
    }
    programs.body.use(values);
    this.meshes.forEach((mesh, i) => {
      if (!this.hidden.has(i)) {
        mesh.draw(programs.body);
      }
    });
    // Shadows darken a pixel once, however many overlap (stencil).
    gl.depthMask(false);
    gl.enable(gl.BLEND);
    gl.blendFuncSeparate(gl.SRC_ALPHA, gl.ONE_MINUS_SRC_ALPHA, gl.ONE, gl.ONE_MINUS_SRC_ALPHA);
    gl.enable(gl.STENCIL_TEST);
    gl.stencilFunc(gl.EQUAL, 0, 0xff);
    gl.stencilOp(gl.KEEP, gl.KEEP, gl.INCR);
    programs.shadow.use(values);
    this.meshes.forEach((mesh) => mesh.draw(programs.shadow));
    gl.disable(gl.STENCIL_TEST);
  }

  /** Lights with screen blending, so that many of them do not saturate to white. */
  drawLights(values) {
    const { gl, programs } = this;
    if (this.lights === 0 || !this.shown.lights || !this.shown.meshes) {
      return;
    }
    gl.blendFuncSeparate(gl.ONE_MINUS_DST_COLOR, gl.ONE, gl.ZERO, gl.ONE);
    programs.pool.use(Object.assign({}, values, { uSize: kPoolSize * this.cell }));
    this.pools.bind();
    gl.drawArraysInstanced(gl.TRIANGLE_STRIP, 0, 4, this.lights);
    programs.glow.use(Object.assign({}, values, { uSize: kGlowSize * this.cell }));
    this.glows.bind();
    gl.drawArrays(gl.POINTS, 0, this.lights);
  }

  /** Spheres, skeletons, nodes, and the edges of a camera. */
  drawLines(values) {
    const { gl, programs, frame, shown } = this;
    gl.depthMask(false);
    gl.enable(gl.BLEND);
    gl.blendFuncSeparate(gl.SRC_ALPHA, gl.ONE_MINUS_SRC_ALPHA, gl.ONE, gl.ONE_MINUS_SRC_ALPHA);
    if (shown.spheres && frame.counts.spheres > 0) {
      programs.spheres.use(
        Object.assign({}, values, { uColor: kSeenSphere, uUnseen: kUnseenSphere })
      );
      this.circles.bind();
      gl.drawArraysInstanced(gl.LINES, 0, 6 * kCircleLines, frame.counts.spheres);
    }
    // Bones are inside of meshes, and shine through.
    gl.disable(gl.DEPTH_TEST);
    programs.lines.use(Object.assign({}, values, { uColor: kBone, uSize: 1 }));
    if (shown.skeletons && frame.counts.segments > 0) {
      this.bones.bind();
      gl.drawArrays(gl.LINES, 0, 2 * frame.counts.segments);
    }
    if (shown.nodes && frame.counts.nodes > 0) {
      programs.lines.set({ uColor: kNode, uSize: kNodePixels * this.ratio });
      this.points.bind();
      gl.drawArrays(gl.POINTS, 0, frame.counts.nodes);
    }
    gl.enable(gl.DEPTH_TEST);
    if (this.hasEdges) {
      programs.lines.set({ uColor: kViewEdge });
      this.lines.set('edges', Picture.edgesOf(frame), [['aPosition', 3]]);
      this.lines.bind();
      gl.drawArrays(gl.LINES, 0, kEdges.length);
    }
  }
}
