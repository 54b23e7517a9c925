// The operations of test worlds.
#include "tests/native/Engine/Entity/World.h"

#include <pthread.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstring>

namespace nq::engine {

namespace {

void* RunBody(void* body) {
  (*static_cast<const std::function<void()>*>(body))();
  return nullptr;
}

ssize_t RecordWrite(void* cookie, const char* text, size_t length) {
  static_cast<std::vector<std::string>*>(cookie)->emplace_back(text, length);
  return static_cast<ssize_t>(length);
}

}  // namespace

World::World() : runtime(new EngineRuntime(new MemoryAllocator)), core(new EngineCore(runtime)) {}

World::~World() {
  for (const uint32_t key : keys) {
    core->ReleaseEntities(key);
  }
  core->DropReference();
  runtime->DropReference();
}

NativeValueInfo World::AddRaw(bool isThreeD, int32_t count) {
  const NativeValueInfo info =
      isThreeD ? core->CreateEntities3D(count) : core->CreateEntities2D(count);
  if (info.handle != 0) {
    keys.insert(info.handle);
  }
  return info;
}

uint32_t World::Add3D(int32_t count) {
  const uint32_t key = AddRaw(true, count).handle;
  for (int32_t i = 0; i < count; ++i) {
    ScaleTo(key + static_cast<uint32_t>(i), 1, 1, 1);
  }
  return key;
}

uint32_t World::Add2D(int32_t count) {
  const uint32_t key = AddRaw(false, count).handle;
  for (int32_t i = 0; i < count; ++i) {
    Entity2DRecord& record = Record2D(key + static_cast<uint32_t>(i));
    record.scale[0] = 1;
    record.scale[1] = 1;
  }
  return key;
}

void World::Release(uint32_t handle) {
  keys.erase(HandleKey(handle));
  core->ReleaseEntities(handle);
}

void World::Command(std::initializer_list<uint32_t> words) {
  uint32_t* stream = CommandWords();
  for (const uint32_t word : words) {
    stream[1 + stream[0] / 4] = word;
    stream[0] += 4;
  }
}

void World::Dirty(uint32_t handle) {
  uint32_t* list = DirtyWords();
  list[++list[0]] = handle;
}

void World::DirtyAll(std::initializer_list<uint32_t> handles) {
  for (const uint32_t handle : handles) {
    Dirty(handle);
  }
}

std::vector<uint32_t> World::DirtyList() {
  const uint32_t* list = DirtyWords();
  return std::vector<uint32_t>(list + 1, list + 1 + list[0]);
}

void World::Settle(std::initializer_list<uint32_t> handles) {
  DirtyAll(handles);
  Refresh();
}

Entity& World::At(uint32_t handle) {
  return *System()->FindEntity(handle);
}

Entity3DRecord& World::Record3D(uint32_t handle) {
  return *reinterpret_cast<Entity3DRecord*>(At(handle).sharedRecord());
}

Entity2DRecord& World::Record2D(uint32_t handle) {
  return *reinterpret_cast<Entity2DRecord*>(At(handle).sharedRecord());
}

void World::MoveTo(uint32_t handle, float x, float y, float z) {
  float* position = Record3D(handle).position;
  position[0] = x;
  position[1] = y;
  position[2] = z;
}

void World::ScaleTo(uint32_t handle, float x, float y, float z) {
  float* scale = Record3D(handle).scale;
  scale[0] = x;
  scale[1] = y;
  scale[2] = z;
}

std::vector<uint32_t> World::ChildrenOf(uint32_t handle) {
  std::vector<uint32_t> handles;
  for (const Entity* child : At(handle).children()) {
    handles.push_back(child->handle);
  }
  EXPECT_EQ(handles.size(), At(handle).children().size());
  return handles;
}

std::vector<uint32_t> World::BoundTo(uint32_t bone) {
  std::vector<uint32_t> handles;
  for (const Entity* bound : At(bone).boundEntities) {
    handles.push_back(bound->handle);
  }
  return handles;
}

std::vector<uint32_t> World::Roots() {
  std::vector<uint32_t> handles;
  for (const Entity* root : System()->rootEntities()) {
    handles.push_back(root->handle);
  }
  return handles;
}

uint32_t World::ParentOf(uint32_t handle) {
  const Entity* parent = At(handle).parent();
  return parent == nullptr ? 0 : parent->handle;
}

uint32_t World::BoneOf(uint32_t handle) {
  const Entity* bone = At(handle).boundTo;
  return bone == nullptr ? 0 : bone->handle;
}

std::vector<float> World::WorldPosition(uint32_t handle) {
  const float* matrix = Record3D(handle).worldMatrix;
  return std::vector<float>(matrix + 12, matrix + 15);
}

bool SameFloat(float expected, float actual) {
  return std::memcmp(&expected, &actual, sizeof(float)) == 0 ||
         (std::isnan(expected) && std::isnan(actual));
}

::testing::AssertionResult SameFloats(const float* expected, const float* actual, size_t count) {
  for (size_t i = 0; i < count; ++i) {
    if (!SameFloat(expected[i], actual[i])) {
      char text[120];
      std::snprintf(text, sizeof(text), "element %zu is %.9g (%a), expected %.9g (%a)", i,
                    static_cast<double>(actual[i]), static_cast<double>(actual[i]),
                    static_cast<double>(expected[i]), static_cast<double>(expected[i]));
      return ::testing::AssertionFailure() << text;
    }
  }
  return ::testing::AssertionSuccess();
}

::testing::AssertionResult SameFloats(const std::vector<float>& expected, const float* actual) {
  return SameFloats(expected.data(), actual, expected.size());
}

void RunOnSmallStack(const std::function<void()>& body) {
#if defined(NQ_TEST_UNDER_THREAD_SANITIZER)
  constexpr size_t kStackBytes = 1024 * 1024;  // the sanitizer keeps its own data there
#else
  constexpr size_t kStackBytes = 256 * 1024;
#endif
  pthread_attr_t attributes;
  ASSERT_EQ(0, pthread_attr_init(&attributes));
  ASSERT_EQ(0, pthread_attr_setstacksize(&attributes, kStackBytes));
  pthread_t thread;
  ASSERT_EQ(
      0, pthread_create(&thread, &attributes, RunBody, const_cast<std::function<void()>*>(&body)));
  ASSERT_EQ(0, pthread_join(thread, nullptr));
  pthread_attr_destroy(&attributes);
}

void SendLogToStandardError() {
  std::fflush(stdout);
  dup2(STDERR_FILENO, STDOUT_FILENO);
}

OutputRecorder::OutputRecorder() {
  std::fflush(stdout);
  cookie_io_functions_t functions = {};
  functions.write = RecordWrite;
  stream = fopencookie(&writes, "w", functions);
  std::setvbuf(stream, nullptr, _IONBF, 0);
  before = stdout;
  stdout = stream;
}

OutputRecorder::~OutputRecorder() {
  stdout = before;
  std::fclose(stream);
}

std::string OutputRecorder::Text() const {
  std::string text;
  for (const std::string& write : writes) {
    text += write;
  }
  return text;
}

}  // namespace nq::engine
