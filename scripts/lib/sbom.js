'use strict';
// The software bill of materials of the npm package, in CycloneDX's JSON: its binaries with their checksums, what is
// compiled or statically linked into each, with versions and licences, and what each loads. The same files and build
// tools give the same bytes.
const crypto = require('crypto');
const fs = require('fs');
const path = require('path');
const { packages } = require('./bundle');
const { arm64, hostFolder, platform } = require('./hosts');
const { output, root } = require('./run');

/** Its path in the package. */
const sbomFile = 'sbom.cdx.json';

/** The document with the texts of the licences, in the package. */
const noticesFile = 'THIRD-PARTY-NOTICES.md';

/** Platforms of the module in WebAssembly, and of the bundles for browsers. */
const wasmPlatform = 'wasm';
const bundlePlatform = 'browser';

/** Libraries that a module may load: they belong to the system or to the host. */
const systemLibraries =
  /^(libstdc\+\+\.so\.6|libm\.so\.6|libgcc_s\.so\.1|libc\.so\.6|ld-linux-(x86-64\.so\.2|aarch64\.so\.1))$/;

/**
 * What is compiled or statically linked into a module, besides our own sources.
 * @typedef {Object} Part
 * @property {string} name
 * @property {string} license SPDX expression
 * @property {string} use what of it is in the module
 * @property {function({name: string, on: string, file: string}): string} versionOf
 * @property {string[]} [platforms] default: those of the native modules
 * @property {boolean} [isPackage] of npm
 */

/** The values of macros of a header. */
function macrosOf(file, names) {
  const text = fs.readFileSync(file, 'utf8');
  return names.map((name) => {
    const found = new RegExp(`^\\s*#\\s*define\\s+${name}\\s+(\\d+)`, 'm').exec(text);
    if (found === null) {
      throw new Error(`${file} does not define ${name}: check the version of its package.`);
    }
    return found[1];
  });
}

const headerOf = (name, on, file) => path.join(hostFolder(name, on), 'include/node', file);

/** @type {Part[]} */
const parts = [
  {
    name: 'node',
    license: 'MIT',
    use: 'inline functions of headers',
    versionOf: ({ name, on }) =>
      macrosOf(headerOf(name, on, 'node_version.h'), [
        'NODE_MAJOR_VERSION',
        'NODE_MINOR_VERSION',
        'NODE_PATCH_VERSION',
      ]).join('.'),
  },
  {
    name: 'v8',
    license: 'BSD-3-Clause',
    use: 'inline functions of headers',
    versionOf: ({ name, on }) =>
      macrosOf(headerOf(name, on, 'v8-version.h'), [
        'V8_MAJOR_VERSION',
        'V8_MINOR_VERSION',
        'V8_BUILD_NUMBER',
        'V8_PATCH_LEVEL',
      ]).join('.'),
  },
  {
    name: 'gcc',
    license: 'GPL-3.0-or-later WITH GCC-exception-3.1',
    use: 'templates of libstdc++, and functions of libgcc.a and crtbeginS.o',
    versionOf({ file }) {
      const comment = output('readelf', ['-p', '.comment', file]) || '';
      const [, version] = /GCC: \(.*\) (\d+\.\d+\.\d+)/.exec(comment) || [];
      if (version === undefined) {
        throw new Error(`${file} does not name its compiler: build it with g++, unstripped.`);
      }
      return version;
    },
  },
  {
    name: 'glibc',
    license: 'LGPL-2.1-or-later',
    use: 'startup code of crti.o and libc_nonshared.a, whose notices permit linking without conditions',
    versionOf: ({ on }) =>
      macrosOf(
        on === platform ? '/usr/include/features.h' : '/usr/aarch64-linux-gnu/include/features.h',
        ['__GLIBC__', '__GLIBC_MINOR__']
      ).join('.'),
  },
  {
    name: 'simde',
    license: 'MIT',
    use: 'inline functions of headers',
    platforms: [arm64, wasmPlatform],
    versionOf: () =>
      macrosOf('/usr/include/simde/simde-common.h', [
        'SIMDE_VERSION_MAJOR',
        'SIMDE_VERSION_MINOR',
        'SIMDE_VERSION_MICRO',
      ]).join('.'),
  },
  {
    name: 'wasi-libc',
    license: 'MIT AND BSD-2-Clause AND CC0-1.0',
    use: 'functions of libc.a, libc-printscan-no-floating-point.a and crt1-reactor.o',
    platforms: [wasmPlatform],
    versionOf: () => versionOfDebian('wasi-libc'),
  },
  {
    name: 'libcxx',
    license: 'Apache-2.0 WITH LLVM-exception',
    use: 'templates and functions of libc++.a, which contains libc++abi',
    platforms: [wasmPlatform],
    versionOf() {
      const version = output('clang++-19', ['-dumpversion']);
      if (version === null) {
        throw new Error("there is no clang++-19: run 'node scripts/setup.js wasm'.");
      }
      return version.trim();
    },
  },
  ...packages.map((name) => ({
    name,
    license: 'MIT',
    use: 'all that the importer of models needs',
    platforms: [bundlePlatform],
    isPackage: true,
    versionOf: () => descriptionOf(name).version,
  })),
];

function descriptionOf(name) {
  const file = path.join(root, 'node_modules', name, 'package.json');
  return JSON.parse(fs.readFileSync(file, 'utf8'));
}

/** The version of an installed Debian package. */
function versionOfDebian(name) {
  const version = output('dpkg-query', ['-W', '-f', '${Version}', name]);
  if (version === null || version === '') {
    throw new Error(`there is no package ${name}: run 'node scripts/setup.js wasm'.`);
  }
  return version;
}

/** Reference of a part, its package URL. */
function referenceOf({ name, isPackage }, version) {
  const kind = isPackage ? 'npm' : 'generic';
  return `pkg:${kind}/${name.replace('@', '%40')}@${version}`;
}

/** Libraries that a module loads. */
function neededLibraries(file) {
  const table = output('readelf', ['-d', file]);
  if (table === null) {
    throw new Error(`readelf can't read ${file}: install binutils.`);
  }
  return [...table.matchAll(/\(NEEDED\).*\[(.*)\]/g)].map(([, name]) => name).sort();
}

/** A UUID that depends only on a text. */
function uuidOf(text) {
  const hex = crypto.createHash('sha256').update(text).digest('hex');
  const variant = ((parseInt(hex[16], 16) & 3) | 8).toString(16);
  return [
    hex.slice(0, 8),
    hex.slice(8, 12),
    `5${hex.slice(13, 16)}`,
    variant + hex.slice(17, 20),
    hex.slice(20, 32),
  ].join('-');
}

/**
 * The bill of materials.
 * @param {import('./package').PackedModule[]} modules as built
 * @param {function(string, string): string} prebuildOf path in the package of a module
 * @param {string} [folder] of the package, with its stripped modules
 * @returns {Object}
 * @throws {Error} if a module loads an unknown library, or its parts have no version
 */
function billOfMaterials(modules, prebuildOf, folder = root) {
  const description = JSON.parse(fs.readFileSync(path.join(root, 'package.json'), 'utf8'));
  const { name, version, license } = description;
  const own = `pkg:npm/${name}@${version}`;
  const libraries = new Map();
  const binaries = [];
  const dependencies = [];
  for (const module of modules) {
    const target = prebuildOf(module.name, module.on);
    const isNative = module.on !== wasmPlatform && module.on !== bundlePlatform;
    const needed = isNative ? neededLibraries(module.file) : [];
    const unknown = needed.find((library) => !systemLibraries.test(library));
    if (unknown !== undefined) {
      throw new Error(`${module.file} loads ${unknown}, which no system has: link it differently.`);
    }
    const used = parts
      .filter(({ platforms = [platform, arm64] }) => platforms.includes(module.on))
      .map((part) => {
        const reference = referenceOf(part, part.versionOf(module));
        libraries.set(reference, part);
        return reference;
      });
    const bytes = fs.readFileSync(path.join(folder, target));
    binaries.push({
      type: 'file',
      'bom-ref': target,
      name: target,
      version,
      hashes: [
        { alg: 'SHA-256', content: crypto.createHash('sha256').update(bytes).digest('hex') },
      ],
      licenses: [{ license: { id: license } }],
      properties: needed.map((library) => ({ name: 'nq_logic:loads', value: library })),
    });
    dependencies.push({ ref: target, dependsOn: used });
  }
  const linked = [...libraries].sort(([a], [b]) => (a < b ? -1 : 1));
  const bill = {
    bomFormat: 'CycloneDX',
    specVersion: '1.5',
    version: 1,
    metadata: {
      component: {
        type: 'library',
        'bom-ref': own,
        name,
        version,
        purl: own,
        licenses: [{ license: { id: license } }],
      },
    },
    components: [
      ...binaries,
      ...linked.map(([reference, part]) => ({
        type: 'library',
        'bom-ref': reference,
        name: part.name,
        version: reference.split('@').pop(),
        description: part.use,
        purl: reference,
        licenses: part.license.includes(' ')
          ? [{ expression: part.license }]
          : [{ license: { id: part.license } }],
      })),
    ],
    dependencies: [
      { ref: own, dependsOn: binaries.map(({ name: file }) => file) },
      ...dependencies,
      ...linked.map(([reference]) => ({ ref: reference, dependsOn: [] })),
    ],
  };
  const serialNumber = `urn:uuid:${uuidOf(JSON.stringify(bill))}`;
  return Object.assign(
    { bomFormat: bill.bomFormat, specVersion: bill.specVersion, serialNumber },
    bill
  );
}

/**
 * Writes the bill of materials into the package.
 * @param {import('./package').PackedModule[]} modules as built
 * @param {function(string, string): string} prebuildOf
 * @param {string} [folder] of the package
 * @returns {string} its path there
 */
function writeSbom(modules, prebuildOf, folder = root) {
  const text = JSON.stringify(billOfMaterials(modules, prebuildOf, folder), null, 2);
  fs.writeFileSync(path.join(folder, sbomFile), `${text}\n`);
  return sbomFile;
}

module.exports = {
  billOfMaterials,
  bundlePlatform,
  noticesFile,
  parts,
  sbomFile,
  systemLibraries,
  wasmPlatform,
  writeSbom,
};
