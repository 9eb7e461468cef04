// `AsyncOperationResult`: the outcome of an operation that finishes after its call has returned.
// Relies on the value support of the framework.
#pragma once

#include "Kiv/String.h"
#include "Kiv/Value.h"

namespace PolicyMap {

class AsyncOperationResult : public Kiv::Value<AsyncOperationResult> {
   KIV_VALUE(AsyncOperationResult, "PolicyMap::AsyncOperationResult");
   KIV_FIELD(1, Pello::String, status); // empty: success; else a message for the operator
   KIV_FIELD(2, double, time);          // seconds since 1970-01-01 00:00 UTC

 public:
   // A success in 1970: no operation has finished yet.
   AsyncOperationResult() = default;
   AsyncOperationResult(Pello::String status, double time)
      : status_{std::move(status)}, time_{time} {}

   U64 hash(U64) const = delete; // outcomes are no keys, and `time` is a real number
};

} // namespace PolicyMap
