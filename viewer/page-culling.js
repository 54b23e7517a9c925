'use strict';
// Culling for pages: each aspect ratio of a page has its own two cameras, and the crowd is culled for each.
const { createOverviewCamera, createPerspectiveCamera } = require('../demo/cameras');

/**
 * The cameras of a page.
 * @param {import('../demo/bounds').Bounds} bounds of the crowd
 * @param {number} aspect width over height
 * @returns {{perspective: import('../demo/cameras').PerspectiveCamera,
 *     overview: import('../demo/cameras').OrthographicCamera}}
 */
function createCameras(bounds, aspect) {
  const overview = createOverviewCamera(bounds);
  // The shorter side of the view shows as much as a square view.
  const [wide, high] = aspect > 1 ? [aspect, 1] : [1, 1 / aspect];
  return {
    perspective: Object.assign(createPerspectiveCamera(bounds), { aspect }),
    overview: Object.assign(overview, {
      left: overview.left * wide,
      right: overview.right * wide,
      bottom: overview.bottom * high,
      top: overview.top * high,
    }),
  };
}

/**
 * An aspect ratio of pages, and the last views of its cameras.
 * @typedef {Object} Shape
 * @property {{perspective: Object, overview: Object}} cameras
 * @property {{perspective: ?import('../demo/culling').View, overview: ?import('../demo/culling').View}} views
 */

/** Replaces the culling of a stage; pages of one aspect ratio share their cameras. */
class PageCulling {
  /**
   * @param {import('../demo/culling').CrowdCulling} culling
   * @param {import('../demo/bounds').Bounds} bounds
   */
  constructor(culling, bounds) {
    this.culling = culling;
    /** The aspect ratio of pages that have not yet sent theirs. */
    this.usualAspect = culling.perspective.aspect;
    /** @type {Map<number, Shape>} by width over height */
    this.shapes = new Map();
    this.setShapes(bounds, [this.usualAspect]);
  }

  /**
   * Sets the aspect ratios for which the next frame is culled, and their cameras.
   * @param {import('../demo/bounds').Bounds} bounds
   * @param {Iterable<number>} aspects
   */
  setShapes(bounds, aspects) {
    this.shapes.clear();
    for (const aspect of aspects) {
      if (!this.shapes.has(aspect)) {
        const views = { perspective: null, overview: null };
        this.shapes.set(aspect, { cameras: createCameras(bounds, aspect), views });
      }
    }
  }

  /** Culls for the perspective cameras of all aspect ratios. */
  cullPerspective() {
    const { culling } = this;
    this.shapes.forEach(({ cameras, views }) => {
      culling.perspective = cameras.perspective;
      culling.cullPerspective();
      views.perspective = culling.views.perspective;
    });
  }

  /** Culls for the overview cameras of all aspect ratios. */
  cullOverview() {
    const { culling } = this;
    this.shapes.forEach(({ cameras, views }) => {
      culling.overview = cameras.overview;
      culling.cullOverview();
      views.overview = culling.views.overview;
    });
  }

  characterOf(handle) {
    return this.culling.characterOf(handle);
  }

  enable(count) {
    this.culling.enable(count);
  }

  visible(view) {
    return this.culling.visible(view);
  }
}

module.exports = { PageCulling };
