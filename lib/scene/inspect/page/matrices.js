// Matrices of cameras: 16 numbers, column-major; depths from -1 to 1.

const subtract = (a, b) => [0, 1, 2].map((k) => a[k] - b[k]);
const dot = (a, b) => a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
const cross = (a, b) => [
  a[1] * b[2] - a[2] * b[1],
  a[2] * b[0] - a[0] * b[2],
  a[0] * b[1] - a[1] * b[0],
];

function normalize(a) {
  const length = Math.hypot(a[0], a[1], a[2]) || 1;
  return [a[0] / length, a[1] / length, a[2] / length];
}

/** Axes of a camera in the world: to the right, up, and back towards the eye. */
export function axesOf(eye, target, up) {
  const back = normalize(subtract(eye, target));
  const right = normalize(cross(up, back));
  return { right, up: cross(back, right), back };
}

/** From the world to a camera. */
export function lookAt(eye, target, up) {
  const axes = axesOf(eye, target, up);
  const rows = [axes.right, axes.up, axes.back];
  return [
    ...[0, 1, 2].reduce((all, k) => [...all, rows[0][k], rows[1][k], rows[2][k], 0], []),
    ...[-dot(rows[0], eye), -dot(rows[1], eye), -dot(rows[2], eye), 1],
  ];
}

/** From a camera to clip space; `fov` from bottom to top in radians. */
export function perspective(fov, aspect, near, far) {
  const y = 1 / Math.tan(fov / 2);
  const depth = 1 / (near - far);
  return [
    ...[y / aspect, 0, 0, 0],
    ...[0, y, 0, 0],
    ...[0, 0, (near + far) * depth, -1],
    ...[0, 0, 2 * near * far * depth, 0],
  ];
}

/** The same with parallel edges. */
export function orthographic(left, right, bottom, top, near, far) {
  const [x, y, z] = [1 / (right - left), 1 / (top - bottom), 1 / (near - far)];
  return [
    ...[2 * x, 0, 0, 0],
    ...[0, 2 * y, 0, 0],
    ...[0, 0, 2 * z, 0],
    ...[-(right + left) * x, -(top + bottom) * y, (far + near) * z, 1],
  ];
}

/** a x b. */
export function multiply(a, b) {
  const out = new Array(16).fill(0);
  for (let column = 0; column < 4; ++column) {
    for (let row = 0; row < 4; ++row) {
      for (let k = 0; k < 4; ++k) {
        out[4 * column + row] += a[4 * k + row] * b[4 * column + k];
      }
    }
  }
  return out;
}
