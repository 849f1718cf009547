# GMP (native or i386, as the toolchain chooses) and GoogleTest built from the
# Debian sources with this build's own flags.
find_path(GMP_INCLUDE_DIR gmp.h REQUIRED)
find_library(GMP_LIBRARY gmp REQUIRED)
add_library(gmp_lib INTERFACE)
target_include_directories(gmp_lib INTERFACE ${GMP_INCLUDE_DIR})
target_link_libraries(gmp_lib INTERFACE ${GMP_LIBRARY})

if(VORN_BUILD_TESTS)
  set(VORN_GOOGLETEST_DIR /usr/src/googletest CACHE PATH "GoogleTest sources")
  set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
  set(BUILD_GMOCK OFF CACHE BOOL "" FORCE)
  add_subdirectory(${VORN_GOOGLETEST_DIR} ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL SYSTEM)
  include(GoogleTest)
endif()

# i386 programs run natively where the kernel allows it, else under qemu-i386.
# Probed once; test discovery runs test binaries at build time, so the
# emulator is set for it too.
set(VORN_TEST_RUNNER "native")
if(CMAKE_SIZEOF_VOID_P EQUAL 4)
  try_run(VORN_I386_RUNS VORN_I386_COMPILES
          SOURCES ${PROJECT_SOURCE_DIR}/cmake/probe.c
          COMPILE_OUTPUT_VARIABLE VORN_PROBE_COMPILE)
  if(NOT VORN_I386_COMPILES)
    message(FATAL_ERROR "cannot compile for i386:\n${VORN_PROBE_COMPILE}")
  endif()
  option(VORN_FORCE_QEMU "Run i386 test programs under qemu-i386 even where the kernel runs them" OFF)
  if(VORN_FORCE_QEMU OR NOT VORN_I386_RUNS EQUAL 0)
    find_program(QEMU_I386 qemu-i386 REQUIRED)
    set(CMAKE_CROSSCOMPILING_EMULATOR ${QEMU_I386})
    set(VORN_TEST_RUNNER "qemu-i386")
  endif()
  message(STATUS "i386 test programs run: ${VORN_TEST_RUNNER}")
endif()
file(WRITE ${CMAKE_BINARY_DIR}/test-runner.txt "${VORN_TEST_RUNNER}\n")
