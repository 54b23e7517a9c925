'use strict';
// Culling against three.js, which derives its planes from a projection matrix and computes in double precision.
// Spheres within a band of rounding errors around a plane are skipped, and counted.
const assert = require('assert');
const { over } = require('../support/blocks');
const three = require('three');
const { getEngine } = require(process.env.NQ_MODULE);

const objectCount = 250;
const sceneCount = 8;
const camerasPerScene = 20;

// Relative to the distances: single precision has some seven digits, and several operations are between an entity's
// numbers and a plane.
const band = 2e-5;

// Fraction of all tests that may be in the band.
const bandShare = 0.001;

/** Pseudo-random numbers from 0 to 1 from a seed (xorshift32). */
function randomNumbers(seed) {
  let state = seed;
  return (low = 0, high = 1) => {
    state ^= state << 13;
    state ^= state >>> 17;
    state ^= state << 5;
    return low + ((high - low) * (state >>> 0)) / 4294967296;
  };
}

function randomPoint(random, reach) {
  return new three.Vector3(random(-reach, reach), random(-reach, reach), random(-reach, reach));
}

/** Entities of random transform with a sphere each, on both sides. */
class Scene {
  constructor(random) {
    this.engine = getEngine();
    this.entities = this.engine.createEntity(true, objectCount);
    this.objects = this.engine.createComponent(1, objectCount);
    const floats = over(Float32Array, this.entities);
    const bytes = over(Uint8Array, this.entities);
    const record = over(DataView, this.objects);
    const commands = over(Uint32Array, this.engine.entityCommands);
    const dirty = over(Uint32Array, this.engine.dirtyEntities);
    this.spheres = [];
    for (let i = 0; i < objectCount; ++i) {
      const position = randomPoint(random, 60);
      const axis = randomPoint(random, 1).normalize();
      const rotation = new three.Quaternion().setFromAxisAngle(axis, random(-3, 3));
      const scale = randomPoint(random, 3);
      bytes[i * 108] = 1;
      floats.set(rotation.toArray(), i * 27 + 1);
      floats.set(position.toArray(), i * 27 + 5);
      floats.set(scale.toArray(), i * 27 + 8);
      const centre = randomPoint(random, 2);
      const radius = random(0, 4);
      record.setUint8(i * 28, 1);
      record.setUint32(i * 28 + 4, 1, true);
      centre.toArray().forEach((value, k) => record.setFloat32(i * 28 + 8 + 4 * k, value, true));
      record.setFloat32(i * 28 + 20, radius, true);
      record.setUint32(i * 28 + 24, this.entities.id + i, true);
      commands.set([1, this.entities.id + i], 1 + 2 * i);
      dirty[1 + i] = this.entities.id + i;
      const matrix = new three.Matrix4().compose(position, rotation, scale);
      this.spheres.push(new three.Sphere(centre, radius).applyMatrix4(matrix));
    }
    commands[0] = 8 * objectCount;
    dirty[0] = objectCount;
    this.engine.refreshWorldTransform();
  }
}

/** A camera of three.js, and the equivalent arguments. */
function randomCamera(random, perspective) {
  const eye = randomPoint(random, 70);
  const target = randomPoint(random, 20);
  const up = randomPoint(random, 1);
  const direction = new three.Vector3().subVectors(eye, target);
  if (
    direction.length() < 5 ||
    Math.abs(up.clone().normalize().dot(direction.normalize())) > 0.98
  ) {
    return randomCamera(random, perspective);
  }
  up.multiplyScalar(random(0.1, 10));
  const near = random(0.5, 40);
  const far = near + random(20, 200);
  const lens = perspective
    ? { fov: random(0.3, 2.4), aspect: random(0.4, 2.5) }
    : {
        left: random(-60, 5),
        right: random(10, 60),
        bottom: random(-60, 5),
        top: random(10, 60),
      };
  const camera = perspective
    ? new three.PerspectiveCamera((lens.fov * 180) / Math.PI, lens.aspect, near, far)
    : new three.OrthographicCamera(lens.left, lens.right, lens.top, lens.bottom, near, far);
  camera.up.copy(up);
  camera.position.copy(eye);
  camera.lookAt(target);
  camera.updateMatrixWorld();
  camera.updateProjectionMatrix();
  const args = [1, eye, target, up].reduce(
    (all, value) => all.concat(typeof value === 'number' ? value : value.toArray()),
    []
  );
  return { camera, args: args.concat(Object.values(lens), near, far), eye };
}

/** Compares all calls for one kind of camera; returns the counts. */
function compare(perspective, seed) {
  const random = randomNumbers(seed);
  const counts = { judged: 0, leftOut: 0, visible: 0, rejectedBy: [0, 0, 0, 0, 0, 0] };
  for (let s = 0; s < sceneCount; ++s) {
    const scene = new Scene(random);
    const cull = (args) =>
      perspective ? scene.engine.frustumCulling(...args) : scene.engine.orthoCulling(...args);
    for (let c = 0; c < camerasPerScene; ++c) {
      const { camera, args, eye } = randomCamera(random, perspective);
      const frustum = new three.Frustum().setFromProjectionMatrix(
        new three.Matrix4().multiplyMatrices(camera.projectionMatrix, camera.matrixWorldInverse)
      );
      const result = cull(args);
      const depths = new Map();
      if (result !== null) {
        const distances = new Float32Array(result.distances);
        new Uint32Array(result.objects).forEach((handle, i) => depths.set(handle, distances[i]));
        assert.strictEqual(depths.size, distances.length);
        assert(distances.every((depth, i) => i === 0 || distances[i - 1] <= depth));
      }
      scene.spheres.forEach((sphere, i) => {
        const where = `seed ${seed}, scene ${s}, camera ${c}, object ${i}`;
        const reach = band * (sphere.center.distanceTo(eye) + eye.length() + sphere.radius + 1);
        const rooms = frustum.planes.map(
          (plane) => plane.distanceToPoint(sphere.center) + sphere.radius
        );
        const handle = scene.objects.id + i;
        ++counts.judged;
        if (rooms.some((room) => Math.abs(room) < reach)) {
          ++counts.leftOut;
          depths.delete(handle);
          return;
        }
        const expected = frustum.intersectsSphere(sphere);
        assert.strictEqual(depths.has(handle), expected, `${where}: ${rooms}`);
        if (expected) {
          ++counts.visible;
          const view = sphere.center.clone().applyMatrix4(camera.matrixWorldInverse);
          const off = Math.abs(depths.get(handle) + view.z);
          assert(off < reach, `${where}: depth ${depths.get(handle)} is not ${-view.z}`);
          depths.delete(handle);
        } else {
          const out = [0, 1, 2, 3, 4, 5].filter((plane) => rooms[plane] < 0);
          if (out.length === 1) {
            ++counts.rejectedBy[out[0]];
          }
        }
      });
      assert.strictEqual(depths.size, 0, 'handles of no object');
    }
  }
  return counts;
}

describe('culling against three.js', () => {
  for (const [kind, perspective, seed] of [
    ['perspective', true, 20240607],
    ['orthographic', false, 987654321],
  ]) {
    it(`sees the same spheres at the same depths with ${kind} cameras`, () => {
      const counts = compare(perspective, seed);
      assert.strictEqual(counts.judged, objectCount * sceneCount * camerasPerScene);
      const report = JSON.stringify(counts);
      assert(counts.leftOut < counts.judged * bandShare, `too much is left out: ${report}`);
      // Both results are frequent, and each plane alone decides often enough.
      assert(counts.visible > counts.judged * 0.05, report);
      assert(counts.visible < counts.judged * 0.6, report);
      assert(
        counts.rejectedBy.every((count) => count > counts.judged * 0.001),
        report
      );
    });
  }
});
