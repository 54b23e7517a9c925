'use strict';
// A small anti-aliased canvas: discs, tapering strokes, and the way into a PNG file.
const { PNG } = require('pngjs');

/**
 * An opaque picture. Colours are arrays of red, green, blue from 0 to 1; coordinates are pixels, x to
 * the right, y down, with pixel centres at halves. What lies outside is cut off.
 */
class Canvas {
  /** @param {number} width @param {number} height pixels */
  constructor(width, height) {
    this.width = width;
    this.height = height;
    this.pixels = new Float32Array(width * height * 3);
  }

  /**
   * Sets every pixel.
   * @param {function(number, number): number[]} colorAt gets x and y, each from 0 to 1
   */
  fill(colorAt) {
    for (let y = 0; y < this.height; ++y) {
      for (let x = 0; x < this.width; ++x) {
        const color = colorAt((x + 0.5) / this.width, (y + 0.5) / this.height);
        this.pixels.set(color, (y * this.width + x) * 3);
      }
    }
  }

  /** Lays a colour over one pixel; `opacity` from 0 to 1. */
  blend(x, y, color, opacity) {
    const at = (y * this.width + x) * 3;
    for (let i = 0; i < 3; ++i) {
      this.pixels[at + i] += (color[i] - this.pixels[at + i]) * opacity;
    }
  }

  /**
   * Draws a stroke with round ends whose radius runs from one end to the other. A pixel is covered by
   * its distance from the edge; strokes thinner than a pixel turn fainter instead.
   * @param {{x: number, y: number, radius: number}} from
   * @param {{x: number, y: number, radius: number}} to
   * @param {number[]} color
   * @param {number} opacity
   */
  stroke(from, to, color, opacity) {
    const dx = to.x - from.x;
    const dy = to.y - from.y;
    const squared = dx * dx + dy * dy;
    const reach = Math.max(from.radius, to.radius, 0.5) + 1;
    const left = Math.max(0, Math.floor(Math.min(from.x, to.x) - reach));
    const right = Math.min(this.width - 1, Math.ceil(Math.max(from.x, to.x) + reach));
    const top = Math.max(0, Math.floor(Math.min(from.y, to.y) - reach));
    const bottom = Math.min(this.height - 1, Math.ceil(Math.max(from.y, to.y) + reach));
    // Along a row, the stroke reaches this far to both sides of its middle line.
    const rowReach = (reach * Math.sqrt(squared)) / Math.abs(dy);
    for (let y = top; y <= bottom; ++y) {
      const py = y + 0.5 - from.y;
      const middle = from.x + (py * dx) / dy;
      const first = dy === 0 ? left : Math.max(left, Math.floor(middle - rowReach));
      const last = dy === 0 ? right : Math.min(right, Math.ceil(middle + rowReach));
      for (let x = first; x <= last; ++x) {
        const px = x + 0.5 - from.x;
        const along = squared > 0 ? (px * dx + py * dy) / squared : 0;
        const t = Math.min(1, Math.max(0, along));
        const radius = from.radius + (to.radius - from.radius) * t;
        const ex = px - t * dx;
        const ey = py - t * dy;
        const distance = Math.sqrt(ex * ex + ey * ey);
        const coverage = Math.min(1, Math.max(0, Math.max(radius, 0.5) + 0.5 - distance));
        if (coverage > 0) {
          this.blend(x, y, color, opacity * coverage * Math.min(1, radius * 2));
        }
      }
    }
  }

  /** Draws a disc. */
  disc(center, color, opacity) {
    this.stroke(center, center, color, opacity);
  }

  /**
   * Fills a convex polygon, in either direction of its corners.
   * @param {Array<{x: number, y: number}>} corners at least 3
   * @param {number[]} color
   * @param {number} opacity
   */
  polygon(corners, color, opacity) {
    const edges = corners.map(({ x, y }, i) => {
      const next = corners[(i + 1) % corners.length];
      return { x, y, dx: next.x - x, dy: next.y - y, length: Math.hypot(next.x - x, next.y - y) };
    });
    const area = edges.reduce((sum, { x, y, dx, dy }) => sum + x * (y + dy) - (x + dx) * y, 0);
    const reach = (axis, pick) => pick(...corners.map((corner) => corner[axis]));
    const left = Math.max(0, Math.floor(reach('x', Math.min)) - 1);
    const right = Math.min(this.width - 1, Math.ceil(reach('x', Math.max)));
    const top = Math.max(0, Math.floor(reach('y', Math.min)) - 1);
    const bottom = Math.min(this.height - 1, Math.ceil(reach('y', Math.max)));
    for (let y = top; y <= bottom; ++y) {
      for (let x = left; x <= right; ++x) {
        let coverage = 1;
        for (const edge of edges) {
          const side = edge.dx * (y + 0.5 - edge.y) - edge.dy * (x + 0.5 - edge.x);
          const inside = (area > 0 ? side : -side) / (edge.length || 1);
          coverage = Math.min(coverage, Math.max(0, inside + 0.5));
        }
        if (coverage > 0) {
          this.blend(x, y, color, opacity * coverage);
        }
      }
    }
  }

  /**
   * The picture as the bytes of a PNG file.
   * @returns {Buffer}
   */
  toPng() {
    const png = new PNG({ width: this.width, height: this.height });
    for (let i = 0; i < this.width * this.height; ++i) {
      for (let c = 0; c < 3; ++c) {
        png.data[i * 4 + c] = Math.round(255 * Math.min(1, Math.max(0, this.pixels[i * 3 + c])));
      }
      png.data[i * 4 + 3] = 255;
    }
    return PNG.sync.write(png, { colorType: 2, filterType: 4, deflateLevel: 6 });
  }
}

module.exports = { Canvas };
