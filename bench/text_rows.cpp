#include "bench/text_rows.h"

#include <charconv>
#include <system_error>
#include <utility>

#include "zelk/float/native.h"

namespace zelk_bench {

namespace {

using Texts = std::vector<std::string>;

// A row whose steps are checked before they are timed.
template <class Step, class Check>
void checked_row(const std::string& row, Format f, Step step, Check check) {
  if (!wanted(row)) {
    return;
  }
  const auto enter = [f] { Mpfr::enter(f); };
  enter();
  for (std::size_t i = 0; i < count; ++i) {
    step(i);
    require(check(i), row, i);
  }
  add_row(row, enter, step);
}

// Whether one of our rows is wanted.
bool any_wanted(const std::string& label, std::initializer_list<const char*> rows) {
  return std::any_of(rows.begin(), rows.end(), [&](const char* row) {
    return wanted(std::string(row) + '/' + label + "/zelk");
  });
}

bool same(const IEEEFloat& x, const IEEEFloat& y) { return zelk::SamePattern()(x, y); }

// x in format f.
template <class T>
IEEEFloat converted(T x, Format f) {
  return zelk::Environment().convert(zelk::from_native(x), f);
}

// ---- Reading ----

// What reads texts as a T, on one of these rows of ours.
template <class T, class Read>
void native_reader(const char* op, const char* who, const Operands& o,
                   const std::shared_ptr<Texts>& texts, Read read) {
  const auto r = std::make_shared<T>();
  checked_row(
      std::string(op) + '/' + o.label + '/' + who, o.f,
      [=](std::size_t i) {
        *r = read((*texts)[i]);
        benchmark::DoNotOptimize(std::as_const(*r));
      },
      [&](std::size_t i) { return same(converted(*r, o.f), o.a[i]); });
}

template <class T>
T by_from_chars(const std::string& text) {
  T x = 0;
  std::from_chars(text.data(), text.data() + text.size(), x);
  return x;
}

void readers(const char* op, const Operands& o, const std::shared_ptr<Texts>& texts) {
  if (o.f.mant_width > 52) {
    const auto s = std::make_shared<Mpfr::Value>(o.f.mant_width + 1);
    checked_row(
        std::string(op) + '/' + o.label + "/mpfr_strtofr", o.f,
        [=](std::size_t i) {
          Mpfr::fit(*s, mpfr_strtofr(s->x, (*texts)[i].c_str(), nullptr, 10, MPFR_RNDN));
          benchmark::DoNotOptimize(*s);
        },
        [&](std::size_t i) { return Mpfr::equals(*s, o.a[i]); });
    return;
  }
  native_reader<double>(op, "strtod", o, texts,
                        [](const std::string& s) { return std::strtod(s.c_str(), nullptr); });
  if (o.f == Format{8, 23}) {
    native_reader<float>(op, "strtof", o, texts,
                         [](const std::string& s) { return std::strtof(s.c_str(), nullptr); });
    native_reader<float>(op, "std::from_chars", o, texts, by_from_chars<float>);
  }
  if (o.f == Format{11, 52}) {
    native_reader<double>(op, "std::from_chars", o, texts, by_from_chars<double>);
  }
}

// The text of fewest digits that gives x back.
std::string shortest(const IEEEFloat& x) {
  const Mpfr::Value v = Mpfr::load(x);
  char text[512] = "";
  for (int digits = 0;
       text[0] == 0 || !same(IEEEFloat::from_text(text, x.get_format(), nearest), x); ++digits) {
    mpfr_snprintf(text, sizeof text, "%.*Re", digits, v.x);
  }
  return text;
}

// ---- Rationals ----

struct Fractions {
  std::vector<QNumber> ours;
  std::vector<mpq_class> theirs;
  std::vector<mpq_class> scaled;  // times 2^k
  std::vector<long> k;

  explicit Fractions(unsigned bits) {
    for (std::size_t i = 0; i < count; ++i) {
      const QNumber n = random_bits() >> (64 - bits);
      ours.push_back(n / ((random_bits() >> (64 - bits)) | 1));
      if (i % 2 == 0) {
        ours.back().self_neg();
      }
      k.push_back(static_cast<long>(random_bits() % 40) - 20);
      theirs.push_back(ours.back().to_mpq());
      scaled.emplace_back((ours.back() * QNumber::scaled(1, k.back())).to_mpq());
    }
  }
};

// q by MPFR, and as `from_number` has it: both parts rounded, and their quotient.
void rounded_once(Mpfr::Value& r, const mpq_class& q, Format /*f*/) {
  Mpfr::fit(r, mpfr_set_q(r.x, q.get_mpq_t(), MPFR_RNDN));
}
void rounded_in_parts(Mpfr::Value& r, const mpq_class& q, Format f) {
  Mpfr::Value n(f.mant_width + 1);
  Mpfr::Value d(f.mant_width + 1);
  Mpfr::fit(n, mpfr_set_z(n.x, q.get_num_mpz_t(), MPFR_RNDN));
  Mpfr::fit(d, mpfr_set_z(d.x, q.get_den_mpz_t(), MPFR_RNDN));
  Mpfr::div(r, n, d);
}

}  // namespace

Operands anywhere(Operands o) {
  const long bias = o.f.bias().to_long();
  for (IEEEFloat& x : o.a) {
    const auto distance = random_bits() % static_cast<unsigned long>(2 * bias + 1);
    x = make_value(o.f, static_cast<long>(distance) - bias);
  }
  o.label += "_any";
  return o;
}

void text_rows(const Operands& o) {
  const Format f = o.f;
  if (!any_wanted(o.label, {"from_text"})) {
    return;
  }
  const auto texts = std::make_shared<Texts>();
  std::transform(o.a.begin(), o.a.end(), std::back_inserter(*texts), shortest);
  const auto r = std::make_shared<IEEEFloat>();
  const auto is_right = [&](std::size_t i) { return same(*r, o.a[i]); };
  checked_row(
      "from_text/" + o.label + "/zelk", f,
      [=](std::size_t i) {
        *r = IEEEFloat::from_text((*texts)[i], f, nearest);
        benchmark::DoNotOptimize(*r);
      },
      is_right);
  readers("from_text", o, texts);
}

void ratio_rows(const Operands& o, unsigned bits) {
  const Format f = o.f;
  const std::string label = o.label + '_' + std::to_string(bits) + "_bits";
  if (!any_wanted(label, {"from_ratio", "from_scaled", "from_number"})) {
    return;
  }
  const auto q = std::make_shared<Fractions>(bits);
  const auto r = std::make_shared<IEEEFloat>();
  const auto s = std::make_shared<Mpfr::Value>(f.mant_width + 1);
  // Results of `make` are right when `check` makes the same of the same of `all`, into s.
  const auto row = [&](const char* op, auto make, std::vector<mpq_class> Fractions::*which,
                       auto check) {
    const std::shared_ptr<std::vector<mpq_class>> all(q, &(*q.*which));
    const std::string name = std::string(op) + '/' + label + '/';
    checked_row(
        name + "zelk", f,
        [=](std::size_t i) {
          *r = make(q->ours[i], q->k[i]);
          benchmark::DoNotOptimize(*r);
        },
        [&](std::size_t i) { return check(*s, (*all)[i], f), Mpfr::equals(*s, *r); });
    checked_row(
        name + "mpfr_set_q", f,
        [=](std::size_t i) {
          rounded_once(*s, (*all)[i], f);
          benchmark::DoNotOptimize(*s);
        },
        [](std::size_t /*i*/) { return true; });
  };
  row(
      "from_ratio",
      [f](const QNumber& x, long /*k*/) { return IEEEFloat::from_ratio(x, f, nearest); },
      &Fractions::theirs, rounded_once);
  row(
      "from_scaled",
      [f](const QNumber& x, long k) { return IEEEFloat::from_scaled(x, k, f, nearest); },
      &Fractions::scaled, rounded_once);
  row(
      "from_number",
      [f](const QNumber& x, long /*k*/) { return IEEEFloat::from_number(x, f, nearest); },
      &Fractions::theirs, rounded_in_parts);
}

}  // namespace zelk_bench
