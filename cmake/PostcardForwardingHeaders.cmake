# Headers under the names that users look for, made at configure time in <build>/include, which is installed:
#
#   postcard_forwarding_header(<Name.h> <header>...)   <build>/include/<Name.h> includes each <header>
#
# Names and headers are written as they stand in an #include. A header that does not exist in the tree, in platform/
# or among those already made is an error here, not at a user's; so is a name that the tree has a header for, which
# would be hidden.

function(postcard_forwarding_header name)
   if(EXISTS "${PROJECT_SOURCE_DIR}/${name}" OR EXISTS "${PROJECT_SOURCE_DIR}/platform/${name}")
      message(FATAL_ERROR "postcard_forwarding_header(${name}): the tree has a header of this name")
   endif()
   set(includes "")
   foreach(header IN LISTS ARGN)
      if(NOT EXISTS "${PROJECT_SOURCE_DIR}/${header}" AND NOT EXISTS "${PROJECT_SOURCE_DIR}/platform/${header}"
            AND NOT EXISTS "${PROJECT_BINARY_DIR}/include/${header}")
         message(FATAL_ERROR "postcard_forwarding_header(${name}): there is no ${header}")
      endif()
      string(APPEND includes "#include \"${header}\"\n")
   endforeach()
   file(CONFIGURE OUTPUT "${PROJECT_BINARY_DIR}/include/${name}" @ONLY
        CONTENT "// Declares what its name says.\n#pragma once\n\n@includes@")
endfunction()
