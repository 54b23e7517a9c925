'use strict';
// The command line of the viewer.
const { limits, readArguments, usualCount } = require('../demo/options');
const { UserError } = require('../demo/user-error');
const { moduleAbis } = require('../lib/load');

const help = `Usage: npm run view [-- OPTIONS]

Shows a crowd of skinned characters in a browser, live: this program runs the frames and streams the
matrices of what a camera sees to a page on this machine, which draws them, lets you change the crowd while
it runs, and charts what each stage of a frame costs. Open the address that it prints; Ctrl+C ends it.

  --characters N  how many at most, 1 to 2000 (500; of a model 24); the page chooses how many of them
  --model FILE    characters from a glTF 2.0 file (.glb or .gltf) with its clips and its skin; without it,
                  figures of 50 bones that walk, run, carry things and wave them
  --port N        where the page is, on 127.0.0.1 only; 0 for any that is free (8072)
  --seed N        another crowd for each, 0 to 4294967295 (1)
  --help          this text

Examples:
  npm run view
  npm run view -- --characters 2000
  npm run view -- --model Fox.glb --port 0
`;

const defaults = { model: null, characters: null, port: 8072, seed: 1, help: false };
const ranges = { characters: limits.characters, port: [0, 65535], seed: limits.seed };

/**
 * Reads the arguments behind the script's name.
 * @param {string[]} args
 * @returns {{model: ?string, characters: number, port: number, seed: number, help: boolean}}
 * @throws {UserError}
 */
function parseOptions(args) {
  const options = readArguments(args, defaults, ranges);
  if (options.characters === null) {
    options.characters = usualCount(options.model);
  }
  return options;
}

/**
 * Throws where the module can't be loaded, whatever its file.
 * @param {{node: string, modules: string}} versions
 * @throws {UserError}
 */
function checkRuntime({ node, modules }) {
  const abis = moduleAbis[`${process.platform}-${process.arch}`] || [];
  if (!abis.includes(modules)) {
    const trouble = `Node ${node} (ABI ${modules}) can't load the module, which is for others`;
    throw new UserError(`${trouble}: start the viewer with 'npm run view', which picks one.`);
  }
}

module.exports = { checkRuntime, help, parseOptions };
