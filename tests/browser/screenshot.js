'use strict';
// Takes the picture of the viewer's page for the docs: `node tests/browser/screenshot.js [FILE]`, with
// NQ_HOST and NQ_MODULE as for the tests.
const fs = require('fs');
const path = require('path');
const zlib = require('zlib');
const { PNG } = require('pngjs');
const { ViewerPage, endHosts, startBrowser, startHost } = require('./viewer-page');

const file = process.argv[2] || path.join(__dirname, '..', '..', 'docs', 'viewer.png');

/** Of the page, and of one that is drawn fast. */
const shown = { width: 1280, height: 800 };
const small = { width: 700, height: 300 };

/** Frames that fill the chart. */
const kChartFrames = 240;

/** Colours of the written picture. */
const kColors = 256;

/** Bits of a channel by which colours are distinguished. */
const kBits = 6;

/** Red, green and blue of the colour that a pixel is counted as. */
function binOf(data, at) {
  const [r, g, b] = [0, 1, 2].map((k) => data[at + k] >> (8 - kBits));
  return (r << (2 * kBits)) | (g << kBits) | b;
}

/** Splits colours at the middle of the widest channel, so that about as many pixels are on each side. */
function split(colors) {
  const spans = [0, 1, 2].map((k) => {
    const values = colors.map(({ sums, count }) => sums[k] / count);
    return Math.max(...values) - Math.min(...values);
  });
  const k = spans.indexOf(Math.max(...spans));
  colors.sort((a, b) => a.sums[k] / a.count - b.sums[k] / b.count);
  // Roots of counts: large plain areas need few colours.
  const weigh = ({ count }) => Math.sqrt(count);
  const half = colors.reduce((sum, color) => sum + weigh(color), 0) / 2;
  let [at, sum] = [0, 0];
  while (at < colors.length - 1 && (at === 0 || sum + weigh(colors[at]) <= half)) {
    sum += weigh(colors[at++]);
  }
  return [colors.slice(0, at), colors.slice(at)];
}

/** The colours of a picture in boxes, of which each becomes one. */
function boxesOf(data) {
  const bins = new Map();
  for (let i = 0; i < data.length; i += 4) {
    const bin = binOf(data, i);
    const color = bins.get(bin) || { bin, count: 0, sums: [0, 0, 0] };
    bins.set(bin, color);
    ++color.count;
    color.sums.forEach((sum, k) => {
      color.sums[k] = sum + data[i + k];
    });
  }
  const boxes = [Array.from(bins.values())];
  const worth = (box) => box.reduce((sum, { count }) => sum + Math.sqrt(count), 0);
  while (boxes.length < kColors) {
    const splittable = boxes.filter((box) => box.length > 1);
    if (splittable.length === 0) {
      break;
    }
    const largest = splittable.reduce((a, b) => (worth(b) > worth(a) ? b : a));
    boxes.splice(boxes.indexOf(largest), 1, ...split(largest));
  }
  return boxes;
}

/** A part of a PNG file. */
function chunk(type, bytes) {
  const body = Buffer.concat([Buffer.from(type, 'latin1'), bytes]);
  const [length, sum] = [Buffer.alloc(4), Buffer.alloc(4)];
  length.writeUInt32BE(bytes.length);
  sum.writeUInt32BE(zlib.crc32(body));
  return Buffer.concat([length, body, sum]);
}

/** Writes a picture with a palette: a third of the bytes. */
function saveWithPalette(bytes) {
  const { width, height, data } = PNG.sync.read(bytes);
  const palette = Buffer.alloc(3 * kColors);
  const indices = new Map();
  boxesOf(data).forEach((box, index) => {
    const pixels = box.reduce((sum, { count }) => sum + count, 0);
    [0, 1, 2].forEach((k) => {
      palette[3 * index + k] = Math.round(box.reduce((sum, { sums }) => sum + sums[k], 0) / pixels);
    });
    box.forEach(({ bin }) => indices.set(bin, index));
  });
  // Rows begin with their filter, none.
  const rows = Buffer.alloc((width + 1) * height);
  for (let y = 0; y < height; ++y) {
    for (let x = 0; x < width; ++x) {
      rows[y * (width + 1) + 1 + x] = indices.get(binOf(data, 4 * (y * width + x)));
    }
  }
  const head = Buffer.alloc(13);
  head.writeUInt32BE(width, 0);
  head.writeUInt32BE(height, 4);
  head.set([8, 3], 8);
  fs.writeFileSync(
    file,
    Buffer.concat([
      Buffer.from([0x89, 0x50, 0x4e, 0x47, 0x0d, 0x0a, 0x1a, 0x0a]),
      chunk('IHDR', head),
      chunk('PLTE', palette),
      chunk('IDAT', zlib.deflateSync(rows, { level: 9, memLevel: 9 })),
      chunk('IEND', Buffer.alloc(0)),
    ])
  );
}

async function main() {
  const host = await startHost(['--port', '0']);
  const browser = await startBrowser();
  const viewer = await ViewerPage.open(browser, host.address, small);
  viewer.page.setDefaultTimeout(300000);
  // Software rendering competes with the host for the CPU, which would show in the chart.
  await viewer.page.evaluate(() => {
    self.nqViewer.picture.isResting = true;
  });
  await viewer.page.waitForFunction((n) => self.nqViewer.chart.frames >= n, kChartFrames);
  await viewer.page.evaluate(() => {
    self.nqViewer.picture.isResting = false;
  });
  await viewer.page.setViewportSize(shown);
  await viewer.drawn(4);
  saveWithPalette(await viewer.page.screenshot());
  console.log(`${file}: ${fs.statSync(file).size} bytes`);
  await browser.close();
  await host.stop();
}

main().catch((error) => {
  console.error(error);
  endHosts();
  process.exitCode = 1;
});
