# Functions that declare targets. Each compiles all *.cpp of the calling folder, without its subfolders. With ROOMS, it
# compiles those of the named folders instead, which are relative to the calling folder.
#
#   postcard_library(<Name> [STATIC] [LOADED] [ROOMS ...] [DEPENDS ...] [PRIVATE_DEPENDS ...])
#                                                   LOADED: opened at run time; nobody links with what is installed
#   postcard_module(<Name> [OUTPUT_NAME <name>] [SOURCES ...] [DEPENDS ...] EXPORTS symbol...)
#   postcard_executable(<Name> [ROOMS ...] [DEPENDS ...])
#   postcard_test(<Name> [SEPARATE] [COST seconds] [ROOMS ...] [DEPENDS ...])
#                                                   executable and target test-<Name>, ctest test <Name>
#   postcard_page(<Name> <folder> <script>...)      adds to a library the page that PostcardPage.cmake makes of a folder
#   postcard_benchmark(<Name> [DEPENDS ...])        executable and target bench-<Name>
#   postcard_fuzzer(<Name> [DEPENDS ...])           executable and target fuzz-<Name>, part of target fuzzers
#   postcard_add_folders([<folder>...])             reads each folder's CMakeLists.txt, if it has one; all subfolders
#                                                   when none is named
#
# Modules and executables among DEPENDS are built before the target; they are not linked.

function(postcard_sources result)
   set(rooms ${ARGN})
   if(NOT rooms)
      set(rooms .)
   endif()
   list(TRANSFORM rooms PREPEND "${CMAKE_CURRENT_SOURCE_DIR}/")
   list(TRANSFORM rooms APPEND "/*.cpp")
   file(GLOB sources CONFIGURE_DEPENDS ${rooms})
   set(${result} "${sources}" PARENT_SCOPE)
endfunction()

# Sets include folders and warnings. An #include is relative to the project root, or to platform/, whose headers take the
# place of an operating system's.
function(postcard_configure name visibility)
   target_include_directories(${name} ${visibility}
      "$<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>" "$<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/platform>")
   if(NOT visibility STREQUAL INTERFACE)
      target_link_libraries(${name} PRIVATE $<BUILD_INTERFACE:postcard-warnings>)
   endif()
endfunction()

# Links `name` with those of the following targets that can be linked, and builds the others before it. Must run after all
# folders were read, because a folder may name targets of a folder that is read later.
function(postcard_depend name visibility)
   foreach(item IN LISTS ARGN)
      set(kind "")
      if(TARGET ${item})
         get_target_property(kind ${item} TYPE)
      else()
         set_property(GLOBAL APPEND PROPERTY POSTCARD_UNKNOWN "${name} -> ${item}")
      endif()
      if(kind STREQUAL "MODULE_LIBRARY" OR kind STREQUAL "EXECUTABLE" OR kind STREQUAL "UTILITY")
         add_dependencies(${name} ${item})
      else()
         target_link_libraries(${name} ${visibility} ${item})
      endif()
   endforeach()
endfunction()

function(postcard_depend_later name visibility)
   if(ARGN)
      cmake_language(EVAL CODE
         "cmake_language(DEFER DIRECTORY [[${PROJECT_SOURCE_DIR}]]
             CALL postcard_depend [[${name}]] [[${visibility}]] ${ARGN})")
   endif()
endfunction()

# Warns of undeclared names in DEPENDS. Without the warning, they would only fail when linking.
function(postcard_report_unknown_targets)
   cmake_language(DEFER CALL postcard_report_unknown_targets_now)
endfunction()

function(postcard_report_unknown_targets_now)
   get_property(unknown GLOBAL PROPERTY POSTCARD_UNKNOWN)
   foreach(edge IN LISTS unknown)
      message(WARNING "DEPENDS names a target that does not exist: ${edge}")
   endforeach()
endfunction()

# Compiles `name` with the precompiled headers of the target `source`, which must have called postcard_precompile().
function(postcard_reuse_precompiled name source)
   if(POSTCARD_PRECOMPILED_HEADERS)
      target_precompile_headers(${name} REUSE_FROM ${source})
      postcard_allow_precompiled(${name})
   endif()
endfunction()

function(postcard_depend_later_precompiled name source)
   cmake_language(EVAL CODE
      "cmake_language(DEFER DIRECTORY [[${PROJECT_SOURCE_DIR}]] CALL postcard_reuse_precompiled [[${name}]] [[${source}]])")
endfunction()

# ccache preprocesses sources, and gcc takes a precompiled header there only with this option.
function(postcard_allow_precompiled name)
   if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
      target_compile_options(${name} PRIVATE -fpch-preprocess)
   endif()
endfunction()

# Compiles foreign headers once that many sources read. Not the project's own: ccache hands the result to other checkouts,
# where a header of the same text at another path counts as another file, and is read a second time.
function(postcard_precompile name)
   foreach(header IN LISTS ARGN)
      string(REGEX REPLACE "^<(.*)>$" "\\1" file "${header}")
      if(EXISTS "${PROJECT_SOURCE_DIR}/platform/${file}" OR EXISTS "${PROJECT_SOURCE_DIR}/${file}")
         message(FATAL_ERROR "${name}: ${file} is the project's own and cannot be precompiled")
      endif()
   endforeach()
   if(POSTCARD_PRECOMPILED_HEADERS)
      target_precompile_headers(${name} PRIVATE ${ARGN})
      postcard_allow_precompiled(${name})
   endif()
endfunction()

function(postcard_add_folders)
   set(folders ${ARGN})
   if(NOT folders)
      file(GLOB lists RELATIVE "${CMAKE_CURRENT_SOURCE_DIR}" CONFIGURE_DEPENDS "*/CMakeLists.txt")
      list(TRANSFORM lists REPLACE "/CMakeLists.txt$" "" OUTPUT_VARIABLE folders)
   endif()
   foreach(folder IN LISTS folders)
      if(EXISTS "${CMAKE_CURRENT_SOURCE_DIR}/${folder}/CMakeLists.txt")
         add_subdirectory("${folder}")
      endif()
   endforeach()
endfunction()

# In a coverage build, makes `name` write its line counts however a process ends; with ENDS, `name` is a program.
function(postcard_count_lines name)
   if(POSTCARD_COVERAGE)
      set(folder "${PROJECT_SOURCE_DIR}/cmake/coverage")
      set(sources "${folder}/Dump.cpp")
      if("ENDS" IN_LIST ARGN)
         list(APPEND sources "${folder}/Ends.cpp")
         set_target_properties(${name} PROPERTIES ENABLE_EXPORTS ON)
      endif()
      target_sources(${name} PRIVATE ${sources})
      set_source_files_properties(${sources} PROPERTIES SKIP_PRECOMPILE_HEADERS ON SKIP_UNITY_BUILD_INCLUSION ON)
   endif()
endfunction()

function(postcard_library name)
   cmake_parse_arguments(PARSE_ARGV 1 arg "STATIC;LOADED" "" "ROOMS;DEPENDS;PRIVATE_DEPENDS")
   postcard_sources(sources ${arg_ROOMS})
   if(NOT sources)
      add_library(${name} INTERFACE)
      postcard_configure(${name} INTERFACE)
      postcard_depend_later(${name} INTERFACE ${arg_DEPENDS} ${arg_PRIVATE_DEPENDS})
      postcard_install_library(${name})
      return()
   endif()
   if(arg_STATIC)
      add_library(${name} STATIC ${sources})
   else()
      add_library(${name} SHARED ${sources})
      postcard_count_lines(${name})
      set_target_properties(${name} PROPERTIES INSTALL_RPATH "$ORIGIN")
   endif()
   postcard_configure(${name} PUBLIC)
   postcard_depend_later(${name} PUBLIC ${arg_DEPENDS})
   postcard_depend_later(${name} PRIVATE ${arg_PRIVATE_DEPENDS})
   if(arg_LOADED)
      set_target_properties(${name} PROPERTIES
         LIBRARY_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/lib/postcard"
         INSTALL_RPATH "$ORIGIN/..")
      postcard_install_module(${name})
   else()
      postcard_install_library(${name})
   endif()
endfunction()

# Scripts are named without their ending, in the order in which the page has them.
function(postcard_page name folder)
   set(output "${PROJECT_BINARY_DIR}/generated/${name}.cpp")
   set(folder "${CMAKE_CURRENT_SOURCE_DIR}/${folder}")
   list(TRANSFORM ARGN PREPEND "${folder}/" OUTPUT_VARIABLE scripts)
   list(TRANSFORM scripts APPEND ".js")
   list(JOIN ARGN "," names)
   add_custom_command(OUTPUT "${output}"
      COMMAND "${CMAKE_COMMAND}" -DSOURCE=${folder} -DSCRIPTS=${names} -DOUTPUT=${output}
              -P "${PROJECT_SOURCE_DIR}/cmake/PostcardPage.cmake"
      DEPENDS "${folder}/page.html" "${folder}/page.css" ${scripts} "${PROJECT_SOURCE_DIR}/cmake/PostcardPage.cmake"
      COMMENT "Making the page of ${name}" VERBATIM)
   target_sources(${name} PRIVATE "${output}")
endfunction()

# A module for the run-time loader, <build>/lib/postcard/<OUTPUT_NAME>.so, by default <Name>.so. It exports EXPORTS and nothing else; a
# symbol of them that no source and no static library defines is a link error. SOURCES are taken as given,
# none by default: the static libraries among DEPENDS give what the exported symbols need.
function(postcard_module name)
   cmake_parse_arguments(PARSE_ARGV 1 arg "" "OUTPUT_NAME" "SOURCES;DEPENDS;EXPORTS")
   if(NOT arg_EXPORTS)
      message(FATAL_ERROR "postcard_module(${name}): EXPORTS is missing")
   endif()
   if(NOT arg_OUTPUT_NAME)
      set(arg_OUTPUT_NAME "${name}")
   endif()
   list(JOIN arg_EXPORTS "; " symbols)
   set(script "${CMAKE_CURRENT_BINARY_DIR}/${name}.map")
   file(CONFIGURE OUTPUT "${script}" CONTENT "{ global: ${symbols}; local: *; };\n")
   if(NOT arg_SOURCES)
      set(arg_SOURCES "${CMAKE_CURRENT_BINARY_DIR}/${name}.empty.cpp")
      file(CONFIGURE OUTPUT "${arg_SOURCES}" CONTENT "// Everything comes from the libraries.\n")
   endif()
   add_library(${name} MODULE ${arg_SOURCES})
   postcard_count_lines(${name})
   set_target_properties(${name} PROPERTIES
      PREFIX ""
      OUTPUT_NAME "${arg_OUTPUT_NAME}"
      LIBRARY_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/lib/postcard"
      INSTALL_RPATH "$ORIGIN/.."
      LINK_DEPENDS "${script}")
   target_link_options(${name} PRIVATE "-Wl,--version-script=${script}")
   foreach(symbol IN LISTS arg_EXPORTS)
      target_link_options(${name} PRIVATE "-Wl,--require-defined=${symbol}")
   endforeach()
   postcard_configure(${name} PRIVATE)
   postcard_depend_later(${name} PRIVATE ${arg_DEPENDS})
   postcard_install_module(${name})
endfunction()

function(postcard_plain_executable name sources)
   add_executable(${name} ${sources})
   postcard_count_lines(${name} ENDS)
   set_target_properties(${name} PROPERTIES INSTALL_RPATH "$ORIGIN/${POSTCARD_LIBRARIES_FROM_PROGRAMS}")
   postcard_configure(${name} PRIVATE)
   postcard_depend_later(${name} PRIVATE ${ARGN})
endfunction()

function(postcard_executable name)
   cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "ROOMS;DEPENDS")
   postcard_sources(sources ${arg_ROOMS})
   postcard_plain_executable(${name} "${sources}" ${arg_DEPENDS})
   postcard_install_executable(${name})
endfunction()

# Defines the folders that a test, benchmark or fuzz target uses: sources (for golden files and examples), libraries,
# modules, programs. With RELATIVE they are relative to the build folder, in which the target must then run. Relative paths
# let ccache share results between checkouts.
function(postcard_add_places name base)
   set(source "${PROJECT_SOURCE_DIR}")
   set(binary "${PROJECT_BINARY_DIR}")
   if(base STREQUAL RELATIVE)
      file(RELATIVE_PATH source "${PROJECT_BINARY_DIR}" "${PROJECT_SOURCE_DIR}")
      string(REGEX REPLACE "/$" "" source "${source}")
      set(binary ".")
   endif()
   target_compile_definitions(${name} PRIVATE
      POSTCARD_SOURCE_DIR="${source}"
      POSTCARD_LIB_DIR="${binary}/lib"
      POSTCARD_MODULE_DIR="${binary}/lib/postcard"
      POSTCARD_BIN_DIR="${binary}/bin")
   target_include_directories(${name} PRIVATE "${PROJECT_SOURCE_DIR}/tests")
endfunction()

# Links GoogleTest, RapidCheck, and the main() of tests/support, which fails a test that leaves objects behind.
# Compiles test sources faster: without optimisation, and with debug information that names lines and functions only, which
# is what a sanitizer's report shows. The libraries under test are optimised and have all of it.
function(postcard_compile_quickly name)
   target_compile_options(${name} PRIVATE $<$<CONFIG:Debug>:-O0> $<$<CONFIG:Debug>:-g1>)
endfunction()

# Compiles the sources of a test in groups of four, which takes half the time: what they read is read once. Two sources of
# a group must not define the same name. POSTCARD_JOIN_TESTS=OFF compiles each by itself, and then a changed test is
# compiled again without its neighbours.
function(postcard_join_sources name)
   if(POSTCARD_JOIN_TESTS)
      set_target_properties(${name} PROPERTIES UNITY_BUILD ON UNITY_BUILD_BATCH_SIZE 4)
      target_link_libraries(${name} PRIVATE postcard-joined-warnings)
   endif()
endfunction()

# COST is about how long the test takes. ctest begins with the longest.
function(postcard_test name)
   if(NOT POSTCARD_BUILD_TESTS)
      return()
   endif()
   cmake_parse_arguments(PARSE_ARGV 1 arg "SEPARATE" "COST" "ROOMS;DEPENDS")
   postcard_sources(sources ${arg_ROOMS})
   if(NOT sources)
      message(WARNING "postcard_test(${name}): no *.cpp in ${CMAKE_CURRENT_SOURCE_DIR}")
      return()
   endif()
   postcard_plain_executable(test-${name} "${sources}" ${arg_DEPENDS})
   postcard_add_places(test-${name} RELATIVE)
   target_link_libraries(test-${name} PRIVATE postcard::fmt postcard::rapidcheck postcard::gtest)
   postcard_depend_later(test-${name} PRIVATE TestMain)
   postcard_compile_quickly(test-${name})
   if(NOT arg_SEPARATE)
      postcard_join_sources(test-${name})
   endif()
   postcard_depend_later_precompiled(test-${name} TestHeaders)
   # `threadsafe` runs the binary anew for each death test, because a fork of a process with threads or open rings
   # behaves differently from a new process.
   add_test(NAME ${name} COMMAND test-${name} --gtest_brief=1 --gtest_death_test_style=threadsafe
            WORKING_DIRECTORY "${PROJECT_BINARY_DIR}")
   set_tests_properties(${name} PROPERTIES TIMEOUT 900)
   if(arg_COST)
      set_tests_properties(${name} PROPERTIES COST ${arg_COST})
   endif()
endfunction()

function(postcard_benchmark name)
   if(NOT POSTCARD_BUILD_BENCH)
      return()
   endif()
   cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "DEPENDS")
   postcard_sources(sources)
   postcard_plain_executable(bench-${name} "${sources}" ${arg_DEPENDS})
   postcard_add_places(bench-${name} ABSOLUTE)
   target_link_libraries(bench-${name} PRIVATE postcard::benchmark)
   if(NOT EXISTS "${CMAKE_CURRENT_SOURCE_DIR}/main.cpp")
      target_link_libraries(bench-${name} PRIVATE benchmark::benchmark_main)
   endif()
endfunction()

function(postcard_fuzzer name)
   if(NOT POSTCARD_BUILD_FUZZ)
      return()
   endif()
   if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
      message(FATAL_ERROR "Fuzz targets need clang: use the preset fuzz.")
   endif()
   cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "DEPENDS")
   postcard_sources(sources)
   postcard_plain_executable(fuzz-${name} "${sources}" ${arg_DEPENDS})
   postcard_add_places(fuzz-${name} ABSOLUTE)
   target_link_options(fuzz-${name} PRIVATE -fsanitize=fuzzer)
   if(NOT TARGET fuzzers)
      add_custom_target(fuzzers)
   endif()
   add_dependencies(fuzzers fuzz-${name})
endfunction()
