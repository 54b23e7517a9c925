'use strict';
// Faults for `npm run mutants`: each changes one statement of one file, and some of the tests named for the file must
// then fail. `native` is a filter of nq_tests, `script` are suites of tests/script.
//   [kind, text, replacement]            the text occurs once in the file; the fault changes one statement
//   [kind, text, replacement, reason]    no test can see it: the reason why the change is equivalent

const memory = { native: 'MemoryAllocator*:BlockTable*:HandlerValue*' };
const runtime = { native: 'EngineRuntime*:HandlerValue*' };
const pool = { native: 'WorkerPool*:TaskQueue*:TaskTest*:ConditionVariable*' };
const math = { native: 'InvertMatrix4*:MatrixToQuaternion*:EulerToQuaternion*:MultiplyMatrix4*' };
const angles = { native: '*FastTrigonometry*:*FourAngles*:*SlerpSines*:*EulerMatrix*' };
const flow = { native: 'MatrixFlow*' };
const entities = { native: 'Entity*:WorldTransform*:ShortList*:LocalVersions*:DirtyEntityList*' };
const culling = { native: 'Culler*:CullingComponentValue*:ComponentSystem*:ViewVolume*' };
const clips = { native: 'AnimationClipModel*:ClipSampling*:AnimatorComponentTest*' };
const animators = { native: 'Animator*:ApplySample*' };
const controllers = { native: 'AnimationController*:AnimationBinding*:Fused*:TransformValue*' };
const surface = { script: ['engine/surface', 'engine/entities', 'engine/module'] };

module.exports = [
  {
    file: 'Common/Def/MemoryAllocator.cpp',
    tests: memory,
    mutants: [
      ['comparison', 'if (size > kMaxSmallBlockBytes) {', 'if (size >= kMaxSmallBlockBytes) {'],
      ['dropped step', 'std::memset(pointer, 0, size);', ''],
      ['dropped step', 'blocksByID.Enter(block);', ''],
      ['dropped step', 'blocksByID.Remove(block.memoryID);', ''],
      ['order', 'block.memoryID = nextMemoryID++;', 'block.memoryID = ++nextMemoryID;'],
      ['bound', 'if (found->second.refCount-- > 1) {', 'if (found->second.refCount-- > 2) {'],
      ['bound', 'i + 1 < blockCount ? block + blockSize', 'i + 2 < blockCount ? block + blockSize'],
      ['comparison', 'if (chunkCount == chunkCapacity) {', 'if (chunkCount > chunkCapacity) {'],
      ['dropped step', 'freeLists[index] = block.pointer;', ''],
      ['oddity', 'std::memset(pointer, 0, size);', 'std::memset(pointer, 0, storedSize);'],
      ['step', '++found->second.refCount;', 'found->second.refCount += 2;'],
    ],
  },
  {
    file: 'Common/Def/EngineRuntime.cpp',
    tests: runtime,
    mutants: [
      ['dropped step', 'state->allocator->Release(retained);', ''],
      ['dropped step', 'disposed = true;', ''],
      ['order', 'return Pool(1, 1);', 'return Pool(2, 1);'],
      ['bound', 'found->second >= 1) {', 'found->second >= 0) {'],
      ['dropped step', 'objectCounts.clear();', ''],
      [
        'order',
        'for (size_t i = 0; i < listeners.size(); ++i) {',
        'for (size_t i = listeners.size(); i-- > 0;) {',
      ],
    ],
  },
  {
    file: 'Common/Def/HandlerValue.cpp',
    tests: memory,
    mutants: [
      ['dropped step', 'block.pointer = viewBase;', ''],
      ['oddity', 'block.size = length;', 'block.size = length; block.memoryID = 1;'],
      ['dropped step', 'data = block.pointer;\n  return data;', 'return block.pointer;'],
      ['wrong value', 'info.handle = handle;', 'info.handle = handle + 1;'],
    ],
  },
  {
    file: 'Common/Def/WorkerPool.cpp',
    tests: pool,
    mutants: [
      ['lock', 'mutex.Unlock();\n      task();\n      mutex.Lock();', 'task();'],
      ['dropped step', 'state->allIdle.Broadcast();', ''],
      ['comparison', 'if (waiting && busyCount == 0) {', 'if (waiting && busyCount == 1) {'],
      [
        'comparison',
        'if (!state->queue.Empty() || state->busyCount != 0) {',
        'if (!state->queue.Empty()) {',
      ],
      ['dropped step', 'busyCount -= busy ? 1 : 0;', ''],
      [
        'bound',
        'allowedCpus > 1 && allowedCpus <= threadCount',
        'allowedCpus > 1 && allowedCpus < threadCount',
      ],
      ['dropped step', 'state->stopped = true;', ''],
      [
        'comparison',
        'std::strcmp(value, kPinningOff) != 0',
        'std::strcmp(value, kPinningOff) == 0',
      ],
    ],
  },
  {
    file: 'Common/Def/MathKernels.cpp',
    tests: math,
    mutants: [
      [
        'comparison',
        'if (!(std::fabs(source[p]) > std::fabs(source[row]))) {',
        'if (std::fabs(source[row]) > std::fabs(source[p])) {',
      ],
      ['comparison', 'if (trace > 0.0f) {', 'if (trace >= 0.0f) {'],
      ['comparison', '} else if (m.m11 > m.m22) {', '} else if (m.m11 >= m.m22) {'],
      ['sign', 'out[4 * p] = corner - d;', 'out[4 * p] = corner + d;'],
      ['sign', '_mm_setr_ps(0.0f, -0.0f, -0.0f, 0.0f)', '_mm_setr_ps(0.0f, -0.0f, 0.0f, -0.0f)'],
      ['wrong value', 'out[1] = (m.m21 - m.m12) * i;', 'out[1] = (m.m12 - m.m21) * i;'],
      [
        'conversion',
        'const float d = -1.0f / source[p];',
        'const float d = -(1.0f / (source[p] * 1.0000001f));',
      ],
      [
        'order',
        'const float determinant = s[0][0] * c00 + s[0][1] * c01 + s[0][2] * c02;',
        'const float determinant = s[0][2] * c02 + s[0][1] * c01 + s[0][0] * c00;',
      ],
      ['bound', 'for (int row = 1; row < 4; ++row) {', 'for (int row = 1; row < 3; ++row) {'],
      ['dropped step', 'rotation->quaternionValid = true;', ''],
    ],
  },
  {
    file: 'Common/Def/FastTrigonometry.h',
    tests: angles,
    mutants: [
      ['sign', '_mm_xor_si128(firstBit, secondBit)', 'secondBit'],
      [
        'dropped step',
        'const __m128 change = _mm_and_ps(_mm_xor_ps(of.sines, of.cosines), isOdd);',
        'const __m128 change = _mm_xor_ps(of.sines, _mm_or_ps(of.sines, isOdd));',
      ],
      [
        'bound',
        'constexpr double kMaxReducedAngle = 4096.0;',
        'constexpr double kMaxReducedAngle = 1e12;',
      ],
      [
        'bound',
        'const __m128i place = _mm_add_epi32(_mm_slli_epi32(words, 3), _mm_set1_epi32(kUnsureMargin));',
        'const __m128i place = _mm_slli_epi32(words, 2);',
      ],
      [
        'dropped step',
        'return SignBits(_mm_andnot_ps(unsure, inRange)) == 0xF;',
        'return SignBits(_mm_or_ps(_mm_andnot_ps(unsure, _mm_set1_ps(-1.0f)), inRange)) == 0xF;',
      ],
      [
        'dropped step',
        'return _mm256_movemask_ps(_mm256_or_ps(unsure, _mm256_castpd_ps(outside))) == 0;',
        'return _mm256_movemask_ps(_mm256_and_ps(unsure, _mm256_castpd_ps(outside))) == 0;',
      ],
      [
        'order',
        'return _mm_movelh_ps(_mm_cvtpd_ps(low), _mm_cvtpd_ps(high));',
        'return _mm_movelh_ps(_mm_cvtpd_ps(high), _mm_cvtpd_ps(low));',
      ],
    ],
  },
  {
    file: 'Common/Def/MatrixProduct.h',
    tests: math,
    mutants: [
      [
        'order',
        'return {internal::TwoColumns(a, right), internal::TwoColumns(a, right + 32)};',
        'return {internal::TwoColumns(a, right + 32), internal::TwoColumns(a, right)};',
      ],
    ],
  },
  {
    file: 'Engine/MatrixFlow/MatrixFlowInterpreter.cpp',
    tests: flow,
    mutants: [
      [
        'oddity',
        'code = run.Copy<kVector2Bytes>(kScalarBytes);',
        'code = run.Copy<kVector2Bytes>(kVector2Bytes);',
      ],
      [
        'oddity',
        'code = run.Copy<kVector3Bytes>(kScalarBytes);',
        'code = run.Copy<kVector3Bytes>(kVector3Bytes);',
      ],
      [
        'oddity',
        'if (std::numeric_limits<float>::min() > b) {',
        'if (std::numeric_limits<float>::min() > (b < 0 ? -b : b)) {',
      ],
      [
        'comparison',
        'if (std::numeric_limits<float>::min() > b) {',
        'if (std::numeric_limits<float>::min() >= b) {',
      ],
      [
        'bound',
        'if (block.size < reference[1] + length) {',
        'if (block.size <= reference[1] + length) {',
      ],
      [
        'conversion',
        'if (block.size < reference[1] + length) {',
        'if (block.size < uint64_t{reference[1]} + length) {',
      ],
      [
        'order',
        'CopyValue<kMatrix4Bytes>(o.bytes[0], o.bytes[1]);',
        'CopyValue<kMatrix4Bytes>(o.bytes[1], o.bytes[0]);',
      ],
      ['bound', 'return EndOf(position, 1) < 1;', 'return EndOf(position, 4) < 1;'],
      [
        'wrong value',
        'const uint32_t bytes = ReadWord() * 4;',
        'const uint32_t bytes = ReadWord();',
      ],
      ['dropped step', 'run.Leave();\n          code', 'code'],
      [
        'wrong value',
        'code = run.ByComponent<kVector4Bytes>(kSub);',
        'code = run.ByComponent<kVector4Bytes>(kAdd);',
      ],
      ['comparison', 'return end > limit ? -1 : end;', 'return end >= limit ? -1 : end;'],
      ['order', 'sum = _mm_add_ps(sum, _mm_mul_ps(a[1]', 'sum = _mm_add_ps(sum, _mm_mul_ps(a[0]'],
      [
        'comparison',
        'if (at + kCommandBytes > prefetchEnd) {',
        'if (at > prefetchEnd) {',
        'no result depends on what is read to prefetch; reads past a block are for the address sanitizer to find',
      ],
      ['dropped step', 'code = kMatrixFlowUnknownCommand;', ''],
    ],
  },
  {
    file: 'Engine/MatrixFlow/MatrixFlowCommandBuffer.cpp',
    tests: flow,
    mutants: [
      ['comparison', 'if (block.size >= size) {', 'if (block.size > size) {'],
      ['dropped step', 'owner->Runtime()->Release(old);', ''],
      ['dropped step', 'std::memcpy(block.pointer, old.pointer, old.size);', ''],
    ],
  },
  {
    file: 'Engine/MatrixFlow/MatrixFlowSystem.cpp',
    tests: flow,
    mutants: [['bound', 'buffer->Resize(size);', 'buffer->Resize(size + 4);']],
  },
  {
    file: 'Engine/Entity/Entity.cpp',
    tests: entities,
    mutants: [
      ['wrong value', 'const Entity* link = bone;', 'const Entity* link = bone->boundTo;'],
      [
        'oddity',
        'link = link->boundTo;',
        'link = link->boundTo != nullptr ? link->boundTo : link->parent();',
      ],
      ['bound', 'if (index < childCount) {', 'if (index <= childCount) {'],
      ['dropped step', 'name.clear();', ''],
      ['comparison', 'if (child->links().parent == handle) {', 'if (false) {'],
      ['dropped step', 'tree->ResetMark(handle);', ''],
      [
        'dropped step',
        'boundTo->links().hasBoundEntities = bound.empty() ? 0 : 1;',
        '',
        'an empty set of followers is only looked through for nothing',
      ],
    ],
  },
  {
    file: 'Engine/Entity/EntityCommands.cpp',
    tests: entities,
    mutants: [
      ['wrong value', 'reader.skip(n * 2 * kWordBytes);', 'reader.skip(n * kWordBytes);'],
      [
        'bound',
        'while (reader.checkRange(1, 1, 0) > 0) {',
        'while (reader.checkRange(4, 1, 0) > 0) {',
      ],
      ['dropped step', 'WriteUnaligned(entityCommandsBlock.pointer, uint32_t{0});', ''],
      ['order', 'AddChild(parent, child);', 'AddChild(child, parent);'],
      ['order', 'BindToBone(entity, bone);', 'BindToBone(bone, entity);'],
      ['wrong value', 'Activate(reader.readU32(), deep);', 'Activate(reader.readU32(), !deep);'],
    ],
  },
  {
    file: 'Engine/Entity/EntitySystem.cpp',
    tests: entities,
    mutants: [
      [
        'oddity',
        'parentEntity != childEntity) {',
        'parentEntity != childEntity && parentEntity->isThreeD() == childEntity->isThreeD()) {',
      ],
      ['dropped step', 'parentEntity->isThreeD() == childEntity->isThreeD()) {', 'true) {'],
      [
        'comparison',
        'if (entity != nullptr && entity->parent() == nullptr) {',
        'if (entity != nullptr) {',
      ],
      ['wrong value', 'entity->name = name;', 'entity->name += name;'],
      ['wrong value', 'RunEntityCommands(true);', 'RunEntityCommands(false);'],
      ['comparison', 'if (entity != nullptr && !entity->active()) {', 'if (entity != nullptr) {'],
    ],
  },
  {
    file: 'Engine/Entity/WorldTransform.cpp',
    tests: entities,
    mutants: [
      [
        'comparison',
        'const uint32_t sibling = depth != 0 ? links->nextSibling : 0;',
        'const uint32_t sibling = links->nextSibling;',
      ],
      ['bound', 'if (end - begin > kCapacity) {', 'if (end - begin > kCapacity + 1) {'],
      [
        'bound',
        'const uint32_t count = i + 1 < workerCount ? chunk : n - start;',
        'const uint32_t count = chunk;',
      ],
      ['comparison', 'if (++depth > maxDepth) {', 'if (++depth >= maxDepth) {'],
      ['dropped step', 'TransformTree::LeaveMarkBelow(&next->links());', ''],
      ['comparison', 'if (!active() || dirtyState() != kDirtySelf) {', 'if (!active()) {'],
      [
        'bound',
        'const bool onWorkers = n >= workerCount * kMinDirtyEntriesPerWorker;',
        'const bool onWorkers = n > workerCount * kMinDirtyEntriesPerWorker;',
      ],
      ['dropped step', 'paths.clear();', ''],
      [
        'wrong value',
        'rootsStandAlone = true;',
        'rootsStandAlone = false;',
        'only the slower walk of all roots is used, with the same results',
      ],
    ],
  },
  {
    file: 'Engine/Entity/WorldMatrixQueue.cpp',
    tests: entities,
    mutants: [
      ['dropped step', '++batch.worldVersions[entry.index];', ''],
      ['comparison', 'if (entry.hasBoundEntities) {', 'if (false) {'],
      [
        'order',
        'ProductByTwoColumns(Bytes(entry.parentWorld), Bytes(local))',
        'ProductByTwoColumns(Bytes(local), Bytes(entry.parentWorld))',
      ],
      ['dropped step', '_mm256_storeu_ps(published + 8, matrix.second);', ''],
    ],
  },
  {
    file: 'Engine/Entity/LocalMatrix3D.h',
    tests: angles,
    mutants: [
      [
        'sign',
        'const __m128 signs = _mm_setr_ps(0.0f, 0.0f, -0.0f, 0.0f);',
        'const __m128 signs = _mm_setr_ps(0.0f, -0.0f, 0.0f, 0.0f);',
      ],
      [
        'dropped step',
        'sinCosFourF(FirstThree(_mm_loadu_ps(angles)), &sines, &cosines)',
        'sinCosFourF(_mm_loadu_ps(angles), &sines, &cosines)',
      ],
      ['dropped step', 'sinCosEachF(three, &sines, &cosines);', ''],
    ],
  },
  {
    file: 'Engine/Entity/Entity3D.cpp',
    tests: entities,
    mutants: [
      [
        'comparison',
        'if (std::fabs(scale[0]) <= kMinWorldScale',
        'if (std::fabs(scale[0]) < kMinWorldScale',
      ],
      ['dropped step', 'record->rotationMode = 1;', ''],
      ['dropped step', 'system->AppendDirtyEntity(bound);', ''],
      [
        'comparison',
        'return entity->isThreeD() && entity->active();',
        'return entity->isThreeD();',
      ],
      ['comparison', 'record.rotationMode != 0\n', 'record.rotationMode == 1\n'],
      [
        'conversion',
        'm[4 * column + row] / scale[column]',
        'm[4 * column + row] * (1.0f / scale[column])',
      ],
    ],
  },
  {
    file: 'Engine/Entity/EntityWorldAccess.cpp',
    tests: entities,
    mutants: [
      [
        'sign',
        'return Quaternion{-q.x, -q.y, -q.z, q.w};',
        'return Quaternion{-q.x, -q.y, q.z, q.w};',
      ],
      [
        'dropped step',
        'invertMatrix4(diagonal, inverse, 0);',
        'std::memcpy(inverse, diagonal, sizeof(inverse));',
      ],
      [
        'oddity',
        'return Vector3{m[0], m[5], m[10]};',
        'return Vector3{std::sqrt(m[0] * m[0] + m[1] * m[1] + m[2] * m[2]), m[5], m[10]};',
      ],
    ],
  },
  {
    file: 'Engine/Culling/ViewVolume.cpp',
    tests: culling,
    mutants: [
      [
        'order',
        'frame.r = Normalize(Cross(pose.up, frame.f));',
        'frame.r = Normalize(Cross(frame.f, pose.up));',
      ],
      [
        'conversion',
        'const float h = tanF(lens.fov * 0.5f) * lens.near;',
        'const float h = tanF(lens.fov) * 0.5f * lens.near;',
      ],
      [
        'oddity',
        'frame.u = Cross(frame.f, frame.r);',
        'frame.u = Normalize(Cross(frame.f, frame.r));',
      ],
      [
        'sign',
        'volume.planes[2] = PlaneThrough(Negate(frame.u), up(lens.top));',
        'volume.planes[2] = PlaneThrough(frame.u, up(lens.top));',
      ],
    ],
  },
  {
    file: 'Engine/Culling/Culler.cpp',
    tests: culling,
    mutants: [
      [
        'comparison',
        '_mm256_cmp_ps(minusRadius, s, _CMP_GT_OQ)',
        '_mm256_cmp_ps(minusRadius, s, _CMP_GE_OQ)',
      ],
      ['wrong value', 'hash = hash * 31 + handle;', 'hash = hash * 33 + handle;'],
      ['dropped step', 'used = 0;', ''],
      [
        'comparison',
        'if (visible.size() < kMinRadixSort) {',
        'if (visible.size() <= kMinRadixSort) {',
        'both sorts give the same order',
      ],
      [
        'comparison',
        'while ((most - least) >> ignoredBits >> (kDigits * kDigitBits) != 0) {',
        'while ((most - least) >> ignoredBits >> (kDigits * kDigitBits) > 1) {',
      ],
      ['sign', 'depth = _mm256_xor_ps(depth, minusZero);', ''],
      ['wrong value', '_mm256_storeu_ps(depths, depth);', '_mm256_storeu_ps(depths, cz);'],
      [
        'bound',
        'if (i - at > movesLeft) {',
        'if (i - at > 0) {',
        'only the way of sorting differs',
      ],
    ],
  },
  {
    file: 'Engine/Culling/ComponentSystem.cpp',
    tests: culling,
    mutants: [
      ['bound', 'index >= batch->Count()', 'index > batch->Count()'],
      [
        'bound',
        'const uint32_t size = std::min(count - start, Culler::kGroup);',
        'const uint32_t size = Culler::kGroup;',
      ],
      [
        'dropped step',
        'seenLeaveCount = tree.LeaveCount();',
        '',
        'the entities are only looked through more often',
      ],
      [
        'comparison',
        'if (group.size == Culler::kGroup) {',
        'if (group.size == Culler::kGroup - 1) {',
        'groups are only smaller',
      ],
      ['comparison', 'if (group.size != 0) {', 'if (false) {'],
    ],
  },
  {
    file: 'Engine/Culling/CullingComponentValue.cpp',
    tests: culling,
    mutants: [
      ['oddity', 'cache.seenWorldVersion = 0;', 'cache.seenWorldVersion = 0xFFFFFFFFu;'],
      [
        'comparison',
        '_mm_max_ps(third, _mm_max_ps(second, squares))',
        '_mm_min_ps(third, _mm_max_ps(second, squares))',
      ],
      ['dropped step', 'cache.seenWorldVersion = *cache.worldVersion;', ''],
      ['comparison', 'if (batch.isThreeD) {', 'if (true) {'],
      ['dropped step', 'generations[index] = kReleasedEntity;', ''],
    ],
  },
  {
    file: 'Engine/Animation/AnimationClipModel.cpp',
    tests: clips,
    mutants: [
      [
        'bound',
        'if (keyOffset + sizeof(ClipKey) > rawSize) {',
        'if (keyOffset + sizeof(ClipKey) >= rawSize) {',
      ],
      ['bound', 'parsed(size <= sizeof(ClipHeader))', 'parsed(size < sizeof(ClipHeader))'],
      [
        'conversion',
        'rate = TruncateToU32(header.framesPerSecond);',
        'rate = static_cast<uint32_t>(header.framesPerSecond + 0.5f);',
      ],
      [
        'comparison',
        'const bool isInside = time >= 0.0f && time < period;',
        'const bool isInside = time >= 0.0f && time <= period;',
      ],
      [
        'wrong value',
        'const uint32_t wrapped = frame % frames;',
        'const uint32_t wrapped = frame % (frames + 1);',
      ],
      [
        'wrong value',
        'return kScaleChannel + (sampleType - kScaleX);',
        'return kScaleChannel + (kScaleZ - sampleType);',
      ],
      [
        'conversion',
        'std::fmod(static_cast<double>(time), static_cast<double>(period))',
        'std::remainder(static_cast<double>(time), static_cast<double>(period))',
      ],
      ['dropped step', 'timelines.Clear(room);', ''],
    ],
  },
  {
    file: 'Engine/Animation/ClipSampling.cpp',
    tests: { native: 'ClipSampling*:Slerp*:AnimatorComponent*' },
    mutants: [
      [
        'comparison',
        'if (1.0 - static_cast<double>(d) > kMinSlerpDistance) {',
        'if (1.0f - d > static_cast<float>(kMinSlerpDistance)) {',
        'near 1 the difference of a float is exact, and none lies between the two thresholds',
      ],
      ['sign', 'd = -d;', ''],
    ],
  },
  {
    file: 'Engine/Animation/AnimatorComponent.cpp',
    tests: animators,
    mutants: [
      [
        'comparison',
        'if (record.weight > 0.0f && record.weight <= 1.0f) {',
        'if (record.weight > 0.0f && record.weight < 1.0f) {',
      ],
      [
        'comparison',
        'if (record.weight > 0.0f && record.weight <= 1.0f) {',
        'if (record.weight >= 0.0f && record.weight <= 1.0f) {',
      ],
      [
        'bound',
        'const bool many = scratch->active.size() > 2;',
        'const bool many = scratch->active.size() > 3;',
      ],
      ['dropped step', 'base += model->TrackCount();', 'model->TrackCount();'],
      ['dropped step', 'blended.totalWeight += clip.weight;', ''],
      [
        'comparison',
        'if (firstTarget == nullptr || entry.handle < firstTargetHandle) {',
        'if (firstTarget == nullptr) {',
      ],
      [
        'bound',
        'const uint32_t count = std::min(samples.Size(), entityCount - first);',
        'const uint32_t count = std::min(samples.Size(), entityCount - first - 1);',
      ],
      [
        'oddity',
        'NormaliseRotation(&entry.sample);',
        'if (entry.sample.isQuaternion) NormaliseRotation(&entry.sample);',
      ],
    ],
  },
  {
    file: 'Engine/Animation/AnimationClipBinding.cpp',
    tests: controllers,
    mutants: [
      ['oddity', 'if (k < n && cursor > targetWords) {', 'if (k < n && cursor >= targetWords) {'],
      ['bound', 'if (cursor + 1 > targetWords) {', 'if (cursor > targetWords) {'],
      ['comparison', 'mode == kSnapshotPose) {\n    defaults', 'mode != 0) {\n    defaults'],
      ['comparison', 'if (addedMode == kSnapshotPose) {', 'if (addedMode != 0) {'],
      ['dropped step', 'defaults.Clear();', ''],
      [
        'order',
        'if (clipLists.count(clipHandle) == 0) {',
        'clipLists.erase(clipHandle); if (true) {',
      ],
      ['dropped step', 'slotsVersion = 0;', ''],
      ['wrong value', 'rootGeneration = tree.Generation(root);', 'rootGeneration = 0;'],
    ],
  },
  {
    file: 'Engine/Animation/StateEvaluation.cpp',
    tests: controllers,
    mutants: [
      ['comparison', 'if (present < 3 && !fill) {', 'if (present < 2 && !fill) {'],
      [
        'sign',
        'const float conjugate[4] = {-r[0], -r[1], -r[2], r[3]};',
        'const float conjugate[4] = {r[0], r[1], r[2], -r[3]};',
      ],
      ['comparison', 'if (m != 0.0f) {', 'if (m > 0.0f) {'],
      ['comparison', 'if (fill && !additive) {', 'if (fill) {'],
      [
        'wrong value',
        'clip->SampleAtTime(isOwn ? 0.0f : entry.referenceTime',
        'clip->SampleAtTime(isOwn ? entry.time : entry.referenceTime',
      ],
      ['order', 'MultiplyQuaternion(q, conjugate, q);', 'MultiplyQuaternion(conjugate, q, q);'],
      [
        'bound',
        'angles[i] = std::isnan(angles[i]) ? resting[2 - i] : angles[i];',
        'angles[i] = std::isnan(angles[i]) ? resting[i] : angles[i];',
      ],
    ],
  },
  {
    file: 'Engine/Animation/ControllerEvaluation.cpp',
    tests: controllers,
    mutants: [
      [
        'oddity',
        'TruncateToU32(pose->value[kScaleZChannel])',
        'TruncateToU32(pose->value[kScaleZChannel] + 1)',
      ],
      [
        'comparison',
        'DotQuaternion(pose.rotation, resting) >= 0.0f',
        'DotQuaternion(pose.rotation, resting) > 0.0f',
      ],
      [
        'comparison',
        'if (record.blendMode > kAdditiveLayer || record.firstState == kNoHandle) {',
        'if (record.blendMode > kAdditiveLayer + 1 || record.firstState == kNoHandle) {',
      ],
      [
        'order',
        'MultiplyQuaternion(delta, sum->rotation, sum->rotation);',
        'MultiplyQuaternion(sum->rotation, delta, sum->rotation);',
      ],
      ['comparison', 'if (s != 0.0f) {', 'if (s > 0.0f) {'],
      ['dropped step', 'writer.Mark();', ''],
      [
        'comparison',
        'if (merge == Merge::kAdditiveFirst || !hadRotation) {',
        'if (merge == Merge::kAdditiveFirst) {',
      ],
      ['dropped step', '  NormaliseQuaternion(pose->rotation);', ''],
    ],
  },
  {
    file: 'Engine/Animation/AnimatorControllerModel.cpp',
    tests: controllers,
    mutants: [
      ['bound', 'if (index >= layerCount) {', 'if (index > layerCount) {'],
      [
        'order',
        'std::stable_sort(entries.begin(), entries.end(), isBefore);',
        'std::reverse(entries.begin(), entries.end()); std::stable_sort(entries.begin(), entries.end(), isBefore);',
      ],
      ['dropped step', 'seenVersion = 0;', ''],
      [
        'comparison',
        'if (count == 0) {',
        'if (false) {',
        'a mask without records has weight 1 for every entity, as none has',
      ],
    ],
  },
  {
    file: 'Engine/Animation/TransformValue.cpp',
    tests: controllers,
    mutants: [
      [
        'oddity',
        'std::fill(rotation.euler, rotation.euler + 3, 0.0f);',
        'rotation.euler[0] = rotation.quaternion[1];',
      ],
      ['dropped step', 'entity->PropagateMarkDirty(false);', ''],
    ],
  },
  {
    file: 'Engine/Animation/SkinningMatrixComponent.cpp',
    tests: { native: 'SkinningMatrixComponent*' },
    mutants: [
      ['bound', 'if (index >= matrixCount) {', 'if (index > matrixCount) {'],
      [
        'order',
        'multiplyMatrix4(world, inverseBind, product);',
        'multiplyMatrix4(inverseBind, world, product);',
      ],
      ['wrong value', 'm[7], m[12], m[13], m[15]};', 'm[7], m[12], m[13], m[14]};'],
    ],
  },
  {
    file: 'Engine/Animation/SkeletonBonesInverseModel.cpp',
    tests: { native: 'SkeletonBonesInverseModel*' },
    mutants: [['wrong value', 'if (size % sizeof(Matrix) != 0) {', 'if (size % 4 != 0) {']],
  },
  {
    file: 'Engine/Animation/AnimationSystem.cpp',
    tests: {
      native:
        'AnimationSystem*:EngineCoreTest.WithoutHandlesNo[A-D]*:EngineCoreTest.WithoutHandlesNoBone*',
    },
    mutants: [['comparison', 'if (clipCount == 0 || entityCount == 0) {', 'if (clipCount == 0) {']],
  },
  {
    file: 'BindingTemp/BindingEngine.cpp',
    tests: { script: ['engine/entities', 'engine/surface', 'engine/culling', 'engine/receivers'] },
    mutants: [
      ['wrong value', 'count == 0 ? 1 : count);', 'count);'],
      ['comparison', 'if (handle == 0 || name.length() == 0) {', 'if (handle == 0) {'],
      [
        'bound',
        'if (entry == nullptr || info.Length() < entry->arguments) {',
        'if (entry == nullptr) {',
      ],
      [
        'lock',
        'vx::UncheckedCallback<BindingEngine, refreshWorldTransformFunc>',
        'vx::Callback<BindingEngine, refreshWorldTransformFunc>',
      ],
    ],
  },
  {
    file: 'BindingTemp/BindingEngineCulling.cpp',
    tests: { script: ['engine/culling'] },
    mutants: [
      [
        'bound',
        'const bool grows = count > cullingResultCapacity;',
        'const bool grows = count >= cullingResultCapacity;',
      ],
      [
        'bound',
        'list->count <= bytes.length / sizeof(uint32_t) - 1;',
        'list->count <= bytes.length / sizeof(uint32_t);',
      ],
      ['oddity', 'if (info.Length() != required + 1 || ', 'if (info.Length() < required + 1 || '],
      ['order', 'lens.left = arguments.Float();', 'lens.right = arguments.Float();'],
      ['dropped step', '  if (count == 0) {\n    return false;\n  }\n', ''],
    ],
  },
  {
    file: 'BindingTemp/BindingEngineAnimation.cpp',
    tests: { script: ['engine/controllers', 'engine/animation'] },
    mutants: [
      ['bound', 'if (info.Length() < 5) {', 'if (info.Length() < 4) {'],
      ['dropped step', 'if (!buffer->IsArrayBuffer()) {', 'if (false) {'],
    ],
  },
  {
    file: 'BindingTemp/BindingEngineAnimationClipBinding.cpp',
    tests: { script: ['engine/controllers'] },
    mutants: [
      [
        'comparison',
        'bytes.length < range.byteOffset + words * 4',
        'bytes.length <= range.byteOffset + words * 4',
      ],
      [
        'order',
        'const uint32_t keptMode = vx::ReadUint32(isolate, vx::Arg(info, 5));',
        'const uint32_t keptMode = vx::ReadUint32(isolate, vx::Arg(info, 6));',
      ],
    ],
  },
  {
    file: 'BindingTemp/BindingEngineAnimatorController.cpp',
    tests: { script: ['engine/controllers'] },
    mutants: [
      [
        'conversion',
        'byteOffset + uint64_t{sizeof(ControllerMaskRecord)} * count',
        'byteOffset + static_cast<uint32_t>(sizeof(ControllerMaskRecord)) * count',
      ],
      [
        'bound',
        'info.Length() >= 2 && vx::Arg(info, 1)->IsArrayBuffer()',
        'vx::Arg(info, 1)->IsArrayBuffer()',
        'a missing argument is undefined, which is no ArrayBuffer',
      ],
    ],
  },
  {
    file: 'BindingTemp/PublishSegment.cpp',
    tests: surface,
    mutants: [
      [
        'comparison',
        'if (info.handle == 0 || info.size == 0) {',
        'if (info.handle == 0) {',
        'no object that script creates has a handle and a block of size 0',
      ],
      [
        'wrong value',
        'v8::Integer::NewFromUnsigned(isolate, info.memoryID)',
        'v8::Integer::NewFromUnsigned(isolate, info.handle)',
      ],
    ],
  },
  {
    file: 'nq_logic.cpp',
    tests: surface,
    mutants: [
      ['wrong value', 'kVersion[] = "138"', 'kVersion[] = "139"'],
      ['dropped step', 'wrapper->PublishBuffers(isolate, object);', ''],
      ['dropped step', 'function->SetName(functionName);', ''],
    ],
  },
  {
    file: 'lib/commands.js',
    tests: { script: ['lib/commands'] },
    mutants: [
      ['bound', 'if (count + 1 >= words.length) {', 'if (count + 1 > words.length) {'],
      ['dropped step', 'words[0] = count + 1;', ''],
      [
        'bound',
        'return this._words.length - 1 - this._words[0];',
        'return this._words.length - this._words[0];',
      ],
      ['bound', 'if (first + added > kLargestU32 + 1) {', 'if (first + added > kLargestU32) {'],
    ],
  },
  {
    file: 'lib/stream-writer.js',
    tests: { script: ['lib/commands'] },
    mutants: [
      ['wrong value', 'words[0] += 8;', 'words[0] += 4;'],
      [
        'comparison',
        'if (size !== undefined && offset + bytes > size) {',
        'if (size !== undefined && offset + bytes >= size) {',
      ],
      ['comparison', 'if ((used & 3) !== 0 || used > capacity) {', 'if (used > capacity) {'],
    ],
  },
  {
    file: 'lib/clip.js',
    tests: { script: ['lib/clip'] },
    mutants: [
      ['comparison', 'if (frame < previous) {', 'if (frame <= previous) {'],
      ['comparison', 'if (keyDataOffset !== expected) {', 'if (keyDataOffset < expected) {'],
      ['comparison', 'if (end > size) {', 'if (end > size + 1) {'],
      [
        'wrong value',
        'return type > sampleTypes.QuaternionW ? type - 5 : type - 1;',
        'return type >= sampleTypes.QuaternionW ? type - 5 : type - 1;',
        'QuaternionW has returned before',
      ],
    ],
  },
  {
    file: 'lib/view-base.js',
    tests: { script: ['lib/views'] },
    mutants: [
      [
        'comparison',
        'if (!Number.isInteger(count) || count < 1) {',
        'if (!Number.isInteger(count) || count < 0) {',
      ],
    ],
  },
  {
    file: 'lib/view-culling.js',
    tests: { script: ['lib/views'] },
    mutants: [
      [
        'bound',
        'if (i >>> 0 !== i || i >= words[kCount]) {',
        'if (i >>> 0 !== i || i > words[kCount]) {',
      ],
      ['comparison', 'if (buffer !== this._buffer) {', 'if (false) {'],
    ],
  },
  {
    file: 'lib/view-lists.js',
    tests: { script: ['lib/views', 'lib/references'] },
    mutants: [
      ['comparison', 'if (count >= this.capacity) {', 'if (count > this.capacity) {'],
      [
        'bound',
        'if (byteOffset + bytes > buffer.byteLength) {',
        'if (byteOffset + bytes > buffer.byteLength + 4) {',
      ],
      ['wrong value', 'u32[kListCount] = count + 1;', 'u32[kListCount] = count;'],
    ],
  },
  {
    file: 'lib/view-references.js',
    tests: { script: ['lib/references'] },
    mutants: [
      ['comparison', 'if (entry !== undefined && entry.handle !== handle) {', 'if (false) {'],
    ],
  },
  {
    file: 'lib/checked/arguments.js',
    tests: { script: ['lib/checked', 'lib/checked-frame', 'lib/checked-animation'] },
    mutants: [
      [
        'comparison',
        'if (count < least || count > room) {',
        'if (count < least || count >= room) {',
      ],
      ['comparison', 'value < least || value > most) {', 'value < least || value >= most) {'],
      ['bound', 'for (let i = 1; i <= count; ++i) {', 'for (let i = 1; i < count; ++i) {'],
    ],
  },
  {
    file: 'lib/checked/registry.js',
    tests: { script: ['lib/checked', 'lib/checked-frame', 'lib/checked-animation'] },
    mutants: [
      [
        'comparison',
        'if (entry === undefined || !entry.live) {',
        'if (entry === undefined) {',
        'the state between the collections of an object and of its native one, which tests can not hold',
      ],
    ],
  },
  {
    file: 'lib/checked/matrixflow.js',
    tests: { script: ['lib/checked-frame'] },
    mutants: [
      ['comparison', 'if (length > room || length % kWordBytes !== 0) {', 'if (length > room) {'],
    ],
  },
  {
    file: 'lib/checked/players.js',
    tests: { script: ['lib/checked-animation'] },
    mutants: [
      ['comparison', 'if (weight > 0 && weight <= 1) {', 'if (weight > 0 && weight < 1) {'],
      [
        'comparison',
        'if (view.getFloat32(at + controllerClip.weight, true) === 0) {',
        'if (false) {',
      ],
    ],
  },
  {
    file: 'lib/checked/target-lists.js',
    tests: { script: ['lib/checked-animation'] },
    mutants: [['wrong value', 'cursor += 1 + n;', 'cursor += n;']],
  },
  {
    file: 'lib/gltf-clip.js',
    tests: { script: ['lib/gltf'] },
    mutants: [['wrong value', '(3 * key + 1) * this.width', '3 * key * this.width']],
  },
  {
    file: 'lib/gltf.js',
    tests: { script: ['lib/gltf'] },
    mutants: [
      [
        'comparison',
        'if (bytes.length < buffer.byteLength) {',
        'if (bytes.length <= buffer.byteLength) {',
      ],
    ],
  },
  {
    file: 'lib/load.js',
    tests: { script: ['lib/load'] },
    mutants: [
      ['comparison', "if (file !== undefined && file !== '') {", 'if (file !== undefined) {'],
      ['wrong value', "kAbi === '72' ? '' : `abi${kAbi}`", '`abi${kAbi}`'],
    ],
  },
  {
    file: 'lib/scene/math.js',
    tests: { script: ['lib/scene/scene', 'lib/scene/three', 'lib/scene/edges'] },
    mutants: [
      [
        'sign',
        'out[at + 1] = 2 * (x * y + w * z) * sx;',
        'out[at + 1] = 2 * (x * y - w * z) * sx;',
      ],
      ['comparison', 'if (trace > 0) {', 'if (trace < 0) {'],
    ],
  },
  {
    file: 'lib/scene/blocks.js',
    tests: { script: ['lib/scene/scene', 'lib/scene/soak', 'lib/scene/large'] },
    mutants: [['dropped step', 'done += some;', 'done += count;']],
  },
  {
    file: 'lib/scene/camera.js',
    tests: {
      script: ['lib/scene/arguments', 'lib/scene/characters', 'lib/scene/edges', 'lib/scene/three'],
    },
    mutants: [
      ['conversion', '(values[0] * Math.PI) / 180', '(values[0] * Math.PI) / 200'],
      ['wrong value', 'fovRadians: 2 * Math.atan(1 / p[5]),', 'fovRadians: Math.atan(1 / p[5]),'],
    ],
  },
  {
    file: 'lib/scene/changes.js',
    tests: { script: ['lib/scene/scene', 'lib/scene/large'] },
    mutants: [
      ['dropped step', 'list[0] += end - from;', ''],
      ['dropped step', 'this._queue[at + 1] = handle;', ''],
    ],
  },
  {
    file: 'lib/scene/layers.js',
    tests: { script: ['lib/scene/layers'] },
    mutants: [
      [
        'bound',
        'for (let i = index + 1; isSubtree && i < model.nodes.length; ++i) {',
        'for (let i = index + 2; isSubtree && i < model.nodes.length; ++i) {',
      ],
    ],
  },
  {
    file: 'lib/scene/model.js',
    tests: { script: ['lib/scene/characters', 'lib/scene/models'] },
    mutants: [['bound', 'frameCount: last + 1, curves', 'frameCount: last, curves']],
  },
  {
    file: 'lib/scene/programs.js',
    tests: { script: ['lib/scene/layers', 'lib/scene/characters'] },
    mutants: [
      [
        'comparison',
        'const isLayerOn = layerSum > 0 && weight > 0;',
        'const isLayerOn = layerSum > 0;',
        'a layer of weight 0 adds nothing: only what evaluates the pose differs',
      ],
      [
        'wrong value',
        'const over = sum > 1 ? weights[l] / sum : weights[l];',
        'const over = weights[l];',
      ],
    ],
  },
  {
    file: 'lib/scene/trace.js',
    tests: { script: ['lib/scene/trace'] },
    mutants: [['bound', 'return Math.min(this._recorded, this._limit);', 'return this._recorded;']],
  },
  {
    file: 'lib/scene/inspect/websocket.js',
    tests: { script: ['lib/scene/pages'] },
    mutants: [
      [
        'comparison',
        'if (length < kLength16) {',
        'if (length <= kLength16) {',
        'messages are multiples of four bytes, and control frames have at most 125',
      ],
    ],
  },
  {
    file: 'lib/scene/inspect/costs.js',
    tests: { script: ['lib/scene/pages'] },
    mutants: [['wrong value', 'return Math.min(kFrames, last);', 'return last;']],
  },
  {
    file: 'Common/Def/Truncate.h',
    tests: { native: 'Truncate*' },
    mutants: [
      [
        'comparison',
        'if (value >= kTopBit) {',
        'if (value > kTopBit) {',
        'the conversion of the top bit itself gives the same bits',
      ],
      [
        'wrong value',
        'return std::trunc(value) == value;',
        'return std::floor(value) == value;',
        'both round to the same number where they are equal to it',
      ],
    ],
  },
  {
    file: 'Common/Def/StreamReader.h',
    tests: { native: 'Stream*:EntityCommands*' },
    mutants: [
      [
        'comparison',
        'return end > static_cast<int32_t>(limits.back()) ? -1 : end;',
        'return end >= static_cast<int32_t>(limits.back()) ? -1 : end;',
      ],
      ['dropped step', 'limits.pop_back();', ''],
      ['bound', 'uint32_t base = at == 0 ? position', 'uint32_t base = at <= 1 ? position'],
    ],
  },
  {
    file: 'Common/Def/StreamWriter.h',
    tests: { native: 'Stream*' },
    mutants: [['wrong value', 'return Length() + kStreamHeaderBytes;', 'return Length();']],
  },
  {
    file: 'Common/Def/BlockTable.h',
    tests: memory,
    mutants: [
      ['dropped step', '--page->count;', ''],
      ['bound', 'if (number >= pages.size()) {', 'if (number > pages.size()) {'],
    ],
  },
  {
    file: 'Engine/Entity/DirtyEntityList.h',
    tests: { native: 'DirtyEntityList*:WorldTransformTest*' },
    mutants: [
      ['lock', 'MutexLock lock(dirtyLock);', ''],
      ['bound', 'if (count != kDirtyListCapacity) {', 'if (count != kDirtyListCapacity - 1) {'],
    ],
  },
  {
    file: 'BindingTemp/BatchUpdate.h',
    tests: { script: ['binding/batch-update', 'engine/animation'] },
    mutants: [
      [
        'bound',
        'if (n == 0 || n * kWordBytes + kWordBytes > bytes.length) {',
        'if (n == 0 || n * kWordBytes > bytes.length) {',
      ],
      [
        'bound',
        'for (size_t index = first; index <= n; index += part) {',
        'for (size_t index = first; index < n; index += part) {',
      ],
      ['dropped step', 'pool->WaitIdle();', ''],
    ],
  },
  {
    file: 'js-binding/include/jsbinding/v8/arguments.h',
    tests: { script: ['binding/arguments'] },
    mutants: [
      ['comparison', 'if (length > offset) {', 'if (length >= offset) {'],
      [
        'wrong value',
        'bytes.length = rangeLength < left ? rangeLength : left;',
        'bytes.length = rangeLength < left ? rangeLength : rangeLength;',
      ],
    ],
  },
  {
    file: 'js-binding/include/jsbinding/v8/type_info.h',
    tests: { script: ['binding/classes'] },
    mutants: [['dropped step', '    if (!known) {', '    if (true) {']],
  },
  {
    file: 'js-binding/include/jsbinding/v8/class.h',
    tests: {
      script: [
        'binding/wrappers',
        'binding/classes',
        'engine/receivers',
        'engine/lifetime',
        'engine/assertions',
      ],
    },
    mutants: [
      [
        'comparison',
        'object->InternalFieldCount() != kInternalFieldCount',
        'object->InternalFieldCount() < 1',
      ],
      [
        'dropped step',
        'wrapper->collected_ = true;',
        '',
        'V8 calls the first pass of a weak handle once',
      ],
      ['dropped step', 'isolate->AdjustAmountOfExternalAllocatedMemory(amount);', ''],
    ],
  },
  {
    file: 'Common/Def/HandlerAllocator.h',
    tests: { native: 'HandlerAllocator*:EngineRuntime*' },
    mutants: [
      [
        'bound',
        'if (freeCount < kFreeStackCapacity) {',
        'if (freeCount < kFreeStackCapacity - 1) {',
      ],
      ['order', 'key = freeStack[--freeCount];', 'key = freeStack[0]; --freeCount;'],
      [
        'bound',
        '} else if (nextIndex == kHandleSlotLimit) {',
        '} else if (nextIndex == kHandleSlotLimit - 1) {',
      ],
    ],
  },
];
