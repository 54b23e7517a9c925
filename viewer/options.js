'use strict';
// The command line of the viewer.
const { limits, readArguments, usualCount } = require('../demo/options');
const { UserError } = require('../demo/user-error');
const { moduleAbis } = require('../lib/load');

const help = `Usage: npm run view [-- OPTIONS]

Shows a crowd of skinned characters live in a browser: this program computes the frames and streams the
matrices of the visible characters to a page on this machine. The page draws them, lets you change the crowd
while it runs, and charts what each stage of a frame costs. Open the printed address; Ctrl+C ends the server.

  --characters N  maximum number, 1 to 2000 (500; with a model 24); the page sets the current number
  --model FILE    characters from a glTF 2.0 file (.glb or .gltf) with its clips and its skin; without it,
                  figures of 50 bones that walk, run, carry things and wave them
  --port N        port of the page, on 127.0.0.1 only; 0 for any free port (8072)
  --seed N        each seed gives another crowd, 0 to 4294967295 (1)
  --help          this text

Examples:
  npm run view
  npm run view -- --characters 2000
  npm run view -- --model Fox.glb --port 0
`;

const defaults = { model: null, characters: null, port: 8072, seed: 1, help: false };
const ranges = { characters: limits.characters, port: [0, 65535], seed: limits.seed };

/**
 * Parses the command-line arguments.
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
 * Throws if this runtime can't load the module.
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
