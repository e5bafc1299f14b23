// What it costs to read configuration keys.
//
// Each key is looked for in the file anew, so the cost of one key is that of opening the file and
// scanning it up to that key. The peers are what no reader of files can do without: open, map and
// touch the same file, once in every page and once in every byte.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "System/SysUtil.h"

namespace {

namespace fs = std::filesystem;
using TarvexDiags::System::SysUtil;

constexpr const char* kTestKeys[] = {"TestName",     "TestDescription", "TestCapabilities",
                                     "TestOpenMode", "TestDisable",     "TestEstimatedTime"};
constexpr auto kKeysPerTest = static_cast<std::int64_t>(std::size(kTestKeys));

/// The description of a package with so many tests, as a file that lasts as long as the object.
class Description {
 public:
  explicit Description(int tests) : m_tests(tests) {
    std::string name = (fs::temp_directory_path() / "config-bench-XXXXXX").string();
    close(mkstemp(name.data()));
    m_path = name;
    std::ofstream file(m_path);
    file << "[Package]\nPackageName=Memory\nMnemonic=MEM\nPackageVersion=1.0\n"
            "PackageDescription=Tests of the main memory\nSystemLock=FALSE\nNumberOfTests="
         << tests << "\n";
    for (int test = 1; test <= tests; ++test) {
      file << "\n[TestID" << test << "]\nTestName=Walking pattern " << test
           << "\nTestDescription=Walks a one and then a zero through every word of the region, "
              "ascending and descending, and compares what it reads back"
              "\nTestCapabilities=quick,stress,halt"
              "\nTestOpenMode=READ_WRITE\nTestDisable=FALSE\nTestEstimatedTime=120\n";
    }
  }
  Description(const Description&) = delete;
  Description& operator=(const Description&) = delete;
  ~Description() { fs::remove(m_path); }

  /// One of about so many bytes.
  static Description ofSize(std::int64_t bytes) {
    constexpr std::int64_t bytesPerTest = 300;
    return Description(static_cast<int>(bytes / bytesPerTest));
  }

  int tests() const { return m_tests; }
  const std::string& path() const { return m_path; }
  std::string lastSection() const { return "TestID" + std::to_string(m_tests); }
  std::int64_t size() const { return static_cast<std::int64_t>(fs::file_size(m_path)); }

 private:
  const int m_tests;
  std::string m_path;
};

void reportBytes(benchmark::State& state, std::int64_t bytesPerRound) {
  state.SetBytesProcessed(state.iterations() * bytesPerRound);
}

/// A mapping of a file, made and undone as often as a reader of keys would have to.
class Mapping {
 public:
  explicit Mapping(const std::string& path) : m_descriptor(open(path.c_str(), O_RDONLY)) {
    struct stat status {};
    fstat(m_descriptor, &status);
    m_size = static_cast<std::size_t>(status.st_size);
    m_text = mmap(nullptr, m_size, PROT_READ, MAP_PRIVATE, m_descriptor, 0);
  }
  Mapping(const Mapping&) = delete;
  Mapping& operator=(const Mapping&) = delete;
  ~Mapping() {
    munmap(m_text, m_size);
    close(m_descriptor);
  }

  const char* text() const { return static_cast<const char*>(m_text); }
  std::size_t size() const { return m_size; }

 private:
  const int m_descriptor;
  std::size_t m_size = 0;
  void* m_text = nullptr;
};

void mapAndTouchEachPage(benchmark::State& state) {
  const auto description = Description::ofSize(state.range(0));
  constexpr std::size_t pageSize = 4096;
  for (auto round : state) {
    const Mapping mapping(description.path());
    unsigned int sum = 0;
    for (std::size_t at = 0; at < mapping.size(); at += pageSize) {
      sum += static_cast<unsigned char>(mapping.text()[at]);
    }
    benchmark::DoNotOptimize(sum);
  }
  reportBytes(state, description.size());
}

void mapAndTouchEachByte(benchmark::State& state) {
  const auto description = Description::ofSize(state.range(0));
  for (auto round : state) {
    const Mapping mapping(description.path());
    // The fastest look at every byte that there is: the search for one that the file does not hold.
    benchmark::DoNotOptimize(std::memchr(mapping.text(), '\1', mapping.size()));
  }
  reportBytes(state, description.size());
}

void readKey(benchmark::State& state, const Description& description, const std::string& section,
             const std::string& key, int expectedResult) {
  std::string value;
  for (auto round : state) {
    if (SysUtil::ReadCfgFile(section, key, value, description.path(), -1) != expectedResult) {
      state.SkipWithError("unexpected result");
      return;
    }
  }
}

void readLastKey(benchmark::State& state) {
  const auto description = Description::ofSize(state.range(0));
  readKey(state, description, description.lastSection(), "TestEstimatedTime", SysUtil::CFG_READ);
  reportBytes(state, description.size());
}

void readMissingKey(benchmark::State& state) {
  const auto description = Description::ofSize(state.range(0));
  readKey(state, description, "Disable Test", "NumberOfTests", SysUtil::CFG_KEY_NOT_FOUND);
  reportBytes(state, description.size());
}

void readFirstKey(benchmark::State& state) {
  const auto description = Description::ofSize(state.range(0));
  readKey(state, description, "Package", "PackageName", SysUtil::CFG_READ);
}

void readEveryKeyOfADescription(benchmark::State& state) {
  const Description description(static_cast<int>(state.range(0)));
  std::string value;
  for (auto round : state) {
    for (int test = 1; test <= description.tests(); ++test) {
      const std::string section = "TestID" + std::to_string(test);
      for (const char* const key : kTestKeys) {
        if (SysUtil::ReadCfgFile(section, key, value, description.path(), -1) < 0) {
          state.SkipWithError("key not found");
          return;
        }
      }
    }
  }
  const std::int64_t keys = description.tests() * kKeysPerTest;
  state.SetItemsProcessed(state.iterations() * keys);
  reportBytes(state, keys * description.size() / 2);  // on average, half of the file lies before
}

constexpr std::int64_t kSmall = 300'000;
constexpr std::int64_t kMiddle = 3'000'000;
constexpr std::int64_t kLarge = 30'000'000;

BENCHMARK(mapAndTouchEachPage)->Arg(kSmall)->Arg(kMiddle)->Arg(kLarge);
BENCHMARK(mapAndTouchEachByte)->Arg(kSmall)->Arg(kMiddle)->Arg(kLarge);
BENCHMARK(readLastKey)->Arg(kSmall)->Arg(kMiddle)->Arg(kLarge);
BENCHMARK(readMissingKey)->Arg(kSmall)->Arg(kMiddle)->Arg(kLarge);
BENCHMARK(readFirstKey)->Arg(kSmall)->Arg(kMiddle)->Arg(kLarge);
BENCHMARK(readEveryKeyOfADescription)->Arg(10)->Arg(100)->Arg(1000)->Unit(benchmark::kMillisecond);

}  // namespace
