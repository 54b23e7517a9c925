// The interface of the owners of handle tables to the values in those tables.
#ifndef NQ_COMMON_DEF_HANDLEROWNER_H_
#define NQ_COMMON_DEF_HANDLEROWNER_H_

#include "Common/Def/RefCounted.h"

namespace nq::engine {

class EngineRuntime;

// Every value in a table holds one counted reference on the table's owner: on the EngineRuntime in
// its own table, on the EngineCore in the tables of the four systems. Through the owner a value
// reaches the allocator.
class HandlerOwner : public RefCounted {
 public:
  // The runtime whose allocator this owner's values use. Never null while values exist.
  virtual EngineRuntime* Runtime() = 0;
};

}  // namespace nq::engine

#endif  // NQ_COMMON_DEF_HANDLEROWNER_H_
