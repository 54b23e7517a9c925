// The chart of what a frame costs: stages on top of each other, over the last frames.

/** Frames that the chart shows, and those that medians are taken of: four seconds, and one. */
const kFrames = 240;
const kMedianFrames = 60;

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

/** How much of its way the top of the scale goes in a frame, so that it does not jump. */
const kScaleRate = 0.08;

/** Distances between lines of the scale, in milliseconds. */
const kSteps = [0.1, 0.2, 0.5, 1, 2, 5, 10, 20, 50, 100, 200, 500];

/** Height of the scale's text. */
const kTextPixels = 12;

function median(values) {
  const sorted = Array.from(values).sort((a, b) => a - b);
  const half = sorted.length >> 1;
  if (sorted.length === 0) {
    return 0;
  }
  return sorted.length % 2 ? sorted[half] : (sorted[half - 1] + sorted[half]) / 2;
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
    /** Milliseconds by stage, in a ring of frames. */
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

  /** The middle cost of each stage, in milliseconds. */
  medians() {
    return this.rows.map((row) => median(this.last(row, kMedianFrames)));
  }

  /** The middle cost of a whole frame. */
  wholeMedian() {
    const columns = this.rows.map((row) => this.last(row, kMedianFrames));
    return median(columns[0].map((_, i) => columns.reduce((sum, column) => sum + column[i], 0)));
  }

  /** Draws what there is, at the canvas's size on the screen. */
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
    const sums = shown[0].map((_, i) => shown.reduce((sum, column) => sum + column[i], 0));
    // Late frames may leave the chart; the scale is of what is usual.
    this.top += (Math.max(0.2, 1.8 * median(sums)) - this.top) * kScaleRate;
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
  }

  drawScale(pen, width, yOf) {
    const step = kSteps.find((value) => this.top / value <= 4.5) || 1000;
    pen.font = '10px system-ui, sans-serif';
    pen.textBaseline = 'bottom';
    for (let value = step; value < this.top; value += step) {
      const y = Math.round(yOf(value)) + 0.5;
      pen.fillStyle = 'rgba(217, 223, 235, 0.14)';
      pen.fillRect(0, y, width, 1);
      // Text that the upper edge would cut is left out.
      if (y < kTextPixels) {
        continue;
      }
      const text = `${Number(value.toFixed(2))} ms`;
      pen.lineWidth = 3;
      pen.strokeStyle = '#141925';
      pen.strokeText(text, 3, y);
      pen.fillStyle = '#d9dfeb';
      pen.fillText(text, 3, y);
    }
  }
}
