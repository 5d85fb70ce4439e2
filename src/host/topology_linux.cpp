// Topology on Linux: sysfs is turned into the same 32-byte records that the other
// platform's OS hands out, so that both share one walk (and its L2 line rule).
#ifdef __linux__

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <limits>
#include <map>
#include <tuple>

#include "host/cpu_features.h"

namespace tarnell {

namespace fs = std::filesystem;

namespace {

std::string_view trimmed(std::string_view s) {
  while (!s.empty() && std::isspace(static_cast<unsigned char>(s.front())) != 0) s.remove_prefix(1);
  while (!s.empty() && std::isspace(static_cast<unsigned char>(s.back())) != 0) s.remove_suffix(1);
  return s;
}

template <typename T>
std::optional<T> parseWhole(std::string_view s) {
  s = trimmed(s);
  T value{};
  const auto [end, ec] = std::from_chars(s.data(), s.data() + s.size(), value);
  if (s.empty() || ec != std::errc() || end != s.data() + s.size()) return std::nullopt;
  return value;
}

std::optional<std::string> readFirstLine(const fs::path& path) {
  std::ifstream in(path);
  std::string line;
  if (!in || !std::getline(in, line)) return std::nullopt;
  return line;
}

template <typename T>
std::optional<T> readNumber(const fs::path& path) {
  const std::optional<std::string> line = readFirstLine(path);
  if (!line) return std::nullopt;
  return parseWhole<T>(*line);
}

// "cpu12" -> 12; anything else (cpufreq, cpuidle, ...) -> nullopt.
std::optional<uint32_t> numberAfterPrefix(const std::string& name, std::string_view prefix) {
  if (name.size() <= prefix.size() || name.compare(0, prefix.size(), prefix) != 0) return std::nullopt;
  const std::string_view digits = std::string_view(name).substr(prefix.size());
  if (!std::all_of(digits.begin(), digits.end(), [](char c) { return c >= '0' && c <= '9'; })) return std::nullopt;
  return parseWhole<uint32_t>(digits);
}

fs::path cpuPath(const fs::path& root, uint32_t cpu) { return root / ("cpu" + std::to_string(cpu)); }

// When the online list is missing: every cpuN directory that describes its topology
// (offline CPUs do not).
std::vector<uint32_t> cpusWithTopology(const fs::path& root) {
  std::vector<uint32_t> cpus;
  std::error_code ec;
  for (fs::directory_iterator it(root, ec), end; !ec && it != end; it.increment(ec)) {
    const std::optional<uint32_t> cpu = numberAfterPrefix(it->path().filename().string(), "cpu");
    if (cpu && fs::exists(it->path() / "topology" / "core_id", ec)) cpus.push_back(*cpu);
  }
  std::sort(cpus.begin(), cpus.end());
  return cpus;
}

// The record's processor mask. With CPU numbers below 64 the bits are the CPU
// numbers, as on a single-group machine; beyond that only the count can be kept.
uint64_t maskOf(const std::vector<uint32_t>& cpus) {
  if (std::all_of(cpus.begin(), cpus.end(), [](uint32_t c) { return c < 64; })) {
    uint64_t mask = 0;
    for (uint32_t c : cpus) mask |= uint64_t{1} << c;
    return mask;
  }
  return cpus.size() >= 64 ? ~uint64_t{0} : (uint64_t{1} << cpus.size()) - 1;
}

uint32_t cacheTypeOf(std::string_view text) {
  text = trimmed(text);
  if (text == "Data") return kCacheData;
  if (text == "Instruction") return kCacheInstruction;
  if (text == "Trace") return kCacheTrace;
  return kCacheUnified;
}

struct CacheDescription {
  uint8_t level;
  uint8_t associativity;
  uint16_t lineSize;
  uint32_t size;
  uint32_t type;
};

// Reads one cache/indexN directory; nullopt when its level or size is unreadable.
std::optional<CacheDescription> readCache(const fs::path& index) {
  const std::optional<uint32_t> level = readNumber<uint32_t>(index / "level");
  const std::optional<std::string> sizeText = readFirstLine(index / "size");
  const std::optional<uint64_t> size = sizeText ? parseCacheSize(*sizeText) : std::nullopt;
  if (!level || !size) return std::nullopt;
  const uint32_t line = readNumber<uint32_t>(index / "coherency_line_size").value_or(0);
  const uint32_t ways = readNumber<uint32_t>(index / "ways_of_associativity").value_or(0);
  const std::optional<std::string> type = readFirstLine(index / "type");
  CacheDescription d{};
  d.level = static_cast<uint8_t>(std::min<uint32_t>(*level, 0xFF));
  d.associativity = static_cast<uint8_t>(std::min<uint32_t>(ways, 0xFF));
  d.lineSize = static_cast<uint16_t>(std::min<uint32_t>(line, 0xFFFF));
  d.size = static_cast<uint32_t>(std::min<uint64_t>(*size, std::numeric_limits<uint32_t>::max()));
  d.type = type ? cacheTypeOf(*type) : kCacheUnified;
  return d;
}

}  // namespace

std::optional<std::vector<uint32_t>> parseCpuList(std::string_view text) {
  text = trimmed(text);
  std::vector<uint32_t> cpus;
  while (!text.empty()) {
    const size_t comma = text.find(',');
    const std::string_view item = text.substr(0, comma);
    text = comma == std::string_view::npos ? std::string_view() : text.substr(comma + 1);
    const size_t dash = item.find('-');
    const std::optional<uint32_t> first = parseWhole<uint32_t>(item.substr(0, dash));
    const std::optional<uint32_t> last =
        dash == std::string_view::npos ? first : parseWhole<uint32_t>(item.substr(dash + 1));
    if (!first || !last || *last < *first) return std::nullopt;
    for (uint32_t c = *first;; ++c) {
      cpus.push_back(c);
      if (c == *last) break;
    }
  }
  std::sort(cpus.begin(), cpus.end());
  cpus.erase(std::unique(cpus.begin(), cpus.end()), cpus.end());
  return cpus;
}

std::optional<uint64_t> parseCacheSize(std::string_view text) {
  text = trimmed(text);
  uint64_t scale = 1;
  if (!text.empty()) {
    switch (text.back()) {
      case 'K': scale = uint64_t{1} << 10; break;
      case 'M': scale = uint64_t{1} << 20; break;
      case 'G': scale = uint64_t{1} << 30; break;
      default: break;
    }
    if (scale != 1) text.remove_suffix(1);
  }
  const std::optional<uint64_t> value = parseWhole<uint64_t>(text);
  if (!value || *value > std::numeric_limits<uint64_t>::max() / scale) return std::nullopt;
  return *value * scale;
}

std::optional<std::vector<unsigned char>> processorInformationFromSysfs(const std::string& cpuDirectory) {
  const fs::path root(cpuDirectory);
  std::vector<uint32_t> cpus;
  if (const std::optional<std::string> online = readFirstLine(root / "online")) {
    std::optional<std::vector<uint32_t>> parsed = parseCpuList(*online);
    if (!parsed) return std::nullopt;
    cpus = std::move(*parsed);
  } else {
    cpus = cpusWithTopology(root);
  }
  if (cpus.empty()) return std::nullopt;

  // Cores are told apart by package, die and core number: core numbers repeat across
  // packages, and on some machines across the dies of one package.
  std::map<std::tuple<int64_t, int64_t, int64_t>, std::vector<uint32_t>> cores;
  std::map<int64_t, std::vector<uint32_t>> packages;
  // A cache shared by several CPUs appears under each of them; one record each.
  std::map<std::tuple<uint32_t, uint32_t, std::vector<uint32_t>>, CacheDescription> caches;

  for (uint32_t cpu : cpus) {
    const fs::path topologyDir = cpuPath(root, cpu) / "topology";
    const std::optional<int64_t> package = readNumber<int64_t>(topologyDir / "physical_package_id");
    const std::optional<int64_t> core = readNumber<int64_t>(topologyDir / "core_id");
    if (!package || !core) return std::nullopt;
    const int64_t die = readNumber<int64_t>(topologyDir / "die_id").value_or(0);
    cores[{*package, die, *core}].push_back(cpu);
    packages[*package].push_back(cpu);

    std::error_code ec;
    for (fs::directory_iterator it(cpuPath(root, cpu) / "cache", ec), end; !ec && it != end; it.increment(ec)) {
      if (!numberAfterPrefix(it->path().filename().string(), "index")) continue;
      const std::optional<CacheDescription> cache = readCache(it->path());
      if (!cache) continue;
      const std::optional<std::string> sharedText = readFirstLine(it->path() / "shared_cpu_list");
      std::optional<std::vector<uint32_t>> shared = sharedText ? parseCpuList(*sharedText) : std::nullopt;
      if (!shared || shared->empty()) shared = std::vector<uint32_t>{cpu};
      caches.emplace(std::make_tuple(uint32_t{cache->level}, cache->type, std::move(*shared)), *cache);
    }
  }

  std::vector<unsigned char> buffer;
  for (const auto& [key, members] : cores) appendProcessorRecord(buffer, maskOf(members), kRelationProcessorCore);
  for (const auto& [key, members] : packages) appendProcessorRecord(buffer, maskOf(members), kRelationProcessorPackage);
  for (const auto& [key, c] : caches)
    appendCacheRecord(buffer, maskOf(std::get<2>(key)), c.level, c.associativity, c.lineSize, c.size, c.type);
  return buffer;
}

Topology topologyFromSysfs(const std::string& cpuDirectory, uint32_t processorCount) {
  try {
    const std::optional<std::vector<unsigned char>> records = processorInformationFromSysfs(cpuDirectory);
    if (records) {
      const Topology t = walkProcessorInformation(records->data(), records->size());
      if (t.physicalCores > 0) return t;
    }
  } catch (const std::exception&) {
    // Out of memory or an unreadable tree: the same answer as an OS that says nothing.
  }
  return fallbackTopology(processorCount);
}

Topology queryTopology() {
  const long online = ::sysconf(_SC_NPROCESSORS_ONLN);
  const uint32_t count =
      online < 1 ? 1u : static_cast<uint32_t>(std::min<long>(online, std::numeric_limits<uint32_t>::max()));
  return topologyFromSysfs("/sys/devices/system/cpu", count);
}

}  // namespace tarnell

#endif  // __linux__
