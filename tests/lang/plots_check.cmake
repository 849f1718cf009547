# The committed benchmark plots stay readable: named for what they hold, every
# label at least 10 px, and numbers on the axes written plainly (no 10.000000,
# no 1x10^6).
#   cmake -DDOCS=<docs dir> -P plots_check.cmake
foreach(plot perf-ratios-to-flint.svg perf-dense-product-times.svg)
  if(NOT EXISTS ${DOCS}/${plot})
    message(FATAL_ERROR "missing ${DOCS}/${plot}")
  endif()
  file(READ ${DOCS}/${plot} svg)
  string(REGEX MATCHALL "font-size=\"[0-9.]+\"" sizes "${svg}")
  if(NOT sizes)
    message(FATAL_ERROR "${plot}: no font sizes")
  endif()
  foreach(size IN LISTS sizes)
    string(REGEX MATCH "[0-9.]+" px "${size}")
    if(px LESS 10)
      message(FATAL_ERROR "${plot}: a label of ${px} px")
    endif()
  endforeach()
  if(svg MATCHES ">[0-9]+\\.[0-9]*0<" OR svg MATCHES "x10\\^")
    message(FATAL_ERROR "${plot}: an axis number with trailing zeros or in x10^ form")
  endif()
endforeach()
