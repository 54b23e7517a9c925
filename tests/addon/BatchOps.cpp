// BatchUpdate with an operation that records its calls, and tasks that end the process.
#include <chrono>
#include <cstdio>
#include <mutex>
#include <thread>
#include <vector>

#include "BindingTemp/BatchUpdate.h"
#include "BindingTemp/BindingEngine.h"
#include "Common/Def/Assert.h"
#include "Common/Def/Log.h"
#include "tests/addon/TestAddon.h"

namespace nq::test {

namespace {

using engine::BindingEngine;

struct Call {
  uint32_t handle;
  std::thread::id thread;
};

// What the calls of one batch record, concurrently from several threads.
struct Recorder {
  explicit Recorder(engine::EngineRuntime* runtime) : runtime(runtime) {}

  engine::EngineRuntime* Runtime() const { return runtime; }

  engine::EngineRuntime* const runtime;
  std::mutex mutex;
  std::vector<Call> calls;
  std::chrono::milliseconds pause{0};
};

// Records after the pause: the result of a batch that returned early would lack the record.
void Record(Recorder* recorder, uint32_t handle) {
  std::this_thread::sleep_for(recorder->pause);
  const std::lock_guard<std::mutex> lock(recorder->mutex);
  recorder->calls.push_back(Call{handle, std::this_thread::get_id()});
}

// batch(engine, bytes, pauseMilliseconds): the calls made by the time BatchUpdate returned, as
// {handles, onScriptThread, threads}: two arrays in order of completion, and the number of distinct
// threads.
void BatchOp(const vx::CallbackInfo& info) {
  v8::Isolate* isolate = info.GetIsolate();
  BindingEngine* wrapper = vx::Unwrap<BindingEngine>(ObjectArg(info, 0));
  // Leaked: a batch that returned early still writes to it.
  Recorder* recorder = new Recorder(wrapper->Runtime());
  recorder->pause = std::chrono::milliseconds(Uint32Arg(info, 2));
  engine::BatchUpdate<Recorder, Record>(recorder, vx::ReadBytes(vx::Arg(info, 1)));
  std::vector<Call> calls;
  {
    const std::lock_guard<std::mutex> lock(recorder->mutex);
    calls = recorder->calls;
  }
  v8::Local<v8::Array> handles = v8::Array::New(isolate);
  v8::Local<v8::Array> onScriptThread = v8::Array::New(isolate);
  std::vector<std::thread::id> threads;
  for (uint32_t i = 0; i < calls.size(); ++i) {
    Set(isolate, handles, i, Number(isolate, calls[i].handle));
    Set(isolate, onScriptThread, i,
        v8::Boolean::New(isolate, calls[i].thread == std::this_thread::get_id()));
    bool known = false;
    for (const std::thread::id& thread : threads) {
      known = known || thread == calls[i].thread;
    }
    if (!known) {
      threads.push_back(calls[i].thread);
    }
  }
  v8::Local<v8::Object> result = v8::Object::New(isolate);
  Set(isolate, result, "handles", handles);
  Set(isolate, result, "onScriptThread", onScriptThread);
  Set(isolate, result, "threads", Number(isolate, static_cast<double>(threads.size())));
  info.GetReturnValue().Set(result);
}

// bufferOutput(): turns on buffering of standard output, as in any program but the host, which
// turns it off for itself.
void BufferOutputOp(const vx::CallbackInfo& /*info*/) {
  static char buffer[4096];
  std::setvbuf(stdout, buffer, _IOFBF, sizeof(buffer));
}

// failInWorker(engine): a worker thread logs and then fails an assertion.
void FailInWorkerOp(const vx::CallbackInfo& info) {
  engine::WorkerPool* pool = vx::Unwrap<BindingEngine>(ObjectArg(info, 0))->Runtime()->FirstPool();
  const std::thread::id scriptThread = std::this_thread::get_id();
  engine::Task task([scriptThread] {
    const bool onWorker = std::this_thread::get_id() != scriptThread;
    NQ_LOG("[NQ_INFO][Engine]: ", "on a worker: %d\n", onWorker ? 1 : 0);
    NQ_ASSERT(1 + 1 == 3, "tests/addon/BatchOps");
  });
  pool->PostAll(&task, 1);
  pool->WaitIdle();
}

// failHere(): the script thread logs a text without a line feed and then fails an assertion.
void FailHereOp(const vx::CallbackInfo& /*info*/) {
  NQ_LOG("[NQ_WARN][Engine]: ", "no line feed");
  NQ_ASSERT(2 < 1, "tests/addon/BatchOps");
}

}  // namespace

void InstallBatchOps(v8::Local<v8::Object> exports) {
  Install(exports, "batch", BatchOp);
  Install(exports, "bufferOutput", BufferOutputOp);
  Install(exports, "failInWorker", FailInWorkerOp);
  Install(exports, "failHere", FailHereOp);
}

}  // namespace nq::test
