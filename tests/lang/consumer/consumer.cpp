// Loads nothing: linking the plug-in and the minimal host and expanding one
// polynomial shows that the installed headers and libraries fit together.
#include <cstdio>

#include "minikelto/expand.hpp"
#include "minikelto/host.hpp"
#include "vorn.h"

int main() {
  const minikelto::word x = minikelto::unique(minikelto::make_name("x"));
  const minikelto::word e = minikelto::expand(x);
  std::printf("%d\n", MAX_IMMEDIATE);
  return e == x ? 0 : 1;
}
