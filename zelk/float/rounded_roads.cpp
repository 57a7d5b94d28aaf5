#include "zelk/float/rounded_roads.h"

#include <type_traits>

#include "zelk/float/roads.h"

namespace zelk::detail {

namespace {

using rules::Exceptions;

/// An operation on a pattern in limbs, or on two.
template <class Op>
void on_limbs(Pattern& x, const Pattern& y, unsigned long e, unsigned long m, Direction d,
              Exceptions& exceptions) {
  const Widths f{e, m};
  const limbs::Rounding r(d, &exceptions);
  if constexpr (std::is_invocable_v<decltype(Op::on_limbs), Word*, Widths, limbs::Rounding>) {
    Op::on_limbs(words_of(x, f), f, r);
  } else {
    Op::on_limbs(words_of(x, f), words_of(y, f), f, r);
  }
}

void fused_on_limbs(Pattern& x, const Pattern& y, const Pattern& z, unsigned long e,
                    unsigned long m, Direction d, Exceptions& exceptions) {
  const Widths f{e, m};
  limbs::fused(words_of(x, f), words_of(y, f), words_of(z, f), f, {d, &exceptions});
}

struct Sum {
  static constexpr auto on_limbs = limbs::add<limbs::Rounding>;
};
struct Difference {
  static constexpr auto on_limbs = limbs::subtract<limbs::Rounding>;
};
struct Product {
  static constexpr auto on_limbs = limbs::multiply<limbs::Rounding>;
};
struct Quotient {
  static constexpr auto on_limbs = limbs::divide<limbs::Rounding>;
};
struct Root {
  static constexpr auto on_limbs = limbs::root;
};
struct Remainder {
  static constexpr auto on_limbs = limbs::remainder;
};
struct Modulo {
  static constexpr auto on_limbs = limbs::modulo;
};
struct Integral {
  static constexpr auto on_limbs = limbs::round_to_integral;
};

template <class Op>
constexpr RoundedOperations<RoundedOperation> on_roads() {
  RoundedOperations<RoundedOperation> all{};
  all.on[static_cast<unsigned>(Road::limbs)] = on_limbs<Op>;
  return all;
}

constexpr RoundedOperations<FusedOperation> fused_on_roads() {
  RoundedOperations<FusedOperation> all{};
  all.on[static_cast<unsigned>(Road::limbs)] = fused_on_limbs;
  return all;
}

}  // namespace

constinit const RoundedOperations<RoundedOperation> rounded_sum = on_roads<Sum>();
constinit const RoundedOperations<RoundedOperation> rounded_difference = on_roads<Difference>();
constinit const RoundedOperations<RoundedOperation> rounded_product = on_roads<Product>();
constinit const RoundedOperations<RoundedOperation> rounded_quotient = on_roads<Quotient>();
constinit const RoundedOperations<RoundedOperation> rounded_root = on_roads<Root>();
constinit const RoundedOperations<RoundedOperation> rounded_remainder = on_roads<Remainder>();
constinit const RoundedOperations<RoundedOperation> rounded_modulo = on_roads<Modulo>();
constinit const RoundedOperations<RoundedOperation> rounded_integral = on_roads<Integral>();
constinit const RoundedOperations<FusedOperation> rounded_fused = fused_on_roads();

}  // namespace zelk::detail
