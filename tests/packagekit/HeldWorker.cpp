// A worker that is at its end but for one thread: held_worker FOLDER HOST, and what else a worker
// is told. It sends what the file FOLDER/frames holds. Where there is FOLDER/is-silent, the thread
// looks into the file system FOLDER/mount, and the process ends when that shows in FOLDER/taken.
// Else the thread waits for FOLDER/may-end.

#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>

#include "packagekit/worker/Reaper.h"

namespace {

void awaitFile(const std::string& path) {
  while (!std::filesystem::exists(path)) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
}

bool sendFrames(const std::string& file) {
  constexpr int socket = 3;
  std::ifstream frames(file, std::ios::binary);
  const std::string bytes{std::istreambuf_iterator<char>(frames), {}};
  return write(socket, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size());
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 6) {
    return 64;
  }
  const std::string folder = arguments[1];
  TarvexDiags::PackageKit::runBelowReaper(std::atoi(arguments[2]));
  const bool isHeld = std::filesystem::exists(folder + "/is-silent");
  std::thread([folder, isHeld] {
    if (isHeld) {
      struct stat status {};
      stat((folder + "/mount/anything").c_str(), &status);
    } else {
      awaitFile(folder + "/may-end");
      _exit(EXIT_SUCCESS);
    }
  }).detach();
  if (isHeld) {
    awaitFile(folder + "/taken");
  }
  if (!sendFrames(folder + "/frames")) {
    return EXIT_FAILURE;
  }
  if (isHeld) {
    _exit(EXIT_SUCCESS);
  }
  pthread_exit(nullptr);
}
