// `run`: runs a program of the kernel once over a frame, without any interface. `KernelTest`: a
// test that needs this, and says what is missing where it cannot be had. Relies on the BPF library.
#pragma once

#include "Pello/Types.h"

#include <bpf/bpf.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace RulesClientTest {

struct RunResult {
   U32 verdict = 0;       // what the program returned: XDP_PASS and so on
   std::vector<U8> frame; // as the program left it
};

// The interface that a program sees when it is run so: the loopback interface.
inline constexpr U32 testRunInterface = 1;

// `frame` has 14 to some 3,000 bytes. Throws std::system_error.
inline RunResult run(int program, const std::vector<U8>& frame) {
   RunResult result;
   result.frame.resize(frame.size() + 64);
   LIBBPF_OPTS(bpf_test_run_opts, options, .data_in = frame.data(), .data_out = result.frame.data(),
               .data_size_in = static_cast<U32>(frame.size()),
               .data_size_out = static_cast<U32>(result.frame.size()), .repeat = 1);
   if (const int failure = bpf_prog_test_run_opts(program, &options); failure != 0) {
      throw std::system_error{-failure, std::generic_category(), "BPF_PROG_TEST_RUN"};
   }
   result.verdict = options.retval;
   result.frame.resize(options.data_size_out);
   return result;
}

// Empty when this process may load programs; else what is missing.
inline std::string missingForKernel() {
   const int map = bpf_map_create(BPF_MAP_TYPE_ARRAY, "postcardTest", 4, 4, 1, nullptr);
   if (map < 0) {
      return std::string{"the kernel makes no BPF map for this process ("} + std::strerror(-map) +
             "); CAP_BPF and CAP_NET_ADMIN are needed";
   }
   ::close(map);
   return {};
}

class KernelTest : public testing::Test {
 protected:
   void SetUp() override {
      if (const std::string missing = missingForKernel(); !missing.empty()) {
         GTEST_SKIP() << missing;
      }
   }
};

} // namespace RulesClientTest
