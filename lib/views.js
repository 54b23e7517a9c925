'use strict';
// Typed views over all records that script and native code share: names for offsets, checks of indices, and the
// object that owns the memory kept alive. They allocate nothing per access.
//
// A view is made once for an object, and used for its life. Getters of several numbers fill an array that
// they are given. Raw arrays (`f32`, `u32`) and indices into them (`positionAt(i)`) are there for loops where
// checks matter: these check nothing.
//
// Written out like this, the names can be imported by ES modules, too: the host looks for them in the text.
module.exports = {
  ...require('./view-entities'),
  ...require('./view-culling'),
  ...require('./view-animation'),
  ...require('./view-lists'),
};
