'use strict';
// Typed views over all records that JavaScript and native code share: they name offsets, check indices, and keep the
// object that owns the memory alive. They allocate nothing per access.
//
// Create a view once per object and reuse it. Getters of several numbers fill an array that the caller passes. For
// performance-critical loops there are raw arrays (`f32`, `u32`) and indices into them (`positionAt(i)`), which check
// nothing.
//
// Written as literal spreads so that ES modules can import the names: Node.js finds them in the source text.
const { blockBytes, blockFloats, blockWords } = require('./block-bytes');

module.exports = {
  blockBytes,
  blockFloats,
  blockWords,
  ...require('./view-entities'),
  ...require('./view-culling'),
  ...require('./view-animation'),
  ...require('./view-lists'),
};
