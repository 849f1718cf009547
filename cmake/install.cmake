# Install rules for kelto, the minikelto library and its headers, the
# documentation and examples, and the files a host project finds the plug-in
# with: a pkg-config file (vorn.pc) and a CMake package config
# (find_package(vorn) gives vorn::vorn, the plug-in with its C header, and
# vorn::minikelto, the minimal host, a C++20 library that needs GMP).
# The package config is written by hand: it describes installed files only,
# so it does not depend on how the build's own targets are put together.
include(CMakePackageConfigHelpers)

install(TARGETS kelto RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(FILES $<TARGET_FILE:minikelto> DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(FILES ${PROJECT_SOURCE_DIR}/minikelto/host.hpp ${PROJECT_SOURCE_DIR}/minikelto/expand.hpp
              ${PROJECT_SOURCE_DIR}/minikelto/polynomial.hpp
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/minikelto)

# share/doc/vorn: what a host author reads, and the examples (the C host
# builds from there against the installed package).
install(FILES ${PROJECT_SOURCE_DIR}/README.md ${PROJECT_SOURCE_DIR}/docs/HOST.md
              ${PROJECT_SOURCE_DIR}/docs/LANGUAGE.md ${PROJECT_SOURCE_DIR}/docs/BAD_INPUT.md
        DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/examples/ DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples)

# The file the library's SONAME names; hosts link and load that one.
set(VORN_SONAME_FILE ${CMAKE_SHARED_LIBRARY_PREFIX}vorn${CMAKE_SHARED_LIBRARY_SUFFIX}.${VORN_SOVERSION})

# The config finds the prefix from its own place, so the installed tree can move.
file(RELATIVE_PATH VORN_CONFIG_TO_PREFIX /prefix/${CMAKE_INSTALL_LIBDIR}/cmake/vorn /prefix)

file(WRITE ${CMAKE_BINARY_DIR}/vorn-config.cmake [=[
# find_package(vorn): the libvorn plug-in and the minikelto host library.
get_filename_component(_vorn_prefix "${CMAKE_CURRENT_LIST_DIR}/@VORN_CONFIG_TO_PREFIX@" ABSOLUTE)
if(NOT TARGET vorn::vorn)
  # The plug-in's interface is C (vorn.h compiles as C99 and as C++).
  add_library(vorn::vorn SHARED IMPORTED)
  set_target_properties(vorn::vorn PROPERTIES
    IMPORTED_LOCATION "${_vorn_prefix}/@CMAKE_INSTALL_LIBDIR@/@VORN_SONAME_FILE@"
    IMPORTED_SONAME "@VORN_SONAME_FILE@"
    INTERFACE_INCLUDE_DIRECTORIES "${_vorn_prefix}/@CMAKE_INSTALL_INCLUDEDIR@")
  # minikelto's headers use C++20 (std::span): a consumer gets the standard
  # with the target.
  find_library(_vorn_gmp gmp REQUIRED)
  add_library(vorn::minikelto STATIC IMPORTED)
  set_target_properties(vorn::minikelto PROPERTIES
    IMPORTED_LOCATION "${_vorn_prefix}/@CMAKE_INSTALL_LIBDIR@/libminikelto.a"
    INTERFACE_INCLUDE_DIRECTORIES "${_vorn_prefix}/@CMAKE_INSTALL_INCLUDEDIR@"
    INTERFACE_COMPILE_FEATURES cxx_std_20
    INTERFACE_LINK_LIBRARIES "${_vorn_gmp};${CMAKE_DL_LIBS}")
endif()
set(vorn_DOC_DIR "${_vorn_prefix}/@CMAKE_INSTALL_DOCDIR@")
set(vorn_FOUND TRUE)
]=])
configure_file(${CMAKE_BINARY_DIR}/vorn-config.cmake ${CMAKE_BINARY_DIR}/vorn-config.cmake @ONLY)
write_basic_package_version_file(${CMAKE_BINARY_DIR}/vorn-config-version.cmake
                                 VERSION ${PROJECT_VERSION} COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_BINARY_DIR}/vorn-config.cmake ${CMAKE_BINARY_DIR}/vorn-config-version.cmake
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/vorn)

# Libs carries the run-time path of the library, so that a program linked
# with `pkg-config --libs vorn` finds libvorn.so.1 in any prefix; an install
# into /usr, where the loader looks anyway, leaves it out.
file(WRITE ${CMAKE_BINARY_DIR}/vorn.pc.in [=[
prefix=@PC_PREFIX@
libdir=${prefix}/@CMAKE_INSTALL_LIBDIR@
includedir=${prefix}/@CMAKE_INSTALL_INCLUDEDIR@
docdir=${prefix}/@CMAKE_INSTALL_DOCDIR@

Name: vorn
Description: @PROJECT_DESCRIPTION@
Version: @PROJECT_VERSION@
Libs: -L${libdir}@PC_RPATH@ -lvorn
Cflags: -I${includedir}
]=])
# The prefix is taken at install time, so `cmake --install --prefix` is
# honoured; the file is made per prefix, so installs into two prefixes at
# once do not race.
install(CODE "
  set(PC_PREFIX \"\${CMAKE_INSTALL_PREFIX}\")
  set(PC_RPATH \" -Wl,-rpath,\\\${libdir}\")
  if(PC_PREFIX STREQUAL \"/usr\")
    set(PC_RPATH \"\")
  endif()
  set(CMAKE_INSTALL_LIBDIR \"${CMAKE_INSTALL_LIBDIR}\")
  set(CMAKE_INSTALL_INCLUDEDIR \"${CMAKE_INSTALL_INCLUDEDIR}\")
  set(CMAKE_INSTALL_DOCDIR \"${CMAKE_INSTALL_DOCDIR}\")
  set(PROJECT_DESCRIPTION \"${PROJECT_DESCRIPTION}\")
  set(PROJECT_VERSION \"${PROJECT_VERSION}\")
  string(MD5 pc_dir \"\${PC_PREFIX}\")
  configure_file(\"${CMAKE_BINARY_DIR}/vorn.pc.in\" \"${CMAKE_BINARY_DIR}/pc/\${pc_dir}/vorn.pc\" @ONLY)
  file(INSTALL \"${CMAKE_BINARY_DIR}/pc/\${pc_dir}/vorn.pc\" DESTINATION \"\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}/pkgconfig\")
")
