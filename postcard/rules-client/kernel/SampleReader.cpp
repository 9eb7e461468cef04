#include "postcard/rules-client/kernel/SampleReader.h"

#include "postcard/rules-client/kernel/KernelError.h"
#include "postcard/rules-client/kernel/KernelLayout.h"

#include <bpf/libbpf.h>

#include <cerrno>
#include <cstring>
#include <exception>
#include <utility>

namespace Postcard::RulesClient {

class SampleReader::Implementation {
 public:
   Implementation(int ring, Take take) : take_{std::move(take)} {
      const LibraryLog log;
      ring_.reset(ring_buffer__new(ring, &taken, this, nullptr));
      if (ring_ == nullptr) {
         throw KernelError{"cannot read the ring of samples", errno, log.text()};
      }
   }

   int descriptor() const { return ring_buffer__epoll_fd(ring_.get()); }

   std::size_t read() {
      count_ = 0;
      ring_buffer__consume(ring_.get());
      if (const std::exception_ptr thrown = std::exchange(thrown_, nullptr)) {
         std::rethrow_exception(thrown);
      }
      return count_;
   }

 private:
   struct Free {
      void operator()(ring_buffer* ring) const { ring_buffer__free(ring); }
   };

   // Called by the library, which is C: an exception waits until it has returned.
   static int taken(void* context, void* record, std::size_t size) {
      auto& self = *static_cast<Implementation*>(context);
      try {
         self.handOver({static_cast<const U8*>(record), size});
      } catch (...) {
         self.thrown_ = std::current_exception();
         return -ECANCELED; // ends the reading
      }
      return 0;
   }

   void handOver(std::span<const U8> record) {
      PostcardSample head{};
      std::memcpy(&head, record.data(), sizeof head);
      count_ += 1;
      take_({.time = head.time,
             .interface = head.interface,
             .slot = head.slot,
             .version = head.version,
             .rule = head.rule,
             .length = head.length,
             .bytes = record.subspan(sizeof head, head.captured)});
   }

   Take take_;
   std::unique_ptr<ring_buffer, Free> ring_;
   std::exception_ptr thrown_; // by `take_`
   std::size_t count_ = 0;     // of the present call of `read`
};

SampleReader::SampleReader(int ring, Take take)
   : implementation_{std::make_unique<Implementation>(ring, std::move(take))} {}

SampleReader::~SampleReader() = default;

int SampleReader::descriptor() const noexcept {
   return implementation_->descriptor();
}

std::size_t SampleReader::read() {
   return implementation_->read();
}

} // namespace Postcard::RulesClient
