'use strict';
// The picture of a crowd: its characters by their skinning matrices, in colour if the perspective camera sees them, with
// the edges of its view volume; below, one of them at several times.
const fs = require('fs');
const path = require('path');
const { kPictureYaw, viewCorners } = require('./cameras');
const { skinVertices } = require('./mesh');
const { kGrip, kStick } = require('./props');
const { Raster, kSamples } = require('./raster');
const { UserError, fileTrouble } = require('./user-error');

/** Sizes in pixels: the picture, its part with moments, a margin. */
const kWidth = 1600;
const kHeight = 1200;
const kStripHeight = 280;
const kMargin = 24;

/** Moments: height of the bars in pixels, and their minimum number. */
const kBarHeight = 9;
const kBarGap = 4;
const kFewestMoments = 7;

/** Camera of the picture: radians above the floor, and distance in radii of the crowd. */
const kPitch = 0.5;
const kDistance = 2.6;

/** The same for the moments, seen from far away: from the side, a little from the front. */
const kStripYaw = Math.PI / 2 - 0.45;
const kStripPitch = 0.12;

const kSky = [14, 18, 30];
const kGround = [44, 52, 74];
const kShadow = [8, 10, 18];
const kGrid = [92, 106, 146];
const kStripTop = [30, 36, 54];
const kStripBottom = [46, 54, 78];
const kViewEdge = [240, 200, 110];
const kGridLines = 14;

/** The floor: its radius in radii of the crowd, and the number of rings of its fading edge. */
const kFloorReach = 1.4;
const kFloorRings = 16;
const kFloorOpacity = 0.88;
const kFloorCorners = 72;

/** Unit vector towards the light. */
const kLight = [-0.36, 0.8, 0.48];

/** Colours of clips; a character's colour is the weighted mean of those of its clips. */
const clipColors = [
  [62, 146, 250],
  [252, 84, 76],
  [110, 205, 90],
  [245, 190, 60],
];
const kPlainColor = [40, 205, 185];

/** What the legend calls these colours. */
const clipColorNames = ['blue', 'red', 'green', 'yellow'];
const kPlainColorName = 'turquoise';

/** Colours of layers over the clips, and of the empty part of a bar. */
const layerColors = [
  [250, 190, 70],
  [70, 215, 190],
];
const layerColorNames = ['yellow', 'turquoise'];
const kTrack = [70, 80, 108];

/** A light: radius in metres and opacity of its discs. */
const kGlow = [
  [0.55, 0.045],
  [0.46, 0.055],
  [0.37, 0.065],
  [0.28, 0.08],
  [0.19, 0.1],
];

/** Colours of characters that the camera does not see. */
const kUnseen = [104, 116, 144];

const skins = [
  [236, 188, 152],
  [205, 150, 112],
  [150, 100, 70],
  [98, 66, 48],
];
const hairs = [
  [60, 42, 32],
  [120, 78, 40],
  [30, 28, 32],
  [190, 150, 90],
];

function mix(a, b, t) {
  return a.map((value, i) => value + (b[i] - value) * t);
}

function scaled(a, factor) {
  return a.map((value) => value * factor);
}

/** Colour of a mixture of clips. */
function clipColor(weights) {
  if (weights.length === 0) {
    return kPlainColor;
  }
  return weights.reduce(
    (sum, weight, clip) => {
      const color = clipColors[clip % clipColors.length];
      return sum.map((value, i) => value + weight * color[i]);
    },
    [0, 0, 0]
  );
}

/**
 * Colours of the parts of a character.
 * @param {number} character
 * @param {number[]} weights of its clips
 * @param {boolean} visible
 * @returns {Array<number[]>} shirt, trousers, skin, hair, shoes
 */
function paletteOf(character, weights, visible) {
  if (!visible) {
    return [1, 0.72, 1.18, 0.6, 0.55].map((factor) => scaled(kUnseen, factor));
  }
  const color = clipColor(weights);
  return [
    color,
    mix(scaled(color, 0.45), [52, 54, 84], 0.5),
    skins[(character * 7) % skins.length],
    hairs[(character * 5) % hairs.length],
    [225, 225, 232],
  ];
}

/** Colours of the parts of a character's prop. */
function propPaletteOf({ palettes }, character, visible) {
  const palette = palettes[character % palettes.length];
  return visible ? palette : palette.map(() => kUnseen);
}

/** A camera that looks down at a point, from a finite or infinite distance. */
class PictureCamera {
  /**
   * @param {number[]} target
   * @param {number} yaw direction of the camera, radians about the vertical axis
   * @param {number} pitch above the floor
   * @param {number} distance from the target; infinite for a parallel projection
   */
  constructor(target, yaw, pitch, distance) {
    const [sy, cy] = [Math.sin(yaw), Math.cos(yaw)];
    const [sp, cp] = [Math.sin(pitch), Math.cos(pitch)];
    this.target = target;
    this.right = [cy, 0, -sy];
    this.up = [-sp * sy, cp, -sp * cy];
    this.back = [cp * sy, sp, cp * cy];
    this.distance = distance;
    this.zoom = 1;
    this.center = [0, 0];
  }

  /** Writes x, y and depth of a point. */
  project(x, y, z, out, at) {
    const { target, right, up, back } = this;
    const [dx, dy, dz] = [x - target[0], y - target[1], z - target[2]];
    const nearer = back[0] * dx + back[1] * dy + back[2] * dz;
    const isParallel = this.distance === Infinity;
    const scale = isParallel ? this.zoom : this.zoom / (this.distance - nearer);
    out[at] = this.center[0] + scale * (right[0] * dx + right[1] * dy + right[2] * dz);
    out[at + 1] = this.center[1] - scale * (up[0] * dx + up[1] * dy + up[2] * dz);
    out[at + 2] = isParallel ? nearer : 1 / (this.distance - nearer);
  }

  /** @returns {number[]} x, y and depth of a point */
  at(point) {
    const out = [];
    this.project(point[0], point[1], point[2], out, 0);
    return out;
  }

  /** Depth of a position that is nearer than a point by a distance in the world. */
  depthTowards(point, distance) {
    return this.at(point.map((value, axis) => value + distance * this.back[axis]))[2];
  }

  /** Zooms and pans so that points just fit into a rectangle of samples. */
  fit(points, left, top, right, bottom) {
    [this.zoom, this.center] = [1, [0, 0]];
    const flat = points.map((point) => this.at(point));
    const reach = (axis) => {
      const values = flat.map((point) => point[axis]);
      return [Math.min(...values), Math.max(...values)];
    };
    const [[x0, x1], [y0, y1]] = [reach(0), reach(1)];
    this.zoom = Math.min((right - left) / (x1 - x0 || 1), (bottom - top) / (y1 - y0 || 1));
    this.center = [
      (left + right) / 2 - (this.zoom * (x0 + x1)) / 2,
      (top + bottom) / 2 - (this.zoom * (y0 + y1)) / 2,
    ];
  }
}

/** Skins, shades and draws the meshes of characters; its memory is reused for each. */
class CharacterPainter {
  /** @param {Raster} raster @param {import('./mesh').Mesh} mesh */
  constructor(raster, mesh) {
    this.raster = raster;
    this.mesh = mesh;
    this.points = new Float32Array(mesh.positions.length);
    this.normals = new Float32Array(mesh.positions.length);
    this.flat = new Float32Array(mesh.positions.length);
    this.shades = new Float32Array(mesh.positions.length / 3);
  }

  /** Skins the vertices by matrices, and subtracts `origin`. */
  pose(matrices, origin) {
    skinVertices(this.mesh, matrices, this.points);
    for (let at = 0; at < this.points.length; ++at) {
      this.points[at] -= origin[at % 3];
    }
  }

  project(camera) {
    const { points, flat } = this;
    for (let at = 0; at < points.length; at += 3) {
      camera.project(points[at], points[at + 1], points[at + 2], flat, at);
    }
  }

  /** Marks the shadow on the floor. */
  castShadow(camera, floor) {
    const { points, flat, mesh } = this;
    for (let at = 0; at < points.length; at += 3) {
      const down = (points[at + 1] - floor) / kLight[1];
      const [x, z] = [points[at] - down * kLight[0], points[at + 2] - down * kLight[2]];
      camera.project(x, floor, z, flat, at);
    }
    const { triangles } = mesh;
    for (let i = 0; i < triangles.length; i += 3) {
      this.raster.mark(flat, triangles[i], triangles[i + 1], triangles[i + 2], 1);
    }
  }

  /** Normals of the vertices: the area-weighted sum of those of their triangles. */
  sumNormals() {
    const { points, normals, mesh } = this;
    const { triangles } = mesh;
    normals.fill(0);
    for (let i = 0; i < triangles.length; i += 3) {
      const a = 3 * triangles[i];
      const b = 3 * triangles[i + 1];
      const c = 3 * triangles[i + 2];
      const ux = points[b] - points[a];
      const uy = points[b + 1] - points[a + 1];
      const uz = points[b + 2] - points[a + 2];
      const vx = points[c] - points[a];
      const vy = points[c + 1] - points[a + 1];
      const vz = points[c + 2] - points[a + 2];
      const x = uy * vz - uz * vy;
      const y = uz * vx - ux * vz;
      const z = ux * vy - uy * vx;
      for (let corner = 0; corner < 3; ++corner) {
        const at = 3 * triangles[i + corner];
        normals[at] += x;
        normals[at + 1] += y;
        normals[at + 2] += z;
      }
    }
  }

  /** Lighting of the vertices, on the side that faces the camera. */
  shade({ back }) {
    const { normals, shades } = this;
    for (let vertex = 0, at = 0; vertex < shades.length; ++vertex, at += 3) {
      const [x, y, z] = [normals[at], normals[at + 1], normals[at + 2]];
      const length = Math.sqrt(x * x + y * y + z * z) || 1;
      const facing = (x * back[0] + y * back[1] + z * back[2]) / length;
      const side = facing < 0 ? -1 : 1;
      const light = (side * (x * kLight[0] + y * kLight[1] + z * kLight[2])) / length;
      const sky = 0.5 + (0.5 * side * y) / length;
      shades[vertex] = 0.3 + 0.2 * sky + 0.62 * Math.max(0, light);
    }
  }

  draw(camera, palette) {
    const { raster, flat, shades } = this;
    const { triangles, parts } = this.mesh;
    this.sumNormals();
    this.shade(camera);
    this.project(camera);
    for (let i = 0; i < triangles.length; i += 3) {
      const color = palette[parts[i / 3] % palette.length];
      raster.triangle(flat, shades, triangles[i], triangles[i + 1], triangles[i + 2], color);
    }
  }
}

/** Draws characters with their props. */
class CastPainter {
  /**
   * @param {Raster} raster
   * @param {import('./crowd').Kind} kind
   * @param {Array<?import('./props').Part>} cast what each character carries
   */
  constructor(raster, kind, cast) {
    this.raster = raster;
    this.cast = cast;
    this.body = new CharacterPainter(raster, kind.mesh);
    this.props = kind.layers ? kind.layers.props : [];
    this.painters = this.props.map(({ meshes }) =>
      meshes.map((mesh) => new CharacterPainter(raster, mesh))
    );
  }

  /** Skins a character by its matrices, and subtracts `origin`. */
  pose(character, matrices, propMatrix, origin = [0, 0, 0]) {
    const part = this.cast[character] || null;
    this.character = character;
    this.prop = part && this.props[part.prop];
    this.propMatrix = propMatrix;
    this.origin = origin;
    this.painter = part && this.painters[part.prop][part.hand];
    this.side = part && part.hand === 0 ? 1 : -1;
    this.body.pose(matrices, origin);
    if (this.painter) {
      this.painter.pose(propMatrix, origin);
    }
  }

  /** The painters of the character and of its prop. */
  parts() {
    return this.painter ? [this.body, this.painter] : [this.body];
  }

  castShadow(camera, floor) {
    this.parts().forEach((painter) => painter.castShadow(camera, floor));
  }

  draw(camera, weights, visible) {
    this.body.draw(camera, paletteOf(this.character, weights, visible));
    if (this.painter) {
      this.painter.draw(camera, propPaletteOf(this.prop, this.character, visible));
    }
  }

  /** Draws the light of a lamp, with depth test. */
  drawGlow(camera) {
    if (!this.painter || this.prop.glow === null) {
      return;
    }
    const { distance, color } = this.prop.glow;
    const m = this.propMatrix;
    const [x, y, z] = kGrip.map((value, axis) => value + distance * kStick[axis]);
    const center = [0, 1, 2].map(
      (i) => m[i] * x * this.side + m[4 + i] * y + m[8 + i] * z + m[12 + i] - this.origin[i]
    );
    const at = camera.at(center);
    const top = camera.at([center[0], center[1] + 1, center[2]]);
    for (const [radius, opacity] of kGlow) {
      // Nearer than the lamp, which is inside the glow.
      const from = [at[0], at[1], camera.depthTowards(center, 0.1)];
      this.raster.line(from, from, radius * Math.abs(top[1] - at[1]), color, opacity);
    }
  }
}

/** Edges of a view volume: near rectangle, far rectangle, and the edges between them. */
const kViewEdges = [0, 1, 2, 3].reduce(
  (edges, i) =>
    edges.concat([
      [i, (i + 1) % 4],
      [4 + i, 4 + ((i + 1) % 4)],
      [i, 4 + i],
    ]),
  []
);

/** The corners, in order, of the intersection of a view volume with the floor; none if it is empty. */
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

/** A round floor with a grid that fades outwards. */
function drawFloor(raster, camera, { middle, radius, floor }) {
  const reach = kFloorReach * radius;
  const inner = 0.8 * reach;
  const corner = (size, i) => {
    const angle = (2 * Math.PI * i) / kFloorCorners;
    const [x, z] = [Math.sin(angle), Math.cos(angle)].map((value) => value * size);
    return camera.at([middle[0] + x, floor, middle[2] + z]);
  };
  const around = Array.from({ length: kFloorCorners }, (none, i) => i);
  raster.polygon(
    around.map((i) => corner(inner, i)),
    kGround,
    kFloorOpacity
  );
  for (let ring = 0; ring < kFloorRings; ++ring) {
    const [near, far] = [ring, ring + 1].map((k) => inner + ((reach - inner) * k) / kFloorRings);
    const opacity = kFloorOpacity * (1 - (ring + 0.5) / kFloorRings);
    for (const i of around) {
      const quad = [corner(near, i), corner(near, i + 1), corner(far, i + 1), corner(far, i)];
      raster.polygon(quad, kGround, opacity);
    }
  }
  for (let line = -kGridLines; line <= kGridLines; ++line) {
    const side = (line / kGridLines) * reach;
    const half = Math.sqrt(Math.max(0, inner * inner - side * side));
    for (const turned of [false, true]) {
      const [from, to] = [-half, half].map((along) => {
        const [x, z] = turned ? [along, side] : [side, along];
        return camera.at([middle[0] + x, floor, middle[2] + z]);
      });
      raster.line(from, to, 0.6, kGrid, half > 0 ? 0.35 : 0);
    }
  }
}

/** Draws the edges of a view volume, with depth test, and lines from the eye. */
function drawView(raster, camera, { eye }, corners) {
  for (const [i, j] of kViewEdges) {
    raster.line(camera.at(corners[i]), camera.at(corners[j]), 1.7, kViewEdge, 0.9);
  }
  for (const corner of corners.slice(0, 4)) {
    raster.line(camera.at(eye), camera.at(corner), 1.2, kViewEdge, 0.7);
  }
}

/** Draws the crowd in its current state. */
function drawCrowd(raster, stage) {
  const { crowd, culling, bounds, plan, kind } = stage;
  const [width, height] = [kWidth * kSamples, (kHeight - kStripHeight) * kSamples];
  const margin = kMargin * kSamples;
  raster.setWindow(0, 0, width, height);
  raster.fillGradient(kSky, scaled(kSky, 1.7));
  const corners = viewCorners(culling.perspective);
  const camera = new PictureCamera(bounds.middle, kPictureYaw, kPitch, kDistance * bounds.radius);
  const around = Array.from({ length: 24 }, (none, i) => {
    const angle = (Math.PI * i) / 12;
    const [x, z] = [bounds.radius * Math.sin(angle), bounds.radius * Math.cos(angle)];
    return [bounds.middle[0] + x, bounds.floor, bounds.middle[2] + z];
  });
  const top = [bounds.middle[0], bounds.floor + 2 * stage.reach.radius, bounds.middle[2]];
  const points = [...around, ...corners, culling.perspective.eye, top];
  camera.fit(points, margin, margin, width - margin, height - margin);
  drawFloor(raster, camera, bounds);
  const lit = cutFloor(corners, bounds.floor).map((corner) => camera.at(corner));
  raster.polygon(lit, kViewEdge, 0.16);

  const painter = new CastPainter(raster, kind, crowd.cast);
  const pose = (i) => painter.pose(i, crowd.matrices[i], crowd.props.worldMatrix(i));
  for (let i = 0; i < crowd.count; ++i) {
    pose(i);
    painter.castShadow(camera, bounds.floor);
  }
  raster.blendMarked(1, kShadow, 0.5);
  const visible = culling.visible(culling.views.perspective);
  for (let i = 0; i < crowd.count; ++i) {
    pose(i);
    painter.draw(camera, plan.weights(i), visible[i] === 1);
  }
  crowd.props.carriers
    .filter((i) => visible[i] === 1)
    .forEach((i) => {
      pose(i);
      painter.drawGlow(camera);
    });
  drawView(raster, camera, culling.perspective, corners);
}

/** Evenly spaced elements of a list, including the first and the last. */
function evenly(list, count) {
  return Array.from({ length: count }, (none, i) => {
    return list[Math.round((i * (list.length - 1)) / Math.max(1, count - 1))];
  });
}

/** Extent of a character at all moments around its position, as their cameras see it. */
function measureMoments(painter, pose, views) {
  const reach = { left: Infinity, right: -Infinity, top: Infinity, bottom: -Infinity };
  for (const { camera, moment } of views) {
    pose(moment);
    for (const part of painter.parts()) {
      part.project(camera);
      for (let at = 0; at < part.flat.length; at += 3) {
        reach.left = Math.min(reach.left, part.flat[at]);
        reach.right = Math.max(reach.right, part.flat[at]);
        reach.top = Math.min(reach.top, part.flat[at + 1]);
        reach.bottom = Math.max(reach.bottom, part.flat[at + 1]);
      }
    }
  }
  return reach;
}

/**
 * Bars below a moment: one with the shares of its clips, and one for the weight of each layer over them.
 */
function drawBars(raster, { weights, layerWeights }, left, right, top) {
  const [high, gap] = [kBarHeight * kSamples, kBarGap * kSamples];
  const at = (share) => left + (right - left) * share;
  let from = 0;
  weights.forEach((weight, clip) => {
    const color = clipColors[clip % clipColors.length];
    raster.rectangle(at(from), top, at(from + weight), top + high, color);
    from += weight;
  });
  layerWeights.forEach((weight, layer) => {
    const y = top + (layer + 1) * (high + gap);
    raster.rectangle(left, y, right, y + high, kTrack);
    raster.rectangle(left, y, at(weight), y + high, layerColors[layer]);
  });
}

/** Draws one character at several moments, from left to right, with the shares of clips and layers below. */
function drawMoments(raster, { kind, crowd, reach }, { star, moments }) {
  const top = (kHeight - kStripHeight) * kSamples;
  const [width, height] = [kWidth * kSamples, kHeight * kSamples];
  const margin = kMargin * kSamples;
  raster.setWindow(0, top, width, height);
  raster.fillGradient(kStripTop, kStripBottom);
  const painter = new CastPainter(raster, kind, crowd.cast);
  const pose = ({ matrices, prop, position }) => painter.pose(star, matrices, prop, position);
  const views = moments.map((moment) => {
    const yaw = moment.heading + kStripYaw;
    return { moment, camera: new PictureCamera([0, 0, 0], yaw, kStripPitch, Infinity) };
  });
  const size = measureMoments(painter, pose, views);
  const [wide, high] = [size.right - size.left || 1, size.bottom - size.top || 1];
  const rows = 1 + moments[0].layerWeights.length;
  const bars = (rows * (kBarHeight + kBarGap) - kBarGap) * kSamples;
  const floor = height - 1.75 * margin - bars;
  const most = Math.floor(((width - 2 * margin) * high) / (1.08 * wide * (floor - top - margin)));
  const shown = evenly(views, Math.min(views.length, Math.max(kFewestMoments, most)));
  const cell = (width - 2 * margin) / shown.length;
  const zoom = Math.min((0.96 * cell) / wide, (floor - top - margin) / high);
  shown.forEach(({ moment, camera }, i) => {
    const left = margin + i * cell;
    camera.zoom = zoom;
    camera.center = [
      left + cell / 2 - (zoom * (size.left + size.right)) / 2,
      floor - zoom * size.bottom,
    ];
    pose(moment);
    painter.castShadow(camera, reach.floor);
    raster.blendMarked(1, kShadow, 0.45);
    painter.draw(camera, moment.weights, true);
    painter.drawGlow(camera);
    drawBars(raster, moment, left + 0.1 * cell, left + 0.9 * cell, height - margin - bars);
  });
}

/**
 * Draws a crowd after its last frame.
 * @param {import('./stage').Stage} stage
 * @param {import('./moments').MomentRecorder} recorder with one moment at least
 * @returns {Raster}
 */
function drawPicture(stage, recorder) {
  const raster = new Raster(kWidth, kHeight);
  drawCrowd(raster, stage);
  drawMoments(raster, stage, recorder);
  return raster;
}

/**
 * @typedef {Object} LegendEntry
 * @property {string} sign a colour, and of what
 * @property {string[]} names what it shows, or the names of clips
 */

/**
 * The legend of a picture of a kind of character.
 * @param {import('./crowd').Kind} kind
 * @returns {LegendEntry[]}
 */
function legendOf({ clips, layers }) {
  const bars = layers ? [layers.wave, layers.breath] : [];
  const clipEntries = clipColorNames.map((color, i) => ({
    sign: `${color} body or bar`,
    names: clips.filter((clip, at) => at % clipColors.length === i).map(({ name }) => name),
  }));
  return [
    ...clipEntries.filter(({ names }) => names.length > 0),
    ...(clips.length === 0 ? [{ sign: `${kPlainColorName} body`, names: ['no clip'] }] : []),
    { sign: 'grey characters', names: ['not visible to the perspective camera'] },
    { sign: 'yellow lines, lit floor', names: ['what that camera sees'] },
    { sign: 'row below', names: ['one character, from the first moment to the last'] },
    ...bars.map(({ name }, i) => ({
      sign: `${layerColorNames[i]} bars, row ${i + 2}`,
      names: [`weight of layer ${name}`],
    })),
  ];
}

/**
 * Writes a picture to a temporary file first, and renames it when it is complete.
 * @param {Raster} raster
 * @param {string} file
 * @throws {UserError}
 */
function savePicture(raster, file) {
  const unfinished = path.join(path.dirname(file), `.${path.basename(file)}.${process.pid}.tmp`);
  try {
    fs.writeFileSync(unfinished, raster.toPng());
    fs.renameSync(unfinished, file);
  } catch (error) {
    try {
      fs.unlinkSync(unfinished);
    } catch (absent) {
      // The file was not created.
    }
    const trouble = fileTrouble(error);
    throw new UserError(`picture '${file}' can't be written, ${trouble}: choose another --out.`);
  }
}

/** Colours of characters; red, green, blue up to 255. */
const palettes = Object.freeze({ clips: clipColors, plain: kPlainColor, skins, hairs });

module.exports = { CharacterPainter, clipColors, drawPicture, legendOf, palettes, savePicture };
