#include "packages/storage/ScsiReader.h"

#include <fmt/format.h>

#include <algorithm>
#include <limits>
#include <optional>
#include <utility>
#include <vector>

#include "packages/storage/HealthRecords.h"
#include "packages/storage/ScsiRecords.h"

namespace TarvexDiags::Storage {
namespace {

constexpr std::size_t kPageBytes = 512;  ///< the first parameters of each page fit

ScsiCommand logSense(LogPage page) {
  constexpr std::uint8_t currentValues = 0x40;
  return {{0x4D, 0, static_cast<std::uint8_t>(currentValues | static_cast<std::uint8_t>(page)), 0,
           0, 0, 0, kPageBytes >> 8, kPageBytes & 0xFF, 0},
          kPageBytes};
}

/// @brief Reads the pages of one disk, and notes those that it has sent and that cannot be used.
class PageReader {
 public:
  PageReader(CommandChannel& channel, std::vector<std::string>& unusable)
      : m_channel(channel), m_unusable(unusable) {
    m_pages = read(LogPage::Supported, supportedPagesFrom).value_or(std::vector<std::uint8_t>());
  }

  bool has(LogPage page) const {
    return std::find(m_pages.begin(), m_pages.end(), static_cast<std::uint8_t>(page)) !=
           m_pages.end();
  }

  /// @brief What `parse` finds on the page; nothing when the disk does not have it.
  template <class Parse>
  auto find(LogPage page, Parse parse) -> decltype(parse(Record())) {
    return has(page) ? read(page, parse) : std::nullopt;
  }

 private:
  template <class Parse>
  auto read(LogPage page, Parse parse) -> decltype(parse(Record())) {
    const ScsiAnswer answer = executeSettled(m_channel, logSense(page));
    if (answer.status != 0) {
      return std::nullopt;
    }
    auto found = parse(Record(answer.data));
    if (!found) {
      m_unusable.push_back(fmt::format("LOG SENSE {:02X}h", static_cast<unsigned int>(page)));
    }
    return found;
  }

  CommandChannel& m_channel;
  std::vector<std::string>& m_unusable;
  std::vector<std::uint8_t> m_pages;
};

void takeException(const InformationalException& exception, HealthReport& health) {
  health.celsius = exception.celsius;
  constexpr std::uint8_t warning = 0x0B;
  constexpr std::uint8_t prediction = 0x5D;
  constexpr std::uint8_t asTest = 0xFF;
  const std::string code = fmt::format("{:02X}h {:02X}h", exception.code, exception.qualifier);
  if (exception.code == prediction && exception.qualifier == asTest) {
    health.predictionIsTest = true;
  } else if (exception.code == prediction) {
    health.failing = true;
    health.failingText = code;
  } else if (exception.code == warning) {
    health.deviceWarning = code;
  }
}

/// @brief Over all kinds of commands; nothing when the disk counts none of them.
std::optional<std::uint64_t> uncorrectedErrors(PageReader& pages) {
  std::optional<std::uint64_t> sum;
  for (const LogPage page : {LogPage::WriteErrors, LogPage::ReadErrors, LogPage::VerifyErrors}) {
    const auto errors =
        pages.find(page, [&](Record record) { return uncorrectedErrorsFrom(record, page); });
    if (errors) {
      // Counters may be all ones; a sum must not begin anew.
      const std::uint64_t before = sum.value_or(0);
      sum = before + std::min(*errors, std::numeric_limits<std::uint64_t>::max() - before);
    }
  }
  return sum;
}

class ScsiReader final : public HealthReader {
 public:
  ScsiReader(ChannelOpener open, std::string disk, std::filesystem::path sysfs)
      : m_open(std::move(open)), m_disk(std::move(disk)), m_sysfs(std::move(sysfs)) {}

  HealthReport health() override {
    HealthReport health;
    const auto channel = m_open();
    PageReader pages(*channel, health.unusableAnswers);
    const auto exception = pages.find(LogPage::InformationalExceptions, informationalExceptionFrom);
    if (exception) {
      takeException(*exception, health);
    }
    const auto errors = uncorrectedErrors(pages);
    health.mediaErrors = errors.value_or(0);
    if (!exception && !errors && health.unusableAnswers.empty()) {
      throw NotSupported(Reasons::kNoHealthTold);
    }
    if (const int celsius = pages.find(LogPage::Temperature, temperatureFrom).value_or(0);
        celsius != 0) {
      health.celsius = celsius;
    }
    health.percentUsed = pages.find(LogPage::SolidState, percentUsedFrom).value_or(0);
    health.powerOnHours = pages.find(LogPage::BackgroundScan, powerOnHoursFrom).value_or(0);
    return health;
  }

  ErrorLog errorLog() override {
    auto log = countersOf(m_disk, m_sysfs);
    const bool isCounted = log.has_value();
    if (!isCounted) {
      log.emplace().origin = "LOG SENSE";
    }
    try {
      const bool hasSelfTests = addSelfTest(*log);
      if (!isCounted && !hasSelfTests) {
        throw NotSupported(Reasons::kNoErrorLog);
      }
    } catch (const NotSupported&) {
      if (!isCounted) {
        throw;
      }
    }
    return *log;
  }

 private:
  /// @brief False when the disk does not keep their results.
  bool addSelfTest(ErrorLog& log) {
    const auto channel = m_open();
    PageReader pages(*channel, log.unusableAnswers);
    const auto selfTests = pages.find(LogPage::SelfTests, selfTestsFrom);
    if (selfTests && selfTests->latest) {
      const ScsiSelfTest& latest = *selfTests->latest;
      constexpr std::uint8_t lastFailure = 7;
      log.selfTest = selfTestEnd(latest.result, lastFailure);
      log.selfTestStatus = latest.result;
      log.selfTestHours = latest.hours;
      log.firstBadLba = latest.firstBadLba;
    }
    return pages.has(LogPage::SelfTests) || !log.unusableAnswers.empty();
  }

  ChannelOpener m_open;
  std::string m_disk;
  std::filesystem::path m_sysfs;
};

}  // namespace

std::unique_ptr<HealthReader> makeScsiReader(const ChannelOpener& open, const std::string& disk,
                                             const std::filesystem::path& sysfs) {
  return std::make_unique<ScsiReader>(open, disk, sysfs);
}

}  // namespace TarvexDiags::Storage
