#include "postcard/rules-client/kernel/AclProgram.h"

#include "postcard/rules-client/kernel/AclImage.h"
#include "postcard/rules-client/kernel/KernelError.h"
#include "postcard/rules-client/kernel/MappedMap.h"

#include <fmt/format.h>

#include <Acl.skel.h>
#include <algorithm>
#include <memory>

namespace Postcard::RulesClient {

namespace {

// Counters of a processor begin on a line of their own, four of them to a line.
U32 strideOf(std::size_t rules) {
   return static_cast<U32>((rules / 4 + 1) * 4);
}

struct Destroy {
   void operator()(PostcardAclBpf* program) const { PostcardAclBpf__destroy(program); }
};
using Skeleton = std::unique_ptr<PostcardAclBpf, Destroy>;

Skeleton opened() {
   const LibraryLog log;
   Skeleton program{PostcardAclBpf__open()};
   if (program == nullptr) {
      throw KernelError{"cannot read the program of an ACL", errno, log.text()};
   }
   return program;
}

void require(int result, const char* what) {
   if (result != 0) {
      throw KernelError{what, -result};
   }
}

} // namespace

class AclProgram::Implementation {
 public:
   Implementation(const Classifier::AclTable& table, const SharedMaps& shared, const Place& place)
      : processors_{static_cast<U32>(std::max(libbpf_num_possible_cpus(), 1))},
        skeleton_{opened()} {
      const AclImage image{table};
      shape(image, place);
      share(shared);
      load(table);
      image.write(MappedMap{bpf_map__fd(skeleton_->maps.image), image.shape().imageSize}.bytes());
      counters_ = std::make_unique<MappedMap>(bpf_map__fd(skeleton_->maps.counters),
                                              std::size_t{processors_} * stride_ *
                                                    sizeof(PostcardCounter));
      totals_ = std::make_unique<MappedMap>(bpf_map__fd(skeleton_->maps.totals),
                                            processors_ * sizeof(PostcardTotals));
   }

   int descriptor() const { return bpf_program__fd(skeleton_->progs.postcardAcl); }
   std::size_t rules() const { return rules_; }

   Counter counter(std::size_t rule) const {
      Counter sum;
      const auto counters = counters_->elements<PostcardCounter>();
      for (std::size_t processor = 0; processor < processors_; ++processor) {
         const PostcardCounter& each = counters[processor * stride_ + rule];
         sum.packets += nowOf(each.packets);
         sum.bytes += nowOf(each.bytes);
      }
      return sum;
   }

   Totals totals() const {
      Totals sum;
      for (const PostcardTotals& each : totals_->elements<PostcardTotals>()) {
         sum.samples += nowOf(each.samples);
         sum.lostSamples += nowOf(each.lostSamples);
      }
      return sum;
   }

 private:
   void shape(const AclImage& image, const Place& place) {
      rules_ = image.shape().rules;
      stride_ = strideOf(rules_);
      PostcardShape& shape = skeleton_->rodata->shape;
      shape = image.shape();
      shape.counterStride = stride_;
      shape.sampleBytes = place.sampleBytes;
      shape.slot = place.slot;
      shape.version = place.version;
      const auto& maps = skeleton_->maps;
      require(bpf_map__set_value_size(maps.image, shape.imageSize), "cannot size an image");
      require(bpf_map__set_max_entries(maps.counters, processors_ * stride_),
              "cannot size the counters");
      require(bpf_map__set_max_entries(maps.totals, processors_), "cannot size the totals");
   }

   void share(const SharedMaps& shared) {
      const auto& maps = skeleton_->maps;
      require(bpf_map__reuse_fd(maps.acls, shared.acls), "cannot share the table of ACLs");
      require(bpf_map__reuse_fd(maps.hops, shared.hops), "cannot share the table of hops");
      require(bpf_map__reuse_fd(maps.samples, shared.samples), "cannot share the ring of samples");
   }

   void load(const Classifier::AclTable& table) {
      const LibraryLog log;
      if (const int result = PostcardAclBpf__load(skeleton_.get()); result != 0) {
         throw KernelError{fmt::format("the kernel refuses {} with {} rules", table.key().view(),
                                       table.entries().size()),
                           -result, log.text()};
      }
   }

   U32 processors_; // that the machine may ever have
   U32 stride_ = 0; // see PostcardShape
   std::size_t rules_ = 0;
   Skeleton skeleton_;
   std::unique_ptr<MappedMap> counters_;
   std::unique_ptr<MappedMap> totals_;
};

AclProgram::AclProgram(const Classifier::AclTable& table, const SharedMaps& shared,
                       const Place& place)
   : implementation_{std::make_unique<Implementation>(table, shared, place)} {}

AclProgram::~AclProgram() = default;

int AclProgram::descriptor() const noexcept {
   return implementation_->descriptor();
}

std::vector<AclProgram::Counter> AclProgram::counters() const {
   std::vector<Counter> counters(implementation_->rules());
   for (std::size_t rule = 0; rule < counters.size(); ++rule) {
      counters[rule] = counter(rule);
   }
   return counters;
}

AclProgram::Counter AclProgram::counter(std::size_t rule) const {
   return implementation_->counter(rule);
}

AclProgram::Totals AclProgram::totals() const {
   return implementation_->totals();
}

} // namespace Postcard::RulesClient
