#include "refhost/refhost.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace tarnell::refhost {

namespace {

ReferenceHost* g_active = nullptr;
std::mutex g_activeMutex;

// A stand-in for a slot the host has no portable routine for: it records the
// call, so that tests can see that a call reached the host, and returns 0.
// One distinct routine per (suite, slot), so that every slot's address differs.
template <int SuiteIndex, int Slot>
uintptr_t recorder(uintptr_t a, uintptr_t b, uintptr_t c, uintptr_t d) {
  if (ReferenceHost* host = ReferenceHost::active())
    host->record({kSuites[SuiteIndex].key, Slot, {a, b, c, d}});
  return 0;
}

template <int SuiteIndex, std::size_t... Slot>
std::vector<HostRoutine> makeRecorders(std::index_sequence<Slot...>) {
  return {reinterpret_cast<HostRoutine>(&recorder<SuiteIndex, static_cast<int>(Slot)>)...};
}

template <std::size_t... SuiteIndex>
std::array<std::vector<HostRoutine>, kSuiteCount> makeAllRecorders(std::index_sequence<SuiteIndex...>) {
  return {makeRecorders<static_cast<int>(SuiteIndex)>(
      std::make_index_sequence<static_cast<std::size_t>(kSuites[SuiteIndex].slotCount)>())...};
}

const std::array<std::vector<HostRoutine>, kSuiteCount>& recorders() {
  static const auto all = makeAllRecorders(std::make_index_sequence<kSuiteCount>());
  return all;
}

// --- host services ----------------------------------------------------------

// 'core' 0: the buffer notification; the host only records it.
int32_t notifyBuffer(uintptr_t a, uintptr_t b, uintptr_t c, uintptr_t d) {
  if (ReferenceHost* host = ReferenceHost::active()) host->record({code::core, 0, {a, b, c, d}});
  return 0;
}

// 'core' 3: the host keeps its own record of the noise buffer. The result is the
// number of registrations so far, so a caller can tell the call went through.
int32_t registerNoiseTable(const void* base, uint32_t size, uint32_t period) {
  ReferenceHost* host = ReferenceHost::active();
  if (host == nullptr) return 0;
  host->recordNoise({base, size, period});
  return static_cast<int32_t>(host->noiseRegistrations().size());
}

// 'core' 5: suite lookup ('QRXM') and gestalts ('QRIM').
uint8_t query(uint32_t requester, uint32_t selector, void* out, const void* /*context*/) {
  ReferenceHost* host = ReferenceHost::active();
  if (host == nullptr) return 0;
  host->recordQuery(requester, selector);
  if (requester == code::requesterModule) {
    HostSuite* suite = host->offeredSuite(selector);
    if (suite == nullptr) return 0;
    *static_cast<HostSuite**>(out) = suite;
    return 1;
  }
  if (requester == code::gestaltClass) {
    const GestaltAnswer* answer = selector == code::pathDebug        ? &host->options().pathDebug
                                  : selector == code::pathDebugGuard ? &host->options().pathDebugGuard
                                                                     : nullptr;
    if (answer == nullptr || !answer->recognised) return 0;
    *static_cast<uint64_t*>(out) = answer->answer;
    return 1;
  }
  return 0;
}

// 'core' 16: diagnostics are captured, never printed.
void report(const char* message, const char* source, int32_t line, int32_t severity) {
  if (ReferenceHost* host = ReferenceHost::active())
    host->recordDiagnostic({message ? message : "", source ? source : "", line, severity});
}

// 'memo' 0: byte copy; overlapping runs copy as if through a temporary.
void copyBytes(const void* source, void* destination, int32_t count) {
  if (count < 1 || source == destination) return;
  const auto* s = static_cast<const unsigned char*>(source);
  auto* d = static_cast<unsigned char*>(destination);
  if (d > s && d < s + count) {
    for (int32_t i = count; i-- > 0;) d[i] = s[i];
  } else {
    for (int32_t i = 0; i < count; ++i) d[i] = s[i];
  }
}

// 'memo' 3: byte fill.
void fillBytes(void* destination, int32_t count, uint8_t value) {
  auto* d = static_cast<unsigned char*>(destination);
  for (int32_t i = 0; i < count; ++i) d[i] = value;
}

// 'memo' 110: fills a float rectangle. stride is in bytes, sampleStep in floats;
// rows or columns below 1 do nothing. Every call is recorded as (destination,
// columns | rows << 32, stride | sampleStep << 32, the value's bits).
void fillFloatRect(float* destination, int32_t columns, int32_t rows, int32_t stride, int32_t sampleStep,
                   float value) {
  if (ReferenceHost* host = ReferenceHost::active()) {
    uint32_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    auto pair = [](int32_t low, int32_t high) {
      return uintptr_t{static_cast<uint32_t>(low)} | (uintptr_t{static_cast<uint32_t>(high)} << 32);
    };
    host->record({code::memo, 110, {reinterpret_cast<uintptr_t>(destination), pair(columns, rows),
                                    pair(stride, sampleStep), bits}});
  }
  for (int32_t r = 0; r < rows; ++r) {
    auto* row = reinterpret_cast<float*>(reinterpret_cast<unsigned char*>(destination) +
                                         static_cast<intptr_t>(r) * stride);
    for (int32_t c = 0; c < columns; ++c) row[static_cast<intptr_t>(c) * sampleStep] = value;
  }
}

const PortableRoutine kServices[] = {
    portable(slot::notifyBuffer, &notifyBuffer), portable(slot::registerNoiseTable, &registerNoiseTable),
    portable(slot::query, &query),        portable(slot::report, &report),
    portable(slot::copyBytes, &copyBytes),    portable(slot::fillBytes, &fillBytes),
    portable(slot::fillFloatRect, &fillFloatRect),
};

// The host's dither noise: 16-bit entries, one period then a repeat of its start,
// so a run of (size - period) bytes can be read from any point of the period.
std::vector<uint16_t> makeNoise(const HostOptions& options) {
  if (options.noisePeriodBytes % 2 != 0 || options.noiseRoomBytes % 2 != 0 ||
      options.noiseRoomBytes > options.noisePeriodBytes)
    throw std::invalid_argument("noise period and room must be even, room at most the period");
  const std::size_t period = options.noisePeriodBytes / 2;
  std::vector<uint16_t> noise(period + options.noiseRoomBytes / 2);
  uint64_t state = options.noiseSeed;
  for (std::size_t i = 0; i < period; ++i) {
    state = state * 6364136223846793005ULL + 1442695040888963407ULL;
    noise[i] = static_cast<uint16_t>(state >> 48);
  }
  for (std::size_t i = period; i < noise.size(); ++i) noise[i] = noise[i - period];
  return noise;
}

bool contains(const std::vector<uint32_t>& keys, uint32_t key) {
  return std::find(keys.begin(), keys.end(), key) != keys.end();
}

}  // namespace

ReferenceHost::ReferenceHost(HostOptions options) : options_(std::move(options)), noise_(makeNoise(options_)) {
  const auto& stand_ins = recorders();
  for (int i = 0; i < kSuiteCount; ++i) {
    tables_[i] = stand_ins[static_cast<std::size_t>(i)];
    portable_[i].assign(tables_[i].size(), false);
  }
  auto install = [this](const PortableRoutine& p) {
    const int index = suiteIndexOf(p.suite);
    tables_[index].at(static_cast<std::size_t>(p.slot)) = p.routine;
    portable_[index].at(static_cast<std::size_t>(p.slot)) = true;
  };
  for (const PortableRoutine& p : kServices) install(p);
  for (const PortableRoutine& p : allPortableRoutines()) install(p);
  for (int i = 0; i < kSuiteCount; ++i) originals_[i] = tables_[i];

  std::vector<HostSuite> entries;
  for (int i = 0; i < kSuiteCount; ++i) {
    const SuiteSpec& desc = kSuites[i];
    HostSuite suite{desc.key, desc.version, desc.minRevision, tables_[i].data()};
    if (auto v = options_.version.find(desc.key); v != options_.version.end()) suite.version = v->second;
    if (auto r = options_.revision.find(desc.key); r != options_.revision.end()) suite.revision = r->second;
    if (contains(options_.offerThroughQuery, desc.key)) {
      offered_.push_back(suite);
    } else if (!contains(options_.omit, desc.key)) {
      entries.push_back(suite);
    }
  }
  directory_.assign(kHostInfoEntriesOffset + entries.size() * sizeof(HostSuite), 0);
  HostInfo header{0x51525848u /* anything: never read */,
                  options_.overrideEntryCount ? options_.entryCount : static_cast<int32_t>(entries.size())};
  std::memcpy(directory_.data(), &header, sizeof header);
  if (!entries.empty())
    std::memcpy(directory_.data() + kHostInfoEntriesOffset, entries.data(), entries.size() * sizeof(HostSuite));

  std::lock_guard lock(g_activeMutex);
  previous_ = g_active;
  g_active = this;
}

ReferenceHost::~ReferenceHost() {
  std::lock_guard lock(g_activeMutex);
  if (g_active == this) g_active = previous_;
}

ReferenceHost* ReferenceHost::active() {
  std::lock_guard lock(g_activeMutex);
  return g_active;
}

HostRoutine* ReferenceHost::liveTable(uint32_t key) { return tables_[suiteIndexOf(key)].data(); }

HostRoutine ReferenceHost::original(uint32_t key, int slot) const {
  return originals_[suiteIndexOf(key)].at(static_cast<std::size_t>(slot));
}

HostRoutine ReferenceHost::live(uint32_t key, int slot) const {
  return tables_[suiteIndexOf(key)].at(static_cast<std::size_t>(slot));
}

bool ReferenceHost::hasPortable(uint32_t key, int slot) const {
  return portable_[suiteIndexOf(key)].at(static_cast<std::size_t>(slot));
}

std::vector<int> ReferenceHost::replacedSlots(uint32_t key) const {
  std::vector<int> slots;
  const int index = suiteIndexOf(key);
  for (std::size_t s = 0; s < tables_[index].size(); ++s)
    if (tables_[index][s] != originals_[index][s]) slots.push_back(static_cast<int>(s));
  return slots;
}

int32_t ReferenceHost::registerNoise() {
  auto registerFn = reinterpret_cast<SlotFnOf<slot::registerNoiseTable>>(live(code::core, 3));
  return registerFn(noise_.data(), noiseSizeBytes(), noisePeriodBytes());
}

HostSuite* ReferenceHost::offeredSuite(uint32_t key) {
  for (HostSuite& suite : offered_)
    if (suite.key == key) return &suite;
  return nullptr;
}

void ReferenceHost::record(const CallRecord& call) {
  std::lock_guard lock(mutex_);
  calls_.push_back(call);
}
void ReferenceHost::recordDiagnostic(Diagnostic diagnostic) {
  std::lock_guard lock(mutex_);
  diagnostics_.push_back(std::move(diagnostic));
}
void ReferenceHost::recordNoise(const NoiseRegistration& registration) {
  std::lock_guard lock(mutex_);
  noiseRegistrations_.push_back(registration);
}
void ReferenceHost::recordQuery(uint32_t requester, uint32_t selector) {
  std::lock_guard lock(mutex_);
  queries_.emplace_back(requester, selector);
}

std::vector<CallRecord> ReferenceHost::calls() const {
  std::lock_guard lock(mutex_);
  return calls_;
}
std::vector<Diagnostic> ReferenceHost::diagnostics() const {
  std::lock_guard lock(mutex_);
  return diagnostics_;
}
std::vector<NoiseRegistration> ReferenceHost::noiseRegistrations() const {
  std::lock_guard lock(mutex_);
  return noiseRegistrations_;
}
std::vector<std::pair<uint32_t, uint32_t>> ReferenceHost::queries() const {
  std::lock_guard lock(mutex_);
  return queries_;
}
void ReferenceHost::clearLogs() {
  std::lock_guard lock(mutex_);
  calls_.clear();
  diagnostics_.clear();
  noiseRegistrations_.clear();
  queries_.clear();
}

}  // namespace tarnell::refhost
