// `MappedMap`: the values of an array map of the kernel as memory of this process. Relies on mmap.
#pragma once

#include <cstddef>
#include <span>

namespace Postcard::RulesClient {

// The present value of a number that others change meanwhile.
template <class Number>
Number nowOf(const Number& number) {
   return __atomic_load_n(&number, __ATOMIC_RELAXED);
}

class MappedMap {
 public:
   // Maps `size` bytes of the map behind the file `descriptor`, which must be an array made with
   // BPF_F_MMAPABLE. The map lives at least as long as this object. Throws KernelError.
   MappedMap(int descriptor, std::size_t size);
   MappedMap(const MappedMap&) = delete;
   MappedMap& operator=(const MappedMap&) = delete;
   ~MappedMap();

   std::span<std::byte> bytes() const noexcept { return bytes_; }
   // The bytes as structs. Programs in the kernel may change them at any time; see `nowOf`.
   template <class Element>
   std::span<const Element> elements() const noexcept {
      const void* begin = bytes_.data();
      return {static_cast<const Element*>(begin), bytes_.size() / sizeof(Element)};
   }

 private:
   std::span<std::byte> bytes_;
};

} // namespace Postcard::RulesClient
