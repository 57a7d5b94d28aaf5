// All of zelk but `zelk/float/mpfr.h` and `zelk/float/fmt.h`, which need MPFR and {fmt}, and
// `zelk/arrays.h`, which is a library of its own. The formatters of the standard library are there
// where it has <format>.
#ifndef ZELK_ZELK_H_
#define ZELK_ZELK_H_

#include "zelk/base/exception.h"
#include "zelk/base/version.h"
#include "zelk/float/environment.h"
#include "zelk/float/format.h"
#include "zelk/float/formats.h"
#include "zelk/float/functions.h"
#include "zelk/float/ieee_float.h"
#include "zelk/float/native.h"
#include "zelk/float/text.h"
#include "zelk/numbers/bvnumber.h"
#include "zelk/numbers/qnumber.h"
#include "zelk/swflt/swflt.h"

/// IEEE-754 binary floating point in formats of any width, and the exact numbers it rests on.
namespace zelk {}

#endif  // ZELK_ZELK_H_
