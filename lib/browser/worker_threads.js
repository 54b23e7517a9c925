'use strict';
// Instead of Node.js's.
module.exports = { MessageChannel: globalThis.MessageChannel };
