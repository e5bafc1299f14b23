#include "diagctl/session/ExecutedFiles.h"

#include <dlfcn.h>
#include <link.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <deque>
#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <system_error>
#include <vector>

#include "System/SysUtil.h"
#include "diagctl/session/Folders.h"
#include "diagctl/session/LoaderCache.h"
#include "diagctl/session/LoaderWishes.h"
#include "diagctl/terminal/Translation.h"
#include "packagekit/contract/WorkerPlaces.h"

namespace TarvexDiags::FrontEnd {

namespace {

namespace fs = std::filesystem;
namespace Contract = PackageKit::Contract;

constexpr int kDeepestVariants = 4;  // the loader's own bound

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

// What cannot be read holds nothing that this process would execute.
std::vector<fs::path> filesIn(const fs::path& directory) {
  std::error_code ignored;
  return entriesOf(directory, ignored);
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

/// Directories in which the loader looks for what an object needs on account of others.
using Handed = std::set<std::string>;

/// Those, and what the object adds for what it needs.
Handed handedOnBy(const LoaderWishes& wishes, Handed handed) {
  if (!wishes.keepsToItself) {
    handed.insert(wishes.directories.begin(), wishes.directories.end());
  }
  return handed;
}

/// Goes from the files that are known to those that they make the program load.
class Collection {
 public:
  Collection(PathInspection& inspection, const std::set<std::string>& unread)
      : m_inspection(inspection), m_unread(unread) {
    m_inspection.inspect(LoaderCache::kFile);
    for (const std::string& file : m_filesOfThisProcess) {
      m_ofThisProcess = handedOnBy(loaderWishesOf(file), m_ofThisProcess);
    }
  }

  void addProcess() {
    for (const std::string& file : m_filesOfThisProcess) {
      m_inspection.inspect(file);
    }
    const std::string program = m_filesOfThisProcess.empty() ? "" : m_filesOfThisProcess.front();
    const std::vector<std::string> directories = libraryPathFor(program);
    for (const std::string& directory : directories) {
      addSearched(directory);
    }
    for (const auto& [variable, separators] : {std::pair("LD_PRELOAD", " :"), {"LD_AUDIT", ":"}}) {
      for (const std::string& file : environmentList(variable, separators)) {
        addNeeded(file, program, directories, {});
      }
    }
  }

  void addProgram(const std::string& file) { addObject(file); }

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
    for (const fs::path& path : filesIn(directory)) {
      std::error_code ignored;
      if (path.native().ends_with(".cfg")) {
        addDescription(path);
      } else if (path.native().ends_with(".so")) {
        addObject(path.string(), m_ofThisProcess);
      } else if (fs::is_directory(path, ignored)) {
        addTexts(path);
      }
    }
  }

  /// To be called last: what was added so far needs other files, and those need others.
  void follow() {
    while (!m_toBeRead.empty()) {
      const std::string file = m_toBeRead.front();
      m_toBeRead.pop_front();
      addWishesOf(file);
    }
  }

 private:
  void addDescription(const fs::path& file) {
    m_inspection.inspect(file.string());
    const std::string directory = file.parent_path().string();
    if (m_unread.contains(file.string())) {
      return;
    }
    const std::string needed = valueIn(file.string(), "Package", "SODependencies");
    if (!needed.empty()) {  // looked for beside it, then as it is named
      addObject(directory + "/" + needed, m_ofThisProcess);
      addNeeded(needed, file.string(), libraryPathFor(file.string()), m_ofThisProcess);
    }
    // What the machine is taken for, and which devices are tested, is read below it.
    const std::string machine = valueIn(file.string(), "Package", "SystemRoot");
    if (!machine.empty()) {
      m_inspection.inspect(machine);
    }
    const std::string package = directory + "/lib" + file.stem().string() + ".so";
    const std::string worker = valueIn(file.string(), "Package", Contract::kWorkerPathKey);
    const std::vector<std::string> workers =
        worker.empty() ? workersOf(package) : std::vector<std::string>{worker};
    for (const std::string& program : workers) {
      addObject(program);
      if (isThere(package)) {
        addObject(package, handedOnBy(wishesOf(program), {}));
      }
    }
  }

  void addTexts(const fs::path& language) {
    m_inspection.inspect(language.string());
    for (const fs::path& path : filesIn(language)) {
      if (path.native().ends_with(".cfg")) {
        m_inspection.inspect(path.string());
      }
    }
  }

  static std::vector<std::string> workersOf(const std::string& package) {
    return upToFirstProgram(Contract::workerPlaces(directoryBehindLinks(package),
                                                   frameworkDirectory(),
                                                   {TARVEX_LIBEXEC_FROM_LIB, TARVEX_LIBEXEC_DIR}));
  }

  // Whoever could put a program in an earlier place would have it taken.
  static std::vector<std::string> upToFirstProgram(std::vector<std::string> places) {
    const auto found = std::find_if(places.begin(), places.end(), [](const std::string& place) {
      return access(place.c_str(), X_OK) == 0;
    });
    if (found != places.end()) {
      places.erase(found + 1, places.end());
    }
    return places;
  }

  // An object is read again where it is handed more directories than before, and so at most as
  // often as there are directories, however the objects need each other.
  void addObject(const std::string& file, const Handed& handed = {}) {
    const auto [known, isNew] = m_objects.try_emplace(file);
    const std::size_t before = known->second.size();
    known->second.insert(handed.begin(), handed.end());
    if (isNew) {
      m_inspection.inspect(file);
    }
    if (isNew || known->second.size() > before) {
      m_toBeRead.push_back(file);
    }
  }

  LoaderWishes wishesOf(const std::string& file) const {
    return m_unread.contains(file) ? LoaderWishes{} : loaderWishesOf(file);
  }

  void addWishesOf(const std::string& file) {
    const LoaderWishes wishes = wishesOf(file);
    if (!wishes.interpreter.empty()) {
      addInterpreter(file, wishes);
    }
    const Handed& handed = m_objects[file];
    std::vector<std::string> directories = libraryPathFor(file);
    directories.insert(directories.end(), wishes.directories.begin(), wishes.directories.end());
    if (!wishes.keepsToItself) {
      directories.insert(directories.end(), handed.begin(), handed.end());
    }
    for (const std::string& directory : directories) {
      addSearched(directory);
    }
    const Handed handedOn = handedOnBy(wishes, handed);
    for (const std::string& name : wishes.needed) {
      addNeeded(name, file, directories, handedOn);
    }
  }

  // A worker runs in the directory of the host's, or in the topmost one.
  void addInterpreter(const std::string& file, const LoaderWishes& wishes) {
    addObject(wishes.interpreter);
    if (wishes.interpreter.front() != '/') {
      addObject("/" + wishes.interpreter);
    }
    if (isEnv(wishes.interpreter)) {
      addProgramOfEnv(file, wishes.argument);
    }
  }

  static bool isEnv(const std::string& program) {
    std::error_code ignored;
    return fs::path(program).filename() == "env" ||
           fs::weakly_canonical(program, ignored).filename() == "env";
  }

  // That looks for the program which it is told.
  void addProgramOfEnv(const std::string& script, const std::string& name) {
    if (name.empty() || name.front() == '-' || name.find_first_of("= \t") != std::string::npos) {
      m_inspection.tell(tr("{}: is a script whose interpreter cannot be told", script));
      return;
    }
    std::vector<std::string> places;
    for (const std::string& directory :
         name.find('/') == std::string::npos ? searchPath() : std::vector<std::string>{""}) {
      places.push_back(directory.empty() ? name : directory + "/" + name);
    }
    for (const std::string& place : upToFirstProgram(places)) {
      addObject(place);
    }
  }

  static std::vector<std::string> searchPath() {
    return std::getenv("PATH") == nullptr ? elementsOf("/bin:/usr/bin", ":")
                                          : environmentList("PATH", ":");
  }

  // Where the loader looks for shared objects: what lies in it counts when it is looked for, but of
  // what is below it the loader chooses by the processor, and any may be chosen.
  void addSearched(const std::string& directory) {
    if (!m_searched.insert(directory).second) {
      return;
    }
    m_inspection.inspect(directory);
    for (const std::string& variants : variantDirectoriesOf(directory)) {
      addVariants(variants, kDeepestVariants);
    }
  }

  void addVariants(const std::string& directory, int depth) {
    m_inspection.inspect(directory);
    for (const fs::path& entry : filesIn(directory)) {
      std::error_code ignored;
      if (!fs::is_directory(entry, ignored)) {
        addObject(entry.string());
      } else if (depth > 0) {
        addVariants(entry.string(), depth - 1);
      }
    }
  }

  // A name with a "/" is a path; any other one is looked for.
  void addNeeded(const std::string& wish, const std::string& by,
                 const std::vector<std::string>& directories, const Handed& handed) {
    for (const std::string& name : expansionsOf(wish, by)) {
      if (name.find('/') != std::string::npos) {
        addObject(name, handed);
        continue;
      }
      for (const std::string& directory : directories) {
        const std::string file = directory + "/" + name;
        if (isThere(file)) {
          addObject(file, handed);
        }
      }
      for (const std::string& file : m_cache.pathsOf(name)) {
        addObject(file, handed);
      }
    }
  }

  static std::vector<std::string> libraryPathFor(const std::string& file) {
    std::vector<std::string> directories;
    for (const std::string& element : environmentList("LD_LIBRARY_PATH", ":;")) {
      for (const std::string& directory : expansionsOf(element, file)) {
        directories.push_back(directory);
      }
    }
    return directories;
  }

  PathInspection& m_inspection;
  const std::set<std::string>& m_unread;
  const std::vector<std::string> m_filesOfThisProcess = filesOfThisProcess();
  const LoaderCache m_cache;
  Handed m_ofThisProcess;                   ///< to what the controller loads
  std::map<std::string, Handed> m_objects;  ///< with what each is handed
  std::deque<std::string> m_toBeRead;       ///< of those
  std::set<std::string> m_searched;         ///< the directories where they are looked for
};

}  // namespace

void inspectExecutedFiles(const std::string& controlFile, const std::string& packageDirectory,
                          PathInspection& inspection, const std::set<std::string>& unread) {
  Collection collection(inspection, unread);
  collection.addControlFile(controlFile);
  if (!packageDirectory.empty()) {
    collection.addPackages(packageDirectory);
  }
  collection.addProcess();
  collection.follow();
}

void inspectProgram(const std::string& program, PathInspection& inspection) {
  const std::set<std::string> unread;
  Collection collection(inspection, unread);
  collection.addProgram(program);
  collection.follow();
}

}  // namespace TarvexDiags::FrontEnd
