// `Dispatcher`: the program that interfaces have, and the maps through which it hands packets to
// ACLs. Relies on the BPF library.
//
// A packet goes through a chain of ACLs: from the start of its family to the first, and from each
// to the next. Each step is a *hop* of an interface. A hop is changed in one step, so a packet
// takes the old way or the new one. A packet may still be on the old way afterwards;
// `waitForPackets` returns when none is.
#pragma once

#include "Orlix/AddressFamily.h"
#include "postcard/rules-client/kernel/AclProgram.h"

#include <memory>

namespace Postcard::RulesClient {

class Dispatcher {
 public:
   static constexpr U32 defaultSampleRoom = U32{1} << 22; // bytes

   // Where a packet of a family begins.
   static U32 start(Orlix::AddressFamily family);

   // Loads the program. `sampleRoom` is the size of the ring of samples in bytes, a power of two
   // and a multiple of the page. Throws KernelError.
   explicit Dispatcher(U32 sampleRoom = defaultSampleRoom);
   Dispatcher(const Dispatcher&) = delete;
   Dispatcher& operator=(const Dispatcher&) = delete;
   ~Dispatcher();

   // Of the program, to be attached to interfaces; valid as long as this object.
   int descriptor() const noexcept;
   // For programs of ACLs; valid as long as this object.
   SharedMaps maps() const noexcept;

   // Puts a program into a slot, in place of the one there, in one step. Throws KernelError.
   void put(U32 slot, const AclProgram& acl);
   // Empties a slot. No hop may lead to it any more.
   void clear(U32 slot);

   // Packets of `interface` (an index of the kernel) go from `from`, a slot or a start, to the ACL
   // in the slot `to`. Throws KernelError.
   void setHop(U32 interface, U32 from, U32 to);
   // Packets of `interface` go nowhere from `from`. A hop that is not there is no error.
   void dropHop(U32 interface, U32 from);

   // Returns when all packets that were inside programs at the call have left them. Takes some
   // 10 ms.
   void waitForPackets();

 private:
   class Implementation;
   std::unique_ptr<Implementation> implementation_;
};

} // namespace Postcard::RulesClient
