'use strict';
// Bounds of a model in all of its clips. A skinned vertex lies between the places that its joints would give it alone:
// so a sphere for each joint, around the vertices that it moves, bounds the mesh in every pose.
const { stepTangent } = require('../clip');
const { compose, multiply } = require('./math');

/** Poses of a clip that are measured. */
const kPoses = 32;

/** Factors on the radius: for what lies between poses and blends of clips; for bounds of nodes without vertices. */
const kSlack = 1.05;
const kNodeSlack = 1.25;

const kMatrixFloats = 16;

/** A sphere around points, three numbers each: center of their box, and the largest distance from it. */
function sphereOf(points) {
  const center = [0, 1, 2].map((axis) => {
    let least = Infinity;
    let most = -Infinity;
    for (let i = axis; i < points.length; i += 3) {
      least = Math.min(least, points[i]);
      most = Math.max(most, points[i]);
    }
    return (least + most) / 2;
  });
  let radius = 0;
  for (let i = 0; i < points.length; i += 3) {
    const [x, y, z] = center;
    radius = Math.max(radius, Math.hypot(points[i] - x, points[i + 1] - y, points[i + 2] - z));
  }
  return { center, radius };
}

/** Spheres of vertices: each moves with a node, after an inverse bind matrix if it has a joint. */
function partsOf({ meshes, skins, nodes }) {
  const parts = [];
  for (const { node, skin, primitives } of meshes) {
    const byJoint = new Map();
    for (const { positions, joints, weights } of primitives) {
      const isSkinned = skin >= 0 && joints !== null && weights !== null;
      for (let i = 0; i < positions.length / 3; ++i) {
        for (let k = 0; k < (isSkinned ? 4 : 1); ++k) {
          if (isSkinned && weights[4 * i + k] === 0) {
            continue;
          }
          const joint = isSkinned ? joints[4 * i + k] : -1;
          if (!byJoint.has(joint)) {
            byJoint.set(joint, []);
          }
          byJoint.get(joint).push(positions[3 * i], positions[3 * i + 1], positions[3 * i + 2]);
        }
      }
    }
    for (const [joint, points] of byJoint) {
      const { joints, inverseBindMatrices } = joint < 0 ? { joints: [] } : skins[skin];
      if (joint < joints.length) {
        const inverse =
          joint < 0 ? null : new Float32Array(inverseBindMatrices, 64 * joint, kMatrixFloats);
        parts.push(
          Object.assign(sphereOf(points), { node: joint < 0 ? node : joints[joint], inverse })
        );
      }
    }
  }
  if (parts.length > 0) {
    return { parts, slack: 1 };
  }
  const bare = nodes.map((_, node) => ({ center: [0, 0, 0], radius: 0, node, inverse: null }));
  return { parts: bare, slack: kNodeSlack };
}

/** Value of a curve at a frame, by its cubics. */
function valueAt(keys, frame, framesPerSecond) {
  let next = 0;
  while (next < keys.length && keys[next].frame <= frame) {
    ++next;
  }
  if (next === 0 || next === keys.length) {
    return keys[Math.max(0, next - 1)].value;
  }
  const [a, b] = [keys[next - 1], keys[next]];
  if (a.outTangent === stepTangent || b.outTangent === stepTangent) {
    return a.value;
  }
  const span = b.frame - a.frame;
  const s = (frame - a.frame) / span;
  const seconds = span / framesPerSecond;
  return (
    (2 * s * s * s - 3 * s * s + 1) * a.value +
    (3 * s * s - 2 * s * s * s) * b.value +
    (s * s * s - 2 * s * s + s) * seconds * a.outTangent +
    (s * s * s - s * s) * seconds * b.inTangent
  );
}

const kPlaces = { translation: 0, rotation: 3, scale: 7 };
const kTransform = 10;

/** Spheres of the parts in a pose, appended to `spheres`: x, y, z, radius. */
function addSpheres(nodes, parts, transforms, spheres) {
  const worlds = new Float64Array(kMatrixFloats * nodes.length);
  const local = new Float64Array(kMatrixFloats);
  nodes.forEach(({ parent }, i) => {
    const at = kTransform * i;
    compose(local, 0, transforms, at, at + kPlaces.rotation, at + kPlaces.scale);
    if (parent < 0) {
      worlds.set(local, kMatrixFloats * i);
    } else {
      multiply(worlds, kMatrixFloats * i, worlds, kMatrixFloats * parent, local, 0);
    }
  });
  const matrix = new Float64Array(kMatrixFloats);
  for (const { node, inverse, center, radius } of parts) {
    const at = kMatrixFloats * node;
    if (inverse === null) {
      matrix.set(worlds.subarray(at, at + kMatrixFloats));
    } else {
      multiply(matrix, 0, worlds, at, inverse, 0);
    }
    // The sum of squares of the columns bounds the stretch of any direction, sheared ones included.
    const lengths = [0, 4, 8].map((k) => Math.hypot(matrix[k], matrix[k + 1], matrix[k + 2]));
    const [dotXY, dotXZ, dotYZ] = [
      [0, 4],
      [0, 8],
      [4, 8],
    ].map(([a, b]) =>
      Math.abs(
        matrix[a] * matrix[b] + matrix[a + 1] * matrix[b + 1] + matrix[a + 2] * matrix[b + 2]
      )
    );
    // Gershgorin's bound of the largest eigenvalue of the matrix times its transpose.
    const stretch = Math.sqrt(
      Math.max(
        lengths[0] ** 2 + dotXY + dotXZ,
        lengths[1] ** 2 + dotXY + dotYZ,
        lengths[2] ** 2 + dotXZ + dotYZ
      )
    );
    const [x, y, z] = center;
    for (let row = 0; row < 3; ++row) {
      spheres.push(matrix[row] * x + matrix[4 + row] * y + matrix[8 + row] * z + matrix[12 + row]);
    }
    spheres.push(radius * stretch);
  }
}

/**
 * Measures a model, at rest and in poses of all clips.
 * @param {{ nodes: Object[], skins: Object[], meshes: Object[], clips: Object[] }} model
 * @param {Object[][]} curves of each clip: node, property, place, keys
 * @returns {{ center: number[], radius: number }}
 */
function measureBounds(model, curves) {
  const { nodes, clips } = model;
  const { parts, slack } = partsOf(model);
  const rest = new Float64Array(kTransform * nodes.length);
  nodes.forEach((node, i) => {
    for (const property of Object.keys(kPlaces)) {
      rest.set(node[property], kTransform * i + kPlaces[property]);
    }
  });
  const spheres = [];
  if (clips.length === 0) {
    addSpheres(nodes, parts, rest, spheres);
  }
  clips.forEach(({ duration, framesPerSecond }, index) => {
    for (let pose = 0; pose <= kPoses; ++pose) {
      const transforms = Float64Array.from(rest);
      const frame = (duration * framesPerSecond * pose) / kPoses;
      for (const { node, property, place, keys } of curves[index]) {
        const at = kTransform * node + kPlaces[property] + place;
        transforms[at] = valueAt(keys, frame, framesPerSecond);
      }
      addSpheres(nodes, parts, transforms, spheres);
    }
  });
  if (spheres.length === 0) {
    return { center: [0, 0, 0], radius: 0 };
  }
  const box = [0, 1, 2].map((axis) => {
    let [least, most] = [Infinity, -Infinity];
    for (let i = 0; i < spheres.length; i += 4) {
      least = Math.min(least, spheres[i + axis] - spheres[i + 3]);
      most = Math.max(most, spheres[i + axis] + spheres[i + 3]);
    }
    return (least + most) / 2;
  });
  let radius = 0;
  for (let i = 0; i < spheres.length; i += 4) {
    const away = Math.hypot(spheres[i] - box[0], spheres[i + 1] - box[1], spheres[i + 2] - box[2]);
    radius = Math.max(radius, away + spheres[i + 3]);
  }
  const bounds = { center: box, radius: radius * slack * (clips.length > 0 ? kSlack : 1) };
  // Clips and vertices may have values that are not finite, or too large for records.
  const isFinite = [...box, bounds.radius].every((value) => Number.isFinite(Math.fround(value)));
  return isFinite ? bounds : { center: [0, 0, 0], radius: Infinity };
}

module.exports = { measureBounds };
