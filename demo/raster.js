'use strict';
// A small software renderer: shaded triangles and lines with a depth buffer, and an encoder of PNG files.
// The viewer's renderer needs a browser with WebGL; the demo must draw on any host of the module.
const { PNG } = require('pngjs');

/** Supersampling: samples per pixel along each axis. */
const kSamples = 2;

/**
 * An opaque picture. Colours are red, green, blue from 0 to 255. All coordinates are in samples, of which a pixel has
 * 2 × 2: x to the right, y down. Larger depths are nearer. Drawing is clipped to the window.
 */
class Raster {
  /** @param {number} width @param {number} height pixels */
  constructor(width, height) {
    this.pixelWidth = width;
    this.pixelHeight = height;
    this.width = width * kSamples;
    this.height = height * kSamples;
    this.colors = new Uint8ClampedArray(this.width * this.height * 3);
    this.depths = new Float32Array(this.width * this.height).fill(-Infinity);
    this.marks = new Uint8Array(this.width * this.height);
    this.spanned = {
      minX: 0,
      maxX: 0,
      minY: 0,
      maxY: 0,
      bByX: 0,
      bByY: 0,
      cByX: 0,
      cByY: 0,
      b: 0,
      c: 0,
    };
    this.setWindow(0, 0, this.width, this.height);
  }

  /** Restricts drawing to a rectangle: from left and top, up to right and bottom. */
  setWindow(left, top, right, bottom) {
    this.window = { left, top, right, bottom };
  }

  /** Colours the window from top to bottom, behind everything. */
  fillGradient(from, to) {
    const { left, top, right, bottom } = this.window;
    for (let y = top; y < bottom; ++y) {
      const t = (y - top) / (bottom - top);
      const color = from.map((value, i) => value + (to[i] - value) * t);
      for (let x = left, at = (y * this.width + left) * 3; x < right; ++x, at += 3) {
        this.colors[at] = color[0];
        this.colors[at + 1] = color[1];
        this.colors[at + 2] = color[2];
      }
    }
  }

  /**
   * Computes the bounding box of a triangle and its barycentric coordinates: those of b and c; a has the rest. Outside
   * the triangle, one of the three is negative.
   * @param {ArrayLike<number>} points x, y, depth of each vertex
   * @param {number} a index of the first vertex
   * @param {number} b
   * @param {number} c
   * @returns {boolean} false if it covers nothing
   */
  span(points, a, b, c) {
    const { left, top, right, bottom } = this.window;
    const ax = points[3 * a];
    const ay = points[3 * a + 1];
    const bx = points[3 * b] - ax;
    const by = points[3 * b + 1] - ay;
    const cx = points[3 * c] - ax;
    const cy = points[3 * c + 1] - ay;
    const area = bx * cy - by * cx;
    const s = this.spanned;
    s.minX = Math.max(left, Math.ceil(ax + Math.min(0, bx, cx) - 0.5));
    s.maxX = Math.min(right - 1, Math.floor(ax + Math.max(0, bx, cx) - 0.5));
    s.minY = Math.max(top, Math.ceil(ay + Math.min(0, by, cy) - 0.5));
    s.maxY = Math.min(bottom - 1, Math.floor(ay + Math.max(0, by, cy) - 0.5));
    s.bByX = cy / area;
    s.bByY = -cx / area;
    s.cByX = -by / area;
    s.cByY = bx / area;
    const x = s.minX + 0.5 - ax;
    const y = s.minY + 0.5 - ay;
    s.b = x * s.bByX + y * s.bByY;
    s.c = x * s.cByX + y * s.cByY;
    return Math.abs(area) > 1e-9 && s.minX <= s.maxX && s.minY <= s.maxY;
  }

  /**
   * Draws a triangle in one colour with interpolated shading.
   * @param {Float32Array} points x, y, depth of each vertex
   * @param {Float32Array} shades of each vertex, by which the colour is multiplied
   * @param {number} a index of the first vertex
   * @param {number} b
   * @param {number} c
   * @param {number[]} color
   */
  triangle(points, shades, a, b, c, color) {
    if (!this.span(points, a, b, c)) {
      return;
    }
    const { colors, depths, width } = this;
    const { minX, maxX, minY, maxY, bByX, bByY, cByX, cByY, b: firstB, c: firstC } = this.spanned;
    const depth = points[3 * a + 2];
    const depthB = points[3 * b + 2] - depth;
    const depthC = points[3 * c + 2] - depth;
    const shade = shades[a];
    const shadeB = shades[b] - shade;
    const shadeC = shades[c] - shade;
    const [red, green, blue] = color;
    for (let y = minY; y <= maxY; ++y) {
      let shareB = firstB + (y - minY) * bByY;
      let shareC = firstC + (y - minY) * cByY;
      for (let at = y * width + minX, end = y * width + maxX; at <= end; ++at) {
        if (shareB >= 0 && shareC >= 0 && shareB + shareC <= 1) {
          const here = depth + shareB * depthB + shareC * depthC;
          if (here > depths[at]) {
            depths[at] = here;
            const light = shade + shareB * shadeB + shareC * shadeC;
            colors[3 * at] = red * light;
            colors[3 * at + 1] = green * light;
            colors[3 * at + 2] = blue * light;
          }
        }
        shareB += bByX;
        shareC += cByX;
      }
    }
  }

  /** Marks a triangle with a number from 1 to 255, without depth test. */
  mark(points, a, b, c, number) {
    if (!this.span(points, a, b, c)) {
      return;
    }
    const { marks, width } = this;
    const { minX, maxX, minY, maxY, bByX, bByY, cByX, cByY, b: firstB, c: firstC } = this.spanned;
    for (let y = minY; y <= maxY; ++y) {
      let shareB = firstB + (y - minY) * bByY;
      let shareC = firstC + (y - minY) * cByY;
      for (let at = y * width + minX, end = y * width + maxX; at <= end; ++at) {
        if (shareB >= 0 && shareC >= 0 && shareB + shareC <= 1) {
          marks[at] = number;
        }
        shareB += bByX;
        shareC += cByX;
      }
    }
  }

  /** Blends a colour over the samples marked with a number, and clears these marks. */
  blendMarked(number, color, opacity) {
    const { marks, width } = this;
    const { left, top, right, bottom } = this.window;
    for (let y = top; y < bottom; ++y) {
      for (let at = y * width + left, end = y * width + right; at < end; ++at) {
        if (marks[at] === number) {
          marks[at] = 0;
          this.blend(at, color, opacity);
        }
      }
    }
  }

  /** Blends a colour over one sample; `opacity` from 0 to 1. */
  blend(at, color, opacity) {
    const { colors } = this;
    const first = 3 * at;
    colors[first] += (color[0] - colors[first]) * opacity;
    colors[first + 1] += (color[1] - colors[first + 1]) * opacity;
    colors[first + 2] += (color[2] - colors[first + 2]) * opacity;
  }

  /**
   * Fills a convex polygon without depth test.
   * @param {Array<number[]>} corners x and y each, in order; may be empty
   * @param {number[]} color
   * @param {number} opacity
   */
  polygon(corners, color, opacity) {
    const { left, top, right, bottom } = this.window;
    const { width } = this;
    const rows = corners.map(([, y]) => y);
    const firstRow = Math.max(top, Math.ceil(Math.min(...rows) - 0.5));
    const lastRow = Math.min(bottom - 1, Math.floor(Math.max(...rows) - 0.5));
    for (let row = firstRow; row <= lastRow; ++row) {
      const y = row + 0.5;
      let [from, to] = [Infinity, -Infinity];
      corners.forEach(([x0, y0], i) => {
        const [x1, y1] = corners[(i + 1) % corners.length];
        if (y0 <= y !== y1 <= y) {
          const x = x0 + ((y - y0) / (y1 - y0)) * (x1 - x0);
          from = Math.min(from, x);
          to = Math.max(to, x);
        }
      });
      const end = Math.min(right - 1, Math.floor(to - 0.5));
      for (let x = Math.max(left, Math.ceil(from - 0.5)); x <= end; ++x) {
        this.blend(row * width + x, color, opacity);
      }
    }
  }

  /** Fills a rectangle of the window. */
  rectangle(left, top, right, bottom, color, opacity = 1) {
    const corner = (x, y) => [x, y];
    this.polygon(
      [corner(left, top), corner(right, top), corner(right, bottom), corner(left, bottom)],
      color,
      opacity
    );
  }

  /**
   * Draws a line with depth test.
   * @param {number[]} from x, y, depth
   * @param {number[]} to
   * @param {number} radius half its width
   * @param {number[]} color
   * @param {number} opacity
   */
  line(from, to, radius, color, opacity) {
    const { left, top, right, bottom } = this.window;
    const dx = to[0] - from[0];
    const dy = to[1] - from[1];
    const squared = dx * dx + dy * dy || 1;
    const reach = radius + 1;
    const minX = Math.max(left, Math.floor(Math.min(from[0], to[0]) - reach));
    const maxX = Math.min(right - 1, Math.ceil(Math.max(from[0], to[0]) + reach));
    const minY = Math.max(top, Math.floor(Math.min(from[1], to[1]) - reach));
    const maxY = Math.min(bottom - 1, Math.ceil(Math.max(from[1], to[1]) + reach));
    // Half the extent of the line along a row.
    const rowReach = (reach * Math.sqrt(squared)) / Math.abs(dy);
    for (let y = minY; y <= maxY; ++y) {
      const py = y + 0.5 - from[1];
      const middle = from[0] + (py * dx) / dy;
      const first = dy === 0 ? minX : Math.max(minX, Math.floor(middle - rowReach));
      const last = dy === 0 ? maxX : Math.min(maxX, Math.ceil(middle + rowReach));
      for (let x = first; x <= last; ++x) {
        const px = x + 0.5 - from[0];
        const t = Math.min(1, Math.max(0, (px * dx + py * dy) / squared));
        const [ex, ey] = [px - t * dx, py - t * dy];
        const coverage = radius + 0.5 - Math.sqrt(ex * ex + ey * ey);
        const at = y * this.width + x;
        if (coverage > 0 && from[2] + t * (to[2] - from[2]) >= this.depths[at]) {
          this.blend(at, color, opacity * Math.min(1, coverage));
        }
      }
    }
  }

  /**
   * The picture as the bytes of a PNG file.
   * @returns {Buffer}
   */
  toPng() {
    const [width, height] = [this.pixelWidth, this.pixelHeight];
    const png = new PNG({ width, height });
    const { colors } = this;
    const row = 3 * this.width;
    for (let y = 0, out = 0; y < height; ++y) {
      for (let x = 0; x < width; ++x, out += 4) {
        const at = kSamples * (y * row + 3 * x);
        for (let i = at, k = out; i < at + 3; ++i, ++k) {
          png.data[k] =
            (colors[i] + colors[i + 3] + colors[i + row] + colors[i + row + 3] + 2) >> 2;
        }
        png.data[out + 3] = 255;
      }
    }
    return PNG.sync.write(png, { colorType: 2, filterType: 4, deflateLevel: 5 });
  }
}

module.exports = { Raster, kSamples };
