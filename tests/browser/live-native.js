'use strict';
// Computes what a live example does on the native module: prints the bits of its world matrices as JSON.
//
//   node tests/browser/live-native.js '{"name": "crowd", "settings": {}, "script": [10, "drop", 5]}'
const { figureKind } = require('../../site/live/shared/kinds');
const { Stage } = require('../../site/live/shared/stage');
const { getEngine } = require(process.env.NQ_MODULE);

const { name, settings, script, seconds } = JSON.parse(process.argv[2]);
const stage = new Stage(name, getEngine(), figureKind(), settings);
for (const part of script) {
  if (typeof part === 'string') {
    stage.example.actions[part].run();
    stage.advance(0); // as the button does
  } else {
    for (let i = 0; i < part; ++i) {
      stage.advance(seconds);
    }
  }
}
const words = new Uint32Array(stage.worldMatrices().buffer);
stage.frame();
console.log(JSON.stringify({ words: Array.from(words), text: stage.text() }));
