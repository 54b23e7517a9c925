// The page: draws what the server streams, and sends the user's controls.
import { Chart, kPercentiles, stageColors } from './chart.js';
import { Picture } from './picture.js';
import { Stream } from './stream.js';
import { listenToTurns } from './turns.js';

const protocol = self.nqProtocol;
const element = (id) => document.getElementById(id);

/** Milliseconds between updates of numbers, so that they are readable. Longer with a still picture. */
const kNumbersMilliseconds = 250;
const kStillMilliseconds = 1000;

/** Milliseconds after which values and cameras have reached the target of a control. */
const kSettleMilliseconds = 1200;

const reducedMotion = matchMedia('(prefers-reduced-motion: reduce)');

const page = {
  scene: null,
  /** The newest frame, and the number of the last one drawn. */
  frame: null,
  drawn: 0,
  drawings: 0,
  camera: 0,
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

/** Text for a position between things that are blended. */
function blendText(names, value) {
  if (names.length === 2) {
    return `${names[0]} ${percent(1 - value)}, ${names[1]} ${percent(value)}`;
  }
  const at = value * (names.length - 1);
  return names[Math.min(names.length - 1, Math.round(at))];
}

/** Text for a slider's value. */
function valueText({ blends, step, max }, value) {
  if (blends !== null) {
    return blendText(blends, value);
  }
  return Number.isInteger(step) ? `${value} of ${max}` : percent(value);
}

/** Whether the user drags a slider, or the server has not yet followed it. */
function isHeld(name) {
  return held.has(name) || performance.now() < (leftAt.get(name) || 0) + kSettleMilliseconds;
}

/**
 * Shows a slider's value.
 * @param {import('../protocol').Slider} facts
 * @param {number} value of the frame
 * @param {boolean} isByHand set by the user; otherwise by the server, and may change in every frame
 * @param {boolean} isTime whether to update values that change in every frame
 */
function showSlider(facts, value, isByHand, isTime) {
  const { name, isSteered } = facts;
  const slider = element(name);
  // The server does not change a slider with focus: a screen reader would announce each value.
  const isFollowed = isByHand || document.activeElement !== slider;
  if (!isHeld(name) && isFollowed && (isByHand || !page.isStill || isTime)) {
    slider.value = value;
  }
  if (isByHand || !page.isStill || isTime) {
    setText(`${name}-value`, valueText(facts, isSteered ? value : Number(slider.value)));
  }
  if (isByHand) {
    setAttribute(name, 'aria-valuetext', valueText(facts, Number(slider.value)));
  } else if (isTime && isFollowed) {
    setAttribute(name, 'aria-valuetext', `auto, ${valueText(facts, Number(slider.value))}`);
  }
}

/** Shows the values of a frame in the sliders. */
function showValues(frame, isTime) {
  page.scene.sliders.forEach((facts, i) => {
    const { name, isSteered } = facts;
    const isByHand = !isSteered || (frame.flags & protocol.flagOf(i)) !== 0;
    if (isSteered && !held.has(name)) {
      setPressed(`${name}-auto`, !isByHand);
      element(`row-${name}`).dataset.by = isByHand ? 'hand' : 'plan';
    }
    showSlider(facts, frame.sliders[i], isByHand, isTime);
  });
  const isPaused = (frame.flags & protocol.kPaused) !== 0;
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
  const facts = [
    ...page.scene.counters.map((name, i) => [name, frame.counters[i].toLocaleString('en')]),
    ...page.scene.cameras.map((name, i) => [`in view, ${name.toLowerCase()}`, frame.visible[i]]),
    ['frames computed', `${frames.toFixed(0)} per second`],
    ['frames drawn', `${drawings.toFixed(0)} per second`],
    ['data received', `${megabytes.toFixed(1)} MB per second`],
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

/** Makes elements for something of a scene, if it is not as before. */
function renew(id, facts, create) {
  const key = JSON.stringify(facts);
  if (element(id).dataset.facts !== key) {
    element(id).dataset.facts = key;
    element(id).replaceChildren(...facts.map(create));
  }
}

function createButton(id, text, isPressed) {
  const button = Object.assign(document.createElement('button'), { type: 'button', id });
  button.textContent = text;
  button.setAttribute('aria-pressed', String(isPressed));
  return button;
}

/** A button that selects a camera. */
function createCamera(title, camera) {
  const button = createButton(`camera-${camera}`, title, camera === page.camera);
  button.addEventListener('click', () => {
    page.camera = camera;
    page.scene.cameras.forEach((_, other) => setPressed(`camera-${other}`, other === camera));
    sendView();
  });
  return button;
}

/** A button that shows or hides a part of the scene. */
function createPart(part) {
  const title = part[0].toUpperCase() + part.slice(1);
  const button = createButton(`part-${part}`, title, picture.shown[part]);
  button.addEventListener('click', () => {
    picture.shown[part] = !picture.shown[part];
    setPressed(button.id, picture.shown[part]);
  });
  return button;
}

/** The row of a slider. */
function createSlider(facts) {
  const { name, title, min, max, step, isSteered } = facts;
  const row = Object.assign(document.createElement('div'), { id: `row-${name}` });
  row.className = 'slider';
  const label = Object.assign(document.createElement('label'), { htmlFor: name });
  label.textContent = title;
  const value = Object.assign(document.createElement('span'), { id: `${name}-value` });
  value.className = 'value';
  const slider = Object.assign(document.createElement('input'), { type: 'range', id: name });
  Object.assign(slider, { min, max, step, value: isSteered ? min : max });
  row.append(label, value);
  if (isSteered) {
    const auto = createButton(`${name}-auto`, 'auto', true);
    auto.className = 'auto';
    auto.setAttribute('aria-label', `${title} auto`);
    auto.addEventListener('click', () => {
      const isByHand = auto.getAttribute('aria-pressed') === 'false';
      leftAt.delete(name);
      ask({ [name]: isByHand ? null : Number(slider.value) });
    });
    row.append(auto);
  }
  row.append(slider);
  listenToSlider(facts, slider);
  return row;
}

/** Shows a scene; the chart goes on if only other parts have changed. */
function showScene(scene) {
  const before = page.scene;
  page.scene = scene;
  page.frame = null;
  picture.setScene(scene);
  rates = new Rates();
  document.title = `${scene.name}: nq_logic ${scene.title}`;
  setText('title', scene.title);
  setText('subject', scene.subject);
  element('subject').title = scene.notes.join('\n');
  if (before === null || JSON.stringify(before.stages) !== JSON.stringify(scene.stages)) {
    chart = new Chart(element('chart'), scene.stages.length);
    const rows = scene.stages.map(([name, title], stage) => {
      const swatch = document.createElement('i');
      swatch.style.background = stageColors[stage % stageColors.length];
      const row = createRow(swatch, title);
      row.dataset.stage = name;
      return row;
    });
    document.querySelector('#stages tbody').replaceChildren(...rows);
    document.querySelector('#stages tfoot').replaceChildren(createRow('whole frame'));
  }
  page.camera = Math.max(0, Math.min(page.camera, scene.cameras.length - 1));
  renew('cameras', scene.cameras, createCamera);
  renew('sliders', scene.sliders, createSlider);
  renew('parts', scene.parts, createPart);
  element('parts').hidden = scene.parts.length === 0;
  element('views').hidden = scene.cameras.length === 0;
  element('pause').hidden = !scene.canPause;
  if (before === null || before.cameras.length === 0 || scene.cameras.length === 0) {
    // One's own scene is looked at from outside at first.
    look(scene.cameras.length === 0 || scene.parts.length > 0);
  }
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
  const isOther = shown.total !== frame.total || shown.flags !== frame.flags;
  if (page.renewAt === 0) {
    page.renewAt = isOther ? performance.now() + kSettleMilliseconds : 0;
    return false;
  }
  return performance.now() >= page.renewAt;
}

function drawFrame(frame) {
  if (isPictureDue(frame)) {
    picture.setFrame(frame);
    setText('shown', Picture.hasCamera(frame) ? frame.visible[frame.camera] : frame.total);
    setText('total', frame.total);
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
      const restart = page.scene === null ? '' : page.scene.restart;
      const cure = restart === '' ? 'Start the program again' : 'Start the server again';
      notify(`Connection lost. ${cure}, and this page reconnects${restart && ':'}`, restart);
    },
    scene: showScene,
    frame(frame) {
      page.frame = frame;
      const { stages, rows } = frame.counts;
      for (let row = 0; row < rows; ++row) {
        chart.push(frame.history.subarray(row * stages, (row + 1) * stages));
      }
    },
  });
}

function listenToSlider(facts, slider) {
  const { name, isSteered } = facts;
  slider.addEventListener('input', () => {
    held.add(name);
    ask({ [name]: Number(slider.value) });
    setAttribute(name, 'aria-valuetext', valueText(facts, Number(slider.value)));
    if (isSteered) {
      setPressed(`${name}-auto`, false);
      element(`row-${name}`).dataset.by = 'hand';
    }
  });
  slider.addEventListener('change', () => {
    held.delete(name);
    leftAt.set(name, performance.now());
  });
}

/** Looks through the camera, or from outside. */
function look(isOutside) {
  page.isOutside = isOutside;
  setPressed('look-through', !isOutside);
  setPressed('look-outside', isOutside);
  setTurns(isOutside);
}

function listen() {
  element('look-through').addEventListener('click', () => look(false));
  element('look-outside').addEventListener('click', () => look(true));
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

/** In the view from outside, dragging and arrows rotate, and the wheel, two fingers and keys zoom. */
function listenToPicture(canvas) {
  listenToTurns(canvas, {
    isTurning: () => page.isOutside,
    turn: (...given) => picture.turn(...given),
    turnBack: () => picture.turnBack(),
  });
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
