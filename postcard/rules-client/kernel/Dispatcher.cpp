#include "postcard/rules-client/kernel/Dispatcher.h"

#include "postcard/rules-client/kernel/KernelError.h"
#include "postcard/rules-client/kernel/KernelLayout.h"

#include <bpf/bpf.h>
#include <fmt/format.h>

#include <Dispatcher.skel.h>
#include <cerrno>
#include <unistd.h>

namespace Postcard::RulesClient {

namespace {

struct Destroy {
   void operator()(PostcardDispatcherBpf* program) const {
      PostcardDispatcherBpf__destroy(program);
   }
};

int requireDescriptor(int descriptor, const char* what) {
   if (descriptor < 0) {
      throw KernelError{what, -descriptor};
   }
   return descriptor;
}

// A file descriptor that is closed with this object.
class OwnDescriptor {
 public:
   explicit OwnDescriptor(int descriptor) : descriptor_{descriptor} {}
   OwnDescriptor(const OwnDescriptor&) = delete;
   OwnDescriptor& operator=(const OwnDescriptor&) = delete;
   ~OwnDescriptor() { ::close(descriptor_); }

   int get() const noexcept { return descriptor_; }

 private:
   int descriptor_;
};

OwnDescriptor smallMap() {
   return OwnDescriptor{
         requireDescriptor(bpf_map_create(BPF_MAP_TYPE_ARRAY, "postcardInner", 4, 4, 1, nullptr),
                           "cannot make a BPF map")};
}

OwnDescriptor mapOfMaps(int inner) {
   bpf_map_create_opts options{};
   options.sz = sizeof options;
   options.inner_map_fd = static_cast<U32>(inner);
   return OwnDescriptor{requireDescriptor(
         bpf_map_create(BPF_MAP_TYPE_ARRAY_OF_MAPS, "postcardBarrier", 4, 4, 1, &options),
         "cannot make a BPF map of maps")};
}

} // namespace

class Dispatcher::Implementation {
 public:
   explicit Implementation(U32 sampleRoom) {
      const LibraryLog log;
      skeleton_.reset(PostcardDispatcherBpf__open());
      if (skeleton_ == nullptr) {
         throw KernelError{"cannot read the dispatching program", errno, log.text()};
      }
      int result = bpf_map__set_max_entries(skeleton_->maps.samples, sampleRoom);
      if (result == 0) {
         result = PostcardDispatcherBpf__load(skeleton_.get());
      }
      if (result != 0) {
         throw KernelError{"the kernel refuses the dispatching program", -result, log.text()};
      }
   }

   const PostcardDispatcherBpf& skeleton() const { return *skeleton_; }
   int barrier() const { return barrier_.get(); }
   int inner() const { return inner_.get(); }

 private:
   std::unique_ptr<PostcardDispatcherBpf, Destroy> skeleton_;
   // The kernel waits for running programs whenever a map of maps is written.
   OwnDescriptor inner_{smallMap()};
   OwnDescriptor barrier_{mapOfMaps(inner_.get())};
};

U32 Dispatcher::start(Orlix::AddressFamily family) {
   return family == Orlix::AddressFamily::ipv4 ? postcardStartIpv4 : postcardStartIpv6;
}

Dispatcher::Dispatcher(U32 sampleRoom)
   : implementation_{std::make_unique<Implementation>(sampleRoom)} {}

Dispatcher::~Dispatcher() = default;

int Dispatcher::descriptor() const noexcept {
   return bpf_program__fd(implementation_->skeleton().progs.postcardDispatcher);
}

SharedMaps Dispatcher::maps() const noexcept {
   const auto& maps = implementation_->skeleton().maps;
   return {.acls = bpf_map__fd(maps.acls),
           .hops = bpf_map__fd(maps.hops),
           .samples = bpf_map__fd(maps.samples)};
}

void Dispatcher::put(U32 slot, const AclProgram& acl) {
   const int program = acl.descriptor();
   if (bpf_map_update_elem(maps().acls, &slot, &program, BPF_ANY) != 0) {
      throw KernelError{fmt::format("cannot put an ACL into slot {}", slot), errno};
   }
}

void Dispatcher::clear(U32 slot) {
   if (bpf_map_delete_elem(maps().acls, &slot) != 0 && errno != ENOENT) {
      throw KernelError{fmt::format("cannot empty slot {}", slot), errno};
   }
}

void Dispatcher::setHop(U32 interface, U32 from, U32 to) {
   const PostcardHop hop{.interface = interface, .from = from};
   if (bpf_map_update_elem(maps().hops, &hop, &to, BPF_ANY) != 0) {
      throw KernelError{fmt::format("cannot direct packets of interface {}", interface), errno};
   }
}

void Dispatcher::dropHop(U32 interface, U32 from) {
   const PostcardHop hop{.interface = interface, .from = from};
   if (bpf_map_delete_elem(maps().hops, &hop) != 0 && errno != ENOENT) {
      throw KernelError{fmt::format("cannot direct packets of interface {}", interface), errno};
   }
}

void Dispatcher::waitForPackets() {
   const U32 only = 0;
   const int inner = implementation_->inner();
   if (bpf_map_update_elem(implementation_->barrier(), &only, &inner, BPF_ANY) != 0) {
      throw KernelError{"cannot wait for packets", errno};
   }
}

} // namespace Postcard::RulesClient
