// Sorting a term array in place into decreasing monomial order.
//
// Terms are msize monomial words and one coefficient word; they move as whole
// blocks, so each coefficient travels with its monomial.  The quicksort keeps
// a budget that shrinks by a quarter per partition and hands a range to the
// Shell sort when it runs out, so no input costs more than O(n log^2 n)
// comparisons; the only extra memory is one scratch term and a recursion on
// the smaller side, at most log2(n) + 1 frames deep.
#pragma once

#include <cstdint>

#include "host/words.hpp"

namespace vorn {

// What a sort did; filled only when the caller asks (tests, tuning).
struct sort_trace {
  int max_depth = 0;        // deepest quicksort frame, the first call being 1
  int shell_sorts = 0;      // ranges handed to the Shell sort
  int partitions = 0;
};

// Sorts terms lo ... hi (inclusive) into decreasing order.  A whole array of n
// terms is sorted with lo = 0, hi = n - 1, budget = n.
void sort_terms(word* terms, const word* layout, std::int32_t lo, std::int32_t hi, std::int32_t budget,
                sort_trace* trace = nullptr) noexcept;

}  // namespace vorn
