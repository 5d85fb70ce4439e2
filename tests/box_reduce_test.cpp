// BoxReduce8's division: every rounded sum an area can produce, on the speed path
// (a, b up to 8) and past it, gives (sum + ab / 2) / ab exactly; and the channels
// of a pixel stay apart. Every body this processor runs.
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "resample/resample_routines.h"
#include "tests/tiers.h"

using namespace tarnell;
using namespace tarnell::resample;

namespace {

constexpr int32_t kPixels = 300;

// One output pixel per possible block sum 0 .. 255 ab (then the largest again),
// rows of 300 pixels (at most 1500 samples: no hand-over to the host); each block's
// samples hold its sum, 255 at a time.
void expectEverySumDivides(int32_t spp, int32_t a, int32_t b) {
  const int32_t area = a * b, width = kPixels * spp, top = 255 * area;
  const int32_t rows = (top + kPixels) / kPixels;
  const int32_t stride = kPixels * a * spp;
  std::vector<uint8_t> source(static_cast<std::size_t>(rows * b * stride));
  std::vector<uint8_t> out(static_cast<std::size_t>(rows * width));
  const auto sumOf = [&](int32_t r, int32_t p, int32_t c) { return std::min(r * kPixels + p, top) * (c + 1) % (top + 1); };
  for (int32_t r = 0; r < rows; ++r)
    for (int32_t p = 0; p < kPixels; ++p)
      for (int32_t c = 0; c < spp; ++c) {
        int32_t left = sumOf(r, p, c);
        for (int32_t dy = 0; dy < b; ++dy)
          for (int32_t dx = 0; dx < a; ++dx, left -= std::min(left, 255))
            source[static_cast<std::size_t>((r * b + dy) * stride + (p * a + dx) * spp + c)] =
                static_cast<uint8_t>(std::min(left, 255));
      }
  for (const auto& body : tests::bodiesOf(slot::BoxReduce8)) {
    std::fill(out.begin(), out.end(), uint8_t{0});
    body.fn(source.data(), out.data(), rows, width, stride, width, spp, a, b);
    for (int32_t r = 0; r < rows; ++r)
      for (int32_t p = 0; p < kPixels; ++p)
        for (int32_t c = 0; c < spp; ++c) {
          const int32_t sum = sumOf(r, p, c);
          ASSERT_EQ(out[static_cast<std::size_t>(r * width + p * spp + c)], (sum + area / 2) / area)
              << levelName(body.level) << " spp " << spp << " a " << a << " b " << b << " sum " << sum;
        }
  }
}

TEST(BoxReduce, EverySumOfEveryAreaDividesExactly) {
  for (int32_t a = 1; a <= 9; ++a)
    for (int32_t b = 1; b <= 9; ++b) expectEverySumDivides(1, a, b);
}

// Channel c's sums are the pixel's times c + 1 (wrapped): a mixed-up channel,
// or a fold that takes a neighbour's channel, lands on the wrong quotient.
TEST(BoxReduce, ChannelsKeepTheirOwnSums) {
  for (int32_t spp = 2; spp <= 5; ++spp)
    for (int32_t a : {1, 2, 3, 4, 8})
      for (int32_t b : {1, 2, 3}) expectEverySumDivides(spp, a, b);
}

}  // namespace
