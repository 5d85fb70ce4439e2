// The module against the libraries users would otherwise reach for (OpenCV and
// pixman), on the very same planes, single-threaded, at 256x256, 1024x1024 and
// 4096x4096, with a summary of module / peer per operation at the end; with
// --report FILE.html also as a self-contained page in the bench report's style.
//
// The module is loaded from its file and started against the reference host, and
// its routines are called through the host's live table, as a host calls them.
//
// Adding an operation is one entry of operations(): a name, the module's slot, the
// sample kinds of the source and destination planes, how the module's slot is
// called on the planes, one line per peer doing the same work, and, when the planes
// are not all n x n one-sample pixels or the routine takes more than planes, a
// Shape (margin, destination scale, channels, a prepare() for tables and
// coordinates). The summary compares both sides per output sample. An entry whose
// slot the module did not replace (a family not built yet, a processor without the
// tier) is left out.
#include <benchmark/benchmark.h>
#include <pixman.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <string>
#include <utility>
#include <vector>

#include "refhost/refhost.h"
#include "tools/machine.h"
#include "tools/output.h"
#include "tools/peer_report.h"
#include "verify/session.h"

namespace {

using namespace tarnell;

// ------------------------------------------------------------------ planes

enum class Sample { None, U8, U16, F32 };

int bytesOf(Sample s) { return s == Sample::U8 ? 1 : s == Sample::U16 ? 2 : s == Sample::F32 ? 4 : 0; }
int cvTypeOf(Sample s) { return s == Sample::U8 ? CV_8U : s == Sample::U16 ? CV_16U : CV_32F; }

// Samples readable around a plane's region, on each side.
struct Margin {
  int32_t rows = 0, columns = 0;
};

int32_t roundUp64(int32_t n) { return (n + 63) / 64 * 64; }

// One plane of rows x columns pixels of `channels` samples holding in-range values
// (16-bit up to 32768, floats in 0..1), with a margin of more samples around it.
// The region starts on a 64-byte boundary and rows are padded to 64 bytes. The
// module sees the region as a pointer and a byte stride, OpenCV as a Mat over the
// same memory (a region of the whole, margin included: OpenCV's filters read the
// margin's samples as their neighbours), pixman as an a8 image (plain 8-bit planes).
class Plane {
 public:
  Plane(Sample kind, int32_t rows, int32_t columns, uint32_t seed, Margin margin = {}, int channels = 1)
      : rows_(rows), rowBytes_(columns * channels * bytesOf(kind)) {
    const int32_t lead = margin.columns * channels * bytesOf(kind), offset = roundUp64(lead);
    stride_ = roundUp64(offset + rowBytes_ + lead);
    const std::size_t bytes = static_cast<std::size_t>(rows + 2 * margin.rows) * static_cast<std::size_t>(stride_);
    data_ = static_cast<uint8_t*>(std::aligned_alloc(64, bytes));
    uint32_t state = seed;
    auto next = [&state] { return state = state * 1664525u + 1013904223u; };
    for (std::size_t i = 0; i < bytes / static_cast<std::size_t>(bytesOf(kind)); ++i) {
      if (kind == Sample::U8) {
        data_[i] = static_cast<uint8_t>(next() >> 24);
      } else if (kind == Sample::U16) {
        const auto v = static_cast<uint16_t>((next() >> 8) % 32769u);
        std::memcpy(data_ + 2 * i, &v, 2);
      } else {
        const float v = static_cast<float>(next() >> 8) / 16777216.0f;
        std::memcpy(data_ + 4 * i, &v, 4);
      }
    }
    origin_ = data_ + static_cast<std::ptrdiff_t>(margin.rows) * stride_ + offset;
    const cv::Mat whole(rows + 2 * margin.rows, columns + 2 * margin.columns, CV_MAKETYPE(cvTypeOf(kind), channels),
                        data_ + offset - lead, static_cast<std::size_t>(stride_));
    mat_ = whole(cv::Rect(margin.columns, margin.rows, columns, rows));
    if (kind == Sample::U8 && channels == 1 && margin.rows == 0 && margin.columns == 0)
      image_ = pixman_image_create_bits(PIXMAN_a8, columns, rows, reinterpret_cast<uint32_t*>(origin_), stride_);
  }
  Plane(const Plane&) = delete;
  Plane& operator=(const Plane&) = delete;
  ~Plane() {
    if (image_ != nullptr) pixman_image_unref(image_);
    std::free(data_);
  }

  template <typename T = uint8_t>
  T* data() const {
    return reinterpret_cast<T*>(origin_);
  }
  int32_t stride() const { return stride_; }
  cv::Mat& mat() { return mat_; }
  pixman_image_t* image() const { return image_; }
  uint32_t* words() const { return reinterpret_cast<uint32_t*>(origin_); }
  int wordStride() const { return stride_ / 4; }
  // The region's bytes, without margin or padding.
  std::size_t bytes() const { return static_cast<std::size_t>(rows_) * static_cast<std::size_t>(rowBytes_); }

 private:
  int32_t rows_, rowBytes_, stride_ = 0;
  uint8_t* data_ = nullptr;
  uint8_t* origin_ = nullptr;
  cv::Mat mat_;
  pixman_image_t* image_ = nullptr;
};

struct Planes;

// A destination side as a fraction of the source's, or of a fixed length (a
// search's result: four values whatever the plane's size).
struct Scale {
  int32_t numerator = 1, denominator = 1;
  int32_t fixed = 0;
  int32_t of(int32_t n) const { return fixed != 0 ? fixed : n * numerator / denominator; }
};

// How an operation's planes depend on the benchmark's size n, for operations whose
// planes are not all n x n one-sample pixels: the source's margin (what the module
// reads beyond its region), the destination's rows and columns as fractions of n,
// samples per pixel, and what builds the inputs beyond the planes (once per size,
// outside the timed loop).
struct Shape {
  Margin margin = {};
  Scale rows = {}, columns = {};
  int channels = 1;
  void (*prepare)(Planes&) = nullptr;
};

// The planes of one operation at one size: n x n source planes and destination
// planes of the shape's size (three of each for the three-plane conversion), and
// the other inputs the shape's prepare() builds.
struct Planes {
  Planes(Sample source, Sample destination, int count, const Shape& shape, int32_t n)
      : sourceRows(n),
        sourceColumns(n),
        rows(shape.rows.of(n)),
        columns(shape.columns.of(n)),
        channels(shape.channels) {
    for (uint32_t k = 0; k < static_cast<uint32_t>(count); ++k) {
      if (source != Sample::None)
        sources.push_back(std::make_unique<Plane>(source, n, n, 17u + k, shape.margin, channels));
      destinations.push_back(std::make_unique<Plane>(destination, rows, columns, 91u + k, Margin{}, channels));
    }
    if (shape.prepare != nullptr) shape.prepare(*this);
  }
  Plane& s(int k = 0) { return *sources[static_cast<std::size_t>(k)]; }
  Plane& d(int k = 0) { return *destinations[static_cast<std::size_t>(k)]; }
  int32_t sourceRows, sourceColumns;
  int32_t rows, columns;  // the destination's
  int channels;
  std::vector<std::unique_ptr<Plane>> sources, destinations;

  // Kernel filters: one index and phase per output sample (rows) or row (columns),
  // 1.14 weights per phase.
  std::vector<int32_t> indices;
  std::vector<uint8_t> phases;
  std::vector<int16_t> weights;
  int16_t taps = 0;
  // Remaps: the module's 16.16 (x, y) per destination pixel, and OpenCV's
  // fixed-point maps of the same coordinates.
  std::vector<uint32_t> coordinates;
  cv::Mat map1, map2;
  // A third n x n plane beside the source and destination (a mask, a second
  // operand), built by the shape's prepare().
  std::unique_ptr<Plane> third;
  // Row averages: the count of source rows of each output row.
  std::vector<int32_t> counts;
};

// ------------------------------------------------------------- operations


// Which slot an operation times.
struct SlotKey {
  template <uint32_t Suite, int Slot>
  constexpr SlotKey(SlotId<Suite, Slot>) : suite(Suite), slot(Slot) {}
  uint32_t suite;
  int slot;
};

using ModuleCall = void (*)(HostRoutine, Planes&);
using PeerCall = void (*)(Planes&);

struct Peer {
  const char* name;
  PeerCall call;
};

struct Operation {
  const char* name;
  SlotKey key;
  Sample source, destination;
  int planes;  // per side
  ModuleCall module;
  std::vector<Peer> peers;
  Shape shape = {};
};

// An a8 destination IN an a8 source or a solid alpha: d = d * s / 255, rounded.
void pixmanIn(pixman_image_t* source, Planes& p) {
  pixman_image_composite32(PIXMAN_OP_IN, source, nullptr, p.d().image(), 0, 0, 0, 0, 0, 0, p.columns, p.rows);
}

constexpr uint8_t kScale = 200;  // ScaleByConstant8's constant
constexpr uint16_t kScale16 = 20000;  // ScaleByConstant16's, on the 32768 scale
constexpr uint32_t kFill = 0x5A5A5A5Au;

// ScaleByConstant8's constant as a solid pixman alpha.
pixman_image_t* solidScale() {
  static pixman_image_t* const solid = [] {
    const pixman_color_t color{0, 0, 0, kScale * 257};
    return pixman_image_create_solid_fill(&color);
  }();
  return solid;
}

// A third 8-bit plane of random samples, for the second operand of an "into"
// product.
void thirdPlane(Planes& p) { p.third = std::make_unique<Plane>(Sample::U8, p.rows, p.columns, 57u); }

// A mask that OpenCV's rule (m != 0) and the module's (m >= 128) read alike: each
// sample 0 or one of 128..255, about half of each.
void agreeingMask(Planes& p) {
  thirdPlane(p);
  for (int32_t r = 0; r < p.rows; ++r) {
    uint8_t* row = p.third->data() + static_cast<std::ptrdiff_t>(r) * p.third->stride();
    for (int32_t c = 0; c < p.columns; ++c) row[c] = row[c] < 128 ? 0 : row[c];
  }
}

constexpr uint8_t kMaskedFill = 0xA5;  // FillWhereMaskSet8's constant

// A float composite of the source into the destination at full opacity without a
// mask (the record's case 4): the routine's own loop, d + s for the add.
void floatComposite(HostRoutine r, Planes& p) {
  FloatCompositeRecord record{};
  record.kind = 3;
  record.columns = p.columns;
  record.rows = p.rows;
  record.source = p.s().data<float>();
  record.sourceRowStride = p.s().stride();
  record.sourceSampleStep = 4;
  record.destination = p.d().data<float>();
  record.destinationRowStride = p.d().stride();
  record.destinationSampleStep = 4;
  record.opacity = 255;
  as<slot::AddSourceFloat>(r)(&record);
}

// The kernel filters reduce by 4:3, the positions OpenCV's resize takes for that
// ratio: output i centred on source (i + 0.5) * 4 / 3 - 0.5, so three phases. Four
// taps weigh as OpenCV's bicubic (a = -0.75) does, eight as its Lanczos4, both
// reading from one sample before (three before) the position's integer part, as the
// module's kernel does from index + 1 - taps / 2.
constexpr Scale kReduction{3, 4};

template <std::size_t Taps>
std::array<double, Taps> kernelWeights(double x) {
  std::array<double, Taps> w{};
  if constexpr (Taps == 4) {
    constexpr double a = -0.75;
    w[0] = ((a * (x + 1) - 5 * a) * (x + 1) + 8 * a) * (x + 1) - 4 * a;
    w[1] = ((a + 2) * x - (a + 3)) * x * x + 1;
    w[2] = ((a + 2) * (1 - x) - (a + 3)) * (1 - x) * (1 - x) + 1;
    w[3] = 1 - w[0] - w[1] - w[2];
  } else {
    const double pi = std::acos(-1.0);
    double sum = 0;
    for (std::size_t k = 0; k < Taps; ++k) {
      const double t = x + 3 - static_cast<double>(k);
      sum += w[k] = t == 0 ? 1 : 4 * std::sin(pi * t) * std::sin(pi * t / 4) / (pi * pi * t * t);
    }
    for (double& v : w) v /= sum;
  }
  return w;
}

// Fills the margin of the plane that region views with copies of the region's
// edge samples: what resize reads beyond the edge.
void replicateMargin(cv::Mat& region) {
  cv::Size whole;
  cv::Point at;
  region.locateROI(whole, at);
  const int bottom = whole.height - at.y - region.rows, right = whole.width - at.x - region.cols;
  cv::Mat all = region;
  all.adjustROI(at.y, bottom, at.x, right);
  cv::copyMakeBorder(region.clone(), all, at.y, bottom, at.x, right, cv::BORDER_REPLICATE);
}

// Indices, phases and 1.14 weights (summing to exactly 1) of a 4:3 reduction along
// the destination's columns or, for a vertical filter, its rows, over a source
// whose margin replicates its edges.
template <std::size_t Taps, bool Vertical>
void kernelTables(Planes& p) {
  constexpr int32_t kPhases = 3;
  p.taps = static_cast<int16_t>(Taps);
  replicateMargin(p.s().mat());
  for (int32_t i = 0; i < (Vertical ? p.rows : p.columns); ++i) {
    const double at = (i + 0.5) * kReduction.denominator / kReduction.numerator - 0.5, index = std::floor(at);
    p.indices.push_back(static_cast<int32_t>(index));
    p.phases.push_back(static_cast<uint8_t>(i % kPhases));
    if (i >= kPhases) continue;
    int32_t total = 0;
    for (double v : kernelWeights<Taps>(at - index))
      total += p.weights.emplace_back(static_cast<int16_t>(std::lround(v * 16384)));
    int16_t& largest = *std::max_element(p.weights.end() - Taps, p.weights.end());  // takes the rounding
    largest = static_cast<int16_t>(largest + 16384 - total);
  }
}

// A turn by 10 degrees and a zoom out to 0.8 about the centre: every coordinate
// lies inside the source. The module gets each as 16.16 plus 128 (it takes half its
// 8-bit fraction step off before truncating the fraction), OpenCV the float maps
// converted to its fixed-point form, once.
void remapCoordinates(Planes& p) {
  const double turn = std::acos(-1.0) / 18, c = 0.8 * std::cos(turn), s = 0.8 * std::sin(turn);
  const double centre = (p.sourceColumns - 1) / 2.0;
  cv::Mat x(p.rows, p.columns, CV_32FC1), y(p.rows, p.columns, CV_32FC1);
  for (int32_t r = 0; r < p.rows; ++r)
    for (int32_t q = 0; q < p.columns; ++q) {
      const auto sx = static_cast<float>(centre + c * (q - centre) - s * (r - centre));
      const auto sy = static_cast<float>(centre + s * (q - centre) + c * (r - centre));
      x.at<float>(r, q) = sx;
      y.at<float>(r, q) = sy;
      p.coordinates.push_back(static_cast<uint32_t>(std::lround(double{sx} * 65536) + 128));
      p.coordinates.push_back(static_cast<uint32_t>(std::lround(double{sy} * 65536) + 128));
    }
  cv::convertMaps(x, y, p.map1, p.map2, CV_16SC2);
}

template <int Radius>
void boxMean(HostRoutine r, Planes& p) {
  as<slot::filterSlot75>(r)(p.s().data<uint16_t>(), p.d().data<uint16_t>(), p.rows, p.columns, p.s().stride(),
                          p.d().stride(), Radius);
}
template <int Radius>
void boxFilter(Planes& p) {
  cv::boxFilter(p.s().mat(), p.d().mat(), -1, {2 * Radius + 1, 2 * Radius + 1}, {-1, -1}, true, cv::BORDER_REPLICATE);
}

template <int Slot>
void kernelFilter(HostRoutine r, Planes& p) {
  as<code::rsmp, Slot>(r)(p.s().data(), p.d().data(), p.rows, p.columns, p.indices.data(), p.phases.data(),
                            p.s().stride(), p.d().stride(), p.taps, p.weights.data());
}
template <int Interpolation>
void resize(Planes& p) {
  cv::resize(p.s().mat(), p.d().mat(), p.d().mat().size(), 0, 0, Interpolation);
}

// The destination walks a pixel at a time and then by the advance: the advance is
// the row's padding, its stride less the pixels' bytes.
void remapPlane(HostRoutine r, Planes& p) {
  const int32_t padding = p.d().stride() - p.columns * p.channels;
  as<slot::RemapPlane8>(r)(p.coordinates.data(), p.s().data(), p.d().data(), p.rows, p.columns, p.channels, p.channels,
                          p.s().stride(), padding, p.channels, 0, p.sourceColumns, 0, p.sourceRows, 1);
}
void remap(Planes& p) { cv::remap(p.s().mat(), p.d().mat(), p.map1, p.map2, cv::INTER_LINEAR); }

// byteBounds searches a plane of zeros for the rectangle around its non-zero bytes:
// a few of them on the four sides of a rectangle in the middle, so that both sides
// read the rows above and below it whole and the rows beside it left and right of
// it. For the value 0 this is what OpenCV's boundingRect of a mask computes, in
// one call. Both write (top, left, bottom, right), bottom and right one past, to
// the first row of the destination (1 x 4, 16-bit).
void boundsPlane(Planes& p) {
  cv::Mat& m = p.s().mat();
  m.setTo(0);
  const int n = m.rows, top = 3 * n / 8, bottom = 5 * n / 8, left = n / 4 + 1, right = 3 * n / 4 - 3;
  m.at<uint8_t>(top, n / 2) = 7;
  m.at<uint8_t>(bottom - 1, n / 3) = 1;
  m.at<uint8_t>(n / 2, left) = 200;
  m.at<uint8_t>(n / 2 + 1, right - 1) = 255;
}
void moduleBounds(HostRoutine r, Planes& p) {
  int16_t bounds[4];
  as<slot::byteBounds>(r)(p.s().data(), p.sourceRows, p.sourceColumns, p.s().stride(), 0, bounds);
  for (int k = 0; k < 4; ++k) p.d().data<uint16_t>()[k] = static_cast<uint16_t>(bounds[k]);
}
void cvBoundingRect(Planes& p) {
  const cv::Rect r = cv::boundingRect(p.s().mat());
  const int bounds[4] = {r.y, r.x, r.y + r.height, r.x + r.width};
  for (int k = 0; k < 4; ++k) p.d().data<uint16_t>()[k] = static_cast<uint16_t>(bounds[k]);
}

// Box reduction by a whole factor in both directions, one-sample pixels. The
// module's routine takes rows of up to 1500 output samples (wider rows go to the
// host's own routine), so a host with wider rows calls it on pieces of them: here
// one output row at a time in column strips of at most 1500, so that the source
// rows are still read from end to end. OpenCV's resize with INTER_AREA takes its
// whole-factor path (the rounded mean of each block) on the Factor n x Factor n
// corner that the destination covers.
template <int Factor>
void boxReduce(HostRoutine r, Planes& p) {
  constexpr int32_t kStrip = 1500;
  const int32_t band = p.columns <= kStrip ? p.rows : 1;
  for (int32_t y = 0; y < p.rows; y += band)
    for (int32_t x = 0; x < p.columns; x += kStrip)
      as<slot::BoxReduce8>(r)(p.s().data() + static_cast<std::ptrdiff_t>(y) * Factor * p.s().stride() + x * Factor,
                              p.d().data() + static_cast<std::ptrdiff_t>(y) * p.d().stride() + x,
                              std::min(band, p.rows - y), std::min(kStrip, p.columns - x), p.s().stride(),
                              p.d().stride(), 1, Factor, Factor);
}
template <int Factor>
void areaResize(Planes& p) {
  cv::resize(p.s().mat()(cv::Rect(0, 0, p.columns * Factor, p.rows * Factor)), p.d().mat(), p.d().mat().size(), 0, 0,
             cv::INTER_AREA);
}

// Rows averaged in pairs (a count of 2 for every output row): resize to half the
// rows with INTER_AREA. The module's mean of two takes halves up, OpenCV's rounds
// them to even, so some outputs differ by 1.
void boxAverageRows(HostRoutine r, Planes& p) {
  as<slot::BoxAverageRows8>(r)(p.s().data(), p.d().data(), p.rows, p.columns, p.counts.data(), p.s().stride(),
                               p.d().stride());
}
void pairCounts(Planes& p) { p.counts.assign(static_cast<std::size_t>(p.rows), 2); }
void areaResize2Rows(Planes& p) {
  cv::resize(p.s().mat(), p.d().mat(), p.d().mat().size(), 0, 0, cv::INTER_AREA);
}

const std::vector<Operation>& operations() {
  static const std::vector<Operation> list = {
      // 'blnd' 8-bit: d = d * s / 255 rounded; d = max, min(d, s); d = d * k / 255.
      {"multiply8", slot::MultiplySource8, Sample::U8, Sample::U8, 1,
       [](HostRoutine r, Planes& p) {
         as<slot::MultiplySource8>(r)(p.s().data(), p.d().data(), p.rows, p.columns, p.s().stride(), p.d().stride());
       },
       {{"opencv", [](Planes& p) { cv::multiply(p.s().mat(), p.d().mat(), p.d().mat(), 1.0 / 255.0); }},
        {"pixman", [](Planes& p) { pixmanIn(p.s().image(), p); }}}},
      {"max8", slot::MaxSource8, Sample::U8, Sample::U8, 1,
       [](HostRoutine r, Planes& p) {
         as<slot::MaxSource8>(r)(p.s().data(), p.d().data(), p.rows, p.columns, p.s().stride(), p.d().stride());
       },
       {{"opencv", [](Planes& p) { cv::max(p.s().mat(), p.d().mat(), p.d().mat()); }}}},
      {"min8", slot::MinSource8, Sample::U8, Sample::U8, 1,
       [](HostRoutine r, Planes& p) {
         as<slot::MinSource8>(r)(p.s().data(), p.d().data(), p.rows, p.columns, p.s().stride(), p.d().stride());
       },
       {{"opencv", [](Planes& p) { cv::min(p.s().mat(), p.d().mat(), p.d().mat()); }}}},
      {"scale8", slot::ScaleByConstant8, Sample::None, Sample::U8, 1,
       [](HostRoutine r, Planes& p) { as<slot::ScaleByConstant8>(r)(p.d().data(), p.rows, p.columns, p.d().stride(), kScale); },
       {{"opencv", [](Planes& p) { p.d().mat().convertTo(p.d().mat(), CV_8U, kScale / 255.0); }},
        {"pixman", [](Planes& p) { pixmanIn(solidScale(), p); }}}},
      // d = a * b / 255 rounded, into a destination not read.
      {"multiplyInto8", slot::MultiplyInto8, Sample::U8, Sample::U8, 1,
       [](HostRoutine r, Planes& p) {
         as<slot::MultiplyInto8>(r)(p.s().data(), p.d().data(), p.third->data(), p.rows, p.columns, p.s().stride(),
                                    p.d().stride(), p.third->stride());
       },
       {{"opencv", [](Planes& p) { cv::multiply(p.s().mat(), p.third->mat(), p.d().mat(), 1.0 / 255.0); }}},
       {.prepare = thirdPlane}},
      // d = s where the mask is set, d = c there: masked copy and fill.
      {"copyWhereMask8", slot::CopyWhereMaskSet8, Sample::U8, Sample::U8, 1,
       [](HostRoutine r, Planes& p) {
         as<slot::CopyWhereMaskSet8>(r)(p.s().data(), p.d().data(), p.third->data(), p.rows, p.columns,
                                        p.s().stride(), p.d().stride(), p.third->stride());
       },
       {{"opencv", [](Planes& p) { p.s().mat().copyTo(p.d().mat(), p.third->mat()); }}},
       {.prepare = agreeingMask}},
      {"fillWhereMask8", slot::FillWhereMaskSet8, Sample::None, Sample::U8, 1,
       [](HostRoutine r, Planes& p) {
         as<slot::FillWhereMaskSet8>(r)(kMaskedFill, p.d().data(), p.third->data(), p.rows, p.columns, p.d().stride(),
                                        p.third->stride());
       },
       {{"opencv", [](Planes& p) { p.d().mat().setTo(cv::Scalar(kMaskedFill), p.third->mat()); }}},
       {.prepare = agreeingMask}},
      // d = s + d - s * d / 255: the screen of two planes, which on alpha planes is
      // pixman's OVER (s + d (255 - s) / 255, the same rounded value).
      {"screen8", slot::ScreenSource8, Sample::U8, Sample::U8, 1,
       [](HostRoutine r, Planes& p) {
         as<slot::ScreenSource8>(r)(p.s().data(), p.d().data(), p.rows, p.columns, p.s().stride(), p.d().stride());
       },
       {{"pixman", [](Planes& p) {
          pixman_image_composite32(PIXMAN_OP_OVER, p.s().image(), nullptr, p.d().image(), 0, 0, 0, 0, 0, 0, p.columns,
                                   p.rows);
        }}}},

      // 'blnd' 16-bit, on the 0..32768 scale: d = (d k + 16384) >> 15 and
      // (s d + 16384) >> 15, rounding halves up; OpenCV rounds its float product
      // to nearest even, one apart on some samples.
      {"scale16", slot::ScaleByConstant16, Sample::None, Sample::U16, 1,
       [](HostRoutine r, Planes& p) {
         as<slot::ScaleByConstant16>(r)(p.d().data<uint16_t>(), p.rows, p.columns, p.d().stride(), kScale16);
       },
       {{"opencv", [](Planes& p) { p.d().mat().convertTo(p.d().mat(), CV_16U, kScale16 / 32768.0); }}}},
      {"multiply16", slot::MultiplySource16, Sample::U16, Sample::U16, 1,
       [](HostRoutine r, Planes& p) {
         as<slot::MultiplySource16>(r)(p.s().data<uint16_t>(), p.d().data<uint16_t>(), p.rows, p.columns,
                                       p.s().stride(), p.d().stride());
       },
       {{"opencv", [](Planes& p) { cv::multiply(p.s().mat(), p.d().mat(), p.d().mat(), 1.0 / 32768.0); }}}},

      // 'blnd' float: d + s (the add's record at full opacity, no mask) and min(d, s).
      {"addFloat", slot::AddSourceFloat, Sample::F32, Sample::F32, 1, floatComposite,
       {{"opencv", [](Planes& p) { cv::add(p.s().mat(), p.d().mat(), p.d().mat()); }}}},
      {"minFloat", slot::MinSourceFloat, Sample::F32, Sample::F32, 1,
       [](HostRoutine r, Planes& p) {
         as<slot::MinSourceFloat>(r)(p.s().data<float>(), p.d().data<float>(), p.columns, p.rows, p.s().stride(),
                                     p.d().stride());
       },
       {{"opencv", [](Planes& p) { cv::min(p.s().mat(), p.d().mat(), p.d().mat()); }}}},

      // 'conv': the depth conversions, each against convertTo with the same scale.
      {"convert16To8", slot::convert16To8, Sample::U16, Sample::U8, 1,
       [](HostRoutine r, Planes& p) {
         as<slot::convert16To8>(r)(p.s().data<uint16_t>(), p.d().data(), p.rows, p.columns, p.s().stride(), p.d().stride(),
                                 0);
       },
       {{"opencv", [](Planes& p) { p.s().mat().convertTo(p.d().mat(), CV_8U, 255.0 / 32768.0); }}}},
      {"convert16To8Planar3", slot::convert16To8Planar3, Sample::U16, Sample::U8, 3,
       [](HostRoutine r, Planes& p) {
         as<slot::convert16To8Planar3>(r)(p.s(0).data<uint16_t>(), p.s(1).data<uint16_t>(), p.s(2).data<uint16_t>(),
                                 p.d(0).data(), p.d(1).data(), p.d(2).data(), p.rows, p.columns, p.s().stride(),
                                 p.d().stride(), 0);
       },
       {{"opencv", [](Planes& p) {
          for (int k = 0; k < 3; ++k) p.s(k).mat().convertTo(p.d(k).mat(), CV_8U, 255.0 / 32768.0);
        }}}},
      {"convert8To16", slot::convert8To16, Sample::U8, Sample::U16, 1,
       [](HostRoutine r, Planes& p) {
         as<slot::convert8To16>(r)(p.s().data(), p.d().data<uint16_t>(), p.rows, p.columns, p.s().stride(),
                                 p.d().stride());
       },
       {{"opencv", [](Planes& p) { p.s().mat().convertTo(p.d().mat(), CV_16U, 32768.0 / 255.0); }}}},
      {"rescale16", slot::rescale16, Sample::None, Sample::U16, 1,
       [](HostRoutine r, Planes& p) {
         as<slot::rescale16>(r)(p.d().data<uint16_t>(), 32768, 65535, p.rows, p.columns, p.d().stride());
       },
       {{"opencv", [](Planes& p) { p.d().mat().convertTo(p.d().mat(), CV_16U, 65535.0 / 32768.0); }}}},
      {"convertFloatTo8", slot::convertFloatTo8, Sample::F32, Sample::U8, 1,
       [](HostRoutine r, Planes& p) {
         as<slot::convertFloatTo8>(r)(p.s().data<float>(), p.d().data(), p.rows, p.columns, p.s().stride(), p.d().stride(),
                                 0);
       },
       {{"opencv", [](Planes& p) { p.s().mat().convertTo(p.d().mat(), CV_8U, 255.0); }}}},

      // 'memo': block copies and fills of 8-, 16- and 32-bit samples. pixman copies
      // the same bytes as 32-bit pixels (its vector blit has no 8-bit form).
      {"copy8", slot::copyBlock, Sample::U8, Sample::U8, 1,
       [](HostRoutine r, Planes& p) {
         as<slot::copyBlock>(r)(p.s().data(), p.d().data(), p.rows, p.columns, p.s().stride(), p.d().stride());
       },
       {{"opencv", [](Planes& p) { p.s().mat().copyTo(p.d().mat()); }},
        {"pixman", [](Planes& p) {
           pixman_blt(p.s().words(), p.d().words(), p.s().wordStride(), p.d().wordStride(), 32, 32, 0, 0, 0, 0,
                      p.columns / 4, p.rows);
         }}}},
      {"fill8", slot::fillBlock, Sample::None, Sample::U8, 1,
       [](HostRoutine r, Planes& p) {
         as<slot::fillBlock>(r)(p.d().data(), p.rows, p.columns, p.d().stride(), static_cast<uint8_t>(kFill));
       },
       {{"opencv", [](Planes& p) { p.d().mat().setTo(cv::Scalar(kFill & 0xFF)); }},
        {"pixman", [](Planes& p) {
           pixman_fill(p.d().words(), p.d().wordStride(), 8, 0, 0, p.columns, p.rows, kFill);
         }}}},
      {"fill16", slot::fillWordBlock, Sample::None, Sample::U16, 1,
       [](HostRoutine r, Planes& p) {
         as<slot::fillWordBlock>(r)(p.d().data(), p.rows, p.columns, p.d().stride(), static_cast<uint16_t>(kFill));
       },
       {{"opencv", [](Planes& p) { p.d().mat().setTo(cv::Scalar(kFill & 0xFFFF)); }},
        {"pixman", [](Planes& p) {
           pixman_fill(p.d().words(), p.d().wordStride(), 16, 0, 0, p.columns, p.rows, kFill);
         }}}},
      {"fill32", slot::fillDwordBlock, Sample::None, Sample::F32, 1,
       [](HostRoutine r, Planes& p) {
         as<slot::fillDwordBlock>(r)(p.d().data(), p.rows, p.columns, p.d().stride(), kFill);
       },
       {{"opencv", [](Planes& p) { p.d().mat().setTo(cv::Scalar(std::bit_cast<float>(kFill))); }},
        {"pixman", [](Planes& p) {
           pixman_fill(p.d().words(), p.d().wordStride(), 32, 0, 0, p.columns, p.rows, kFill);
         }}}},

      // 'memo' slot 36: the rectangle around the bytes that differ from 0.
      {"byteBounds", slot::byteBounds, Sample::U8, Sample::U16, 1, moduleBounds, {{"opencv", cvBoundingRect}},
       {.rows = {.fixed = 1}, .columns = {.fixed = 4}, .prepare = boundsPlane}},

      // 'filt' slot 75: the 16-bit box mean. The module reads the r-sample margin
      // around the region; OpenCV's boxFilter on the region reads the same margin
      // from the whole plane (no BORDER_ISOLATED), so BORDER_REPLICATE never applies.
      {"boxMean16_r2", slot::filterSlot75, Sample::U16, Sample::U16, 1, boxMean<2>, {{"opencv", boxFilter<2>}},
       {.margin = {2, 2}}},
      {"boxMean16_r20", slot::filterSlot75, Sample::U16, Sample::U16, 1, boxMean<20>, {{"opencv", boxFilter<20>}},
       {.margin = {20, 20}}},

      // 'rsmp' slots 5, 6: 8-bit kernel filters reducing by 4:3 along rows or down
      // columns, against resize to the same size (which also runs its other,
      // identity pass).
      {"filterRows8_4tap", slot::FilterRowsSse2_8, Sample::U8, Sample::U8, 1, kernelFilter<slot::FilterRowsSse2_8.number>,
       {{"opencv", resize<cv::INTER_CUBIC>}},
       {.margin = {0, 2}, .columns = kReduction, .prepare = kernelTables<4, false>}},
      {"filterRows8_8tap", slot::FilterRowsSse2_8, Sample::U8, Sample::U8, 1, kernelFilter<slot::FilterRowsSse2_8.number>,
       {{"opencv", resize<cv::INTER_LANCZOS4>}},
       {.margin = {0, 4}, .columns = kReduction, .prepare = kernelTables<8, false>}},
      {"filterColumns8_4tap", slot::FilterColumnsSse2_8, Sample::U8, Sample::U8, 1, kernelFilter<slot::FilterColumnsSse2_8.number>,
       {{"opencv", resize<cv::INTER_CUBIC>}},
       {.margin = {2, 0}, .rows = kReduction, .prepare = kernelTables<4, true>}},
      {"filterColumns8_8tap", slot::FilterColumnsSse2_8, Sample::U8, Sample::U8, 1, kernelFilter<slot::FilterColumnsSse2_8.number>,
       {{"opencv", resize<cv::INTER_LANCZOS4>}},
       {.margin = {4, 0}, .rows = kReduction, .prepare = kernelTables<8, true>}},

      // 'rsmp' slot 19: bilinear remap of one- and four-sample pixels, against remap
      // with convertMaps' CV_16SC2 maps (its fastest form).
      {"remapPlane8_1ch", slot::RemapPlane8, Sample::U8, Sample::U8, 1, remapPlane, {{"opencv", remap}},
       {.channels = 1, .prepare = remapCoordinates}},
      {"remapPlane8_4ch", slot::RemapPlane8, Sample::U8, Sample::U8, 1, remapPlane, {{"opencv", remap}},
       {.channels = 4, .prepare = remapCoordinates}},

      // 'rsmp' slots 24 and 3: box reductions by whole factors, against resize with
      // INTER_AREA.
      {"boxReduce8_2x2", slot::BoxReduce8, Sample::U8, Sample::U8, 1, boxReduce<2>, {{"opencv", areaResize<2>}},
       {.rows = {1, 2}, .columns = {1, 2}}},
      {"boxReduce8_3x3", slot::BoxReduce8, Sample::U8, Sample::U8, 1, boxReduce<3>, {{"opencv", areaResize<3>}},
       {.rows = {1, 3}, .columns = {1, 3}}},
      {"boxAverageRows8_2", slot::BoxAverageRows8, Sample::U8, Sample::U8, 1, boxAverageRows,
       {{"opencv", areaResize2Rows}}, {.rows = {1, 2}, .prepare = pairCounts}},
  };
  return list;
}

// ---------------------------------------------------------- registration

// The planes of the operation and size being measured. Benchmarks run in the
// order registered, the module first and then each peer of one operation and
// size, so all sides see the same planes at the same addresses, and only one
// operation's planes are alive at a time.
Planes& planesFor(const Operation& op, int32_t size) {
  static const Operation* current = nullptr;
  static int32_t currentSize = 0;
  static std::unique_ptr<Planes> planes;
  if (current != &op || currentSize != size) {
    planes.reset();
    planes = std::make_unique<Planes>(op.source, op.destination, op.planes, op.shape, size);
    current = &op;
    currentSize = size;
  }
  return *planes;
}

constexpr int32_t kSizes[] = {256, 1024, 4096};

struct Entry {
  std::string operation, size, side;
  std::size_t bytesPerCall, outputsPerCall;  // region bytes read and written; samples written
};
std::map<std::string, Entry>& entries() {
  static std::map<std::string, Entry> byName;
  return byName;
}
std::vector<std::string>& order() {
  static std::vector<std::string> names;
  return names;
}

template <typename Call>
void add(const Operation& op, int32_t size, const std::string& side, Call call) {
  const std::string sizeText = std::to_string(size) + "x" + std::to_string(size);
  const std::string name = std::string(op.name) + "/" + sizeText + "/" + side;
  const auto perPlane = [&](int32_t rows, int32_t columns) {
    return static_cast<std::size_t>(rows) * static_cast<std::size_t>(columns) *
           static_cast<std::size_t>(op.planes * op.shape.channels);
  };
  const std::size_t outputs = perPlane(op.shape.rows.of(size), op.shape.columns.of(size));
  const std::size_t bytes = perPlane(size, size) * static_cast<std::size_t>(bytesOf(op.source)) +
                            outputs * static_cast<std::size_t>(bytesOf(op.destination));
  entries()[name] = {op.name, sizeText, side, bytes, outputs};
  order().push_back(name);
  benchmark::RegisterBenchmark(name.c_str(), [&op, size, call, bytes, outputs](benchmark::State& state) {
    Planes& planes = planesFor(op, size);
    for (auto _ : state) {
      call(planes);
      benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(bytes));
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(outputs));
  })->Unit(benchmark::kMicrosecond);
}

// The operations measured, with their largest differences, for the page.
std::vector<tool::PeerOperation>& measured() {
  static std::vector<tool::PeerOperation> operations;
  return operations;
}

// The largest difference between a sample the module writes and the peer's, on the
// first destination plane at 256x256, both sides starting from the same
// destination: a check that both do the same work (rounding aside).
void printAgreement(const Operation& op, HostRoutine routine) {
  Planes p(op.source, op.destination, op.planes, op.shape, kSizes[0]);
  const cv::Mat before = p.d().mat().clone();
  op.module(routine, p);
  const cv::Mat module = p.d().mat().clone();
  tool::PeerOperation& kept = measured().emplace_back();
  kept.name = op.name;
  kept.slot = std::string(kSuites[suiteIndexOf(op.key.suite)].name) + ":" + std::to_string(op.key.slot);
  for (const Peer& peer : op.peers) {
    before.copyTo(p.d().mat());
    peer.call(p);
    const double difference = cv::norm(module, p.d().mat(), cv::NORM_INF);
    kept.largestDifference.emplace_back(peer.name, difference);
    std::fprintf(stderr, "tarnell_peer_bench: %s against %s: largest difference %g\n", op.name, peer.name, difference);
  }
}

void registerAll(const refhost::ReferenceHost& host) {
  for (const Operation& op : operations()) {
    if (!host.replaced(op.key.suite, op.key.slot)) {
      std::fprintf(stderr, "tarnell_peer_bench: %s skipped (the module does not replace its slot)\n", op.name);
      continue;
    }
    const HostRoutine routine = host.live(op.key.suite, op.key.slot);
    printAgreement(op, routine);
    const ModuleCall module = op.module;
    for (int32_t size : kSizes) {
      add(op, size, "module", [module, routine](Planes& p) { module(routine, p); });
      for (const Peer& peer : op.peers) add(op, size, peer.name, [call = peer.call](Planes& p) { call(p); });
    }
  }
}

// ---------------------------------------------------------------- summary

// Passes every run on to the console and keeps the processor seconds per call of
// each benchmark (the median of its repetitions). Processor time, as in the
// console's rates: on a shared machine wall time also counts the time the
// benchmark waited for a core.
class Collector : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs)
      if (run.run_type == Run::RT_Iteration && !run.error_occurred && run.iterations > 0)
        seconds_[run.benchmark_name()].push_back(run.cpu_accumulated_time / static_cast<double>(run.iterations));
  }
  // Seconds per call, or 0 when the benchmark did not run.
  double seconds(const std::string& name) {
    auto found = seconds_.find(name);
    if (found == seconds_.end()) return 0;
    std::vector<double>& v = found->second;
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
  }

 private:
  std::map<std::string, std::vector<double>> seconds_;
};

// Per output sample and as throughput of the region bytes read and written; the
// ratio is the peer's time over the module's for the same outputs. Returns the
// table's rows.
std::vector<tool::PeerReportRow> printSummary(Collector& collector) {
  std::vector<tool::PeerReportRow> rows;
  std::printf("\nmodule / peer (per output sample; above 1 the module is faster)\n");
  std::printf("%-22s %-10s %10s %8s %-8s %10s %8s %8s\n", "operation", "size", "module ns", "GB/s", "peer", "peer ns",
              "GB/s", "ratio");
  for (const std::string& name : order()) {
    const Entry& e = entries().at(name);
    if (e.side == "module") continue;
    const std::string moduleName = e.operation + "/" + e.size + "/module";
    const double peerSeconds = collector.seconds(name), moduleSeconds = collector.seconds(moduleName);
    if (peerSeconds <= 0 || moduleSeconds <= 0) continue;
    const double gb = static_cast<double>(e.bytesPerCall) / 1e9, ns = 1e9 / static_cast<double>(e.outputsPerCall);
    std::printf("%-22s %-10s %10.3f %8.2f %-8s %10.3f %8.2f %7.2fx\n", e.operation.c_str(), e.size.c_str(),
                moduleSeconds * ns, gb / moduleSeconds, e.side.c_str(), peerSeconds * ns, gb / peerSeconds,
                peerSeconds / moduleSeconds);
    rows.push_back({e.operation, e.size, e.side, moduleSeconds * ns, peerSeconds * ns, gb / moduleSeconds,
                    gb / peerSeconds});
  }
  return rows;
}

// --report FILE.html (or --report=FILE.html), taken out of the arguments before
// the benchmark library sees them; "" when not given.
std::string takeReportOption(int& argc, char** argv) {
  std::string file;
  int kept = 1;
  for (int i = 1; i < argc; ++i) {
    const std::string a = argv[i];
    if (a == "--report" && i + 1 < argc) {
      file = argv[++i];
    } else if (a.rfind("--report=", 0) == 0) {
      file = a.substr(9);
    } else {
      argv[kept++] = argv[i];
    }
  }
  argc = kept;
  return file;
}

bool writePeerReport(const std::string& file, const std::vector<tool::PeerReportRow>& rows) {
  const tool::Machine m = tool::thisMachine();
  tool::PeerReportHeader h;
  h.processor = m.processor;
  h.flags = m.flagList();
  h.topology = m.topologyText();
  h.peers = std::string("OpenCV ") + CV_VERSION + " (loops on the calling thread), pixman " + pixman_version_string();
  h.sizes = "256\u00d7256, 1024\u00d71024 and 4096\u00d74096 source pixels, one thread; times per output sample";
  h.module = TARNELL_MODULE_PATH;
  h.date = tool::utcNow();
  h.version = TARNELL_VERSION;
  const std::string page = tool::renderPeerReport(h, measured(), rows);
  std::FILE* out = std::fopen(file.c_str(), "wb");
  const bool ok = out != nullptr && std::fwrite(page.data(), 1, page.size(), out) == page.size();
  return out != nullptr && std::fclose(out) == 0 && ok;
}

}  // namespace

int main(int argc, char** argv) {
  cv::setNumThreads(0);  // OpenCV runs everything on the calling thread
  const std::string reportFile = takeReportOption(argc, argv);
  if (!reportFile.empty()) {  // known before the run, not after it
    const std::string why = tool::whyNotWritable(reportFile);
    if (!why.empty()) {
      std::fprintf(stderr, "tarnell_peer_bench: cannot write the report '%s': %s\n", reportFile.c_str(), why.c_str());
      return 5;
    }
  }
  std::string error;
  static auto module = verify::LoadedModule::load(TARNELL_MODULE_PATH, &error);
  if (!module) {
    std::fprintf(stderr, "tarnell_peer_bench: %s\n", error.c_str());
    return 3;
  }
  static refhost::ReferenceHost host;
  if (!verify::startModule(module->pluginMain(), host).ok()) {
    std::fprintf(stderr, "tarnell_peer_bench: the module's start-up failed\n");
    return 4;
  }
  // getNumThreads() reports the parallel back end's pool even when setNumThreads(0)
  // keeps every loop on the calling thread (the process has one thread throughout).
  std::fprintf(stderr, "tarnell_peer_bench: OpenCV %s (loops on the calling thread), pixman %s\n", CV_VERSION,
               pixman_version_string());
  registerAll(host);
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  Collector collector;
  benchmark::RunSpecifiedBenchmarks(&collector);
  const std::vector<tool::PeerReportRow> rows = printSummary(collector);
  benchmark::Shutdown();
  if (!reportFile.empty()) {
    if (!writePeerReport(reportFile, rows)) {
      std::fprintf(stderr, "tarnell_peer_bench: cannot write the report '%s': %s\n", reportFile.c_str(),
                   std::strerror(errno));
      return 5;
    }
    std::printf("\nreport written to %s\n", std::filesystem::absolute(reportFile).lexically_normal().string().c_str());
  }
  return 0;
}
