'use strict';
// The crowd of the scene workload: that of the demo, its plan and its cameras, the same for all contenders.
const { createFigure } = require('../../../demo/figure');
const { createKind } = require('../../../demo/kind');
const { LapPlan, PlacePlan } = require('../../../demo/plan');
const { dealProps } = require('../../../demo/props');

/** Seconds of a frame. */
const frameSeconds = 1 / 60;

const seed = 1;

/** Bounds of a figure in all of its clips, about its position. */
const figureBounds = { middle: [0, 0.95, 0], radius: 1.25 };

/** Metres from the middle of a crowd to its edge, about: rings 1.75 apart, on which each figure has 1.6 metres. */
const edgeOf = (characters) => 4 + Math.sqrt((1.75 * 1.6 * characters) / Math.PI);

/**
 * The cameras: a perspective one at the edge that sees a part of the crowd, and an orthographic one from above.
 * @param {number} characters
 */
function createCameras(characters) {
  const edge = edgeOf(characters);
  const up = [0, 1, 0];
  return {
    perspective: {
      eye: [-edge, 0.25 * edge, 0.6 * edge],
      target: [0, 0, 0],
      up,
      fov: 0.6,
      aspect: 2.2,
      near: 0.1 * edge,
      far: 2 * edge,
    },
    overview: {
      eye: [0, 2 * edge, 0],
      target: [0, 0, 0],
      up: [0, 0, -1],
      left: -0.5 * edge,
      right: 0.5 * edge,
      bottom: -0.5 * edge,
      top: 0.5 * edge,
      near: 0,
      far: 4 * edge,
    },
  };
}

/**
 * A crowd of figures that walk and run on rings, or blend the two in place.
 * @param {boolean} isLayered whether they have controllers with layers, and props in their hands; else animators
 * @param {number} characters
 */
function createCrowdScene(isLayered, characters) {
  const figure = createFigure();
  const kind = isLayered ? figure : createKind(Object.assign(figure, { layers: null }));
  const cast = isLayered ? dealProps(kind.layers.props.length, characters, seed) : [];
  return {
    kind,
    characters,
    cast,
    bounds: figureBounds,
    cameras: createCameras(characters),
    /** A plan in its initial state: each contender advances its own. */
    createPlan: () =>
      isLayered
        ? new LapPlan(kind.clips, characters, seed, cast)
        : new PlacePlan(kind.clips, characters, figureBounds.radius, seed),
  };
}

module.exports = { createCrowdScene, frameSeconds };
