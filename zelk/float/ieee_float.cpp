#include "zelk/float/ieee_float.h"

#include <ostream>

#include "zelk/float/arithmetic.h"
#include "zelk/float/codec.h"
#include "zelk/float/convert.h"
#include "zelk/float/limbs.h"
#include "zelk/float/scratch.h"
#include "zelk/numbers/bvnumber.h"
#include "zelk/swflt/words.h"

namespace zelk {

namespace {

// The direction on words; nearest-even for a mode that is none of the four.
swflt::detail::Direction direction_of(unsigned rm) {
  return static_cast<swflt::detail::Direction>(rm <= IEEEFloat::ROUND_TOWARD_NEGATIVE ? rm : 0);
}

// The low 128 bits of a non-negative integer.
[[gnu::always_inline]] inline swflt::detail::uint128 double_word(const QNumber& q) {
  if (const mp_limb_t* limbs = q.limbs_from(2); limbs != nullptr) [[likely]] {
    return swflt::detail::uint128{limbs[1]} << 64 | limbs[0];
  }
  return BVNumber::low_word(q);
}

// The highest bit of patterns. Where the sum wraps around, there are none but 0.
unsigned long highest_bit(const IEEEFloat::format& f) { return f.exp_width + f.mant_width; }

// Whether every pattern fits the small form of a number.
bool has_small_patterns(const IEEEFloat::format& f) { return highest_bit(f) <= 62; }

// An operation on words of any shape, on limbs and on numbers.
template <auto words, auto limbs, auto numbers>
struct Operation {
  static constexpr auto on_words = words;
  static constexpr auto on_limbs = limbs;
  static constexpr auto on_numbers = numbers;
};

constexpr auto add_words =
    [](auto s, auto a, auto b, Direction mode) __attribute__((always_inline)) {
  return swflt::detail::add(s, a, b, mode);
};
constexpr auto subtract_words =
    [](auto s, auto a, auto b, Direction mode) __attribute__((always_inline)) {
  return swflt::detail::sub(s, a, b, mode);
};
constexpr auto multiply_words =
    [](auto s, auto a, auto b, Direction mode) __attribute__((always_inline)) {
  return swflt::detail::mul(s, a, b, mode);
};
constexpr auto divide_words =
    [](auto s, auto a, auto b, Direction mode) __attribute__((always_inline)) {
  return swflt::detail::div(s, a, b, mode);
};

constexpr auto on_limbs_add = [](auto&&... args) __attribute__((always_inline)) {
  return add_sub_limbs(args..., 0);
};
constexpr auto on_limbs_subtract = [](auto&&... args) __attribute__((always_inline)) {
  return add_sub_limbs(args..., 1);
};
constexpr auto on_limbs_multiply = [](auto&&... args) __attribute__((always_inline)) {
  return multiply_limbs(args...);
};
constexpr auto on_limbs_divide = [](auto&&... args) __attribute__((always_inline)) {
  return divide_limbs(args...);
};

using Addition = Operation<add_words, on_limbs_add, add_float>;
using Subtraction = Operation<subtract_words, on_limbs_subtract, subtract_float>;
using Multiplication = Operation<multiply_words, on_limbs_multiply, multiply_float>;
using Division = Operation<divide_words, on_limbs_divide, divide_float>;

// 2^k - 1.
QNumber ones(unsigned long k) {
  require_bits(k < max_bits ? k + 1 : BVNumber::npos);
  QNumber q;
  BVNumber::pow2(k, &q);
  q -= 1;
  return q;
}

}  // namespace

IEEEFloat::error::error(const std::string& m) : Exception(m) {}
IEEEFloat::error::~error() noexcept = default;

QNumber IEEEFloat::format::bias() const { return exp_width == 0 ? 0 : ones(exp_width - 1); }
QNumber IEEEFloat::format::max_exponent() const { return ones(exp_width); }
QNumber IEEEFloat::format::max_mantissa() const { return ones(mant_width); }

bool IEEEFloat::has_word_road(const format& f, unsigned rm) {
  return short_roads && rm <= ROUND_TOWARD_NEGATIVE &&
         swflt::detail::serves(f.exp_width, f.mant_width);
}

// ---- Construction, assignment, representation ----

IEEEFloat::IEEEFloat(format f, Repr r, rounding_mode rm)
    : IEEEFloat(f, rm, r & 3U, payload_type{}) {
  if (is_generic()) {
    payload.big = new QNumber();
  } else if (repr() == REPR_FLOAT64) {
    payload.bits64 = 0;
  }
}

IEEEFloat::IEEEFloat(format f, rounding_mode rm, const QNumber& pattern)
    : IEEEFloat(f, rm, get_best_repr(f), payload_type{}) {
  if (is_generic()) {
    QNumber stored;
    store(stored, pattern);
    payload.big = new QNumber(std::move(stored));
  } else if (repr() == REPR_FLOAT64) {
    payload.bits64 = BVNumber::low_word(pattern);
  } else {
    payload.bits32 = static_cast<std::uint32_t>(BVNumber::low_word(pattern));
  }
}

void IEEEFloat::assign_generic(const IEEEFloat& other) {
  const unsigned long highest = highest_bit(other.fmt);
  // The form of 64-bit patterns goes by a value's sign. Without an exponent they may be negative.
  const bool is_word = highest == 63 && other.fmt.exp_width > 0;
  if (is_generic() && other.is_generic() &&
      ((highest > 63 && payload.big->assign_in_place(*other.payload.big)) ||
       (is_word && payload.big->assign_word_in_place(*other.payload.big)))) {
    copy_kind(other);
  } else {
    assign_otherwise(other);
  }
}

[[gnu::noinline]] void IEEEFloat::assign_otherwise(const IEEEFloat& other) {
  if (this == &other) {
    return;
  }
  if (!other.is_generic()) {
    delete payload.big;
    copy_words(other);
  } else if (is_generic()) {
    // Where every pattern fits the small form the number returns to it; elsewhere it keeps its
    // storage for the next pattern that needs it.
    if (has_small_patterns(other.fmt) && other.payload.big->is_small()) {
      payload.big->reset();
    }
    *payload.big = *other.payload.big;
    copy_kind(other);
  } else {
    IEEEFloat copy(other);
    swap(copy);
  }
}

void IEEEFloat::self_specialize_repr(Repr r) {
  const unsigned target = r & 3U;
  if (repr() == target) {
    return;
  }
  if (target >= REPR_GENERIC) {
    if (!is_generic()) {
      payload.big = new QNumber(low_word());
    }
  } else {
    const std::uint64_t word = low_word();
    if (is_generic()) {
      delete payload.big;
    }
    if (target == REPR_FLOAT64) {
      payload.bits64 = word;
    } else {
      payload.bits32 = static_cast<std::uint32_t>(word);
    }
  }
  set_kind(fmt, target);
}

// ---- Patterns ----

std::uint64_t IEEEFloat::low_word() const {
  return repr() == REPR_FLOAT64   ? payload.bits64
         : repr() == REPR_FLOAT32 ? payload.bits32
                                  : BVNumber::low_word(*payload.big);
}

const QNumber& IEEEFloat::pattern(QNumber& scratch) const {
  if (is_generic()) {
    return *payload.big;
  }
  return scratch = low_word();
}

void IEEEFloat::set_pattern(const QNumber& pattern) { store(*payload.big, pattern); }

// Takes on a format and a pattern of it, in the best representation.
void IEEEFloat::set_word(const format& f, std::uint64_t word) {
  const Repr r = get_best_repr(f);
  if (r == REPR_GENERIC && is_generic()) {
    payload.big->assign(word);
  } else if (r == REPR_GENERIC) {
    payload.big = new QNumber(word);
  } else {
    if (is_generic()) {
      delete payload.big;
    }
    payload.bits64 = word;
    if (r == REPR_FLOAT32) {
      payload.bits32 = static_cast<std::uint32_t>(word);
    }
  }
  set_kind(f, r);
}

// The same for a pattern in limbs.
void IEEEFloat::set_limbs(const format& f, const mp_limb_t* limbs, long n) {
  if (n == 1) {
    set_word(f, limbs[0]);
  } else {
    if (is_generic()) {
      payload.big->assign_limbs(limbs, n);
    } else {
      QNumber pattern;
      pattern.assign_limbs(limbs, n);
      payload.big = new QNumber(std::move(pattern));
    }
    set_kind(f, REPR_GENERIC);
  }
}

IEEEFloat IEEEFloat::from_limbs(const mp_limb_t* limbs, long n, format f, rounding_mode rm) {
  IEEEFloat x;
  x.set_mode(rm);
  x.set_limbs(f, limbs, n);
  return x;
}

QNumber IEEEFloat::get_bits() const { return is_generic() ? *payload.big : QNumber(low_word()); }

IEEEFloat IEEEFloat::from_bits(const QNumber& bits, format f) {
  const auto refuse = [&bits] { throw_with("invalid bit pattern for IEEEFloat: ", bits); };
  const unsigned long width = sign_bit(f) + 1;
  if (!bits.is_integer() || bits.sign() < 0 || BVNumber::bit_length(bits) > width) {
    refuse();
  }
  bool is_inf = false;
  bool is_nan = false;
  bool is_zero = false;
  get_flags(f, bits, is_inf, is_nan, is_zero);
  if (is_nan) {
    QNumber canonical;
    pack_nan(f, canonical);
    if (!(bits == canonical)) {
      refuse();
    }
  }
  return {f, ROUND_NEAREST_EVEN, bits};
}

IEEEFloat IEEEFloat::max_value(format f) {
  QNumber bits = ones(sign_bit(f));
  QNumber hidden_bit;
  BVNumber::pow2(f.mant_width, &hidden_bit);
  bits -= hidden_bit;
  return from_bits(bits, f);
}

// ---- Sign, classes, special values ----

bool IEEEFloat::generic_get_sign() const { return BVNumber::test_bit(*payload.big, sign_bit(fmt)); }
void IEEEFloat::generic_set_sign(bool s) { BVNumber::set_bit(*payload.big, sign_bit(fmt), s); }
bool IEEEFloat::generic_is_inf() const { return is_inf_pattern(fmt, *payload.big); }
bool IEEEFloat::generic_is_nan() const { return is_nan_pattern(fmt, *payload.big); }
bool IEEEFloat::generic_is_zero() const { return is_zero_pattern(fmt, *payload.big); }
bool IEEEFloat::generic_is_subnormal() const { return is_subnormal_pattern(fmt, *payload.big); }

void IEEEFloat::self_neg() {
  if (!is_nan()) {
    set_sign(!get_sign());
  }
}

void IEEEFloat::self_nan() {
  switch (repr()) {
    case REPR_FLOAT64:
      payload.bits64 = swflt::float64_make_nan();
      break;
    case REPR_FLOAT32:
      payload.bits32 = swflt::float32_make_nan();
      break;
    default:
      pack_nan(fmt, TempNumProvider::tmp1);
      set_pattern(TempNumProvider::tmp1);
  }
}

void IEEEFloat::self_inf(bool negative) {
  switch (repr()) {
    case REPR_FLOAT64:
      payload.bits64 = swflt::float64_make_inf();
      set_sign(negative);
      break;
    case REPR_FLOAT32:
      payload.bits32 = swflt::float32_make_inf();
      set_sign(negative);
      break;
    default:
      pack_inf(fmt, negative, TempNumProvider::tmp1);
      set_pattern(TempNumProvider::tmp1);
  }
}

void IEEEFloat::self_zero(bool negative) {
  switch (repr()) {
    case REPR_FLOAT64:
      payload.bits64 = 0;
      set_sign(negative);
      break;
    case REPR_FLOAT32:
      payload.bits32 = 0;
      set_sign(negative);
      break;
    default:
      pack_zero(fmt, negative, TempNumProvider::tmp1);
      set_pattern(TempNumProvider::tmp1);
  }
}

// ---- Comparison ----

void IEEEFloat::require_both_generic(const IEEEFloat& other) const {
  if (fmt != other.fmt) {
    throw error("operands of different formats");
  }
  if (!is_generic() || !other.is_generic()) {
    throw error("operands of different representations");
  }
}

// The order of two patterns in limbs, if there is the short road and it has an answer.
int IEEEFloat::generic_order(const IEEEFloat& a, const IEEEFloat& b) {
  if (!has_limb_road(a.fmt, ROUND_NEAREST_EVEN)) {
    return no_answer;
  }
  mp_limb_t word_a = 0;
  mp_limb_t word_b = 0;
  return compare_limbs({a.fmt.exp_width, a.fmt.mant_width}, limbs_of(*a.payload.big, word_a),
                       limbs_of(*b.payload.big, word_b));
}

bool IEEEFloat::quad_less(const IEEEFloat& a, const IEEEFloat& b) {
  using namespace swflt::detail;  // NOLINT(google-build-using-namespace)
  // The upper words, patterns of a format of their own, are mostly enough.
  const mp_limb_t* x = a.payload.big->limbs_from(2);
  const mp_limb_t* y = b.payload.big->limbs_from(2);
  if (x != nullptr && y != nullptr) [[likely]] {
    constexpr FixedShape<15, 48> upper;
    const std::int64_t key_x = order_key(upper, x[1]);
    const std::int64_t key_y = order_key(upper, y[1]);
    if (key_x != key_y && magnitude(upper, x[1]) < infinity(upper) &&
        magnitude(upper, y[1]) < infinity(upper)) [[likely]] {
      return key_x < key_y;
    }
  }
  return less(binary128, double_word(*a.payload.big), double_word(*b.payload.big));
}

bool IEEEFloat::generic_less(const IEEEFloat& a, const IEEEFloat& b) {
  if (a.in_word()) {
    return swflt::detail::less(a.shape(), a.word(), b.word());
  }
  const int order = generic_order(a, b);
  return order != no_answer ? order < 0 : less_in_numbers(a, b);
}

// Patterns of one sign are in the order of their magnitudes.
[[gnu::noinline]] bool IEEEFloat::less_in_numbers(const IEEEFloat& a, const IEEEFloat& b) {
  if (a.is_nan() || b.is_nan()) {
    return false;
  }
  const bool negative = a.get_sign();
  if (negative != b.get_sign()) {
    return negative && !(a.is_zero() && b.is_zero());
  }
  return negative ? *b.payload.big < *a.payload.big : *a.payload.big < *b.payload.big;
}

bool IEEEFloat::generic_less_equal(const IEEEFloat& a, const IEEEFloat& b) {
  const int order = generic_order(a, b);
  return order != no_answer ? order <= 0 : !a.is_nan() && !b.is_nan() && !(b < a);
}

bool IEEEFloat::generic_equal(const IEEEFloat& a, const IEEEFloat& b) {
  if (const int order = generic_order(a, b); order != no_answer) {
    return order == 0;
  }
  return !a.is_nan() && !b.is_nan() &&
         (*a.payload.big == *b.payload.big || (a.is_zero() && b.is_zero()));
}

int ieee_cmp(const IEEEFloat& a, const IEEEFloat& b) {
  return a < b ? -1 : b < a ? 1 : a == b ? 0 : -2;
}

// ---- Neighbours ----

// For a fixed sign the pattern one above is the value of next larger magnitude.
void IEEEFloat::step_magnitude(bool grow) {
  switch (repr()) {
    case REPR_FLOAT64:
      payload.bits64 = grow ? payload.bits64 + 1 : payload.bits64 - 1;
      break;
    case REPR_FLOAT32:
      payload.bits32 = grow ? payload.bits32 + 1 : payload.bits32 - 1;
      break;
    default:
      *payload.big += grow ? 1 : -1;
  }
}

void IEEEFloat::next_representable(bool up) {
  if (is_nan()) {
    return;
  }
  const bool negative = get_sign();
  if (is_zero()) {
    self_zero(!up);
    step_magnitude(true);
  } else if (is_inf()) {
    if (negative == up) {
      IEEEFloat largest = max_value(fmt);
      largest.set_sign(negative);
      *this = std::move(largest);
    }
  } else {
    step_magnitude(up != negative);
  }
}

// Whether all bits below the sign are ones.
bool IEEEFloat::has_largest_magnitude() const {
  switch (repr()) {
    case REPR_FLOAT64:
      return swflt::float64_set_sign(payload.bits64, 1) == ~std::uint64_t{0};
    case REPR_FLOAT32:
      return swflt::float32_set_sign(payload.bits32, 1) == ~std::uint32_t{0};
    default:
      return BVNumber::lowest_zero(*payload.big, 0) >= sign_bit(fmt);
  }
}

void IEEEFloat::packed_next(bool up) {
  const bool grow = up != get_sign();
  if (!grow && is_zero()) {
    set_sign(!get_sign());
    return;
  }
  if (!grow || !has_largest_magnitude()) {
    step_magnitude(grow);
  }
}

// ---- Rounded arithmetic ----

// Packed results come without flags: the library never reports them.
template <class Op>
[[gnu::noinline]] IEEEFloat& IEEEFloat::apply64(const IEEEFloat& other, Direction direction) {
  payload.bits64 =
      Op::on_words(swflt::detail::binary64, payload.bits64, other.payload.bits64, direction);
  swflt::float_exception_flags = 0;
  return *this;
}

template <class Op>
[[gnu::noinline]] IEEEFloat& IEEEFloat::apply32(const IEEEFloat& other, Direction direction) {
  payload.bits32 = static_cast<std::uint32_t>(
      Op::on_words(swflt::detail::binary32, payload.bits32, other.payload.bits32, direction));
  swflt::float_exception_flags = 0;
  return *this;
}

// Patterns of at most 63 bits in numbers of the small form.
template <class Op, class Shape>
[[gnu::noinline]] IEEEFloat& IEEEFloat::apply_in_number(const IEEEFloat& other,
                                                        Direction direction) {
  const Shape s{shape()};
  const auto a = static_cast<std::uint64_t>(payload.big->to_small());
  const auto b = static_cast<std::uint64_t>(other.payload.big->to_small());
  payload.big->assign_small(static_cast<long>(Op::on_words(s, a, b, direction)));
  return *this;
}

// Patterns of 64 bits in numbers, whose form goes by the sign.
template <class Op>
[[gnu::noinline]] IEEEFloat& IEEEFloat::apply_in_word(const IEEEFloat& other, Direction direction) {
  const mp_limb_t pattern = Op::on_words(shape(), word(), other.word(), direction);
  if (mp_limb_t* own = payload.big->own_limbs(1); own != nullptr) [[likely]] {
    own[0] = pattern;
    payload.big->keep_limbs(1);
  } else {
    payload.big->assign(pattern);
  }
  return *this;
}

template <class Op>
[[gnu::noinline]] IEEEFloat& IEEEFloat::apply_quad(const IEEEFloat& other, Direction direction) {
  const swflt::detail::uint128 pattern =
      Op::on_words(swflt::detail::binary128, double_word(*payload.big),
                   double_word(*other.payload.big), direction);
  payload.big->assign_to_integer(static_cast<std::uint64_t>(pattern),
                                 static_cast<std::uint64_t>(pattern >> 64));
  return *this;
}

template <class Op>
[[gnu::noinline]] IEEEFloat& IEEEFloat::apply_in_numbers(const IEEEFloat& other) {
  TempNumProvider tp;
  Op::on_numbers(tp, fmt, get_mode(), *payload.big, *other.payload.big);
  return *this;
}

template <class Op, class Shape, class Size>
[[gnu::noinline]] IEEEFloat& IEEEFloat::apply_in_limbs(const IEEEFloat& other, Direction direction,
                                                       Shape s, Size n) {
  return Op::on_limbs(s, n, direction, *payload.big, *other.payload.big)
             ? *this
             : apply_in_numbers<Op>(other);
}

template <class Op>
[[gnu::noinline]] IEEEFloat& IEEEFloat::apply_limbs(const IEEEFloat& other, Direction direction) {
  return with_size(
      {fmt.exp_width, fmt.mant_width}, [&](auto s, auto n) __attribute__((always_inline))
                                               ->IEEEFloat &
                                           { return apply_in_limbs<Op>(other, direction, s, n); });
}

// All values, those above included.
template <class Op>
[[gnu::noinline]] IEEEFloat& IEEEFloat::apply_otherwise(const IEEEFloat& other) {
  require_same_kind(other);
  if (!is_generic()) {
    return repr() == REPR_FLOAT64 ? apply64<Op>(other, direction_of(mode()))
                                  : apply32<Op>(other, direction_of(mode()));
  }
  if (has_word_road(fmt, mode())) {
    return apply_in_word<Op>(other, direction_of(mode()));
  }
  if (has_limb_road(fmt, mode())) {
    return apply_limbs<Op>(other, direction_of(mode()));
  }
  return apply_in_numbers<Op>(other);
}

template <class Op>
[[gnu::always_inline]] inline IEEEFloat& IEEEFloat::apply(const IEEEFloat& other) {
  using namespace swflt::detail;  // NOLINT(google-build-using-namespace)
  if (kind != other.kind || (control & mode_mask & ~direction_mask) != 0) [[unlikely]] {
    return apply_otherwise<Op>(other);
  }
  const auto direction = static_cast<Direction>(control & direction_mask);
  if (kind >= kind_in_limbs) {
    return apply_limbs<Op>(other, direction);
  }
  if (kind >= kind_in_word) {
    return apply_in_word<Op>(other, direction);
  }
  if (kind >= kind_in_number && payload.big->is_small() && other.payload.big->is_small()) {
    return kind >> 8 <= short_width ? apply_in_number<Op, ShortShape>(other, direction)
                                    : apply_in_number<Op, RuntimeShape>(other, direction);
  }
  return kind == kind_packed32   ? apply32<Op>(other, direction)
         : kind == kind_packed64 ? apply64<Op>(other, direction)
         : kind == kind_quad     ? apply_quad<Op>(other, direction)
                                 : apply_otherwise<Op>(other);
}

IEEEFloat& IEEEFloat::add(const IEEEFloat& other) { return apply<Addition>(other); }
IEEEFloat& IEEEFloat::subtract(const IEEEFloat& other) { return apply<Subtraction>(other); }
IEEEFloat& IEEEFloat::multiply(const IEEEFloat& other) { return apply<Multiplication>(other); }
IEEEFloat& IEEEFloat::divide(const IEEEFloat& other) { return apply<Division>(other); }

// ---- Conversions ----

IEEEFloat IEEEFloat::from_integer(QNumber n, format f, rounding_mode rm) {
  if (has_limb_road(f, rm)) {
    const LimbShape s{f.exp_width, f.mant_width};
    LimbPattern rounded(s, n.is_small() ? 1 : n.big_size());
    if (round_integer_limbs(s, direction_of(rm), n, rounded)) {
      return from_limbs(rounded.limbs, rounded.size, f, rm);
    }
  }
  TempNumProvider tp;
  tp.exp1 = f.mant_width;  // takes the significand at face value
  tp.mant1 = std::move(n);
  round_and_pack_float(tp, f, rm, false, tp.exp1, tp.mant1, tp.tmp1);
  return {f, rm, tp.tmp1};
}

IEEEFloat IEEEFloat::from_number(const QNumber& q, format f, rounding_mode rm) {
  const QNumber num = q.get_num();
  const QNumber den = q.get_den();
  const bool is_integer = q.is_integer();
  if (has_word_road(f, rm) && num.fits_long() && den.fits_long()) {
    const auto round = [s = shape(f), mode = direction_of(rm)](const QNumber& n) {
      return swflt::detail::from_integer(s, n.to_long(), mode);
    };
    std::uint64_t word = round(num);
    if (!is_integer) {
      word = swflt::detail::div(shape(f), word, round(den), direction_of(rm));
      if (get_best_repr(f) != REPR_GENERIC) {
        swflt::float_exception_flags = 0;  // as by the division of packed values
      }
    }
    return from_limbs(&word, 1, f, rm);
  }
  IEEEFloat result = from_integer(num, f, rm);
  if (!is_integer) {
    result /= from_integer(den, f, rm);
  }
  return result;
}

IEEEFloat IEEEFloat::from_scaled(const QNumber& q, const QNumber& k, format f, rounding_mode rm) {
  if (!k.is_integer()) {
    throw_with("exponent is not an integer: ", k);
  }
  TempNumProvider tp;
  tp.exp1 = k;
  tp.exp1 += f.mant_width;
  // What lies below half the smallest subnormal rounds as a quarter of it does.
  const QNumber length(BVNumber::bit_length(q.get_num()));
  const QNumber tiny = -f.bias() - f.mant_width;
  if (!q.is_zero() && length + 1 - BVNumber::bit_length(q.get_den()) + k < tiny) {
    tp.exp1 = tiny + f.mant_width - 1;
    tp.mant1 = 1;
  } else {
    rational_significand(tp, f, q);
  }
  round_and_pack_float(tp, f, rm, q.sign() < 0, tp.exp1, tp.mant1, tp.tmp1);
  return {f, rm, tp.tmp1};
}

// The conversions between packed words, without flags.
bool IEEEFloat::convert_packed(const format& f) {
  using namespace swflt::detail;  // NOLINT(google-build-using-namespace)
  if (repr() == REPR_FLOAT32 && f == format{11, 52}) {
    const std::uint64_t word = payload.bits32;
    payload.bits64 = convert(binary32, binary64, word, nearest);
    set_kind(f, REPR_FLOAT64);
  } else if (repr() == REPR_FLOAT64 && f == format{8, 23}) {
    const std::uint64_t word = payload.bits64;
    payload.bits32 =
        static_cast<std::uint32_t>(convert(binary64, binary32, word, direction_of(mode())));
    set_kind(f, REPR_FLOAT32);
  } else {
    return false;
  }
  swflt::float_exception_flags = 0;
  return true;
}

// Converts a pattern of at most 63 bits in a number, mostly of the small form, mostly to another
// such.
[[gnu::noinline]] void IEEEFloat::convert_in_number(format f) {
  const std::uint32_t target = kind_of(f, get_best_repr(f));
  if (!in_number(target) || mode() > ROUND_TOWARD_NEGATIVE || !payload.big->is_small()) {
    convert_otherwise(f);
    return;
  }
  const auto word = static_cast<std::uint64_t>(payload.big->to_small());
  payload.big->assign_small(static_cast<long>(
      swflt::detail::convert(shape(), shape(f), word, static_cast<Direction>(mode()))));
  set_kind(f, REPR_GENERIC, target);
}

// Converts any pattern in a word to one in a word; false where that cannot be done.
bool IEEEFloat::convert_word(const format& f) {
  if (!has_word_road(fmt, mode()) || !has_word_road(f, mode()) ||
      !(is_generic() || repr() == get_best_repr(fmt))) {
    return false;
  }
  const std::uint64_t word =
      swflt::detail::convert(shape(), shape(f), low_word(), direction_of(mode()));
  set_word(f, word);
  return true;
}

// Converts a normal value between two of the standard's wider formats; false, and nothing done, for
// other values and formats. The value is generic or packed binary64.
template <class From, class To>
[[gnu::always_inline]] inline bool IEEEFloat::convert_between(From from, To to) {
  if constexpr (std::is_same_v<From, To> || std::is_same_v<From, LimbShape> ||
                std::is_same_v<To, LimbShape>) {
    return false;
  } else {
    constexpr format target{To::widths.exp_width, To::widths.mant_width};
    constexpr format wider{To::widths.exp_width,
                           std::max(From::widths.mant_width, To::widths.mant_width)};
    constexpr long size = To::widths.pattern_size(To::size);
    constexpr int from_size = static_cast<int>(From::widths.pattern_size(From::size));
    const mp_limb_t word = is_generic() ? 0 : payload.bits64;
    const mp_limb_t* bits = is_generic() ? payload.big->limbs_from(from_size) : &word;
    const bool stays = is_generic() && get_best_repr(target) == REPR_GENERIC;
    mp_limb_t room[static_cast<std::size_t>(size)];
    mp_limb_t* own = stays ? payload.big->own_limbs(size) : nullptr;
    // Under a low `max_bits` not even these formats take the short road.
    if (bits == nullptr || !has_limb_road(wider) ||
        !convert_normal(from, to, direction_of(mode()), bits, own != nullptr ? own : room)) {
      return false;
    }
    if (own != nullptr) {
      payload.big->keep_limbs(size);
      set_kind(target, REPR_GENERIC);
    } else {
      set_limbs(target, room, size);
    }
    return true;
  }
}

// Converts any value, at the best speed those that `convert_between` takes.
[[gnu::noinline]] void IEEEFloat::convert_wide(format f) {
  const bool done =
      short_roads && mode() <= ROUND_TOWARD_NEGATIVE && (is_generic() || kind == kind_packed64) &&
      with_shape(
          {fmt.exp_width, fmt.mant_width}, [&](auto from) __attribute__((always_inline)) {
            return with_shape(
                {f.exp_width, f.mant_width}, [&](auto to) __attribute__((always_inline)) {
                  return convert_between(from, to);
                });
          });
  if (!done) {
    convert_otherwise(f);
  }
}

// Converts any value where one of the patterns needs more limbs than one; false where that cannot
// be done.
bool IEEEFloat::convert_in_limbs(const format& f) {
  if (!has_limb_road(fmt, mode()) || !has_limb_road(f) ||
      !(is_generic() || repr() == get_best_repr(fmt))) {
    return false;
  }
  const LimbShape from{fmt.exp_width, fmt.mant_width};
  const LimbShape to{f.exp_width, f.mant_width};
  LimbPattern rounded(to, from.significand_size() + 1);
  mp_limb_t word = is_generic() ? 0 : low_word();
  const Limbs bits = is_generic() ? limbs_of(*payload.big, word) : Limbs{&word, 1};
  mp_limb_t* own = is_generic() && get_best_repr(f) == REPR_GENERIC
                       ? payload.big->own_limbs(rounded.size)
                       : nullptr;
  if (!convert_limbs(from, to, direction_of(mode()), bits, own != nullptr ? own : rounded.limbs,
                     rounded.more)) {
    return false;
  }
  if (own != nullptr) {
    payload.big->keep_limbs(rounded.size);
    set_kind(f, REPR_GENERIC);
  } else {
    set_limbs(f, rounded.limbs, rounded.size);
  }
  return true;
}

// Converts any value.
[[gnu::noinline]] void IEEEFloat::convert_otherwise(format f) {
  const bool in_words = highest_bit(fmt) <= 63 && highest_bit(f) <= 63;
  if (!(in_words ? convert_word(f) : convert_in_limbs(f))) {
    convert_number(f);
  }
}

void IEEEFloat::set_format(format f) {
  if (f == fmt) {
    return;
  }
  if (in_number(kind)) {
    convert_in_number(f);
  } else if (is_generic() || !convert_packed(f)) {
    convert_wide(f);
  }
}

void IEEEFloat::convert_number(const format& f) {
  TempNumProvider tp;
  convert_pattern(tp, fmt, f, get_mode(), pattern(tp.mant2), tp.tmp1);
  if (is_generic() && get_best_repr(f) == REPR_GENERIC) {
    set_pattern(tp.tmp1);
    set_kind(f, REPR_GENERIC);
  } else {
    *this = IEEEFloat(f, get_mode(), tp.tmp1);
  }
}

// Whether the value has a pattern of its format that words serve: `low_word`.
bool IEEEFloat::is_word() const {
  return has_word_road(fmt, ROUND_NEAREST_EVEN) && (is_generic() || repr() == get_best_repr(fmt));
}

QNumber IEEEFloat::to_number() const {
  if (is_word() && !is_nan() && !is_inf()) {
    return exact_value(shape(), low_word());
  }
  if (has_limb_road(fmt, ROUND_NEAREST_EVEN) && is_generic()) {
    mp_limb_t word = 0;
    QNumber value;
    if (exact_value_of_limbs({fmt.exp_width, fmt.mant_width}, limbs_of(*payload.big, word),
                             value)) {
      return value;
    }
  }
  TempNumProvider tp;
  return exact_value(tp, fmt, pattern(tp.mant2));
}

QNumber IEEEFloat::to_integer(unsigned long w) const {
  if (long n = 0; is_word() && word_integer(shape(), get_mode(), low_word(), w, n)) {
    return n;
  }
  if (has_limb_road(fmt, ROUND_NEAREST_EVEN) && is_generic()) {
    // Any other mode rounds toward zero.
    const Direction direction =
        mode() <= ROUND_TOWARD_NEGATIVE ? direction_of(mode()) : Direction::toward_zero;
    mp_limb_t word = 0;
    return integer_of_limbs({fmt.exp_width, fmt.mant_width}, direction,
                            limbs_of(*payload.big, word), w);
  }
  TempNumProvider tp;
  if (w > 0) {
    return rounded_integer(tp, fmt, get_mode(), pattern(tp.tmp3), w);
  }
  if (is_zero() || is_nan() || is_inf()) {
    return 0;
  }
  const mpq_class q = exact_value(tp, fmt, pattern(tp.mant2), true).to_mpq();
  return {mpz_class(q.get_num() / q.get_den()), 1};  // truncating, as GMP's / does
}

// ---- Text ----

std::string IEEEFloat::to_float_str() const {
  if (fmt.exp_width == 0) {
    return "0";
  }
  if (is_nan()) {
    throw error("can't convert NaN to float str");
  }
  if (is_zero()) {
    return get_sign() ? "-0" : "0";
  }
  if (is_inf()) {
    throw error("can't convert Infinity to float str");
  }
  const QNumber q = to_number();
  mpf_class value(0, mpf_get_default_prec());
  value = abs(q.to_mpq());
  mp_exp_t point = 0;  // value = 0.digits * 10^point
  std::string digits = value.get_str(point);
  std::string text = q.sign() < 0 ? "-" : "";
  if (point <= 0) {
    return text.append("0.").append(static_cast<std::size_t>(-point), '0').append(digits);
  }
  const auto places = static_cast<std::size_t>(point);
  if (digits.size() <= places) {
    return text.append(digits).append(places - digits.size(), '0');
  }
  return text.append(digits, 0, places).append(".").append(digits, places);
}

std::string IEEEFloat::to_str() const {
  std::string text =
      '[' + std::to_string(fmt.exp_width) + ':' + std::to_string(fmt.mant_width) + ']';
  if (fmt.exp_width == 0) {
    return text + "+0{0}";
  }
  if (is_nan()) {
    text += "NaN";
  } else if (is_inf()) {
    text += get_sign() ? "-Inf" : "+Inf";
  } else {
    text += to_float_str();
  }
  text += '{';
  const unsigned long sign_index = sign_bit(fmt);
  const QNumber bits = get_bits();
  for (unsigned long i = sign_index + 1; i-- > 0;) {
    text += BVNumber::test_bit(bits, i) ? '1' : '0';
    if (i == sign_index || i == fmt.mant_width) {
      text += '_';
    }
  }
  return text + '}';
}

std::ostream& operator<<(std::ostream& os, const IEEEFloat& x) { return os << x.to_str(); }

}  // namespace zelk
