'use strict';
// The only description of the memory that JavaScript and native code share. scripts/layouts.js generates
// lib/layout.js, types/layout.d.ts, docs/layouts.md, views and writers from it, and the facts that
// tests/native/Engine/LayoutsTest.cpp compares with the native headers.
//
// | Of a group | |
// |---|---|
// | title, about | heading of docs/layouts.md, and the paragraph below it |
// | unit | 'argument': offsets are positions of arguments instead of bytes |
// | records | as follows |
//
// A record has a fixed `size`, or is a block whose length depends on counts, its `parameters`. Its fields, and padding
// marked `gap`, cover it without holes.
//
// | Of a record | |
// |---|---|
// | name, title, about | its name in lib/layout.js; heading and paragraph in docs/layouts.md |
// | struct, header | the native struct, whose members have the names and types of the fields; its header |
// | size, sizeNative | bytes, or the number of mandatory arguments; the native constant, if there is no struct |
// | parameters, bytesNative | names of counts; the native function of them that returns the size of a block |
// | constants | further numbers, such as strides: name, value, about, native |
// | fields, view | see below |
//
// An offset is a number, or a base plus bytes per count: { base: 4, count: 8 } is 4 + 8 × count. A field is `count`
// elements of a type or of another record, `each` values wide.
//
// | Of a field | |
// |---|---|
// | name, about | its name in lib/layout.js; its meaning, in all generated documents |
// | offset | as above |
// | type, of | 'u8', 'u32', 'i32' or 'f32'; or the name of another record, of which it is an array |
// | count, each | number of elements, a number or a parameter; values per element; 1 if left out |
// | by | what writes it: 'native' code, or 'both' sides; JavaScript if left out |
// | gap | padding that is neither read nor written |
// | optional | the last argument of a call, which may be left out |
// | native, nativeHeader | what corresponds in the native header, or in another one, if it is no member of `struct`: a constant, or a function of the parameters in the offset |
// | countNative | the native constant of `count` |
// | view | see below |
//
// `view` of a record describes its view class, `view` of a field the accessors that scripts/layouts/views.js
// generates:
//
// | Of a record's view | |
// |---|---|
// | class, isBase | the class; with `isBase` it is generated as "…Base", and a hand-written subclass adds the rest |
// | file | lib/view-<file>-records.js |
// | argument, object, maker | constructor parameter, its type, and the call that creates such an object, for messages |
// | count | doc of `count`, or of the parameter that is the number of records in a block |
// | handle, handleAbout, element | batches: handle type of an element, doc of `handle()`, name of an element |
// | about | doc of the class |
// | setters | methods that set several fields: `name`, `about`; `sets`, the getters of the fields; `values`, parameter names, if they are not those of the fields; `units`, docs of parameters, added to those of the fields |
//
// | Of a field's view | |
// |---|---|
// | name | of the getter, if it differs from the field's |
// | at, get, set | docs of xAt(i), x(i), setX(i, …); there is no xAt or setX without one, and a field without `view` has no method |
// | values | parameter names of the setter, or of `setters`: one, or one per element |
// | units | docs of parameters, by name |
// | holds | handle type, 'boolean', or 'bits': a mask, which may be negative |
// | index | name of the index, if it isn't i |
// | parts | getters of a range of its elements: `name`, `from`, `count`, `get`, the doc |
//
// Enumerations, limits and parts of handles are lists of values: `name`, `value`, `about`, and what corresponds
// natively: `native` and its `header`. `native` of an enumeration is a pattern, in which {} is the name of the value.
// Commands are described where their functions are: `command`, `batchCommand`, `flowValues`, `flowOperations`.

const kWord = 'u32';
const kFloat = 'f32';

/** One or more 32-bit words. */
function word(name, offset, about, more) {
  return Object.assign({ name, offset, type: kWord, about }, more);
}

/** One or more floats. */
function float(name, offset, about, more) {
  return Object.assign({ name, offset, type: kFloat, about }, more);
}

/** A clip that plays, of an animator or of a state: its handle, time and weight, at the start of a record. */
function playedClipFields({ clip, weight, setWeight, weightUnits }) {
  const wraps = "frames; wraps at the clip's length";
  return [
    word('clipHandle', 0, clip, {
      view: {
        at: 'the handle of clip i',
        get: 'Handle of clip i.',
        set: 'Sets the handle of clip i.',
        values: ['handle'],
        holds: 'ClipHandle',
      },
    }),
    float('time', 4, wraps, {
      view: {
        name: 'clipTime',
        at: 'its time',
        get: 'Time of clip i in frames.',
        set: 'Sets the time of clip i.',
        values: ['time'],
        units: { time: wraps },
      },
    }),
    float('weight', 8, weight, {
      view: {
        name: 'clipWeight',
        at: 'its weight',
        get: 'Weight of clip i.',
        set: setWeight,
        values: ['weight'],
        units: { weight: weightUnits },
      },
    }),
  ];
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
      'The `buffer` of an "EngineEntity". A new record is all zeros, including its scale. Element i of a batch starts at byte i × `size` and has the handle `id + i`.',
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
          count: 'Number of entities in the batch.',
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
              get: '0 for Euler angles, any other value for a quaternion; see `layout.rotationModes`.',
            },
          },
          { name: 'unused', offset: 1, type: 'u8', count: 3, gap: true },
          float('rotation', 4, 'Euler x, y, z in radians, or quaternion x, y, z, w', {
            count: 4,
            view: {
              at: 'its rotation: x, y, z, w',
              get: 'Euler angles x, y, z in radians and an unused number, or quaternion x, y, z, w.',
            },
          }),
          float('position', 20, "x, y, z in the parent's space", {
            count: 3,
            view: {
              at: 'its position: x, y, z',
              get: "Position in the parent's space.",
              set: "Sets the position of entity i in the parent's space.",
              values: ['x', 'y', 'z'],
            },
          }),
          float('scale', 32, 'x, y, z', {
            count: 3,
            view: {
              at: 'its scale: x, y, z',
              get: 'Scale along the axes.',
              set: 'Sets the scale of entity i. The scale of a new entity is 0.',
              values: ['x', 'y', 'z'],
            },
          }),
          float('worldMatrix', 44, 'column-major 4×4', {
            count: 16,
            by: 'native',
            view: {
              at: 'its world matrix: 16 floats',
              get: 'World matrix, column-major, as of the last refresh.',
              parts: [
                {
                  name: 'worldPosition',
                  from: 12,
                  count: 3,
                  get: 'World position of entity i: the last column of its world matrix.',
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
          count: 'Number of entities in the batch.',
          element: 'entity',
        },
        fields: [
          float('rotation', 0, 'radians; a positive angle rotates from y towards x', {
            view: {
              at: 'the rotation of entity i',
              get: 'Radians; a positive angle rotates from y towards x.',
              set: 'Sets the rotation of entity i.',
              values: ['angle'],
              units: { angle: 'radians; a positive angle rotates from y towards x' },
            },
          }),
          float('position', 4, "x, y in the parent's space", {
            count: 2,
            view: {
              at: 'its position: x, y',
              get: "Position in the parent's space.",
              set: "Sets the position of entity i in the parent's space.",
              values: ['x', 'y'],
            },
          }),
          float('scale', 12, 'x, y', {
            count: 2,
            view: {
              at: 'its scale: x, y',
              get: 'Scale along the axes.',
              set: 'Sets the scale of entity i. The scale of a new entity is 0.',
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
                get: 'World matrix, column-major 3×3, as of the last refresh.',
                parts: [
                  {
                    name: 'worldPosition',
                    from: 6,
                    count: 2,
                    get: 'World position of entity i: the last column of its world matrix.',
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
          word(
            'handles',
            4,
            'entities whose records were written, in the order they were appended',
            {
              count: 12287,
              countNative: 'kDirtyListCapacity',
              by: 'both',
            }
          ),
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
          word(
            'commands',
            4,
            'each one a value of `entityCommands` and its operands, back to back',
            {
              count: 12287,
              native: 'kStreamHeaderBytes',
              nativeHeader: streamHeader,
            }
          ),
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
          'The `buffer` of an "EngineComponent" of kind 1: object i starts at byte i × `size` and has the handle `id + i`.',
        struct: 'CullingRecord',
        header: cullingHeader,
        size: 28,
        view: {
          class: 'CullingObjectsView',
          file: 'culling',
          about:
            "A batch of culling objects, see `layout.cullingObject`. Centre and radius take effect when the entity's world matrix is next recomputed, all other fields immediately.",
          argument: 'component',
          object: 'EngineComponent<CullingObjectHandle>',
          handle: 'CullingObjectHandle',
          handleAbout: 'Handle of object i, as culling results report it.',
          maker: 'createComponent(1, count)',
          count: 'Number of objects in the batch.',
          element: 'object',
          setters: [
            {
              name: 'setSphere',
              about: "Sets the bounding sphere of object i, in the entity's space.",
              sets: ['center', 'radius'],
            },
          ],
        },
        fields: [
          {
            name: 'enabled',
            offset: 0,
            type: 'u8',
            about: '0: culling ignores the object',
            view: {
              at: 'the `enabled` byte of object i',
              get: 'Whether object i is culled at all. A new object is disabled.',
              set: 'Enables or disables object i.',
              values: ['enabled'],
              holds: 'boolean',
            },
          },
          { name: 'unused', offset: 1, type: 'u8', count: 3, gap: true },
          word('mask', 4, "layer bits; the object is tested if `mask` & the call's mask is not 0", {
            view: {
              at: 'its mask',
              get: 'Layer mask of object i, unsigned.',
              set: 'Sets the layer mask of object i.',
              values: ['mask'],
              holds: 'bits',
              units: { mask: '32 bits, as an unsigned or a signed number: -1 is all layers' },
            },
          }),
          float('center', 8, "x, y, z in the entity's space", {
            count: 3,
            view: {
              at: 'its centre: x, y, z',
              get: "Centre of its bounding sphere in the entity's space.",
              values: ['x', 'y', 'z'],
            },
          }),
          float('radius', 20, "in the entity's space", {
            view: {
              at: 'its radius',
              get: "Radius of its bounding sphere in the entity's space.",
              values: ['radius'],
            },
          }),
          word('entity', 24, 'handle of a 3D entity', {
            view: {
              at: 'the handle of its entity',
              get: 'Handle of the entity that object i is attached to.',
              set: 'Attaches object i to a 3D entity.',
              values: ['handle'],
              holds: 'Entity3DHandle',
            },
          }),
        ],
      },
      {
        name: 'cullingList',
        title: 'last argument of a culling call: objects to test',
        about: 'An `ArrayBuffer`, which may be longer than the list.',
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
          'Its initial capacity is `limits.cullingResultObjects`. The offset of the distances depends on the count. The other methods return an object with its own buffers: `objects` holds the data at `objects` here, `distances` the data at `distances`, each from byte 0, and `hash` is a number.',
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
          float('distances', { base: 8, count: 4 }, 'depth of each along the view direction', {
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
              about: 'Sets clip i, its time and its weight.',
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
            about: 'the clips that play',
          },
          word(
            'targets',
            { base: 0, clipCount: 12 },
            'entities: target tables of all clips, back to back',
            {
              count: 'entityCount',
              native: 'AnimatorTargetsOffset',
              view: {
                name: 'target',
                index: 'k',
                at: 'entry k of the target table',
                get: 'Handle of the entity in entry k of the target table.',
                set: 'Sets entry k of the target table.',
                values: ['handle'],
                holds: 'EntityHandle',
                units: {
                  k: 'entry of the target table, which concatenates the targets of all clips in their order',
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
          ...playedClipFields({
            clip: 'an existing clip, whatever its weight',
            weight: 'the clip is blended if 0 < weight <= 1',
            setWeight: 'Sets the blend weight of clip i.',
            weightUnits: 'the clip is blended if 0 < weight <= 1',
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
              about: 'Sets the inverse bind matrix and the entity of bone i.',
              sets: ['matrixIndex', 'entity'],
              units: { index: 'of its inverse bind matrix', handle: 'of its entity' },
            },
          ],
        },
        constants: [
          {
            name: 'stride3D',
            value: 64,
            about: 'bytes from one result to the next with 3D bones: 16 floats, column-major',
            native: 'kSkinningStride3D',
          },
          {
            name: 'stride2D',
            value: 36,
            about: 'the same with 2D bones: 9 floats, as `worldMatrix` of `entity2D`',
            native: 'kSkinningStride2D',
          },
        ],
        fields: [
          word('bonesModel', 0, 'inverse bind matrices', {
            view: {
              get: 'Handle of the inverse bind matrices.',
              set: 'Sets the inverse bind matrices.',
              values: ['handle'],
              holds: 'BonesHandle',
              units: { handle: '`id` of what `createDataModel(2, …)` returned' },
            },
          }),
          word('indices', 4, 'index of the inverse bind matrix of each bone', {
            count: 'count',
            native: 'kSkinningIndicesOffset',
            view: {
              name: 'matrixIndex',
              at: 'the matrix index of bone i',
              get: 'Index of the inverse bind matrix of bone i.',
              set: 'Sets the matrix index of bone i. A bone with an index beyond the model gets no result.',
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
              set: 'Sets the entity of bone i.',
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
            'A controller: its binding and its layers, base layer first, see `layout.controller`.',
          argument: 'model',
          object: 'EngineAnimatorControllerModel',
          maker: 'createAnimatorControllerModel(layerCount)',
          count: 'Number of layers, base layer first.',
          setters: [
            {
              name: 'setLayer',
              about: 'Sets blend mode, weight and first state of layer i.',
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
              set: 'Sets the binding.',
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
            about: 'base layer first',
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
              set: 'Sets the blend mode of layer i: override, additive or off.',
              values: ['mode'],
              units: { mode: 'one of `layout.layerBlendModes`' },
            },
          }),
          float('weight', 4, 'of the layer', {
            view: {
              name: 'layerWeight',
              at: 'its weight',
              get: 'Weight of layer i.',
              set: 'Sets the weight of layer i. An override layer of weight 0 holds its entities in their rest pose: turn it off by its mode.',
              values: ['weight'],
            },
          }),
          word('firstState', 8, 'first state of the chain, or `handles.none`: off', {
            view: {
              at: 'the handle of its first state',
              get: 'Handle of the first state of the chain of layer i.',
              set: 'Sets the first state of the chain of layer i.',
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
            'A state of a layer: its weight, the next state of the chain, and its clips with times and weights, see `layout.controllerState`. A cyclic chain of states is an endless loop.',
          argument: 'model',
          object: 'EngineAnimatorControllerStateModel',
          maker: 'createAnimatorControllerStateModel(clipCount)',
          count: 'Number of clips that can play at once.',
          setters: [
            {
              name: 'setClip',
              about: 'Sets clip i, its time and its weight.',
              sets: ['clipHandle', 'clipTime', 'clipWeight'],
              units: { handle: 'of the clip' },
            },
            {
              name: 'setReference',
              about: 'Additive layers: sets the reference pose, which is subtracted.',
              sets: ['referenceClip', 'referenceTime'],
              units: { handle: 'of the clip', time: 'frames' },
            },
          ],
        },
        fields: [
          float('weight', 0, 'in its layer; 0 skips the state', {
            view: {
              get: 'Weight of the state in its layer.',
              set: 'Sets the weight of the state in its layer.',
              values: ['weight'],
              units: { weight: '0 skips the state' },
            },
          }),
          float('fillDefaults', 4, 'any value except 0 blends in rest poses', {
            view: {
              get: 'Whether rest poses are blended in.',
              set: 'Sets whether rest poses are blended in.',
              values: ['fill'],
              holds: 'boolean',
            },
          }),
          word('nextState', 8, 'next state of the chain; a handle of no state ends it', {
            view: {
              get: 'Handle of the next state of the layer.',
              set: 'Sets the next state of the layer.',
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
            about: 'the clips that play',
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
          ...playedClipFields({
            clip: 'a clip',
            weight: '0 skips the clip',
            setWeight: 'Sets the weight of clip i in the state.',
            weightUnits: '0 skips the clip; it is not clamped',
          }),
          word('referenceClip', 12, 'additive layers: the clip whose pose is subtracted', {
            view: {
              at: 'the handle of its reference clip',
              get: 'Additive layers: handle of the reference clip, whose pose is subtracted.',
              values: ['handle'],
              holds: 'ClipHandle',
            },
          }),
          float('referenceTime', 16, 'additive layers: frame of the reference clip', {
            view: {
              at: 'the time of its reference clip',
              get: 'Additive layers: frame of the reference clip.',
              values: ['time'],
            },
          }),
        ],
      },
      {
        name: 'controllerMask',
        title: 'entry of the bytes that `setMaskAtIndex` reads',
        about: 'Entry i starts i × `size` bytes after the byte offset of the call.',
        struct: 'ControllerMaskRecord',
        header: animationHeader,
        size: 8,
        fields: [
          word('entity', 0, 'handle'),
          float('weight', 4, '0: the layer does not affect the entity'),
        ],
      },
      {
        name: 'targetLists',
        title: 'lists that `createAnimationClipBinding` and `updateBinding` read',
        about: 'From the byte offset of the call; the view requires a multiple of 4.',
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
        title: 'target list of one clip',
        parameters: ['count'],
        fields: [
          word('count', 0, 'entries'),
          word(
            'entities',
            4,
            'entry k: the entity that target k of the clip moves, or `handles.none`',
            {
              count: 'count',
            }
          ),
        ],
      },
      {
        name: 'batchList',
        title:
          'argument of `updateAnimators`, `updateAnimatorControllers`, `updateSkinningMatrices`',
        about: 'An `ArrayBuffer` or a typed array.',
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
          { name: 'header', offset: 0, of: 'clipHeader', count: 1, about: 'counts and length' },
          {
            name: 'curves',
            offset: 16,
            of: 'clipCurve',
            count: 'curveCount',
            about: 'the animated channels',
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
        title: 'header of a clip',
        struct: 'ClipHeader',
        header: clipHeader,
        size: 16,
        fields: [
          word('keyDataOffset', 0, 'bytes from the start to the first key: 16 + 12 × curves'),
          float('framesPerSecond', 4, 'an integer: the fraction is truncated'),
          word('frameCount', 8, 'frames after which sampling wraps to the start'),
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
          float('value', 4, 'value at the key'),
          float('inTangent', 8, 'incoming slope at the key, in value units per second'),
          float('outTangent', 12, 'outgoing slope; infinite for a step'),
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
            about:
              'each one a value of `matrixFlowCommands` (i32) and its operand words, back to back',
            native: 'kStreamHeaderBytes',
          },
        ],
      },
      {
        name: 'matrixFlowOperand',
        title: 'operand of a command',
        size: 8,
        fields: [
          word('memoryID', 0, 'of a block of shared memory'),
          word('offset', 4, 'byte offset in the block, of any alignment'),
        ],
      },
    ],
  },
  {
    title: 'Arguments of culling calls',
    about:
      'Positions of arguments instead of bytes; `required` is the number of mandatory arguments.',
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
          { name: 'up', offset: 7, count: 3, about: 'x, y, z; not parallel to the view direction' },
          { name: 'fov', offset: 10, about: 'full vertical angle in radians' },
          { name: 'aspect', offset: 11, about: 'width / height' },
          { name: 'near', offset: 12, about: 'distance along the view direction' },
          { name: 'far', offset: 13, about: 'distance along the view direction' },
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
          { name: 'up', offset: 7, count: 3, about: 'x, y, z; not parallel to the view direction' },
          { name: 'left', offset: 10, about: "from the camera's axis, usually negative" },
          { name: 'right', offset: 11, about: "from the camera's axis" },
          { name: 'bottom', offset: 12, about: "from the camera's axis, usually negative" },
          { name: 'top', offset: 13, about: "from the camera's axis" },
          { name: 'near', offset: 14, about: 'distance along the view direction' },
          { name: 'far', offset: 15, about: 'distance along the view direction' },
          { name: 'list', offset: 16, optional: true, about: 'optional: a `cullingList`' },
        ],
      },
    ],
  },
];

/** Values of an enumeration from rows of name, value and description. */
function values(rows) {
  return rows.map(([name, value, about]) => ({ name, value, about }));
}

// Commands, for the writers (scripts/layouts/commands.js) and for checked mode. Operands are words: rows of a name,
// the handle type ('word' for none), and a description.

/** A command with a fixed number of operands. */
function command(name, value, operands, about, more) {
  const shown = operands.map(([operand]) => operand).join(', ');
  return Object.assign({ name, value, about: shown, command: { operands, about } }, more);
}

/** A command on n elements: n, then n words per row of operands. */
function batchCommand(name, value, operands, about) {
  const shown = ['n', ...operands.map(([operand]) => `n ${operand}`)].join(', ');
  return { name, value, about: shown, command: { operands, about, isBatch: true } };
}

/** Value types of MatrixFlow commands. */
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

/** Bytes that native code bounds-checks for a copy, where these are fewer than it copies. */
const kCheckedCopyBytes = { vector2: 4, vector3: 4 };

const kAllValues = Object.keys(flowValues);
const kNoMatrices = ['scalar', 'vector2', 'vector3', 'vector4'];

/**
 * Operations: the value types they exist for, their number relative to the first of the type, operand names in stream
 * order, and the formula of floats a and b, where it is the same for each float of a value.
 */
const flowOperations = {
  Copy: { of: kAllValues, number: 0, operands: ['D', 'S'] },
  Add: { of: kAllValues, number: 1, operands: ['A', 'B', 'R'], each: 'a + b' },
  Sub: { of: kAllValues, number: 2, operands: ['A', 'B', 'R'], each: 'a - b' },
  Mul: { of: kAllValues, number: 3, operands: ['A', 'B', 'R'], each: 'a * b' },
  Div: { of: kNoMatrices, number: 4, operands: ['A', 'B', 'R'], each: 'a / b' },
  Invert: { of: ['matrix4'], number: 4, operands: ['S', 'D'] },
};

/** Notes on individual MatrixFlow commands. */
const flowNotes = {
  scalarDiv:
    'A divisor below the smallest normal float, including any negative one, stops execution with result 5.',
  vector2Div: 'Divisors are not checked.',
  vector3Div: 'Divisors are not checked.',
  vector4Div: 'Divisors are not checked.',
};

/** Describes a MatrixFlow command for its doc comment. */
function describeFlow(name, family, operation) {
  const { bytes, each, rows } = flowValues[family];
  const { operands } = flowOperations[operation];
  const names = operands.join(', ');
  if (operation === 'Invert') {
    // Kept on purpose: native code only copies.
    return `${names}: the source first. D = S: a copy, not the inverse.`;
  }
  if (operation === 'Copy') {
    const checkedBytes = kCheckedCopyBytes[family];
    const note = `The engine bounds-checks ${checkedBytes} of them; \`blockSizes\` checks all ${bytes}.`;
    return `${names}. D = S, ${bytes} bytes.${checkedBytes === undefined ? '' : ` ${note}`}`;
  }
  const formula = flowOperations[operation].each.toUpperCase();
  const isProduct = operation === 'Mul' && rows !== undefined;
  const note = flowNotes[name] === undefined ? '' : ` ${flowNotes[name]}`;
  return `${names}. R = ${formula}${isProduct ? ', the matrix product' : each}.${note}`;
}

/** The MatrixFlow commands on a value type. */
function flowFamily(family) {
  const { first, bytes, rows } = flowValues[family];
  const operations = Object.keys(flowOperations).filter((one) =>
    flowOperations[one].of.includes(family)
  );
  return operations.map((operation) => {
    const name = `${family}${operation}`;
    const { number, operands, each } = flowOperations[operation];
    const isProduct = operation === 'Mul' && rows !== undefined;
    const checkedBytes = operation === 'Copy' ? kCheckedCopyBytes[family] : undefined;
    return {
      name,
      value: first + number,
      command: {
        family,
        operands,
        bytes,
        checkedBytes: checkedBytes === undefined ? bytes : checkedBytes,
        compute: isProduct ? undefined : each,
        rows: isProduct ? rows : undefined,
        about: describeFlow(name, family, operation),
      },
    };
  });
}

// `native` is the name of an enumerator; {} stands for the name of the value.
const enums = [
  {
    name: 'rotationModes',
    title: '`rotationMode` of a 3D entity',
    values: values([
      ['euler', 0, 'rotation x, y, z are angles'],
      ['quaternion', 1, 'rotation is a quaternion, as for any other value except 0'],
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
      { name: 'override', value: 0, about: 'replaces lower layers', native: 'kOverrideLayer' },
      { name: 'additive', value: 1, about: 'adds to lower layers', native: 'kAdditiveLayer' },
      { name: 'off', value: 2, about: 'disabled, as for any larger number' },
    ],
  },
  {
    name: 'removedModes',
    title: '`removedMode` of `updateBinding`: rest poses of removed entities',
    values: values([
      ['keep', 0, 'are kept'],
      ['forget', 1, 'are dropped'],
      ['restoreAndKeep', 2, 'are written to the records, and kept'],
      ['restoreAndForget', 3, 'are written to the records, and dropped'],
    ]),
  },
  {
    name: 'keptModes',
    title: '`keptMode` of `updateBinding`: rest poses of kept entities',
    values: values([
      ['keep', 0, 'are unchanged'],
      ['retake', 1, 'are read again from the records'],
      ['restoreAndKeep', 2, 'are written to the records, and unchanged'],
      ['restoreAndRetake', 3, 'are read again; then the old ones are written to the records'],
    ]),
  },
  {
    name: 'addedModes',
    title: '`addedMode` of `updateBinding`, and `mode` of `createAnimationClipBinding`',
    values: values([
      ['none', 0, 'added entities have no rest pose: controllers skip them'],
      ['take', 1, 'rest poses are read from the records'],
    ]),
  },
  {
    name: 'sampleTypes',
    title: 'the channel that a curve of a clip animates',
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
    title: 'channels of a sampled target, in order',
    about: 'Euler angles use the first three rotation channels.',
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
        'Makes an entity without a parent a root. Added twice, it is traversed twice.'
      ),
      command(
        'addChild',
        2,
        [
          ['parent', 'H'],
          ['child', 'H'],
        ],
        "Appends to the parent's children. Ignored unless both are 2D or both 3D. Never close a cycle: a refresh then ends the process."
      ),
      command(
        'insertChild',
        3,
        [
          ['parent', 'EntityHandle'],
          ['child', 'EntityHandle'],
          ['index', 'word', 'among the other children'],
        ],
        "Inserts at an index of the parent's children, also 2D under 3D and 3D under 2D."
      ),
      command('removeFromParent', 4, [['handle', 'EntityHandle']], 'Its matrices are unchanged.'),
      command(
        'resetSubtree',
        5,
        [['handle', 'EntityHandle']],
        'Resets links, bone bindings, names, activity and world versions of the entity and all its descendants.'
      ),
      command(
        'bindToBone',
        6,
        [
          ['entity', 'EntityHandle'],
          ['bone', 'Entity3DHandle', "a 3D entity: 2D entities can't be followed"],
        ],
        "The entity takes the bone's world transform, one refresh later."
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
        'Reactivates an inactive entity, which is recomputed with all its descendants.'
      ),
      command(
        'deactivate',
        11,
        [['handle', 'EntityHandle']],
        'The entity and all its descendants keep their matrices until it is activated.'
      ),
    ],
  },
  {
    name: 'matrixFlowCommands',
    title: 'commands of `matrixFlowStream`',
    about: '[MatrixFlow](matrixflow.md) has the encoding of operands.',
    header: flowHeader,
    native: 'MatrixFlowCommand::k{}',
    values: [
      command(
        'call',
        1,
        [['handle', 'CommandBufferHandle', '`id` of a command buffer']],
        'Runs another command buffer and, unless its result is 0, stops with that result. Recursion is not checked: buffers that call each other in a cycle overflow the stack and end the process.',
        { about: undefined }
      ),
      ...[].concat(...Object.keys(flowValues).map(flowFamily)),
      // Its method is in lib/commands.js: it is the only one with a count besides its operands.
      {
        name: 'bulkCopy',
        value: 9000,
        command: { operands: ['D', 'S'], words: 5, about: 'N, D, S. Moves 4 N bytes from S to D.' },
      },
    ],
  },
  {
    name: 'matrixFlowResults',
    title: 'what `execute` of a command buffer returns',
    header: flowHeader,
    native: 'kMatrixFlow{}',
    values: values([
      ['done', 0, 'the stream ran to its end'],
      ['noBuffer', 1, 'no such command buffer'],
      ['cutOff', 2, 'the stream ends inside a command'],
      ['unknownCommand', 3, 'unknown command'],
      ['outOfBlock', 4, 'an operand is out of bounds of its block, or there is no such block'],
      ['divisorTooSmall', 5, 'scalar divisor below the smallest normal float'],
    ]),
  },
];

/** Capacities and other limits. */
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
    about: 'released slots of a kind that are kept for reuse',
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
    about: 'bytes of commands after the length word of `entityCommandStream`',
    native: 'kSharedListBytes - kStreamHeaderBytes',
    header: dirtyHeader,
  },
  {
    name: 'cullingResultObjects',
    value: 1000,
    about: 'initial capacity of `cullingResult`, in objects',
    native: 'kCullingResultCapacity',
    header: cullingHeader,
  },
  {
    name: 'cullingResultSlack',
    value: 480,
    about: 'spare capacity, in objects, when it grows',
    native: 'kCullingResultSlack',
    header: cullingHeader,
  },
  {
    name: 'wholeFrames',
    value: 16777216,
    about: 'time in frames up to which a float represents each single frame',
  },
  {
    name: 'threads',
    value: 4,
    about: 'worker threads of an engine',
    native: 'kFirstPoolThreads',
    header: 'Common/Def/EngineRuntime.h',
  },
];

/** Bit fields of a handle. */
const handles = {
  title: 'parts of a handle',
  values: [
    {
      name: 'elementBits',
      value: 12,
      about: 'bits of the index in a batch; the bits above are the slot',
      native: 'kHandleElementBits',
      header: handleHeader,
    },
    {
      name: 'elementMask',
      value: 4095,
      about: 'mask of the index in a batch',
      native: 'kHandleElementMask',
      header: handleHeader,
    },
    {
      name: 'none',
      value: 4294967295,
      about: 'no object: no binding, no state, a target without an entity',
      native: 'kNoHandle',
      header: animationHeader,
    },
  ],
};

module.exports = { groups, enums, limits, handles, flowValues };
