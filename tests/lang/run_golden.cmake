# Runs one golden script and compares its output with the stored one.
#   cmake -DKELTO=... -DPLUGIN=... -DSCRIPT=name.kel -DSCRIPTS=dir [-DEMULATOR=...] -P run_golden.cmake
# Set UPDATE=1 in the environment to rewrite the expected output instead.
# A first line "# kelto: OPTIONS" gives the script options of its own; a line
# "# exit status: N" the status kelto must end with (else it is not checked).
file(STRINGS ${SCRIPTS}/${SCRIPT} first_line LIMIT_COUNT 1)
set(options "")
if(first_line MATCHES "^# kelto: (.*)$")
  separate_arguments(options UNIX_COMMAND "${CMAKE_MATCH_1}")
endif()
file(STRINGS ${SCRIPTS}/${SCRIPT} status_line REGEX "^# exit status: [0-9]+$" LIMIT_COUNT 1)
execute_process(
  COMMAND ${EMULATOR} ${KELTO} -q ${options} --plugin ${PLUGIN} ${SCRIPT}
  WORKING_DIRECTORY ${SCRIPTS}
  OUTPUT_VARIABLE output ERROR_VARIABLE output
  RESULT_VARIABLE status)
# Time figures differ from run to run; a ratio of a call that took no
# measurable wall time prints as nan or inf.  Semicolons would split the
# lines as a CMake list, so they are held as a placeholder meanwhile.
set(masked "")
string(REPLACE ";" "<semicolon>" output "${output}")
string(REGEX MATCHALL "[^\n]*\n|[^\n]+$" lines "${output}")
foreach(line IN LISTS lines)
  if(line MATCHES "^time:")
    string(REGEX REPLACE "[0-9]+\\.[0-9][0-9][0-9]" "#.###" line "${line}")
    string(REGEX REPLACE "-?(nan|inf)x" "#.###x" line "${line}")
  endif()
  string(APPEND masked "${line}")
endforeach()
string(REPLACE "<semicolon>" ";" masked "${masked}")
string(REGEX REPLACE "\\.kel$" ".out" expected_file "${SCRIPTS}/${SCRIPT}")
if(DEFINED ENV{UPDATE})
  file(WRITE ${expected_file} "${masked}")
  return()
endif()
if(status_line MATCHES "([0-9]+)$" AND NOT status STREQUAL CMAKE_MATCH_1)
  message(FATAL_ERROR "${SCRIPT}: exit status ${status}, expected ${CMAKE_MATCH_1}\n${masked}")
endif()
file(READ ${expected_file} expected)
if(NOT masked STREQUAL expected)
  file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/${SCRIPT}.actual "${masked}")
  execute_process(COMMAND diff -u ${expected_file} ${CMAKE_CURRENT_BINARY_DIR}/${SCRIPT}.actual)
  message(FATAL_ERROR "${SCRIPT}: output differs from ${expected_file} (exit status ${status})")
endif()
