'use strict';
// The picture of a scene graph: nodes as dots, links as strokes, in perspective over a floor. What the
// scene's own camera sees stands in colour, between the edges of its view; the rest is grey.
const fs = require('fs');
const path = require('path');
const { boundsOf, median } = require('./bounds');
const { kPictureYaw, viewCorners } = require('./cameras');
const { Canvas } = require('./canvas');
const { UserError, fileTrouble } = require('./user-error');

const kWidth = 1600;
const kHeight = 1000;
const kMargin = 70;

/** Where the camera stands: radians about the vertical and above the floor, distance in radii. */
const kYaw = kPictureYaw;
const kPitch = 0.42;
const kDistance = 3.2;

const kSky = [0.045, 0.06, 0.105];
const kFloor = [0.125, 0.15, 0.22];
const kGrid = [0.3, 0.36, 0.5];
const kShadow = [0.02, 0.025, 0.045];
const kGridLines = 12;

/** What the scene's camera doesn't see, and the edges of its view. */
const kUnseenLink = [0.3, 0.33, 0.4];
const kUnseenDot = [0.44, 0.48, 0.56];
const kViewEdge = [0.9, 0.76, 0.42];

/** Edges of a view between its corners: near rectangle, far rectangle, and from one to the other. */
const kViewEdges = [0, 1, 2, 3].reduce(
  (edges, i) =>
    edges.concat([
      [i, (i + 1) % 4],
      [4 + i, 4 + ((i + 1) % 4)],
      [i, 4 + i],
    ]),
  []
);

/** Colour of a hue in degrees, saturation and lightness from 0 to 1. */
function colorOf(hue, saturation, lightness) {
  const amplitude = saturation * Math.min(lightness, 1 - lightness);
  const channel = (shift) => {
    const k = (shift + hue / 30) % 12;
    return lightness - amplitude * Math.max(-1, Math.min(k - 3, 9 - k, 1));
  };
  return [channel(0), channel(8), channel(4)];
}

/** What lies between two colours or points. */
function mix(a, b, t) {
  return a.map((value, i) => value + (b[i] - value) * t);
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
 * What a camera in the scene sees of it.
 * @typedef {Object} Seen
 * @property {import('./cameras').PerspectiveCamera} camera
 * @property {number} pieces that a link is cut into
 * @property {Uint8Array} marks 1 for each seen piece, `node * pieces + piece`; piece 0 is around the
 *     node itself, the others follow towards its parent
 */

/**
 * The parts of a link that are seen and those that are not, in turn.
 * @param {?Seen} seen
 * @param {number} index of the lower node
 * @param {number} parent
 * @returns {Array<{from: number, to: number, visible: boolean}>} fractions of the way to the parent
 */
function linkParts(seen, index, parent) {
  if (seen === null) {
    return [{ from: 0, to: 1, visible: true }];
  }
  const { pieces, marks } = seen;
  const parts = [];
  for (let piece = 0; piece <= pieces; ++piece) {
    const visible = marks[piece < pieces ? index * pieces + piece : parent * pieces] === 1;
    const end = Math.min(1, (piece + 0.5) / pieces);
    const last = parts[parts.length - 1];
    if (last !== undefined && last.visible === visible) {
      last.to = end;
    } else {
      parts.push({ from: last === undefined ? 0 : last.to, to: end, visible });
    }
  }
  return parts;
}

/** The corners, in their order around, of what a view cuts out of the floor; none if it doesn't. */
function cutFloor(corners, floor) {
  const cut = [];
  for (const [i, j] of kViewEdges) {
    const [a, b] = [corners[i], corners[j]];
    if (a[1] >= floor !== b[1] >= floor) {
      cut.push(mix(a, b, (floor - a[1]) / (b[1] - a[1])));
    }
  }
  const middle = [0, 2].map((axis) => cut.reduce((sum, p) => sum + p[axis] / cut.length, 0));
  const angle = (p) => Math.atan2(p[2] - middle[1], p[0] - middle[0]);
  return cut.length < 3 ? [] : cut.sort((a, b) => angle(a) - angle(b));
}

/** Edges of a view, with lines from the eye, in pieces for drawing among the other items. */
function viewItems(canvas, camera, { eye }, corners) {
  const steps = 40;
  const lines = kViewEdges.map(([i, j]) => [corners[i], corners[j]]);
  for (const corner of corners.slice(0, 4)) {
    lines.push([eye, corner]);
  }
  const items = [];
  for (const [a, b] of lines) {
    for (let step = 0; step < steps; ++step) {
      const [from, to] = [step, step + 1].map((s) => {
        return Object.assign(camera(mix(a, b, s / steps)), { radius: 0.8 });
      });
      const depth = (from.depth + to.depth) / 2;
      const color = mix(kViewEdge, kSky, 0.3 * depth);
      items.push({ depth, draw: () => canvas.stroke(from, to, color, 1) });
    }
  }
  return items;
}

/**
 * Draws a scene graph.
 * @param {Array<{parent: number, hue: number}>} nodes parents before children
 * @param {Array<number[]>} positions of the nodes in the world; those not finite are left out
 * @param {?Seen} [seen] without it, all is in colour
 * @returns {Canvas}
 */
function drawScene(nodes, positions, seen = null) {
  const canvas = new Canvas(kWidth, kHeight);
  const { dots, links } = collectItems(nodes, positions);
  const points = dots.map((index) => positions[index]);
  if (points.length === 0) {
    canvas.fill(() => kSky);
    return canvas;
  }
  const bounds = boundsOf(points);
  const feet = points.map((point) => [point[0], bounds.floor, point[2]]);
  const corners = seen === null ? [] : viewCorners(seen.camera);
  const camera = createCamera(points.concat(feet, corners), bounds);
  const center = camera([bounds.middle[0], bounds.floor, bounds.middle[2]]);
  canvas.fill((x, y) => {
    const [dx, dy] = [x - center.x / kWidth, (y - center.y / kHeight) * 1.6];
    return mix(kFloor, kSky, Math.min(1, Math.sqrt(dx * dx + dy * dy) * 1.7));
  });
  drawFloor(canvas, camera, bounds);
  const lit = seen === null ? [] : cutFloor(corners, bounds.floor).map(camera);
  if (lit.length > 0) {
    canvas.polygon(lit, kViewEdge, 0.12);
  }

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

  const items = seen === null ? [] : viewItems(canvas, camera, seen.camera, corners);
  for (const { index, parent, length } of links) {
    for (const { from: start, to: end, visible } of linkParts(seen, index, parent)) {
      const [from, to] = [start, end].map((t) =>
        place(mix(positions[index], positions[parent], t), 1)
      );
      // Behind the dots at both of its ends.
      const depth = Math.max(from.depth, to.depth);
      const bright = visible ? colorOf(nodes[index].hue, 0.62, 0.5) : kUnseenLink;
      const color = mix(bright, kSky, 0.45 * depth);
      items.push({ depth, draw: () => canvas.stroke(from, to, color, weight(length)) });
    }
  }
  for (const index of dots) {
    const at = place(positions[index], 1.9);
    const visible = seen === null || seen.marks[index * seen.pieces] === 1;
    const bright = visible ? colorOf(nodes[index].hue, 0.85, 0.68) : kUnseenDot;
    const color = mix(bright, kSky, 0.4 * at.depth);
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
