// Start codes in Annex B data.
#include "stream/NalUnits.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>

namespace kestro::stream {
namespace {

template <class Codes>
void ExpectSameAsTextSearch(std::string const& data, std::size_t shift, std::size_t from) {
  std::string const text = data.substr(shift), code("\0\0\0\1", 4);
  std::size_t const at = text.find(code.substr(4 - Codes::kSize), from);
  bool const whole = at <= text.size() && at + Codes::kSize + Codes::kRest <= text.size();
  auto const* bytes = reinterpret_cast<unsigned char const*>(data.data()) + shift;
  ASSERT_EQ(FindStartCode<Codes>(bytes, text.size(), from), whole ? at : text.size())
      << Codes::kSize << " bytes from " << from << " of " << testing::PrintToString(text);
}

// At every alignment, in data of up to three blocks with near start codes throughout, or in the
// second half only.
TEST(NalUnits, StartCodesAreFoundWhereverTheyAre) {
  std::mt19937 random(1);
  for (int round = 0; round < 20000 && !HasFatalFailure(); ++round) {
    unsigned const zeros = random() % 13, shift = random() % 8, from = random() % 9;
    std::string data(shift + random() % (round % 2 != 0 ? 100 : 800), '\2');
    for (char& c : data) c = random() % 13 < zeros ? '\0' : static_cast<char>(random() % 3);
    if (round % 3 == 0) std::fill_n(data.begin(), data.size() / 2, '\x81');
    ExpectSameAsTextSearch<LongCodes>(data, shift, from);
    ExpectSameAsTextSearch<AllCodes>(data, shift, from);
  }
}

}  // namespace
}  // namespace kestro::stream
