#include "zelk/float/roads.h"

namespace zelk::detail {

constinit const Operations addition = on_all_roads<Addition>();
constinit const Operations subtraction = on_all_roads<Subtraction>();
constinit const Operations multiplication = on_all_roads<Multiplication>();
constinit const Operations division = on_all_roads<Division>();

}  // namespace zelk::detail
