// The chart of what a frame costs: stacked stages, over the last frames.

/** Frames in the chart and in percentiles: four seconds. */
const kFrames = 240;

/** Percentiles of the table: the median, and two for late frames. */
export const kPercentiles = [50, 95, 99];

/** Colours of stages in their order. */
export const stageColors = [
  '#8f99b3',
  '#5b9df5',
  '#63d2a4',
  '#f0c86e',
  '#ee7d72',
  '#b391f0',
  '#62cde0',
  '#4a5670',
];

/** Fraction of its way down that the top of the scale moves per frame; for a late frame it moves up at once. */
const kScaleRate = 0.08;

/** Minimum and maximum of the scale, in medians: slower frames are clipped there, and marked. */
const kLeastMedians = 1.8;
const kMostMedians = 10;

/** Headroom above the slowest frame, and height of the mark of a clipped one. */
const kHeadroom = 1.08;
const kCutPixels = 3;
const kLateColor = '#f2777a';

/** Distances between lines of the scale, in milliseconds. */
const kSteps = [0.1, 0.2, 0.5, 1, 2, 5, 10, 20, 50, 100, 200, 500];

/** Height of the scale's text. */
const kTextPixels = 12;

/**
 * Percentiles of values.
 * @param {number[]} values
 * @returns {number[]} one for each of kPercentiles; 0 without values
 */
export function percentilesOf(values) {
  const sorted = Array.from(values).sort((a, b) => a - b);
  return kPercentiles.map((percent) =>
    sorted.length === 0 ? 0 : sorted[Math.ceil((percent * sorted.length) / 100) - 1]
  );
}

/** Owns the last frames' costs. */
export class Chart {
  /**
   * @param {HTMLCanvasElement} canvas
   * @param {number} stages how many there are
   */
  constructor(canvas, stages) {
    this.canvas = canvas;
    this.stages = stages;
    /** Milliseconds by stage, in a ring buffer of frames. */
    this.rows = Array.from({ length: stages }, () => new Float32Array(kFrames));
    this.frames = 0;
    this.top = 1;
  }

  /** Adds a frame. */
  push(milliseconds) {
    const at = this.frames++ % kFrames;
    this.rows.forEach((row, stage) => {
      row[at] = milliseconds[stage];
    });
  }

  /** Values of the last frames, oldest first. */
  last(values, count) {
    const length = Math.min(count, this.frames);
    return Array.from({ length }, (none, i) => values[(this.frames - length + i) % kFrames]);
  }

  /** Percentiles of each stage's cost, in milliseconds. */
  percentiles() {
    return this.rows.map((row) => percentilesOf(this.last(row, kFrames)));
  }

  /** Costs of whole frames, oldest first. */
  sums() {
    const columns = this.rows.map((row) => this.last(row, kFrames));
    return columns[0].map((_, i) => columns.reduce((sum, column) => sum + column[i], 0));
  }

  /** Percentiles of the cost of a whole frame. */
  wholePercentiles() {
    return percentilesOf(this.sums());
  }

  /** Moves the top of the scale so that the slowest frame fits, as long as the others stay readable. */
  scale(sums) {
    const [median] = percentilesOf(sums);
    const latest = kHeadroom * sums.reduce((most, sum) => Math.max(most, sum), 0);
    const wanted = Math.max(
      0.2,
      kLeastMedians * median,
      Math.min(latest, Math.max(kMostMedians * median, 1))
    );
    this.top = Math.max(wanted, this.top + (wanted - this.top) * kScaleRate);
  }

  /** Draws the chart at the canvas's size on the screen. */
  draw() {
    const { canvas } = this;
    const ratio = Math.min(2, self.devicePixelRatio || 1);
    const [width, height] = [canvas.clientWidth, canvas.clientHeight];
    if (canvas.width !== Math.round(width * ratio)) {
      canvas.width = Math.round(width * ratio);
    }
    if (canvas.height !== Math.round(height * ratio)) {
      canvas.height = Math.round(height * ratio);
    }
    const pen = canvas.getContext('2d');
    pen.setTransform(ratio, 0, 0, ratio, 0, 0);
    pen.clearRect(0, 0, width, height);
    const shown = this.rows.map((row) => this.last(row, kFrames));
    const sums = this.sums();
    this.scale(sums);
    const yOf = (milliseconds) => height - (milliseconds / this.top) * height;
    const xOf = (i) => width - (sums.length - 1 - i) * (width / (kFrames - 1));
    const base = new Float32Array(sums.length);
    shown.forEach((column, stage) => {
      pen.beginPath();
      for (let i = 0; i < column.length; ++i) {
        pen.lineTo(xOf(i), yOf(base[i]));
      }
      for (let i = column.length - 1; i >= 0; --i) {
        base[i] += column[i];
        pen.lineTo(xOf(i), yOf(base[i]));
      }
      pen.fillStyle = stageColors[stage % stageColors.length];
      pen.fill();
    });
    this.drawScale(pen, width, yOf);
    this.drawCuts(pen, width, sums, xOf);
  }

  /** Marks frames that exceed the scale, and writes the time of the slowest one. */
  drawCuts(pen, width, sums, xOf) {
    const cut = sums.filter((sum) => sum > this.top);
    pen.fillStyle = kLateColor;
    sums.forEach((sum, i) => {
      if (sum > this.top) {
        pen.fillRect(xOf(i) - 1, 0, 2, kCutPixels);
      }
    });
    if (cut.length > 0) {
      const latest = cut.reduce((most, sum) => Math.max(most, sum));
      pen.textAlign = 'right';
      this.drawText(
        pen,
        `${latest.toFixed(0)} ms`,
        width - 3,
        kCutPixels + kTextPixels,
        kLateColor
      );
      pen.textAlign = 'left';
    }
  }

  drawText(pen, text, x, y, color) {
    pen.lineWidth = 3;
    pen.strokeStyle = '#141925';
    pen.strokeText(text, x, y);
    pen.fillStyle = color;
    pen.fillText(text, x, y);
  }

  drawScale(pen, width, yOf) {
    const step = kSteps.find((value) => this.top / value <= 4.5) || 1000;
    pen.font = '10px system-ui, sans-serif';
    pen.textBaseline = 'bottom';
    for (let value = step; value < this.top; value += step) {
      const y = Math.round(yOf(value)) + 0.5;
      pen.fillStyle = 'rgba(217, 223, 235, 0.14)';
      pen.fillRect(0, y, width, 1);
      // Text that the upper edge would clip is left out.
      if (y < kTextPixels) {
        continue;
      }
      this.drawText(pen, `${Number(value.toFixed(2))} ms`, 3, y, '#d9dfeb');
    }
  }
}
