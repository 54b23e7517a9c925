'use strict';
// The viewer's page in a browser: it draws what the host streams, and its controls take effect.
const assert = require('assert');
const fs = require('fs');
const os = require('os');
const path = require('path');
const { palettes } = require('../../demo/picture');
const { realModel, skeleton, writeGlb } = require('../fixtures/models');
const { ViewerPage, endHosts, startBrowser, startHost } = require('./viewer-page');

const kCharacters = 40;
const viewport = { width: 700, height: 360 };

/** Minimum difference of two colours that count as different. */
const kOther = 24;
/** The same within two pictures of one still frame, which are equal but for what was hidden. */
const kOtherWhileStill = 4;

/** How many pixels differ between two pictures of one size. */
function countOther(a, b) {
  assert.deepStrictEqual([a.width, a.height], [b.width, b.height]);
  let count = 0;
  for (let i = 0; i < a.data.length; i += 4) {
    count += isOther(a, b, i) ? 1 : 0;
  }
  return count;
}

function isOther(a, b, i, least = kOther) {
  return [0, 1, 2].some((k) => Math.abs(a.data[i + k] - b.data[i + k]) >= least);
}

/** How many pixels are of a strong colour, as shirts and lights are. */
function countStrong({ data }) {
  let count = 0;
  for (let i = 0; i < data.length; i += 4) {
    const [r, g, b] = [data[i], data[i + 1], data[i + 2]];
    count += Math.max(r, g, b) - Math.min(r, g, b) > 80 ? 1 : 0;
  }
  return count;
}

const mean = (values) => values.reduce((sum, value) => sum + value, 0) / values.length;

let browser;
let host;
/** @type {ViewerPage} */
let viewer;

before(async () => {
  browser = await startBrowser();
});

after(async () => {
  endHosts();
  await browser.close();
});

describe('viewer page', () => {
  before(async () => {
    host = await startHost(['--port', '0', '--characters', String(kCharacters)]);
    viewer = await ViewerPage.open(browser, host.address, viewport);
  });

  after(async () => {
    await viewer.page.close();
    assert.strictEqual(await host.stop(), 0);
  });

  afterEach(() => viewer.rest(false));

  it('receives matrices that change', async () => {
    const first = await viewer.frame();
    await viewer.drawn(3);
    const later = await viewer.frame();
    assert.ok(later.messages >= first.messages + 3, `${first.messages} to ${later.messages}`);
    assert.ok(later.number > first.number);
    assert.ok(first.finite && later.finite);
    assert.ok(first.matrices.length > 800, 'of a figure at least');
    assert.notDeepStrictEqual(first.matrices, later.matrices);
  });

  it('draws a moving picture', async () => {
    const first = await viewer.pixels();
    await viewer.drawn(3);
    const later = await viewer.pixels();
    const all = first.width * first.height;
    assert.ok(countStrong(first) > all / 500, `${countStrong(first)} of ${all} pixels`);
    assert.ok(countOther(first, later) > all / 500, `${countOther(first, later)} of ${all} pixels`);
  });

  /** Runs `act` while the crowd is paused. It moves on afterwards, also for the tests after one that fails. */
  async function whilePaused(act) {
    await viewer.click('pause');
    await viewer.until((frame) => (frame.flags & 1) === 1);
    try {
      await act();
    } finally {
      await viewer.click('pause');
      await viewer.until((frame) => (frame.flags & 1) === 0);
    }
  }

  it('stops while paused, and shows that', () =>
    whilePaused(async () => {
      assert.strictEqual(await viewer.text('pause'), 'Resume');
      await viewer.drawn(3);
      const first = await viewer.pixels();
      await viewer.drawn(2);
      assert.ok(countOther(first, await viewer.pixels()) < 20);
      assert.strictEqual(await viewer.text('status'), 'paused');
    }));

  it('draws characters where their matrices place them', () =>
    whilePaused(async () => {
      await viewer.click('camera-1');
      await viewer.until((frame) => frame.camera === 1);
      // A flag may cover a head, and a lamp may be brighter.
      await viewer.showCarried(false);
      await viewer.drawn(2);
      const withBodies = await viewer.pixels();
      const places = await viewer.page.evaluate(() => {
        const { page, picture } = self.nqViewer;
        const { frame, scene } = page;
        // A vertex of the head, by its first bone's matrix, on the screen.
        const { '0.positions': positions, '0.bones': bones } = scene.arrays;
        let top = 0;
        for (let i = 0; i < positions.length / 3; ++i) {
          top = positions[3 * i + 1] > positions[3 * top + 1] ? i : top;
        }
        const [x, y, z] = positions.subarray(3 * top, 3 * top + 3);
        const m = picture.viewProjection;
        const { clientWidth, clientHeight } = picture.canvas;
        return Array.from({ length: frame.instanceCounts[0] }, (_, i) => {
          const at = 16 * (i * scene.meshes[0].bones + bones[4 * top]);
          const b = frame.matrices.subarray(at, at + 16);
          const world = [0, 1, 2].map((k) => b[k] * x + b[4 + k] * y + b[8 + k] * z + b[12 + k]);
          const [u, v] = [0, 1].map(
            (k) => m[k] * world[0] + m[4 + k] * world[1] + m[8 + k] * world[2] + m[12 + k]
          );
          return [((u + 1) / 2) * clientWidth, ((1 - v) / 2) * clientHeight];
        });
      });
      const without = await viewer.pixelsWithoutBodies();
      await viewer.showCarried(true);
      const inside = places
        .map((place) => place.map(Math.floor))
        .filter(([x, y]) => x > 2 && y > 2 && x < without.width - 2 && y < without.height - 2);
      assert.ok(inside.length > 5, `${inside.length} heads in the picture`);
      // Dark hair is nearly as dark as the floor, and differs from it by as little as 9 of 255 levels.
      const around = [-2, 0, 2];
      const isDrawn = (x, y) =>
        isOther(withBodies, without, 4 * (y * without.width + x), kOtherWhileStill);
      const drawn = inside.filter(([x, y]) =>
        around.some((dy) => around.some((dx) => isDrawn(x + dx, y + dy)))
      );
      assert.ok(drawn.length >= 0.9 * inside.length, `${drawn.length} of ${inside.length} heads`);
      // And not everywhere.
      assert.ok(countOther(withBodies, without) < 0.2 * without.width * without.height);
      await viewer.click('camera-0');
      await viewer.until((frame) => frame.camera === 0);
    }));

  it('shows what the chosen camera sees', async () => {
    for (const camera of [1, 0]) {
      await viewer.click(`camera-${camera}`);
      await viewer.until((frame, given) => frame.camera === given, camera);
      await viewer.drawn(2);
      assert.ok(await viewer.isPressed(`camera-${camera}`));
      assert.ok(!(await viewer.isPressed(`camera-${1 - camera}`)));
      const frame = await viewer.frame();
      assert.strictEqual(frame.characters.length, frame.visible[camera]);
      assert.notStrictEqual(frame.visible[0], frame.visible[1]);
    }
  });

  it('looks from outside, and turns there', async () => {
    await viewer.click('look-outside');
    await viewer.drawn(2);
    const picture = () =>
      viewer.page.evaluate(() => {
        const { orbit, hasEdges, eye } = self.nqViewer.picture;
        return { yaw: orbit.yaw, visible: hasEdges, eye };
      });
    const first = await picture();
    assert.ok(first.visible, 'edges of the view');
    await viewer.page.mouse.move(150, 150);
    await viewer.page.mouse.down();
    await viewer.page.mouse.move(250, 160);
    await viewer.page.mouse.up();
    await viewer.drawn(2);
    const turned = await picture();
    assert.ok(Math.abs(turned.yaw - first.yaw) > 0.3, `${first.yaw} to ${turned.yaw}`);
    assert.notDeepStrictEqual(turned.eye, first.eye);
    await viewer.click('look-through');
    await viewer.drawn(1);
    assert.ok(!(await picture()).visible);
  });

  it('changes the size of the crowd', async () => {
    await viewer.click('camera-1');
    await viewer.until((frame) => frame.camera === 1);
    await viewer.drawn(1);
    const all = await viewer.frame();
    assert.ok(all.instances > 6, `${all.instances} drawn`);
    await viewer.slide('crowd', 6);
    await viewer.until((frame) => frame.total === 6);
    await viewer.drawn(2);
    const few = await viewer.frame();
    assert.ok(few.instances > 0 && few.instances <= 6, `${few.instances} drawn`);
    assert.ok(Math.max(...few.characters) < 6);
    assert.strictEqual(await viewer.text('total'), '6');
    assert.strictEqual(await viewer.text('crowd-value'), `6 of ${kCharacters}`);
    assert.strictEqual(few.shown, String(few.instances));
    await viewer.slide('crowd', kCharacters);
    await viewer.click('camera-0');
    await viewer.until((frame, given) => frame.total === given && frame.camera === 0, kCharacters);
  });

  it('crossfades by its slider, and by the plan', async () => {
    assert.ok(await viewer.isPressed('crossfade-auto'));
    for (const [value, text] of [
      [1, 'walk 0 %, run 100 %'],
      [0, 'walk 100 %, run 0 %'],
    ]) {
      await viewer.slide('crossfade', value);
      await viewer.until((frame, given) => frame.sliders[1] === given, value);
      await viewer.drawn(2);
      const frame = await viewer.frame();
      // All have the colour of the clip that plays alone.
      const [r, g, b] = palettes.clips[value].map((part) => Math.fround(part / 255));
      assert.ok(frame.characters.length > 0);
      frame.characters.forEach((_, i) => {
        assert.deepStrictEqual(frame.tints.slice(3 * i, 3 * i + 3), [r, g, b]);
      });
      assert.strictEqual(frame.flags, 4);
      assert.strictEqual(await viewer.text('crossfade-value'), text);
      assert.ok(!(await viewer.isPressed('crossfade-auto')));
    }
    await viewer.click('crossfade-auto');
    await viewer.until((frame) => frame.flags === 0 && frame.sliders[1] > 0.05);
    await viewer.drawn(2);
    assert.ok(await viewer.isPressed('crossfade-auto'));
    const place = Number(await viewer.page.locator('#crossfade').inputValue());
    assert.ok(place > 0 && place < 1, `the thumb follows the plan: ${place}`);
  });

  it('sets the weights of layers', async () => {
    const height = async () => {
      const { carried } = await viewer.frame();
      return mean(carried.filter((_, i) => i % 16 === 13));
    };
    const heights = {};
    for (const wave of [0, 1]) {
      await viewer.slide('wave', wave);
      await viewer.slide('breath', 1 - wave);
      await viewer.until(
        (frame, given) => frame.sliders[2] === given && frame.sliders[3] === 1 - given,
        wave
      );
      await viewer.drawn(2);
      assert.strictEqual(await viewer.text('wave-value'), wave === 1 ? '100 %' : '0 %');
      assert.strictEqual(await viewer.text('breath-value'), wave === 1 ? '0 %' : '100 %');
      assert.strictEqual((await viewer.frame()).flags, 8 | 16);
      heights[wave] = await height();
    }
    // What hands carry is above the heads of those who wave.
    assert.ok(heights[1] > heights[0] + 0.4, `${heights[0]} m to ${heights[1]} m`);
    await viewer.click('wave-auto');
    await viewer.click('breath-auto');
    await viewer.until((frame) => frame.flags === 0);
  });

  it('charts the stages of frames', async () => {
    await viewer.drawn(1);
    const stages = await viewer.page
      .locator('#stages tbody tr')
      .evaluateAll((rows) =>
        rows.map((row) => [row.dataset.stage, row.cells[0].textContent, row.cells[1].textContent])
      );
    assert.deepStrictEqual(
      stages.map(([name]) => name),
      ['script', 'animate', 'transform', 'skin', 'perspective', 'overview', 'stream']
    );
    assert.ok(stages.every(([, title]) => title.length > 3));
    await viewer.page.waitForFunction(
      () => Number(document.querySelector('[data-stage=animate]').cells[1].textContent) > 0
    );
    assert.ok(/^\d+\.\d\d ms$/.test(await viewer.text('whole')));
    const shares = await viewer.page.evaluate(() => {
      const { chart } = self.nqViewer;
      const { data, width, height } = chart.canvas
        .getContext('2d')
        .getImageData(...[0, 0, chart.canvas.width, chart.canvas.height]);
      const swatch = document.querySelector('[data-stage=animate] i');
      const wanted = getComputedStyle(swatch).backgroundColor.match(/\d+/g).map(Number);
      let [filled, animate] = [0, 0];
      for (let i = 0; i < data.length; i += 4) {
        filled += data[i + 3] === 255 ? 1 : 0;
        animate += wanted.every((value, k) => Math.abs(data[i + k] - value) < 3) ? 1 : 0;
      }
      return { frames: chart.frames, filled, animate, all: width * height };
    });
    assert.ok(shares.frames > 10);
    assert.ok(shares.filled > 100 && shares.filled < shares.all, JSON.stringify(shares));
    assert.ok(shares.animate > 20, JSON.stringify(shares));
    const facts = await viewer.text('facts');
    assert.ok(facts.includes(`bones moved${(50 * kCharacters).toLocaleString('en')}`), facts);
  });

  it('labels late frames with their milliseconds, and keeps them in the chart', async () => {
    // Of 240 frames 12 take 6 ms and 4 take 12; 2 to 3 ms is usual. They are not in ascending order.
    const costs = Array.from({ length: 240 }, (_, i) => (i * 77) % 240).map((i) =>
      i < 224 ? 2 + i / 224 : i < 236 ? 6 : 12
    );
    const result = await viewer.page.evaluate((given) => {
      const Chart = self.nqViewer.chart.constructor;
      const canvas = document.createElement('canvas');
      Object.assign(canvas.style, { position: 'fixed', left: 0, top: 0 });
      Object.assign(canvas.style, { width: '480px', height: '200px' });
      document.body.append(canvas);
      canvas.getContext('2d', { willReadFrequently: true });
      const chart = new Chart(canvas, 2);
      const look = () => {
        chart.draw();
        const { data, width, height } = canvas
          .getContext('2d')
          .getImageData(0, 0, canvas.width, canvas.height);
        const isRed = (at) => data[at] > 230 && data[at + 1] < 140 && data[at + 2] < 145;
        // Whether the topmost row of each column is filled, and whether by the mark of a cut.
        let [top, red] = [height, 0];
        for (let at = 0; at < data.length; at += 4) {
          top = data[at + 3] > 128 ? Math.min(top, Math.floor(at / 4 / width)) : top;
          red += isRed(at) ? 1 : 0;
        }
        return { top: top / height, red, scale: chart.top };
      };
      given.forEach((cost) => chart.push([cost / 4, (3 * cost) / 4]));
      const usual = look();
      const facts = { stages: chart.percentiles(), whole: chart.wholePercentiles() };
      chart.push([400, 0]);
      const cut = look();
      canvas.remove();
      const few = [[], [7], [3, 1, 2]].map((values) => {
        const other = new Chart(canvas, 1);
        values.forEach((value) => other.push([value]));
        return other.wholePercentiles();
      });
      return { usual, cut, facts, few };
    }, costs);
    // By hand: of 240 costs in order, the 120th, the 228th and the 238th.
    const near = (found, wanted) =>
      found.forEach((value, i) => assert.ok(Math.abs(value - wanted[i]) < 1e-5, `${found}`));
    near(result.facts.whole, [2 + 119 / 224, 6, 12]);
    near(result.facts.stages[0], [0.25 * (2 + 119 / 224), 1.5, 3]);
    near(result.facts.stages[1], [0.75 * (2 + 119 / 224), 4.5, 9]);
    assert.deepStrictEqual(result.few, [
      [0, 0, 0],
      [7, 7, 7],
      [2, 3, 3],
    ]);
    // The latest frame is whole, at once, with some room above it.
    assert.ok(result.usual.scale > 12 && result.usual.scale < 14, JSON.stringify(result.usual));
    assert.ok(result.usual.top > 0.03 && result.usual.top < 0.2, JSON.stringify(result.usual));
    assert.strictEqual(result.usual.red, 0);
    // A frame that would flatten the others is clipped, and marked.
    assert.ok(result.cut.scale < 30, JSON.stringify(result.cut));
    assert.ok(result.cut.red > 10, JSON.stringify(result.cut));
  });

  it('has percentiles of all stages in its table', async () => {
    const heads = await viewer.page.locator('#stages thead th').allTextContents();
    assert.deepStrictEqual(heads, ['p50', 'p95', 'p99']);
    const [rows, wanted] = await viewer.page.evaluate(async () => {
      const { chart } = self.nqViewer;
      const rowsOf = (part) => document.querySelectorAll(`#stages ${part} tr`);
      // As soon as the table is updated: the next frame changes its data.
      await new Promise((resolve) => {
        new MutationObserver((_, observer) => {
          observer.disconnect();
          resolve();
        }).observe(document.getElementById('stages'), { subtree: true, childList: true });
      });
      const texts = [...rowsOf('tbody'), ...rowsOf('tfoot')].map((row) =>
        Array.from(row.cells, ({ textContent }) => textContent)
      );
      const numbers = [...chart.percentiles(), chart.wholePercentiles()];
      return [texts, numbers.map((row) => row.map((value) => value.toFixed(2)))];
    });
    assert.deepStrictEqual(
      rows.map((row) => row.slice(1)),
      wanted
    );
    assert.strictEqual(rows[rows.length - 1][0], 'whole frame');
    rows.forEach(([, p50, p95, p99]) => {
      assert.ok(Number(p50) <= Number(p95) && Number(p95) <= Number(p99));
    });
    const label = await viewer.page.locator('#chart').getAttribute('aria-label');
    assert.ok(/milliseconds of each stage/i.test(label), label);
  });

  it('has accessible names of its pictures, and values of its sliders', async () => {
    for (const id of ['picture', 'chart']) {
      const canvas = viewer.page.locator(`#${id}`);
      assert.strictEqual(await canvas.getAttribute('role'), 'img');
      assert.ok((await canvas.getAttribute('aria-label')).length > 20);
    }
    const valueText = (name) => viewer.page.locator(`#${name}`).getAttribute('aria-valuetext');
    assert.strictEqual(await valueText('crowd'), `${kCharacters} of ${kCharacters}`);
    assert.ok(/^auto, walk \d+ %, run \d+ %$/.test(await valueText('crossfade')));
    await viewer.slide('wave', 0.37);
    assert.strictEqual(await valueText('wave'), '37 %');
    await viewer.slide('crossfade', 0.25);
    assert.strictEqual(await valueText('crossfade'), 'walk 75 %, run 25 %');
    await viewer.until((frame) => frame.sliders[1] === 0.25);
    await viewer.drawn(2);
    assert.strictEqual(await valueText('crossfade'), 'walk 75 %, run 25 %');
    // Buttons are distinguished by their names only.
    const names = await viewer.page
      .locator('button')
      .evaluateAll((all) => all.map((one) => one.ariaLabel || one.textContent.trim()));
    assert.strictEqual(new Set(names).size, names.length, names.join());
    await viewer.click('wave-auto');
    await viewer.click('crossfade-auto');
    await viewer.until((frame) => frame.flags === 0);
  });

  it('has no live region that changes while it runs, and leaves a slider with focus alone', async () => {
    await viewer.page.locator('#crossfade').focus();
    await viewer.drawn(1);
    const result = await viewer.page.evaluate(async () => {
      const live = 'output, [aria-live], [role=status], [role=alert], [role=log], [role=timer]';
      const heard = [];
      let changes = 0;
      new MutationObserver((records) => {
        changes += records.length;
        records.forEach(({ target }) => {
          const node = target.nodeType === Node.ELEMENT_NODE ? target : target.parentElement;
          if (node.closest(live) || node === document.activeElement) {
            heard.push(node.id);
          }
        });
      }).observe(document.body, {
        ...{ subtree: true, childList: true, characterData: true, attributes: true },
      });
      const slider = document.activeElement;
      const values = new Set();
      const { page } = self.nqViewer;
      for (const until = page.drawings + 10; page.drawings < until; ) {
        values.add(slider.value);
        await new Promise((resolve) => requestAnimationFrame(resolve));
      }
      const regions = Array.from(document.querySelectorAll(live), ({ id }) => id);
      return { heard, changes, regions, id: slider.id, values: values.size };
    });
    assert.ok(result.changes > 3, `${result.changes} changes`);
    assert.deepStrictEqual(result.heard, []);
    assert.deepStrictEqual(result.regions, ['notice']);
    assert.deepStrictEqual([result.id, result.values], ['crossfade', 1]);
    await viewer.page.locator('#crossfade').blur();
  });

  const orbit = (page) => page.evaluate(() => Object.assign({}, self.nqViewer.picture.orbit));

  it('rotates and zooms by keys in the view from outside only', async () => {
    const { page } = viewer;
    const canvas = page.locator('#picture');
    assert.strictEqual(await canvas.getAttribute('tabindex'), null);
    assert.ok(await page.locator('#hint').isHidden());
    await viewer.click('look-outside');
    assert.ok(await page.locator('#hint').isVisible());
    const described = await canvas.getAttribute('aria-describedby');
    assert.strictEqual(described, 'hint');
    await canvas.focus();
    const first = await orbit(page);
    const press = async (key, times) => {
      const before = await orbit(page);
      for (let i = 0; i < times; ++i) {
        await page.keyboard.press(key);
      }
      const after = await orbit(page);
      return ['yaw', 'pitch', 'distance'].map((name) => Math.sign(after[name] - before[name]));
    };
    assert.deepStrictEqual(await press('ArrowRight', 3), [1, 0, 0]);
    const turned = await orbit(page);
    assert.ok(Math.abs(turned.yaw - first.yaw - Math.PI / 12) < 1e-9, `${turned.yaw}`);
    assert.deepStrictEqual(await press('ArrowLeft', 1), [-1, 0, 0]);
    assert.deepStrictEqual(await press('ArrowUp', 2), [0, 1, 0]);
    assert.deepStrictEqual(await press('ArrowDown', 1), [0, -1, 0]);
    assert.deepStrictEqual(await press('+', 2), [0, 0, -1]);
    assert.deepStrictEqual(await press('-', 1), [0, 0, 1]);
    assert.deepStrictEqual(await press('x', 1), [0, 0, 0]);
    // The view from outside is drawn from there.
    await viewer.drawn(1);
    const eye = await page.evaluate(() => {
      const { eye: from, frame } = self.nqViewer.picture;
      return from.map((value, k) => value - frame.bounds[k]);
    });
    const at = await orbit(page);
    assert.ok(Math.abs(Math.atan2(eye[0], eye[2]) - at.yaw) < 1e-3, `${eye} at ${at.yaw}`);
    await page.keyboard.press('Home');
    assert.deepStrictEqual(await orbit(page), { yaw: 0.25, pitch: 0.5, distance: 2.5 });
    await viewer.click('look-through');
    assert.strictEqual(await canvas.getAttribute('tabindex'), null);
    assert.deepStrictEqual(await press('ArrowRight', 1), [0, 0, 0]);
  });

  it('zooms by two fingers, and rotates by one', async function test() {
    this.timeout(180000);
    await viewer.rest(true);
    const touch = await ViewerPage.open(browser, host.address, viewport, { hasTouch: true });
    await touch.rest(true);
    await touch.click('look-outside');
    const devtools = await touch.page.context().newCDPSession(touch.page);
    const fingers = (type, ...points) =>
      devtools.send('Input.dispatchTouchEvent', {
        type,
        touchPoints: points.map(([x, y], id) => ({ x, y, id })),
      });
    const first = await orbit(touch.page);
    // From 40 pixels apart to 160: four times as near.
    await fingers('touchStart', [160, 150]);
    await fingers('touchStart', [160, 150], [200, 150]);
    for (const apart of [60, 100, 160]) {
      await fingers('touchMove', [180 - apart / 2, 150], [180 + apart / 2, 150]);
    }
    await fingers('touchEnd');
    const pinched = await orbit(touch.page);
    assert.ok(Math.abs(pinched.distance - first.distance / 4) < 0.02, JSON.stringify(pinched));
    assert.deepStrictEqual([pinched.yaw, pinched.pitch], [first.yaw, first.pitch]);
    await fingers('touchStart', [100, 100]);
    for (const x of [120, 160, 200]) {
      await fingers('touchMove', [x, 100]);
    }
    await fingers('touchEnd');
    const turned = await orbit(touch.page);
    const height = (await touch.page.locator('#picture').boundingBox()).height;
    assert.ok(Math.abs(turned.yaw - first.yaw + (100 / height) * Math.PI) < 0.02, `${turned.yaw}`);
    assert.strictEqual(turned.distance, pinched.distance);
    assert.deepStrictEqual(touch.troubles, []);
    await touch.page.close();
  });

  it('shows two pages of different shapes their own views', async function test() {
    this.timeout(180000);
    await viewer.rest(true);
    const tall = await ViewerPage.open(browser, host.address, { width: 300, height: 800 });
    await tall.rest(true);
    for (const one of [viewer, tall]) {
      const box = await one.page.locator('#picture').boundingBox();
      await one.until(
        (frame, aspect) => Math.abs(frame.pose[11] - aspect) < 1e-3,
        box.width / box.height
      );
    }
    // The second page does not change the first, also later.
    const seen = [];
    for (const one of [viewer, tall]) {
      await one.drawn(3);
      seen.push(
        await one.page.evaluate(() => {
          const { page, picture } = self.nqViewer;
          const { clientWidth, clientHeight } = picture.canvas;
          return {
            ratio: page.frame.pose[11] / (clientWidth / clientHeight),
            aspect: page.frame.pose[11],
            visible: page.frame.visible[0],
          };
        })
      );
    }
    seen.forEach(({ ratio }) => assert.ok(Math.abs(ratio - 1) < 0.01, JSON.stringify(seen)));
    assert.ok(seen[0].aspect > 1.3 * seen[1].aspect, JSON.stringify(seen));
    await viewer.rest(false);
    await viewer.drawn(1);
    // The picture of the first fills its canvas: no bars at its sides, whose colour is one alone.
    const { width, height, data } = await viewer.pixels();
    const column = (x) =>
      new Set(Array.from({ length: height }, (_, y) => data[4 * (y * width + x)]));
    assert.ok(column(1).size > 3 && column(width - 2).size > 3, 'no bars at the sides');
    assert.deepStrictEqual(tall.troubles, []);
    await tall.page.close();
  });

  it('draws a new picture only after a change if reduced motion is preferred', async function test() {
    this.timeout(180000);
    await viewer.rest(true);
    const still = await ViewerPage.open(browser, host.address, viewport, {
      reducedMotion: 'reduce',
    });
    const { page } = still;
    const box = await page.locator('#picture').boundingBox();
    await still.until(
      (frame, aspect) => Math.abs(frame.pose[11] - aspect) < 1e-3,
      box.width / box.height
    );
    await still.arrived(3);
    assert.ok(await still.isPressed('still'));
    assert.ok(!(await viewer.isPressed('still')), 'other pages move on');
    const first = await still.pixels();
    await still.arrived(20);
    assert.strictEqual(countOther(first, await still.pixels()), 0);
    assert.strictEqual((await still.frame()).flags, 0, 'and the crowd is not paused');
    // A change by the user is shown in one new picture, or in two if the host is slow.
    const drawings = () => page.evaluate(() => self.nqViewer.page.drawings);
    const before = await drawings();
    await still.slide('crowd', 6);
    await page.waitForFunction(() => self.nqViewer.picture.frame.total === 6);
    const after = await drawings();
    assert.ok(after - before <= 2, `${after - before} pictures`);
    await still.arrived(20);
    assert.strictEqual(await drawings(), after);
    assert.strictEqual(await still.text('total'), '6');
    const second = await still.pixels();
    assert.ok(countOther(first, second) > 200);
    // So is the view of another camera.
    await still.click('camera-1');
    await page.waitForFunction(() => self.nqViewer.picture.frame.camera === 1);
    await still.click('camera-0');
    await page.waitForFunction(() => self.nqViewer.picture.frame.camera === 0);
    await still.slide('crowd', kCharacters);
    await still.click('still');
    assert.ok(!(await still.isPressed('still')));
    await still.drawn(3);
    await page.emulateMedia({ reducedMotion: 'no-preference' });
    // Two changes within one frame would be none.
    await still.drawn(2);
    await page.emulateMedia({ reducedMotion: 'reduce' });
    await page.waitForFunction(
      () => document.getElementById('still').getAttribute('aria-pressed') === 'true'
    );
    assert.deepStrictEqual(still.troubles, []);
    await page.close();
    await viewer.until((frame, given) => frame.total === given, kCharacters);
  });

  it('fits its picture into any window', async () => {
    for (const size of [{ width: 360, height: 420 }, viewport]) {
      await viewer.page.setViewportSize(size);
      const box = await viewer.page.locator('#picture').boundingBox();
      const aspect = box.width / box.height;
      await viewer.until((frame, given) => Math.abs(frame.pose[11] - given) < 1e-3, aspect);
      await viewer.drawn(2);
      assert.ok(countStrong(await viewer.pixels()) > 50);
    }
  });

  it('sends requests to its host only, and logs no errors', () => {
    assert.ok(viewer.requests.length >= 7, viewer.requests.join());
    for (const url of viewer.requests.filter((one) => !one.startsWith('data:'))) {
      assert.ok(url.startsWith(host.address), url);
    }
    assert.deepStrictEqual(viewer.troubles, []);
  });

  it('reconnects to the next host after its connection is lost', async () => {
    const { port } = new URL(host.address);
    assert.strictEqual(await host.stop(), 0);
    await viewer.page.waitForFunction(() => !document.getElementById('notice').hidden);
    assert.ok(/npm run view/.test(await viewer.text('notice')));
    assert.strictEqual(await viewer.text('status'), 'disconnected');
    host = await startHost(['--port', port, '--characters', '7']);
    await viewer.until((frame) => frame.total === 7);
    await viewer.drawn(2);
    assert.ok(await viewer.page.locator('#notice').isHidden());
    assert.strictEqual(await viewer.text('crowd-value'), '7 of 7');
  });
});

describe('viewer page with a model', () => {
  let folder;
  before(() => {
    folder = fs.mkdtempSync(path.join(os.tmpdir(), 'nq-viewer-page-'));
  });
  after(() => {
    fs.rmSync(folder, { recursive: true });
  });

  /** Shows a model and asserts that it is drawn, and moves. */
  async function assertShown(file, clips) {
    const model = await startHost(['--port', '0', '--characters', '6', '--model', file]);
    const shown = await ViewerPage.open(browser, model.address, viewport);
    await shown.click('camera-1');
    await shown.until((frame) => frame.camera === 1);
    await shown.drawn(3);
    const scene = await shown.page.evaluate(() => self.nqViewer.page.scene);
    assert.strictEqual(scene.name, path.basename(file));
    const crossfade = scene.sliders.find(({ name }) => name === 'crossfade');
    assert.deepStrictEqual(crossfade ? crossfade.blends : [], clips.length > 1 ? clips : []);
    assert.strictEqual(await shown.page.locator('#row-wave').isVisible(), false);
    assert.strictEqual(await shown.page.locator('#row-crossfade').isVisible(), clips.length > 1);
    const first = await shown.frame();
    assert.ok(first.instances > 0 && first.finite);
    const pixels = await shown.pixels();
    assert.ok(countOther(pixels, await shown.pixelsWithoutBodies()) > 60);
    await shown.drawn(3);
    assert.notDeepStrictEqual((await shown.frame()).matrices, first.matrices);
    if (clips.length > 1) {
      await shown.slide('crossfade', 1);
      await shown.until((frame) => frame.sliders[1] === 1);
      const { tints } = await shown.frame();
      const last = palettes.clips[(clips.length - 1) % palettes.clips.length];
      tints.forEach((tint, i) => assert.strictEqual(tint, Math.fround(last[i % 3] / 255)));
    }
    assert.deepStrictEqual(shown.troubles, []);
    await shown.page.close();
    assert.strictEqual(await model.stop(), 0);
  }

  it('draws sticks for a model without meshes', () =>
    assertShown(writeGlb(path.join(folder, 'sticks.glb'), skeleton()), ['everything']));

  it('draws a real model', async function test() {
    await assertShown(realModel(this, 'Fox.glb'), ['Survey', 'Walk', 'Run']);
  });
});

describe('inspector page', () => {
  let scene;
  let shown;

  before(async () => {
    scene = await startHost([], path.join(__dirname, 'inspected-scene.js'));
    shown = await ViewerPage.open(browser, scene.address, viewport);
  });

  after(async () => {
    await shown.page.close();
    assert.strictEqual(await scene.stop(), 0);
  });

  /** Pixels with and without a part of the scene. */
  async function withAndWithout(part) {
    await shown.drawn(2);
    const withIt = await shown.pixels();
    await shown.click(`part-${part}`);
    assert.ok(!(await shown.isPressed(`part-${part}`)));
    await shown.drawn(2);
    const without = await shown.pixels();
    await shown.click(`part-${part}`);
    await shown.drawn(1);
    return countOther(withIt, without);
  }

  it('has the title and the parts of a scene, and no controls of the viewer', async () => {
    assert.strictEqual(await shown.page.title(), 'stick: nq_logic inspector');
    const buttons = await shown.page.locator('#parts button').allTextContents();
    assert.deepStrictEqual(buttons, ['Meshes', 'Spheres', 'Skeletons', 'Nodes']);
    assert.strictEqual(await shown.page.locator('input').count(), 0);
    assert.ok(await shown.page.locator('#pause').isHidden());
    assert.deepStrictEqual(await shown.page.locator('#cameras button').allTextContents(), [
      'Camera 1',
    ]);
    assert.ok(await shown.isPressed('look-outside'), 'a scene is looked at from outside at first');
  });

  it('draws nodes, spheres and skeletons', async () => {
    for (const part of ['spheres', 'skeletons', 'nodes']) {
      const count = await withAndWithout(part);
      assert.ok(count > 10, `${count} pixels of ${part}`);
    }
  });

  it('draws them where the scene has them, through its camera', async () => {
    await shown.click('look-through');
    await shown.drawn(2);
    // By hand: at distance 12, an angle of 60 degrees shows 2 * 12 * tan(30) units from top to bottom.
    const { width, height } = await shown.pixels();
    const unit = height / (24 * Math.tan(Math.PI / 6));
    const at = (x, y) => [
      Math.round(width / 2 + x * unit),
      Math.round(height / 2 - (y - 2) * unit),
    ];
    const isLit = (picture, [x, y], color) => {
      for (let dy = -2; dy <= 2; ++dy) {
        for (let dx = -2; dx <= 2; ++dx) {
          const i = 4 * ((y + dy) * width + x + dx);
          if (color(picture.data[i], picture.data[i + 1], picture.data[i + 2])) {
            return true;
          }
        }
      }
      return false;
    };
    const picture = await shown.pixels();
    // A line between two columns of pixels has half of its colour in each.
    const isBone = (r, g, b) => b > r + 40;
    const isNode = (r, g, b) => r > 190 && g > 190 && b > 190;
    const isSphere = (r, g, b) => r > b + 25;
    assert.ok(isLit(picture, at(-4, 2), isBone), 'the bone in its middle');
    assert.ok(!isLit(picture, at(-2, 3.5), isBone));
    assert.ok(isLit(picture, at(4, 2), isNode), 'the node');
    // The circle that faces the camera, at its top and its left.
    assert.ok(isLit(picture, at(4, 3.5), isSphere) && isLit(picture, at(2.5, 2), isSphere));
    await shown.click('look-outside');
    await shown.drawn(1);
  });

  it('charts the stages of updates, and counts', async () => {
    const stages = await shown.page
      .locator('#stages tbody tr')
      .evaluateAll((rows) => rows.map((row) => row.dataset.stage));
    assert.deepStrictEqual(stages, ['animate', 'transform', 'cull', 'skin', 'inspect']);
    const first = await shown.page.evaluate(() => self.nqViewer.chart.frames);
    await shown.page.waitForFunction((n) => self.nqViewer.chart.frames > n + 10, first);
    await shown.page.waitForFunction(
      () => Number(document.querySelector('[data-stage=transform]').cells[2].textContent) > 0
    );
    const facts = await shown.text('facts');
    // A ball, a character, and its two bones.
    assert.ok(facts.includes('nodes4') && facts.includes('characters1'), facts);
    assert.ok(facts.includes('in view, camera 12'), facts);
    assert.strictEqual(await shown.text('shown'), '2');
  });

  it('lets what turns invisible vanish', async () => {
    await shown.until((frame) => frame.counts.nodes === 2 && frame.counts.spheres === 2);
    const look = async () => {
      await shown.drawn(2);
      return shown.pixels();
    };
    const before = await look();
    scene.say('hide');
    await shown.until((frame) => frame.counts.nodes === 1 && frame.counts.spheres === 1);
    const hidden = await look();
    assert.ok(countOther(before, hidden) > 30, 'the ball is gone');
    assert.strictEqual(await shown.text('total'), '1');
    scene.say('show');
    await shown.until((frame) => frame.counts.spheres === 2);
    assert.ok(countOther(before, await look()) < 30, 'it is back');
    scene.say('remove');
    await shown.until((frame) => frame.counts.segments === 0 && frame.counts.nodes === 1);
    assert.ok(countOther(before, await look()) > 30);
  });

  it('asks nobody but its program, and has no troubles', () => {
    for (const url of shown.requests.filter((one) => !one.startsWith('data:'))) {
      assert.ok(url.startsWith(scene.address), url);
    }
    assert.deepStrictEqual(shown.troubles, []);
  });

  it('says that the program has ended', async () => {
    assert.strictEqual(await scene.stop(), 0);
    await shown.page.waitForFunction(() => !document.getElementById('notice').hidden);
    assert.ok(/^Connection lost\. Start the program again/.test(await shown.text('notice')));
    // The browser reports the attempts to connect, which fail from here on.
    scene = await startHost([], path.join(__dirname, 'inspected-scene.js'));
  });
});
