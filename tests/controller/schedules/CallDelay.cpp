// A library for LD_AUDIT. It lets whoever calls one of the libraries' exported operations sleep in
// front of it, each time, which makes one single order of threads all but certain:
//
//   TARVEX_CALL_DELAYS  operation:milliseconds, any number of them with a comma in between;
//                       "ResourceLockManager::releaseResourceLock:3" names every operation whose
//                       name without arguments ends so
//
// The dynamic linker asks the library at each binding of a symbol, and tells it of each call
// through the procedure linkage table, also of those between two sources of one library. It does so
// where symbols are bound late, as they are unless LD_BIND_NOW is set. When the process ends, an
// operation that was never called is told on the error output: a name with a mistake in it delays
// nothing.

#include <cxxabi.h>
#include <link.h>

#include <atomic>
#include <cstdlib>
#include <ctime>
#include <deque>
#include <iostream>
#include <memory>
#include <sstream>
#include <string>
#include <utility>

namespace {

struct Delay {
  Delay(std::string anOperation, long aNumber)
      : operation(std::move(anOperation)), milliseconds(aNumber) {}

  const std::string operation;
  const long milliseconds;
  std::atomic<unsigned long> calls{0};
};

class Delays {
 public:
  Delays() {
    const char* const text = std::getenv("TARVEX_CALL_DELAYS");
    std::stringstream entries(text == nullptr ? "" : text);
    for (std::string entry; std::getline(entries, entry, ',');) {
      const std::size_t colon = entry.rfind(':');
      char* end = nullptr;
      const std::string length = colon == std::string::npos ? "" : entry.substr(colon + 1);
      const long milliseconds = std::strtol(length.c_str(), &end, 10);
      if (length.empty() || *end != '\0' || milliseconds < 0) {
        std::cerr << "TARVEX_CALL_DELAYS: not operation:milliseconds: " << entry << '\n';
        std::abort();
      }
      m_delays.emplace_back(entry.substr(0, colon), milliseconds);
    }
  }
  ~Delays() {
    for (const Delay& delay : m_delays) {
      if (m_hasController && delay.calls == 0) {
        std::cerr << "TARVEX_CALL_DELAYS: never called: " << delay.operation << '\n';
      }
    }
  }
  Delays(const Delays&) = delete;
  Delays& operator=(const Delays&) = delete;

  void seeObject(const std::string& file) {
    m_hasController = m_hasController || file.find("libdiagctrl.so") != std::string::npos;
  }

  Delay* find(const char* symbol) {
    if (m_delays.empty()) {
      return nullptr;
    }
    const std::string name = nameOf(symbol);
    for (Delay& delay : m_delays) {
      const std::string& operation = delay.operation;
      if (name == operation ||
          (name.size() > operation.size() + 1 && name.ends_with("::" + operation))) {
        return &delay;
      }
    }
    return nullptr;
  }

 private:
  /// "Space::Class::operation", without the arguments.
  static std::string nameOf(const char* symbol) {
    int status = 0;
    const std::unique_ptr<char, decltype(&std::free)> text(
        abi::__cxa_demangle(symbol, nullptr, nullptr, &status), &std::free);
    const std::string name = text != nullptr ? text.get() : symbol;
    return name.substr(0, name.find('('));
  }

  std::deque<Delay> m_delays;
  bool m_hasController = false;
};

Delays& delays() {
  static Delays all;
  return all;
}

}  // namespace

#define TARVEX_AUDIT extern "C" __attribute__((visibility("default")))

TARVEX_AUDIT unsigned int la_version(unsigned int version) {
  delays();
  return version;
}

TARVEX_AUDIT unsigned int la_objopen(link_map* object, Lmid_t space, std::uintptr_t* /*cookie*/) {
  delays().seeObject(object->l_name);
  return space == LM_ID_BASE ? LA_FLG_BINDTO | LA_FLG_BINDFROM : 0;
}

TARVEX_AUDIT std::uintptr_t la_symbind64(Elf64_Sym* symbol, unsigned int /*index*/,
                                         std::uintptr_t* /*from*/, std::uintptr_t* /*to*/,
                                         unsigned int* flags, const char* name) {
  *flags |= LA_SYMB_NOPLTEXIT;
  if (delays().find(name) == nullptr) {
    *flags |= LA_SYMB_NOPLTENTER;
  }
  return symbol->st_value;
}

TARVEX_AUDIT Elf64_Addr la_x86_64_gnu_pltenter(Elf64_Sym* symbol, unsigned int /*index*/,
                                               std::uintptr_t* /*from*/, std::uintptr_t* /*to*/,
                                               La_x86_64_regs* /*registers*/,
                                               unsigned int* /*flags*/, const char* name,
                                               long* /*frameSize*/) {
  if (Delay* const delay = delays().find(name)) {
    ++delay->calls;
    const timespec rest{delay->milliseconds / 1000, delay->milliseconds % 1000 * 1'000'000};
    nanosleep(&rest, nullptr);
  }
  return symbol->st_value;
}
