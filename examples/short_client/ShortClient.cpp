// short_client [control file [language]]: runs every test on every device, prints the outcome.

#include <chrono>
#include <cstdio>
#include <map>

#include "DiagCtrl/Client.h"

using namespace TarvexDiags::DiagCtrl;

int main(int argc, char** argv) try {
  const char* const language = argc > 2 ? argv[2] : "en";
  Client client(argc > 1 ? argv[1] : CONTROL_FILE);
  auto events = client.events();
  auto results = client.results();
  client.enumerate();
  std::map<unsigned long, int> packageOf;  // the package of each request
  for (const int package : client.packages()) {
    for (const auto request : client.queue(package, settingsFor(1, std::chrono::minutes(10)))) {
      packageOf[request] = package;
    }
  }
  bool allPassed = !packageOf.empty();
  for (bool isPending = true; isPending; client.wait(std::chrono::seconds(1))) {
    isPending = !client.unfinished().empty();  // asked first: what has ended was delivered
    for (const auto& event : events.take()) {
      std::puts(client.describe(packageOf[event.getTestRequestId()], event, language).c_str());
    }
    for (const auto& result : results.take()) {
      const bool isPassed = result.getTestResult() == TarvexDiags::Diag::DiagnosticResult::PASSED;
      std::printf("Request %u: %s\n", result.getTestRequestId(),
                  isPassed ? "passed" : "NOT passed");
      allPassed = allPassed && isPassed;
    }
  }
  return allPassed ? 0 : 1;
} catch (const CallFailed& failure) {
  std::fprintf(stderr, "%s\n", failure.what());
  return 2;
}
