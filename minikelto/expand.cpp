// Exact expansion into a hash table of terms.
//
// A polynomial here is a table of terms: packed exponent vectors (one field
// per variable, fields never straddle a 64-bit word, every field wide enough
// for the degree bound of the whole expansion, so adding keys adds
// exponents) and exact coefficients.  A coefficient is a machine integer
// (128 bits where the compiler has them, else 64) until an operation
// overflows; then it moves to a GMP integer for good.  Products run term by
// term into an open-addressing table; powers multiply by the base again and
// again, which for the sparse bases of real inputs beats repeated squaring.
#include "minikelto/expand.hpp"

#include <algorithm>
#include <cstring>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "minikelto/polynomial.hpp"

namespace minikelto {

namespace {

#if defined(__SIZEOF_INT128__)
__extension__ typedef __int128 small_int;
__extension__ typedef unsigned __int128 small_uint;
#else
typedef std::int64_t small_int;
typedef std::uint64_t small_uint;
#endif

// Owns one GMP integer.
struct big_integer {
  mpz_t z;
  big_integer() { mpz_init(z); }
  big_integer(const big_integer&) = delete;
  big_integer& operator=(const big_integer&) = delete;
  big_integer(big_integer&& other) noexcept {
    mpz_init(z);
    mpz_swap(z, other.z);
  }
  big_integer& operator=(big_integer&& other) noexcept {
    mpz_swap(z, other.z);
    return *this;
  }
  ~big_integer() { mpz_clear(z); }
};

void set_small(mpz_ptr z, small_int v) {
  const bool negative = v < 0;
  // The magnitude as unsigned, also for the most negative value.
  const small_uint magnitude = negative ? small_uint{0} - static_cast<small_uint>(v) : static_cast<small_uint>(v);
  unsigned long long words[2] = {0, 0};
  std::memcpy(words, &magnitude, sizeof magnitude);
  mpz_import(z, sizeof magnitude / 8, -1, 8, 0, 0, words);
  if (negative) mpz_neg(z, z);
}

bool get_small(mpz_srcptr z, small_int& v) {
  if (mpz_sizeinbase(z, 2) >= sizeof(small_int) * 8 - 1) return false;
  unsigned long long words[2] = {0, 0};
  mpz_export(words, nullptr, -1, 8, 0, 0, z);
  small_int magnitude = 0;
  std::memcpy(&magnitude, words, sizeof magnitude);
  v = mpz_sgn(z) < 0 ? -magnitude : magnitude;
  return true;
}

struct coefficient {
  small_int small = 0;
  std::int32_t big = -1;  // index into the table's big integers, or -1
};

// The variables of one expansion and how their exponents are packed.
struct monomial_space {
  std::vector<word> variables;  // sorted for output
  std::int32_t bits = 1;        // per field
  std::int32_t per_word = 64;   // fields per key word
  std::int32_t words = 1;       // key words per monomial

  // Variable i sits in word i / per_word, the first variables high, so that
  // comparing key words from the first one compares exponents in order.
  std::int32_t word_of(std::size_t i) const { return static_cast<std::int32_t>(i) / per_word; }
  std::int32_t shift_of(std::size_t i) const {
    return (per_word - 1 - static_cast<std::int32_t>(i) % per_word) * bits;
  }
  // The exponent of variable i in a key.
  std::uint64_t field(const std::uint64_t* key, std::size_t i) const {
    const std::uint64_t mask = bits >= 64 ? ~std::uint64_t{0} : (std::uint64_t{1} << bits) - 1;
    return (key[word_of(i)] >> shift_of(i)) & mask;
  }
};

// Term operations between two interrupt polls: a poll is a call and a term
// operation tens of nanoseconds, so a poll comes every few milliseconds.  The
// count starts afresh with every expansion, so where an interrupt countdown
// stops one does not depend on what ran before it.
constexpr std::uint32_t poll_interval = 1u << 16;
std::uint32_t operations_to_poll = poll_interval;

inline void count_operation() {
  if (--operations_to_poll == 0) {
    operations_to_poll = poll_interval;
    poll_interrupt();
  }
}

// Degrees of the expanded form stay immediate integers.
constexpr std::int32_t max_degree = max_immediate;

// Powers of integers beyond this many bits are refused rather than computed.
constexpr std::uint64_t max_power_bits = std::uint64_t{1} << 20;

std::uint64_t hash_key(const std::uint64_t* key, std::int32_t words) {
  // Keys fill their words from the top, so every bit is mixed into the low
  // bits that pick the slot.
  std::uint64_t h = 0x9e3779b97f4a7c15ull;
  for (std::int32_t i = 0; i < words; ++i) {
    h ^= key[i];
    h ^= h >> 33;
    h *= 0xff51afd7ed558ccdull;
    h ^= h >> 33;
    h *= 0xc4ceb9fe1a85ec53ull;
    h ^= h >> 33;
  }
  return h;
}

// A polynomial: terms in insertion order plus an index for lookup.
class term_table {
 public:
  explicit term_table(std::int32_t words) : words_(words) { slots_.assign(16, 0); }

  std::size_t size() const { return coefficients_.size(); }
  const std::uint64_t* key(std::size_t i) const { return keys_.data() + i * static_cast<std::size_t>(words_); }
  const coefficient& coeff(std::size_t i) const { return coefficients_[i]; }
  mpz_srcptr big(std::int32_t i) const { return bigs_[static_cast<std::size_t>(i)].z; }
  void reserve(std::size_t n) {
    keys_.reserve(n * static_cast<std::size_t>(words_));
    coefficients_.reserve(n);
    std::size_t want = 16;
    while (want < 2 * n) want *= 2;
    if (want > slots_.size()) rehash(want);
  }

  // Adds a term whose key is not in the table yet, without indexing it;
  // the index is rebuilt at the next lookup.
  void append_new(const std::uint64_t* k, const term_table& from, const coefficient& c) {
    keys_.insert(keys_.end(), k, k + words_);
    coefficients_.push_back({c.small, -1});
    if (c.big >= 0) {
      bigs_.emplace_back();
      mpz_set(bigs_.back().z, from.big(c.big));
      coefficients_.back().big = static_cast<std::int32_t>(bigs_.size() - 1);
    }
    indexed_ = false;
  }

  // Empties the table, keeping its memory.
  void clear() {
    keys_.clear();
    coefficients_.clear();
    bigs_.clear();
    std::fill(slots_.begin(), slots_.end(), 0u);
    indexed_ = true;
  }

  // The term with this key, created with coefficient 0 when missing.
  coefficient& at(const std::uint64_t* k) {
    if (!indexed_) {
      std::size_t want = 16;
      while (want < 2 * (coefficients_.size() + 1)) want *= 2;
      rehash(std::max(want, slots_.size()));
      indexed_ = true;
    }
    if (2 * (coefficients_.size() + 1) > slots_.size()) rehash(slots_.size() * 2);
    const std::size_t mask = slots_.size() - 1;
    std::size_t s = static_cast<std::size_t>(hash_key(k, words_)) & mask;
    for (;;) {
      const std::uint32_t slot = slots_[s];
      if (slot == 0) break;
      const std::uint64_t* other = key(slot - 1);
      if (same_key(k, other)) return coefficients_[slot - 1];
      s = (s + 1) & mask;
    }
    keys_.insert(keys_.end(), k, k + words_);
    coefficients_.push_back({});
    slots_[s] = static_cast<std::uint32_t>(coefficients_.size());
    return coefficients_.back();
  }

  void add_small(coefficient& c, small_int v) {
    if (c.big < 0) {
      small_int r;
      if (!__builtin_add_overflow(c.small, v, &r)) {
        c.small = r;
        return;
      }
      promote(c);
    }
    big_integer t;
    set_small(t.z, v);
    mpz_add(bigs_[static_cast<std::size_t>(c.big)].z, bigs_[static_cast<std::size_t>(c.big)].z, t.z);
  }

  void add_big(coefficient& c, mpz_srcptr v) {
    if (c.big < 0) promote(c);
    mpz_add(bigs_[static_cast<std::size_t>(c.big)].z, bigs_[static_cast<std::size_t>(c.big)].z, v);
  }

  // The value of a coefficient as a GMP integer.
  void value(const coefficient& c, mpz_ptr out) const {
    if (c.big < 0) set_small(out, c.small);
    else mpz_set(out, bigs_[static_cast<std::size_t>(c.big)].z);
  }

  bool is_zero(const coefficient& c) const {
    return c.big < 0 ? c.small == 0 : mpz_sgn(bigs_[static_cast<std::size_t>(c.big)].z) == 0;
  }

 private:
  void promote(coefficient& c) {
    bigs_.emplace_back();
    set_small(bigs_.back().z, c.small);
    c.big = static_cast<std::int32_t>(bigs_.size() - 1);
    c.small = 0;
  }

  // A plain loop: std::equal would call memcmp for a word or two.
  bool same_key(const std::uint64_t* a, const std::uint64_t* b) const {
    for (std::int32_t i = 0; i < words_; ++i)
      if (a[i] != b[i]) return false;
    return true;
  }

  void rehash(std::size_t n) {
    slots_.assign(n, 0);
    const std::size_t mask = n - 1;
    for (std::size_t i = 0; i < coefficients_.size(); ++i) {
      std::size_t s = static_cast<std::size_t>(hash_key(key(i), words_)) & mask;
      while (slots_[s] != 0) s = (s + 1) & mask;
      slots_[s] = static_cast<std::uint32_t>(i + 1);
    }
  }

  std::int32_t words_;
  bool indexed_ = true;
  std::vector<std::uint64_t> keys_;
  std::vector<coefficient> coefficients_;
  std::vector<std::uint32_t> slots_;
  std::vector<big_integer> bigs_;
};

// True when v * w cannot overflow for any w with the same property.
inline bool fits_half(small_int v) {
  constexpr small_int half = small_int{1} << (sizeof(small_int) * 4 - 1);
  return v < half && v > -half;
}

// Adds (A's term i) * (B's term j) into out.
inline void add_product(const term_table& A, std::size_t i, const term_table& B, std::size_t j,
                        std::int32_t words, std::uint64_t* k, big_integer& x, big_integer& y, term_table& out) {
  count_operation();
  const std::uint64_t* a = A.key(i);
  const std::uint64_t* b = B.key(j);
  for (std::int32_t w = 0; w < words; ++w) k[w] = a[w] + b[w];
  const coefficient& ca = A.coeff(i);
  const coefficient& cb = B.coeff(j);
  coefficient& c = out.at(k);
  small_int product;
  if (ca.big < 0 && cb.big < 0 && fits_half(ca.small) && fits_half(cb.small)) {
    out.add_small(c, ca.small * cb.small);  // cannot overflow: both halves fit
  } else if (ca.big < 0 && cb.big < 0 && !__builtin_mul_overflow(ca.small, cb.small, &product)) {
    out.add_small(c, product);
  } else {
    A.value(ca, x.z);
    B.value(cb, y.z);
    mpz_mul(x.z, x.z, y.z);
    out.add_big(c, x.z);
  }
}

// Total degree of every term of T.
std::vector<std::uint64_t> degrees_of(const term_table& T, const monomial_space& space) {
  std::vector<std::uint64_t> degree(T.size(), 0);
  for (std::size_t i = 0; i < T.size(); ++i)
    for (std::size_t v = 0; v < space.variables.size(); ++v) degree[i] += space.field(T.key(i), v);
  return degree;
}

// Canonical order within one total degree: the exponents of the first
// variables first, larger first.  Key words compare in that order.
bool key_before(const std::uint64_t* a, const std::uint64_t* b, std::int32_t words) {
  return std::lexicographical_compare(b, b + words, a, a + words);
}

// Products with more term pairs than this are computed slice by slice.
constexpr std::size_t slice_threshold = std::size_t{1} << 20;

// The terms of T grouped by (total degree, exponent of the first variable),
// groups in that order.
struct term_groups {
  struct group {
    std::uint64_t degree, first;
    std::size_t begin, end;  // a range of `terms`
  };
  std::vector<std::uint32_t> terms;
  std::vector<group> groups;
  std::uint64_t top_degree = 0, top_first = 0;

  term_groups(const term_table& T, const monomial_space& space) {
    const std::vector<std::uint64_t> degree = degrees_of(T, space);
    auto first = [&](std::uint32_t i) { return space.field(T.key(i), 0); };
    terms.resize(T.size());
    for (std::size_t i = 0; i < T.size(); ++i) terms[i] = static_cast<std::uint32_t>(i);
    std::sort(terms.begin(), terms.end(), [&](std::uint32_t a, std::uint32_t b) {
      return degree[a] != degree[b] ? degree[a] < degree[b] : first(a) < first(b);
    });
    for (std::size_t k = 0; k < terms.size(); ++k) {
      const std::uint64_t d = degree[terms[k]], f = first(terms[k]);
      if (groups.empty() || groups.back().degree != d || groups.back().first != f) groups.push_back({d, f, k, k});
      ++groups.back().end;
      top_degree = std::max(top_degree, d);
      top_first = std::max(top_first, f);
    }
  }
};

// Adds A * B into out (which must be empty when A * B is large).
//
// A large product goes slice by slice: the terms of the result of total
// degree d whose first variable has exponent e come only from pairs whose
// degrees add up to d and whose first exponents add up to e, so each slice is
// summed in a table small enough to stay in cache.  Slices are taken in
// canonical order and each is sorted before it is appended to out, so a
// product that is the final result is in order already.  Slicing pays when
// walking the slices costs less than the products themselves.
void multiply_into(const term_table& A, const term_table& B, const monomial_space& space, term_table& out) {
  const std::int32_t words = space.words;
  std::vector<std::uint64_t> k(static_cast<std::size_t>(words));
  big_integer x, y;
  const std::size_t pairs = A.size() * B.size();
  auto unsliced = [&] {
    out.reserve(std::max(A.size(), B.size()));
    for (std::size_t i = 0; i < A.size(); ++i)
      for (std::size_t j = 0; j < B.size(); ++j) add_product(A, i, B, j, words, k.data(), x, y, out);
  };
  if (pairs < slice_threshold || out.size() != 0 || space.variables.empty()) return unsliced();
  const term_groups GA(A, space), GB(B, space);
  // Group of B by (degree, first exponent), densely; -1 where there is none.
  const std::uint64_t b_degrees = GB.top_degree + 1, b_firsts = GB.top_first + 1;
  const double slices = static_cast<double>(GA.top_degree + b_degrees) * static_cast<double>(GA.top_first + b_firsts);
  if (slices * static_cast<double>(GA.groups.size()) + static_cast<double>(b_degrees * b_firsts) >
      static_cast<double>(pairs))
    return unsliced();
  // Below the number of pairs, so a size_t holds it.
  auto b_index = [&](std::uint64_t degree, std::uint64_t first) {
    return static_cast<std::size_t>(degree * b_firsts + first);
  };
  std::vector<std::int32_t> b_group(b_index(b_degrees, 0), -1);
  for (std::size_t g = 0; g < GB.groups.size(); ++g)
    b_group[b_index(GB.groups[g].degree, GB.groups[g].first)] = static_cast<std::int32_t>(g);

  term_table slice(words);
  std::vector<std::uint32_t> order;
  for (std::uint64_t d = 0; d <= GA.top_degree + GB.top_degree; ++d) {
    for (std::uint64_t e = GA.top_first + GB.top_first + 1; e-- > 0;) {
      slice.clear();
      for (const auto& a : GA.groups) {
        if (a.degree > d) break;
        if (a.first > e || d - a.degree >= b_degrees || e - a.first >= b_firsts) continue;
        const std::int32_t g = b_group[b_index(d - a.degree, e - a.first)];
        if (g < 0) continue;
        const auto& b = GB.groups[static_cast<std::size_t>(g)];
        for (std::size_t ia = a.begin; ia < a.end; ++ia)
          for (std::size_t ib = b.begin; ib < b.end; ++ib)
            add_product(A, GA.terms[ia], B, GB.terms[ib], words, k.data(), x, y, slice);
      }
      order.resize(slice.size());
      for (std::size_t t = 0; t < order.size(); ++t) order[t] = static_cast<std::uint32_t>(t);
      std::sort(order.begin(), order.end(),
                [&](std::uint32_t i, std::uint32_t j) { return key_before(slice.key(i), slice.key(j), words); });
      for (std::uint32_t t : order) out.append_new(slice.key(t), slice, slice.coeff(t));
    }
  }
}

// Collects variables and, per variable, a bound on its degree in the result.
class degree_bounds {
 public:
  std::map<word, std::uint64_t> bound;  // by handle; sorted later by text

  // Degree bound of e in every variable, added to `into` scaled by `times`.
  void visit(word e, std::map<word, std::uint64_t>& into) {
    const std::int32_t t = type_of(e);
    if (is_integer(e)) return;
    if (t == sum) {
      // The bound of a sum is the largest bound of its terms, per variable.
      auto pairs = pairs_of(e);
      for (auto [term, coeff] : pairs) {
        std::map<word, std::uint64_t> one;
        visit(term, one);
        visit(coeff, one);
        for (auto [v, d] : one) into[v] = std::max(into[v], d);
      }
      return;
    }
    if (t == prod) {
      auto pairs = pairs_of(e);
      for (auto [base, exponent] : pairs) {
        const std::uint64_t n = exponent_of(exponent);
        std::map<word, std::uint64_t> one;
        visit(base, one);
        for (auto [v, d] : one) into[v] = saturate(into[v] + saturate(d * n));
      }
      return;
    }
    into[e] = saturate(into[e] + 1);
    bound[e];
  }

  static std::vector<std::pair<word, word>> pairs_of(word e) {
    const word* w = object_words(e);
    std::vector<std::pair<word, word>> out;
    for (std::int32_t i = 1; i + 1 < length_of(e); i += 2) out.emplace_back(w[i], w[i + 1]);
    return out;
  }

  static std::uint64_t exponent_of(word exponent) {
    if (!is_integer(exponent)) throw std::invalid_argument("the exponent must be a non-negative integer");
    if (!is_immediate(exponent) || immediate_value(exponent) > max_degree)
      throw std::invalid_argument("cannot expand a power with exponent " + integer_text(exponent) + " (at most " +
                                  std::to_string(max_degree) + ")");
    if (immediate_value(exponent) < 0) throw std::invalid_argument("negative exponent");
    return static_cast<std::uint64_t>(immediate_value(exponent));
  }

 private:
  static std::uint64_t saturate(std::uint64_t d) { return std::min<std::uint64_t>(d, 1ull << 40); }
};

class expander {
 public:
  explicit expander(const monomial_space& space) : space_(space) {}

  term_table run(word e) {
    if (is_integer(e)) return constant(e);
    const std::int32_t t = type_of(e);
    if (t == sum) {
      term_table out(space_.words);
      for (auto [term, coeff] : degree_bounds::pairs_of(e)) {
        term_table product(space_.words);
        multiply_into(run(term), run(coeff), space_, product);
        add_into(product, out);
      }
      return out;
    }
    if (t == prod) {
      term_table out = constant(make_immediate(1));
      for (auto [base, exponent] : degree_bounds::pairs_of(e)) {
        const std::uint64_t n = degree_bounds::exponent_of(exponent);
        const term_table b = run(base);
        if (b.size() == 1) {
          term_table next(space_.words);
          multiply_into(out, single_power(b, n), space_, next);
          out = std::move(next);
          continue;
        }
        for (std::uint64_t i = 0; i < n; ++i) {
          term_table next(space_.words);
          multiply_into(out, b, space_, next);
          out = std::move(next);
        }
      }
      return out;
    }
    return variable(e);
  }

 private:
  term_table constant(word integer) {
    term_table out(space_.words);
    std::vector<std::uint64_t> zero(static_cast<std::size_t>(space_.words), 0);
    big_integer v;
    integer_value(integer, v.z);
    coefficient& c = out.at(zero.data());
    small_int s;
    if (get_small(v.z, s)) out.add_small(c, s);
    else out.add_big(c, v.z);
    return out;
  }

  term_table variable(word v) {
    const auto it = std::lower_bound(space_.variables.begin(), space_.variables.end(), v,
                                     [](word a, word b) { return variable_less(a, b); });
    const std::size_t i = static_cast<std::size_t>(it - space_.variables.begin());
    term_table out(space_.words);
    std::vector<std::uint64_t> k(static_cast<std::size_t>(space_.words), 0);
    k[static_cast<std::size_t>(space_.word_of(i))] = std::uint64_t{1} << space_.shift_of(i);
    out.add_small(out.at(k.data()), 1);
    return out;
  }

  // A one-term table to the n-th power: exponents times n, coefficient^n.
  term_table single_power(const term_table& b, std::uint64_t n) {
    term_table out(space_.words);
    std::vector<std::uint64_t> k(b.key(0), b.key(0) + space_.words);
    for (auto& w : k) w *= n;  // the degree bounds keep every field in range
    big_integer v;
    b.value(b.coeff(0), v.z);
    if (mpz_cmpabs_ui(v.z, 1) > 0 && mpz_sizeinbase(v.z, 2) * n > max_power_bits)
      throw std::invalid_argument("integer too large");
    mpz_pow_ui(v.z, v.z, static_cast<unsigned long>(n));
    coefficient& c = out.at(k.data());
    small_int s;
    if (get_small(v.z, s)) out.add_small(c, s);
    else out.add_big(c, v.z);
    return out;
  }

  void add_into(const term_table& from, term_table& out) {
    big_integer x;
    for (std::size_t i = 0; i < from.size(); ++i) {
      count_operation();
      coefficient& c = out.at(from.key(i));
      const coefficient& f = from.coeff(i);
      if (f.big < 0) {
        out.add_small(c, f.small);
      } else {
        from.value(f, x.z);
        out.add_big(c, x.z);
      }
    }
  }

 public:
  // Names first, by text; other operands after them, by handle.
  static bool variable_less(word a, word b) {
    const bool na = is_name(a), nb = is_name(b);
    if (na != nb) return na;
    if (na) {
      const auto ta = name_text(a), tb = name_text(b);
      if (ta != tb) return ta < tb;
    }
    return a < b;
  }

 private:
  const monomial_space& space_;
};

std::int32_t bit_length(std::uint64_t v) {
  std::int32_t n = 0;
  while (v != 0) {
    ++n;
    v >>= 1;
  }
  return n;
}

}  // namespace

word expand(word expression) {
  operations_to_poll = poll_interval;
  degree_bounds bounds;
  std::map<word, std::uint64_t> top;
  bounds.visit(expression, top);
  monomial_space space;
  std::uint64_t largest = 1;
  for (auto [v, d] : top) {
    space.variables.push_back(v);
    largest = std::max(largest, d);
  }
  // Variables that cancel still occupy a field; their bound is at least 1.
  for (auto& [v, d] : bounds.bound) {
    if (std::find(space.variables.begin(), space.variables.end(), v) == space.variables.end())
      space.variables.push_back(v);
  }
  if (largest > static_cast<std::uint64_t>(max_degree))
    throw std::invalid_argument("cannot expand: a degree of the result exceeds " + std::to_string(max_degree));
  std::sort(space.variables.begin(), space.variables.end(), expander::variable_less);
  space.bits = bit_length(largest);
  space.per_word = 64 / space.bits;
  space.words = std::max<std::int32_t>(
      1, static_cast<std::int32_t>((space.variables.size() + static_cast<std::size_t>(space.per_word) - 1) /
                                   static_cast<std::size_t>(space.per_word)));

  term_table result = expander(space).run(expression);

  // Canonical order: total degree ascending, then exponents of the first
  // variables first (larger first).  A sliced product is in order already.
  const std::vector<std::uint64_t> degree = degrees_of(result, space);
  std::vector<std::uint32_t> order;
  for (std::size_t i = 0; i < result.size(); ++i) {
    if (!result.is_zero(result.coeff(i))) order.push_back(static_cast<std::uint32_t>(i));
  }
  const auto canonical = [&](std::uint32_t a, std::uint32_t b) {
    if (degree[a] != degree[b]) return degree[a] < degree[b];
    return key_before(result.key(a), result.key(b), space.words);
  };
  if (!std::is_sorted(order.begin(), order.end(), canonical)) std::sort(order.begin(), order.end(), canonical);

  std::vector<expanded_term> terms;
  terms.reserve(order.size());
  big_integer c;
  std::vector<std::pair<word, std::int32_t>> powers;
  for (std::uint32_t i : order) {
    const std::uint64_t* k = result.key(i);
    powers.clear();
    for (std::size_t v = 0; v < space.variables.size(); ++v) {
      const std::uint64_t e = space.field(k, v);
      if (e != 0) powers.emplace_back(space.variables[v], static_cast<std::int32_t>(e));
    }
    const coefficient& f = result.coeff(i);
    word coeff;
    if (f.big < 0 && f.small >= min_immediate && f.small <= max_immediate) {
      coeff = make_immediate(static_cast<std::int32_t>(f.small));
    } else {
      result.value(f, c.z);
      coeff = make_integer(c.z);
    }
    terms.push_back({make_monomial(powers), coeff});
  }
  return make_polynomial(terms);
}

}  // namespace minikelto
