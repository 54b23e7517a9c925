'use strict';
/**
 * The engine in WebAssembly: the same core as the native module, for browsers and for systems without a native
 * binary. {@link load} gives an engine for all of the library, including `nq_logic/scene`.
 *
 * @module nq_logic/wasm
 */
const { isArrayBuffer, isInstance, isObject, show } = require('./value-checks');
const { engineOf } = require('./wasm/engine');
const files = require('./wasm/files');
const { Instance, pagesOf } = require('./wasm/instance');

/**
 * @typedef {import('../types/engine').WasmEngine} WasmEngine
 */

/** Bytes of memory of an engine, unless the program wants another size. */
const kDefaultBytes = 64 * 1024 * 1024;

/** The smallest memory that an engine starts in, and the largest that exists. */
const kLeastBytes = 4 * 1024 * 1024;
const kMostBytes = 65536 * 65536;

/**
 * Options of an engine.
 * @typedef {Object} WasmOptions
 * @property {number} [memory] Bytes of the engine's memory, from 4 MiB to 4 GiB; rounded up to whole pages of 64 KiB.
 *   Default 64 MiB, enough for some 200,000 entities. It never grows: typed arrays over it stay valid.
 * @property {(text: string) => void} [log] Takes what the engine logs, one line or more with their line feeds. The
 *   default writes to standard output, and in browsers to the console.
 */

/**
 * Source of the WebAssembly module: a `WebAssembly.Module`, its bytes, a `Response`, or an address as a `URL` or a
 * string. In Node.js a string without a scheme is the path of a file.
 * @typedef {object | string} WasmSource
 */

/**
 * Options of {@link load}: those of an engine, and the module.
 * @typedef {WasmOptions & { module?: WasmSource | Promise<WasmSource> }} WasmLoadOptions
 */

/** Text of the console, whose lines end without a line feed. */
function logToConsole() {
  let line = '';
  return (text) => {
    const lines = (line + text).split('\n');
    line = lines.pop();
    lines.forEach((one) => console.log(one));
  };
}

function checkOptions(options) {
  if (!isObject(options)) {
    throw new TypeError(`load: options is ${show(options)}: give an object.`);
  }
  const { memory = kDefaultBytes, log } = options;
  if (typeof memory !== 'number' || !(memory >= kLeastBytes && memory <= kMostBytes)) {
    const cure = `give a number of bytes from ${kLeastBytes} to ${kMostBytes}`;
    throw new RangeError(`load: memory is ${show(memory)}: ${cure}.`);
  }
  if (log !== undefined && typeof log !== 'function') {
    throw new TypeError(`load: log is ${show(log)}: give a function that takes a text.`);
  }
  return { pages: pagesOf(memory), log: log || files.writeLog || logToConsole() };
}

/** An instance that is not started yet. */
function makeInstance(options) {
  const { pages, log } = checkOptions(options);
  let memory;
  try {
    memory = new WebAssembly.Memory({ initial: pages, maximum: pages });
  } catch (error) {
    const found = `this system has no ${pages * 65536} bytes of memory (${error.message})`;
    throw new RangeError(`load: ${found}: give a smaller 'memory'.`);
  }
  return new Instance(memory, log);
}

/** The bytes or the compiled module of a source, or a promise of them. */
async function readSource(source) {
  const given = await source;
  if (given === undefined) {
    return readSource(files.standardModule());
  }
  if (typeof given === 'string' || isInstance(given, URL)) {
    return files.readModule(given);
  }
  return given;
}

async function compile(source) {
  const given = await readSource(source);
  if (isInstance(given, WebAssembly.Module)) {
    return given;
  }
  if (typeof Response === 'function' && isInstance(given, Response)) {
    if (!given.ok) {
      const found = `${given.url} could not be loaded, status ${given.status}`;
      throw new Error(`load: ${found}: give the address of nq_logic.wasm as 'module'.`);
    }
    return compile(await given.arrayBuffer());
  }
  if (isArrayBuffer(given) || ArrayBuffer.isView(given)) {
    return WebAssembly.compile(given);
  }
  const cure = 'give a WebAssembly.Module, bytes, a Response, or an address';
  throw new TypeError(`load: module is ${show(given)}: ${cure}.`);
}

/** The module of the package, compiled once, so that further engines start at once. */
const standard = { promise: null };

function moduleOf(source) {
  if (source !== undefined) {
    return compile(source);
  }
  if (standard.promise === null) {
    standard.promise = compile(undefined);
    standard.promise.catch(() => {
      standard.promise = null;
    });
  }
  return standard.promise;
}

/**
 * Creates an engine in WebAssembly, with a memory of its own. What the native module does on four threads runs on the
 * calling one. Objects have `block` instead of `buffer`.
 *
 * The memory has a fixed size: a call that needs more throws a RangeError with code 'ERR_NQ_MEMORY'. Call `dispose` on
 * objects that are no longer used; garbage collection releases them, too, but does not know how much memory they hold.
 *
 * Where a call ends the process natively, it throws here, with the text of the assertion, and so does every later call
 * of the engine.
 * @param {WasmLoadOptions} [options]
 * @returns {Promise<WasmEngine>}
 */
async function load(options = {}) {
  const instance = makeInstance(options);
  const module = await moduleOf(options.module);
  const { exports } = await WebAssembly.instantiate(module, instance.imports());
  instance.start(exports);
  return engineOf(instance);
}

/**
 * The same without waiting, where the module is compiled already, or its bytes are given: for Node.js and worker
 * threads. Browsers refuse to compile large modules on their main thread this way.
 * @param {WasmOptions & { module?: object }} [options] `module` is a
 *   `WebAssembly.Module`, or bytes; in Node.js the default is the module of the package
 * @returns {WasmEngine}
 */
function loadSync(options = {}) {
  const instance = makeInstance(options);
  const { module = files.readStandardModule() } = options;
  const isBytes = isArrayBuffer(module) || ArrayBuffer.isView(module);
  if (!isBytes && !isInstance(module, WebAssembly.Module)) {
    const cure = 'give a WebAssembly.Module or bytes';
    throw new TypeError(`loadSync: module is ${show(module)}: ${cure}.`);
  }
  const compiled = isBytes ? new WebAssembly.Module(module) : module;
  instance.start(new WebAssembly.Instance(compiled, instance.imports()).exports);
  return engineOf(instance);
}

/**
 * The version of the core, as the native module reports it.
 * @returns {{ version: string }}
 */
function getVersion() {
  return { version: '138' };
}

module.exports = { getVersion, load, loadSync };
