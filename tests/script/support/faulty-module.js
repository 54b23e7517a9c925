'use strict';
// The module under test with a planted fault, for tests of what compares builds: after a refresh in which one of the first 20
// nodes is right of x = 19.5, one bit of the world matrix of the second is wrong.
const { modulePath } = require('./host');
const build = require(process.env.NQ_FAULTY || modulePath);

exports.getVersion = build.getVersion;
exports.getEngine = () => {
  const engine = build.getEngine();
  let nodes = null;
  const own = {
    createEntity(is3D, count) {
      const made = engine.constructor.prototype.createEntity.call(engine, is3D, count);
      nodes = nodes || made;
      return made;
    },
    refreshWorldTransform() {
      engine.constructor.prototype.refreshWorldTransform.call(engine);
      const floats = new Float32Array(nodes.buffer);
      const isRight = (_, node) => floats[27 * node + 5] > 19.5;
      if (Array.from({ length: 20 }, isRight).includes(true)) {
        new Uint32Array(nodes.buffer)[27 + 11] ^= 1;
      }
    },
  };
  Object.keys(own).forEach((name) => Object.defineProperty(engine, name, { value: own[name] }));
  return engine;
};
