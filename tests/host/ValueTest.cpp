// Conversions between the types of properties.
#include "base/Value.h"

#include <gtest/gtest.h>

#include <climits>
#include <limits>
#include <optional>
#include <tuple>
#include <vector>

#include "base/Types.h"

namespace kestro::base {
namespace {

using Integers = std::tuple<bool, char, signed char, unsigned char, short, unsigned short, int,
                            unsigned, long, unsigned long, long long, unsigned long long>;

template <class Visit>
void EachInteger(Visit visit) {
  std::apply([&](auto... type) { (visit(type), ...); }, Integers{});
}

// Whether two integers are the same number.
template <class A, class B>
bool Same(A a, B b) {
  return std::to_string(a) == std::to_string(b);
}

// The value as a To; nothing when the conversion is refused, which must leave the variable alone.
template <class To, class From>
std::optional<To> As(From from) {
  Value value;
  if (!value.From(&from, typeid(From))) return std::nullopt;
  To out{};
  if constexpr (std::is_arithmetic_v<To>) out = 1;
  To const untouched = out;
  if (value.To(&out, typeid(To))) return out;
  EXPECT_EQ(out, untouched) << "changed by a refused conversion";
  return std::nullopt;
}

TEST(Value, IntegersSurviveOrAreRefused) {
  std::vector<uint64> numbers;  // modulo 2^64, converted to each type
  EachInteger([&](auto type) {
    using T = std::numeric_limits<decltype(type)>;
    for (uint64 limit : {static_cast<uint64>(T::min()), static_cast<uint64>(T::max())})
      for (int step : {-1, 0, 1}) numbers.push_back(limit + static_cast<uint64>(step));
  });
  EachInteger([&](auto a) {
    EachInteger([&](auto b) {
      using A = decltype(a);
      using B = decltype(b);
      for (uint64 number : numbers) {
        auto const n = static_cast<A>(number);
        bool const fits = Same(static_cast<B>(n), n);
        SCOPED_TRACE(std::to_string(n) + typeid(A).name() + typeid(B).name());
        auto const got = As<B>(n);
        ASSERT_EQ(got.has_value(), fits);
        ASSERT_TRUE(!fits || Same(*got, n));
        if (sizeof(A) == 1 || sizeof(B) == 1) continue;
        auto const text = As<std::string>(n);
        ASSERT_TRUE(text);
        ASSERT_EQ(As<B>(*text).has_value(), fits) << *text;
        ASSERT_TRUE(!got || Same(*As<B>(text->c_str()), n));
      }
    });
  });
}

// A text, converted to T and back.
template <class T>
std::string Through(char const* text) {
  auto const value = As<T>(text);
  return value ? As<std::string>(*value).value_or("no text") : "refused";
}

TEST(Value, TextsAreParsedWholeOrRefused) {
  struct {
    std::string (*through)(char const*);
    std::vector<char const*> texts;
    char const* result;
  } const table[] = {
      {Through<int>, {"-0x10", "-016", "-16"}, "-16"},
      {Through<int>, {"", " 1", "\t-1", "1 ", "1.5", "1e3", "0x", "12abc", "--1"}, "refused"},
      {Through<uint64>, {"", " 1", "-1", "99999999999999999999", nullptr}, "refused"},
      {Through<unsigned char>, {"256", "Q"}, "refused"},
      {Through<char>, {"5"}, "5"},
      {Through<char>, {"ab"}, "refused"},
      {Through<bool>, {"true", "1", "on", "yes"}, "true"},
      {Through<bool>, {"false", "0", "off", "no"}, "false"},
      {Through<bool>, {"", "2", "tru", "nope"}, "refused"},
      {Through<Fraction>, {"25", "25/1"}, "25"},
      {Through<Fraction>, {"29.97"}, "2997/100"},
      {Through<Fraction>, {"-0.5"}, "-5/10"},
      {Through<Fraction>, {"9223372036854775808", "922337203685477580.8", "25fps"}, "refused"},
      {Through<Fraction>, {"", " 25", "25/", "/25", ".5", "1/2/3", "1.5/2", "-"}, "refused"},
      {Through<unsigned char*>, {"1234"}, "refused"},
  };
  for (auto const& row : table)
    for (char const* text : row.texts)
      EXPECT_EQ(row.through(text), row.result) << '"' << (text ? text : "null") << '"';
}

TEST(Value, FractionsAndPointers) {
  EXPECT_EQ(As<int>(Fraction(5, -1)), -5);
  for (Fraction f : {Fraction(30000, 1001), Fraction(1, 0), Fraction(INT64_MIN, -1)})
    EXPECT_FALSE(As<int64>(f)) << f.Text();
  EXPECT_EQ(Fraction(1, 0).Whole() + Fraction(INT64_MIN, -1).Whole(), 0);
  EXPECT_EQ(As<Fraction>(25), Fraction(25, 1));
  EXPECT_FALSE(As<Fraction>(UINT64_MAX));

  unsigned char byte = 0;
  EXPECT_EQ(As<unsigned char const*>(&byte), &byte);
  EXPECT_FALSE(As<unsigned char*>(0));
  EXPECT_FALSE(As<uint64>(&byte));
  EXPECT_FALSE(As<std::string>(&byte));
}

}  // namespace
}  // namespace kestro::base
