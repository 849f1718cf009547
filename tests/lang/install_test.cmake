# The installed package as a host project meets it, in three steps (one CTest
# test each; the last two use the prefix the first one fills):
#   STEP=install   cmake --install into WORK/prefix; the files are there, the
#                  library carries its SONAME and the plain name links to it
#   STEP=consumer  a C++ project with find_package(vorn) that links
#                  vorn::minikelto without choosing a C++ standard
#   STEP=c_host    the installed C host example, built with CMake and with
#                  pkg-config, run, and its output compared with expected.txt
# Programs run through RUNNER (qemu-i386 where the kernel cannot run i386
# programs, empty where it can), never directly.
#   cmake -DSTEP=... -DBUILD=<build dir> -DWORK=<scratch> -DCONFIG=<build type>
#         -DLIBDIR=... -DDOCDIR=... -DVERSION=... -DSOVERSION=... [-DTOOLCHAIN=...]
#         [-DFLAGS=<sanitizer flags>] [-DRUNNER=...] [-DSOURCE=<consumer dir>]
#         [-DC_COMPILER=... -DC_FLAGS=...] -P install_test.cmake
set(prefix ${WORK}/prefix)
set(warnings -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror)

function(run_or_fail what)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE status OUTPUT_VARIABLE out ERROR_VARIABLE out)
  if(NOT status EQUAL 0)
    message(FATAL_ERROR "${what} failed:\n${out}")
  endif()
endfunction()

# Configures and builds a project against the prefix, in the build's ABI and
# with its sanitizers.  Flags go through the environment, which CMake adds to
# the toolchain's own (-m32) instead of replacing them.
function(build_project source binary extra_c_flags)
  file(REMOVE_RECURSE ${binary})
  set(ENV{CFLAGS} "${FLAGS} ${extra_c_flags}")
  set(ENV{CXXFLAGS} "${FLAGS}")
  set(ENV{LDFLAGS} "${FLAGS}")
  set(args -S ${source} -B ${binary} -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_BUILD_TYPE=${CONFIG})
  if(TOOLCHAIN)
    list(APPEND args -DCMAKE_TOOLCHAIN_FILE=${TOOLCHAIN})
  endif()
  run_or_fail("configuring ${source}" ${CMAKE_COMMAND} ${args})
  run_or_fail("building ${source}" ${CMAKE_COMMAND} --build ${binary})
endfunction()

# Runs a program through the runner; its standard output must be `expected`.
function(expect_output program expected)
  execute_process(COMMAND ${RUNNER} ${program} RESULT_VARIABLE status OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT status EQUAL 0 OR NOT out STREQUAL expected)
    message(FATAL_ERROR "${program} (runner: '${RUNNER}') exited with ${status}.\n"
                        "stdout:\n${out}\nexpected:\n${expected}\nstderr:\n${err}")
  endif()
endfunction()

if(STEP STREQUAL "install")
  file(REMOVE_RECURSE ${WORK})
  run_or_fail("cmake --install" ${CMAKE_COMMAND} --install ${BUILD} --prefix ${prefix})
  foreach(f bin/kelto include/vorn.h include/minikelto/host.hpp ${LIBDIR}/libminikelto.a
            ${LIBDIR}/pkgconfig/vorn.pc ${LIBDIR}/cmake/vorn/vorn-config.cmake ${DOCDIR}/HOST.md
            ${DOCDIR}/README.md ${DOCDIR}/examples/c_host/c_host.c ${DOCDIR}/examples/c_host/expected.txt)
    if(NOT EXISTS ${prefix}/${f})
      message(FATAL_ERROR "missing ${f}")
    endif()
  endforeach()
  set(library ${prefix}/${LIBDIR}/libvorn.so.${SOVERSION})
  if(NOT EXISTS ${library} OR NOT IS_SYMLINK ${prefix}/${LIBDIR}/libvorn.so)
    message(FATAL_ERROR "expected libvorn.so.${SOVERSION} and the link libvorn.so to it")
  endif()
  file(READ_SYMLINK ${prefix}/${LIBDIR}/libvorn.so target)
  if(NOT target STREQUAL "libvorn.so.${SOVERSION}")
    message(FATAL_ERROR "libvorn.so links to ${target}")
  endif()
  execute_process(COMMAND readelf -d ${library} OUTPUT_VARIABLE dynamic RESULT_VARIABLE status)
  if(NOT status EQUAL 0 OR NOT dynamic MATCHES "Library soname: \\[libvorn\\.so\\.${SOVERSION}\\]")
    message(FATAL_ERROR "no SONAME libvorn.so.${SOVERSION} in:\n${dynamic}")
  endif()
  set(ENV{PKG_CONFIG_PATH} ${prefix}/${LIBDIR}/pkgconfig)
  execute_process(COMMAND pkg-config --modversion vorn OUTPUT_VARIABLE version RESULT_VARIABLE status)
  execute_process(COMMAND pkg-config --libs vorn OUTPUT_VARIABLE libs)
  if(NOT status EQUAL 0 OR NOT version STREQUAL "${VERSION}\n" OR NOT libs MATCHES "-Wl,-rpath,${prefix}/${LIBDIR} -lvorn")
    message(FATAL_ERROR "pkg-config vorn: version ${version}, libs ${libs}")
  endif()

elseif(STEP STREQUAL "consumer")
  build_project(${SOURCE} ${WORK}/consumer "")
  expect_output(${WORK}/consumer/consumer "1073741823\n")

elseif(STEP STREQUAL "c_host")
  set(source ${prefix}/${DOCDIR}/examples/c_host)
  file(READ ${source}/expected.txt expected)
  build_project(${source} ${WORK}/c_host -Werror)
  expect_output(${WORK}/c_host/c_host "${expected}")

  set(ENV{PKG_CONFIG_PATH} ${prefix}/${LIBDIR}/pkgconfig)
  execute_process(COMMAND pkg-config --cflags --libs vorn OUTPUT_VARIABLE pc RESULT_VARIABLE status
                  OUTPUT_STRIP_TRAILING_WHITESPACE)
  if(NOT status EQUAL 0)
    message(FATAL_ERROR "pkg-config vorn failed")
  endif()
  separate_arguments(pc UNIX_COMMAND "${pc}")
  separate_arguments(cflags UNIX_COMMAND "${C_FLAGS} ${FLAGS}")
  run_or_fail("cc $(pkg-config --cflags --libs vorn)" ${C_COMPILER} ${cflags} -std=c99 ${warnings}
              -o ${WORK}/c_host_pc ${source}/c_host.c ${pc})
  expect_output(${WORK}/c_host_pc "${expected}")

else()
  message(FATAL_ERROR "STEP must be install, consumer or c_host")
endif()
