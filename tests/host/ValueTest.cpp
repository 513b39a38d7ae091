// Conversions of named values, fractions, and four-character codes.
#include "base/Value.h"

#include <gtest/gtest.h>

#include <climits>
#include <limits>
#include <optional>
#include <tuple>
#include <vector>

#include "base/FourCC.h"
#include "base/Types.h"

namespace kestro::base {
namespace {

using Integers = std::tuple<bool, char, signed char, unsigned char, short, unsigned short, int,
                            unsigned, long, unsigned long, long long, unsigned long long>;
__extension__ using Wide = __int128;

template <class Visit>
void EachInteger(Visit visit) {
  std::apply([&](auto... type) { (visit(type), ...); }, Integers{});
}

template <class T>
bool Fits(Wide n) {
  return n >= std::numeric_limits<T>::min() && n <= std::numeric_limits<T>::max();
}

// The value as a To; nothing when the conversion is refused, which must leave the variable alone.
template <class To, class From>
std::optional<To> As(From from, To untouched = To(1)) {
  Value value;
  if (!value.From(&from, typeid(From))) return std::nullopt;
  To out = untouched;
  if (value.To(&out, typeid(To))) return out;
  EXPECT_EQ(out, untouched) << "changed by a refused conversion";
  return std::nullopt;
}

TEST(Value, IntegersSurviveOrAreRefused) {
  std::vector<Wide> numbers;
  EachInteger([&](auto type) {
    using T = decltype(type);
    for (Wide limit : {Wide(std::numeric_limits<T>::min()), Wide(std::numeric_limits<T>::max())})
      for (int step : {-1, 0, 1}) numbers.push_back(limit + step);
  });
  EachInteger([&](auto a) {
    EachInteger([&](auto b) {
      using A = decltype(a);
      using B = decltype(b);
      for (Wide n : numbers) {
        if (!Fits<A>(n)) continue;
        SCOPED_TRACE(std::to_string(static_cast<int64>(n)) + typeid(A).name() + typeid(B).name());
        auto const got = As<B>(static_cast<A>(n));
        ASSERT_EQ(got.has_value(), Fits<B>(n));
        ASSERT_TRUE(!got || Wide(*got) == n);
        if (sizeof(A) == 1 || sizeof(B) == 1) continue;
        auto const text = As<std::string>(static_cast<A>(n), "");
        ASSERT_TRUE(text);
        ASSERT_EQ(As<B>(*text).has_value(), Fits<B>(n)) << *text;
        ASSERT_TRUE(!got || Wide(*As<B>(text->c_str())) == n);
      }
    });
  });
}

TEST(Value, TextOfIntegers) {
  EXPECT_EQ(As<int>("010"), 10);
  EXPECT_EQ(As<int>("0x10"), 16);
  EXPECT_EQ(As<int>("-0x10"), -16);
  for (char const* text : {"", " 1", "\t-1", "\n1", "1 ", "1.5", "1e3", "0x", "12abc", "--1",
                           "99999999999999999999"}) {
    EXPECT_FALSE(As<int>(text)) << '"' << text << '"';
    EXPECT_FALSE(As<uint64>(text)) << '"' << text << '"';
  }
  EXPECT_FALSE(As<int>(std::string("1\0002", 3)));
}

TEST(Value, CharactersBoolsFractionsPointers) {
  EXPECT_EQ(As<char>("5"), '5');
  EXPECT_EQ(As<unsigned char>("5"), 5);
  EXPECT_EQ(As<char>("", 'x'), '\0');
  EXPECT_FALSE(As<char>("ab"));
  EXPECT_FALSE(As<unsigned char>("256"));
  EXPECT_EQ(As<std::string>('Q', ""), "Q");
  EXPECT_EQ(As<std::string>('\0', "x"), "");
  EXPECT_EQ(As<std::string>(static_cast<unsigned char>('Q'), ""), "81");

  for (char const* yes : {"true", "1", "on", "yes"}) EXPECT_EQ(As<bool>(yes, false), true);
  for (char const* no : {"false", "0", "off", "no"}) EXPECT_EQ(As<bool>(no, true), false);
  for (char const* neither : {"", "2", "tru", "nope"}) EXPECT_FALSE(As<bool>(neither)) << neither;
  EXPECT_EQ(As<std::string>(true, ""), "true");

  EXPECT_EQ(As<int>(Fraction(50, 2)), 25);
  EXPECT_EQ(As<int>(Fraction(5, -1)), -5);
  EXPECT_FALSE(As<int>(Fraction(30000, 1001)));
  EXPECT_FALSE(As<int>(Fraction(1, 0)));
  EXPECT_FALSE(As<int64>(Fraction(INT64_MIN, -1)));
  EXPECT_EQ(As<Fraction>(25, Fraction()), Fraction(25, 1));
  EXPECT_FALSE(As<Fraction>(UINT64_MAX, Fraction()));
  EXPECT_EQ(As<Fraction>("30000/1001", Fraction()), Fraction(30000, 1001));
  EXPECT_FALSE(As<Fraction>("fast", Fraction(1, 2)));
  EXPECT_EQ(As<std::string>(Fraction(30000, 1001), ""), "30000/1001");

  unsigned char byte = 0;
  EXPECT_EQ(As<unsigned char const*>(&byte, nullptr), &byte);
  EXPECT_FALSE(As<unsigned char*>("1234", &byte));
  EXPECT_FALSE(As<unsigned char*>(0, &byte));
  EXPECT_FALSE(As<uint64>(&byte));
  EXPECT_FALSE(As<std::string>(&byte, ""));
  EXPECT_FALSE(As<int>(static_cast<char const*>(nullptr)));
  EXPECT_FALSE(As<int>(1.5)) << "a type that values do not know";
}

TEST(Fraction, Texts) {
  EXPECT_EQ(Fraction::From("30000/1001"), Fraction(30000, 1001));
  EXPECT_EQ(Fraction::From("29.97"), Fraction(2997, 100));
  EXPECT_EQ(Fraction::From("-0.5"), Fraction(-5, 10));
  EXPECT_EQ(Fraction::From("-1.25"), Fraction(-125, 100));
  EXPECT_EQ(Fraction::From("0.000000001"), Fraction(1, 1000000000));
  EXPECT_EQ(Fraction::From("1/0"), Fraction(1, 0));
  EXPECT_EQ(Fraction::From("9223372036854775807"), Fraction(INT64_MAX, 1));
  for (char const* text : {"9223372036854775808", "922337203685477580.8", "", " 25", "25fps", "25/",
                           "/25", ".5", "1/2/3", "1.5/2", "-", static_cast<char const*>(nullptr)}) {
    Fraction value(7, 3);
    EXPECT_FALSE(Fraction::Parse(text, value)) << (text ? text : "null");
    EXPECT_EQ(value, Fraction(7, 3));
    EXPECT_EQ(Fraction::From(text), Fraction(0, 1));
  }
  EXPECT_EQ(Fraction(25, 1).Text(), "25");
  EXPECT_EQ(Fraction(50, 2).Text(), "50/2");
  EXPECT_EQ(Fraction(30000, 1001).Whole(), 29);
  EXPECT_EQ(Fraction(1, 0).Whole(), 0);
  EXPECT_EQ(Fraction(INT64_MIN, -1).Whole(), 0);
  EXPECT_FALSE(Fraction(-25, -1).Positive());
}

TEST(FourCC, FirstCharacterIsLowest) {
  EXPECT_EQ(Convert4("strh"), 0x68727473u);
  EXPECT_EQ(Convert4("ab"), 0x6261u);
  EXPECT_EQ(Convert4("\xff\x80!"), 0x2180ffu);
  EXPECT_EQ(Convert4("longer"), Convert4("long"));
  EXPECT_EQ(Convert4(nullptr), 0u);
  EXPECT_EQ(Convert32(Convert4("00"), "dc", 2, 4), Convert4("00dc"));
}

}  // namespace
}  // namespace kestro::base
