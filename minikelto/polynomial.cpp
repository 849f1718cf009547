// Canonical host polynomials: building them from terms, and the sum, product
// and power of canonical values.
//
// The arithmetic splits each operand into a flat list (terms with integer
// coefficients for a sum; bases with exponents and one integer factor for a
// product), merges equal handles, and rebuilds the canonical object.  Integer
// parts are exact GMP integers until the result is written.
#include "minikelto/polynomial.hpp"

#include <algorithm>
#include <stdexcept>
#include <unordered_map>
#include <vector>

namespace minikelto {

namespace {

// Owns one GMP integer.
struct integer {
  mpz_t z;
  integer() { mpz_init(z); }
  explicit integer(word h) {
    mpz_init(z);
    integer_value(h, z);
  }
  integer(const integer& other) {
    mpz_init_set(z, other.z);
  }
  integer& operator=(const integer& other) {
    mpz_set(z, other.z);
    return *this;
  }
  ~integer() { mpz_clear(z); }
};

bool is_one(word h) { return h == make_immediate(1); }

// Integer powers beyond this many bits are refused rather than computed.
constexpr unsigned long max_power_bits = 1000000;

// The order of the bases of a canonical product: names alphabetically, then
// every other base in the order it came.  A product is one value whatever
// order its factors were written in (x*y and y*x), so arithmetic compares
// monomials only in this order.
bool base_before(word a, word b) {
  const bool a_name = is_name(a);
  const bool b_name = is_name(b);
  if (a_name != b_name) return a_name;
  return a_name && name_text(a) < name_text(b);
}

std::vector<std::pair<word, word>> pairs_of(word h);

// The canonical form of a term of a sum: a PROD with its bases in canonical
// order (the same handle when they already are).
word canonical_term(word term) {
  if (type_of(term) != prod) return term;
  std::vector<std::pair<word, word>> pairs = pairs_of(term);
  const auto before = [](const std::pair<word, word>& a, const std::pair<word, word>& b) {
    return base_before(a.first, b.first);
  };
  if (std::is_sorted(pairs.begin(), pairs.end(), before)) return term;
  std::stable_sort(pairs.begin(), pairs.end(), before);
  return unique(make_prod(pairs));
}

// The (term, coefficient) pairs of a SUM; a coefficient is any value.
std::vector<std::pair<word, word>> pairs_of(word h) {
  const word* w = object_words(h);
  std::vector<std::pair<word, word>> out;
  for (std::int32_t i = 1; i + 1 < length_of(h); i += 2) out.emplace_back(w[i], w[i + 1]);
  return out;
}

// Terms in first-seen order with their summed integer coefficients.
struct sum_builder {
  std::vector<word> order;
  std::unordered_map<word, integer> coefficients;
  integer constant;
  bool has_constant = false;
  std::size_t constant_position = 0;

  void add_term(word term, const integer& c) {
    auto [it, fresh] = coefficients.try_emplace(term);
    if (fresh) order.push_back(term);
    mpz_add(it->second.z, it->second.z, c.z);
  }
  void add_constant(const integer& c) {
    if (!has_constant) {
      has_constant = true;
      constant_position = order.size();
    }
    mpz_add(constant.z, constant.z, c.z);
  }

  // Adds scale * h.
  void add(word h, const integer& scale) {
    if (is_integer(h)) {
      integer v(h);
      mpz_mul(v.z, v.z, scale.z);
      add_constant(v);
      return;
    }
    if (type_of(h) == sum) {
      for (auto [term, coeff] : pairs_of(h)) {
        count_work(1);
        if (!is_integer(coeff)) {
          add(multiply(term, coeff), scale);
          continue;
        }
        integer c(coeff);
        mpz_mul(c.z, c.z, scale.z);
        if (is_integer(term)) {
          integer t(term);
          mpz_mul(c.z, c.z, t.z);
          add_constant(c);
        } else {
          add_term(canonical_term(term), c);
        }
      }
      return;
    }
    add_term(canonical_term(h), scale);
  }

  word build() {
    std::vector<expanded_term> terms;
    integer scratch;
    auto push_constant = [&] {
      if (has_constant && mpz_sgn(constant.z) != 0)
        terms.push_back({make_immediate(1), make_integer(constant.z)});
    };
    for (std::size_t i = 0; i < order.size(); ++i) {
      count_work(1);
      if (has_constant && i == constant_position) push_constant();
      const integer& c = coefficients.at(order[i]);
      if (mpz_sgn(c.z) != 0) terms.push_back({order[i], make_integer(c.z)});
    }
    if (has_constant && constant_position == order.size()) push_constant();
    return make_polynomial(terms);
  }
};

// Bases in first-seen order with their summed exponents, and an integer factor.
// Exponents are integers of any size: x^(2^40) is a product like any other.
struct product_builder {
  std::vector<word> order;
  std::unordered_map<word, integer> exponents;
  integer factor;

  product_builder() { mpz_set_ui(factor.z, 1); }

  // Multiplies by h^n, n >= 0.
  void multiply_by(word h, const integer& n) {
    if (mpz_sgn(n.z) == 0) return;
    if (is_integer(h)) {
      integer v(h);
      if (mpz_cmpabs_ui(v.z, 1) <= 0) {
        // 0, 1 and -1 to any power: no size limit applies.
        if (mpz_sgn(v.z) < 0 && mpz_even_p(n.z)) mpz_neg(v.z, v.z);
      } else {
        if (mpz_cmp_ui(n.z, max_power_bits) > 0 ||
            static_cast<double>(mpz_sizeinbase(v.z, 2)) * mpz_get_d(n.z) > static_cast<double>(max_power_bits))
          throw std::invalid_argument("integer too large");
        mpz_pow_ui(v.z, v.z, mpz_get_ui(n.z));
      }
      mpz_mul(factor.z, factor.z, v.z);
      return;
    }
    const std::int32_t t = type_of(h);
    if (t == sum && length_of(h) == 3) {
      // c*m: the integer c and the monomial m.
      const word* w = object_words(h);
      multiply_by(w[2], n);
      multiply_by(w[1], n);
      return;
    }
    if (t == prod) {
      integer e;
      for (auto [base, exponent] : pairs_of(h)) {
        if (!is_integer(exponent)) throw std::invalid_argument("the exponent must be a non-negative integer");
        integer_value(exponent, e.z);
        mpz_mul(e.z, e.z, n.z);
        multiply_by(base, e);
      }
      return;
    }
    auto [it, fresh] = exponents.try_emplace(h);
    if (fresh) order.push_back(h);
    mpz_add(it->second.z, it->second.z, n.z);
  }

  word build() {
    if (mpz_sgn(factor.z) == 0) return make_immediate(0);
    std::vector<std::pair<word, word>> pairs;
    for (word base : order) {
      const integer& e = exponents.at(base);
      if (mpz_sgn(e.z) != 0) pairs.emplace_back(base, make_integer(e.z));
    }
    std::stable_sort(pairs.begin(), pairs.end(),
                     [](const std::pair<word, word>& a, const std::pair<word, word>& b) {
                       return base_before(a.first, b.first);
                     });
    word monomial = make_immediate(1);
    if (pairs.size() == 1 && is_one(pairs[0].second)) monomial = pairs[0].first;
    else if (!pairs.empty()) monomial = unique(make_prod(pairs));
    const expanded_term term{monomial, make_integer(factor.z)};
    return make_polynomial({&term, 1});
  }
};

}  // namespace

word make_monomial(std::span<const std::pair<word, std::int32_t>> powers) {
  if (powers.empty()) return make_immediate(1);
  if (powers.size() == 1 && powers[0].second == 1) return powers[0].first;
  const word h = new_object(2 * static_cast<std::int32_t>(powers.size()) + 1, prod);
  word* w = object_words(h);
  for (std::size_t i = 0; i < powers.size(); ++i) {
    w[2 * i + 1] = powers[i].first;
    w[2 * i + 2] = make_immediate(powers[i].second);
  }
  return h;
}

word make_polynomial(std::span<const expanded_term> terms) {
  if (terms.empty()) return make_immediate(0);
  if (terms.size() == 1) {
    const expanded_term& t = terms[0];
    if (is_one(t.monomial)) return unique(t.coefficient);
    if (is_one(t.coefficient)) return unique(t.monomial);
  }
  // Made unique as a whole, so the monomials' lookups are batched.
  const word h = new_object(2 * static_cast<std::int32_t>(terms.size()) + 1, sum);
  word* w = object_words(h);
  for (std::size_t i = 0; i < terms.size(); ++i) {
    const expanded_term& t = terms[i];
    // A constant c is the pair (c, 1).
    w[2 * i + 1] = is_one(t.monomial) ? t.coefficient : t.monomial;
    w[2 * i + 2] = is_one(t.monomial) ? make_immediate(1) : t.coefficient;
  }
  return unique(h);
}

word add(word a, word b) {
  sum_builder s;
  integer one;
  mpz_set_ui(one.z, 1);
  s.add(a, one);
  s.add(b, one);
  return s.build();
}

word subtract(word a, word b) {
  sum_builder s;
  integer one, minus_one;
  mpz_set_ui(one.z, 1);
  mpz_set_si(minus_one.z, -1);
  s.add(a, one);
  s.add(b, minus_one);
  return s.build();
}

word negate(word a) { return multiply(make_immediate(-1), a); }

word multiply(word a, word b) {
  integer one;
  mpz_set_ui(one.z, 1);
  product_builder p;
  p.multiply_by(a, one);
  p.multiply_by(b, one);
  return p.build();
}

word power(word a, word n) {
  if (!is_integer(n)) throw std::invalid_argument("the exponent must be a non-negative integer");
  const integer e(n);
  if (mpz_sgn(e.z) < 0) throw std::invalid_argument("the exponent must be a non-negative integer");
  product_builder p;
  p.multiply_by(a, e);
  return p.build();
}

}  // namespace minikelto
