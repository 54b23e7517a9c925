'use strict';
// The build under test, from environment variables.

/** Path of the module. */
exports.modulePath = process.env.NQ_MODULE;

/** Path of the test addon, for code that JavaScript can't reach otherwise. */
exports.addonPath = process.env.NQ_TEST_ADDON;

/** True where the module is the engine in WebAssembly, in the form of the native one. */
exports.inWasm = /\bwasm-module\.js$/.test(exports.modulePath || '');

const kind = process.env.NQ_BUILD_KIND || 'plain';

/** True where an emulator of another CPU runs the host. */
exports.emulated = kind === 'emulated';

/** 'plain', or the sanitizer: 'address' or 'thread'. */
exports.buildKind = exports.emulated ? 'plain' : kind;

/** True under a sanitizer, which keeps freed memory in quarantine. */
exports.sanitized = exports.buildKind !== 'plain';

/** True if everything is many times slower. */
exports.slow = exports.sanitized || exports.emulated;

const abi = process.versions.modules;
const isReference = abi === '72';

/** Differences of hosts from the reference, Node 12. Everything else is the same on all of them. */
exports.differences = {
  /** Module ABI, which occurs in error messages and symbols. */
  abi,
  /** Exports of the module: only Node 12 has the record's static constructor. */
  symbols: [...(isReference ? ['_register_nq_logic_'] : []), `node_register_module_v${abi}`],
  /** Whether the module has a record with a file name. */
  hasRecord: isReference,
  /** Tag of an object whose class is `name`, as Object.prototype.toString gives it. */
  tagOf: (name) => `[object ${isReference ? name : 'Object'}]`,
  /** Whether buffers of native memory report that they are external. */
  marksExternal: isReference,
  /** Effect of transferring a buffer of the engine's memory: the reference copies it. */
  moveOfEngineBuffer: isReference ? 'copied' : Number(abi) < 137 ? 'moved' : 'refused',
  /** The end of V8's fatal texts, some of which have a full stop on the reference. */
  fatalText: (text) => (isReference ? text : text.replace(/\.$/, '')),
};
