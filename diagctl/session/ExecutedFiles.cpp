#include "diagctl/session/ExecutedFiles.h"

#include <dlfcn.h>
#include <link.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <set>
#include <string>
#include <system_error>
#include <vector>

#include "System/SysUtil.h"
#include "diagctl/session/LoaderWishes.h"
#include "packagekit/contract/WorkerPlaces.h"

namespace TarvexDiags::FrontEnd {

namespace {

namespace fs = std::filesystem;
namespace Contract = PackageKit::Contract;

std::string valueIn(const std::string& file, const char* section, const char* key) {
  std::string value;
  System::SysUtil::ReadCfgFile(section, key, value, file, -1);
  return value;
}

std::vector<std::string> environmentList(const char* name, const char* separators) {
  const char* const list = std::getenv(name);
  return elementsOf(list == nullptr ? "" : list, separators);
}

std::string directoryBehindLinks(const std::string& file) {
  std::error_code ignored;
  return fs::weakly_canonical(file, ignored).parent_path().string();
}

bool isThere(const std::string& path) {
  std::error_code ignored;
  return fs::exists(fs::symlink_status(path, ignored));
}

std::vector<fs::path> entriesOf(const fs::path& directory) {
  std::vector<fs::path> entries;
  std::error_code failure;
  for (fs::directory_iterator entry(directory, failure), end; !failure && entry != end;
       entry.increment(failure)) {
    entries.push_back(entry->path());
  }
  std::sort(entries.begin(), entries.end());
  return entries;
}

int addLoadedFile(dl_phdr_info* object, std::size_t /*size*/, void* files) {
  const std::string name = object->dlpi_name;
  if (name.find('/') != std::string::npos) {  // the kernel's own object has no file
    static_cast<std::vector<std::string>*>(files)->push_back(name);
  }
  return 0;
}

std::vector<std::string> filesOfThisProcess() {
  std::vector<std::string> files;
  std::error_code failure;
  const fs::path program = fs::read_symlink("/proc/self/exe", failure);
  if (!failure) {
    files.push_back(program.string());
  }
  dl_iterate_phdr(&addLoadedFile, &files);
  return files;
}

std::string frameworkDirectory() {
  Dl_info info{};
  return dladdr(reinterpret_cast<const void*>(&System::SysUtil::getOs), &info) != 0
             ? directoryBehindLinks(info.dli_fname)
             : "";
}

/// Goes from the files that are known to those that they make the program load.
class Collection {
 public:
  explicit Collection(PathInspection& inspection)
      : m_inspection(inspection), m_libraryPath(environmentList("LD_LIBRARY_PATH", ":;")) {}

  void addProcess() {
    for (const std::string& file : filesOfThisProcess()) {
      m_inspection.inspect(file);
    }
    for (const std::string& directory : m_libraryPath) {
      m_inspection.inspect(directory);
    }
    for (const auto& [variable, separators] : {std::pair("LD_PRELOAD", " :"), {"LD_AUDIT", ":"}}) {
      for (const std::string& file : environmentList(variable, separators)) {
        addNeeded(file, {});
      }
    }
  }

  void addControlFile(const std::string& file) {
    m_inspection.inspect(file);
    for (const char* key : {"LogDirPath", "MsgFilePath"}) {
      const std::string path = valueIn(file, "GlobalSettings", key);
      if (!path.empty()) {
        m_inspection.inspect(path);
      }
    }
  }

  // All that the directory holds, since which files are packages changes with each new one.
  void addPackages(const std::string& directory) {
    m_inspection.inspect(directory);
    for (const fs::path& path : entriesOf(directory)) {
      std::error_code ignored;
      if (path.native().ends_with(".cfg")) {
        addDescription(path);
      } else if (path.native().ends_with(".so")) {
        addObject(path.string());
      } else if (fs::is_directory(path, ignored)) {
        addTexts(path);
      }
    }
  }

 private:
  void addDescription(const fs::path& file) {
    m_inspection.inspect(file.string());
    const std::string directory = file.parent_path().string();
    const std::string needed = valueIn(file.string(), "Package", "SODependencies");
    if (!needed.empty()) {  // looked for beside it, then as it is named
      addObject(directory + "/" + needed);
      addNeeded(needed, {});
    }
    const std::string worker = valueIn(file.string(), "Package", Contract::kWorkerPathKey);
    if (worker.empty()) {
      addWorkerOf(directory + "/lib" + file.stem().string() + ".so");
    } else {
      addObject(worker);
    }
  }

  void addTexts(const fs::path& language) {
    m_inspection.inspect(language.string());
    for (const fs::path& path : entriesOf(language)) {
      if (path.native().ends_with(".cfg")) {
        m_inspection.inspect(path.string());
      }
    }
  }

  void addWorkerOf(const std::string& package) {
    for (const std::string& place :
         Contract::workerPlaces(directoryBehindLinks(package), frameworkDirectory(),
                                {TARVEX_LIBEXEC_FROM_LIB, TARVEX_LIBEXEC_DIR})) {
      addObject(place);
      if (access(place.c_str(), X_OK) == 0) {
        return;
      }
    }
  }

  // With what it asks the loader for, and so on.
  void addObject(const std::string& file) {
    if (!m_objects.insert(file).second) {
      return;
    }
    m_inspection.inspect(file);
    const LoaderWishes wishes = loaderWishesOf(file);
    if (!wishes.interpreter.empty()) {
      m_inspection.inspect(wishes.interpreter);
    }
    for (const std::string& directory : wishes.directories) {
      m_inspection.inspect(directory);
    }
    for (const std::string& name : wishes.needed) {
      addNeeded(name, wishes.directories);
    }
  }

  // A name with a "/" is a path; any other one is looked for.
  void addNeeded(const std::string& name, std::vector<std::string> directories) {
    if (name.find('/') != std::string::npos) {
      addObject(name);
      return;
    }
    directories.insert(directories.end(), m_libraryPath.begin(), m_libraryPath.end());
    for (const std::string& directory : directories) {
      const std::string file = directory + "/" + name;
      if (isThere(file)) {
        addObject(file);
      }
    }
  }

  PathInspection& m_inspection;
  const std::vector<std::string> m_libraryPath;
  std::set<std::string> m_objects;
};

}  // namespace

void inspectExecutedFiles(const std::string& controlFile, const std::string& packageDirectory,
                          PathInspection& inspection) {
  Collection collection(inspection);
  collection.addControlFile(controlFile);
  if (!packageDirectory.empty()) {
    collection.addPackages(packageDirectory);
  }
  collection.addProcess();
}

}  // namespace TarvexDiags::FrontEnd
