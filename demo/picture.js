'use strict';
// The picture of a scene graph: nodes as dots, links as strokes, in perspective over a floor.
const fs = require('fs');
const path = require('path');
const { Canvas } = require('./canvas');
const { UserError, fileTrouble } = require('./user-error');

const kWidth = 1600;
const kHeight = 1000;
const kMargin = 70;

/** Where the camera stands: radians about the vertical and above the floor, distance in radii. */
const kYaw = 0.62;
const kPitch = 0.42;
const kDistance = 3.2;

const kSky = [0.045, 0.06, 0.105];
const kFloor = [0.125, 0.15, 0.22];
const kGrid = [0.3, 0.36, 0.5];
const kShadow = [0.02, 0.025, 0.045];
const kGridLines = 12;

/** Colour of a hue in degrees, saturation and lightness from 0 to 1. */
function colorOf(hue, saturation, lightness) {
  const amplitude = saturation * Math.min(lightness, 1 - lightness);
  const channel = (shift) => {
    const k = (shift + hue / 30) % 12;
    return lightness - amplitude * Math.max(-1, Math.min(k - 3, 9 - k, 1));
  };
  return [channel(0), channel(8), channel(4)];
}

function mix(a, b, t) {
  return a.map((value, i) => value + (b[i] - value) * t);
}

function median(values) {
  const sorted = values.slice().sort((a, b) => a - b);
  return sorted.length > 0 ? sorted[sorted.length >> 1] : 0;
}

/** Middle, radius and floor level of points; a radius of 0 becomes 1. */
function boundsOf(points) {
  const low = [0, 1, 2].map((axis) => points.reduce((a, p) => Math.min(a, p[axis]), Infinity));
  const high = [0, 1, 2].map((axis) => points.reduce((a, p) => Math.max(a, p[axis]), -Infinity));
  const middle = low.map((value, axis) => (value + high[axis]) / 2);
  const radius = points.reduce((far, p) => {
    return Math.max(far, Math.hypot(p[0] - middle[0], p[1] - middle[1], p[2] - middle[2]));
  }, 0);
  return { middle, radius: radius > 0 ? radius : 1, floor: low[1] };
}

/**
 * A camera on points, which shows all of them: perspective first, then fitted to the picture.
 * @param {Array<number[]>} points
 * @param {{middle: number[], radius: number}} bounds
 * @returns {function(number[]): {x: number, y: number, depth: number, scale: number}} to pixels;
 *     depth is 0 at the near end of the bounds and 1 at the far end, scale is pixels per unit there
 */
function createCamera(points, { middle, radius }) {
  const [sy, cy] = [Math.sin(kYaw), Math.cos(kYaw)];
  const [sp, cp] = [Math.sin(kPitch), Math.cos(kPitch)];
  const project = (point) => {
    const [x, y, z] = point.map((value, axis) => (value - middle[axis]) / radius);
    const across = cy * x - sy * z;
    const towards = sy * x + cy * z;
    const far = kDistance - (sp * y + cp * towards);
    return { x: across / far, y: (sp * towards - cp * y) / far, far };
  };
  const flat = points.map(project);
  const [left, right, top, bottom] = [
    flat.reduce((a, p) => Math.min(a, p.x), Infinity),
    flat.reduce((a, p) => Math.max(a, p.x), -Infinity),
    flat.reduce((a, p) => Math.min(a, p.y), Infinity),
    flat.reduce((a, p) => Math.max(a, p.y), -Infinity),
  ];
  const zoom = Math.min(
    (kWidth - 2 * kMargin) / Math.max(right - left, 1e-3),
    (kHeight - 2 * kMargin) / Math.max(bottom - top, 1e-3)
  );
  return (point) => {
    const { x, y, far } = project(point);
    return {
      x: kWidth / 2 + (x - (left + right) / 2) * zoom,
      y: kHeight / 2 + (y - (top + bottom) / 2) * zoom,
      depth: Math.min(1, Math.max(0, (far - kDistance + 1) / 2)),
      scale: zoom / far / radius,
    };
  };
}

/** A grid on the floor that fades outwards. */
function drawFloor(canvas, camera, { middle, radius, floor }) {
  const steps = 48;
  for (let line = -kGridLines; line <= kGridLines; ++line) {
    for (let step = -steps; step < steps; ++step) {
      const offsets = [step / steps, (step + 1) / steps].map((s) => s * radius * 1.5);
      const side = (line / kGridLines) * radius * 1.5;
      const fade = 1 - Math.hypot(side, offsets[0]) / (radius * 1.5);
      if (fade <= 0) {
        continue;
      }
      for (const turned of [false, true]) {
        const [from, to] = offsets.map((along) => {
          const at = turned ? [along, side] : [side, along];
          const { x, y } = camera([middle[0] + at[0], floor, middle[2] + at[1]]);
          return { x, y, radius: 0.6 };
        });
        canvas.stroke(from, to, kGrid, 0.5 * fade);
      }
    }
  }
}

/** Dots and strokes with their widths in world units, cleared of what has no place. */
function collectItems(nodes, positions) {
  const finite = positions.map((position) => position.every(Number.isFinite));
  const links = [];
  nodes.forEach(({ parent }, index) => {
    if (parent >= 0 && finite[index] && finite[parent]) {
      const [a, b] = [positions[index], positions[parent]];
      links.push({ index, parent, length: Math.hypot(a[0] - b[0], a[1] - b[1], a[2] - b[2]) });
    }
  });
  const dots = nodes.map((node, index) => index).filter((index) => finite[index]);
  return { dots, links };
}

/**
 * Draws a scene graph.
 * @param {Array<{parent: number, hue: number}>} nodes parents before children
 * @param {Array<number[]>} positions of the nodes in the world; those not finite are left out
 * @returns {Canvas}
 */
function drawScene(nodes, positions) {
  const canvas = new Canvas(kWidth, kHeight);
  const { dots, links } = collectItems(nodes, positions);
  const points = dots.map((index) => positions[index]);
  if (points.length === 0) {
    canvas.fill(() => kSky);
    return canvas;
  }
  const bounds = boundsOf(points);
  const feet = points.map((point) => [point[0], bounds.floor, point[2]]);
  const camera = createCamera(points.concat(feet), bounds);
  const center = camera([bounds.middle[0], bounds.floor, bounds.middle[2]]);
  canvas.fill((x, y) => {
    const [dx, dy] = [x - center.x / kWidth, (y - center.y / kHeight) * 1.6];
    return mix(kFloor, kSky, Math.min(1, Math.sqrt(dx * dx + dy * dy) * 1.7));
  });
  drawFloor(canvas, camera, bounds);

  const typical = median(links.map(({ length }) => length).filter((length) => length > 0));
  // Strokes as wide as the typical link lets them be, in the middle of the picture.
  const pixels = typical > 0 ? typical * center.scale * 0.09 : Infinity;
  const width = Math.min(4.5, Math.max(0.55, pixels)) / center.scale;
  const place = (point, size) => {
    const at = camera(point);
    return Object.assign(at, { radius: at.scale * width * size });
  };
  // Links far longer than most hold groups together; they stay in the background.
  const weight = (length) => Math.min(1, Math.max(0.12, (8 * typical) / length));

  const onFloor = (index) => [positions[index][0], bounds.floor, positions[index][2]];
  for (const { index, parent, length } of links) {
    const opacity = 0.35 * weight(length);
    canvas.stroke(place(onFloor(index), 1.2), place(onFloor(parent), 1.2), kShadow, opacity);
  }

  const items = [];
  for (const { index, parent, length } of links) {
    const [from, to] = [place(positions[index], 1), place(positions[parent], 1)];
    // Behind the dots at both of its ends.
    const depth = Math.max(from.depth, to.depth);
    const color = mix(colorOf(nodes[index].hue, 0.62, 0.5), kSky, 0.45 * depth);
    items.push({ depth, draw: () => canvas.stroke(from, to, color, weight(length)) });
  }
  for (const index of dots) {
    const at = place(positions[index], 1.9);
    const color = mix(colorOf(nodes[index].hue, 0.85, 0.68), kSky, 0.4 * at.depth);
    const rim = Object.assign({}, at, { radius: at.radius + 0.8 });
    const glint = {
      x: at.x - at.radius * 0.3,
      y: at.y - at.radius * 0.35,
      radius: at.radius * 0.35,
    };
    items.push({
      depth: at.depth - 1e-3,
      draw() {
        canvas.disc(rim, kSky, 0.55);
        canvas.disc(at, color, 1);
        canvas.disc(glint, [1, 1, 1], 0.45);
      },
    });
  }
  items.sort((a, b) => b.depth - a.depth).forEach((item) => item.draw());
  return canvas;
}

/**
 * Writes a picture under its name only once it is whole.
 * @param {Canvas} canvas
 * @param {string} file
 * @throws {UserError}
 */
function savePicture(canvas, file) {
  const unfinished = path.join(path.dirname(file), `.${path.basename(file)}.${process.pid}.tmp`);
  try {
    fs.writeFileSync(unfinished, canvas.toPng());
    fs.renameSync(unfinished, file);
  } catch (error) {
    try {
      fs.unlinkSync(unfinished);
    } catch (absent) {
      // It was not even begun.
    }
    const trouble = fileTrouble(error);
    throw new UserError(`picture '${file}' can't be written, ${trouble}: choose another --out.`);
  }
}

module.exports = { drawScene, savePicture };
