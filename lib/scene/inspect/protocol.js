'use strict';
// The messages between a server and its pages, for both: the server requires this file, the page loads it as a script,
// which defines `nqProtocol`.
//
// Server to page: binary messages, little-endian, of two kinds. All sections start at multiples of 4.
//
//   scene    before the frames that need it, and again after a change: constant data
//     0    u8     version, 2
//     1    u8     kind, 1
//     2    u16    0
//     4    u32    n, bytes of the text; a multiple of 4
//     8           JSON in UTF-8, padded with spaces, see SceneFacts; its `arrays` describes the arrays, as
//                 {name: [type, byte offset from the end of the text, length in elements]}
//     8+n         the arrays
//
//   frame
//     0    u8     version, 2
//     1    u8     kind, 2
//     2    u8     camera of the page, as a place in `cameras` of the scene; 255 for none
//     3    u8     bits: 1 paused; 2 << i: slider i is set by the user
//     4    u32    number of the frame, from 1
//     8    f64    milliseconds since the start of the server
//    16    u32    objects that a camera may see
//    20    u32    frames that were dropped for this page, since it had not drawn earlier ones
//    24    f32    camera: 0 perspective, 1 orthographic; eye x y z, target x y z, up x y z; then
//    64    f32      perspective: vertical angle in radians, width over height, near, far, 0, 0
//                   orthographic: left, right, bottom, top, near, far
//    88    f32    bounding sphere of all: center x y z, radius; 104: height of the floor
//   108    u32    s, stages of a frame
//   112    u32    r, frames since the last one that the page was sent, with this one
//   116    u32    k, cameras
//   120    u32    l, sliders
//   124    u32    c, counters
//   128    u32    m, meshes
//   132    u32    i, instances of meshes
//   136    u32    b, their matrices: for each instance as many as its mesh has bones
//   140    u32    n, nodes
//   144    u32    e, segments: the lines between nodes
//   148    u32    o, spheres
//   152    f32    r times s times milliseconds of a stage, oldest frame first
//          u32    k times the number of objects that a camera sees
//          f32    l times the value of a slider
//          u32    c times the value of a counter
//          u32    m times the number of instances of a mesh
//          u32    i times the number of what the instance shows
//          u32    i times the palette of its mesh that the instance has
//          f32    i times red, green, blue that tint an instance, 0 to 1
//          f32    b times a matrix, 16 elements, column-major, from the space of vertices to the world
//          f32    n times x y z of a node
//          f32    e times x y z of both ends of a segment
//          f32    o times x y z and radius of a sphere
//          u32    o times whether the page's camera sees it
//
// Page to server: text messages, JSON, an object of any of
//   {"drawn": number of the frame}   the last frame that the page has drawn
//   {"camera": 0...}                 the camera whose view is sent to this page
//   {"aspect": 0.2...5}              width over height of this page's picture
//   {"paused": true or false}        if the scene can be paused
//   {name of a slider: value}        or null for no value of the user's, if it is steered
(function define(root, create) {
  const protocol = create();
  if (typeof module === 'object') {
    module.exports = protocol;
  } else {
    root.nqProtocol = protocol;
  }
})(typeof self === 'undefined' ? global : self, () => {
  const kVersion = 2;
  const kinds = Object.freeze({ scene: 1, frame: 2 });
  const kPaused = 1;
  const kNoCamera = 255;
  const kOrthographic = 1;

  /** Size of the header of a frame, and offsets of its fields. */
  const head = Object.freeze({
    version: 0,
    kind: 1,
    camera: 2,
    flags: 3,
    frame: 4,
    time: 8,
    total: 16,
    skipped: 20,
    pose: 24,
    bounds: 88,
    counts: 108,
    size: 152,
  });
  const kPoseFloats = 16;
  const kBoundsFloats = 5;

  const kSceneHead = 8;
  const kAspects = Object.freeze([0.2, 5]);
  const kMostControlBytes = 1024;

  /**
   * A slider of the page.
   * @typedef {Object} Slider
   * @property {string} name of its control
   * @property {string} title
   * @property {number} min
   * @property {number} max
   * @property {number} step a whole number lets only whole numbers pass
   * @property {boolean} isSteered whether the server sets it as long as the user does not
   * @property {?string[]} blends names of what the value blends, from the first to the last; null for others
   */

  /**
   * A mesh. Its arrays are named after its place: `0.positions` (3 floats a vertex), `0.normals` (3), `0.bones` (4 u16),
   * `0.weights` (4 floats), `0.parts` (u8), `0.triangles` (3 u32 a triangle).
   * @typedef {Object} MeshFacts
   * @property {string} name
   * @property {number} bones matrices of an instance
   * @property {number[][][]} palettes of each, the parts' red, green, blue, 0 to 255, and the fraction of the tint that is
   *   added
   * @property {?{place: number[], color: number[]}} glow a light in the space of the first bone
   */

  /**
   * The data of a scene.
   * @typedef {Object} SceneFacts
   * @property {string} title of the page
   * @property {string} name of what it shows
   * @property {string} subject what there is, in a line
   * @property {string[]} notes
   * @property {string} restart the command that starts the server, '' if it is part of another program
   * @property {number} unit distance of lines on the floor
   * @property {Array<string[]>} stages name and title of each
   * @property {string[]} cameras
   * @property {string[]} counters
   * @property {Slider[]} sliders
   * @property {boolean} canPause
   * @property {string[]} parts what the user can hide: of 'meshes', 'spheres', 'skeletons', 'nodes'
   * @property {MeshFacts[]} meshes
   */

  const arrayTypes = {
    f32: Float32Array,
    u32: Uint32Array,
    u16: Uint16Array,
    u8: Uint8Array,
  };

  if (new Uint8Array(Uint32Array.of(1).buffer)[0] !== 1) {
    throw new Error('messages are little-endian, this machine is not: use another one.');
  }

  /** Rounds a number of bytes up to whole words. */
  function padded(bytes) {
    return (bytes + 3) & ~3;
  }

  /** Checks the header of a message. */
  function checkStart(view, kind, name) {
    if (view.byteLength < kSceneHead) {
      throw new RangeError(`a message of ${view.byteLength} bytes is no ${name}: it is truncated.`);
    }
    const [version, found] = [view.getUint8(head.version), view.getUint8(head.kind)];
    if (version !== kVersion) {
      const trouble = `the message is of version ${version}, not ${kVersion}`;
      throw new RangeError(`${trouble}: reload the page from the running server.`);
    }
    if (found !== kind) {
      throw new RangeError(`the message is of kind ${found}: no ${name} (kind ${kind}).`);
    }
  }

  /**
   * Kind of a message.
   * @param {ArrayBuffer} buffer
   * @returns {number} one of `kinds`, or 0 for any other
   */
  function kindOf(buffer) {
    const kind = buffer.byteLength > head.kind ? new Uint8Array(buffer)[head.kind] : 0;
    return kind === kinds.scene || kind === kinds.frame ? kind : 0;
  }

  /**
   * Writes a scene.
   * @param {SceneFacts} facts data for the JSON part
   * @param {Object<string, TypedArray>} arrays
   * @param {function(string): Uint8Array} toBytes of UTF-8
   * @returns {ArrayBuffer}
   */
  function encodeScene(facts, arrays, toBytes) {
    const table = {};
    let end = 0;
    for (const name of Object.keys(arrays)) {
      const array = arrays[name];
      const type = Object.keys(arrayTypes).find((key) => array instanceof arrayTypes[key]);
      if (type === undefined) {
        throw new TypeError(
          `array '${name}' of the scene is of no known type: give a typed array.`
        );
      }
      table[name] = [type, end, array.length];
      end += padded(array.byteLength);
    }
    const text = toBytes(JSON.stringify(Object.assign({}, facts, { arrays: table })));
    const first = kSceneHead + padded(text.length);
    const bytes = new Uint8Array(first + end);
    const view = new DataView(bytes.buffer);
    view.setUint8(head.version, kVersion);
    view.setUint8(head.kind, kinds.scene);
    view.setUint32(4, padded(text.length), true);
    bytes.set(text, kSceneHead);
    bytes.fill(0x20, kSceneHead + text.length, first);
    for (const name of Object.keys(arrays)) {
      const { buffer, byteOffset, byteLength } = arrays[name];
      bytes.set(new Uint8Array(buffer, byteOffset, byteLength), first + table[name][1]);
    }
    return bytes.buffer;
  }

  /**
   * Reads a scene.
   * @param {ArrayBuffer} buffer
   * @param {function(Uint8Array): string} toText of UTF-8
   * @returns {SceneFacts} the data of the JSON part, and `arrays` by name: views of the message
   */
  function decodeScene(buffer, toText) {
    const view = new DataView(buffer);
    checkStart(view, kinds.scene, 'scene');
    const length = view.getUint32(4, true);
    if (kSceneHead + length > buffer.byteLength) {
      throw new RangeError(`the scene's text of ${length} bytes is truncated.`);
    }
    const facts = JSON.parse(toText(new Uint8Array(buffer, kSceneHead, length)));
    for (const name of Object.keys(facts.arrays)) {
      const [type, offset, elements] = facts.arrays[name];
      facts.arrays[name] = new arrayTypes[type](buffer, kSceneHead + length + offset, elements);
    }
    return facts;
  }

  /**
   * @typedef {Object} Counts
   * @property {number} stages
   * @property {number} rows
   * @property {number} cameras
   * @property {number} sliders
   * @property {number} counters
   * @property {number} meshes
   * @property {number} instances
   * @property {number} matrices
   * @property {number} nodes
   * @property {number} segments
   * @property {number} spheres
   */

  const countNames = [
    ...['stages', 'rows', 'cameras', 'sliders', 'counters'],
    ...['meshes', 'instances', 'matrices', 'nodes', 'segments', 'spheres'],
  ];

  /** Sections of a frame in their order: name, type, elements. */
  function sectionsOf(counts) {
    const { instances, spheres } = counts;
    return [
      ['history', Float32Array, counts.rows * counts.stages],
      ['visible', Uint32Array, counts.cameras],
      ['sliders', Float32Array, counts.sliders],
      ['counters', Uint32Array, counts.counters],
      ['instanceCounts', Uint32Array, counts.meshes],
      ['ids', Uint32Array, instances],
      ['variants', Uint32Array, instances],
      ['tints', Float32Array, 3 * instances],
      ['matrices', Float32Array, 16 * counts.matrices],
      ['nodes', Float32Array, 3 * counts.nodes],
      ['segments', Float32Array, 6 * counts.segments],
      ['spheres', Float32Array, 4 * spheres],
      ['seen', Uint32Array, spheres],
    ];
  }

  /**
   * Bytes of a frame.
   * @param {Counts} counts
   * @returns {number}
   */
  function frameBytes(counts) {
    return sectionsOf(counts).reduce(
      (sum, [, type, n]) => sum + n * type.BYTES_PER_ELEMENT,
      head.size
    );
  }

  /** Views of a frame's fields and sections. */
  function viewsOf(buffer, counts) {
    const views = {
      pose: new Float32Array(buffer, head.pose, kPoseFloats),
      bounds: new Float32Array(buffer, head.bounds, kBoundsFloats),
    };
    let at = head.size;
    for (const [name, type, length] of sectionsOf(counts)) {
      views[name] = new type(buffer, at, length);
      at += length * type.BYTES_PER_ELEMENT;
    }
    return views;
  }

  /**
   * Writes the header of a frame, and returns views of the parts that are still to be written.
   * @param {ArrayBuffer} buffer with room for it
   * @param {Counts} counts
   * @param {{camera: number, flags: number, frame: number, time: number, total: number,
   *     skipped: number}} facts
   * @returns {{pose: Float32Array, bounds: Float32Array, history: Float32Array, visible: Uint32Array,
   *     sliders: Float32Array, counters: Uint32Array, instanceCounts: Uint32Array, ids: Uint32Array,
   *     variants: Uint32Array, tints: Float32Array, matrices: Float32Array, nodes: Float32Array,
   *     segments: Float32Array, spheres: Float32Array, seen: Uint32Array}}
   */
  function beginFrame(buffer, counts, facts) {
    const view = new DataView(buffer);
    view.setUint8(head.version, kVersion);
    view.setUint8(head.kind, kinds.frame);
    view.setUint8(head.camera, facts.camera);
    view.setUint8(head.flags, facts.flags);
    view.setUint32(head.frame, facts.frame, true);
    view.setFloat64(head.time, facts.time, true);
    view.setUint32(head.total, facts.total, true);
    view.setUint32(head.skipped, facts.skipped, true);
    countNames.forEach((name, i) => view.setUint32(head.counts + 4 * i, counts[name], true));
    return viewsOf(buffer, counts);
  }

  /**
   * Reads a frame.
   * @param {ArrayBuffer} buffer
   * @returns {Object} the facts, the counts, the views of `beginFrame`, and `milliseconds`: the last row of the history
   */
  function decodeFrame(buffer) {
    const view = new DataView(buffer);
    checkStart(view, kinds.frame, 'frame');
    if (buffer.byteLength < head.size) {
      throw new RangeError(`a frame of ${buffer.byteLength} bytes is truncated.`);
    }
    const counts = {};
    countNames.forEach((name, i) => {
      counts[name] = view.getUint32(head.counts + 4 * i, true);
    });
    const expected = frameBytes(counts);
    if (buffer.byteLength !== expected) {
      throw new RangeError(
        `the frame has ${buffer.byteLength} bytes; its counts require ${expected}.`
      );
    }
    const views = viewsOf(buffer, counts);
    const instances = views.instanceCounts.reduce((sum, count) => sum + count, 0);
    if (instances !== counts.instances) {
      throw new RangeError(
        `the frame has ${counts.instances} instances; its meshes require ${instances}.`
      );
    }
    return Object.assign(
      {
        camera: view.getUint8(head.camera),
        flags: view.getUint8(head.flags),
        frame: view.getUint32(head.frame, true),
        time: view.getFloat64(head.time, true),
        total: view.getUint32(head.total, true),
        skipped: view.getUint32(head.skipped, true),
        counts,
        milliseconds: views.history.subarray(Math.max(0, counts.rows - 1) * counts.stages),
      },
      views
    );
  }

  /** The bit of a slider in the flags of a frame. */
  const flagOf = (slider) => 2 << slider;

  const isIn = (value, least, most) => typeof value === 'number' && value >= least && value <= most;

  /** Validates the value of a slider. */
  function isSliderValue(value, { min, max, step, isSteered }) {
    if (value === null) {
      return isSteered;
    }
    return isIn(value, min, max) && (!Number.isInteger(step) || Number.isInteger(value));
  }

  /** Validates the values of other controls. */
  const controls = {
    drawn: (value) => Number.isInteger(value) && isIn(value, 0, 0xffffffff),
    camera: (value, { cameras }) => Number.isInteger(value) && isIn(value, 0, cameras - 1),
    aspect: (value) => isIn(value, kAspects[0], kAspects[1]),
    paused: (value, { canPause }) => typeof value === 'boolean' && canPause,
  };

  /**
   * Parses the controls that a page sends.
   * @param {string} text
   * @param {{sliders: Slider[], cameras: number, canPause: boolean}} limits
   * @returns {Object} controls by name, each checked
   * @throws {RangeError} naming what is wrong
   */
  function decodeControls(text, limits) {
    let asked = null;
    try {
      asked = JSON.parse(text);
    } catch (error) {
      throw new RangeError('a control is no JSON.');
    }
    if (typeof asked !== 'object' || asked === null || Array.isArray(asked)) {
      throw new RangeError('a control is no JSON object.');
    }
    for (const name of Object.keys(asked)) {
      const slider = limits.sliders.find((one) => one.name === name);
      if (slider === undefined && !Object.prototype.hasOwnProperty.call(controls, name)) {
        throw new RangeError(`there is no control '${name.slice(0, 20)}'.`);
      }
      const value = asked[name];
      const isRight =
        slider === undefined ? controls[name](value, limits) : isSliderValue(value, slider);
      if (!isRight) {
        throw new RangeError(`control '${name}' is out of its range.`);
      }
    }
    return asked;
  }

  return Object.freeze({
    beginFrame,
    decodeControls,
    decodeFrame,
    decodeScene,
    encodeScene,
    flagOf,
    frameBytes,
    head,
    kAspects,
    kMostControlBytes,
    kNoCamera,
    kOrthographic,
    kPaused,
    kVersion,
    kindOf,
    kinds,
  });
});
