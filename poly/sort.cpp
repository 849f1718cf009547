// The term sorts: quicksort with a depth budget, Shell sort, insertion sort,
// each compiled for 2, 3 and 4 words per term and for any width.
#include "poly/sort.hpp"

#include <cstddef>
#include <cstring>

#include "poly/monomial.hpp"

namespace vorn {

namespace {

// Largest first; arrays of at most 256 terms start at 112.
constexpr std::int32_t shell_gaps[16] = {1391376, 463792, 198768, 86961, 33936, 13776, 4592, 1968,
                                         861,     336,    112,    48,    21,    7,     3,     1};
constexpr int small_start = 10;
static_assert(shell_gaps[small_start] == 112);

// Width > 0 fixes the words per term; 0 takes them from `width`.
template <int Width>
struct term_sorter {
  word* terms;
  int width;
  bool tdeg;
  word* scratch;  // one term
  sort_trace* trace;

  int w() const noexcept { return Width > 0 ? Width : width; }
  word* at(std::int32_t i) const noexcept { return terms + static_cast<std::ptrdiff_t>(i) * w(); }
  std::int32_t compare(const word* a, const word* b) const noexcept {
    return compare_monomials<(Width > 1 ? Width - 1 : 0)>(a, b, w() - 1, tdeg);
  }
  void copy(word* to, const word* from) const noexcept {
    std::memcpy(to, from, static_cast<std::size_t>(w()) * sizeof(word));
  }
  void swap(std::int32_t i, std::int32_t j) const noexcept {
    word* a = at(i);
    word* b = at(j);
    for (int k = 0; k < w(); ++k) {
      const word t = a[k];
      a[k] = b[k];
      b[k] = t;
    }
  }

  void insertion(std::int32_t first, std::int32_t count) const noexcept {
    for (std::int32_t i = first + 1; i < first + count; ++i) {
      copy(scratch, at(i));
      std::int32_t j = i - 1;
      for (; j >= first && compare(at(j), scratch) < 0; --j) copy(at(j + 1), at(j));
      copy(at(j + 1), scratch);
    }
  }

  void shell(std::int32_t first, std::int32_t count) const noexcept {
    if (trace != nullptr) ++trace->shell_sorts;
    for (int g = count <= 256 ? small_start : 0; g < 16; ++g) {
      const std::int32_t h = shell_gaps[g];
      if (h > count) continue;
      for (std::int32_t i = h; i < count; ++i) {
        copy(scratch, at(first + i));
        std::int32_t j = i;
        for (; j >= h && compare(scratch, at(first + j - h)) > 0; j -= h) copy(at(first + j), at(first + j - h));
        copy(at(first + j), scratch);
      }
    }
  }

  // The end of the quicksort on a range: small ranges are insertion sorted.
  void finish(std::int32_t lo, std::int32_t hi) const noexcept {
    if (hi - lo > 9)
      shell(lo, hi - lo + 1);
    else
      insertion(lo, hi - lo + 1);
  }

  void quick(std::int32_t lo, std::int32_t hi, std::int32_t budget, int depth) const noexcept {
    if (trace != nullptr && depth > trace->max_depth) trace->max_depth = depth;
    for (;;) {
      if (hi - lo <= 8) {
        insertion(lo, hi - lo + 1);
        return;
      }
      // Median of three: afterwards term lo >= term hi >= term m, and term hi
      // is the pivot, which stays at hi during the partition.
      const std::int32_t m = lo + (hi - lo) / 2;
      if (compare(at(lo), at(m)) < 0) swap(lo, m);
      if (compare(at(lo), at(hi)) < 0) swap(lo, hi);
      if (compare(at(hi), at(m)) < 0) swap(hi, m);
      const word* pivot = at(hi);

      // Both indices move past every swap, so keys equal to the pivot cannot
      // hold them in place.  At the end lo ... j >= pivot >= i + 1 ... hi.
      std::int32_t i = lo;
      std::int32_t j = hi - 1;
      for (;;) {
        while (i < hi && compare(at(i), pivot) > 0) ++i;
        while (j > lo && compare(at(j), pivot) < 0) --j;
        if (i >= j) break;
        swap(i, j);
        ++i;
        --j;
      }
      swap(i, hi);
      if (trace != nullptr) ++trace->partitions;

      budget = (budget / 4) * 3;
      if (budget == 0) {
        finish(lo, hi);
        return;
      }
      const std::int32_t left = j - lo;
      const std::int32_t right = hi - (i + 1);
      if (left < right) {
        if (left <= 7) {
          finish(lo, hi);
          return;
        }
        quick(lo, j, budget, depth + 1);
        lo = i + 1;
      } else {
        if (right <= 7) {
          finish(lo, hi);
          return;
        }
        quick(i + 1, hi, budget, depth + 1);
        hi = j;
      }
    }
  }
};

// Runs op on a sorter for the layout's term width, with its scratch term on
// the stack: no heap allocation at any width.
template <class Op>
void with_sorter(word* terms, const word* layout, sort_trace* trace, Op op) noexcept {
  const int width = layout_msize(layout) + 1;
  const bool tdeg = layout_is_tdeg(layout);
  switch (width) {
    case 2: {
      word scratch[2];
      op(term_sorter<2>{terms, width, tdeg, scratch, trace});
      return;
    }
    case 3: {
      word scratch[3];
      op(term_sorter<3>{terms, width, tdeg, scratch, trace});
      return;
    }
    case 4: {
      word scratch[4];
      op(term_sorter<4>{terms, width, tdeg, scratch, trace});
      return;
    }
    default: {
      auto* scratch = static_cast<word*>(__builtin_alloca(static_cast<std::size_t>(width) * sizeof(word)));
      op(term_sorter<0>{terms, width, tdeg, scratch, trace});
      return;
    }
  }
}

}  // namespace

void sort_terms(word* terms, const word* layout, std::int32_t lo, std::int32_t hi, std::int32_t budget,
                sort_trace* trace) noexcept {
  if (hi <= lo) return;
  with_sorter(terms, layout, trace, [&](const auto& s) { s.quick(lo, hi, budget, 1); });
}

}  // namespace vorn
