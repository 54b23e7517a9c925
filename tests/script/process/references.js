'use strict';
// Updates of components after a collection of what they refer to, which the program itself has dropped.
// `references.js CASE object|handle`: setters are passed the objects, or their handles.
const nq = require('../../../lib');
const { collect } = require('../support/collect');

const [name, form] = process.argv.slice(2);
const engine = nq.getEngine();
const clipBytes = nq.buildClip({ name: 'still', framesPerSecond: 30, frameCount: 1, curves: [] });
const identity = Float32Array.of(1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1);

/** What a setter is passed. */
const given = (object) => (form === 'object' ? object : object.id);

function makeSkin() {
  const skin = new nq.SkinningView(engine.createComponent(3, 2));
  const bones = new nq.Entity3DView(engine.createEntity(true, 2));
  skin.setBonesModel(given(engine.createDataModel(2, identity)));
  skin.setBone(0, 0, given(bones));
  skin.setBone(1, 0, given(bones.element(1)));
  return { skin, bones };
}

function updateSkin(skin) {
  engine.updateSkinningMatrices(nq.HandleList.from([skin.id]).buffer);
}

const cases = {
  /** Sets a clip, and returns the update. */
  clip() {
    const animator = new nq.AnimatorView(engine.createComponent(2, 1, 1), 1);
    animator.setClip(0, given(engine.createDataModel(1, clipBytes)), 0, 1);
    return () => engine.updateAnimators(nq.HandleList.from([animator.id]).buffer);
  },
  /** The bones are kept by the program. */
  bonesModel() {
    const { skin, bones } = makeSkin();
    return () => updateSkin(skin, bones);
  },
  /** The inverse bind matrices are kept by the program. */
  bones() {
    const { skin } = makeSkin();
    const model = engine.createDataModel(2, identity);
    skin.setBonesModel(model.id);
    return () => updateSkin(skin, model);
  },
  /** A second view has overwritten nothing. */
  secondView() {
    const { object } = makeSkin().skin;
    const skin = new nq.SkinningView(object);
    skin.setMatrixIndex(0, 0);
    return () => updateSkin(skin);
  },
};

async function main() {
  const update = cases[name]();
  for (let i = 0; i < 10; ++i) {
    await collect();
  }
  console.log('about to end');
  update();
}

main();
