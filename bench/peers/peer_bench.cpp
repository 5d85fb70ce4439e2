// The module against the libraries users would otherwise reach for (OpenCV and
// pixman), on the very same planes, single-threaded, at 256x256, 1024x1024 and
// 4096x4096, with a summary of module / peer throughput per operation at the end.
//
// The module is loaded from its file and started against the reference host, and
// its routines are called through the host's live table, as a host calls them.
//
// Adding an operation is one entry of operations(): a name, the module's slot, the
// sample kinds of the source and destination planes, how the module's slot is
// called on the planes, and one line per peer doing the same work. An entry whose
// slot the module did not replace (a family not built yet, a processor without the
// tier) is left out.
#include <benchmark/benchmark.h>
#include <pixman.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <string>
#include <utility>
#include <vector>

#include "refhost/refhost.h"
#include "verify/session.h"

namespace {

using namespace tarnell;

// ------------------------------------------------------------------ planes

enum class Sample { None, U8, U16, F32 };

int bytesOf(Sample s) { return s == Sample::U8 ? 1 : s == Sample::U16 ? 2 : s == Sample::F32 ? 4 : 0; }
int cvTypeOf(Sample s) { return s == Sample::U8 ? CV_8U : s == Sample::U16 ? CV_16U : CV_32F; }

// One plane with tight, 64-byte aligned rows holding in-range samples (16-bit up to
// 32768, floats in 0..1), seen by the module as a pointer and a byte stride, by
// OpenCV as a Mat over the same memory, and by pixman as an a8 image (8-bit planes).
class Plane {
 public:
  Plane(Sample kind, int32_t rows, int32_t columns, uint32_t seed)
      : rows_(rows), stride_(columns * bytesOf(kind)) {
    const std::size_t bytes = static_cast<std::size_t>(rows) * static_cast<std::size_t>(stride_);
    data_ = static_cast<uint8_t*>(std::aligned_alloc(64, (bytes + 63) / 64 * 64));
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
    mat_ = cv::Mat(rows, columns, cvTypeOf(kind), data_, static_cast<std::size_t>(stride_));
    if (kind == Sample::U8)
      image_ = pixman_image_create_bits(PIXMAN_a8, columns, rows, reinterpret_cast<uint32_t*>(data_), stride_);
  }
  Plane(const Plane&) = delete;
  Plane& operator=(const Plane&) = delete;
  ~Plane() {
    if (image_ != nullptr) pixman_image_unref(image_);
    std::free(data_);
  }

  template <typename T = uint8_t>
  T* data() const {
    return reinterpret_cast<T*>(data_);
  }
  int32_t stride() const { return stride_; }
  cv::Mat& mat() { return mat_; }
  pixman_image_t* image() const { return image_; }
  uint32_t* words() const { return reinterpret_cast<uint32_t*>(data_); }
  int wordStride() const { return stride_ / 4; }
  std::size_t bytes() const { return static_cast<std::size_t>(rows_) * static_cast<std::size_t>(stride_); }

 private:
  int32_t rows_;
  int32_t stride_;
  uint8_t* data_ = nullptr;
  cv::Mat mat_;
  pixman_image_t* image_ = nullptr;
};

// The planes of one operation at one size: planes source and destination planes
// (three of each for the three-plane conversion).
struct Planes {
  Planes(Sample source, Sample destination, int count, int32_t rows_, int32_t columns_)
      : rows(rows_), columns(columns_) {
    for (int k = 0; k < count; ++k) {
      if (source != Sample::None)
        sources.push_back(std::make_unique<Plane>(source, rows, columns, 17u + static_cast<uint32_t>(k)));
      destinations.push_back(std::make_unique<Plane>(destination, rows, columns, 91u + static_cast<uint32_t>(k)));
    }
  }
  Plane& s(int k = 0) { return *sources[static_cast<std::size_t>(k)]; }
  Plane& d(int k = 0) { return *destinations[static_cast<std::size_t>(k)]; }
  std::size_t bytes() const {
    std::size_t total = 0;
    for (const auto& p : sources) total += p->bytes();
    for (const auto& p : destinations) total += p->bytes();
    return total;
  }
  int32_t rows, columns;
  std::vector<std::unique_ptr<Plane>> sources, destinations;
};

// ------------------------------------------------------------- operations

template <uint32_t Suite, int Slot>
SlotFn<Suite, Slot> slot(HostRoutine routine) {
  return reinterpret_cast<SlotFn<Suite, Slot>>(routine);
}

using ModuleCall = void (*)(HostRoutine, Planes&);
using PeerCall = void (*)(Planes&);

struct Peer {
  const char* name;
  PeerCall call;
};

struct Operation {
  const char* name;
  uint32_t suite;
  int slot;
  Sample source, destination;
  int planes;  // per side
  ModuleCall module;
  std::vector<Peer> peers;
};

// An a8 destination IN an a8 source or a solid alpha: d = d * s / 255, rounded.
void pixmanIn(pixman_image_t* source, Planes& p) {
  pixman_image_composite32(PIXMAN_OP_IN, source, nullptr, p.d().image(), 0, 0, 0, 0, 0, 0, p.columns, p.rows);
}

constexpr uint8_t kScale = 200;  // ScaleByConstant8's constant
constexpr uint32_t kFill = 0x5A5A5A5Au;

// ScaleByConstant8's constant as a solid pixman alpha.
pixman_image_t* solidScale() {
  static pixman_image_t* const solid = [] {
    const pixman_color_t color{0, 0, 0, kScale * 257};
    return pixman_image_create_solid_fill(&color);
  }();
  return solid;
}

const std::vector<Operation>& operations() {
  static const std::vector<Operation> list = {
      // 'blnd' 8-bit: d = d * s / 255 rounded; d = max, min(d, s); d = d * k / 255.
      {"multiply8", code::blnd, 24, Sample::U8, Sample::U8, 1,
       [](HostRoutine r, Planes& p) {
         slot<code::blnd, 24>(r)(p.s().data(), p.d().data(), p.rows, p.columns, p.s().stride(), p.d().stride());
       },
       {{"opencv", [](Planes& p) { cv::multiply(p.s().mat(), p.d().mat(), p.d().mat(), 1.0 / 255.0); }},
        {"pixman", [](Planes& p) { pixmanIn(p.s().image(), p); }}}},
      {"max8", code::blnd, 28, Sample::U8, Sample::U8, 1,
       [](HostRoutine r, Planes& p) {
         slot<code::blnd, 28>(r)(p.s().data(), p.d().data(), p.rows, p.columns, p.s().stride(), p.d().stride());
       },
       {{"opencv", [](Planes& p) { cv::max(p.s().mat(), p.d().mat(), p.d().mat()); }}}},
      {"min8", code::blnd, 29, Sample::U8, Sample::U8, 1,
       [](HostRoutine r, Planes& p) {
         slot<code::blnd, 29>(r)(p.s().data(), p.d().data(), p.rows, p.columns, p.s().stride(), p.d().stride());
       },
       {{"opencv", [](Planes& p) { cv::min(p.s().mat(), p.d().mat(), p.d().mat()); }}}},
      {"scale8", code::blnd, 1, Sample::None, Sample::U8, 1,
       [](HostRoutine r, Planes& p) { slot<code::blnd, 1>(r)(p.d().data(), p.rows, p.columns, p.d().stride(), kScale); },
       {{"opencv", [](Planes& p) { p.d().mat().convertTo(p.d().mat(), CV_8U, kScale / 255.0); }},
        {"pixman", [](Planes& p) { pixmanIn(solidScale(), p); }}}},

      // 'conv': the depth conversions, each against convertTo with the same scale.
      {"convert16To8", code::conv, 17, Sample::U16, Sample::U8, 1,
       [](HostRoutine r, Planes& p) {
         slot<code::conv, 17>(r)(p.s().data<uint16_t>(), p.d().data(), p.rows, p.columns, p.s().stride(), p.d().stride(),
                                 0);
       },
       {{"opencv", [](Planes& p) { p.s().mat().convertTo(p.d().mat(), CV_8U, 255.0 / 32768.0); }}}},
      {"convert16To8Planar3", code::conv, 16, Sample::U16, Sample::U8, 3,
       [](HostRoutine r, Planes& p) {
         slot<code::conv, 16>(r)(p.s(0).data<uint16_t>(), p.s(1).data<uint16_t>(), p.s(2).data<uint16_t>(),
                                 p.d(0).data(), p.d(1).data(), p.d(2).data(), p.rows, p.columns, p.s().stride(),
                                 p.d().stride(), 0);
       },
       {{"opencv", [](Planes& p) {
          for (int k = 0; k < 3; ++k) p.s(k).mat().convertTo(p.d(k).mat(), CV_8U, 255.0 / 32768.0);
        }}}},
      {"convert8To16", code::conv, 18, Sample::U8, Sample::U16, 1,
       [](HostRoutine r, Planes& p) {
         slot<code::conv, 18>(r)(p.s().data(), p.d().data<uint16_t>(), p.rows, p.columns, p.s().stride(),
                                 p.d().stride());
       },
       {{"opencv", [](Planes& p) { p.s().mat().convertTo(p.d().mat(), CV_16U, 32768.0 / 255.0); }}}},
      {"rescale16", code::conv, 19, Sample::None, Sample::U16, 1,
       [](HostRoutine r, Planes& p) {
         slot<code::conv, 19>(r)(p.d().data<uint16_t>(), 32768, 65535, p.rows, p.columns, p.d().stride());
       },
       {{"opencv", [](Planes& p) { p.d().mat().convertTo(p.d().mat(), CV_16U, 65535.0 / 32768.0); }}}},
      {"convertFloatTo8", code::conv, 58, Sample::F32, Sample::U8, 1,
       [](HostRoutine r, Planes& p) {
         slot<code::conv, 58>(r)(p.s().data<float>(), p.d().data(), p.rows, p.columns, p.s().stride(), p.d().stride(),
                                 0);
       },
       {{"opencv", [](Planes& p) { p.s().mat().convertTo(p.d().mat(), CV_8U, 255.0); }}}},

      // 'memo': block copies and fills of 8-, 16- and 32-bit samples. pixman copies
      // the same bytes as 32-bit pixels (its vector blit has no 8-bit form).
      {"copy8", code::memo, 1, Sample::U8, Sample::U8, 1,
       [](HostRoutine r, Planes& p) {
         slot<code::memo, 1>(r)(p.s().data(), p.d().data(), p.rows, p.columns, p.s().stride(), p.d().stride());
       },
       {{"opencv", [](Planes& p) { p.s().mat().copyTo(p.d().mat()); }},
        {"pixman", [](Planes& p) {
           pixman_blt(p.s().words(), p.d().words(), p.s().wordStride(), p.d().wordStride(), 32, 32, 0, 0, 0, 0,
                      p.columns / 4, p.rows);
         }}}},
      {"fill8", code::memo, 4, Sample::None, Sample::U8, 1,
       [](HostRoutine r, Planes& p) {
         slot<code::memo, 4>(r)(p.d().data(), p.rows, p.columns, p.d().stride(), static_cast<uint8_t>(kFill));
       },
       {{"opencv", [](Planes& p) { p.d().mat().setTo(cv::Scalar(kFill & 0xFF)); }},
        {"pixman", [](Planes& p) {
           pixman_fill(p.d().words(), p.d().wordStride(), 8, 0, 0, p.columns, p.rows, kFill);
         }}}},
      {"fill16", code::memo, 66, Sample::None, Sample::U16, 1,
       [](HostRoutine r, Planes& p) {
         slot<code::memo, 66>(r)(p.d().data(), p.rows, p.columns, p.d().stride(), static_cast<uint16_t>(kFill));
       },
       {{"opencv", [](Planes& p) { p.d().mat().setTo(cv::Scalar(kFill & 0xFFFF)); }},
        {"pixman", [](Planes& p) {
           pixman_fill(p.d().words(), p.d().wordStride(), 16, 0, 0, p.columns, p.rows, kFill);
         }}}},
      {"fill32", code::memo, 137, Sample::None, Sample::F32, 1,
       [](HostRoutine r, Planes& p) {
         slot<code::memo, 137>(r)(p.d().data(), p.rows, p.columns, p.d().stride(), kFill);
       },
       {{"opencv", [](Planes& p) { p.d().mat().setTo(cv::Scalar(0.25)); }},
        {"pixman", [](Planes& p) {
           pixman_fill(p.d().words(), p.d().wordStride(), 32, 0, 0, p.columns, p.rows, kFill);
         }}}},

      // Later families add their entries here, for example:
      //   {"boxMean16 r=3", code::filt, 75, Sample::U16, Sample::U16, 1,
      //    [](HostRoutine r, Planes& p) { slot<code::filt, 75>(r)(/* the slot's arguments */); },
      //    {{"opencv", [](Planes& p) {
      //       cv::boxFilter(p.s().mat(), p.d().mat(), -1, {7, 7}, {-1, -1}, true, cv::BORDER_REPLICATE); }}}},
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
    planes = std::make_unique<Planes>(op.source, op.destination, op.planes, size, size);
    current = &op;
    currentSize = size;
  }
  return *planes;
}

constexpr int32_t kSizes[] = {256, 1024, 4096};

struct Entry {
  std::string operation, size, side;
  std::size_t bytesPerCall;
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
  const std::size_t bytes = static_cast<std::size_t>(size) * static_cast<std::size_t>(size) *
                            static_cast<std::size_t>(op.planes * (bytesOf(op.source) + bytesOf(op.destination)));
  entries()[name] = {op.name, sizeText, side, bytes};
  order().push_back(name);
  benchmark::RegisterBenchmark(name.c_str(), [&op, size, call, bytes](benchmark::State& state) {
    Planes& planes = planesFor(op, size);
    for (auto _ : state) {
      call(planes);
      benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(bytes));
  })->Unit(benchmark::kMicrosecond);
}

void registerAll(const refhost::ReferenceHost& host) {
  for (const Operation& op : operations()) {
    if (!host.replaced(op.suite, op.slot)) {
      std::fprintf(stderr, "tarnell_peer_bench: %s skipped (the module does not replace its slot)\n", op.name);
      continue;
    }
    const HostRoutine routine = host.live(op.suite, op.slot);
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

void printSummary(Collector& collector) {
  std::printf("\nmodule / peer (throughput ratio; above 1 the module is faster)\n");
  std::printf("%-22s %-10s %12s %-8s %12s %8s\n", "operation", "size", "module GB/s", "peer", "peer GB/s", "ratio");
  for (const std::string& name : order()) {
    const Entry& e = entries().at(name);
    if (e.side == "module") continue;
    const std::string moduleName = e.operation + "/" + e.size + "/module";
    const double peerSeconds = collector.seconds(name), moduleSeconds = collector.seconds(moduleName);
    if (peerSeconds <= 0 || moduleSeconds <= 0) continue;
    const double gb = static_cast<double>(e.bytesPerCall) / 1e9;
    std::printf("%-22s %-10s %12.2f %-8s %12.2f %7.2fx\n", e.operation.c_str(), e.size.c_str(), gb / moduleSeconds,
                e.side.c_str(), gb / peerSeconds, peerSeconds / moduleSeconds);
  }
}

}  // namespace

int main(int argc, char** argv) {
  cv::setNumThreads(0);  // OpenCV runs everything on the calling thread
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
  std::fprintf(stderr, "tarnell_peer_bench: OpenCV %s (%d thread), pixman %s\n", CV_VERSION, cv::getNumThreads(),
               pixman_version_string());
  registerAll(host);
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  Collector collector;
  benchmark::RunSpecifiedBenchmarks(&collector);
  printSummary(collector);
  benchmark::Shutdown();
  return 0;
}
