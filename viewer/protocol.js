'use strict';
// The messages between the server and the page, for both: the server requires this file, the page loads it as a script,
// which defines `nqProtocol`.
//
// Server to page: binary messages, little-endian, of two kinds. All sections start at multiples of 4.
//
//   scene    once, before all frames: constant data
//     0    u8     version, 1
//     1    u8     kind, 1
//     2    u16    0
//     4    u32    n, bytes of the text; a multiple of 4
//     8           JSON in UTF-8, padded with spaces; its `arrays` describes the arrays, as
//                 {name: [type, byte offset from the end of the text, length in elements]}
//     8+n         the arrays
//
//   frame    the characters that the page's camera sees, nearest first
//     0    u8     version, 1
//     1    u8     kind, 2
//     2    u8     camera: 0 perspective, 1 overview
//     3    u8     bits: 1 paused; 2, 4, 8 crossfade, wave, breath are set by the user
//     4    u32    number of the frame, from 1
//     8    f64    milliseconds since the start of the server
//    16    u32    active characters
//    20    u32    visible to the page's perspective camera
//    24    u32    visible to its overview
//    28    u32    frames that were dropped for this page, since it had not drawn earlier ones
//    32    f32    crossfade, mean of the active characters: 0 first clip, 1 last clip
//    36    f32    weight of the wave, mean of those that carry something
//    40    f32    weight of the breath, mean
//    44    f32    camera: eye x y z, target x y z, up x y z; then
//    80    f32      perspective: vertical angle in radians, width over height, near, far, 0, 0
//                   overview: left, right, bottom, top, near, far
//   104    f32    bounding sphere of the crowd: centre x y z, radius; 120: height of the floor
//   124    u32    s, stages of a frame
//   128    u32    n, characters
//   132    u32    c, clips
//   136    u32    b, bones
//   140    u32    p, characters of these that carry something
//   144    f32    s times milliseconds of a stage
//          u32    n times the number of a character
//          f32    n times c weights of clips
//          u32    p times the number of a character
//          f32    p times the world matrix of what it carries, 16 elements, column-major
//          f32    n times b skinning matrices, 16 elements, column-major
//
// Page to host: text messages, JSON, an object of any of
//   {"drawn": number of the frame}   the last frame that the page has drawn
//   {"crowd": 1...}                  active characters
//   {"crossfade": 0...1, or null}    the user's value, or null for the plan's
//   {"wave": 0...1, or null}
//   {"breath": 0...1, or null}
//   {"camera": 0 or 1}               the camera whose view is sent to this page
//   {"aspect": 0.2...5}              width over height of both cameras of this page
//   {"paused": true or false}
(function define(root, create) {
  const protocol = create();
  if (typeof module === 'object') {
    module.exports = protocol;
  } else {
    root.nqProtocol = protocol;
  }
})(typeof self === 'undefined' ? global : self, () => {
  const kVersion = 1;
  const kinds = Object.freeze({ scene: 1, frame: 2 });
  const cameras = Object.freeze({ perspective: 0, overview: 1 });
  const flags = Object.freeze({ paused: 1, crossfade: 2, wave: 4, breath: 8 });

  /** Names of the sliders that either the user or the plan sets. */
  const sliders = Object.freeze(['crossfade', 'wave', 'breath']);

  /** Size of the header of a frame, and offsets of its fields. */
  const head = Object.freeze({
    version: 0,
    kind: 1,
    camera: 2,
    flags: 3,
    frame: 4,
    time: 8,
    crowd: 16,
    visible: 20,
    skipped: 28,
    sliders: 32,
    pose: 44,
    bounds: 104,
    counts: 124,
    size: 144,
  });
  const kPoseFloats = 15;
  const kBoundsFloats = 5;

  const kSceneHead = 8;
  const kAspects = Object.freeze([0.2, 5]);
  const kMostControlBytes = 1024;

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
   * @param {Object} facts data for the JSON part
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
   * @returns {Object} the data of the JSON part, and `arrays` by name: views of the message
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
   * @property {number} characters
   * @property {number} clips
   * @property {number} bones
   * @property {number} carriers
   */

  const countNames = ['stages', 'characters', 'clips', 'bones', 'carriers'];

  /** Sections of a frame in their order: name, type, elements. */
  function sectionsOf({ stages, characters, clips, bones, carriers }) {
    return [
      ['milliseconds', Float32Array, stages],
      ['characters', Uint32Array, characters],
      ['weights', Float32Array, characters * clips],
      ['carriers', Uint32Array, carriers],
      ['carried', Float32Array, 16 * carriers],
      ['matrices', Float32Array, 16 * bones * characters],
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
      visible: new Uint32Array(buffer, head.visible, 2),
      sliders: new Float32Array(buffer, head.sliders, sliders.length),
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
   * @param {{camera: number, flags: number, frame: number, time: number, crowd: number,
   *     skipped: number}} facts
   * @returns {{visible: Uint32Array, sliders: Float32Array, pose: Float32Array, bounds: Float32Array,
   *     milliseconds: Float32Array, characters: Uint32Array, weights: Float32Array,
   *     carriers: Uint32Array, carried: Float32Array, matrices: Float32Array}}
   */
  function beginFrame(buffer, counts, facts) {
    const view = new DataView(buffer);
    view.setUint8(head.version, kVersion);
    view.setUint8(head.kind, kinds.frame);
    view.setUint8(head.camera, facts.camera);
    view.setUint8(head.flags, facts.flags);
    view.setUint32(head.frame, facts.frame, true);
    view.setFloat64(head.time, facts.time, true);
    view.setUint32(head.crowd, facts.crowd, true);
    view.setUint32(head.skipped, facts.skipped, true);
    countNames.forEach((name, i) => view.setUint32(head.counts + 4 * i, counts[name], true));
    return viewsOf(buffer, counts);
  }

  /**
   * Reads a frame.
   * @param {ArrayBuffer} buffer
   * @returns {Object} the facts, the counts, and the views of `beginFrame`
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
    return Object.assign(
      {
        camera: view.getUint8(head.camera),
        flags: view.getUint8(head.flags),
        frame: view.getUint32(head.frame, true),
        time: view.getFloat64(head.time, true),
        crowd: view.getUint32(head.crowd, true),
        skipped: view.getUint32(head.skipped, true),
        counts,
      },
      viewsOf(buffer, counts)
    );
  }

  const isPart = (value) => typeof value === 'number' && value >= 0 && value <= 1;
  const isPartOrNull = (value) => value === null || isPart(value);

  /** Validates the value of each control. */
  const controls = {
    drawn: (value) => Number.isInteger(value) && value >= 0 && value <= 0xffffffff,
    crowd: (value, { characters }) => Number.isInteger(value) && value >= 1 && value <= characters,
    crossfade: isPartOrNull,
    wave: isPartOrNull,
    breath: isPartOrNull,
    camera: (value) => value === cameras.perspective || value === cameras.overview,
    aspect: (value) => typeof value === 'number' && value >= kAspects[0] && value <= kAspects[1],
    paused: (value) => typeof value === 'boolean',
  };

  /**
   * Parses the controls that a page sends.
   * @param {string} text
   * @param {{characters: number}} limits the largest crowd
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
      if (!Object.prototype.hasOwnProperty.call(controls, name)) {
        throw new RangeError(`there is no control '${name.slice(0, 20)}'.`);
      }
      if (!controls[name](asked[name], limits)) {
        throw new RangeError(`control '${name}' is out of its range.`);
      }
    }
    return asked;
  }

  return Object.freeze({
    beginFrame,
    cameras,
    decodeControls,
    decodeFrame,
    decodeScene,
    encodeScene,
    flags,
    frameBytes,
    head,
    kAspects,
    kMostControlBytes,
    kVersion,
    kindOf,
    kinds,
    sliders,
  });
});
