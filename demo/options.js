'use strict';
// The command line of the demo.
const { UserError } = require('./user-error');

const help = `Usage: npm run demo [-- OPTIONS]

Builds a tree of entities, animates it for some frames, culls it by two cameras, and shows what a frame
costs, what the tree looks like, and which of it the first camera sees: that is in colour.

  --model FILE   a glTF 2.0 file (.glb or .gltf), driven by its first animation clip;
                 without it, a dance of jointed figures around a tree
  --figures N    figures of the dance, 1 to 2000 (96)
  --frames N     frames to animate, 1 to 100000 (300)
  --out DIR      folder for the picture, scene.png (out)
  --help         this text

Examples:
  npm run demo
  npm run demo -- --model Fox.glb --frames 120
  npm run demo -- --figures 600 --out /tmp/crowd
`;

const defaults = { model: null, figures: 96, frames: 300, out: 'out', help: false };
const limits = { figures: 2000, frames: 100000 };

/**
 * A whole number from 1 up to the option's limit.
 * @param {string} name of the option, without dashes
 * @param {string} text
 * @returns {number}
 */
function parseCount(name, text) {
  const value = /^\d+$/.test(text) ? Number(text) : 0;
  if (value < 1 || value > limits[name]) {
    const range = `1 to ${limits[name]}`;
    throw new UserError(`--${name} is '${text}': give a whole number from ${range}.`);
  }
  return value;
}

/**
 * Reads the arguments behind the script's name; `--name value` and `--name=value` are the same.
 * @param {string[]} args
 * @returns {{model: ?string, figures: number, frames: number, out: string, help: boolean}}
 * @throws {UserError}
 */
function parseOptions(args) {
  const options = Object.assign({}, defaults);
  let figuresGiven = false;
  for (let i = 0; i < args.length; ++i) {
    if (args[i] === '--help' || args[i] === '-h') {
      options.help = true;
      continue;
    }
    const [, name, , inline] = /^--([a-z]+)(=([^]*))?$/.exec(args[i]) || [];
    if (!['model', 'figures', 'frames', 'out'].includes(name)) {
      throw new UserError(`unknown argument '${args[i]}': see --help for those there are.`);
    }
    const value = inline === undefined ? args[++i] : inline;
    if (value === undefined || value === '' || (inline === undefined && value.startsWith('--'))) {
      throw new UserError(`--${name} has no value: write it behind, as in '--${name} VALUE'.`);
    }
    options[name] = name in limits ? parseCount(name, value) : value;
    figuresGiven = figuresGiven || name === 'figures';
  }
  if (options.model !== null && figuresGiven) {
    throw new UserError('--figures is about the dance, not about a model: leave one of them out.');
  }
  return options;
}

module.exports = { help, parseOptions };
