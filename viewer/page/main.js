// The page: draws what the server streams, and sends the user's controls.
import { Chart, kPercentiles, stageColors } from './chart.js';
import { Picture } from './picture.js';
import { Stream } from './stream.js';

const protocol = self.nqProtocol;
const element = (id) => document.getElementById(id);

/** Milliseconds between updates of numbers, so that they are readable. Longer with a still picture. */
const kNumbersMilliseconds = 250;
const kStillMilliseconds = 1000;

/** Milliseconds after which values and cameras have reached the target of a control. */
const kSettleMilliseconds = 1200;

/** Steps of keys in the view from outside: radians, and factor of the distance. */
const kKeyTurn = Math.PI / 36;
const kKeyNearer = 1.1;

/** Pixels per line, for wheels that report lines; factor of a touchpad's pinch relative to a wheel. */
const kLinePixels = 16;
const kPinchFactor = 10;

const reducedMotion = matchMedia('(prefers-reduced-motion: reduce)');

const page = {
  scene: null,
  /** The newest frame, and the number of the last one drawn. */
  frame: null,
  drawn: 0,
  drawings: 0,
  camera: protocol.cameras.perspective,
  isOutside: false,
  isLost: false,
  /** Whether the picture is still; when it must be updated next, or 0. */
  isStill: reducedMotion.matches,
  renewAt: 0,
};
let picture = null;
let chart = null;
let stream = null;

/** Sliders that the user drags, or has just released: values of the server do not change them. */
const held = new Set();
const leftAt = new Map();

/** Writes only changes: a screen reader announces each write. */
function setText(id, text) {
  if (element(id).textContent !== String(text)) {
    element(id).textContent = text;
  }
}

function setAttribute(id, name, value) {
  if (element(id).getAttribute(name) !== value) {
    element(id).setAttribute(name, value);
  }
}

function notify(text, code) {
  const notice = element('notice');
  if (notice.dataset.text === text) {
    return;
  }
  notice.dataset.text = text;
  notice.hidden = text === '';
  notice.textContent = text;
  if (code) {
    notice.append(document.createElement('br'));
    notice.append(Object.assign(document.createElement('code'), { textContent: code }));
  }
}

function setStatus(state, text) {
  element('status').dataset.state = state;
  setText('status', text);
}

function setPressed(id, isPressed) {
  setAttribute(id, 'aria-pressed', String(isPressed));
}

function percent(value) {
  return `${Math.round(100 * value)} %`;
}

/** Text for a position between clips. */
function crossfadeText(value) {
  const { clips } = page.scene;
  if (clips.length === 2) {
    return `${clips[0]} ${percent(1 - value)}, ${clips[1]} ${percent(value)}`;
  }
  const at = value * (clips.length - 1);
  const near = Math.min(clips.length - 1, Math.round(at));
  return clips.length > 0 ? clips[near] : 'no clips';
}

/** Text for a slider's value. */
function valueText(name, value) {
  if (name === 'crowd') {
    return `${value} of ${page.scene.characters}`;
  }
  return name === 'crossfade' ? crossfadeText(value) : percent(value);
}

/** Whether the user drags a slider, or the server has not yet followed it. */
function isHeld(name) {
  return held.has(name) || performance.now() < (leftAt.get(name) || 0) + kSettleMilliseconds;
}

/**
 * Shows a slider's value.
 * @param {string} name
 * @param {number} value of the frame
 * @param {boolean} isByHand set by the user; otherwise by the plan, and may change in every frame
 * @param {boolean} isTime whether to update values that change in every frame
 */
function showSlider(name, value, isByHand, isTime) {
  const slider = element(name);
  // The plan does not change a slider with focus: a screen reader would announce each value.
  const isFollowed = isByHand || document.activeElement !== slider;
  if (!isHeld(name) && isFollowed && (isByHand || !page.isStill || isTime)) {
    slider.value = value;
  }
  if (isByHand || !page.isStill || isTime) {
    setText(`${name}-value`, valueText(name, name === 'crowd' ? Number(slider.value) : value));
  }
  if (isByHand) {
    setAttribute(name, 'aria-valuetext', valueText(name, Number(slider.value)));
  } else if (isTime && isFollowed) {
    setAttribute(name, 'aria-valuetext', `auto, ${valueText(name, Number(slider.value))}`);
  }
}

/** Shows the values of a frame in the sliders. */
function showValues(frame, isTime) {
  showSlider('crowd', frame.crowd, true, isTime);
  protocol.sliders.forEach((name, i) => {
    const isByHand = (frame.flags & protocol.flags[name]) !== 0;
    if (!held.has(name)) {
      setPressed(`${name}-auto`, !isByHand);
      element(`row-${name}`).dataset.by = isByHand ? 'hand' : 'plan';
    }
    showSlider(name, frame.sliders[i], isByHand, isTime);
  });
  const isPaused = (frame.flags & protocol.flags.paused) !== 0;
  setPressed('pause', isPaused);
  setText('pause', isPaused ? 'Resume' : 'Pause');
  setStatus(isPaused ? 'paused' : 'live', isPaused ? 'paused' : 'live');
}

/** Rates of received data, since the last call of `take`. */
class Rates {
  constructor() {
    this.last = { time: performance.now(), bytes: 0, drawings: 0, frame: 0, host: 0 };
  }

  /** @returns {{megabytes: number, drawings: number, frames: number}} per second */
  take(frame) {
    const now = {
      time: performance.now(),
      bytes: stream.bytes,
      drawings: page.drawings,
      frame: frame.frame,
      host: frame.time,
    };
    const { last } = this;
    this.last = now;
    const seconds = (now.time - last.time) / 1000 || 1;
    const hostSeconds = (now.host - last.host) / 1000;
    return {
      megabytes: (now.bytes - last.bytes) / 1e6 / seconds,
      drawings: (now.drawings - last.drawings) / seconds,
      frames: hostSeconds > 0 ? (now.frame - last.frame) / hostSeconds : 0,
    };
  }
}

let rates = null;
let numbersAt = 0;

/** Whether it is time to update numbers that change too fast to be read in every frame. */
function isTimeForNumbers() {
  const now = performance.now();
  const isTime = now - numbersAt >= (page.isStill ? kStillMilliseconds : kNumbersMilliseconds);
  numbersAt = isTime ? now : numbersAt;
  return isTime;
}

function showNumbers(frame) {
  const { frames, drawings, megabytes } = rates.take(frame);
  const bones = (count) => (count * page.scene.bones).toLocaleString('en');
  const facts = [
    ['bones moved', bones(frame.crowd)],
    ['in view, perspective', frame.visible[0]],
    ['in view, overview', frame.visible[1]],
    ['frames computed', `${frames.toFixed(0)} per second`],
    ['frames drawn', `${drawings.toFixed(0)} per second`],
    ['matrices received', `${megabytes.toFixed(1)} MB per second`],
    ['frames dropped', frame.skipped.toLocaleString('en')],
  ];
  element('facts').replaceChildren(
    ...[].concat(
      ...facts.map(([name, value]) => [
        Object.assign(document.createElement('dt'), { textContent: name }),
        Object.assign(document.createElement('dd'), { textContent: value }),
      ])
    )
  );
  const whole = chart.wholePercentiles();
  const rows = document.querySelectorAll('#stages tbody tr, #stages tfoot tr');
  [...chart.percentiles(), whole].forEach((values, row) => {
    values.forEach((value, i) => {
      rows[row].cells[1 + i].textContent = value.toFixed(2);
    });
  });
  setText('whole', `${whole[0].toFixed(2)} ms`);
}

/** A row of the table: its title, and a cell for each percentile. */
function createRow(...title) {
  const row = document.createElement('tr');
  const label = document.createElement('th');
  label.scope = 'row';
  label.append(...title);
  row.append(label, ...kPercentiles.map(() => document.createElement('td')));
  return row;
}

function showScene(scene) {
  page.scene = scene;
  page.frame = null;
  picture.setScene(scene);
  chart = new Chart(element('chart'), scene.stages.length);
  rates = new Rates();
  document.title = `${scene.name}: nq_logic viewer`;
  element('subject').textContent = `${scene.characters} × ${scene.name}, ${scene.bones} bones each`;
  element('subject').title = scene.notes.join('\n');
  element('crowd').max = scene.characters;
  const rows = scene.stages.map(([name, title], stage) => {
    const swatch = document.createElement('i');
    swatch.style.background = stageColors[stage % stageColors.length];
    const row = createRow(swatch, title);
    row.dataset.stage = name;
    return row;
  });
  document.querySelector('#stages tbody').replaceChildren(...rows);
  document.querySelector('#stages tfoot').replaceChildren(createRow('whole frame'));
  element('row-crossfade').hidden = scene.clips.length < 2;
  ['wave', 'breath'].forEach((name) => {
    element(`row-${name}`).hidden = !scene.layers.includes(name);
  });
}

/** Sends the camera and the aspect ratio of this page to the server. */
function sendView() {
  const { clientWidth, clientHeight } = element('picture');
  if (clientWidth > 0 && clientHeight > 0) {
    const [least, most] = protocol.kAspects;
    const aspect = Math.min(most, Math.max(least, clientWidth / clientHeight));
    stream.send({ camera: page.camera, aspect });
  }
}

/** Sends controls of the user, and schedules an update of a still picture. */
function ask(controls) {
  stream.send(controls);
  page.renewAt = performance.now() + kSettleMilliseconds;
}

/**
 * Whether to draw a new frame: always, except with a still picture, which is updated only when the view changes, or
 * after a change has settled.
 */
function isPictureDue(frame) {
  const shown = picture.frame;
  if (!page.isStill || shown === null || shown.camera !== frame.camera) {
    return true;
  }
  if (Picture.aspectOf(shown) !== Picture.aspectOf(frame)) {
    return true;
  }
  const isOther = shown.crowd !== frame.crowd || shown.flags !== frame.flags;
  if (page.renewAt === 0) {
    page.renewAt = isOther ? performance.now() + kSettleMilliseconds : 0;
    return false;
  }
  return performance.now() >= page.renewAt;
}

function drawFrame(frame) {
  if (isPictureDue(frame)) {
    picture.setFrame(frame);
    setText('shown', frame.counts.characters);
    setText('crowd-now', frame.crowd);
    page.renewAt = 0;
    ++page.drawings;
  }
  const isTime = isTimeForNumbers();
  showValues(frame, isTime);
  if (isTime) {
    showNumbers(frame);
  }
  if (isTime || !page.isStill) {
    chart.draw();
  }
  page.drawn = frame.frame;
  stream.send({ drawn: frame.frame });
}

function draw() {
  requestAnimationFrame(draw);
  const { frame } = page;
  if (frame === null || page.isLost) {
    return;
  }
  if (frame.frame !== page.drawn) {
    drawFrame(frame);
  }
  picture.draw(page.isOutside);
}

function connect() {
  stream = new Stream('/stream', {
    open() {
      page.isLost = false;
      notify('');
      sendView();
    },
    lost() {
      page.isLost = true;
      page.drawn = 0;
      setStatus('lost', 'disconnected');
      notify('Connection lost. Start the server again, and this page reconnects:', 'npm run view');
    },
    scene: showScene,
    frame(frame) {
      page.frame = frame;
      chart.push(frame.milliseconds);
    },
  });
}

function listenToSlider(name, valueOf) {
  const slider = element(name);
  slider.addEventListener('input', () => {
    held.add(name);
    ask({ [name]: valueOf(slider.value) });
    setAttribute(name, 'aria-valuetext', valueText(name, Number(slider.value)));
    if (name !== 'crowd') {
      setPressed(`${name}-auto`, false);
      element(`row-${name}`).dataset.by = 'hand';
    }
  });
  slider.addEventListener('change', () => {
    held.delete(name);
    leftAt.set(name, performance.now());
  });
}

function listen() {
  listenToSlider('crowd', (text) => Number(text));
  for (const name of protocol.sliders) {
    listenToSlider(name, (text) => Number(text));
    element(`${name}-auto`).addEventListener('click', () => {
      const isByHand = element(`${name}-auto`).getAttribute('aria-pressed') === 'false';
      leftAt.delete(name);
      ask({ [name]: isByHand ? null : Number(element(name).value) });
    });
  }
  [0, 1].forEach((camera) => {
    element(`camera-${camera}`).addEventListener('click', () => {
      page.camera = camera;
      [0, 1].forEach((other) => setPressed(`camera-${other}`, other === camera));
      sendView();
    });
  });
  [
    ['look-through', false],
    ['look-outside', true],
  ].forEach(([id, isOutside]) => {
    element(id).addEventListener('click', () => {
      page.isOutside = isOutside;
      setPressed('look-through', !isOutside);
      setPressed('look-outside', isOutside);
      setTurns(isOutside);
    });
  });
  element('pause').addEventListener('click', () => {
    ask({ paused: element('pause').getAttribute('aria-pressed') === 'false' });
  });
  element('still').addEventListener('click', () => setStill(!page.isStill));
  reducedMotion.addEventListener('change', () => setStill(reducedMotion.matches));
  setStill(page.isStill);
  listenToPicture(element('picture'));
}

/** Switches the still picture of this page on or off: it is updated only after changes. */
function setStill(isStill) {
  page.isStill = isStill;
  page.renewAt = 0;
  setPressed('still', isStill);
}

/** In the view from outside, the picture accepts pointers and keys, and shows a hint. */
function setTurns(turns) {
  const canvas = element('picture');
  canvas.classList.toggle('turns', turns);
  element('hint').hidden = !turns;
  if (turns) {
    canvas.tabIndex = 0;
    canvas.setAttribute('aria-describedby', 'hint');
  } else {
    canvas.removeAttribute('tabindex');
    canvas.removeAttribute('aria-describedby');
  }
}

/** Actions of keys in the view from outside. */
const keys = {
  ArrowLeft: () => picture.turn(-kKeyTurn, 0),
  ArrowRight: () => picture.turn(kKeyTurn, 0),
  ArrowUp: () => picture.turn(0, kKeyTurn),
  ArrowDown: () => picture.turn(0, -kKeyTurn),
  '+': () => picture.turn(0, 0, 1 / kKeyNearer),
  '=': () => picture.turn(0, 0, 1 / kKeyNearer),
  '-': () => picture.turn(0, 0, kKeyNearer),
  Home: () => picture.turnBack(),
};

/** One finger or the mouse rotates the view from outside; two fingers zoom. */
function listenToPointers(canvas) {
  /** Position of each finger. */
  const fingers = new Map();
  const apart = () => {
    const [a, b] = Array.from(fingers.values());
    return Math.max(1, Math.hypot(a.x - b.x, a.y - b.y));
  };
  canvas.addEventListener('pointerdown', (event) => {
    canvas.setPointerCapture(event.pointerId);
    fingers.set(event.pointerId, { x: event.clientX, y: event.clientY });
  });
  canvas.addEventListener('pointermove', (event) => {
    const last = fingers.get(event.pointerId);
    if (last === undefined) {
      return;
    }
    const before = fingers.size === 2 ? apart() : 1;
    const [x, y] = [event.clientX - last.x, event.clientY - last.y];
    Object.assign(last, { x: event.clientX, y: event.clientY });
    if (!page.isOutside) {
      return;
    }
    if (fingers.size === 1) {
      const radians = Math.PI / canvas.clientHeight;
      picture.turn(-x * radians, y * radians);
    } else if (fingers.size === 2) {
      picture.turn(0, 0, before / apart());
    }
  });
  for (const type of ['pointerup', 'pointercancel', 'lostpointercapture']) {
    canvas.addEventListener(type, (event) => fingers.delete(event.pointerId));
  }
}

/** In the view from outside, dragging and arrows rotate, and the wheel, two fingers and keys zoom. */
function listenToPicture(canvas) {
  listenToPointers(canvas);
  canvas.addEventListener('keydown', (event) => {
    const act = Object.prototype.hasOwnProperty.call(keys, event.key) ? keys[event.key] : null;
    if (page.isOutside && act !== null && !event.ctrlKey && !event.metaKey && !event.altKey) {
      event.preventDefault();
      act();
    }
  });
  canvas.addEventListener(
    'wheel',
    (event) => {
      if (page.isOutside) {
        event.preventDefault();
        const lines = event.deltaMode === WheelEvent.DOM_DELTA_LINE ? kLinePixels : 1;
        // Browsers report a touchpad's pinch as a wheel event with Ctrl.
        const pinch = event.ctrlKey ? kPinchFactor : 1;
        picture.turn(0, 0, Math.exp(event.deltaY * lines * pinch * 0.001));
      }
    },
    { passive: false }
  );
  new ResizeObserver(() => {
    picture.fit();
    if (stream !== null) {
      sendView();
    }
  }).observe(canvas);
}

try {
  picture = new Picture(element('picture'));
  picture.fit();
  listen();
  connect();
  draw();
} catch (error) {
  notify(`This page needs WebGL 2, which this browser does not provide: ${error.message}`);
  setStatus('lost', 'no picture');
  throw error;
}

// For tests and for the browser's console.
self.nqViewer = {
  page,
  get picture() {
    return picture;
  },
  get chart() {
    return chart;
  },
  get stream() {
    return stream;
  },
};
