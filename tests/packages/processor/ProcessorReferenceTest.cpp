// What the processor is held against, itself held against published results; and what is read of
// the machine.

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "packages/processor/Cores.h"
#include "packages/processor/CryptographyReference.h"
#include "packages/processor/FixedPoint.h"
#include "packages/processor/LoadChecks.h"
#include "packages/processor/SoftFloat.h"
#include "packages/processor/Verifier.h"
#include "tests/support/FakeMachine.h"
#include "watch/HealthCounters.h"

namespace TarvexDiags::Processor {
namespace {

using Watching::HealthCounters;
using Watching::Trouble;

std::uint64_t bitsOf(double value) {
  return std::bit_cast<std::uint64_t>(value);
}

TEST(SoftFloatTest, sums_are_rounded_once_in_each_direction) {
  const auto add = [](double left, double right, Rounding rounding) {
    return SoftDouble::add(bitsOf(left), bitsOf(right), rounding);
  };
  EXPECT_EQ(add(0.1, 0.2, Rounding::ToNearest), 0x3fd3333333333334U);
  EXPECT_EQ(add(0.1, 0.2, Rounding::TowardZero), 0x3fd3333333333333U);
  EXPECT_EQ(add(0.1, 0.2, Rounding::Upward), 0x3fd3333333333334U);
  EXPECT_EQ(add(1, 0x1p-53, Rounding::ToNearest), bitsOf(1)) << "a tie goes to the even one";
  EXPECT_EQ(add(1 + 0x1p-52, 0x1p-53, Rounding::ToNearest), bitsOf(1 + 0x1p-51));
  EXPECT_EQ(add(-1, 0x1p-1074, Rounding::Upward), bitsOf(-1) - 1);
  EXPECT_EQ(add(1e308, 1e308, Rounding::TowardZero), SoftDouble::kLargest);
}

TEST(SoftFloatTest, signs_of_zeros_follow_the_direction) {
  const std::uint64_t one = bitsOf(1);
  EXPECT_EQ(SoftDouble::subtract(one, one, Rounding::ToNearest), 0U);
  EXPECT_EQ(SoftDouble::subtract(one, one, Rounding::Downward), SoftDouble::kSignBit);
  EXPECT_EQ(SoftDouble::add(SoftDouble::kSignBit, SoftDouble::kSignBit, Rounding::Upward),
            SoftDouble::kSignBit);
}

TEST(SoftFloatTest, denormals_are_made_and_used) {
  EXPECT_EQ(SoftDouble::multiply(bitsOf(0x1p-1022), bitsOf(0.5), Rounding::ToNearest),
            0x0008000000000000U);
  EXPECT_EQ(SoftDouble::multiply(1, bitsOf(0.5), Rounding::ToNearest), 0U);
  EXPECT_EQ(SoftDouble::multiply(1, bitsOf(0.75), Rounding::ToNearest), 1U);
  EXPECT_EQ(SoftDouble::multiply(1, bitsOf(0x1p-1000), Rounding::Upward), 1U);
  EXPECT_EQ(SoftDouble::divide(bitsOf(0x1p-1022), bitsOf(2), Rounding::ToNearest),
            0x0008000000000000U);
  EXPECT_EQ(SoftDouble::add(0x000fffffffffffffU, 1, Rounding::ToNearest), 0x0010000000000000U);
}

TEST(SoftFloatTest, fused_multiplication_and_addition_rounds_once) {
  const double small = 1 + 0x1p-30;
  // (1 + 2^-30)^2 - (1 + 2^-29) is 2^-60; rounded in between it would be 0.
  EXPECT_EQ(SoftDouble::multiplyAdd(bitsOf(small), bitsOf(small), bitsOf(-(1 + 0x1p-29)),
                                    Rounding::ToNearest),
            bitsOf(0x1p-60));
  EXPECT_EQ(SoftDouble::multiplyAdd(SoftDouble::kInfinity, 0, bitsOf(1), Rounding::ToNearest),
            SoftDouble::kNan);
}

TEST(SoftFloatTest, roots_and_quotients_are_exact_or_rounded) {
  EXPECT_EQ(SoftDouble::squareRoot(bitsOf(49), Rounding::Upward), bitsOf(7));
  EXPECT_EQ(SoftDouble::squareRoot(bitsOf(2), Rounding::ToNearest), 0x3ff6a09e667f3bcdU);
  EXPECT_EQ(SoftSingle::divide(0x3f800000, 0x40400000, Rounding::ToNearest), 0x3eaaaaabU);
  EXPECT_EQ(SoftSingle::squareRoot(0x40000000, Rounding::ToNearest), 0x3fb504f3U);
  EXPECT_EQ(SoftDouble::divide(bitsOf(1), 0, Rounding::ToNearest), SoftDouble::kInfinity);
}

TEST(SoftFloatTest, whole_numbers_become_the_nearest_double) {
  EXPECT_EQ(SoftDouble::fromInteger(false, 0, Rounding::ToNearest), 0U);
  EXPECT_EQ(SoftDouble::fromInteger(true, 3, Rounding::ToNearest), bitsOf(-3));
  EXPECT_EQ(SoftDouble::fromInteger(false, ~std::uint64_t{0}, Rounding::ToNearest), bitsOf(0x1p64));
  EXPECT_EQ(SoftDouble::fromInteger(false, (std::uint64_t{1} << 53) + 1, Rounding::ToNearest),
            bitsOf(0x1p53));
}

TEST(CryptographyReferenceTest, aes_gives_the_published_cipher_texts) {
  // FIPS 197, appendix B.
  const std::vector<std::uint8_t> key = {0x2b, 0x7e, 0x15, 0x16, 0x28, 0xae, 0xd2, 0xa6,
                                         0xab, 0xf7, 0x15, 0x88, 0x09, 0xcf, 0x4f, 0x3c};
  const Block16 plain = {0x32, 0x43, 0xf6, 0xa8, 0x88, 0x5a, 0x30, 0x8d,
                         0x31, 0x31, 0x98, 0xa2, 0xe0, 0x37, 0x07, 0x34};
  const Block16 cipher = {0x39, 0x25, 0x84, 0x1d, 0x02, 0xdc, 0x09, 0xfb,
                          0xdc, 0x11, 0x85, 0x97, 0x19, 0x6a, 0x0b, 0x32};
  const auto roundKeys = aesRoundKeys(key);
  EXPECT_EQ(roundKeys.size(), 11U);
  EXPECT_EQ(aesEncrypt(plain, roundKeys), cipher);
  EXPECT_EQ(aesDecrypt(cipher, roundKeys), plain);
}

TEST(CryptographyReferenceTest, hashes_give_the_published_digests) {
  const std::string text = "abc";
  const auto padded = shaPadded({reinterpret_cast<const std::uint8_t*>(text.data()), text.size()});
  ASSERT_EQ(padded.size(), 64U);
  auto state1 = kSha1Start;
  sha1Block(state1, padded.data());
  EXPECT_EQ(state1[0], 0xa9993e36U);
  EXPECT_EQ(state1[4], 0x9cd0d89dU);
  auto state256 = kSha256Start;
  sha256Block(state256, padded.data());
  EXPECT_EQ(state256[0], 0xba7816bfU);
  EXPECT_EQ(state256[7], 0xf20015adU);
}

TEST(CryptographyReferenceTest, checksum_and_product_give_the_published_values) {
  std::uint32_t crc = ~std::uint32_t{0};
  for (int word = 0; word < 4; ++word) {
    crc = crc32cStep(crc, 0);
  }
  EXPECT_EQ(~crc, 0x8a9136aaU);
  const std::array<std::uint64_t, 2> product = {0x929633d5d36f0451, 0x1d4d84c85c3440c0};
  EXPECT_EQ(carrylessProduct(0x63746f725d53475d, 0x5b477565726f6e5d), product);
}

TEST(LoadsTest, every_load_gives_its_known_result_for_every_seed) {
  for (const Load& load : kLoads) {
    for (std::uint64_t seed = 1; seed <= kLoadSeeds; ++seed) {
      EXPECT_EQ(load.run(seed), load.golden[seed - 1]) << load.name << ", seed " << seed;
    }
  }
  EXPECT_EQ(kLoads[0].golden, kLoads[1].golden) << "two ways to sort the same numbers";
}

TEST(FixedPointTest, series_give_the_published_constants) {
  const FixedPoint one = FixedPoint::scaled(1, 0);
  EXPECT_EQ(exponentialMinusOne(one).upperWord(), 0x01b7e151628aed2aU);
  EXPECT_EQ(logarithmOfTwo().upperWord(), 0x00b17217f7d1cf79U);
  EXPECT_EQ(sine(one).upperWord(), 0x00d76aa478486770U);
  EXPECT_EQ(sine(-one).upperWord(), 0xff28955b87b7988fU);
  EXPECT_EQ(cosine(one).upperWord(), 0x008a51407da8345cU);
  EXPECT_EQ(arcTangent(one / 2).upperWord(), 0x0076b19c1586ed3dU);
}

TEST(FixedPointTest, numbers_of_the_floating_point_unit_are_taken_over_exactly) {
  EXPECT_EQ(FixedPoint::of(-1.5), FixedPoint::scaled(-3, -1));
  EXPECT_EQ(FixedPoint::of(0x1p-120), FixedPoint::scaled(1, -120));
  EXPECT_EQ(FixedPoint::of(0x1p-1074), FixedPoint());
  EXPECT_FALSE(FixedPoint::scaled(1, 0).isAbout(FixedPoint::of(std::nan("")), 4));
  EXPECT_FALSE(FixedPoint::scaled(1, 0).isAbout(FixedPoint::of(128.0), 4));
#if defined(__x86_64__)
  EXPECT_EQ(FixedPoint::of(0x1.8p-63L), FixedPoint::scaled(3, -64));
#endif
}

TEST(FixedPointTest, products_and_quotients_are_cut_off_in_the_last_place) {
  const FixedPoint third = FixedPoint::scaled(1, 0) / FixedPoint::scaled(3, 0);
  EXPECT_EQ(third.upperWord(), 0x0055555555555555U);
  EXPECT_EQ(-(third * third), -third * third);
  EXPECT_TRUE((third * FixedPoint::scaled(3, 0)).isAbout(FixedPoint::scaled(1, 0), 117));
  EXPECT_EQ(FixedPoint::scaled(11, 0) * FixedPoint::scaled(-11, 0), FixedPoint::scaled(-121, 0));
}

using MachineTest = Tests::FakeMachine;

TEST(CoresTest, processors_that_are_online_are_found_with_their_place_and_name) {
  MachineTest machine;
  machine.has("sys/devices/system/cpu/online", "0-1,4\n");
  machine.has("sys/devices/system/cpu/cpu0/topology/physical_package_id", "0\n");
  machine.has("sys/devices/system/cpu/cpu0/topology/core_id", "0\n");
  machine.has("sys/devices/system/cpu/cpu4/topology/physical_package_id", "1\n");
  machine.has("sys/devices/system/cpu/cpu4/topology/core_id", "3\n");
  machine.has(
      "proc/cpuinfo",
      "processor\t: 0\nmodel name\t: Some CPU: fast\n\nprocessor\t: 4\nmodel name\t: Other\n");
  const std::vector<Core> cores = findCores(machine.files());
  ASSERT_EQ(cores.size(), 3U);
  EXPECT_EQ(cores[0].model, "Some CPU: fast");
  EXPECT_EQ(cores[1].physicalCore, -1);
  EXPECT_EQ(cores[2].number, 4);
  EXPECT_EQ(cores[2].package, 1);
  EXPECT_EQ(cores[2].physicalCore, 3);
  EXPECT_EQ(cores[2].model, "Other");
}

TEST(CoresTest, machine_that_tells_nothing_has_no_cores) {
  EXPECT_TRUE(findCores(MachineTest().files()).empty());
}

TEST(CoresTest, partner_is_the_next_on_another_physical_core_that_may_be_used) {
  // Two physical cores of two threads each: 0 and 2, 1 and 3.
  const std::vector<Core> cores = {{0, 0, 0, ""}, {1, 0, 1, ""}, {2, 0, 0, ""}, {3, 0, 1, ""}};
  EXPECT_EQ(partnerOf(0, cores, {0, 1, 2, 3}), 1);
  EXPECT_EQ(partnerOf(1, cores, {0, 1, 2, 3}), 2);
  EXPECT_EQ(partnerOf(2, cores, {0, 1, 2, 3}), 3);
  EXPECT_EQ(partnerOf(3, cores, {0, 1, 2, 3}), 0);
  EXPECT_EQ(partnerOf(0, cores, {0, 2}), 2) << "a thread of the same core is better than none";
  EXPECT_EQ(partnerOf(0, cores, {0}), -1);
  EXPECT_EQ(partnerOf(9, cores, {1}), 1);
}

TEST(CoresTest, voters_are_spread_over_the_cores_and_leave_out_the_one_under_test) {
  EXPECT_EQ(votersBeside(0, {0, 1, 2, 3, 4, 5, 6, 7, 8}), (std::vector<int>{1, 3, 5, 7}));
  EXPECT_EQ(votersBeside(1, {0, 1}), std::vector<int>{0});
  EXPECT_TRUE(votersBeside(0, {0}).empty());
}

TEST(HealthCountersTest, counters_of_the_core_alone_are_compared) {
  MachineTest machine;
  const std::string folder = "sys/devices/system/cpu/cpu1/thermal_throttle/";
  const auto interrupts = [](int checks, int thresholds) {
    return "            CPU0       CPU1       \n   9:          4          5   IO-APIC   9-fasteoi\n"
           " TRM:          7          0   Thermal event interrupts\n THR:          9          " +
           std::to_string(thresholds) + "   Threshold APIC interrupts\n MCE:          3          " +
           std::to_string(checks) +
           "   Machine check exceptions\n MCP:         30         30   Machine check polls\n"
           " ERR:          0\n";
  };
  machine.has(folder + "core_throttle_count", "5\n").has("proc/interrupts", interrupts(0, 1));
  const HealthCounters before = HealthCounters::read(machine.files(), 1);
  ASSERT_TRUE(before.present());
  EXPECT_TRUE(before.since(before).empty());

  machine.has(folder + "core_throttle_count", "7\n").has("proc/interrupts", interrupts(2, 5));
  machine.has(folder + "package_throttle_count", "70\n");
  const auto grown = HealthCounters::read(machine.files(), 1).since(before);
  ASSERT_EQ(grown.size(), 3U) << "one that was not there before tells nothing";
  EXPECT_EQ(grown.at("core_throttle_count").value, 2U);
  EXPECT_EQ(grown.at("core_throttle_count").trouble, Trouble::Throttling);
  EXPECT_EQ(grown.at("THR").value, 4U);
  EXPECT_EQ(grown.at("THR").trouble, Trouble::Corrected);
  EXPECT_EQ(grown.at("MCE").value, 2U);
  EXPECT_EQ(grown.at("MCE").trouble, Trouble::MachineCheck);
}

TEST(HealthCountersTest, counter_that_was_set_back_has_counted_from_zero) {
  MachineTest machine;
  const std::string file = "sys/devices/system/cpu/cpu1/thermal_throttle/core_throttle_count";
  machine.has(file, "5\n");
  const HealthCounters before = HealthCounters::read(machine.files(), 1);
  machine.has(file, "2\n");
  const auto grown = HealthCounters::read(machine.files(), 1).since(before);
  ASSERT_EQ(grown.size(), 1U);
  EXPECT_EQ(grown.at("core_throttle_count").value, 2U);
}

TEST(HealthCountersTest, core_that_is_not_counted_has_none) {
  MachineTest machine;
  EXPECT_FALSE(HealthCounters::read(machine.files(), 0).present());
  machine.has("proc/interrupts", "            CPU0       \n MCE:          3   Machine checks\n");
  EXPECT_TRUE(HealthCounters::read(machine.files(), 0).present());
  EXPECT_FALSE(HealthCounters::read(machine.files(), 1).present());
}

}  // namespace
}  // namespace TarvexDiags::Processor
