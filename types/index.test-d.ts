// What the typings accept, give and refuse. Nothing here runs.
import { expectAssignable, expectError, expectNotAssignable, expectNotType, expectType } from 'tsd';
import * as nq from '.';
import * as checkedModule from './checked';
import * as clipModule from './clip';
import * as commandsModule from './commands';
import { GltfError, ImportedModel, importGltf } from './gltf';
import * as layoutModule from './layout';
import * as loadModule from './load';
import * as viewsModule from './views';

const engine = nq.getEngine();
const bytes = new ArrayBuffer(64);

// --- The module and its parts.

expectType<nq.Engine>(engine);
expectType<{ version: string }>(nq.getVersion());
expectType<Readonly<Record<string, readonly string[]>>>(nq.moduleAbis);
expectType<nq.NativeModule<nq.Engine>>(nq.load());
expectType<nq.NativeModule<nq.EngineWithMatrixFlow>>(nq.loadMatrixFlow('other.node'));
expectError(nq.load(7));
expectError(nq.getEngine(1));
expectError(nq.importGltf);
expectType<typeof checkedModule.checked>(nq.checked);
expectType<typeof clipModule.buildClip>(nq.buildClip);
expectType<typeof commandsModule.DirtyListWriter>(nq.DirtyListWriter);
expectType<typeof layoutModule.entity3D>(nq.layout.entity3D);
expectType<typeof loadModule.load>(nq.load);
expectType<typeof viewsModule.Entity3DView>(nq.Entity3DView);

function describe(error: nq.LoadError): string {
  expectType<'ERR_NQ_LOAD'>(error.code);
  expectType<string[]>(error.files);
  expectType<Error | null>(error.original);
  return error.message;
}
expectAssignable<(error: nq.LoadError) => string>(describe);

// --- Kinds of handles: each a number, none another, no number one of them.

const entity3D = engine.createEntity(true, 10);
const entity2D = engine.createEntity(false);
const culling = engine.createComponent(1, 10);
const animator = engine.createComponent(2, 2, 8);
const skin = engine.createComponent(3, 4);
const clip = engine.createDataModel(1, bytes);
const bones = engine.createDataModel(2, new Float32Array(16));
const binding = engine.createAnimationClipBinding(bytes, 0, 1, 1, 1);
const controller = engine.createAnimatorControllerModel(2);
const state = engine.createAnimatorControllerStateModel(1);

expectType<nq.Entity3DHandle>(entity3D.id);
expectType<nq.Entity2DHandle>(entity2D.id);
expectType<nq.CullingObjectHandle>(culling.id);
expectType<nq.AnimatorHandle>(animator.id);
expectType<nq.SkinningHandle>(skin.id);
expectType<nq.ClipHandle>(clip.id);
expectType<nq.BonesHandle>(bones.id);
expectType<nq.ControllerHandle>(controller.id);
expectType<nq.StateHandle>(state.id);

expectAssignable<number>(entity3D.id);
expectAssignable<number>(clip.id);
expectAssignable<number>(culling.id);
expectType<number>(entity3D.id + 1);
expectAssignable<nq.EntityHandle>(entity3D.id);
expectAssignable<nq.EntityHandle>(entity2D.id);
expectAssignable<nq.ComponentHandle>(skin.id);
expectAssignable<nq.DataModelHandle>(bones.id);

expectNotAssignable<nq.EntityHandle>(4096);
expectNotAssignable<nq.EntityHandle>(clip.id);
expectNotAssignable<nq.Entity3DHandle>(entity2D.id);
expectNotAssignable<nq.Entity2DHandle>(entity3D.id);
expectNotAssignable<nq.ClipHandle>(bones.id);
expectNotAssignable<nq.ClipHandle>(entity3D.id);
expectNotAssignable<nq.BonesHandle>(clip.id);
expectNotAssignable<nq.AnimatorHandle>(skin.id);
expectNotAssignable<nq.SkinningHandle>(culling.id);
expectNotAssignable<nq.CullingObjectHandle>(animator.id);
expectNotAssignable<nq.ControllerHandle>(state.id);
expectNotAssignable<nq.StateHandle>(controller.id);
expectNotAssignable<nq.BindingHandle>(controller.id);
expectNotAssignable<nq.CommandBufferHandle>(state.id);
expectNotAssignable<nq.MemoryID>(entity3D.id);

// A parameter takes its kind and plain numbers.
expectAssignable<nq.HandleLike<nq.ClipHandle>>(clip.id);
expectAssignable<nq.HandleLike<nq.ClipHandle>>(4096);
expectAssignable<nq.HandleLike<nq.ClipHandle>>(nq.layout.handles.none);
expectNotAssignable<nq.HandleLike<nq.ClipHandle>>(entity3D.id);
expectNotAssignable<nq.HandleLike<nq.ClipHandle>>('4096');
expectNotAssignable<nq.HandleLike<nq.ClipHandle>>(null);
expectNotAssignable<nq.HandleLike<nq.EntityHandle>>(undefined);

// Setters of views also take the object.
expectAssignable<nq.ObjectOrHandle<nq.ClipHandle>>(clip);
expectAssignable<nq.ObjectOrHandle<nq.ClipHandle>>(clip.id);
expectAssignable<nq.ObjectOrHandle<nq.EntityHandle>>(entity3D);
expectAssignable<nq.ObjectOrHandle<nq.EntityHandle>>({ handle: entity3D.id });
expectAssignable<nq.ObjectOrHandleArray<nq.EntityHandle>>([entity3D, entity2D.id, 4096]);
expectNotAssignable<nq.ObjectOrHandle<nq.ClipHandle>>(entity3D);
expectNotAssignable<nq.ObjectOrHandle<nq.Entity3DHandle>>(entity2D);
expectNotAssignable<nq.ObjectOrHandle<nq.ClipHandle>>({});
expectNotAssignable<nq.HandleLike<nq.ClipHandle>>(clip);

// --- What the engine makes.

expectType<nq.EngineEntity<nq.Entity3DHandle>>(entity3D);
expectType<nq.EngineEntity<nq.Entity2DHandle>>(engine.createEntity());
expectType<nq.EngineEntity>(engine.createEntity(Boolean(bytes.byteLength), 2));
expectError(engine.createEntity(1));
expectError(engine.createEntity(true, '2'));
expectError(engine.createEntity(true, 2, 3));

expectType<ArrayBuffer | undefined>(entity3D.buffer);
expectType<nq.MemoryID | undefined>(entity3D.memoryID);
expectError(new Float32Array(entity3D.buffer));
if (entity3D.buffer !== undefined) {
  expectType<ArrayBuffer>(entity3D.buffer);
}
expectError((entity3D.id = 0));
expectError((entity3D.buffer = bytes));
expectError((engine.cullingResult = bytes));

expectType<nq.EngineComponent<nq.CullingObjectHandle>>(culling);
expectType<nq.EngineComponent<nq.AnimatorHandle>>(animator);
expectType<nq.EngineComponent<nq.SkinningHandle>>(skin);
expectType<nq.EngineComponent<nq.CullingObjectHandle>>(
  engine.createComponent(nq.layout.componentKinds.culling)
);
expectType<nq.EngineComponent<nq.SkinningHandle>>(
  engine.createComponent(nq.layout.componentKinds.skinning, 3)
);
expectError(engine.createComponent());
expectError(engine.createComponent(4, 1));
expectError(engine.createComponent(2, 1));
expectError(engine.createComponent(2, 1, 1, 1));
expectError(engine.createComponent(3));
expectError(engine.createComponent(3, 1, 1));

expectType<nq.EngineDataModel<nq.ClipHandle>>(clip);
expectType<nq.EngineDataModel<nq.BonesHandle>>(engine.createDataModel(2, bytes));
expectError(engine.createDataModel(3, bytes));
expectError(engine.createDataModel(1));
expectError(engine.createDataModel(1, [1, 2]));
expectError(engine.createDataModel(1, null));
expectError(clip.buffer);

expectType<nq.EngineAnimationClipBinding | null>(binding);
// @ts-expect-error: it may be null
binding.id;
if (binding !== null) {
  expectType<nq.BindingHandle>(binding.id);
  expectType<boolean>(binding.updateBinding(bytes, 0, 1, 1, 0, 0, 1));
  expectType<null>(binding.writeDefaultValues());
  expectError(binding.updateBinding(bytes, 0, 1, 1, 0, 0));
  expectError(binding.updateBinding(new Uint32Array(2), 0, 1, 1, 0, 0, 1));
  expectError(binding.writeDefaultValues(1));
  expectError(binding.buffer);
}
expectError(engine.createAnimationClipBinding(bytes, 0, 1, 1));
expectError(engine.createAnimationClipBinding(new Uint32Array(2), 0, 1, 1, 1));
expectError(engine.createAnimationClipBinding(new DataView(bytes), 0, 1, 1, 1));

expectType<nq.EngineAnimatorControllerModel>(controller);
expectType<ArrayBuffer | undefined>(controller.buffer);
expectType<null>(controller.update(0, bytes));
expectType<null>(controller.setMaskAtIndex(0, bytes, 0, 8));
expectError(engine.createAnimatorControllerModel());
expectError(controller.update(0));
expectError(controller.update(0, new Uint8Array(4)));
expectError(controller.setMaskAtIndex(0, bytes, 0));
expectError(controller.setMaskAtIndex(0, new Uint8Array(8), 0, 1));

expectType<nq.EngineAnimatorControllerStateModel>(state);
expectType<ArrayBuffer | undefined>(state.buffer);
expectError(engine.createAnimatorControllerStateModel());
expectError(state.update(0, bytes));

// --- What the engine does.

expectType<ArrayBuffer>(engine.dirtyEntities);
expectType<ArrayBuffer>(engine.entityCommands);
expectType<ArrayBuffer>(engine.cullingResult);
expectType<null>(engine.refreshWorldTransform());
expectType<null>(engine.setEntityName(entity3D.id, 'door'));
expectError(engine.setEntityName(entity3D.id));
expectError(engine.setEntityName(clip.id, 'door'));
expectError(engine.setEntityName(null, 'door'));

const eye = [0, 2, 10, 0, 0, 0, 0, 1, 0] as const;
const list = new nq.HandleList<nq.CullingObjectHandle>(4);
expectType<nq.CullingAnswer | null>(engine.frustumCulling(1, ...eye, 1, 1.5, 0.1, 100));
expectType<nq.CullingAnswer | null>(engine.cullWithCamera(1, ...eye, 1, 1.5, 0.1, 100, bytes));
expectType<nq.CullingAnswer | null>(engine.orthoCulling(1, ...eye, -1, 1, -1, 1, 0.1, 100));
expectType<boolean | null>(engine.frustumCullingV2(1, ...eye, 1, 1.5, 0.1, 100, list.buffer));
expectType<boolean | null>(engine.orthoCullingV2(1, ...eye, -1, 1, -1, 1, 0.1, 100, bytes));
expectError(engine.frustumCulling(1, ...eye, 1, 1.5, 0.1));
expectError(engine.frustumCulling(1, ...eye, 1, 1.5, 0.1, 100, new Uint32Array(2)));
expectError(engine.frustumCulling(1, ...eye, 1, 1.5, 0.1, 100, bytes, 1));
expectError(engine.orthoCulling(1, ...eye, -1, 1, -1, 1, 0.1));
expectError(engine.orthoCullingV2(1, ...eye, -1, 1, -1, 1, 0.1, 100, null));
// @ts-expect-error: it may be null
engine.frustumCulling(1, ...eye, 1, 1.5, 0.1, 100).objects;
const answer = engine.frustumCulling(1, ...eye, 1, 1.5, 0.1, 100);
if (answer !== null) {
  expectType<ArrayBuffer>(answer.objects);
  expectType<ArrayBuffer>(answer.distances);
  expectType<number>(answer.hash);
}

expectType<null>(engine.updateAnimator(animator.id));
expectType<null>(engine.updateSkinningMatrix(skin.id));
expectType<null>(engine.updateAnimators(bytes));
expectType<null>(engine.updateAnimatorControllers(new Uint32Array(2)));
expectType<null>(engine.updateSkinningMatrices(new DataView(bytes)));
expectType<null>(engine.updateAnimators(new DataView(bytes)));
expectType<null>(engine.updateAnimatorControllers(new DataView(bytes)));
expectError(engine.updateAnimator(skin.id));
expectError(engine.updateAnimator(controller.id));
expectError(engine.updateSkinningMatrix(animator.id));
expectError(engine.updateAnimator());
expectError(engine.updateAnimators([1, animator.id]));
expectError(engine.updateAnimatorControllers());
expectError(engine.updateSkinningMatrices(null));
expectError(engine.execute());

// Command buffers are there in one build only.
expectError(engine.createMatrixFlowCommandBuffer(64));
const flow = nq.loadMatrixFlow().getEngine();
const commandBuffer = flow.createMatrixFlowCommandBuffer(64);
expectAssignable<nq.Engine>(flow);
expectType<nq.EngineMatrixFlowCommandBuffer>(commandBuffer);
expectType<nq.CommandBufferHandle>(commandBuffer.id);
expectType<nq.MatrixFlowResult>(commandBuffer.execute());
expectAssignable<nq.MatrixFlowResult>(nq.matrixFlowResults.divisorTooSmall);
expectNotAssignable<nq.MatrixFlowResult>(6);
expectError(flow.createMatrixFlowCommandBuffer());

// --- Checked mode.

expectType<nq.Engine>(nq.checked(engine));
expectType<nq.EngineWithMatrixFlow>(nq.checked(flow));
expectError(nq.checked({}));
expectError(nq.checked(null));
expectType<nq.EngineWithMatrixFlow>(nq.checked(flow, { onHint: null }));
expectType<nq.Engine>(nq.checked(engine, {}));
nq.checked(engine, {
  onHint(hint) {
    expectType<nq.Hint>(hint);
    expectType<nq.HintCode>(hint.code);
    expectType<nq.EntityHandle | null>(hint.entity);
    expectType<[string, string, string, boolean]>([
      hint.call,
      hint.place,
      hint.message,
      hint.isLast,
    ]);
    expectError((hint.message = ''));
  },
});
expectAssignable<nq.HintCode>('not-listed');
expectNotAssignable<nq.HintCode>('not-rooted');
expectAssignable<nq.CheckedOptions>({ onHint: (hint: nq.Hint) => console.warn(hint.message) });
expectError(nq.checked(engine, { onHint: 'console' }));
expectError(nq.checked(engine, { onhint: null }));
expectError(nq.checked(engine, null));

// --- Layouts: literal.

expectType<108>(nq.layout.entity3D.size);
expectType<44>(nq.layout.entity3D.worldMatrix);
expectType<20>(nq.layout.entity2D.worldMatrix);
expectType<12287>(nq.layout.limits.dirtyEntities);
expectType<4294967295>(nq.layout.handles.none);
expectType<number>(nq.layout.animator.bytes(2, 8));
expectType<1>(nq.layout.layerBlendModes.additive);
expectType<14>(nq.layout.frustumCullingArguments.required);
expectError((nq.layout.entity3D.size = 104));
expectError(nq.layout.entity3D.colour);
expectError(nq.layout.animator.bytes(2));

// --- Clips.

expectType<ArrayBuffer>(
  nq.buildClip({
    framesPerSecond: 30,
    frameCount: 60,
    curves: [
      {
        target: 0,
        type: nq.sampleTypes.PositionY,
        keys: [{ frame: 0, value: 1, inTangent: 0, outTangent: nq.stepTangent }],
      },
      {
        target: 0,
        type: 1,
        keys: {
          frames: new Uint32Array(1),
          values: new Float32Array(1),
          inTangents: new Float32Array(1),
          outTangents: new Float32Array(1),
        },
      },
    ],
  })
);
expectError(nq.buildClip({ framesPerSecond: 30, frameCount: 60 }));
expectError(
  nq.buildClip({
    framesPerSecond: 30,
    frameCount: 60,
    curves: [{ target: 0, type: 14, keys: [] }],
  })
);
nq.buildClip({
  framesPerSecond: 30,
  frameCount: 60,
  // @ts-expect-error: a key has tangents
  curves: [{ target: 0, type: 1, keys: [{ frame: 0, value: 1 }] }],
});
const read = nq.readClip(new Uint8Array(bytes), 'walk');
expectType<nq.Clip<nq.Key[]>>(read);
expectType<nq.Key[]>(read.curves[0].keys);
expectType<nq.SampleType>(read.curves[0].type);
expectType<string | undefined>(read.name);
expectType<ArrayBuffer>(nq.buildClip(read));
expectError(nq.readClip('walk.clip'));
expectType<nq.Clip<nq.Key[]>>(nq.readClip(new SharedArrayBuffer(16)));

// --- Writers.

const commands = new nq.EntityCommandWriter(engine);
expectType<number>(commands.addRoot(entity3D.id));
expectType<number>(commands.addRoot(entity3D.id + 1));
expectType<number>(commands.addChild(entity3D.id, entity3D.id));
expectType<number>(commands.addChild(entity2D.id, entity2D.id));
expectType<number>(commands.addChild(entity3D.id, entity3D.id + 1));
expectType<number>(commands.addChild(4096, 4097));
expectType<number>(commands.addChild<nq.EntityHandle>(entity3D.id, engine.createEntity().id));
expectType<number>(commands.insertChild(entity3D.id, entity2D.id, 0));
expectType<number>(commands.bindToBone(entity2D.id, entity3D.id));
expectType<number>(commands.bindToBoneBatch([entity3D.id], new Uint32Array(1)));
expectType<number>(commands.unbindFromBoneBatch([entity3D.id, 4097]));
expectType<void>(commands.clear());
expectType<number>(commands.used);
expectType<number>(commands.room);
expectType<ArrayBuffer>(commands.owner.entityCommands);
expectError(commands.addRoot(clip.id));
expectError(commands.addRoot(null));
expectError(commands.addRoot(animator.id));
expectError(commands.addChild(entity3D.id));
expectError(commands.addChild(entity3D.id, entity2D.id));
expectError(commands.addChild(entity3D.id, clip.id));
expectError(commands.insertChild(entity3D.id, entity3D.id));
expectError(commands.bindToBone(entity3D.id, entity2D.id));
expectError(commands.bindToBoneBatch([clip.id], [entity3D.id]));
expectError(commands.unbindFromBoneBatch(new Float32Array(1)));
expectError(commands.unbindFromBone(entity3D.id, entity3D.id));
expectError((commands.used = 0));
expectError(new nq.EntityCommandWriter());
expectError(new nq.EntityCommandWriter(entity3D));

const dirty = new nq.DirtyListWriter(engine);
expectType<void>(dirty.append(entity2D.id));
expectType<void>(dirty.appendAll([entity3D.id, entity2D.id]));
expectType<void>(dirty.appendRange(entity3D.id, 10));
expectType<number>(dirty.count);
expectType<number>(dirty.room);
expectError(dirty.append(bones.id));
expectError(dirty.append());
expectError(dirty.appendAll([clip.id]));
expectError(dirty.appendAll(entity3D.id));
expectError(dirty.appendRange(entity3D.id));

const writer = new nq.MatrixFlowWriter(commandBuffer, { blockSizes: new Map([[0, 49152]]) });
const operand = { memoryID: 0, offset: 4 };
expectType<number>(writer.scalarAdd(operand, operand, operand));
expectType<number>(writer.scalarAdd(0, 4, 0, 8, 0, 12));
expectType<number>(writer.matrix4Copy(operand, operand));
expectType<number>(writer.matrix4Invert(0, 4, 0, 8));
expectType<number>(writer.bulkCopy(16, operand, operand));
expectType<number>(writer.bulkCopy(16, 0, 4, 0, 68));
expectType<number>(writer.call(commandBuffer.id));
expectType<void>(writer.reset());
if (commandBuffer.memoryID !== undefined) {
  expectType<number>(writer.scalarCopy(commandBuffer.memoryID, 4, commandBuffer.memoryID, 8));
  expectAssignable<nq.Operand>({ memoryID: commandBuffer.memoryID, offset: 4 });
}
expectNotAssignable<nq.Operand>({ memoryID: commandBuffer.id, offset: 4 });
expectNotAssignable<nq.Operand>({ memoryID: commandBuffer.memoryID, offset: 4 });
expectError(writer.scalarAdd(operand, operand));
expectError(writer.scalarAdd(0, 4, 0, 8, 0));
expectError(writer.scalarAdd(operand, 0, 4, 0, 8));
expectError(writer.scalarCopy(operand, operand, operand));
expectError(writer.scalarCopy(commandBuffer.id, 4, 0, 8));
// @ts-expect-error: there is no such command
writer.matrix3Div(operand, operand, operand);
expectError(writer.call(entity3D.id));
// @ts-expect-error: an object is no Map
new nq.MatrixFlowWriter(commandBuffer, { blockSizes: {} });

// --- Views.

const view = new nq.Entity3DView(entity3D);
const out = new Float32Array(16);
expectType<nq.Entity3DHandle>(view.id);
expectType<nq.Entity3DHandle>(view.handle(1));
expectType<nq.EngineEntity<nq.Entity3DHandle>>(view.object);
expectType<number>(view.count);
expectType<Float32Array>(view.f32);
expectType<Uint32Array>(view.u32);
expectType<Uint8Array>(view.u8);
expectType<number>(view.worldMatrixAt(1));
expectType<Float32Array>(view.worldMatrix(0, out));
expectType<number[]>(view.position(0, [0, 0, 0], 0));
expectType<[number, number, number]>(view.position(0, [0, 0, 0] as [number, number, number]));
expectType<void>(view.setQuaternion(0, 0, 0, 0, 1));
expectError(view.setQuaternion(0, 0, 0, 1));
expectError(view.setPosition(0, [1, 2, 3]));
expectError(view.position(0));
expectError(view.position(0, new Uint32Array(3)));
expectError(view.position(0, [0, 0, 0] as const));
expectError((view.count = 3));
expectError(new nq.Entity3DView(entity2D));
expectError(new nq.Entity3DView(culling));
expectError(new nq.Entity3DView(engine));

const flat = new nq.Entity2DView(entity2D);
expectType<nq.Entity2DHandle>(flat.handle(0));
expectType<number>(flat.rotation(0));
expectType<Float64Array>(flat.position(0, new Float64Array(2)));
expectError(flat.setPosition(0, 1, 2, 3));
expectError(flat.u8);
expectError(new nq.Entity2DView(entity3D));

const objects = new nq.CullingObjectsView(culling);
expectType<nq.CullingObjectHandle>(objects.handle(0));
expectType<nq.Entity3DHandle>(objects.entity(0));
expectType<boolean>(objects.enabled(0));
expectType<void>(objects.setEntity(0, view.handle(0)));
expectError(objects.setEntity(0, flat.handle(0)));
expectError(objects.setEntity(0, clip.id));
expectError(objects.setEnabled(0, 1));
expectError(objects.setSphere(0, 0, 0, 0));
expectError(new nq.CullingObjectsView(animator));

const result = new nq.CullingResultView(engine);
expectType<nq.CullingObjectHandle>(result.object(0));
expectType<number>(result.distance(0));
expectType<Uint32Array>(result.objects(new Uint32Array(8)));
expectError(result.objects(new Float32Array(8)));
expectError((result.count = 0));

const seen = new nq.CullingAnswerView(answer);
expectType<nq.CullingObjectHandle>(seen.object(0));
expectType<nq.CullingAnswer | null>(seen.answer);
expectType<Uint32Array>(seen.objects);
expectAssignable<nq.CullingAnswerView>(new nq.CullingAnswerView(null));
expectError(new nq.CullingAnswerView());
expectError(new nq.CullingAnswerView(true));

const player = new nq.AnimatorView(animator, 2);
expectType<nq.ClipHandle>(player.clipHandle(0));
expectType<nq.EntityHandle>(player.target(0));
expectType<void>(player.setClip(0, clip.id, 0, 1));
expectType<void>(player.setTargets([entity3D.id, entity2D.id], 1));
expectError(player.setClip(0, bones.id, 0, 1));
expectError(player.setClip(0, clip.id, 0));
expectError(player.setTarget(0, clip.id));
expectError(new nq.AnimatorView(animator));
expectError(new nq.AnimatorView(skin, 2));

const skinning = new nq.SkinningView(skin);
expectType<nq.BonesHandle>(skinning.bonesModel());
expectType<void>(skinning.setBonesModel(bones.id));
expectType<void>(skinning.setBone(0, 0, entity3D.id));
expectType<void>(skinning.setBonesModel(bones));
expectError(skinning.setBonesModel(clip));
expectType<Float32Array>(skinning.results);
expectType<Float32Array>(skinning.result(0, out));
expectError(skinning.setBonesModel(clip.id));
expectError(skinning.setBone(0, entity3D.id));
expectError(new nq.SkinningView(skin, '3D'));

const layers = new nq.ControllerView(controller);
expectType<nq.StateHandle>(layers.firstState(0));
expectType<nq.BindingHandle>(layers.bindingHandle());
expectType<void>(layers.setLayer(0, nq.layout.layerBlendModes.additive, 1, state.id));
expectType<void>(layers.setFirstState(0, nq.layout.handles.none));
expectError(layers.setFirstState(0, controller.id));
expectError(layers.setBindingHandle(state.id));
expectError(layers.setLayer(0, 0, 1));

const states = new nq.ControllerStateView(state);
expectType<nq.StateHandle>(states.nextState());
expectType<nq.ClipHandle>(states.referenceClip(0));
expectType<boolean>(states.fillDefaults());
expectType<void>(states.setReference(0, clip.id, 0));
expectError(states.setNextState(clip.id));
expectError(states.setFillDefaults(1));
expectError(new nq.ControllerStateView(controller));
expectError(new nq.ControllerView(state));

const animators = nq.HandleList.from([animator.id]);
expectType<nq.HandleList<nq.AnimatorHandle>>(animators);
expectType<nq.AnimatorHandle>(animators.handle(0));
expectType<nq.HandleList<number>>(nq.HandleList.from(new Uint32Array(4)));
expectType<void>(list.append(culling.id));
expectType<void>(list.append(culling.id + 1));
expectType<void>(new nq.HandleList(2).append(clip.id));
expectError(list.append(entity3D.id));
expectError(animators.append(skin.id));
expectError(new nq.HandleList());

const mask = new nq.MaskView(2);
expectType<void>(mask.set(0, entity3D.id, 0.5));
expectType<void>(mask.apply(controller, 1));
expectType<nq.EntityHandle>(mask.entity(0));
expectError(mask.set(0, clip.id, 0.5));
expectError(mask.apply(state, 1));

const lists = nq.TargetListsView.from([{ clip: clip.id, entities: [entity3D.id, 4097] }], 8);
expectType<nq.TargetListsView>(lists);
expectType<nq.TargetListsView>(nq.TargetListsView.over(bytes, 0, 1, 4));
expectType<nq.EngineAnimationClipBinding>(lists.createBinding(engine));
expectType<boolean>(lists.updateBinding(lists.createBinding(engine, 0), 2, 0, 1));
expectType<nq.Entity3DHandle>(lists.target(0, 1));
expectType<nq.ClipHandle>(lists.clip(0));
expectError(lists.setTarget(0, 0, entity2D.id));
expectError(lists.setClip(0, entity3D.id));
expectError(lists.updateBinding(lists.createBinding(engine), 2, 0));
expectError(nq.TargetListsView.from([{ clip: clip.id, entities: [entity2D.id] }]));
expectError(nq.TargetListsView.from([{ entities: [entity3D.id] }]));
expectError(nq.TargetListsView.over(new Uint32Array(8), 0, 1, 4));

// --- The importer.

expectType<Promise<ImportedModel>>(importGltf('fox.glb', { holdEnd: true }));
expectType<Promise<ImportedModel>>(importGltf(new Uint8Array(4)));
expectError(importGltf());
expectError(importGltf(7));
expectError(importGltf('fox.glb', { framesPerSecond: '30' }));
expectError(importGltf('fox.glb', { rate: 30 }));
expectAssignable<Error>(new GltfError('no file'));

async function load(): Promise<void> {
  const model = await importGltf('fox.glb');
  expectType<string[]>(model.warnings);
  expectType<number>(model.nodes[0].parent);
  view.setPosition(0, ...model.nodes[0].translation);
  view.setQuaternion(0, ...model.nodes[0].rotation);
  expectError(view.setPosition(0, ...model.nodes[0].rotation));
  expectType<nq.EngineDataModel<nq.ClipHandle>>(
    engine.createDataModel(1, model.animations[0].clip)
  );
  expectType<ArrayBuffer>(model.skins[0].inverseBindMatrices);
  expectNotType<any>(model.animations[0].targets);
}
expectType<() => Promise<void>>(load);
