# Libraries of third parties, each as one target. A missing one is an error at configuration time, which says what to
# install.
#
#   postcard::fmt  postcard::boost  postcard::json  postcard::cli11  postcard::xxhash
#   postcard::yaml (LibYAML)  postcard::uv (libuv)  postcard::pcap  postcard::re2  postcard::bdd (BuDDy)  postcard::zlib
#   postcard::gtest  postcard::rapidcheck (tests)   postcard::benchmark (benchmarks)

function(postcard_missing what)
   message(FATAL_ERROR "${what} was not found. Run scripts/install-dependencies, or install it.")
endfunction()

# postcard_header_only(<name> <path of a header> <what it is>)
function(postcard_header_only name header what)
   find_path(POSTCARD_${name}_INCLUDE NAMES "${header}")
   mark_as_advanced(POSTCARD_${name}_INCLUDE)
   if(NOT POSTCARD_${name}_INCLUDE)
      postcard_missing("${what} (${header})")
   endif()
   add_library(postcard-${name} INTERFACE)
   target_include_directories(postcard-${name} SYSTEM INTERFACE "$<BUILD_INTERFACE:${POSTCARD_${name}_INCLUDE}>")
   add_library(postcard::${name} ALIAS postcard-${name})
endfunction()

# postcard_found_library(<name> <header> <library> <what it is>)
function(postcard_found_library name header library what)
   postcard_header_only(${name} "${header}" "${what}")
   find_library(POSTCARD_${name}_LIBRARY NAMES ${library})
   mark_as_advanced(POSTCARD_${name}_LIBRARY)
   if(NOT POSTCARD_${name}_LIBRARY)
      postcard_missing("${what} (lib${library})")
   endif()
   target_link_libraries(postcard-${name} INTERFACE "${POSTCARD_${name}_LIBRARY}")
endfunction()

# fmt's headers are used, and compiled by one source of ours, so that no library of it is needed and none clashes. A
# folder with an older fmt is passed over: with two of them installed, the first that is new enough wins.
function(postcard_fmt)
   foreach(folder IN ITEMS "${POSTCARD_FMT_INCLUDE}" "${PROJECT_SOURCE_DIR}/.deps/fmt-10/usr/include"
                           /usr/local/include /usr/include)
      foreach(header IN ITEMS base.h core.h)
         if(NOT folder OR NOT EXISTS "${folder}/fmt/${header}")
            continue()
         endif()
         file(STRINGS "${folder}/fmt/${header}" line REGEX "^#define FMT_VERSION [0-9]+" LIMIT_COUNT 1)
         if(line MATCHES "FMT_VERSION ([0-9]+)" AND CMAKE_MATCH_1 GREATER_EQUAL 100000)
            message(STATUS "fmt ${CMAKE_MATCH_1} in ${folder}")
            # Hidden: each library has its own, so that none meets another version in the same process.
            add_library(postcard-fmt STATIC "${PROJECT_SOURCE_DIR}/cmake/Fmt.cpp")
            set_target_properties(postcard-fmt PROPERTIES
               CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
            target_compile_options(postcard-fmt PRIVATE -w)
            # Before all others: a package may have put an older fmt beside the other headers.
            target_include_directories(postcard-fmt SYSTEM BEFORE PUBLIC "$<BUILD_INTERFACE:${folder}>")
            add_library(postcard::fmt ALIAS postcard-fmt)
            set(POSTCARD_FMT_FOLDER "${folder}" PARENT_SCOPE)
            return()
         endif()
      endforeach()
   endforeach()
   message(FATAL_ERROR
      "fmt 10 or newer was not found. Run scripts/install-dependencies, which unpacks it beside the sources, "
      "or install libfmt-dev 10 or newer, or name its include folder: -DPOSTCARD_FMT_INCLUDE=DIR.")
endfunction()

postcard_fmt()
postcard_header_only(boost boost/unordered/unordered_flat_set.hpp "Boost 1.81 or newer, libboost1.81-dev")
postcard_header_only(json nlohmann/json.hpp "JSON for Modern C++, nlohmann-json3-dev")
postcard_header_only(cli11 CLI/CLI.hpp "CLI11, libcli11-dev")
postcard_found_library(xxhash xxhash.h xxhash "xxHash, libxxhash-dev")
postcard_found_library(yaml yaml.h yaml "LibYAML, libyaml-dev")
postcard_found_library(uv uv.h uv "libuv, libuv1-dev")
postcard_found_library(pcap pcap/pcap.h pcap "libpcap, libpcap-dev")
postcard_found_library(re2 re2/re2.h re2 "RE2, libre2-dev")
postcard_found_library(bdd bdd.h bdd "BuDDy, libbdd-dev")
postcard_found_library(zlib zlib.h z "zlib, zlib1g-dev")

# Those whose headers our public headers include.
postcard_install_fmt()
postcard_install_foreign(boost Boost::headers)
postcard_install_foreign(json nlohmann_json::nlohmann_json)

if(POSTCARD_BUILD_TESTS)
   find_package(GTest QUIET)
   if(NOT GTest_FOUND)
      postcard_missing("GoogleTest, libgtest-dev,")
   endif()
   add_library(postcard::gtest ALIAS GTest::gtest)
   # The glue rapidcheck/gtest.h is headers; the engine is one static library.
   postcard_found_library(rapidcheck rapidcheck/gtest.h rapidcheck "RapidCheck, librapidcheck-dev")
endif()

if(POSTCARD_BUILD_BENCH)
   find_package(benchmark QUIET)
   if(NOT benchmark_FOUND)
      postcard_missing("Google Benchmark, libbenchmark-dev,")
   endif()
   add_library(postcard::benchmark ALIAS benchmark::benchmark)
endif()
