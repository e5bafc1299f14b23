#pragma once

// All that a package's source includes. A whole package:
//
//   #include "packagekit/PackageKit.h"
//
//   using namespace TarvexDiags::PackageKit;
//
//   static std::vector<Device> findFans(const Environment&) {
//     return {{.name = "Fan 1", .resourceTag = "host/fan1", .properties = {{"path", "/sys/..."}}}};
//   }
//
//   constexpr auto kLowestSpeed = required<double>("LowestSpeed");
//
//   static Verdict spins(TestContext& context) {
//     const double rpm = readNumber(context.property("path"));
//     context.measurement("speed", rpm, "rpm");
//     return rpm > context.value(kLowestSpeed) ? passed() : failed(1, {...});
//   }
//
//   TARVEX_PACKAGE(package) {
//     package.discover(findFans);
//     package.tests({{.number = 1, .body = spins, .reads = {kLowestSpeed}}});
//   }

#include "packagekit/Device.h"
#include "packagekit/Environment.h"
#include "packagekit/Exports.h"
#include "packagekit/KitEvents.h"
#include "packagekit/KitInterface.h"
#include "packagekit/Package.h"
#include "packagekit/Setting.h"
#include "packagekit/Settings.h"
#include "packagekit/Support.h"
#include "packagekit/Test.h"
#include "packagekit/TestContext.h"
#include "packagekit/Verdict.h"
