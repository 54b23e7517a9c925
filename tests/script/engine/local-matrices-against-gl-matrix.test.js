'use strict';
// Local matrices and matrix products, bit for bit against formulas written out with one rounding an
// operation, and within a tolerance against gl-matrix, which works in double precision here.
//
// JavaScript and native code use different math libraries for sines and cosines, each accurate to about the last bit
// of a double. Results that depend on them are therefore compared within a tolerance: 8 roundings of 2^-24,
// times the column's scale (see the bounds of the other oracle).
const assert = require('assert');
const { over } = require('../support/blocks');
const fc = require('fast-check');
const glMatrix = require('gl-matrix');
const { TestWorld, createRandom } = require('../../fixtures/world');

glMatrix.glMatrix.setMatrixArrayType(Array);
const { mat4 } = glMatrix;
const f = Math.fround;
const kUnit = Math.pow(2, -24);
const kLocalError = 8 * kUnit;

/** The local matrix of a quaternion x, y, z, w, every operation rounded. */
function quaternionMatrix([x, y, z, w], position, scale) {
  const [xx, yy, zz] = [f(x * x), f(y * y), f(z * z)];
  const [xy, xz, yz] = [f(x * y), f(x * z), f(y * z)];
  const [xw, yw, zw] = [f(x * w), f(y * w), f(z * w)];
  const columns = [
    [f(1 - f(2 * f(yy + zz))), f(2 * f(xy + zw)), f(2 * f(xz - yw))],
    [f(2 * f(xy - zw)), f(1 - f(2 * f(xx + zz))), f(2 * f(yz + xw))],
    [f(2 * f(xz + yw)), f(2 * f(yz - xw)), f(1 - f(2 * f(xx + yy)))],
  ];
  return composed(columns, position, scale);
}

/** The local matrix of Euler angles x, y, z: the rotation about z first, about x last. */
function eulerMatrix([x, y, z], position, scale) {
  const [cx, sx] = [f(Math.cos(x)), f(Math.sin(x))];
  const [cy, sy] = [f(Math.cos(y)), f(Math.sin(y))];
  const [cz, sz] = [f(Math.cos(z)), f(Math.sin(z))];
  const [sxsy, cxsy] = [f(sx * sy), f(cx * sy)];
  const columns = [
    [f(cy * cz), f(f(cx * sz) + f(sxsy * cz)), f(f(sx * sz) - f(cxsy * cz))],
    [f(-cy * sz), f(f(cx * cz) - f(sxsy * sz)), f(f(sx * cz) + f(cxsy * sz))],
    [sy, f(-sx * cy), f(cx * cy)],
  ];
  return composed(columns, position, scale);
}

function composed(columns, position, scale) {
  const elements = columns.map((column, i) => [...column.map((value) => f(scale[i] * value)), 0]);
  return [].concat(...elements, position, 1);
}

/** a b, each element summed from left to right, every operation rounded. */
function product(a, b) {
  const out = [];
  for (let c = 0; c < 4; ++c) {
    for (let r = 0; r < 4; ++r) {
      const terms = [0, 1, 2, 3].map((k) => f(a[4 * k + r] * b[4 * c + k]));
      out.push(f(f(f(terms[0] + terms[1]) + terms[2]) + terms[3]));
    }
  }
  return out;
}

const word = new Uint32Array(1);
const float = over(Float32Array, word);

/** The bits of a float; the same for all NaNs. */
function bitsOf(value) {
  float[0] = value;
  return Number.isNaN(value) ? 'NaN' : word[0].toString(16).padStart(8, '0');
}

function assertSameBits(actual, expected, message) {
  assert.deepStrictEqual(Array.from(actual, bitsOf), Array.from(expected, bitsOf), message);
}

/** Asserts that elements are within a tolerance, given per column. */
function assertClose(actual, expected, tolerances, message) {
  expected.forEach((value, i) => {
    const off = Math.abs(actual[i] - value);
    assert.ok(off <= tolerances[i >> 2], `${message || ''} element ${i}: ${actual[i]}, ${value}`);
  });
}

/** Transforms of each test: float numbers of every magnitude that does not overflow in products. */
const numberUpTo = (limit) => fc.float({ min: -limit, max: limit, noNaN: true });
const vector = (limit, length) =>
  fc.array(numberUpTo(limit), { minLength: length, maxLength: length });
const anyNumber = fc.float();

/** A root, its child and its grandchild, and what was given to them. */
class Chain {
  constructor() {
    this.world = new TestWorld();
    this.entities = this.world.add3D(3);
    const [root, child, grandchild] = this.entities;
    this.world.command('addRoot', root);
    this.world.command('addChild', root, child);
    this.world.command('addChild', child, grandchild);
  }

  /** Sets transforms, refreshes and returns the world matrices. */
  refresh(transforms) {
    this.entities.forEach((entity, i) => {
      entity.matrix.fill(NaN);
      entity.setTransform(...transforms[i]);
    });
    this.world.refresh(this.entities);
    return this.entities.map(({ matrix }) => Array.from(matrix));
  }
}

describe('oracle: one rounding per operation', () => {
  const runs = { seed: 20201121, numRuns: 300 };

  it('computes bit-identical local matrices of quaternions', () => {
    const chain = new Chain();
    const transform = fc.tuple(vector(2, 4), vector(100, 3), vector(10, 3));
    const huge = Math.pow(2, 100);
    const check = (rotation, position, scale) => {
      const transforms = [0, 1, 2].map(() => [rotation, position, scale]);
      const [matrix] = chain.refresh(transforms);
      assertSameBits(matrix, quaternionMatrix(rotation, position, scale));
    };
    fc.assert(
      fc.property(transform, (values) => check(...values)),
      runs
    );
    fc.assert(
      fc.property(fc.tuple(vector(huge, 4), vector(huge, 3), vector(huge, 3)), (values) =>
        check(...values)
      ),
      runs
    );
  });

  it('propagates infinities and NaN through a quaternion', () => {
    const chain = new Chain();
    const any = (length) => fc.array(anyNumber, { minLength: length, maxLength: length });
    fc.assert(
      fc.property(any(4), any(3), any(3), (rotation, position, scale) => {
        const [matrix] = chain.refresh([0, 1, 2].map(() => [rotation, position, scale]));
        assertSameBits(matrix, quaternionMatrix(rotation, position, scale));
      }),
      runs
    );
  });

  it('computes bit-identical products down a chain', () => {
    const chain = new Chain();
    const transform = fc.tuple(vector(2, 4), vector(100, 3), vector(10, 3));
    fc.assert(
      fc.property(fc.array(transform, { minLength: 3, maxLength: 3 }), (transforms) => {
        const [root, child, grandchild] = chain.refresh(transforms);
        const locals = transforms.map((values) => quaternionMatrix(...values));
        assertSameBits(root, locals[0]);
        assertSameBits(child, product(locals[0], locals[1]));
        assertSameBits(grandchild, product(product(locals[0], locals[1]), locals[2]));
      }),
      runs
    );
  });

  it('computes local matrices of Euler angles within the error of sine and cosine', () => {
    const chain = new Chain();
    fc.assert(
      fc.property(vector(100, 3), vector(100, 3), vector(10, 3), (angles, position, scale) => {
        const [matrix] = chain.refresh([0, 1, 2].map(() => [angles, position, scale]));
        const tolerances = [...scale.map((value) => kLocalError * Math.abs(value)), 0];
        // A product below the normal range loses up to half of the smallest step.
        const floor = Math.pow(2, -149);
        assertClose(
          matrix,
          eulerMatrix(angles, position, scale),
          tolerances.map((value) => value + floor)
        );
        assertSameBits(
          [3, 7, 11, 15].map((i) => matrix[i]),
          [0, 0, 0, 1]
        );
        assertSameBits(matrix.slice(12, 15), position);
      }),
      runs
    );
  });

  it('computes a pure translation for Euler angles of 0 and scales of 1', () => {
    const chain = new Chain();
    const [matrix] = chain.refresh(
      [0, 1, 2].map(() => [
        [0, 0, 0],
        [2, -3, 4],
        [1, 1, 1],
      ])
    );
    const expected = [1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 2, -3, 4, 1];
    // Zero times minus one is a negative zero: -cos(y) sin(z) and -sin(x) cos(y).
    expected[4] = -0;
    expected[9] = -0;
    assertSameBits(matrix, expected);
  });

  it('reads any mode except 0 as a quaternion, and ignores the bytes after it', () => {
    const chain = new Chain();
    const rotation = [0.5, -0.5, 0.5, 0.5];
    const transform = [rotation, [1, 2, 3], [1, 2, 4]];
    const expected = quaternionMatrix(...transform);
    for (const mode of [1, 2, 128, 255]) {
      chain.entities.forEach((entity) => {
        entity.setTransform(...transform);
        entity.bytes.set([mode, 0xff, 0x7f, 1]);
        entity.matrix.fill(NaN);
      });
      chain.world.refresh(chain.entities);
      assertSameBits(chain.entities[0].matrix, expected, `mode ${mode}`);
    }
    chain.entities[0].bytes.set([0, 0xff, 0xff, 0xff]);
    chain.world.refresh([chain.entities[0]]);
    const angles = eulerMatrix(rotation.slice(0, 3), transform[1], transform[2]);
    assertClose(
      chain.entities[0].matrix,
      angles,
      [1, 2, 4, 0].map((s) => s * kLocalError)
    );
  });

  it('does not read the fourth number of Euler angles', () => {
    const chain = new Chain();
    const transforms = [0, 1, 2].map(() => [
      [0.3, 0.2, 0.1],
      [1, 2, 3],
      [1, 1, 1],
    ]);
    const matrices = [0, 1, NaN, Infinity].map((fourth) => {
      chain.entities.forEach(({ words }) => (words[4] = fourth));
      return chain.refresh(transforms)[2];
    });
    matrices.forEach((matrix) => assertSameBits(matrix, matrices[0]));
    assert.ok(matrices[0].every(Number.isFinite));
  });

  for (const count of [1, 31, 32, 35, 500]) {
    it(`gives the same bits in a list of ${count}`, () => {
      const random = createRandom(count);
      const world = new TestWorld();
      const entities = world.add3D(count);
      const expected = entities.map((entity, i) => {
        const rotation = [0, 0, 0, 0].map(() => random.real(-1, 1));
        const position = [0, 0, 0].map(() => random.real(-9, 9));
        const scale = [0, 0, 0].map(() => random.real(-2, 2));
        entity.setTransform(rotation, position, scale);
        if (i === 0) {
          world.command('addRoot', entity);
        } else {
          world.command('addChild', entities[0], entity);
        }
        return quaternionMatrix(rotation, position, scale);
      });
      world.refresh(entities);
      entities.forEach(({ matrix }, i) => {
        const message = `entity ${i} of ${count}`;
        assertSameBits(matrix, i === 0 ? expected[0] : product(expected[0], expected[i]), message);
      });
    });
  }

  it('computes 2D matrices within the error of sine and cosine, and bit-identical products', () => {
    const world = new TestWorld();
    const [root, child] = world.add2D(2);
    const [lone] = world.add2D(1);
    world.command('addRoot', root);
    world.command('addChild', root, child);
    world.command('addRoot', lone);
    // The nine elements shown of a matrix, and back: the third column is that of the identity.
    const shown = (m) => [0, 1, 3, 4, 5, 7, 12, 13, 15].map((i) => m[i]);
    const whole = (m) => [
      m[0],
      m[1],
      0,
      m[2],
      m[3],
      m[4],
      0,
      m[5],
      0,
      0,
      1,
      0,
      m[6],
      m[7],
      0,
      m[8],
    ];
    const transform = fc.tuple(numberUpTo(100), vector(100, 2), vector(10, 2));
    fc.assert(
      fc.property(transform, transform, (above, below) => {
        [root, child, lone].forEach(({ matrix }) => matrix.fill(NaN));
        root.setTransform2D(...above);
        child.setTransform2D(...below);
        lone.setTransform2D(...below);
        world.refresh([root, child, lone]);

        const [angle, position, [sx, sy]] = below;
        const [c, s] = [f(Math.cos(-angle)), f(Math.sin(-angle))];
        const expected = [f(sx * c), f(sx * s), 0, f(-sy * s), f(sy * c), 0, ...position, 1];
        lone.matrix.forEach((value, i) => {
          const scale = i < 3 ? sx : i < 6 ? sy : 0;
          const tolerance = kLocalError * Math.abs(scale) + Math.pow(2, -149);
          assert.ok(Math.abs(value - expected[i]) <= tolerance, `element ${i}: ${value}`);
        });
        assertSameBits(
          [2, 5, 8].map((i) => lone.matrix[i]),
          [0, 0, 1]
        );
        // The lone entity shows the local matrix of the child, the root its own.
        assertSameBits(child.matrix, shown(product(whole(root.matrix), whole(lone.matrix))));
      }),
      runs
    );
  });

  it('rotates 2D entities from y towards x', () => {
    const world = new TestWorld();
    const [entity] = world.add2D(1);
    world.command('addRoot', entity);
    entity.setTransform2D(0, [5, 6], [2, 3]);
    world.refresh([entity]);
    // The sine of minus zero is minus zero; twice negated, it is zero again.
    assertSameBits(entity.matrix, [2, -0, 0, 0, 3, 0, 5, 6, 1]);
    entity.setTransform2D(Math.PI / 2, [5, 6], [2, 3]);
    world.refresh([entity]);
    const expected = [0, -2, 0, 3, 0, 0, 5, 6, 1];
    // The nearest float to pi / 2 is off by 4.4e-8.
    entity.matrix.forEach((value, i) => assert.ok(Math.abs(value - expected[i]) < 2e-7, String(i)));
  });
});

describe('oracle: gl-matrix', () => {
  it('agrees on local matrices of quaternions', () => {
    const random = createRandom(21);
    const chain = new Chain();
    for (let i = 0; i < 300; ++i) {
      const rotation = [0, 0, 0, 0].map(() => random.real(-1, 1));
      const position = [0, 0, 0].map(() => random.real(-50, 50));
      const scale = [0, 0, 0].map(() => random.real(-4, 4));
      const [matrix] = chain.refresh([0, 1, 2].map(() => [rotation, position, scale]));
      const expected = mat4.fromRotationTranslationScale([], rotation, position, scale);
      const squared = rotation.reduce((sum, value) => sum + value * value, 0);
      const rotationError = kLocalError * Math.max(1, squared);
      const tolerances = [...scale.map((value) => rotationError * Math.abs(value)), 0];
      assertClose(matrix, expected, tolerances, `case ${i}`);
    }
  });

  it('agrees on local matrices of Euler angles, as a product of three rotations', () => {
    const random = createRandom(22);
    const chain = new Chain();
    for (let i = 0; i < 300; ++i) {
      const angles = [0, 0, 0].map(() => random.real(-10, 10));
      const position = [0, 0, 0].map(() => random.real(-50, 50));
      const scale = [0, 0, 0].map(() => random.real(-4, 4));
      const [matrix] = chain.refresh([0, 1, 2].map(() => [angles, position, scale]));
      const expected = mat4.fromTranslation([], position);
      mat4.rotateX(expected, expected, angles[0]);
      mat4.rotateY(expected, expected, angles[1]);
      mat4.rotateZ(expected, expected, angles[2]);
      mat4.scale(expected, expected, scale);
      const tolerances = [...scale.map((value) => kLocalError * Math.abs(value)), 0];
      assertClose(matrix, expected, tolerances, `case ${i}`);
    }
  });

  it('agrees on products', () => {
    const random = createRandom(23);
    const chain = new Chain();
    for (let i = 0; i < 300; ++i) {
      const transforms = [0, 1, 2].map(() => [
        [0, 0, 0, 0].map(() => random.real(-1, 1)),
        [0, 0, 0].map(() => random.real(-50, 50)),
        [0, 0, 0].map(() => random.real(-4, 4)),
      ]);
      const [root, child, grandchild] = chain.refresh(transforms);
      for (const [above, below, index] of [
        [root, child, 1],
        [child, grandchild, 2],
      ]) {
        // The factors are exact floats, so only the four-term sums round: 4 u of magnitudes.
        const local = quaternionMatrix(...transforms[index]);
        const expected = mat4.multiply([], above, local);
        const magnitudes = mat4.multiply([], above.map(Math.abs), local.map(Math.abs));
        expected.forEach((value, k) => {
          const off = Math.abs(below[k] - value);
          assert.ok(off <= 4.01 * kUnit * magnitudes[k], `case ${i}, element ${k}: ${below[k]}`);
        });
      }
    }
  });
});
