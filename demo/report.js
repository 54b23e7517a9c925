'use strict';
// The output of the demo: progress while it runs, tables at its end.
const { SingleBar } = require('cli-progress');
const Table = require('cli-table3');
const { median } = require('./bounds');
const { legendOf } = require('./picture');
const { stages } = require('./stage');
const { oneLine } = require('./user-error');

/** Terminal columns for the middle cells, which hold names: the table then fits into 100. */
const kNameColumns = 50;

/** Titles of the stages of a frame. */
const stageTitles = {
  script: 'JavaScript writes',
  animate: 'animate',
  transform: 'transform',
  skin: 'skin',
  perspective: 'cull, perspective camera',
  overview: 'cull, orthographic overview',
};

/**
 * Shows the progress of a run: a bar on a terminal, else a line at every quarter.
 * @param {number} frames of the whole run
 * @param {NodeJS.WriteStream} [stream]
 * @returns {{update: function(number), stop: function()}}
 */
function createProgress(frames, stream = process.stdout) {
  if (stream.isTTY) {
    const format = 'animating [{bar}] {value}/{total} frames';
    const bar = new SingleBar({ format, stream, barCompleteChar: '=', barIncompleteChar: ' ' });
    bar.start(frames, 0);
    return { update: (done) => bar.update(done), stop: () => bar.stop() };
  }
  let quarters = 0;
  return {
    update(done) {
      const reached = Math.floor((4 * done) / frames);
      if (reached > quarters) {
        quarters = reached;
        stream.write(`animating: ${done} of ${frames} frames\n`);
      }
    },
    stop() {},
  };
}

/** A whole number with separators of thousands. */
function grouped(value) {
  return String(value).replace(/\B(?=(\d{3})+$)/g, ',');
}

/** A hash as eight hexadecimal digits. */
function formatHash(hash) {
  return hash.toString(16).padStart(8, '0');
}

function megabytes(bytes) {
  return `${(bytes / 2 ** 20).toFixed(1)} MB`;
}

/** A table with a line only below its head; numbers are right-aligned. */
function createTable(head, colAligns = ['left', 'right', 'right']) {
  return new Table({
    head,
    style: { head: [], border: [] },
    chars: { mid: '', 'left-mid': '', 'mid-mid': '', 'right-mid': '' },
    colAligns,
  });
}

/** Upper bound of a text's width in terminal columns: East Asian characters and emoji take two. */
function columnsOf(text) {
  return Array.from(text).reduce((sum, letter) => sum + (letter >= '\u1100' ? 2 : 1), 0);
}

/** A text in one line, truncated to a number of columns. */
function shortened(text, columns) {
  const letters = Array.from(oneLine(text));
  if (columnsOf(letters.join('')) <= columns) {
    return letters.join('');
  }
  while (columnsOf(letters.join('')) > columns - 1) {
    letters.pop();
  }
  return `${letters.join('')}…`;
}

/** A list of names; if it is too long, the first ones and the number of the others. */
function formatNames(names) {
  let text = names.map((name) => shortened(name, kNameColumns)).join(', ');
  for (let count = names.length - 1; columnsOf(text) > kNameColumns; --count) {
    const more = `, … ${grouped(names.length - count)} more`;
    const first = names.slice(0, count).map((name) => shortened(name, kNameColumns - more.length));
    text = first.join(', ') + more;
  }
  return text;
}

/** The row of props and the number of their carriers. */
function propsRow({ kind, crowd }) {
  const names = formatNames(kind.layers.props.map(({ name }) => name));
  return ['props in hands', names, grouped(crowd.props.carriers.length)];
}

/**
 * The tables of a run.
 * @param {import('./stage').Stage} stage
 * @param {import('./stage').Timings} timings
 * @returns {string}
 */
function formatTables(stage, timings) {
  const { kind, crowd, culling } = stage;
  const { perspective, overview } = culling.views;
  const row = (title, times) => {
    const milliseconds = median(times);
    const perBone = (milliseconds * 1e6) / crowd.boneCount;
    return [title, milliseconds.toFixed(4), perBone.toFixed(1)];
  };
  const costs = createTable(['stage of a frame', 'ms, median', 'ns per bone']);
  const players = kind.layers ? 'controllers' : 'animators';
  for (const name of stages) {
    const title = name === 'animate' ? `animate, ${players}` : stageTitles[name];
    costs.push(row(title, timings.stages[name]));
  }
  costs.push(row('whole frame', timings.whole));

  const { layers } = kind;
  const clips = layers ? [...kind.clips, layers.wave, layers.breath] : kind.clips;
  const facts = createTable([]);
  facts.push(
    ['characters', shortened(kind.name, kNameColumns), grouped(crowd.count)],
    ['clips', formatNames(clips.map(({ name }) => name)) || 'none', grouped(clips.length)],
    ['bones', `${grouped(kind.joints.length)} each`, grouped(crowd.boneCount)],
    ['entities', `${grouped(kind.nodes.length)} each`, grouped(crowd.count * kind.nodes.length)],
    ...(layers ? [propsRow(stage)] : []),
    ['frames', `seed ${stage.seed}`, grouped(timings.whole.length)],
    [
      'visible, perspective camera',
      `hash ${formatHash(perspective.hash)}`,
      grouped(perspective.characters.length),
    ],
    [
      'visible, orthographic overview',
      `hash ${formatHash(overview.hash)}`,
      grouped(overview.characters.length),
    ],
    ['memory', 'shared with JavaScript', megabytes(crowd.sharedBytes())],
    ['', 'whole process', megabytes(process.memoryUsage().rss)]
  );
  return `${facts.toString()}\n${costs.toString()}`;
}

/**
 * The legend of the picture, which has no room for words.
 * @param {import('./kind').Kind} kind
 * @returns {string}
 */
function formatLegend(kind) {
  const legend = createTable(['in the picture', 'stands for'], ['left', 'left']);
  legend.push(...legendOf(kind).map(({ sign, names }) => [sign, formatNames(names)]));
  return legend.toString();
}

module.exports = { createProgress, formatLegend, formatTables, stageTitles };
