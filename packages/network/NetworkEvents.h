#pragma once

#include <string>
#include <vector>

#include "packages/common/RunJournal.h"

namespace TarvexDiags::Network {

using Common::NotSupported;
using Common::RunJournal;
using Common::Severity;

/// @brief The codes of the package's events, as network.cfg lists them: below 100 information, from
/// 100 on warnings, from 200 on errors. The comment names the parameters, in order.
enum class NetworkEvent : unsigned int {
  link = 1,               ///< interface, state, speed, duplex
  countersQuiet = 2,      ///< interface, packets received, packets sent meanwhile
  selfTestPassed = 3,     ///< interface, tests
  streamVerified = 4,     ///< interface, bytes, rate, connections
  datagramsVerified = 5,  ///< interface, datagrams, bytes
  driver = 6,             ///< interface, driver, version, firmware, bus
  fewDrops = 7,           ///< interface, counter, by how much it rose

  unusual = 100,          ///< interface, warnings: closes a test without a verdict
  slowerThanBoth = 101,   ///< interface, speed in Mb/s, the best that both ends offer
  halfDuplex = 102,       ///< interface
  dropsCounted = 103,     ///< interface, counter, by how much it rose
  slowerThanAsked = 104,  ///< interface, rate, rate asked for
  reordered = 105,        ///< interface, datagrams, sequence number of the first

  failed = 200,             ///< interface, errors: closes a test that failed
  noLink = 201,             ///< interface, state
  errorsCounted = 202,      ///< interface, counter, by how much it rose
  selfTestFailed = 203,     ///< interface, part of the test, its result
  corrupted = 204,          ///< interface, position, expected, found, differing bits
  bytesLost = 205,          ///< interface, position, bytes
  bytesRepeated = 206,      ///< interface, position, bytes
  datagramsLost = 207,      ///< interface, datagrams, sequence number of the first
  datagramCorrupted = 208,  ///< interface, sequence number, place, expected, found
  datagramsRepeated = 209,  ///< interface, datagrams, sequence number of the first
  stalled = 210,            ///< interface, seconds, position
  linkFlapped = 211,        ///< interface, changes of the carrier
  belowMinimumSpeed = 212,  ///< interface, speed in Mb/s, speed asked for
  connectionBroken = 213,   ///< interface, cause
};

/// @brief The severity that the code's number stands for.
Severity severityOf(NetworkEvent event);

/// @brief Throws std::system_error unless the errno of a failed send or receive says that the
/// connection is at fault: a lack of memory, a packet filter that forbids or an interface that was
/// switched off say nothing about it.
void requireFaultOfConnection(int error, const std::string& interface);

/// @brief Reports an event of this package with its severity.
void report(RunJournal& journal, NetworkEvent event, std::vector<std::string> parameters);

}  // namespace TarvexDiags::Network
