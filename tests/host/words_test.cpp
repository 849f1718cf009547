// Host word formats (immediates, headers, GMP records with 32-bit limbs) and the memory gateway.
#include <gmp.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "host/gmp_record.hpp"
#include "host/memory.hpp"
#include "host/words.hpp"

namespace {

using vorn::word;

TEST(Immediates, WordsAndValuesAtTheRangeLimits) {
  struct case_t {
    std::int32_t value;
    word stored;
  };
  const case_t cases[] = {{-0x40000000, 0x80000001u}, {-1, 0xffffffffu}, {0, 1u},
                          {1, 3u},                    {0x3fffffff, 0x7fffffffu}};
  for (const auto& c : cases) {
    EXPECT_EQ(vorn::make_immediate(c.value), c.stored) << c.value;
    EXPECT_TRUE(vorn::is_immediate(c.stored));
    EXPECT_EQ(vorn::immediate_value(c.stored), c.value);
  }
  EXPECT_FALSE(vorn::is_immediate(0x1000u));  // an object address
}

TEST(Headers, TypeIdsOf32AndMoreMatchNoKnownId) {
  for (std::uint32_t id = 0; id < 64; ++id) {
    const word header = (id << 26) | 5u;
    const std::int32_t t = vorn::header_type(header);
    EXPECT_EQ(vorn::header_length(header), 5);
    if (id < 32) {
      EXPECT_EQ(t, static_cast<std::int32_t>(id));
    } else {
      EXPECT_LT(t, 0) << id;
      for (std::int32_t known : {VORN_INTNEG, VORN_INTPOS, VORN_NAME, VORN_NAMEREF, VORN_PROD, VORN_SUM,
                                 VORN_FUNCALL, VORN_EQUALITY})
        EXPECT_NE(t, known);
    }
  }
  // Bit 25 is not part of the length.
  EXPECT_EQ(vorn::header_length((16u << 26) | (1u << 25) | 7u), 7);
}

// A record written below 4 GiB (its _mp_d is a word) and read back through GMP.
class Records : public ::testing::Test {
 protected:
  void SetUp() override {
    memory = static_cast<word*>(vorn::gateway_malloc_low(64 * sizeof(word)));
    ASSERT_NE(memory, nullptr);
  }
  void TearDown() override { vorn::gateway_free_low(memory); }
  word* memory = nullptr;
};

TEST_F(Records, RoundTripExactlyAndGiveFloorResidues) {
  const char* values[] = {"1", "-1", "2147483647", "2147483648", "-4294967296", "4294967297",
                          "18446744073709551616", "-340282366920938463463374607431768211457",
                          "1606938044258990275541962092341162602522202993782792835301375"};
  for (const char* text : values) {
    mpz_t z, back;
    mpz_init_set_str(z, text, 10);
    mpz_init(back);
    const std::int32_t words = vorn::mpz_to_record(memory, z);
    EXPECT_EQ(words, 3 + vorn::record_limb_count(memory)) << text;
    EXPECT_EQ(vorn::record_size(memory) < 0, mpz_sgn(z) < 0) << text;
    vorn::record_to_mpz(back, memory);
    EXPECT_EQ(mpz_cmp(z, back), 0) << text;

    // A copy reads the same, from its own limbs.
    word* copy = memory + 32;
    vorn::copy_record(copy, memory);
    EXPECT_EQ(vorn::word_to_pointer(copy[2]), copy + 3);
    for (std::uint32_t p : {2u, 7u, 32003u, 1073741789u}) {
      EXPECT_EQ(vorn::record_fdiv_ui(copy, p), mpz_fdiv_ui(z, p)) << text << " mod " << p;
    }
    mpz_clear(z);
    mpz_clear(back);
  }
}

TEST_F(Records, LimbsAreThirtyTwoBitsInEveryAbi) {
  mpz_t z;
  mpz_init_set_str(z, "100000002", 16);  // 2^32 + 2: two 32-bit limbs
  vorn::mpz_to_record(memory, z);
  EXPECT_EQ(vorn::record_size(memory), 2);
  EXPECT_EQ(memory[3], 2u);
  EXPECT_EQ(memory[4], 1u);
  mpz_clear(z);
}

TEST(LowMemory, TrackedBlocksLieBelowFourGiBAndAreReleased) {
  const auto before = vorn::gateway_state().live_blocks;
  void* head = nullptr;
  for (std::size_t bytes : {1u, 4096u, 1u << 20}) {
    void* p = vorn::tracked_alloc(&head, bytes);
    ASSERT_NE(p, nullptr);
    EXPECT_LE(reinterpret_cast<std::uintptr_t>(p) + bytes, 0xffffffffu);
    static_cast<unsigned char*>(p)[bytes - 1] = 1;
  }
  EXPECT_EQ(vorn::gateway_state().live_blocks, before + 3);
  vorn::free_tracked(&head);
  EXPECT_EQ(head, nullptr);
  EXPECT_EQ(vorn::gateway_state().live_blocks, before);
}

// Small blocks come from malloc, blocks of several MiB from a mapping of
// their own; both are counted while held and give everything back.
TEST(GatewayMemory, SmallAndMappedBlocksAreCountedAndReleased) {
  const auto before = vorn::gateway_state().live_blocks;
  const auto bytes_before = vorn::gateway_byte_counts().current;
  std::vector<void*> held;
  std::int64_t requested = 0;
  for (std::size_t bytes : {std::size_t{1}, std::size_t{1} << 20, (std::size_t{4} << 20) - 16,
                            (std::size_t{9} << 20) + 5}) {
    auto* p = static_cast<unsigned char*>(vorn::gateway_malloc(bytes));
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(p) % 16, 0u);
    std::memset(p, 0xa5, bytes);
    held.push_back(p);
    requested += static_cast<std::int64_t>(bytes);
  }
  EXPECT_EQ(vorn::gateway_state().live_blocks, before + 4);
  EXPECT_GE(vorn::gateway_byte_counts().current - bytes_before, requested);
  for (void* p : held) vorn::gateway_free(p);
  EXPECT_EQ(vorn::gateway_state().live_blocks, before);
  EXPECT_EQ(vorn::gateway_byte_counts().current, bytes_before);
}

}  // namespace
