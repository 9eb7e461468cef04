# What `cmake --install` puts where, and the package that others find with find_package(OruPostcardTelemetry).
#
#   postcard_install_library(<Name>)   called by postcard_library() for each library that ships
#   postcard_install_foreign(<name> <target>), postcard_install_fmt()   called for libraries of others that ours hand on
#   postcard_install_rest()            called once, after all folders: headers, package files, documents, service
#
# Every path in an installed file is relative to that file, so an installed tree can be moved.

include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

# Rises when a program that was linked against the libraries would no longer run with them.
set(POSTCARD_SOVERSION 0)

# One root for all headers, so that rooms with common names (Acl, L3) do not lie among those of others.
set(POSTCARD_INSTALL_HEADERS "${CMAKE_INSTALL_INCLUDEDIR}/orupostcardtelemetry")
set(POSTCARD_INSTALL_PRIVATE "${CMAKE_INSTALL_LIBDIR}/postcard")
set(POSTCARD_INSTALL_CMAKE "${CMAKE_INSTALL_LIBDIR}/cmake/OruPostcardTelemetry")

# Sets `result` to the path from one installed folder to another, both relative to the prefix.
function(postcard_installed_path result from to)
   file(RELATIVE_PATH path "/prefix/${from}" "/prefix/${to}")
   string(REGEX REPLACE "/$" "" path "${path}")
   set(${result} "${path}" PARENT_SCOPE)
endfunction()

postcard_installed_path(POSTCARD_LIBRARIES_FROM_PROGRAMS "${CMAKE_INSTALL_BINDIR}" "${CMAKE_INSTALL_LIBDIR}")

# Sets `result` to whether the folder that is being read belongs to what ships; tests and benchmarks do not.
function(postcard_ships result)
   file(RELATIVE_PATH folder "${PROJECT_SOURCE_DIR}" "${CMAKE_CURRENT_SOURCE_DIR}")
   if(folder MATCHES "^(platform|OruPostcardTelemetry|postcard)(/|$)")
      set(${result} YES PARENT_SCOPE)
   else()
      set(${result} NO PARENT_SCOPE)
   endif()
endfunction()

function(postcard_install_library name)
   postcard_ships(ships)
   if(NOT ships)
      return()
   endif()
   get_target_property(kind ${name} TYPE)
   if(kind STREQUAL "SHARED_LIBRARY")
      set_target_properties(${name} PROPERTIES VERSION "${PROJECT_VERSION}" SOVERSION "${POSTCARD_SOVERSION}")
   endif()
   target_compile_features(${name} INTERFACE cxx_std_20)
   install(TARGETS ${name} EXPORT OruPostcardTelemetry
      LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}"
      ARCHIVE DESTINATION "${CMAKE_INSTALL_LIBDIR}"
      INCLUDES DESTINATION "${POSTCARD_INSTALL_HEADERS}")
   set_property(GLOBAL APPEND PROPERTY POSTCARD_INSTALLED_LIBRARIES ${name})
endfunction()

function(postcard_install_module name)
   postcard_ships(ships)
   if(ships)
      install(TARGETS ${name} LIBRARY DESTINATION "${POSTCARD_INSTALL_PRIVATE}")
   endif()
endfunction()

function(postcard_install_executable name)
   postcard_ships(ships)
   if(ships)
      install(TARGETS ${name} RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}")
   endif()
endfunction()

# Public headers include headers of fmt, Boost and JSON for Modern C++. Boost and JSON are those of the machine that builds
# against the package: postcard::<name> becomes `target` there.
function(postcard_install_foreign name target)
   target_link_libraries(postcard-${name} INTERFACE "$<INSTALL_INTERFACE:${target}>")
   set_target_properties(postcard-${name} PROPERTIES EXPORT_NAME ${name})
   install(TARGETS postcard-${name} EXPORT OruPostcardTelemetry)
endfunction()

# fmt is installed with the package, as it was compiled: the machine's own may be older, or of another version, and fmt's
# version is part of the names that the helper's static library refers to. fmt/format.h carries fmt's licence.
function(postcard_install_fmt)
   set_target_properties(postcard-fmt PROPERTIES EXPORT_NAME fmt OUTPUT_NAME OruPostcardFmt)
   install(TARGETS postcard-fmt EXPORT OruPostcardTelemetry
      ARCHIVE DESTINATION "${CMAKE_INSTALL_LIBDIR}"
      INCLUDES DESTINATION "${POSTCARD_INSTALL_HEADERS}/third_party")
   install(DIRECTORY "${POSTCARD_FMT_FOLDER}/fmt" DESTINATION "${POSTCARD_INSTALL_HEADERS}/third_party"
      FILES_MATCHING PATTERN "*.h")
endfunction()

function(postcard_install_headers)
   install(DIRECTORY platform/ DESTINATION "${POSTCARD_INSTALL_HEADERS}" FILES_MATCHING PATTERN "*.h")
   install(DIRECTORY OruPostcardTelemetry DESTINATION "${POSTCARD_INSTALL_HEADERS}" FILES_MATCHING PATTERN "*.h")
   install(DIRECTORY postcard DESTINATION "${POSTCARD_INSTALL_HEADERS}"
      FILES_MATCHING PATTERN "*.h" PATTERN cli EXCLUDE PATTERN kernel EXCLUDE)
   # Umbrella and forwarding headers are made when the build is configured.
   install(DIRECTORY "${PROJECT_BINARY_DIR}/include/" DESTINATION "${POSTCARD_INSTALL_HEADERS}" OPTIONAL
      FILES_MATCHING PATTERN "*.h")
endfunction()

function(postcard_install_cmake_package)
   install(EXPORT OruPostcardTelemetry NAMESPACE OruPostcardTelemetry::
      FILE OruPostcardTelemetryTargets.cmake DESTINATION "${POSTCARD_INSTALL_CMAKE}")
   set(folder "${PROJECT_BINARY_DIR}/package")
   configure_package_config_file("${PROJECT_SOURCE_DIR}/cmake/OruPostcardTelemetryConfig.cmake.in"
      "${folder}/OruPostcardTelemetryConfig.cmake" INSTALL_DESTINATION "${POSTCARD_INSTALL_CMAKE}"
      NO_SET_AND_CHECK_MACRO)
   write_basic_package_version_file("${folder}/OruPostcardTelemetryConfigVersion.cmake"
      COMPATIBILITY SameMinorVersion)
   install(FILES "${folder}/OruPostcardTelemetryConfig.cmake" "${folder}/OruPostcardTelemetryConfigVersion.cmake"
      DESTINATION "${POSTCARD_INSTALL_CMAKE}")
endfunction()

# Writes a file for pkg-config, named as the library.
function(postcard_install_pkgconfig name requires libs headers)
   list(JOIN requires ", " POSTCARD_PC_REQUIRES)
   set(POSTCARD_PC_NAME ${name})
   set(POSTCARD_PC_LIBS "${libs}")
   set(POSTCARD_PC_CFLAGS "${headers}")
   postcard_installed_path(POSTCARD_PC_PREFIX "${CMAKE_INSTALL_LIBDIR}/pkgconfig" ".")
   configure_file("${PROJECT_SOURCE_DIR}/cmake/library.pc.in" "${PROJECT_BINARY_DIR}/package/${name}.pc" @ONLY)
   install(FILES "${PROJECT_BINARY_DIR}/package/${name}.pc" DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
endfunction()

# The library's file requires what CMake would link.
function(postcard_install_library_pkgconfig name)
   set(requires "")
   get_property(installed GLOBAL PROPERTY POSTCARD_INSTALLED_LIBRARIES)
   get_target_property(links ${name} INTERFACE_LINK_LIBRARIES)
   foreach(item IN LISTS links)
      if(item IN_LIST installed)
         list(APPEND requires ${item})
      elseif(item STREQUAL "postcard::fmt")
         list(APPEND requires OruPostcardFmt)
      elseif(item STREQUAL "postcard::json")
         list(APPEND requires nlohmann_json)
      endif()
   endforeach()
   get_target_property(kind ${name} TYPE)
   set(libs "")
   if(NOT kind STREQUAL "INTERFACE_LIBRARY")
      set(libs "-L\${libdir} -l${name}")
   endif()
   postcard_install_pkgconfig(${name} "${requires}" "${libs}" "-I\${includedir}")
endfunction()

# The prefix may be given as late as `cmake --install --prefix`, so programs that the unit names are written then.
function(postcard_install_service)
   install(PROGRAMS packaging/keep-ring DESTINATION "${CMAKE_INSTALL_LIBEXECDIR}/postcard")
   install(CODE "
      file(READ [[${PROJECT_SOURCE_DIR}/packaging/postcard-agent.service]] unit)
      string(REPLACE /usr/bin/ \"\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_BINDIR}/\" unit \"\${unit}\")
      string(REPLACE /usr/libexec/ \"\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBEXECDIR}/\" unit \"\${unit}\")
      file(WRITE [[${PROJECT_BINARY_DIR}/package/postcard-agent.service]] \"\${unit}\")")
   install(FILES "${PROJECT_BINARY_DIR}/package/postcard-agent.service" DESTINATION lib/systemd/system)
   install(FILES packaging/postcard.sysusers DESTINATION lib/sysusers.d RENAME postcard.conf)
endfunction()

function(postcard_install_documents)
   install(FILES share/postcard-policy.schema.json DESTINATION "${CMAKE_INSTALL_DATADIR}/postcard")
   install(DIRECTORY examples/ DESTINATION "${CMAKE_INSTALL_DOCDIR}/examples")
   install(FILES LICENSE README.md CHANGELOG.md DESTINATION "${CMAKE_INSTALL_DOCDIR}")
   file(GLOB commands CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/packaging/man/*.1")
   install(FILES ${commands} DESTINATION "${CMAKE_INSTALL_MANDIR}/man1")
   file(GLOB formats CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/packaging/man/*.5")
   install(FILES ${formats} DESTINATION "${CMAKE_INSTALL_MANDIR}/man5")
   install(FILES packaging/completion/postcard DESTINATION "${CMAKE_INSTALL_DATADIR}/bash-completion/completions")
endfunction()

# What a library links is known only when the deferred calls of postcard_depend_later() have run, so this is one too.
function(postcard_install_rest)
   cmake_language(DEFER CALL postcard_install_rest_now)
endfunction()

function(postcard_install_rest_now)
   postcard_install_headers()
   postcard_install_cmake_package()
   get_property(installed GLOBAL PROPERTY POSTCARD_INSTALLED_LIBRARIES)
   foreach(name IN LISTS installed)
      postcard_install_library_pkgconfig(${name})
   endforeach()
   postcard_install_pkgconfig(OruPostcardFmt "" "-L\${libdir} -lOruPostcardFmt" "-isystem \${includedir}/third_party")
   install(FILES platform/FeatureToggle/PostcardTelemetryCommon.json DESTINATION "${POSTCARD_INSTALL_PRIVATE}")
   postcard_install_service()
   postcard_install_documents()
endfunction()
