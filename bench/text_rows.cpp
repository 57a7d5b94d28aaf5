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

// ---- Writing ----

template <class T>
std::size_t by_to_chars(char* first, char* last, T x) {
  return static_cast<std::size_t>(std::to_chars(first, last, x).ptr - first);
}

// Writers give the text of the i-th value into a room, and return its length.
template <class Write>
void writer(const std::string& row, Format f, const std::shared_ptr<Texts>& texts, Write write) {
  const auto room = std::make_shared<std::string>(512, ' ');
  const auto length = std::make_shared<std::size_t>();
  checked_row(
      row, f,
      [=](std::size_t i) {
        *length = write(room->data(), room->data() + room->size(), i);
        benchmark::DoNotOptimize(std::as_const(*room));
      },
      [&](std::size_t i) { return room->compare(0, *length, (*texts)[i]) == 0; });
}

template <class T>
void native_writer(const char* op, const Operands& o, const std::shared_ptr<Texts>& texts) {
  std::vector<T> all;
  for (const IEEEFloat& x : o.a) {
    all.push_back(zelk::to_native<T>(x));
  }
  writer(
      std::string(op) + '/' + o.label + "/std::to_chars", o.f, texts,
      [all](char* first, char* last, std::size_t i) { return by_to_chars(first, last, all[i]); });
}

// The digits of a text without zeros at either end.
std::string significant(const std::string& text) {
  std::string digits = text.substr(0, text.find('e'));
  std::erase_if(digits, [](char c) { return c == '.' || c == '-'; });
  digits.erase(0, std::min(digits.find_first_not_of('0'), digits.size() - 1));
  digits.erase(std::max<std::size_t>(digits.find_last_not_of('0'), 0) + 1);
  return digits;
}

// As many digits as the shortest text has, without a point and an exponent.
void mpfr_writer(const char* op, const Operands& o, const std::shared_ptr<Texts>& texts) {
  const auto digits = std::make_shared<Texts>();
  std::transform(texts->begin(), texts->end(), std::back_inserter(*digits), significant);
  const auto m = load<Mpfr>(o.a);
  const auto room = std::make_shared<std::string>(512, ' ');
  checked_row(
      std::string(op) + '/' + o.label + "/mpfr_get_str", o.f,
      [=](std::size_t i) {
        mpfr_exp_t exponent = 0;
        mpfr_get_str(room->data(), &exponent, 10, (*digits)[i].size(), (*m)[i].x, MPFR_RNDN);
        benchmark::DoNotOptimize(std::as_const(*room));
      },
      [&](std::size_t i) {
        return (room->c_str() + static_cast<int>(o.a[i].get_sign())) == (*digits)[i];
      });
}

void writers(const char* op, const Operands& o, const std::shared_ptr<Texts>& texts) {
  if (o.f.mant_width > 52) {
    mpfr_writer(op, o, texts);
  } else if (o.f == Format{8, 23}) {
    native_writer<float>(op, o, texts);
  } else if (o.f == Format{11, 52}) {
    native_writer<double>(op, o, texts);
  } else {
    Operands single({8, 23});
    single.a = o.label.ends_with("_any") ? anywhere(single).a : single.a;
    const auto all = load<Zelk>(single.a);
    add_row(
        std::string(op) + '/' + o.label + "/zelk(8.23)", [] {},
        [=, write = op == std::string("to_chars")](std::size_t i) {
          char room[64];
          if (write) {
            benchmark::DoNotOptimize(zelk::to_chars(room, room + sizeof room, (*all)[i]));
          } else {
            benchmark::DoNotOptimize(zelk::to_shortest((*all)[i]));
          }
        });
  }
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
  if (!any_wanted(o.label, {"from_text", "from_chars", "to_shortest", "to_chars"})) {
    return;
  }
  const auto texts = std::make_shared<Texts>();
  std::transform(o.a.begin(), o.a.end(), std::back_inserter(*texts), zelk::to_shortest);
  const auto r = std::make_shared<IEEEFloat>(f, nearest);
  const auto is_right = [&](std::size_t i) { return same(*r, o.a[i]); };
  checked_row(
      "from_text/" + o.label + "/zelk", f,
      [=](std::size_t i) {
        *r = IEEEFloat::from_text((*texts)[i], f, nearest);
        benchmark::DoNotOptimize(*r);
      },
      is_right);
  readers("from_text", o, texts);
  checked_row(
      "from_chars/" + o.label + "/zelk", f,
      [=](std::size_t i) {
        const std::string& s = (*texts)[i];
        zelk::Environment env;
        zelk::from_chars(s.data(), s.data() + s.size(), *r, env);
        benchmark::DoNotOptimize(*r);
      },
      is_right);
  readers("from_chars", o, texts);

  const auto all = load<Zelk>(o.a);
  const auto text = std::make_shared<std::string>();
  checked_row(
      "to_shortest/" + o.label + "/zelk", f,
      [=](std::size_t i) {
        *text = zelk::to_shortest((*all)[i]);
        benchmark::DoNotOptimize(*text);
      },
      [&](std::size_t i) { return *text == (*texts)[i]; });
  writers("to_shortest", o, texts);
  writer("to_chars/" + o.label + "/zelk", f, texts, [all](char* first, char* last, std::size_t i) {
    return static_cast<std::size_t>(zelk::to_chars(first, last, (*all)[i]).ptr - first);
  });
  writers("to_chars", o, texts);
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
