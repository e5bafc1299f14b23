// What belongs to others is not executed and not read as code when root runs the program.

#include <gmock/gmock.h>

#include <filesystem>

#include "diagctl/session/Safety.h"
#include "tests/diagctl/Diagctl.h"
#include "tests/security/People.h"

namespace TarvexDiags::SecurityTest {
namespace {

using DiagctlTest::diagctl;
using DiagctlTest::Outcome;
using DiagctlTest::Program;
using ::testing::AllOf;
using ::testing::HasSubstr;
namespace fs = std::filesystem;

class Trust : public DiagctlTest::Diagctl {
 protected:
  void SetUp() override {
    SKIP_UNLESS_ROOT();
    SKIP_UNLESS_BUILD_IS_TRUSTED();
    addMixedPackage();
  }

  /// Each verb that loads packages refuses, and `check` finds it.
  void expectRefusal(const std::string& finding, const Program::Options& options = {}) {
    for (const char* verb : {"list", "run", "estimate"}) {
      const Outcome refused = run({verb}, options);
      EXPECT_EQ(refused.exitCode, DiagctlTest::kNoVerdict) << verb;
      EXPECT_THAT(refused.err, AllOf(HasSubstr(finding), HasSubstr("--allow-insecure"))) << verb;
    }
    EXPECT_THAT(run({"check"}, options).out, HasSubstr("permissions: " + finding));
  }

  static std::string foreign(const std::string& path) {
    return path + ": is owned by user 61234 and not by root";
  }

  std::string fileOfStranger(const std::string& path, int mode = 0755) const {
    fs::create_directories(fs::path(path).parent_path());
    place.write(path, "#!/bin/sh\nexit 1\n");
    fs::permissions(path, fs::perms(mode));
    give(path, kStranger);
    return path;
  }

  std::string directoryOfStranger(const std::string& name) const {
    fs::create_directory(place.path(name));
    give(place.path(name), kStranger);
    return place.path(name);
  }

  void addTo(const std::string& file, const std::string& section, const std::string& line) const {
    place.replaceIn(file, "[" + section + "]\n", "[" + section + "]\n" + line + "\n");
  }
};

TEST_F(Trust, is_what_root_has_in_its_own_files) {
  EXPECT_EQ(run({"run", "-t", "Good"}).exitCode, DiagctlTest::kPassed);
}

TEST_F(Trust, is_refused_to_a_package_of_another) {
  give(place.path("packages/libMIX.so"), kStranger);
  expectRefusal(foreign(place.path("packages/libMIX.so")));
}

TEST_F(Trust, is_refused_to_texts_of_another) {
  give(place.path("packages/de/MIX.cfg"), kStranger);
  expectRefusal(foreign(place.path("packages/de/MIX.cfg")));
}

TEST_F(Trust, is_refused_to_a_message_file_of_another) {
  const std::string file = fileOfStranger(place.path("messages.cfg"), 0644);
  addTo(place.controlFile(), "GlobalSettings", "MsgFilePath=" + file);
  expectRefusal(foreign(file));
}

TEST_F(Trust, is_refused_to_a_shared_object_of_another_that_a_description_needs) {
  const std::string file = fileOfStranger(place.path("packages/needed.so.1"));
  addTo(place.packageFile("MIX"), "Package", "SODependencies=needed.so.1");
  expectRefusal(foreign(file));
}

TEST_F(Trust, is_refused_to_a_worker_of_another_that_a_description_names) {
  const std::string file = fileOfStranger(place.path("worker"));
  addTo(place.packageFile("MIX"), "Package", "WorkerPath=" + file);
  expectRefusal(foreign(file));
}

TEST_F(Trust, is_refused_to_a_worker_of_another_beside_the_package) {
  expectRefusal(foreign(fileOfStranger(place.path("packages/tarvex-package-worker"))));
}

TEST_F(Trust, is_refused_to_a_directory_for_logs_of_another) {
  give(place.path("logs"), kStranger);
  expectRefusal(foreign(place.path("logs")));
}

TEST_F(Trust, is_refused_to_a_directory_for_logs_that_others_may_write_to) {
  fs::permissions(place.path("logs"), fs::perms(01777));
  expectRefusal(place.path("logs") + ": may be written by others (mode 1777)");
}

// The library that makes a hash reads a configuration which may name code.
TEST_F(Trust, is_not_given_to_what_the_environment_has_a_library_load) {
  const std::string file = place.path("openssl.cnf");
  const std::string mark = place.path("mark");
  place.write(file,
              "openssl_conf = all\n[all]\nproviders = both\n[both]\ndefault = one\nother = two\n"
              "[one]\nactivate = 1\n[two]\nactivate = 1\nmodule = " TARVEX_TELLING_OBJECT "\n");
  Program::Options options;
  options.environment = {{"OPENSSL_CONF", file}, {"TARVEX_LOADED", mark}};
  EXPECT_EQ(run({"inventory", "--redact"}, options).exitCode, DiagctlTest::kPassed);
  EXPECT_FALSE(fs::exists(mark));
}

TEST_F(Trust, is_refused_to_a_script_whose_interpreter_is_anothers) {
  const std::string interpreter = fileOfStranger(place.path("interpreter"));
  const std::string script = place.path("script");
  place.write(script, "#!" + interpreter + "\n");
  fs::permissions(script, fs::perms(0755));
  EXPECT_NO_THROW(FrontEnd::requireSecurePath(script));
  EXPECT_THROW(FrontEnd::requireSecureProgram(script), FrontEnd::InsecureFiles);
  EXPECT_NO_THROW(FrontEnd::requireSecureProgram("/bin/sh"));
}

TEST_F(Trust, is_refused_to_what_the_loader_is_told_to_look_in) {
  Program::Options options;
  for (const std::string variable : {"LD_LIBRARY_PATH", "LD_AUDIT", "LD_PRELOAD"}) {
    const std::string path = directoryOfStranger(variable);
    options.environment = {{variable, path}};
    expectRefusal(foreign(path), options);
  }
}

TEST_F(Trust, is_refused_to_a_working_directory_of_another_as_an_empty_element) {
  const fs::path before = fs::current_path();
  const std::string directory = directoryOfStranger("here");
  fs::current_path(directory);
  Program::Options options;
  options.environment["LD_LIBRARY_PATH"] = "/nowhere:";
  expectRefusal(foreign(directory), options);
  fs::current_path(before);
}

TEST_F(Trust, is_nothing_that_a_plain_user_is_asked_for) {
  fileOfStranger(place.path("packages/tarvex-package-worker"));
  giveAll(fs::path(place.path("..")), kStranger);
  Program::Options options;
  options.user = kStranger;
  options.environment["LD_LIBRARY_PATH"] = directoryOfStranger("libraries");
  EXPECT_EQ(run({"run", "-t", "Good"}, options).exitCode, DiagctlTest::kPassed);
  EXPECT_THAT(run({"check"}, options).out, ::testing::Not(HasSubstr("permissions:")));
}

/// With the framework library where the test can put things beside it.
class TrustBesideTheFramework : public Trust {
 protected:
  void SetUp() override {
    Trust::SetUp();
    if (IsSkipped()) {
      return;
    }
    fs::create_directory(place.path("lib"));
    fs::copy_file(fs::path(TARVEX_FRAMEWORK_LIBRARY), framework);
    fs::permissions(framework, fs::perms(0755));
    options.environment["LD_LIBRARY_PATH"] = place.path("lib");
  }

  const std::string framework = place.path("lib/libdiagframework.so.1");
  Program::Options options;
};

TEST_F(TrustBesideTheFramework, is_what_root_has_there) {
  EXPECT_EQ(run({"run", "-t", "Good"}, options).exitCode, DiagctlTest::kPassed);
}

TEST_F(TrustBesideTheFramework, is_refused_to_the_library_of_another) {
  give(framework, kStranger);
  expectRefusal(foreign(framework), options);
}

TEST_F(TrustBesideTheFramework, is_refused_to_workers_of_another) {
  for (const char* worker :
       {"lib/packages/tarvex-package-worker", "libexec/tarvexdiags/tarvex-package-worker"}) {
    const std::string file = fileOfStranger(place.path(worker));
    expectRefusal(foreign(file), options);
    fs::remove(file);
  }
}

}  // namespace
}  // namespace TarvexDiags::SecurityTest
