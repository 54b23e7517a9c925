'use strict';
// Scenes from glTF 2.0 files: the node tree of the default scene, driven by the first clip.
const fs = require('fs');
const path = require('path');
const { Logger, NodeIO } = require('@gltf-transform/core');
const { clipSeconds, sampleTrack } = require('./clip');
const { checkGltf } = require('./gltf-check');
const { setAxisAngle, multiply } = require('./quaternion');
const { UserError, fileTrouble, oneLine } = require('./user-error');

const kGlbMagic = 0x46546c67; // "glTF"
const kGlbHeaderBytes = 12;
const kChunkHeaderBytes = 8;

/** Seconds of a whole turn of a model that has no clip. */
const kTurnSeconds = 8;

/**
 * Reads a file and tells what is wrong with it as early and as plainly as possible.
 * @param {string} file
 * @throws {UserError}
 */
function checkFile(file) {
  let bytes;
  try {
    bytes = fs.readFileSync(file);
  } catch (error) {
    const trouble = fileTrouble(error);
    throw new UserError(`model '${file}' can't be read, ${trouble}: give a .glb or .gltf file.`);
  }
  const isGlb = bytes.length >= 4 && bytes.readUInt32LE(0) === kGlbMagic;
  const extension = path.extname(file).toLowerCase();
  if (!isGlb && extension !== '.gltf') {
    throw new UserError(`model '${file}' is not a glTF file: give a .glb or .gltf file.`);
  }
  if (isGlb && extension !== '.glb') {
    throw new UserError(`model '${file}' is a binary glTF file: rename it to end in .glb.`);
  }
  if (isGlb) {
    checkBinaryFile(file, bytes);
  }
}

/**
 * Follows the lengths that a binary file states, of the whole and of its chunks, to their ends.
 * @param {string} file
 * @param {Buffer} bytes
 * @throws {UserError}
 */
function checkBinaryFile(file, bytes) {
  const stated = bytes.length < kGlbHeaderBytes ? kGlbHeaderBytes : bytes.readUInt32LE(8);
  let end = kGlbHeaderBytes;
  while (end < stated && end < bytes.length) {
    const whole = end + kChunkHeaderBytes <= bytes.length;
    end += kChunkHeaderBytes + (whole ? bytes.readUInt32LE(end) : 0);
  }
  const expected = Math.max(stated, end);
  if (bytes.length < expected) {
    const sizes = `${bytes.length} of ${expected} bytes`;
    throw new UserError(`model '${file}' is cut short, ${sizes}: copy or export it again.`);
  }
}

/**
 * The tree below a scene's nodes in depth-first order, children in their order.
 * @param {Object} scene of the document
 * @returns {Array<{node: Object, parent: number, depth: number}>}
 */
function flatten(scene) {
  const flat = [];
  const stack = scene
    .listChildren()
    .map((node) => ({ node, parent: -1, depth: 0 }))
    .reverse();
  while (stack.length > 0) {
    const entry = stack.pop();
    const parent = flat.push(entry) - 1;
    for (const node of entry.node.listChildren().reverse()) {
      stack.push({ node, parent, depth: entry.depth + 1 });
    }
  }
  return flat;
}

/** All elements of an accessor as floats; normalised integers become fractions. */
function readAccessor(accessor) {
  const width = accessor.getElementSize();
  const values = new Float32Array(accessor.getCount() * width);
  for (let i = 0; i < accessor.getCount(); ++i) {
    values.set(accessor.getElement(i, []), i * width);
  }
  return values;
}

/** A channel as a track, checked; null for one that moves no node of the scene. */
function readTrack(channel, indices) {
  const property = channel.getTargetPath();
  const node = indices.get(channel.getTargetNode());
  const sampler = channel.getSampler();
  if (node === undefined || !['translation', 'rotation', 'scale'].includes(property)) {
    return null;
  }
  if (!sampler || !sampler.getInput() || !sampler.getOutput()) {
    throw new Error('a channel of its clip has no keys');
  }
  const interpolation = sampler.getInterpolation();
  const times = readAccessor(sampler.getInput());
  const values = readAccessor(sampler.getOutput());
  const width = property === 'rotation' ? 4 : 3;
  const perKey = interpolation === 'CUBICSPLINE' ? 3 * width : width;
  if (times.length === 0 || values.length !== times.length * perKey) {
    throw new Error('times and values of its clip disagree');
  }
  if (!values.every(Number.isFinite)) {
    throw new Error('a value of its clip is not a number');
  }
  if (times.some((time, i) => !(time > (i === 0 ? -Infinity : times[i - 1])))) {
    throw new Error('key times of its clip do not rise');
  }
  return { node, property, interpolation, times, values };
}

/** The part of a scene that drives nodes by the tracks of a clip, over and over. */
function clipMotion(name, tracks) {
  const seconds = clipSeconds(tracks);
  const value = [0, 0, 0, 0];
  const setters = { translation: 'setPosition', rotation: 'setRotation', scale: 'setScale' };
  return {
    motion: `clip '${name}', ${seconds.toFixed(2)} s`,
    animated: Array.from(new Set(tracks.map(({ node }) => node))),
    pose(time, target) {
      const moment = seconds > 0 ? time % seconds : 0;
      for (const track of tracks) {
        sampleTrack(track, moment, value);
        target[setters[track.property]](track.node, value);
      }
    },
  };
}

/** The part of a scene that turns the roots about the vertical. */
function turningMotion(nodes) {
  const roots = nodes.map((node, index) => index).filter((index) => nodes[index].parent < 0);
  const turn = [0, 0, 0, 1];
  const rotation = [0, 0, 0, 1];
  return {
    motion: 'no clip; its roots turn',
    animated: roots,
    pose(time, target) {
      setAxisAngle([0, 1, 0], (2 * Math.PI * time) / kTurnSeconds, turn);
      for (const root of roots) {
        target.setRotation(root, multiply(turn, nodes[root].rotation, rotation));
      }
    },
  };
}

/**
 * Turns a document into a scene.
 * @param {Object} document
 * @param {string} name
 * @returns {import('./engine-scene').Scene}
 */
function sceneOfDocument(document, name) {
  const root = document.getRoot();
  const scene = root.getDefaultScene() || root.listScenes()[0];
  const flat = scene ? flatten(scene) : [];
  if (flat.length === 0) {
    throw new Error('it has no scene with nodes');
  }
  const indices = new Map(flat.map(({ node }, index) => [node, index]));
  const nodes = flat.map(({ node, parent, depth }) => ({
    parent,
    position: node.getTranslation(),
    rotation: node.getRotation(),
    scale: node.getScale(),
    hue: (190 + 22 * depth) % 360,
  }));
  for (const clip of root.listAnimations().slice(0, 1)) {
    const tracks = clip.listChannels().map((channel) => readTrack(channel, indices));
    const usable = tracks.filter((track) => track !== null);
    if (usable.length > 0) {
      return Object.assign({ name, nodes }, clipMotion(clip.getName(), usable));
    }
  }
  return Object.assign({ name, nodes }, turningMotion(nodes));
}

/** What an error from reading a file means, to follow the file's name, and the cure. */
function readingTrouble(error) {
  if (error.code && error.path) {
    const part = `it needs '${error.path}', ${fileTrouble(error)}`;
    return `can't be used, ${part}: put that file there, or export the model as one .glb.`;
  }
  let trouble = oneLine(error.message).replace(/\.$/, '');
  if (error instanceof SyntaxError) {
    trouble = `its JSON is broken, ${trouble}`;
  } else if (error instanceof TypeError || error instanceof RangeError) {
    trouble = 'its parts contradict each other';
  }
  return `can't be used, ${trouble}: export it again as glTF 2.0.`;
}

/**
 * Loads the scene of a glTF file.
 * @param {string} file
 * @returns {Promise<import('./engine-scene').Scene>}
 * @throws {UserError}
 */
async function loadGltfScene(file) {
  checkFile(file);
  try {
    const io = new NodeIO().setLogger(new Logger(Logger.Verbosity.SILENT));
    const content = await io.readAsJSON(path.resolve(file));
    checkGltf(content.json);
    return sceneOfDocument(await io.readJSON(content), path.basename(file));
  } catch (error) {
    throw new UserError(`model '${file}' ${readingTrouble(error)}`);
  }
}

module.exports = { loadGltfScene };
