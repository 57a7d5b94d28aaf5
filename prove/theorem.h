// What is proved by trying all there is: a theorem comes in pieces, which threads take in turn.
#ifndef ZELK_PROVE_THEOREM_H_
#define ZELK_PROVE_THEOREM_H_

#include <functional>
#include <string>
#include <vector>

namespace prove {

struct Theorem {
  std::string name;
  unsigned long pieces;
  /// Tries all cases of a piece, counted in `zelk_test::cases`; throws at the first that fails.
  std::function<void(unsigned long piece)> prove;
};

std::vector<Theorem> small(unsigned long bits);  ///< without the formats of more bits than these
std::vector<Theorem> half();
std::vector<Theorem> widths();
std::vector<Theorem> decision();

}  // namespace prove

#endif  // ZELK_PROVE_THEOREM_H_
