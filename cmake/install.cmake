# Install rules for kelto, the minikelto library and its headers, and the
# files a host project finds the plug-in with: a pkg-config file (vorn.pc)
# and a CMake package config (find_package(vorn) gives vorn::vorn, the plug-in
# with its header, and vorn::minikelto, the minimal host, which needs GMP).
# The package config is written by hand: it describes installed files only,
# so it does not depend on how the build's own targets are put together.
include(CMakePackageConfigHelpers)

install(TARGETS kelto RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(FILES $<TARGET_FILE:minikelto> DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(FILES ${PROJECT_SOURCE_DIR}/minikelto/host.hpp ${PROJECT_SOURCE_DIR}/minikelto/expand.hpp
              ${PROJECT_SOURCE_DIR}/minikelto/polynomial.hpp
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/minikelto)

file(WRITE ${CMAKE_BINARY_DIR}/vorn-config.cmake [=[
# find_package(vorn): the libvorn plug-in and the minikelto host library.
get_filename_component(_vorn_prefix "${CMAKE_CURRENT_LIST_DIR}/../../.." ABSOLUTE)
if(NOT TARGET vorn::vorn)
  add_library(vorn::vorn SHARED IMPORTED)
  set_target_properties(vorn::vorn PROPERTIES
    IMPORTED_LOCATION "${_vorn_prefix}/@CMAKE_INSTALL_LIBDIR@/libvorn.so"
    INTERFACE_INCLUDE_DIRECTORIES "${_vorn_prefix}/@CMAKE_INSTALL_INCLUDEDIR@")
  find_library(_vorn_gmp gmp REQUIRED)
  add_library(vorn::minikelto STATIC IMPORTED)
  set_target_properties(vorn::minikelto PROPERTIES
    IMPORTED_LOCATION "${_vorn_prefix}/@CMAKE_INSTALL_LIBDIR@/libminikelto.a"
    INTERFACE_INCLUDE_DIRECTORIES "${_vorn_prefix}/@CMAKE_INSTALL_INCLUDEDIR@"
    INTERFACE_LINK_LIBRARIES "${_vorn_gmp};${CMAKE_DL_LIBS}")
endif()
set(vorn_FOUND TRUE)
]=])
configure_file(${CMAKE_BINARY_DIR}/vorn-config.cmake ${CMAKE_BINARY_DIR}/vorn-config.cmake @ONLY)
write_basic_package_version_file(${CMAKE_BINARY_DIR}/vorn-config-version.cmake
                                 VERSION ${PROJECT_VERSION} COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_BINARY_DIR}/vorn-config.cmake ${CMAKE_BINARY_DIR}/vorn-config-version.cmake
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/vorn)

file(WRITE ${CMAKE_BINARY_DIR}/vorn.pc.in [=[
prefix=@PC_PREFIX@
libdir=${prefix}/@CMAKE_INSTALL_LIBDIR@
includedir=${prefix}/@CMAKE_INSTALL_INCLUDEDIR@

Name: vorn
Description: @PROJECT_DESCRIPTION@
Version: @PROJECT_VERSION@
Libs: -L${libdir} -lvorn
Cflags: -I${includedir}
]=])
# The prefix is taken at install time, so `cmake --install --prefix` is honoured.
install(CODE "
  set(PC_PREFIX \"\${CMAKE_INSTALL_PREFIX}\")
  set(CMAKE_INSTALL_LIBDIR \"${CMAKE_INSTALL_LIBDIR}\")
  set(CMAKE_INSTALL_INCLUDEDIR \"${CMAKE_INSTALL_INCLUDEDIR}\")
  set(PROJECT_DESCRIPTION \"${PROJECT_DESCRIPTION}\")
  set(PROJECT_VERSION \"${PROJECT_VERSION}\")
  configure_file(\"${CMAKE_BINARY_DIR}/vorn.pc.in\" \"${CMAKE_BINARY_DIR}/vorn.pc\" @ONLY)
  file(INSTALL \"${CMAKE_BINARY_DIR}/vorn.pc\" DESTINATION \"\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}/pkgconfig\")
")
