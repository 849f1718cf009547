// Printing host values in the kelto language, so that what is printed reads
// back as the same value: integers, names, sums, products, powers, calls,
// equations and booleans.  Host arrays print as array[n] and containers
// therefore as VORN(n, ring, array[a], array[b], block), which do not read
// back.
#pragma once

#include <string>

#include "minikelto/host.hpp"

namespace minikelto::lang {

// Throws `interrupted` when a poll answers while a long sum is printed.
std::string to_text(word value);

}  // namespace minikelto::lang
