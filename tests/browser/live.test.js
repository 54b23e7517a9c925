'use strict';
// The live examples of the built site in a browser: pictures, controls, models of the user, phones, hidden tabs; and
// their world matrices against those of the native module.
const assert = require('assert');
const childProcess = require('child_process');
const fs = require('fs');
const http = require('http');
const os = require('os');
const path = require('path');
const { PNG } = require('pngjs');
const sirv = require('sirv');
const { makeReed } = require('../../examples/reed');
const { removeFolder } = require('../../scripts/lib/run');
const { folders } = require('../../scripts/lib/site-pages');
const { skeleton, writeGlb } = require('../fixtures/models');
const { startBrowser } = require('./viewer-page');

const desktop = { width: 1000, height: 800 };
const phone = { width: 375, height: 700 };

/** Small numbers of everything, since pictures are drawn by software. */
const small = {
  crowd: { count: 6 },
  layers: {},
  culling: { count: 200 },
  sockets: { count: 3 },
};
const names = Object.keys(small);

/** Seconds of a step: a sum of powers of two, so that times are exact. */
const kSeconds = 1 / 64;

/** A model with more nodes beside its own. */
function withMoreNodes({ json, binary }, count) {
  const first = json.nodes.length;
  const more = Array.from({ length: count }, (_, i) => ({ name: `more ${i}` }));
  const scenes = json.scenes.map((scene) =>
    Object.assign({}, scene, { nodes: [...scene.nodes, ...more.map((_, i) => first + i)] })
  );
  return { json: Object.assign({}, json, { nodes: [...json.nodes, ...more], scenes }), binary };
}

let browser;
let server;
let address;
let folder;
let page;

before(async () => {
  folder = fs.mkdtempSync(path.join(os.tmpdir(), 'nq-live-'));
  fs.writeFileSync(path.join(folder, 'reed.glb'), makeReed());
  writeGlb(path.join(folder, 'bones.glb'), skeleton());
  const { json, binary } = skeleton();
  json.animations.push(Object.assign({}, json.animations[0], { name: 'again' }));
  writeGlb(path.join(folder, 'two.glb'), { json, binary });
  writeGlb(path.join(folder, 'large.glb'), withMoreNodes(skeleton(), 4000));
  writeGlb(path.join(folder, 'huge.glb'), withMoreNodes(skeleton(), 60000));
  fs.writeFileSync(path.join(folder, 'cut.glb'), makeReed().subarray(0, 200));
  fs.writeFileSync(path.join(folder, 'text.glb'), 'no model at all');
  browser = await startBrowser();
  const answer = sirv(folders.site);
  server = http.createServer((request, response) =>
    answer(request, response, () => response.writeHead(404).end('absent'))
  );
  await new Promise((resolve) => server.listen(0, '127.0.0.1', resolve));
  address = `http://127.0.0.1:${server.address().port}/`;
  page = await browser.newPage({ viewport: desktop });
  page.setDefaultTimeout(60000);
  page.troubles = [];
  page.on('console', (message) => {
    if (message.type() === 'error') {
      page.troubles.push(message.text());
    }
  });
  page.on('pageerror', (error) => page.troubles.push(error.stack));
});

after(async () => {
  if (browser !== undefined) {
    await browser.close();
  }
  if (server !== undefined) {
    server.close();
  }
  removeFolder(folder);
});

/** Opens an example, and starts it again, small and paused. */
async function open(name) {
  await page.goto(`${address}site/live/${name}.html`);
  await page.waitForFunction(() => self.nqLive && self.nqLive.live.drawn > 0);
  await page.evaluate((settings) => self.nqLive.live.restart(settings), small[name]);
  await drawn();
}

/** Waits until what is set is drawn. */
async function drawn() {
  await page.waitForFunction(() => !self.nqLive.live.isStale);
}

async function pixels() {
  // Controls below it may have been scrolled to.
  await page.locator('.live-picture').scrollIntoViewIfNeeded();
  await drawn();
  const clip = await page.locator('.live-picture').boundingBox();
  return PNG.sync.read(await page.screenshot({ clip }));
}

/** How many pixels of two pictures differ clearly. */
function countDifferences(a, b) {
  assert.strictEqual(a.data.length, b.data.length);
  let count = 0;
  for (let i = 0; i < a.data.length; i += 4) {
    const most = Math.max(...[0, 1, 2].map((k) => Math.abs(a.data[i + k] - b.data[i + k])));
    count += most > 24 ? 1 : 0;
  }
  return count;
}

/** The picture without any instance: floor and sky alone. */
async function emptyPixels() {
  const show = (isShown) =>
    page.evaluate((meshes) => {
      const { live } = self.nqLive;
      Object.assign(live.picture.shown, { meshes, skeletons: meshes, nodes: meshes });
      live.isStale = true;
    }, isShown);
  await show(false);
  const result = await pixels();
  await show(true);
  await drawn();
  return result;
}

const step = (steps) =>
  page.evaluate(
    ([count, seconds]) => {
      for (let i = 0; i < count; ++i) {
        self.nqLive.live.advance(seconds);
      }
    },
    [steps, kSeconds]
  );

const drawnCount = () => page.evaluate(() => self.nqLive.live.drawn);

const words = () =>
  page.evaluate(() => Array.from(new Uint32Array(self.nqLive.worldMatrices().buffer)));

const text = async () => {
  await drawn();
  return page.locator('.live-text').textContent();
};

const slide = async (name, value) => {
  await page.locator(`#live-${name}`).fill(String(value));
  await drawn();
};

/** Chooses a file, and waits until it is shown or refused. */
async function choose(file) {
  await page.evaluate(() => {
    self.nqLive.live.notify('');
    self.before = self.nqLive.live.stage;
  });
  await page.locator('#live-file').setInputFiles(path.join(folder, file));
  await awaitChoice();
}

async function awaitChoice() {
  await page.waitForFunction(() => {
    const { stage, message } = self.nqLive.live;
    return stage !== self.before || !message.hidden;
  });
}

/** Drops a file on the picture. */
async function drop(file) {
  const bytes = Array.from(fs.readFileSync(path.join(folder, file)));
  await page.evaluate(
    ([name, content]) => {
      self.nqLive.live.notify('');
      self.before = self.nqLive.live.stage;
      const dataTransfer = new DataTransfer();
      dataTransfer.items.add(new File([Uint8Array.from(content)], name));
      const event = new DragEvent('drop', { dataTransfer, bubbles: true, cancelable: true });
      document.querySelector('.live-picture').dispatchEvent(event);
    },
    [file, bytes]
  );
  await awaitChoice();
}

/** What an example computes natively: the bits of its world matrices, and its text. */
function computeNatively(name, script) {
  const asked = JSON.stringify({ name, settings: small[name], script, seconds: kSeconds });
  const program = path.join(__dirname, 'live-native.js');
  const { status, stdout, stderr } = childProcess.spawnSync(process.env.NQ_HOST, [program, asked], {
    encoding: 'utf8',
    maxBuffer: 1 << 28,
  });
  assert.strictEqual(status, 0, stderr);
  return JSON.parse(stdout);
}

describe('live examples', () => {
  for (const name of names) {
    describe(name, () => {
      before(() => open(name));

      it('has a label for each control, and its source beneath', async () => {
        const unlabelled = await page
          .locator('.live input')
          .evaluateAll(
            (inputs) =>
              inputs.filter(({ labels }) => labels.length !== 1 || labels[0].textContent === '')
                .length
          );
        assert.strictEqual(unlabelled, 0);
        const source = await page.locator('main pre').first().textContent();
        assert.ok(source.includes('function create('), source);
      });

      it('draws more than the floor, and something else after some steps', async () => {
        await step(1);
        const first = await pixels();
        const differences = countDifferences(first, await emptyPixels());
        assert.ok(differences > 500, `${differences} pixels`);
        await step(20);
        const moved = countDifferences(first, await pixels());
        assert.ok(moved > 50, `${moved} pixels moved`);
      });

      it('computes what the native module does, to the bit', async () => {
        await page.evaluate((settings) => self.nqLive.live.restart(settings), small[name]);
        const script = name === 'sockets' ? [10, 'drop', 8] : [18];
        for (const part of script) {
          if (typeof part === 'string') {
            await page.locator(`[data-action=${part}]`).click();
          } else {
            await step(part);
          }
        }
        const native = computeNatively(name, script);
        const found = await words();
        assert.ok(new Set(native.words).size > 100, `${new Set(native.words).size} values`);
        assert.strictEqual(found.length, native.words.length);
        const wrong = found.findIndex((word, i) => word !== native.words[i]);
        assert.strictEqual(wrong, -1, `word ${wrong} of ${found.length} differs`);
        assert.strictEqual(await text(), native.text);
      });
    });
  }

  it('changes what sliders name', async () => {
    await open('crowd');
    assert.ok((await text()).startsWith('6 characters,'));
    await slide('count', 9);
    assert.ok((await text()).startsWith('9 characters,'), await text());
    await slide('count', 2);
    assert.ok((await text()).startsWith('2 characters,'), await text());

    await open('layers');
    await step(20); // additive clips start with no difference
    for (const name of ['second', 'masked', 'added']) {
      const before = await words();
      await slide(name, name === 'masked' ? 0 : 1);
      assert.notDeepStrictEqual(await words(), before, name);
    }

    await open('culling');
    const seen = async () => Number((await text()).split(' ')[0]);
    await slide('angle', 20);
    const few = await seen();
    await slide('angle', 100);
    const many = await seen();
    assert.ok(few > 0 && many > 2 * few && many < 200, `${few}, ${many}`);
    await slide('count', 50);
    assert.ok((await text()).endsWith('of 50 nodes seen'), await text());
  });

  it('looks through the camera of the culling example, and from outside', async () => {
    await open('culling');
    const outside = await pixels();
    await page.locator('[data-name=look]').click();
    assert.ok(countDifferences(outside, await pixels()) > 5000);
    await page.locator('[data-name=look]').click();
    assert.strictEqual(countDifferences(outside, await pixels()), 0);
  });

  it('turns by dragging and keys, zooms by the wheel, and resets', async () => {
    await open('sockets');
    const first = await pixels();
    const orbit = () => page.evaluate(() => Object.assign({}, self.nqLive.live.picture.orbit));
    const start = await orbit();
    const box = await page.locator('.live-picture').boundingBox();
    await page.mouse.move(box.x + 300, box.y + 100);
    await page.mouse.down();
    await page.mouse.move(box.x + 400, box.y + 120);
    await page.mouse.up();
    const dragged = await orbit();
    assert.ok(dragged.yaw < start.yaw && dragged.pitch > start.pitch, JSON.stringify(dragged));
    assert.ok(countDifferences(first, await pixels()) > 500);
    await page.mouse.wheel(0, 200);
    await page.waitForFunction(
      (distance) => self.nqLive.live.picture.orbit.distance > distance,
      dragged.distance
    );
    await page.keyboard.press('ArrowLeft');
    assert.ok((await orbit()).yaw < dragged.yaw);
    await page.keyboard.press('Home');
    assert.deepStrictEqual(await orbit(), start);
  });

  it('pauses, steps and plays by buttons and keys', async () => {
    await open('crowd');
    const time = () => page.evaluate(() => self.nqLive.live.stage.time);
    assert.strictEqual(await time(), 0);
    await page.locator('[data-name=step]').click();
    const stepped = await time();
    assert.ok(Math.abs(stepped - 1 / 60) < 1e-9, String(stepped));
    await page.locator('[data-name=pause]').click();
    await page.waitForFunction((before) => self.nqLive.live.stage.time > before, stepped);
    await page.locator('.live-picture').focus();
    await page.keyboard.press(' ');
    assert.strictEqual(await page.locator('[data-name=pause]').textContent(), 'Play');
    const paused = await time();
    const ticks = () => page.evaluate(() => new Promise((next) => requestAnimationFrame(next)));
    await ticks();
    await ticks();
    assert.strictEqual(await time(), paused);
  });

  it('stops in a hidden tab, and goes on without a jump', async () => {
    await open('crowd');
    await page.locator('[data-name=pause]').click();
    await page.waitForFunction(() => self.nqLive.live.stage.time > 0);
    const hide = (isHidden) =>
      page.evaluate((hidden) => {
        Object.defineProperty(document, 'hidden', { value: hidden, configurable: true });
        document.dispatchEvent(new Event('visibilitychange'));
        const { stage, request } = self.nqLive.live;
        return { time: stage.time, isRequested: request !== null };
      }, isHidden);
    const { time, isRequested } = await hide(true);
    assert.strictEqual(isRequested, false);
    // Frames of the browser go on, those of the example do not.
    const later = await page.evaluate(async () => {
      for (let i = 0; i < 20; ++i) {
        await new Promise((next) => requestAnimationFrame(next));
      }
      return self.nqLive.live.stage.time;
    });
    assert.strictEqual(later, time);
    await page.evaluate(() => {
      const { live } = self.nqLive;
      const advance = live.advance.bind(live);
      self.steps = [];
      live.advance = (seconds) => {
        self.steps.push(seconds);
        advance(seconds);
      };
    });
    const shown = await hide(false);
    assert.deepStrictEqual(shown, { time, isRequested: true });
    await page.waitForFunction(() => self.steps.length > 0);
    const steps = await page.evaluate(() => self.steps);
    assert.ok(
      steps.every((seconds) => seconds > 0 && seconds <= 0.1),
      steps.join()
    );
  });

  it('shows models of the user that are dropped or chosen', async () => {
    for (const name of ['crowd', 'sockets']) {
      await open(name);
      const before = await pixels();
      await drop('reed.glb');
      assert.strictEqual(await page.locator('.live-message').isVisible(), false);
      assert.ok(countDifferences(before, await pixels()) > 300, name);
      assert.ok(countDifferences(await pixels(), await emptyPixels()) > 100, name);
      assert.strictEqual(await page.evaluate(() => self.nqLive.live.stage.kind.name), 'reed.glb');
      const still = await words();
      await step(8);
      assert.notDeepStrictEqual(await words(), still);
    }
    await open('layers');
    await drop('two.glb');
    assert.ok((await text()).startsWith('everything → again;'), await text());
    const before = await words();
    await step(8);
    assert.notDeepStrictEqual(await words(), before);
    // Without meshes, bones are drawn.
    await open('sockets');
    await choose('bones.glb');
    assert.strictEqual(await page.evaluate(() => self.nqLive.live.stage.kind.name), 'bones.glb');
    assert.ok(countDifferences(await pixels(), await emptyPixels()) > 50);
  });

  it('refuses wrong files by name with the cure, and goes on with what it shows', async () => {
    await open('crowd');
    for (const file of ['cut.glb', 'text.glb']) {
      const [before, first] = [await words(), await pixels()];
      await choose(file);
      const message = await page.locator('.live-message').textContent();
      assert.ok(message.startsWith(`'${file}' can't be shown: `), message);
      assert.ok(/: (export it again|give a \.glb)[^:]*\.$/.test(message), message);
      assert.ok(!/undefined|\[object|\n/.test(message), message);
      assert.deepStrictEqual(await words(), before);
      assert.strictEqual(await page.evaluate(() => self.nqLive.live.stage === self.before), true);
      assert.strictEqual(countDifferences(first, await pixels()), 0);
    }
    // One clip is too few for layers.
    await open('layers');
    await choose('reed.glb');
    const message = await page.locator('.live-message').textContent();
    assert.ok(message.includes("'reed.glb'") && message.includes('layers need two'), message);
    // What can be shown takes the message away.
    await open('crowd');
    await choose('text.glb');
    await choose('reed.glb');
    assert.strictEqual(await page.locator('.live-message').isVisible(), false);
  });

  it('says that the memory is full, and goes on with fewer characters', async () => {
    const message = () => page.locator('.live-message').textContent();
    await open('crowd');
    const before = await words();
    await choose('huge.glb');
    const full = 'its memory of 96 MB is full: give a smaller model, or show fewer of it.';
    assert.strictEqual(await message(), `'huge.glb' can't be shown: ${full}`);
    assert.deepStrictEqual(await words(), before);
    await choose('large.glb');
    assert.strictEqual(await message(), '');
    assert.ok((await text()).startsWith('6 characters,'), await text());
    await slide('count', 300);
    const cure = 'Set lower values and press Play, or reload the page.';
    assert.strictEqual(await message(), `The example stopped: ${full} ${cure}`);
    const still = await words();
    assert.ok((await text()).startsWith('6 characters,'), await text());
    await slide('count', 7);
    await page.getByText('Play', { exact: true }).click();
    await page.waitForFunction((last) => self.nqLive.live.drawn > last + 2, await drawnCount());
    await page.getByText('Pause', { exact: true }).click();
    assert.ok((await text()).startsWith('7 characters,'), await text());
    assert.strictEqual(await message(), '');
    assert.notDeepStrictEqual((await words()).slice(0, still.length), still);
  });

  it('goes from one example to another by the menu, and leaves nothing running', async () => {
    await open('crowd');
    await page.evaluate(() => {
      self.first = self.nqLive.live;
    });
    await page.locator('.VPSidebar').getByText('Live sockets', { exact: true }).click();
    await page.waitForFunction(() => self.nqLive && self.nqLive.live.name === 'sockets');
    await page.waitForFunction(() => self.nqLive.live.drawn > 0);
    const first = await page.evaluate(() => ({
      isDisposed: self.first.isDisposed,
      request: self.first.request,
    }));
    assert.deepStrictEqual(first, { isDisposed: true, request: null });
  });

  it('fits a phone: nothing is wider, and controls are large enough to touch', async () => {
    await page.setViewportSize(phone);
    for (const name of names) {
      await open(name);
      const { width, low } = await page.evaluate(() => {
        const parts = Array.from(document.querySelectorAll('.live, .live *'));
        const heights = Array.from(document.querySelectorAll('.live button, .live input'));
        return {
          width: Math.max(
            document.documentElement.scrollWidth,
            ...parts.map((part) => Math.ceil(part.getBoundingClientRect().right))
          ),
          low: Math.min(...heights.map((one) => one.getBoundingClientRect().height)),
        };
      });
      assert.ok(width <= phone.width, `${name} is ${width} pixels wide`);
      assert.ok(low >= 32, `${name} has a control of ${low} pixels`);
    }
    await page.setViewportSize(desktop);
  });

  it('starts paused where motion is reduced, and readable in both themes', async () => {
    const contrast = async (selector) => {
      const [color, behind] = await page
        .locator(selector)
        .first()
        .evaluate((one) => {
          const { color: own } = getComputedStyle(one);
          return [own, getComputedStyle(document.body).backgroundColor];
        });
      const [a, b] = [color, behind].map((value) => {
        const [red, green, blue] = value.match(/[\d.]+/g).map(Number);
        return 0.2126 * red + 0.7152 * green + 0.0722 * blue;
      });
      return Math.abs(a - b);
    };
    for (const colorScheme of ['dark', 'light']) {
      await page.emulateMedia({ colorScheme, reducedMotion: 'reduce' });
      await page.goto(`${address}site/live/layers.html`);
      await page.waitForFunction(() => self.nqLive && self.nqLive.live.drawn > 0);
      const { isPaused, time } = await page.evaluate(() => ({
        isPaused: self.nqLive.live.isPaused,
        time: self.nqLive.live.stage.time,
      }));
      assert.deepStrictEqual({ isPaused, time }, { isPaused: true, time: 0 });
      for (const selector of ['.live-buttons button', '.live-slider label', '.live-hint']) {
        const found = await contrast(selector);
        assert.ok(found > 70, `${selector}, ${colorScheme}: ${found}`);
      }
    }
    await page.emulateMedia({ colorScheme: null, reducedMotion: null });
  });

  it('says what is missing without WebGL 2', async () => {
    const other = await browser.newPage();
    await other.addInitScript(() => {
      HTMLCanvasElement.prototype.getContext = () => null;
    });
    await other.goto(`${address}site/live/layers.html`);
    await other.locator('.live-message').waitFor();
    const message = await other.locator('.live-message').textContent();
    assert.ok(message.includes('WebGL 2'), message);
    await other.close();
  });

  it('logs no errors', () => {
    assert.deepStrictEqual(page.troubles, []);
  });
});
