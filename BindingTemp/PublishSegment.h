// Publishing a native value's segment to JavaScript.
#ifndef NQ_BINDINGTEMP_PUBLISHSEGMENT_H_
#define NQ_BINDINGTEMP_PUBLISHSEGMENT_H_

#include <v8.h>

#include "Common/Def/HandlerValue.h"

namespace nq::engine {

// Sets `name` on `object`.
void SetProperty(v8::Isolate* isolate, v8::Local<v8::Object> object, const char* name,
                 v8::Local<v8::Value> value);

// Sets "id" on `object` and, if there is a block, "buffer" (an ArrayBuffer over the block itself)
// and "memoryID". A block without memory ends the process.
void PublishSegment(v8::Isolate* isolate, v8::Local<v8::Object> object,
                    const NativeValueInfo& info);

// Sets `name` to an ArrayBuffer over memory that native code owns. A null pointer ends the process.
void PublishBuffer(v8::Isolate* isolate, v8::Local<v8::Object> object, const char* name, void* data,
                   size_t length);

}  // namespace nq::engine

#endif  // NQ_BINDINGTEMP_PUBLISHSEGMENT_H_
