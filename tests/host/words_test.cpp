#include <gtest/gtest.h>
#include "host/words.hpp"
TEST(Words, Immediates) { EXPECT_EQ(vorn::make_immediate(-1), 0xffffffffu); }
