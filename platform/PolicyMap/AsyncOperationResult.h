// `AsyncOperationResult`: how an operation that finished later ended.
#pragma once

#include "Kiv/String.h"
#include "Kiv/Value.h"

namespace PolicyMap {

class AsyncOperationResult : public Kiv::Value<AsyncOperationResult> {
   KIV_VALUE(AsyncOperationResult, "PolicyMap::AsyncOperationResult");
   KIV_FIELD(1, Pello::String, status); // empty: success; else a message for the operator
   KIV_FIELD(2, double, time);          // seconds since 1970-01-01 00:00 UTC

 public:
   AsyncOperationResult() = default;
   AsyncOperationResult(Pello::String status, double time)
      : status_{std::move(status)}, time_{time} {}

   U64 hash(U64) const = delete; // a moment is nobody's key
};

} // namespace PolicyMap
