// Turning a view by pointers, wheel and keys.

/** Steps of keys: radians, and factor of the distance. */
const kKeyTurn = Math.PI / 36;
const kKeyNearer = 1.1;

/** Pixels per line, for wheels that report lines; factor of a touchpad's pinch relative to a wheel. */
const kLinePixels = 16;
const kPinchFactor = 10;

/**
 * A view that can be turned.
 * @typedef {Object} TurningView
 * @property {function(): boolean} isTurning whether it reacts now
 * @property {function(): boolean} [isZooming] whether it reacts to the wheel now, by default as `isTurning`
 * @property {function(number, number, number=)} turn rotates by radians, and scales the distance
 * @property {function()} turnBack resets it
 */

/** Actions of keys. */
const keys = {
  ArrowLeft: (view) => view.turn(-kKeyTurn, 0),
  ArrowRight: (view) => view.turn(kKeyTurn, 0),
  ArrowUp: (view) => view.turn(0, kKeyTurn),
  ArrowDown: (view) => view.turn(0, -kKeyTurn),
  '+': (view) => view.turn(0, 0, 1 / kKeyNearer),
  '=': (view) => view.turn(0, 0, 1 / kKeyNearer),
  '-': (view) => view.turn(0, 0, kKeyNearer),
  Home: (view) => view.turnBack(),
};

/** One finger or the mouse rotates; two fingers zoom. */
function listenToPointers(canvas, view) {
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
    if (!view.isTurning()) {
      return;
    }
    if (fingers.size === 1) {
      const radians = Math.PI / canvas.clientHeight;
      view.turn(-x * radians, y * radians);
    } else if (fingers.size === 2) {
      view.turn(0, 0, before / apart());
    }
  });
  for (const type of ['pointerup', 'pointercancel', 'lostpointercapture']) {
    canvas.addEventListener(type, (event) => fingers.delete(event.pointerId));
  }
}

/**
 * Dragging and arrows rotate a view, and the wheel, two fingers and keys zoom.
 * @param {HTMLCanvasElement} canvas
 * @param {TurningView} view
 */
export function listenToTurns(canvas, view) {
  const isZooming = view.isZooming || view.isTurning;
  listenToPointers(canvas, view);
  canvas.addEventListener('keydown', (event) => {
    const act = Object.prototype.hasOwnProperty.call(keys, event.key) ? keys[event.key] : null;
    if (view.isTurning() && act !== null && !event.ctrlKey && !event.metaKey && !event.altKey) {
      event.preventDefault();
      act(view);
    }
  });
  canvas.addEventListener(
    'wheel',
    (event) => {
      if (isZooming()) {
        event.preventDefault();
        const lines = event.deltaMode === WheelEvent.DOM_DELTA_LINE ? kLinePixels : 1;
        // Browsers report a touchpad's pinch as a wheel event with Ctrl.
        const pinch = event.ctrlKey ? kPinchFactor : 1;
        view.turn(0, 0, Math.exp(event.deltaY * lines * pinch * 0.001));
      }
    },
    { passive: false }
  );
}
