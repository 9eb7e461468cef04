# Settings of every target: language, output folders, warnings, sanitizers, ccache.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

if(NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES)
   set(CMAKE_BUILD_TYPE Release CACHE STRING "Build type" FORCE)
endif()

# Programs run from the build folder. They find libraries by relative paths, so the folder can be moved.
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/lib")
set(CMAKE_ARCHIVE_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/lib")
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/bin")
set(CMAKE_BUILD_RPATH_USE_ORIGIN ON)

if(POSTCARD_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
   find_program(POSTCARD_CCACHE_PROGRAM ccache)
   mark_as_advanced(POSTCARD_CCACHE_PROGRAM)
   if(POSTCARD_CCACHE_PROGRAM)
      # NOHASHDIR lets build folders share results. Their names stand in debug information only.
      set(CMAKE_CXX_COMPILER_LAUNCHER
          "${CMAKE_COMMAND}" -E env CCACHE_DEPEND=1 CCACHE_NOHASHDIR=1 "CCACHE_BASEDIR=${PROJECT_SOURCE_DIR}"
          CCACHE_SLOPPINESS=pch_defines,time_macros,include_file_mtime,include_file_ctime "${POSTCARD_CCACHE_PROGRAM}")
   endif()
endif()

# Lets the compiler inline calls within a shared library. Nobody replaces our functions at load time.
add_compile_options(-fno-semantic-interposition)

# gcc otherwise collects its garbage from 128 MB on, several times per source, which takes a tenth of the time of a build.
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
   add_compile_options("SHELL:--param ggc-min-heapsize=600000")
endif()

if(POSTCARD_SANITIZE)
   add_compile_options("-fsanitize=${POSTCARD_SANITIZE}" -fno-sanitize-recover=all -fno-omit-frame-pointer)
   add_link_options("-fsanitize=${POSTCARD_SANITIZE}")
else()
   # An undefined symbol is an error when the library is linked. Not under sanitizers, whose symbols the executable defines.
   string(APPEND CMAKE_SHARED_LINKER_FLAGS " -Wl,-z,defs")
   string(APPEND CMAKE_MODULE_LINKER_FLAGS " -Wl,-z,defs")
endif()

add_library(postcard-warnings INTERFACE)
target_compile_options(postcard-warnings INTERFACE
   -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wold-style-cast
   -Wnon-virtual-dtor -Woverloaded-virtual -Wcast-align -Wcast-qual -Wextra-semi -Wformat=2
   -Wimplicit-fallthrough -Wunused -Wredundant-decls -Wvla -Wmissing-declarations
   $<$<CXX_COMPILER_ID:GNU>:-Wduplicated-cond>
   $<$<CXX_COMPILER_ID:GNU>:-Wlogical-op>
   $<$<CXX_COMPILER_ID:GNU>:-Wsuggest-override>
   $<$<CXX_COMPILER_ID:GNU>:-Wcomma-subscript>
   $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict> # reports "text" + std::string in its own library (gcc 12)
   $<$<CXX_COMPILER_ID:Clang>:-Winconsistent-missing-override>
   $<$<BOOL:${POSTCARD_WERROR}>:-Werror>)

# For sources that are compiled together: a local name may hide one of another source. Linked behind the warnings above, so
# that it comes later on the command line.
add_library(postcard-joined-warnings INTERFACE)
target_compile_options(postcard-joined-warnings INTERFACE -Wno-shadow)

# Makes a target call the C library's checked functions, which end the process when a copy is longer than its target or
# when %n stands in a writable format. Without optimisation the C library ignores the request; sanitizers check the same.
function(postcard_checked_functions name)
   if(POSTCARD_SANITIZE)
      return()
   endif()
   foreach(config IN ITEMS Debug Release RelWithDebInfo MinSizeRel)
      string(TOUPPER "CMAKE_CXX_FLAGS_${config}" flags)
      if("${CMAKE_CXX_FLAGS} ${${flags}} " MATCHES "-O[1-3sg] ")
         target_compile_options(${name} PRIVATE
            "$<$<CONFIG:${config}>:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=2>")
      endif()
   endforeach()
endfunction()
