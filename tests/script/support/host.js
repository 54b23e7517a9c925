'use strict';
// The build under test, from environment variables.

/** Path of the module. */
exports.modulePath = process.env.NQ_MODULE;

/** Path of the test addon, which reaches what script cannot. */
exports.addonPath = process.env.NQ_TEST_ADDON;

const kind = process.env.NQ_BUILD_KIND || 'plain';

/** True where an emulator of another CPU runs the host. */
exports.emulated = kind === 'emulated';

/** 'plain', or the sanitizer: 'address' or 'thread'. */
exports.buildKind = exports.emulated ? 'plain' : kind;

/** True under a sanitizer, where freed memory is kept for a while. */
exports.sanitized = exports.buildKind !== 'plain';

/** True where everything takes many times as long. */
exports.slow = exports.sanitized || exports.emulated;

const abi = process.versions.modules;
const isReference = abi === '72';

/** What hosts show otherwise than the reference, Node 12. Everything else is the same on all of them. */
exports.differences = {
  /** Module ABI, which error messages and symbols name. */
  abi,
  /** What the module exports: the record's static constructor is for Node 12 alone. */
  symbols: [...(isReference ? ['_register_nq_logic_'] : []), `node_register_module_v${abi}`],
  /** Whether the module has a record with a file name. */
  hasRecord: isReference,
  /** Tag of an object whose class is `name`, as Object.prototype.toString gives it. */
  tagOf: (name) => `[object ${isReference ? name : 'Object'}]`,
  /** Whether buffers over native memory say that they are external. */
  marksExternal: isReference,
  /** What becomes of a buffer over the engine's own memory that script transfers: the reference copies it. */
  moveOfEngineBuffer: isReference ? 'copied' : Number(abi) < 137 ? 'moved' : 'refused',
  /** The end of V8's fatal texts, some of which have a full stop on the reference. */
  fatalText: (text) => (isReference ? text : text.replace(/\.$/, '')),
};
