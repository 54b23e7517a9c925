'use strict';
// A whole program of scenes, tests/fixtures/scene-program.js, against the same in three.js: who is in view, world matrices
// and skinning matrices; and its twin in TypeScript.
const assert = require('assert');
const fs = require('fs');
const os = require('os');
const path = require('path');
const { spawnSync } = require('child_process');
const three = require('three');
const ts = require('typescript');
const { realModel } = require('../../../fixtures/models');
const { assertSkins, kLevelError, load } = require('../../support/three-model');
const { compile, complaints } = require('../../support/typings');

const fixtures = path.join(__dirname, '..', '..', '..', 'fixtures');
const program = path.join(fixtures, 'scene-program.js');
const typedProgram = path.join(fixtures, 'scene-program.ts');
const kMostLines = 25;

const kCharacters = 50;
const kFrames = 30;

/** Runs a program on a model; its lines. */
function run(file, model) {
  const { status, stdout, stderr } = spawnSync(process.execPath, [file, model], {
    encoding: 'utf8',
  });
  assert.strictEqual(status, 0, stderr);
  assert.strictEqual(stderr, '');
  return stdout.trim().split('\n');
}

/** The program's camera and characters in this process, after its last frame; and what it prints. */
async function runHere(model) {
  const { argv } = process;
  const { log } = console;
  const lines = [];
  process.argv = [argv[0], program, model];
  console.log = (line) => lines.push(line);
  try {
    delete require.cache[program];
    return Object.assign(await require(program), { lines });
  } finally {
    process.argv = argv;
    console.log = log;
  }
}

/** The place of a character. */
function placeOf(i) {
  return new three.Vector3(200 * (i % 10) - 900, 0, -150 * Math.floor(i / 10));
}

/** Numbers of the characters whose bounds a camera of three.js sees. */
function findVisible(bounds) {
  const camera = new three.PerspectiveCamera(50, 1.5, 1, 900);
  camera.position.set(0, 200, 500);
  camera.lookAt(0, 50, 0);
  camera.updateMatrixWorld();
  const product = new three.Matrix4().multiplyMatrices(
    camera.projectionMatrix,
    camera.matrixWorldInverse
  );
  const frustum = new three.Frustum().setFromProjectionMatrix(product);
  const forward = camera.getWorldDirection(new three.Vector3());
  const found = [];
  for (let i = 0; i < kCharacters; ++i) {
    const center = placeOf(i).add(new three.Vector3(...bounds.center));
    if (frustum.intersectsSphere(new three.Sphere(center, bounds.radius))) {
      found.push({ i, depth: center.sub(camera.position).dot(forward) });
    }
  }
  return found;
}

describe('the program of fifty characters with a crossfade', () => {
  it('takes at most 25 lines, in JavaScript and in TypeScript', () => {
    for (const file of [program, typedProgram]) {
      const lines = fs.readFileSync(file, 'utf8').trim().split('\n');
      assert(lines.length <= kMostLines, `${file}: ${lines.length} lines`);
    }
  });

  it('has the matrices of three.js, and the same characters in view', async function () {
    const file = realModel(this, 'Fox.glb');
    const { camera, foxes, lines } = await runHere(file);
    const { model, oracle } = await load(file);
    assert.strictEqual(foxes.length, kCharacters);

    // Seconds as the program counts them, frame by frame.
    let elapsed = 0;
    for (let frame = 0; frame < kFrames; ++frame) {
      elapsed += 1 / 60;
    }
    let compared = 0;
    foxes.forEach((fox, i) => {
      oracle.group.position.copy(placeOf(i));
      oracle.pose({
        Walk: { time: (0.01 * i + elapsed) % model.clip('Walk').duration, weight: 1 - elapsed },
        Run: { time: elapsed % model.clip('Run').duration, weight: elapsed },
      });
      compared += assertSkins(fox, oracle, `fox ${i}`);
      oracle.bones.forEach((bone, node) => {
        const actual = fox.node(node).worldMatrix;
        const { magnitudes, depth } = oracle.magnitudesOf(bone, new three.Matrix4().elements);
        bone.matrixWorld.elements.forEach((wanted, k) => {
          const bound = kLevelError * depth * magnitudes[k] + 1e-12;
          const error = Math.abs(actual[k] - wanted);
          assert(error <= bound, `fox ${i}, node ${node}, element ${k}: ${error} of ${bound}`);
          ++compared;
        });
      });
    });
    const [{ joints }] = model.skins;
    assert.strictEqual(compared, kCharacters * 16 * (joints.length + model.nodes.length));

    const wanted = findVisible(model.bounds);
    const seen = Array.from(camera.visible.characters(), (fox) => foxes.indexOf(fox));
    const sorted = seen.slice().sort((a, b) => a - b);
    assert.deepStrictEqual(
      sorted,
      wanted.map(({ i }) => i)
    );
    assert(seen.length > 10 && seen.length < 40, `${seen.length} in view`);
    // Nearest first; depths of a row differ by less than a float can tell.
    const depths = seen.map((i) => wanted.find((one) => one.i === i).depth);
    depths.slice(1).forEach((depth, k) => assert(depth > depths[k] - 1e-3, `${depths}`));
    const last = `${seen.length} in view, nearest first: ${seen.join(' ')}`;
    assert.deepStrictEqual([lines.length, lines[kFrames - 1]], [kFrames, last]);
    assert.deepStrictEqual(run(program, file), lines);
  });

  it('is the same in strict TypeScript', function () {
    const text = fs.readFileSync(typedProgram, 'utf8');
    const settings = { types: ['node'], skipLibCheck: true, strict: true };
    assert.deepStrictEqual(complaints(compile([], { 'types/program.ts': text }, settings)), []);
    const wrong = text.replace("fox.play('Walk'", 'fox.play(true');
    assert.strictEqual(complaints(compile([], { 'types/program.ts': wrong }, settings)).length, 1);
    const file = realModel(this, 'Fox.glb');
    const { outputText } = ts.transpileModule(text, {
      compilerOptions: { target: ts.ScriptTarget.ES2019, module: ts.ModuleKind.CommonJS },
    });
    const compiled = path.join(fs.mkdtempSync(path.join(os.tmpdir(), 'nq-program-')), 'p.js');
    const scene = path.join(fixtures, '..', '..', 'scene');
    fs.writeFileSync(
      compiled,
      outputText.replace(/['"]nq_logic\/scene['"]/, JSON.stringify(scene))
    );
    assert.deepStrictEqual(run(compiled, file), run(program, file));
    fs.unlinkSync(compiled);
    fs.rmdirSync(path.dirname(compiled));
  });
});
