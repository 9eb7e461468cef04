# The rules client for the Linux kernel is optional: it needs clang with the BPF target, bpftool and libbpf. Where one of
# them is missing, POSTCARD_KERNEL is NO, and configuring says what is left out.
#
#   postcard_kernel_programs(<Name> <program>...)   compiles <program>.bpf.c for the kernel and gives the library <Name>
#                                                   <program>.skel.h, which holds and loads it

option(POSTCARD_WITH_KERNEL "Build the rules client for the Linux kernel where its tools are installed" ON)

find_program(POSTCARD_BPF_CLANG NAMES clang-16 clang-17 clang-18 clang-19 clang)
find_program(POSTCARD_BPFTOOL NAMES bpftool PATHS /usr/sbin /sbin)
find_path(POSTCARD_bpf_INCLUDE NAMES bpf/libbpf.h)
find_library(POSTCARD_bpf_LIBRARY NAMES bpf)
mark_as_advanced(POSTCARD_BPF_CLANG POSTCARD_BPFTOOL POSTCARD_bpf_INCLUDE POSTCARD_bpf_LIBRARY)

# Sets `result` to what is missing, separated by commas.
function(postcard_kernel_missing result)
   set(missing "")
   if(NOT POSTCARD_BPF_CLANG)
      list(APPEND missing "clang 16 or newer")
   else()
      execute_process(COMMAND "${POSTCARD_BPF_CLANG}" --print-targets OUTPUT_VARIABLE targets ERROR_QUIET)
      execute_process(COMMAND "${POSTCARD_BPF_CLANG}" -dumpversion OUTPUT_VARIABLE version ERROR_QUIET)
      if(NOT targets MATCHES " bpf " OR version VERSION_LESS 16)
         list(APPEND missing "clang 16 or newer with the BPF target")
      endif()
   endif()
   if(NOT POSTCARD_BPFTOOL)
      list(APPEND missing bpftool)
   endif()
   if(NOT POSTCARD_bpf_INCLUDE OR NOT POSTCARD_bpf_LIBRARY)
      list(APPEND missing "libbpf (libbpf-dev)")
   endif()
   list(JOIN missing ", " missing)
   set(${result} "${missing}" PARENT_SCOPE)
endfunction()

set(POSTCARD_KERNEL NO)
if(POSTCARD_WITH_KERNEL)
   postcard_kernel_missing(missing)
   if(missing)
      message(STATUS "The rules client for the Linux kernel is left out, because these are missing: ${missing}")
   else()
      set(POSTCARD_KERNEL YES)
      postcard_found_library(bpf bpf/libbpf.h bpf "libbpf, libbpf-dev")
   endif()
else()
   message(STATUS "The rules client for the Linux kernel is left out: POSTCARD_WITH_KERNEL is off")
endif()

function(postcard_kernel_programs name)
   set(folder "${PROJECT_BINARY_DIR}/kernel")
   set(room "${PROJECT_SOURCE_DIR}/postcard/rules-client/kernel")
   file(GLOB headers CONFIGURE_DEPENDS "${room}/*.h")
   set(skeletons "")
   foreach(program IN LISTS ARGN)
      set(object "${folder}/${program}.bpf.o")
      set(skeleton "${folder}/${program}.skel.h")
      # The headers of the kernel's interface are in a folder of the machine's own architecture.
      add_custom_command(OUTPUT "${skeleton}"
         COMMAND "${CMAKE_COMMAND}" -E make_directory "${folder}"
         COMMAND "${POSTCARD_BPF_CLANG}" -target bpf -mcpu=v3 -O2 -g -Wall -Wextra -Wno-unused-parameter -Werror
                 "-fdebug-prefix-map=${PROJECT_SOURCE_DIR}=."
                 -isystem "/usr/include/${CMAKE_LIBRARY_ARCHITECTURE}" -isystem "${POSTCARD_bpf_INCLUDE}"
                 -c "${room}/${program}.bpf.c" -o "${object}"
         COMMAND "${POSTCARD_BPFTOOL}" gen skeleton "${object}" name "Postcard${program}Bpf" > "${skeleton}"
         DEPENDS "${room}/${program}.bpf.c" ${headers}
         COMMENT "Compiling ${program}.bpf.c for the kernel"
         VERBATIM)
      list(APPEND skeletons "${skeleton}")
   endforeach()
   add_custom_target(${name}-programs DEPENDS ${skeletons})
   add_dependencies(${name} ${name}-programs)
   target_include_directories(${name} SYSTEM PRIVATE "${folder}")
endfunction()
