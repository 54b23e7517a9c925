// The program of pages with a live example: picture, controls, and models of the user.
import './protocol.mjs';
import { Picture } from '../../../lib/scene/inspect/page/picture.js';
import { listenToTurns } from '../../../lib/scene/inspect/page/turns.js';
import { load } from '../../../lib/wasm.js';
import { figureKind, modelKind } from './kinds.js';
import { Stage, examples } from './stage.js';

/** Bytes of the memory of an engine. */
const kMemory = 96 * 1024 * 1024;

/** Longest step of scene time in seconds: after a pause of the page, the scene goes on without a jump. */
const kMostSeconds = 0.1;

/** Seconds of the button for one step. */
const kStepSeconds = 1 / 60;

/** Bytes of the largest file that is read. */
const kMostFileBytes = 64 * 1024 * 1024;

/** First view of the picture: radians, and distance in radii. */
const kView = { yaw: 0.5, pitch: 0.3, distance: 2.6 };

let compiled = null;

/** The compiled module, once for all pages of a visit. */
function compile() {
  if (compiled === null) {
    compiled = fetch(new URL('nq_logic.wasm', import.meta.url))
      .then((response) => {
        if (!response.ok) {
          throw new Error(`the server answers ${response.status} for nq_logic.wasm`);
        }
        return response.arrayBuffer();
      })
      .then((bytes) => WebAssembly.compile(bytes));
    compiled.catch(() => {
      compiled = null; // the next page tries again
    });
  }
  return compiled;
}

async function createEngine() {
  return load({ memory: kMemory, module: await compile() });
}

/** An element with properties and children. */
function element(tag, properties = {}, ...children) {
  const result = Object.assign(document.createElement(tag), properties);
  result.append(...children);
  return result;
}

/** What an error says, in one line, without the name of the file and without an end. */
function troubleOf(error, name) {
  if (error.code === 'ERR_NQ_MEMORY') {
    return `its memory of ${kMemory >>> 20} MB is full: give a smaller model, or show fewer of it`;
  }
  const [line] = String(error.message).split('\n');
  return line
    .split(`model '${name}': `)
    .join('')
    .replace(/[.:\s]+$/, '');
}

/** Owns a live example in an element of a page. */
class LiveExample {
  /**
   * @param {HTMLElement} container
   * @param {string} name of the example
   */
  constructor(container, name) {
    this.container = container;
    this.name = name;
    this.facts = examples[name];
    this.stage = null;
    this.engine = null;
    this.picture = null;
    this.isDisposed = false;
    this.isPaused = matchMedia('(prefers-reduced-motion: reduce)').matches;
    this.isOutside = true;
    this.speed = 1;
    /** Frames that were drawn; the request of the next one; the time of the last one. */
    this.drawn = 0;
    this.request = null;
    this.last = null;
    /** Whether the picture must be drawn, though the scene is paused. */
    this.isStale = true;
    this.build();
  }

  /** Makes the elements. */
  build() {
    this.canvas = element('canvas', { className: 'live-picture', tabIndex: 0 });
    this.canvas.setAttribute('role', 'img');
    this.canvas.setAttribute('aria-label', `Picture of the example ${this.name}`);
    this.canvas.setAttribute('aria-describedby', 'live-hint');
    this.text = element('p', { className: 'live-text' });
    this.message = element('p', { className: 'live-message', hidden: true });
    this.message.setAttribute('role', 'alert');
    const hint = element('p', { className: 'live-hint', id: 'live-hint' });
    hint.textContent =
      'Drag to turn, two fingers to zoom; with the picture selected the wheel or + and − zoom, arrows turn, Home resets.';
    this.controls = element('div', { className: 'live-controls' });
    this.container.replaceChildren(
      element('div', { className: 'live-stage' }, this.canvas, this.text),
      this.message,
      this.controls,
      hint
    );
    this.buildControls();
  }

  buildControls() {
    const buttons = element('div', { className: 'live-buttons' });
    this.pauseButton = this.addButton(buttons, 'pause', '', () => {
      this.notify('');
      this.pause(!this.isPaused);
    });
    this.addButton(buttons, 'step', 'Step', () => {
      this.pause(true);
      this.advance(kStepSeconds);
    });
    this.buttons = buttons;
    this.controls.append(buttons);
    const speed = { name: 'speed', title: 'Speed', min: 0, max: 3, step: 0.1, value: 1, unit: '×' };
    this.addSlider(speed, (value) => {
      this.speed = value;
    });
    this.facts.controls.forEach((control) => {
      this.addSlider(control, (value) => {
        if (this.stage !== null) {
          this.apply(() => {
            this.stage.settings[control.name] = value;
            this.advance(0);
          });
        }
      });
    });
    if (this.facts.takesModels) {
      this.addFileInput();
    }
    this.showPause();
  }

  addButton(to, name, title, run) {
    const button = element('button', { type: 'button', textContent: title });
    button.dataset.name = name;
    button.addEventListener('click', run);
    to.append(button);
    return button;
  }

  addSlider({ name, title, min, max, step, value, unit = '' }, set) {
    const id = `live-${name}`;
    const shown = element('output', { htmlFor: id, textContent: `${value}${unit}` });
    const input = element('input', { type: 'range', id, min, max, step });
    input.value = value;
    input.addEventListener('input', () => {
      shown.textContent = `${input.value}${unit}`;
      set(Number(input.value));
    });
    const label = element('label', { htmlFor: id, textContent: title });
    this.controls.append(element('div', { className: 'live-slider' }, label, shown, input));
  }

  /** Models of the user: dropped on the picture, or chosen. */
  addFileInput() {
    const input = element('input', { type: 'file', id: 'live-file', accept: '.glb' });
    const label = element('label', { htmlFor: 'live-file', textContent: 'Your model (.glb)' });
    input.addEventListener('change', async () => {
      const [file] = input.files;
      if (file !== undefined) {
        await this.show(file);
      }
      input.value = ''; // the same file can be chosen again
    });
    this.controls.append(element('div', { className: 'live-file' }, label, input));
    const { canvas } = this;
    const mark = (isOver) => canvas.classList.toggle('live-drop', isOver);
    canvas.addEventListener('dragover', (event) => {
      event.preventDefault();
      mark(true);
    });
    canvas.addEventListener('dragleave', () => mark(false));
    canvas.addEventListener('drop', (event) => {
      event.preventDefault();
      mark(false);
      const [file] = event.dataTransfer.files;
      if (file !== undefined) {
        this.show(file);
      }
    });
  }

  notify(text) {
    this.message.hidden = text === '';
    this.message.textContent = text;
  }

  /** Loads the engine, and starts. */
  async start() {
    try {
      this.picture = new Picture(this.canvas);
    } catch (error) {
      const cure = 'use a newer one, or switch hardware acceleration on';
      this.notify(`This example needs WebGL 2, which this browser does not provide: ${cure}.`);
      return;
    }
    try {
      const engine = await createEngine();
      if (this.isDisposed) {
        engine.dispose();
        return;
      }
      this.take(engine, new Stage(this.name, engine, figureKind()));
    } catch (error) {
      const cure = 'reload the page, or use a browser of 2023 or later';
      this.notify(`The engine does not start, ${troubleOf(error, '')}: ${cure}.`);
      return;
    }
    Object.assign(this.picture.orbit, kView);
    this.addActions();
    this.listen();
    this.schedule();
  }

  /** Shows a stage instead of the last one. */
  take(engine, stage) {
    const last = this.engine;
    this.engine = engine;
    this.stage = stage;
    if (last !== null) {
      last.dispose();
    }
    this.picture.setScene(stage.describe());
    this.isStale = true;
  }

  /** Buttons of the example. */
  addActions() {
    const { actions = {}, pose } = this.stage.example;
    Object.keys(actions).forEach((name) => {
      const title = () => this.stage.example.actions[name].title();
      const button = this.addButton(this.buttons, name, title(), () => {
        this.stage.example.actions[name].run();
        this.advance(0);
        this.showActions();
      });
      button.dataset.action = name;
    });
    if (pose !== undefined) {
      const titles = { true: 'Through the camera', false: 'From outside' };
      const button = this.addButton(this.buttons, 'look', titles.true, () => {
        this.isOutside = !this.isOutside;
        button.textContent = titles[this.isOutside];
        this.isStale = true;
      });
    }
  }

  showActions() {
    this.buttons.querySelectorAll('[data-action]').forEach((button) => {
      button.textContent = this.stage.example.actions[button.dataset.action].title();
    });
  }

  /**
   * Shows a model of the user instead; if it can't be shown, says why and changes nothing.
   * @param {File} file
   */
  async show(file) {
    let engine = null;
    try {
      if (file.size > kMostFileBytes) {
        throw new RangeError('it is larger than 64 MB: choose a smaller one');
      }
      const kind = await modelKind(await file.arrayBuffer(), file.name);
      engine = await createEngine();
      const settings = this.stage === null ? {} : this.stage.settings;
      const stage = new Stage(this.name, engine, kind, settings);
      stage.frame();
      if (this.isDisposed) {
        engine.dispose();
        return;
      }
      this.take(engine, stage);
      this.showActions();
      this.notify('');
    } catch (error) {
      if (engine !== null) {
        engine.dispose();
      }
      const trouble = troubleOf(error, file.name);
      // Errors of the library end with the cure.
      const cure = trouble.includes(': ') ? '' : ': export it again as one .glb (glTF 2.0)';
      this.notify(`'${file.name}' can't be shown: ${trouble}${cure}.`);
    }
  }

  listen() {
    const view = (turn) => {
      turn();
      this.isStale = true;
    };
    listenToTurns(this.canvas, {
      isTurning: () => this.isOutside,
      isZooming: () => this.isOutside && document.activeElement === this.canvas,
      turn: (...given) => view(() => this.picture.turn(...given)),
      turnBack: () => view(() => Object.assign(this.picture.orbit, kView)),
    });
    this.canvas.addEventListener('keydown', (event) => {
      if (event.key === ' ') {
        event.preventDefault();
        this.pause(!this.isPaused);
      }
    });
    this.observer = new ResizeObserver(() => {
      this.picture.fit();
      this.isStale = true;
    });
    this.observer.observe(this.canvas);
    this.onVisibility = () => this.schedule();
    document.addEventListener('visibilitychange', this.onVisibility);
    this.canvas.addEventListener('webglcontextrestored', () => {
      this.isStale = true;
    });
  }

  /** Requests the next frame; none while the page is hidden. */
  schedule() {
    if (document.hidden || this.isDisposed) {
      cancelAnimationFrame(this.request);
      this.request = null;
      this.last = null;
    } else if (this.request === null) {
      this.request = requestAnimationFrame((now) => this.tick(now));
    }
  }

  tick(now) {
    this.request = null;
    const seconds = this.last === null ? 0 : Math.min(kMostSeconds, (now - this.last) / 1000);
    this.last = now;
    if (!this.isPaused && seconds > 0) {
      this.advance(seconds * this.speed);
    }
    if (this.isStale) {
      this.draw();
    }
    this.schedule();
  }

  /** Does something with the scene; if it fails, the example stops with a message. */
  apply(action) {
    try {
      action();
    } catch (error) {
      this.pause(true);
      const cure = 'Set lower values and press Play, or reload the page.';
      this.notify(`The example stopped: ${troubleOf(error, '')}. ${cure}`);
    }
  }

  advance(seconds) {
    this.apply(() => {
      this.stage.advance(seconds);
      this.isStale = true;
    });
  }

  draw() {
    this.isStale = false;
    const frame = this.stage.frame();
    // The narrower side of the picture shows all.
    frame.bounds[3] *= Math.max(1, this.canvas.clientHeight / (this.canvas.clientWidth || 1));
    this.picture.setFrame(frame);
    this.picture.draw(this.isOutside);
    const text = this.stage.text();
    if (this.text.textContent !== text) {
      this.text.textContent = text;
    }
    ++this.drawn;
  }

  pause(isPaused) {
    this.isPaused = isPaused;
    this.showPause();
  }

  showPause() {
    this.pauseButton.textContent = this.isPaused ? 'Play' : 'Pause';
  }

  /** Starts again with the figure and given settings, paused: for tests and for the browser's console. */
  async restart(settings = {}) {
    this.pause(true);
    const engine = await createEngine();
    this.take(engine, new Stage(this.name, engine, figureKind(), settings));
    this.showActions();
  }

  dispose() {
    this.isDisposed = true;
    this.schedule();
    if (this.observer !== undefined) {
      this.observer.disconnect();
      document.removeEventListener('visibilitychange', this.onVisibility);
    }
    if (this.picture !== null) {
      const extension = this.picture.gl.getExtension('WEBGL_lose_context');
      if (extension !== null) {
        extension.loseContext();
      }
    }
    if (this.engine !== null) {
      this.engine.dispose();
    }
    this.container.replaceChildren();
  }
}

/**
 * Shows an example in an element.
 * @param {HTMLElement} container
 * @param {string} name
 * @returns {{dispose: function()}}
 */
export function mount(container, name) {
  const live = new LiveExample(container, name);
  // For tests and for the browser's console.
  self.nqLive = {
    live,
    worldMatrices: () => live.stage.worldMatrices(),
  };
  live.start();
  return {
    dispose() {
      delete self.nqLive;
      live.dispose();
    },
  };
}
