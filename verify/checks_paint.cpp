// Checks of the painting routines ('pntg'), one per implemented slot; the
// forwarded slots 38 and 79 have none. One invoke function per argument pattern
// serves a family's workers and companions. The mask (and the source channels of
// families S and T, and the buffer of slots 18 and 92) are planes of the check,
// which the invoke functions put into a paint record. The 8-bit dithered
// routines run on the same addresses on both sides, since their dither starts
// from the destination's address; the harness's random x and y move it too. The
// leading arguments no routine reads (a0, a5) are drawn at random as well.
#include <climits>
#include <tuple>
#include <utility>

#include "verify/families.h"

namespace tarnell::verify {

namespace {


// 16-bit planes step rows by the stride rounded down to even bytes.
int32_t evenStride(int, int32_t stride) { return stride - (stride & 1); }

template <class T>
constexpr PlaneSpec sampleSpec(const char* name, Role role) {
  return {name, static_cast<uint8_t>(sizeof(T)), role, sizeof(T) == 1 ? Samples::Bytes : Samples::Words15};
}
template <class T>
constexpr PlaneSpec maskSpec() {
  return {"mask", static_cast<uint8_t>(sizeof(T)), Role::Input, sizeof(T) == 1 ? Samples::Mask : Samples::Mask15};
}

constexpr const char* kPlaneNames[] = {"plane0", "plane1", "plane2", "plane3"};
constexpr const char* kSourceNames[] = {"source0", "source1", "source2", "source3", "source4"};

// --- parameters ----------------------------------------------------------------

constexpr ParamSpec kX{"x", INT32_MIN, INT32_MAX, {0, 1, -1, INT32_MIN, INT32_MAX, 12345}, 6};
constexpr ParamSpec kY{"y", INT32_MIN, INT32_MAX, {0, 1, -1, INT32_MIN, INT32_MAX, 777}, 6};
// The leading arguments no routine reads: any value.
constexpr ParamSpec kUnused0{"a0", INT32_MIN, INT32_MAX, {0, -1, INT32_MIN, INT32_MAX}, 4};
constexpr ParamSpec kUnused5{"a5", INT32_MIN, INT32_MAX, {0, -1, INT32_MIN, INT32_MAX}, 4};
// Colours and opacities: the ends first, then values whose bits above the low 8
// (16) must not count. 16-bit ones live on 0..32768.
template <class T>
constexpr ParamSpec valueParam(const char* name) {
  if constexpr (sizeof(T) == 1) return {name, 0, 255, {0, 255, 1, 254, 128, 127, 0x1FF, -256}, 8};
  return {name, 0, 32768, {0, 32768, 1, 32767, 16384, 255, 0x18000, -65536}, 8};
}
// Thresholds: 0, 1, the middle and the top, and values whose higher bits must not count.
template <class T>
constexpr ParamSpec thresholdParam() {
  if constexpr (sizeof(T) == 1) return {"threshold", 0, 255, {0, 1, 128, 255, 0x100, -128, 0x1FF, 254}, 8};
  return {"threshold", 0, 32769, {0, 1, 16384, 32768, 32769, 0x10000, -1, 0x18000}, 8};
}

// --- plane and value tuples ---------------------------------------------------------

template <class T, std::size_t... K>
auto planesOf(const PlaneCall& c, std::size_t first, std::index_sequence<K...>) {
  return std::make_tuple(static_cast<T*>(c.plane[first + K])...);
}
template <std::size_t... K>
auto valuesOf(const PlaneCall& c, std::size_t first, std::index_sequence<K...>) {
  return std::make_tuple(static_cast<uint32_t>(c.param[first + K])...);
}
int32_t i32(int64_t v) { return static_cast<int32_t>(v); }

PaintRecord maskRecord(const PlaneCall& c, int maskPlane) {
  PaintRecord record{};
  record.mask = c.plane[maskPlane];
  record.maskStride = c.stride[maskPlane];
  return record;
}

// --- P, Q, R: (a0, x, y, rows, columns, N planes, stride, N colours, [opacity], record)
// Planes: destinations 0..N-1, mask N. Parameters: a0, x (R: threshold), y, the N
// colours, P's opacity.

template <auto Id, class T, int N, bool Opacity>
uint64_t invokeColour(HostRoutine routine, const PlaneCall& c) {
  const PaintRecord record = maskRecord(c, N);
  auto opacity = [&] {
    if constexpr (Opacity) return std::make_tuple(static_cast<uint32_t>(c.param[3 + N]));
    else return std::tuple<>();
  };
  constexpr auto planes = std::make_index_sequence<static_cast<std::size_t>(N)>();
  std::apply(as<Id>(routine),
             std::tuple_cat(std::make_tuple(i32(c.param[0]), i32(c.param[1]), i32(c.param[2]), c.rows, c.columns),
                            planesOf<T>(c, 0, planes), std::make_tuple(c.stride[0]), valuesOf(c, 3, planes), opacity(),
                            std::make_tuple(&record)));
  return 0;
}

// The fields every paint shape shares.
constexpr PlaneShape baseShape(Invoke invoke, int sampleBytes, bool dithered) {
  PlaneShape s{};
  s.invoke = invoke;
  s.alignPlane = 0;
  s.negativeStrides = true;
  s.sameAddresses = dithered;
  if (sampleBytes == 2) s.usedStride = &evenStride;
  return s;
}

// second is x for the dithered families and the threshold for family R.
template <auto Id, class T, int N, bool Opacity>
constexpr PlaneShape colourShape(ParamSpec second, bool dithered) {
  PlaneShape s = baseShape(&invokeColour<Id, T, N, Opacity>, sizeof(T), dithered);
  for (int k = 0; k < N; ++k) s.planes[k] = sampleSpec<T>(N == 1 ? "plane" : kPlaneNames[k], Role::InOut);
  s.planes[N] = maskSpec<T>();
  s.planeCount = N + 1;
  s.params[0] = kUnused0;
  s.params[1] = second;
  s.params[2] = kY;
  for (int k = 0; k < N; ++k) s.params[3 + k] = valueParam<T>(N == 1 ? "colour" : "colours");
  if (Opacity) s.params[3 + N] = valueParam<T>("opacity");
  s.paramCount = 3 + N + (Opacity ? 1 : 0);
  s.sharedStride = N > 1;  // the companions take one stride for their planes (the mask shares it here)
  s.fewerCases = N > 1;    // the worker's own check is the thorough one
  return s;
}
template <auto Id, class T, int N>
constexpr PlaneShape kShapeP = colourShape<Id, T, N, true>(kX, sizeof(T) == 1);
template <auto Id, class T, int N>
constexpr PlaneShape kShapeQ = colourShape<Id, T, N, false>(kX, sizeof(T) == 1);
template <auto Id, class T, int N>
constexpr PlaneShape kShapeR = colourShape<Id, T, N, false>(thresholdParam<T>(), false);

// --- S, T: (a0, channel, y, rows, columns, a5, N planes, stride, [opacity], record) ---
// Planes: destinations 0..N-1, the mask, then the source channels. The worker's
// check has one source plane, put at the chosen channel of an array whose other
// entries are null, so that reading any other channel faults; the channel is the
// dither start's x too. The companions' checks have N + 1 source planes in one
// array (channel 0 or 1 first). Parameters: a0, channel, y, a5, T's opacity.

constexpr int kWorkerChannels = 16;

template <auto Id, class T, int N, bool Opacity>
uint64_t invokeChannel(HostRoutine routine, const PlaneCall& c) {
  PaintRecord record = maskRecord(c, N);
  const void* sources[kWorkerChannels] = {};
  if (N == 1) {
    sources[c.param[1]] = c.plane[2];
  } else {
    for (int k = 0; k <= N; ++k) sources[k] = c.plane[N + 1 + k];
  }
  record.source = sources;
  record.sourceStride = c.stride[N + 1];
  auto opacity = [&] {
    if constexpr (Opacity) return std::make_tuple(static_cast<uint32_t>(c.param[4]));
    else return std::tuple<>();
  };
  std::apply(as<Id>(routine),
             std::tuple_cat(std::make_tuple(i32(c.param[0]), i32(c.param[1]), i32(c.param[2]), c.rows, c.columns,
                                            i32(c.param[3])),
                            planesOf<T>(c, 0, std::make_index_sequence<static_cast<std::size_t>(N)>()),
                            std::make_tuple(c.stride[0]), opacity(), std::make_tuple(&record)));
  return 0;
}

template <auto Id, class T, int N, bool Opacity>
constexpr PlaneShape channelShape() {
  PlaneShape s = baseShape(&invokeChannel<Id, T, N, Opacity>, sizeof(T), sizeof(T) == 1);
  for (int k = 0; k < N; ++k) s.planes[k] = sampleSpec<T>(N == 1 ? "plane" : kPlaneNames[k], Role::InOut);
  s.planes[N] = maskSpec<T>();
  const int sources = N == 1 ? 1 : N + 1;
  for (int k = 0; k < sources; ++k) s.planes[N + 1 + k] = sampleSpec<T>(kSourceNames[k], Role::Input);
  s.planeCount = N + 1 + sources;
  s.params[0] = kUnused0;
  s.params[1] = N == 1 ? ParamSpec{"channel", 0, kWorkerChannels - 1, {0, 1, kWorkerChannels - 1}, 3}
                       : ParamSpec{"channel", 0, 1, {0}, 1};
  s.params[2] = kY;
  s.params[3] = kUnused5;
  if (Opacity) s.params[4] = valueParam<T>("opacity");
  s.paramCount = Opacity ? 5 : 4;
  s.sharedStride = N > 1;
  s.fewerCases = N > 1;
  return s;
}
template <auto Id, class T, int N>
constexpr PlaneShape kShapeS = channelShape<Id, T, N, false>();
template <auto Id, class T, int N>
constexpr PlaneShape kShapeT = channelShape<Id, T, N, true>();

// --- 18, 92: (yRow, xRow, count, offset, offset2, width, weight, record) ---------------
// The check's plane is the part of the buffer the call reaches: rows min(yRow,
// xRow) onward, from column offset. With rows - |yRow - xRow| pairs, row xRow + i
// moves toward row yRow + i (overlapping pairs read rows written earlier in the
// same call). offset2 moves nothing; it is 18's dither y. Parameters: yRow, xRow,
// offset, offset2, weight.

template <auto Id, class T>
uint64_t invokeMove(HostRoutine routine, const PlaneCall& c) {
  const int32_t yRow = i32(c.param[0]), xRow = i32(c.param[1]), offset = i32(c.param[2]);
  const int32_t lowest = yRow < xRow ? yRow : xRow;
  const int32_t apart = yRow < xRow ? xRow - yRow : yRow - xRow;
  const int32_t stride = c.stride[0] - (sizeof(T) == 2 ? (c.stride[0] & 1) : 0);
  PaintRecord record{};
  record.buffer = reinterpret_cast<void*>(reinterpret_cast<uintptr_t>(c.plane[0]) -
                                          static_cast<uintptr_t>(static_cast<intptr_t>(stride) * lowest) -
                                          static_cast<uintptr_t>(offset) * sizeof(T));
  record.bufferStride = c.stride[0];
  const int32_t pairs = c.rows < 1 ? c.rows : c.rows - apart;
  as<Id>(routine)(yRow, xRow, pairs, offset, i32(c.param[3]), c.columns, i32(c.param[4]), &record);
  return 0;
}

template <auto Id, class T>
constexpr PlaneShape moveShape() {
  PlaneShape s = baseShape(&invokeMove<Id, T>, sizeof(T), sizeof(T) == 1);
  s.planes[0] = sampleSpec<T>("buffer", Role::InOut);
  s.planeCount = 1;
  s.params[0] = {"yRow", 0, 2, {0, 1}, 2};
  s.params[1] = {"xRow", 0, 2, {1, 0}, 2};
  s.params[2] = {"offset", 0, 40, {0, 1, 17}, 3};
  s.params[3] = {"offset2", INT32_MIN, INT32_MAX, {0, 1, -1, INT32_MIN, INT32_MAX}, 5};
  s.params[4] = {"weight", 0, 255, {0, 255, 1, 254, 128, 0x100, 0x17F, -1}, 8};
  s.paramCount = 5;
  return s;
}
template <auto Id, class T>
constexpr PlaneShape kShapeMove = moveShape<Id, T>();

// Benchmarks paint a full-size mask of mostly 0 and full values.
constexpr int64_t kBenchP8[] = {0, 3, 5, 200, 180};
constexpr int64_t kBenchP16[] = {0, 3, 5, 30000, 20000};
constexpr int64_t kBenchP8x4[] = {0, 3, 5, 200, 10, 90, 250, 180};
constexpr int64_t kBenchP16x4[] = {0, 3, 5, 30000, 100, 9000, 32000, 20000};
constexpr int64_t kBenchR8[] = {0, 128, 0, 200, 10, 90, 250};
constexpr int64_t kBenchR16[] = {0, 16384, 0, 30000, 100, 9000, 32000};
constexpr int64_t kBenchChannel8[] = {0, 0, 5, 0, 180};
constexpr int64_t kBenchChannel16[] = {0, 0, 5, 0, 20000};
constexpr int64_t kBenchMove[] = {0, 1, 0, 0, 100};

template <auto Id>
constexpr Check check(const PlaneShape& shape) {
  return planeCheck(Id, shape);
}
template <const PlaneShape& Shape, const int64_t* Bench>
constexpr PlaneShape withBench = [] {
  PlaneShape s = Shape;
  s.benchParams = Bench;
  return s;
}();

using u8 = uint8_t;
using u16 = uint16_t;

const Check kChecks[] = {
    check<slot::PaintP8>(withBench<kShapeP<slot::PaintP8, u8, 1>, kBenchP8>),
    check<slot::PaintP8x3>(withBench<kShapeP<slot::PaintP8x3, u8, 3>, kBenchP8x4>),
    check<slot::PaintP8x4>(withBench<kShapeP<slot::PaintP8x4, u8, 4>, kBenchP8x4>),
    check<slot::PaintP16>(withBench<kShapeP<slot::PaintP16, u16, 1>, kBenchP16>),
    check<slot::PaintP16x3>(withBench<kShapeP<slot::PaintP16x3, u16, 3>, kBenchP16x4>),
    check<slot::PaintP16x4>(withBench<kShapeP<slot::PaintP16x4, u16, 4>, kBenchP16x4>),
    check<slot::PaintQ8>(withBench<kShapeQ<slot::PaintQ8, u8, 1>, kBenchP8>),
    check<slot::PaintQ8x3>(withBench<kShapeQ<slot::PaintQ8x3, u8, 3>, kBenchP8x4>),
    check<slot::PaintQ8x4>(withBench<kShapeQ<slot::PaintQ8x4, u8, 4>, kBenchP8x4>),
    check<slot::PaintQ16>(withBench<kShapeQ<slot::PaintQ16, u16, 1>, kBenchP16>),
    check<slot::PaintQ16x3>(withBench<kShapeQ<slot::PaintQ16x3, u16, 3>, kBenchP16x4>),
    check<slot::PaintQ16x4>(withBench<kShapeQ<slot::PaintQ16x4, u16, 4>, kBenchP16x4>),
    check<slot::PaintSingle5>(withBench<kShapeQ<slot::PaintSingle5, u8, 1>, kBenchP8>),
    check<slot::PaintSingle81>(withBench<kShapeQ<slot::PaintSingle81, u16, 1>, kBenchP16>),
    check<slot::PaintR8>(withBench<kShapeR<slot::PaintR8, u8, 1>, kBenchR8>),
    check<slot::PaintR8x3>(withBench<kShapeR<slot::PaintR8x3, u8, 3>, kBenchR8>),
    check<slot::PaintR8x4>(withBench<kShapeR<slot::PaintR8x4, u8, 4>, kBenchR8>),
    check<slot::PaintR16>(withBench<kShapeR<slot::PaintR16, u16, 1>, kBenchR16>),
    check<slot::PaintR16x3>(withBench<kShapeR<slot::PaintR16x3, u16, 3>, kBenchR16>),
    check<slot::PaintR16x4>(withBench<kShapeR<slot::PaintR16x4, u16, 4>, kBenchR16>),
    check<slot::PaintS8>(withBench<kShapeS<slot::PaintS8, u8, 1>, kBenchChannel8>),
    check<slot::PaintS8x3>(withBench<kShapeS<slot::PaintS8x3, u8, 3>, kBenchChannel8>),
    check<slot::PaintS8x4>(withBench<kShapeS<slot::PaintS8x4, u8, 4>, kBenchChannel8>),
    check<slot::PaintS16>(withBench<kShapeS<slot::PaintS16, u16, 1>, kBenchChannel16>),
    check<slot::PaintS16x3>(withBench<kShapeS<slot::PaintS16x3, u16, 3>, kBenchChannel16>),
    check<slot::PaintS16x4>(withBench<kShapeS<slot::PaintS16x4, u16, 4>, kBenchChannel16>),
    check<slot::PaintT8>(withBench<kShapeT<slot::PaintT8, u8, 1>, kBenchChannel8>),
    check<slot::PaintT8x3>(withBench<kShapeT<slot::PaintT8x3, u8, 3>, kBenchChannel8>),
    check<slot::PaintT8x4>(withBench<kShapeT<slot::PaintT8x4, u8, 4>, kBenchChannel8>),
    check<slot::PaintT16>(withBench<kShapeT<slot::PaintT16, u16, 1>, kBenchChannel16>),
    check<slot::PaintT16x3>(withBench<kShapeT<slot::PaintT16x3, u16, 3>, kBenchChannel16>),
    check<slot::PaintT16x4>(withBench<kShapeT<slot::PaintT16x4, u16, 4>, kBenchChannel16>),
    check<slot::PaintSingle18>(withBench<kShapeMove<slot::PaintSingle18, u8>, kBenchMove>),
    check<slot::PaintSingle9>(withBench<kShapeR<slot::PaintSingle9, u8, 1>, kBenchR8>),
    check<slot::PaintSingle92>(withBench<kShapeMove<slot::PaintSingle92, u16>, kBenchMove>),
};

}  // namespace

std::span<const Check> checksPaint() { return kChecks; }

}  // namespace tarnell::verify
