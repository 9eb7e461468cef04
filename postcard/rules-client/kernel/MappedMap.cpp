#include "postcard/rules-client/kernel/MappedMap.h"

#include "postcard/rules-client/kernel/KernelError.h"

#include <cerrno>
#include <sys/mman.h>

namespace Postcard::RulesClient {

MappedMap::MappedMap(int descriptor, std::size_t size) {
   void* begin = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
   if (begin == MAP_FAILED) {
      throw KernelError{"cannot map a BPF map into memory", errno};
   }
   bytes_ = {static_cast<std::byte*>(begin), size};
}

MappedMap::~MappedMap() {
   ::munmap(bytes_.data(), bytes_.size());
}

} // namespace Postcard::RulesClient
