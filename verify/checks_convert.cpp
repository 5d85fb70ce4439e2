// Checks of the 'conv' suite and of the noise hook its installer puts in 'core'
// slot 3. The five conversions are plane checks; dithered conversions read the
// noise buffer that the reference host registered, and the runner's widths of
// 4095..4097 and 8191/8193 columns pass the 2048 columns that the host's default
// 8192 bytes of repeated noise allow, so the column splitting is exercised.
#include <string>
#include <vector>

#include "refhost/refhost.h"
#include "verify/families.h"

namespace tarnell::verify {

namespace {


template <typename T>
T* plane(const PlaneCall& call, int p) {
  return static_cast<T*>(call.plane[p]);
}

uint8_t byteParam(const PlaneCall& call, int i) { return static_cast<uint8_t>(call.param[i]); }

// 16-bit planes step rows by the stride rounded down to even bytes, float planes
// by the stride divided by 4 truncating; the runner passes odd strides as they come.
int32_t wordStride(int32_t stride) { return stride - (stride & 1); }
int32_t floatStride(int32_t stride) { return stride / 4 * 4; }

// Dither flag: 0 (none), else any non-zero byte.
constexpr ParamSpec kDither{"dither", 0, 255, {0, 1, 0, 1, 255, 128}, 6};
constexpr int64_t kBenchNoDither[] = {0};

// --- slot 16: three 16-bit planes to three 8-bit planes

uint64_t invokePlanar3(HostRoutine routine, const PlaneCall& c) {
  as<slot::convert16To8Planar3>(routine)(plane<const uint16_t>(c, 0), plane<const uint16_t>(c, 1), plane<const uint16_t>(c, 2),
                              plane<uint8_t>(c, 3), plane<uint8_t>(c, 4), plane<uint8_t>(c, 5), c.rows, c.columns,
                              c.stride[0], c.stride[3], byteParam(c, 0));
  return 0;
}
int32_t planar3Stride(int p, int32_t stride) { return p < 3 ? wordStride(stride) : stride; }

const PlaneShape kPlanar3{.planes = {{"source0", 2, Role::Input, Samples::Words15},
                                     {"source1", 2, Role::Input, Samples::Words15},
                                     {"source2", 2, Role::Input, Samples::Words15},
                                     {"destination0", 1, Role::Output, Samples::Bytes},
                                     {"destination1", 1, Role::Output, Samples::Bytes},
                                     {"destination2", 1, Role::Output, Samples::Bytes}},
                          .planeCount = 6,
                          .params = {kDither},
                          .paramCount = 1,
                          .invoke = &invokePlanar3,
                          .alignPlane = 3,
                          .negativeStrides = true,
                          .sharedStride = true,  // one stride for the sources, one for the destinations
                          .usedStride = &planar3Stride,
                          .benchParams = kBenchNoDither,
                          .sameAddresses = true};  // the dither pattern follows the destination address

// --- slot 17: one 16-bit plane to one 8-bit plane

uint64_t invoke16To8(HostRoutine routine, const PlaneCall& c) {
  as<slot::convert16To8>(routine)(plane<const uint16_t>(c, 0), plane<uint8_t>(c, 1), c.rows, c.columns, c.stride[0],
                              c.stride[1], byteParam(c, 0));
  return 0;
}
int32_t sourceWordStride(int p, int32_t stride) { return p == 0 ? wordStride(stride) : stride; }

const PlaneShape k16To8{
    .planes = {{"source", 2, Role::Input, Samples::Words15}, {"destination", 1, Role::Output, Samples::Bytes}},
    .planeCount = 2,
    .params = {kDither},
    .paramCount = 1,
    .invoke = &invoke16To8,
    .alignPlane = 1,
    .negativeStrides = true,
    .usedStride = &sourceWordStride,
    .benchParams = kBenchNoDither,
    .sameAddresses = true};

// --- slot 18: one 8-bit plane to one 16-bit plane

uint64_t invoke8To16(HostRoutine routine, const PlaneCall& c) {
  as<slot::convert8To16>(routine)(plane<const uint8_t>(c, 0), plane<uint16_t>(c, 1), c.rows, c.columns, c.stride[0],
                              c.stride[1]);
  return 0;
}
int32_t destinationWordStride(int p, int32_t stride) { return p == 1 ? wordStride(stride) : stride; }

const PlaneShape k8To16{
    .planes = {{"source", 1, Role::Input, Samples::Bytes}, {"destination", 2, Role::Output, Samples::Words15}},
    .planeCount = 2,
    .params = {},
    .paramCount = 0,
    .invoke = &invoke8To16,
    .alignPlane = 1,
    .negativeStrides = true,
    .usedStride = &destinationWordStride};

// --- slot 19: 16-bit range re-scaling in place. The pair parameter picks
// (source maximum, target maximum): 0 is 65535 -> 32768 and 1 is 32768 -> 65535 (the
// module's own), the others go to the host's routine through the module.

constexpr uint32_t kRangePairs[][2] = {{65535, 32768}, {32768, 65535}, {65535, 65535}, {32768, 32768},
                                       {255, 32768},   {32768, 255},   {65536, 32768}, {0, 65535}};

uint64_t invokeRescale(HostRoutine routine, const PlaneCall& c) {
  const auto* pair = kRangePairs[c.param[0]];
  as<slot::rescale16>(routine)(plane<uint16_t>(c, 0), pair[0], pair[1], c.rows, c.columns, c.stride[0]);
  return 0;
}
int32_t dataWordStride(int, int32_t stride) { return wordStride(stride); }
constexpr int64_t kBenchUp[] = {1};

const PlaneShape kRescale{.planes = {{"data", 2, Role::InOut, Samples::Words16}},
                          .planeCount = 1,
                          .params = {{"pair", 0, 7, {0, 1, 0, 1, 0, 1}, 6}},
                          .paramCount = 1,
                          .invoke = &invokeRescale,
                          .alignPlane = 0,
                          .negativeStrides = true,
                          .usedStride = &dataWordStride,
                          .benchParams = kBenchUp};

// --- slot 58: float plane to 8-bit plane. With dither the module hands the call
// to the host's routine, which must then produce the host's bytes.

uint64_t invokeFloatTo8(HostRoutine routine, const PlaneCall& c) {
  as<slot::convertFloatTo8>(routine)(plane<const float>(c, 0), plane<uint8_t>(c, 1), c.rows, c.columns, c.stride[0],
                              c.stride[1], byteParam(c, 0));
  return 0;
}
int32_t sourceFloatStride(int p, int32_t stride) { return p == 0 ? floatStride(stride) : stride; }

const PlaneShape kFloatTo8{
    .planes = {{"source", 4, Role::Input, Samples::FloatsWide}, {"destination", 1, Role::Output, Samples::Bytes}},
    .planeCount = 2,
    .params = {{"dither", 0, 0, {0, 0, 0, 1}, 4}},
    .paramCount = 1,
    .invoke = &invokeFloatTo8,
    .alignPlane = 1,
    .negativeStrides = true,
    .usedStride = &sourceFloatStride,
    .benchParams = kBenchNoDither,
    .sameAddresses = true};

// --- 'core' slot 3: the noise hook keeps the buffer for the dithered routines and
// hands the registration on. Each call must reach the host's routine once, with the
// same three arguments, and return its result (the reference host answers with
// its count of registrations). The hook is given the host's own buffer, so what
// the module keeps stays what the dithered checks expect. It moves no planes:
// nothing to bench.

void verifyNoiseHook(Context& ctx, HostRoutine /*host*/, HostRoutine module) {
  refhost::ReferenceHost& host = ctx.host();
  const auto hook = as<slot::registerNoiseTable>(module);
  for (int i : ctx.range(1, 3)) {
    const std::size_t before = host.noiseRegistrations().size();
    const int32_t result = hook(host.noiseBase(), host.noiseSizeBytes(), host.noisePeriodBytes());
    const std::vector<refhost::NoiseRegistration> after = host.noiseRegistrations();
    std::string problem;
    if (after.size() != before + 1) {
      problem = "the host's routine was called " + std::to_string(after.size() - before) + " times, not once";
    } else if (after.back().base != host.noiseBase() || after.back().size != host.noiseSizeBytes() ||
               after.back().period != host.noisePeriodBytes()) {
      problem = "the host's routine got other arguments (size " + std::to_string(after.back().size) + ", period " +
                std::to_string(after.back().period) + ")";
    } else {
      problem = resultMismatch(static_cast<uint64_t>(after.size()), static_cast<uint64_t>(result));
    }
    if (!ctx.judge(words("registration", i), problem)) return;
  }
}

// Only the module's hook runs: its hand-on of the registration is judged above.
constexpr CallKey kRegistration[] = {{code::core, 3}};

const Check kChecks[] = {
    planeCheck(slot::convert16To8Planar3, kPlanar3), planeCheck(slot::convert16To8, k16To8),    planeCheck(slot::convert8To16, k8To16),
    planeCheck(slot::rescale16, kRescale), planeCheck(slot::convertFloatTo8, kFloatTo8),
    judgingCalls(customCheck(slot::registerNoiseTable, &verifyNoiseHook, nullptr), kRegistration),
};

}  // namespace

std::span<const Check> checksConvert() { return kChecks; }

}  // namespace tarnell::verify
