'use strict';
// Rules for includes between folders: arrows point down only.
//
//   nq_logic.cpp  ->  BindingTemp  ->  js-binding (vx, on V8)      wasm (WebAssembly)
//                         |                                          |
//                         v   V8 stops here                          v
//                     Engine/Culling, Engine/Animation, Engine/MatrixFlow   never each other
//                         |
//                         v
//                     Engine/Entity
//                         |
//                         v
//                     Common
const fs = require('fs');
const path = require('path');
const { root } = require('./run');
const { nativeSources } = require('./sources');

const entity = ['Common/', 'Engine/Entity/'];
const binding = ['Common/', 'Engine/', 'jsbinding/', 'BindingTemp/'];

// Rules by path, the first match applies: prefixes of allowed includes, and whether V8 and Node are allowed.
const rules = [
  { files: 'Common/', may: ['Common/'], host: false },
  // The composition root names the systems above its own folder.
  { files: 'Engine/Entity/EngineCore.cpp', may: ['Common/', 'Engine/'], host: false },
  { files: 'Engine/Entity/', may: entity, host: false },
  { files: 'Engine/Culling/', may: [...entity, 'Engine/Culling/'], host: false },
  { files: 'Engine/Animation/', may: [...entity, 'Engine/Animation/'], host: false },
  { files: 'Engine/MatrixFlow/', may: [...entity, 'Engine/MatrixFlow/'], host: false },
  { files: 'Engine/', may: [], host: false },
  { files: 'js-binding/', may: ['jsbinding/'], host: true },
  { files: 'BindingTemp/', may: binding, host: true },
  { files: 'nq_logic.cpp', may: binding, host: true },
  { files: 'wasm/', may: ['Common/', 'Engine/', 'wasm/'], host: false },
  // Tests and benchmarks reach everything, but native ones are programs without a host.
  { files: 'tests/addon/', may: [...binding, 'tests/addon/'], host: true },
  { files: 'tests/', may: [...entity, 'Engine/', 'tests/'], host: false },
  { files: 'bench/', may: [...entity, 'Engine/', 'bench/'], host: false },
  { files: 'cmake/', may: [], host: false },
];

/** The only file that may depend on the version of the host. */
const hostVersions = 'js-binding/include/jsbinding/v8/host.h';

const hostHeader = /^(v8|node|uv|js_native_api|libplatform|cppgc|openssl|zlib)(?![a-z])/;

/**
 * Violations in one file.
 * @param {string} file path from the root
 * @param {string} text its content
 * @returns {string[]} one line each
 */
function violationsIn(file, text) {
  const rule = rules.find(({ files }) => file.startsWith(files));
  if (!rule) {
    return [`${file}: no layer is known for this file`];
  }
  const violations = [];
  text.split('\n').forEach((line, index) => {
    const at = `${file}:${index + 1}`;
    const match = /^\s*#\s*include\s*([<"])([^>"]+)[>"]/.exec(line);
    if (match) {
      const name = match[2];
      const ours =
        match[1] === '"' ||
        /^(Common|Engine|BindingTemp|js-binding|jsbinding|tests|bench)\//.test(name);
      if (ours && !rule.may.some((prefix) => name.startsWith(prefix))) {
        violations.push(`${at}: may not include "${name}"`);
      } else if (ours && name.split('/').includes('..')) {
        violations.push(`${at}: include by path from the root, not "${name}"`);
      } else if (!ours && hostHeader.test(name) && !rule.host) {
        violations.push(`${at}: may not include <${name}>: V8 and Node stop above this layer`);
      }
    }
    if (file.startsWith('js-binding/') && /\bnq::|\bnamespace nq\b|\bNQ_/.test(line)) {
      violations.push(`${at}: the binding library knows nothing of what is bound`);
    }
    if (
      file !== hostVersions &&
      /\b(V8_(MAJOR|MINOR)|NODE_(MAJOR|MINOR|MODULE))_VERSION\b/.test(line)
    ) {
      violations.push(`${at}: what hosts differ in belongs in ${hostVersions}`);
    }
    if (!rule.host && /\bv8::|\bnode::/.test(line.replace(/\/\/.*/, ''))) {
      violations.push(`${at}: V8 and Node stop above this layer`);
    }
  });
  return violations;
}

/**
 * Violations in the whole tree.
 * @returns {string[]} one line each
 */
function findLayeringViolations() {
  return [].concat(
    ...nativeSources().map((file) =>
      violationsIn(file, fs.readFileSync(path.join(root, file), 'utf8'))
    )
  );
}

module.exports = { findLayeringViolations, violationsIn };
