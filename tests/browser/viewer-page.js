'use strict';
// The viewer's host and its page in a browser without a display, for tests and for the picture of the
// docs; and other programs whose scenes are inspected. Runs on a newer Node than the host.
const childProcess = require('child_process');
const path = require('path');
const { chromium } = require('playwright-core');
const { PNG } = require('pngjs');
const { which } = require('../../scripts/lib/run');

const main = path.join(__dirname, '..', '..', 'viewer', 'main.js');

/** Software rendering, since there may be no GPU. */
const browserArguments = [
  '--no-sandbox',
  '--use-angle=swiftshader',
  '--enable-unsafe-swiftshader',
  '--hide-scrollbars',
];

/** Hosts that run. */
const running = new Set();

/** Ends hosts that a failed test has left. */
function endHosts() {
  running.forEach((child) => child.kill('SIGKILL'));
}

/**
 * Starts the viewer's host, or another program on it, which prints 'at' and its address.
 * @param {string[]} args
 * @param {string} [program] path, by default that of the viewer
 * @returns {Promise<{address: string, stop: function(): Promise<number>, say: function(string)}>} `stop` gives its exit
 *   code, `say` writes a line to its input
 */
function startHost(args, program = main) {
  const host = process.env.NQ_HOST;
  const child = childProcess.spawn(host, [program, ...args], {
    stdio: ['pipe', 'pipe', 'inherit'],
  });
  running.add(child);
  const ended = new Promise((resolve) => {
    child.on('close', (code) => {
      running.delete(child);
      resolve(code);
    });
  });
  const stop = () => {
    child.kill('SIGINT');
    return ended;
  };
  return new Promise((resolve, reject) => {
    let output = '';
    child.on('error', reject);
    child.on('close', (code) => reject(new Error(`the host ended with ${code}: ${output}`)));
    child.stdout.setEncoding('utf8');
    child.stdout.on('data', (text) => {
      output += text;
      const found = /at (http:\S+) /.exec(output);
      if (found) {
        resolve({ address: found[1], stop, say: (line) => child.stdin.write(`${line}\n`) });
      }
    });
  });
}

/** Starts a browser. */
function startBrowser() {
  const executablePath = which('chromium');
  if (executablePath === null) {
    throw new Error("there is no chromium on PATH: run 'node scripts/setup.js browser'.");
  }
  return chromium.launch({ executablePath, args: browserArguments });
}

/** Owns a page of the viewer, and what went wrong in it. */
class ViewerPage {
  /**
   * Opens a page and waits until it has drawn.
   * @param {import('playwright-core').Browser} browser
   * @param {string} address
   * @param {{width: number, height: number}} viewport
   * @param {Object} [options] of the browser's context
   */
  static async open(browser, address, viewport, options = {}) {
    const result = new ViewerPage();
    result.troubles = [];
    result.requests = [];
    result.page = await browser.newPage(Object.assign({ viewport }, options));
    result.page.setDefaultTimeout(50000);
    result.page.on('console', (message) => {
      if (['error', 'warning'].includes(message.type())) {
        result.troubles.push(message.text());
      }
    });
    result.page.on('pageerror', (error) => result.troubles.push(error.stack));
    result.page.on('request', (request) => result.requests.push(request.url()));
    await result.page.goto(address);
    await result.arrived(2);
    return result;
  }

  /** Waits until so many more frames have arrived, of which each becomes a picture unless that is still. */
  async arrived(frames) {
    await this.page.waitForFunction(() => self.nqViewer && self.nqViewer.page.drawn > 0);
    const drawn = await this.page.evaluate(() => self.nqViewer.page.drawn);
    await this.page.waitForFunction((wanted) => self.nqViewer.page.drawn >= wanted, drawn + frames);
  }

  /** Waits until so many more frames were drawn. */
  async drawn(frames) {
    const drawings = await this.page.evaluate(() => self.nqViewer.page.drawings);
    await this.page.waitForFunction(
      (wanted) => self.nqViewer.page.drawings >= wanted,
      drawings + frames
    );
  }

  /**
   * Waits until something holds of the newest frame.
   * @param {function(Object, *): boolean} holds runs in the page: of the frame, and of what is given
   * @param {*} [given]
   */
  async until(holds, given = null) {
    // As a function, not as text: the page's Content-Security-Policy forbids evaluating text.
    const body = `const { frame } = self.nqViewer.page;
      return frame !== null && (${holds})(frame, given);`;
    await this.page.waitForFunction(new Function('given', body), given);
  }

  /** Facts of the newest frame, and of what is drawn of it. */
  frame() {
    return this.page.evaluate(() => {
      const { page, picture, stream } = self.nqViewer;
      const { frame } = page;
      const [bodies] = frame.instanceCounts;
      const { bones } = page.scene.meshes[0];
      return {
        number: frame.frame,
        total: frame.total,
        camera: frame.camera,
        flags: frame.flags,
        visible: Array.from(frame.visible),
        sliders: Array.from(frame.sliders),
        characters: Array.from(frame.ids.subarray(0, bodies)),
        tints: Array.from(frame.tints.subarray(0, 3 * bodies)),
        matrices: Array.from(frame.matrices.subarray(0, 4096)),
        finite: frame.matrices.every(Number.isFinite),
        carried: Array.from(frame.matrices.subarray(16 * bodies * bones)),
        milliseconds: Array.from(frame.milliseconds),
        instances: picture.meshes[0].count,
        shown: document.getElementById('shown').textContent,
        messages: stream.messages,
      };
    });
  }

  /** Makes the page draw little, to leave the CPU to another one. */
  rest(isResting) {
    return this.page.evaluate((rests) => {
      self.nqViewer.picture.isResting = rests;
    }, isResting);
  }

  /** Pixels of the picture alone, without what lies over it. */
  async pixels() {
    const box = await this.page.locator('#picture').boundingBox();
    return PNG.sync.read(await this.page.screenshot({ clip: box }));
  }

  /** Shows or hides what characters carry, and its lights, which may stand in front of them. */
  showCarried(isVisible) {
    return this.page.evaluate((visible) => {
      const { picture } = self.nqViewer;
      picture.meshes.forEach((_, i) => {
        if (i > 0) {
          picture.hidden[visible ? 'delete' : 'add'](i);
        }
      });
      picture.shown.lights = visible;
    }, isVisible);
  }

  /** Pixels of the picture without characters; their shadows stay. */
  async pixelsWithoutBodies() {
    const show = (isVisible) =>
      this.page.evaluate((visible) => {
        self.nqViewer.picture.hidden[visible ? 'delete' : 'add'](0);
      }, isVisible);
    await show(false);
    await this.drawn(2);
    const result = await this.pixels();
    await show(true);
    return result;
  }

  /** Sets a slider like a user. */
  async slide(name, value) {
    await this.page.locator(`#${name}`).fill(String(value));
  }

  click(id) {
    return this.page.locator(`#${id}`).click();
  }

  text(id) {
    return this.page.locator(`#${id}`).textContent();
  }

  /** Whether a button is pressed. */
  async isPressed(id) {
    return (await this.page.locator(`#${id}`).getAttribute('aria-pressed')) === 'true';
  }
}

module.exports = { ViewerPage, endHosts, startBrowser, startHost };
