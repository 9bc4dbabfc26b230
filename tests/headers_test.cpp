#include <gtest/gtest.h>

// The real check is that this executable builds: each public header has its own translation unit.
TEST(PublicHeaders, EachCompilesOnItsOwn) { SUCCEED(); }
