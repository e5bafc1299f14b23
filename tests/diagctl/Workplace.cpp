#include "tests/diagctl/Workplace.h"

#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "tests/support/Places.h"

namespace TarvexDiags::DiagctlTest {

namespace {

namespace fs = std::filesystem;

std::string sectionOf(std::size_t number, const ConfiguredTest& test) {
  std::ostringstream text;
  text << "[TestID" << number << "]\nTestName=" << test.name << "\nTestDescription=Test "
       << test.name << ".\nTestDisable=FALSE\nBehave=" << test.behaviour
       << "\nMilliseconds=" << test.milliseconds << "\n"
       << test.more << "\n\n";
  return text.str();
}

}  // namespace

Workplace::Workplace() : m_controlFile(path("control.cfg")) {
  // Whatever the umask: root refuses what others may write to.
  fs::permissions(m_directory.path(), fs::perms::owner_all);
  m_directory.makeDirectory("home/packages/en");
  m_directory.makeDirectory("home/packages/de");
  m_directory.makeDirectory("home/logs");
  write(m_controlFile, "[GlobalSettings]\nPackDirPath=" + path("packages") +
                           "\nLogDirPath=" + path("logs") +
                           "\nDebugLog=DIAG_NO\nRunMode=PARALLEL\nDiagLog=FALSE\n"
                           "HaltOnError=FALSE\nDiagnosticMode=CUSTOMER\n");
}

Workplace& Workplace::addPackage(const std::string& name, const std::vector<ConfiguredTest>& tests,
                                 const std::vector<ConfiguredDevice>& devices) {
  std::ostringstream text;
  text << "[Package]\nPackageName=Package " << name << "\nMnemonic=" << name
       << "\nPackageVersion=2.1\nPackageDescription=For tests\nSystemLock=FALSE\nDeviceType=0\n"
       << "NumberOfTests=" << tests.size() << "\n\n[Devices]\nCount=" << devices.size() << "\n";
  for (std::size_t i = 0; i < devices.size(); ++i) {
    text << "Name" << i + 1 << "=" << devices[i].name << "\nTag" << i + 1 << "=" << devices[i].tag
         << "\n";
  }
  text << "\n[Error]\n7=LINE_STUCK\n9000=CRASHED\n[Warning]\n8=LINE_WEAK\n\n";
  for (std::size_t i = 0; i < tests.size(); ++i) {
    text << sectionOf(i + 1, tests[i]);
  }
  write(packageFile(name), text.str());
  write(path("packages/en/" + name + ".cfg"),
        "[en]\nLINE_STUCK=$1$ is stuck.\nLINE_STUCK_ACTION=Replace the cable.\n"
        "LINE_WEAK=$1$ is weak.\nLINE_WEAK_ACTION=Watch the cable.\n"
        "CRASHED=$3$ crashed with $4$: $5$\nCRASHED_ACTION=Run it again.\n");
  write(path("packages/de/" + name + ".cfg"),
        "[de]\nLINE_STUCK=$1$ klemmt.\nLINE_STUCK_ACTION=Kabel ersetzen.\n"
        "LINE_WEAK=$1$ ist schwach.\nLINE_WEAK_ACTION=Kabel beobachten.\n"
        "CRASHED=$3$ ist mit $4$ abgestürzt: $5$\nCRASHED_ACTION=Wiederholen.\n");
  const std::string library = path("packages/lib" + name + ".so");
  fs::copy_file(TestSupport::modulePath("configured_package"), library);
  fs::permissions(library, fs::perms(0755));
  return *this;
}

Workplace& Workplace::usePackages(const std::string& directory) {
  replaceIn(m_controlFile, "PackDirPath=" + path("packages"), "PackDirPath=" + directory);
  return *this;
}

Workplace& Workplace::useMisbehavingPackage() {
  return usePackages(misbehavingPackages());
}

std::string Workplace::misbehavingPackages() {
  return fs::path(TARVEX_DIAGCTL).parent_path().parent_path() / "selftest";
}

Workplace& Workplace::addMisbehavingPackage(const std::string& name, const std::string& keys) {
  const fs::path from = misbehavingPackages();
  fs::copy_file(from / "libmisbehaving.so", path("packages/lib" + name + ".so"));
  fs::copy_file(from / "misbehaving.cfg", packageFile(name));
  replaceIn(packageFile(name), "[Package]\n",
            "[Package]\n" + keys + "WorkerPath=" + (from.parent_path() / "packages").string() +
                "/tarvex-package-worker\n");
  for (const auto& entry : fs::directory_iterator(from)) {
    const fs::path texts = entry.path() / "misbehaving.cfg";
    if (fs::exists(texts)) {
      const std::string language = entry.path().filename();
      fs::create_directories(path("packages/" + language));
      fs::copy_file(texts, path("packages/" + language + "/" + name + ".cfg"));
    }
  }
  return *this;
}

std::string Workplace::packageFile(const std::string& name) const {
  return path("packages/" + name + ".cfg");
}

std::string Workplace::markOf(const std::string& package, int test,
                              const std::string& device) const {
  return packageFile(package) + ".TestID" + std::to_string(test) + "." + device;
}

void Workplace::write(const std::string& file, const std::string& text) const {
  std::ofstream(file) << text;
  fs::permissions(file, fs::perms(0644));
}

void Workplace::replaceIn(const std::string& file, const std::string& from,
                          const std::string& to) const {
  std::string text = contentsOf(file);
  const std::size_t position = text.find(from);
  if (position == std::string::npos) {
    throw std::logic_error(file + " does not hold " + from);
  }
  write(file, text.replace(position, from.size(), to));
}

std::string contentsOf(const std::string& file) {
  std::ifstream stream(file);
  std::ostringstream text;
  text << stream.rdbuf();
  return text.str();
}

}  // namespace TarvexDiags::DiagctlTest
