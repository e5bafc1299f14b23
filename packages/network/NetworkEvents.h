#pragma once

#include "packages/common/RunJournal.h"
#include "packages/network/NetworkReasons.h"

namespace TarvexDiags::Network {

using Common::NotSupported;
using Common::RunJournal;

/// @brief The codes of the package's events, as network.cfg lists them: below 100 information, from
/// 100 on warnings, from 200 on errors. The comment names the parameters, in order.
enum class NetworkEvent : unsigned int {
  Link = 1,               ///< interface, state, speed, duplex
  CountersQuiet = 2,      ///< interface, packets received, packets sent meanwhile
  SelfTestPassed = 3,     ///< interface, tests
  StreamVerified = 4,     ///< interface, bytes, rate, connections
  DatagramsVerified = 5,  ///< interface, datagrams, bytes
  Driver = 6,             ///< interface, driver, version, firmware, bus
  FewDrops = 7,           ///< interface, counter, by how much it rose
  ReceiverOverran = 8,    ///< interface, datagrams that found no room in the receiver's buffer
  TimeIsOver = 9,         ///< interface, seconds, percent of the data that was sent in them

  SlowerThanBoth = 101,   ///< interface, speed in Mb/s, the best that both ends offer
  HalfDuplex = 102,       ///< interface
  DropsCounted = 103,     ///< interface, counter, by how much it rose
  SlowerThanAsked = 104,  ///< interface, rate, rate asked for
  Reordered = 105,        ///< interface, datagrams, sequence number of the first
  PathFiltered = 106,     ///< interface, cause: data is lost where no hardware takes part
  PoorRate = 107,         ///< interface, rate, seconds in which it was seen

  NoLink = 201,              ///< interface, state
  ErrorsCounted = 202,       ///< interface, counter, by how much it rose
  SelfTestFailed = 203,      ///< interface, part of the test, its result
  Corrupted = 204,           ///< interface, position, expected, found, differing bits
  BytesLost = 205,           ///< interface, position, bytes
  BytesRepeated = 206,       ///< interface, position, bytes
  DatagramsLost = 207,       ///< interface, datagrams, sequence number of the first
  DatagramCorrupted = 208,   ///< interface, sequence number, place, expected, found
  DatagramsRepeated = 209,   ///< interface, datagrams, sequence number of the first
  Stalled = 210,             ///< interface, seconds, position
  LinkFlapped = 211,         ///< interface, changes of the carrier
  BelowMinimumSpeed = 212,   ///< interface, speed in Mb/s, speed asked for
  ConnectionBroken = 213,    ///< interface, cause
  NotConnected = 214,        ///< interface, cause
  DamagedPackets = 215,      ///< interface, packets whose checksum was wrong
  DatagramsCorrupted = 216,  ///< interface, datagrams, sequence number of the first
  Trickled = 217,            ///< interface, bytes, seconds that they took
};

}  // namespace TarvexDiags::Network
