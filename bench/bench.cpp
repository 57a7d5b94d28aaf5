// What zelk costs, beside what others cost for the same operands and, where the meaning is the
// same, the same results: those are compared before anything is timed.
//
//   bench [--fixed] [NAME]
//     the rows whose operation/format/who matches the regular expression NAME; --fixed: with the
//     operands in one fixed order
#include <algorithm>
#include <boost/rational.hpp>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "bench/environment_rows.h"
#include "bench/peers.h"
#include "bench/rows.h"
#include "bench/text_rows.h"
#include "zelk/zelk.h"

namespace {

using namespace zelk_bench;  // NOLINT(google-build-using-namespace)

// r := r op b, each operation waiting for the one before.
template <typename P, auto operation, auto ours>
void chain_row(const char* op, const Operands& o, const std::vector<IEEEFloat>& operands) {
  const std::string row = std::string(op) + '/' + o.label + '/' + P::name;
  if (!wanted(row)) {
    return;
  }
  const auto b = load<P>(operands);
  const auto r = std::make_shared<typename P::Value>((*b)[0]);
  IEEEFloat want = operands[0];
  P::enter(o.f);
  for (std::size_t i = 0; i < count; ++i) {
    ours(want, operands[i]);
    operation(*r, (*b)[i]);
  }
  require(P::equals(*r, want) || !is_ieee<P>(), row, count);
  add_row(
      row, [f = o.f] { P::enter(f); }, [=](std::size_t i) { operation(*r, (*b)[i]); });
}

template <typename P>
void arithmetic_rows(const Operands& o) {
  operation_row<P, P::add, Zelk::add>("add", o);
  operation_row<P, P::sub, Zelk::sub>("sub", o);
  operation_row<P, P::mul, Zelk::mul>("mul", o);
  operation_row<P, P::div, Zelk::div>("div", o);
  chain_row<P, P::chain_add, Zelk::chain_add>("chain_add", o, o.terms);
  chain_row<P, P::chain_mul, Zelk::chain_mul>("chain_mul", o, o.factors);

  const std::string suffix = '/' + o.label + '/' + P::name;
  if (!wanted("less" + suffix) && !wanted("assign" + suffix) && !wanted("copy" + suffix)) {
    return;
  }
  const auto a = load<P>(o.a);
  const auto b = load<P>(o.b);
  const auto r = std::make_shared<typename P::Value>((*a)[0]);
  for (std::size_t i = 0; i < count && is_ieee<P>(); ++i) {
    require(P::less((*a)[i], (*b)[i]) == (o.a[i] < o.b[i]), "less" + suffix, i);
  }
  add_row(
      "less" + suffix, [] {},
      [=](std::size_t i, std::size_t j) { benchmark::DoNotOptimize(P::less((*a)[i], (*b)[j])); });
  add_row(
      "assign" + suffix, [] {},
      [=](std::size_t i) {
        P::copy(*r, (*a)[i]);
        benchmark::DoNotOptimize(*r);
      });
  add_row(
      "copy" + suffix, [] {},
      [=](std::size_t i) {
        typename P::Value copied((*a)[i]);
        benchmark::DoNotOptimize(copied);
      });
}

template <typename... Peers>
void rows_against(const Operands& o) {
  arithmetic_rows<Zelk>(o);
  (arithmetic_rows<Peers>(o), ...);
}

// ---- Conversions, against MPFR ----

void set_format_rows(const Operands& o, Format g) {
  const std::string row = "set_format/" + o.label + "-" + name(g) + "/";
  if (!wanted(row + "zelk") && !wanted(row + "mpfr")) {
    return;
  }
  const auto a = load<Zelk>(o.a);
  const auto m = load<Mpfr>(o.a);
  const auto r = std::make_shared<IEEEFloat>();
  const auto s = std::make_shared<Mpfr::Value>(g.mant_width + 1);
  const auto ours = [=](std::size_t i) {
    *r = (*a)[i];
    r->set_format(g);
    benchmark::DoNotOptimize(*r);
  };
  const auto theirs = [=](std::size_t i) {
    Mpfr::fit(*s, mpfr_set(s->x, (*m)[i].x, MPFR_RNDN));
    benchmark::DoNotOptimize(*s);
  };
  Mpfr::enter(g);
  for (std::size_t i = 0; i < count; ++i) {
    ours(i);
    theirs(i);
    require(Mpfr::equals(*s, *r), row, i);
  }
  add_row(
      row + "zelk", [] {}, ours);
  add_row(
      row + "mpfr", [g] { Mpfr::enter(g); }, theirs);
}

// Numerators and denominators that the format holds, so that one rounding and three agree.
void number_rows(const Operands& o) {
  const Format f = o.f;
  const std::string suffix = '/' + o.label + '/';
  const char* const rows[] = {"from_number", "to_number", "to_integer64", "to_float_str"};
  if (std::none_of(std::begin(rows), std::end(rows),
                   [&](const char* row) { return wanted(row + suffix + "zelk"); })) {
    return;
  }
  const unsigned long bits = std::min(f.mant_width + 1, 53UL);
  const unsigned long top =
      std::min(1UL << bits, 1UL << std::min(f.exp_width == 4 ? 7UL : 14UL, bits));
  const unsigned long range = f.exp_width < 8 ? top : 1UL << bits;
  auto q = std::make_shared<std::vector<QNumber>>();
  auto p = std::make_shared<std::vector<mpq_class>>();
  for (std::size_t i = 0; i < count; ++i) {
    q->push_back(QNumber(random_bits() % range) / (random_bits() % range + 1));
    p->push_back(q->back().to_mpq());
  }
  const auto a = load<Zelk>(o.a);
  const auto m = load<Mpfr>(o.a);
  const auto s = std::make_shared<Mpfr::Value>(f.mant_width + 1);
  const auto rational = std::make_shared<mpq_class>();
  const auto integer = std::make_shared<mpz_class>();
  Mpfr::enter(f);
  for (std::size_t i = 0; i < count; ++i) {
    Mpfr::fit(*s, mpfr_set_q(s->x, (*p)[i].get_mpq_t(), MPFR_RNDN));
    require(Mpfr::equals(*s, IEEEFloat::from_number((*q)[i], f, nearest)), "from_number", i);
  }
  const auto enter = [f] { Mpfr::enter(f); };
  add_row("from_number" + suffix + "zelk", enter, [=](std::size_t i) {
    benchmark::DoNotOptimize(IEEEFloat::from_number((*q)[i], f, nearest));
  });
  add_row("from_number" + suffix + "mpfr", enter, [=](std::size_t i) {
    Mpfr::fit(*s, mpfr_set_q(s->x, (*p)[i].get_mpq_t(), MPFR_RNDN));
    benchmark::DoNotOptimize(*s);
  });
  add_row("to_number" + suffix + "zelk", enter,
          [=](std::size_t i) { benchmark::DoNotOptimize((*a)[i].to_number()); });
  add_row("to_number" + suffix + "mpfr", enter, [=](std::size_t i) {
    mpfr_get_q(rational->get_mpq_t(), (*m)[i].x);
    benchmark::DoNotOptimize(*rational);
  });
  add_row("to_integer64" + suffix + "zelk", enter,
          [=](std::size_t i) { benchmark::DoNotOptimize((*a)[i].to_integer(64)); });
  add_row("to_integer64" + suffix + "mpfr(unreduced)", enter, [=](std::size_t i) {
    mpfr_get_z(integer->get_mpz_t(), (*m)[i].x, MPFR_RNDN);
    benchmark::DoNotOptimize(*integer);
  });
  add_row("to_float_str" + suffix + "zelk", enter,
          [=](std::size_t i) { benchmark::DoNotOptimize((*a)[i].to_float_str()); });
  add_row("to_float_str" + suffix + "mpfr(21_digits_and_exponent)", enter, [=](std::size_t i) {
    mpfr_exp_t exponent = 0;
    char digits[32];
    mpfr_get_str(digits, &exponent, 10, 21, (*m)[i].x, MPFR_RNDN);
    benchmark::DoNotOptimize(exponent);
  });
}

// ---- Packed words ----

template <typename P>
void peer_rows(const std::string& prefix, const Operands& o) {
  operation_row<P, P::add, Zelk::add>((prefix + "add").c_str(), o);
  operation_row<P, P::sub, Zelk::sub>((prefix + "sub").c_str(), o);
  operation_row<P, P::mul, Zelk::mul>((prefix + "mul").c_str(), o);
  operation_row<P, P::div, Zelk::div>((prefix + "div").c_str(), o);
}

// The software routines called on words.
template <typename Word>
using Routine = Word (*)(Word, Word, int) noexcept;
template <typename Word, Routine<Word> add_op, Routine<Word> sub_op, Routine<Word> mul_op,
          Routine<Word> div_op>
struct Words {
  using Value = Word;
  static constexpr const char* name = "zelk";
  static void enter(Format /*f*/) {}
  static Value load(const IEEEFloat& x) {
    return static_cast<Word>(zelk::BVNumber::low_word(x.get_bits()));
  }
  static void add(Value& r, Value a, Value b) { r = add_op(a, b, 0); }
  static void sub(Value& r, Value a, Value b) { r = sub_op(a, b, 0); }
  static void mul(Value& r, Value a, Value b) { r = mul_op(a, b, 0); }
  static void div(Value& r, Value a, Value b) { r = div_op(a, b, 0); }
  static bool equals(Value r, const IEEEFloat& x) { return r == load(x); }
};

// ---- Rationals ----

template <typename T, typename Make>
void rational_rows(const std::string& label, const char* who, unsigned long range, bool integers,
                   Make make) {
  std::mt19937_64 random(7);
  auto a = std::make_shared<std::vector<T>>();
  auto b = std::make_shared<std::vector<T>>();
  for (auto& values : {a, b}) {
    for (std::size_t i = 0; i < count; ++i) {
      const long n = static_cast<long>(random() % range) - static_cast<long>(random() % range) / 2;
      values->push_back(make(n, integers ? 1 : static_cast<long>(random() % range + 1)));
    }
  }
  const auto r = std::make_shared<T>((*a)[0]);
  const std::string suffix = '/' + label + '/' + who;
  add_row(
      "q_add" + suffix, [] {},
      [=](std::size_t i, std::size_t j) {
        (*r = (*a)[i]) += (*b)[j];
        benchmark::DoNotOptimize(*r);
      });
  add_row(
      "q_mul" + suffix, [] {},
      [=](std::size_t i, std::size_t j) {
        (*r = (*a)[i]) *= (*b)[j];
        benchmark::DoNotOptimize(*r);
      });
  add_row(
      "q_less" + suffix, [] {},
      [=](std::size_t i, std::size_t j) { benchmark::DoNotOptimize((*a)[i] < (*b)[j]); });
}

void register_rationals(const std::string& label, unsigned long range, bool integers) {
  rational_rows<QNumber>(label, "zelk", range, integers,
                         [](long n, long d) { return QNumber(n) / d; });
  rational_rows<mpq_class>(label, "mpq", range, integers, [](long n, long d) {
    mpq_class q(n, d);
    q.canonicalize();
    return q;
  });
  rational_rows<boost::rational<std::int64_t>>(label, "boost", range, integers, [](long n, long d) {
    return boost::rational<std::int64_t>(n, d);
  });
}

__extension__ using uint128 = unsigned __int128;

void register_all() {
  using Float = Native<float, std::uint32_t>;
  using Double = Native<double, std::uint64_t>;
  using Quad = Native<__float128, uint128>;
  const Operands fp8({4, 3});
  const Operands half({5, 10});
  const Operands bfloat({8, 7});
  const Operands single({8, 23});
  const Operands twice({11, 52});
  const Operands quad({15, 112});
  const Operands octuple({19, 236});
  rows_against<Mpfr>(fp8);
#ifdef ZELK_BENCH_FLOAT16
  rows_against<Mpfr, Native<_Float16, std::uint16_t>>(half);
#else
  rows_against<Mpfr>(half);
#endif
  rows_against<Mpfr>(bfloat);
  rows_against<Mpfr, Boost<8, 23>, Float>(single);
  rows_against<Mpfr>(Operands({8, 23}, "_generic"));
  rows_against<Mpfr, Boost<11, 52>, Double>(twice);
  rows_against<Mpfr>(Operands({11, 52}, "_generic"));
  rows_against<Mpfr, Boost<15, 112>, Quad>(quad);
  rows_against<Mpfr, Boost<19, 236>>(octuple);

  using namespace zelk::swflt;  // NOLINT(google-build-using-namespace)
  peer_rows<Words<std::uint32_t, float32_add, float32_sub, float32_mul, float32_div>>("swflt_",
                                                                                      single);
  peer_rows<Mpfr>("swflt_", single);
  peer_rows<Boost<8, 23>>("swflt_", single);
  peer_rows<Float>("swflt_", single);
  peer_rows<Words<std::uint64_t, float64_add, float64_sub, float64_mul, float64_div>>("swflt_",
                                                                                      twice);
  peer_rows<Mpfr>("swflt_", twice);
  peer_rows<Boost<11, 52>>("swflt_", twice);
  peer_rows<Double>("swflt_", twice);

  const Operands* all[] = {&fp8, &half, &bfloat, &single, &twice, &quad, &octuple};
  for (std::size_t i = 0; i + 1 < std::size(all); ++i) {
    set_format_rows(*all[i], all[i + 1]->f);
    set_format_rows(*all[i + 1], all[i]->f);
  }
  const Operands generic_twice({11, 52}, "_generic");
  set_format_rows(generic_twice, quad.f);
  set_format_rows(generic_twice, octuple.f);
  for (const Operands* o : all) {
    number_rows(*o);
  }
  for (const Operands* o : {&half, &bfloat, &single, &twice, &quad, &octuple}) {
    environment_rows(*o);
  }
  for (std::size_t i = 1; i + 1 < std::size(all); ++i) {
    convert_rows(*all[i], all[i + 1]->f);
    convert_rows(*all[i + 1], all[i]->f);
  }
  dot_rows(half, single);
  for (const Operands* o : {&half, &bfloat, &single, &twice, &quad, &octuple}) {
    text_rows(*o);
    text_rows(anywhere(*o));
    ratio_rows(*o, 31);
    ratio_rows(*o, 64);
  }
  register_rationals("10_bits", 1UL << 10, false);
  register_rationals("31_bits", (1UL << 31) - 1, false);
  register_rationals("integers", 1UL << 31, true);
}

}  // namespace

int main(int argc, char** argv) {
  Walk::fixed = argc > 1 && std::string(argv[1]) == "--fixed";
  const int filter = Walk::fixed ? 2 : 1;
  row_filter() = argc > filter ? argv[filter] : ".";
  std::string arguments[] = {argv[0],
                             "--benchmark_filter=.",
                             "--benchmark_min_time=0.004",
                             "--benchmark_repetitions=9",
                             "--benchmark_enable_random_interleaving=true",
                             "--benchmark_out=bench.json",
                             "--benchmark_out_format=json"};
  std::vector<char*> pointers;
  for (std::string& argument : arguments) {
    pointers.push_back(argument.data());
  }
  int size = static_cast<int>(pointers.size());
  benchmark::Initialize(&size, pointers.data());
  register_all();
  std::printf("timing %zu rows, 9 times each, interleaved; the least time counts\n",
              row_order().size());
  std::fflush(stdout);
  Collector collector;
  benchmark::RunSpecifiedBenchmarks(&collector);
  collector.print();
}
