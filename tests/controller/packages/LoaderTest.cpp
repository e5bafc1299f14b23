// The loader against real shared objects.

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <link.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <future>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "DeviceEnum/IDeviceEnumerator.h"
#include "Diag/IDiagnostics.h"
#include "DiagCtrl/DiagCtrlFunctionNotFoundInDll.h"
#include "DiagCtrl/DiagCtrlLoadLibraryFailed.h"
#include "DiagCtrl/DiagCtrlMutexException.h"
#include "DiagCtrl/DiagCtrlReleaseLibraryFailed.h"
#include "DiagCtrl/DiagTracer.h"
#include "DiagCtrl/DiagnosticPackageInterface.h"
#include "tests/support/BrokenLock.h"
#include "tests/support/Fifo.h"
#include "tests/support/PackageDirectory.h"
#include "tests/support/Places.h"
#include "tests/support/PrivateMember.h"
#include "tests/support/ProcessMaps.h"
#include "tests/support/ThreadState.h"
#include "tests/support/TraceFile.h"
#include "tests/support/scripted/Script.h"

TARVEX_PRIVATE_MEMBER(LoaderLockTag, DiagCtrl::DiagnosticPackageInterface::mmtxLock);

namespace TarvexDiags::DiagCtrl {
namespace {

using Scripted::Call;
using Scripted::Script;
using ::testing::HasSubstr;
using ::testing::IsNull;
using ::testing::NotNull;
using ::testing::SizeIs;
using TestSupport::isMapped;
using TestSupport::PackageConfig;

class LoaderTest : public ::testing::Test {
 protected:
  LoaderTest() { DiagTracer::getInstance()->openTraceFile(m_directory.path().c_str(), 3); }
  ~LoaderTest() override {
    for (void* const handle : m_handles) {
      dlclose(handle);
    }
    delete DiagTracer::getInstance();
  }

  pDllHandle load(const std::string& path) {
    m_handles.push_back(m_loader.loadPackage(path.c_str()));
    return m_handles.back();
  }
  pDllHandle loadModule(const std::string& name) { return load(TestSupport::modulePath(name)); }

  /// A scripted package, open, which knows its name.
  pDllHandle loadScripted(const std::string& name) {
    m_packages.add(name);
    const pDllHandle handle = load(m_packages.libraryPath(name));
    m_loader.setPackageConfigFile(handle, m_packages.configPath(name).c_str());
    return handle;
  }

  TestSupport::TemporaryDirectory m_directory;
  TestSupport::TraceFile m_trace{m_directory.path()};
  TestSupport::PackageDirectory m_packages;
  DiagnosticPackageInterface m_loader;
  std::vector<pDllHandle> m_handles;
};

// --- The exports of a complete package

TEST_F(LoaderTest, hands_the_configuration_file_and_the_log_directory_to_the_package) {
  const pDllHandle handle = loadScripted("ALPHA");
  m_loader.setPackageLogDir(handle, "/var/log/diags");
  const Script& script = Script::of("ALPHA");
  ASSERT_THAT(script.calls(Call::SetConfigFile), SizeIs(1));
  EXPECT_EQ(script.calls(Call::SetConfigFile)[0].text, m_packages.configPath("ALPHA"));
  ASSERT_THAT(script.calls(Call::SetLogDir), SizeIs(1));
  EXPECT_EQ(script.calls(Call::SetLogDir)[0].text, "/var/log/diags");
  EXPECT_TRUE(m_trace.contains("Package Log Dir set to /var/log/diags"));
}

TEST_F(LoaderTest, a_null_log_directory_reaches_the_package_and_the_trace) {
  const pDllHandle handle = loadScripted("BETA");
  m_loader.setPackageLogDir(handle, nullptr);
  ASSERT_THAT(Script::of("BETA").calls(Call::SetLogDir), SizeIs(1));
  EXPECT_EQ(Script::of("BETA").calls(Call::SetLogDir)[0].text, "<null>");
  EXPECT_EQ(m_trace.count("Package Log Dir set to "), 1U);
}

TEST_F(LoaderTest, objects_are_made_with_the_log_flag_and_the_mode) {
  const pDllHandle handle = loadScripted("GAMMA");
  const std::unique_ptr<DeviceEnum::IDeviceEnumerator> enumerator(
      m_loader.getIDeviceEnumerator(handle, true, GlobalSettings::BRINGUP));
  const std::unique_ptr<Diag::IDiagnostics> diagnostics(
      m_loader.getIDiagnostics(handle, "/some/file.cfg", false, GlobalSettings::FACTORY));
  ASSERT_THAT(enumerator, NotNull());
  ASSERT_THAT(diagnostics, NotNull());
  const auto made = Script::of("GAMMA").calls();
  EXPECT_TRUE(made[1].diagLog);
  EXPECT_EQ(made[1].diagMode, GlobalSettings::BRINGUP);
  EXPECT_FALSE(made[2].diagLog);
  EXPECT_EQ(made[2].diagMode, GlobalSettings::FACTORY);
}

TEST_F(LoaderTest, each_request_gets_an_object_of_its_own) {
  const pDllHandle handle = loadScripted("DELTA");
  const std::unique_ptr<Diag::IDiagnostics> first(
      m_loader.getIDiagnostics(handle, "", false, GlobalSettings::CUSTOMER));
  const std::unique_ptr<Diag::IDiagnostics> second(
      m_loader.getIDiagnostics(handle, "", false, GlobalSettings::CUSTOMER));
  EXPECT_NE(first.get(), second.get());
}

TEST_F(LoaderTest, the_devices_are_those_of_a_new_enumerator_which_is_left_alone) {
  const pDllHandle handle = loadScripted("EPSILON");
  Script::of("EPSILON").setDevices(3);
  std::string resource = "resource string";
  const auto* const devices =
      m_loader.getDeviceVector(handle, resource.data(), 7, true, GlobalSettings::FACTORY);
  ASSERT_THAT(devices, NotNull());
  EXPECT_THAT(*devices, SizeIs(3));
  const auto asked = Script::of("EPSILON").calls(Call::GetDevices);
  ASSERT_THAT(asked, SizeIs(1));
  EXPECT_EQ(asked[0].text, "resource string");
  EXPECT_EQ(asked[0].deviceType, 7U);
  EXPECT_EQ(Script::of("EPSILON").living().enumerators, 1);
}

// --- What a package lacks, throws or does not give

struct MissingExport {
  const char* module;
  const char* text;
  void (*call)(DiagnosticPackageInterface&, pDllHandle);
};

void askForEnumerator(DiagnosticPackageInterface& loader, pDllHandle handle) {
  delete loader.getIDeviceEnumerator(handle, false, GlobalSettings::CUSTOMER);
}
void askForDevices(DiagnosticPackageInterface& loader, pDllHandle handle) {
  loader.getDeviceVector(handle, nullptr, 0, false, GlobalSettings::CUSTOMER);
}
void askForDiagnostics(DiagnosticPackageInterface& loader, pDllHandle handle) {
  delete loader.getIDiagnostics(handle, "", false, GlobalSettings::CUSTOMER);
}
void setConfigFile(DiagnosticPackageInterface& loader, pDllHandle handle) {
  loader.setPackageConfigFile(handle, "/some/file.cfg");
}
void setLogDir(DiagnosticPackageInterface& loader, pDllHandle handle) {
  loader.setPackageLogDir(handle, "/some/where");
}

TEST_F(LoaderTest, a_missing_export_is_a_function_not_found) {
  const MissingExport rows[] = {
      {"loader_without_config_file", "DiagnosticPackageInterface::setPackageConfigFile()",
       setConfigFile},
      {"loader_without_enumerator", "DiagnosticPackageInterface::getIDeviceEnumerator()",
       askForEnumerator},
      {"loader_without_enumerator", "DiagnosticPackageInterface::getIDeviceEnumerator()",
       askForDevices},
      {"loader_without_diagnostics", "DiagnosticPackageInterface::getIDiagnostics()",
       askForDiagnostics},
  };
  for (const MissingExport& row : rows) {
    SCOPED_TRACE(row.module);
    const pDllHandle handle = loadModule(row.module);
    try {
      row.call(m_loader, handle);
      ADD_FAILURE() << "nothing thrown";
    } catch (DiagCtrlFunctionNotFoundInDll& failure) {
      EXPECT_EQ(failure.getMinor(), DiagCtrlBaseException::FunctionNotFoundInDll);
      EXPECT_STREQ(failure.getFile(), "DiagCtrl/DiagnosticPackageInterface.cpp");
      EXPECT_THAT(failure.dump(), HasSubstr(row.text));
    }
  }
}

TEST_F(LoaderTest, the_other_exports_of_such_a_package_still_work) {
  const pDllHandle handle = loadModule("loader_without_diagnostics");
  setConfigFile(m_loader, handle);
  setLogDir(m_loader, handle);
  askForEnumerator(m_loader, handle);
}

TEST_F(LoaderTest, the_log_directory_is_optional) {
  const pDllHandle handle = loadModule("loader_without_log_dir");
  setLogDir(m_loader, handle);
  EXPECT_FALSE(m_trace.contains("Package Log Dir set to "));
}

TEST_F(LoaderTest, a_null_object_is_handed_up) {
  const pDllHandle handle = loadScripted("ZETA");
  Script::of("ZETA").setHabits({.givesNoEnumerator = true, .givesNoDiagnostics = true});
  EXPECT_THAT(m_loader.getIDeviceEnumerator(handle, false, GlobalSettings::CUSTOMER), IsNull());
  EXPECT_THAT(m_loader.getIDiagnostics(handle, "", false, GlobalSettings::CUSTOMER), IsNull());
}

TEST_F(LoaderTest, no_devices_can_be_had_without_an_enumerator) {
  const pDllHandle handle = loadScripted("ETA");
  Script::of("ETA").setHabits({.givesNoEnumerator = true});
  try {
    askForDevices(m_loader, handle);
    ADD_FAILURE() << "nothing thrown";
  } catch (DiagCtrlFunctionNotFoundInDll& failure) {
    EXPECT_THAT(failure.dump(), HasSubstr("DiagnosticPackageInterface::getIDeviceEnumerator()"));
  }
  EXPECT_EQ(m_trace.count("STRING: DiagnosticPackageInterface::getDeviceVector - "), 1U);
}

TEST_F(LoaderTest, a_missing_enumerator_is_traced_in_full_when_devices_are_wanted) {
  const pDllHandle handle = loadModule("loader_without_enumerator");
  DiagTracer::getInstance()->setTraceLevel(DiagCtrlConstants::DIAG_ERROR);
  std::string told;
  try {
    askForDevices(m_loader, handle);
  } catch (DiagCtrlFunctionNotFoundInDll& failure) {
    told = failure.dump();
  }
  std::ifstream stream(m_trace.path());
  const std::string text{std::istreambuf_iterator<char>(stream), {}};
  EXPECT_THAT(text, HasSubstr("DiagnosticPackageInterface::getDeviceVector - " + told));
}

TEST_F(LoaderTest, what_an_export_throws_passes_through) {
  const pDllHandle handle = loadScripted("THETA");
  Script& script = Script::of("THETA");
  for (const Call call :
       {Call::SetConfigFile, Call::SetLogDir, Call::GetEnumerator, Call::GetDiagnostics}) {
    script.throwAt(call, "no power");
  }
  EXPECT_THROW(m_loader.setPackageConfigFile(handle, m_packages.configPath("THETA").c_str()),
               std::runtime_error);
  for (auto* const call : {setLogDir, askForEnumerator, askForDiagnostics}) {
    EXPECT_THROW(call(m_loader, handle), std::runtime_error);
  }
  for (const Call call :
       {Call::SetConfigFile, Call::SetLogDir, Call::GetEnumerator, Call::GetDiagnostics}) {
    script.on(call, {});
  }
}

// --- What cannot be loaded

class UnloadableTest : public LoaderTest {
 protected:
  void expectUnloadable(const std::string& path) {
    SCOPED_TRACE(path);
    try {
      load(path);
      ADD_FAILURE() << "nothing thrown";
    } catch (DiagCtrlLoadLibraryFailed& failure) {
      EXPECT_EQ(failure.getMinor(), DiagCtrlBaseException::LoadLibraryFailed);
      EXPECT_THAT(failure.dump(), HasSubstr("DiagnosticPackageInterface::loadPackage()"));
    }
    EXPECT_FALSE(isMapped(path));
  }
};

TEST_F(UnloadableTest, files_that_are_no_shared_object) {
  expectUnloadable(m_directory.file("missing.so"));
  expectUnloadable(m_directory.makeDirectory("directory.so"));
  expectUnloadable(m_directory.write("empty.so", ""));
  expectUnloadable(m_directory.write("text.so", "[Package]\nPackageName=no ELF file\n"));
  expectUnloadable(m_directory.write("magic.so",
                                     "\x7f"
                                     "ELF"));
}

TEST_F(UnloadableTest, what_is_no_file_is_not_even_opened) {
  const std::string path = m_directory.file("fifo.so");
  const TestSupport::Fifo fifo(path);
  EXPECT_TRUE(fifo.staysClearOf([&] { expectUnloadable(path); }));
  const std::string device = m_directory.file("device.so");
  std::filesystem::create_symlink("/dev/null", device);
  expectUnloadable(device);
  EXPECT_EQ(m_trace.count("fifo.so: not a file"), 1U);
  EXPECT_EQ(m_trace.count("device.so: not a file"), 1U);
}

TEST_F(UnloadableTest, the_reason_of_the_loader_is_traced) {
  const std::string reason = "missing.so: cannot open shared object file";
  DiagTracer::getInstance()->setTraceLevel(DiagCtrlConstants::DIAG_ERROR);
  expectUnloadable(m_directory.file("missing.so"));
  EXPECT_FALSE(m_trace.contains(reason));
  DiagTracer::getInstance()->setTraceLevel(DiagCtrlConstants::DIAG_WARNING);
  expectUnloadable(m_directory.file("missing.so"));
  EXPECT_TRUE(m_trace.contains(reason));
}

TEST_F(UnloadableTest, an_unresolved_symbol_fails_at_once) {
  expectUnloadable(TestSupport::modulePath("loader_unresolved"));
  EXPECT_TRUE(m_trace.contains("noLibraryHasThis"));
}

/// The file offset behind the last byte that the loader maps.
std::size_t endOfSegments(const std::string& path) {
  std::ifstream stream(path, std::ios::binary);
  ElfW(Ehdr) header;
  stream.read(reinterpret_cast<char*>(&header), sizeof header);
  std::size_t end = 0;
  for (unsigned int index = 0; index < header.e_phnum; ++index) {
    ElfW(Phdr) segment;
    stream.seekg(static_cast<std::streamoff>(header.e_phoff + index * sizeof segment));
    stream.read(reinterpret_cast<char*>(&segment), sizeof segment);
    if (segment.p_type == PT_LOAD) {
      end = std::max<std::size_t>(end, segment.p_offset + segment.p_filesz);
    }
  }
  return end;
}

TEST_F(UnloadableTest, a_file_that_was_cut_off) {
  const std::string whole = TestSupport::modulePath("loader_complete");
  const std::size_t end = endOfSegments(whole);
  ASSERT_GT(end, 4096U);
  for (const std::size_t size : {1UL, 16UL, 63UL, 64UL, 100UL, 600UL, 4096UL, end / 2, end - 1}) {
    const std::string path = m_directory.file("cut" + std::to_string(size) + ".so");
    std::filesystem::copy_file(whole, path);
    std::filesystem::resize_file(path, size);
    expectUnloadable(path);
  }
}

TEST_F(UnloadableTest, a_file_that_lost_only_what_is_never_mapped_is_whole) {
  const std::string whole = TestSupport::modulePath("loader_complete");
  const std::string path = m_directory.file("stripped.so");
  std::filesystem::copy_file(whole, path);
  std::filesystem::resize_file(path, endOfSegments(whole));
  setConfigFile(m_loader, load(path));
}

TEST_F(UnloadableTest, a_name_without_a_directory_goes_through_the_search_path_of_the_loader) {
  EXPECT_THAT(load("libc.so.6"), NotNull());
  EXPECT_THROW(load("libthere-is-no-such-library.so"), DiagCtrlLoadLibraryFailed);
}

// --- Several threads

TEST_F(LoaderTest, a_package_that_takes_its_time_holds_nobody_up) {
  const pDllHandle slow = loadScripted("KAPPA");
  std::promise<void> release;
  Script::of("KAPPA").on(Call::GetDiagnostics, [gate = release.get_future().share()](
                                                   const Scripted::CallRecord&) { gate.wait(); });
  {
    const TestSupport::Companion inside([&] { askForDiagnostics(m_loader, slow); });
    ASSERT_TRUE(Script::of("KAPPA").awaitCalls(Call::GetDiagnostics));
    const pDllHandle other = loadScripted("LAMBDA");
    askForEnumerator(m_loader, other);
    m_loader.releaseLibrary(
        m_loader.loadPackage(TestSupport::modulePath("loader_complete").c_str()), 0);
    EXPECT_FALSE(inside.ended());
    release.set_value();
  }
  Script::of("KAPPA").on(Call::GetDiagnostics, {});
}

// --- References

TEST_F(LoaderTest, each_load_is_a_reference_and_the_last_release_unloads) {
  m_packages.add("IOTA");
  const std::string path = m_packages.libraryPath("IOTA");
  const pDllHandle first = m_loader.loadPackage(path.c_str());
  const pDllHandle second = m_loader.loadPackage(path.c_str());
  m_loader.releaseLibrary(first, -1);
  EXPECT_TRUE(isMapped(path));
  m_loader.releaseLibrary(second, 200);
  EXPECT_FALSE(isMapped(path));
}

TEST_F(LoaderTest, symbols_of_a_package_stay_its_own) {
  loadModule("loader_complete");
  EXPECT_THAT(dlsym(RTLD_DEFAULT, "setPackageConfigFile"), IsNull());
}

TEST_F(LoaderTest, a_release_whose_lock_fails_closes_nothing) {
  if (!TestSupport::locksCanBreak()) {
    GTEST_SKIP() << "built without locks that can break";
  }
  const pDllHandle handle = loadModule("loader_complete");
  const TestSupport::BrokenLock broken(TestSupport::privateMember<LoaderLockTag>(m_loader));
  try {
    m_loader.releaseLibrary(handle, 0);
    ADD_FAILURE() << "nothing thrown";
  } catch (DiagCtrlMutexException& failure) {
    EXPECT_EQ(failure.getMinor(), DiagCtrlBaseException::MutexException);
    EXPECT_THAT(failure.dump(), HasSubstr("DiagnosticPackageInterface::releaseLibrary()"));
  }
  EXPECT_TRUE(isMapped(TestSupport::modulePath("loader_complete")));
}

/// A handle that the loader knows and refuses to close: nobody opened it.
void* handleOfTheLoadedFramework() {
  Dl_info info;
  link_map* map = nullptr;
  const auto address = reinterpret_cast<void*>(&Script::of);
  dladdr1(address, &info, reinterpret_cast<void**>(&map), RTLD_DL_LINKMAP);
  return map;
}

void refuseToReleaseThenBlock() {
  auto* const loader = new DiagnosticPackageInterface;
  const pDllHandle handle = loader->loadPackage(TestSupport::modulePath("loader_complete").c_str());
  try {
    loader->releaseLibrary(handleOfTheLoadedFramework(), 0);
    std::fputs("released\n", stderr);
    _exit(1);
  } catch (DiagCtrlReleaseLibraryFailed& failure) {
    const bool isRight =
        failure.getMinor() == DiagCtrlBaseException::ReleaseLibraryFailed &&
        failure.dump().find("DiagnosticPackageInterface::releaseLibrary()") != std::string::npos;
    std::fputs(isRight ? "refused\n" : "wrong failure\n", stderr);
  }
  auto* const next =
      new TestSupport::Companion([loader, handle] { loader->releaseLibrary(handle, -1); });
  std::fputs(next->blocks() && !next->ended() ? "blocked\n" : "went on\n", stderr);
  _exit(0);
}

TEST(LoaderDeathTest, a_refused_release_keeps_the_lock) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(refuseToReleaseThenBlock(), ::testing::ExitedWithCode(0), "refused\nblocked");
}

}  // namespace
}  // namespace TarvexDiags::DiagCtrl
