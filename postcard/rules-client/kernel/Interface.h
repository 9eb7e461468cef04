// `Attachment`: the dispatcher's program on one interface of this machine. `InterfaceWatch`: hears
// of interfaces that come, go and are renamed. Relies on the kernel's links of programs (bpf_link)
// and on rtnetlink(7).
#pragma once

#include "Pello/Types.h"

#include <stdexcept>
#include <string>

namespace Postcard::RulesClient {

// The index of the interface `name` in the kernel, or 0 when there is none.
U32 interfaceIndex(const std::string& name);

// Somebody else's program is on the interface. The text names it and says how to go on.
class ForeignProgram : public std::runtime_error {
 public:
   using std::runtime_error::runtime_error;
};

class Attachment {
 public:
   enum class Mode : U8 {
      native,  // in the driver, before the kernel makes a packet of its own
      generic, // behind the driver, because the driver cannot; slower
   };

   // Attaches the program behind the descriptor `program` to the interface of the index, whose name
   // is for messages. Throws ForeignProgram, and KernelError.
   Attachment(int program, U32 index, const std::string& name);
   Attachment(const Attachment&) = delete;
   Attachment& operator=(const Attachment&) = delete;
   // Takes the program off, unless the interface is gone.
   ~Attachment();

   Mode mode() const noexcept { return mode_; }
   // Whether the interface still exists.
   bool isAlive() const;

 private:
   int link_ = -1; // file descriptor
   Mode mode_ = Mode::native;
};

class InterfaceWatch {
 public:
   // Throws KernelError.
   InterfaceWatch();
   InterfaceWatch(const InterfaceWatch&) = delete;
   InterfaceWatch& operator=(const InterfaceWatch&) = delete;
   ~InterfaceWatch();

   // Readable, for an event loop, when an interface has changed.
   int descriptor() const noexcept { return socket_; }
   // Takes the messages that are there. Does not wait. What they say is not kept: whoever watches
   // looks at the interfaces anew, which is right also when the kernel had to drop messages.
   void read();

 private:
   int socket_;
};

} // namespace Postcard::RulesClient
