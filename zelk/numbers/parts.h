// The parts of a number, to be read where they are.
#ifndef ZELK_NUMBERS_PARTS_H_
#define ZELK_NUMBERS_PARTS_H_

#include "zelk/numbers/qnumber.h"

namespace zelk::detail {

/// A magnitude in limbs, the lowest first and the highest not 0; 0 has none.
struct Magnitude {
  const mp_limb_t* limbs;
  long size;

  bool is_one() const { return size == 1 && limbs[0] == 1; }
  /// The bits of one that is not 0.
  long bit_length() const { return 64 * size - std::countl_zero(limbs[size - 1]); }
};

/// Sign, numerator and denominator in words.
struct WordParts {
  bool negative;
  mp_limb_t num;
  mp_limb_t den;
};

/// Sign, numerator and denominator of a number, which stays as it is meanwhile.
class Parts {
 public:
  /// out := the parts of a number, if they are words.
  static bool in_words(const QNumber& q, WordParts& out) {
    if (q.is_small()) [[likely]] {
      out = {q.num < 0, static_cast<mp_limb_t>(detail::magnitude(q.num)),
             static_cast<mp_limb_t>(q.den)};
      return true;
    }
    out = {q.sign() < 0, mpz_getlimbn(mpq_numref(q.gmp), 0), mpz_getlimbn(mpq_denref(q.gmp), 0)};
    return mpz_size(mpq_numref(q.gmp)) <= 1 && mpz_size(mpq_denref(q.gmp)) == 1;
  }

  explicit Parts(const QNumber& q)
      : words{static_cast<mp_limb_t>(q.is_small() ? detail::magnitude(q.num) : 0),
              static_cast<mp_limb_t>(q.den)},
        negative(q.sign() < 0),
        num(q.is_small() ? Magnitude{words, long{q.num != 0}} : in_place(mpq_numref(q.gmp))),
        den(q.is_small() ? Magnitude{words + 1, 1} : in_place(mpq_denref(q.gmp))) {}
  Parts(const Parts&) = delete;
  Parts& operator=(const Parts&) = delete;
  ~Parts() = default;

  /// Whether both are words, and not 0.
  bool in_words() const { return num.size == 1 && den.size == 1; }

 private:
  static Magnitude in_place(mpz_srcptr z) {
    return {mpz_limbs_read(z), static_cast<long>(mpz_size(z))};
  }

  mp_limb_t words[2];

 public:
  const bool negative;
  const Magnitude num;
  const Magnitude den;
};

}  // namespace zelk::detail

#endif  // ZELK_NUMBERS_PARTS_H_
