'use strict';
// The command line of the demo.
const { UserError } = require('./user-error');

const help = `Usage: npm run demo [-- OPTIONS]

Runs a crowd of skinned characters for some frames: JavaScript writes times, weights and positions; the module
blends their clips, computes the transform tree, props that follow their hands and skinning matrices, and
culls for two cameras. Prints what a frame costs, and draws the crowd from its matrices: in colour what the
first camera sees, and below it one character at several times with the weights of its clips and layers.

  --characters N  number of characters, 1 to 2000 (500; with a model 24)
  --model FILE    characters from a glTF 2.0 file (.glb or .gltf) with its clips and its skin; without it,
                  figures of 50 bones that walk, run, carry things and wave them
  --frames N      frames to run, 1 to 100000 (300)
  --seed N        each seed gives another crowd, 0 to 4294967295 (1)
  --out DIR       folder for the picture, scene.png (out)
  --help          this text

Examples:
  npm run demo
  npm run demo -- --characters 50 --seed 7
  npm run demo -- --model Fox.glb --frames 120 --out /tmp/foxes
`;

const defaults = { model: null, characters: null, frames: 300, seed: 1, out: 'out', help: false };
const limits = { characters: [1, 2000], frames: [1, 100000], seed: [0, 0xffffffff] };

/** Default numbers of characters. */
const kFigures = 500;
const kInstances = 24;

/** Maximum number of entities of a crowd: some 200 MB of memory. */
const kMostEntities = 500000;

/**
 * Parses a whole number within an option's limits.
 * @param {string} name of the option, without dashes
 * @param {string} text
 * @param {number[]} limits minimum and maximum
 * @returns {number}
 */
function parseCount(name, text, [least, most]) {
  const value = /^\d+$/.test(text) ? Number(text) : NaN;
  if (!(value >= least && value <= most)) {
    throw new UserError(`--${name} is '${text}': give a whole number from ${least} to ${most}.`);
  }
  return value;
}

/**
 * Parses command-line arguments; `--name value` and `--name=value` are the same.
 * @param {string[]} args
 * @param {Object} values defaults of all options, including `help`
 * @param {Object<string, number[]>} ranges of the options that are whole numbers
 * @returns {Object} values
 * @throws {UserError}
 */
function readArguments(args, values, ranges) {
  const options = Object.assign({}, values);
  const names = Object.keys(values).filter((name) => name !== 'help');
  for (let i = 0; i < args.length; ++i) {
    if (args[i] === '--help' || args[i] === '-h') {
      options.help = true;
      continue;
    }
    const [, name, , inline] = /^--([a-z]+)(=([^]*))?$/.exec(args[i]) || [];
    if (!names.includes(name)) {
      throw new UserError(`unknown argument '${args[i]}': see --help for the options.`);
    }
    const value = inline === undefined ? args[++i] : inline;
    if (value === undefined || value === '' || (inline === undefined && value.startsWith('--'))) {
      throw new UserError(
        `--${name} has no value: write it after the option, as in '--${name} VALUE'.`
      );
    }
    options[name] = name in ranges ? parseCount(name, value, ranges[name]) : value;
  }
  return options;
}

/** Throws unless a crowd fits into memory. */
function checkSize({ name, nodes }, characters) {
  const most = Math.floor(kMostEntities / nodes.length);
  if (characters > most) {
    const trouble = `${characters} of '${name}' with ${nodes.length} nodes each are too many`;
    const cure = most > 0 ? `give --characters up to ${most}` : 'choose a smaller model';
    throw new UserError(`${trouble}: ${cure}.`);
  }
}

/** The default number of characters. */
function usualCount(model) {
  return model === null ? kFigures : kInstances;
}

/**
 * The options of the demo.
 * @param {string[]} args
 * @returns {{model: ?string, characters: number, frames: number, seed: number, out: string,
 *     help: boolean}}
 * @throws {UserError}
 */
function parseOptions(args) {
  const options = readArguments(args, defaults, limits);
  if (options.characters === null) {
    options.characters = usualCount(options.model);
  }
  return options;
}

module.exports = { checkSize, help, limits, parseOptions, readArguments, usualCount };
