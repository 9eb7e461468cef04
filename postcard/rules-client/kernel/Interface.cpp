#include "postcard/rules-client/kernel/Interface.h"

#include "postcard/rules-client/kernel/KernelError.h"

#include <bpf/bpf.h>
#include <bpf/libbpf.h>
#include <fmt/format.h>

#include <array>
#include <cerrno>
#include <linux/if_link.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <sys/socket.h>
#include <unistd.h>

namespace Postcard::RulesClient {

namespace {

// "'name' (number 12)", or the number alone: reading names asks for a capability of its own.
std::string programText(U32 number) {
   const int program = bpf_prog_get_fd_by_id(number);
   bpf_prog_info info{};
   U32 size = sizeof info;
   const bool isKnown = program >= 0 && bpf_obj_get_info_by_fd(program, &info, &size) == 0;
   if (program >= 0) {
      ::close(program);
   }
   return isKnown ? fmt::format("'{}' (number {})", static_cast<const char*>(info.name), number)
                  : fmt::format("number {}", number);
}

// The number of the program on the interface, or 0.
U32 programOn(U32 index) {
   U32 number = 0;
   return bpf_xdp_query_id(static_cast<int>(index), 0, &number) == 0 ? number : 0;
}

int attach(int program, U32 index, U32 flags) {
   bpf_link_create_opts options{};
   options.sz = sizeof options;
   options.flags = flags;
   return bpf_link_create(program, static_cast<int>(index), BPF_XDP, &options);
}

} // namespace

U32 interfaceIndex(const std::string& name) {
   return ::if_nametoindex(name.c_str());
}

Attachment::Attachment(int program, U32 index, const std::string& name) {
   link_ = attach(program, index, XDP_FLAGS_DRV_MODE);
   if (link_ < 0 && link_ != -EBUSY && link_ != -EEXIST && link_ != -EPERM) {
      link_ = attach(program, index, XDP_FLAGS_SKB_MODE);
      mode_ = Mode::generic;
   }
   if (link_ >= 0) {
      return;
   }
   if (const U32 foreign = programOn(index); foreign != 0) {
      throw ForeignProgram{
            fmt::format("interface {} has the XDP program {} already; take that one off (ip link "
                        "set dev {} xdp off) or take the interface out of the policy",
                        name, programText(foreign), name)};
   }
   throw KernelError{fmt::format("cannot attach to interface {}", name), -link_};
}

Attachment::~Attachment() {
   ::close(link_);
}

bool Attachment::isAlive() const {
   bpf_link_info info{};
   U32 size = sizeof info;
   return bpf_obj_get_info_by_fd(link_, &info, &size) == 0 && info.xdp.ifindex != 0;
}

InterfaceWatch::InterfaceWatch()
   : socket_{::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_ROUTE)} {
   sockaddr_nl address{};
   address.nl_family = AF_NETLINK;
   address.nl_groups = RTMGRP_LINK;
   const void* general = &address;
   if (socket_ < 0 || ::bind(socket_, static_cast<const sockaddr*>(general), sizeof address) != 0) {
      const int error = errno;
      ::close(socket_);
      throw KernelError{"cannot hear of changes of interfaces", error};
   }
}

InterfaceWatch::~InterfaceWatch() {
   ::close(socket_);
}

void InterfaceWatch::read() {
   std::array<char, 16384> message; // NOLINT: its content is not looked at
   while (::recv(socket_, message.data(), message.size(), 0) >= 0 || errno == ENOBUFS ||
          errno == EINTR) {
   }
}

} // namespace Postcard::RulesClient
