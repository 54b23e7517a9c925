'use strict';
// The one description of all bytes that script and native code share. From it come lib/layout.js,
// types/layout.d.ts, docs/layouts.md and the facts of tests/native/Engine/LayoutsTest.cpp, which hold
// it against the native headers: `node scripts/layouts.js` writes them anew.
//
// A record is fixed, with a `size`, or a block whose length depends on counts, its `parameters`. An
// offset is a number, or a base and bytes for each of a count: { base: 4, count: 8 } is 4 + 8 × count.
// A field is `count` elements (a number or a parameter) of a type or another record, `each` values
// wide. Fields and what fills the gaps between them, marked `gap`, cover a record without holes.
//
// What a native header knows by another way than a field of `struct` is named by `native`: a constant,
// or a function of the parameters that stand in the offset.
//
// `view` of a record names the class that shows it, `view` of a field its methods, from which scripts/layouts/views.js
// writes them:
//
// | Of a record | |
// |---|---|
// | class, isBase | the class; with `isBase` a subclass by hand adds what is odd, and the one written is "…Base" |
// | file | which of lib/view-….js it goes to |
// | argument, object, maker | of the constructor: the parameter, its type, what makes one, for messages |
// | count | what `count`, or the parameter that the records of a block depend on, counts |
// | handle, handleAbout, element | of batches: kind of an element's handle, and what an element is |
// | setters | methods that set several fields: name, about, the getters of what is set, names of values |
//
// | Of a field | |
// |---|---|
// | name | of the getter, if not the field's |
// | at, get, set | what xAt(i), x(i), setX(i, …) are; there is no such method without |
// | values | names of what is set, one or one for each element |
// | units | what parameters mean, by name |
// | holds | kind of handle, 'boolean', or 'bits': a mask, which may be negative |
// | index | name of the index, if not i |
// | parts | getters of some of its elements: name, from, count, get |

const kWord = 'u32';
const kFloat = 'f32';

/** A word or more of 32 bits. */
function word(name, offset, about, more) {
  return Object.assign({ name, offset, type: kWord, about }, more);
}

/** A float or more. */
function float(name, offset, about, more) {
  return Object.assign({ name, offset, type: kFloat, about }, more);
}

const entityHeader = 'Engine/Entity/EntityRecord.h';
const cullingHeader = 'Engine/Culling/CullingRecord.h';
const animationHeader = 'Engine/Animation/AnimationRecord.h';
const clipHeader = 'Engine/Animation/ClipFormat.h';
const dirtyHeader = 'Engine/Entity/DirtyEntityList.h';
const commandHeader = 'Engine/Entity/EntityCommands.h';
const flowHeader = 'Engine/MatrixFlow/MatrixFlowCommand.h';
const streamHeader = 'Common/Def/StreamReader.h';
const handleHeader = 'Common/Def/Handle.h';

const both = { by: 'both' };

const groups = [
  {
    title: 'Entities',
    about:
      'The `buffer` of an "EngineEntity". A fresh record is all zeros, its scale too. Element i of a batch stands at i × `size` and has the handle `id + i`.',
    records: [
      {
        name: 'entity3D',
        title: 'record of a 3D entity',
        struct: 'Entity3DRecord',
        header: entityHeader,
        size: 108,
        view: {
          class: 'Entity3DView',
          isBase: true,
          file: 'entity',
          argument: 'entity',
          object: 'EngineEntity<Entity3DHandle>',
          handle: 'Entity3DHandle',
          maker: 'createEntity(true, count)',
          count: 'Entities of the batch.',
          element: 'entity',
        },
        fields: [
          {
            name: 'rotationMode',
            offset: 0,
            type: 'u8',
            about: '0: Euler angles; any other value: quaternion',
            view: {
              at: 'the rotation mode of entity i',
              get: '0 for Euler angles, anything else for a quaternion; see `layout.rotationModes`.',
            },
          },
          { name: 'unused', offset: 1, type: 'u8', count: 3, gap: true },
          float('rotation', 4, 'Euler x, y, z in radians, or quaternion x, y, z, w', {
            count: 4,
            view: {
              at: 'its rotation: x, y, z, w',
              get: 'Euler angles x, y, z in radians and a number without meaning, or quaternion x, y, z, w.',
            },
          }),
          float('position', 20, "x, y, z in the parent's space", {
            count: 3,
            view: {
              at: 'its position: x, y, z',
              get: "Position in the parent's space.",
              set: "In the parent's space.",
              values: ['x', 'y', 'z'],
            },
          }),
          float('scale', 32, 'x, y, z', {
            count: 3,
            view: {
              at: 'its scale: x, y, z',
              get: 'Scale along the axes.',
              set: 'The scale of a fresh entity is 0: set it.',
              values: ['x', 'y', 'z'],
            },
          }),
          float('worldMatrix', 44, 'column-major 4×4', {
            count: 16,
            by: 'native',
            view: {
              at: 'its world matrix: 16 floats',
              get: 'World matrix, column-major, of the last refresh.',
              parts: [
                {
                  name: 'worldPosition',
                  from: 12,
                  count: 3,
                  get: 'Where entity i stands in the world: the last column of its matrix.',
                },
              ],
            },
          }),
        ],
      },
      {
        name: 'entity2D',
        title: 'record of a 2D entity',
        struct: 'Entity2DRecord',
        header: entityHeader,
        size: 56,
        view: {
          class: 'Entity2DView',
          isBase: true,
          file: 'entity',
          argument: 'entity',
          object: 'EngineEntity<Entity2DHandle>',
          handle: 'Entity2DHandle',
          maker: 'createEntity(false, count)',
          count: 'Entities of the batch.',
          element: 'entity',
        },
        fields: [
          float('rotation', 0, 'radians; a positive angle turns from y towards x', {
            view: {
              at: 'the rotation of entity i',
              get: 'Radians; a positive angle turns from y towards x.',
              set: 'Turns entity i.',
              values: ['angle'],
              units: { angle: 'radians; a positive one turns from y towards x' },
            },
          }),
          float('position', 4, "x, y in the parent's space", {
            count: 2,
            view: {
              at: 'its position: x, y',
              get: "Position in the parent's space.",
              set: "In the parent's space.",
              values: ['x', 'y'],
            },
          }),
          float('scale', 12, 'x, y', {
            count: 2,
            view: {
              at: 'its scale: x, y',
              get: 'Scale along the axes.',
              set: 'The scale of a fresh entity is 0: set it.',
              values: ['x', 'y'],
            },
          }),
          float(
            'worldMatrix',
            20,
            'column-major 3×3: elements 0, 1, 3, 4, 5, 7, 12, 13, 15 of the 4×4 one',
            {
              count: 9,
              by: 'native',
              view: {
                at: 'its world matrix: 9 floats',
                get: 'World matrix, column-major 3×3, of the last refresh.',
                parts: [
                  {
                    name: 'worldPosition',
                    from: 6,
                    count: 2,
                    get: 'Where entity i stands in the world: the last column of its matrix.',
                  },
                ],
              },
            }
          ),
        ],
      },
      {
        name: 'dirtyEntityList',
        title: '`engine.dirtyEntities`',
        header: dirtyHeader,
        size: 49152,
        sizeNative: 'kSharedListBytes',
        fields: [
          word('count', 0, 'entries, at most 12287; a refresh sets it to 0', both),
          word('handles', 4, 'entities whose records were written, in order of appending', {
            count: 12287,
            countNative: 'kDirtyListCapacity',
            by: 'both',
          }),
        ],
      },
      {
        name: 'entityCommandStream',
        title: '`engine.entityCommands`',
        header: dirtyHeader,
        size: 49152,
        sizeNative: 'kSharedListBytes',
        fields: [
          word('length', 0, 'bytes of commands, at most 49148; a refresh sets it to 0', both),
          word('commands', 4, 'each a number of `entityCommands` and its operands, back to back', {
            count: 12287,
            native: 'kStreamHeaderBytes',
            nativeHeader: streamHeader,
          }),
        ],
      },
    ],
  },
  {
    title: 'Culling',
    about: '',
    records: [
      {
        name: 'cullingObject',
        title: 'record of a culling object',
        about:
          'The `buffer` of an "EngineComponent" of kind 1: object i stands at i × `size` and has the handle `id + i`.',
        struct: 'CullingRecord',
        header: cullingHeader,
        size: 28,
        view: {
          class: 'CullingObjectsView',
          file: 'culling',
          about:
            "A batch of culling objects: 28 bytes each, see `layout.cullingObject`. Centre and radius count once the entity's world matrix is computed anew, all else at once.",
          argument: 'component',
          object: 'EngineComponent<CullingObjectHandle>',
          handle: 'CullingObjectHandle',
          handleAbout: 'Handle of object i, as culling reports it.',
          maker: 'createComponent(1, count)',
          count: 'Objects of the batch.',
          element: 'object',
          setters: [
            {
              name: 'setSphere',
              about: "Gives object i its sphere, in the entity's space.",
              sets: ['center', 'radius'],
            },
          ],
        },
        fields: [
          {
            name: 'enabled',
            offset: 0,
            type: 'u8',
            about: '0: the object takes no part',
            view: {
              at: 'the `enabled` byte of object i',
              get: 'Whether object i takes part. A fresh one does not.',
              set: 'Has object i take part, or not.',
              values: ['enabled'],
              holds: 'boolean',
            },
          },
          { name: 'unused', offset: 1, type: 'u8', count: 3, gap: true },
          word('mask', 4, "layer bits; the object takes part where they meet the call's", {
            view: {
              at: 'its mask',
              get: 'Layer bits of object i, unsigned.',
              set: 'Gives object i its layers.',
              values: ['mask'],
              holds: 'bits',
              units: { mask: '32 bits, as an unsigned or a signed number: -1 is all layers' },
            },
          }),
          float('center', 8, "x, y, z in the entity's space", {
            count: 3,
            view: {
              at: 'its centre: x, y, z',
              get: "Centre of its sphere in the entity's space.",
              values: ['x', 'y', 'z'],
            },
          }),
          float('radius', 20, "in the entity's space", {
            view: {
              at: 'its radius',
              get: "Radius of its sphere in the entity's space.",
              values: ['radius'],
            },
          }),
          word('entity', 24, 'handle of a 3D entity', {
            view: {
              at: 'the handle of its entity',
              get: 'Handle of the entity that carries object i.',
              set: 'Has a 3D entity carry object i.',
              values: ['handle'],
              holds: 'Entity3DHandle',
            },
          }),
        ],
      },
      {
        name: 'cullingList',
        title: 'last argument of a culling call: objects to test',
        about: 'An `ArrayBuffer`, which may be longer than its list.',
        parameters: ['count'],
        fields: [
          word('count', 0, 'at least 1'),
          word('handles', 4, 'culling objects', { count: 'count' }),
        ],
      },
      {
        name: 'cullingResult',
        title: '`engine.cullingResult`, written by the V2 methods',
        about:
          'Its room is that of `limits.cullingResultObjects` at first. The distances move with the count. The other methods answer by an object with buffers of their own: `objects` holds what stands here at `objects`, `distances` what stands here at `distances`, each from byte 0, and `hash` is a number.',
        header: cullingHeader,
        parameters: ['count'],
        bytesNative: 'CullingResultBytes',
        fields: [
          word('hash', 0, 'checksum of the handles in their order', {
            native: 'kCullingResultHashOffset',
            by: 'native',
          }),
          word('count', 4, 'visible objects', {
            native: 'kCullingResultCountOffset',
            by: 'native',
          }),
          word('objects', 8, 'their handles, nearest first', {
            count: 'count',
            native: 'kCullingResultObjectsOffset',
            by: 'native',
          }),
          float('distances', { base: 8, count: 4 }, 'depth of each along the view', {
            count: 'count',
            by: 'native',
          }),
        ],
      },
    ],
  },
  {
    title: 'Animators and skinning',
    about: '',
    records: [
      {
        name: 'animator',
        title: 'block of an animator',
        about: 'The `buffer` of an "EngineComponent" of kind 2.',
        header: animationHeader,
        parameters: ['clipCount', 'entityCount'],
        bytesNative: 'AnimatorBlockBytes',
        view: {
          class: 'AnimatorView',
          isBase: true,
          file: 'animation',
          argument: 'component',
          object: 'EngineComponent<AnimatorHandle>',
          maker: 'createComponent(2, clipCount, entityCount)',
          setters: [
            {
              name: 'setClip',
              about: 'Says what plays of clip i.',
              sets: ['clipHandle', 'clipTime', 'clipWeight'],
              units: { handle: 'of the clip' },
            },
          ],
        },
        fields: [
          {
            name: 'clips',
            offset: 0,
            of: 'animatorClip',
            count: 'clipCount',
            about: 'what plays',
          },
          word(
            'targets',
            { base: 0, clipCount: 12 },
            'entities: target tables of all clips, end to end',
            {
              count: 'entityCount',
              native: 'AnimatorTargetsOffset',
              view: {
                name: 'target',
                index: 'k',
                at: 'entry k of the target table',
                get: 'Handle of the entity in entry k of the target table.',
                set: 'Has entry k of the target table name an entity.',
                values: ['handle'],
                holds: 'EntityHandle',
                units: {
                  k: 'entry of the target table: those of all clips end to end, in their order',
                },
              },
            }
          ),
        ],
      },
      {
        name: 'animatorClip',
        title: 'clip of an animator',
        struct: 'AnimatorClipRecord',
        header: animationHeader,
        size: 12,
        fields: [
          word('clipHandle', 0, 'a living clip, whatever its weight', {
            view: {
              at: 'the handle of clip i',
              get: 'Handle of clip i.',
              set: 'Has clip i be another one.',
              values: ['handle'],
              holds: 'ClipHandle',
            },
          }),
          float('time', 4, "frames; wraps at the clip's length", {
            view: {
              name: 'clipTime',
              at: 'its time',
              get: 'Its time in frames.',
              set: 'Moves clip i to a time.',
              values: ['time'],
              units: { time: "frames; wraps at the clip's length" },
            },
          }),
          float('weight', 8, 'takes part if 0 < weight <= 1', {
            view: {
              name: 'clipWeight',
              at: 'its weight',
              get: 'Its weight.',
              set: 'Gives clip i its share.',
              values: ['weight'],
              units: { weight: 'the clip takes part if 0 < weight <= 1' },
            },
          }),
        ],
      },
      {
        name: 'skinning',
        title: 'block of a skinning component',
        about:
          'The `buffer` of an "EngineComponent" of kind 3. The bones of a component are all 3D or all 2D.',
        header: animationHeader,
        parameters: ['count'],
        bytesNative: 'SkinningBlockBytes',
        view: {
          class: 'SkinningView',
          isBase: true,
          file: 'animation',
          argument: 'component',
          object: 'EngineComponent<SkinningHandle>',
          maker: 'createComponent(3, count)',
          setters: [
            {
              name: 'setBone',
              about: 'Says which matrix and which entity bone i has.',
              sets: ['matrixIndex', 'entity'],
              units: { index: 'number of its inverse bind matrix', handle: 'of its entity' },
            },
          ],
        },
        constants: [
          {
            name: 'stride3D',
            value: 64,
            about: 'bytes from one result to the next where bones are 3D: 16 floats, column-major',
            native: 'kSkinningStride3D',
          },
          {
            name: 'stride2D',
            value: 36,
            about: 'the same where bones are 2D: 9 floats, as `worldMatrix` of `entity2D`',
            native: 'kSkinningStride2D',
          },
        ],
        fields: [
          word('bonesModel', 0, 'inverse bind matrices', {
            view: {
              get: 'Handle of the inverse bind matrices.',
              set: 'Names the inverse bind matrices.',
              values: ['handle'],
              holds: 'BonesHandle',
              units: { handle: 'what `createDataModel(2, …)` made' },
            },
          }),
          word('indices', 4, 'number of the matrix of each bone', {
            count: 'count',
            native: 'kSkinningIndicesOffset',
            view: {
              name: 'matrixIndex',
              at: 'the number of the matrix of bone i',
              get: 'Number of the inverse bind matrix of bone i.',
              set: 'A bone whose number lies past the model gets no result.',
              values: ['index'],
            },
          }),
          word('entities', { base: 4, count: 4 }, 'entity of each bone', {
            count: 'count',
            native: 'SkinningEntitiesOffset',
            view: {
              name: 'entity',
              at: 'the handle of its entity',
              get: 'Handle of the entity of bone i.',
              set: 'Has an entity carry bone i.',
              values: ['handle'],
              holds: 'EntityHandle',
            },
          }),
          float(
            'results',
            { base: 4, count: 8 },
            'world matrix × inverse bind matrix of each bone',
            {
              each: 16,
              count: 'count',
              native: 'SkinningResultsOffset',
              by: 'native',
            }
          ),
        ],
      },
      {
        name: 'inverseBindMatrices',
        title: 'bytes of `createDataModel(2, …)`',
        parameters: ['count'],
        constants: [{ name: 'stride', value: 64, about: 'bytes from one matrix to the next' }],
        fields: [float('matrices', 0, 'column-major 4×4 each', { each: 16, count: 'count' })],
      },
    ],
  },
  {
    title: 'Controllers',
    about: '',
    records: [
      {
        name: 'controller',
        title: 'block of a controller',
        about: 'The `buffer` of an "EngineAnimatorControllerModel".',
        header: animationHeader,
        parameters: ['layerCount'],
        bytesNative: 'ControllerBlockBytes',
        view: {
          class: 'ControllerView',
          file: 'animation',
          about:
            'A controller: its binding and its layers, from the base up, see `layout.controller`.',
          argument: 'model',
          object: 'EngineAnimatorControllerModel',
          maker: 'createAnimatorControllerModel(layerCount)',
          count: 'Layers, from the base up.',
          setters: [
            {
              name: 'setLayer',
              about: 'Says all of layer i.',
              sets: ['blendMode', 'layerWeight', 'firstState'],
              values: ['mode', 'weight', 'firstState'],
              units: {
                weight: 'of the layer',
                firstState: 'handle of a state, or `layout.handles.none`',
              },
            },
          ],
        },
        fields: [
          word('bindingHandle', 0, 'a binding, or `handles.none`', {
            view: {
              get: 'Handle of the binding.',
              set: 'Names the binding.',
              values: ['handle'],
              holds: 'BindingHandle',
              units: { handle: 'of a binding; with `layout.handles.none` nothing plays' },
            },
          }),
          {
            name: 'layers',
            offset: 4,
            of: 'controllerLayer',
            count: 'layerCount',
            about: 'from the base up',
            native: 'kControllerLayersOffset',
          },
        ],
      },
      {
        name: 'controllerLayer',
        title: 'layer of a controller',
        struct: 'ControllerLayerRecord',
        header: animationHeader,
        size: 12,
        fields: [
          word('blendMode', 0, 'one of `layerBlendModes`', {
            view: {
              at: 'the blend mode of layer i',
              get: 'One of `layout.layerBlendModes`; any larger number is off.',
              set: 'Has layer i replace what is below, add to it, or be off.',
              values: ['mode'],
              units: { mode: 'one of `layout.layerBlendModes`' },
            },
          }),
          float('weight', 4, 'of the layer', {
            view: {
              name: 'layerWeight',
              at: 'its weight',
              get: 'Weight of layer i.',
              set: 'Gives layer i its weight. An override layer of weight 0 holds its entities at rest: turn it off by its mode.',
              values: ['weight'],
            },
          }),
          word('firstState', 8, 'first state of the chain, or `handles.none`: off', {
            view: {
              at: 'the handle of its first state',
              get: 'Handle of the first state of the chain of layer i.',
              set: 'Has the chain of layer i begin at another state.',
              values: ['handle'],
              holds: 'StateHandle',
              units: { handle: 'of a state; with `layout.handles.none` the layer is empty' },
            },
          }),
        ],
      },
      {
        name: 'controllerState',
        title: 'block of a state',
        about: 'The `buffer` of an "EngineAnimatorControllerStateModel".',
        struct: 'ControllerStateRecord',
        header: animationHeader,
        parameters: ['clipCount'],
        bytesNative: 'ControllerStateBlockBytes',
        view: {
          class: 'ControllerStateView',
          file: 'animation',
          about:
            'A state of a layer: its weight, the state behind it, and what plays of its clips, see `layout.controllerState`. A chain of states that loops is followed for ever.',
          argument: 'model',
          object: 'EngineAnimatorControllerStateModel',
          maker: 'createAnimatorControllerStateModel(clipCount)',
          count: 'Clips that it can play at once.',
          setters: [
            {
              name: 'setClip',
              about: 'Says what plays of clip i.',
              sets: ['clipHandle', 'clipTime', 'clipWeight'],
              units: { handle: 'of the clip' },
            },
            {
              name: 'setReference',
              about: 'Additive layers: says which pose is taken away.',
              sets: ['referenceClip', 'referenceTime'],
              units: { handle: 'of the clip', time: 'frames' },
            },
          ],
        },
        fields: [
          float('weight', 0, 'in its layer; 0 skips the state', {
            view: {
              get: 'Weight of the state in its layer.',
              set: 'Gives the state its share of the layer.',
              values: ['weight'],
              units: { weight: '0 skips the state' },
            },
          }),
          float('fillDefaults', 4, 'any value but 0 brings in rest poses', {
            view: {
              get: 'Whether rest poses are brought in.',
              set: 'Has rest poses brought in, or not.',
              values: ['fill'],
              holds: 'boolean',
            },
          }),
          word('nextState', 8, 'next state of the chain; one that there is not ends it', {
            view: {
              get: 'Handle of the next state of the layer.',
              set: 'Has another state follow in the layer.',
              values: ['handle'],
              holds: 'StateHandle',
              units: { handle: 'of a state; `layout.handles.none` ends the chain' },
            },
          }),
          {
            name: 'clips',
            offset: 12,
            of: 'controllerClip',
            count: 'clipCount',
            about: 'what plays',
            native: 'sizeof(ControllerStateRecord)',
          },
        ],
      },
      {
        name: 'controllerClip',
        title: 'clip of a state',
        struct: 'ControllerClipRecord',
        header: animationHeader,
        size: 20,
        fields: [
          word('clipHandle', 0, 'a clip', {
            view: {
              at: 'the handle of clip i',
              get: 'Handle of clip i.',
              set: 'Has clip i be another one.',
              values: ['handle'],
              holds: 'ClipHandle',
            },
          }),
          float('time', 4, 'frames', {
            view: {
              name: 'clipTime',
              at: 'its time',
              get: 'Its time in frames.',
              set: 'Moves clip i to a time.',
              values: ['time'],
              units: { time: "frames; wraps at the clip's length" },
            },
          }),
          float('weight', 8, '0 skips the clip', {
            view: {
              name: 'clipWeight',
              at: 'its weight',
              get: 'Its weight.',
              set: 'Gives clip i its share of the state.',
              values: ['weight'],
              units: { weight: '0 skips the clip; it is not clamped' },
            },
          }),
          word('referenceClip', 12, 'additive layers: the clip whose pose is taken away', {
            view: {
              at: 'the handle of its reference',
              get: 'Additive layers: handle of the clip whose pose is taken away.',
              values: ['handle'],
              holds: 'ClipHandle',
            },
          }),
          float('referenceTime', 16, 'additive layers: its frame', {
            view: {
              at: 'the time of its reference',
              get: 'Additive layers: frame of that clip.',
              values: ['time'],
            },
          }),
        ],
      },
      {
        name: 'controllerMask',
        title: 'entry of the bytes that `setMaskAtIndex` reads',
        about: 'Entry i stands at i × `size` from the byte offset of the call.',
        struct: 'ControllerMaskRecord',
        header: animationHeader,
        size: 8,
        fields: [
          word('entity', 0, 'handle'),
          float('weight', 4, '0 keeps the layer off the entity'),
        ],
      },
      {
        name: 'targetLists',
        title: 'lists that `createAnimationClipBinding` and `updateBinding` read',
        about: 'From the byte offset of the call, a multiple of 4 where a view writes them.',
        parameters: ['clipCount', 'targetWords'],
        fields: [
          word('clips', 0, 'handles of clips', { count: 'clipCount' }),
          word('groups', { base: 0, clipCount: 4 }, 'a `targetGroup` for each clip, back to back', {
            count: 'targetWords',
          }),
        ],
      },
      {
        name: 'targetGroup',
        title: 'list of one clip',
        parameters: ['count'],
        fields: [
          word('count', 0, 'entries'),
          word('entities', 4, 'what target k of the clip moves, or `handles.none`', {
            count: 'count',
          }),
        ],
      },
      {
        name: 'batchList',
        title:
          'argument of `updateAnimators`, `updateAnimatorControllers`, `updateSkinningMatrices`',
        about: 'An `ArrayBuffer` or a view.',
        parameters: ['count'],
        fields: [
          word('count', 0, 'handles'),
          word('handles', 4, 'what to update', { count: 'count' }),
        ],
      },
    ],
  },
  {
    title: 'Clips',
    about: 'The bytes of `createDataModel(1, …)`, which `buildClip` of `lib/clip.js` writes.',
    records: [
      {
        name: 'clip',
        title: 'bytes of a clip',
        header: clipHeader,
        parameters: ['curveCount', 'keyCount'],
        fields: [
          { name: 'header', offset: 0, of: 'clipHeader', count: 1, about: 'how much there is' },
          {
            name: 'curves',
            offset: 16,
            of: 'clipCurve',
            count: 'curveCount',
            about: 'what moves',
            native: 'sizeof(ClipHeader)',
          },
          {
            name: 'keys',
            offset: { base: 16, curveCount: 12 },
            of: 'clipKey',
            count: 'keyCount',
            about: 'keys of all curves, in the order of the curves',
          },
        ],
      },
      {
        name: 'clipHeader',
        title: 'head of a clip',
        struct: 'ClipHeader',
        header: clipHeader,
        size: 16,
        fields: [
          word('keyDataOffset', 0, 'bytes from the start to the first key: 16 + 12 × curves'),
          float('framesPerSecond', 4, 'a whole number: a fraction is dropped'),
          word('frameCount', 8, 'frames after which sampling starts again'),
          word('curveCount', 12, 'curves'),
        ],
      },
      {
        name: 'clipCurve',
        title: 'curve of a clip',
        struct: 'ClipCurve',
        header: clipHeader,
        size: 12,
        fields: [
          word('targetIndex', 0, 'from 0, without gaps'),
          word('sampleType', 4, 'one of `sampleTypes`'),
          word('keyCount', 8, 'keys, may be 0'),
        ],
      },
      {
        name: 'clipKey',
        title: 'key of a curve',
        struct: 'ClipKey',
        header: clipHeader,
        size: 16,
        fields: [
          word('frame', 0, 'ascending within a curve'),
          float('value', 4, 'the value there'),
          float('inTangent', 8, 'slope arriving at the key, in value units a second'),
          float('outTangent', 12, 'slope leaving it; infinite for a step'),
        ],
      },
    ],
  },
  {
    title: 'MatrixFlow',
    about: '',
    records: [
      {
        name: 'matrixFlowStream',
        title: '`buffer` of a command buffer',
        header: streamHeader,
        parameters: ['length'],
        fields: [
          word('length', 0, 'bytes of commands'),
          {
            name: 'commands',
            offset: 4,
            type: 'u8',
            count: 'length',
            about: 'each a type of `matrixFlowCommands` (i32) and its operand words, back to back',
            native: 'kStreamHeaderBytes',
          },
        ],
      },
      {
        name: 'matrixFlowOperand',
        title: 'operand of a command',
        size: 8,
        fields: [
          word('memoryID', 0, 'of a block that script shares with native code'),
          word('offset', 4, 'bytes into it, of any alignment'),
        ],
      },
    ],
  },
  {
    title: 'Arguments of culling calls',
    about: 'Not bytes but positions in a call; `required` counts those that a call must have.',
    unit: 'argument',
    records: [
      {
        name: 'frustumCullingArguments',
        title: 'of `frustumCulling`, `cullWithCamera`, `frustumCullingV2`',
        size: 14,
        fields: [
          { name: 'mask', offset: 0, about: 'layer bits' },
          { name: 'eye', offset: 1, count: 3, about: 'x, y, z' },
          { name: 'target', offset: 4, count: 3, about: 'x, y, z' },
          { name: 'up', offset: 7, count: 3, about: 'x, y, z; not along the view' },
          { name: 'fov', offset: 10, about: 'vertical whole angle in radians' },
          { name: 'aspect', offset: 11, about: 'width over height' },
          { name: 'near', offset: 12, about: 'distance along the view' },
          { name: 'far', offset: 13, about: 'distance along the view' },
          { name: 'list', offset: 14, optional: true, about: 'optional: a `cullingList`' },
        ],
      },
      {
        name: 'orthoCullingArguments',
        title: 'of `orthoCulling`, `orthoCullingV2`',
        size: 16,
        fields: [
          { name: 'mask', offset: 0, about: 'layer bits' },
          { name: 'eye', offset: 1, count: 3, about: 'x, y, z' },
          { name: 'target', offset: 4, count: 3, about: 'x, y, z' },
          { name: 'up', offset: 7, count: 3, about: 'x, y, z; not along the view' },
          { name: 'left', offset: 10, about: "from the camera's axis, usually negative" },
          { name: 'right', offset: 11, about: "from the camera's axis" },
          { name: 'bottom', offset: 12, about: "from the camera's axis, usually negative" },
          { name: 'top', offset: 13, about: "from the camera's axis" },
          { name: 'near', offset: 14, about: 'distance along the view' },
          { name: 'far', offset: 15, about: 'distance along the view' },
          { name: 'list', offset: 16, optional: true, about: 'optional: a `cullingList`' },
        ],
      },
    ],
  },
];

/** Values of an enumeration from pairs of name and value, with what they mean. */
function values(rows) {
  return rows.map(([name, value, about]) => ({ name, value, about }));
}

// Commands, for their writers, see scripts/layouts/commands.js, and for checked mode. Operands are words: rows of a
// name, the kind of handle that it is ('word' for none), and what it means beyond its name.

/** A command of fixed operands. */
function command(name, value, operands, about, more) {
  const shown = operands.map(([operand]) => operand).join(', ');
  return Object.assign({ name, value, about: shown, command: { operands, about } }, more);
}

/** A command of n elements: n, then n words for each row of operands. */
function batchCommand(name, value, operands, about) {
  const shown = ['n', ...operands.map(([operand]) => `n ${operand}`)].join(', ');
  return { name, value, about: shown, command: { operands, about, isBatch: true } };
}

/** Values that MatrixFlow commands compute with. */
const flowValues = {
  scalar: { first: 1000, bytes: 4, title: 'Scalars: one float.', each: '' },
  vector2: { first: 2000, bytes: 8, title: 'Vectors of two floats.', each: ' by component' },
  vector3: { first: 3000, bytes: 12, title: 'Vectors of three floats.', each: ' by component' },
  vector4: { first: 4000, bytes: 16, title: 'Vectors of four floats.', each: ' by component' },
  matrix3: {
    first: 5000,
    bytes: 36,
    title: '3x3 matrices: nine floats, column-major.',
    each: ' by element',
    rows: 3,
  },
  matrix4: {
    first: 6000,
    bytes: 64,
    title: '4x4 matrices: sixteen floats, column-major.',
    each: ' by element',
    rows: 4,
  },
};

/** Bytes that native code proves of what it copies, where these are fewer than it copies. */
const kProvenCopies = { vector2: 4, vector3: 4 };

const kAllValues = Object.keys(flowValues);
const kNoMatrices = ['scalar', 'vector2', 'vector3', 'vector4'];

/**
 * Operations: which values they are for, their number beyond the first of those, names of the operands in the stream,
 * and what is computed of floats a and b, where it is the same for each float of a value.
 */
const flowOperations = {
  Copy: { of: kAllValues, number: 0, operands: ['D', 'S'] },
  Add: { of: kAllValues, number: 1, operands: ['A', 'B', 'R'], each: 'a + b' },
  Sub: { of: kAllValues, number: 2, operands: ['A', 'B', 'R'], each: 'a - b' },
  Mul: { of: kAllValues, number: 3, operands: ['A', 'B', 'R'], each: 'a * b' },
  Div: { of: kNoMatrices, number: 4, operands: ['A', 'B', 'R'], each: 'a / b' },
  Invert: { of: ['matrix4'], number: 4, operands: ['S', 'D'] },
};

/** What is to be known of single MatrixFlow commands. */
const flowNotes = {
  scalarDiv:
    'A divisor below the smallest normal float, any negative one included, ends the run with result 5.',
  vector2Div: 'Tests no divisor.',
  vector3Div: 'Tests no divisor.',
  vector4Div: 'Tests no divisor.',
};

/** What a MatrixFlow command does, for its comment. */
function tellFlow(name, family, operation) {
  const { bytes, each, rows } = flowValues[family];
  const { operands } = flowOperations[operation];
  const names = operands.join(', ');
  if (operation === 'Invert') {
    // Kept on purpose: native code copies.
    return `${names}: the source first. D = S: no inverse.`;
  }
  if (operation === 'Copy') {
    const proven = kProvenCopies[family];
    const note = `The engine proves ${proven} of them: \`blockSizes\` holds all ${bytes} against the block.`;
    return `${names}. D = S, ${bytes} bytes.${proven === undefined ? '' : ` ${note}`}`;
  }
  const formula = flowOperations[operation].each.toUpperCase();
  const isProduct = operation === 'Mul' && rows !== undefined;
  const note = flowNotes[name] === undefined ? '' : ` ${flowNotes[name]}`;
  return `${names}. R = ${formula}${isProduct ? ', the matrix product' : each}.${note}`;
}

/** The MatrixFlow commands on a kind of value. */
function flowFamily(family) {
  const { first, bytes, rows } = flowValues[family];
  const operations = Object.keys(flowOperations).filter((one) =>
    flowOperations[one].of.includes(family)
  );
  return operations.map((operation) => {
    const name = `${family}${operation}`;
    const { number, operands, each } = flowOperations[operation];
    const isProduct = operation === 'Mul' && rows !== undefined;
    const proven = operation === 'Copy' ? kProvenCopies[family] : undefined;
    return {
      name,
      value: first + number,
      command: {
        family,
        operands,
        bytes,
        proven: proven === undefined ? bytes : proven,
        compute: isProduct ? undefined : each,
        rows: isProduct ? rows : undefined,
        about: tellFlow(name, family, operation),
      },
    };
  });
}

// `native` names an enumerator, with the name of the value for {}.
const enums = [
  {
    name: 'rotationModes',
    title: '`rotationMode` of a 3D entity',
    values: values([
      ['euler', 0, 'rotation x, y, z are angles'],
      ['quaternion', 1, 'rotation is a quaternion; so it is for any other value but 0'],
    ]),
  },
  {
    name: 'componentKinds',
    title: 'first argument of `createComponent`',
    values: values([
      ['culling', 1, 'a batch of culling objects'],
      ['animator', 2, 'an animator'],
      ['skinning', 3, 'a skinning component'],
    ]),
  },
  {
    name: 'dataModelKinds',
    title: 'first argument of `createDataModel`',
    values: values([
      ['clip', 1, 'an animation clip'],
      ['bones', 2, 'inverse bind matrices'],
    ]),
  },
  {
    name: 'layerBlendModes',
    title: '`blendMode` of a controller layer',
    header: animationHeader,
    values: [
      { name: 'override', value: 0, about: 'replaces layers below', native: 'kOverrideLayer' },
      { name: 'additive', value: 1, about: 'adds to layers below', native: 'kAdditiveLayer' },
      { name: 'off', value: 2, about: 'takes no part; so does any larger number' },
    ],
  },
  {
    name: 'removedModes',
    title: '`removedMode` of `updateBinding`: rest poses of entities that leave',
    values: values([
      ['keep', 0, 'stay known'],
      ['forget', 1, 'are dropped'],
      ['restoreAndKeep', 2, 'are written to the records, and stay known'],
      ['restoreAndForget', 3, 'are written to the records, and dropped'],
    ]),
  },
  {
    name: 'keptModes',
    title: '`keptMode` of `updateBinding`: rest poses of entities that stay',
    values: values([
      ['keep', 0, 'stay as they are'],
      ['retake', 1, 'are taken anew from the records'],
      ['restoreAndKeep', 2, 'are written to the records, and stay as they are'],
      ['restoreAndRetake', 3, 'are taken anew; then the old ones are written to the records'],
    ]),
  },
  {
    name: 'addedModes',
    title: '`addedMode` of `updateBinding`, and `mode` of `createAnimationClipBinding`',
    values: values([
      ['none', 0, 'entities that come have no rest pose: controllers pass them over'],
      ['take', 1, 'rest poses are taken from the records'],
    ]),
  },
  {
    name: 'sampleTypes',
    title: 'what a curve of a clip drives',
    header: clipHeader,
    native: 'k{}',
    values: values([
      ['PositionX', 1],
      ['PositionY', 2],
      ['PositionZ', 3],
      ['ScaleX', 4],
      ['ScaleY', 5],
      ['ScaleZ', 6],
      ['EulerX', 7],
      ['EulerY', 8],
      ['EulerZ', 9],
      ['QuaternionW', 10],
      ['QuaternionX', 11],
      ['QuaternionY', 12],
      ['QuaternionZ', 13],
    ]),
  },
  {
    name: 'clipChannels',
    title: 'channels of a sampled target, in their order',
    about: 'Euler angles share the first three of the rotation.',
    header: clipHeader,
    values: [
      { name: 'positionX', value: 0 },
      { name: 'positionY', value: 1 },
      { name: 'positionZ', value: 2 },
      { name: 'scaleX', value: 3, native: 'kScaleChannel' },
      { name: 'scaleY', value: 4 },
      { name: 'scaleZ', value: 5 },
      { name: 'rotationX', value: 6, native: 'kRotationChannel' },
      { name: 'rotationY', value: 7 },
      { name: 'rotationZ', value: 8 },
      { name: 'rotationW', value: 9, native: 'kRotationWChannel' },
    ],
  },
  {
    name: 'entityCommands',
    title: 'commands of `entityCommandStream`, with their operands',
    header: commandHeader,
    native: 'EntityCommand::k{}',
    values: [
      command(
        'addRoot',
        1,
        [['handle', 'EntityHandle']],
        'Makes an entity without a parent a root; twice, and it is walked twice.'
      ),
      command(
        'addChild',
        2,
        [
          ['parent', 'H'],
          ['child', 'H'],
        ],
        "Attaches behind the parent's children; both of one kind, 2D or 3D, or nothing happens. Never close a cycle: a refresh then ends the process."
      ),
      command(
        'insertChild',
        3,
        [
          ['parent', 'EntityHandle'],
          ['child', 'EntityHandle'],
          ['index', 'word', 'counted without the child'],
        ],
        "Attaches at a place among the parent's children, also across kinds."
      ),
      command(
        'removeFromParent',
        4,
        [['handle', 'EntityHandle']],
        'Its matrices stay as they are.'
      ),
      command(
        'resetSubtree',
        5,
        [['handle', 'EntityHandle']],
        'The entity and all below it lose links, bindings to bones, names and inactivity.'
      ),
      command(
        'bindToBone',
        6,
        [
          ['entity', 'EntityHandle'],
          ['bone', 'Entity3DHandle', 'a 3D entity: 2D ones lead nobody'],
        ],
        "The entity takes over the bone's world transform, one refresh later."
      ),
      batchCommand(
        'bindToBoneBatch',
        7,
        [
          ['entities', 'EntityHandle', '', 'entity'],
          ['bones', 'Entity3DHandle', 'as many', 'bone'],
        ],
        'Entity i follows bone i.'
      ),
      command('unbindFromBone', 8, [['handle', 'EntityHandle']], ''),
      batchCommand('unbindFromBoneBatch', 9, [['handles', 'EntityHandle']], ''),
      command(
        'activate',
        10,
        [['handle', 'EntityHandle']],
        'An inactive entity becomes active, and is computed anew with all below it.'
      ),
      command(
        'deactivate',
        11,
        [['handle', 'EntityHandle']],
        'The entity and all below it keep their matrices until it is activated.'
      ),
    ],
  },
  {
    name: 'matrixFlowCommands',
    title: 'commands of `matrixFlowStream`',
    about: 'Their operands are told in [MatrixFlow](matrixflow.md).',
    header: flowHeader,
    native: 'MatrixFlowCommand::k{}',
    values: [
      command(
        'call',
        1,
        [['handle', 'CommandBufferHandle', '`id` of a command buffer']],
        'Runs another command buffer and, unless its result is 0, ends with that result. Nothing stops buffers that call each other in a circle but the end of the stack, and the process.',
        { about: undefined }
      ),
      ...[].concat(...Object.keys(flowValues).map(flowFamily)),
      // Its method stands in lib/commands.js: it alone has a count beside its operands.
      { name: 'bulkCopy', value: 9000, command: { operands: ['D', 'S'], words: 5 } },
    ],
  },
  {
    name: 'matrixFlowResults',
    title: 'what `execute` of a command buffer returns',
    header: flowHeader,
    native: 'kMatrixFlow{}',
    values: values([
      ['done', 0, 'the stream ran to its end'],
      ['noBuffer', 1, 'the handle names none'],
      ['cutOff', 2, 'the stream ends inside a command'],
      ['unknownCommand', 3, 'no command has this type'],
      ['outOfBlock', 4, 'an operand does not fit its block, or there is no such block'],
      ['divisorTooSmall', 5, 'of a scalar division'],
    ]),
  },
];

/** Numbers that are no offsets. */
const limits = [
  {
    name: 'batch',
    value: 4095,
    about: 'entities, or culling objects, in a batch',
    native: 'kMaxBatchCount',
    header: handleHeader,
  },
  {
    name: 'slots',
    value: 1048575,
    about: 'batches, or objects of any other kind, alive at once',
    native: 'kHandleSlotLimit - 1',
    header: handleHeader,
  },
  {
    name: 'freeSlots',
    value: 4096,
    about: 'released slots of a kind that are remembered for reuse',
    native: 'kFreeStackCapacity',
    header: 'Common/Def/HandlerAllocator.h',
  },
  {
    name: 'dirtyEntities',
    value: 12287,
    about: 'entries of `dirtyEntityList`',
    native: 'kDirtyListCapacity',
    header: dirtyHeader,
  },
  {
    name: 'commandBytes',
    value: 49148,
    about: 'bytes of commands behind the length of `entityCommandStream`',
    native: 'kSharedListBytes - kStreamHeaderBytes',
    header: dirtyHeader,
  },
  {
    name: 'cullingResultObjects',
    value: 1000,
    about: 'objects that `cullingResult` has room for at the start',
    native: 'kCullingResultCapacity',
    header: cullingHeader,
  },
  {
    name: 'cullingResultSlack',
    value: 480,
    about: 'room beyond the need that it gains when it grows',
    native: 'kCullingResultSlack',
    header: cullingHeader,
  },
  {
    name: 'wholeFrames',
    value: 16777216,
    about: 'frames of a time up to which a float counts single ones',
  },
  {
    name: 'threads',
    value: 4,
    about: 'worker threads of an engine',
    native: 'kFirstPoolThreads',
    header: 'Common/Def/EngineRuntime.h',
  },
];

/** How a handle is made up. */
const handles = {
  title: 'parts of a handle',
  values: [
    {
      name: 'elementBits',
      value: 12,
      about: 'bits of the position in a batch; the slot stands above',
      native: 'kHandleElementBits',
      header: handleHeader,
    },
    {
      name: 'elementMask',
      value: 4095,
      about: 'position in a batch',
      native: 'kHandleElementMask',
      header: handleHeader,
    },
    {
      name: 'none',
      value: 4294967295,
      about: 'names nothing: no binding, no state, a target without an entity',
      native: 'kNoHandle',
      header: animationHeader,
    },
  ],
};

module.exports = { groups, enums, limits, handles, flowValues };
