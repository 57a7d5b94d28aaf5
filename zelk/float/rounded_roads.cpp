#include "zelk/float/rounded_roads.h"

namespace zelk::detail {

constinit const RoundedOperations<RoundedOperation> rounded_sum{};
constinit const RoundedOperations<RoundedOperation> rounded_difference{};
constinit const RoundedOperations<RoundedOperation> rounded_product{};
constinit const RoundedOperations<RoundedOperation> rounded_quotient{};
constinit const RoundedOperations<RoundedOperation> rounded_root{};
constinit const RoundedOperations<RoundedOperation> rounded_remainder{};
constinit const RoundedOperations<RoundedOperation> rounded_modulo{};
constinit const RoundedOperations<RoundedOperation> rounded_integral{};
constinit const RoundedOperations<FusedOperation> rounded_fused{};

}  // namespace zelk::detail
