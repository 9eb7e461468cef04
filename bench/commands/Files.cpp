#include "Files.h"

#include <array>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <random>
#include <stdexcept>

namespace Bench {

namespace {

using Bytes = std::string;

void little32(Bytes& out, std::uint32_t value) {
   for (int i = 0; i < 4; ++i) {
      out.push_back(static_cast<char>(value >> (8 * i)));
   }
}

void big16(Bytes& out, unsigned value) {
   out.push_back(static_cast<char>(value >> 8));
   out.push_back(static_cast<char>(value));
}

void big32(Bytes& out, std::uint32_t value) {
   big16(out, value >> 16);
   big16(out, value & 0xffffU);
}

// An Ethernet frame with IPv4 and 20 bytes behind it, which are a TCP header or begin with a UDP
// header.
Bytes frame(std::mt19937& random) {
   constexpr std::array<unsigned, 8> services{80, 443, 3306, 4789, 5432, 8080, 8443, 16'384};
   const auto below = [&](std::uint32_t limit) {
      return static_cast<std::uint32_t>(random() % limit);
   };
   const bool tcp = below(2) != 0;
   Bytes out(12, '\2');
   big16(out, 0x0800);
   big16(out, 0x4500);
   big16(out, 40);
   big16(out, below(65'536)); // identification
   big16(out, 0);
   big16(out, 64U << 8U | (tcp ? 6U : 17U));
   big16(out, 0);
   big32(out, 0x0a000000U + below(1U << 14U));
   big32(out, 0x0a000000U + below(1U << 14U));
   big16(out, 1024 + below(60'000));
   big16(out, services[below(services.size())] + below(4));
   if (tcp) {
      big32(out, random());
      big32(out, random());
      big16(out, 0x5000U | below(64));
      big16(out, 0xffff);
      big16(out, below(65'536));
      big16(out, 0);
   } else {
      big16(out, 20);
      big16(out, below(65'536));
      out.append(12, '\0');
   }
   return out;
}

} // namespace

Files::Files() {
   char path[] = "/tmp/postcard-bench-XXXXXX";
   if (::mkdtemp(path) == nullptr) {
      throw std::runtime_error{"no folder under /tmp"};
   }
   folder_ = path;
}

Files::~Files() {
   std::error_code ignored;
   std::filesystem::remove_all(folder_, ignored);
}

std::string Files::policy(const std::string& name, std::size_t classes, std::size_t other) const {
   std::ofstream file{path(name)};
   file << "policies:\n- name: big\n  interfaces: { ipv4: [Ethernet1] }\n  classes:\n";
   const char* ports = "ports: [{ source: [1-65534], destination: [1-65534] }]";
   for (std::size_t i = 0; i < classes; ++i) {
      file << "  - { name: class" << i << ", actions: [sample], ipv4: { source: [10." << i / 256
           << "." << i % 256 << ".0/24], sample: { data: " << (i < other ? 1 : 2)
           << ", mask: 3 }, protocols: [{ protocol: tcp, " << ports << " }, { protocol: udp, "
           << ports << " }] } }\n";
   }
   return path(name);
}

std::string Files::capture(const std::string& name, std::size_t packets) const {
   std::mt19937 random{7};
   std::ofstream file{path(name), std::ios::binary};
   Bytes header;
   for (const std::uint32_t word : {0xa1b2c3d4U, 0x00040002U, 0U, 0U, 65'535U, 1U}) {
      little32(header, word);
   }
   file << header;
   for (std::size_t i = 0; i < packets; ++i) {
      const Bytes bytes = frame(random);
      Bytes record;
      little32(record, static_cast<std::uint32_t>(i / 1000));
      little32(record, static_cast<std::uint32_t>(i % 1000));
      little32(record, static_cast<std::uint32_t>(bytes.size()));
      little32(record, static_cast<std::uint32_t>(bytes.size()));
      file << record << bytes;
   }
   return path(name);
}

} // namespace Bench
