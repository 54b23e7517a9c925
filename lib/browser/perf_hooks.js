'use strict';
// Instead of Node.js's.
module.exports = { performance: globalThis.performance };
