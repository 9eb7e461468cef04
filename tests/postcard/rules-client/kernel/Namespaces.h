// `Namespace`: a network namespace of the test's own, in which the calling thread is until the
// object is destroyed, and pairs of virtual interfaces in it. `PacketSocket`: sends and takes whole
// frames. Rely on Linux and on the program ip(8).
#pragma once

#include "Pello/Types.h"
#include "TestRun.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <sched.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

namespace RulesClientTest {

class Namespace {
 public:
   Namespace() : before_{::open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC)} {
      error_ = ::unshare(CLONE_NEWNET) == 0 ? 0 : errno;
      if (error_ == 0) {
         command("link set dev lo up");
      }
   }
   Namespace(const Namespace&) = delete;
   Namespace& operator=(const Namespace&) = delete;
   ~Namespace() {
      EXPECT_EQ(::setns(before_, CLONE_NEWNET), 0);
      ::close(before_);
   }

   // Empty when the namespace could be made; else what is missing.
   std::string missing() const {
      return error_ == 0 ? ""
                         : std::string{"no network namespace can be made ("} +
                                 std::strerror(error_) + "); CAP_SYS_ADMIN is needed";
   }

   // Runs ip(8), which must succeed.
   static void command(const std::string& arguments) {
      const std::string line = "ip " + arguments;
      EXPECT_EQ(std::system(line.c_str()), 0) << line; // NOLINT: the test's own words
   }
   // What is sent on `name` arrives at the other one, whose name has a "p" behind it, and back.
   static void pair(const std::string& name) {
      command(fmt::format("link add name {} type veth peer name {}p", name, name));
      for (const std::string& each : {name, name + "p"}) {
         // Else the machine's own neighbour discovery adds packets of its own.
         command(fmt::format("link set dev {} addrgenmode none", each));
         command(fmt::format("link set dev {} arp off", each));
         command(fmt::format("link set dev {} up", each));
      }
   }

 private:
   int before_;
   int error_ = 0;
};

class PacketSocket {
 public:
   explicit PacketSocket(const std::string& interface)
      : socket_{::socket(AF_PACKET, SOCK_RAW | SOCK_NONBLOCK | SOCK_CLOEXEC, htons(ETH_P_ALL))} {
      sockaddr_ll address{};
      address.sll_family = AF_PACKET;
      address.sll_protocol = htons(ETH_P_ALL);
      address.sll_ifindex = static_cast<int>(::if_nametoindex(interface.c_str()));
      const void* general = &address;
      EXPECT_EQ(::bind(socket_, static_cast<const sockaddr*>(general), sizeof address), 0);
      const int room = 64 << 20;
      ::setsockopt(socket_, SOL_SOCKET, SO_RCVBUFFORCE, &room, sizeof room);
   }
   PacketSocket(const PacketSocket&) = delete;
   PacketSocket& operator=(const PacketSocket&) = delete;
   ~PacketSocket() { ::close(socket_); }

   // Sends whole frames only: a full queue is waited for.
   void send(const std::vector<U8>& frame) const {
      while (::send(socket_, frame.data(), frame.size(), 0) < 0) {
         ASSERT_TRUE(errno == ENOBUFS || errno == EAGAIN) << std::strerror(errno);
         ::usleep(100);
      }
   }
   // The frames that have arrived, and not those that were sent here.
   std::vector<std::vector<U8>> received() const {
      std::vector<std::vector<U8>> frames;
      for (;;) {
         std::vector<U8> frame(4096);
         sockaddr_ll from{};
         socklen_t size = sizeof from;
         void* general = &from;
         const ssize_t length = ::recvfrom(socket_, frame.data(), frame.size(), 0,
                                           static_cast<sockaddr*>(general), &size);
         if (length < 0) {
            return frames;
         }
         if (from.sll_pkttype != PACKET_OUTGOING) {
            frame.resize(static_cast<std::size_t>(length));
            frames.push_back(std::move(frame));
         }
      }
   }

 private:
   int socket_;
};

} // namespace RulesClientTest
