// The page: what the host streams, drawn; and what the hand wants, sent.
import { Chart, kPercentiles, stageColors } from './chart.js';
import { Picture } from './picture.js';
import { Stream } from './stream.js';

const protocol = self.nqProtocol;
const element = (id) => document.getElementById(id);

/** Milliseconds between two times that numbers are shown anew: they are to be read. */
const kNumbersMilliseconds = 250;

/** What a key does from outside: radians, and parts of the distance. */
const kKeyTurn = Math.PI / 36;
const kKeyNearer = 1.1;

/** Pixels of a line, for wheels that count in lines; how much more a pinch on a touchpad says than a wheel. */
const kLinePixels = 16;
const kPinchFactor = 10;

const page = {
  scene: null,
  /** The newest frame, and the number of the last one drawn. */
  frame: null,
  drawn: 0,
  drawings: 0,
  camera: protocol.cameras.perspective,
  isOutside: false,
  isLost: false,
};
let picture = null;
let chart = null;
let stream = null;

/** Sliders that a hand holds: the host's values leave them alone. */
const held = new Set();

function notify(text, code) {
  const notice = element('notice');
  notice.hidden = text === '';
  notice.textContent = text;
  if (code) {
    notice.append(document.createElement('br'));
    notice.append(Object.assign(document.createElement('code'), { textContent: code }));
  }
}

function setStatus(state, text) {
  const status = element('status');
  status.dataset.state = state;
  status.textContent = text;
}

function setPressed(id, isPressed) {
  element(id).setAttribute('aria-pressed', String(isPressed));
}

function percent(value) {
  return `${Math.round(100 * value)} %`;
}

/** What a place between clips is called. */
function crossfadeText(value) {
  const { clips } = page.scene;
  if (clips.length === 2) {
    return `${clips[0]} ${percent(1 - value)}, ${clips[1]} ${percent(value)}`;
  }
  const at = value * (clips.length - 1);
  const near = Math.min(clips.length - 1, Math.round(at));
  return clips.length > 0 ? clips[near] : 'no clips';
}

/** Shows the values of a frame at the sliders. */
function showValues(frame) {
  if (!held.has('crowd')) {
    element('crowd').value = frame.crowd;
  }
  element('crowd-value').textContent = `${element('crowd').value} of ${page.scene.characters}`;
  protocol.sliders.forEach((name, i) => {
    const isByHand = (frame.flags & protocol.flags[name]) !== 0;
    if (!held.has(name)) {
      // While the value is on its way, the thumb stays where the hand has put it.
      if (!isByHand) {
        element(name).value = frame.sliders[i];
      }
      setPressed(`${name}-auto`, !isByHand);
      element(`row-${name}`).dataset.by = isByHand ? 'hand' : 'plan';
    }
    const value = frame.sliders[i];
    element(`${name}-value`).textContent =
      name === 'crossfade' ? crossfadeText(value) : percent(value);
  });
  const isPaused = (frame.flags & protocol.flags.paused) !== 0;
  setPressed('pause', isPaused);
  element('pause').textContent = isPaused ? 'Go on' : 'Pause';
  setStatus(isPaused ? 'paused' : 'live', isPaused ? 'paused' : 'live');
  element('shown').textContent = frame.counts.characters;
  element('crowd-now').textContent = frame.crowd;
}

/** Rates of what arrives, since they were last asked for. */
class Rates {
  constructor() {
    this.last = { time: performance.now(), bytes: 0, drawings: 0, frame: 0, host: 0 };
  }

  /** @returns {{megabytes: number, drawings: number, frames: number}} a second */
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

/** Shows what changes too fast to be read at every frame. */
function showNumbers(frame) {
  const now = performance.now();
  if (now - numbersAt < kNumbersMilliseconds) {
    return;
  }
  numbersAt = now;
  const { frames, drawings, megabytes } = rates.take(frame);
  const bones = (count) => (count * page.scene.bones).toLocaleString('en');
  const facts = [
    ['bones moved', bones(frame.crowd)],
    ['in view, perspective', frame.visible[0]],
    ['in view, overview', frame.visible[1]],
    ['frames computed', `${frames.toFixed(0)} a second`],
    ['frames drawn', `${drawings.toFixed(0)} a second`],
    ['matrices received', `${megabytes.toFixed(1)} MB a second`],
    ['frames left out', frame.skipped.toLocaleString('en')],
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
  element('whole').textContent = `${whole[0].toFixed(2)} ms`;
}

/** A row of the table: what it is of, and a cell for each percentile. */
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

/** Tells the host whose view it is, and its shape. */
function sendView() {
  const { clientWidth, clientHeight } = element('picture');
  if (clientWidth > 0 && clientHeight > 0) {
    const [least, most] = protocol.kAspects;
    const aspect = Math.min(most, Math.max(least, clientWidth / clientHeight));
    stream.send({ camera: page.camera, aspect });
  }
}

function draw() {
  requestAnimationFrame(draw);
  const { frame } = page;
  if (frame === null || page.isLost) {
    return;
  }
  if (frame.frame !== page.drawn) {
    picture.setFrame(frame);
    showValues(frame);
    showNumbers(frame);
    chart.draw();
    page.drawn = frame.frame;
    ++page.drawings;
    stream.send({ drawn: frame.frame });
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
      setStatus('lost', 'no host');
      notify('The host is gone. Start it again, and this page goes on by itself:', 'npm run view');
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
    stream.send({ [name]: valueOf(slider.value) });
    if (name !== 'crowd') {
      setPressed(`${name}-auto`, false);
      element(`row-${name}`).dataset.by = 'hand';
    }
  });
  slider.addEventListener('change', () => held.delete(name));
}

function listen() {
  listenToSlider('crowd', (text) => Number(text));
  for (const name of protocol.sliders) {
    listenToSlider(name, (text) => Number(text));
    element(`${name}-auto`).addEventListener('click', () => {
      const isByHand = element(`${name}-auto`).getAttribute('aria-pressed') === 'false';
      stream.send({ [name]: isByHand ? null : Number(element(name).value) });
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
    stream.send({ paused: element('pause').getAttribute('aria-pressed') === 'false' });
  });
  listenToPicture(element('picture'));
}

/** From outside, the picture takes hands and keys, and says so. */
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

/** What keys do from outside. */
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

/** One finger or the mouse turns the view from outside; two fingers bring it nearer or farther. */
function listenToPointers(canvas) {
  /** Where each finger is. */
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

/** From outside, dragging and arrows turn the view, and the wheel, two fingers and keys scale it. */
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
        // A pinch on a touchpad arrives as a wheel with this key.
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
  notify(`This page needs WebGL 2, and the browser does not give it: ${error.message}`);
  setStatus('lost', 'no picture');
  throw error;
}

// For tests and for the curious, at the browser's console.
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
